"""Lets a host and a helper in Python talk to the sample helper and the sample host.

    python3 peer_test.py SAMPLE_HOST SAMPLE_HELPER [TEST...]

The first two are the bundles of the build.
"""

import concurrent.futures
import glob
import json
import os
import plistlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

PEER = os.path.dirname(os.path.abspath(__file__))
PATIENCE = 60.0

HELPER_ID = "com.example.samplehelper"
HOST_ID = "com.example.samplehost"
PEER_ID = "com.example.peerhost"
PRODUCT = ["PEER-1", "1.0"]
HOST_PRODUCT = ["SAMPLE-100", "3.2.1"]

CONTROL, DATA = "TQHPHelperControl", "TQHPGetDataByHelper"
UPLOAD, UPGRADE = "TQHPUploadByHelper", "TQHPUpgradeByHelper"
CUSTOMER = "TQHPCustomerServiceByHelepr"
CONSOLE = "SampleHelperConsole"

sample_host = sample_helper = ""


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        time.sleep(0.02)
    return condition()


class Sandbox(unittest.TestCase):
    """A private folder with everything in it, and the processes that a test starts."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="clientcomm-peer-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.addCleanup(self.end_processes)
        self.children = []
        self.environment = {"PATH": "/usr/bin:/bin", "PEER_FOLDER": self.folder}
        self.environment.update(PEER_HELPER=HELPER_ID, PYTHONDONTWRITEBYTECODE="1")
        for name in ("HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"):
            self.environment[name] = self.make_folder(name.lower())
        self.environment["XDG_DATA_HOME"] = self.make_folder("data")
        # The sanitizers of the programs under test.
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                self.environment[name] = os.environ[name]

    def make_folder(self, name):
        path = os.path.join(self.folder, name)
        os.makedirs(path, mode=0o700)
        return path

    def runtime_path(self, name):
        return os.path.join(self.environment["XDG_RUNTIME_DIR"], "ClientComm", name)

    def start(self, *command, **options):
        child = subprocess.Popen(
            command,
            env=self.environment,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
            **options,
        )
        self.children.append(child)
        return child

    def processes(self, name=""):
        """What runs from this folder, by the end of its path; a host launches some of it."""
        found = []
        for entry in filter(str.isdigit, os.listdir("/proc")):
            try:
                path = os.readlink(f"/proc/{entry}/exe")
            except OSError:
                continue
            if path.startswith(self.folder + "/") and path.endswith(name):
                found.append(int(entry))
        return found

    def end_processes(self):
        for child in self.children:
            child.kill()
            child.wait()
            child.stdin.close()
            child.stdout.close()
        for pid in self.processes():
            os.kill(pid, signal.SIGKILL)
        self.assertTrue(wait_until(lambda: not self.processes()))

    def make_bundle(self, path, identifier, version, executable):
        """Lays a bundle out with a copy of the interpreter in it."""
        programs = os.path.join(path, "Contents", "Linux")
        os.makedirs(programs)
        interpreter = os.path.join(programs, "Interpreter")
        shutil.copy2(os.path.realpath(sys.executable), interpreter)
        info = {
            "CFBundleName": os.path.basename(path)[: -len(".app")],
            "CFBundleIdentifier": identifier,
            "CFBundleVersion": version,
            "CFBundleExecutable": executable,
        }
        with open(os.path.join(path, "Contents", "Info.plist"), "wb") as file:
            plistlib.dump(info, file)
        return interpreter

    def copy_application(self, source):
        path = os.path.join(self.folder, os.path.basename(source))
        shutil.copytree(source, path, symlinks=True)
        return path


class PythonHost(Sandbox):
    """A host in Python, and the sample helper."""

    def setUp(self):
        super().setUp()
        helper = self.copy_application(sample_helper)
        self.data = os.path.join(self.environment["XDG_DATA_HOME"], HELPER_ID)
        feed = os.path.join(self.data, "Feed")
        os.makedirs(feed, mode=0o700)
        with open(os.path.join(feed, f"{PRODUCT[0]}.json"), "w", encoding="ascii") as file:
            json.dump({"version": "2.0"}, file)
        self.helper = self.start(os.path.join(helper, "Contents/Linux/SampleHelper"))
        peer = os.path.join(self.folder, "PeerHost.app")
        interpreter = self.make_bundle(peer, PEER_ID, "1.0", "Interpreter")
        self.host = self.start(interpreter, os.path.join(PEER, "host.py"))
        self.assertTrue(wait_until(lambda: self.command("isAlive:prodeuctVersion:") == 0))

    def say(self, *line):
        self.host.stdin.write(json.dumps(line) + "\n")
        self.host.stdin.flush()
        return json.loads(self.host.stdout.readline())

    def send(self, class_name, selector, arguments):
        status, answer = self.say("send", class_name, selector, arguments)
        self.assertIsNone(answer)
        return status

    def ask(self, class_name, selector, arguments=()):
        status, answer = self.say("ask", class_name, selector, list(arguments))
        self.assertEqual(status, 0)
        return answer

    def command(self, selector):
        return self.send(CONTROL, selector, PRODUCT)

    def state(self):
        return json.loads(self.ask(CONSOLE, "dumpState"))

    def outbox(self):
        folder = os.path.join(self.data, "Outbox")
        names = os.listdir(folder) if os.path.isdir(folder) else []
        return [os.path.join(folder, name) for name in names if not name.startswith(".")]

    def test_start_show_hide_and_stop_reach_the_helper(self):
        for selector in ("start", "show"):
            self.assertEqual(self.command(selector + ":prodeuctVersion:"), 0)
        shown = self.state()
        self.assertIn(PRODUCT[0], json.dumps(shown))
        for selector in ("hide", "stop"):
            self.assertEqual(self.command(selector + ":prodeuctVersion:"), 0)
        self.assertNotEqual(self.state(), shown)

    def test_questions_are_answered(self):
        self.assertEqual(self.command("start:prodeuctVersion:"), 0)
        client = self.ask(DATA, "clientIDFormHelper")
        self.assertTrue(client)
        self.assertEqual(self.ask(DATA, "clientIDFormHelper"), client)
        for selector in ("regSuiteInfo:version:", "unRegSuiteInfo:version:"):
            parts = self.ask(UPLOAD, selector, PRODUCT).split("###")
            self.assertEqual(len(parts), 3)
            self.assertTrue(parts[1].isdigit() and parts[2].isdigit())
        self.assertTrue(os.path.isfile(self.ask(UPLOAD, "netErrorPagePath:version:", PRODUCT)))

    def test_uploads_and_requests_reach_the_outbox(self):
        path = os.path.join(self.folder, "a log")
        with open(path, "wb") as file:
            file.write(b"\0\xffcontent")
        for kind in ("Log", "UserFile", "ProductFile"):
            selector = f"upload{kind}:versionID:email:filePath:title:description:"
            arguments = [*PRODUCT, "ann@example.com", path, "title", "text"]
            self.assertEqual(self.send(UPLOAD, selector, arguments), 0)
        request = "customerService:versionID:email:attachment:"
        self.assertEqual(self.send(CUSTOMER, request, [*PRODUCT, "ann@example.com", path]), 0)
        self.assertEqual(self.send(CUSTOMER, "checkForHeleprMessage:versionID:", PRODUCT), 0)
        self.assertTrue(wait_until(lambda: len(self.outbox()) == 4), self.outbox())
        for request in self.outbox():
            with open(os.path.join(request, "content"), "rb") as file:
                self.assertEqual(file.read(), b"\0\xffcontent")

    def test_usage_data_is_collected_and_uploaded(self):
        collect = "collectData:version:collectionType:target:keyID:value:"
        self.assertEqual(self.command("start:prodeuctVersion:"), 0)
        for rest in (["3", "menu", "open", ""], ["4", "menu", "new", ""], ["5", "os", "", "x"]):
            self.assertEqual(self.send(UPLOAD, collect, PRODUCT + rest), 0)
        self.assertEqual(self.send(UPLOAD, "directUploadData:version:", PRODUCT), 0)
        self.assertTrue(wait_until(lambda: len(self.outbox()) == 1))
        with open(self.outbox()[0], encoding="utf-8") as file:
            content = file.read()
        for word in ("menu", "open", "new", "os"):
            self.assertIn(word, content)

    def test_collection_is_switched(self):
        for value in ("0", "1"):
            switch = "setProductCollectStatus:version:status:"
            self.assertEqual(self.send(UPLOAD, switch, [*PRODUCT, value]), 0)
            self.assertEqual(self.ask(UPLOAD, "productCollectStatus:version:", PRODUCT), value)

    def test_upgrade_is_offered_by_a_call_back(self):
        self.assertEqual(self.send(UPGRADE, "productUpgrade:versionID:", PRODUCT), 0)
        offer = [HELPER_ID, UPGRADE, "productUpgradeCallBack::::", [PRODUCT[0], "2.0", "0", ""]]
        called_back = self.say("wait", 1)
        self.assertEqual(called_back[0][:3], offer[:3])
        self.assertEqual(called_back[0][3][:3], offer[3][:3])
        ready = "productReadyToUpgrade:versionID:ready:"
        self.assertEqual(self.send(UPGRADE, ready, [*PRODUCT, "1"]), 0)

    def test_exit_is_announced_by_a_call_back(self):
        self.assertEqual(self.command("start:prodeuctVersion:"), 0)
        self.assertEqual(self.command("exitHelper:productVersion:"), 0)
        called_back = self.say("wait", 1)
        self.assertEqual(called_back[0][:3], [HELPER_ID, CONTROL, "helperExitNotify:"])
        self.assertEqual(self.helper.wait(PATIENCE), 0)
        self.assertEqual(self.command("isAlive:prodeuctVersion:"), -600)

    def test_unknown_class_selector_and_too_many_arguments_are_answered_with_nil(self):
        self.assertIsNone(self.ask("NoSuchClass", "clientIDFormHelper"))
        self.assertIsNone(self.ask(DATA, "noSuchSelector"))
        self.assertIsNone(self.ask(DATA, "clientIDFormHelper", ["one too many"]))
        self.assertTrue(self.ask(DATA, "clientIDFormHelper"))

    def test_arguments_of_any_size_are_taken(self):
        question = "productCollectStatus:version:"
        for size in (0, 1, 160 * 1024, 163_700, 16 * 2**20, 64 * 2**20 - 200):
            self.assertEqual(self.ask(UPLOAD, question, ["*", size]), "1")
        self.assertEqual(self.say("ask", UPLOAD, question, ["*", 64 * 2**20])[0], -108)
        self.assertIsNone(self.ask(UPLOAD, question, ["+", 200_000]))

    def test_host_outside_a_bundle_gets_nil(self):
        self.host.stdin.close()
        self.host.wait(PATIENCE)
        command = "import sys; sys.path.insert(0, %r); from clientcomm_peer import sender; " % PEER
        command += "print(sender.send(%r, %r, %r, [], True, %r))" % (
            HELPER_ID.encode(),
            DATA.encode(),
            b"clientIDFormHelper",
            PATIENCE,
        )
        stranger = self.start(sys.executable, "-c", command)
        self.assertEqual(stranger.stdout.readline(), "(0, None)\n")


class PythonHelper(Sandbox):
    """The sample host, and a helper in Python in its bundle."""

    def setUp(self):
        super().setUp()
        host = self.copy_application(sample_host)
        embedded = os.path.join(host, "Contents/Resources/SampleHelper.app")
        shutil.rmtree(embedded)
        interpreter = self.make_bundle(embedded, HELPER_ID, "1.0", "SampleHelper")
        program = os.path.join(os.path.dirname(interpreter), "SampleHelper")
        with open(program, "w", encoding="ascii") as file:
            file.write(
                "#!/bin/sh\n"
                'bundle="${0%/Contents/Linux/*}"\n'
                'exec "$bundle/Contents/Linux/Interpreter" '
                '"$bundle/Contents/Resources/helper.py" "$bundle"\n'
            )
        os.chmod(program, 0o755)
        resources = os.path.join(embedded, "Contents", "Resources")
        os.makedirs(resources)
        shutil.copy2(os.path.join(PEER, "helper.py"), resources)
        package = "clientcomm_peer"
        shutil.copytree(
            os.path.join(PEER, package),
            os.path.join(resources, package),
            ignore=shutil.ignore_patterns("__pycache__"),
        )
        self.program = os.path.join(host, "Contents/Linux/SampleHost")

    def run_host(self, *command):
        return subprocess.run(
            [self.program, *command],
            env=self.environment,
            stdout=subprocess.PIPE,
            text=True,
            timeout=2 * PATIENCE,
            check=False,
        )

    def host(self, *command):
        done = self.run_host(*command)
        self.assertEqual(done.returncode, 0, f"{command}: {done.stdout}")
        return done.stdout

    def calls(self):
        try:
            with open(os.path.join(self.folder, "calls"), encoding="ascii") as file:
                return [json.loads(line) for line in file if line.endswith("\n")]
        except FileNotFoundError:
            return []

    def assert_called(self, class_name, selector, arguments, caller=HOST_ID):
        call = [caller, class_name, selector, arguments]
        self.assertTrue(wait_until(lambda: call in self.calls()), f"{call} in {self.calls()}")

    def test_host_installs_launches_and_starts_the_helper(self):
        self.assertIn("client-of-python", self.host("client-id"))
        self.assert_called(CONTROL, "start:prodeuctVersion:", HOST_PRODUCT)
        self.assertEqual(len(self.processes()), 1)
        self.host("is-alive")
        self.assertEqual(len(self.processes()), 1)

    def test_host_shows_hides_and_stops_the_helper(self):
        for command in ("show", "hide", "stop"):
            self.host(command)
            self.assert_called(CONTROL, command + ":prodeuctVersion:", HOST_PRODUCT)

    def test_host_sends_every_upload_and_request(self):
        for command, kind in (
            ("upload-log", "Log"),
            ("upload-user-file", "UserFile"),
            ("upload-product-file", "ProductFile"),
        ):
            self.host(command, "/tmp/a file", "ann@example.com", "title", "text")
            self.assert_called(
                UPLOAD,
                f"upload{kind}:versionID:email:filePath:title:description:",
                [*HOST_PRODUCT, "ann@example.com", "/tmp/a file", "title", "text"],
            )
        self.host("customer-service", "ann@example.com", "/tmp/a file")
        self.assert_called(
            CUSTOMER,
            "customerService:versionID:email:attachment:",
            [*HOST_PRODUCT, "ann@example.com", "/tmp/a file"],
        )
        self.host("check-messages")
        self.assert_called(CUSTOMER, "checkForHeleprMessage:versionID:", HOST_PRODUCT)

    def test_host_collects_usage_data(self):
        collect = "collectData:version:collectionType:target:keyID:value:"
        self.host("count", "menu", "open")
        self.assert_called(UPLOAD, collect, [*HOST_PRODUCT, "3", "menu", "open", ""])
        self.host("auto-count", "menu", "new")
        self.assert_called(UPLOAD, collect, [*HOST_PRODUCT, "4", "menu", "new", ""])
        self.host("record", "os", "x\u00e9")
        value = "x\u00e9".encode().decode("latin-1")
        self.assert_called(UPLOAD, collect, [*HOST_PRODUCT, "5", "os", "", value])
        self.host("direct-upload")
        self.assert_called(UPLOAD, "directUploadData:version:", HOST_PRODUCT)
        self.host("collect-status", "off")
        switch = "setProductCollectStatus:version:status:"
        self.assert_called(UPLOAD, switch, [*HOST_PRODUCT, "0"])

    def test_host_reads_every_answer(self):
        self.assertIn("on", self.host("collect-status"))
        self.assertIn("https://example.com/suite", self.host("suite-info"))
        self.assertIn("https://example.com/gone", self.host("unreg-suite-info"))
        self.assertIn("/usr/share/error page.html", self.host("error-page"))

    def test_host_is_asked_whether_it_is_ready_for_an_upgrade(self):
        for answer, sent in (("--ready", "1"), ("--not-ready", "0")):
            self.host("upgrade", answer)
            ready = "productReadyToUpgrade:versionID:ready:"
            self.assert_called(UPGRADE, ready, [*HOST_PRODUCT, sent])
        self.assertIn(["called back", "productUpgradeCallBack::::", 0], self.calls())

    def test_host_that_stays_takes_call_backs(self):
        session = self.start(self.program, "run")
        self.assert_called(CONTROL, "start:prodeuctVersion:", HOST_PRODUCT)
        session.stdin.write("show\n")
        session.stdin.flush()
        called_back = ["called back", "checkServerOpenCallBack::::", 0]
        self.assertTrue(wait_until(lambda: called_back in self.calls()))

    def test_closed_server_keeps_a_host_from_calling(self):
        self.host("is-alive")
        folder = os.path.join(self.environment["XDG_CONFIG_HOME"], "Preferences")
        os.makedirs(folder, mode=0o700, exist_ok=True)
        with open(os.path.join(folder, f"{HELPER_ID}.plist"), "wb") as file:
            plistlib.dump({"TQHPServerClosed": True}, file)
        before = len(self.calls())
        done = subprocess.run(
            [self.program, "show"],
            env=self.environment,
            stdout=subprocess.PIPE,
            text=True,
            timeout=PATIENCE,
            check=False,
        )
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertNotIn("show:prodeuctVersion:", json.dumps(self.calls()[before:]))

    def test_newer_helper_replaces_the_running_one(self):
        self.host("is-alive")
        old = self.processes("Interpreter")
        path = os.path.join(
            os.path.dirname(self.program), "../Resources/SampleHelper.app/Contents/Info.plist"
        )
        with open(path, "rb") as file:
            info = plistlib.load(file)
        info["CFBundleVersion"] = "1.0.1"
        with open(path, "wb") as file:
            plistlib.dump(info, file)
        # The old helper may end while it is asked.
        self.assertTrue(wait_until(lambda: self.run_host("client-id").returncode == 0))
        self.assert_called(CONTROL, "exitHelper:productVersion:", HOST_PRODUCT)
        self.assertTrue(
            wait_until(lambda: len(self.processes()) == 1 and self.processes() != old)
        )

    def test_killed_helper_is_launched_again(self):
        self.start(self.program, "run")
        self.assert_called(CONTROL, "start:prodeuctVersion:", HOST_PRODUCT)
        before = len(self.calls())
        os.kill(self.processes("Interpreter")[0], signal.SIGKILL)
        start = [HOST_ID, CONTROL, "start:prodeuctVersion:", HOST_PRODUCT]
        self.assertTrue(wait_until(lambda: start in self.calls()[before:]))


class MixedHosts(Sandbox):
    """Hosts of both kinds on one helper, all at once."""

    HOSTS, COUNTS = 3, 200

    def test_every_count_of_every_host_arrives_once(self):
        program = os.path.join(self.copy_application(sample_host), "Contents/Linux/SampleHost")
        commands = [[program, "run"] for _ in range(self.HOSTS)]
        for number in range(self.HOSTS):
            bundle = os.path.join(self.folder, f"PeerHost{number}.app")
            interpreter = self.make_bundle(bundle, f"{PEER_ID}{number}", "1.0", "Interpreter")
            commands.append([interpreter, os.path.join(PEER, "host.py")])
        self.run_to_its_end([program, "is-alive"], "")
        collect = "collectData:version:collectionType:target:keyID:value:"
        call = json.dumps(["send", UPLOAD, collect, [*HOST_PRODUCT, "3", "menu", "open", ""]])
        with concurrent.futures.ThreadPoolExecutor(len(commands)) as threads:
            ends = [
                threads.submit(
                    self.run_to_its_end,
                    command,
                    self.COUNTS * ((call if command[1] != "run" else "count menu open") + "\n"),
                )
                for command in commands
            ]
            outputs = [end.result() for end in ends]
        for output in outputs[self.HOSTS :]:
            self.assertEqual(output, "[0, null]\n" * self.COUNTS)
        self.run_to_its_end([program, "direct-upload"], "")
        folder = os.path.join(self.environment["XDG_DATA_HOME"], HELPER_ID, "Outbox")
        self.assertTrue(wait_until(lambda: glob.glob(os.path.join(folder, "usage-*.json"))))
        with open(glob.glob(os.path.join(folder, "usage-*.json"))[0], encoding="utf-8") as file:
            counters = json.load(file)["counters"]
        self.assertEqual([c["count"] for c in counters], [self.COUNTS * len(commands)])

    def run_to_its_end(self, command, text):
        child = self.start(*command)
        output, _ = child.communicate(text, timeout=4 * PATIENCE)
        self.assertEqual(child.returncode, 0, output)
        return output


if __name__ == "__main__":
    sample_host, sample_helper = sys.argv[1:3]
    del sys.argv[1:3]
    unittest.main(verbosity=2)

#!/usr/bin/env python3
"""scripts/progress.sh with commands that are slow, that fail, and that write on a terminal."""

import os
import pty
import re
import subprocess
import tempfile
import unittest

PROJECT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TIMEOUT_IN_SECONDS = 60


def script(command):
    return ["bash", "-c", f"set -euo pipefail; source {PROJECT}/scripts/progress.sh; {command}"]


def run(command):
    return subprocess.run(script(command), timeout=TIMEOUT_IN_SECONDS, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)


def run_in_terminal(command):
    """What the command wrote on a terminal of 80 columns."""
    output = b""
    process, terminal = pty.fork()
    if process == 0:
        os.environ["TERM"] = "xterm"
        os.execvp("bash", script(f"stty cols 80; {command}"))
    while True:
        try:
            part = os.read(terminal, 65536)
        except OSError:
            break
        if not part:
            break
        output += part
    os.close(terminal)
    os.waitpid(process, 0)
    return output.decode()


class ProgressTest(unittest.TestCase):
    def test_a_silent_command_is_shown_every_few_seconds(self):
        with tempfile.TemporaryDirectory() as folder:
            wait = f"echo Step; until [[ -e {folder}/enough ]]; do sleep 0.1; done"
            environment = {**os.environ, "CLIENTCOMM_PROGRESS_INTERVAL": "1"}
            command = ["timeout", str(TIMEOUT_IN_SECONDS)] + script(f"with_progress bash -c '{wait}'")
            with subprocess.Popen(command, env=environment, text=True,
                                  stdout=subprocess.PIPE) as process:
                lines = [process.stdout.readline(), process.stdout.readline()]
                open(os.path.join(folder, "enough"), "w", encoding="utf-8").close()
                process.stdout.read()
        self.assertTrue(all(re.fullmatch(r" +\d+ s  Step\n", line) for line in lines), lines)
        self.assertEqual(process.returncode, 0)

    def test_a_quick_command_is_not_shown(self):
        self.assertEqual(run("progress_interval=60; with_progress seq 1000").stdout, "")

    def test_the_status_of_a_failure_comes_with_all_output(self):
        done = run("with_progress bash -c 'echo first; echo second >&2; printf third; exit 7'")
        self.assertEqual(done.returncode, 7)
        self.assertEqual(done.stderr, "first\nsecond\nthird\n")

    def test_a_failure_without_output(self):
        done = run("with_progress false")
        self.assertEqual((done.returncode, done.stderr.strip()), (1, ""))

    def test_a_failure_ends_a_script(self):
        self.assertNotIn("after", run("with_progress false; echo after").stdout)

    def test_a_terminal_has_one_line_as_long_as_it_is_wide(self):
        output = run_in_terminal("with_progress bash -c 'echo first; printf \"%0100d\\n\" 5'; echo end")
        lines = output.split("\r\x1b[K")
        self.assertTrue(any(re.fullmatch(r" +\d+ s  first", line) for line in lines), lines)
        self.assertEqual({len(line) for line in lines if "000" in line}, {79})
        self.assertNotIn("\n", "".join(lines[:-1]))
        self.assertEqual(lines[-1], "end\r\n")

    def test_lines_that_tell_how_far_it_is_are_preferred(self):
        output = run_in_terminal("with_progress printf '%s\\n' start '[ 5%] one' note '[50%] two'")
        shown = re.findall(r" s  ([^\r]*)", output)
        self.assertEqual(list(dict.fromkeys(shown)), ["start", "[ 5%] one", "[50%] two"])

    def test_what_apt_reports_is_translated(self):
        done = run("printf '%s\\n' 'dlstatus:1:22.5:Retrieving file 2 of 9' "
                   "'pmstatus:libc6:40:Unpacking libc6 (amd64)' 'E: other text' | apt_progress")
        self.assertEqual(done.stdout, "[22%] Retrieving file 2 of 9\n[40%] Unpacking libc6 (amd64)\n"
                                      "E: other text\n")


if __name__ == "__main__":
    unittest.main()

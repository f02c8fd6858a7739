"""Answers all that hosts call, offers every product one upgrade, and keeps a journal of the calls.

Those who ask for it get the journal: class "SampleJournal", selector "lines".
"""

import asyncio
import signal

import clientcomm


class Helper:
    def __init__(self, loop):
        self._loop = loop
        self._hosts = set()
        self._journal = []
        self.end = asyncio.Event()

    # A line "selector argument|argument|… caller" for each call.
    def _noting(self, selector):
        def note(call):
            arguments = "".join(f"{argument or ''}|" for argument in call.arguments)
            self._journal.append(f"{selector} {arguments} {call.caller}\n")

        return selector, note

    def _start(self, call):
        self._hosts.add(call.caller)
        self._noting("start:prodeuctVersion:")[1](call)

    def _exit(self, _call):
        self.end.set()

    # The helper calls its host back after the call, from the loop.
    def _look_for_upgrade(self, call):
        self._loop.call_soon(self._offer_upgrade, call.caller)

    @staticmethod
    def _offer_upgrade(host):
        clientcomm.send(host, "TQHPUpgradeByHelper", "productUpgradeCallBack::::", ["", "2.0", "0", ""])

    def _fail(self, _call):
        raise ValueError("an exception in a method")

    def register(self):
        suite = "https://example.com/suite###640###480"
        note = self._noting
        clientcomm.register_class("TQHPHelperControl", {
            "isAlive:prodeuctVersion:": lambda call: None,
            "start:prodeuctVersion:": self._start,
            **dict([note("stop:prodeuctVersion:"), note("show:prodeuctVersion:"), note("hide:prodeuctVersion:")]),
            "exitHelper:productVersion:": self._exit,
        })
        clientcomm.register_class("TQHPGetDataByHelper", {"clientIDFormHelper": lambda call: "client-of-python"})
        clientcomm.register_class("TQHPUploadByHelper", {
            **dict([
                note("uploadLog:versionID:email:filePath:title:description:"),
                note("uploadUserFile:versionID:email:filePath:title:description:"),
                note("uploadProductFile:versionID:email:filePath:title:description:"),
                note("collectData:version:collectionType:target:keyID:value:"),
                note("directUploadData:version:"),
                note("setProductCollectStatus:version:status:"),
            ]),
            "productCollectStatus:version:": lambda call: "1",
            "regSuiteInfo:version:": lambda call: suite,
            "unRegSuiteInfo:version:": lambda call: suite,
            "netErrorPagePath:version:": lambda call: "/usr/share/example/NetworkError.html",
        })
        clientcomm.register_class("TQHPCustomerServiceByHelepr", dict([
            note("checkForHeleprMessage:versionID:"),
            note("customerService:versionID:email:attachment:"),
        ]))
        clientcomm.register_class("TQHPUpgradeByHelper", {
            "productUpgrade:versionID:": self._look_for_upgrade,
            **dict([note("productReadyToUpgrade:versionID:ready:")]),
        })
        clientcomm.register_class("SampleJournal", {
            "lines": lambda call: "".join(self._journal),
            "fail": self._fail,
        })

    def announce_exit(self):
        for host in self._hosts:
            try:
                clientcomm.send(host, "TQHPHelperControl", "helperExitNotify:", [""])
            except clientcomm.Error:
                pass  # The host has ended.


async def run():
    loop = asyncio.get_running_loop()
    loop.add_reader(clientcomm.open_event_loop(), clientcomm.run_event_loop)
    helper = Helper(loop)
    for number in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(number, helper.end.set)
    helper.register()
    clientcomm.open_to_calls()
    await helper.end.wait()
    helper.announce_exit()
    clientcomm.close_to_calls()


asyncio.run(run())

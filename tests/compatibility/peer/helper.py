"""A helper in Python. It notes each call as a line of JSON, and keeps the contract of a helper.

    helper.py BUNDLE

The notes go to "calls" in the folder that the environment variable PEER_FOLDER names. A text there
has its bytes as Latin-1 characters.
"""

import json
import os
import sys

from clientcomm_peer import receiver, sender

ANSWERS = {
    b"clientIDFormHelper": b"client-of-python",
    b"productCollectStatus:version:": b"1",
    b"regSuiteInfo:version:": b"https://example.com/suite###640###480",
    b"unRegSuiteInfo:version:": b"https://example.com/gone###320###200",
    b"netErrorPagePath:version:": b"/usr/share/error page.html",
}


class Helper:
    def __init__(self, bundle):
        self._call_backs = []
        self._is_leaving = False
        self._notes = os.path.join(os.environ["PEER_FOLDER"], "calls")
        self._endpoint = receiver.Endpoint(self.answer, bundle)

    def note(self, what):
        with open(self._notes, "a", encoding="ascii") as file:
            file.write(json.dumps(what) + "\n")

    def answer(self, caller, class_name, selector, arguments):
        texts = [None if a is None else a.decode("latin-1") for a in arguments]
        if sum(len(a or "") for a in texts) > 4096:
            texts = [len(texts), sum(len(a or "") for a in texts)]
        self.note([caller.decode(), class_name.decode(), selector.decode(), texts])
        product = arguments[0] if arguments else b""
        if selector == b"productUpgrade:versionID:":
            self._call_back(
                caller, class_name, b"productUpgradeCallBack::::", [product, b"2.0", b"0", b""]
            )
        if selector == b"show:prodeuctVersion:":
            self._call_back(
                caller, class_name, b"checkServerOpenCallBack::::", [product, b"1", b"0", b""]
            )
        if selector == b"exitHelper:productVersion:":
            self._call_back(caller, class_name, b"helperExitNotify:", [product])
            self._is_leaving = True
        return ANSWERS.get(selector)

    def _call_back(self, *what):
        self._call_backs.append(what)

    def run(self):
        # Call-backs go out between calls: their receiver may call at the same time.
        while not self._is_leaving:
            self._endpoint.serve(1.0)
            for target, *call in self._call_backs:
                status, _ = sender.send(target, *call)
                self.note(["called back", call[1].decode(), status])
            self._call_backs.clear()
        self._endpoint.drain()
        self._endpoint.close()


if __name__ == "__main__":
    Helper(sys.argv[1]).run()

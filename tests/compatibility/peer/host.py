"""A host in Python: makes the calls that its standard input lists, and prints what became of them.

A line of input is a JSON list: "send" or "ask", class, selector, arguments; or "wait" and the
number of call-backs to wait for. Each gives a line of output. Texts have their bytes as Latin-1
characters; "*" as the first of two arguments stands for as many bytes as the second says, and "+"
for as many empty arguments.
"""

import json
import os
import sys
import time

from clientcomm_peer import receiver, sender

_HELPER = os.environ["PEER_HELPER"].encode()
_PATIENCE = 200.0  # a large argument takes a minute on a machine under load


def bytes_of(arguments):
    if len(arguments) == 2 and arguments[0] == "*":
        return [b"x" * arguments[1]]
    if len(arguments) == 2 and arguments[0] == "+":
        return [b""] * arguments[1]
    return [text.encode("latin-1") for text in arguments]


def main():
    called_back = []

    def answer(caller, class_name, selector, arguments):
        texts = [None if a is None else a.decode("latin-1") for a in arguments]
        called_back.append([caller.decode(), class_name.decode(), selector.decode(), texts])

    endpoint = receiver.Endpoint(answer)
    for line in sys.stdin:
        what, *rest = json.loads(line)
        if what == "wait":
            end = time.monotonic() + _PATIENCE
            while len(called_back) < rest[0] and time.monotonic() < end:
                endpoint.serve(0.1)
            result = called_back[:]
            called_back.clear()
        else:
            class_name, selector, arguments = rest
            status, text = sender.send(
                _HELPER,
                class_name.encode(),
                selector.encode(),
                bytes_of(arguments),
                wait=what == "ask",
                limit=_PATIENCE,
            )
            result = [status, None if text is None else text.decode("latin-1")]
        print(json.dumps(result), flush=True)
    endpoint.close()


if __name__ == "__main__":
    main()

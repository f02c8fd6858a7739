"""What the Python binding does with bad input and with exceptions. The program calls itself: it is an application
with an identity of its own, and has no helper."""

import sys
import threading
import time
import unittest

import clientcomm
from clientcomm import Error, Status

OWN = sys.argv[1]


def run_until(condition, limit=60):
    """Runs the event loop until the condition holds."""
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("the condition does not hold")
        clientcomm.run_event_loop()
        time.sleep(0.001)


class Checks(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with cls.assertRaises(cls(), Error) as failure:
            clientcomm.show_helper()
        cls.assertEqual(cls(), failure.exception.status, Status.NOT_STARTED)
        clientcomm.open_event_loop()
        cls.received = []
        clientcomm.register_class("Echo", {"say::": cls.received.append, "fail": cls.fail_call})
        clientcomm.start()

    def runTest(self):
        """Makes the class usable by setUpClass."""

    def setUp(self):
        self.exceptions = []
        self.received.clear()
        sys.excepthook = lambda kind, value, trace: self.exceptions.append(str(value))

    def tearDown(self):
        sys.excepthook = sys.__excepthook__

    @staticmethod
    def fail_call(_call):
        raise ValueError("in a method")

    def call_self(self, selector, *arguments):
        clientcomm.send(OWN, "Echo", selector, arguments)

    def ask_for_upgrade(self):
        clientcomm.send(OWN, "TQHPUpgradeByHelper", "productUpgradeCallBack::::", ["", "", "7", "text"])

    def fails_with(self, status, function, *arguments):
        with self.assertRaises(Error) as failure:
            function(*arguments)
        self.assertEqual(failure.exception.status, status)

    def test_texts_keep_every_byte(self):
        self.call_self("say::", "a\0b\udcff", None)
        run_until(lambda: self.received)
        self.assertEqual(self.received[0].arguments, ["a\0b\udcff", ""])
        self.assertEqual(self.received[0].caller, OWN)

    def test_left_out_arguments_are_none(self):
        self.call_self("say::", "a")
        run_until(lambda: self.received)
        self.assertEqual(self.received[0].arguments, ["a", None])

    def test_exception_in_a_method_is_reported_and_the_next_call_is_carried_out(self):
        self.call_self("fail")
        self.call_self("say::")
        run_until(lambda: self.received)
        self.assertEqual(self.exceptions, ["in a method"])

    def test_exception_in_a_delegate_is_reported_and_the_next_call_is_carried_out(self):
        class Delegate(clientcomm.UpgradeDelegate):
            def will_upgrade(self, code, description):
                raise ValueError(f"{code} {description}")

        delegate = Delegate()
        self.ask_for_upgrade()
        self.call_self("say::")
        run_until(lambda: self.received)
        self.assertEqual(self.exceptions, ["7 text"])
        self.fails_with(Status.NOT_RUNNING, clientcomm.ready_to_upgrade, False)
        delegate.close()

    def test_delegate_closes_itself_while_it_is_told(self):
        told = []

        class Delegate(clientcomm.UpgradeDelegate):
            def will_upgrade(self, code, description):
                self.close()
                told.append(code)

        delegate = Delegate()
        self.ask_for_upgrade()
        run_until(lambda: told)
        self.fails_with(Status.STALE_HANDLE, delegate.close)
        self.fails_with(Status.NOT_RUNNING, clientcomm.ready_to_upgrade, False)
        self.assertEqual(self.exceptions, [])

    def test_another_thread_is_refused(self):
        statuses = []

        def use():
            try:
                clientcomm.is_helper_alive()
            except Error as error:
                statuses.append(error.status)

        thread = threading.Thread(target=use)
        thread.start()
        thread.join()
        self.assertEqual(statuses, [Status.WRONG_THREAD])

    def test_none_where_a_text_must_be_is_refused(self):
        self.fails_with(Status.BAD_ARGUMENT, clientcomm.send, None, "Echo", "say::")
        self.fails_with(Status.BAD_ARGUMENT, clientcomm.register_class, "", {})

    def test_queries_without_a_helper_give_none(self):
        self.assertIsNone(clientcomm.ask_client_id())
        self.assertEqual(clientcomm.register_suite(), (None, 0, 0))
        self.assertFalse(clientcomm.is_helper_alive())


unittest.main(argv=sys.argv[:1])

"""Starts its helper, uses some services, and answers the helper's question whether it may upgrade the product.

It runs until SIGTERM, or with --once until that question is answered.
"""

import asyncio
import signal
import sys

import clientcomm


class Delegate(clientcomm.UpgradeDelegate):
    def __init__(self, when_answered):
        super().__init__()
        self._when_answered = when_answered

    def will_upgrade(self, code, description):
        if code == 0:
            print("the helper is about to upgrade the product")
        else:
            print(f"no upgrade: {description} ({code})")
        report("answer", clientcomm.ready_to_upgrade, code == 0)
        self._when_answered()


def report(what, service, *arguments):
    try:
        service(*arguments)
        print(f"{what}: Done.", flush=True)
    except clientcomm.Error as error:
        print(f"{what}: {error}", flush=True)


async def use_services():
    print(f"client ID: {await clientcomm.ask_client_id_async()}")
    suite = await clientcomm.register_suite_async(limit=60)
    print(f"suite page: {suite.url}")
    print(f"its size: {suite.width} by {suite.height}")
    report("count", clientcomm.count_use, "Launch", "python")
    report("log", clientcomm.upload_log, "ann@example.com", "/var/log/product.log", "Slow start", None)


async def run(ends_after_the_upgrade):
    loop = asyncio.get_running_loop()
    end = asyncio.Event()
    for number in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(number, end.set)
    loop.add_reader(clientcomm.open_event_loop(), clientcomm.run_event_loop)
    await clientcomm.start_async()
    await use_services()
    delegate = Delegate(end.set if ends_after_the_upgrade else lambda: None)
    report("upgrade asked for", clientcomm.upgrade_product)
    await end.wait()
    delegate.close()
    print("the delegate is gone")


asyncio.run(run("--once" in sys.argv[1:]))

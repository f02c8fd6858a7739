"""The event loop: for asyncio, loop.add_reader(open_event_loop(), run_event_loop)."""

import ctypes

from clientcomm._library import check, library


def open_event_loop():
    """Call it before anything else. Returns the descriptor that is readable while something is due."""
    descriptor = ctypes.c_int(-1)
    check(library.clientcomm_open_event_loop(ctypes.byref(descriptor)))
    return descriptor.value


def run_event_loop():
    check(library.clientcomm_run_event_loop())

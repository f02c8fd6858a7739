"""The C interface of ClientComm for Python, by ctypes.

All functions are for one thread, that of the first call. Texts go in as str, bytes or None (nil), and come
out as str, in which bytes that are not UTF-8 are surrogates, as in file names. A failure raises Error.
A call-back that raises is reported by sys.excepthook and counts as one without an answer.
"""

from clientcomm._library import Error, Status
from clientcomm.calls import Call, ask, open_to_calls, close_to_calls, register_class, send
from clientcomm.host import (
    SuiteInfo,
    UpgradeDelegate,
    ask_client_id,
    collect_string,
    count_use,
    hide_helper,
    is_helper_alive,
    network_error_page,
    ready_to_upgrade,
    register_suite,
    show_helper,
    start,
    stop_helper,
    upgrade_product,
    upload_log,
)
from clientcomm.loop import open_event_loop, run_event_loop
from clientcomm.queries import (
    ask_client_id_async,
    collect_status_async,
    network_error_page_async,
    register_suite_async,
    start_async,
)

__all__ = [
    "Call",
    "Error",
    "Status",
    "SuiteInfo",
    "UpgradeDelegate",
    "ask",
    "ask_client_id",
    "ask_client_id_async",
    "close_to_calls",
    "collect_status_async",
    "collect_string",
    "count_use",
    "hide_helper",
    "is_helper_alive",
    "network_error_page",
    "network_error_page_async",
    "open_event_loop",
    "open_to_calls",
    "ready_to_upgrade",
    "register_class",
    "register_suite",
    "register_suite_async",
    "run_event_loop",
    "send",
    "show_helper",
    "start",
    "start_async",
    "stop_helper",
    "upgrade_product",
    "upload_log",
]

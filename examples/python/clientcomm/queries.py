"""The start-up and the queries as coroutines: other tasks of the event loop go on meanwhile.

A task that is cancelled while it waits gives its query up. `limit` is in seconds; None for no limit.
"""

import asyncio
import ctypes
import itertools

from clientcomm._library import (
    NO_LIMIT,
    Destroy,
    Error,
    FlagAnswer,
    Started,
    Status,
    SuiteAnswer,
    TextAnswer,
    check,
    from_text,
    library,
)
from clientcomm.host import SuiteInfo

# What takes the outcome of each query under way, by the number that the library knows it by.
_waiting = {}
_numbers = itertools.count(1)


@Destroy
def _forget(context):
    _waiting.pop(context, None)


def _tell(context, status, value):
    future = _waiting[context]
    if future.done():
        return
    if status in (Status.OK, Status.NO_VALUE):
        future.set_result(value if status == Status.OK else None)
    else:
        future.set_exception(Error(status))


# Static: a function that ctypes makes must outlive its last call.
_started = Started(lambda context, status: _tell(context, status, None))
_take_text = TextAnswer(lambda context, status, text: _tell(context, status, from_text(text)))
_take_flag = FlagAnswer(_tell)
_take_suite = SuiteAnswer(
    lambda context, status, url, width, height: _tell(context, status, SuiteInfo(from_text(url), width, height))
)


def _begin(function, *arguments):
    """Runs a function that takes a context last; gives the future of its outcome."""
    number = next(_numbers)
    future = _waiting[number] = asyncio.get_running_loop().create_future()
    status = function(*arguments, number, _forget)
    if status != Status.OK:
        del _waiting[number]
        raise Error(status)
    return future


async def _outcome(function, answer, limit):
    query = ctypes.c_void_p()
    milliseconds = NO_LIMIT if limit is None else round(limit * 1000)
    future = _begin(
        lambda context, destroy: function(milliseconds, answer, context, destroy, ctypes.byref(query))
    )
    try:
        return await future
    finally:
        check(library.clientcomm_query_release(query))


async def start_async():
    """Installs, launches and starts the helper. Raises Error when it could not be; the ticks try again."""
    await _begin(lambda context, destroy: library.clientcomm_start_async(_started, context, destroy))


async def ask_client_id_async(limit=None):
    return await _outcome(library.clientcomm_ask_client_id_async, _take_text, limit)


async def collect_status_async(limit=None):
    return await _outcome(library.clientcomm_collect_status_async, _take_flag, limit)


async def register_suite_async(limit=None):
    return await _outcome(library.clientcomm_register_suite_async, _take_suite, limit)


async def network_error_page_async(limit=None):
    return await _outcome(library.clientcomm_network_error_page_async, _take_text, limit)

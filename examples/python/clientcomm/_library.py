"""The library, its types, and the conversions between them and Python's."""

import ctypes
import enum
import os
import sys


class Status(enum.IntEnum):
    """Statuses that a program looks for; any other is an int."""

    OK = 0
    HELPER_NOT_LAUNCHED = 1
    HELPER_SERVER_CLOSED = 10
    BAD_ARGUMENT = -50
    TOO_LARGE = -108
    NOT_RUNNING = -600
    NO_VALUE = 0x10000
    NOT_STARTED = 0x10001
    WRONG_THREAD = 0x10002
    STALE_HANDLE = 0x10003
    LOOP_NOT_OPEN = 0x10004


class Error(Exception):
    """A function of the library has failed."""

    def __init__(self, status):
        super().__init__(library.clientcomm_status_text(status).decode())
        self.status = status


class Text(ctypes.Structure):
    # A pointer and not c_char_p: texts may contain NUL.
    _fields_ = [("bytes", ctypes.POINTER(ctypes.c_char)), ("length", ctypes.c_size_t)]


class SuiteInfoRecord(ctypes.Structure):
    _fields_ = [("url", ctypes.c_void_p), ("width", ctypes.c_int32), ("height", ctypes.c_int32)]


class ErrorRecord(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int64), ("domain", Text), ("description", Text)]


MethodFunction = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p)
WillUpgrade = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(ErrorRecord))
Destroy = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
Started = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int)
TextAnswer = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int, Text)
FlagAnswer = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int, ctypes.c_bool)
SuiteAnswer = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int, Text, ctypes.c_int32, ctypes.c_int32)

NO_LIMIT = 2**63 - 1


class Method(ctypes.Structure):
    _fields_ = [("selector", Text), ("function", MethodFunction)]


def _path_of_library():
    """The copy in the bundle of the running executable."""
    contents = os.path.dirname(os.path.dirname(os.readlink("/proc/self/exe")))
    return os.path.join(contents, "Frameworks", "libClientComm.so.1")


library = ctypes.CDLL(_path_of_library())


def _declare(name, result, *arguments):
    function = getattr(library, "clientcomm_" + name)
    function.restype = result
    function.argtypes = arguments


_POINTER = ctypes.c_void_p
_STRING_OUT = ctypes.POINTER(ctypes.c_void_p)
_QUERY_OUT = ctypes.POINTER(ctypes.c_void_p)
for _name, _arguments in {
    "open_event_loop": [ctypes.POINTER(ctypes.c_int)],
    "run_event_loop": [],
    "start": [],
    "stop_helper": [],
    "is_helper_alive": [],
    "show_helper": [],
    "hide_helper": [],
    "ask_client_id": [_STRING_OUT],
    "network_error_page": [_STRING_OUT],
    "register_suite": [ctypes.POINTER(SuiteInfoRecord)],
    "upload_log": [Text, Text, Text, Text],
    "count_use": [Text, Text],
    "collect_string": [Text, Text],
    "upgrade_product": [],
    "ready_to_upgrade": [ctypes.c_bool],
    "set_upgrade_delegate": [WillUpgrade, _POINTER, _POINTER, _STRING_OUT],
    "upgrade_delegate_release": [_POINTER],
    "send": [Text, Text, Text, ctypes.POINTER(Text), ctypes.c_size_t],
    "ask": [Text, Text, Text, ctypes.POINTER(Text), ctypes.c_size_t, _STRING_OUT],
    "register_class": [Text, ctypes.POINTER(Method), ctypes.c_size_t, _POINTER, _POINTER, _STRING_OUT],
    "open_to_calls": [],
    "close_to_calls": [],
    "call_answer": [_POINTER, Text],
    "string_release": [_POINTER],
    "start_async": [Started, _POINTER, Destroy],
    "ask_client_id_async": [ctypes.c_int64, TextAnswer, _POINTER, Destroy, _QUERY_OUT],
    "collect_status_async": [ctypes.c_int64, FlagAnswer, _POINTER, Destroy, _QUERY_OUT],
    "register_suite_async": [ctypes.c_int64, SuiteAnswer, _POINTER, Destroy, _QUERY_OUT],
    "network_error_page_async": [ctypes.c_int64, TextAnswer, _POINTER, Destroy, _QUERY_OUT],
    "query_release": [_POINTER],
}.items():
    _declare(_name, ctypes.c_int, *_arguments)
_declare("status_text", ctypes.c_char_p, ctypes.c_int)
_declare("string_text", Text, _POINTER)
_declare("call_count", ctypes.c_size_t, _POINTER)
_declare("call_argument", Text, _POINTER, ctypes.c_size_t)
_declare("call_caller", Text, _POINTER)


def check(status):
    if status != Status.OK:
        raise Error(status)


def to_text(value):
    """A text for the library; it keeps its bytes alive."""
    if value is None:
        return Text(None, 0)
    data = value if isinstance(value, bytes) else value.encode("utf-8", "surrogateescape")
    buffer = ctypes.create_string_buffer(data, len(data) + 1)
    return Text(ctypes.cast(buffer, ctypes.POINTER(ctypes.c_char)), len(data))


def from_text(text):
    if not text.bytes:
        return None
    return ctypes.string_at(text.bytes, text.length).decode("utf-8", "surrogateescape")


def take_string(handle):
    """The text of a string that the library has handed over, which is released."""
    if not handle:
        return None
    try:
        return from_text(library.clientcomm_string_text(handle))
    finally:
        library.clientcomm_string_release(handle)


def query(function, *arguments):
    """Runs a function that hands a string over last; None without a value."""
    handle = ctypes.c_void_p()
    status = function(*arguments, ctypes.byref(handle))
    if status == Status.NO_VALUE:
        return None
    check(status)
    return take_string(handle.value)


def guarded(function, *arguments):
    """Runs the program's code in a call-back: an exception must not reach the library."""
    try:
        return function(*arguments)
    except Exception:
        sys.excepthook(*sys.exc_info())
        return None

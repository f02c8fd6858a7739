"""Calls to other applications, and classes that these can call."""

import ctypes

from clientcomm._library import (
    Method,
    MethodFunction,
    Text,
    check,
    from_text,
    guarded,
    library,
    query,
    to_text,
)

# The library has their addresses for the rest of the process's life.
_functions = []


class Call:
    """Who calls, and the arguments, None for those that the caller has left out."""

    def __init__(self, handle):
        self.caller = from_text(library.clientcomm_call_caller(handle))
        count = library.clientcomm_call_count(handle)
        self.arguments = [from_text(library.clientcomm_call_argument(handle, index)) for index in range(count)]


def _function_of(method):
    def carry_out(_context, handle):
        answer = guarded(method, Call(handle))
        if answer is not None:
            guarded(lambda: check(library.clientcomm_call_answer(handle, to_text(answer))))

    function = MethodFunction(carry_out)
    _functions.append(function)
    return function


def register_class(name, methods):
    """Makes a class callable. methods: selector -> function(Call), whose result, a text or None, answers."""
    records = (Method * len(methods))(
        *(Method(to_text(selector), _function_of(method)) for selector, method in methods.items())
    )
    handle = ctypes.c_void_p()
    check(
        library.clientcomm_register_class(to_text(name), records, len(methods), None, None, ctypes.byref(handle))
    )


def open_to_calls():
    check(library.clientcomm_open_to_calls())


def close_to_calls():
    check(library.clientcomm_close_to_calls())


def _texts(arguments):
    return (Text * len(arguments))(*(to_text(argument) for argument in arguments))


def send(application, class_name, selector, arguments=()):
    """Calls the application with this bundle identifier."""
    check(
        library.clientcomm_send(
            to_text(application), to_text(class_name), to_text(selector), _texts(arguments), len(arguments)
        )
    )


def ask(application, class_name, selector, arguments=()):
    """The same, with the answer; None for nil."""
    return query(
        library.clientcomm_ask,
        to_text(application),
        to_text(class_name),
        to_text(selector),
        _texts(arguments),
        len(arguments),
    )

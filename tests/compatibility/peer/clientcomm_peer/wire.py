"""Events and packets, as bytes."""

import struct
from dataclasses import dataclass, field

MAGIC = 0x54514850
VERSION = 1
EVENT, QUERY, REPLY = 1, 2, 3
BODY_FILE, EXECUTABLE = 1, 2

NO_ERR = 0
PROC_NOT_FOUND = -600
CONNECTION_INVALID = -609
NOT_HANDLED = -1708
TIMEOUT = -1712
NOT_PERMITTED = -1743
MEM_FULL = -108

MAX_EVENT = 64 * 1024 * 1024
MAX_LEVELS = 16
MAX_DESCRIPTORS = 262_144
MAX_ENTRIES = 64
MAX_PACKET = 160 * 1024

HEADER = struct.Struct("<IBBHIIhH")


class Malformed(Exception):
    """Bytes that are no event or no packet."""


class TooLarge(Exception):
    """An event beyond a limit."""


def code(text):
    """The number of a four-character code."""
    return int.from_bytes(text.encode("ascii"), "big")


LIST, EVENT_TYPE, NULL = code("list"), code("aevt"), code("null")
TEXTS = {code(name) for name in ("utxt", "utf8", "TEXT", "bund")}
DIRECT_OBJECT = code("----")
CALL, ANSWER = code("call"), code("ansr")


# A flattened descriptor is a list of pieces, so that a large argument is copied only once.


def size_of(pieces):
    return sum(map(len, pieces))


def descriptor(type_code, payload=()):
    return [struct.pack("<II", type_code, size_of(payload)), *payload]


def text(value):
    return descriptor(code("utxt"), [value])


def list_of(items):
    count = struct.pack("<I", len(items))
    return descriptor(LIST, [count, *(piece for item in items for piece in item)])


def _event(event_id, return_id, transaction_id, target, parameter):
    head = struct.pack("<IIhi", code("aevt"), event_id, return_id, transaction_id)
    attributes = struct.pack("<I", 0)
    parameters = [struct.pack("<I", 0 if parameter is None else 1)]
    if parameter is not None:
        parameters += [struct.pack("<I", DIRECT_OBJECT), *parameter]
    return descriptor(EVENT_TYPE, [head, *target, attributes, *parameters])


def call_event(target, class_name, selector, arguments):
    """The flattened call. Raises TooLarge where a receiver would not carry it out."""
    # The event, its target, the list of three, its three items, and the arguments.
    if 6 + len(arguments) > MAX_DESCRIPTORS:
        raise TooLarge
    call = list_of([text(class_name), text(selector), list_of([text(a) for a in arguments])])
    event = _event(CALL, -1, 0, descriptor(code("bund"), [target]), call)
    if size_of(event) > MAX_EVENT:
        raise TooLarge
    return b"".join(event)


def answer_event(answer, return_id=-1, transaction_id=0):
    parameter = None if answer is None else text(answer)
    return b"".join(_event(ANSWER, return_id, transaction_id, descriptor(NULL), parameter))


@dataclass
class Node:
    """A descriptor that was read."""

    type: int
    payload: bytes = b""
    items: list = field(default_factory=list)

    def text(self):
        """The text, or None for what is no text."""
        if self.type in TEXTS:
            return bytes(self.payload)
        if self.type == code("long") and len(self.payload) == 4:
            return str(struct.unpack("<i", self.payload)[0]).encode()
        if self.type == code("bool") and len(self.payload) == 1:
            return b"true" if self.payload[0] else b"false"
        if self.type == LIST and len(self.items) == 1:
            return self.items[0].text()
        return None


class _Reader:
    def __init__(self, data):
        self.data, self.at, self.count = memoryview(data), 0, 0

    def take(self, size, end):
        if size > end - self.at:
            raise Malformed("a length beyond the end")
        part = self.data[self.at : self.at + size]
        self.at += size
        return part

    def number(self, form, end):
        return struct.unpack(form, self.take(struct.calcsize(form), end))[0]

    def descriptor(self, level, end):
        self.count += 1
        if level > MAX_LEVELS or self.count > MAX_DESCRIPTORS:
            raise Malformed("too deep, or too many")
        kind, size = self.number("<I", end), self.number("<I", end)
        if kind != LIST:
            return Node(kind, self.take(size, end))
        if size > end - self.at:
            raise Malformed("a list beyond the end")
        last = self.at + size
        count = self.number("<I", last)
        if count * 8 > last - self.at:
            raise Malformed("a count beyond the end")
        items = [self.descriptor(level + 1, last) for _ in range(count)]
        if self.at != last:
            raise Malformed("bytes behind a list")
        return Node(kind, b"", items)


@dataclass
class Event:
    event_class: int
    event_id: int
    return_id: int
    transaction_id: int
    parameters: dict


def read_event(body):
    reader = _Reader(body)
    if reader.number("<I", len(body)) != EVENT_TYPE:
        raise Malformed("not an event")
    if reader.number("<I", len(body)) != len(body) - 8:
        raise Malformed("an event of another length")
    reader.count = 1
    end = len(body)
    event = Event(*(reader.number(form, end) for form in ("<I", "<I", "<h", "<i")), {})
    reader.descriptor(2, end)  # The target, which is this process.
    for parameters in ({}, event.parameters):
        count = reader.number("<I", end)
        if count > MAX_ENTRIES:
            raise Malformed("too many entries")
        for _ in range(count):
            keyword = reader.number("<I", end)
            parameters[keyword] = reader.descriptor(2, end)
    if reader.at != end:
        raise Malformed("bytes behind the event")
    return event


def call_of(event):
    """Class name, selector and arguments of a call."""
    call = event.parameters.get(DIRECT_OBJECT)
    if call is None or call.type != LIST or len(call.items) < 2:
        raise Malformed("not a call")
    arguments = call.items[2].items if len(call.items) > 2 else []
    return call.items[0].text(), call.items[1].text(), [item.text() for item in arguments]


def answer_of(event):
    answer = event.parameters.get(DIRECT_OBJECT)
    return None if answer is None else answer.text()


@dataclass
class Header:
    version: int
    kind: int
    header_size: int
    body_size: int
    token: int
    status: int
    attachments: int


def pack_header(kind, body_size, token=0, status=0, attachments=0, version=VERSION):
    return HEADER.pack(
        MAGIC, version, kind, HEADER.size, body_size, token, status, attachments
    )


def read_header(packet):
    if len(packet) < 8 or struct.unpack_from("<I", packet)[0] != MAGIC:
        raise Malformed("no packet of this kind")
    version, kind, size = struct.unpack_from("<BBH", packet, 4)
    if version != VERSION:
        return Header(version, kind, size, 0, 0, 0, 0)
    if not HEADER.size <= size <= len(packet):
        raise Malformed("a header of another size")
    return Header(*HEADER.unpack_from(packet)[1:])

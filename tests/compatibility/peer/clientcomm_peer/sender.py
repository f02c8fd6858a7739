"""The sending side."""

import array
import errno
import fcntl
import os
import secrets
import select
import socket
import struct
import time

from . import places, wire

# A token connects the events of a process; the executable goes with each event here, which a
# receiver takes from any sender.
_TOKEN = secrets.randbelow(2**32 - 1) + 1
_NO_LIMIT = None


def body_file(body):
    """A sealed memory file with a body."""
    file = os.memfd_create("body", os.MFD_CLOEXEC | os.MFD_ALLOW_SEALING)
    view = memoryview(body)
    while view:
        view = view[os.write(file, view) :]
    fcntl.fcntl(
        file,
        fcntl.F_ADD_SEALS,
        fcntl.F_SEAL_SEAL | fcntl.F_SEAL_SHRINK | fcntl.F_SEAL_GROW | fcntl.F_SEAL_WRITE,
    )
    return file


def send_packet(connection, kind, body, token=0, status=0, executable=None):
    """Sends a packet, with its body in a memory file where that does not fit."""
    bits = wire.EXECUTABLE if executable is not None else 0
    files = [executable] if executable is not None else []
    if wire.HEADER.size + len(body) <= wire.MAX_PACKET:
        header = wire.pack_header(kind, len(body), token, status, bits)
        try:
            return _send(connection, header + body, files)
        except OSError as error:
            if error.errno != errno.EMSGSIZE:
                raise
    file = body_file(body)
    try:
        header = wire.pack_header(kind, len(body), token, status, bits | wire.BODY_FILE)
        return _send(connection, header, [file] + files)
    finally:
        os.close(file)


def _send(connection, packet, files):
    ancillary = []
    if files:
        ancillary = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", files))]
    connection.sendmsg([packet], ancillary, socket.MSG_NOSIGNAL)


def receive_packet(connection):
    """Returns a packet and its descriptors, which the caller closes."""
    # The end of a connection counts only when it is reported twice.
    packet, files = _receive(connection)
    return (packet, files) if packet else _receive(connection)


def _receive(connection):
    room = socket.CMSG_SPACE(8 * array.array("i").itemsize)
    packet, ancillary, flags, _ = connection.recvmsg(
        wire.MAX_PACKET, room, socket.MSG_CMSG_CLOEXEC
    )
    files = array.array("i")
    for level, kind, data in ancillary:
        if level == socket.SOL_SOCKET and kind == socket.SCM_RIGHTS:
            files.frombytes(data[: len(data) - len(data) % files.itemsize])
    if flags & socket.MSG_TRUNC:
        packet = b"longer than a packet"
    return packet, list(files)


def body_of(packet, header, files):
    """The body, inline or from the first descriptor."""
    if not header.attachments & wire.BODY_FILE:
        body = packet[header.header_size :]
        if len(body) != header.body_size:
            raise wire.Malformed("a body of another size")
        return body
    if not files or len(packet) != header.header_size:
        raise wire.Malformed("no memory file, or a body beside it")
    needed = fcntl.F_SEAL_SHRINK | fcntl.F_SEAL_WRITE
    try:
        seals = fcntl.fcntl(files[0], fcntl.F_GET_SEALS)
    except OSError as error:
        raise wire.Malformed("no memory file") from error
    if seals & needed != needed or os.fstat(files[0]).st_size != header.body_size:
        raise wire.Malformed("a memory file that may change, or of another size")
    return os.pread(files[0], header.body_size, 0)


def send(target, class_name, selector, arguments=(), wait=False, limit=_NO_LIMIT):
    """Makes a call. All texts are bytes.

    Returns the status and, for wait=True, the answer: bytes or None. limit is in seconds.
    """
    try:
        body = wire.call_event(target, class_name, selector, list(arguments))
    except wire.TooLarge:
        return wire.MEM_FULL, None
    end = None if limit is None else time.monotonic() + limit
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as connection:
        status = _connect(connection, target, end if wait else time.monotonic() + 5)
        if status != wire.NO_ERR:
            return status, None
        executable = os.open("/proc/self/exe", os.O_PATH | os.O_CLOEXEC)
        try:
            send_packet(
                connection, wire.QUERY if wait else wire.EVENT, body, _TOKEN, 0, executable
            )
            return _wait_for_reply(connection, end) if wait else (wire.NO_ERR, None)
        except (BrokenPipeError, ConnectionResetError, wire.Malformed):
            return wire.CONNECTION_INVALID, None
        finally:
            os.close(executable)


def _connect(connection, target, end):
    connection.setblocking(False)
    while True:
        try:
            with places.SocketAddress(places.runtime_folder(), places.digest(target)) as path:
                connection.connect(path)
            break
        except (FileNotFoundError, ConnectionRefusedError):
            return wire.PROC_NOT_FOUND
        except BlockingIOError:  # The backlog is full.
            if end is not None and time.monotonic() > end:
                return wire.TIMEOUT
            time.sleep(0.001)
    connection.setblocking(True)
    pid, user = credentials(connection)
    if user != os.geteuid():
        return wire.NOT_PERMITTED
    return wire.NO_ERR if pid == 0 or _exists(pid) else wire.PROC_NOT_FOUND


def credentials(connection):
    form = struct.Struct("=iii")
    data = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, form.size)
    pid, user, _ = form.unpack(data)
    return pid, user


def _exists(pid):
    return os.path.exists(f"/proc/{pid}")


def _wait_for_reply(connection, end):
    pid, _ = credentials(connection)
    while True:
        left = 1.0 if end is None else min(1.0, end - time.monotonic())
        if left < 0:
            return wire.TIMEOUT, None
        if select.select([connection], [], [], left)[0]:
            break
        if pid != 0 and not _exists(pid):
            return wire.CONNECTION_INVALID, None
    packet, files = receive_packet(connection)
    try:
        return _read_reply(packet, files)
    finally:
        for file in files:
            os.close(file)


def _read_reply(packet, files):
    header = wire.read_header(packet)
    if header.version != wire.VERSION or header.kind != wire.REPLY:
        raise wire.Malformed("not a reply")
    if header.status != wire.NO_ERR:
        return header.status, None
    return wire.NO_ERR, wire.answer_of(wire.read_event(body_of(packet, header, files)))

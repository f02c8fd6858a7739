"""The receiving side."""

import contextlib
import os
import selectors
import socket
import time

from . import places, sender, wire

_MAX_SILENT = 64
_SILENCE = 10.0
_BACKLOG = 4096
_MAX_KNOWN = 4096


class Endpoint:
    """Takes calls under the identifier of the process's own bundle.

    answer(caller, class_name, selector, arguments) carries a call out. All texts are bytes; the
    result is the answer, or None for nil.
    """

    def __init__(self, answer, bundle=None):
        self._answer = answer
        self._bundle = bundle or places.own_bundle()
        self._identifier = places.identifier_of(self._bundle)
        self._name = places.digest(self._identifier)
        self._folder = places.make_runtime_folder()
        self._silent = {}
        self._known = {}  # The bundle by process ID and token.
        self._selector = selectors.DefaultSelector()
        self._open()

    def _path(self, name):
        return os.path.join(self._folder, name)

    def _open(self):
        bound = f"{self._name}.{os.getpid()}.{wire.VERSION}"
        if os.path.lexists(self._path(bound)):
            os.unlink(self._path(bound))
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with places.SocketAddress(self._folder, bound) as path:
            self._socket.bind(path)
        os.chmod(self._path(bound), 0o600)
        self._socket.listen(_BACKLOG)
        self._socket.setblocking(False)
        self._file = os.stat(self._path(bound))
        places.write_record(
            self._folder,
            f"endpoint.{self._name}",
            {
                "BundlePath": self._bundle,
                "SocketDevice": self._file.st_dev,
                "SocketInode": self._file.st_ino,
            },
        )
        os.rename(self._path(bound), self._path(self._name))
        self._write_process_record()
        self._remove_launch_record()
        self._selector.register(self._socket, selectors.EVENT_READ)

    def _write_process_record(self):
        places.write_record(
            self._folder,
            f"process.{os.getpid()}",
            {
                "StartTime": places.start_time(os.getpid()),
                "CFBundleIdentifier": self._identifier.decode(),
                "BundlePath": self._bundle,
                "CFBundleName": os.path.basename(self._bundle)[: -len(".app")],
                "PIDNamespace": os.stat("/proc/self/ns/pid").st_ino,
            },
        )

    def _remove_launch_record(self):
        path = self._path("launch." + places.digest(os.fsencode(self._bundle)))
        record = places.read_record(path)
        mine = (os.getpid(), places.start_time(os.getpid()))
        if (record.get("ProcessID"), record.get("StartTime")) == mine:
            with contextlib.suppress(FileNotFoundError):  # The launcher removes it too.
                os.unlink(path)

    def close(self):
        """Ends the endpoint; what waits in its queue is lost."""
        self._selector.unregister(self._socket)
        try:
            found = os.stat(self._path(self._name))
            if (found.st_dev, found.st_ino) == (self._file.st_dev, self._file.st_ino):
                os.unlink(self._path(self._name))
                os.unlink(self._path(f"endpoint.{self._name}"))
            os.unlink(self._path(f"process.{os.getpid()}"))
        except FileNotFoundError:
            pass
        self._socket.close()

    def serve(self, limit):
        """Serves what arrives within limit seconds; returns after the first call."""
        end = time.monotonic() + limit
        while True:
            ready = self._selector.select(max(0.0, end - time.monotonic()))
            for key, _ in ready:
                if key.fileobj is self._socket:
                    self._accept()
                elif self._serve_connection(key.fileobj):
                    return True
            self._drop_silent()
            if time.monotonic() >= end:
                return False

    def drain(self):
        """Serves what has arrived."""
        while self.serve(0):
            pass

    def _accept(self):
        try:
            connection, _ = self._socket.accept()
        except OSError:
            return
        _, user = sender.credentials(connection)
        if user != os.geteuid():
            connection.close()
            return
        connection.setblocking(False)
        self._silent[connection] = time.monotonic()
        self._selector.register(connection, selectors.EVENT_READ)

    def _drop_silent(self):
        oldest = sorted(self._silent, key=self._silent.get)
        for number, connection in enumerate(oldest):
            too_many = len(oldest) - number > _MAX_SILENT
            if too_many or time.monotonic() - self._silent[connection] > _SILENCE:
                connection.shutdown(socket.SHUT_RD)
                self._serve_connection(connection)

    def _serve_connection(self, connection):
        """Serves the one packet of a connection. Returns whether that was a call."""
        del self._silent[connection]
        self._selector.unregister(connection)
        files = []
        try:
            packet, files = sender.receive_packet(connection)
            return self._serve_packet(connection, packet, files) if packet else False
        except (OSError, wire.Malformed):
            return False
        finally:
            for file in files:
                os.close(file)
            connection.close()

    def _serve_packet(self, connection, packet, files):
        header = wire.read_header(packet)
        if header.version != wire.VERSION:
            if header.kind == wire.QUERY:
                sender.send_packet(connection, wire.REPLY, b"", status=wire.NOT_HANDLED)
            return False
        if header.kind not in (wire.EVENT, wire.QUERY):
            raise wire.Malformed("no event")
        caller = self._caller(connection, header, files)
        if caller is None:
            return False
        event = wire.read_event(sender.body_of(packet, header, files))
        answer = self._answer(caller, *wire.call_of(event))
        if header.kind == wire.QUERY:
            body = wire.answer_event(answer, event.return_id, event.transaction_id)
            sender.send_packet(connection, wire.REPLY, body)
        return True

    def _caller(self, connection, header, files):
        """The identifier of the caller, or None where it has none."""
        pid, _ = sender.credentials(connection)
        handed_over = self._handed_over(pid, header, files)
        bundle = _bundle_behind(f"/proc/{pid}/exe") if pid else None
        if bundle is None:
            bundle = handed_over
        return places.identifier_of(bundle) if bundle else None

    def _handed_over(self, pid, header, files):
        """The bundle of the executable that came with this event, or an earlier one."""
        number = 1 if header.attachments & wire.BODY_FILE else 0
        if header.attachments & wire.EXECUTABLE and len(files) > number:
            bundle = _bundle_behind(f"/proc/self/fd/{files[number]}") or ""
            if header.token:
                self._known.pop((pid, header.token), None)
                self._known[pid, header.token] = bundle
                if len(self._known) > _MAX_KNOWN:
                    del self._known[next(iter(self._known))]
            return bundle
        return self._known.get((pid, header.token), "")


def _bundle_behind(link):
    """The bundle of an executable; "" for one in no bundle, None where it cannot be told."""
    try:
        return places.bundle_of(os.readlink(link)) or ""
    except OSError:
        return None

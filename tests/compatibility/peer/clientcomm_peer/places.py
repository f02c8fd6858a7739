"""Folders, names and records."""

import hashlib
import os
import plistlib
import stat


def _owner_of(path):
    while True:
        try:
            return os.stat(path).st_uid
        except FileNotFoundError:
            path = os.path.dirname(path)


def runtime_folder():
    """Path of the runtime folder; it may not exist yet."""
    import pwd

    user = os.geteuid()
    candidates = [
        os.environ.get("XDG_RUNTIME_DIR", ""),
        f"/run/user/{user}",
        os.environ.get("XDG_CACHE_HOME", ""),
    ]
    home = os.environ.get("HOME", "")
    candidates.append(os.path.join(home, ".cache") if home else "")
    candidates.append(os.path.join(pwd.getpwuid(user).pw_dir, ".cache"))
    usable = [
        path
        for path in candidates
        if path.startswith("/")
        and not (path.startswith("/run/user/") and not os.path.isdir(path))
    ]
    mine = [path for path in usable if _owner_of(path) == user]
    return os.path.join((mine or usable)[0], "ClientComm")


def make_runtime_folder():
    """Makes the folder where it is missing. Raises PermissionError for a foreign one."""
    folder = runtime_folder()
    os.makedirs(os.path.dirname(folder), mode=0o700, exist_ok=True)
    try:
        os.mkdir(folder, 0o700)
    except FileExistsError:
        pass
    found = os.lstat(folder)
    if not stat.S_ISDIR(found.st_mode) or found.st_uid != os.geteuid():
        raise PermissionError(folder)
    if stat.S_IMODE(found.st_mode) != 0o700:
        os.chmod(folder, 0o700)
    return folder


def digest(identifier):
    return hashlib.sha256(identifier).hexdigest()[:32]


class SocketAddress:
    """What bind and connect take for a name in a folder, however long the folder's path is."""

    def __init__(self, folder, name):
        self._folder = None
        self.text = os.path.join(folder, name)
        if len(os.fsencode(self.text)) > 107:
            self._folder = os.open(folder, os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
            self.text = f"/proc/self/fd/{self._folder}/{name}"

    def __enter__(self):
        return self.text

    def __exit__(self, *_):
        if self._folder is not None:
            os.close(self._folder)


def write_record(folder, name, content):
    """Replaces a record of the runtime folder in one step."""
    draft = os.path.join(folder, f"{name}.{os.getpid()}.new")
    if os.path.lexists(draft):
        os.unlink(draft)
    file = os.open(draft, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o600)
    with os.fdopen(file, "wb") as out:
        plistlib.dump(content, out)
    os.rename(draft, os.path.join(folder, name))


def read_record(path):
    try:
        with open(path, "rb") as file:
            content = plistlib.load(file)
    except (OSError, plistlib.InvalidFileException, ValueError):
        return {}
    return content if isinstance(content, dict) else {}


def start_time(pid):
    """When a process was started, in clock ticks after boot."""
    with open(f"/proc/{pid}/stat", "rb") as file:
        return int(file.read().rpartition(b")")[2].split()[19])


def bundle_of(executable):
    """The bundle of an executable, or None."""
    folder, _, _ = executable.rpartition("/")
    for end in ("/Contents/Linux", "/Contents/MacOS"):
        if folder.endswith(".app" + end):
            return folder[: -len(end)]
    return None


def identifier_of(bundle):
    """The identifier of a bundle as bytes, or None."""
    info = read_record(os.path.join(bundle, "Contents", "Info.plist"))
    identifier = info.get("CFBundleIdentifier")
    return identifier.encode() if isinstance(identifier, str) else None


def own_bundle():
    return bundle_of(os.readlink("/proc/self/exe"))

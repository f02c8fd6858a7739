#!/usr/bin/env python3
"""Checks the include graph of ClientComm/ against the layers of docs/architecture.md.

    tools/check_structure.py [PROJECT]

Prints a line for each violation; the exit status is 1 when there is one. Checked are:
- the graph of files has no cycle, and neither has the graph of units: a header with its source. A
  neutral header is a unit by itself, since its source only implements it;
- an include leads to the file's own layer or to one below it;
- the classes and the neutral headers include the standard library and each other only, and have no
  #ifdef for an operating system;
- portable/ and posix/ include no header and use no call of a single system, and only glib/ and
  linux/ include GLib;
- a source has the name of its header, which is in the same folder, or neutral in
  ClientComm/platform;
- the C interface includes the headers of C99 beside, and nothing but ClientComm/clientcomm.h, which
  includes its parts, knows it;
- docs/architecture.md has a line for each file, and names no file that does not exist;
- docs/porting.md has a row for each neutral header.
"""

import os
import re
import sys

# What each layer may include, beside itself. A path belongs to the longest prefix.
LAYERS = {
    "ClientComm/platform/": [],
    "ClientComm/": ["ClientComm/internal/", "ClientComm/platform/"],
    "ClientComm/internal/": ["ClientComm/", "ClientComm/platform/"],
    "ClientComm/c/": ["ClientComm/", "ClientComm/internal/", "ClientComm/platform/"],
    "ClientComm/clientcomm.h": ["ClientComm/c/"],
    "ClientComm/platform/portable/": ["ClientComm/platform/"],
    "ClientComm/platform/glib/": ["ClientComm/platform/"],
    "ClientComm/platform/posix/": ["ClientComm/platform/", "ClientComm/platform/portable/"],
    "ClientComm/platform/linux/": [
        "ClientComm/platform/",
        "ClientComm/platform/portable/",
        "ClientComm/platform/glib/",
        "ClientComm/platform/posix/",
    ],
}
NEUTRAL = "ClientComm/platform/"
# Lists all classes of the host, each of which asks for the list: a loop by its nature. Its includes do
# not count between units.
REGISTRY = "ClientComm/internal/host_classes.cpp"
SYSTEM_FREE = ("ClientComm/", "ClientComm/internal/", "ClientComm/c/", "ClientComm/clientcomm.h", NEUTRAL)
LIBRARIES = {
    "ClientComm/c/": {"stdbool.h", "stddef.h", "stdint.h", "string.h"},
    "ClientComm/platform/portable/": {"expat.h"},
    "ClientComm/platform/glib/": {"glib.h"},
    "ClientComm/platform/linux/": {"glib.h"},
}
POSIX_HEADERS = set(
    """dirent.h dlfcn.h fcntl.h iconv.h poll.h pthread.h pwd.h sched.h signal.h spawn.h stdio.h
    stdlib.h string.h sys/file.h sys/mman.h sys/resource.h sys/select.h sys/socket.h sys/stat.h
    sys/time.h sys/types.h sys/uio.h sys/un.h sys/wait.h time.h unistd.h""".split()
)
ONE_SYSTEM = re.compile(
    r"\b(renameat2|copy_file_range|getauxval|MADV_HUGEPAGE|llistxattr|memfd_create|pidfd_\w+"
    r"|epoll_\w+|inotify_\w+|O_PATH|O_TMPFILE)\b|/proc/"
)
SYSTEM_TEST = re.compile(
    r"^\s*#\s*(?:if|ifdef|ifndef|elif)\b.*(?:__linux__|__APPLE__|__FreeBSD__|__unix__|_WIN32)", re.M
)
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def layer_of(path):
    return max((prefix for prefix in LAYERS if path.startswith(prefix)), key=len)


def read_files(project):
    """The text of each header and source of the library, by its path in the project."""
    files = {}
    for folder, _, names in sorted(os.walk(os.path.join(project, "ClientComm"))):
        for name in sorted(names):
            if name.endswith((".h", ".cpp")):
                path = os.path.join(folder, name)
                with open(path, encoding="utf-8") as file:
                    files[os.path.relpath(path, project)] = file.read()
    return files


def without_comments(text):
    return re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.S)


def is_standard(header):
    """The C++ library's headers have no extension."""
    return re.fullmatch(r"[a-z_0-9]+", header) is not None


def check_system_header(path, header):
    layer = layer_of(path)
    if is_standard(header) or header in LIBRARIES.get(layer, ()):
        return
    if layer in SYSTEM_FREE:
        yield f"{path}: includes <{header}>; only the standard library is allowed here"
    elif layer == "ClientComm/platform/linux/":
        return
    elif layer != "ClientComm/platform/posix/" or header not in POSIX_HEADERS:
        yield f"{path}: includes <{header}>, which {layer} must not know"


def check_includes(files):
    for path, text in files.items():
        for kind, header in INCLUDE.findall(text):
            if kind == "<":
                yield from check_system_header(path, header)
            elif header not in files:
                yield f"{path}: includes \"{header}\", which is no file of the library"
            elif layer_of(header) not in (layer_of(path), *LAYERS[layer_of(path)]):
                yield f"{path}: includes {header}, which is above its layer"


def check_system_use(files):
    for path, text in files.items():
        layer = layer_of(path)
        code = without_comments(text)
        if layer in SYSTEM_FREE and SYSTEM_TEST.search(code):
            yield f"{path}: depends on the operating system by #if"
        if layer != "ClientComm/platform/linux/":
            for match in ONE_SYSTEM.finditer(code):
                yield f"{path}: {match.group()} belongs to one system; move it behind a neutral header"


def graph_of_files(files):
    """The files of the library that each file includes."""
    return {
        path: [header for kind, header in INCLUDE.findall(text) if kind == '"' and header in files]
        for path, text in files.items()
    }


def unit_of(path, files):
    base = os.path.splitext(path)[0]
    return f"{base}.{{h,cpp}}" if f"{base}.h" in files and f"{base}.cpp" in files else path


def graph_of_units(files):
    graph = {}
    for path, headers in graph_of_files(files).items():
        unit = unit_of(path, files)
        uses = graph.setdefault(unit, [])
        if path != REGISTRY:
            uses.extend(other for other in (unit_of(header, files) for header in headers) if other != unit)
    return graph


def cycles(graph):
    """A cycle for each edge that closes one."""
    state = {}
    found = []

    def visit(node, trail):
        state[node] = "open"
        for other in graph[node]:
            if state.get(other) == "open":
                found.append([*trail[trail.index(other):], other])
            elif other not in state:
                visit(other, [*trail, other])
        state[node] = "done"

    for node in graph:
        if node not in state:
            visit(node, [node])
    return found


def check_cycles(files):
    of_files = cycles(graph_of_files(files))
    # A cycle of headers is one of their units too, and is reported once.
    of_units = [] if of_files else cycles(graph_of_units(files))
    for cycle in of_files:
        yield "include cycle: " + " -> ".join(cycle)
    for cycle in of_units:
        yield "cycle of units: " + " -> ".join(cycle)


def check_names(files):
    headers = {path for path in files if path.endswith(".h")}
    sources = {path for path in files if path.endswith(".cpp")}
    for source in sorted(sources):
        beside = source[: -len(".cpp")] + ".h"
        neutral = NEUTRAL + os.path.basename(beside)
        own = [header for header in (beside, neutral) if header in headers]
        if not own:
            yield f"{source}: has no header of its name beside it or in {NEUTRAL}"
        elif f'#include "{own[0]}"' not in files[source]:
            yield f"{source}: does not include {own[0]}"
    by_name = {}
    for path in files:
        if layer_of(path).startswith(NEUTRAL) and path.endswith(".cpp"):
            by_name.setdefault(os.path.basename(path), []).append(path)
    for name, paths in sorted(by_name.items()):
        if len(paths) > 1:
            yield f"{name}: more than one source has this name: {', '.join(sorted(paths))}"


def read_page(project, page):
    try:
        with open(os.path.join(project, page), encoding="utf-8") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def check_page(project, files):
    page = "docs/architecture.md"
    text = read_page(project, page)
    # A row of a table begins with the file's path; a header and its source share one row.
    listed = set()
    for path, extension in re.findall(r"^\| `(ClientComm/[^`]+?)\.(h|cpp|\{h,cpp\})` \|", text, re.M):
        listed.update(f"{path}.{name}" for name in extension.strip("{}").split(","))
    for path in sorted(files.keys() - listed):
        yield f"{page}: has no line for {path}"
    for path in sorted(listed - files.keys()):
        yield f"{page}: names {path}, which does not exist"


def check_porting(project, files):
    page = "docs/porting.md"
    rows = "\n".join(re.findall(r"^\| (`.*?) \|", read_page(project, page), re.M))
    for path in sorted(files):
        name = os.path.basename(path)
        if layer_of(path) == NEUTRAL and f"`{name}`" not in rows:
            yield f"{page}: has no row for {name}"


def violations(project):
    files = read_files(project)
    if not files:
        return [f"{project}: has no file below ClientComm/"]
    return [
        *check_includes(files),
        *check_system_use(files),
        *check_cycles(files),
        *check_names(files),
        *check_page(project, files),
        *check_porting(project, files),
    ]


def main():
    project = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    found = violations(project)
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Compares what the library exports with what its installed headers declare, and with what uses.cpp and
uses.c use.

A public function of a class needs no use there: it is exported by the name that it is declared by.

compare.py COMPILER NM INCLUDE_DIR LIBRARY WORK_DIR USES_OBJECT...

COMPILER is g++, perhaps with options: what it writes of a header for Ada names the symbol of every
declared function.
"""
import pathlib
import re
import shlex
import subprocess
import sys

compiler, nm, include_dir, library, work, *uses = sys.argv[1:]
headers = pathlib.Path(include_dir, "ClientComm")
work = pathlib.Path(work)

# Classes have these; their names follow from the class.
OF_CLASSES = re.compile(r"^(vtable|typeinfo|typeinfo name) for (.*)$")


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, capture_output=True, **options).stdout


def symbols(path, *options):
    """The names of a symbol table, without their versions, and the letters of their kinds."""
    found = {}
    for line in run(nm, "--format=posix", *options, path).splitlines():
        name, kind = line.split()[:2]
        found[name.split("@")[0]] = kind
    return found


def demangled(names):
    names = sorted(names)
    return dict(zip(names, run("c++filt", input="\n".join(names)).splitlines()))


def declarations():
    """Where each function or variable is declared: symbol -> file and line."""
    work.mkdir(parents=True, exist_ok=True)
    files = sorted(headers.rglob("*.h"))
    source = work / "all.cpp"
    source.write_text("".join(f'#include "{file}"\n' for file in files))
    run(*shlex.split(compiler), "-std=c++20", "-I", include_dir, "-fdump-ada-spec", "-fsyntax-only", str(source),
        cwd=work)
    found = {}
    entry = re.compile(r'-- ([^\n]*):(\d+)\s+with Import => True,\s+Convention => C\w*,\s+'
                       r'External_Name => "([^"]+)"')
    for spec in work.glob("*.ads"):
        for path, line, symbol in entry.findall(spec.read_text()):
            if pathlib.Path(path).resolve().is_relative_to(headers.resolve()):
                found[symbol] = (pathlib.Path(path), int(line))
    return found


def statement(path, line):
    """The declaration at a line, from the end of what is before it to its own end or body."""
    lines = path.read_text().splitlines()
    first = line - 1
    while first > 0 and re.search(r"[^;{}:/.]$", lines[first - 1]) and "//" not in lines[first - 1]:
        first -= 1
    return re.split(r";|\{", "\n".join(lines[first:]) + ";")[0], "\n".join(lines[first:])


def needs_no_export(path, line):
    """Deleted, private to the library, or defined by the header."""
    declaration, rest = statement(path, line)
    if re.search(r"= (delete|default)\b|\bCLIENTCOMM_LOCAL\b|\b(inline|constexpr|consteval)\b", declaration):
        return True
    return rest[len(declaration):].startswith("{")


def is_public_member(path, line):
    for text in reversed(path.read_text().splitlines()[: line - 1]):
        label = re.fullmatch(r" (public|protected|private):", text)
        if label:
            return label[1] == "public"
        if re.match(r"(class|struct|};)", text):
            return False
    return False


def main():
    exported = symbols(library, "--dynamic", "--defined-only")
    exported = {name for name, kind in exported.items() if not (kind == "A" and name.startswith("CLIENTCOMM_"))}
    declared = declarations()
    if len(declared) < 200:
        sys.exit(f"only {len(declared)} declarations were found")
    readable = demangled(exported | set(declared))
    classes = set(re.findall(r"^(?:class|struct) (?:CLIENTCOMM_EXPORT )?(\w+)[^;]*?\{",
                             "\n".join(file.read_text() for file in headers.rglob("*.h")), re.M))
    used = {name for path in uses for name in symbols(path, "--undefined-only")}
    # A constructor and a destructor have a second symbol, for classes derived from theirs.
    names_declared = {readable[name] for name in declared}
    names_used = set(demangled(used).values())
    problems = []
    for name in sorted(exported):
        of_class = OF_CLASSES.match(readable[name])
        if of_class:
            if of_class[2].split("::")[-1] not in classes:
                problems.append(f"exported, of no declared class: {readable[name]}")
            continue
        is_constructor = re.search(r"(\w+)::\1\(", readable[name])
        if readable[name] not in names_declared and not is_constructor:
            problems.append(f"exported, not declared: {readable[name]}")
        is_known_by_name = name in declared and is_public_member(*declared[name])
        if readable[name] not in names_used and not is_known_by_name:
            problems.append(f"exported, not used by uses.cpp or uses.c: {readable[name]}")
    for name, place in sorted(declared.items()):
        if name not in exported and not needs_no_export(*place):
            problems.append(f"declared, not exported: {readable[name]} ({place[0].name}:{place[1]})")
    if problems:
        sys.exit("\n".join(problems))
    print(f"{len(exported)} exported names, {len(declared)} declarations")


main()

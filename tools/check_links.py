#!/usr/bin/env python3
"""Checks that every link in a Markdown page of the project leads to a file or a heading.

    tools/check_links.py [PROJECT]

Prints a line for each dead link; the exit status is 1 when there is one. Links to other hosts are
not followed, and code is not read.
"""

import os
import re
import sys
import urllib.parse

CODE = re.compile(r"^(```+|~~~+).*?^\1|^(?: {4}|\t)[^\n]*|(`+)(?!`).*?(?<!`)\2(?!`)", re.M | re.S)
FENCED = re.compile(r"^(```+|~~~+).*?^\1", re.M | re.S)
LINK = re.compile(r"\]\(<?([^()\s>]+)>?(?:\s+\"[^\"]*\")?\)|^\[[^\]]+\]:\s*<?([^\s>]+)", re.M)
HEADING = re.compile(r"^#{1,6}\s+(.+?)\s*#*$", re.M)
OTHER_HOST = re.compile(r"[a-z][a-z0-9+.-]*:")


def pages_of(project):
    """The text of each page, by its path in the project."""
    pages = {}
    for folder, folders, names in os.walk(project):
        folders[:] = sorted(name for name in folders if name not in (".git", "build"))
        for name in sorted(names):
            if name.endswith(".md"):
                path = os.path.join(folder, name)
                with open(path, encoding="utf-8") as file:
                    pages[os.path.relpath(path, project)] = file.read()
    return pages


def anchor_of(heading):
    """As the hosts of repositories make it: of a link only the text counts."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading)
    return re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-")


def anchors_of(text):
    anchors = set()
    for heading in HEADING.findall(FENCED.sub("", text)):
        anchor = anchor_of(heading)
        number = 1
        while anchor in anchors:
            anchor = f"{anchor_of(heading)}-{number}"
            number += 1
        anchors.add(anchor)
    return anchors


def links_of(text):
    for inline, reference in LINK.findall(CODE.sub("", text)):
        link = inline or reference
        if not OTHER_HOST.match(link):
            yield urllib.parse.unquote(link)


def dead_links(project):
    pages = pages_of(project)
    for page, text in pages.items():
        for link in links_of(text):
            path, _, anchor = link.partition("#")
            target = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
            if not os.path.exists(os.path.join(project, target)):
                yield f"{page}: there is no file {link}"
            elif anchor and anchor not in anchors_of(pages.get(target, "")):
                yield f"{page}: there is no heading {link}"


def main():
    project = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    found = list(dead_links(project))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

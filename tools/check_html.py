#!/usr/bin/env python3
"""Checks that every link in the HTML pages below a folder leads to a file or an anchor there.

    tools/check_html.py FOLDER

Prints a line for each dead link; the exit status is 1 when there is one. Links to other hosts are not
followed.
"""

import html.parser
import os
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    """The links of a page, and what its anchors are called."""

    def __init__(self, text):
        super().__init__()
        self.links = set()
        self.anchors = {"", "#", "top"}
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        for name, value in attrs:
            if value and name in ("href", "src"):
                self.links.add(value)
            elif value and (name == "id" or (tag == "a" and name == "name")):
                self.anchors.add(value)


def pages_of(folder):
    pages = {}
    for path, _, names in os.walk(folder):
        for name in names:
            if name.endswith(".html"):
                file_path = os.path.join(path, name)
                with open(file_path, encoding="utf-8") as file:
                    pages[os.path.relpath(file_path, folder)] = Page(file.read())
    return pages


def dead_links(folder):
    pages = pages_of(folder)
    for name, page in sorted(pages.items()):
        for link in sorted(page.links):
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            path = urllib.parse.unquote(parts.path)
            target = os.path.normpath(os.path.join(os.path.dirname(name), path)) if path else name
            anchor = urllib.parse.unquote(parts.fragment)
            if not os.path.exists(os.path.join(folder, target)):
                yield f"{name}: there is no file {link}"
            elif target in pages and anchor not in pages[target].anchors:
                yield f"{name}: there is no anchor {link}"


def main():
    found = list(dead_links(sys.argv[1]))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

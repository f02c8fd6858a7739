#!/usr/bin/env python3
"""check_html.py on pages with links of each kind."""

import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import check_html


class CheckHtmlTest(unittest.TestCase):
    def dead_links(self, text):
        with tempfile.TemporaryDirectory() as folder:
            os.mkdir(os.path.join(folder, "docs"))
            for path, content in (("index.html", text), ("picture.png", ""), ("docs/other page.html",
                                  "<h1 id='top-one'>Title</h1><a name='old'></a>")):
                with open(os.path.join(folder, path), "w", encoding="utf-8") as file:
                    file.write(content)
            return list(check_html.dead_links(folder))

    def test_links_that_lead_somewhere(self):
        self.assertEqual(self.dead_links(
            "<p id='here'><a href='docs/other%20page.html#top-one'><a href='docs/other page.html#old'>"
            "<a href='#here'><a href='#'><img src='picture.png'><a href='https://example.com/none'>"
            "<a href='mailto:ann@example.com'><a href='docs'>"), [])

    def test_a_file_that_is_missing(self):
        for attribute in ("<a href='gone.html#x'>", "<img src='gone.html#x'>"):
            self.assertEqual(self.dead_links(attribute), ["index.html: there is no file gone.html#x"])

    def test_an_anchor_that_is_missing(self):
        for link in ("#gone", "docs/other%20page.html#gone"):
            self.assertEqual(self.dead_links(f"<a href='{link}'>"),
                             [f"index.html: there is no anchor {link}"])


if __name__ == "__main__":
    unittest.main()

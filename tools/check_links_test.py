#!/usr/bin/env python3
"""check_links.py on pages with links of each kind."""

import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import check_links

OTHER = "# Other page\n\n## The 5 seconds, by `kLimit`\n\n## Twice\n\n## Twice\n\n```sh\n# no heading\n```\n"


class CheckLinksTest(unittest.TestCase):
    def dead_links(self, text):
        with tempfile.TemporaryDirectory() as project:
            os.makedirs(os.path.join(project, "docs"))
            for path, content in (("README.md", text), ("docs/other.md", OTHER)):
                with open(os.path.join(project, path), "w", encoding="utf-8") as file:
                    file.write(content)
            return list(check_links.dead_links(project))

    def test_links_that_lead_somewhere(self):
        self.assertEqual(self.dead_links(
            "# Top\n[a](docs/other.md) [b](docs/other.md#the-5-seconds-by-klimit) [c](#top) [d](docs)\n"
            "[e](docs/other.md#twice-1) [f](https://example.com/none) [g]\n\n[g]: docs/other.md#twice\n"), [])

    def test_a_file_that_is_missing(self):
        self.assertEqual(self.dead_links("[a](docs/gone.md#x)\n"),
                         ["README.md: there is no file docs/gone.md#x"])
        self.assertEqual(self.dead_links("[a]: gone.md\n"), ["README.md: there is no file gone.md"])

    def test_a_heading_that_is_missing(self):
        for link in ("#gone", "docs/other.md#gone", "docs/other.md#twice-2", "docs/other.md#no-heading"):
            self.assertEqual(self.dead_links(f"# Top\n[a]({link})\n"),
                             [f"README.md: there is no heading {link}"])

    def test_code_has_no_links(self):
        self.assertEqual(self.dead_links("```cpp\nx[0](none.md)\n```\n\n    y[0](none.md)\n\n`z[0](none.md)`\n"), [])
        self.assertEqual(len(self.dead_links("`a` [b](none.md) `c`\n")), 1)


if __name__ == "__main__":
    unittest.main()

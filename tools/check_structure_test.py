#!/usr/bin/env python3
"""Each rule of check_structure.py, on a small tree that keeps it and on one that breaks it."""

import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import check_structure

SOUND = {
    "ClientComm/TQHPThing.h": '#pragma once\n#include <string>\n',
    "ClientComm/TQHPThing.cpp": '#include "ClientComm/TQHPThing.h"\n'
    '#include "ClientComm/platform/clock.h"\n',
    "ClientComm/platform/clock.h": "#pragma once\n",
    "ClientComm/platform/posix/io.h": "#pragma once\n#include <unistd.h>\n",
    "ClientComm/platform/posix/io.cpp": '#include "ClientComm/platform/posix/io.h"\n',
    "ClientComm/platform/linux/clock.cpp": '#include "ClientComm/platform/clock.h"\n'
    '#include <sys/prctl.h>\n#include "ClientComm/platform/posix/io.h"\n',
}


class CheckStructureTest(unittest.TestCase):
    def violations(self, changes=None, page=None, porting=None):
        files = {**SOUND, **(changes or {})}
        with tempfile.TemporaryDirectory() as project:
            if page is None:
                page = "".join(f"| `{path}` | a job |\n" for path in files)
            if porting is None:
                porting = "".join(f"| `{os.path.basename(path)}` | a promise |\n" for path in files)
            pages = {"docs/architecture.md": page, "docs/porting.md": porting}
            for path, text in {**files, **pages}.items():
                path = os.path.join(project, path)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "w", encoding="utf-8") as file:
                    file.write(text)
            return check_structure.violations(project)

    def expect_one(self, part, changes=None, page=None, porting=None):
        found = self.violations(changes, page, porting)
        self.assertEqual(len(found), 1, found)
        self.assertIn(part, found[0])

    def test_a_sound_tree_has_no_violation(self):
        self.assertEqual(self.violations(), [])

    def test_an_include_of_a_higher_layer(self):
        path = "ClientComm/platform/posix/io.h"
        self.expect_one("above its layer", {
            path: '#pragma once\n#include "ClientComm/platform/linux/proc.h"\n',
            "ClientComm/platform/linux/proc.h": "#pragma once\n",
        })

    def test_a_class_that_includes_an_implementation(self):
        self.expect_one("above its layer", {
            "ClientComm/TQHPThing.h": '#pragma once\n#include "ClientComm/platform/posix/io.h"\n',
        })

    def test_a_class_that_includes_the_c_interface(self):
        self.expect_one("above its layer", {
            "ClientComm/TQHPThing.h": '#pragma once\n#include "ClientComm/c/thing.h"\n',
            "ClientComm/c/thing.h": "#pragma once\n#include <stdint.h>\n",
        })

    def test_the_c_header_includes_its_parts(self):
        self.assertEqual(self.violations({
            "ClientComm/clientcomm.h": '#pragma once\n#include "ClientComm/c/thing.h"\n',
            "ClientComm/c/thing.h": "#pragma once\n#include <stdint.h>\n",
        }), [])

    def test_a_system_header_in_the_c_interface(self):
        self.expect_one("only the standard library", {
            "ClientComm/c/thing.h": "#pragma once\n#include <unistd.h>\n",
        })

    def test_a_system_header_in_a_neutral_header(self):
        self.expect_one("only the standard library", {
            "ClientComm/platform/clock.h": "#pragma once\n#include <unistd.h>\n",
        })

    def test_a_header_of_one_system_in_the_posix_folder(self):
        self.expect_one("<sys/auxv.h>", {
            "ClientComm/platform/posix/io.h": "#pragma once\n#include <sys/auxv.h>\n",
        })

    def test_glib_in_the_posix_folder(self):
        self.expect_one("<glib.h>", {
            "ClientComm/platform/posix/io.h": "#pragma once\n#include <glib.h>\n",
        })

    def test_a_call_of_one_system_in_the_posix_folder(self):
        self.expect_one("renameat2", {
            "ClientComm/platform/posix/io.h": "#pragma once\ninline int f() { return renameat2(); }\n",
        })

    def test_a_comment_may_name_such_a_call(self):
        self.assertEqual(self.violations({
            "ClientComm/platform/posix/io.h": "#pragma once\n// not renameat2(), /proc/self\n",
        }), [])

    def test_a_condition_on_the_system_in_a_class(self):
        self.expect_one("by #if", {"ClientComm/TQHPThing.h": "#pragma once\n#ifdef __linux__\n#endif\n"})

    def test_a_cycle_of_includes(self):
        self.expect_one("include cycle", {
            "ClientComm/platform/clock.h": '#pragma once\n#include "ClientComm/platform/time.h"\n',
            "ClientComm/platform/time.h": '#pragma once\n#include "ClientComm/platform/clock.h"\n',
        })

    # Each source includes the other's header; no header includes anything.
    LOOP = {
        f"ClientComm/internal/{name}.{extension}": text
        for name, other in (("one", "two"), ("two", "one"))
        for extension, text in (
            ("h", "#pragma once\n"),
            ("cpp", f'#include "ClientComm/internal/{name}.h"\n#include "ClientComm/internal/{other}.h"\n'),
        )
    }

    def test_a_cycle_through_sources(self):
        self.expect_one(
            "cycle of units: ClientComm/internal/one.{h,cpp} -> ClientComm/internal/two.{h,cpp} -> ", self.LOOP)

    def test_a_source_that_implements_a_neutral_header_is_a_unit_by_itself(self):
        self.assertEqual(self.violations({
            "ClientComm/platform/posix/io.h": '#pragma once\n#include "ClientComm/platform/clock.h"\n',
        }), [])

    def test_the_list_of_classes_makes_no_cycle(self):
        self.assertEqual(self.violations({
            path.replace("two", "host_classes"): text.replace("two", "host_classes")
            for path, text in self.LOOP.items()
        }), [])

    def test_a_source_without_a_header_of_its_name(self):
        self.expect_one("has no header of its name", {"ClientComm/platform/posix/other.cpp": "\n"})

    def test_a_source_whose_header_is_in_another_folder(self):
        found = self.violations({
            "ClientComm/platform/linux/io.cpp": '#include "ClientComm/platform/posix/io.h"\n',
        })
        self.assertIn("linux/io.cpp: has no header of its name", "\n".join(found))

    def test_a_file_without_a_line_on_the_page(self):
        page = "".join(f"| `{path}` | a job |\n" for path in SOUND if "posix/io.cpp" not in path)
        self.expect_one("has no line for ClientComm/platform/posix/io.cpp", page=page)

    def test_a_line_on_the_page_without_a_file(self):
        page = "".join(f"| `{path}` | a job |\n" for path in SOUND) + "| `ClientComm/gone.h` | a job |\n"
        self.expect_one("names ClientComm/gone.h", page=page)

    def test_a_neutral_header_without_a_row_on_porting(self):
        self.expect_one("docs/porting.md: has no row for clock.h", porting="| `other.h` | a promise |\n")


if __name__ == "__main__":
    unittest.main()

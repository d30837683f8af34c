"""Tests of scripts/check_layers.py: each rule on a small tree that breaks it."""

import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
import check_layers  # noqa: E402


def guarded(name, body=""):
    guard = name.upper().replace("/", "_").replace(".", "_")
    guard = guard if guard.startswith("MORVA_") else "MORVA_" + guard
    return f"#ifndef {guard}_\n#define {guard}_\n{body}\n#endif\n"


class CheckTree(unittest.TestCase):
    def problems_of(self, files):
        with tempfile.TemporaryDirectory() as directory:
            root = Path(directory).resolve()
            for name in ("src/platform/file.h", "src/storage/bag_file.h", "src/bag/scan.h", "src/export/pcd.h",
                         "src/messages/frames.h", "src/tool/console.h", "src/task/run.h"):
                self.write(root, name, guarded(name.removeprefix("src/")))
            self.write(root, "include/morva/bag.h", guarded("morva/bag.h"))
            self.write(root, "include/morva/records.h", guarded("morva/records.h"))
            for name, text in files.items():
                self.write(root, name, text)
            return check_layers.check_tree(root)

    @staticmethod
    def write(root, name, text):
        (root / name).parent.mkdir(parents=True, exist_ok=True)
        (root / name).write_text(text, encoding="utf-8")

    def assert_refused(self, name, include, words):
        problems = self.problems_of({name: f"\n{include}\n"})
        self.assertEqual(len(problems), 1, problems)
        self.assertTrue(problems[0].startswith(f"{name}:2: "), problems)
        self.assertIn(words, problems[0])

    def assert_allowed(self, name, *lines):
        self.assertEqual(self.problems_of({name: "\n".join(lines) + "\n"}), [])

    def test_tree_without_violations_is_accepted(self):
        self.assertEqual(self.problems_of({}), [])

    def test_lower_layers_may_be_included(self):
        self.assert_allowed("src/export/a.cpp", '#include "export/pcd.h"', '#include "messages/frames.h"',
                            '#include "morva/bag.h"', '#include "platform/file.h"', "#include <pcl/point_types.h>")
        self.assert_allowed("src/storage/a.cpp", '#include "morva/records.h"', '#include "kbag_msgs.pb.h"',
                            "#include <google/protobuf/arena.h>")

    def test_higher_layers_are_refused(self):
        self.assert_refused("src/platform/a.cpp", '#include "storage/bag_file.h"', "platform does not depend on storage")
        self.assert_refused("src/storage/a.cpp", '#include "bag/scan.h"', "storage does not depend on bag")
        self.assert_refused("src/storage/a.cpp", '#include "morva/bag.h"', "storage does not depend on bag")
        self.assert_refused("src/bag/a.cpp", '#include "export/pcd.h"', "bag does not depend on export")
        self.assert_refused("src/export/a.cpp", '#include "tool/console.h"', "export does not depend on tool")

    def test_layers_beside_each_other_are_refused(self):
        self.assert_refused("src/bag/a.cpp", '#include "messages/frames.h"', "bag does not depend on messages")
        self.assert_refused("src/messages/a.cpp", '#include "morva/bag.h"', "messages does not depend on bag")
        self.assert_refused("src/messages/a.cpp", '#include "storage/bag_file.h"', "does not depend on storage")
        self.assert_refused("src/task/a.cpp", '#include "tool/console.h"', "task does not depend on tool")

    def test_includes_with_dots_are_refused(self):
        for name in ("src/bag/a.cpp", "tests/bag/a.cpp", "examples/a.cpp"):
            self.assert_refused(name, '#include "../platform/file.h"', 'without ".."')

    def test_third_party_headers_stay_in_their_layer(self):
        self.assert_refused("src/bag/a.cpp", "#include <lz4.h>", "codec headers stay in platform")
        self.assert_refused("src/storage/a.cpp", "#include <unistd.h>", "operating system stay in platform")
        self.assert_refused("src/tool/a.cpp", "#include <sys/stat.h>", "operating system stay in platform")
        self.assert_refused("src/messages/a.cpp", "#include <pcl/point_types.h>", "PCL headers stay in export")
        self.assert_refused("src/bag/a.cpp", "#include <opencv2/core.hpp>", "OpenCV headers stay in export")
        self.assert_refused("src/tool/a.cpp", '#include "kbag_msgs.pb.h"', "schema headers stay in")

    def test_public_headers_show_only_standard_and_public_headers(self):
        for include in ('#include "platform/file.h"', "#include <Eigen/Core>", "#include <unistd.h>",
                        '#include "morva/missing.h"'):
            with self.subTest(include):
                problems = self.problems_of({"include/morva/records.h": guarded("morva/records.h", include)})
                self.assertEqual(len(problems), 1, problems)
        fine = guarded("morva/bag.h", '#include <string>\n#include "morva/records.h"')
        self.assertEqual(self.problems_of({"include/morva/bag.h": fine}), [])

    def test_unknown_folder_header_and_guard_are_refused(self):
        self.assert_refused("src/other/a.cpp", '#include "platform/file.h"', "no layer")
        self.assert_refused("src/bag/a.cpp", '#include "bag/missing.h"', "no such file")
        self.assert_refused("src/bag/a.cpp", '#include "morva/other.h"', "name it in")
        problems = self.problems_of({"src/bag/odd.h": guarded("bag/wrong.h")})
        self.assertEqual(problems, ["src/bag/odd.h:1: the guard is not MORVA_BAG_ODD_H_"])


if __name__ == "__main__":
    unittest.main()

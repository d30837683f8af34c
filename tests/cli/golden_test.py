"""Tests of golden.py: a golden run must notice whatever the program does differently."""

import tempfile
import unittest
from pathlib import Path

import golden

# What stands in for the program under test: writes, prints and exits as its arguments say.
PROGRAM = """#!/bin/sh
echo "out $1 $PWD"
echo "err 2026-01-31 23:59:59.123456 [main,L42] $1" >&2
mkdir -p made
printf '%s' "$1" > made/file
exit "${2:-0}"
"""


class GoldenRun(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name).resolve()
        self.program = self.root / "program"
        self.program.write_text(PROGRAM, encoding="utf-8")
        self.program.chmod(0o755)
        (self.root / "bags").mkdir()
        (self.root / "bags" / "a.kbag").write_text("bag", encoding="utf-8")
        self.case = self.root / "case"
        self.case.mkdir()
        self.write("args", "# a comment\nprogram one 3\n")
        self.write("setup", "bag a.kbag\n")
        golden.write_golden(self.case, self.run_case())

    def write(self, name, text):
        (self.case / name).parent.mkdir(parents=True, exist_ok=True)
        (self.case / name).write_text(text, encoding="utf-8")

    def run_case(self):
        return golden.run(self.case, self.program, self.root / "bags", self.root / "work")

    def problems(self):
        return golden.compare(self.case, self.run_case())

    def assert_problem(self, words):
        problems = self.problems()
        self.assertTrue(any(words in problem for problem in problems), problems)

    def test_golden_files_hold_what_the_run_did(self):
        self.assertEqual((self.case / "exit").read_text(), "3\n")
        self.assertEqual((self.case / "stdout").read_text(), "out one {work}\n")
        self.assertEqual((self.case / "stderr").read_text(), "err * [main,L*] one\n")
        self.assertEqual((self.case / "tree").read_text(), "a.kbag\nmade/\nmade/file\n")
        self.assertEqual((self.case / "files/made/file").read_text(), "one")
        self.assertEqual(self.problems(), [])

    def test_other_exit_status_is_noticed(self):
        self.write("exit", "0\n")
        self.assert_problem("exit: expected [0], actual [3]")

    def test_other_output_is_noticed(self):
        self.write("stdout", "out two {work}\n")
        self.assert_problem("-out two {work}")

    def test_missing_line_feed_is_noticed(self):
        self.write("stdout", "out one {work}")
        self.assertNotEqual(self.problems(), [])

    def test_other_log_line_is_noticed(self):
        self.write("stderr", "err * [main,L*] two\n")
        self.assert_problem("-err * [main,L*] two")

    def test_missing_golden_file_is_noticed(self):
        for name in ("exit", "stdout", "stderr", "tree", "files/made/file"):
            with self.subTest(name):
                text = (self.case / name).read_text()
                (self.case / name).unlink()
                self.assertNotEqual(self.problems(), [])
                self.write(name, text)

    def test_other_file_contents_are_noticed(self):
        self.write("files/made/file", "two")
        self.assert_problem("made/file")

    def test_expected_file_that_is_not_written_is_noticed(self):
        self.write("files/made/other", "one")
        self.assert_problem("made/other: was not written")

    def test_changed_input_is_noticed(self):
        self.write("setup", "bag a.kbag made/file\n")
        (self.case / "files/made/file").unlink()
        self.write("tree", "made/\nmade/file\n")
        self.assert_problem("made/file: is new or changed")

    def test_contents_may_be_left_open(self):
        self.write("any_bytes", "made/file\n")
        (self.case / "files/made/file").unlink()
        self.assertEqual(self.problems(), [])

    def test_case_without_a_run_is_noticed(self):
        self.write("args", "# nothing\n")
        self.write("exit", "")
        self.assert_problem("the case runs nothing")


class Matching(unittest.TestCase):
    def test_star_stands_for_text_within_a_line(self):
        self.assertTrue(golden.matches("a * c\n", "a b c\n"))
        self.assertFalse(golden.matches("a * c\n", "a b\nc\n"))
        self.assertFalse(golden.matches("a.c\n", "abc\n"))

    def test_any_order_needs_the_same_lines_as_often(self):
        self.assertTrue(golden.matches_in_any_order("a\nb *\n", "b 1\na\n"))
        self.assertFalse(golden.matches_in_any_order("a\na\n", "a\nb\n"))
        self.assertFalse(golden.matches_in_any_order("a\n", "a\na\n"))
        self.assertFalse(golden.matches_in_any_order("a\na\n", "a\n"))


if __name__ == "__main__":
    unittest.main()

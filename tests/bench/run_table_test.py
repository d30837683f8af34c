#!/usr/bin/env python3
"""Keeps the benchmark table honest, without timing anything.

    run_table_test.py PROJECT_DIR
"""

import io
import json
import pathlib
import re
import sys
import tempfile
import unittest
from unittest import mock

PROJECT = pathlib.Path(sys.argv.pop(1)).resolve()
sys.path.insert(0, str(PROJECT / "bench"))
import compare_outputs  # noqa: E402
import growth  # noqa: E402
import rows  # noqa: E402
import run_table  # noqa: E402

PLACES = {"kbag", "bin", "inputs", "work", "links"}


def commands_of(line):
    return [command for command in (line.ours, line.peer) if isinstance(command, rows.Command)]


def texts_of(line):
    """Every text of a line in which places may be named."""
    pairs = [*(line.same or ()), *(line.close or ())]
    return pairs + [text for command in commands_of(line) for text in
                    (command.argv, *command.remove, *command.make, *(name for link in command.link for name in link))]


class Rows(unittest.TestCase):
    def test_every_row_is_there(self):
        self.assertEqual({line.row for line in rows.LINES}, set(range(1, 20)))

    def test_a_line_is_either_commands_or_a_kernel(self):
        for line in rows.LINES:
            commands = line.ours is not None and line.peer is not None
            self.assertNotEqual(commands, line.kernel is not None, line)

    def test_clocks_and_numbers_of_pairs(self):
        for line in rows.LINES:
            self.assertIn(line.clock, rows.CLOCKS, line)
            self.assertGreaterEqual(line.pairs, 7, line)
            self.assertGreater(line.goal.most, 0, line)

    def test_only_known_places_are_named(self):
        for line in rows.LINES:
            for text in texts_of(line):
                self.assertLessEqual(set(re.findall(r"\{(.*?)\}", text)), PLACES, text)

    def test_programs_and_kernels_are_built(self):
        cmake = "\n".join(path.read_text() for path in (PROJECT / "bench").rglob("CMakeLists.txt"))
        built = {"bench_" + name for name in re.findall(r"kbag_bench(?:_program)?\((\w+) ", cmake)}
        for line in rows.LINES:
            named = {name for text in texts_of(line) for name in re.findall(r"\{bin\}/(\w+)", text)}
            if line.kernel:
                named.add(line.kernel.program)
            self.assertLessEqual(named, built, line)

    def test_inputs_are_made(self):
        made = set(re.findall(r'\{"([\w-]+)",', (PROJECT / "bench/make_inputs.cpp").read_text()))
        wanted = {bag for line in rows.LINES for command in (line.ours, line.peer)
                  for bag in run_table.bags_of(command)}
        wanted |= {bag + ".kbag" for bag in (*growth.SIZES, *growth.TOPICS.values())}
        for bag in wanted:
            source = rows.ROS_BAGS.get(bag, bag)
            self.assertIn(source.removesuffix(".kbag"), made)

    def test_two_sides_never_write_to_one_place(self):
        for line in rows.LINES:
            if isinstance(line.peer, rows.Limit) or line.kernel:
                continue
            ours, peer = (set(re.findall(r"\{work\}/[\w.-]+", command.argv)) for command in (line.ours, line.peer))
            self.assertFalse(ours & peer, line)

    def test_outputs_that_are_compared_are_written(self):
        for line in rows.LINES:
            for command, name in zip(commands_of(line), line.same or line.close or ()):
                place = re.match(r"\{work\}/[\w.-]+", name)[0]
                self.assertIn(place, command.argv, line)


class Goals(unittest.TestCase):
    def test_times_is_met_up_to_its_limit(self):
        self.assertTrue(rows.Times(1.25).met(1.25, 1.0))
        self.assertFalse(rows.Times(1.25).met(1.2501, 1.0))

    def test_more_is_met_up_to_its_limit(self):
        self.assertTrue(rows.More(0.5).met(1.5, 1.0))
        self.assertFalse(rows.More(0.5).met(1.51, 1.0))


class Figures(unittest.TestCase):
    LINE = rows.Line(3, "work", "peer", rows.Times(2.0), rows.Command("a"), rows.Command("b"))

    def test_medians_and_their_ratio(self):
        result = run_table.result_of(self.LINE, {"ours_all": [9.0, 1.0, 2.0], "peer_all": [4.0, 1.0, 100.0, 6.0]})
        self.assertEqual((result["ours"], result["peer"], result["ratio"]), (2.0, 5.0, 0.4))
        self.assertTrue(result["met"])

    def test_a_missed_goal_is_said(self):
        result = run_table.result_of(self.LINE, {"ours_all": [2.1], "peer_all": [1.0]})
        self.assertFalse(result["met"])
        self.assertEqual(run_table.cells(result)[-1], "NO")

    def test_a_row_that_was_not_measured_is_no_met_goal(self):
        self.assertEqual(run_table.cells(run_table.failed_result(self.LINE, "no peer"))[-1], "?")

    def test_figures_in_their_units(self):
        for value, text in ((0.0123456, "12.3 ms"), (2.0, "2 s"), (250.0, "250 s"), (5e-9, "5 ns")):
            self.assertEqual(run_table.figure_text(value, "cpu"), text)
        self.assertEqual(run_table.figure_text(3 << 20, "memory"), "3.0 MiB")

    def test_kernels_take_iterations_and_leave_aggregates(self):
        def entry(name, time, unit="ns", kind="iteration"):
            return {"name": name, "run_type": kind, "cpu_time": time, "time_unit": unit}

        report = {"benchmarks": [entry("F/ours", 10), entry("F/peer/1", 1, "us"), entry("F/ours", 30),
                                 entry("F/ours_median", 99, kind="aggregate")]}
        figures = run_table.kernel_figures(rows.Kernel("bench_x", "F"), report)
        self.assertEqual([round(value * 1e9) for value in figures["ours_all"]], [10, 30])
        self.assertEqual([round(value * 1e9) for value in figures["peer_all"]], [1000])

    def test_a_kernel_without_a_peer_is_a_failure(self):
        report = {"benchmarks": [{"name": "F/ours", "run_type": "iteration", "cpu_time": 1, "time_unit": "ns"}]}
        with self.assertRaises(run_table.Failure):
            run_table.kernel_figures(rows.Kernel("bench_x", "F"), report)


LAUNCHER = """#!/bin/sh
report=$1
shift
"$@" || exit 1
cost=1
case $1 in *ours) cost=3 ;; esac
eval "printf '{\\"exit\\": 0, \\"cpu\\": %s, \\"wall\\": 7, \\"memory\\": 1048576}' $cost >&$report"
"""
PROGRAM = '#!/bin/sh\necho "$0" >>"$(dirname "$0")/log"\necho same >"$1"\necho "measured_s: 0.5"\n'


class Runner(unittest.TestCase):
    """The runner, with programs that only say that they ran."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.bin = self.root / "build/bin"
        self.bin.mkdir(parents=True)
        for name, text in (("bench_launch", LAUNCHER), ("ours", PROGRAM), ("peer", PROGRAM)):
            (self.bin / name).write_text(text)
            (self.bin / name).chmod(0o755)

    def line(self, **changes):
        values = {"row": 2, "work": "w", "against": "p", "goal": rows.Times(2.0), "pairs": 3,
                  "ours": rows.Command("{bin}/ours {work}/a"), "peer": rows.Command("{bin}/peer {work}/b")}
        return rows.Line(**{**values, **changes})

    def run_lines(self, *lines):
        arguments = ["run_table.py", "--build", str(self.root / "build"), "--out", str(self.root / "out")]
        with mock.patch.object(rows, "LINES", list(lines)), mock.patch.object(sys, "argv", arguments), \
                mock.patch("sys.stdout", io.StringIO()), mock.patch("sys.stderr", io.StringIO()):
            status = run_table.main()
        return status, json.loads((self.root / "out/table.json").read_text())

    def test_runs_alternate_and_the_first_pair_does_not_count(self):
        status, result = self.run_lines(self.line())
        ran = [pathlib.Path(name).name for name in (self.bin / "log").read_text().split()]
        self.assertEqual(ran, ["ours", "peer"] * 4)
        self.assertEqual(status, 0)
        self.assertEqual(result["lines"][0]["ours_all"], [3, 3, 3])

    def test_the_json_holds_machine_and_figures(self):
        _, result = self.run_lines(self.line())
        self.assertEqual(set(result), {"machine", "lines"})
        self.assertLessEqual({"processor", "processors", "system", "commit", "date"}, set(result["machine"]))
        (line,) = result["lines"]
        self.assertEqual((line["row"], line["work"], line["against"], line["clock"], line["goal"]),
                         (2, "w", "p", "cpu", "<= 2 x"))
        self.assertEqual((line["ours"], line["peer"], line["ratio"], line["met"]), (3, 1, 3, False))

    def test_a_missed_goal_is_no_failure_but_a_missing_program_is(self):
        self.assertEqual(self.run_lines(self.line())[0], 0)
        status, result = self.run_lines(self.line(peer=rows.Command("{bin}/missing")))
        self.assertEqual(status, 1)
        self.assertIsNone(result["lines"][0]["met"])
        self.assertIn("missing is not here", result["lines"][0]["error"])

    def test_a_program_can_tell_what_it_measured(self):
        _, result = self.run_lines(self.line(clock="told"))
        self.assertEqual((result["lines"][0]["ours"], result["lines"][0]["ratio"]), (0.5, 1.0))

    def test_outputs_that_are_not_alike_fail_the_row(self):
        same = ("{work}/a", "{work}/b")
        self.assertEqual(self.run_lines(self.line(same=same))[0], 0)
        (self.bin / "peer").write_text(PROGRAM.replace("same", "other"))
        status, result = self.run_lines(self.line(same=same))
        self.assertEqual(status, 1)
        self.assertIn("not alike", result["lines"][0]["error"])


class Page(unittest.TestCase):
    def test_the_table_replaces_the_old_one_and_nothing_else(self):
        with tempfile.TemporaryDirectory() as name:
            page = pathlib.Path(name, "page.md")
            page.write_text("a\n<!-- table -->\n\nold\n\n<!-- /table -->\nb <!-- growth -->\n")
            run_table.fill_page(page, "table", "new")
            self.assertEqual(page.read_text(), "a\n<!-- table -->\n\nnew\n\n<!-- /table -->\nb <!-- growth -->\n")
            with self.assertRaises(run_table.Failure):
                run_table.fill_page(page, "growth", "new")

    def test_the_performance_page_has_a_place_for_both(self):
        text = (PROJECT / "docs/performance.md").read_text()
        for name in ("table", "growth"):
            self.assertRegex(text, f"(?s)<!-- {name} -->\n.*<!-- /{name} -->")


class Outputs(unittest.TestCase):
    ROW = "10.000000 0.000000 0.000000 0.000000 0.000000 0.000000 7.000000 1.000000 3"

    def near(self, text, other):
        return compare_outputs.is_near(text.split(), other.split())

    def test_clouds_may_differ_by_two_millionths_of_the_range(self):
        self.assertTrue(self.near(self.ROW, self.ROW.replace("10.000000", "10.000019")))
        self.assertFalse(self.near(self.ROW, self.ROW.replace("10.000000", "10.000025")))

    def test_near_points_may_differ_by_a_hundredth_of_a_millimetre(self):
        row = self.ROW.replace("10.000000", "1.000000")
        self.assertTrue(self.near(row, row.replace("1.000000 0.000000", "1.000009 0.000000", 1)))
        self.assertFalse(self.near(row, row.replace("1.000000 0.000000", "1.000011 0.000000", 1)))

    def test_nothing_but_coordinates_may_differ(self):
        self.assertFalse(self.near(self.ROW, self.ROW.replace("7.000000", "7.000001")))
        self.assertFalse(self.near(self.ROW, self.ROW[:-2]))

    def test_trees_differ_by_a_byte_or_a_name(self):
        with tempfile.TemporaryDirectory() as name:
            first, second = pathlib.Path(name, "a"), pathlib.Path(name, "b")
            for tree in (first, second):
                (tree / "sub").mkdir(parents=True)
                (tree / "sub/file").write_text("text")
            self.assertEqual(compare_outputs.first_difference(first, second), "")
            (second / "sub/file").write_text("texT")
            self.assertEqual(compare_outputs.first_difference(first, second), "sub/file")
            (second / "more").write_text("")
            self.assertIn("more", compare_outputs.first_difference(first, second))


class Projection(unittest.TestCase):
    def test_it_follows_the_line_through_the_largest_bags(self):
        def bag(size, cpu):
            return {"bytes": size, "commands": {"check": {"cpu": cpu}}}

        sizes = {"a": bag(1e6, 50.0), "b": bag(1e8, 1.0), "c": bag(1e9, 10.0)}
        self.assertAlmostEqual(growth.projection(sizes, "check", "cpu"), 1000.0)


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
"""Holds docs/cli/*.toml, of which completions and manual pages are made, against the programs, both ways.

usage: description_test.py PROJECT_DIR KBAG KBAGKIT
"""

import re
import subprocess
import sys
import unittest
from pathlib import Path

PROJECT, KBAG, KBAGKIT = Path(sys.argv[1]), sys.argv[2], sys.argv[3]
sys.path.insert(0, str(PROJECT / "scripts"))

from cli_pages import model  # noqa: E402  # behind the path to it

# How kbagkit's help calls what an option takes.
TYPES = {
    "topic": {"GLOB"},
    "time": {"TIME"},
    "integer": {"INT", "UINT"},
    "number": {"FLOAT"},
}
TEXT = {"TEXT"}


def help_of(*words):
    return subprocess.run([KBAGKIT, *words, "--help"], check=True, capture_output=True, text=True).stdout


def help_rows(text, heading):
    """The rows below a heading of a help text: what stands left, and the text to the right."""
    match = re.search(rf"^{heading}:\n((?:  .*\n)*)", text, re.MULTILINE)
    rows = []
    for line in match[1].splitlines() if match else []:
        left, _, right = line.strip().partition("  ")
        if line.startswith("   "):  # goes on behind a left side that was too long
            rows[-1][1] += line.strip()
        else:
            rows.append([left, right.strip()])
    return rows


class Kbagkit(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.program = model.load(PROJECT / "docs/cli/kbagkit.toml")

    def test_it_has_the_described_commands(self):
        rows = help_rows(help_of(), "Subcommands")
        self.assertGreater(len(rows), 5)
        self.assertEqual(rows, [[command.name, command.text] for command in self.program.commands])

    def test_it_has_the_described_options(self):
        self.check_options("kbagkit", help_rows(help_of(), "Options"), self.program.options)

    def test_its_commands_have_the_described_options(self):
        for command in self.program.commands:
            rows = help_rows(help_of(command.name), "Options")
            self.check_options(command.name, rows, self.program.options_of(command))

    def test_its_commands_have_the_described_arguments(self):
        for command in self.program.commands:
            rows = help_rows(help_of(command.name), "Positionals")
            described = []
            for argument in command.arguments:
                left = f"{argument.name} TEXT{' ...' if argument.many else ''}"
                left += "" if argument.optional else " REQUIRED"
                excludes = argument.excludes
                left += f" Excludes: {' '.join(excludes)}" if excludes else ""
                described.append([left, argument.text])
            self.assertEqual(rows, described, command.name)

    def check_options(self, where, rows, options):
        shown = {}
        for left, text in rows:
            names, _, value = left.partition(" ")
            shown[frozenset(names.split(","))] = (value, text)
        self.assertEqual(set(shown), {frozenset(option.names) for option in options}, where)
        for option in options:
            value, text = shown[frozenset(option.names)]
            self.assertEqual(text, option.text, f"{where} {option.name}")
            self.check_value(f"{where} {option.name}", value, option)

    def check_value(self, where, shown, option):
        shown, _, excludes = shown.partition("Excludes: ")
        self.assertEqual(excludes.split(), option.excludes, where)
        parts = re.fullmatch(
            r"(?P<type>[A-Z]*)"
            r"(?::(?:[A-Z]+ in )?(?P<limits>\[.*?\]|\{.*?\}|[^=]*?))?"
            r"(?:=(?P<default>\S+))?"
            r"(?P<repeat> \.\.\.)?",
            shown.strip(),
        )
        self.assertIsNotNone(parts, f"{where}: {shown}")
        self.assertEqual(bool(parts["repeat"]), option.repeat, where)
        if not option.values:
            self.assertEqual(shown.strip(), "", where)
            return
        value = option.values[0]
        self.assertEqual(len(option.values), 1, where)
        self.assertIn(parts["type"], TYPES.get(value.kind, TEXT), where)
        self.assertEqual(parts["default"] or "", value.default, where)
        limits = parts["limits"] or ""
        if value.choices:
            self.assertEqual(limits, "{" + ",".join(value.choices) + "}", where)
        elif value.min:
            self.assertIn(limits, (f"[{value.min} - {value.max}]", f"{value.min} to {value.max}"), where)
        else:
            self.assertEqual(limits, "", where)


class Kbag(unittest.TestCase):
    """kbag has no help on options: its source tells what it looks for, its usage text what it shows."""

    @classmethod
    def setUpClass(cls):
        cls.program = model.load(PROJECT / "docs/cli/kbag.toml")
        cls.options = cls.program.options_before()
        cls.source = (PROJECT / "src/tool/main.cpp").read_text(encoding="utf-8")
        usage = subprocess.run([KBAG, "--help"], check=True, capture_output=True, text=True).stdout
        cls.usage = re.sub(r"\033\[\d*m", "", usage).splitlines()[1:]

    def test_its_source_looks_for_the_described_options(self):
        looked_for = set(re.findall(r'\boptions(?:\)?, |\[)"([a-z]+)"', self.source))
        self.assertEqual(looked_for, {name.lstrip("-") for option in self.options for name in option.names})

    def test_options_take_as_many_values_as_described(self):
        taken = {}
        for names, count in re.findall(
            r'for \(const char\* key : \{([^}]*)\}\) options\.setMaxValues\(key, (\w+)\)', self.source
        ):
            taken |= {name: count for name in re.findall(r'"(\w+)"', names)}
        taken |= dict(re.findall(r'options\.setMaxValues\("(\w+)", ([\w:]+)\)', self.source))
        self.assertEqual(len(taken), self.source.count("setMaxValues") + 2)  # three in one call
        described = {
            option.name.lstrip("-"): "ArgOption::kAllValues" if option.many else str(len(option.values))
            for option in self.options
            if option.values
        }
        self.assertEqual(taken, described)

    def test_its_source_has_the_described_commands(self):
        rows = re.search(r"kRows\[\] = \{(.*?)\n  \};", self.source, re.DOTALL)[1]
        words = re.findall(r'\{"(\w+)"', rows) + re.findall(r'if \(word == "(\w+)"\)', self.source)
        self.assertEqual(sorted(words), sorted(command.name for command in self.program.commands))

    def test_its_usage_text_shows_the_described_commands_in_this_order(self):
        commands = [line.split()[1] for line in self.usage[1:]]
        self.assertEqual(commands, [command.name for command in self.program.commands])

    def test_its_usage_text_shows_the_described_options(self):
        def shown(line):
            return set(re.findall(r"--?[a-z]+", line))

        self.assertEqual(shown(self.usage[0]), {n for o in self.program.options if o.in_usage for n in o.names})
        for line, command in zip(self.usage[1:], self.program.commands):
            self.assertEqual(shown(line), {o.name for o in command.options if o.in_usage}, line)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

#!/usr/bin/env python3
"""Types lines and the tabulator key in a real shell, and looks at what it offers and does.

usage: completion_test.py bash|zsh|fish SHARE_DIR KBAG KBAGKIT
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import shells

SHELL, SHARE, KBAG, KBAGKIT = "", "", "", ""


def make_recordings(folder):
    """Recordings, and what looks like one: damaged, no recording at all, a pipe that would block its reader."""
    def simulate(name, *options):
        subprocess.run(
            [KBAGKIT, "simulate", folder / name, "--seconds", "0.3", "--points", "20", *options],
            check=True,
            stdout=subprocess.DEVNULL,
        )

    (folder / "sub").mkdir()
    simulate("room.kbag", "--cameras", "1")
    simulate("my walk.kbag", "--cameras", "0")
    simulate("sub/deep.kbin", "--cameras", "0")
    (folder / "torn.kbag").write_bytes((folder / "room.kbag").read_bytes()[:20000])
    (folder / "text.kbag").write_text("no recording\n", encoding="utf-8")
    (folder / "notes.txt").write_text("notes\n", encoding="utf-8")
    os.mkfifo(folder / "pipe.kbag")


def topics_of(bag):
    lines = subprocess.run([KBAGKIT, "topics", "--json", bag], check=True, capture_output=True, text=True).stdout
    return {json.loads(line)["topic"] for line in lines.splitlines()}


class Completion(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.scratch.cleanup)
        folder = Path(cls.scratch.name) / "work"
        folder.mkdir()
        make_recordings(folder)
        cls.topics = topics_of(folder / "room.kbag")
        cls.few_topics = topics_of(folder / "my walk.kbag")
        assert len(cls.topics) > len(cls.few_topics) > 5
        programs = Path(cls.scratch.name) / "bin"
        programs.mkdir()
        for name, program in (("kbag", KBAG), ("kbagkit", KBAGKIT)):
            (programs / name).symlink_to(program)
            (folder / name).symlink_to(program)
        if SHELL == "fish":
            cls.shell = shells.Fish(SHARE, programs, folder)
        else:
            cls.shell = shells.Terminal(SHELL, SHARE, programs, folder)
        cls.addClassCleanup(cls.shell.close)

    def offers(self, line):
        offers = {offer.rstrip("/ ") for offer in self.shell.press(line)[0]}
        return {offer for offer in offers if not offer.startswith(".")}  # of this test's own files

    def check(self, line, expected):
        self.assertEqual(self.offers(line), set(expected), line)

    # ------------------------------------------------------------------------------ commands, options

    def test_commands_are_offered_first(self):
        self.check("kbag ", ["info", "pinfo", "view", "unpack", "export", "reindex", "check"])
        self.check("kbag e", ["export"])
        self.check(
            "kbagkit ", ["info", "topics", "messages", "cat", "doctor", "salvage", "batch", "simulate"]
        )

    def test_commands_are_offered_behind_an_option_and_its_value(self):
        self.check("kbag -d 2 e", ["export"])

    def test_options_are_those_of_the_command(self):
        export = {"--topic", "--dir", "--images", "-t", "-d", "--help", "-h", "--version", "-v"}
        self.check("kbag export room.kbag -", export)
        self.check("kbag info room.kbag -", {"-d", "--help", "-h", "--version", "-v"})
        self.check("kbagkit doctor --", {"--json", "--help"})
        self.check("kbagkit --", {"--help", "--version"})

    def test_an_option_is_offered_once_unless_it_may_be_repeated(self):
        self.check("kbagkit cat room.kbag --csv --topic /imu --t", {"--topic", "--to"})
        self.check("kbagkit cat room.kbag --csv --to 5 --c", [])
        self.check("kbagkit cat room.kbag --csv --to 5 --t", {"--topic"})

    def test_what_excludes_each_other_is_not_offered(self):
        self.check("kbagkit batch --merge sub --", {"--json", "--help"})
        self.assertNotIn("--merge", self.offers("kbagkit batch --device --"))
        self.assertIn("--merge", self.offers("kbagkit batch --json --"))
        self.assertNotIn("--merge", self.offers("kbagkit batch sub --"))

    def test_an_option_ends_the_values_of_the_one_before_it(self):
        self.check("kbag export room.kbag --topic /imu --im", ["--images"])

    # ---------------------------------------------------------------------------------------- values

    def test_choices_are_offered(self):
        self.check("kbagkit simulate new.kbag --compression ", ["none", "lz4", "zstd"])
        self.check("kbagkit simulate --compression z", ["zstd"])
        self.check("kbag -d ", ["1", "2", "3", "4"])

    def test_numbers_and_times_get_no_file_names(self):
        for line in ("kbagkit simulate --seconds ", "kbag view room.kbag --since ", "kbagkit cat room.kbag --from "):
            self.check(line, [])
        self.check("kbag view room.kbag --since 5 ", [])

    def test_recordings_are_offered_with_folders_on_the_way(self):
        found = self.offers("kbag info ")
        self.assertLessEqual({"room.kbag", "torn.kbag", "sub"}, found)
        self.assertNotIn("notes.txt", found)
        self.assertLessEqual({"sub/deep.kbin"} if SHELL != "zsh" else {"deep.kbin"}, self.offers("kbag info sub/"))
        self.assertIn("room.kbag", self.offers("kbagkit salvage torn.kbag out.kbag --like "))

    def test_folders_alone_are_offered_for_a_folder(self):
        for line in ("kbag export room.kbag --dir ", "kbagkit batch ", "kbagkit batch --out "):
            self.check(line, ["sub"])

    # ---------------------------------------------------------------------------------------- topics

    def test_topics_are_those_of_the_recording_on_the_line(self):
        for line in (
            "kbag export room.kbag --topic ",
            "kbag view room.kbag --topic ",
            "kbag unpack --dir sub room.kbag --topic ",
            "kbagkit cat room.kbag --topic ",
            "kbagkit info --json room.kbag --topic ",
            "./kbag export ./room.kbag --topic ",
            "kbag export ~/room.kbag --topic ",
        ):
            self.check(line, self.topics)
        self.check("kbag export 'my walk.kbag' --topic ", self.few_topics)
        self.check("kbag export my\\ walk.kbag --topic ", self.few_topics)

    def test_topics_of_all_recordings_are_offered(self):
        self.check("kbagkit topics 'my walk.kbag' room.kbag --topic ", self.topics)

    def test_topics_begin_with_what_is_typed(self):
        raw = {topic for topic in self.topics if topic.startswith("/raw_")}
        self.assertEqual(len(raw), 3)
        self.check("kbag export room.kbag --topic /raw_", raw)
        self.check("kbag export room.kbag --topic /nothing", [])

    def test_a_topic_that_is_given_is_not_offered_again(self):
        self.check("kbag export room.kbag --topic /imu /lidar ", self.topics - {"/imu", "/lidar"})

    def test_a_recording_that_cannot_be_read_has_no_topics(self):
        for bag in ("torn.kbag", "text.kbag", "pipe.kbag", "sub", "missing.kbag", "'$(touch trap)'", "`touch trap`"):
            self.check(f"kbag export {bag} --topic ", [])
            self.check(f"kbagkit cat {bag} --topic ", [])
        self.check("kbagkit cat $(touch trap) --topic ", [])
        self.assertFalse((Path(self.scratch.name) / "work/trap").exists())


@unittest.skipIf("fish" in sys.argv[1:2], "fish is asked, not typed to")
class TypedLine(Completion):
    """What the line comes to."""

    def check_line(self, typed, expected):
        self.assertEqual(self.shell.press(typed)[1], expected)

    def test_words_are_completed_in_the_line(self):
        self.check_line("kbag exp", "kbag export ")
        self.check_line("kbag info ro", "kbag info room.kbag ")
        self.check_line("kbag export room.kbag --im", "kbag export room.kbag --images ")
        self.check_line("kbag export room.kbag --topic /im", "kbag export room.kbag --topic /imu ")
        self.check_line("kbag export room.kbag --topic /imu /mag", "kbag export room.kbag --topic /imu /magnetic ")
        self.check_line("kbagkit cat room.kbag --topic=/im", "kbagkit cat room.kbag --topic=/imu ")
        self.check_line("kbag info my", "kbag info my\\ walk.kbag ")
        self.check_line("kbagkit simulate --compression=l", "kbagkit simulate --compression=lz4 ")
        self.check_line("kbag export room.kbag --dir s", "kbag export room.kbag --dir sub/")
        self.check_line("kbagkit doctor notes", "kbagkit doctor notes.txt ")
        self.check_line("kbagkit salvage torn.kbag not", "kbagkit salvage torn.kbag notes.txt ")


if __name__ == "__main__":
    SHELL, SHARE, KBAG, KBAGKIT = sys.argv[1:5]
    suite = unittest.TestSuite()
    names = (Completion,) if SHELL == "fish" else (TypedLine,)
    for name in names:
        suite.addTests(unittest.defaultTestLoader.loadTestsFromTestCase(name))
    sys.exit(not unittest.TextTestRunner(verbosity=1).run(suite).wasSuccessful())

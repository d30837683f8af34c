#!/usr/bin/env python3
"""`kbagkit info | topics | messages | cat` as scripts use them: every line against its schema, and its content.

usage: inspect_cli_test.py KBAGKIT KBAG MAKE_REAL_RECORDING DATA_FOLDER SOURCE_DIR [unittest arguments]
"""

import base64
import copy
import csv
import io
import json
import math
import os
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import unittest
from datetime import datetime, timedelta, timezone
from pathlib import Path

SYSTEM_PYTHON = "/usr/bin/python3"  # the one that Debian's packages serve

try:
    import jsonschema
except ImportError:
    if os.path.realpath(sys.executable) == os.path.realpath(SYSTEM_PYTHON):
        sys.exit("python3-jsonschema is not installed; scripts/install_packages.sh build")
    os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, *sys.argv])

from handmade import START_US, blob, double, log_message, record, sample_header, signed

KBAGKIT, KBAG, MAKE_REAL_RECORDING = (sys.argv.pop(1) for _ in range(3))
REAL_DATA, SOURCE = (Path(sys.argv.pop(1)) for _ in range(2))
COMMANDS = {"info": ["--json"], "topics": ["--json"], "messages": ["--json"], "cat": []}
SCHEMAS = {name: json.loads((SOURCE / f"docs/schemas/kbagkit-{name}-1.json").read_text()) for name in COMMANDS}
EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


def strict(schema):
    """A copy of a schema in which objects hold nothing but what it names."""
    if isinstance(schema, list):
        return [strict(part) for part in schema]
    if not isinstance(schema, dict):
        return copy.copy(schema)
    result = {key: strict(part) for key, part in schema.items()}
    if "properties" in result and "required" in result:
        result["additionalProperties"] = False
    return result


VALIDATORS = {name: jsonschema.Draft202012Validator(strict(schema)) for name, schema in SCHEMAS.items()}


def alternatives(schema):
    """Validators of the alternatives of a schema, by the constant that only one of them has for "kind"."""
    found = {}
    for choice in schema["oneOf"]:
        name = choice["$ref"].rsplit("/", 1)[1]
        kind = schema["$defs"][name]["properties"].get("kind", {}).get("const")
        assert kind not in found, kind
        found[kind] = jsonschema.Draft202012Validator({**choice, "$defs": strict(schema["$defs"])})
    return found


# A line of many is faster held against its own alternative, which is the same: no other takes its kind.
OF_KIND = alternatives(SCHEMAS["cat"])


def no_constant(name):
    raise ValueError(f"{name} is not JSON")


def parse(line):
    return json.loads(line, parse_constant=no_constant)


def kbagkit(*arguments, **options):
    return subprocess.run([KBAGKIT, *map(str, arguments)], capture_output=True, stdin=subprocess.DEVNULL,
                          timeout=300, **options)


def utc(time_us):
    return (EPOCH + timedelta(microseconds=time_us)).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


class Inspect(unittest.TestCase):
    maxDiff = 3000

    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp(prefix="kbagkit-inspect-")).resolve()
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.room = cls.folder / "room.kbag"
        made = kbagkit("simulate", cls.room, "--seconds", 2, "--points", 300, "--cameras", 1)
        assert made.returncode == 0, made.stderr
        cls.empty = cls.folder / "empty.kbag"
        record(cls.empty, [b"/imu", b"/lidar"], [])
        cls.unclosed = cls.folder / "unclosed.kbag"
        record(cls.unclosed, [b"/raw_ppk_log", b"/other"],
               [(i % 2, START_US + i, log_message(START_US + i, bytes([i]))) for i in range(6)], closed=False)
        cls.damaged = cls.folder / "damaged.kbag"
        content = bytearray(cls.room.read_bytes())
        for at in range(20_000, len(content) - 50_000, 100_000):
            content[at] ^= 1
        cls.damaged.write_bytes(content)
        cls.cut = cls.folder / "cut.kbag"
        cls.cut.write_bytes(cls.room.read_bytes()[:200_000])
        cls.bad_header = cls.folder / "header.kbag"
        cls.bad_header.write_bytes(b"KBAG" + bytes(10_000))
        cls.foreign = cls.folder / "foreign.kbag"
        cls.foreign.write_bytes(b"x" * 10_000)
        cls.missing = cls.folder / "missing.kbag"

    def lines(self, command, *arguments, status=0):
        """The lines of a command, each valid."""
        result = kbagkit(command, *arguments, *COMMANDS[command])
        self.assertEqual(result.returncode, status, result.stderr)
        lines = [parse(line) for line in result.stdout.decode().splitlines()]
        self.assert_valid(command, lines)
        return lines

    def assert_valid(self, command, lines):
        for line in lines:
            validator = OF_KIND[line.get("kind")] if command == "cat" else VALIDATORS[command]
            best = jsonschema.exceptions.best_match(validator.iter_errors(line))
            self.assertIsNone(best, f"{line}: {best and best.message}")
            self.assert_moments_agree(line)

    def assert_moments_agree(self, value):
        """Every moment stands there as a number and as text."""
        if isinstance(value, list):
            for part in value:
                self.assert_moments_agree(part)
        elif isinstance(value, dict):
            for key, part in value.items():
                self.assert_moments_agree(part)
                if key + "_us" in value and value[key] is not None:
                    self.assertEqual(part, utc(value[key + "_us"]))

    def one(self, command, *arguments, status=0):
        (line,) = self.lines(command, *arguments, status=status)
        return line

    # ------------------------------------------------------------------------------------ schemas

    def test_schemas_are_schemas_and_share_their_definitions(self):
        shared = {}
        for name, schema in SCHEMAS.items():
            jsonschema.Draft202012Validator.check_schema(schema)
            self.assertEqual(schema["$id"], f"urn:kbagkit:{name}:1")
            for key in ("utc", "error", "gap", "rate", "steps"):
                if key in schema["$defs"]:
                    self.assertEqual(schema["$defs"][key], shared.setdefault(key, schema["$defs"][key]), key)
        for key, part in SCHEMAS["info"]["$defs"]["topic"]["properties"].items():
            self.assertEqual(part, SCHEMAS["topics"]["$defs"]["topic"]["properties"][key])

    def test_schemas_refuse_what_is_not_theirs(self):
        line = self.lines("topics", self.room)[0]
        for change in ({"messages": -1}, {"start": "yesterday"}, {"kind": "sonar"}, {"schema": "kbagkit/topics/2"},
                       {"gaps": [{}]}, {"unheard_of": 1}):
            self.assertFalse(VALIDATORS["topics"].is_valid({**line, **change}), change)
        self.assertTrue(jsonschema.Draft202012Validator(SCHEMAS["topics"]).is_valid({**line, "unheard_of": 1}))

    def test_every_kind_of_recording_gives_valid_lines(self):
        expected = {self.room: 0, self.empty: 0, self.unclosed: 1, self.cut: 1, self.bad_header: 1,
                    self.foreign: 1, self.missing: 1, self.folder: 1}
        codes = {self.unclosed: "no_index", self.cut: "no_index", self.bad_header: "damaged_header",
                 self.foreign: "no_recording", self.missing: "missing", self.folder: "unreadable"}
        for bag, status in expected.items():
            for command in COMMANDS:
                lines = self.lines(command, bag, status=status)
                if status != 0:
                    self.assertEqual([line["error"]["code"] for line in lines], [codes[bag]])
                    self.assertEqual(lines[0]["bag"], str(bag))

    def test_real_recording_gives_valid_lines(self):
        if not REAL_DATA.is_dir():
            self.skipTest(f"SKIPPED: no real sensor data beside the checkout ({REAL_DATA})")
        bag = self.folder / "real.kbag"
        subprocess.run([MAKE_REAL_RECORDING, bag, "zstd"], check=True, stdout=subprocess.DEVNULL)
        info = self.one("info", bag)
        self.assertEqual(info["compression"], "zstd")
        self.assertEqual(len(self.lines("topics", bag)), len(info["topics"]))
        self.assertEqual(len(self.lines("messages", bag)), info["messages"])
        for topic in info["topics"]:
            self.assertGreater(topic["messages"], 0)
            rows = kbagkit("cat", bag, "--csv", "--topic", topic["topic"]).stdout.count(b"\n") - 1
            self.assertEqual(rows, topic["samples"], topic["topic"])
            begin = topic["start_us"]
            window = ["--topic", topic["topic"], "--from", begin, "--to", begin + 3_000_000]
            self.assertNotEqual(self.lines("cat", bag, *window), [])
            if topic["kind"] == "lidar":
                self.assertGreater(len(self.lines("cat", bag, *window[:-1], begin + 110_000, "--points")), 1000)

    # ------------------------------------------------------------------------------- info, topics

    def test_info_of_a_simulated_recording_tells_what_it_holds(self):
        info = self.one("info", self.room)
        self.assertEqual(info["bytes"], self.room.stat().st_size)
        self.assertEqual((info["compression"], info["closed"], info["index"]), ("lz4", True, "recording"))
        self.assertEqual(info["device"]["serial_number"], "SIM0000000001")
        topics = {topic["topic"]: topic for topic in info["topics"]}
        self.assertEqual(list(topics), sorted(topics))
        self.assertEqual(topics["/imu"]["samples"], 401)
        self.assertAlmostEqual(topics["/imu"]["rate"]["samples_hz"], 200)
        self.assertAlmostEqual(topics["/imu"]["rate"]["messages_hz"], 10)
        self.assertEqual(topics["/imu"]["period_us"], 100_000)
        self.assertEqual(topics["/lidar"]["kind"], "lidar")
        for key in ("messages", "samples", "raw_bytes", "stored_bytes"):
            self.assertEqual(info[key], sum(topic[key] for topic in topics.values()))
        self.assertEqual(info["compression_ratio"], info["raw_bytes"] / info["stored_bytes"])
        self.assertEqual(info["duration_s"], (info["end_us"] - info["start_us"]) / 1e6)

    def test_statistics_are_those_of_the_messages(self):
        times = [0, 10_000, 20_500, 29_000, 40_000, 39_000, 50_000, 60_000, 70_000, 80_000, 90_000, 100_000, 110_000,
                 120_000, 130_000, 140_000, 350_000, 360_000, 370_000, 380_000]
        bag = self.folder / "steps.kbag"
        record(bag, [b"/raw_ppk_log"],
               [(0, START_US + t, log_message(START_US + t, b"x" * 10), START_US + t + 5, 3) for t in times])
        topic = self.one("topics", bag)
        messages = self.lines("messages", bag)
        self.assertEqual([line["time_us"] - START_US for line in messages], times)
        steps = [b - a for a, b in zip(times, times[1:])]
        self.assertEqual(topic["steps"]["count"], len(steps))
        self.assertEqual(topic["steps"]["median_us"], statistics.median(steps))
        self.assertAlmostEqual(topic["steps"]["mean_us"], statistics.mean(steps))
        self.assertAlmostEqual(topic["steps"]["stddev_us"], statistics.pstdev(steps), places=6)
        self.assertEqual((topic["steps"]["min_us"], topic["steps"]["max_us"]), (-1000, 210_000))
        self.assertEqual(topic["steps_back"], 1)
        self.assertAlmostEqual(topic["rate"]["messages_hz"], 19 / 0.38)
        self.assertAlmostEqual(topic["rate"]["samples_hz"], 19 * 3 / 0.38)
        self.assertEqual(topic["end_us"], START_US + 380_005)
        self.assertEqual([(gap["from_us"] - START_US, gap["to_us"] - START_US, gap["missing"])
                          for gap in topic["gaps"]], [(140_000, 350_000, 20)])

    def test_gaps_are_those_of_the_doctor(self):
        bag = self.folder / "gaps.kbag"
        record(bag, [b"/raw_ppk_log"], [(0, START_US + i * 1000, log_message(START_US + i * 1000, b"x"))
                                        for i in range(200) if i % 50 > 5])
        account = parse(kbagkit("doctor", bag, "--json").stdout)["bags"][0]["topics"][0]
        topic = self.one("topics", bag)
        self.assertGreater(len(topic["gaps"]), 2)
        keys = ("from_us", "to_us", "missing")
        self.assertEqual([[gap[key] for key in keys] for gap in topic["gaps"]],
                         [[gap[key] for key in keys] for gap in account["gaps"]])
        self.assertEqual(topic["period_us"], account["period_us"])

    def test_fields_of_topics_are_those_of_their_samples(self):
        for topic in self.lines("topics", self.room):
            sample = self.lines("cat", self.room, "--topic", topic["topic"])[0]
            names = [field["name"] for field in topic["fields"]]
            self.assertEqual(names, [key for key in sample if key not in ("schema", "topic", "kind", "seq", "time_us",
                                                                          "time")])
            for field in topic["fields"]:
                suffix = {"m/s^2": "_m_s2", "rad/s": "_rad_s", "uT": "_ut", None: ""}.get(
                    field["unit"], f"_{field['unit']}")
                self.assertTrue(field["name"].endswith(suffix), field)

    def test_empty_recording_has_topics_without_anything(self):
        info = self.one("info", self.empty)
        self.assertEqual((info["messages"], info["start_us"], info["duration_s"], info["device"]), (0, None, None, None))
        for topic in info["topics"]:
            self.assertEqual((topic["rate"], topic["steps"], topic["compression_ratio"]), (None, None, None))
        self.assertEqual(kbagkit("info", self.empty).returncode, 0)

    def test_recordings_that_cannot_be_read_do_not_keep_others_back(self):
        for command in ("info", "topics", "messages"):
            lines = self.lines(command, self.missing, self.room, self.foreign, self.empty, status=1)
            shown = list(dict.fromkeys(line["bag"] for line in lines))
            expected = [self.missing, self.room, self.foreign, self.empty]
            if command == "messages":
                expected.pop()
            self.assertEqual(shown, [str(bag) for bag in expected])
            self.assertEqual([line["bag"] for line in lines if "error" in line],
                             [str(self.missing), str(self.foreign)])
            text = kbagkit(command, self.missing, self.room)
            self.assertEqual(text.returncode, 1)
            self.assertIn("/imu", text.stdout.decode())
            self.assertIn(f"kbagkit: {self.missing}: there is no such file", text.stderr.decode())
        header = self.one("info", self.unclosed, status=1)
        self.assertEqual(header["closed"], False)
        self.assertEqual(header["created_us"], START_US)

    def test_scan_shows_recordings_without_an_index(self):
        info = self.one("info", self.unclosed, "--scan")
        self.assertEqual((info["index"], info["messages"]), ("scan", 6))
        self.assertEqual(info["scanned_bytes"], self.unclosed.stat().st_size)
        self.assertEqual([line["topic"] for line in self.lines("messages", self.unclosed, "--scan")],
                         ["/raw_ppk_log", "/other"] * 3)
        samples = self.lines("cat", self.unclosed, "--scan")
        self.assertEqual(samples[0]["data_base64"], "AA==")
        self.assertEqual(samples[1]["kind"], "unknown")
        self.assertEqual(base64.b64decode(samples[1]["data_base64"]), log_message(START_US + 1, b"\1"))
        cut = self.one("info", self.cut, "--scan")
        self.assertLess(cut["scanned_bytes"], 200_000)
        self.assertGreater(cut["messages"], 10)

    def test_side_file_is_named_as_the_source(self):
        bag = self.folder / "reindexed.kbag"
        shutil.copy(self.unclosed, bag)
        subprocess.run([KBAG, "reindex", bag], check=True, capture_output=True)
        info = self.one("info", bag)
        self.assertEqual((info["index"], info["closed"], info["messages"]), ("side_file", False, 6))

    # ----------------------------------------------------------------------------------- selection

    def test_topics_are_selected_by_patterns(self):
        def names(*patterns):
            options = [word for pattern in patterns for word in ("--topic", pattern)]
            return [line["topic"] for line in self.lines("topics", self.room, *options)]
        self.assertEqual(names("/camera_*"), ["/camera_center/jpeg", "/camera_left/h264"])
        self.assertEqual(names("/im?", "/raw_[np]*"), ["/imu", "/raw_ntrip_log", "/raw_ppk_log"])
        self.assertEqual(names("/im"), [])
        listed = {line["topic"] for line in self.lines("messages", self.room, "--topic", "/l*")}
        self.assertEqual(listed, {"/lidar", "/lidar_to_platform"})
        nothing = kbagkit("info", self.room, "--topic", "/nothing", "--json")
        self.assertEqual(parse(nothing.stdout)["topics"], [])
        self.assertIn(b"has none of the topics", nothing.stderr)
        self.assertEqual(kbagkit("cat", self.room, "--topic", "/nothing").returncode, 1)

    def test_time_limits_take_the_first_and_leave_the_last_moment(self):
        info = self.one("info", self.room)
        start, end = info["start_us"], info["end_us"]
        every = [line["time_us"] for line in self.lines("messages", self.room)]
        middle = sorted(every)[len(every) // 2]
        for text, moment in ((str(middle), middle), (utc(middle), middle), ("+0.5s", start + 500_000),
                             ("+500ms", start + 500_000), ("-0.75s", end - 750_000), ("-12345us", end - 12_345),
                             ("+0.01min", start + 600_000), ("+0.0001h", start + 360_000),
                             ("2023-11-14T23:13:21.5+01:00", START_US + 1_500_000)):
            before = [line["time_us"] for line in self.lines("messages", self.room, "--to", text)]
            behind = [line["time_us"] for line in self.lines("messages", self.room, "--from", text)]
            self.assertEqual(before, [time for time in every if time < moment], text)
            self.assertEqual(behind, [time for time in every if time >= moment], text)
            limited = self.one("info", self.room, f"--from={text}", "--to", "-0s")
            self.assertEqual(limited["selection"]["from_us"], moment)
            self.assertEqual(limited["selection"]["to_us"], end)
            self.assertEqual(limited["messages"], len([time for time in every if moment <= time < end]))

    def test_cat_is_limited_by_the_samples_own_times(self):
        every = [line["time_us"] for line in self.lines("cat", self.room, "--topic", "/imu")]
        self.assertEqual(len(every), 401)
        for first, last in ((0, 400), (7, 8), (33, 150)):
            shown = self.lines("cat", self.room, "--topic", "/imu", "--from", every[first], "--to", every[last])
            self.assertEqual([line["time_us"] for line in shown], every[first:last])

    def test_wrong_usage_is_exit_status_two(self):
        for arguments in (["info"], ["cat"], ["info", self.room, "--from", "noon"], ["cat", self.room, self.room],
                          ["topics", self.room, "--to", "+5"], ["info", self.room, "--to", "+5parsec"],
                          ["messages", self.room, "--from", "2023-02-30T00:00:00Z"],
                          ["messages", self.room, "--from", "99999999999999999999"],
                          ["messages", self.room, "--from", "+9999999999999h"], ["info", self.room, "--csv"]):
            result = kbagkit(*arguments)
            self.assertEqual((result.returncode, result.stdout), (2, b""), arguments)
            self.assertNotEqual(result.stderr, b"")

    # ---------------------------------------------------------------------------------------- cat

    def exported(self):
        out = self.folder / "export"
        if not out.exists():
            out.mkdir()
            subprocess.run([KBAG, "export", self.room, "--dir", out, "--images"], check=True, capture_output=True)
        return out

    def csv(self, *arguments):
        result = kbagkit("cat", self.room, "--csv", *arguments)
        self.assertEqual(result.returncode, 0, result.stderr)
        return list(csv.DictReader(io.StringIO(result.stdout.decode())))

    def test_samples_are_those_of_the_exported_tables(self):
        columns = {
            ("/imu", "imu.csv"): {"accel_x_m_s2": "accel_x", "gyro_z_rad_s": "gyro_z"},
            ("/magnetic", "magnetic.csv"): {"mag_x_ut": "mag_x", "mag_z_ut": "mag_z"},
            ("/lidar_to_platform", "encoder.csv"): {"angle_rad": "angle"},
            ("/lidar", "lidar.csv"): {"points": "pointnums"},
            ("/camera_left/h264", "camera_left_h264.csv"): {"width_px": "width", "size_bytes": "frame_size"},
            ("/gnss_data", "gnss_data.csv"): {
                "utc_time": "navsat_utc_time", "status": "navsat_status", "service": "navsat_service",
                "satellites": "satlelite_num", "pdop": "pdop", "latitude_deg": "latitude", "altitude_m": "altitude",
                "undulation_m": "undulation", "hgt_sigma_m": "hgtSigma", "frame": "frame"},
        }
        for (topic, table), names in columns.items():
            rows = list(csv.DictReader(io.StringIO((self.exported() / "csv" / table).read_text())))
            lines = self.lines("cat", self.room, "--topic", topic)
            table_rows = self.csv("--topic", topic)
            self.assertEqual(len(lines), len(rows))
            for line, values, row in zip(lines, table_rows, rows, strict=True):
                self.assertEqual(line["seq"], int(row["seq"]))
                self.assertEqual(line["time_us"], int(row["collect_timestamp"]))
                for ours, exported in names.items():
                    value = float(row[exported])  # six decimals of a number that may be single precision
                    self.assertAlmostEqual(line[ours], value, delta=0.6e-6 + abs(value) * 2**-24)
                for key, value in line.items():
                    if key not in ("schema", "kind"):
                        self.assertEqual(values[key], value if isinstance(value, str) else repr_of(value, values[key]))

    def test_points_are_those_of_the_clouds(self):
        lines = self.lines("cat", self.room, "--topic", "/lidar", "--points")
        counts = [line["points"] for line in self.lines("cat", self.room, "--topic", "/lidar")]
        self.assertEqual(len(lines), sum(counts))
        out = self.folder / "unpack"
        out.mkdir()
        subprocess.run([KBAG, "unpack", self.room, "--dir", out, "--topic", "/lidar"], check=True, capture_output=True)
        cloud = sorted((out / "lidar_points").glob("*.pcd"))[0].read_text().splitlines()[11:]
        for line, row in zip(lines, cloud):
            x, y, z, _, _, _, intensity, time, ring = row.split()
            for key, text in (("x_m", x), ("y_m", y), ("z_m", z)):
                self.assertAlmostEqual(line[key], float(text), delta=1e-6)
            self.assertEqual(line["time_us"], int(time.replace(".", "")))
            self.assertEqual((line["intensity"], line["ring"]), (float(intensity), int(ring)))

    def test_carried_bytes_are_whole(self):
        def joined(topic, *options):
            return b"".join(base64.b64decode(line["data_base64"], validate=True)
                            for line in self.lines("cat", self.room, "--topic", topic, *options))
        self.assertEqual(joined("/raw_gnss_log"), (self.exported() / "raw_gnss_log.txt").read_bytes())
        self.assertEqual(joined("/raw_ppk_log"), (self.exported() / "raw_ppk_log.data").read_bytes())
        self.assertEqual(joined("/camera_left/h264", "--data"),
                         (self.exported() / "h264/camera_left.h264").read_bytes())
        files = self.lines("cat", self.room, "--topic", "/config_file", "--data")
        self.assertGreater(len(files), 3)
        for line in files:
            content = (self.exported() / "config" / line["name"]).read_bytes()
            self.assertEqual((line["size_bytes"], base64.b64decode(line["data_base64"])), (len(content), content))
        self.assertNotIn("data_base64", self.lines("cat", self.room, "--topic", "/config_file")[0])

    def test_csv_takes_topics_of_one_kind(self):
        rows = self.csv("--topic", "/camera_*")
        self.assertEqual({row["topic"] for row in rows}, {"/camera_center/jpeg", "/camera_left/h264"})
        mixed = kbagkit("cat", self.room, "--csv")
        self.assertEqual((mixed.returncode, mixed.stdout), (1, b""))
        self.assertIn(b"one kind", mixed.stderr)

    def test_damaged_messages_are_lines_and_losses(self):
        lines = self.lines("cat", self.damaged, status=3)
        lost = [line for line in lines if line["kind"] == "error"]
        self.assertGreater(len(lost), 3)
        self.assertEqual({line["error"]["code"] for line in lost}, {"unreadable"})
        account = parse(kbagkit("doctor", self.damaged, "--json").stdout)["bags"][0]
        lost_by_account = {(entry["topic"], entry["time_us"]) for entry in account["lost_messages"]}
        self.assertTrue({(line["topic"], line["time_us"]) for line in lost} <= lost_by_account)
        table = kbagkit("cat", self.damaged, "--csv", "--topic", "/lidar")
        self.assertIn(table.returncode, (0, 3))
        self.lines("info", self.damaged)  # looks at the index alone
        bag = self.folder / "other_kind.kbag"
        record(bag, [b"/imu"], [(0, START_US, b"\xff\xff\xff")])
        wrong = self.one("cat", bag, status=3)
        self.assertEqual(wrong["error"]["code"], "undecodable")

    # ------------------------------------------------------------------------------ awkward content

    def test_numbers_are_exact_and_what_is_no_number_is_null(self):
        bag = self.folder / "numbers.kbag"
        values = [0.1, 1e300, 5e-324, -0.0, 48.13739102550684, math.nan, math.inf, -math.inf]
        fixes = [blob(1, sample_header(START_US, 2**32 - 1) + double(7, value) +
                      signed(9, 2**62)) for value in values]
        record(bag, [b"/gnss_data"], [(0, START_US, b"".join(fixes), START_US, len(values))])
        lines = self.lines("cat", bag)
        shown = [line["latitude_deg"] for line in lines]
        self.assertEqual(shown, values[:5] + [None] * 3)
        self.assertEqual(math.copysign(1, shown[3]), -1)
        self.assertEqual(lines[0]["seq"], 2**32 - 1)
        self.assertEqual(lines[0]["altitude_m"], 2.0**62)
        table = list(csv.DictReader(io.StringIO(kbagkit("cat", bag, "--csv").stdout.decode())))
        self.assertEqual([row["latitude_deg"] for row in table],
                         ["0.1", "1e+300", "5e-324", "-0.0", "48.13739102550684", "nan", "inf", "-inf"])

    def test_times_out_of_the_calendar_have_no_text(self):
        bag = self.folder / "times.kbag"
        times = [-(2**63), -62_167_219_200_000_001, -62_167_219_200_000_000, -1, 0, 253_402_300_799_999_999,
                 253_402_300_800_000_000, 2**63 - 1]
        record(bag, [b"/raw_ppk_log"], [(0, time, log_message(time, b"x")) for time in times])
        result = kbagkit("messages", bag, "--json")
        lines = [parse(line) for line in result.stdout.decode().splitlines()]
        for line in lines:
            self.assertTrue(VALIDATORS["messages"].is_valid(line), line)
        self.assertEqual([line["time_us"] for line in lines], times)
        self.assertEqual([line["time"] for line in lines],
                         [None, None, "0000-01-01T00:00:00.000000Z", "1969-12-31T23:59:59.999999Z",
                          "1970-01-01T00:00:00.000000Z", "9999-12-31T23:59:59.999999Z", None, None])
        info = parse(kbagkit("info", bag, "--json").stdout)
        self.assertTrue(VALIDATORS["info"].is_valid(info), info)
        self.assertEqual(kbagkit("info", bag).returncode, 0)
        self.assertEqual(kbagkit("info", bag, "--from", "+1s", "--to", "-1s").returncode, 0)

    def test_text_that_is_not_utf8_is_replaced(self):
        bag = os.fsencode(self.folder) + b"/caf\xe9 \"q\"\n.kbag"
        device = blob(1, b"scanner \xff") + blob(3, b"S\"1\\")
        record(bag, [b"/raw\xff,\"x\"", "/ok/\u00e9\u2028".encode()],
               [(0, START_US, b"abc"), (1, START_US, b"abc")], private=device)
        for command, options in COMMANDS.items():
            result = subprocess.run([KBAGKIT, command, bag, *options], capture_output=True)
            lines = [parse(line) for line in result.stdout.decode("utf-8").split("\n")[:-1]]
            self.assertEqual(result.returncode, 0)
            self.assert_valid(command, lines)
            if command == "info":
                self.assertEqual(lines[0]["bag"], str(self.folder) + "/caf\ufffd \"q\"\n.kbag")
                self.assertEqual(lines[0]["device"]["device_name"], "scanner \ufffd")
                self.assertEqual(lines[0]["device"]["serial_number"], "S\"1\\")
            else:
                self.assertEqual({line["topic"] for line in lines}, {"/raw\ufffd,\"x\"", "/ok/\u00e9\u2028"})
            self.assertNotIn(b"\x1b", subprocess.run([KBAGKIT, command, bag], capture_output=True).stdout)
        table = subprocess.run([KBAGKIT, "cat", bag, "--csv", "--topic", "/raw*"], capture_output=True).stdout
        self.assertTrue(table.splitlines()[1].startswith(b'"/raw\xff,""x""",,1700000000000000,'), table)

    # ---------------------------------------------------------------------------- pipes and memory

    def head(self, *arguments, ignored):
        """Reads one line and closes the pipe."""
        process = subprocess.Popen(
            [KBAGKIT, *map(str, arguments)], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN if ignored else signal.SIG_DFL))
        line = process.stdout.readline()
        process.stdout.close()
        error = process.stderr.read()
        process.stderr.close()
        return line, process.wait(timeout=60), error

    def test_broken_pipes_are_no_errors(self):
        for arguments in (["cat", self.room, "--points"], ["cat", self.room, "--csv", "--points", "--topic", "/lidar"],
                          ["messages", *[self.room] * 50, "--json"], ["messages", *[self.room] * 50],
                          ["info", *[self.room] * 200, "--json"], ["topics", *[self.room] * 200],
                          ["doctor", *[self.room] * 3, "--json"]):
            for ignored in (False, True):
                line, status, error = self.head(*arguments, ignored=ignored)
                self.assertNotEqual(line, b"")
                self.assertEqual((status, error), (0, b""), arguments)

    def test_results_that_are_lost_are_errors(self):
        for command, options in COMMANDS.items():
            with open("/dev/full", "w") as full:
                status = subprocess.run([KBAGKIT, command, self.room, *options], stdout=full).returncode
            self.assertEqual(status, 1, command)

    def test_memory_does_not_grow_with_the_recording(self):
        def peak(*arguments):
            code = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True, "
                    "stdout=subprocess.DEVNULL); print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
            words = [sys.executable, "-c", code, KBAGKIT, *map(str, arguments)]
            return int(subprocess.run(words, check=True, capture_output=True).stdout) * 1024

        payload = log_message(START_US, bytes(500_000))
        for count, name in ((4, "short.kbag"), (160, "long.kbag")):
            record(self.folder / name, [b"/raw_ppk_log"], [(0, START_US + i, payload) for i in range(count)])
        self.addCleanup((self.folder / "long.kbag").unlink)
        for command in COMMANDS:
            growth = peak(command, self.folder / "long.kbag") - peak(command, self.folder / "short.kbag")
            self.assertLess(growth, 8_000_000, command)

    # ------------------------------------------------------------------------------------- people

    def test_text_is_aligned_and_plain(self):
        for command in ("info", "topics", "messages"):
            text = kbagkit(command, self.room).stdout.decode()
            self.assertTrue(text.startswith(f"{self.room}\n  "), text[:200])
            self.assertNotIn("\033", text)
            rows = [line for line in text.splitlines() if "/imu" in line or " topic" in line]
            self.assertEqual(len({len(row) for row in rows}), 1, rows[:3])


def repr_of(number, text):
    """The text, where it is exactly this number."""
    single = re.fullmatch(r"-?\d+", text) is None
    value = float(text) if single else int(text)
    return text if value == number else repr(number)


if __name__ == "__main__":
    unittest.main(verbosity=2)

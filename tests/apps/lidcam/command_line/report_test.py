"""lidcam doctor, and the archive of lidcam report."""

import csv
import io
import json
import os
import struct
import tarfile
import unittest

from command_line import CommandLineTest

NAMES = {"machine.txt", "controls.txt", "settings.reg", "camera.txt", "faults.txt", "trace.txt",
         "frames.csv", "bus.pcap"}


def records_of(pcap):
    """The records of a capture."""
    at = 24
    while at < len(pcap):
        length = struct.unpack_from("<I", pcap, at + 8)[0]
        yield pcap[at + 16:at + 16 + length]
        at += 16 + length


class ReportTest(CommandLineTest):
    def report(self, *arguments):
        """A report's files by their names."""
        self.archive = self.path("report.tar.gz")
        self.lidcam("report", "-q", "-o", self.archive, *arguments)
        with tarfile.open(self.archive) as archive:
            members = archive.getmembers()
            self.assertEqual({os.path.dirname(member.name) for member in members},
                             {"lidcam-report"})
            self.assertEqual({(member.uid, member.uname) for member in members}, {(0, "")})
            return {os.path.basename(member.name): archive.extractfile(member).read()
                    for member in members}

    def test_the_archive_has_everything_that_a_bug_report_needs(self):
        self.lidcam("set", "Contrast=12")
        files = self.report()
        self.assertEqual(set(files), NAMES)
        self.assertTrue(files["machine.txt"].startswith(b"lidcam "))
        self.assertIn(b"note camera: none is plugged in", files["machine.txt"])
        self.assertIn(b"Contrast=12 (1 to 16, default 10)\n", files["controls.txt"])
        self.assertIn("Windows Registry Editor Version 5.00", files["settings.reg"].decode("utf-16"))
        self.assertIn(b"Descriptors\n  device\n", files["camera.txt"])
        self.assertIn(b"  sensor VGA0708\n", files["camera.txt"])
        self.assertRegex(files["faults.txt"], rb"^5\d frames delivered, .*; none lost, none of a wrong")
        self.assertIn(b"pin frame picture=", files["trace.txt"])
        rows = list(csv.DictReader(io.StringIO(files["frames.csv"].decode())))
        self.assertGreater(len(rows), 50)

    def test_nothing_in_the_archive_names_the_user(self):
        files = self.report()
        for name, content in files.items():
            self.assertNotIn(os.path.expanduser("~").encode() + b"/", content, name)

    def test_a_report_replays_with_the_counts_of_its_stream(self):
        files = self.report()
        answer = json.loads(self.lidcam("replay", self.archive, "--json"))
        self.assertEqual(answer["sensor"], "VGA0708")
        rows = list(csv.DictReader(io.StringIO(files["frames.csv"].decode())))
        self.assertEqual(answer["frames"]["good"], len(rows))
        self.assertEqual(answer["frames"]["bad"], 0)

    def test_without_pictures_the_recording_is_grey(self):
        self.report()
        raw = self.path("replayed.yuy2")
        self.lidcam("replay", "-q", self.archive, "-o", raw)
        with open(raw, "rb") as file:
            self.assertEqual(set(file.read()), {0x80})

    def test_with_pictures_the_recording_replays_the_stream(self):
        live, raw = self.path("live.yuy2"), self.path("replayed.yuy2")
        self.lidcam("stream", "-q", "--fast", "--frames", "5", "-o", live)
        self.report("--pictures")
        self.lidcam("replay", "-q", self.archive, "--frames", "5", "-o", raw)
        with open(live, "rb") as one, open(raw, "rb") as other:
            self.assertEqual(one.read() == other.read(), True)

    def test_the_packets_without_pictures_are_as_long_as_those_with(self):
        lengths = []
        for arguments in ((), ("--pictures",)):
            records = list(records_of(self.report(*arguments)["bus.pcap"]))
            lengths.append([len(record) for record in records])
        self.assertEqual(lengths[0] == lengths[1], True)

    def test_an_archive_without_a_recording_is_refused(self):
        other = self.path("other.tar.gz")
        with tarfile.open(other, "w:gz") as archive:
            archive.add(__file__, "notes.txt")
        self.assert_one_line_error(self.run_lidcam("replay", other), 1, other, ".pcap")


class DoctorTest(CommandLineTest):
    def test_each_line_says_ok_or_ends_with_a_command(self):
        result = self.run_lidcam("doctor")
        self.assertIn(result.returncode, (0, 1))
        lines = result.stdout.decode().strip().split("\n")
        self.assertGreaterEqual(len(lines), 5)
        for line in lines:
            self.assertRegex(line, r"^(ok   |note |wrong)  [^:]+: .")
            self.assertTrue(line.startswith("ok ") or "; " in line, line)
        self.assertEqual(result.returncode, int(any(line.startswith("wrong") for line in lines)))

    def test_json_has_the_same_findings(self):
        lines = self.run_lidcam("doctor").stdout.decode().strip().split("\n")
        rows = json.loads(self.run_lidcam("doctor", "--json").stdout)
        self.assertEqual([row["subject"] for row in rows],
                         [line.split(":")[0].split(None, 1)[1] for line in lines])


if __name__ == "__main__":
    unittest.main(verbosity=1)

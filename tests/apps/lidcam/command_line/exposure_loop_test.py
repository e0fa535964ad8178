"""Light, mains, the log of the exposure loop and its plot."""

import shutil
import unittest

from command_line import CommandLineTest


class ExposureLoopTest(CommandLineTest):
    HEADER = ("frame,time_s,luma,level,index,exposure,coarse_gain,fine_gain,lines,light_state,"
              "light_mode,steps,commits,refused,lux,lux_since_s")

    def log(self, *arguments):
        file = self.path("frames.csv")
        self.lidcam("stream", "--fast", "--size", "160x120", "--log", file, *arguments)
        with open(file, encoding="ascii") as text:
            lines = text.read().split("\n")
        self.assertEqual(lines[0], self.HEADER)
        self.assertEqual(lines.pop(), "")
        return [dict(zip(lines[0].split(","), line.split(","))) for line in lines[1:]]

    def test_the_log_has_a_row_for_each_frame_and_the_light_of_its_time(self):
        rows = self.log("--light", "300lx@0s,5lx@1s", "--mains", "50Hz", "--frames", "50")
        self.assertEqual([int(row["frame"]) for row in rows], list(range(1, 51)))
        for row in rows:
            self.assertEqual(row["lux"], "300" if float(row["time_s"]) < 1 else "5")
        self.assertLess(int(rows[-1]["luma"]), int(rows[20]["luma"]))
        self.assertGreater(int(rows[-1]["index"]), int(rows[20]["index"]))

    def test_the_log_tells_of_the_steps_and_commits_that_the_trace_tells_of(self):
        file = self.path("frames.csv")
        result = self.run_lidcam("stream", "--fast", "--size", "160x120", "--light",
                                 "300lx@0s,5lx@1s", "--frames", "120", "--log", file, "--trace")
        trace = result.stderr.decode().split("\n")
        # Behind the first delivered frame all writes of the stream belong to exposure control.
        begin = next(i for i, line in enumerate(trace) if line.startswith("frame published"))
        end = trace.index("stream off")
        with open(file, encoding="ascii") as text:
            rows = [line.split(",") for line in text.read().strip().split("\n")[1:]]
        steps = sum(line.startswith("exposure index=") for line in trace[begin:end])
        commits = trace[begin:end].count("bus  write sensor FF2F=83")
        self.assertGreater(steps, 0)
        self.assertGreater(commits, 0)
        self.assertEqual(sum(int(row[11]) for row in rows), steps)
        self.assertEqual(sum(int(row[12]) for row in rows), commits)

    def test_a_stream_that_fails_keeps_its_log(self):
        file = self.path("frames.csv")
        result = self.run_lidcam("stream", "-q", "--fast", "--frames", "50", "--log", file,
                                 "--faults", "at 1s unplug")
        self.assert_one_line_error(result, 1, "unplugged")
        with open(file, encoding="ascii") as text:
            self.assertGreater(len(text.read().strip().split("\n")), 1)

    def test_a_log_and_its_plot_are_the_same_every_time(self):
        plots = []
        for _ in range(2):
            shutil.rmtree(self.path("home"), ignore_errors=True)
            self.log("--light", "300lx@0s,5lx@1s", "--mains", "60Hz", "--frames", "60")
            plots.append(self.lidcam("plot", self.path("frames.csv"), "-o", "-"))
        self.assertIn("<svg ", plots[0][:200])
        self.assertEqual(plots[0], plots[1])

    def test_a_plot_replaces_its_file_in_one_step(self):
        self.log("--frames", "5")
        drawing = self.path("loop.svg")
        with open(drawing, "w", encoding="ascii") as before:
            before.write("precious")
        broken = self.path("broken.csv")
        with open(broken, "w", encoding="ascii") as file:
            file.write(self.HEADER + "\n1,2,3\n")
        self.assert_one_line_error(self.run_lidcam("plot", broken, "-o", drawing), 1, broken,
                                   "line 2", "3 fields in place of 16")
        with open(drawing, encoding="ascii") as after:
            self.assertEqual(after.read(), "precious")
        self.lidcam("plot", self.path("frames.csv"), "-o", drawing)
        self.assert_nothing_left("frames.csv", "broken.csv", "loop.svg")

    def test_light_and_mains_are_for_simulated_cameras_and_given_once(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "-o", capture, "--frames", "2")
        for arguments, words in (
                (("--camera", f"capture:{capture}", "--light", "5lx"), ("--light", "simulated")),
                (("--camera", f"capture:{capture}", "--mains", "50Hz"), ("--mains", "simulated")),
                (("--camera", "sim,mains=50Hz", "--mains", "60Hz"), ("--mains", "twice")),
                (("--camera", "sim,light=5lx", "--light", "6lx"), ("--light", "twice")),
                (("--mains", "55Hz"), ("55Hz", "50Hz or 60Hz")),
                (("--light", "5"), ("300lx",)),
                (("--light", "bright"), ("bright",)),
                (("--log", "-", "-o", "-"), ("standard output",))):
            self.assert_one_line_error(self.run_lidcam("stream", "--fast", "--frames", "1", *arguments),
                                       2, *words)

    def test_a_capture_is_logged_without_lux(self):
        capture = self.path("bus.pcap")
        self.lidcam("record", "--fast", "-o", capture, "--frames", "5")
        file = self.path("frames.csv")
        self.lidcam("stream", "--camera", f"capture:{capture}", "--log", file)
        with open(file, encoding="ascii") as text:
            rows = text.read().strip().split("\n")[1:]
        self.assertTrue(all(row.endswith(",") for row in rows), rows)


if __name__ == "__main__":
    unittest.main(verbosity=1)

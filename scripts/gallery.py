"""Renders the contact sheet of scripts/gallery.

Usage: gallery.py LIDCAM CAMERA SHEET.png
"""

import json
import os
import subprocess
import sys
import tempfile

import program_end

THUMBNAIL = (240, 180)
# Where a control shows in details only, a cut of the picture at its full resolution.
DETAILS = {"Sharpness": (100, 300, 340, 480)}
# A control that shows in a certain light only: the camera's options and other controls beside it.
SCENES = {"Flicker": (",mains=50Hz", ["Exposure=9"])}
# Said once, to the right of a control's row.
NOTES = {
    "Sharpness": "cut of the picture at full resolution",
    "Flicker": "under lamps on 50 Hz mains, exposed by hand:\nwithout a setting that fits, bands",
    "LED": "shows on the camera, not in the picture",
}
# The camera takes any value and keeps its own, which a set calls a failure.
KEPT = {"WhiteBalance"}
CAPTION = 18
MARGIN = 8


class Camera:
    """A camera with settings of its own, so that the user's stay as they are."""

    def __init__(self, program, name, home):
        self.program = program
        self.name = name
        self.environment = dict(os.environ, LIDCAM_HOME=home)

    def run(self, *arguments, scene=""):
        return subprocess.run([self.program, *arguments, "--camera", self.name + scene],
                              env=self.environment, check=True, capture_output=True,
                              text=True).stdout

    def controls(self):
        return json.loads(self.run("controls", "--json"))

    def picture(self, name, value):
        """The third frame of a stream with the control set; all others stand at their defaults."""
        scene, others = SCENES.get(name, ("", []))
        defaults = [f"{row['name']}={row['default']}" for row in self.controls()
                    if row["name"] not in {"Exposure", "AutoExposure"} | KEPT]
        changed = [] if name in KEPT else [f"{name}={value}"]
        self.run("set", *defaults, "AutoExposure=1", *changed)
        with tempfile.TemporaryDirectory() as folder:
            set_while_running = [word for other in others for word in ("--set", other)]
            self.run("stream", "--fast", "--quiet", "--frames", "3", "-o",
                     os.path.join(folder, "frame.png"), *set_while_running, scene=scene)
            picture = program_end.need("PIL.Image", "gallery").open(
                os.path.join(folder, "frame-0003.png"))
            return picture.convert("RGB")


def values_of(row):
    """Lowest, default and highest; all values of a control that has few."""
    if row["maximum"] - row["minimum"] <= 5:
        return list(range(row["minimum"], row["maximum"] + 1))
    return sorted({row["minimum"], row["default"], row["maximum"]})


def thumbnail_of(picture, name):
    return picture.crop(DETAILS[name]) if name in DETAILS else picture.resize(THUMBNAIL)


def caption_of(row, value):
    words = [f"{row['name']}={value}"]
    if value == row["default"]:
        words.append("(default)")
    return " ".join(words)


def draw(camera, sheet_name):
    rows = camera.controls()
    columns = max(len(values_of(row)) for row in rows)
    cell = (THUMBNAIL[0] + MARGIN, THUMBNAIL[1] + CAPTION + MARGIN)
    sheet = program_end.need("PIL.Image", "gallery").new("RGB", (columns * cell[0] + MARGIN, len(rows) * cell[1] + MARGIN), "white")
    pen = program_end.need("PIL.ImageDraw", "gallery").Draw(sheet)
    for line, row in enumerate(rows):
        for column, value in enumerate(values_of(row)):
            place = (MARGIN + column * cell[0], MARGIN + line * cell[1])
            pen.text(place, caption_of(row, value), fill="black")
            picture = camera.picture(row["name"], value)
            sheet.paste(thumbnail_of(picture, row["name"]), (place[0], place[1] + CAPTION))
        place = (MARGIN + len(values_of(row)) * cell[0], MARGIN + CAPTION + line * cell[1])
        pen.multiline_text(place, NOTES.get(row["name"], ""), fill="black")
    sheet.save(sheet_name)


def main():
    if len(sys.argv) != 4:
        raise program_end.WrongUse("usage: gallery.py LIDCAM CAMERA SHEET.png")
    program, name, sheet_name = sys.argv[1:]
    with tempfile.TemporaryDirectory() as home:
        draw(Camera(os.path.abspath(program), name, home), sheet_name)
    print(f"Contact sheet of {name}: {os.path.abspath(sheet_name)}")


if __name__ == "__main__":
    program_end.run(main)

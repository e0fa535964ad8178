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
# A control that shows in a certain light only: the camera's options, other controls beside it, and the frame whose
# picture shows it.
SCENES = {
    "Flicker": (",mains=50Hz", ["Exposure=9"], 3),
    "AutoExposure": (",light=40lx@0s", [], 150),
}
# Said once, to the right of a control's row.
NOTES = {
    "Sharpness": "cut of the picture\nat full resolution",
    "Flicker": "under lamps on 50 Hz mains,\nexposed by hand: without a\nsetting that fits, bands",
    "AutoExposure": "frame 150 in a dim room of 40 lx:\n1 has made it brighter by then,\n0 leaves the exposure as it was",
}
# Controls that no picture can show, whatever the camera does, and why.
UNSEEN = {
    "LED": "shows on the camera,\nnot in the picture",
    "WhiteBalance": "the camera takes any value\nand keeps its own",
}
# The camera takes any value and keeps its own, which a set calls a failure.
KEPT = {"WhiteBalance"}
USUAL_FRAME = 3
CAPTION = 24
HEADING = 96
MARGIN = 12
NOTE_WIDTH = 260
FONT = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"


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
        """A frame of a stream with the control set; all others stand at their defaults."""
        scene, others, number = SCENES.get(name, ("", [], USUAL_FRAME))
        defaults = [f"{row['name']}={row['default']}" for row in self.controls()
                    if row["name"] not in {"AutoExposure"} | KEPT]
        changed = [] if name in KEPT else [f"{name}={value}"]
        self.run("set", *defaults, "AutoExposure=1", *changed)
        with tempfile.TemporaryDirectory() as folder:
            set_while_running = [word for other in others for word in ("--set", other)]
            self.run("stream", "--fast", "--quiet", "--frames", "1", "--skip", str(number - 1), "-o",
                     os.path.join(folder, "frame.png"), *set_while_running, scene=scene)
            picture = program_end.need("PIL.Image", "gallery").open(
                os.path.join(folder, "frame-0001.png"))
            return picture.convert("RGB")


def values_of(row):
    """Lowest, default and highest; all values of a control that has few."""
    if row["maximum"] - row["minimum"] <= 5:
        return list(range(row["minimum"], row["maximum"] + 1))
    return sorted({row["minimum"], row["default"], row["maximum"]})


def thumbnail_of(picture, name):
    return picture.crop(DETAILS[name]) if name in DETAILS else picture.resize(THUMBNAIL)


def note_of(row):
    """What stands beside a row; a row that can't change says so."""
    if row["name"] in UNSEEN:
        return "No change: " + UNSEEN[row["name"]]
    if not row["hasEffect"]:
        return "No change: this sensor\nhas no such control"
    return NOTES.get(row["name"], "")


class Sheet:
    """The contact sheet, with letters that can be read at its size."""

    def __init__(self, columns, rows):
        self.cell = (THUMBNAIL[0] + MARGIN, THUMBNAIL[1] + CAPTION + MARGIN)
        fonts = program_end.need("PIL.ImageFont", "gallery")
        self.title_font, self.font = (fonts.truetype(FONT, size) for size in (28, 15))
        self.image = program_end.need("PIL.Image", "gallery").new(
            "RGB", (columns * self.cell[0] + MARGIN + NOTE_WIDTH,
                    rows * self.cell[1] + MARGIN + HEADING), "white")
        self.pen = program_end.need("PIL.ImageDraw", "gallery").Draw(self.image)

    def place(self, line, column):
        return (MARGIN + column * self.cell[0], HEADING + line * self.cell[1])

    def head(self, title, legend):
        self.pen.text((MARGIN, MARGIN), title, fill="black", font=self.title_font)
        self.pen.multiline_text((MARGIN, MARGIN + 38), legend, fill="#444444", font=self.font)

    def add(self, line, column, caption, picture, is_default):
        place = self.place(line, column)
        self.pen.text(place, caption, fill="black", font=self.font)
        corner = (place[0], place[1] + CAPTION)
        self.image.paste(picture, corner)
        if is_default:
            end = (corner[0] + picture.size[0], corner[1] + picture.size[1])
            self.pen.rectangle((corner[0] - 3, corner[1] - 3, end[0] + 2, end[1] + 2),
                               outline="#0057a8", width=3)

    def note(self, line, column, text):
        place = self.place(line, column)
        self.pen.multiline_text((place[0], place[1] + CAPTION), text, fill="#8a3000",
                                font=self.font)


def draw(camera, sheet_name):
    rows = camera.controls()
    sheet = Sheet(max(len(values_of(row)) for row in rows), len(rows))
    sheet.head(f"Picture controls of {camera.name}",
               "A row for each control: its lowest, default and highest value, or all where there are "
               "few. All other controls stand at their defaults.\n"
               "A blue frame marks the default. Each picture is the third of its stream, unless a "
               "note says another.")
    for line, row in enumerate(rows):
        for column, value in enumerate(values_of(row)):
            picture = thumbnail_of(camera.picture(row["name"], value), row["name"])
            sheet.add(line, column, f"{row['name']}={value}", picture, value == row["default"])
        sheet.note(line, len(values_of(row)), note_of(row))
    sheet.image.save(sheet_name)


def main():
    if len(sys.argv) != 4:
        raise program_end.WrongUse("usage: gallery.py LIDCAM CAMERA SHEET.png")
    program, name, sheet_name = sys.argv[1:]
    with tempfile.TemporaryDirectory() as home:
        draw(Camera(os.path.abspath(program), name, home), sheet_name)
    print(f"Contact sheet of {name}: {os.path.abspath(sheet_name)}")


if __name__ == "__main__":
    program_end.run(main)

#!/usr/bin/env python3
"""Chooses few and small inputs with the features of all of them: a corpus for the tree.

  fuzz/minimise.py CONTROL FOLDER

CONTROL is what the fuzzing engine's merge wrote of every input (-merge_control_file with
-set_cover_merge=1); the chosen ones replace those of FOLDER that are named by their contents, as they are.
"""

import hashlib
import os
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))
import program_end  # noqa: E402

MOST_INPUTS = 60
MOST_BYTES = 24 * 1024
FILE_COST = 128  # bytes that one more file is worth


def read_control(path):
    """Path, size and features of each input that was run to its end."""
    lines = pathlib.Path(path).read_text(encoding="utf-8").splitlines()
    count = int(lines[0])
    paths, inputs = lines[2 : 2 + count], []
    for line in lines[2 + count :]:
        word, number, *features = line.split(" ")
        if word == "FT":
            path = paths[int(number)]
            inputs.append((path, os.path.getsize(path), {int(one) for one in features if one}))
    return inputs


def choose(inputs):
    """Greedy: adds the input with the most new features for its size, up to the size limit."""
    chosen, seen, left = [], set(), MOST_BYTES
    while len(chosen) < MOST_INPUTS:
        fitting = [one for one in inputs if one[1] <= left and one[2] - seen]
        if not fitting:
            break
        path, size, features = max(
            fitting, key=lambda one: (len(one[2] - seen) / (FILE_COST + one[1]), one[0]))
        chosen.append(path)
        seen |= features
        left -= size
    return chosen, len(seen)


def main():
    if len(sys.argv) != 3:
        raise program_end.WrongUse("usage: fuzz/minimise.py CONTROL FOLDER")
    inputs = read_control(sys.argv[1])
    chosen, seen = choose(inputs)
    contents = [pathlib.Path(path).read_bytes() for path in chosen]
    folder = pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.iterdir():
        if re.fullmatch("[0-9a-f]{40}", old.name):
            old.unlink()
    for data in contents:
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)
    whole = len(set().union(*(features for _, _, features in inputs)))
    size = sum(map(len, contents))
    print(f"{len(chosen)} of {len(inputs)} inputs, {size} bytes, {seen} of {whole} features")


if __name__ == "__main__":
    program_end.run(main)

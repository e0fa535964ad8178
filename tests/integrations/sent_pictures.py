"""Whether the pictures that a program got are those that the camera sent, byte for byte and in order.

A machine that is busy with other things may read the camera's bus too late. Packets are then lost, the driver
delivers the picture that they are missing from, and drops some behind it: so a picture that the camera never sent is
one of the driver's only where at least two more are missing.
"""

import hashlib

LOST_WITH_A_CUT_PICTURE = 2


class WrongPictures(Exception):
    """In a line."""


def pictures_of(name, data, length):
    """The pictures of so many bytes each, whole."""
    if len(data) % length:
        raise WrongPictures(f"{name}: {len(data)} bytes are no whole pictures of {length}")
    return [data[at:at + length] for at in range(0, len(data), length)]


def digests_of(name, data, length):
    return [hashlib.sha256(picture).hexdigest() for picture in pictures_of(name, data, length)]


def check_pictures(name, seen, sent):
    """Compares digests.

    seen  what the program got
    sent  what the camera sends, from the first picture on
    Gives the number of pictures that are the camera's.
    """
    places = {digest: place for place, digest in reversed(list(enumerate(sent)))}
    known = [(at, places[digest]) for at, digest in enumerate(seen) if digest in places]
    if 2 * len(known) <= len(seen):
        raise WrongPictures(f"{name}: only {len(known)} of {len(seen)} pictures are the camera's")
    for (at, place), (next_at, next_place) in zip(known, known[1:]):
        if next_place < place:
            raise WrongPictures(f"{name}: picture {next_at} is out of its order: {next_place} behind {place}")
        unknown = next_at - at - 1
        if unknown and next_place - place - 1 < unknown + LOST_WITH_A_CUT_PICTURE:
            raise WrongPictures(f"{name}: picture {at + 1} is not one that the camera sends")
    return len(known)

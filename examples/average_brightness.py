"""Prints the average luminance of a few frames, as NumPy arrays over the camera's own buffers.

    python3 average_brightness.py [CAMERA] [FRAMES]

The library is found by the system's loader, or named by LIDCAM_LIBRARY.
"""

import ctypes
import os
import sys

import numpy


class Frame(ctypes.Structure):
    """The beginning of lidcam_frame."""

    _fields_ = [("data", ctypes.POINTER(ctypes.c_uint8)),
                ("size", ctypes.c_size_t),
                ("pixels", ctypes.c_int),
                ("width", ctypes.c_uint32),
                ("height", ctypes.c_uint32),
                ("stride", ctypes.c_uint32),
                ("stream_time", ctypes.c_int64)]


def load():
    lidcam = ctypes.CDLL(os.environ.get("LIDCAM_LIBRARY", "liblidcam.so.0"))
    frame = ctypes.POINTER(Frame)
    camera = ctypes.c_void_p
    lidcam.lidcam_error_text.restype = ctypes.c_char_p
    lidcam.lidcam_open.argtypes = [ctypes.c_char_p, ctypes.c_void_p, ctypes.POINTER(camera)]
    lidcam.lidcam_start.argtypes = [camera, ctypes.c_void_p]
    lidcam.lidcam_next_frame.argtypes = [camera, ctypes.c_int32, ctypes.POINTER(frame)]
    lidcam.lidcam_frame_release.argtypes = [frame]
    lidcam.lidcam_frame_release.restype = None
    lidcam.lidcam_close.argtypes = [camera]
    lidcam.lidcam_close.restype = None
    return lidcam


def check(lidcam, status):
    if status < 0:
        sys.exit("average_brightness: " + lidcam.lidcam_error_text().decode())
    return status


def luminance(frame):
    """The luminance of each pixel, without a copy: valid until the frame is released."""
    rows = numpy.ctypeslib.as_array(frame.data, shape=(frame.height, frame.stride))
    return rows[:, : 2 * frame.width : 2]


def main(arguments):
    address = arguments[1].encode() if len(arguments) > 1 else None
    count = int(arguments[2]) if len(arguments) > 2 else 10
    lidcam = load()
    camera = ctypes.c_void_p()
    check(lidcam, lidcam.lidcam_open(address, None, ctypes.byref(camera)))
    try:
        check(lidcam, lidcam.lidcam_start(camera, None))
        for _ in range(count):
            frame = ctypes.POINTER(Frame)()
            if check(lidcam, lidcam.lidcam_next_frame(camera, 5000, ctypes.byref(frame))) != 0:
                break
            picture = luminance(frame.contents)
            print(f"{frame.contents.stream_time / 1e7:8.3f} s  {picture.shape[1]}x"
                  f"{picture.shape[0]}  luminance {picture.mean():5.1f}")
            lidcam.lidcam_frame_release(frame)
    finally:
        lidcam.lidcam_close(camera)


if __name__ == "__main__":
    main(sys.argv)

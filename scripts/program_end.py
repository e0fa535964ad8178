"""How the Python scripts end: with a status, and with one line where something went wrong.

Status 0: done, 1: failed, 2: wrong use. Importing this makes Ctrl-C end the program so, too.
"""

import importlib
import os
import signal
import subprocess
import sys

NAME = os.path.basename(sys.argv[0]) or "python"

sys.dont_write_bytecode = True  # nothing is left beside the scripts


class WrongUse(Exception):
    """The arguments can't be meant; the text says what would be right."""


def fail(text):
    """Ends the program with status 1."""
    sys.exit(f"{NAME}: {text}")


def need(module, purpose):
    """A module that scripts/setup installs for a purpose."""
    try:
        return importlib.import_module(module)
    except ImportError:
        fail(f"the Python module {module} is missing: scripts/setup {purpose} installs it")


def _interrupt(*_):
    fail("interrupted")


def _reason(error):
    if isinstance(error, subprocess.CalledProcessError):
        command = error.cmd if isinstance(error.cmd, str) else " ".join(map(str, error.cmd))
        said = error.stderr or b""
        said = said.decode(errors="replace") if isinstance(said, bytes) else said
        last = said.strip().split("\n")[-1]
        return f"'{command}' failed with status {error.returncode}" + (f": {last}" if last else "")
    if isinstance(error, OSError) and error.strerror:
        return f"{error.filename}: {error.strerror}" if error.filename else error.strerror
    text = " ".join(str(error).split())
    return f"{type(error).__name__}: {text}" if text else type(error).__name__


def run(main):
    """Runs main() and ends the program with what it returns, 0 for nothing."""
    try:
        status = main() or 0
        sys.stdout.flush()
    except WrongUse as error:
        print(f"{NAME}: {error}", file=sys.stderr)
        status = 2
    except BrokenPipeError:
        # The reader has closed the pipe: no message can be written, and nothing more at the end.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        status = 1
    except Exception as error:  # pylint: disable=broad-except
        print(f"{NAME}: {_reason(error)}", file=sys.stderr)
        status = 1
    sys.exit(status)


signal.signal(signal.SIGINT, _interrupt)

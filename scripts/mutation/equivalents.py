"""The list of mutants that are shown to behave as the driver does.

Entries, with an empty line between them:

    driver/core/settings/settings_store.cpp ReadBounded
    - before, as many lines as it takes
    + after
    = the reason why nobody can tell the two apart

Lines that begin with # are comments. A source and a function name the place, so that an entry survives
changes of the lines around it.
"""

from .mutants import squeezed


class ListError(Exception):
    """The list can't be read."""


def read_equivalents(path):
    """Reasons of the entries, by Mutant.key."""
    entries = {}
    text = path.read_text(encoding="utf-8") if path.exists() else ""
    lines = [line for line in text.split("\n") if not line.startswith("#")]
    for paragraph in "\n".join(lines).split("\n\n"):
        parts = paragraph.strip("\n").split("\n")
        if parts == [""]:
            continue
        place = parts[0].split(" ")
        said = {mark: " ".join(line[2:] for line in parts[1:] if line.startswith(mark + " "))
                for mark in "-+="}
        known = all(line[:2] in ("- ", "+ ", "= ") for line in parts[1:])
        if not known or not all(said.values()) or len(place) > 2:
            raise ListError(f"{path}: an entry needs a place and lines with '- ', '+ ' and '= ':\n"
                            f"{paragraph}")
        key = (place[0], " ".join(place[1:]), squeezed(said["-"]), squeezed(said["+"]))
        entries[key] = said["="]
    return entries

"""The graph of all calls of an image, from its own instructions."""

import bisect
import collections
import re
import struct
import subprocess

import image_code

from . import pointers
from .depths import Depths

# Registers that a call may change.
CALL_CHANGES = {"%rax", "%rcx", "%rdx", "%r8", "%r9", "%r10", "%r11", "%eax", "%ecx", "%edx"}

ACQUIRE = {"KeAcquireSpinLockRaiseToDpc", "KfAcquireSpinLock"}
RELEASE = {"KeReleaseSpinLock", "KfReleaseSpinLock"}

Function = collections.namedtuple("Function", "begin end name frame calls held")
Call = collections.namedtuple("Call", "address targets")  # names of imports and begins of functions


def short(name):
    """Without namespace and arguments, and what the x86 platform adds to some names."""
    name = name.replace("(anonymous namespace)::", "").replace("lidcam::", "")
    return re.sub(r"@\d+$", "", re.sub(r"[({].*", "", name).removesuffix("::"))


def import_slots(image):
    """The name of each import by the address of its pointer."""
    table, _ = image.directory(1)
    slots = {}
    place = image.offset_of(table)
    while True:
        names, _, _, library, first = struct.unpack_from("<IIIII", image.data, place)
        if library == 0:
            return slots
        at = 0
        while True:
            name, = struct.unpack_from("<I", image.data, image.offset_of(names or first) + image.pointer * at)
            if name == 0:
                break
            begin = image.offset_of(name) + 2
            name = image.data[begin:image.data.index(b"\0", begin)].decode()
            slots[first + image.pointer * at] = re.sub(r"^_(?=USBD)|@\d+$", "", name)
            at += 1
        place += 20


def frame_of(image, unwind):
    """Bytes of stack that a function of the x64 image takes, with its return address."""
    place = image.offset_of(unwind)
    count = image.data[place + 2]
    slots = struct.unpack_from(f"<{count}H", image.data, place + 4)
    size, at = 8, 0
    while at < count:
        operation, info = slots[at] >> 8 & 15, slots[at] >> 12
        if operation == 0:
            size += 8
        elif operation == 2:
            size += 8 * info + 8
        elif operation == 1:
            size += 8 * slots[at + 1] if info == 0 else slots[at + 1] | slots[at + 2] << 16
        at += {1: 2 if info == 0 else 3, 4: 2, 5: 3, 8: 2, 9: 3}.get(operation, 1)
    return size


def symbols(image, debug):
    """Name and address of each symbol, by address."""
    listing = subprocess.run([image.tools + "nm", "-C", str(debug)], check=True, capture_output=True,
                             text=True).stdout
    words = (line.split(" ", 2) for line in listing.splitlines())
    return sorted((int(one[0], 16) - image.base, short(one[2])) for one in words if len(one) == 3 and one[0] and
                  not one[2].startswith("."))


def tables(image, debug, functions):
    """Of each symbol of data: the functions that its pointers lead to, by their place in it."""
    found = collections.defaultdict(dict)
    known = symbols(image, debug)
    begins = [address for address, _ in known]
    data = [(one.address, one.address + one.size) for one in image.sections if one.name in (".rdata", ".data")]
    for place in image.relocations():
        if image_code.is_within(sorted(data), place) and image.pointer_at(place) in functions:
            address, name = known[bisect.bisect_right(begins, place) - 1]
            found[name][place - address] = image.pointer_at(place)
    return found


def code_symbols(image, debug):
    """The begins of the x86 image's functions, which has no table of them."""
    code = [(one.address, one.address + one.size) for one in image.sections if one.name in (".text", "INIT")]
    names = image_code.function_names(image, debug)
    begins = sorted(one for one, name in names.items() if image_code.is_within(code, one) and
                    name not in ("INIT", "_CTOR_LIST__", "_DTOR_LIST__"))
    ends = [next(end for begin, end in code if begin <= one < end) for one in begins]
    return [(one, min(end, after), 0) for one, end, after in zip(begins, ends, begins[1:] + [1 << 32])]


class Graph:
    def __init__(self, image, debug):
        self.image = image
        self.slots = import_slots(image)
        if image.pointer == 4:
            entries = code_symbols(image, debug)
        else:
            table, size = image.directory(3)
            place = image.offset_of(table)
            entries = [struct.unpack_from("<III", image.data, place + at) for at in range(0, size, 12)]
            entries = sorted(one for one in entries if one[1] > one[0])
        names = image_code.function_names(image, debug)
        self.begins = [begin for begin, _, _ in entries]
        self.names = {begin: short(names.get(begin, f"function at {begin:x}")) for begin in self.begins}
        self.code = collections.defaultdict(list)
        ranges = [(begin, end) for begin, end, _ in entries]
        for one in image.instructions():
            if image_code.is_within(ranges, one.address):
                self.code[self.begin_of(one.address)].append(one)
        self.tables = tables(image, debug, set(self.begins))
        self.virtual = {function for name, table in self.tables.items() if name.startswith("vtable for")
                        for function in table.values()}
        self.relocations = sorted(image.relocations())
        self.symbols = symbols(image, debug)
        self.addresses, self.used_tables = collections.defaultdict(set), collections.defaultdict(set)
        self.note_references()
        self.unlisted = []
        self.callers = set()  # through pointers
        self.functions = {}
        for begin, end, unwind in entries:
            calls = list(self.calls_of(begin, end))
            self.functions[begin] = Function(begin, end, self.names[begin],
                                             frame_of(image, unwind) if unwind else 0, calls,
                                             self.held_calls(begin, calls))
        if image.pointer == 4:
            depths = Depths(self, debug)
            for begin, function in self.functions.items():
                self.functions[begin] = function._replace(frame=depths.frame_of(begin))
            self.unlisted += depths.offences

    def begin_of(self, address):
        return self.begins[bisect.bisect_right(self.begins, address) - 1]

    def named(self, name):
        return [begin for begin in self.begins if self.names[begin] == name]

    def references_of(self, one):
        """The addresses in the image that an instruction names."""
        match = re.search(r"# (?:0x)?([0-9a-f]+)", one.operands)
        if self.image.pointer == 8:
            return [int(match[1], 16) - self.image.base] if match else []
        first = bisect.bisect_left(self.relocations, one.address)
        return [self.image.pointer_at(place) for place in self.relocations[first:first + 2]
                if place < one.address + len(one.code)]

    def note_references(self):
        """For each function by name those whose addresses it takes, and the tables of functions that it uses."""
        begins = [address for address, _ in self.symbols]
        for begin, code in self.code.items():
            for one in code:
                for place in self.references_of(one):
                    table = self.symbols[bisect.bisect_right(begins, place) - 1][1]
                    if place in self.names and (one.name == "lea" or self.image.pointer == 4):
                        self.addresses[self.names[begin]].add(place)
                    elif table in self.tables and not table.startswith(("vtable for", "__")):
                        self.used_tables[self.names[begin]].add(table)

    def targets_of(self, name):
        """The functions that an entry of TARGETS means."""
        if name in pointers.GROUPS:
            return set().union(*(self.named(one) for one in pointers.GROUPS[name]))
        if name.startswith("addresses in "):
            return self.addresses[name.removeprefix("addresses in ")]
        table, _, field = name.partition(".")
        if field and table in pointers.RECORDS:
            return self.field_of(table, field)
        return set(self.tables[name].values()) if name in self.tables else set(self.named(name))

    def field_of(self, table, field):
        """The functions in one field of a table's records, whose fields are all pointers."""
        fields = pointers.RECORDS[table]
        return {function for place, function in self.tables[table].items()
                if fields[place // self.image.pointer % len(fields)] == field}

    def slot_of(self, one):
        """The import whose pointer an instruction reads; none if it reads something else."""
        if self.image.pointer == 8:
            match = re.search(r"# (?:0x)?([0-9a-f]+)", one.operands)
        else:
            match = re.match(r"\*?0x([0-9a-f]+)(?:,%\w+)?$", one.operands)
        return self.slots.get(int(match[1], 16) - self.image.base) if match else None

    def is_switch(self, one):
        """Whether a jump through a pointer stays in its function."""
        if one.name == "call":
            return False
        return ",4)" in one.operands if self.image.pointer == 4 else one.code[0] & 0xF8 != 0x48

    def calls_of(self, begin, end):
        held = self.held_values(begin)
        for one, registers in zip(self.code[begin], held):
            operands = one.operands.split("#")[0].strip()
            if not one.name.startswith(("call", "j")):
                continue
            if not operands.startswith("*"):
                target = image_code.TARGET.match(operands)
                to = int(target[1], 16) - self.image.base if target else 0
                if one.name.startswith("call") or not begin <= to < end:
                    yield Call(one.address, self.direct(to))
            elif self.slot_of(one):
                yield Call(one.address, {self.slot_of(one)})
            elif not self.is_switch(one):
                yield Call(one.address, self.indirect(begin, one, registers))

    def next_places(self, code, at, number):
        """The instructions that may follow one, by number."""
        one = code[number]
        if not one.name.startswith(image_code.ENDS) and number + 1 < len(code):
            yield number + 1
        target = image_code.TARGET.match(one.operands)
        if one.name.startswith("j") and target and int(target[1], 16) - self.image.base in at:
            yield at[int(target[1], 16) - self.image.base]
        if one.name == "jmp" and one.operands.startswith("*") and self.image.pointer == 4 and self.is_switch(one):
            table = self.references_of(one)[0]
            known = self.relocations
            while known[bisect.bisect_left(known, table)] == table and self.image.pointer_at(table) in at:
                yield at[self.image.pointer_at(table)]
                table += 4

    def held_values(self, begin):
        """For each instruction of a function what registers and places of its frame hold, on all ways to it."""
        code = self.code[begin]
        at = {one.address: number for number, one in enumerate(code)}
        before = [None] * len(code)
        ready = [(0, {})]
        if self.image.pointer == 8:
            # The targets of switches, which are distances here, are entered with nothing known.
            ready += [(number + 1, {}) for number, one in enumerate(code[:-1])
                      if one.name == "jmp" and one.operands.startswith("*") and self.is_switch(one)]
        while ready:
            number, held = ready.pop()
            known = before[number]
            joined = held if known is None else {key: value for key, value in known.items() if held.get(key) == value}
            if known == joined:
                continue
            before[number] = joined
            after = self.values_behind(code[number], joined)
            ready.extend((place, after) for place in self.next_places(code, at, number))
        return [held or {} for held in before]

    def values_behind(self, one, held):
        operands = one.operands.split("#")[0].strip()
        if one.name.startswith("call"):
            return {key: value for key, value in held.items() if key not in CALL_CHANGES}
        written = re.search(r"(?:^|,)(%\w+|-?0x[0-9a-f]+\(%[er][bs]p\))$", operands)
        if not written or one.name.startswith(("cmp", "test", "push")) or "%eiz" in operands:
            return held
        value = self.value_of(one, operands, held) if one.name == "mov" else None
        return {**held, written[1]: value} if value else {key: old for key, old in held.items() if key != written[1]}

    def value_of(self, one, operands, held):
        """What a move leaves in its target: the name of an import, the place that was read in a table of virtual
        functions, or none."""
        source = re.sub(r",[^,]*$", "", operands)
        if source in held:
            return held[source]
        place = re.match(r"(-?0x[0-9a-f]+)?\(%(?!.sp|ebp)\w+\),", operands)
        return self.slot_of(one) or (int(place[1] or "0", 16) if place else None)

    def direct(self, to):
        """A call of a function, or of the jump by which the linker reaches an import."""
        if to in self.code or to not in self.stubs():
            return {to}
        return {self.stubs()[to]}

    def stubs(self):
        if not hasattr(self, "stubs_"):
            jumps = (one for one in self.image.instructions() if one.name == "jmp" and one.operands.startswith("*"))
            self.stubs_ = {one.address: self.slot_of(one) for one in jumps if self.slot_of(one)}
        return self.stubs_

    def indirect(self, begin, one, registers):
        caller = self.names[begin]
        held = registers.get(one.operands[1:])
        if isinstance(held, str):
            return {held}
        listed = set().union(*(self.targets_of(name) for name in pointers.TARGETS.get(caller, ())))
        if caller in pointers.TARGETS:
            self.callers.add(caller)
        if caller in pointers.TARGETS and caller not in pointers.OWN_TABLES:
            return listed
        if caller in pointers.CALL_NOTHING:
            return set()
        match = re.match(r"\*(-?0x[0-9a-f]+)?\(%\w+\)$", one.operands)
        place = int(match[1] or "0", 16) if match else held
        own = pointers.OWN_TABLES.get(caller, pointers.OWN_TABLES.get(caller.split("::")[0]))
        found = set()
        if place is not None and own:
            found = {self.tables["vtable for " + own].get(2 * self.image.pointer + place)} - {None}
        if not found and not (place is not None and own == ""):
            self.unlisted.append(f"{caller}+0x{one.address - begin:x}: calls {one.operands}, whose targets aren't "
                                 "listed")
        return found | listed

    def held_calls(self, begin, calls):
        """The calls while a spin lock is held."""
        code = self.code[begin]
        at = {one.address: number for number, one in enumerate(code)}
        by_address = {call.address: call for call in calls}
        ready = [at[call.address] + 1 for call in calls if ACQUIRE & call.targets]
        seen, held = set(), []
        while ready:
            number = ready.pop()
            if number in seen or number >= len(code):
                continue
            seen.add(number)
            one = code[number]
            call = by_address.get(one.address)
            if call:
                if RELEASE & call.targets:
                    continue
                held.append(call)
            if one.name.startswith("j"):
                target = image_code.TARGET.match(one.operands)
                to = int(target[1], 16) - self.image.base if target else None
                if to in at:
                    ready.append(at[to])
            if not one.name.startswith(image_code.ENDS):
                ready.append(number + 1)
        return held

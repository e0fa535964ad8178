"""The stack that the functions of the x86 image take, which has no table of frames."""

import collections
import re
import subprocess

import image_code

State = collections.namedtuple("State", "depth frame rounded")  # bytes of stack


class Depths:
    """How deep the stack of each function of the x86 image becomes, from all ways through its instructions."""

    def __init__(self, graph, debug):
        self.graph = graph
        self.offences = []
        names = subprocess.run([graph.image.tools + "nm", str(debug)], check=True, capture_output=True,
                               text=True).stdout
        # Bytes of arguments that an import removes: a fast one has two in registers.
        self.removed = {match[2]: max(0, int(match[3] or 0) - (8 if match[1] else 0))
                        for match in re.finditer(r" I __imp_([@]?)_?(\w+?)(?:@(\d+))?$", names, re.M)}

    def removed_by(self, target):
        """Bytes of arguments that a call removes."""
        if isinstance(target, str):
            return self.removed[target]
        returns = [one.operands for one in self.graph.code[target] if one.name == "ret"]
        return int(returns[0][1:], 16) if returns and returns[0] else 0

    def removed_at(self, code, number, call):
        """Bytes of arguments that a call removes: by its targets, if they agree, and else by what the caller takes
        again soon."""
        removed = {self.removed_by(target) for target in call.targets}
        if len(removed) == 1:
            return removed.pop()
        for one in code[number + 1:]:
            again = re.match(r"\$0x([0-9a-f]+),%esp$", one.operands)
            if again and one.name == "sub":
                return int(again[1], 16)
            if one.name.startswith(("call", "j", "ret")):
                break
        return 0

    def frame_of(self, begin):
        """Bytes of stack that a function takes, with its return address."""
        code = self.graph.code[begin]
        at = {one.address: number for number, one in enumerate(code)}
        calls = {call.address: call for call in self.graph.functions[begin].calls}
        seen, most, ready = {}, 0, [(0, State(0, 0, 0))]
        while ready:
            number, state = ready.pop()
            if number in seen or number >= len(code):
                if seen.get(number, state).depth != state.depth:
                    self.offences.append(f"{self.graph.names[begin]}+0x{code[number].address - begin:x}: its stack is "
                                         f"{state.depth} or {seen[number].depth} bytes deep")
                continue
            seen[number] = state
            one = code[number]
            after = self.after(one, state)
            most = max(most, after.depth, state.depth)
            if one.address in calls:
                is_last = one.name == "jmp"
                most = max(most, after.depth + (0 if is_last else 4))
                after = after._replace(depth=after.depth - self.removed_at(code, number, calls[one.address]))
            if one.name == "ret" and state.depth != 0:
                self.offences.append(f"{self.graph.names[begin]}: returns with {state.depth} bytes on its stack")
            ready.extend((place, after) for place in self.graph.next_places(code, at, number))
        return most + 4

    @staticmethod
    def after(one, state):
        """Behind an instruction: the bytes on the stack, in how many the frame's register points, and in how many the
        register does by which the stack is restored whose begin was rounded."""
        operands = one.operands
        number = re.match(r"\$0x([0-9a-f]+),%esp$", operands)
        place = re.match(r"(-?0x[0-9a-f]+)?\((%\w+)\),(%\w+)$", operands)
        if one.name == "push":
            return state._replace(depth=state.depth + 4)
        if one.name == "pop":
            return state._replace(depth=state.depth - 4)
        if one.name in ("add", "sub") and number:
            value = int(number[1], 16)
            value = value - (1 << 32) if value >> 31 else value
            return state._replace(depth=state.depth + (value if one.name == "sub" else -value))
        if one.name == "and" and number:
            return state._replace(depth=state.depth + 12)  # at most: it is a multiple of four
        if one.name == "mov" and operands == "%esp,%ebp":
            return state._replace(frame=state.depth)
        if one.name == "leave":
            return state._replace(depth=state.frame - 4)
        if one.name == "mov" and operands == "%ebp,%esp":
            return state._replace(depth=state.frame)
        if one.name == "lea" and place and place[3] == "%esp":
            base = {"%esp": state.depth, "%ebp": state.frame}.get(place[2], state.rounded)
            return state._replace(depth=base - int(place[1] or "0", 16))
        if one.name == "lea" and place and place[2] == "%esp" and state.frame == 0 and state.rounded == 0:
            return state._replace(rounded=state.depth - int(place[1] or "0", 16))
        return state

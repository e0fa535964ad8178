"""The changes that can be made to a source file, and a random choice of them."""

import re
from dataclasses import dataclass

from .syntax import Source

KINDS = ("operator", "constant", "order", "dropped statement")

# What each operator is exchanged for. One that is unary or a bracket as well counts only where blanks
# stand on both sides, as in formatted code.
_OPERATORS = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
    "==": ("!=",), "!=": ("==",), "&&": ("||",), "||": ("&&",),
    "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("/",),
    "&": ("|",), "|": ("&",), "^": ("&",), "<<": (">>",), ">>": ("<<",),
    "+=": ("-=", "="), "-=": ("+=", "="), "*=": ("/=",), "/=": ("*=",),
    "|=": ("&=", "="), "&=": ("|=", "="), "^=": ("|=",), "<<=": (">>=",), ">>=": ("<<=",),
    "++": ("--",), "--": ("++",),
}
_BETWEEN_BLANKS = {"<", ">", "+", "-", "*", "&", "&&", "<<", ">>"}

# Names that stand for a value of the platform's, and another that the compiler takes in their place.
_NAMES = {
    "true": "false", "false": "true", "TRUE": "FALSE", "FALSE": "TRUE",
    "CriticalWorkQueue": "DelayedWorkQueue", "DelayedWorkQueue": "CriticalWorkQueue",
    "SynchronizationEvent": "NotificationEvent", "NotificationEvent": "SynchronizationEvent",
    "SynchronizationTimer": "NotificationTimer", "NotificationTimer": "SynchronizationTimer",
    "KernelMode": "UserMode", "NonPagedPool": "PagedPool", "IO_NO_INCREMENT": "1",
    "EVENT_INCREMENT": "0",
}
_NUMBER = re.compile(r"(0[xX][0-9a-fA-F']+|0[bB][01']+|[0-9][0-9']*)([uUlL]*)$")
_PLAIN_ASSIGNMENT = re.compile(
    r"(?:(?:const |constexpr )?[\w:<>]+[ *&]+(?:const )?)?([\w.:>\[\]-]+)\s*"
    r"(?:[-+*/%&|^]|<<|>>)?=(?!=)\s*(.*);$", re.DOTALL)
_EMPTY_LOCAL = re.compile(r"[\w:<>]+ \w+\s*(\{\}|\{0\}|= (\w+::\w+|\d+|nullptr|true|false));$")
_CALL = re.compile(r"[\w>]\s*\(")
_CAST = re.compile(r"\w+_cast<[^()]*>\(|sizeof\(")


@dataclass(frozen=True)
class Mutant:
    path: str       # of the source, from the root of the tree
    line: int
    function: str   # the one it lies in, or empty
    kind: str
    before: str     # whole lines, or whole statements, without the blanks around them
    after: str
    text: str       # of the whole source, changed

    @property
    def key(self):
        return (self.path, self.function, squeezed(self.before), squeezed(self.after))


def squeezed(text):
    return " ".join(text.split())


def find_mutants(path, text):
    """All mutants of a source: for each kind, a list of places, each a list of its mutants."""
    source = Source(path, text)
    places = {kind: [] for kind in KINDS}
    for at in _changeable_tokens(source):
        _add_token_mutants(source, at, places)
    for block in source.blocks:
        for first, second in zip(block, block[1:]):
            if not _is_order_free(source, first, second):
                places["order"].append([_exchanged(source, first, second)])
    for statement in [each for block in source.blocks for each in block] + source.nested:
        if not _gives_the_value(source, statement):
            places["dropped statement"].append([_dropped(source, statement)])
    return {kind: [[mutant for mutant in place if mutant is not None] for place in found]
            for kind, found in places.items()}


def choose(places, random):
    """All mutants in random order: first a kind, then a place, then one of its changes, none twice."""
    left = {kind: [list(place) for place in found if place] for kind, found in places.items()}
    while any(left.values()):
        kind = random.choice([kind for kind in KINDS if left[kind]])
        place = random.randrange(len(left[kind]))
        changes = left[kind][place]
        mutant = changes.pop(random.randrange(len(changes)))
        if not changes:
            left[kind][place] = left[kind][-1]
            left[kind].pop()
        yield mutant


def _changeable_tokens(source):
    """Tokens that are not compile-time only."""
    tokens = source.tokens
    at = 0
    while at < len(tokens):
        if tokens[at].text in ("static_assert", "alignas", "explicit") and tokens[at + 1].text == "(":
            at = source.closing(at + 1)
        elif tokens[at].text == "operator":
            at += 1
        elif not _is_pure(tokens, at):
            yield at
        at += 1


def _is_pure(tokens, at):
    return (tokens[at].text == "0" and at > 1 and tokens[at - 1].text == "=" and
            tokens[at - 2].text in (")", "const", "noexcept"))


def _add_token_mutants(source, at, places):
    token = source.tokens[at]
    if token.kind == "number":
        places["constant"].append([_edited(source, token, text, "constant")
                                   for text in _other_numbers(token.text)])
    elif token.kind == "name" and token.text in _NAMES:
        places["constant"].append([_edited(source, token, _NAMES[token.text], "constant")])
    elif token.kind == "name" and re.fullmatch(r"STATUS_[A-Z_]+", token.text):
        other = "STATUS_UNSUCCESSFUL" if token.text != "STATUS_UNSUCCESSFUL" else "STATUS_NOT_SUPPORTED"
        places["constant"].append([_edited(source, token, other, "constant")])
    elif token.kind == "name" and token.text == "if" and source.tokens[at + 1].text == "(":
        places["operator"].append([_negated(source, at + 1)])
    elif token.kind == "sign" and token.text in ("!", "~") and _is_prefix(source, at):
        places["operator"].append([_edited(source, token, "", "operator")])
    elif token.kind == "sign" and token.text in _OPERATORS:
        blanks = (source.text[token.start - 1].isspace() and
                  source.text[token.end:token.end + 1].isspace())
        if blanks or token.text not in _BETWEEN_BLANKS:
            places["operator"].append([_edited(source, token, text, "operator")
                                       for text in _OPERATORS[token.text]])


def _is_prefix(source, at):
    following = source.tokens[at + 1]
    if source.tokens[at].text == "!":
        return following.kind == "name" or following.text == "("
    is_destructor = [token.text for token in source.tokens[at + 2:at + 4]] == ["(", ")"]
    return following.kind == "name" and not is_destructor


def _other_numbers(text):
    match = _NUMBER.match(text)
    if match is None:
        return []
    digits, suffix = match.groups()
    value = int(digits.replace("'", ""), 0 if digits[:2].lower() in ("0x", "0b") or digits == "0" else 10)
    form = "0x{:X}" if digits[:2].lower() == "0x" else "{}"
    others = {value + 1, value - 1 if value else 1, 0 if value else 2}
    return [form.format(other) + suffix for other in sorted(others - {value})]


def _changed(source, start, end, replacement, kind, before, after):
    text = source.text[:start] + replacement + source.text[end:]
    return Mutant(source.path, source.line_of(start), source.function_at(start), kind,
                  before, after, text)


def _edited(source, token, replacement, kind):
    first, last = source.lines_around(token.start, token.end)
    before = source.text[first:last]
    after = source.text[first:token.start] + replacement + source.text[token.end:last]
    return _changed(source, token.start, token.end, replacement, kind, before.strip(), after.strip())


def _negated(source, opening):
    start = source.tokens[opening].end
    end = source.tokens[source.closing(opening)].start
    if re.search(r";", source.text[start:end]):
        return None  # an if with a declaration
    first, last = source.lines_around(start, end)
    replacement = f"!({source.text[start:end]})"
    return _changed(source, start, end, replacement, "operator", source.text[first:last].strip(),
                    (source.text[first:start] + replacement + source.text[end:last]).strip())


def _exchanged(source, first, second):
    text = source.text
    before = text[first.start:second.end]
    after = text[second.start:second.end] + text[first.end:second.start] + text[first.start:first.end]
    return _changed(source, first.start, second.end, after, "order", before, after)


def _dropped(source, statement):
    return _changed(source, statement.start, statement.end, ";", "dropped statement",
                    source.text[statement.start:statement.end], ";")


def _gives_the_value(source, statement):
    """Whether a function may end without its value once this statement has fallen away."""
    if not any(token.text == "return" and source.tokens[at + 1].text != ";"
               for at, token in enumerate(source.tokens[statement.first:statement.last],
                                          statement.first)):
        return False
    ends = {function.end for function in source.functions}
    at = statement.last
    while at < len(source.tokens) and source.tokens[at].text == "}":
        if source.tokens[at].end in ends:
            return True
        at += 1
    return False


def _is_order_free(source, first, second):
    """True of two assignments, or definitions, that call nothing and of which neither reads what the
    other writes, and of a local that begins as a constant."""
    texts = [source.text[each.start:each.end] for each in (first, second)]
    if any(_EMPTY_LOCAL.match(text) for text in texts):
        return True
    parts = [_PLAIN_ASSIGNMENT.match(text) for text in texts]
    if None in parts:
        return False
    (target, value), (other_target, other_value) = (part.groups() for part in parts)
    if any(_CALL.search(_CAST.sub("", each)) for each in (value, other_value)):
        return False
    return target not in other_target + other_value and other_target not in target + value

"""Tokens and statements of the driver's C++, as far as changing them at random needs."""

import bisect
import re
from dataclasses import dataclass

_TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<directive>^[ \t]*\#(?:[^\n\\]|\\.|\\\n)*)
      | (?P<text>(?:u8|u|U|L)?"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)*')
      | (?P<number>\d(?:[\w.]|'(?=\w))*)
      | (?P<name>[A-Za-z_]\w*)
      | (?P<sign>\.\.\.|<<=|>>=|<=>|->\*|<<|>>|<=|>=|==|!=|&&|\|\||\+\+|--|\+=|-=|\*=|/=|%=|&=|\|=|\^=|->|::|\S)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE)

_CLOSING = {"(": ")", "{": "}", "[": "]"}


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass(frozen=True)
class Statement:
    """One statement of a block: text[start:end] of its source."""
    kind: str  # plain, return, jump (break or continue), control or block
    start: int
    end: int
    first: int  # tokens [first, last)
    last: int


@dataclass(frozen=True)
class Function:
    name: str
    start: int
    end: int


class Source:
    """A source file: its tokens without comments, its functions, and the blocks of statements in them."""

    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.tokens = [Token(match.lastgroup, match.group(), match.start(), match.end())
                       for match in _TOKEN.finditer(text)
                       if match.lastgroup not in ("comment", "directive")]
        self._lines = [0] + [match.end() for match in re.finditer("\n", text)]
        self.functions = []
        self.blocks = []  # lists of statements in a row
        self.nested = []  # statements that stand alone behind an if or a loop
        self._read_scope(0, len(self.tokens))

    def line_of(self, position):
        return bisect.bisect_right(self._lines, position)

    def lines_around(self, start, end):
        """The start and the end of the whole lines that text[start:end] lies on."""
        first = self._lines[self.line_of(start) - 1]
        newline = self.text.find("\n", max(start, end - 1))
        return first, len(self.text) if newline < 0 else newline

    def function_at(self, position):
        for function in self.functions:
            if function.start <= position < function.end:
                return function.name
        return ""

    def closing(self, opening):
        """The token that closes the bracket at token `opening`."""
        depth = 0
        brackets = (self.tokens[opening].text, _CLOSING[self.tokens[opening].text])
        for at in range(opening, len(self.tokens)):
            text = self.tokens[at].text
            if self.tokens[at].kind != "sign":
                continue
            if text == brackets[0]:
                depth += 1
            elif text == brackets[1]:
                depth -= 1
                if depth == 0:
                    return at
        return len(self.tokens) - 1

    # Namespaces and classes: looks for the bodies of functions.
    def _read_scope(self, at, last):
        head = at
        while at < last:
            text = self.tokens[at].text
            if text in ("(", "["):
                at = self.closing(at) + 1
            elif text == "{":
                end = self.closing(at)
                header = self.tokens[head:at]
                role = self._role_of_brace(header)
                if role == "scope":
                    self._read_scope(at + 1, end)
                elif role == "function":
                    name = self._function_name(header)
                    self.functions.append(Function(name, header[0].start, self.tokens[end].end))
                    self._read_block(at + 1, end)
                at = end + 1
                if role != "value":
                    head = at
            else:
                at += 1
                if text in (";", "}") or text == ":" and self.tokens[at - 2].text in (
                        "public", "private", "protected"):
                    head = at

    @staticmethod
    def _role_of_brace(header):
        texts = [token.text for token in header]
        if not texts:
            return "value"
        if "namespace" in texts or texts[0] == "extern" and len(texts) == 2:
            return "scope"
        if texts[-1] == ")" or ")" in texts and texts[-1] in (
                "const", "noexcept", "override", "final", "}"):
            return "function"
        if ")" in texts and ":" in texts:
            return "value"  # a member's value ahead of a constructor's body
        if "enum" in texts:
            return "value"
        if any(word in texts for word in ("class", "struct", "union")) and "=" not in texts:
            return "scope"
        return "value"

    @staticmethod
    def _function_name(header):
        for at, token in enumerate(header):
            if token.text == "(" and at > 0 and header[at - 1].text not in ("explicit", "alignas"):
                prefix = "~" if at > 1 and header[at - 2].text == "~" else ""
                return prefix + header[at - 1].text
        return ""

    # Statements of a block, and of those within.
    def _read_block(self, at, last):
        statements = []
        while at < last:
            at, statement = self._read_statement(at, last)
            if statement is not None:
                statements.append(statement)
        if statements:
            self.blocks.append(statements)

    def _read_statement(self, at, last):
        first = at
        text = self.tokens[at].text
        if text == ";":
            return at + 1, None
        if text in ("case", "default"):
            while self.tokens[at].text != ":":
                at += 1
            return at + 1, None
        if text == "{":
            end = self.closing(at)
            self._read_block(at + 1, end)
            return end + 1, self._statement("block", first, end + 1)
        if text in ("if", "for", "while", "switch"):
            at += 2 if self.tokens[at + 1].text == "constexpr" else 1
            at = self.closing(at) + 1
            at = self._read_branch(at, last)
            if text == "if" and at < last and self.tokens[at].text == "else":
                at = self._read_branch(at + 1, last)
            return at, self._statement("control", first, at)
        if text == "do":
            at = self._read_branch(at + 1, last)
            at = self._end_of_plain(at, last)
            return at, self._statement("control", first, at)
        at = self._end_of_plain(at, last)
        kind = {"return": "return", "break": "jump", "continue": "jump"}.get(text, "plain")
        return at, self._statement(kind, first, at)

    def _read_branch(self, at, last):
        at, statement = self._read_statement(at, last)
        if statement is not None and statement.kind != "block":
            self.nested.append(statement)
        return at

    def _end_of_plain(self, at, last):
        while at < last and self.tokens[at].text != ";":
            at = self.closing(at) + 1 if self.tokens[at].text in _CLOSING else at + 1
        return at + 1

    def _statement(self, kind, first, last):
        return Statement(kind, self.tokens[first].start, self.tokens[last - 1].end, first, last)

"""Finds what can be changed in a C++ source: one operator, constant, returned value, condition or call at a time.

The formatter's layout tells what the grammar does not: an operator with a blank on both sides is a binary one, so that
template brackets, pointers and references are left alone. What slips through does not compile, and is drawn again.
"""

import dataclasses
import platform
import re

TOKEN = re.compile(
    r"""(?P<skip>^[ \t]*\#(?:[^\n\\]|\\.|\\\n)*|//[^\n]*|/\*.*?\*/|\s+)
      |(?P<text>(?:u8|[uUL])?R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|(?:u8|[uUL])?"(?:[^"\\]|\\.)*"|'(?:[^'\\]|\\.)+')
      |(?P<number>\d(?:[\w.]|'\w|(?<=[eE])[+-])*)
      |(?P<word>[A-Za-z_]\w*)
      |(?P<sign><=>|<<=|>>=|->\*|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.X | re.S | re.M)
INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|0[bB][01']+|[\d']+)([uUlLzZ]*)$")

INSTEAD = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "*=": ["/="], "|=": ["&="], "&=": ["|="], "^=": ["&="], "<<=": [">>="], ">>=": ["<<="],
}
OPENING = {"(": ")", "[": "]", "{": "}"}
LOG = re.compile(r"log$|log_|_log|^log[A-Z]|Log$|trace|entry$", re.I)  # what statements that only tell begin with
WAIT = re.compile(r"sleep|_(ms|us)\b|(nano|micro|milli)?seconds\b|\bminutes\b|\bhours\b|backlog")  # how long no test may time
OTHER_MACHINE = re.compile(r"^#(?:el)?if defined\(__(?!" + platform.machine() + r"__)(?:x86_64|aarch64)__\)\n"
                           r"(?:[^#\n].*\n|\n)*", re.M)
SLEEP = re.compile(r"sleep|yield|^poll\(nullptr")  # which calls do nothing else


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclasses.dataclass(frozen=True)
class Change:
    """`before`, from `start` on in `file`, becomes `after`."""
    file: str
    start: int
    before: str
    after: str
    line: int
    source: str  # the text of the line
    what: str    # "before -> after", with the place among equal ones of the line if it is not the first

    def apply(self, text):
        return text[:self.start] + self.after + text[self.start + len(self.before):]

    def __str__(self):
        return f"{self.file}:{self.line}: {self.what}    in: {self.source}"


def tokens_of(text):
    found = (Token(m.lastgroup if m.lastgroup != "mark" else "text", m.group(), m.start(), m.end())
             for m in TOKEN.finditer(text))
    return [token for token in found if token.kind != "skip"]


class Source:
    """One file, and the places in it that can be changed: a list of (start, before, [after, ...])."""

    def __init__(self, file, text):
        self.file, self.text, self.tokens = file, text, tokens_of(text)
        self.partner, self.within = self.pairs()
        self.left_out = self.ranges_left_out()
        self.places = [place for i, token in enumerate(self.tokens) if not self.is_left_out(token)
                       for place in self.places_at(i, token)]

    # --- reading

    def pairs(self):
        """Each bracket's other one, and for each token the bracket that it stands in, or -1."""
        partner, within, open_at = {}, [], []
        for i, token in enumerate(self.tokens):
            closes = token.kind == "sign" and token.text in ")]}" and open_at
            if closes:
                partner[open_at[-1]] = i
                partner[i] = open_at.pop()
            within.append(open_at[-1] if open_at else -1)
            if token.kind == "sign" and token.text in OPENING:
                open_at.append(i)
        return partner, within

    def word(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def end_of_statement(self, i):
        while i < len(self.tokens) and self.word(i) != ";":
            i = self.partner[i] + 1 if self.word(i) in OPENING and i in self.partner else i + 1
        return i

    def starts_statement(self, i):
        before = self.word(i - 1)
        if before in (";", "{", "}", "else", "do"):
            return self.word(self.within[i]) == "{"
        return before == ")" and self.word(self.partner.get(i - 1, 0) - 1) in ("if", "while", "for")

    def between(self, first, last):
        """The text from token `first` up to, not with, token `last`."""
        return self.text[self.tokens[first].start:self.tokens[last - 1].end] if first < last else ""

    def line_number(self, start):
        return self.text.count("\n", 0, start) + 1

    def line_at(self, start):
        return self.text[self.text.rfind("\n", 0, start) + 1:].split("\n", 1)[0].strip()

    def blank_around(self, token):
        return self.text[token.start - 1:token.start].isspace() and self.text[token.end:token.end + 1].isspace()

    # --- what is left out: texts of the log, declarations, what only the compiler sees

    def ranges_left_out(self):
        ranges = []
        for i, token in enumerate(self.tokens):
            if token.text in ("static_assert", "using", "__attribute__", "alignas", "asm", "extern"):
                last = self.end_of_statement(i)
                if token.text == "extern" and "{" in self.between(i, last):
                    continue
            elif token.kind == "word" and self.starts_statement(i) and self.tells_only(i):
                last = self.end_of_statement(i)
            else:
                continue
            if last < len(self.tokens):
                ranges.append((token.start, self.tokens[last].end))
        return ranges + [match.span() for match in OTHER_MACHINE.finditer(self.text)]

    def tells_only(self, i):
        """Whether a statement is a call, or a chain of <<, of something whose name says that it logs."""
        while self.word(i + 1) in ("::", ".", "->"):
            i += 2
        return LOG.search(self.word(i)) and self.word(i + 1) in ("(", "<<")

    def is_left_out(self, token):
        return any(first <= token.start < last for first, last in self.left_out)

    # --- places

    def places_at(self, i, token):
        if token.kind == "sign":
            yield from self.operator(i, token)
        elif token.kind == "number":
            yield from self.number(i, token)
        elif token.text in ("true", "false"):
            yield token.start, token.text, ["false" if token.text == "true" else "true"]
        elif token.text == "return":
            yield from self.returned(i)
        elif token.text in ("if", "while", "for"):
            yield from self.condition(i, token.text)
        elif token.kind == "word" and self.starts_statement(i):
            yield from self.call(i)

    def operator(self, i, token):
        if token.text in ("++", "--"):
            yield token.start, token.text, ["--" if token.text == "++" else "++"]
        elif token.text == "!" and self.word(i - 1) != "operator":
            yield token.start, token.text, [""]
        elif token.text in INSTEAD and self.blank_around(token):
            if token.text not in ("<<", "+") or not self.of_texts(i):
                yield token.start, token.text, INSTEAD[token.text]

    def of_texts(self, i):
        """Whether an operand of << or + is a text: these compile for no other operator."""
        first = i
        while first > 0 and self.word(first - 1) not in (";", "{", "}"):
            first -= 1
        statement = self.tokens[first:self.end_of_statement(i)]
        return any(token.kind == "text" and token.text.endswith('"') for token in statement)

    def number(self, i, token):
        match = INTEGER.match(token.text)
        if not match or self.word(i - 1) == "=" and self.word(i - 2) in (")", "const", "noexcept", "override"):
            return
        if WAIT.search(self.line_at(token.start)) or self.is_parameter_size(i):
            return
        digits, suffix = match.groups()
        digits = digits.replace("'", "")
        value = int(digits, 8) if re.fullmatch(r"0[0-7]+", digits) else int(digits, 0)
        # A place more in an array is no fault; one too few is.
        value = 0 if value == 1 else value - 1 if self.is_array_size(i) else value + 1
        shape = "0x{:x}" if digits[:2].lower() == "0x" else "0{:o}" if re.fullmatch(r"0[0-7]+", digits) else "{}"
        yield token.start, token.text, [shape.format(value) + suffix]

    def is_parameter_size(self, i):
        """Of an array that is a parameter: a pointer, whatever its length."""
        return self.word(i - 1) == "[" and self.is_array_size(i) and self.word(self.within[i - 1]) == "("

    def is_array_size(self, i):
        if self.word(i - 1) == "[" and self.word(i + 1) == "]" and self.tokens[i - 2].kind == "word":
            return self.tokens[i - 3].kind == "word" or self.word(i - 3) == ">"
        return self.word(i - 1) == "," and self.word(i + 1) == ">" and not self.blank_around(self.tokens[i + 1])

    def returned(self, i):
        last = self.end_of_statement(i)
        value = self.between(i + 1, last)
        if last <= i + 2 or self.word(i + 1) == "{":
            if last <= i + 1 or self.tokens[i + 1].kind != "word" or value in ("true", "false", "nullptr"):
                return
        if self.word(last - 1) in ("none", "nullopt"):
            return  # what {} is too
        yield self.tokens[i + 1].start, value, ["{}", f"!({value})", f"({value}) + 1"]

    def condition(self, i, word):
        first = i + 1
        if self.word(first) != "(" or first not in self.partner:
            return
        last = self.partner[first]
        parts = [first] + [k for k in range(first + 1, last) if self.word(k) == ";" and self.within[k] == first]
        if word == "for":
            if len(parts) != 3:
                return
            start, last = parts[1] + 1, parts[2]
        else:
            start = parts[-1] + 1
        value = self.between(start, last)
        if not value or re.search(r"[^=!<>]=[^=]", value) or value in ("true", "false", "1", "0"):
            return
        yield self.tokens[start].start, value, [f"!({value})", "false"] + (["true"] if word == "if" else [])

    def call(self, i):
        """A call whose result is not used; not the declaration of an object."""
        last = self.end_of_statement(i)
        k = i
        while self.word(k + 1) in ("::", ".", "->"):
            k += 2
        if self.word(k + 1) != "(" or self.word(last - 1) != ")" or self.tokens[k].kind != "word":
            return
        if self.word(k) in ("return", "if", "for", "while", "switch", "sizeof", "catch", "defined"):
            return
        call = self.between(i, last)
        if not SLEEP.search(call):
            yield self.tokens[i].start, call, [""]

    # --- a change of a place

    def change(self, place, after):
        start, before, _ = place
        line = self.line_number(start)
        what = " ".join(f"{before} -> {after or '(nothing)'}".split())
        same = [p for p in self.places if p[1] == before and self.line_number(p[0]) == line]
        if same[0] != place:
            what += f" #{same.index(place) + 1}"
        return Change(self.file, start, before, after, line, self.line_at(start), what)

    def all(self):
        return (self.change(place, after) for place in self.places for after in place[2])

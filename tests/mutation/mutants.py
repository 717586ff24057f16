"""Makes mutants of a C++ source: the same text with one statement, condition or constant changed.

It reads tokens, not types: the sources are formatted by clang-format, so a binary operator has a blank on both sides and
a template's bracket has none. What does not compile afterwards is no mutant.
"""

import re
from dataclasses import dataclass, replace

TOKEN = re.compile(
    r"""(?P<skip>(?:\s|\\\n)+|//[^\n]*|\#\s*define\s+\w+(?:\([^)\n]*\))?|\#[^\n]*)
      |(?P<string>"(?:\\.|[^"\\\n])*")
      |(?P<char>'(?:\\.|[^'\\])+')
      |(?P<number>\d[\w.']*)
      |(?P<word>[A-Za-z_]\w*)
      |(?P<symbol>::|->|&&|\|\||==|!=|<=|>=|\+\+|--|\+=|-=|<<|>>|\.\.\.|.)""",
    re.VERBOSE,
)


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass(frozen=True)
class Mutant:
    file: str
    function: str
    kind: str
    start: int
    end: int
    new: str
    old: str
    number: int = 0  # tells equal changes in one function apart
    around: str = ""  # the text of the function, or of the line outside functions

    def key(self):
        def line(text):
            return " ".join(text.split())

        return f"{self.file} | {self.function} | {self.kind} | {line(self.old)} | {line(self.new)} | {self.number}"

    def apply(self, text):
        # Line numbers stay: they are part of some records.
        lost = text[self.start : self.end].count("\n") - self.new.count("\n")
        return text[: self.start] + self.new + "\n" * lost + text[self.end :]


def tokens_of(text):
    found = []
    for match in TOKEN.finditer(text):
        if match.lastgroup != "skip":
            found.append(Token(match.lastgroup, match.group(), match.start(), match.end()))
    return found


SWAPPED = {
    "&&": "||", "||": "&&",
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">",
    "+": "-", "-": "+", "&": "|", "|": "&", ">>": "<<", "<<": ">>",
}  # fmt: skip
ALWAYS_SWAPPED = {"++": "--", "--": "++", "+=": "=", "!": ""}
ESCAPES = {r"\n": r"\t", r"\t": r"\n", r"\r": r"\n", r"\0": "0"}


class Source:
    """One source file, its tokens, and the mutants found so far."""

    def __init__(self, name, text):
        self.name = name
        self.text = text
        self.tokens = tokens_of(text)
        self.found = []
        self.function = "constants"
        self.result = ""

    def mutants(self):
        self.constants_and_operators()
        self.function = "constants"
        i = 0
        while i < len(self.tokens):
            i = self.outside(i)
        numbers = {}
        numbered = []
        for mutant in sorted(self.found, key=lambda found: (found.start, found.end, found.kind)):
            seen = numbers.get(mutant.key(), 0)
            numbers[mutant.key()] = seen + 1
            numbered.append(replace(mutant, number=seen, around=self.around(mutant)))
        return numbered

    def around(self, mutant):
        for start, end, _ in self.functions():
            if start <= mutant.start < end:
                return self.text[start:end]
        line = self.text.rfind("\n", 0, mutant.start) + 1
        return self.text[line : self.text.find("\n", mutant.end)]

    # Places.

    def at(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def matching(self, i):
        """The index of the bracket that closes the one at i."""
        pairs = {"(": ")", "{": "}", "[": "]"}
        depth = 0
        for j in range(i, len(self.tokens)):
            if self.tokens[j].kind == "symbol":
                if self.tokens[j].text in pairs:
                    depth += 1
                elif self.tokens[j].text in pairs.values():
                    depth -= 1
                    if depth == 0:
                        return j
        return len(self.tokens) - 1

    def end_of_simple(self, i):
        """The index of the semicolon that ends the statement at i."""
        while i < len(self.tokens) and self.at(i) != ";":
            i = self.matching(i) + 1 if self.at(i) in ("(", "{", "[") else i + 1
        return i

    def add(self, kind, first, last, new, function=None):
        """A mutant in which the tokens from first to last become `new`."""
        start, end = self.tokens[first].start, self.tokens[last].end
        old = self.text[start:end]
        if old != new:
            self.found.append(Mutant(self.name, function or self.function, kind, start, end, new, old))

    # Outside functions.

    def outside(self, i):
        """Finds the next function's body and reads it; returns the index after it."""
        first = i
        while i < len(self.tokens):
            text = self.at(i)
            if text == "(":
                i = self.matching(i) + 1
            elif text == "{":
                head = [token.text for token in self.tokens[first:i]]
                if self.is_function(head):
                    self.function, self.result = self.name_and_result(head)
                    end = self.matching(i)
                    self.block(i)
                    self.function = "constants"
                    return end + 1
                # A namespace, class or list: its content is read like the text outside.
                return i + 1
            elif text in (";", "}") or (text == ":" and self.at(i - 1) in ("public", "private", "protected")):
                return i + 1
            else:
                i += 1
        return i

    @staticmethod
    def is_function(head):
        if head == ["do"]:  # the body of a macro
            return True
        if "(" not in head or "=" in head[: head.index("(")]:
            return False
        return head[-1] in (")", "const", "override", "noexcept")

    @staticmethod
    def name_and_result(head):
        if head == ["do"]:
            return "macro", ""
        bracket = head.index("(")
        first = bracket - 1
        while first > 1 and head[first - 1] in ("::", "~"):
            first -= 1 if head[first - 1] == "~" else 2
        return "".join(head[first:bracket]).split("::")[-1], " ".join(head[:first])

    # Statements.

    def block(self, i):
        """Reads the block whose brace is at i; returns the index after it."""
        end = self.matching(i)
        i += 1
        while i < end:
            i = self.statement(i)
        return end + 1

    def statement(self, i):
        word = self.at(i)
        if word == "{":
            return self.block(i)
        if word == "if":
            return self.if_statement(i)
        if word in ("while", "for"):
            return self.loop(i)
        if word == "do":
            return self.do_loop(i)
        if word == "try":
            return self.try_statement(i)
        if word == "return":
            return self.return_statement(i)
        return self.simple(i)

    def simple(self, i):
        end = self.end_of_simple(i)
        self.add("delete", i, end, ";")
        if self.at(i) == "KIV_TRACE" and self.at(i + 1) == "(":
            self.add("trace without a log", i, i, "this->traceLog->trace")
        return end + 1

    def return_statement(self, i):
        end = self.end_of_simple(i)
        if end == i + 1:
            self.add("delete", i, end, ";")
            return end + 1
        expression = self.text[self.tokens[i + 1].start : self.tokens[end - 1].end]
        # Constants are changed below.
        if expression not in ("true", "false", "nullptr") and not expression.isdigit():
            self.add("return", i + 1, end - 1, self.other_value(expression))
        self.add("delete", i, end, ";")
        return end + 1

    def other_value(self, expression):
        if "bool" in self.result.split():
            return f"!({expression})"
        if "string" in self.result or "vector" in self.result:
            return "{}" if "*" not in self.result else "nullptr"
        if "*" in self.result:
            return "nullptr"
        if "LEVEL" in self.result:
            return f"static_cast<ZTFI_DEVICE_CLAIM_LEVEL>(({expression}) + 1)"
        return f"({expression}) + 1"

    def condition(self, first, last):
        old = self.text[self.tokens[first].start : self.tokens[last].end]
        relations = [self.at(i) for i in range(first, last + 1) if self.at(i) in ("==", "!=")]
        logical = any(self.at(i) in ("&&", "||") for i in range(first, last + 1))
        # A single comparison is negated by changing its operator.
        if logical or len(relations) != 1:
            self.add("negate", first, last, f"!({old})")
        # Never: each statement after the condition is deleted separately.
        self.add("always", first, last, "true")

    def if_statement(self, i):
        i += 2 if self.at(i + 1) == "constexpr" else 1
        end = self.matching(i)
        self.condition(i + 1, end - 1)
        after = self.statement(end + 1)
        if self.at(after) == "else":
            last = self.statement(after + 1)
            if self.at(after + 1) != "if":
                self.add("remove else", after, last - 1, "")
            return last
        return after

    def loop(self, i):
        end = self.matching(i + 1)
        inside = range(i + 2, end)
        semicolons = [j for j in inside if self.at(j) == ";"]
        if self.at(i) == "while":
            self.add("negate", i + 2, end - 1, f"!({self.text[self.tokens[i + 2].start:self.tokens[end - 1].end]})")
            self.add("never", i + 2, end - 1, "false")
        elif len(semicolons) == 2 and semicolons[1] > semicolons[0] + 1:
            self.add("never", semicolons[0] + 1, semicolons[1] - 1, "false")
        return self.statement(end + 1)

    def do_loop(self, i):
        after = self.statement(i + 1)
        return self.end_of_simple(after) + 1

    def try_statement(self, i):
        i = self.block(i + 1)
        while self.at(i) == "catch":
            i = self.block(self.matching(i + 1) + 1)
        return i

    # Operators and constants, wherever they are.

    def function_at(self, place):
        for start, end, name in self.functions():
            if start <= place < end:
                return name
        return "constants"

    def functions(self):
        if not hasattr(self, "bodies"):
            self.bodies = []
            i = first = 0
            while i < len(self.tokens):
                text = self.at(i)
                if text == "(":
                    i = self.matching(i) + 1
                    continue
                if text == "{":
                    head = [token.text for token in self.tokens[first:i]]
                    if self.is_function(head):
                        end = self.matching(i)
                        name, _ = self.name_and_result(head)
                        self.bodies.append((self.tokens[first].start, self.tokens[end].end, name))
                        i = end
                if text in ("{", ";", "}") or (text == ":" and self.at(i - 1) in ("public", "private", "protected")):
                    first = i + 1
                i += 1
        return self.bodies

    def constants_and_operators(self):
        for i, token in enumerate(self.tokens):
            function = self.function_at(token.start)
            spaced = self.text[token.start - 1 : token.start].isspace() and self.text[token.end : token.end + 1].isspace()
            if token.kind == "string" and self.at(i - 1) != "extern":
                self.add("text", i, i, token.text[:-1] + '~"', function)
            elif token.kind == "char":
                self.add("character", i, i, self.other_character(token.text), function)
            elif token.kind == "number":
                self.add("number", i, i, f"({token.text} + 1)", function)
            elif token.text in ("true", "false"):
                self.add("truth", i, i, "false" if token.text == "true" else "true", function)
            elif token.text in ALWAYS_SWAPPED and token.kind == "symbol":
                self.add("operator", i, i, ALWAYS_SWAPPED[token.text], function)
            elif token.text in SWAPPED and token.kind == "symbol" and spaced:
                self.add("operator", i, i, SWAPPED[token.text], function)

    @staticmethod
    def other_character(text):
        inside = text[1:-1]
        return "'" + (ESCAPES.get(inside) or chr(ord(inside) + 1)) + "'"


def mutants_of(name, text):
    return Source(name, text).mutants()

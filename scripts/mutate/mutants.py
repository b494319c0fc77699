"""Generates mutants of C++ sources: each has one small change that a test should detect.

The sources are split into tokens but not parsed, so some mutants do not compile; the trial discards
them. The rules depend on the format of the sources: a comparison operator has spaces around it, a
template bracket does not."""

import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""
      (?P<space>\s+)
    | (?P<comment>//[^\n]*|/\*.*?\*/)
    | (?P<directive>(?<![^\n])[ \t]*\#(?:[^\n\\]|\\\n|\\.)*)
    | (?P<string>"(?:[^"\\\n]|\\.)*")
    | (?P<char>'(?:[^'\\\n]|\\.)+')
    | (?P<number>(?:0[xX][0-9a-fA-F']+|\d[\d']*(?:\.\d+)?)[uUlL]*)
    | (?P<word>[A-Za-z_]\w*)
    | (?P<sign><<=|>>=|<=>|\.\.\.|->|::|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||\+=|-=|\*=|/=|\|=|&=|.)
    """,
    re.VERBOSE | re.DOTALL,
)

SIGNS = {
    "==": ["!="],
    "!=": ["=="],
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
    "&&": ["||"],
    "||": ["&&"],
    "+": ["-"],
    "-": ["+"],
    "*": ["/"],
    "/": ["*"],
    "&": ["|"],
    "|": ["&"],
    "<<": [">>"],
    ">>": ["<<"],
    "+=": ["-="],
    "-=": ["+="],
    "++": ["--"],
    "--": ["++"],
}

WORDS = {
    "true": ["false"],
    "false": ["true"],
    "continue": ["break"],
    "logError": ["logWarning"],
    "logWarning": ["logError"],
    "MZ_TRUE": ["MZ_FALSE"],
    "MZ_FALSE": ["MZ_TRUE"],
    "MZ_BEST_SPEED": ["MZ_NO_COMPRESSION", "MZ_BEST_COMPRESSION"],
    "canonical": ["normalized"],
    "normalized": ["canonical"],
    "startsWith": ["endsWith"],
    "endsWith": ["startsWith"],
    "starts_with": ["ends_with"],
    "ends_with": ["starts_with"],
    "find": ["rfind"],
    "rfind": ["find"],
    "find_first_not_of": ["find_last_not_of"],
    "find_last_not_of": ["find_first_not_of"],
    "front": ["back"],
    "back": ["front"],
    "min": ["max"],
    "max": ["min"],
    "isDir": ["isFile"],
    "isFile": ["isDir"],
    "retain": ["release"],
}

ENUMERATORS = {
    "EntryKind": ["None", "Directory", "File"],
    "LogLevel": ["Warning", "Error"],
    "DialogType": ["Open", "Save", "Folder"],
}

BLOCK_WORDS = {"namespace", "struct", "class", "enum", "union", "extern"}
NO_STATEMENTS = BLOCK_WORDS | {"using", "template", "friend", "public", "private", "protected"}
LEAVERS = {"return", "break", "continue", "throw"}
# Replacing these values with {} would change nothing.
NO_CHANGE = {"true", "false", "{}", "0", "nullptr", "std::nullopt", "EntryKind::None"}
DECLARATION = re.compile(
    r"(?:static |thread_local |const |constexpr |auto |struct )*"
    r"[\w:]+(?:<[^;()]*>)?\s*[&*]*\s*(?:const )?"
    r"\s[&*]*\w+\s*(?:[=({\[]|$)"
)


@dataclass(frozen=True)
class Mutant:
    file: str
    line: int  # from 1
    text: str  # of that line
    change: str
    start: int
    end: int
    replacement: str

    @property
    def key(self):
        """Identifies the mutant as long as its line is unchanged."""
        return (self.file, self.text, self.change)

    def applied_to(self, source):
        return source[: self.start] + self.replacement + source[self.end :]


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int

    @property
    def end(self):
        return self.start + len(self.text)


@dataclass(frozen=True)
class Statement:
    tokens: tuple  # with the semicolon

    @property
    def start(self):
        return self.tokens[0].start

    @property
    def end(self):
        return self.tokens[-1].end

    def first(self):
        return self.tokens[0].text


def tokens_of(source):
    tokens = []
    for match in TOKEN.finditer(source):
        if match.lastgroup not in ("space", "comment", "directive"):
            tokens.append(Token(match.lastgroup, match.group(), match.start()))
    return tokens


class Reader:
    """Finds the sequences of consecutive statements in function bodies."""

    def __init__(self, tokens):
        self.tokens = tokens
        self.sequences = []  # of statements, None for a block between them
        self.returns = []  # (statement, head of the function or lambda)
        self.read_block(0, head=[], in_function=False)

    def read_block(self, at, head, in_function):
        sequence = []
        begin = at
        while at < len(self.tokens):
            text = self.tokens[at].text
            if text == "}":
                break
            if text in "([":
                at = self.read_brackets(at, head)
                continue
            if text == "{":
                inner_head = self.tokens[begin:at]
                if self.opens_block(inner_head):
                    words = {token.text for token in inner_head}
                    is_function = in_function or not words & BLOCK_WORDS or ")" in words
                    is_own = not in_function and is_function
                    at = self.read_block(
                        at + 1, inner_head if is_own else head, in_function=is_function
                    )
                    if inner_head and inner_head[0].text == "switch":
                        self.drop_last_break(self.sequences[-1])
                    sequence.append(None)
                    begin = at = at + 1
                    continue
                at = self.skip_braces(at)
                continue
            if text == ":" and at > begin and self.tokens[begin].text in ("case", "default"):
                sequence.append(None)
                begin = at = at + 1
                continue
            at += 1
            if text == ";":
                statement = Statement(tuple(self.tokens[begin:at]))
                sequence.append(statement)
                if statement.first() == "return":
                    self.returns.append((statement, head))
                begin = at
        if in_function:
            self.sequences.append(sequence)
        return at

    def drop_last_break(self, sequence):
        """Drops the last break of a switch, because removing it would change nothing."""
        if sequence and sequence[-1] and sequence[-1].first() == "break":
            sequence.pop()

    def opens_block(self, head):
        if not head:
            return True
        if head[0].text in BLOCK_WORDS:
            return True
        return head[-1].text in (")", "else", "do", "try", "const", "noexcept", "override", "final")

    def read_brackets(self, at, head):
        closing = {"(": ")", "[": "]"}[self.tokens[at].text]
        at += 1
        while self.tokens[at].text != closing:
            text = self.tokens[at].text
            if text in "([":
                at = self.read_brackets(at, head)
            elif text == "{":
                if self.tokens[at - 1].text in (")", "]", "noexcept", "mutable"):
                    at = self.read_block(at + 1, head=[], in_function=True) + 1
                else:
                    at = self.skip_braces(at)
            else:
                at += 1
        return at + 1

    def skip_braces(self, at):
        depth = 0
        while True:
            depth += {"{": 1, "}": -1}.get(self.tokens[at].text, 0)
            at += 1
            if depth == 0:
                return at


class Maker:
    def __init__(self, file, source):
        self.file = file
        self.source = source
        self.tokens = tokens_of(source)
        self.line_starts = [0] + [match.end() for match in re.finditer("\n", source)]
        self.changes = {}  # how often each change has been made on a line
        self.mutants = []
        self.silent = self.ranges_of_assertions()

    def ranges_of_assertions(self):
        ranges = []
        for i, token in enumerate(self.tokens):
            if token.text in ("assert", "static_assert"):
                end = self.source.index(";", token.start)
                ranges.append(range(token.start, end))
        return ranges

    def add(self, start, end, replacement, change):
        if any(start in silent for silent in self.silent):
            return
        line = self.source.count("\n", 0, start)
        text_end = self.source.find("\n", start)
        text = self.source[self.line_starts[line] : text_end].strip()
        times = self.changes[line, change] = self.changes.get((line, change), 0) + 1
        if times > 1:
            change += f" ({times})"
        self.mutants.append(Mutant(self.file, line + 1, text, change, start, end, replacement))

    def replace(self, token, replacement):
        self.add(token.start, token.end, replacement, f"{token.text} => {replacement}")

    def has_spaces_around(self, token):
        before = self.source[token.start - 1]
        after = self.source[token.end : token.end + 1]
        return before.isspace() and after.isspace()

    def change_tokens(self):
        for i, token in enumerate(self.tokens):
            before = self.tokens[i - 1].text if i else ""
            after = self.tokens[i + 1].text if i + 1 < len(self.tokens) else ""
            if token.kind == "sign":
                self.change_sign(token, before)
            elif token.kind == "number":
                self.change_number(token, before)
            elif token.kind == "string" and before != "extern" and before != "#":
                inner = token.text[1:-1]
                self.replace(token, f'"~{inner}"')
            elif token.kind == "char":
                self.replace(token, "'~'" if token.text != "'~'" else "'#'")
            elif token.kind == "word":
                self.change_word(token, before, after)

    def change_sign(self, token, before):
        if token.text == "!":
            self.add(token.start, token.end, "", "! => nothing")
        elif token.text in ("++", "--") or self.has_spaces_around(token):
            if before != "operator":
                for replacement in SIGNS.get(token.text, []):
                    self.replace(token, replacement)
        if token.text == "?":
            self.swap_alternatives(token)

    def change_number(self, token, before):
        digits = token.text.replace("'", "").rstrip("uUlL")
        suffix = token.text[len(token.text.rstrip("uUlL")) :]
        if "." in digits:
            self.replace(token, f"1{digits}")
            return
        if before == "=" and self.source[: token.start].rstrip().endswith(") ="):
            return  # a pure virtual function
        is_octal = len(digits) > 1 and digits[0] == "0" and digits[1] not in "xX"
        value = int(digits, 8) if is_octal else int(digits, 0)
        written = (lambda n: f"0{n:o}") if is_octal else str
        for other in {value + 1, max(value - 1, 0)} - {value}:
            self.replace(token, written(other) + suffix)

    def change_word(self, token, before, after):
        for replacement in WORDS.get(token.text, []):
            is_declared = before in ("bool", "String", "void")
            if not is_declared:
                self.replace(token, replacement)
        if before == "::":
            kind = self.word_before_scope(token)
            others = ENUMERATORS.get(kind, [])
            if token.text in others:
                for replacement in others:
                    if replacement != token.text:
                        self.replace(token, replacement)
        if token.text in ("if", "while") and after in ("(", "constexpr"):
            self.fix_condition(token)

    def word_before_scope(self, token):
        match = re.search(r"(\w+)::$", self.source[: token.start])
        return match.group(1) if match else ""

    def closing(self, start):
        """Returns the position of the bracket that closes the one at `start`."""
        depth = 0
        for token in self.tokens:
            if token.start < start or token.kind != "sign":
                continue
            depth += {"(": 1, "[": 1, "{": 1, ")": -1, "]": -1, "}": -1}.get(token.text, 0)
            if depth == 0:
                return token.start
        raise ValueError(f"{self.file}: no closing bracket")

    def fix_condition(self, token):
        start = self.source.index("(", token.end)
        end = self.closing(start)
        condition = self.source[start + 1 : end]
        if DECLARATION.match(condition) and "=" in re.sub("[=!<>]=", "", condition):
            return
        for value in ("true", "false"):
            if condition != value and not (token.text == "while" and value == "true"):
                self.add(start + 1, end, value, f"{token.text} ({value})")

    def swap_alternatives(self, token):
        depth = 0
        colon = None
        nested = 0
        for other in self.tokens:
            if other.start <= token.start:
                continue
            if other.text in ("(", "[", "{"):
                depth += 1
            elif other.text in (")", "]", "}"):
                depth -= 1
            if depth == 0 and other.text == "?":
                nested += 1
            if depth == 0 and other.text == ":" and colon is None:
                if nested:
                    nested -= 1
                else:
                    colon = other
            if depth < 0 or (depth == 0 and other.text in (";", ",") and colon):
                if colon:
                    first = self.source[token.end : colon.start].strip()
                    second = self.source[colon.end : other.start].strip()
                    self.add(
                        token.end, other.start, f" {second} : {first}", "the alternatives swapped"
                    )
                return

    def change_statements(self):
        reader = Reader(self.tokens)
        for sequence in reader.sequences:
            for statement in sequence:
                if statement is not None and self.can_be_removed(statement):
                    self.add(statement.start, statement.end, ";", "removed")
            for first, second in zip(sequence, sequence[1:]):
                if first and second and self.can_be_swapped(first, second):
                    between = self.source[first.end : second.start]
                    swapped = self.text_of(second) + between + self.text_of(first)
                    self.add(first.start, second.end, swapped, "swapped with the next")
        for statement, head in reader.returns:
            self.change_return(statement, head)

    def text_of(self, statement):
        return self.source[statement.start : statement.end]

    def can_be_removed(self, statement):
        if statement.first() in NO_STATEMENTS | {"return", "throw", ";", "static_assert"}:
            return False
        return not DECLARATION.match(self.text_of(statement)[:-1])

    def can_be_swapped(self, first, second):
        never = NO_STATEMENTS | LEAVERS | {";", "static_assert", "for", "else"}
        return first.first() not in never and second.first() not in never

    def change_return(self, statement, head):
        value = self.text_of(statement)[len("return") : -1].strip()
        if not value or value in NO_CHANGE:
            return
        start, end = statement.start, statement.end
        words = [token.text for token in head]
        if not words or "bool" in words[: words.index("(") if "(" in words else 0]:
            self.add(start, end, f"return !({value});", "the opposite returned")
        else:
            self.add(start, end, "return {};", "nothing returned")


def mutants_of(file, source):
    maker = Maker(file, source)
    maker.change_tokens()
    maker.change_statements()
    return sorted(maker.mutants, key=lambda mutant: (mutant.start, mutant.change))

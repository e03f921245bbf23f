"""Single faults that could be made in the program's source, found in its text."""

import random
import re
from dataclasses import dataclass, field
from itertools import zip_longest

from support.places import PRODUCT

COMMENT = r"//[^\n]*|/\*.*?\*/"
STRING = r'R"\((?:.*?)\)"|"(?:\\.|[^"\\\n])*"'
CHARACTER = r"(?<![0-9])'(?:\\.|[^'\\])'"
WORDLESS = re.compile(r"#include|static_assert|extern")
# The beginning of a unit that cannot be dropped: a declaration or the head of a block.
NO_STATEMENT = re.compile(
    r"(if|for|while|else|case|return \S|const|constexpr|using|struct|auto|explicit"
    r"|[\w:<>, ]+ \*?&?\w+( = .*|\(.*|\{.*)?;|[}#:(&])")
# A call that changes something; other calls only read.
CHANGING = r"(?:add|set|drop|rename|execute)\w*\(|query\.exec"
# A value that is set or added to: exchanging it with its neighbour makes no difference.
SETTING = re.compile(r"\s*[\w.]+ (=\s[^()]*|(<<|\+=)\s[^;]*);")


@dataclass(frozen=True)
class Mutant:
    """One place in a file, and the text that replaces it."""

    file: str
    kind: str
    start: int
    end: int
    replacement: str
    function: str
    before: str
    after: str
    above: str = field(repr=False)

    def text(self, source):
        return source[:self.start] + self.replacement + source[self.end:]

    def key(self):
        """A key that stays the same when other lines change; for a dropped line it has the line
        above."""
        if not self.after:
            return self.file, self.function, f"{self.above} {self.before}", self.above
        return self.file, self.function, self.before, self.after


class Source:
    """A file, and all the faults that could be made in it."""

    mutant = Mutant

    def __init__(self, file, text):
        self.file = file
        self.text = text
        # One search finds both: a comment has no strings, and a string no comments.
        parts = f"(?P<comment>{COMMENT})|(?P<string>{STRING})|(?P<character>{CHARACTER})"
        # The text with blanks for comments and strings; every position stays the same.
        self.code = re.sub(parts, lambda match: " " * len(match[0]) if match["comment"] else
                           '"' + "_" * (len(match[0]) - 2) + '"', self.text, flags=re.S)
        self.strings = []
        for match in re.finditer(parts, self.text, flags=re.S):
            line = self.text[self.text.rfind("\n", 0, match.start()) + 1:match.start()]
            if match["string"] and not WORDLESS.search(line):
                self.strings.append(match)
        assert len(self.code) == len(self.text)

    def faults(self):
        """Kind, start, end and replacement of each."""
        return (*self.texts(), *self.letter_cases(), *self.statements(), *self.lists(),
                *self.operators(), *self.conditions(), *self.numbers(), *self.returns(),
                *self.arguments())

    def function_at(self, place):
        """The name of the function that a place is in, empty before the first one."""
        heads = re.findall(r"^[^\s#/}].*?([~\w]+)\(", self.code[:place], re.M)
        return heads[-1] if heads else ""

    def mutants(self):
        found = []
        for kind, start, end, replacement in self.faults():
            first = self.text.rfind("\n", 0, start) + 1
            above = self.text[:first].rstrip().rpartition("\n")[2]
            last = self.text.find("\n", end - 1)
            before = self.text[first:last]
            after = self.text[first:start] + replacement + self.text[end:last]
            if before != after:
                found.append(self.mutant(self.file, kind, start, end, replacement,
                                         self.function_at(start), one_line(before),
                                         one_line(after), one_line(above)))
        return found

    def texts(self):
        """A character of a message or of a statement becomes the next one, or is removed."""
        for match in self.strings:
            # One in every 60 characters of a long text.
            for begin in range(match.start(), match.end(), 60):
                piece = range(max(begin, match.start() + 1), min(begin + 60, match.end() - 1))
                places = [place for place in piece if self.text[place - 1] != "\\"
                          and self.text[place] not in "\\\""]
                if not places:
                    continue
                place = choose(places, f"{begin - match.start()} {match[0]}")
                character = self.text[place]
                following = {"z": "a", "Z": "A", "9": "0"}.get(character, chr(ord(character) + 1))
                yield "text", place, place + 1, following if character.isalnum() else ""

    def letter_cases(self):
        """A letter of a string that is just a name, such as a table's or a column's."""
        for match in self.strings:
            rest = self.text[match.end():self.text.find("\n", match.end())]
            if re.fullmatch(r'"[A-Za-z]\w*"', match[0]) and "CaseInsensitive" not in rest:
                places = [place for place in range(match.start() + 1, match.end() - 1)
                          if self.text[place].isalpha()]
                place = choose(places, match[0])
                yield "letter case", place, place + 1, self.text[place].swapcase()

    def units(self):
        """Drops whole statements, and whole elements of lists in which everything runs."""
        lines = self.code.split("\n")
        ends, place = [], 0
        for line in lines:
            place += len(line) + 1
            ends.append(place)
        previous = ""
        first = None
        for number, line in enumerate(lines):
            stripped = line.strip()
            if not stripped:
                continue
            if previous.endswith(("{", "}", ";", "),")) and line.startswith("    "):
                first = number
            previous = stripped
            if first is None:
                continue
            start = ends[first] - len(lines[first]) - 1
            unit = self.code[start:ends[number]]
            balanced = all(unit.count(a) == unit.count(b) for a, b in ("()", "{}"))
            if balanced and stripped.endswith((";", "),")):
                if not NO_STATEMENT.match(" ".join(unit.split())):
                    yield start, ends[number], stripped[-1]
                first = None

    def statements(self):
        if not self.file.endswith(".cpp"):
            return
        units = list(self.units())
        for start, end, _ in units:
            yield "statement dropped", start, end, ""
        for (start, middle, mark), (second, end, other) in zip(units, units[1:]):
            if middle == second and mark == other and not (
                    SETTING.match(self.code, start) or SETTING.match(self.code, second)):
                swapped = self.text[middle:end] + self.text[start:middle]
                yield "statements swapped", start, end, swapped

    def lists(self):
        """Stopping at the first failure where everything must run, and the other way round."""
        for match in re.finditer(r"allSucceeded\(\{", self.code):
            end = self.code.index("})", match.end())
            inner = self.text[match.end():end].rstrip().rstrip(",")
            depth, joined = 0, ""
            for place, character in enumerate(inner):
                blanked = self.code[match.end() + place]
                depth += (blanked in "({") - (blanked in ")}")
                joined += " &&" if blanked == "," and depth == 0 else character
            # A comment at the end of a line does no harm.
            yield "run-all list", match.start(), end + 2, "(" + joined + ")"
        for match in re.finditer(r"(\w+) &= (?!readToTheEnd)", self.code):
            yield "run-all list", match.start(), match.end(), f"{match[1]} = {match[1]} && "
        for match in re.finditer(rf"\) &&(?=\s+(?:{CHANGING}))", self.code):
            yield "run-all list", match.start() + 2, match.end(), "&"

    def operators(self):
        others = {"&&": "||", "||": "&&", "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=",
                  ">=": ">", "++": "--"}
        for match in re.finditer(r"(?<= )(&&|\|\||==|!=|<=|>=|<|>)(?= |\n)|\+\+(?=\w)", self.code):
            yield "condition", match.start(), match.end(), others[match[0]]

    def conditions(self):
        for match in re.finditer(r"\b(?:if|while) \((?!const auto)(.*)\) \{$", self.code, re.M):
            condition = self.text[match.start(1):match.end(1)]
            yield "condition", match.start(1), match.end(1), f"!({condition})"
        for match in re.finditer(r"(?<=[\s(])!(?=[\w(])", self.code):
            yield "condition", match.start(), match.end(), ""

    def numbers(self):
        for match in re.finditer(r"(?<![\w.%'])\d[\d']*(?![\w.])", self.code):
            line = self.code[self.code.rfind("\n", 0, match.start()) + 1:].split("\n")[0].strip()
            if line.startswith("#"):
                continue
            version = re.match(r"m_currentVersion = \d+;|\d+,$|\{\d+, ", line)
            number = int(match[0].replace("'", ""))
            for other in (number + 1, number - 1) if version else (number + 1,):
                kind = "version number" if version else "number"
                yield kind, match.start(), match.end(), str(other)

    def returns(self):
        for match in re.finditer(r"\breturn ([^;{]+);", self.code):
            value = self.text[match.start(1):match.end(1)]
            other = {"true": "false", "false": "true"}.get(value, f"!({value})")
            yield "returned value", match.start(1), match.end(1), other

    def arguments(self):
        """Two neighbours in a call."""
        if self.file.endswith(".h"):
            return
        one = r"((?:[^(),;{}\n]|\([^(),;{}\n]*\))+)"
        for match in re.finditer(rf"(?<=[\w>]\(){one}(,\s+){one}(?=[,)])", self.code):
            first, second = (self.text[slice(*match.span(group))] for group in (1, 3))
            if not re.match(r"(const |int |[A-Z]\w+ [&*\w])", first):
                yield "argument order", match.start(), match.end(), second + match[2] + first


def choose(values, text):
    """The same choice in every run, wherever the text is."""
    return random.Random(text).choice(values)


def one_line(text):
    return " ".join(text.split())


def sources(root):
    return [Source(str(path.relative_to(root)), path.read_text(encoding="utf-8"))
            for folder in PRODUCT for path in sorted((root / folder).iterdir())
            if path.suffix in (".cpp", ".h")]


def in_turns(lists):
    """The first value of every list, then the second ones, and so on."""
    return [value for row in zip_longest(*lists) for value in row if value is not None]


def all_mutants(root):
    """All faults that could be made in the program, in such an order."""
    return spread(sources(root))


def spread(sources):
    """All faults, in an order in which the first N are spread over the files and the kinds."""
    files = []
    for source in sources:
        kinds = {}
        for mutant in source.mutants():
            kinds.setdefault(mutant.kind, []).append(mutant)
        for mutants in kinds.values():
            random.Random(source.file).shuffle(mutants)
        files.append(in_turns(kinds.values()))
    return in_turns(files)

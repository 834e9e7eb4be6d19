"""The changes that script/mutants makes to a source, and the source with all of them in it.

Each expression that can be changed becomes a choice made at run time: `a < b` is written as
`(kMutant == 12 ? (a <= b) : (a < b))`, so that one build serves all changes of all sources. Where C++ wants
a constant no choice can stand: such a change is `alone`, it gets a build of its own.
"""
import dataclasses
import re

from clang import cindex
from clang.cindex import CursorKind as Kind

# The header that the rewritten sources include. It leans on getenv alone, which no test replaces.
HEADER = """#pragma once
#include <stdlib.h>
static inline int ReadMutant()
{
    int number = 0;
    for (const char *text = getenv("MUTANT"); text && *text; text++)
        number = number * 10 + (*text - '0');
    return number;
}
inline const int kMutant = ReadMutant();
"""

# What takes an operator's place: its neighbour, and its opposite where that is another one.
SWAPS = {"<=": ["<", ">"], ">=": [">", "<"], "<": ["<=", ">="], ">": [">=", "<="], "==": ["!="], "!=": ["=="],
         "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"],
         "&": ["|"], "|": ["&"], "^": ["|"], "<<": [">>"], ">>": ["<<"],
         "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="], "%=": ["/="],
         "&=": ["|="], "|=": ["&="], "^=": ["|="], "<<=": [">>="], ">>=": ["<<="]}
OPPOSITES = {"++": "--", "--": "++", "true": "false", "false": "true"}
NUMBER = re.compile(r"(0[xX][0-9a-fA-F]+|[1-9]\d*|0)([uUlLzZ]*)")
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
DECLARATIONS = (Kind.VAR_DECL, Kind.FUNCTION_DECL, Kind.FUNCTION_TEMPLATE)
# What may stand before a statement; a condition or a step of a loop stands behind something else.
BEFORE_STATEMENT = re.compile(r"([;{}):]|\belse|\bdo)\s*$")


@dataclasses.dataclass
class Mutant:
    path: str
    line: int  # from 1
    text: str  # the line's, for people and for the list of explanations
    change: str
    start: int  # of the expression, as the end in bytes of the source
    end: int
    code: str  # what the expression becomes
    alone: bool  # whether it needs a build of its own
    number: int = 0

    def name(self):
        return f"{self.path}:{self.line}: {self.change}"

    def key(self):
        return self.path, self.text, self.change


def flat(code):
    """Code on one line, without comments."""
    return re.sub(r"\s+", " ", COMMENT.sub(" ", code))


def is_constant(cursor, source):
    """Whether the compiler wants to know what is written inside."""
    head = source[cursor.extent.start.offset:cursor.extent.end.offset].split("{")[0].split("=")[0]
    if cursor.kind == Kind.VAR_DECL:
        return "const" in head and (cursor.semantic_parent.kind == Kind.TRANSLATION_UNIT or "static" in head)
    return cursor.kind == Kind.ENUM_DECL


def is_for_compiler(cursor, source):
    """Whether the compiler works it out by itself and checks it there: a table, a size, a static_assert."""
    code = source[cursor.extent.start.offset:cursor.extent.end.offset]
    if re.fullmatch(r"static constexpr [^=({\[]+ = -?(0x[\da-fA-F]+|\d+)", code):
        return False  # a number with a name
    head = code.split("{")[0].split("=")[0].split("(")[0]
    return cursor.kind == Kind.STATIC_ASSERT or \
        cursor.kind in DECLARATIONS and re.search(r"\bconst(expr|eval)\b", head) is not None


def changes_of(cursor, source, parent):
    """The changes of one expression: (what is shown, code)."""
    start, end = cursor.extent.start.offset, cursor.extent.end.offset
    code = source[start:end]
    parts = [(part.extent.start.offset, part.extent.end.offset) for part in cursor.get_children()]
    binary = cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR)
    operator = flat(source[parts[0][1]:parts[1][0]]).strip() if binary and len(parts) == 2 else ""
    if operator in SWAPS:
        for other in SWAPS[operator]:
            yield (f"{operator} -> {other}",
                   f"{source[start:parts[0][1]]} {other} {source[parts[1][0]:end]}")
    elif cursor.kind == Kind.UNARY_OPERATOR and code[:2] in ("++", "--"):
        yield f"{code[:2]} -> {OPPOSITES[code[:2]]}", OPPOSITES[code[:2]] + code[2:]
    elif cursor.kind == Kind.UNARY_OPERATOR and code[-2:] in ("++", "--"):
        yield f"{code[-2:]} -> {OPPOSITES[code[-2:]]}", code[:-2] + OPPOSITES[code[-2:]]
    elif cursor.kind == Kind.UNARY_OPERATOR and code[:1] == "!":
        yield "! -> nothing", f"static_cast<bool>({code[1:]})"
    elif cursor.kind == Kind.UNARY_OPERATOR and code[:1] in ("-", "~"):
        yield f"{code[:1]} -> nothing", code[1:]
    elif cursor.kind == Kind.CXX_BOOL_LITERAL_EXPR and code in OPPOSITES:
        yield f"{code} -> {OPPOSITES[code]}", OPPOSITES[code]
    elif cursor.kind == Kind.INTEGER_LITERAL and (number := NUMBER.fullmatch(code)):
        yield f"{code} -> {int(number[1], 0) + 1}", f"{int(number[1], 0) + 1}{number[2]}"
    if cursor.kind == Kind.CALL_EXPR or operator == "=" or cursor.kind == Kind.COMPOUND_ASSIGNMENT_OPERATOR:
        if (parent.kind.is_statement() and source[end:].lstrip()[:1] == ";" and
                BEFORE_STATEMENT.search(COMMENT.sub("", source[max(0, start - 1000):start])) and
                (parent.kind != Kind.FOR_STMT or list(parent.get_children())[-1] == cursor)):
            yield "dropped", "static_cast<void>(0)"


def collect(cursor, path, source, found, alone=False, parent=None):
    """Gathers the changes at and below a cursor by their place; a template's text is met once."""
    if is_for_compiler(cursor, source):
        return
    alone = alone or is_constant(cursor, source)
    if cursor.kind.is_expression() and parent is not None:
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        for change, code in changes_of(cursor, source, parent):
            found[start, end, change] = Mutant(path, cursor.extent.start.line, "", change, start, end, code, alone)
    for index, child in enumerate(cursor.get_children()):
        # An expression that only wraps another one, a cast that is not written, is no parent.
        wraps = parent is not None and cursor.kind == Kind.UNEXPOSED_EXPR
        label = cursor.kind == Kind.CASE_STMT and index == 0
        collect(child, path, source, found, alone or label, parent if wraps else cursor)


def told(lines, at):
    """A line's text, with those of as many lines above it as make it the only one."""
    for above in range(5):
        block = lines[at - above:at + 1]
        if sum(lines[i - above:i + 1] == block for i in range(above, len(lines))) == 1:
            break
    return " / ".join(block)


def mutants_of(root, path, unit):
    """All changes of a source in the order of their places. `unit` is what is compiled: a header's includer."""
    with open(f"{root}/{path}", encoding="latin-1") as file:
        source = file.read()
    arguments = ["-std=c++20", "-I", root, "-I", f"{root}/platform/linux/include"]
    tree = cindex.Index.create().parse(f"{root}/{unit}", arguments)
    broken = [str(message) for message in tree.diagnostics if message.severity >= cindex.Diagnostic.Error]
    if broken:
        raise SystemExit("mutants: " + "\n".join(broken))
    found = {}
    for cursor in tree.cursor.get_children():
        if cursor.location.file and cursor.location.file.name == f"{root}/{path}":
            collect(cursor, path, source, found)
    mutants = [found[key] for key in sorted(found, key=lambda key: (key[0], -key[1], key[2]))]
    lines = [line.strip() for line in source.split("\n")]
    seen = {}
    for mutant in mutants:
        mutant.text = told(lines, mutant.line - 1)
        times = seen[mutant.line, mutant.change] = seen.get((mutant.line, mutant.change), 0) + 1
        if times > 1:  # the same change a second time on a line
            mutant.change += f" ({times})"
    return source, mutants


def rewritten(source, mutants):
    """The source with every change that needs no build of its own as a choice, and each choice's line."""
    places = {}
    for mutant in mutants:
        if not mutant.alone:
            places.setdefault((mutant.start, mutant.end), []).append(mutant)
    spans = sorted(places, key=lambda span: (span[0], -span[1]))

    def render(start, end):
        """The text from start to end; takes the places inside it off the list."""
        code = ""
        while spans and spans[0][0] < end:
            span = spans.pop(0)
            code += source[start:span[0]]
            kept = render(*span)
            dropped = [mutant for mutant in places[span] if mutant.change.startswith("dropped")]
            code += "("
            for mutant in places[span]:
                code += f"\nkMutant == {mutant.number} ? ({flat(mutant.code)}) : // mutant {mutant.number}\n"
            code += f"static_cast<void>({kept}))" if dropped else f"({kept}))"
            start = span[1]
        return code + source[start:end]

    return '#include "mutant.h"\n' + render(0, len(source))


def changed(source, mutant):
    """The source with this one change."""
    return source[:mutant.start] + mutant.code + source[mutant.end:]

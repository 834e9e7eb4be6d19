#!/usr/bin/env python3
"""Makes C of the product's C++, for a checker that reads no C++: the same statements in the same order.

as_c.py FILE [NAME...] prints FILE as C, or of it only what is named: functions, types and constants.

Rewritten are casts, attributes, nullptr and constexpr. A template becomes a copy for each argument that it
is called with, Name<argument> as Name_argument; one that is named as Name<argument> keeps its name. A
structure's name becomes a type, a reference to an array a pointer to its first element. All else that is
not C stops the compiler.
"""

import os
import re
import sys

TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|.', re.S)
TEMPLATE = re.compile(r'template <(?:typename|class|bool) (\w+)>\s*')
# What an item's name stands before: a function's parameters, a type's body, a variable's value.
NAMES = (re.compile(r'^[^={]*?(\w+)\([^=;]*\)\s*(?:\{|$)', re.S), re.compile(r'^(?:struct|enum)(?: class)? (\w+)'),
         re.compile(r'^[^={]*?(\w+)\s*(?:\[[^=]*\])?\s*(?:=|;|$)', re.S))
CASTS = re.compile(r'\b(?:static|reinterpret|const)_cast<')
CONSTANT = re.compile(r'^[ \t]*(?:static )?(?:constexpr|const(?= \w+ k[A-Z]))\s+([\w ]+?)\s+(\w+) = ([^;{]+);', re.M)
WORDS = (
    (r'\[\[[^\]]*\]\]\s*', ''),
    (r'\bnullptr\b', 'NULL'),
    (r'\bconstinit\b', ''),
    (r'\b(?:static )?constexpr (?=\w[^;{]*\()', 'static '),  # a function
    (r'\b(?:static )?constexpr\b', 'static const'),
    (r'\b(u?int\d+_t|size_t)\{([^{}]*)\}', r'((\1)(\2))'),
    (r'(\w+) \(&(\w+)\)\[\w+\]', r'\1 *\2'),
    (r' = \{\};', ' = {0};'),
    (r'/\*\w+\*/', ''),
)


def tokens(text, at=0):
    return TOKEN.finditer(text, at)


def without_comments(text):
    return "".join(" " if t.group()[:2] in ("//", "/*") else t.group() for t in tokens(text))


def closing(text, at):
    """Where the bracket that opens at `at` closes."""
    opening = text[at]
    end = {"(": ")", "{": "}", "<": ">"}[opening]
    depth = 0
    for token in tokens(text, at):
        depth += (token.group() == opening) - (token.group() == end)
        if depth == 0:
            return token.start()
    sys.exit(f"as_c: no closing {end}: {text[at:at + 60]!r}")


def items(text):
    """The preprocessor's lines and the declarations of a file, in order."""
    text = without_comments(text)
    at = 0
    while text[at:].strip():
        at += len(text[at:]) - len(text[at:].lstrip())
        end = at
        if text[at] == "#":
            end = re.compile(r'(?<!\\)\n|\Z').search(text, at).start()
        elif scope := re.match(r'\}|(?:namespace\b|extern "C")[^{;]*\{', text[at:]):  # what is in it counts, not the scope
            at += scope.end()
            continue
        else:
            while text[end] not in ";{":
                end = (closing(text, end) if text[end] == "(" else end) + 1
            if text[end] == "{":
                is_function = text[:end].rstrip().endswith(")")
                end = closing(text, end)
                end = end if is_function else text.index(";", end)
            end += 1
        yield text[at:end]
        at = end


def name_of(item):
    item = TEMPLATE.sub("", re.sub(r'\[\[.*?\]\]\s*', '', item))
    return next((m.group(1) for m in (pattern.search(item) for pattern in NAMES) if m), None)


def substituted(parameter, argument, body):
    return re.sub(rf'\b{parameter}\b', argument, body)


def mangled(name, argument):
    return re.sub(r'\W+', '_', f"{name}_{argument.strip()}")


def with_copies(parts, named, others=()):
    """The items with each template replaced by its copies, and calls of these by their names, also of the
    templates among the others."""
    templates = {name_of(part): (TEMPLATE.match(part).group(1), TEMPLATE.sub("", part, count=1))
                 for part in [*parts, *others] if TEMPLATE.match(part)}
    copies = {name: {} for name in templates}
    for name, argument in named.items():
        copies[name][argument] = name
    call = re.compile(rf'\b({"|".join(templates) or "-"})<([^<>();]+)>')
    texts = [part for part in parts if not TEMPLATE.match(part)]
    texts += [substituted(templates[name][0], argument, templates[name][1]) for name, argument in named.items()]
    while texts:
        for name, argument in call.findall(texts.pop()):
            if argument not in copies[name]:
                copies[name][argument] = mangled(name, argument)
                texts.append(substituted(templates[name][0], argument, templates[name][1]))
    for part in parts:
        bodies = [part]
        if TEMPLATE.match(part):
            name = name_of(part)
            bodies = [re.sub(rf'\b{name}(?=\()', copy, substituted(templates[name][0], argument, templates[name][1]), count=1)
                      for argument, copy in copies[name].items()]
        yield from (call.sub(lambda m: copies[m.group(1)][m.group(2)], body) for body in bodies)


def with_enums(parts):
    """Scoped enumerations with their scope in the enumerators' names."""
    scopes = {}
    for part in parts:
        if match := re.match(r'enum class (\w+) \{(.*)\};', part, re.S):
            scope, members = match.group(1), re.findall(r'\w+', match.group(2))
            scopes[scope] = members
            part = f"typedef enum {scope} {{ {', '.join(f'{scope}_{m}' for m in members)} }} {scope};"
        for scope, members in scopes.items():
            local = ", ".join(f"{m} = {scope}_{m}" for m in members)
            part = part.replace(f"using enum {scope};", f"enum {{ {local} }};").replace(f"{scope}::", f"{scope}_")
        yield part


def as_c(item):
    """One item in C."""
    if item.startswith("#"):
        return item
    while match := CASTS.search(item):
        end = closing(item, match.end() - 1)
        value = closing(item, end + 1)
        item = f"{item[:match.start()]}(({item[match.end():end]})({item[end + 2:value]})){item[value + 1:]}"
    item = CONSTANT.sub(r'\n#undef \2\n#define \2 ((\1)(\3))\n', item)
    for pattern, replacement in WORDS:
        item = re.sub(pattern, replacement, item)
    for target in re.findall(r'^\s*\*(\w+) = \{', item, re.M):  # an assignment of a whole structure
        kind = re.search(rf'(\w+) \*{target}\b', item).group(1)
        item = item.replace(f"*{target} = {{", f"*{target} = ({kind}){{")
    if match := re.match(r'struct (\w+) \{', item):
        item = f"typedef struct {match.group(1)} {match.group(1)};\n{item}"
    return item


def expanded(path, read, seen):
    """The text of a file of ours with those that it includes, but for headers that serve C too."""
    def included(match):
        beside = os.path.join(os.path.dirname(path), match.group(1))
        other = beside if os.path.exists(beside) else match.group(1)
        if other in seen:
            return ""
        seen.add(other)
        text = expanded(other, read, seen)
        return match.group() if "__cplusplus" in text else text
    return re.sub(r'^#include "([\w/.]+)"$', included, read(path), flags=re.M)


def rewritten(path, names=(), read=lambda path: open(path, encoding="utf-8").read()):
    """A file as C, or what of it is named; `read` gives the text of a path from the project's folder."""
    text = expanded(path, read, set())
    named = dict(re.match(r'(\w+)<(\w+)>', name).groups() for name in names if "<" in name)
    names = [name.partition("<")[0] for name in names]
    parts = list(items(text))
    others = parts
    if names:
        missing = set(names) - {name_of(part) for part in parts}
        if missing:
            sys.exit(f"as_c: not in the text: {', '.join(sorted(missing))}")
        parts = [part for part in parts if name_of(part) in names and not part.startswith("extern ")]
    lines = "\n\n".join(as_c(part) for part in with_enums(with_copies(parts, named, others)))
    return "#include <stdbool.h>\n#include <stddef.h>\n\n" + lines + "\n"


if __name__ == "__main__":
    print(rewritten(sys.argv[1], sys.argv[2:]), end="")

#!/usr/bin/env python3
"""Holds classes, functions and files of the product against the sizes that a reader can take in.

usage: sizes.py [--root FOLDER]

A class has at most 30 members: its own data and functions, not what is deleted or defaulted, not
friends, aliases, or what nested types have. A function has at most 40 lines, a file at most 400.
Tables may be longer; each is named below with the reason. The figures are printed in any case.

The sources are cut into tokens and brackets, no more: what the macros of this tree expand to does
not matter here. Of alternatives that the preprocessor chooses between, the first is read.
"""

import collections
import pathlib
import re
import sys

import treeCheck

CLASS_LIMIT = 30
FUNCTION_LIMIT = 40
FILE_LIMIT = 400

PRODUCT = ("platform", "index", "bridge", "presentation", "extension", "sqlite", "host", "service",
           "cli")
WITH_CLASSES = ("service", "host")
SOURCES = {".h", ".cpp", ".mm", ".m"}

# What may be longer, since it is a list and not a course of events.
LONG_FILES = {
    "platform/apple/GraphemeBreakTable.h": "the ranges of Unicode's break property",
}
LONG_FUNCTIONS = {
    "platform/linux/ContentTypes.cpp:extensionTable": "what file extensions stand for",
    "platform/linux/ContentTypes.cpp:mimeTable": "what the system's names of types stand for",
}

Token = collections.namedtuple("Token", "text line")
Function = collections.namedtuple("Function", "path name line lines")
Class = collections.namedtuple("Class", "path name line members")

TOKEN = re.compile(
    r"""(?P<space>\s+|\\\n)
      | (?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<raw>(?:u8|[uUL])?R"(?P<mark>[^()\\\s]{0,16})\(.*?\)(?P=mark)")
      | (?P<string>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
      | (?P<character>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
      | (?P<number>\.?\d(?:[eEpP][+-]|'(?=\w)|[\w.])*)
      | (?P<word>\w+)
      | (?P<mark2>::|->\*?|<=>|[-+*/%&|^!<=]=|&&|\|\||\+\+|--|<<|.)""",
    re.VERBOSE | re.DOTALL)

OBJECTIVE_C_LINE = re.compile(
    r"^[ \t]*@(?:implementation|end|protocol|class|property|optional|required|synthesize|dynamic)\b"
    r"[^\n]*", re.MULTILINE)
OBJECTIVE_C_INTERFACE = re.compile(r"^[ \t]*@interface[^\n{]*(\{?)", re.MULTILINE)

OPENING = {"(": ")", "[": "]", "{": "}"}
TYPE_WORDS = {"class", "struct", "union"}
NO_MEMBERS = {"using", "typedef", "friend", "static_assert"}
BEFORE_TYPES = {"typedef", "static", "inline", "constexpr", "const", "constinit"}


class SourceError(Exception):
    """The brackets of a file do not match, so nothing can be said of it."""


def firstAlternatives(text):
    """The text without directives, and without what follows #else and #elif; lines stay."""
    kept, skipping, folded = [], [], False
    for line in text.split("\n"):
        directive = re.match(r"\s*#\s*(\w*)", line)
        if directive and not folded:
            word = directive.group(1)
            if word in ("if", "ifdef", "ifndef"):
                skipping.append(False)
            elif word in ("else", "elif") and skipping:
                skipping[-1] = True
            elif word == "endif" and skipping:
                skipping.pop()
        drop = directive is not None or folded or any(skipping)
        folded = drop and (directive is not None or folded) and line.endswith("\\")
        kept.append("" if drop else line)
    return "\n".join(kept)


def withoutDirectives(text):
    """As firstAlternatives, but a raw string may contain lines that look like directives."""
    pieces, at = [], 0
    for found in re.finditer(r'R"([^()\\\s]{0,16})\(.*?\)\1"', text, re.DOTALL):
        pieces.append(text[at:found.start()])
        pieces.append('""' + "\n" * found.group().count("\n"))
        at = found.end()
    return firstAlternatives("".join(pieces) + text[at:])


def withoutObjectiveC(text):
    text = OBJECTIVE_C_LINE.sub("", text)
    return OBJECTIVE_C_INTERFACE.sub(lambda m: "struct I {" if m.group(1) else "", text)


def tokensOf(text):
    result, line = [], 1
    for found in TOKEN.finditer(text):
        kind, part = found.lastgroup, found.group()
        if kind in ("raw", "string", "character") or found.group("raw"):
            result.append(Token('""', line))
        elif kind not in ("space", "comment"):
            result.append(Token(part, line))
        line += part.count("\n")
    return joinOperators(result)


def joinOperators(tokens):
    """Makes one token of the word "operator" and the sign after it."""
    result, at = [], 0
    while at < len(tokens):
        token = tokens[at]
        at += 1
        if token.text == "operator":
            name = ""
            if [t.text for t in tokens[at:at + 2]] == ["(", ")"]:
                name, at = "()", at + 2
            while at < len(tokens) and tokens[at].text not in ("(", ";"):
                name, at = name + tokens[at].text, at + 1
            token = Token("operator" + name, token.line)
        result.append(token)
    return result


class Reader:
    """Goes through the declarations of one file and collects its functions and classes."""

    def __init__(self, path, tokens):
        self.path = path
        self.tokens = tokens
        self.at = 0
        self.functions = []
        self.classes = []

    def skipGroup(self):
        """Behind the bracket that closes the one here; returns its line."""
        waiting = []
        while self.at < len(self.tokens):
            token = self.tokens[self.at]
            self.at += 1
            if token.text in OPENING:
                waiting.append(OPENING[token.text])
            elif token.text in OPENING.values():
                if not waiting or waiting.pop() != token.text:
                    break
                if not waiting:
                    return token.line
        raise SourceError(f"{self.path}: the brackets do not match")

    def skipAngles(self):
        depth = 0
        while self.at < len(self.tokens):
            text = self.tokens[self.at].text
            if text in OPENING:
                self.skipGroup()
                continue
            self.at += 1
            depth += {"<": 1, ">": -1}.get(text, 0)
            if depth == 0:
                return

    def scope(self, owner=None):
        """Reads declarations up to the end of the scope; returns how many members it declares."""
        members = 0
        while self.at < len(self.tokens) and self.tokens[self.at].text != "}":
            members += self.declaration(owner)
        return members

    def declaration(self, owner):
        """One declaration; returns how many members it brings its class."""
        head, commas, initialised = [], 0, False
        while self.at < len(self.tokens):
            token = self.tokens[self.at]
            text = token.text
            if text == ";":
                self.at += 1
                return self.membersOf(head, commas)
            if text == "}":
                return self.membersOf(head, commas)
            if text == "{":
                ended, members = self.braces(head, initialised)
                if ended:
                    return members
                continue
            if text in ("(", "["):
                self.skipGroup()
                head += [token, Token(OPENING[text], token.line)]
                continue
            if text == "<" and not initialised and head:
                self.skipAngles()
                if [t.text for t in head] == ["template"]:
                    head.clear()
                else:
                    head.append(Token("<>", token.line))
                continue
            self.at += 1
            if text == ":" and len(head) == 1 and head[0].text in ("public", "protected", "private"):
                head.clear()
                continue
            initialised = (initialised or text == "=") and text != ","
            commas += text == ","
            head.append(token)
        return 0

    def braces(self, head, initialised):
        """What the brace here begins; whether that ends the declaration, and its members."""
        words = [t.text for t in head]
        if not words or "namespace" in words or words == ["extern", '""']:
            self.enter()
            self.scope()
            self.leave()
            return True, 0
        if "enum" in words:
            self.skipGroup()
            head[:] = [Token("}", head[0].line)]
            return False, 0
        if isType(words):
            return self.type(head)
        if not initialised and isFunction(words):
            first = head[0]
            last = self.skipGroup()
            self.functions.append(
                Function(self.path, nameOf(words), first.line, last - first.line + 1))
            return True, 1
        self.skipGroup()
        head.append(Token("}", head[-1].line))
        return False, 0

    def type(self, head):
        name, line = typeName([t.text for t in head]), head[0].line
        self.enter()
        members = self.scope(name)
        self.leave()
        self.classes.append(Class(self.path, name, line, members))
        head[:] = [Token("}", line)]
        return False, 0

    def enter(self):
        self.at += 1

    def leave(self):
        if self.at >= len(self.tokens):
            raise SourceError(f"{self.path}: the brackets do not match")
        self.at += 1

    @staticmethod
    def membersOf(head, commas):
        words = [t.text for t in head]
        if not words or words[0] in NO_MEMBERS:
            return 0
        if words[-2:] in (["=", "default"], ["=", "delete"]):
            return 0
        if words[0] == "}":  # a nested type, and perhaps a member of it
            return commas + 1 if len(words) > 1 else 0
        if words[0] == "enum" or (words[0] in TYPE_WORDS and len(words) == 2):
            return 0
        return commas + 1


def isType(words):
    """Whether a brace after these words begins the body of a class."""
    kept = [w for w in words if w not in BEFORE_TYPES]
    if not kept or kept[0] not in TYPE_WORDS:
        return False
    for position, word in enumerate(kept):
        if word == ":":
            kept = kept[:position]
            break
    return kept[-1] not in (")", "const", "noexcept", "override")


def typeName(words):
    for position, word in enumerate(words):
        if word == ":":
            words = words[:position]
            break
    names = [w for w in words if re.match(r"\w", w) and w not in TYPE_WORDS | {"final"}]
    return names[-1] if names else "(no name)"


def isFunction(words):
    """Whether a brace after these words begins the body of a function."""
    if "(" not in words:
        return False
    if words[0] in ("-", "+"):
        return True
    afterParameters = words[words.index(")"):]
    # Members may be initialised in braces: those follow a name, the body does not.
    if ":" in afterParameters:
        return words[-1] in (")", "}")
    return True


def nameOf(words):
    if words[0] in ("-", "+"):
        return "".join(w for w in words[3:] if re.match(r"\w|:", w))
    before = words[:words.index("(")]
    name = before[-1:]
    if before[-2:-1] == ["~"]:
        before.pop()
        name.insert(0, "~")
    before.pop()
    while before[-1:] == ["::"]:
        before.pop()
        if before[-1:] == ["<>"]:
            before.pop()
        name.insert(0, (before.pop() if before else "") + "::")
    return "".join(name)


def read(path, text):
    if path.endswith((".mm", ".m")) or "@interface" in text:
        text = withoutObjectiveC(text)
    reader = Reader(path, tokensOf(withoutDirectives(text)))
    reader.scope()
    if reader.at < len(reader.tokens):
        raise SourceError(f"{path}: the brackets do not match")
    return reader


def sourcesIn(root):
    for folder in PRODUCT:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in SOURCES:
                yield path


def check(root):
    """All that is too large, the lines of each file, and the lines of each function."""
    faults, files, functions = [], [], []
    for path in sourcesIn(root):
        name, text = path.relative_to(root).as_posix(), path.read_text(encoding="utf-8")
        lines = text.count("\n")
        files.append(lines)
        if lines > FILE_LIMIT and name not in LONG_FILES:
            faults.append(f"{name}: {lines} lines, at most {FILE_LIMIT}")
        reader = read(name, text)
        functions += [f.lines for f in reader.functions]
        faults += [f"{name}:{f.line}: {f.name}() has {f.lines} lines, at most {FUNCTION_LIMIT}"
                   for f in reader.functions
                   if f.lines > FUNCTION_LIMIT and f"{name}:{f.name}" not in LONG_FUNCTIONS]
        if name.startswith(tuple(folder + "/" for folder in WITH_CLASSES)):
            faults += [f"{name}:{c.line}: {c.name} has {c.members} members, at most {CLASS_LIMIT}"
                       for c in reader.classes if c.members > CLASS_LIMIT]
    return faults, files, functions


def figures(values):
    """The median, what nine of ten do not exceed, and the largest."""
    ordered = sorted(values)
    at = lambda part: ordered[min(len(ordered) - 1, int(part * len(ordered)))]
    return f"median {at(0.5)}, 90 % at most {at(0.9)}, largest {ordered[-1]}"


def look(root):
    faults, files, functions = check(root)
    if not files or not functions:
        return faults, 0, []
    return faults, len(files), [
        f"lines of a file: {figures(files)} ({len(files)} files)",
        f"lines of a function: {figures(functions)} ({len(functions)} functions)",
        f"{len(faults)} too large"]


def main():
    return treeCheck.run(__doc__, look, (SourceError, OSError))


if __name__ == "__main__":
    sys.exit(main())

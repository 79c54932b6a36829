#!/usr/bin/env python3
"""Keeps the service's SQL in the replica: elsewhere its functions say what happens.

usage: sqlOnlyInReplica.py [--root FOLDER]

Looks through the C++ files of service/ but those of service/replica/, and the probe that reads the
host's index, which is no part of the replica. A fault is a string that
holds an SQL statement, or a part of one; a name of SQLite's (sqlite3_...); a name of the wrapper's
(sqlite::...) but DatabaseError, which anybody may catch; and a header of either or of the replica's
way to its connection. Comments may say what they like.
"""

import pathlib
import re
import sys

import treeCheck

WHERE = "service"
EXCEPT = "service/replica"
# Reads the host's database as the provider does, to see whether it can be read.
PROBE = "service/listing/IndexProbe."
SOURCES = {".h", ".cpp"}
PRIVATE_HEADERS = {"sqlite3.h", "sqlite/Connection.h", "sqlite/Statement.h",
                   "service/replica/Sql.h", "service/replica/ReplicaColumns.h",
                   "service/replica/Schema.h", "service/replica/GatheringLog.h"}

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<include>^[ \t]*\#[ \t]*include[ \t]*(?:"[^"\n]*"|<[^>\n]*>))
      | (?P<raw>(?:u8|[uUL])?R"(?P<mark>[^()\\\s]{0,16})\(.*?\)(?P=mark)")
      | (?P<string>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
      | (?P<character>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
      | (?P<number>\.?\d(?:'(?=\w)|[\w.])*)
      | (?P<name>\w+(?:::\w+)*)
      | (?P<other>.)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE)

# Written in capitals, as all statements of this tree are, so that messages may use the words.
STATEMENT = re.compile(
    r"\b(?:SELECT\b.*\S|INSERT\s+(?:OR\s+\w+\s+)?INTO\b|REPLACE\s+INTO\b|UPDATE\s+\S+\s+SET\b"
    r"|DELETE\s+FROM\b|(?:CREATE|DROP|ALTER)\s+(?:UNIQUE\s+)?(?:TABLE|INDEX|VIEW|TRIGGER)\b"
    r"|PRAGMA\s+\w|WITH\s+RECURSIVE\b|(?:ORDER|GROUP)\s+BY\b|WHERE\s+\S+\s*(?:[=<>]|IS|IN\b)"
    r"|SAVEPOINT\s+\w|RELEASE\s+\w|ROLLBACK\b|BEGIN\s+(?:IMMEDIATE|EXCLUSIVE|DEFERRED)\b)",
    re.DOTALL)


def literal(kind, text):
    """What stands between the quotes."""
    if kind == "raw":
        return text[text.index("(") + 1:text.rindex(")")]
    return text[text.index('"') + 1:-1]


def faultOfName(name):
    if name.startswith("sqlite3"):
        return f"{name} is SQLite itself"
    parts = name.split("::")
    if "sqlite" in parts[:-1] and parts[parts.index("sqlite") + 1] != "DatabaseError":
        return f"{name} is for the replica"
    if name == "sqlOf":
        return "sqlOf leads past the replica's functions"
    return None


def faultOfInclude(text):
    header = re.search(r'["<](.*)[">]', text).group(1)
    return f"{header} is for the replica" if header in PRIVATE_HEADERS else None


def faultOf(kind, text):
    if kind == "include":
        return faultOfInclude(text)
    if kind == "name":
        return faultOfName(text)
    return None


def faultsIn(text):
    """The line and the fault of each, in order. Strings that follow one another are one."""
    strings, start = [], None
    for token in TOKEN.finditer(text):
        kind, value = token.lastgroup, token.group()
        if kind == "mark":
            kind = "raw"
        if kind == "comment" or value.isspace():
            continue
        line = text.count("\n", 0, token.start()) + 1
        if kind in ("raw", "string"):
            start = start or line
            strings.append(literal(kind, value))
            continue
        if strings and STATEMENT.search("".join(strings)):
            yield start, "SQL: " + " ".join("".join(strings).split())[:60]
        strings, start = [], None
        fault = faultOf(kind, value)
        if fault:
            yield line, fault


def sourcesIn(root):
    for path in sorted((root / WHERE).rglob("*")):
        name = path.relative_to(root).as_posix()
        if path.suffix in SOURCES and not name.startswith((EXCEPT + "/", PROBE)):
            yield name, path


def check(root):
    """All faults of the tree, and how many files were read."""
    faults, count = [], 0
    for name, path in sourcesIn(root):
        text = path.read_text(encoding="utf-8")
        faults.extend(f"{name}:{line}: {fault}" for line, fault in faultsIn(text))
        count += 1
    return faults, count


def look(root):
    faults, count = check(root)
    return faults, count, [f"{count} files read, {len(faults)} places with SQL outside {EXCEPT}"]


def main():
    return treeCheck.run(__doc__, look)


if __name__ == "__main__":
    sys.exit(main())

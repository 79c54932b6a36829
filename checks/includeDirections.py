#!/usr/bin/env python3
"""Holds the tree's includes against the arrows of the architecture page.

usage: includeDirections.py [--root FOLDER]

The page, docs/architecture.md, has two fenced blocks that this reads:

  ```arrows              FOLDER -> FOLDER...     whose headers a folder may include
  ```libraries           HEADER : FOLDER...      who may include a header from outside the tree

A folder in the list covers what is below it, except what a longer name in the list covers; right
of an arrow, FOLDER/* stands for the folder and all that the list has below it. A header of the
second block may end in "*". Headers that it does not name are free for all.
"""

import pathlib
import re
import sys

import treeCheck

PAGE = "docs/architecture.md"
SOURCES = {".h", ".cpp", ".mm", ".m"}
NOT_SOURCE = {"build", ".git", ".cache"}
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s*(?:"([^"]+)"|<([^>]+)>)')


class PageError(Exception):
    """The architecture page does not say what this check needs."""


def block(text, name):
    """The lines of the page's fenced block of that name."""
    found = re.search(rf"^```{name}\n(.*?)^```", text, re.MULTILINE | re.DOTALL)
    if not found:
        raise PageError(f"{PAGE} has no ```{name} block")
    return [line for line in found.group(1).splitlines() if line.strip()]


def table(text, name, separator):
    """The block as a mapping from what stands left of the separator to the words right of it."""
    result = {}
    for line in block(text, name):
        left, found, right = line.partition(separator)
        if not found:
            raise PageError(f"{PAGE}, block {name}: no '{separator}' in '{line}'")
        result[left.strip()] = set(right.split())
    return result


def folderOf(path, folders):
    """The listed folder that the path belongs to: the longest of those that contain it."""
    candidates = [f for f in folders if path.startswith(f + "/")]
    return max(candidates, key=len, default=None)


def spelledOut(arrows):
    """The arrows with every FOLDER/* replaced by the listed folders that it stands for."""
    def foldersFor(target):
        if not target.endswith("/*"):
            return {target}
        return {f for f in arrows if f == target[:-2] or f.startswith(target[:-1])} or {target}
    return {own: set().union(*map(foldersFor, targets)) for own, targets in arrows.items()}


def patternOf(header, patterns):
    """The pattern of the second block that the header falls under, or None."""
    for pattern in patterns:
        if header == pattern or (pattern.endswith("*") and header.startswith(pattern[:-1])):
            return pattern
    return None


def sourcesIn(root):
    for path in sorted(root.rglob("*")):
        parts = path.relative_to(root).parts
        if path.suffix in SOURCES and not NOT_SOURCE.intersection(parts) and "fixtures" not in parts:
            yield path


def faultOf(own, quoted, outside, arrows, libraries):
    """What is wrong with one include in a file of folder `own`, or None."""
    if quoted is not None:
        target = folderOf(quoted, arrows)
        if target is None:
            return f'"{quoted}" does not begin with a folder that {PAGE} lists'
        if target != own and target not in arrows[own]:
            return f'"{quoted}": no arrow {own} -> {target}'
        return None
    pattern = patternOf(outside, libraries)
    if pattern is not None and folderOf(own + "/", libraries[pattern]) is None:
        return f"<{outside}> is not for {own}, only for {' '.join(sorted(libraries[pattern]))}"
    return None


def faultsOf(path, root, arrows, libraries):
    name = path.relative_to(root).as_posix()
    own = folderOf(name, arrows)
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        include = INCLUDE.match(line)
        if not include:
            continue
        fault = (f"its folder is not on {PAGE}" if own is None
                 else faultOf(own, include.group(1), include.group(2), arrows, libraries))
        if fault:
            yield f"{name}:{number}: {fault}"


def check(root):
    """All faults of the tree, and how many files were read."""
    page = (root / PAGE).read_text(encoding="utf-8")
    arrows = spelledOut(table(page, "arrows", "->"))
    libraries = table(page, "libraries", ":")
    unknown = {f for targets in arrows.values() for f in targets} - arrows.keys()
    if unknown:
        raise PageError(f"{PAGE}: arrows to folders that it does not list: {sorted(unknown)}")
    faults, count = [], 0
    for path in sourcesIn(root):
        faults.extend(faultsOf(path, root, arrows, libraries))
        count += 1
    return faults, count


def look(root):
    faults, count = check(root)
    return faults, count, [f"{count} files read, {len(faults)} includes against the arrows"]


def main():
    return treeCheck.run(__doc__, look, (PageError, OSError))


if __name__ == "__main__":
    sys.exit(main())

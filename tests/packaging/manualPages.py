#!/usr/bin/env python3
"""Holds the manual pages against the executable: every command has one, every option is in it, none
is in it that the executable does not have, and groff has nothing to complain about."""

import re
import shutil
import subprocess
import sys

from executable import REPOSITORY, SKIPPED, finish, help_of, options, subcommands

PAGES = REPOSITORY / "docs" / "man"
# Shown by its own --help and described in tulo(1): it is for a first look only.
WITHOUT_PAGE = {"demo"}


def page_text(path):
    text = path.read_text(encoding="utf-8")
    while match := re.match(r"\.so man1/(\S+)\s*$", text):
        path = PAGES / match.group(1)
        text = path.read_text(encoding="utf-8")
    return path, text


def options_in(text):
    """Long options: mdoc writes them as "Fl -name"."""
    return {f"--{name}" for name in re.findall(r"Fl (?:[a-z] , )?-([a-z][a-z-]*)", text)}


def options_of(program, command):
    found = options(program, command)
    for each in subcommands(program, command):
        found |= options(program, command, each)
    return found - {"--help"}


def main():
    program = sys.argv[1]
    failures = []
    pages = {}
    for command in subcommands(program):
        if command in WITHOUT_PAGE:
            continue
        path = PAGES / f"tulo-{command}.1"
        if not path.exists():
            failures.append(f"there is no manual page docs/man/tulo-{command}.1")
            continue
        path, text = page_text(path)
        pages.setdefault(path, (text, set()))[1].update(options_of(program, command))
        for each in subcommands(program, command):
            if not re.search(rf"\b{each}\b", text):
                failures.append(f"{path.name} does not tell of '{command} {each}'")
    for path, (text, wanted) in pages.items():
        described = options_in(text) - {"--help"}
        for name in sorted(wanted - described):
            failures.append(f"{path.name} does not tell of {name}")
        for name in sorted(described - wanted):
            failures.append(f"{path.name} tells of {name}, which the executable does not have")
    overview = (PAGES / "tulo.1").read_text(encoding="utf-8")
    for command in subcommands(program):
        if not re.search(rf"\bIc {command}\b", overview):
            failures.append(f"tulo.1 does not tell of {command}")
    for path in PAGES.glob("*.1"):
        command = path.stem.partition("-")[2]
        if command and command not in help_of(program):
            failures.append(f"{path.name} is of no command")
    if not shutil.which("groff"):
        if failures:
            finish(failures)
        print("skipped: groff is not installed, so the pages' layout was not checked")
        sys.exit(SKIPPED)
    for path in sorted(PAGES.glob("*.1")):
        path, _ = page_text(path)
        result = subprocess.run(["groff", "-mandoc", "-Tutf8", "-ww", "-z", str(path)],
                                capture_output=True, text=True, check=False)
        if result.returncode != 0 or result.stderr:
            failures.append(f"{path.name}: {result.stderr}")
    finish(failures)


if __name__ == "__main__":
    main()

"""What the executable says of itself, for the tests of what is installed beside it."""

import pathlib
import re
import subprocess
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
SKIPPED = 77


def help_of(program, *words):
    return subprocess.run([program, *words, "--help"], capture_output=True, check=True,
                          text=True).stdout


def section(text, title):
    lines = []
    inside = False
    for line in text.splitlines():
        if line and not line.startswith(" "):
            inside = line == title
        elif inside:
            lines.append(line)
    return lines


def subcommands(program, *words):
    return [line.split()[0] for line in section(help_of(program, *words), "Subcommands:")
            if re.match(r"^  [a-z]", line)]


def options(program, *words):
    """The long options of a command."""
    found = set()
    for line in section(help_of(program, *words), "Options:"):
        if line.startswith("  -"):
            found |= {name for name in line.split()[0].split(",") if name.startswith("--")}
    return found


def finish(failures):
    for failure in failures:
        print(failure, file=sys.stderr)
    sys.exit(1 if failures else 0)

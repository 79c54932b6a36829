#!/usr/bin/env python3
"""Says of each folder how many of its lines the tests have run.

usage: coverage.py BUILD [--root FOLDER] [--files]

BUILD is a build folder of the preset `coverage` in which the tests have run. A line counts once,
however often its header is included; it has run when it has in any of the programs. The folders are
those of the architecture page. With --files, each file beside its folder.
"""

import argparse
import collections
import json
import pathlib
import subprocess
import sys

import includeDirections

# What is measured is the product; the tests run themselves.
OTHERS = {"tests", "fuzz", "bench", "packaging/macos", "platform/apple"}


class CoverageError(Exception):
    """There is nothing to be measured."""


def reportsOf(build):
    """What gcov says of each object file that has run, one report for each."""
    notes = [str(path) for path in build.rglob("*.gcda")]
    if not notes:
        raise CoverageError(f"no test has run in {build}: see ./dev coverage --help")
    for begin in range(0, len(notes), 50):
        run = subprocess.run(["gcov", "--json-format", "--stdout", *notes[begin:begin + 50]],
                             cwd=build, capture_output=True, text=True, check=True)
        for line in run.stdout.splitlines():
            if line:
                yield json.loads(line)


def linesRun(reports, root):
    """For each file below the root, its lines that are code, and whether each has run."""
    result = collections.defaultdict(dict)
    for report in reports:
        folder = pathlib.Path(report["current_working_directory"])
        for file in report["files"]:
            path = (folder / file["file"]).resolve()
            if not path.is_relative_to(root):
                continue
            lines = result[path.relative_to(root).as_posix()]
            for line in file["lines"]:
                number = line["line_number"]
                lines[number] = lines.get(number, False) or line["count"] > 0
    return result


def figure(counts):
    run, all_ = counts
    return f"{100 * run / all_:5.1f} %  {run:6} of {all_}"


def foldersOf(files, folders):
    """For each folder, the lines that have run and all of them."""
    result = collections.defaultdict(lambda: (0, 0))
    for path, lines in files.items():
        folder = includeDirections.folderOf(path, folders)
        if folder is None or folder in OTHERS or not lines:
            continue
        run, all_ = result[folder]
        result[folder] = (run + sum(lines.values()), all_ + len(lines))
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--root", type=pathlib.Path,
                        default=pathlib.Path(__file__).resolve().parent.parent)
    parser.add_argument("--files", action="store_true")
    arguments = parser.parse_args()
    root = arguments.root.resolve()
    page = (root / includeDirections.PAGE).read_text(encoding="utf-8")
    order = list(includeDirections.table(page, "arrows", "->"))
    try:
        files = linesRun(reportsOf(arguments.build.resolve()), root)
    except (CoverageError, subprocess.CalledProcessError, OSError) as error:
        print(f"coverage.py: {error}", file=sys.stderr)
        return 2
    folders = foldersOf(files, order)
    for folder in order:
        if folder not in folders:
            continue
        print(f"{figure(folders[folder])}  {folder}")
        for path in sorted(files) if arguments.files else []:
            if includeDirections.folderOf(path, order) == folder and files[path]:
                lines = files[path]
                print(f"    {figure((sum(lines.values()), len(lines)))}  {path}")
    total = tuple(sum(each) for each in zip(*folders.values()))
    print(f"{figure(total)}  in all")
    return 0


if __name__ == "__main__":
    sys.exit(main())

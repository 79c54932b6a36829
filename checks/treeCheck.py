"""What the checks of the tree share: their command line, and how they tell what they found."""

import argparse
import pathlib
import sys


def run(document, look, errors=()):
    """Has `look` go through the tree and prints what it found; returns the exit status.

    `look(root)` gives the faults, how many files were read, and lines about that.
    `errors`: what it may throw when it cannot do its work.
    """
    parser = argparse.ArgumentParser(description=document.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path,
                        default=pathlib.Path(__file__).resolve().parent.parent)
    root = parser.parse_args().root.resolve()
    try:
        faults, count, figures = look(root)
    except errors as error:
        return giveUp(error)
    if count == 0:
        return giveUp(f"no source file below {root}")
    for line in [*faults, *figures]:
        print(line)
    return 1 if faults else 0


def giveUp(why):
    print(f"{pathlib.Path(sys.argv[0]).name}: {why}", file=sys.stderr)
    return 2

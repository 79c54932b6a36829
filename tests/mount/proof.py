"""What the long proofs share: their arguments, their seed, and what they tell of a failure."""

import argparse
import os
import pathlib
import random
import shutil
import sys
import tempfile
import time

from harness import Box, Failure, Skip
from troubles import EXTRAS, LONG, LONG_RUN

SKIPPED = 77


def arguments_of(description, random_one=True, troubles=(), more=()):
    """`troubles`: what the proof has, all of it unless the user says otherwise; `more`: if he does."""
    parser = argparse.ArgumentParser(description=description.splitlines()[0])
    parser.add_argument("--tulo", required=True)
    if random_one:
        parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    if troubles:
        names = ", ".join(troubles)
        parser.add_argument("--without", default="", metavar="NAME,NAME", help=f"leaves out some of {names}")
        if more:
            parser.add_argument("--with", dest="added", default="", metavar="NAME,NAME",
                                help=f"adds some of {', '.join(more)}")
        parser.add_argument("--only", default="", metavar="NAME,NAME", help="has these troubles, and no other")
        parser.set_defaults(troubles=list(troubles), more=list(more))
    return parser


def add_seconds(parser, default=None):
    parser.add_argument("--seconds", type=float, default=default,
                        help="repeats everything until so many have passed")


def _words(text):
    return [word for word in text.split(",") if word]


def chosen_troubles(parser, arguments):
    """What is left of the proof's troubles when the user has had a say."""
    without, only = _words(arguments.without), _words(arguments.only)
    added = _words(getattr(arguments, "added", ""))
    unknown = sorted({*without, *only, *added} - {*arguments.troubles, *arguments.more, LONG})
    if unknown:
        parser.error(f"no such trouble here: {', '.join(unknown)}")
    chosen = [*arguments.troubles, *added]
    if (getattr(arguments, "seconds", None) or 0) >= LONG_RUN and "host_slow" in chosen:
        chosen.append(LONG)
    if only:
        chosen = [name for name in chosen if name in only or name in EXTRAS]
        chosen += [LONG] if LONG in only and LONG not in chosen else []
    return [name for name in chosen if name not in without]


def turns(count, seconds=None):
    """Numbers from 0: so many, or as many as are begun within the time."""
    end = time.monotonic() + (seconds or 0)
    number = 0
    while time.monotonic() < end if seconds else number < count:
        yield number
        number += 1


def evidence(box):
    """Keeps what a failure is judged by; says where."""
    kept = pathlib.Path(tempfile.mkdtemp(prefix="tulo-proof-"))
    for entry in pathlib.Path(box.directory).glob("*.log"):
        shutil.copy(entry, kept)
    files = [*pathlib.Path(box.state).glob("tulo/*/replica.db*"), *pathlib.Path(box.container).glob("state.db*")]
    for file in files:
        shutil.copy(file, kept)
    if os.path.isdir(box.file("last")):
        shutil.copytree(box.file("last"), kept / "at-the-kill")
    return f"logs, replica and index: {kept}"


def prove(parser, run):
    """Has run(box, arguments), which returns a line to be printed, in a world of its own.

    Returns the exit status.
    """
    arguments = parser.parse_args()
    if hasattr(arguments, "troubles"):
        arguments.troubles = chosen_troubles(parser, arguments)
    if not os.path.exists("/dev/fuse"):
        print("skipped: there is no /dev/fuse")
        return SKIPPED
    seed = f" with seed {arguments.seed}" if hasattr(arguments, "seed") else ""
    print(f"begins{seed}", flush=True)
    begin = time.monotonic()
    box = Box(os.path.abspath(arguments.tulo))
    try:
        print(f"{run(box, arguments)}; {time.monotonic() - begin:.0f} s", flush=True)
        return 0
    except Skip as reason:
        print(f"skipped: {reason}")
        return SKIPPED
    except (Failure, OSError) as failure:
        print(f"{evidence(box)}\nFAILED{seed} after {time.monotonic() - begin:.0f} s: {failure}",
              file=sys.stderr)
        return 1
    finally:
        box.tear_down()

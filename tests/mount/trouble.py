#!/usr/bin/env python3
"""Programs at work while everything goes wrong that can: nothing that was forced is lost.

    trouble.py --tulo PATH [--seed N] [--seconds N] [--pairs N] [--without NAME,NAME]

The service runs out of descriptors; the index goes away, is emptied, cut short or locked; the clock
jumps; the host is slow, stands still, is killed, or loses its folder for a while. Meanwhile programs
on both sides write, save, rename and remove under names that are hard to spell, move folders into
each other, and hold files open over all of it. Once everything is well again, every version that was
closed or forced is at the host and in the mount, and the trees are the same.
"""

import os
import pathlib
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure  # noqa: E402
from proof import add_seconds, arguments_of, prove  # noqa: E402
from troubled import TroubledPair  # noqa: E402
from troubles import ALL, EXTRAS, Troubles  # noqa: E402
from twosided import quiet  # noqa: E402

TROUBLES = [*ALL, *EXTRAS]


def work(couples, seconds):
    end = time.monotonic() + seconds
    threads = [threading.Thread(target=couple.run, args=(lambda _: time.monotonic() < end,))
               for couple in couples]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for couple in couples:
        couple.release()


def check(box, seed, seconds, pairs, kinds=tuple(TROUBLES)):
    """Works for so long amid troubles, and then looks for everything; tells what has happened."""
    troubles = Troubles(box, seed, kinds)
    box.start_host()
    mount = box.mount("--no-thumbnails")
    # All that happens here is an error to the service.
    mount.allowed_errors.append("^error ")
    troubles.expect_clock(mount)
    aside = box.file("aside")
    os.makedirs(aside)
    couples = [TroubledPair(box, seed * 100 + number, aside, kinds) for number in range(pairs)]
    for couple in couples:
        couple.wait_until_shown()
    with troubles.amid():
        work(couples, seconds)
    quiet(box)
    failures = [each for couple in couples for each in couple.verdict()]
    if failures:
        raise Failure("\n\n".join([troubles.told(), *failures]))
    done = sum(side.done for couple in couples for side in couple.sides)
    kept = sum(len(couple.versions.kept) for couple in couples)
    return f"{done} operations, {kept} versions closed or forced, nothing lost; {troubles.told()}"


def run(box, arguments):
    told = check(box, arguments.seed, arguments.seconds, arguments.pairs, arguments.troubles)
    box.finish()
    return told


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES)
    add_seconds(parser, 60)
    parser.add_argument("--pairs", type=int, default=3, help="programs on each side")
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Both sides change the same few names at the same time, at random.

    twosided.py --tulo PATH [--seed N] [--seeds N] [--seconds N] [--steps N] [--at-once N]

A program in the mount and one in the host's folder write, save, rename, move folders into each other
and remove, each without waiting for the other. Once it is quiet both trees are the same, and every
version that either side ever closed is current, replaced by one who had seen it, in a conflicted copy,
or among the recovered files. Each seed has a folder of its own and its own two programs.
"""

import os
import pathlib
import sys
import threading

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure, expect  # noqa: E402
from proof import add_seconds, arguments_of, prove, turns  # noqa: E402
from sides import Pair  # noqa: E402
from writing import settled, status, writable  # noqa: E402

# A request is refused because the host's side has changed meanwhile; it is looked at again.
HAPPENS = r"Extension: \w+ failed|cannot be seen at the moment|cannot list|did not go up"


def quiet(box):
    """Waits until neither side has anything left to tell the other."""
    settled(box, 120)
    now = status(box)
    expect(now["needsAttention"] == 0, f"changes were refused: {now['changes']}")


def at_once_of(box, seed, seeds, steps):
    """Some seeds at a time; how many operations succeeded, and what was amiss."""
    pairs = [Pair(box, seed + number, box.file("aside")) for number in range(seeds)]
    for pair in pairs:
        pair.wait_until_shown()
    threads = [threading.Thread(target=pair.run, args=(lambda tried: tried < steps,))
               for pair in pairs]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    quiet(box)
    done = sum(side.done for pair in pairs for side in pair.sides)
    return done, [each for pair in pairs for each in pair.verdict()]


def check(box, seed, seeds, steps, at_once, seconds=None):
    """Runs the seeds; how many there were, and how many operations succeeded."""
    os.makedirs(box.file("aside"), exist_ok=True)
    done, count = 0, 0
    for number in turns(-(-seeds // at_once), seconds):
        some = at_once if seconds else min(at_once, seeds - number * at_once)
        more, wrong = at_once_of(box, seed + count, some, steps)
        done, count = done + more, count + some
        if wrong:
            raise Failure("\n\n".join([f"after {count - some} seeds {len(wrong)} of {some}", *wrong]))
    return count, done


def run(box, arguments):
    box.start_host()
    mount = writable(box, "--no-thumbnails")
    mount.allowed_errors.append(HAPPENS)
    count, done = check(box, arguments.seed, arguments.seeds, arguments.steps, arguments.at_once,
                        arguments.seconds)
    box.finish()
    return f"{count} seeds, {done} operations, both sides equal and nothing lost"


def main():
    parser = arguments_of(__doc__)
    add_seconds(parser)
    parser.add_argument("--seeds", type=int, default=20)
    parser.add_argument("--steps", type=int, default=25, help="of each side")
    parser.add_argument("--at-once", type=int, default=4, help="how many seeds at a time")
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

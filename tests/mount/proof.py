"""What the long proofs share: their arguments, their seed, and what they tell of a failure."""

import argparse
import os
import random
import sys

from harness import Box, Failure, Skip

SKIPPED = 77


def arguments_of(description, random_one=True):
    parser = argparse.ArgumentParser(description=description.splitlines()[0])
    parser.add_argument("--tulo", required=True)
    if random_one:
        parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    return parser


def logs_of(box):
    return box.logs()[-3000:]


def prove(parser, run, evidence=logs_of):
    """Has run(box, arguments), which returns a line to be printed, in a world of its own.

    `evidence`: what a failure is judged by, as a text. Returns the exit status.
    """
    arguments = parser.parse_args()
    if not os.path.exists("/dev/fuse"):
        print("skipped: there is no /dev/fuse")
        return SKIPPED
    seed = f" with seed {arguments.seed}" if hasattr(arguments, "seed") else ""
    print(f"begins{seed}", flush=True)
    box = Box(os.path.abspath(arguments.tulo))
    try:
        print(run(box, arguments), flush=True)
        return 0
    except Skip as reason:
        print(f"skipped: {reason}")
        return SKIPPED
    except (Failure, OSError) as failure:
        print(f"{evidence(box)}\nFAILED{seed}: {failure}", file=sys.stderr)
        return 1
    finally:
        box.tear_down()

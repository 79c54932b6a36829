"""The long proofs in a short form; ./dev soak runs them at length."""

import random

import backlog
import crash
import fsx
import power
import racer
import trees
import trouble
import twosided
from harness import case
from troubles import INDEX
from writing import writable

# Another one each time; a failure names it.
SEED = random.randrange(10**6)


@case
def killed_at_some_points(box):
    crash.Crash(box, SEED, False).run(["push.marked", "push.answered", "doubt.ended"], 1)


@case
def killed_with_its_host(box):
    crash.Crash(box, SEED, True, crash.TROUBLES).run([], 2)


@case
def one_file_against_a_model(box):
    fsx.check(box, SEED, 500, 2)


@case
def a_tree_against_an_ordinary_folder(box):
    # What the index may do to it is in docs/proofs.md.
    trees.check(box, SEED, 300, 3, [kind for kind in trees.TROUBLES if kind not in INDEX])


@case
def many_processes_over_a_few_names(box):
    racer.check(box, SEED, 2, 4)


@case
def two_sides_at_once(box):
    box.start_host()
    writable(box, "--no-thumbnails").allowed_errors.append(twosided.HAPPENS)
    twosided.check(box, SEED, 4, 10, 4)


@case
def trouble_of_every_kind(box):
    trouble.check(box, SEED, 6, 2)


@case
def power_cuts(box):
    # The other side's part is only in the long form, see docs/proofs.md.
    power.check(box, SEED, 3, [kind for kind in power.TROUBLES if kind != "other_side"])
    box.mounts.clear()


@case
def a_long_queue_without_a_host(box):
    backlog.Backlog(box, 1000, seed=SEED).run()

#!/usr/bin/env python3
"""Many processes over the same few names: nothing hangs, and both sides are equal at the end.

    racer.py --tulo PATH [--seconds N] [--processes N] [--seed N] [--without NAME,NAME]

All of it amid troubles; `--with other_side` adds a process that races in the host's folder. Each also keeps
a file open that nobody else knows, and leaves others behind, which go where their folders go: what it has
forced of them is in both trees at the end.
"""

import mmap
import multiprocessing
import os
import pathlib
import queue
import random
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure, eventually, expect  # noqa: E402
from load import RENAME_EXCHANGE, RENAME_NOREPLACE, rename2  # noqa: E402
from model import Versions  # noqa: E402
from nasty import apart  # noqa: E402
from proof import add_seconds, arguments_of, prove  # noqa: E402
from sides import EXPECTED, alike, recovered  # noqa: E402
from troubles import ALL, EXTRAS, TOLD, Troubles  # noqa: E402
from writing import settled, status, tree, writable  # noqa: E402

# Who races at the host, too, moves folders into each other on both sides, which may end with changes that
# wait for the user.
MORE = ["other_side"]
TROUBLES = [*ALL, *(name for name in EXTRAS if name not in MORE)]
NAMES = ["a", "b", "c"]
# How long is raced before the two sides are compared.
LEG = 60


class Racer:
    """`names`: those that are raced over. `label`: of its own files."""

    def __init__(self, root, seed, names, label):
        self.root = root
        self.names = names
        self.label = label
        self.random = random.Random(f"{seed} {label}")
        self.held = None
        # What it has forced: bytes and where.
        self.forced = []
        self.number = 0

    def path(self):
        return os.path.join(self.root, *(self.random.choice(self.names)
                                         for _ in range(self.random.choice([1, 2, 2, 3]))))

    def step(self):
        self.random.choice([self.create, self.create, self.append, self.read, self.map, self.mkdir,
                            self.mkdir, self.unlink, self.rmdir, self.rename, self.rename,
                            self.exchange, self.noreplace, self.list, self.truncate, self.leave,
                            self.hold])()

    def own(self):
        """A file that no other process knows, and what is about to be in it."""
        self.number += 1
        name = f"{self.label}-{self.number}"
        folder = os.path.dirname(self.path())
        return os.path.join(folder, name), f"{name}\n".encode() + self.random.randbytes(2000)

    def leave(self):
        path, data = self.own()
        with open(path, "xb") as file:
            file.write(data)
            file.flush()
            os.fsync(file.fileno())
            self.forced.append((data, path))

    def hold(self):
        """Writes on through the descriptor that has been open all the time."""
        if not self.held:
            path, data = self.own()
            self.held = [path, open(path, "x+b", buffering=0), b""]
        path, file, before = self.held
        data = f"{path} {len(before)}\n".encode() + self.random.randbytes(100)
        file.seek(len(before))
        file.write(data)
        os.fsync(file.fileno())
        self.held[2] = before + data

    def end(self):
        if self.held and self.held[2]:
            self.held[1].close()
            self.forced.append((self.held[2], self.held[0]))

    def create(self):
        with open(self.path(), "wb") as file:
            file.write(self.random.randbytes(self.random.choice([0, 10, 5000, 50000])))

    def append(self):
        with open(self.path(), "ab") as file:
            file.write(b"more")
            file.flush()
            os.fsync(file.fileno())

    def read(self):
        with open(self.path(), "rb") as file:
            file.read()

    def map(self):
        with open(self.path(), "r+b") as file:
            try:
                with mmap.mmap(file.fileno(), 1) as mapping:
                    mapping.flush()
            except ValueError:
                pass  # empty

    def mkdir(self):
        os.mkdir(self.path())

    def unlink(self):
        os.unlink(self.path())

    def rmdir(self):
        os.rmdir(self.path())

    def rename(self):
        os.rename(self.path(), self.path())

    def exchange(self):
        rename2(self.path(), self.path(), RENAME_EXCHANGE)

    def noreplace(self):
        rename2(self.path(), self.path(), RENAME_NOREPLACE)

    def list(self):
        os.listdir(self.path())

    def truncate(self):
        os.truncate(self.path(), self.random.randrange(10000))


def race(racer, end, expected, results):
    done, wrong = 0, None
    while time.monotonic() < end and not wrong:
        try:
            racer.step()
            done += 1
        except OSError as error:
            if error.errno not in expected:
                wrong = f"{racer.label}: {error}"
    try:
        racer.end()
    except OSError as error:
        wrong = wrong or f"{racer.label}: closing what was held: {error}"
    results.put((done, wrong, racer.forced))


class Race:
    def __init__(self, box, seed, processes, kinds):
        self.box = box
        self.random = random.Random(seed)
        self.processes = processes
        self.kinds = kinds
        self.expected = EXPECTED | TOLD if set(kinds) & set(ALL) else EXPECTED
        self.versions = Versions("racer")
        self.done = 0

    def racers(self, leg):
        # Folders go into one another without end, and a path may have 4096 bytes.
        names = [name for name in apart(self.random, 99) if len(name) < 100][:3]
        names = names if "names" in self.kinds else NAMES
        seed = self.random.random()
        some = [Racer(self.box.path(), seed, names, f"here{leg}-{i}") for i in range(self.processes)]
        if "other_side" in self.kinds:
            some.append(Racer(self.box.root, seed, names, f"there{leg}"))
        return some

    def leg(self, number, seconds, troubles):
        end = time.monotonic() + seconds
        results = multiprocessing.Queue()
        processes = [multiprocessing.Process(target=race, daemon=True,
                                             args=(racer, end, self.expected, results))
                     for racer in self.racers(number)]
        for process in processes:
            process.start()
        with troubles.amid():
            told = self.told(results, len(processes), seconds)
        for process in processes:
            process.join()
        wrong = [what for _, what, _ in told if what]
        expect(not wrong, f"leg {number}: unexpected answers: {wrong}")
        for done, _, forced in told:
            self.done += done
            for data, path in forced:
                self.versions.keep(data, path)

    @staticmethod
    def told(results, count, seconds):
        try:
            return [results.get(timeout=seconds + 60) for _ in range(count)]
        except queue.Empty:
            raise Failure("a racer hangs") from None

    def compare(self):
        settled(self.box, 180)
        now = status(self.box)
        expect(now["needsAttention"] == 0, f"changes were refused: {now['changes']}")

        def same():
            return alike(tree(self.box.root)) == alike(tree(self.box.path()))

        try:
            eventually(same, "host and mount are equal")
        except Failure:
            there, here = alike(tree(self.box.root)), alike(tree(self.box.path()))
            raise Failure(f"at the host only: {list((there - here).elements())[:20]}, "
                          f"in the mount only: {list((here - there).elements())[:20]}") from None
        # What is raced over is nobody's to know.
        lost = self.versions.lost(tree(self.box.root), recovered(self.box))
        expect(not lost, "\n".join(lost))


def check(box, seed, seconds, processes, kinds=tuple(TROUBLES)):
    """Starts host and mount. In at least three legs, so that what is raced over is known to the host."""
    troubles = Troubles(box, seed, kinds)
    box.start_host()
    mount = writable(box, "--no-thumbnails")
    mount.allowed_errors.append("^error ")
    troubles.expect_clock(mount)
    runs = Race(box, seed, processes, kinds)
    legs = max(3, round(seconds / LEG))
    for number in range(legs):
        runs.leg(number, seconds / legs, troubles)
        runs.compare()
    return (f"{runs.done} operations by {processes} processes, {len(runs.versions.kept)} "
            f"files forced and found, host and mount equal; {troubles.told()}")


def run(box, arguments):
    told = check(box, arguments.seed, arguments.seconds, arguments.processes, arguments.troubles)
    box.finish()
    return told


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES, more=MORE)
    add_seconds(parser, 30)
    parser.add_argument("--processes", type=int, default=8)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

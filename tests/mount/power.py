#!/usr/bin/env python3
"""Power cuts: the replica's disk is put back to what had reached it.

    power.py --tulo PATH [--seed N] [--rounds N] [--seconds N] [--without NAME,NAME]

The replica lies on a file system of its own, in an image that a loop device shows. The image is
copied while everything runs: the copy has what was written to the device by then, and nothing that
was still in memory. That is what a disk has after a power cut, and the service starts from it.
What was forced to the disk before must be there, whole, and the host must have the same once the
queue is empty. Until the cut everything else goes wrong, too, and a program on each side changes the same
names, of which the model knows every version. Needs root, and mkfs.ext4.
"""

import contextlib
import os
import pathlib
import random
import signal
import sqlite3
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import (  # noqa: E402
    LIBC, MNT_DETACH, Failure, Mount, Skip, detach, eventually, expect, is_mounted, need_program)
from load import short  # noqa: E402
from nasty import numbered  # noqa: E402
from proof import add_seconds, arguments_of, prove, turns  # noqa: E402
from sides import RECOVERED  # noqa: E402
from troubled import HereInTrouble, TroubledPair  # noqa: E402
from troubles import CLOCK, EXTRAS, HOST, INDEX, SERVICE, Troubles, patiently  # noqa: E402
from writing import difference, settled, status, tree  # noqa: E402

# The cut itself needs the service to stand still, and the host to be the one that it was.
TROUBLES = [*INDEX, *HOST, *SERVICE, *CLOCK, *EXTRAS]
ROUNDS_OF_A_PAIR = 10

IMAGE = 96 << 20
# Nothing goes to the disk by itself: only what is forced to it.
OPTIONS = "loop,commit=600,noatime"


class Disk:
    """A file system in an image."""

    def __init__(self, box, point):
        self.box = box
        self.point = point
        self.number = 0
        self.image = box.file("disk0")
        with open(self.image, "wb") as file:
            file.truncate(IMAGE)
        subprocess.run([need_program("mkfs.ext4"), "-q", "-F", "-m", "0", "-E",
                        "lazy_itable_init=0,lazy_journal_init=0", self.image], check=True)
        self.mount()

    def mount(self):
        done = subprocess.run(["mount", "-t", "ext4", "-o", OPTIONS, self.image, self.point],
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Skip(f"no loop device: {done.stderr.strip()}")

    def cut(self, service):
        """What the disk has at this moment becomes the next image.

        Whatever was on its way to the disk is waited for: a copy is no instant, and one in which
        the beginning is older than the end is no state that a disk was ever in.
        """
        service.signal(signal.SIGSTOP)
        eventually(lambda: stopped(service.pid), "the service stands still")
        self.number += 1
        after = self.box.file(f"disk{self.number}")
        subprocess.run(["cp", "--sparse=always", self.image, after], check=True)
        return after

    def replace(self, image):
        """The users of the file system have ended."""
        self.release()
        os.unlink(self.image)
        self.image = image
        self.mount()

    def release(self):
        if is_mounted(self.point):
            subprocess.run(["umount", self.point], check=False)
        if is_mounted(self.point):
            LIBC.umount2(os.fsencode(self.point), MNT_DETACH)


def stopped(pid):
    """Whether no thread of the process runs, or waits for the disk."""
    try:
        states = [(thread / "stat").read_text().rpartition(")")[2].split()[0]
                  for thread in pathlib.Path(f"/proc/{pid}/task").iterdir()]
    except FileNotFoundError:
        return False  # a thread that has just ended
    return all(state == "T" for state in states)


class Book:
    """Which contents each name may have after a power cut."""

    def __init__(self):
        self.may = {}

    def put(self, name, data, durable):
        """`data` None: no such name. What is durable leaves nothing else possible."""
        if durable:
            self.may[name] = [data]
        else:
            self.may.setdefault(name, [None]).append(data)

    def everything_durable(self):
        for name, states in self.may.items():
            self.may[name] = [states[-1]]

    def wrong(self, found):
        parts = []
        for name, states in self.may.items():
            data = found.get(name)
            if data not in states:
                parts.append(f"{name}: {short(data) if name in found else 'missing'}, may be "
                             + " or ".join("missing" if s is None else short(s) for s in states))
        return parts + [f"unexpected {name}" for name in found if name not in self.may]


class Forced(HereInTrouble):
    """What is not forced to the disk may be gone."""

    forces = 1


class ForcedPair(TroubledPair):
    here = Forced
    # The power may go before somebody got to it.
    must_work = False


class Power:
    def __init__(self, box, seed, kinds=()):
        self.box = box
        self.kinds = kinds
        self.troubles = Troubles(box, seed, kinds)
        # Programs on both sides, in a folder of their own.
        self.pair = None
        self.pair_folders = []
        self.versions = 0
        self.random = random.Random(seed)
        self.point = box.file("m")
        self.disk = Disk(box, box.state)
        self.book = Book()
        self.mounts = 0
        self.counter = 0
        self.checked = 0
        self.loose = []

    def mount(self):
        self.mounts += 1
        mount = Mount(self.box, self.point, ["--no-thumbnails"],
                      f"mount{self.mounts}")
        self.box.processes.append(mount)
        self.box.mounts = [mount]
        return mount

    def path(self, name):
        return os.path.join(self.point, name)

    def write(self, name, force):
        data = self.random.randbytes(self.random.choice([0, 10, 5000, 70000]))
        with patiently(lambda: open(self.path(name), "wb", buffering=0)) as file:
            written = 0
            while written < len(data):
                written += patiently(lambda: file.write(data[written:]))
            if force:
                patiently(lambda: os.fsync(file.fileno()))
        return data

    def new(self):
        self.counter += 1
        odd = "names" in self.kinds and self.random.random() < 0.5
        return numbered(self.random, self.counter) if odd else f"f{self.counter}"

    def existing(self):
        names = [name for name, states in self.book.may.items()
                 if states[-1] is not None and not name.startswith("loose")]
        return self.random.choice(names) if names else None

    def forced_file(self):
        name = self.new()
        self.book.put(name, self.write(name, True), True)

    def loose_file(self):
        """Nothing was promised for it, but what is there of it must not be wrong elsewhere."""
        self.counter += 1
        name = f"loose{self.counter}"
        self.write(name, False)
        self.loose.append(name)

    def save(self):
        """A new file, forced to the disk, over the old one: the old one or the new one."""
        name = self.existing()
        if not name:
            return
        draft = f"draft{self.counter}"
        self.counter += 1
        data = self.write(draft, True)
        self.book.put(draft, data, True)
        patiently(lambda: os.rename(self.path(draft), self.path(name)))
        self.book.put(draft, None, False)
        self.book.put(name, data, False)

    def loose_save(self):
        """The same by a program that forces nothing: still the old one or the new one, whole."""
        name = self.existing()
        if not name:
            return
        self.counter += 1
        draft = f"loose{self.counter}"
        data = self.write(draft, False)
        patiently(lambda: os.rename(self.path(draft), self.path(name)))
        self.book.put(name, data, False)

    def remove(self):
        name = self.existing()
        if name:
            patiently(lambda: os.unlink(self.path(name)))
            self.book.put(name, None, False)

    def force_folder(self):
        descriptor = patiently(lambda: os.open(self.point, os.O_RDONLY | os.O_DIRECTORY))
        try:
            patiently(lambda: os.fsync(descriptor))
        finally:
            os.close(descriptor)
        self.book.everything_durable()

    def work(self, steps):
        for _ in range(steps):
            self.random.choice([self.forced_file, self.forced_file, self.save, self.loose_save,
                                self.loose_file, self.remove, self.force_folder])()
            if self.pair:
                self.pair.work(1)

    def of_the_book(self, found):
        """Without what both sides change, and what nothing was promised for."""
        return {name: data for name, data in found.items() if not name.startswith("loose")
                and name.split("/")[0] not in {*self.pair_folders, RECOVERED}}

    def work_and_cut(self, with_host):
        """What the disk has after some work."""
        mount = self.mount()
        self.troubles.expect_clock(mount)
        kept = 0
        if with_host and self.kinds:
            self.new_pair()
            kept = len(self.pair.versions.kept)
        with self.troubles.amid(*([] if with_host else HOST)):
            self.work(self.random.randrange(5, 60))
        after = self.disk.cut(mount)
        if self.pair:
            self.versions += len(self.pair.versions.kept) - kept
            self.pair.release()
        mount.kill()
        detach(self.point)
        return after

    def new_pair(self):
        """One for some rounds, since its story grows."""
        if self.pair and self.mounts <= self.pair.until:
            return
        aside = self.box.file("aside")
        os.makedirs(aside, exist_ok=True)
        self.pair = ForcedPair(self.box, self.random.randrange(10**9), aside, self.kinds)
        self.pair.wait_until_shown()
        self.pair.until = self.mounts + ROUNDS_OF_A_PAIR
        self.pair_folders.append(self.pair.folder)

    def round(self, what):
        """Works, cuts the power, and looks what is there."""
        self.loose = []
        # What a folder holds that was never listed is not known, so nothing can be put into it.
        with_host = self.mounts == 0 or self.random.random() < 0.5
        if with_host:
            self.box.start_host()
        after = self.work_and_cut(with_host)
        if with_host:
            self.box.host.stop()
        self.disk.replace(after)
        if self.random.random() < 0.5:
            self.forget_boot()
        mount = self.mount()
        self.look(what)
        self.look_at_both(what)
        for name in tree(self.point):
            if name.startswith("loose"):
                os.unlink(self.path(name))
        settled(self.box, 120)
        mount.unmount()
        self.box.host.stop()
        self.book = Book()
        for name, data in self.of_the_book(tree(self.box.root)).items():
            self.book.put(name, data, True)

    def look(self, what):
        """Right after the cut. What the host has already may have to be fetched again."""
        elsewhere = []
        shown = tree(self.point, elsewhere)
        self.box.start_host()
        for name in self.of_the_book(dict.fromkeys(elsewhere)):
            with open(self.path(name), "rb") as file:
                shown[name] = file.read()
        wrong = self.book.wrong(self.of_the_book(shown))
        expect(not wrong, f"{what}: {wrong[:10]}")
        self.checked += len(self.book.may)

    def look_at_both(self, what):
        settled(self.box, 120)
        expect(status(self.box)["needsAttention"] == 0, f"{what}: {status(self.box)['changes']}")
        wrong = difference(self.of_the_book(tree(self.box.root)), self.of_the_book(tree(self.point)))
        expect(not wrong, f"{what}: host and mount differ: {wrong[:10]}")
        wrong = self.pair.verdict() if self.pair else []
        if wrong:
            raise Failure("\n".join([what, *wrong]))

    def forget_boot(self):
        """As after the machine was started again: what was not forced is not trusted."""
        (database,) = pathlib.Path(self.box.state).glob("tulo/*/replica.db")
        with contextlib.closing(sqlite3.connect(database)) as connection, connection:
            connection.execute("UPDATE meta SET value='another' WHERE key='boot'")

    def run(self, rounds, seconds=None):
        count = 0
        try:
            for number in turns(rounds, seconds):
                self.round(f"power cut {number}")
                count += 1
        finally:
            for process in self.box.processes:
                process.signal(9)
                process.process.wait()
            detach(self.point)
            self.disk.release()
        return (f"{count} power cuts, {self.checked} names looked at, {self.versions} versions of two sides; "
                f"{self.troubles.told()}")


def check(box, seed, rounds, kinds=tuple(TROUBLES), seconds=None):
    if os.geteuid() != 0:
        raise Skip("mounting an image needs root")
    return Power(box, seed, kinds).run(rounds, seconds)


def run(box, arguments):
    return check(box, arguments.seed, arguments.rounds, arguments.troubles, arguments.seconds)


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES)
    add_seconds(parser)
    parser.add_argument("--rounds", type=int, default=20)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Programs at work while everything goes wrong that can: nothing that was forced is lost.

    trouble.py --tulo PATH [--seed N] [--seconds N] [--pairs N] [--only KIND,KIND]

The service runs out of descriptors; the index goes away, is emptied, cut short or locked; the clock
jumps; the host is slow, stands still, is killed, or loses its folder for a while. Meanwhile programs
on both sides write, save, rename and remove under names that are hard to spell, move folders into
each other, and hold files open over all of it. Once everything is well again, every version that was
closed or forced is at the host and in the mount, and the trees are the same.
"""

import errno
import os
import pathlib
import random
import resource
import shutil
import signal
import sqlite3
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure, expect  # noqa: E402
from jumps import DayClock, has_clock  # noqa: E402
from proof import arguments_of, prove  # noqa: E402
from sides import EXPECTED, FOLDERS, Here, Pair, There  # noqa: E402
from twosided import quiet  # noqa: E402

NASTY = [
    "100%.txt", "100%25.txt", "a%2Eb", "report%2F2024.pdf", "line\nbreak", "x" * 251 + ".txt",
    "caf\u00e9.txt", "cafe\u0301.txt", "Case.txt", "case.txt", " before", "after ", "tab\there",
    "quo'te\".txt", "back\\slash", ".hidden", "(ABCDEF).txt", "\U0001f600.txt",
]
# Cannot go up, which the user is told; but it can come down.
NOT_UTF8 = os.fsdecode(b"caf\xe9.txt")
HELD = ["held-1.txt", "held-2.txt"]
# What a program may be told besides while something is wrong.
TROUBLED = EXPECTED | {
    errno.EIO, errno.EHOSTDOWN, errno.EMFILE, errno.ENFILE, errno.EAGAIN, errno.ENOSPC,
    errno.ETIMEDOUT, errno.ENOMEM, errno.ENAMETOOLONG, errno.EILSEQ, errno.EACCES, errno.EPERM,
}


class HereInTrouble(Here):
    files = NASTY
    expected = TROUBLED


class ThereInTrouble(There):
    # It also takes away and replaces what is held open in the mount.
    files = [*NASTY, NOT_UTF8, *HELD]
    expected = TROUBLED


class Holder(Here):
    """Keeps files open for all the time, and forces to the disk what it writes to them."""

    name = "holder"
    expected = TROUBLED

    def __init__(self, root, versions, seed):
        super().__init__(root, versions, seed)
        self.held = []

    def step(self):
        if len(self.held) < len(HELD):
            self.hold(HELD[len(self.held)])
        path, file = self.random.choice(self.held)
        before, data = self._overwrite(file, True)
        self._wrote(path, before, data)

    def hold(self, name):
        path = os.path.join(self.root, self.random.choice(FOLDERS), name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        descriptor = os.open(path, os.O_RDWR | os.O_CREAT, 0o644)
        self.held.append((path, open(descriptor, "r+b", buffering=0)))

    def release(self):
        for _, file in self.held:
            file.close()


class TroubledPair(Pair):
    here = HereInTrouble
    there = ThereInTrouble

    def __init__(self, box, seed, aside):
        super().__init__(box, seed, aside)
        self.holder = Holder(self.here_root, self.versions, seed)
        self.sides.append(self.holder)


class Trouble:
    """What can go wrong, each kind for a while and then not any more."""

    def __init__(self, box, clock, seed):
        self.box = box
        self.clock = clock
        self.random = random.Random(f"{seed} trouble")
        self.index = os.path.join(box.container, "state.db")
        self.aside = box.file("index-aside")
        self.counts = {}

    def kinds(self):
        return [name[3:] for name in dir(self) if name.startswith("do_")]

    def run(self, kinds, goes_on):
        while goes_on():
            kind = self.random.choice(kinds)
            getattr(self, f"do_{kind}")()
            self.counts[kind] = self.counts.get(kind, 0) + 1
            time.sleep(self.random.uniform(0.1, 0.8))

    def a_while(self):
        time.sleep(self.random.uniform(0.2, 3))

    def do_descriptors(self):
        mount = self.box.mounts[0]
        before = resource.prlimit(mount.pid, resource.RLIMIT_NOFILE)
        few = (min(mount.descriptors() + self.random.randrange(3), before[0]), before[1])
        resource.prlimit(mount.pid, resource.RLIMIT_NOFILE, few)
        self.a_while()
        resource.prlimit(mount.pid, resource.RLIMIT_NOFILE, before)

    def do_index_away(self):
        os.rename(self.index, self.aside)
        self.a_while()
        os.rename(self.aside, self.index)

    def _another_index(self, put):
        """Puts another file in the index's place, without the log of the real one beside it.

        Whoever opens an empty database removes the log that lies there, as SQLite has it.
        """
        parts = ["", "-wal", "-shm"]
        for part in parts:
            os.rename(self.index + part, self.aside + part)
        put()
        self.a_while()
        for part in parts:
            if os.path.exists(self.index + part):
                os.unlink(self.index + part)
        # The log first: the index is never there without it.
        for part in reversed(parts):
            os.rename(self.aside + part, self.index + part)

    def do_index_emptied(self):
        self._another_index(lambda: open(self.index, "wb").close())

    def do_index_cut_short(self):
        def put():
            shutil.copy(self.aside, self.index)
            os.truncate(self.index, os.path.getsize(self.index) // 8192 * 4096)

        self._another_index(put)

    def do_index_without_tables(self):
        def put():
            connection = sqlite3.connect(self.index)
            connection.execute("CREATE TABLE other(x)")
            connection.close()

        self._another_index(put)

    def do_index_locked(self):
        connection = sqlite3.connect(self.index, timeout=1, isolation_level=None)
        try:
            connection.execute("BEGIN IMMEDIATE")
            self.a_while()
            connection.execute("ROLLBACK")
        except sqlite3.OperationalError:
            pass  # the host was faster
        finally:
            connection.close()

    def do_clock(self):
        self.clock.set_ahead(self.random.choice([-86400, -60, 60, 3600, 86400, 400 * 86400]))
        self.a_while()
        self.clock.set_ahead(0)

    def do_host_stands_still(self):
        self.box.host.signal(signal.SIGSTOP)
        self.a_while()
        self.box.host.signal(signal.SIGCONT)

    def do_service_stands_still(self):
        self.box.mounts[0].signal(signal.SIGSTOP)
        time.sleep(self.random.uniform(0.05, 0.5))
        self.box.mounts[0].signal(signal.SIGCONT)

    def do_host_killed(self):
        self.box.host.kill()
        self.a_while()
        self.box.start_host()

    def do_host_slow(self):
        """What takes minutes elsewhere takes seconds here."""
        self.box.host.kill()
        slow = str(self.random.randrange(1000, 4000))
        self.box.start_host("--delay", f"create={slow}", "--delay", f"modify={slow}",
                            "--delay", f"delete={slow}")
        time.sleep(self.random.uniform(1, 5))
        self.box.host.kill()
        self.box.start_host()

    def do_root_away(self):
        aside = self.box.file("root-aside")
        os.rename(self.box.root, aside)
        self.a_while()
        os.rename(aside, self.box.root)


def check(box, seed, seconds, pairs, only=None):
    """Works for so long amid troubles, and then looks for everything; tells what has happened."""
    clock = DayClock(box)
    box.start_host()
    mount = box.mount("--no-thumbnails")
    # All that happens here is an error to the service.
    mount.allowed_errors.append("^error ")
    expect(has_clock(box, mount.pid), "the service has the clock of the test")
    aside = box.file("aside")
    os.makedirs(aside)
    couples = [TroubledPair(box, seed * 100 + number, aside) for number in range(pairs)]
    for couple in couples:
        couple.wait_until_shown()
    trouble = Trouble(box, clock, seed)
    unknown = set(only or []) - set(trouble.kinds())
    expect(not unknown, f"no such trouble: {sorted(unknown)}, but {trouble.kinds()}")
    end = time.monotonic() + seconds
    threads = [threading.Thread(target=couple.run, args=(lambda _: time.monotonic() < end,))
               for couple in couples]
    for thread in threads:
        thread.start()
    trouble.run(only or trouble.kinds(), lambda: time.monotonic() < end)
    for thread in threads:
        thread.join()
    for couple in couples:
        couple.holder.release()
    quiet(box)
    failures = [each for couple in couples for each in couple.verdict()]
    told = ", ".join(f"{kind} {count}" for kind, count in sorted(trouble.counts.items()))
    if failures:
        raise Failure("\n\n".join([told, *failures]))
    done = sum(side.done for couple in couples for side in couple.sides)
    kept = sum(len(couple.versions.kept) for couple in couples)
    return f"{done} operations, {kept} versions closed or forced, nothing lost; {told}"


def run(box, arguments):
    only = arguments.only.split(",") if arguments.only else None
    told = check(box, arguments.seed, arguments.seconds, arguments.pairs, only)
    box.finish()
    return told


def main():
    parser = arguments_of(__doc__)
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--pairs", type=int, default=3, help="programs on each side")
    parser.add_argument("--only", help="only these kinds of trouble, separated by commas")
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

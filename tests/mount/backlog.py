#!/usr/bin/env python3
"""Very many changes while the host is away: `backlog.py --tulo PATH [--files N] [--seed N]`.

The service goes on answering, starts again with all of them, stays small, and brings all of them up
once the host is back, whatever happens to index, clock, descriptors and host meanwhile. Some have names
that are hard to spell, one stays open all the time, and one is changed at the host, too. Prints how long
each part took, which proves nothing but is worth looking at.
"""

import os
import pathlib
import random
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import LIBC, MNT_DETACH, eventually, expect, expect_equal, read  # noqa: E402
from model import Versions  # noqa: E402
from nasty import numbered  # noqa: E402
from proof import arguments_of, prove  # noqa: E402
from sides import recovered  # noqa: E402
from troubles import CLOCK, EXTRAS, HOST, INDEX, SERVICE, Troubles, patiently  # noqa: E402
from writing import difference, settled, status, tree  # noqa: E402

TROUBLES = [*INDEX, *HOST, *SERVICE, *CLOCK, *EXTRAS]

PER_FOLDER = 500
MOST_MEMORY = 200 * 1024 * 1024
KNOWN = b"downloaded before" * 1000


def contents(number):
    return b"%d\n" % number * (number % 50)


class Backlog:
    def __init__(self, box, files, kinds=tuple(TROUBLES), seed=1):
        self.box = box
        self.files = files
        self.kinds = kinds
        self.seed = seed
        self.troubles = Troubles(box, seed, kinds)
        self.versions = Versions("backlog")
        # Where nobody makes or removes files besides.
        self.top = f"backlog{seed}"
        self.mounts = 0
        self.most = 0
        self.held = None

    def name_of(self, number):
        odd = "names" in self.kinds and number % 7 == 0
        name = numbered(random.Random(number), number, 240) if odd else f"file{number}"
        return f"{self.top}/folder{number // PER_FOLDER}/{name}"

    def path_of(self, number):
        return self.box.path(self.name_of(number))

    def amid(self):
        """There is no host yet."""
        return self.troubles.amid(*HOST)

    def told(self, what, begin, count=1):
        took = time.monotonic() - begin
        each = f", {took / count * 1000:.2f} ms each" if count > 1 else ""
        print(f"{what}: {took:.2f} s{each}", flush=True)

    def mount(self):
        begin = time.monotonic()
        self.mounts += 1
        mount = self.box.mount("--no-thumbnails", point=self.box.file("m"),
                               name=f"mount{self.mounts}")
        self.box.mounts[:] = [mount]
        mount.allowed_errors.append("^error ")
        self.troubles.expect_clock(mount)
        self.told(f"start {self.mounts}", begin)
        return mount

    def look(self):
        """What a program and the user ask is answered, and the service has not grown."""
        begin = time.monotonic()
        now = status(self.box)
        self.told(f"status with {now['pending']} waiting", begin)
        found = patiently(lambda: read(self.box.path("known")))
        expect_equal(found, KNOWN, "a downloaded file")
        resident = self.box.mounts[0].resident_bytes()
        self.most = max(self.most, resident)
        expect(resident < MOST_MEMORY, f"{resident >> 20} MB resident with {now['pending']} waiting")
        return now["pending"]

    def create(self):
        part = max(PER_FOLDER, self.files // 10)
        begin = time.monotonic()
        for number in range(self.files):
            path = self.path_of(number)
            if number % PER_FOLDER == 0:
                patiently(lambda: os.mkdir(os.path.dirname(path)))
            self.put(path, contents(number))
            if (number + 1) % part == 0:
                self.told(f"files up to {number + 1}", begin, part)
                self.look()
                begin = time.monotonic()

    def change(self):
        """Some of what waits is changed once more; nothing of that is a change of its own."""
        begin = time.monotonic()
        every = range(0, self.files, 10)
        for number in every:
            path = self.path_of(number)
            patiently(lambda: os.rename(path, f"{path}.new"))
        self.told("renaming every tenth", begin, len(every))

    @staticmethod
    def put(path, data):
        with patiently(lambda: open(path, "wb", buffering=0)) as file:
            written = 0
            while written < len(data):
                written += patiently(lambda: file.write(data[written:]))

    def hold(self):
        """A program writes to one file all the time, and forces what it wrote."""
        if "holders" in self.kinds and not self.held:
            self.held = open(self.box.path(f"{self.top}/held"), "wb", buffering=0)
        if self.held:
            data = self.versions.fresh("held", b"x" * 5000)
            patiently(lambda: self.held.seek(0))
            patiently(lambda: self.held.write(data))
            patiently(lambda: os.fsync(self.held.fileno()))
            self.versions.keep(data, f"{self.top}/held")
            return data
        return None

    def both_sides(self):
        """The same file is changed here, and at the host, which tells nobody of it yet."""
        if "other_side" not in self.kinds:
            return
        for side, path in (("here", self.box.path("both")), ("there", os.path.join(self.box.root, "both"))):
            data = self.versions.fresh(side, b"")
            self.put(path, data)
            self.versions.keep(data, f"both, {side}")

    def expected(self):
        wanted = {self.top: None}
        for number in range(self.files):
            name = self.name_of(number)
            wanted[os.path.dirname(name)] = None
            wanted[f"{name}.new" if number % 10 == 0 else name] = contents(number)
        return wanted

    def of_the_queue(self, root):
        """What has been made here, without what is held."""
        below = tree(os.path.join(root, self.top))
        return {self.top: None, **{f"{self.top}/{name}": data for name, data in below.items()
                                   if name != "held"}}

    def waiting(self):
        """So many changes: files, their folders and what they are in; what is held; one known file."""
        return (self.files + -(-self.files // PER_FOLDER) + 1 + bool(self.held)
                + ("other_side" in self.kinds))

    def prepare(self):
        """What the host has before it goes."""
        self.box.write("known", KNOWN)
        self.box.write("both", b"")
        self.box.start_host()
        mount = self.mount()
        eventually(lambda: os.path.exists(self.box.path("both")), "shown")
        expect_equal(read(self.box.path("known")), KNOWN, "a file of the host")
        self.box.host.stop()
        return mount

    def fill(self):
        os.mkdir(self.box.path(self.top))
        with self.amid():
            before = self.hold()
            self.create()
            self.change()
            self.both_sides()
            after = self.hold()
        if before:
            self.versions.replace(before, "held, written anew")
        return after

    def restart(self, mount):
        """Ended and killed, the service has all that waits."""
        if self.held:
            self.held.close()
        expect_equal(self.look(), self.waiting(), "changes that wait")
        begin = time.monotonic()
        mount.unmount()
        self.told("end", begin)
        mount = self.mount()
        expect_equal(self.look(), self.waiting(), "changes that wait after a restart")
        mount.kill()
        LIBC.umount2(os.fsencode(mount.point), MNT_DETACH)
        self.mount()
        expect_equal(self.look(), self.waiting(), "changes that wait after a kill")

    def drain(self):
        self.box.start_host()
        begin = time.monotonic()
        with self.troubles.amid():
            time.sleep(min(300, 2 + self.files / 400))
        settled(self.box, 120 + self.files / 20)
        self.told("until the host has all", begin, self.files)

    def run(self):
        """One queue; the host has it in the end, and so has the mount."""
        mount = self.prepare()
        self.fill()
        self.restart(mount)
        wanted = self.expected()
        begin = time.monotonic()
        wrong = difference(self.of_the_queue(self.box.path()), wanted)
        self.told("reading all", begin, self.files)
        expect(not wrong, f"the mount: {wrong[:10]}")
        self.drain()
        self.look()
        for root in (self.box.root, self.box.path()):
            wrong = difference(self.of_the_queue(root), wanted)
            expect(not wrong, f"{root} afterwards: {wrong[:10]}")
            lost = self.versions.lost(tree(root), recovered(self.box))
            expect(not lost, "\n".join(lost))
        return f"{self.files} files, at most {self.most >> 20} MB resident; {self.troubles.told()}"


def run(box, arguments):
    told = Backlog(box, arguments.files, arguments.troubles, arguments.seed).run()
    box.finish()
    return told


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES)
    parser.add_argument("--files", type=int, default=100_000)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

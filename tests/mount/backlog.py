#!/usr/bin/env python3
"""Very many changes while the host is away: `backlog.py --tulo PATH [--files N]`.

The service goes on answering, starts again with all of them, stays small, and brings all of them up
once the host is back. Prints how long each part took, which proves nothing but is worth looking at.
"""

import os
import pathlib
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import LIBC, MNT_DETACH, expect, expect_equal, read  # noqa: E402
from proof import arguments_of, prove  # noqa: E402
from writing import difference, settled, status, tree  # noqa: E402

PER_FOLDER = 500
MOST_MEMORY = 200 * 1024 * 1024
KNOWN = b"downloaded before" * 1000


def contents(number):
    return b"%d\n" % number * (number % 50)


def name_of(number):
    return f"folder{number // PER_FOLDER}/file{number}"


class Backlog:
    def __init__(self, box, files):
        self.box = box
        self.files = files
        self.mounts = 0
        self.most = 0

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
        mount.allowed_errors.append("cannot be reached|did not go up")
        self.told(f"start {self.mounts}", begin)
        return mount

    def look(self):
        """What a program and the user ask is answered, and the service has not grown."""
        begin = time.monotonic()
        now = status(self.box)
        self.told(f"status with {now['pending']} waiting", begin)
        expect_equal(read(self.box.path("known")), KNOWN, "a downloaded file")
        resident = self.box.mounts[0].resident_bytes()
        self.most = max(self.most, resident)
        expect(resident < MOST_MEMORY, f"{resident >> 20} MB resident with {now['pending']} waiting")
        return now["pending"]

    def create(self):
        part = max(PER_FOLDER, self.files // 10)
        begin = time.monotonic()
        for number in range(self.files):
            path = self.box.path(name_of(number))
            if number % PER_FOLDER == 0:
                os.mkdir(os.path.dirname(path))
            with open(path, "wb") as file:
                file.write(contents(number))
            if (number + 1) % part == 0:
                self.told(f"files up to {number + 1}", begin, part)
                self.look()
                begin = time.monotonic()

    def change(self):
        """Some of what waits is changed once more; nothing of that is a change of its own."""
        begin = time.monotonic()
        every = range(0, self.files, 10)
        for number in every:
            path = self.box.path(name_of(number))
            os.rename(path, f"{path}.new")
        self.told("renaming every tenth", begin, len(every))

    def expected(self):
        wanted = {"known": KNOWN}
        for number in range(self.files):
            name = name_of(number)
            wanted[os.path.dirname(name)] = None
            wanted[f"{name}.new" if number % 10 == 0 else name] = contents(number)
        return wanted

    def run(self):
        self.box.write("known", KNOWN)
        self.box.start_host()
        mount = self.mount()
        expect_equal(read(self.box.path("known")), KNOWN, "a file of the host")
        self.box.host.stop()
        self.create()
        self.change()
        folders = -(-self.files // PER_FOLDER)
        expect_equal(self.look(), self.files + folders, "changes that wait")
        begin = time.monotonic()
        mount.unmount()
        self.told("end", begin)
        mount = self.mount()
        expect_equal(self.look(), self.files + folders, "changes that wait after a restart")
        mount.kill()
        LIBC.umount2(os.fsencode(mount.point), MNT_DETACH)
        self.mount()
        expect_equal(self.look(), self.files + folders, "changes that wait after a kill")
        wanted = self.expected()
        begin = time.monotonic()
        wrong = difference(tree(self.box.path()), wanted)
        self.told("reading all", begin, self.files)
        expect(not wrong, f"the mount: {wrong[:10]}")
        self.box.start_host()
        begin = time.monotonic()
        settled(self.box, 120 + self.files / 20)
        self.told("until the host has all", begin, self.files)
        self.look()
        for root in (self.box.root, self.box.path()):
            wrong = difference(tree(root), wanted)
            expect(not wrong, f"{root} afterwards: {wrong[:10]}")


def run(box, arguments):
    backlog = Backlog(box, arguments.files)
    backlog.run()
    box.finish()
    return f"at most {backlog.most >> 20} MB resident"


def main():
    parser = arguments_of(__doc__, random_one=False)
    parser.add_argument("--files", type=int, default=100_000)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

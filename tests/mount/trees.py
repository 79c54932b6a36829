#!/usr/bin/env python3
"""The same random operations on the mount and on an ordinary folder.

    trees.py --tulo PATH [--seed N] [--steps N] [--rounds N]

Every call must give the same answer or the same errno on both sides, the trees must be equal
afterwards, and the host must have the same once the queue is empty. A failure is replayed with fewer
and fewer operations; the shortest sequence is printed.
"""

import errno
import os
import pathlib
import random
import stat
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure  # noqa: E402
from load import RENAME_EXCHANGE, RENAME_NOREPLACE, rename2  # noqa: E402
from proof import arguments_of, prove  # noqa: E402
from shrinking import shrink  # noqa: E402
from writing import difference, settled, tree, writable  # noqa: E402

NAMES = ["a", "b", "c", "ä b"]
# Never the folder itself or what is above it.
ODD = ["a/", "b/.", "n" * 255, "n" * 256, "a/../b", "./c", "b//c"]


def some_path(rng):
    if rng.random() < 0.06:
        return rng.choice(ODD)
    return "/".join(rng.choice(NAMES) for _ in range(rng.choice([1, 1, 2, 2, 3])))


def plan(rng, steps):
    kinds = ["create", "create", "exclusive", "write", "append", "mkdir", "mkdir", "rmdir", "unlink",
             "rename", "rename", "exchange", "noreplace", "truncate", "symlink", "readlink", "list",
             "stat", "lstat", "read", "touch", "chmod", "directory", "nofollow", "access", "fifo"]
    return [(rng.choice(kinds), some_path(rng), some_path(rng), rng.randrange(9000))
            for _ in range(steps)]


def described(status):
    """What both sides must agree on. A symbolic link's own mode and size are the system's."""
    kind = stat.S_IFMT(status.st_mode)
    size = status.st_size if stat.S_ISREG(status.st_mode) else 0
    return oct(kind), size


class Side:
    def __init__(self, root):
        self.root = root

    def path(self, name):
        return f"{self.root}/{name}"

    def call(self, kind, one, other, number):
        """What the operation answers, or its errno by name."""
        try:
            return getattr(self, kind)(self.path(one), self.path(other), number)
        except OSError as error:
            return errno.errorcode.get(error.errno, error.errno)

    @staticmethod
    def _open(path, flags, data=b""):
        descriptor = os.open(path, flags, 0o644)
        try:
            return os.write(descriptor, data) if data else 0
        finally:
            os.close(descriptor)

    def create(self, path, _other, number):
        return self._open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, bytes([number % 256]) * number)

    def exclusive(self, path, _other, _number):
        return self._open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, b"new")

    def write(self, path, _other, number):
        return self._open(path, os.O_WRONLY, bytes([number % 256]) * (number % 500))

    def append(self, path, _other, number):
        return self._open(path, os.O_WRONLY | os.O_APPEND, b"x" * (number % 100))

    def directory(self, path, _other, _number):
        return self._open(path, os.O_RDONLY | os.O_DIRECTORY)

    def nofollow(self, path, _other, _number):
        return self._open(path, os.O_RDONLY | os.O_NOFOLLOW)

    def mkdir(self, path, _other, _number):
        return os.mkdir(path)

    def rmdir(self, path, _other, _number):
        return os.rmdir(path)

    def unlink(self, path, _other, _number):
        return os.unlink(path)

    def rename(self, path, other, _number):
        return os.rename(path, other)

    def exchange(self, path, other, _number):
        return rename2(path, other, RENAME_EXCHANGE)

    def noreplace(self, path, other, _number):
        return rename2(path, other, RENAME_NOREPLACE)

    def truncate(self, path, _other, number):
        return os.truncate(path, number)

    def symlink(self, path, _other, number):
        # Never out of the folder.
        return os.symlink(NAMES[number % len(NAMES)], path)

    def readlink(self, path, _other, _number):
        return os.readlink(path)

    def list(self, path, _other, _number):
        return sorted(os.listdir(path))

    def stat(self, path, _other, _number):
        return described(os.stat(path))

    def lstat(self, path, _other, _number):
        return described(os.lstat(path))

    def read(self, path, _other, _number):
        with open(path, "rb") as file:
            return file.read()

    def touch(self, path, _other, number):
        os.utime(path, (number, number))
        return int(os.stat(path).st_mtime)

    def chmod(self, path, _other, number):
        # Always usable by its owner, so that nothing depends on who runs this.
        mode = 0o600 | (number & 0o077)
        if os.path.isdir(path):
            mode |= 0o700
        os.chmod(path, mode)
        return oct(os.stat(path).st_mode & 0o777)

    def access(self, path, _other, _number):
        return os.access(path, os.R_OK)

    def fifo(self, path, _other, _number):
        # Only what is said when the name is taken or the folder is not there: there are no pipes.
        if os.path.lexists(path) or not os.path.isdir(os.path.dirname(path.rstrip("/"))):
            return os.mkfifo(path)
        return None


def links(root):
    return {os.path.relpath(os.path.join(folder, name), root): os.readlink(os.path.join(folder, name))
            for folder, folders, files in os.walk(root) for name in folders + files
            if os.path.islink(os.path.join(folder, name))}


def shown(answer):
    return f"{len(answer)} bytes" if isinstance(answer, bytes) and len(answer) > 40 else repr(answer)


def compare(mounted, ordinary, operations):
    """What differs first, in words, or None."""
    here, there = Side(mounted), Side(ordinary)
    for operation in operations:
        found, wanted = here.call(*operation), there.call(*operation)
        if found != wanted:
            return f"{operation}: {shown(found)}, an ordinary folder says {shown(wanted)}"
    wrong = difference(tree(mounted), tree(ordinary))
    if wrong:
        return f"the trees differ: {wrong[:10]}"
    if links(mounted) != links(ordinary):
        return f"the links differ: {links(mounted)}, {links(ordinary)}"
    return None


class Trees:
    def __init__(self, box):
        self.box = box
        self.number = 0

    def fresh(self):
        """A new folder on each side."""
        self.number += 1
        mounted = self.box.path(f"t{self.number}")
        os.mkdir(mounted)
        return mounted, tempfile.mkdtemp(dir=self.box.directory)

    def fails(self, operations):
        return compare(*self.fresh(), operations)

    def run(self, seed, steps):
        mounted, ordinary = self.fresh()
        operations = plan(random.Random(seed), steps)
        wrong = compare(mounted, ordinary, operations)
        if wrong:
            short = shrink(operations, lambda fewer: self.fails(fewer) is not None)
            wrong = self.fails(short) or wrong
            lines = "\n  ".join(map(str, short))
            raise Failure(f"seed {seed}, {steps} steps: {wrong}\n  {lines}")
        return os.path.basename(mounted), ordinary


def check(box, seed, steps, rounds):
    trees = Trees(box)
    pairs = [trees.run(seed + number, steps) for number in range(rounds)]
    settled(box, 120)
    for name, ordinary in pairs:
        wrong = difference(tree(os.path.join(box.root, name)), tree(ordinary))
        if wrong:
            raise Failure(f"{name} (seed {seed}): the host differs: {wrong[:20]}")


def run(box, arguments):
    box.start_host()
    writable(box, "--no-thumbnails")
    check(box, arguments.seed, arguments.steps, arguments.rounds)
    box.finish()
    return f"{arguments.rounds} rounds of {arguments.steps} operations, all answers equal"


def main():
    parser = arguments_of(__doc__)
    parser.add_argument("--steps", type=int, default=1000)
    parser.add_argument("--rounds", type=int, default=20)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

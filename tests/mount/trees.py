#!/usr/bin/env python3
"""The same random operations on the mount and on an ordinary folder.

    trees.py --tulo PATH [--seed N] [--steps N] [--rounds N] [--seconds N] [--without NAME,NAME]

Every call must give the same answer or the same errno on both sides, also while host, index and clock
are in trouble, the trees must be equal afterwards, and the host must have the same once the queue is
empty. A call that finds no descriptor has done nothing, and is made again. A failure is replayed without
troubles; if it comes again, with fewer and fewer operations.
"""

import errno
import os
import pathlib
import random
import shutil
import stat
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure, expect  # noqa: E402
from load import RENAME_EXCHANGE, RENAME_NOREPLACE, rename2  # noqa: E402
from model import Versions  # noqa: E402
from nasty import apart  # noqa: E402
from proof import add_seconds, arguments_of, prove, turns  # noqa: E402
from shrinking import shrink  # noqa: E402
from troubles import ALL, Troubles, patiently  # noqa: E402
from writing import difference, settled, tree, writable  # noqa: E402

# Both folders are one program's: what another side does has no counterpart.
TROUBLES = [*ALL, "names", "holders"]
NAMES = ["a", "b", "c", "\u00e4 b"]
AT_ONCE = 5
PAUSE = 0.1
# As long as the index cannot be read it is not known whether the host has something in a folder, which
# is neither removed nor replaced then.
UNKNOWN = {errno.EIO, errno.EHOSTDOWN}


def odd(names):
    """Ways to write what is there, or too much. Never the folder itself or what is above it."""
    a, b, c = names[:3]
    return [f"{a}/", f"{b}/.", "n" * 255, "n" * 256, f"{a}/../{b}", f"./{c}", f"{b}//{c}"]


def some_path(rng, names):
    if rng.random() < 0.06:
        return rng.choice(odd(names))
    return "/".join(rng.choice(names) for _ in range(rng.choice([1, 1, 2, 2, 3])))


def plan(rng, steps, names, holders=True):
    kinds = ["create", "create", "exclusive", "write", "append", "mkdir", "mkdir", "rmdir", "unlink",
             "rename", "rename", "exchange", "noreplace", "truncate", "symlink", "readlink", "list",
             "stat", "lstat", "read", "touch", "chmod", "directory", "nofollow", "access", "fifo"]
    if holders:
        kinds += ["hold", "held", "scribble"]
    return [(rng.choice(kinds), some_path(rng, names), some_path(rng, names), rng.randrange(9000))
            for _ in range(steps)]


def described(status):
    """What both sides must agree on. A symbolic link's own mode and size are the system's."""
    kind = stat.S_IFMT(status.st_mode)
    size = status.st_size if stat.S_ISREG(status.st_mode) else 0
    return oct(kind), size


class Side:
    def __init__(self, root):
        self.root = root
        # Descriptors that stay open, whatever becomes of the names.
        self.kept = {}

    def release(self):
        for descriptor in self.kept.values():
            os.close(descriptor)

    def path(self, name):
        return f"{self.root}/{name}"

    def call(self, kind, one, other, number):
        """What the operation answers, or its errno by name."""
        try:
            refused = UNKNOWN if kind in ("rmdir", "rename") else ()
            return patiently(lambda: getattr(self, kind)(self.path(one), self.path(other), number), refused)
        except OSError as error:
            return errno.errorcode.get(error.errno, error.errno)

    @staticmethod
    def _open(path, flags, data=b""):
        descriptor = patiently(lambda: os.open(path, flags, 0o644))
        try:
            return patiently(lambda: os.write(descriptor, data)) if data else 0
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

    def hold(self, path, _other, number):
        descriptor = os.open(path, os.O_RDWR)
        before = self.kept.get(number % 3)
        if before is not None:
            os.close(before)
        self.kept[number % 3] = descriptor

    def held(self, _path, _other, number):
        descriptor = self.kept.get(number % 3)
        return descriptor is not None and os.pread(descriptor, 1 << 20, number % 50)

    def scribble(self, _path, _other, number):
        descriptor = self.kept.get(number % 3)
        return descriptor is not None and os.pwrite(descriptor, b"held %d" % number, number % 300)

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


def answers_differ(here, there, operations):
    """What differs first, in words, or None."""
    for number, operation in enumerate(operations):
        # Now and then what happens in the background gets its turn.
        if operation[3] % 50 == 0:
            time.sleep(PAUSE)
        found, wanted = here.call(*operation), there.call(*operation)
        if found != wanted:
            return f"{number}, {operation}: {shown(found)}, an ordinary folder says {shown(wanted)}"
    return None


def compare(mounted, ordinary, operations):
    here, there = Side(mounted), Side(ordinary)
    try:
        wrong = answers_differ(here, there, operations)
    finally:
        here.release()
        there.release()
    wrong = wrong or patiently(lambda: difference(tree(mounted), tree(ordinary)))[:10]
    if not wrong and links(mounted) != links(ordinary):
        return f"the links differ: {links(mounted)}, {links(ordinary)}"
    return wrong or None


class Trees:
    def __init__(self, box, kinds):
        self.box = box
        self.kinds = kinds
        self.number = 0
        self.versions = None

    def fresh(self):
        """A new folder on each side."""
        self.number += 1
        mounted = self.box.path(f"t{self.number}")
        patiently(lambda: os.mkdir(mounted))
        return mounted, tempfile.mkdtemp(dir=self.box.directory)

    def fails(self, operations):
        return compare(*self.fresh(), operations)

    def run(self, seed, steps):
        mounted, ordinary = self.fresh()
        rng = random.Random(seed)
        names = apart(rng, 4) if "names" in self.kinds else NAMES
        operations = plan(rng, steps, names, "holders" in self.kinds)
        wrong = compare(mounted, ordinary, operations)
        if wrong:
            raise Failure(f"seed {seed}, {steps} steps: {wrong}\n  {self.shorter(operations)}")
        for name, data in tree(ordinary).items():
            if data:
                self.versions.known.add(data)
                self.versions.keep(data, f"{os.path.basename(mounted)}/{name}")
        return os.path.basename(mounted), ordinary

    def shorter(self, operations):
        if not self.fails(operations):
            return "not again with the same operations"
        short = shrink(operations, lambda fewer: self.fails(fewer) is not None)
        return "\n  ".join([f"{self.fails(short)}", *map(str, short)])

    def look_at_host(self, pairs):
        settled(self.box, 120)
        wrong = self.versions.wrong(tree(self.box.root))
        expect(not wrong, f"what the model misses: {wrong[:20]}")
        for name, ordinary in pairs:
            wrong = difference(tree(os.path.join(self.box.root, name)), tree(ordinary))
            expect(not wrong, f"{name}: the host differs: {wrong[:20]}")
            shutil.rmtree(self.box.path(name))
        settled(self.box, 120)

    def batch(self, seed, steps, rounds, troubles):
        """Some rounds amid troubles, and the host's folder after them."""
        self.versions = Versions("trees")
        with troubles.amid():
            pairs = [self.run(seed + each, steps) for each in range(rounds)]
        self.look_at_host(pairs)


def check(box, seed, steps, rounds, kinds=tuple(TROUBLES), seconds=None):
    """Starts host and mount. Returns how much was done."""
    troubles = Troubles(box, seed, kinds)
    box.start_host()
    mount = writable(box, "--no-thumbnails")
    mount.allowed_errors.append("^error ")
    troubles.expect_clock(mount)
    trees = Trees(box, kinds)
    count = 0
    for number in turns(-(-rounds // AT_ONCE), seconds):
        some = AT_ONCE if seconds else min(AT_ONCE, rounds - number * AT_ONCE)
        trees.batch(seed + count, steps, some, troubles)
        count += some
    return f"{count} rounds of {steps} operations, all answers equal; {troubles.told()}"


def run(box, arguments):
    told = check(box, arguments.seed, arguments.steps, arguments.rounds, arguments.troubles, arguments.seconds)
    box.finish()
    return told


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES)
    add_seconds(parser)
    parser.add_argument("--steps", type=int, default=1000)
    parser.add_argument("--rounds", type=int, default=20)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

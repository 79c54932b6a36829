#!/usr/bin/env python3
"""Random operations on one file of the mount against a model of its bytes.

    fsx.py --tulo PATH [--seed N] [--steps N] [--files N] [--seconds N] [--without NAME,NAME]

Reads, writes, truncations, mappings, holes, allocations, copies inside the file, closing and opening
again, forcing to the disk, under names that are hard to spell, with a descriptor that stays open over
all of it. What is read must be the model's bytes at every step, whatever happens to host, index and
clock meanwhile, and the host has them at the end. A call may say that there are no descriptors, and is
made again. A failure is replayed without troubles; if it comes again, with fewer and fewer operations.
"""

import ctypes
import errno
import mmap
import os
import pathlib
import random
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import LIBC, Failure, expect_equal  # noqa: E402
from model import Versions  # noqa: E402
from nasty import apart  # noqa: E402
from proof import add_seconds, arguments_of, prove, turns  # noqa: E402
from shrinking import shrink  # noqa: E402
from troubles import ALL, Troubles, patiently  # noqa: E402
from writing import settled, tree, writable  # noqa: E402

# The other side has its say in the proofs that look at two: here every byte is known beforehand.
TROUBLES = [*ALL, "names", "holders"]
LARGEST = 200_000
# How many files are worked on before the host is looked at.
AT_ONCE = 5
KEEP_SIZE, PUNCH_HOLE, ZERO_RANGE = 1, 2, 16
# What file systems may refuse; the bytes stay as they were.
REFUSED = {errno.EOPNOTSUPP, errno.ENOSYS}


def fallocate(descriptor, mode, offset, length):
    call = LIBC.fallocate
    call.argtypes = [ctypes.c_int, ctypes.c_int, ctypes.c_int64, ctypes.c_int64]
    if call(descriptor, mode, offset, length) != 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number))


def plan(rng, steps):
    """The operations with all their arguments, so that they can be repeated."""
    result = []
    for _ in range(steps):
        kind = rng.choice(["read", "read", "write", "write", "truncate", "mapread", "mapwrite",
                           "punch", "zero", "allocate", "copy", "reopen", "fsync", "append",
                           "second", "held", "hole", "rename"])
        offset = rng.choice([0, rng.randrange(LARGEST), rng.randrange(40) * 4096])
        length = rng.choice([1, 100, 4096, 5000, rng.randrange(1, 60_000)])
        length = max(1, min(length, LARGEST - offset))
        result.append((kind, offset, length, rng.randrange(LARGEST), rng.randrange(1, 256)))
    return result


class File:
    """The file and what it must hold. `asks`: whether each change of a mapping is forced."""

    asks = False

    def __init__(self, directory, names):
        self.names = [os.path.join(directory, name) for name in names]
        self.path = self.names[0]
        self.model = bytearray()
        self.descriptor = patiently(lambda: os.open(self.path, os.O_RDWR | os.O_CREAT | os.O_TRUNC, 0o644))
        self.held_one = patiently(lambda: os.open(self.path, os.O_RDONLY))

    def close(self):
        os.close(self.descriptor)
        os.close(self.held_one)

    def check(self, found, offset, length, how):
        wanted = bytes(self.model[offset:offset + length])
        if found == wanted:
            return
        first = next((i for i, (a, b) in enumerate(zip(found, wanted)) if a != b),
                     min(len(found), len(wanted)))
        raise Failure(f"{how} at {offset}+{length}: {len(found)} bytes, expected {len(wanted)}; "
                      f"first difference at {offset + first}")

    def put(self, offset, data):
        if len(self.model) < offset:
            self.model.extend(bytes(offset - len(self.model)))
        self.model[offset:offset + len(data)] = data

    def apply(self, kind, offset, length, other, byte):
        data = bytes((byte + i) % 256 for i in range(length))
        patiently(lambda: getattr(self, kind)(offset, length, other, data))
        size = os.fstat(self.descriptor).st_size
        if size != len(self.model):
            raise Failure(f"after {kind} the size is {size}, not {len(self.model)}")

    def read(self, offset, length, _other, _data):
        self.check(os.pread(self.descriptor, length, offset), offset, length, "read")

    def held(self, offset, length, _other, _data):
        found = os.pread(self.held_one, length, offset)
        self.check(found, offset, length, "read through what was held")

    def second(self, offset, length, _other, _data):
        with open(self.path, "rb") as file:
            file.seek(offset)
            self.check(file.read(length), offset, length, "read through another handle")

    def write(self, offset, _length, _other, data):
        os.pwrite(self.descriptor, data, offset)
        self.put(offset, data)

    def append(self, _offset, length, _other, data):
        if len(self.model) + length > 2 * LARGEST:
            return
        descriptor = os.open(self.path, os.O_WRONLY | os.O_APPEND)
        try:
            os.write(descriptor, data)
        finally:
            os.close(descriptor)
        self.put(len(self.model), data)

    def truncate(self, _offset, _length, other, _data):
        os.ftruncate(self.descriptor, other)
        del self.model[other:]
        self.model.extend(bytes(other - len(self.model)))

    def mapread(self, offset, length, _other, _data):
        if not self.model:
            return
        with mmap.mmap(self.descriptor, len(self.model), prot=mmap.PROT_READ) as mapping:
            self.check(mapping[offset:offset + length], offset, length, "mapped read")

    def mapwrite(self, offset, length, _other, data):
        if offset >= len(self.model):
            return
        data = data[:len(self.model) - offset]
        with mmap.mmap(self.descriptor, len(self.model)) as mapping:
            mapping[offset:offset + len(data)] = data
            # What cannot be written is told only to who asks.
            if length % 2 or self.asks:
                self._flush(mapping)
        self.put(offset, data)

    def _flush(self, mapping):
        """Forced again after a failure, with the same bytes: the pages count as written by then."""
        def flush():
            data = mapping[:]
            try:
                mapping.flush()
            except OSError as error:
                mapping[:] = data
                raise OSError(errno.EMFILE, f"instead of {error}") if error.errno == errno.EIO else error

        patiently(flush)

    def _allocate(self, mode, offset, length):
        try:
            fallocate(self.descriptor, mode, offset, length)
        except OSError as error:
            if error.errno in REFUSED:
                return False
            raise
        return True

    def punch(self, offset, length, _other, _data):
        if self._allocate(PUNCH_HOLE | KEEP_SIZE, offset, length):
            end = min(offset + length, len(self.model))
            self.model[offset:end] = bytes(max(0, end - offset))

    def zero(self, offset, length, _other, _data):
        if self._allocate(ZERO_RANGE, offset, length):
            self.put(offset, bytes(length))

    def allocate(self, offset, length, other, _data):
        keep = KEEP_SIZE if other % 2 else 0
        if self._allocate(keep, offset, length) and not keep and offset + length > len(self.model):
            self.put(len(self.model), bytes(offset + length - len(self.model)))

    def copy(self, offset, length, other, _data):
        length = min(length, len(self.model) - offset, abs(other - offset))
        if length <= 0:
            return
        data = bytes(self.model[offset:offset + length])
        count = os.copy_file_range(self.descriptor, self.descriptor, length, offset, other)
        self.put(other, data[:count])

    def hole(self, offset, _length, _other, _data):
        """Everything that is called a hole reads as zeros."""
        try:
            start = os.lseek(self.descriptor, offset, os.SEEK_HOLE)
            end = os.lseek(self.descriptor, start, os.SEEK_DATA)
        except OSError as error:
            if error.errno == errno.ENXIO:
                return
            raise
        if any(self.model[start:end]):
            raise Failure(f"{start} to {end} is called a hole and is none")

    def reopen(self, _offset, _length, _other, _data):
        os.close(self.descriptor)
        self.descriptor = patiently(lambda: os.open(self.path, os.O_RDWR))

    def fsync(self, _offset, _length, other, _data):
        (os.fsync if other % 2 else os.fdatasync)(self.descriptor)

    def rename(self, _offset, _length, _other, _data):
        target = self.names[self.path == self.names[0]]
        os.rename(self.path, target)
        self.path = target


def replay(directory, names, operations):
    """What went wrong and in which step, or None; and the file."""
    file = File(directory, names)
    number = 0
    try:
        for number, step in enumerate(operations):
            file.apply(*step)
        file.second(0, len(file.model), 0, b"")
        return None, file
    except (Failure, OSError) as error:
        return f"step {number}, {operations[number]}: {error}", file
    finally:
        file.close()


class Exercise:
    """`names`: whether they are odd ones."""

    def __init__(self, box, names):
        self.box = box
        self.names = names
        self.versions = Versions("fsx")
        self.wanted = {}
        self.done = 0

    def one(self, seed, steps):
        """One file; raises a Failure with a short replay."""
        rng = random.Random(seed)
        names = apart(rng, 2) if self.names else ["fsx-a", "fsx-b"]
        directory = self.box.path(f"fsx{seed}")
        patiently(lambda: os.mkdir(directory))
        operations = plan(rng, steps)
        wrong, file = replay(directory, names, operations)
        if wrong:
            short = self.shorter(directory, names, operations)
            raise Failure(f"seed {seed}, {steps} steps: {wrong}\n  {short}")
        name = os.path.relpath(file.path, self.box.path())
        self.wanted[name] = bytes(file.model)
        self.versions.known.add(bytes(file.model))
        self.versions.keep(bytes(file.model), name)
        self.done += steps

    def shorter(self, directory, names, operations):
        if replay(directory, names, operations)[0] is None:
            return "not again with the same operations"
        short = shrink(operations, lambda fewer: replay(directory, names, fewer)[0] is not None)
        return "\n  ".join([f"{replay(directory, names, short)[0]}", *map(str, short)])

    def look_at_host(self):
        settled(self.box, 120)
        found = tree(self.box.root)
        wrong = self.versions.wrong(found)
        expect_equal(wrong, [], "what the model misses")
        for name, data in self.wanted.items():
            expect_equal(found.get(name) == data, True, f"the host has the bytes of {name!r}")


def check(box, seed, steps, files, kinds=tuple(TROUBLES), seconds=None):
    """Starts host and mount. Returns how much was done."""
    troubles = Troubles(box, seed, kinds)
    File.asks = "descriptors" in kinds
    box.start_host()
    mount = writable(box, "--no-thumbnails")
    mount.allowed_errors.append("^error ")
    troubles.expect_clock(mount)
    exercise = Exercise(box, "names" in kinds)
    count = 0
    for number in turns(-(-files // AT_ONCE), seconds):
        some = AT_ONCE if seconds else min(AT_ONCE, files - number * AT_ONCE)
        with troubles.amid():
            for _ in range(some):
                exercise.one(seed + count, steps)
                count += 1
        exercise.look_at_host()
    return f"{count} files, {exercise.done} operations, every byte as the model has it; {troubles.told()}"


def run(box, arguments):
    told = check(box, arguments.seed, arguments.steps, arguments.files, arguments.troubles, arguments.seconds)
    box.finish()
    return told


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES)
    add_seconds(parser)
    parser.add_argument("--steps", type=int, default=2000)
    parser.add_argument("--files", type=int, default=10)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

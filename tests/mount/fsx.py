#!/usr/bin/env python3
"""Random operations on one file of the mount against a model of its bytes.

    fsx.py --tulo PATH [--seed N] [--steps N] [--files N]

Reads, writes, truncations, mappings, holes, allocations, copies inside the file, closing and opening
again, forcing to the disk. What is read must be the model's bytes at every step, and the host has
them at the end. A failure is replayed with fewer and fewer operations; the shortest is printed.
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
from proof import arguments_of, prove  # noqa: E402
from shrinking import shrink  # noqa: E402
from writing import settled, writable  # noqa: E402

LARGEST = 200_000
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
                           "second", "hole", "rename"])
        offset = rng.choice([0, rng.randrange(LARGEST), rng.randrange(40) * 4096])
        length = rng.choice([1, 100, 4096, 5000, rng.randrange(1, 60_000)])
        length = max(1, min(length, LARGEST - offset))
        result.append((kind, offset, length, rng.randrange(LARGEST), rng.randrange(1, 256)))
    return result


class File:
    """The file and what it must hold."""

    def __init__(self, path):
        self.path = path
        self.model = bytearray()
        self.descriptor = os.open(path, os.O_RDWR | os.O_CREAT | os.O_TRUNC, 0o644)

    def close(self):
        os.close(self.descriptor)

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
        getattr(self, kind)(offset, length, other, data)
        size = os.fstat(self.descriptor).st_size
        if size != len(self.model):
            raise Failure(f"after {kind} the size is {size}, not {len(self.model)}")

    def read(self, offset, length, _other, _data):
        self.check(os.pread(self.descriptor, length, offset), offset, length, "read")

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
            if length % 2:
                mapping.flush()
        self.put(offset, data)

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
        self.descriptor = os.open(self.path, os.O_RDWR)

    def fsync(self, _offset, _length, other, _data):
        (os.fsync if other % 2 else os.fdatasync)(self.descriptor)

    def rename(self, _offset, _length, _other, _data):
        target = self.path[:-1] + ("b" if self.path.endswith("a") else "a")
        os.rename(self.path, target)
        self.path = target


def replay(directory, operations):
    """What went wrong, or None; and the bytes and the name at the end."""
    file = File(os.path.join(directory, "fsx-a"))
    step = None
    try:
        for step in operations:
            file.apply(*step)
        with open(file.path, "rb") as end:
            file.check(end.read(), 0, len(file.model), "the end")
        return None, file
    except (Failure, OSError) as error:
        return f"{step}: {error}", file
    finally:
        file.close()


def exercise(box, seed, steps):
    """One file; raises a Failure with a short replay."""
    directory = box.path(f"fsx{seed}")
    os.mkdir(directory)
    operations = plan(random.Random(seed), steps)
    wrong, file = replay(directory, operations)
    if wrong:
        short = shrink(operations, lambda fewer: replay(directory, fewer)[0] is not None)
        wrong = replay(directory, short)[0] or wrong
        lines = "\n  ".join(map(str, short))
        raise Failure(f"seed {seed}, {steps} steps: {wrong}\n  {lines}")
    return os.path.relpath(file.path, box.path()), bytes(file.model)


def check(box, seed, steps, files):
    wanted = dict(exercise(box, seed + i, steps) for i in range(files))
    settled(box)
    for name, data in wanted.items():
        with open(os.path.join(box.root, name), "rb") as file:
            expect_equal(file.read() == data, True, f"the host has the bytes of {name}")


def run(box, arguments):
    box.start_host()
    writable(box)
    check(box, arguments.seed, arguments.steps, arguments.files)
    box.finish()
    return f"{arguments.files} files of {arguments.steps} operations each"


def main():
    parser = arguments_of(__doc__)
    parser.add_argument("--steps", type=int, default=2000)
    parser.add_argument("--files", type=int, default=10)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

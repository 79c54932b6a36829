#!/usr/bin/env python3
"""Many processes over the same few names: nothing hangs, and both sides are equal at the end.

    racer.py --tulo PATH [--seconds N] [--processes N] [--seed N] [--kill]

`--kill` kills the host now and then meanwhile.
"""

import errno
import mmap
import multiprocessing
import os
import pathlib
import random
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure, expect  # noqa: E402
from load import RENAME_EXCHANGE, RENAME_NOREPLACE, rename2  # noqa: E402
from proof import arguments_of, prove  # noqa: E402
from writing import difference, settled, status, tree, writable  # noqa: E402

NAMES = ["a", "b", "c"]
# What a program may be told while others change the same names.
EXPECTED = {errno.ENOENT, errno.EEXIST, errno.ENOTDIR, errno.EISDIR, errno.ENOTEMPTY, errno.EINVAL,
            errno.ELOOP, errno.ESTALE, errno.EBUSY}


class Racer:
    def __init__(self, root, seed):
        self.root = root
        self.random = random.Random(seed)

    def path(self):
        return os.path.join(self.root, *(self.random.choice(NAMES)
                                         for _ in range(self.random.choice([1, 2, 2, 3]))))

    def step(self):
        self.random.choice([self.create, self.create, self.append, self.read, self.map, self.mkdir,
                            self.mkdir, self.unlink, self.rmdir, self.rename, self.rename,
                            self.exchange, self.noreplace, self.list, self.truncate])()

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


def race(root, seed, end, results):
    racer = Racer(root, seed)
    done = 0
    while time.monotonic() < end:
        try:
            racer.step()
            done += 1
        except OSError as error:
            if error.errno not in EXPECTED:
                results.put((done, f"{error}"))
                return
    results.put((done, None))


def kill_host(box, chance, end):
    while time.monotonic() < end:
        time.sleep(chance.uniform(0.2, 1.0))
        box.host.kill()
        time.sleep(chance.uniform(0.0, 0.5))
        box.start_host()


def check(box, seed, seconds, processes, kill=False):
    """Three times, so that what is raced over is known to the host. Returns how many operations."""
    return sum(check_once(box, seed + i, seconds / 3, processes, kill) for i in range(3))


def check_once(box, seed, seconds, processes, kill):
    end = time.monotonic() + seconds
    results = multiprocessing.Queue()
    racers = [multiprocessing.Process(target=race, args=(box.path(), seed * 100 + i, end, results),
                                      daemon=True)
              for i in range(processes)]
    for racer in racers:
        racer.start()
    killer = threading.Thread(target=kill_host, args=(box, random.Random(seed), end))
    if kill:
        killer.start()
    try:
        told = [results.get(timeout=seconds + 60) for _ in racers]
    except Exception:
        raise Failure(f"seed {seed}: a racer hangs") from None
    finally:
        if kill:
            killer.join()
    wrong = [what for _, what in told if what]
    expect(not wrong, f"seed {seed}: unexpected answers: {wrong}")
    for racer in racers:
        racer.join()
    settled(box, 180)
    now = status(box)
    expect(now["needsAttention"] == 0, f"seed {seed}: changes were refused: {now['changes']}")
    wrong = difference(tree(box.root), tree(box.path()))
    expect(not wrong, f"seed {seed}: host and mount differ: {wrong[:20]}")
    return sum(done for done, _ in told)


def run(box, arguments):
    box.start_host()
    mount = writable(box, "--no-thumbnails")
    mount.allowed_errors.append("failed|cannot be seen")
    done = check(box, arguments.seed, arguments.seconds, arguments.processes, arguments.kill)
    box.finish()
    return f"{done} operations by {arguments.processes} processes, host and mount equal"


def main():
    parser = arguments_of(__doc__)
    parser.add_argument("--seconds", type=float, default=30)
    parser.add_argument("--processes", type=int, default=8)
    parser.add_argument("--kill", action="store_true", help="kill the host meanwhile")
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

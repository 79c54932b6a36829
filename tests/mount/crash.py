#!/usr/bin/env python3
"""Kills the service at every fault point and at random under load, and looks for what is missing.

What was acknowledged is kept outside, in this process: a file whose writer closed it, a rename or a
removal that returned. After each restart the mount must show exactly that, and once the queue is
empty the host's folder must hold the same, byte for byte and without duplicates.

    crash.py --tulo PATH [--seed N] [--rounds N] [--host]

`--host` also kills the host in every round.
"""

import argparse
import hashlib
import os
import pathlib
import random
import re
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Box, Failure, Mount, detach  # noqa: E402
from writing import difference, settled, tree  # noqa: E402

# What the sources name; a point that no run reaches is reported.
SOURCES = HERE.parent.parent / "service"


def fault_points():
    names = set()
    for file in SOURCES.glob("*.cpp"):
        names |= set(re.findall(r'faultPoint\("([a-z.]+)"\)', file.read_text()))
    return sorted(names - {"recovery.inserted"})


class Model:
    """What the programs were told is done; and the one operation that may have been."""

    def __init__(self):
        self.files = {}
        self.folders = {""}
        self.doubt = []

    def expected(self):
        result = {name: None for name in self.folders if name}
        result.update(self.files)
        return result

    def copy(self):
        other = Model()
        other.files = dict(self.files)
        other.folders = set(self.folders)
        return other


class Load:
    """Random operations on the mount, each one noted when it returned."""

    def __init__(self, root, model, chance):
        self.root = root
        self.model = model
        self.random = chance
        self.counter = 0

    def path(self, name):
        return os.path.join(self.root, name)

    def fresh(self):
        self.counter += 1
        folder = self.random.choice(sorted(self.model.folders))
        return os.path.join(folder, f"n{self.random.randrange(10**9)}-{self.counter}")

    def contents(self):
        size = self.random.choice([0, 1, 100, 5000, 70000, 300000])
        return self.random.randbytes(size)

    def step(self):
        files = sorted(self.model.files)
        kinds = [self.create, self.create, self.folder]
        if files:
            kinds += [self.overwrite, self.append, self.rename, self.replace, self.remove]
        action = self.random.choice(kinds)
        after = self.model.copy()
        # Until it returns, both states are right for what it touches.
        self.model.doubt = action(after, files)
        self.model.files, self.model.folders = after.files, after.folders
        self.model.doubt = []

    def _put(self, after, name, data, mode):
        self.model.doubt = [name]
        with open(self.path(name), mode) as file:
            file.write(data)
            if self.random.random() < 0.3:
                file.flush()
                os.fsync(file.fileno())
        before = after.files.get(name, b"") if mode == "ab" else b""
        after.files[name] = before + data
        return [name]

    def create(self, after, _):
        return self._put(after, self.fresh(), self.contents(), "wb")

    def overwrite(self, after, files):
        return self._put(after, self.random.choice(files), self.contents(), "wb")

    def append(self, after, files):
        return self._put(after, self.random.choice(files), self.contents(), "ab")

    def folder(self, after, _):
        name = self.fresh()
        self.model.doubt = [name]
        os.mkdir(self.path(name))
        after.folders.add(name)
        return [name]

    def rename(self, after, files):
        source, target = self.random.choice(files), self.fresh()
        self.model.doubt = [source, target]
        os.rename(self.path(source), self.path(target))
        after.files[target] = after.files.pop(source)
        return [source, target]

    def replace(self, after, files):
        source, target = self.random.choice(files), self.random.choice(files)
        self.model.doubt = [source, target]
        os.rename(self.path(source), self.path(target))
        if source != target:
            after.files[target] = after.files.pop(source)
        return [source, target]

    def remove(self, after, files):
        name = self.random.choice(files)
        self.model.doubt = [name]
        os.unlink(self.path(name))
        del after.files[name]
        return [name]


def short(data):
    return "folder" if data is None else f"{len(data)} bytes, {hashlib.sha256(data).hexdigest()[:8]}"


class Crash:
    def __init__(self, program, seed):
        self.box = Box(program)
        self.random = random.Random(seed)
        self.model = Model()
        self.mounts = 0
        self.reached = set()

    def mount(self, fault=None):
        environment = self.box.environment
        environment.pop("TULO_FAULT_POINT", None)
        if fault:
            environment["TULO_FAULT_POINT"] = fault
        self.mounts += 1
        mount = Mount(self.box, self.box.file("m"), ["--read-write"], f"mount{self.mounts}")
        self.box.processes.append(mount)
        self.box.mounts = [mount]
        return mount

    def load(self, mount, steps):
        """Works until the service is gone."""
        load = Load(mount.point, self.model, self.random)
        for _ in range(steps):
            try:
                load.step()
            except OSError:
                if mount.is_running():
                    mount.process.wait(10)
                return
            if not mount.is_running():
                return

    def clear(self):
        detach(self.box.file("m"))

    def check_shown(self, what):
        """The mount shows what was acknowledged; what was under way may have been done or not."""
        found = tree(self.box.file("m"))
        wanted = self.model.expected()
        doubt = set(self.model.doubt)
        for name in doubt:
            for state in (found, wanted):
                state.pop(name, None)
        wrong = difference(found, wanted)
        if wrong:
            detail = [
                f"{name}: found {short(found.get(name))}, expected {short(wanted.get(name))}"
                for name in sorted(set(found) & set(wanted))
                if found[name] != wanted[name]
            ]
            raise Failure(f"{what}: the mount is wrong: {wrong[:20]} {detail[:5]}")
        # From here on the mount's word counts for what was in doubt.
        shown = tree(self.box.file("m"))
        self.model.files = {name: data for name, data in shown.items() if data is not None}
        self.model.folders = {""} | {name for name, data in shown.items() if data is None}
        self.model.doubt = []

    def check_host(self, what):
        settled(self.box, 120)
        wrong = difference(tree(self.box.root), self.model.expected())
        if wrong:
            raise Failure(f"{what}: the host differs: {wrong[:20]}")
        wrong = difference(tree(self.box.file("m")), self.model.expected())
        if wrong:
            raise Failure(f"{what}: the mount differs afterwards: {wrong[:20]}")

    def round(self, fault, kill_host, what):
        mount = self.mount(fault)
        killer = None
        if not fault:
            killer = self.random.uniform(0.05, 1.5)
            self._kill_later(mount, killer)
        self.load(mount, 400 if fault else 2000)
        if fault and mount.is_running():
            # Points on the way up are reached once the quiet time is over.
            try:
                mount.process.wait(4)
            except Exception:  # pylint: disable=broad-except
                pass
        if fault and not mount.is_running():
            self.reached.add(fault.split(":")[0])
        mount.kill()
        if kill_host:
            self.box.host.kill()
        self.clear()
        if kill_host:
            self.box.start_host()
        self.mount()
        self.check_shown(what)
        self.check_host(what)
        self.box.mounts[0].unmount()

    @staticmethod
    def _kill_later(mount, seconds):
        import threading

        threading.Timer(seconds, lambda: mount.signal(9)).start()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tulo", required=True)
    parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    parser.add_argument("--rounds", type=int, default=10, help="kills at random times")
    parser.add_argument("--points", help="only these fault points, separated by commas")
    parser.add_argument("--host", action="store_true", help="kill the host as well")
    arguments = parser.parse_args()
    if not os.path.exists("/dev/fuse"):
        print("skipped: there is no /dev/fuse")
        return 77
    print(f"seed {arguments.seed}", flush=True)
    crash = Crash(os.path.abspath(arguments.tulo), arguments.seed)
    points = arguments.points.split(",") if arguments.points else fault_points()
    try:
        crash.box.start_host()
        for point in points:
            count = crash.random.choice([1, 2, 5])
            crash.round(f"{point}:{count}", arguments.host, f"killed at {point}:{count}")
        for number in range(arguments.rounds):
            crash.round(None, arguments.host, f"random kill {number}")
        missed = sorted(set(points) - crash.reached)
        print(f"{len(points)} fault points ({len(missed)} not reached: {', '.join(missed)}), "
              f"{arguments.rounds} random kills, {len(crash.model.files)} files")
        return 0
    except Failure as failure:
        print(crash.box.logs()[-6000:], file=sys.stderr)
        print(f"FAILED with seed {arguments.seed}: {failure}", file=sys.stderr)
        return 1
    finally:
        crash.box.tear_down()


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Kills the service at every fault point and at random under load, and looks for what is missing.

What was acknowledged is kept outside, in this process: a file whose writer closed it, a rename or a
removal that returned. After each restart the mount must show exactly that, and once the queue is
empty the host's folder must hold the same, byte for byte and without duplicates. A fault point that
no round reaches fails the run.

    crash.py --tulo PATH [--seed N] [--rounds N] [--points A,B] [--host]

`--host` kills the host at random as well.
"""

import os
import pathlib
import random
import re
import shutil
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure, Mount, detach, eventually  # noqa: E402
from load import Worker, part_of, work  # noqa: E402
from proof import arguments_of, prove  # noqa: E402
from writing import difference, settled, status, tree  # noqa: E402

SOURCES = HERE.parent.parent / "service"
WORKERS = 3
RESCUED = "Recovered files"
# A request is made again that was done before the kill; the host is away.
HAPPENS = r"Extension: \w+ failed|cannot be seen at the moment|cannot list"


def fault_points():
    """What the sources name."""
    names = set()
    for file in SOURCES.rglob("*.cpp"):
        names |= set(re.findall(r'faultPoint\("([a-z.]+)"\)', file.read_text()))
    if not names:
        raise Failure(f"there is no fault point in {SOURCES}")
    return sorted(names)


class Crash:
    def __init__(self, box, seed, kill_host):
        self.box = box
        self.random = random.Random(seed)
        self.kill_host = kill_host
        self.point = box.file("m")
        self.workers = [Worker(self.point, f"w{i}", seed) for i in range(WORKERS)]
        # What the special rounds left behind, which nobody changes any more.
        self.others = {}
        self.mounts = 0
        self.reached = set()
        self.kills = 0
        self.host_kills = 0
        self.changes = 0

    # One service after the other.

    def mount(self, fault=None):
        environment = self.box.environment
        environment.pop("TULO_FAULT_POINT", None)
        if fault:
            environment["TULO_FAULT_POINT"] = fault
        self.mounts += 1
        mount = Mount(self.box, self.point, ["--no-thumbnails"], f"mount{self.mounts}",
                      doomed=fault is not None)
        self.box.processes.append(mount)
        self.box.mounts = [mount]
        return mount

    def bury(self, mount, fault=None):
        """Makes sure that the service is dead, and notes how it died."""
        if fault:
            try:
                mount.process.wait(4)
            except Exception:  # pylint: disable=broad-except
                pass
            if not mount.is_running():
                self.reached.add(fault.split(":")[0])
        mount.kill()
        self.kills += 1
        detach(self.point)
        self.remember()

    def remember(self):
        """The replica as the dead service left it, to judge a failure by."""
        folder = self.box.file("last")
        shutil.rmtree(folder, ignore_errors=True)
        os.mkdir(folder)
        for file in self.database().parent.glob("replica.db*"):
            shutil.copy(file, folder)

    # What is expected.

    def check_shown(self, what):
        shown = tree(self.point)
        wrong = []
        for worker in self.workers:
            part = part_of(shown, worker.home)
            wrong += worker.wrong(part)
            worker.accept(part)
        if wrong:
            raise Failure(f"{what}: the mount is wrong: {wrong[:20]}")

    def expected(self):
        result = dict(self.others)
        for worker in self.workers:
            result.update(worker.entries)
        return result

    def check_both(self, what):
        settled(self.box, 120)
        now = status(self.box)
        if now["needsAttention"]:
            raise Failure(f"{what}: changes were refused: {now}")
        for name, found in (("host", tree(self.box.root)), ("mount", tree(self.point))):
            wrong = difference(found, self.expected())
            if wrong:
                raise Failure(f"{what}: the {name} differs afterwards: {wrong[:20]}")

    def check_log(self, what):
        """Nothing of what happens here is an error to the service."""
        errors = [line for line in self.box.mounts[0].unexpected_errors()
                  if not re.search(HAPPENS, line)]
        if errors:
            raise Failure(f"{what}: the service's log tells of failures: {errors[:10]}")

    # Rounds.

    def trouble(self, stop):
        """Kills the host and starts it again, at random, until told to stop."""
        while not stop.wait(self.random.uniform(0.1, 1.2)):
            self.box.host.kill()
            self.host_kills += 1
            if stop.wait(self.random.uniform(0, 0.6)):
                return
            self.box.start_host()

    def load(self, mount, steps, seconds=None):
        """Works until the service is gone, or the steps are done."""
        stop = threading.Event()
        helpers = []
        if self.kill_host:
            helpers.append(threading.Thread(target=self.trouble, args=(stop,)))
        killer = threading.Timer(seconds, lambda: mount.signal(9)) if seconds else None
        if killer:
            killer.start()
        for helper in helpers:
            helper.start()
        self.changes += work(self.workers, steps, mount.is_running)
        if killer:
            killer.join()
        stop.set()
        for helper in helpers:
            helper.join()
        for worker in self.workers:
            if worker.error and mount.is_running():
                # The reply may be faster than the end of the process.
                try:
                    mount.process.wait(5)
                except Exception:  # pylint: disable=broad-except
                    raise Failure(f"an operation failed: {worker.error}") from None

    def round(self, fault, what):
        mount = self.mount(fault)
        seconds = None if fault else self.random.uniform(0.05, 2.5)
        if mount.is_running():
            self.load(mount, 60 if fault else 2000, seconds)
        self.bury(mount, fault)
        self.finish(what)

    def finish(self, what):
        if not self.box.host.is_running():
            self.box.start_host()
        self.mount()
        self.check_shown(what)
        self.check_both(what)
        self.check_log(what)
        self.box.mounts[0].unmount()

    def conflict_round(self, fault, what):
        """The host changes a file just when the one changed here is about to go up."""
        name = f"conflict{self.mounts}"
        self.box.write(f"{name}/doc", b"base")
        mount = self.mount()
        eventually(lambda: os.path.exists(self.path(f"{name}/doc")), "the file is there")
        with open(self.path(f"{name}/doc"), "rb") as file:
            file.read()
        mount.unmount()
        mount = self.mount(fault)
        try:
            with open(self.path(f"{name}/doc"), "wb") as file:
                file.write(b"from here")
            self.box.write(f"{name}/doc", b"from there!")
            mount.process.wait(20)
        except Exception:  # pylint: disable=broad-except
            pass
        self.bury(mount, fault)
        self.mount()
        settled(self.box)
        found = {n: d for n, d in tree(self.box.root).items() if n.startswith(name)}
        versions = sorted(data for data in found.values() if data is not None)
        if versions != [b"from here", b"from there!"]:
            raise Failure(f"{what}: of the two versions there are {found}")
        self.others.update(found)
        self.check_shown(what)
        self.check_both(what)
        self.box.mounts[0].unmount()

    def recovery_round(self, fault, what):
        """The database is damaged while contents wait to be sent."""
        self.box.host.kill()
        mount = self.mount()
        name = f"rescued{self.mounts}"
        with open(self.path(name), "wb") as file:
            file.write(name.encode())
        mount.kill()
        self.kills += 1
        detach(self.point)
        damage(self.database())
        self.bury(self.mount(fault), fault)
        self.box.start_host()
        self.mount()
        self.check_shown(what)
        settled(self.box)
        rescued = {n: d for n, d in tree(self.box.root).items() if n.split("/")[0] == RESCUED}
        if rescued.get(f"{RESCUED}/{name}") != name.encode():
            raise Failure(f"{what}: the contents are not among {sorted(rescued)}")
        self.others.update(rescued)
        self.check_both(what)
        self.box.mounts[0].unmount()

    def path(self, name):
        return os.path.join(self.point, name)

    def doubt_round(self, fault, what):
        """A request was made, its answer lost: what became of it is found out next time."""
        mount = self.mount("push.marked:1")
        self.load(mount, 60)
        self.bury(mount, "push.marked:1")
        mount = self.mount(fault)
        try:
            mount.process.wait(20)
        except Exception:  # pylint: disable=broad-except
            pass
        self.bury(mount, fault)
        self.finish(what)

    def database(self):
        (found,) = pathlib.Path(self.box.state).glob("tulo/*/replica.db")
        return found

    def point_round(self, point):
        rounds = {"conflict.made": self.conflict_round, "recovery.inserted": self.recovery_round,
                  "doubt.ended": self.doubt_round}
        count = 1 if point in rounds else self.random.choice([1, 1, 2, 5])
        fault = f"{point}:{count}"
        rounds.get(point, self.round)(fault, f"killed at {fault}")

    def run(self, points, rounds):
        begin = time.monotonic()
        for point in points:
            self.point_round(point)
            if point not in self.reached:
                # The count was too high for what came along.
                self.round(f"{point}:1", f"killed at {point}:1")
        for number in range(rounds):
            self.round(None, f"random kill {number}")
        missed = sorted(set(points) - self.reached)
        if missed:
            raise Failure(f"fault points that were not reached: {', '.join(missed)}")
        return (f"{self.kills} kills of the service, {self.host_kills} of the host, "
                f"{self.changes} changes, {len(points)} fault points, "
                f"{len(self.expected())} entries equal, {time.monotonic() - begin:.0f} s")


def damage(database):
    """Overwrites pages in the middle and drops the log."""
    with open(database, "r+b") as file:
        file.write(b"no database any more" * 10)
    for suffix in ("-wal", "-shm"):
        if os.path.exists(f"{database}{suffix}"):
            os.unlink(f"{database}{suffix}")


def evidence(box):
    """Keeps what a failure is judged by."""
    kept = tempfile.mkdtemp(prefix="tulo-crash-")
    for entry in os.listdir(box.directory):
        if entry.endswith(".log"):
            shutil.copy(box.file(entry), kept)
    for file in pathlib.Path(box.state).glob("tulo/*/replica.db*"):
        shutil.copy(file, kept)
    if os.path.isdir(box.file("last")):
        shutil.copytree(box.file("last"), os.path.join(kept, "at-the-kill"))
    return f"logs and replica: {kept}"


def run(box, arguments):
    points = fault_points() if arguments.points is None else arguments.points.split(",")
    box.start_host()
    return Crash(box, arguments.seed, arguments.host).run([p for p in points if p],
                                                          arguments.rounds)


def main():
    parser = arguments_of(__doc__)
    parser.add_argument("--rounds", type=int, default=10, help="kills at random times")
    parser.add_argument("--points", help="only these fault points, separated by commas")
    parser.add_argument("--host", action="store_true", help="kill the host as well")
    return prove(parser, run, evidence)


if __name__ == "__main__":
    sys.exit(main())

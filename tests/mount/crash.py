#!/usr/bin/env python3
"""Kills the service at every fault point and at random under load, and looks for what is missing.

What was acknowledged is kept outside, in this process: a file whose writer closed it, a rename or a
removal that returned. After each restart the mount must show exactly that, and once the queue is
empty the host's folder must hold the same, byte for byte and without duplicates. A fault point that
no round reaches fails the run.

    crash.py --tulo PATH [--seed N] [--rounds N] [--seconds N] [--points A,B] [--without NAME,NAME]

Amid the kills at random everything else goes wrong, too, and a program on each side changes the same
names, of which the model knows every version. `--host` kills the host while fault points are reached.
"""

import os
import pathlib
import random
import re
import shutil
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Failure, Mount, detach, eventually  # noqa: E402
from load import Worker, part_of, work  # noqa: E402
from proof import add_seconds, arguments_of, prove, turns  # noqa: E402
from sides import RECOVERED  # noqa: E402
from troubled import TroubledPair  # noqa: E402
from troubles import CLOCK, EXTRAS, HOST, INDEX, SERVICE, Troubles  # noqa: E402
from writing import difference, settled, status, tree  # noqa: E402

SOURCES = HERE.parent.parent / "service"
WORKERS = 3
ROUNDS_OF_A_PAIR = 20
# Not the index: an answer that comes while it cannot be read leaves the version at the host unknown, and
# what is changed again before that is known stays as a conflicted copy. Nothing is lost by that, but the
# books of the workers are exact.
TROUBLES = [*HOST, *SERVICE, *CLOCK, *EXTRAS]
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
    def __init__(self, box, seed, kill_host, kinds=()):
        self.box = box
        self.kinds = kinds
        # Before the host is started, as ever.
        self.troubles = Troubles(box, seed, kinds)
        self.random = random.Random(seed)
        self.kill_host = kill_host
        self.point = box.file("m")
        self.workers = [Worker(self.point, f"w{i}", seed, "names" in kinds) for i in range(WORKERS)]
        # Programs on both sides, in a folder of their own.
        self.pair = None
        self.pair_folders = []
        self.versions = 0
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

    def of_workers(self, found):
        """Without what the pair has, and the recovered files, whose names are known to nobody."""
        wanted = self.expected()
        return {name: data for name, data in found.items()
                if name in wanted or name.split("/")[0] not in {*self.pair_folders, RECOVERED}}

    def check_both(self, what):
        settled(self.box, 120)
        now = status(self.box)
        if now["needsAttention"]:
            raise Failure(f"{what}: changes were refused: {now}")
        for name, found in (("host", tree(self.box.root)), ("mount", tree(self.point))):
            wrong = difference(self.of_workers(found), self.expected())
            if wrong:
                raise Failure(f"{what}: the {name} differs afterwards: {wrong[:20]}")
        wrong = self.pair.verdict() if self.pair else []
        if wrong:
            raise Failure("\n".join([what, *wrong]))

    def check_log(self, what):
        """Nothing of what happens here is an error to the service."""
        if self.pair:
            return
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

    def load(self, mount, steps, seconds=None, amid=False):
        """Works until the service is gone, or the steps are done. `amid`: troubles see to the host."""
        stop = threading.Event()
        helpers = []
        if self.kill_host and not amid:
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

    def troubled_round(self, what):
        """Killed at random while everything else goes wrong and both sides are at work."""
        mount = self.mount()
        self.troubles.expect_clock(mount)
        if not self.pair or self.mounts > self.pair.until:
            self.pair = self.new_pair()
        kept = len(self.pair.versions.kept)
        with self.troubles.amid():
            couple = threading.Thread(target=self.pair.run, args=(lambda _: mount.is_running(),))
            couple.start()
            self.load(mount, 2000, self.random.uniform(0.05, 6), amid=True)
            mount.signal(9)
            couple.join()
        self.pair.release()
        self.versions += len(self.pair.versions.kept) - kept
        self.bury(mount)
        self.finish(what)

    def new_pair(self):
        """One for some rounds, since its story grows."""
        aside = self.box.file("aside")
        os.makedirs(aside, exist_ok=True)
        pair = TroubledPair(self.box, self.random.randrange(10**9), aside, self.kinds)
        pair.wait_until_shown()
        # Some are killed before they get to it.
        pair.must_work = False
        pair.until = self.mounts + ROUNDS_OF_A_PAIR
        self.pair_folders.append(pair.folder)
        return pair

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
        rescued = {n: d for n, d in tree(self.box.root).items() if n.split("/")[0] == RECOVERED}
        if rescued.get(f"{RECOVERED}/{name}") != name.encode():
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

    def run(self, points, rounds, seconds=None):
        begin = time.monotonic()
        self.box.start_host()
        for point in points:
            self.point_round(point)
            if point not in self.reached:
                # The count was too high for what came along.
                self.round(f"{point}:1", f"killed at {point}:1")
        missed = sorted(set(points) - self.reached)
        if missed:
            raise Failure(f"fault points that were not reached: {', '.join(missed)}")
        for number in turns(rounds, seconds and seconds - (time.monotonic() - begin)):
            what = f"random kill {number}"
            if self.kinds and number % 4:
                self.troubled_round(what)
            else:
                self.round(None, what)
        return (f"{self.kills} kills of the service, {self.host_kills} of the host, "
                f"{self.changes} changes, {len(points)} fault points, "
                f"{len(self.expected())} entries equal, {self.versions} versions of two sides, "
                f"{self.troubles.told()}")


def damage(database):
    """Overwrites pages in the middle and drops the log."""
    with open(database, "r+b") as file:
        file.write(b"no database any more" * 10)
    for suffix in ("-wal", "-shm"):
        if os.path.exists(f"{database}{suffix}"):
            os.unlink(f"{database}{suffix}")


def run(box, arguments):
    points = fault_points() if arguments.points is None else arguments.points.split(",")
    crash = Crash(box, arguments.seed, arguments.host, arguments.troubles)
    return crash.run([p for p in points if p], arguments.rounds, arguments.seconds)


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES, more=INDEX)
    add_seconds(parser)
    parser.add_argument("--rounds", type=int, default=10, help="kills at random times")
    parser.add_argument("--points", help="only these fault points, separated by commas")
    parser.add_argument("--host", action="store_true", help="kill the host as well")
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Everything at once for a bounded time: `soak.py --tulo PATH [--seconds N] [--seed S]`.

Programs read and walk the mount, others keep files open across changes; the host's folder is
edited, renamed in and deleted from, under names that are hard to spell; downloads are evicted; and
everything goes wrong that can. A reader may be told of an error meanwhile, but what it is given must be
one whole version of the file. Programs on both sides also change the same names in a folder of their
own, of which the model knows every version. At the end the mount and the host's folder are equal byte
for byte, and the service has not grown.
"""

import errno
import faulthandler
import hashlib
import os
import pathlib
import random
import shutil
import subprocess
import sys
import threading
import time
import traceback

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

from harness import (  # noqa: E402
    PATIENCE, Failure, eventually, expect, expect_equal, need_program, read)
from nasty import numbered  # noqa: E402
from proof import add_seconds, arguments_of, prove  # noqa: E402
from sides import RECOVERED  # noqa: E402
from troubled import TroubledPair  # noqa: E402
from troubles import ALL, EXTRAS, TOLD, Troubles  # noqa: E402
from twosided import quiet  # noqa: E402

TROUBLES = [*ALL, *EXTRAS]
FOLDERS = 24
FILES = 400
LARGEST = 150_000
# What a program may be told while its file goes or the host is away.
FORGIVEN = TOLD | {errno.ENOENT, errno.ESTALE, errno.ENOTDIR, errno.EISDIR}
MOST_MEMORY = 200 * 1024 * 1024


def version(rng):
    """The bytes of a new version: they tell their own length and sum."""
    body = rng.randbytes(rng.randrange(1, 2000)) * rng.randrange(1, LARGEST // 2000)
    return f"{len(body)} {hashlib.md5(body).hexdigest()}\n".encode() + body


def is_whole(data):
    line, _, body = data.partition(b"\n")
    try:
        length, digest = line.decode().split()
    except ValueError:
        return False
    return len(body) == int(length) and hashlib.md5(body).hexdigest() == digest


def snapshot(root, without=()):
    """Every path below the folder, with a sum for files; without what is in some folders."""
    result = {}
    for folder, folders, names in os.walk(root):
        if folder == root:
            folders[:] = [name for name in folders if name not in without]
        for name in folders:
            result[os.path.relpath(os.path.join(folder, name), root)] = "folder"
        for name in names:
            path = os.path.join(folder, name)
            result[os.path.relpath(path, root)] = hashlib.md5(read(path)).hexdigest()
    return result


class Soak:
    def __init__(self, box, seed, kinds):
        self.box = box
        self.kinds = kinds
        self.troubles = Troubles(box, seed, kinds)
        # Programs on both sides; none where there are no troubles.
        self.pair = None
        self.end = 0
        self.stopping = threading.Event()
        self.failures = []
        self.counts = {}
        self.count_lock = threading.Lock()
        self.seed = seed
        self.number = 0

    # Common to all actors.

    def count(self, what):
        with self.count_lock:
            self.counts[what] = self.counts.get(what, 0) + 1

    def act(self, name, step):
        """Repeats the step until the end; the first failure ends all actors."""
        rng = random.Random(f"{self.seed} {name}")
        try:
            while self.goes_on():
                step(rng)
        except BaseException:  # pylint: disable=broad-except
            self.failures.append(f"{name}: {traceback.format_exc()}")
            self.stopping.set()

    def forgiving(self, action):
        """The action's result; nothing when it failed in a way that is to be expected."""
        try:
            return action()
        except OSError as error:
            self.count(f"told {errno.errorcode.get(error.errno, error.errno)}")
            if error.errno not in FORGIVEN:
                raise
            return None

    # In the mount.

    def mounted_file(self, rng):
        folder = self.box.path()
        for _ in range(6):
            names = self.forgiving(lambda here=folder: os.listdir(here))
            names = [name for name in names or [] if name not in self.others()]
            if not names:
                return None
            folder = os.path.join(folder, rng.choice(names))
            if not os.path.isdir(folder):
                return folder
        return None

    def read_step(self, rng):
        path = self.mounted_file(rng)
        data = path and self.forgiving(lambda: read(path))
        if data is not None and path:
            expect(is_whole(data), f"{path} is not whole: {len(data)} bytes, {data[:60]!r}")
            self.count("files read")

    def keep_open_step(self, rng):
        path = self.mounted_file(rng)
        if not path:
            return

        def hold():
            with open(path, "rb", buffering=0) as file:
                data = file.read(rng.randrange(1, 5000)) or b""
                self.stopping.wait(rng.random())
                while piece := file.read(20_000):
                    data += piece
                expect(is_whole(data), f"{path}, kept open, is not whole: {len(data)} bytes")
                self.count("files kept open")

        self.forgiving(hold)

    def walk_step(self, _):
        for folder, _, names in os.walk(self.box.path()):
            if self.stopping.is_set():
                return
            for name in names:
                self.forgiving(lambda here=os.path.join(folder, name): os.stat(here))
        self.count("walks")

    def find_step(self, _):
        subprocess.run(["find", self.box.path(), "-size", "+1000k"], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=False)
        self.count("finds")

    # At the host.

    def host_folders(self):
        folders = [self.box.root]
        for folder, names, _ in os.walk(self.box.root):
            names[:] = [name for name in names if name not in self.others()]
            # A path has its limit, and so has this.
            folders += [os.path.join(folder, name) for name in names if len(folder) < 2000]
        return folders

    def others(self):
        """Folders that others see to."""
        return [".tulo-host", RECOVERED, *([self.pair.folder] if self.pair else [])]

    def host_file(self, rng):
        for _ in range(20):
            folder = rng.choice(self.host_folders())
            with os.scandir(folder) as entries:
                files = [entry.path for entry in entries if entry.is_file()]
            if files:
                return rng.choice(files)
        return None

    def new_name(self, kind):
        self.number += 1
        name = f"{kind}{self.number}"
        rng = random.Random(name)
        return numbered(rng, name) if "names" in self.kinds and rng.random() < 0.5 else name

    def put(self, path, data):
        staged = self.box.file("soak-staged")
        with open(staged, "wb") as file:
            file.write(data)
        os.rename(staged, path)

    def change_step(self, rng):
        """Whose folder is away for a moment tries again."""
        try:
            self.change(rng)
        except FileNotFoundError:
            self.count("changes without a folder")
            self.stopping.wait(0.1)

    def change(self, rng):
        choice = rng.random()
        file = self.host_file(rng)
        folder = rng.choice(self.host_folders())
        if choice < 0.33 or not file:
            self.put(os.path.join(folder, self.new_name("n")), version(rng))
        elif choice < 0.6:
            self.put(file, version(rng))
        elif choice < 0.75:
            os.rename(file, os.path.join(folder, self.new_name("r")))
        elif choice < 0.88:
            os.unlink(file)
        elif choice < 0.95:
            os.mkdir(os.path.join(folder, self.new_name("d")))
        else:
            self.move_or_remove(rng, folder)
        self.count("changes")
        self.stopping.wait(rng.random() * 0.02)

    def move_or_remove(self, rng, target):
        folders = self.host_folders()
        victim = rng.choice(folders)
        if victim == self.box.root or len(folders) < FOLDERS // 2:
            return
        if rng.random() < 0.1:
            shutil.rmtree(victim)
        elif not (target + "/").startswith(victim + "/"):
            os.rename(victim, os.path.join(target, self.new_name("m")))

    # At the service.

    def evict_step(self, rng):
        self.stopping.wait(rng.random())
        with os.scandir(self.box.path()) as entries:
            names = [entry.name for entry in entries]
        command = rng.choice(["evict", "evict", "download", "pin", "unpin"])
        if names:
            self.box.tulo(command, self.box.path(rng.choice(names)), check=False)
            self.count(command)

    # The whole.

    def fill(self):
        rng = random.Random(f"{self.seed} fill")
        folders = [self.box.root]
        for i in range(FOLDERS):
            folders.append(os.path.join(rng.choice(folders), f"folder{i}"))
            os.mkdir(folders[-1])
        for i in range(FILES):
            self.put(os.path.join(rng.choice(folders), f"file{i}"), version(rng))

    def run(self):
        actors = [
            ("reader 1", self.read_step), ("reader 2", self.read_step),
            ("reader 3", self.read_step), ("keeper", self.keep_open_step),
            ("walker", self.walk_step), ("finder", self.find_step),
            ("changer", self.change_step), ("evicter", self.evict_step),
        ]
        threads = [threading.Thread(target=self.act, args=actor, name=actor[0]) for actor in actors]
        if self.pair:
            threads.append(threading.Thread(target=self.pair.run, args=(lambda _: self.goes_on(),)))
        with self.troubles.amid():
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        expect(not self.failures, "\n".join(self.failures))

    def goes_on(self):
        return time.monotonic() < self.end and not self.stopping.is_set()

    def add_pair(self):
        aside = self.box.file("aside")
        os.makedirs(aside)
        self.pair = TroubledPair(self.box, self.seed, aside, self.kinds)
        self.pair.wait_until_shown()

    def check_pair(self):
        """How many versions there were."""
        if not self.pair:
            return 0
        self.pair.release()
        quiet(self.box)
        wrong = self.pair.verdict()
        expect(not wrong, "\n".join(wrong))
        return len(self.pair.versions.kept)

    def compare(self):
        wanted = snapshot(self.box.root, self.others())

        def is_equal():
            return self.forgiving(lambda: snapshot(self.box.path(), self.others())) == wanted

        try:
            eventually(is_equal, "the mount equals the host's folder", 2 * PATIENCE)
        except Failure:
            found = snapshot(self.box.path(), self.others())
            lines = [f"  {name}: mount {found.get(name)}, host {wanted.get(name)}"
                     for name in sorted(found.keys() | wanted.keys())
                     if found.get(name) != wanted.get(name)]
            self.box.restart_host()
            later = "after a restart of the host, which looks at everything again, it is "
            try:
                eventually(is_equal, "equal")
                later += "equal: the host had missed a change of its folder"
            except Failure:
                later += "still different: the service missed what the host's index has"
            raise Failure(
                "the mount differs from the host:\n" + "\n".join([*lines, later])) from None
        return len(wanted)

    def check_leaks(self, descriptors):
        mount = self.box.mounts[0]
        memory = mount.resident_bytes()
        expect(memory < MOST_MEMORY, f"resident memory of the service: {memory} bytes")
        try:
            eventually(lambda: mount.descriptors() <= descriptors + 30, "given back")
        except Failure:
            raise Failure(f"descriptors far above the {descriptors} of the beginning:\n" +
                                 "\n".join(mount.open_files())) from None
        if os.geteuid() == 0:
            self.check_references()
        return memory

    def check_references(self):
        """The kernel gives back every reference when it drops its caches."""

        def all_given_back():
            with open("/proc/sys/vm/drop_caches", "w", encoding="ascii") as file:
                file.write("2")
            return self.box.status()["kernelFolders"] <= 1

        try:
            open("/proc/sys/vm/drop_caches", "w", encoding="ascii").close()
        except OSError:
            return
        eventually(all_given_back, "the kernel's references are given back")
        expect_equal(self.box.status()["openFiles"], 0, "open files")


def soak(box, seconds, seed, kinds=tuple(TROUBLES)):
    need_program("find")
    work = Soak(box, seed, kinds)
    work.fill()
    box.start_host()
    # Small, so that the service evicts by itself too.
    mount = box.mount("--cache-size", "8M")
    mount.allowed_errors.append("^error ")
    work.troubles.expect_clock(mount)
    snapshot(box.path())
    descriptors = mount.descriptors()
    if kinds:
        work.add_pair()
    # All actors end soon after the time is over; one that hangs is shown with what it waits for.
    faulthandler.dump_traceback_later(seconds + 240)
    work.end = time.monotonic() + seconds
    work.run()
    entries = work.compare()
    versions = work.check_pair()
    memory = work.check_leaks(descriptors)
    faulthandler.cancel_dump_traceback_later()
    return (f"{entries} entries equal, {versions} versions of two sides, {memory // 1024} kB resident, " +
            ", ".join(f"{count} {what}" for what, count in sorted(work.counts.items())) +
            f"; {work.troubles.told()}")


def run(box, arguments):
    told = soak(box, arguments.seconds, arguments.seed, arguments.troubles)
    box.finish()
    return told


def main():
    parser = arguments_of(__doc__, troubles=TROUBLES)
    add_seconds(parser, 25)
    return prove(parser, run)


if __name__ == "__main__":
    sys.exit(main())

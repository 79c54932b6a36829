#!/usr/bin/env python3
"""Everything at once for a bounded time: `soak.py --tulo PATH [--seconds N] [--seed S]`.

Programs read and walk the mount, others keep files open across changes; the host's folder is
edited, renamed in and deleted from; downloads are evicted; the host is stopped and killed. A reader
may be told of an error while the host is away or a file goes, but what it is given must be one
whole version of the file. At the end the mount and the host's folder are equal byte for byte, and
the service has not grown.

Exit status: 0 passed, 1 failed, 77 skipped.
"""

import argparse
import errno
import faulthandler
import hashlib
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import threading
import time
import traceback

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

from harness import PATIENCE, Box, eventually, expect, expect_equal, read  # noqa: E402

FOLDERS = 24
FILES = 400
LARGEST = 150_000
# What a program may be told while its file goes or the host is away.
FORGIVEN = {
    errno.ENOENT, errno.ESTALE, errno.ENOTDIR, errno.EHOSTDOWN, errno.EIO, errno.EAGAIN,
    errno.EISDIR, errno.ENOSPC,
}
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


def snapshot(root):
    """Every path below the folder, with a sum for files."""
    result = {}
    for folder, folders, names in os.walk(root):
        for name in folders:
            result[os.path.relpath(os.path.join(folder, name), root)] = "folder"
        for name in names:
            path = os.path.join(folder, name)
            result[os.path.relpath(path, root)] = hashlib.md5(read(path)).hexdigest()
    return result


class Soak:
    def __init__(self, box, seconds, seed):
        self.box = box
        self.end = time.monotonic() + seconds
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
            while time.monotonic() < self.end and not self.stopping.is_set():
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
            folders += [os.path.join(folder, name) for name in names]
        return folders

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
        return f"{kind}{self.number}"

    def put(self, path, data):
        staged = self.box.file("soak-staged")
        with open(staged, "wb") as file:
            file.write(data)
        os.rename(staged, path)

    def change_step(self, rng):
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

    def restart_step(self, rng):
        self.stopping.wait(1 + rng.random() * 3)
        if rng.random() < 0.5:
            self.box.host.kill()
        else:
            self.box.host.stop()
        self.stopping.wait(rng.random())
        self.box.start_host()
        self.count("host restarts")

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
            ("changer", self.change_step), ("restarter", self.restart_step),
            ("evicter", self.evict_step),
        ]
        threads = [threading.Thread(target=self.act, args=actor, name=actor[0]) for actor in actors]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        if not self.box.host.is_running():
            self.box.start_host()
        expect(not self.failures, "\n".join(self.failures))

    def compare(self):
        wanted = snapshot(self.box.root)

        def is_equal():
            return self.forgiving(lambda: snapshot(self.box.path())) == wanted

        try:
            eventually(is_equal, "the mount equals the host's folder", 2 * PATIENCE)
        except AssertionError:
            found = snapshot(self.box.path())
            lines = [f"  {name}: mount {found.get(name)}, host {wanted.get(name)}"
                     for name in sorted(found.keys() | wanted.keys())
                     if found.get(name) != wanted.get(name)]
            self.box.restart_host()
            later = "after a restart of the host, which looks at everything again, it is "
            try:
                eventually(is_equal, "equal")
                later += "equal: the host had missed a change of its folder"
            except AssertionError:
                later += "still different: the service missed what the host's index has"
            raise AssertionError(
                "the mount differs from the host:\n" + "\n".join([*lines, later])) from None
        return len(wanted)

    def check_leaks(self, descriptors):
        mount = self.box.mounts[0]
        memory = mount.resident_bytes()
        expect(memory < MOST_MEMORY, f"resident memory of the service: {memory} bytes")
        try:
            eventually(lambda: mount.descriptors() <= descriptors + 30, "given back")
        except AssertionError:
            raise AssertionError(f"descriptors far above the {descriptors} of the beginning:\n" +
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


def soak(box, seconds, seed):
    work = Soak(box, seconds, seed)
    work.fill()
    box.start_host()
    # Small, so that the service evicts by itself too.
    mount = box.mount("--cache-size", "8M")
    mount.allowed_errors.append("cannot (fetch|list|read)|fetch|download|contents|host|socket|"
                                "Bridge|Index|Enumerator|thumbnail|space")
    snapshot(box.path())
    descriptors = mount.descriptors()
    work.end = time.monotonic() + seconds
    work.run()
    entries = work.compare()
    memory = work.check_leaks(descriptors)
    print(f"seed {seed}: {entries} entries equal, {memory // 1024} kB resident, " +
          ", ".join(f"{count} {what}" for what, count in sorted(work.counts.items())))


def main():
    parser = argparse.ArgumentParser(description="A soak of the mounted service.")
    parser.add_argument("--tulo", required=True, help="the executable to test")
    parser.add_argument("--seconds", type=float, default=25, help="how long (default: 25)")
    parser.add_argument("--seed", type=int, help="repeats the choices of another run")
    arguments = parser.parse_args()
    if not os.path.exists("/dev/fuse"):
        print("skipped: there is no /dev/fuse")
        return 77
    seed = arguments.seed if arguments.seed is not None else random.randrange(1 << 32)
    print(f"soak: {arguments.seconds:.0f} s, seed {seed}", flush=True)
    box = Box(os.path.abspath(arguments.tulo))
    # All actors end soon after the time is over; one that hangs is shown with what it waits for.
    faulthandler.dump_traceback_later(arguments.seconds + 60)
    # Ends as a failure with its tear-down, also when a supervisor gives up on it.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        soak(box, arguments.seconds, seed)
        box.finish()
        return 0
    except BaseException as error:  # pylint: disable=broad-except
        traceback.print_exc()
        print(box.logs(), file=sys.stderr)
        print(f"FAILED: {error}\nreplay: {sys.executable} {__file__} --tulo {arguments.tulo} "
              f"--seconds {arguments.seconds:.0f} --seed {seed}", file=sys.stderr)
        return 1
    finally:
        box.tear_down()


if __name__ == "__main__":
    sys.exit(main())

"""Two programs that change the same names, one in the mount and one in the host's folder.

What they replace or remove they have seen: it is noted in the model, and need not be found later.
"""

import collections
import errno
import os
import random
import re
import threading
import time
import traceback

from harness import Failure, eventually
from load import RENAME_EXCHANGE, RENAME_NOREPLACE, rename2
from model import Versions, mark
from writing import tree

FILES = ["a.txt", "b.txt", "c"]
FOLDERS = ["d", "e"]
# What a program may be told while the other side changes the same names.
EXPECTED = {errno.ENOENT, errno.EEXIST, errno.ENOTDIR, errno.EISDIR, errno.ENOTEMPTY, errno.EINVAL,
            errno.ESTALE, errno.EBUSY, errno.ELOOP}
# The service was killed: what was asked for was done, or was not.
DIED = {errno.ENOTCONN, errno.ECONNABORTED}


class Side:
    """A program at work below `root`; `versions` is the book of both."""

    name = "?"
    files = FILES
    # Errors that are no failure.
    expected = EXPECTED

    def __init__(self, root, versions, seed):
        self.root = root
        self.versions = versions
        self.random = random.Random(f"{seed} {self.name}")
        self.error = None
        self.done = 0

    def path(self, names):
        depth = self.random.choice([0, 0, 1, 1, 2])
        folders = [self.random.choice(FOLDERS) for _ in range(depth)]
        return os.path.join(self.root, *folders, self.random.choice(names))

    def shown(self, path):
        return f"{self.name} {os.path.relpath(path, self.root)}"

    def filler(self):
        return self.random.randbytes(self.random.choice([0, 10, 3000, 40000]))

    def step(self):
        self.random.choice([self.write, self.write, self.write, self.save, self.rename, self.rename,
                            self.remove, self.make_folder, self.make_folder, self.move_folder,
                            self.remove_folder])()

    def run(self, goes_on):
        """Works as long as `goes_on`, which is told how many steps were tried, says so."""
        tried = 0
        try:
            while goes_on(tried):
                tried += 1
                try:
                    self.step()
                    self.done += 1
                except OSError as error:
                    if error.errno not in self.expected:
                        raise
                if self.random.random() < 0.6:
                    time.sleep(self.random.uniform(0, 0.25))
        except BaseException:  # pylint: disable=broad-except
            self.error = traceback.format_exc()

    def make_folder(self):
        path = self.path(FOLDERS)
        os.mkdir(path)
        self.versions.tell(f"{self.shown(path)}: new folder")

    def move_folder(self):
        source, target = self.path(FOLDERS), self.path(FOLDERS)
        if not os.path.lexists(target):
            os.rename(source, target)
            self.versions.tell(f"{self.shown(source)}: folder moved to {self.shown(target)}")

    def rename(self):
        source, target = self.path(self.files), self.path(self.files)
        rename2(source, target, RENAME_NOREPLACE)
        self.versions.tell(f"{self.shown(source)}: renamed to {self.shown(target)}")


class Here(Side):
    """In the mount, as programs do it."""

    name = "here"
    # How often it has what it wrote forced to the disk.
    forces = 0.3

    def write(self):
        """In place: what it replaces is what it has read from the same descriptor."""
        path = self.path(self.files)
        with open(os.open(path, os.O_RDWR | os.O_CREAT, 0o644), "r+b", buffering=0) as file:
            before, data = self._overwrite(file, self.random.random() < self.forces)
            self._close(file, before, data)
        self._wrote(path, before, data)

    def _close(self, file, before, data):
        try:
            file.close()
        except OSError:
            self.versions.spoil(before, data)
            raise

    def _overwrite(self, file, forces):
        """Returns what was there and what is there now."""
        file.seek(0)
        before = file.read()
        grows = before and self.random.random() < 0.3
        data = self.versions.fresh(self.name, self.filler(), before if grows else b"")
        try:
            if not grows:
                file.truncate(0)
                file.seek(0)
            file.write(data[len(before):] if grows else data)
            if forces:
                os.fsync(file.fileno())
        except OSError:
            self.versions.spoil(before, data)
            raise
        return before, data

    def _wrote(self, path, before, data):
        if before:
            self.versions.replace(before, self.shown(path))
        self.versions.keep(data, self.shown(path))

    def save(self):
        """As an editor does it: a new file takes the old one's place."""
        path = self.path(self.files)
        draft = f"{path}.draft"
        data = self.versions.fresh(self.name, self.filler())
        with open(draft, "wb") as file:
            file.write(data)
            if self.random.random() < self.forces:
                file.flush()
                os.fsync(file.fileno())
        self._take_away(path, lambda: os.rename(draft, path), f"{self.shown(path)} saved")
        self.versions.keep(data, self.shown(path))

    def remove(self):
        path = self.path(self.files)
        self._take_away(path, lambda: os.unlink(path), f"{self.shown(path)} removed")

    def _take_away(self, path, action, what):
        """Does what ends the file under a name, having read it."""
        with open(path, "rb") as file:
            before = file.read()
            if self._ended(file, action, before, what):
                self.versions.replace(before, what)
            else:
                # Another file has come to the name between the two calls, and is gone unread.
                self.versions.excuse(os.path.basename(path), f"{what}, but what was not read")

    def _ended(self, file, action, before, what):
        """Whether the action has taken away the file that is open. Only a kill leaves it in doubt."""
        try:
            action()
            return os.fstat(file.fileno()).st_nlink == 0
        except OSError as error:
            if error.errno in DIED:
                self.versions.replace(before, f"{what}, perhaps")
            raise

    def remove_folder(self):
        path = self.path(FOLDERS)
        if not os.listdir(path):
            os.rmdir(path)
            self.versions.tell(f"{self.shown(path)}: folder removed")


class There(Side):
    """In the host's folder. What is replaced is exchanged with, so that it is known exactly."""

    name = "there"

    def __init__(self, root, versions, seed, aside):
        super().__init__(root, versions, seed)
        self.aside = aside
        self.number = 0

    def _aside(self):
        self.number += 1
        return os.path.join(self.aside, f"{os.path.basename(self.root)}-{self.number}")

    def write(self):
        path = self.path(self.files)
        data = self.versions.fresh(self.name, self.filler())
        staged = self._aside()
        with open(staged, "wb") as file:
            file.write(data)
        # It may be seen, and replaced by the other side, before the call has returned.
        try:
            rename2(staged, path, RENAME_NOREPLACE)
        except FileExistsError:
            rename2(staged, path, RENAME_EXCHANGE)
            self._gone(staged, self.shown(path))
        self.versions.keep(data, self.shown(path))

    save = write

    def _gone(self, path, what):
        """What has been taken out of the folder was seen by whoever took it."""
        for data in tree(path).values() if os.path.isdir(path) else [self._read(path)]:
            if data:
                self.versions.replace(data, what)

    @staticmethod
    def _read(path):
        with open(path, "rb") as file:
            return file.read()

    def remove(self):
        path, aside = self.path(self.files), self._aside()
        rename2(path, aside, RENAME_NOREPLACE)
        self._gone(aside, f"{self.shown(path)} removed")

    def remove_folder(self):
        path, aside = self.path(FOLDERS), self._aside()
        rename2(path, aside, RENAME_NOREPLACE)
        self.versions.tell(f"{self.shown(path)}: folder removed")
        self._gone(aside, f"{self.shown(path)} removed with its folder")


RECOVERED = "Recovered files"
# Two items of one name: the host stores one of them under a number, the mount shows it with a mark.
CLASH = re.compile(r"(~\d+| \([0-9A-Z]{6}\)|%~[0-9a-f]{16})(?=(\.[^./]*)?(/|$))")


def plain(name):
    """A name without what tells items of one name apart, for which a long one is cut."""
    return "/".join(part if len(part) < 200 else part[:100] for part in CLASH.sub("", name).split("/"))


def recovered(box):
    """The bytes of all files whose place was gone; they are on their way to the host like any other."""
    roots = [box.root, box.mounts[0].path()]
    return {data for root in roots for data in tree(os.path.join(root, RECOVERED)).values()}


def alike(found):
    """A tree as both sides must have it: how often there is what."""
    return collections.Counter((plain(name), "folder" if data is None else mark(data))
                               for name, data in found.items())


class Pair:
    """One seed: a folder, and a program on each side of it."""

    here = Here
    there = There
    # Whether a program that got nothing done is a failure.
    must_work = True

    def __init__(self, box, seed, aside):
        self.box = box
        self.seed = seed
        self.folder = f"s{seed}"
        self.versions = Versions(self.folder)
        self.there_root = os.path.join(box.root, self.folder)
        self.here_root = box.path(self.folder)
        os.makedirs(os.path.join(self.there_root, FOLDERS[0]))
        self.sides = [self.here(self.here_root, self.versions, seed),
                      self.there(self.there_root, self.versions, seed, aside)]

    def wait_until_shown(self):
        eventually(lambda: os.path.isdir(os.path.join(self.here_root, FOLDERS[0])), "shown")

    def run(self, goes_on):
        threads = [threading.Thread(target=side.run, args=(goes_on,)) for side in self.sides]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def trees(self):
        return tree(self.there_root), tree(self.here_root)

    def work(self, steps):
        """Both sides in one thread, one step after another."""
        for side in self.sides:
            side.run(lambda tried: tried < steps)

    def is_same(self):
        there, here = self.trees()
        return alike(there) == alike(here)

    def wrong(self):
        """What is amiss once it is quiet, in words."""
        parts = [f"{side.name}: {side.error}" for side in self.sides if side.error]
        if self.must_work:
            parts += [f"{side.name} has done nothing" for side in self.sides if not side.done]
        try:
            eventually(self.is_same, "both sides are the same", 20)
        except Failure:
            there, here = map(alike, self.trees())
            parts += [f"at the host only: {each}" for each in (there - here).elements()]
            parts += [f"in the mount only: {each}" for each in (here - there).elements()]
        return parts + self.versions.wrong(self.trees()[0], recovered(self.box))

    def verdict(self):
        """What is amiss and how it came about, or nothing."""
        parts = self.wrong()
        if not parts:
            return []
        held = [f"  {name}: {'folder' if data is None else mark(data)}"
                for name, data in sorted(self.trees()[0].items())]
        return ["\n".join([f"seed {self.seed}:", *parts[:20], "what happened:",
                           self.versions.story(), "at the host:", *held])]

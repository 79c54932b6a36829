"""Programs at work in a folder of the mount, with a book of what they were told is done.

A worker has a folder of its own and changes it at random. What returned is in its model; the one
operation that had not returned when the service died may have been done or not, never half.
"""

import ctypes
import hashlib
import os
import random
import threading

from harness import LIBC
from nasty import numbered
from troubles import patiently

AT_FDCWD = -100
RENAME_NOREPLACE = 1
RENAME_EXCHANGE = 2


def rename2(source, target, flags):
    if LIBC.renameat2(AT_FDCWD, os.fsencode(source), AT_FDCWD, os.fsencode(target), flags) != 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number), source, None, target)


def short(data):
    if data is None:
        return "folder"
    return f"{len(data)} bytes, {hashlib.sha256(data).hexdigest()[:8]}"


class Doubt:
    """An operation that was begun: the names it touches, and how they were and shall be."""

    def __init__(self, names, before, after, torn=False):
        self.names = set(names)
        self.before = before
        self.after = after
        # Writing may have come any way; a change of names is done or not.
        self.torn = torn

    def allows(self, found):
        if self.torn:
            return True
        states = [{n: t[n] for n in self.names if n in t} for t in (self.before, self.after)]
        return {n: found[n] for n in self.names if n in found} in states


class Worker:
    """`entries` maps each name below the mount to its bytes, or to None for a folder.

    `nasty`: whether it gives names that are hard to spell.
    """

    def __init__(self, root, home, seed, nasty=False):
        self.nasty = nasty
        self.root = root
        self.home = home
        self.random = random.Random(f"{seed} {home}")
        self.entries = {}
        self.doubt = None
        self.counter = 0
        self.error = None
        self.done = 0

    def path(self, name):
        return os.path.join(self.root, name)

    def begin(self):
        """Makes the worker's own folder, once."""
        if self.home not in self.entries:
            self._change([self.home], lambda: os.mkdir(self.path(self.home)), {self.home: None})

    def files(self):
        return sorted(name for name, data in self.entries.items() if data is not None)

    def folders(self):
        return sorted(name for name, data in self.entries.items() if data is None)

    def below(self, folder):
        return [name for name in self.entries if name.startswith(folder + "/")]

    def fresh(self):
        self.counter += 1
        folders = [name for name in self.folders() if name.count("/") < 5]
        folder = self.random.choice(folders)
        name = f"n{self.random.randrange(10**6)}-{self.counter}"
        # Short enough that a draft's name beside it can be had.
        odd = numbered(self.random, f"{self.home}-{self.counter}", 240)
        return os.path.join(folder, odd if self.nasty and self.random.random() < 0.5 else name)

    def contents(self):
        return self.random.randbytes(self.random.choice([0, 1, 100, 5000, 70000, 300000]))

    def _change(self, removed, action, added, torn=False):
        after = {name: data for name, data in self.entries.items() if name not in removed}
        after.update(added)
        self.doubt = Doubt({*removed, *added}, dict(self.entries), after, torn)
        patiently(action)
        self.entries = after
        self.doubt = None
        self.done += 1

    def step(self):
        kinds = [self.create, self.create, self.folder]
        if len(self.folders()) > 1:
            kinds += [self.move_folder, self.remove_folder]
        if self.files():
            kinds += [self.overwrite, self.append, self.patch, self.rename, self.replace,
                      self.remove, self.save, self.exchange]
        self.random.choice(kinds)()

    def run(self, steps, alive):
        """Works until the steps are done or the service is gone."""
        try:
            self.begin()
            for _ in range(steps):
                self.step()
                if not alive():
                    return
        except OSError as error:
            self.error = error

    def _put(self, name, data, mode, result, offset=None):
        def action():
            # Each call by itself: what could not be written for want of descriptors was not written.
            file = patiently(lambda: open(self.path(name), mode, buffering=0))
            with file:
                if offset is not None:
                    file.seek(offset)
                written = 0
                while written < len(data):
                    written += patiently(lambda: file.write(data[written:]))
                if self.random.random() < 0.3:
                    patiently(lambda: os.fsync(file.fileno()))

        self._change([name], action, {name: result}, torn=True)

    def create(self):
        data = self.contents()
        self._put(self.fresh(), data, "wb", data)

    def overwrite(self):
        data = self.contents()
        self._put(self.random.choice(self.files()), data, "wb", data)

    def append(self):
        name, data = self.random.choice(self.files()), self.contents()
        self._put(name, data, "ab", self.entries[name] + data)

    def patch(self):
        name, data = self.random.choice(self.files()), self.random.randbytes(100)
        before = self.entries[name]
        offset = self.random.randrange(len(before) + 5000)
        grown = before.ljust(offset, b"\0")
        self._put(name, data, "r+b", grown[:offset] + data + grown[offset + len(data):], offset)

    def folder(self):
        name = self.fresh()
        self._change([], lambda: os.mkdir(self.path(name)), {name: None})

    def remove_folder(self):
        name = self.random.choice([each for each in self.folders() if each != self.home])
        if not self.below(name):
            self._change([name], lambda: os.rmdir(self.path(name)), {})

    def move_folder(self):
        source = self.random.choice([each for each in self.folders() if each != self.home])
        target = self.fresh()
        if target.startswith(source + "/"):
            return
        moved = [source, *self.below(source)]
        added = {target + name[len(source):]: self.entries[name] for name in moved}
        self._change(moved, lambda: os.rename(self.path(source), self.path(target)), added)

    def _rename(self, source, target):
        if source != target:
            self._change([source, target],
                         lambda: os.rename(self.path(source), self.path(target)),
                         {target: self.entries[source]})

    def rename(self):
        self._rename(self.random.choice(self.files()), self.fresh())

    def replace(self):
        self._rename(self.random.choice(self.files()), self.random.choice(self.files()))

    def exchange(self):
        one, other = self.random.choice(self.files()), self.random.choice(self.files())
        if one != other:
            self._change([], lambda: rename2(self.path(one), self.path(other), RENAME_EXCHANGE),
                         {one: self.entries[other], other: self.entries[one]})

    def save(self):
        """As an editor does it."""
        name, data = self.random.choice(self.files()), self.contents()
        draft = f"{name}.new{self.counter}"
        self.counter += 1
        self._put(draft, data, "wb", data)
        self._rename(draft, name)

    def remove(self):
        name = self.random.choice(self.files())
        self._change([name], lambda: os.unlink(self.path(name)), {})

    def wrong(self, found):
        """What differs from the book, in words. `found` is the tree below the worker's folder."""
        unsure = self.doubt.names if self.doubt else set()
        parts = []
        for name in sorted((set(found) | set(self.entries)) - unsure):
            if name not in found:
                parts.append(f"missing {name}")
            elif name not in self.entries:
                parts.append(f"unexpected {name}")
            elif found[name] != self.entries[name]:
                parts.append(f"{name}: {short(found[name])}, not {short(self.entries[name])}")
        if self.doubt and not self.doubt.allows(found):
            shown = {name: short(found[name]) for name in unsure if name in found}
            parts.append(f"half done: of {sorted(unsure)} there is {shown}")
        return parts

    def accept(self, found):
        """From here on the mount's word counts for what was in doubt."""
        self.entries = dict(found)
        self.doubt = None
        self.error = None


def part_of(tree, home):
    return {name: data for name, data in tree.items()
            if name == home or name.startswith(home + "/")}


def work(workers, steps, alive):
    """Runs all at once until each is done or the service is gone; how many changes were made."""
    before = sum(worker.done for worker in workers)
    threads = [threading.Thread(target=worker.run, args=(steps, alive)) for worker in workers]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return sum(worker.done for worker in workers) - before

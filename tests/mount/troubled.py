"""A program on each side amid troubles: odd names, files that stay open, and errors that are told."""

import errno
import os

from nasty import NASTY, NOT_UTF8
from sides import DIED, EXPECTED, FILES, FOLDERS, Here, Pair, There
from troubles import EXTRAS, TOLD

HELD = ["held-1.txt", "held-2.txt"]
MAY_BE_TOLD = EXPECTED | TOLD | DIED | {errno.EBADF}


class HereInTrouble(Here):
    files = NASTY
    expected = MAY_BE_TOLD


class ThereInTrouble(There):
    # It also takes away and replaces what is held open in the mount.
    files = [*NASTY, NOT_UTF8, *HELD]
    expected = MAY_BE_TOLD


class Holder(Here):
    """Keeps files open for all the time, and forces to the disk what it writes to them."""

    name = "holder"
    expected = MAY_BE_TOLD

    def __init__(self, root, versions, seed):
        super().__init__(root, versions, seed)
        self.held = []

    def step(self):
        if len(self.held) < len(HELD):
            self.hold(HELD[len(self.held)])
        path, file = self.random.choice(self.held)
        before, data = self._overwrite(file, True)
        self._wrote(path, before, data)

    def hold(self, name):
        path = os.path.join(self.root, self.random.choice(FOLDERS), name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        descriptor = os.open(path, os.O_RDWR | os.O_CREAT, 0o644)
        self.held.append((path, open(descriptor, "r+b", buffering=0)))

    def release(self):
        """Also what a killed service has left behind, whose closing fails."""
        for _, file in self.held:
            try:
                file.close()
            except OSError:
                pass
        self.held = []


class TroubledPair(Pair):
    """`extras`: what of odd names, files that stay open and the other side's changes there is."""

    here = HereInTrouble
    there = ThereInTrouble

    def __init__(self, box, seed, aside, extras=tuple(EXTRAS)):
        super().__init__(box, seed, aside)
        if "names" not in extras:
            self.sides[0].files = FILES
            self.sides[1].files = [*FILES, *HELD]
        if "other_side" not in extras:
            self.sides.pop()
        self.holder = Holder(self.here_root, self.versions, seed)
        if "holders" in extras:
            self.sides.append(self.holder)

    def release(self):
        self.holder.release()


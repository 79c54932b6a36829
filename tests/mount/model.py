"""Where every version of a file must be that a program has closed or forced.

Each version has bytes of its own, so that it is known again wherever it turns up, and nothing else
can pass for it. A version that is *kept* must be in some file at the end: at the host and in the
mount, under its name, in a conflicted copy, or among the recovered files. It need not be if somebody
replaced or removed exactly this version, having seen it.

Threads: any.
"""

import hashlib
import re
import threading
import time


def mark(data):
    """A version, for people."""
    head = data.split(b"\n", 1)[0][:40].decode(errors="replace")
    return f"[{head}: {len(data)} bytes, {hashlib.sha256(data).hexdigest()[:6]}]"


def is_mixture(data, before, after):
    """Whether each byte is one of the two, or was never written."""
    if len(data) > max(len(before), len(after)):
        return False
    return all(byte in (0, *before[at:at + 1], *after[at:at + 1]) for at, byte in enumerate(data))


class Versions:
    def __init__(self, name):
        self.name = name
        self.lock = threading.Lock()
        self.begin = time.monotonic()
        self.count = 0
        # All bytes that a file may ever hold, and those that must be somewhere.
        self.known = {b""}
        self.kept = {}
        # What somebody has replaced or removed, knowing it.
        self.replaced = set()
        # Names under which a program has removed what it had not read.
        self.excused = set()
        # Calls that failed: what was there before, and what was to be.
        self.spoilt = []
        self.history = []

    def _tell(self, text):
        self.history.append((time.monotonic() - self.begin, text))

    def tell(self, text):
        """Something that may explain what is found later."""
        with self.lock:
            self._tell(text)

    def fresh(self, side, filler, before=b""):
        """The bytes of a version that is about to be written, after those that stay."""
        with self.lock:
            self.count += 1
            data = before + b"%s %s %d\n" % (self.name.encode(), side.encode(), self.count) + filler
            self.known.add(data)
            return data

    def keep(self, data, what):
        """It is closed, or forced to the disk."""
        with self.lock:
            self.kept.setdefault(data, what)
            self._tell(f"{what}: {mark(data)}")

    def replace(self, data, what):
        """Somebody has put something else in its place, or removed it."""
        with self.lock:
            self.replaced.add(data)
            self._tell(f"{what} instead of {mark(data)}")

    def spoil(self, before, data):
        """Writing one over the other has failed somewhere, as the program was told."""
        with self.lock:
            self.replaced.add(before)
            self.spoilt.append((before, data))
            self._tell(f"failed: {mark(data)} instead of {mark(before)}")

    def excuse(self, name, what):
        """A program has itself lost what was under the name."""
        with self.lock:
            self.excused.add(name)
            self._tell(what)

    def _is_known(self, data):
        return data in self.known or any(is_mixture(data, *each) for each in self.spoilt)

    def needed(self):
        """The versions that must be in some file now."""
        with self.lock:
            return {data for data, what in self.kept.items()
                    if data and data not in self.replaced
                    and not any(re.search(rf"[ /]{re.escape(name)}$", what)
                                for name in self.excused)}

    def lost(self, found, recovered=()):
        """What should be in some file and is not, in words. `found`: names and bytes, None for folders.

        `recovered`: the bytes of files that were kept without their place.
        """
        contents = {data for data in [*found.values(), *recovered] if data is not None}
        lost = sorted(self.needed() - contents)
        with self.lock:
            return [f"lost: {mark(data)}, {self.kept[data]}" for data in lost]

    def wrong(self, found, recovered=()):
        """What is amiss, in words: what is lost, and what nobody has written."""
        parts = self.lost(found, recovered)
        with self.lock:
            parts += [f"{name} holds what nobody wrote: {mark(data)}"
                      for name, data in sorted(found.items())
                      if data is not None and not self._is_known(data)]
        return parts

    def story(self):
        with self.lock:
            return "\n".join(f"  {when:7.3f} {what}" for when, what in sorted(self.history))

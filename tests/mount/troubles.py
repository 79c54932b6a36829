"""What can go wrong around a mounted account, each kind for a while and then not any more.

A proof makes its Troubles before it starts anything, since the clock is handed to the programs when they
are started, and works inside of `with troubles.amid():`. When the block ends everything is well again.
"""

import contextlib
import errno
import os
import random
import resource
import shutil
import signal
import sqlite3
import threading
import time
import traceback

from harness import PATIENCE, POLL, Failure, expect
from jumps import DayClock, has_clock

INDEX = ["index_away", "index_emptied", "index_cut_short", "index_without_tables", "index_locked"]
HOST = ["host_killed", "host_stopped", "host_slow", "host_stands_still", "host_descriptors", "root_away"]
SERVICE = ["service_stands_still", "descriptors"]
CLOCK = ["clock"]
ALL = [*INDEX, *HOST, *SERVICE, *CLOCK]
# Worth its time only where there is a lot of it.
LONG = "host_takes_minutes"
LONG_RUN = 900
# What a proof adds by itself, which is left out in the same way.
EXTRAS = ["names", "holders", "other_side"]

# A call that says so has done nothing.
SHORTAGE = {errno.EMFILE, errno.ENFILE}
# What a program may be told besides while something is wrong.
TOLD = {
    errno.EIO, errno.EHOSTDOWN, errno.EMFILE, errno.ENFILE, errno.EAGAIN, errno.ENOSPC,
    errno.ETIMEDOUT, errno.ENOMEM, errno.ENAMETOOLONG, errno.EILSEQ, errno.EACCES, errno.EPERM,
}


def patiently(call, refused=(), patience=PATIENCE):
    """The call's result; repeated as long as there are no descriptors, since nothing was done then.

    `refused`: other answers that say the same of this call.
    """
    end = time.monotonic() + patience
    while True:
        try:
            return call()
        except OSError as error:
            if error.errno not in {*SHORTAGE, *refused} or time.monotonic() > end:
                raise
        time.sleep(POLL)


@contextlib.contextmanager
def few_descriptors(process, more):
    """As long as it lasts the process can open so many files more. Nothing if it has ended."""
    try:
        before = resource.prlimit(process.pid, resource.RLIMIT_NOFILE)
        few = min(process.descriptors() + more, before[0])
        resource.prlimit(process.pid, resource.RLIMIT_NOFILE, (few, before[1]))
    except (ProcessLookupError, FileNotFoundError, PermissionError):
        before = None
    try:
        yield
    finally:
        if before and process.is_running():
            with contextlib.suppress(ProcessLookupError):
                resource.prlimit(process.pid, resource.RLIMIT_NOFILE, before)


class Troubles:
    """`kinds`: which there are. What is no trouble is left to the proof, so its own words may be in it."""

    def __init__(self, box, seed, kinds=tuple(ALL)):
        self.box = box
        self.random = random.Random(f"{seed} trouble")
        self.kinds = [kind for kind in [*ALL, LONG] if kind in kinds]
        self.clock = DayClock(box) if "clock" in self.kinds else None
        self.index = os.path.join(box.container, "state.db")
        self.aside = box.file("index-aside")
        self.counts = {}
        self.over = threading.Event()
        self.error = None

    def told(self):
        return ", ".join(f"{kind} {count}" for kind, count in sorted(self.counts.items()))

    def expect_clock(self, mount):
        if self.clock:
            expect(has_clock(self.box, mount.pid), "the service has the clock of the test")

    @contextlib.contextmanager
    def amid(self, *without):
        """Has all kinds but these in turn, at random, until the block ends."""
        kinds = [kind for kind in self.kinds if kind not in without]
        self.over.clear()
        thread = threading.Thread(target=self._run, args=(kinds,))
        if kinds:
            thread.start()
        try:
            yield
        finally:
            self.over.set()
            if kinds:
                thread.join()
        if self.error:
            raise Failure(f"the trouble itself failed: {self.error}")

    def _run(self, kinds):
        try:
            while not self.over.wait(self.random.uniform(0.1, 0.8)):
                kind = self.random.choice(kinds)
                self.counts[kind] = self.counts.get(kind, 0) + 1
                getattr(self, f"do_{kind}")()
        except BaseException:  # pylint: disable=broad-except
            self.error = traceback.format_exc()

    def wait(self, least, most):
        self.over.wait(self.random.uniform(least, most))

    def a_while(self):
        self.wait(0.2, 3)

    def do_descriptors(self):
        with few_descriptors(self.box.mounts[0], self.random.randrange(3)):
            self.a_while()

    def do_host_descriptors(self):
        with few_descriptors(self.box.host, self.random.randrange(3)):
            self.a_while()

    def do_index_away(self):
        if os.path.exists(self.index):
            os.rename(self.index, self.aside)
            self.a_while()
            os.rename(self.aside, self.index)

    def _another_index(self, put):
        """Puts another file in the index's place, without the log of the real one beside it.

        Whoever opens an empty database removes the log that lies there, as SQLite has it.
        """
        parts = [part for part in ["", "-wal", "-shm"] if os.path.exists(self.index + part)]
        if not parts:
            return
        for part in parts:
            os.rename(self.index + part, self.aside + part)
        put()
        self.a_while()
        for part in ["", "-wal", "-shm"]:
            if os.path.exists(self.index + part):
                os.unlink(self.index + part)
        # The log first: the index is never there without it.
        for part in reversed(parts):
            os.rename(self.aside + part, self.index + part)

    def do_index_emptied(self):
        self._another_index(lambda: open(self.index, "wb").close())

    def do_index_cut_short(self):
        def put():
            shutil.copy(self.aside, self.index)
            os.truncate(self.index, os.path.getsize(self.index) // 8192 * 4096)

        self._another_index(put)

    def do_index_without_tables(self):
        def put():
            connection = sqlite3.connect(self.index)
            connection.execute("CREATE TABLE other(x)")
            connection.close()

        self._another_index(put)

    def do_index_locked(self):
        connection = sqlite3.connect(self.index, timeout=1, isolation_level=None)
        try:
            connection.execute("BEGIN IMMEDIATE")
            self.a_while()
            connection.execute("ROLLBACK")
        except sqlite3.OperationalError:
            pass  # the host was faster
        finally:
            connection.close()

    def do_clock(self):
        self.clock.set_ahead(self.random.choice([-86400, -60, 60, 3600, 86400, 400 * 86400]))
        self.a_while()
        self.clock.set_ahead(0)

    def do_host_stands_still(self):
        self.box.host.signal(signal.SIGSTOP)
        self.a_while()
        self.box.host.signal(signal.SIGCONT)

    def do_service_stands_still(self):
        mount = self.box.mounts[0]
        mount.signal(signal.SIGSTOP)
        time.sleep(self.random.uniform(0.05, 0.5))
        mount.signal(signal.SIGCONT)

    def do_host_killed(self):
        self.box.host.kill()
        self.a_while()
        self.box.start_host()

    def do_host_stopped(self):
        self.box.host.stop()
        self.a_while()
        self.box.start_host()

    def _slow_host(self, milliseconds, seconds):
        """A request that it is at may be done, lost with it, or answered."""
        self.box.host.kill()
        slow = [f"{operation}={milliseconds}" for operation in ("create", "modify", "delete")]
        self.box.start_host(*[word for each in slow for word in ("--delay", each)])
        self.wait(*seconds)
        self.box.host.kill()
        self.box.start_host()

    def do_host_slow(self):
        self._slow_host(self.random.randrange(1000, 4000), (1, 5))

    def do_host_takes_minutes(self):
        """Longer than anybody would wait who goes by the time alone."""
        self._slow_host(self.random.randrange(60_000, 120_000), (70, 180))

    def do_root_away(self):
        aside = self.box.file("root-aside")
        os.rename(self.box.root, aside)
        self.a_while()
        os.rename(aside, self.box.root)

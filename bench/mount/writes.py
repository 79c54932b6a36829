"""Times changes of the mounted account: until the call returns, and until the host has it all.

The bare folder, bindfs and rclone work on folders of their own beside the host's, since the host
would take notice of what they do there. Before each piece of work what was written before was handed
on, and before the first one in a folder it is on the disk.
"""

import io
import os
import random
import shutil
import statistics
import subprocess
import tarfile
import time

from contenders import Bare, Bindfs, Rclone, Tulo
from harness import eventually
from writing import status

# The patience with which a queue is waited for.
DRAINED = 600
# As many as the service has under way.
CONNECTIONS = 6


class Sizes:
    def __init__(self, quick, rounds=None):
        self.rounds = rounds or (2 if quick else 3)
        self.files = 300 if quick else 1_000
        self.mebibytes = 64 if quick else 512
        self.archive = 1_000 if quick else 5_000
        self.repository = 300 if quick else 1_000
        self.per_folder = 20


def file_names(root):
    """The paths below root with their sizes."""
    result = {}
    for folder, _, names in os.walk(root):
        for name in names:
            path = os.path.join(folder, name)
            result[os.path.relpath(path, root)] = os.lstat(path).st_size
    return result


class PlainSide(Bare):
    def __init__(self, box):
        source = box.file("plain")
        os.mkdir(source)
        super().__init__(box, source)

    def handed_on(self, name):
        pass


class BindfsSide(Bindfs):
    def __init__(self, box):
        source = box.file("plain-bindfs")
        os.mkdir(source)
        super().__init__(box, source)

    def handed_on(self, name):
        pass


class RcloneSide(Rclone):
    def __init__(self, box):
        source = box.file("plain-rclone")
        os.mkdir(source)
        super().__init__(box, source, ["--vfs-write-back", "1s"])

    def handed_on(self, name):
        here = os.path.join(self.root, name)
        there = os.path.join(self.source, name)
        eventually(lambda: file_names(here) == file_names(there), "rclone writes back", DRAINED)


class TuloSide(Tulo):
    def __init__(self, box):
        super().__init__(box, [])

    def handed_on(self, name):
        def drained():
            now = status(self.box)
            return now["pending"] == 0 and now["uploading"] == 0

        eventually(drained, "the host has it all", DRAINED)


class Writes:
    """The rows about writing. `bench` measures and prints."""

    def __init__(self, bench, sizes):
        self.bench = bench
        self.box = bench.box
        self.sizes = sizes
        self.contenders = [PlainSide(self.box)]
        if shutil.which("bindfs"):
            self.contenders.append(BindfsSide(self.box))
        if shutil.which("rclone"):
            self.contenders.append(RcloneSide(self.box))
        self.tulo = TuloSide(self.box)
        self.contenders.append(self.tulo)
        self.times = {}
        self.ratios = []
        self.archive = self.box.file("sources.tar")
        self.repository = self.box.file("repository")
        self.environment = dict(self.box.environment, GIT_CONFIG_GLOBAL=os.devnull,
                                GIT_CONFIG_SYSTEM=os.devnull)

    # What is unpacked and cloned, the same in every run.

    def make_archive(self):
        numbers = random.Random(3)
        with tarfile.open(self.archive, "w") as archive:
            for i in range(self.sizes.archive):
                about = tarfile.TarInfo(
                    f"sources/part-{i // self.sizes.per_folder:03}/file-{i:04}.c")
                about.size = min(60_000, int(numbers.lognormvariate(8, 1)))
                about.mtime = 1_700_000_000
                text = numbers.randbytes(about.size // 2 + 1).hex().encode()[:about.size]
                archive.addfile(about, io.BytesIO(text))

    def git(self, *arguments):
        subprocess.run(["git", *arguments], env=self.environment, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def make_repository(self):
        self.git("init", "-q", "-b", "main", self.repository)
        numbers = random.Random(4)
        for i in range(self.sizes.repository):
            folder = os.path.join(self.repository, f"part-{i // self.sizes.per_folder:02}")
            os.makedirs(folder, exist_ok=True)
            with open(os.path.join(folder, f"file-{i:04}.c"), "w", encoding="ascii") as file:
                file.write(numbers.randbytes(min(8_000, int(numbers.lognormvariate(7, 1)))).hex())
        self.git("-C", self.repository, "add", ".")
        self.git("-C", self.repository, "-c", "user.name=a", "-c", "user.email=a@example.org",
                 "commit", "-q", "-m", "all")

    # Measuring.

    def timed(self, title, contender, name, work, hands_on=True):
        """The work, then the rest until the host has what is in the folder of that name."""
        seconds = work()
        handed = time.monotonic()
        contender.handed_on(name)
        total = time.monotonic() - handed + seconds
        call = self.times.setdefault(title, {})
        call.setdefault(contender.name, []).append(seconds)
        if not hands_on:
            return
        whole = self.times.setdefault(f"{title}; until the host has it", {})
        # Where nothing is handed on, there is nothing to compare with but the folder itself.
        whole.setdefault(contender.name, []).append(seconds if contender is self.contenders[0]
                                                    else total)

    def command(self, *arguments):
        begin = time.monotonic()
        subprocess.run(arguments, env=self.environment, check=True, stdout=subprocess.DEVNULL)
        return time.monotonic() - begin

    def one_round(self, contender, number):
        probe = self.bench.probe
        sizes = self.sizes
        many = f"{sizes.files:,}"

        def place(name):
            os.mkdir(os.path.join(contender.root, name))
            contender.handed_on(name)
            os.sync()
            return name, os.path.join(contender.root, name)

        name, folder = place(f"files-{number}")
        self.timed(f"create {many} files of 4 KiB and close", contender, name,
                   lambda: probe("create", folder, sizes.files))
        self.timed(f"rename {many}", contender, name,
                   lambda: probe("rename", folder, sizes.files))
        self.timed(f"unlink {many}", contender, name,
                   lambda: probe("remove", folder, sizes.files))
        name, folder = place(f"forced-{number}")
        self.timed(f"create {many} files of 4 KiB, fsync and close", contender, name,
                   lambda: probe("create-durably", folder, sizes.files))
        name, big = place(f"big-{number}")
        self.timed(f"write {sizes.mebibytes} MiB and close", contender, name,
                   lambda: probe("fill", os.path.join(big, "file"), sizes.mebibytes))
        os.unlink(os.path.join(big, "file"))
        contender.handed_on(name)
        name, tree = place(f"tree-{number}")
        self.timed(f"untar {sizes.archive:,} files", contender, name,
                   lambda: self.command("tar", "-xf", self.archive, "-C", tree))
        name, clone = place(f"clone-{number}")
        self.timed(f"`git clone` of {sizes.repository:,} files", contender, name,
                   lambda: self.command("git", "clone", "-q", "--no-hardlinks", self.repository,
                                        os.path.join(clone, "it")))
        self.timed("`git status` in the clone", contender, name,
                   lambda: self.command("git", "-C", os.path.join(clone, "it"), "status", "-s"), hands_on=False)

    def drain_rate(self, number):
        """Changes a second that reach the host, against what it takes on bare sockets."""
        count = self.sizes.files
        bare = count / self.bench.probe("send", self.box.container, f"bare-{number}", count,
                                        CONNECTIONS)
        folder = os.path.join(self.tulo.root, f"drained-{number}")
        os.mkdir(folder)
        self.tulo.handed_on("")
        before = status(self.box)["sent"]
        self.bench.probe("create", folder, count)
        seen = []

        def all_sent():
            seen.append((time.monotonic(), status(self.box)["sent"] - before))
            return seen[-1][1] >= count

        eventually(all_sent, "the host has it all", DRAINED)
        started = [each for each in seen if 0 < each[1] < count]
        if not started:
            raise RuntimeError("the queue drained faster than it can be watched")
        own = (count - started[0][1]) / (seen[-1][0] - started[0][0])
        self.ratios.append((own / bare, own, bare))

    TARGETS = {"create": 3, "rename": 6, "unlink": 8, "write": 2}

    def target(self, title):
        if title.endswith("has it"):
            return None
        return 1.5 if "fsync" in title else self.TARGETS.get(title.split()[0])

    def run(self):
        self.make_archive()
        self.make_repository()
        for contender in self.contenders:
            contender.start()
        try:
            for number in range(self.sizes.rounds):
                turn = list(self.contenders)
                self.bench.order.shuffle(turn)
                for contender in turn:
                    self.one_round(contender, number)
                self.drain_rate(number)
        finally:
            for contender in self.contenders:
                contender.stop()
        self.bench.header(self.contenders)
        for title, times in self.times.items():
            self.bench.print_line(title, times, self.target(title), self.contenders)
        ratios = [each[0] for each in self.ratios]
        self.bench.say("rate at which the queue drains, against bare requests to the host",
                       f"{statistics.median(ratios):.2f} "
                       f"({statistics.median(each[1] for each in self.ratios):.0f} of "
                       f"{statistics.median(each[2] for each in self.ratios):.0f} a second)",
                       "at least 0.5")

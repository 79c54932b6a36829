#!/usr/bin/env python3
"""Times the mounted account against the bare folder, bindfs and `rclone mount` with its cache.

All four show (or change) the same in the same run and take turns; each figure is the median of the
rounds' ratios to the bare folder. `--quick` is for a look (a minute or two), the full form for the record.
`--million` adds the account of a million files.
"""

import argparse
import json
import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import time

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPOSITORY / "tests" / "mount"))
sys.dont_write_bytecode = True

import writes  # noqa: E402
from contenders import Bare, Bindfs, Rclone, Tulo, ratio  # noqa: E402
from harness import Box, eventually  # noqa: E402

# Longer than the peers' time-outs (1 s), after which the kernel asks them again.
EXPIRY = 1.3


class Sizes:
    """How much work: the full form, or a quick look."""

    def __init__(self, quick):
        self.rounds = 3 if quick else 7
        self.medium = 2_000 if quick else 10_000
        self.large = 20_000 if quick else 100_000
        self.folders = 200 if quick else 2_000
        self.per_folder = 10
        self.small = 300 if quick else 2_000
        self.big_file = (64 if quick else 1024) * 1024 * 1024
        self.random_reads = 5_000 if quick else 50_000
        self.latencies = 10 if quick else 50


def build_tree(box, sizes):
    """The host's folder: two flat folders, a tree, small files and one big file."""
    for name, count in (("medium", sizes.medium), ("large", sizes.large)):
        folder = os.path.join(box.root, name)
        os.mkdir(folder)
        for i in range(count):
            open(os.path.join(folder, f"file-{i:06}.txt"), "wb").close()
    for i in range(sizes.folders):
        folder = os.path.join(box.root, "tree", f"folder-{i:04}")
        os.makedirs(folder)
        for j in range(sizes.per_folder):
            open(os.path.join(folder, f"file-{j}"), "wb").close()
    os.mkdir(os.path.join(box.root, "small"))
    for i in range(sizes.small):
        with open(os.path.join(box.root, "small", f"small-{i:04}"), "wb") as file:
            file.write(b"s" * 4096)
    with open(os.path.join(box.root, "big"), "wb") as file:
        block = random.Random(1).randbytes(1024 * 1024)
        for _ in range(sizes.big_file // len(block)):
            file.write(block)
    os.mkdir(os.path.join(box.root, "changes"))


class Bench:
    def __init__(self, box, sizes, probe):
        self.box = box
        self.sizes = sizes
        self.probe_program = probe
        self.contenders = [Bare(box)]
        if shutil.which("bindfs"):
            self.contenders.append(Bindfs(box))
        if shutil.which("rclone"):
            self.contenders.append(Rclone(box))
        self.tulo = Tulo(box)
        self.contenders.append(self.tulo)
        self.times = {}
        self.single = []
        self.order = random.Random(1)

    # Measuring.

    def probe(self, *arguments):
        result = subprocess.run([self.probe_program, *map(str, arguments)], capture_output=True,
                                env=self.box.environment, check=False)
        if result.returncode != 0:
            raise RuntimeError(result.stderr.decode())
        return float(result.stdout)

    def compare(self, title, work, target=None, before=None, rounds=None):
        """One line of the table: the same work in each contender's tree, in turn."""
        times = {contender.name: [] for contender in self.contenders}
        for _ in range(rounds or self.sizes.rounds):
            turn = list(self.contenders)
            self.order.shuffle(turn)
            for contender in turn:
                if before:
                    before(contender)
                times[contender.name].append(work(contender))
        self.times[title] = times
        self.print_line(title, times, target)

    def print_line(self, title, times, target, contenders=None):
        bare = statistics.median(times["bare"])
        cells = [f"{bare * 1000:9.2f} ms"]
        for contender in (contenders or self.contenders)[1:]:
            cells.append(f"{ratio(times, contender.name):8.2f}")
        goal = f"at most {target}" if target else ""
        print(f"| {title} | " + " | ".join(cells) + f" | {goal} |", flush=True)

    def header(self, contenders=None):
        names = [contender.name for contender in (contenders or self.contenders)[1:]]
        print("| work | bare folder | " + " | ".join(names) + " | target |")
        print("|---|" + "---|" * (len(names) + 2), flush=True)

    def say(self, title, value, target=""):
        self.single.append((title, value, target))
        print(f"{title}: {value}" + (f" (target: {target})" if target else ""), flush=True)

    def path_list(self, contender, name, paths):
        file = self.box.file(f"{contender.name}.{name}")
        with open(file, "w", encoding="utf-8") as out:
            out.writelines(os.path.join(contender.root, path) + "\n" for path in paths)
        return file

    # The figures.

    def metadata(self):
        probe = self.probe
        shuffled = [f"medium/file-{i:06}.txt" for i in range(self.sizes.medium)]
        random.Random(2).shuffle(shuffled)
        for contender in self.contenders:
            probe("walk", contender.root)
            self.path_list(contender, "stat", shuffled)

        def at(contender, name):
            return os.path.join(contender.root, name)

        def expire(_):
            time.sleep(EXPIRY)

        medium, large = f"{self.sizes.medium:,}", f"{self.sizes.large:,}"
        tree = f"{self.sizes.folders:,} folders of {self.sizes.per_folder}"
        expired = {"before": expire, "target": 1.4}
        self.compare(f"names of {medium} files, again", lambda c: probe("names", at(c, "medium")),
                     **expired)
        self.compare(f"names of {large} files, again", lambda c: probe("names", at(c, "large")),
                     **expired)
        self.compare(f"`ls -l` of {medium} files, again", lambda c: probe("list", at(c, "medium")),
                     **expired)
        self.compare(f"`ls -l` of {large} files, again", lambda c: probe("list", at(c, "large")),
                     **expired)
        self.compare(f"walk of {tree}, again", lambda c: probe("walk", at(c, "tree")), **expired)
        self.compare(f"{medium} random stats, again",
                     lambda c: probe("stat", self.box.file(f"{c.name}.stat")), **expired)
        self.compare("1,000 missing names, asked again",
                     lambda c: probe("missing", at(c, "medium"), 1000), target=1.2)

        def restart(contender):
            contender.restart()

        rounds = max(3, self.sizes.rounds // 2)
        self.compare(f"walk of {tree}, first after a restart", lambda c: probe("walk", at(c, "tree")),
                     before=restart, target=4, rounds=rounds)
        self.compare(f"`ls -l` of {medium} files, first after a restart",
                     lambda c: probe("list", at(c, "medium")), before=restart, target=4,
                     rounds=rounds)

    def contents(self):
        probe = self.probe
        small = [f"small/small-{i:04}" for i in range(self.sizes.small)]
        for contender in self.contenders:
            self.path_list(contender, "small", small)

        def read_small(contender):
            return probe("read", self.box.file(f"{contender.name}.small"))

        def big(contender):
            return os.path.join(contender.root, "big")

        def forget(contender):
            contender.forget_contents()

        size = f"{self.sizes.big_file // 1024 // 1024:,} MiB"
        rounds = max(3, self.sizes.rounds // 2)
        self.compare(f"first read of {self.sizes.small:,} small files", read_small, before=forget,
                     rounds=rounds)
        self.compare(f"first read of {size}", lambda c: probe("sequential", big(c)), before=forget,
                     rounds=rounds)
        for contender in self.contenders:
            read_small(contender)
            probe("sequential", big(contender))
        self.compare(f"open, read and close of {self.sizes.small:,} small files", read_small,
                     target=5)
        self.compare(f"sequential read of {size}, warm", lambda c: probe("sequential", big(c)),
                     target=1.05)
        self.compare(f"{self.sizes.random_reads:,} random reads of 4 KiB, warm",
                     lambda c: probe("random", big(c), self.sizes.random_reads), target=1.05)

    def cold_listing(self):
        """The first look at the large folder against the extension's own time for it."""
        ratios, firsts = [], []
        for _ in range(max(3, self.sizes.rounds // 2)):
            self.tulo.forget_contents()
            folder = os.path.join(self.tulo.root, "large")
            identifier = os.getxattr(folder, "user.tulo.identifier").decode()
            domain = os.getxattr(folder, "user.tulo.domain").decode()
            own = self.probe("enumerate", domain, identifier)
            first = self.probe("names", folder)
            firsts.append(first)
            ratios.append(first / own)
        self.say(f"cold listing of {self.sizes.large:,} names against the extension's enumeration",
                 f"{statistics.median(ratios):.2f} times "
                 f"({statistics.median(firsts) * 1000:.0f} ms)", "under 3 times")

    def latency(self):
        folder = os.path.join(self.tulo.root, "changes")
        os.listdir(folder)
        new, edited = [], []
        for i in range(self.sizes.latencies):
            name = f"change-{i}"
            begin = time.monotonic()
            self.box.write(f"changes/{name}", b"x")
            eventually(lambda here=name: os.path.exists(os.path.join(folder, here)), "a change")
            new.append(time.monotonic() - begin)
            # As far from the change before as a user's would be, at another point of any rhythm.
            time.sleep(0.2 + self.order.random() * 0.3)
            begin = time.monotonic()
            self.box.write(f"changes/{name}", b"longer")
            eventually(lambda here=name: os.stat(os.path.join(folder, here)).st_size == 6, "an edit")
            edited.append(time.monotonic() - begin)
            time.sleep(0.2 + self.order.random() * 0.3)
        for title, times in (("a new file", new), ("an edit", edited)):
            self.say(f"{title} at the host visible in the mount",
                     f"median {statistics.median(times) * 1000:.0f} ms, "
                     f"slowest {max(times) * 1000:.0f} ms", "under 100 ms")

    def memory(self):
        self.probe("walk", self.tulo.root)
        self.say("resident memory with the whole tree known",
                 f"{self.tulo.service.resident_bytes() / 1e6:.0f} MB")

    def run(self):
        for contender in self.contenders:
            contender.start()
        try:
            self.header()
            self.metadata()
            self.contents()
            self.cold_listing()
            self.latency()
            self.memory()
        finally:
            for contender in self.contenders:
                contender.stop()


def million(program, probe, count):
    """An account of so many files: memory and start of the service."""
    box = Box(program)
    try:
        per_folder = 1000
        for i in range(count // per_folder):
            folder = os.path.join(box.root, f"folder-{i:04}")
            os.mkdir(folder)
            for j in range(per_folder):
                open(os.path.join(folder, f"file-{j:04}"), "wb").close()
        box.start_host()
        tulo = Tulo(box)
        tulo.start()
        begin = time.monotonic()
        subprocess.run([probe, "walk", tulo.root], check=True, stdout=subprocess.DEVNULL)
        print(f"first walk of {count:,} files: {time.monotonic() - begin:.1f} s")
        print(f"resident memory with {count:,} files known: "
              f"{tulo.service.resident_bytes() / 1e6:.0f} MB (target: under 200 MB)")
        tulo.stop()
        begin = time.monotonic()
        tulo.start()
        os.listdir(tulo.root)
        print(f"start with {count:,} files known, to the first listing: "
              f"{time.monotonic() - begin:.2f} s (target: under 1 s)")
        subprocess.run([probe, "walk", tulo.root], check=True, stdout=subprocess.DEVNULL)
        print(f"resident memory after a walk: {tulo.service.resident_bytes() / 1e6:.0f} MB")
        tulo.stop()
    finally:
        box.tear_down()


def measured(program, probe, part, arguments, results):
    """One part of the benchmark on an account of its own."""
    box = Box(program)
    try:
        sizes = Sizes(arguments.quick)
        if part == "reading":
            build_tree(box, sizes)
        box.start_host()
        bench = Bench(box, sizes, probe)
        if part == "reading":
            bench.run()
        else:
            writing = writes.Writes(bench, writes.Sizes(arguments.quick, arguments.rounds))
            writing.run()
            bench.times = writing.times
        results[part] = {"times": bench.times, "single": bench.single}
    except BaseException:
        print(box.logs(), file=sys.stderr)
        raise
    finally:
        box.tear_down()


def main():
    parser = argparse.ArgumentParser(description="Benchmarks of the mount.")
    parser.add_argument("--tulo", required=True, help="the executable, a release build")
    parser.add_argument("--probe", help="mount_probe (default: beside the executable)")
    parser.add_argument("--part", choices=("reading", "writing"), action="append",
                        help="this part only; may be repeated")
    parser.add_argument("--quick", action="store_true", help="small sizes and few rounds")
    parser.add_argument("--rounds", type=int, help="rounds of writing (default: 2 quick, 3 full)")
    parser.add_argument("--million", action="store_true", help="also an account of 1,000,000 files")
    parser.add_argument("--count", type=int, default=1_000_000, help="files of that account")
    parser.add_argument("--json", metavar="FILE", help="write all times there")
    arguments = parser.parse_args()
    program = os.path.abspath(arguments.tulo)
    probe = os.path.abspath(arguments.probe or os.path.join(os.path.dirname(program), "mount_probe"))
    for each in (program, probe):
        if not os.access(each, os.X_OK):
            parser.error(f"{each}: not an executable")
    if not os.path.exists("/dev/fuse"):
        parser.error("there is no /dev/fuse")
    results = {}
    for part in arguments.part or ("reading", "writing"):
        measured(program, probe, part, arguments, results)
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as file:
            json.dump(results, file, indent=1)
    if arguments.million:
        million(program, probe, arguments.count)
    return 0


if __name__ == "__main__":
    sys.exit(main())

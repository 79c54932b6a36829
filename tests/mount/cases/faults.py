"""What may go wrong around the service: an ill host, a full disk, a damaged database."""

import contextlib
import errno
import os
import pathlib
import random
import subprocess
import threading
import time

from harness import (
    LIBC, MNT_DETACH, Skip, case, error_of, eventually, expect, expect_equal, need_program, read)
from load import Worker, work
from proxy import FAILURES, Proxy
from writing import difference, expect_host, host_tree, settled, status, tree, writable

CHANGES = ("create", "modify", "delete")


def through(box, rule):
    """A mount whose requests to the host go through a proxy."""
    box.start_host()
    proxy = Proxy(box.container, rule)
    mount = writable(box, "--no-thumbnails")
    mount.allowed_errors.append("failed|cannot|did not")
    return proxy, mount


def put(path, data):
    with open(path, "wb") as file:
        file.write(data)


def retried(box, patience=90):
    """Has everything tried again until the queue is empty."""

    def drained():
        box.tulo("retry", check=False)
        now = status(box)
        return now["pending"] == 0 and now["uploading"] == 0 and now["needsAttention"] == 0

    eventually(drained, "everything is at the host", patience)


@case
def a_host_that_fails_in_every_way(box):
    """Each change fails once in one of the ways; in the end the host has all of it, and once."""
    chance = random.Random(7)
    kinds = [*FAILURES, "lost", "lost", "hang up", "garbage"]
    left = [kind for kind in kinds for _ in range(3)]
    chance.shuffle(left)

    def rule(request):
        if request["op"] not in CHANGES or not left or chance.random() < 0.4:
            return None
        return left.pop()

    proxy, _ = through(box, rule)
    workers = [Worker(box.path(), f"w{i}", 7) for i in range(2)]
    for _ in range(40):
        work(workers, 12, lambda: True)
        expect(not any(worker.error for worker in workers), "no program was told of it")
        retried(box)
        if not left:
            break
    expect(not left, f"all ways were met, but {left}")
    wanted = {name: data for worker in workers for name, data in worker.entries.items()}
    wrong = difference(tree(box.path()), wanted)
    expect(not wrong, f"the mount: {wrong[:10]}")
    wrong = difference(host_tree(box), wanted)
    expect(not wrong, f"the host: {wrong[:10]}")
    proxy.end()


@case
def a_host_that_never_answers(box):
    """Programs go on, the service ends in time, and the next one brings everything up."""
    silent = [True]
    proxy, mount = through(box, lambda request: "silent" if silent[0] else None)
    for i in range(8):
        put(box.path(f"f{i}"), b"text %d" % i)
    os.mkdir(box.path("folder"))
    eventually(lambda: proxy.counts.get("silent", 0) > 0, "a request waits")
    put(box.path("f1"), b"written while the host says nothing")
    os.rename(box.path("f2"), box.path("folder/g2"))
    wanted = tree(box.path())
    mount.unmount()
    proxy.end()
    box.mounts.pop()
    box.mount("--no-thumbnails", name="later")
    wrong = difference(tree(box.path()), wanted)
    expect(not wrong, f"the mount: {wrong}")
    settled(box)
    expect_host(box, wanted)


def small_disk(box, size):
    """A file system of that size under the replica; what it takes is given back by the caller."""
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "small", box.state],
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Skip(f"cannot mount a small disk: {done.stderr.strip()}")


@case
def a_full_disk(box):
    """The writer is told, nothing that was acknowledged is lost, and it goes on with room again."""
    small_disk(box, "120m")
    try:
        filler = os.path.join(box.state, "filler")
        put(filler, bytes(100 << 20))
        box.start_host()
        box.host.stop()
        mount = writable(box, "--no-thumbnails")
        mount.allowed_errors.append("cannot|failed|full|space")
        done = {}
        told = 0
        for i in range(4000):
            name, data = f"f{i}", bytes([i % 251]) * 100_000
            try:
                put(box.path(name), data)
                done[name] = data
            except OSError as error:
                expect(error.errno in (errno.ENOSPC, errno.EDQUOT), f"the writer is told: {error}")
                told += 1
                if told > 20:
                    break
        expect(told > 20, "the disk got full")
        expect(len(done) > 50, f"{len(done)} files fitted")

        def missing():
            shown = tree(box.path())
            return [name for name, data in done.items() if shown.get(name) != data]

        expect_equal(missing(), [], "what was acknowledged and is not there")
        mount.kill()
        box.mounts.pop()
        LIBC.umount2(os.fsencode(mount.point), MNT_DETACH)
        os.unlink(filler)
        box.start_host()
        mount = box.mount("--no-thumbnails", name="again")
        mount.allowed_errors.append("cannot|failed|full|space")
        expect_equal(missing(), [], "what was acknowledged and is not there after a restart")
        for name in [name for name in tree(box.path()) if name not in done]:
            os.unlink(box.path(name))
        eventually(lambda: error_of(lambda: put(box.path("again"), b"x" * 100_000)) == 0, "room")
        done["again"] = b"x" * 100_000
        retried(box)
        expect_host(box, done)
        mount.unmount()
        box.mounts.pop()
    finally:
        for process in box.processes:
            process.signal(9)
            process.process.wait()
        LIBC.umount2(os.fsencode(box.file("m")), MNT_DETACH)
        LIBC.umount2(os.fsencode(box.state), MNT_DETACH)


def small_image(box, size):
    """The same on ext4, which keeps its own account of what is free."""
    if os.geteuid() != 0:
        raise Skip("mounting an image needs root")
    image = box.file("image")
    with open(image, "wb") as file:
        file.truncate(size)
    subprocess.run([need_program("mkfs.ext4"), "-q", "-F", "-m", "0", image], check=True)
    done = subprocess.run(["mount", "-t", "ext4", "-o", "loop", image, box.state],
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Skip(f"no loop device: {done.stderr.strip()}")


def fill(path):
    """Takes every byte that is left."""
    with open(path, "ab", buffering=0) as file:
        for size in (1 << 20, 4096, 1):
            while error_of(lambda size=size: file.write(bytes(size))) == 0:
                pass


def reserve_of(box):
    paths = list(pathlib.Path(box.state).glob("tulo/*/reserve"))
    return paths[0].stat().st_size if paths else 0


def emptied_when_full(box):
    """Deleting and starting need a little room, which the service has kept."""
    filler = os.path.join(box.state, "filler")
    box.start_host()
    box.host.stop()
    mount = writable(box, "--no-thumbnails")
    mount.allowed_errors.append(FULL)
    left = {f"f{i}": bytes([i]) * 1_000_000 for i in range(12)}
    for name, data in left.items():
        put(box.path(name), data)
    eventually(lambda: reserve_of(box) > 0, "there is a reserve")
    eventually(lambda: status(box)["pending"] == len(left), "all is noted")

    def is_refused():
        fill(filler)
        return error_of(lambda: put(box.path("more"), bytes(500_000))) == errno.ENOSPC

    def remove(names):
        for name in names:
            expect_equal(error_of(lambda name=name: os.unlink(box.path(name))), 0, f"rm {name}")
            left.pop(name, None)

    def has_room():
        return error_of(lambda: put(box.path("more"), bytes(500_000))) == 0

    for name in ("f0", "f1"):
        eventually(is_refused, "the disk is full")
        remove([name])
        eventually(has_room, "room for what comes instead")
    eventually(is_refused, "the disk is full")
    os.truncate(box.path("f2"), 0)
    left["f2"] = b""
    eventually(has_room, "room after a file was emptied")
    eventually(is_refused, "the disk is full")
    mount.kill()
    box.mounts.pop()
    LIBC.umount2(os.fsencode(mount.point), MNT_DETACH)
    fill(filler)
    mount = box.mount("--no-thumbnails", name="killed")
    mount.allowed_errors.append(FULL)
    shown = tree(box.path())
    shown.pop("more", None)
    expect_equal(difference(shown, left), [], "what is missing after the service was killed")
    remove(["f3"])
    eventually(is_refused, "the disk is full")
    mount.unmount()
    fill(filler)
    box.mounts.pop()
    mount = box.mount("--no-thumbnails", name="stopped")
    mount.allowed_errors.append(FULL)
    remove(["f4"])
    if os.path.exists(box.path("more")):
        remove(["more"])
    os.unlink(filler)
    eventually(lambda: reserve_of(box) == 8 << 20, "the reserve is made again")
    box.start_host()
    retried(box)
    expect_host(box, left)
    expect_equal(difference(tree(box.path()), left), [], "the mount")
    mount.unmount()
    box.mounts.pop()


FULL = "cannot|failed|full|space"


@contextlib.contextmanager
def away_afterwards(box):
    """However it ends, nobody uses the disk any more that was made for the box, and it goes."""
    try:
        yield
    finally:
        for process in box.processes:
            process.signal(9)
            process.process.wait()
        for path in (box.file("m"), box.state):
            LIBC.umount2(os.fsencode(path), MNT_DETACH)


def on_small_disk(box, prepare):
    with away_afterwards(box):
        prepare()
        emptied_when_full(box)


@case
def a_disk_full_to_the_last_byte(box):
    on_small_disk(box, lambda: small_disk(box, "100m"))


@case
def an_ext4_full_to_the_last_byte(box):
    on_small_disk(box, lambda: small_image(box, 100 << 20))


@case
def a_listing_without_room(box):
    """A folder that was not listed yet says what is wrong, and so does the status."""
    small_disk(box, "60m")
    with away_afterwards(box):
        for i in range(3000):
            box.write("large/" + "n" * 200 + str(i))
        box.start_host()
        mount = box.mount("--no-thumbnails")
        mount.allowed_errors.append(FULL)
        expect("large" in os.listdir(box.path()), "the root is listed")
        filler = os.path.join(box.state, "filler")
        fill(filler)

        def told():
            return os.strerror(errno.ENOSPC) in box.tulo("status").stdout.decode()

        expect_equal(error_of(lambda: os.listdir(box.path("large"))), errno.ENOSPC, "the listing")
        expect(told(), "the status says what the listing failed with")
        os.unlink(filler)
        eventually(lambda: error_of(lambda: os.listdir(box.path("large"))) == 0, "room")
        expect_equal(len(os.listdir(box.path("large"))), 3000, "what is in the folder")
        eventually(lambda: not told(), "the status is well again")
        mount.unmount()
        box.mounts.pop()


@case
def readers_on_a_small_disk(box):
    """Of twenty files three fit at a time: all are read. What never fits is refused at once."""
    small_disk(box, "140m")
    with away_afterwards(box):
        for i in range(20):
            box.write(f"f{i:02}", bytes([i]) * 20_000_000)
        box.write("large", bytes(200_000_000))
        box.start_host()
        mount = box.mount("--no-thumbnails")
        mount.allowed_errors.append(FULL)
        wrong = []

        def reader(i):
            try:
                if read(box.path(f"f{i:02}")) != bytes([i]) * 20_000_000:
                    wrong.append((i, "other bytes"))
            except OSError as error:
                wrong.append((i, error))

        threads = [threading.Thread(target=reader, args=(i,)) for i in range(20)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        expect_equal(wrong, [], "files that were read wrong")

        def here():
            return sorted(name for name in os.listdir(box.path())
                          if box.state_of(name) == "downloaded")

        before = here()
        expect(before, "the cache is used")
        expect_equal(error_of(lambda: read(box.path("large"))), errno.ENOSPC, "what never fits")
        expect_equal(here(), before, "what is in the cache")
        mount.unmount()
        box.mounts.pop()


def replica(box):
    (found,) = pathlib.Path(box.state).glob("tulo/*/replica.db")
    return found


def overwritten(database):
    with open(database, "r+b") as file:
        file.write(random.Random(3).randbytes(8192))


def cut_short(database):
    os.truncate(database, 5000)


def emptied(database):
    os.truncate(database, 0)


def scribbled(database):
    """Pages in the middle: it opens, and fails in use."""
    size = os.path.getsize(database)
    with open(database, "r+b") as file:
        for offset in range(4096, size, 4096):
            file.seek(offset)
            file.write(b"\xff" * 64)


def a_folder(database):
    os.rename(database, f"{database}.away")
    os.mkdir(database)


def damaged(box, how):
    """Unsent contents outlive the damage under their names, and the damaged file is kept."""
    box.write("known", b"at the host")
    box.start_host()
    mount = writable(box, "--no-thumbnails")
    expect_equal(read(box.path("known")), b"at the host", "contents")
    box.host.stop()
    os.mkdir(box.path("folder"))
    put(box.path("letter.txt"), b"never sent")
    put(box.path("folder/other.txt"), b"never sent either")
    put(box.path("known"), b"changed here")
    mount.kill()
    box.mounts.pop()
    LIBC.umount2(os.fsencode(mount.point), MNT_DETACH)
    database = replica(box)
    # Half of the damage is that the log went with it.
    for suffix in ("-wal", "-shm"):
        if how is not scribbled and os.path.exists(f"{database}{suffix}"):
            os.unlink(f"{database}{suffix}")
    if how is scribbled:
        checkpoint(database)
    how(database)
    box.start_host()
    mount = box.mount("--no-thumbnails", name="again")
    mount.allowed_errors.append("damaged|not sent|replica.db")
    rescued = {name: data for name, data in tree(box.path("Recovered files")).items()}
    wanted = {"letter.txt": b"never sent", "other.txt": b"never sent either",
              "known": b"changed here"}
    expect_equal(rescued, wanted, "the recovered files")
    kept = [entry for entry in os.listdir(database.parent) if "damaged" in entry]
    expect(kept or how is emptied, "the damaged database is kept")
    settled(box)
    expect_equal({n: d for n, d in host_tree(box).items() if n.startswith("Recovered files/")},
                 {f"Recovered files/{name}": data for name, data in wanted.items()}, "at the host")
    expect_equal(read(box.path("known")), b"at the host", "what the host has stays")


def checkpoint(database):
    import contextlib
    import sqlite3

    with contextlib.closing(sqlite3.connect(database)) as connection:
        connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")


@case
def a_database_with_other_bytes(box):
    damaged(box, overwritten)


@case
def a_database_cut_short(box):
    damaged(box, cut_short)


@case
def an_empty_database(box):
    damaged(box, emptied)


@case
def a_database_that_fails_in_use(box):
    damaged(box, scribbled)


@case
def a_folder_for_a_database(box):
    damaged(box, a_folder)


@case
def a_database_of_a_newer_version(box):
    """Refused as it is: a newer program can read it."""
    import contextlib
    import sqlite3

    box.write("known", b"at the host")
    box.start_host()
    mount = writable(box)
    put(box.path("letter.txt"), b"perhaps sent")
    mount.unmount()
    box.mounts.pop()
    database = replica(box)
    with contextlib.closing(sqlite3.connect(database)) as connection, connection:
        version = connection.execute("PRAGMA user_version").fetchone()[0]
        connection.execute("PRAGMA user_version=1000")
    result = box.tulo("mount", mount.point, "--foreground", "--container", box.container,
                      check=False)
    expect(result.returncode != 0, "refused")
    expect(b"version" in result.stderr, f"and says why: {result.stderr!r}")
    expect(database.exists() and not list(database.parent.glob("*damaged*")), "left as it is")
    with contextlib.closing(sqlite3.connect(database)) as connection, connection:
        connection.execute(f"PRAGMA user_version={version}")
    box.mount(name="again")
    expect_equal(read(box.path("letter.txt")), b"perhaps sent", "and goes on with the right program")
    settled(box)

"""Contents on demand."""

import errno
import mmap
import os
import signal
import subprocess
import threading

from harness import case, error_of, eventually, expect, expect_equal, need_program, read


def text(size, seed=1):
    """Bytes that differ from place to place."""
    block = bytes((i * 31 + seed * 7 + (i >> 8)) & 0xFF for i in range(65536))
    return (block * (size // len(block) + 1))[:size]


@case
def contents(box):
    sizes = {"empty": 0, "one": 1, "page": 4096, "odd": 131_073, "large": 9_000_001}
    for name, size in sizes.items():
        box.write(name, text(size, len(name)))
    box.start_host()
    box.mount()
    for name, size in sizes.items():
        expect(read(box.path(name)) == text(size, len(name)), f"the bytes of {name}")
        expect(read(box.path(name)) == text(size, len(name)), f"the bytes of {name}, again")


@case
def any_place_of_a_file(box):
    data = text(3_000_000)
    box.write("data", data)
    box.start_host()
    box.mount()
    with open(box.path("data"), "rb", buffering=0) as file:
        for place in (2_999_999, 0, 1_234_567, 65_535, 2_000_000, 3_000_000, 4_000_000):
            file.seek(place)
            expect(file.read(1000) == data[place : place + 1000], f"the bytes at {place}")


@case
def many_openers_one_fetch(box):
    data = text(200_000)
    box.write("shared.bin", data)
    box.start_host("--delay", "fetch=300")
    box.mount()
    wrong = []

    def reader():
        if read(box.path("shared.bin")) != data:
            wrong.append(1)

    threads = [threading.Thread(target=reader) for _ in range(40)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    expect(not wrong, "all readers got the file")
    expect_equal(box.fetches(), 1, "fetches")
    expect_equal(read(box.path("shared.bin")), data, "the bytes, later")
    expect_equal(box.fetches(), 1, "fetches in all")


@case
def a_slow_fetch_blocks_nothing_else(box):
    box.write("here.bin", text(10_000))
    box.write("folder/inside.txt", b"inside")
    for i in range(70):
        box.write(f"slow{i}.bin", b"slow")
    box.start_host()
    box.mount()
    read(box.path("here.bin"))
    # From here on nothing that is fetched ever comes.
    box.restart_host("--fault", "fetch=silent")
    # More than any number of threads that serve the mount.
    readers = [
        subprocess.Popen(["cat", box.path(f"slow{i}.bin")], stdout=subprocess.DEVNULL,
                         stderr=subprocess.DEVNULL)
        for i in range(70)
    ]
    try:
        eventually(lambda: box.fetches() >= 1, "a fetch is under way")
        expect_equal(len(os.listdir(box.path())), 72, "names")
        expect_equal(os.stat(box.path("slow3.bin")).st_size, 4, "size of a file that is awaited")
        expect(read(box.path("here.bin")) == text(10_000), "a file that is here")
        expect_equal(os.listdir(box.path("folder")), ["inside.txt"], "another folder")
        box.write("folder/new.txt", b"")
        eventually(lambda: os.path.exists(box.path("folder/new.txt")), "a change of the host")
        expect(all(reader.poll() is None for reader in readers), "the readers still wait")
    finally:
        for reader in readers:
            reader.kill()
        for reader in readers:
            reader.wait()
    box.mounts[0].allowed_errors.append("fetch|download|contents")


@case
def an_interrupted_reader_returns_at_once(box):
    box.write("slow.bin", text(50_000))
    box.start_host("--fault", "fetch=silent:1", "--delay", "fetch=0")
    box.mount()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
        reader = subprocess.Popen(["cat", box.path("slow.bin")], stdout=subprocess.PIPE)
        eventually(lambda: in_open(reader.pid), "the reader waits in the mount")
        reader.send_signal(number)
        expect_equal(reader.wait(10), -number, "how the reader ended")
        expect_equal(reader.stdout.read(), b"", "what it had read")
        reader.stdout.close()
    # The fetch that nobody waits for any more is still the file's only one.
    expect(box.host.requests("fetch") <= 1, "one fetch")
    box.allow_errors("fetch|download|contents")


def in_open(pid):
    """Whether the process sleeps in a request to a FUSE file system."""
    try:
        with open(f"/proc/{pid}/stack", encoding="ascii") as stack:
            return "fuse" in stack.read()
    except PermissionError:
        with open(f"/proc/{pid}/wchan", encoding="ascii") as place:
            return "fuse" in place.read() or "request_wait" in place.read()


@case
def the_next_open_reads_the_new_version(box):
    box.write("doc.txt", b"first version")
    box.start_host()
    box.mount()
    expect_equal(read(box.path("doc.txt")), b"first version", "before")
    box.write("doc.txt", b"second, longer version")
    eventually(lambda: os.stat(box.path("doc.txt")).st_size == 22, "the new size")
    expect_equal(read(box.path("doc.txt")), b"second, longer version", "after")
    # The same length, so that only the version tells.
    box.write("doc.txt", b"third, another version")
    eventually(lambda: read(box.path("doc.txt")) == b"third, another version", "the third")


@case
def an_open_file_stays_whole(box):
    old = text(2_000_000, 1)
    new = text(1_500_000, 2)
    box.write("doc.bin", old)
    box.start_host()
    box.mount()
    with open(box.path("doc.bin"), "rb", buffering=0) as file:
        first = file.read(100_000)
        box.write("doc.bin", new)
        eventually(lambda: os.stat(box.path("doc.bin")).st_size == len(new), "the new version")
        expect(read(box.path("doc.bin")) == new, "the new version is read by a new open")
        rest = b""
        while piece := file.read(100_000):
            rest += piece
        expect(first + rest == old, "the open file is the old version to its end")
    expect(read(box.path("doc.bin")) == new, "the new version afterwards")


@case
def an_open_file_outlives_its_deletion(box):
    data = text(500_000)
    box.write("doc.bin", data)
    box.start_host()
    box.mount()
    with open(box.path("doc.bin"), "rb", buffering=0) as file:
        expect(file.read(1000) == data[:1000], "the beginning")
        os.unlink(os.path.join(box.root, "doc.bin"))
        eventually(lambda: not os.path.exists(box.path("doc.bin")), "the deletion")
        rest = b""
        while piece := file.read(100_000):
            rest += piece
        expect(rest == data[1000:], "the rest")


@case
def mapped_into_memory(box):
    data = text(5_000_000)
    box.write("data.bin", data)
    box.start_host()
    box.mount()
    with open(box.path("data.bin"), "rb") as file:
        with mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as mapping:
            expect(mapping[4_000_000:4_000_100] == data[4_000_000:4_000_100], "a place inside")
            expect(mapping[:] == data, "all of it")
            box.write("data.bin", text(5_000_000, 9))
            eventually(lambda: read(box.path("data.bin"))[:1000] == text(1000, 9), "a new version")
            expect(mapping[:] == data, "what is mapped stays as it was")


@case
def a_file_that_cannot_be_opened_for_writing_is_not_fetched(box):
    box.write("a.txt", b"a")
    box.start_host()
    box.mount("--read-only")
    expect_equal(error_of(lambda: os.open(box.path("a.txt"), os.O_RDWR)), errno.EROFS, "error")
    truncated = error_of(lambda: os.open(box.path("a.txt"), os.O_WRONLY | os.O_TRUNC))
    expect_equal(truncated, errno.EROFS, "error")
    expect_equal(box.fetches(), 0, "fetches")


@case
def contents_that_went_missing_are_fetched_again(box):
    box.write("a.txt", text(50_000))
    box.start_host()
    box.mount()
    box.allow_errors("cannot (read|take)")
    box.tulo("download", box.path("a.txt"))
    expect_equal(box.state_of("a.txt"), "downloaded", "state")
    for folder, _, names in os.walk(os.path.join(box.state, "tulo")):
        for name in names:
            if os.path.basename(os.path.dirname(folder)) == "contents":
                os.unlink(os.path.join(folder, name))
    expect(error_of(lambda: read(box.path("a.txt"))) != 0, "never a short or empty file")
    expect(read(box.path("a.txt")) == text(50_000), "the next open has it again")
    expect_equal(box.fetches(), 2, "fetches")


@case
def git_finds_nothing_changed(box):
    git = need_program("git")
    environment = dict(box.environment, GIT_CONFIG_NOSYSTEM="1", GIT_OPTIONAL_LOCKS="0")
    repository = os.path.join(box.root, "project")
    os.mkdir(repository)

    def run(folder, *arguments):
        result = subprocess.run(
            [git, "-C", folder, "-c", "user.name=A", "-c", "user.email=a@example.org",
             "-c", f"safe.directory={folder}", *arguments],
            env=environment, capture_output=True, check=False,
        )
        expect_equal(result.returncode, 0, f"git {arguments[0]}: {result.stderr!r}")
        return result.stdout.decode()

    run(repository, "init", "-q")
    for i in range(20):
        box.write(f"project/src/file{i}.c", f"int f{i}(void);\n".encode())
    run(repository, "add", "-A")
    run(repository, "commit", "-q", "-m", "first")
    box.start_host()
    box.mount()
    mounted = box.path("project")
    expect_equal(run(mounted, "status", "--porcelain"), "", "git status")
    expect("first" in run(mounted, "log", "--oneline"), "git log")
    box.write("project/src/file3.c", b"int changed(void);\n")
    eventually(
        lambda: run(mounted, "status", "--porcelain") == " M src/file3.c\n",
        "git sees the host's change",
    )

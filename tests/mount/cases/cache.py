"""The cache: its limits, pins, downloads and evictions on demand."""

import errno
import os
import pathlib
import threading

from harness import case, error_of, eventually, expect, expect_equal, read


def cached_bytes(box):
    """What the files of contents take up on the disk."""
    total = 0
    for folder, _, names in os.walk(os.path.join(box.state, "tulo")):
        if "contents" not in pathlib.PurePath(folder).parts:
            continue
        for name in names:
            try:
                total += os.stat(os.path.join(folder, name)).st_blocks * 512
            except FileNotFoundError:
                pass
    return total


def number_of(box, state):
    return sum(box.state_of(name) == state for name in os.listdir(box.path()))


@case
def the_limit_holds_under_load(box):
    for i in range(60):
        box.write(f"f{i:02}", bytes([i]) * 500_000)
    box.start_host()
    box.mount("--cache-size", "5M")
    wrong = []

    def reader(start):
        for i in range(start, 60, 4):
            if read(box.path(f"f{i:02}")) != bytes([i]) * 500_000:
                wrong.append(i)

    threads = [threading.Thread(target=reader, args=(start,)) for start in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    expect_equal(wrong, [], "files that were read wrong")
    eventually(lambda: cached_bytes(box) <= 5 * 1024 * 1024, "the cache is within its limit")
    expect(number_of(box, "downloaded") >= 5, "the cache is used")
    expect(number_of(box, "dataless") >= 40, "the rest was evicted")
    expect_equal(read(box.path("f00")), bytes([0]) * 500_000, "an evicted file, again")


@case
def least_recently_used_first(box):
    for i in range(8):
        box.write(f"f{i}", bytes([i]) * 1_000_000)
    box.start_host()
    box.mount("--cache-size", "5M")
    read(box.path("f0"))
    for i in range(1, 8):
        read(box.path(f"f{i}"))
        read(box.path("f0"))
        eventually(lambda: cached_bytes(box) <= 5 * 1024 * 1024, "the cache is within its limit")
    expect_equal(box.state_of("f7"), "downloaded", "the newest one")
    expect_equal(box.state_of("f1"), "dataless", "one that was used once, long ago")


@case
def what_is_open_stays(box):
    for i in range(20):
        box.write(f"f{i:02}", bytes([i]) * 1_000_000)
    box.start_host()
    box.mount("--cache-size", "4M")
    with open(box.path("f00"), "rb", buffering=0) as file:
        file.read(10)
        for i in range(1, 20):
            read(box.path(f"f{i:02}"))
        eventually(lambda: cached_bytes(box) <= 5 * 1024 * 1024, "the cache is near its limit")
        result = box.tulo("evict", box.path("f00"), check=False)
        file.seek(0)
        data = b""
        while piece := file.read(65536):
            data += piece
        expect(data == bytes([0]) * 1_000_000, "the open file is whole")
        expect(result.returncode != 0 or box.state_of("f00") == "downloaded",
               "evicting an open file is refused or without effect")


@case
def what_is_pinned_stays(box):
    for i in range(20):
        box.write(f"f{i:02}", bytes([i]) * 1_000_000)
    box.start_host()
    box.mount("--cache-size", "5M")
    box.tulo("pin", box.path("f00"))
    eventually(lambda: box.state_of("f00") == "downloaded", "a pinned file is fetched")
    expect_equal(box.state_of("f00", "pinned"), "1", "the attribute")
    for i in range(1, 20):
        read(box.path(f"f{i:02}"))
    eventually(lambda: cached_bytes(box) <= 6 * 1024 * 1024, "the cache is near its limit")
    expect_equal(box.state_of("f00"), "downloaded", "the pinned file")
    result = box.tulo("evict", box.path("f00"), check=False)
    expect(result.returncode != 0 or box.state_of("f00") == "downloaded", "it is not evicted")
    box.tulo("unpin", box.path("f00"))
    expect_equal(box.state_of("f00", "pinned"), "0", "the attribute afterwards")
    box.tulo("evict", box.path("f00"))
    expect_equal(box.state_of("f00"), "dataless", "evicted after unpinning")


@case
def a_pinned_folder_is_fetched_ahead(box):
    for i in range(30):
        box.write(f"trip/day{i % 3}/p{i}", str(i).encode())
    box.start_host()
    box.mount()
    box.tulo("pin", box.path("trip"))
    eventually(
        lambda: all(box.state_of(f"trip/day{i % 3}/p{i}") == "downloaded" for i in range(30)),
        "all files of the folder are here",
    )
    box.write("trip/day1/new", b"came later")
    eventually(
        lambda: os.path.exists(box.path("trip/day1/new"))
        and box.state_of("trip/day1/new") == "downloaded",
        "also one that comes later",
    )
    box.host.kill()
    expect_equal(read(box.path("trip/day1/new")), b"came later", "without the host")


@case
def a_pinned_file_follows_its_versions(box):
    box.write("doc", b"first")
    box.start_host()
    box.mount()
    box.tulo("pin", box.path("doc"))
    eventually(lambda: box.state_of("doc") == "downloaded", "fetched")
    box.write("doc", b"second, longer")
    eventually(
        lambda: os.stat(box.path("doc")).st_size == 14 and box.state_of("doc") == "downloaded",
        "the new version is fetched by itself",
    )
    box.host.kill()
    expect_equal(read(box.path("doc")), b"second, longer", "without the host")


@case
def download_and_evict(box):
    for i in range(40):
        box.write(f"a/b{i % 4}/f{i}", bytes([i]) * 1000)
    box.start_host()
    box.mount()
    box.tulo("download", box.path("a"))
    for i in range(40):
        expect_equal(box.state_of(f"a/b{i % 4}/f{i}"), "downloaded", "state after download")
    expect_equal(box.fetches(), 40, "fetches")
    box.tulo("evict", box.path("a"))
    for i in range(40):
        expect_equal(box.state_of(f"a/b{i % 4}/f{i}"), "dataless", "state after evict")
        # The kernel hears of it a moment later.
        eventually(
            lambda name=f"a/b{i % 4}/f{i}": os.stat(box.path(name)).st_blocks == 0,
            "no blocks after evict",
        )
    eventually(lambda: cached_bytes(box) == 0, "the room is free again")
    expect_equal(read(box.path("a/b1/f1")), bytes([1]) * 1000, "contents again")


@case
def a_download_that_fails_is_told(box):
    box.write("a/one", b"1")
    box.start_host("--fault", "fetch=garbage")
    box.mount()
    box.allow_errors("fetch|download|contents|reply")
    result = box.tulo("download", box.path("a"), check=False)
    expect(result.returncode != 0, "exit status")
    expect(b"one" in result.stderr + result.stdout, "the file is named")


@case
def an_evicted_file_that_was_mapped_or_cached_reads_right(box):
    """The kernel's cache must not outlive the version that it holds."""
    box.write("doc", b"old" * 1000)
    box.start_host()
    box.mount()
    expect_equal(read(box.path("doc")), b"old" * 1000, "first")
    box.tulo("evict", box.path("doc"))
    box.write("doc", b"new" * 1000)
    eventually(lambda: read(box.path("doc")) == b"new" * 1000, "after eviction and change")


@case
def the_disk_is_kept_from_filling_up(box):
    box.write("doc", b"d" * 2_000_000)
    box.write("small", b"s")
    box.start_host()
    # No disk has so much left.
    box.mount("--keep-free", "100%")
    box.allow_errors("space|full|ENOSPC|fetch|download|contents")
    number = error_of(lambda: read(box.path("doc")))
    expect_equal(errno.errorcode.get(number), "ENOSPC", "the error")
    expect_equal(os.stat(box.path("doc")).st_size, 2_000_000, "the size that is shown")
    expect_equal(sorted(os.listdir(box.path())), ["doc", "small"], "the listing")


@case
def a_file_larger_than_the_cache(box):
    box.write("doc", b"d" * 3_000_000)
    box.start_host()
    box.mount("--cache-size", "1M")
    box.allow_errors("space|full|ENOSPC|fetch|download|contents")
    number = error_of(lambda: expect(read(box.path("doc")) == b"d" * 3_000_000, "the bytes"))
    expect(number in (0, errno.ENOSPC, errno.EFBIG), f"read whole or refused clearly: {number}")
    eventually(lambda: cached_bytes(box) <= 1024 * 1024, "the cache is within its limit again")

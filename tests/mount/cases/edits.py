"""Programs change the mount; the host's folder follows."""

import errno
import fcntl
import mmap
import os

from harness import case, error_of, eventually, expect, expect_equal, read
from writing import expect_host, host_tree, settled, writable


def write(path, data, mode="wb"):
    with open(path, mode) as file:
        file.write(data)


@case
def files_and_folders_reach_the_host(box):
    box.start_host()
    writable(box)
    os.mkdir(box.path("new"))
    os.mkdir(box.path("new/deep"))
    write(box.path("new/deep/a.txt"), b"hello")
    write(box.path("empty"), b"")
    write(box.path("big"), bytes(range(256)) * 20000)
    expect_equal(read(box.path("new/deep/a.txt")), b"hello", "what was written")
    expect_host(
        box,
        {
            "new": None,
            "new/deep": None,
            "new/deep/a.txt": b"hello",
            "empty": b"",
            "big": bytes(range(256)) * 20000,
        },
    )
    settled(box)
    expect_equal(box.host.requests("create"), 5, "creates")
    expect_equal(box.state_of("big"), "downloaded", "state afterwards")
    expect_equal(read(box.path("new/deep/a.txt")), b"hello", "what is shown afterwards")
    expect_equal(box.fetches(), 0, "downloads of what was here")


@case
def an_edit_keeps_the_identity_and_is_one_upload(box):
    box.write("doc.txt", b"first version")
    box.start_host()
    writable(box)
    before = box.state_of("doc.txt", "identifier")
    with open(box.path("doc.txt"), "r+b") as file:
        file.seek(6)
        file.write(b"VERSION")
        file.flush()
        file.write(b"!")
    write(box.path("doc.txt"), b"more", "ab")
    expect_equal(read(box.path("doc.txt")), b"first VERSION!more", "what is shown")
    expect_host(box, {"doc.txt": b"first VERSION!more"})
    settled(box)
    expect_equal(box.state_of("doc.txt", "identifier"), before, "identifier")
    expect_equal(box.host.requests("modify"), 1, "uploads")


@case
def truncating_fetches_nothing(box):
    box.write("doc.txt", b"x" * 100000)
    box.start_host()
    writable(box)
    write(box.path("doc.txt"), b"new")
    expect_host(box, {"doc.txt": b"new"})
    expect_equal(box.fetches(), 0, "downloads")


@case
def names_change_and_vanish(box):
    box.write("a/one", b"1")
    box.write("a/two", b"2")
    box.write("b/three", b"3")
    box.start_host()
    writable(box)
    os.rename(box.path("a/one"), box.path("b/uno"))
    os.rename(box.path("b"), box.path("c"))
    os.unlink(box.path("a/two"))
    os.rmdir(box.path("a"))
    expect_equal(sorted(os.listdir(box.path())), ["c"], "root")
    expect_host(box, {"c": None, "c/uno": b"1", "c/three": b"3"})
    settled(box)
    expect_equal(sorted(os.listdir(box.path("c"))), ["three", "uno"], "folder")


@case
def what_comes_and_goes_is_never_sent(box):
    box.start_host()
    writable(box)
    write(box.path("gone"), b"x")
    os.unlink(box.path("gone"))
    write(box.path("first"), b"y")
    os.rename(box.path("first"), box.path("second"))
    expect_host(box, {"second": b"y"})
    settled(box)
    expect_equal(box.host.requests("create"), 1, "creates")
    expect_equal(box.host.requests("modify"), 0, "modifies")
    expect_equal(box.host.requests("delete"), 0, "deletes")


@case
def temporary_names_stay_here(box):
    box.start_host()
    writable(box)
    for name in ("a~", ".a.swp", ".~lock.b#", "c.part", "sub~"):
        write(box.path(name), b"temporary")
    os.symlink("second", box.path("link"))
    write(box.path("second"), b"kept")
    expect_equal(os.readlink(box.path("link")), "second", "link")
    expect_equal(read(box.path("link")), b"kept", "through the link")
    expect_host(box, {"second": b"kept"})
    settled(box)
    expect_equal(read(box.path("a~")), b"temporary", "a temporary file")
    os.rename(box.path("c.part"), box.path("c"))
    expect_host(box, {"second": b"kept", "c": b"temporary"})


@case
def renames_with_flags(box):
    import ctypes

    box.write("a", b"A")
    box.write("b", b"B")
    box.start_host()
    writable(box)
    libc = ctypes.CDLL(None, use_errno=True)

    def renameat2(one, other, flags):
        if libc.renameat2(-100, os.fsencode(one), -100, os.fsencode(other), flags) != 0:
            raise OSError(ctypes.get_errno(), one)

    os.listdir(box.path())
    expect_equal(
        error_of(lambda: renameat2(box.path("a"), box.path("b"), 1)), errno.EEXIST, "no-replace"
    )
    renameat2(box.path("a"), box.path("b"), 2)
    expect_equal(read(box.path("a")), b"B", "exchanged")
    expect_equal(read(box.path("b")), b"A", "exchanged")
    expect_host(box, {"a": b"B", "b": b"A"})


@case
def mapped_sparse_and_allocated_files(box):
    box.start_host()
    writable(box)
    path = box.path("m")
    with open(path, "w+b") as file:
        file.truncate(8192)
        with mmap.mmap(file.fileno(), 8192) as memory:
            memory[100:105] = b"hello"
            memory.flush()
    expect_equal(read(path)[100:105], b"hello", "mapped")
    with open(box.path("s"), "w+b") as file:
        os.posix_fallocate(file.fileno(), 0, 4096)
        os.pwrite(file.fileno(), b"end", 100000)
        fcntl.flock(file.fileno(), fcntl.LOCK_EX)
        os.fsync(file.fileno())
    settled(box)
    expect_host(
        box,
        {
            "m": bytes(100) + b"hello" + bytes(8192 - 105),
            "s": bytes(100000) + b"end",
        },
    )


@case
def an_unlinked_file_can_be_used_while_open(box):
    box.start_host()
    writable(box)
    with open(box.path("u"), "w+b") as file:
        file.write(b"data")
        file.flush()
        os.unlink(box.path("u"))
        file.write(b" more")
        file.seek(0)
        expect_equal(file.read(), b"data more", "after unlinking")
    settled(box)
    expect_equal(host_tree(box), {}, "the host")


@case
def what_cannot_be_done_says_so(box):
    box.write("locked.txt", b"locked")
    box.write("a/inside", b"")
    box.start_host()
    writable(box)
    box.tulo("host", "lock", "--container", box.container, "--user", "7", "locked.txt", check=False)
    os.listdir(box.path())
    expect_equal(
        error_of(lambda: os.link(box.path("locked.txt"), box.path("hard"))), errno.EPERM, "link"
    )
    expect_equal(error_of(lambda: os.mkfifo(box.path("fifo"))), errno.EPERM, "mkfifo")
    expect_equal(error_of(lambda: os.rmdir(box.path("a"))), errno.ENOTEMPTY, "rmdir")
    expect_equal(error_of(lambda: os.mkdir(box.path("a"))), errno.EEXIST, "mkdir")
    flags = os.O_CREAT | os.O_EXCL | os.O_WRONLY
    expect_equal(error_of(lambda: os.open(box.path("locked.txt"), flags)), errno.EEXIST, "O_EXCL")
    expect_equal(
        error_of(lambda: os.open(box.path(), os.O_TMPFILE | os.O_WRONLY)),
        errno.EOPNOTSUPP,
        "O_TMPFILE",
    )
    expect_equal(error_of(lambda: os.rename(box.path("a"), box.path("a/b"))), errno.EINVAL, "loop")


@case
def everything_works_without_a_host(box):
    box.write("doc", b"old")
    box.start_host()
    writable(box)
    read(box.path("doc"))
    box.host.stop()
    write(box.path("doc"), b"edited")
    os.mkdir(box.path("folder"))
    write(box.path("folder/new"), b"new")
    box.remount()
    expect_equal(read(box.path("doc")), b"edited", "after a restart")
    expect_equal(read(box.path("folder/new")), b"new", "after a restart")
    box.start_host()
    expect_host(box, {"doc": b"edited", "folder": None, "folder/new": b"new"})


@case
def times_and_modes_are_kept_here(box):
    box.write("doc", b"old")
    box.start_host()
    writable(box)
    os.utime(box.path("doc"), (1000000000, 1000000000))
    os.chmod(box.path("doc"), 0o750)
    status = os.stat(box.path("doc"))
    expect_equal(status.st_mtime, 1000000000, "time")
    expect_equal(status.st_mode & 0o777, 0o750, "mode")
    write(box.path("new"), b"x")
    os.utime(box.path("new"), (1000000000, 1000000000))
    settled(box)
    expect_host(box, {"doc": b"old", "new": b"x"})
    expect_equal(os.stat(box.path("new")).st_mtime, 1000000000, "time after the upload")

"""The mount behaves like an ordinary folder."""

import ctypes
import errno
import fcntl
import mmap
import os
import socket
import subprocess
import sys
import threading

from harness import case, error_of, eventually, expect, expect_equal, read
from writing import expect_host, host_tree, settled, writable

LIBC = ctypes.CDLL(None, use_errno=True)
KEEP_SIZE, PUNCH_HOLE, COLLAPSE = 1, 2, 8


def put(path, data, flags=os.O_CREAT | os.O_TRUNC | os.O_WRONLY):
    descriptor = os.open(path, flags, 0o644)
    try:
        os.write(descriptor, data)
    finally:
        os.close(descriptor)


def call(function, *arguments):
    """A C function that tells of failures by -1; 0 or the errno."""
    ctypes.set_errno(0)
    return ctypes.get_errno() if function(*arguments) == -1 else 0


def fallocate(descriptor, mode, offset, length):
    offsets = [ctypes.c_int64(offset), ctypes.c_int64(length)]
    return call(LIBC.fallocate, descriptor, mode, *offsets)


@case
def writes_anywhere(box):
    box.start_host()
    writable(box)
    path = box.path("f")
    put(path, b"0123456789")
    with open(path, "r+b", buffering=0) as file:
        os.pwrite(file.fileno(), b"AB", 3)
        os.pwrite(file.fileno(), b"end", 20)
        expect_equal(os.fstat(file.fileno()).st_size, 23, "size while open")
    wanted = b"012AB56789" + bytes(10) + b"end"
    expect_equal(read(path), wanted, "overwritten, with a hole")
    os.truncate(path, 5)
    expect_equal(read(path), b"012AB", "shortened")
    os.truncate(path, 8)
    expect_equal(read(path), b"012AB" + bytes(3), "lengthened")
    put(path, b"!", os.O_WRONLY | os.O_APPEND)
    expect_equal(os.stat(path).st_size, 9, "size")
    with open(path, "r+b", buffering=0) as file:
        os.ftruncate(file.fileno(), 2)
        expect_equal(os.pread(file.fileno(), 10, 0), b"01", "shortened by its descriptor")
        os.pwrite(file.fileno(), b"xy", 1)
    expect_host(box, {"f": b"0xy"})
    settled(box)
    box.remount()
    expect_equal(read(box.path("f")), b"0xy", "after a restart")


@case
def appenders_do_not_overwrite_one_another(box):
    box.start_host()
    writable(box)
    program = (
        "import os,sys\n"
        "f=os.open(sys.argv[1],os.O_WRONLY|os.O_APPEND|os.O_CREAT,0o600)\n"
        "for i in range(300): os.write(f,(sys.argv[2]*9+'\\n').encode())\n"
    )
    writers = [
        subprocess.Popen([sys.executable, "-c", program, box.path("log"), mark]) for mark in "ab"
    ]
    expect_equal([writer.wait() for writer in writers], [0, 0], "exit statuses")
    lines = read(box.path("log")).split(b"\n")
    expect_equal(
        (lines.count(b"a" * 9), lines.count(b"b" * 9), len(lines)), (300, 300, 601), "lines"
    )


@case
def renames_of_every_kind(box):
    for name in ("a", "b", "full/inside"):
        box.write(name, name.encode())
    os.mkdir(os.path.join(box.root, "empty"))
    box.start_host()
    writable(box)
    at = box.path
    put(at("new"), b"new")
    os.mkdir(at("fresh"))
    os.rename(at("new"), at("a"))
    expect_equal(read(at("a")), b"new", "over a file")
    os.rename(at("fresh"), at("empty"))
    expect_equal(os.listdir(at("empty")), [], "over an empty folder")
    os.mkdir(at("other"))
    wrong = [
        ("other", "full", errno.ENOTEMPTY),
        ("a", "empty", errno.EISDIR),
        ("empty", "a", errno.ENOTDIR),
        ("full", "full/x", errno.EINVAL),
        ("nothing", "x", errno.ENOENT),
        ("a", "nowhere/a", errno.ENOENT),
        ("a", "b/a", errno.ENOTDIR),
    ]
    for one, other, number in wrong:
        found = error_of(lambda: os.rename(at(one), at(other)))  # noqa: B023
        expect_equal(errno.errorcode.get(found), errno.errorcode[number], f"{one} to {other}")
    os.rename(at("a"), at("a"))
    os.rename(at("b"), at("full/b"))
    exchange = [os.fsencode(at("full")), os.fsencode(at("a"))]
    result = call(LIBC.renameat2, -100, exchange[0], -100, exchange[1], 2)
    expect_equal(result, 0, "exchange of a file and a folder")
    expect_equal(sorted(os.listdir(at("a"))), ["b", "inside"], "exchanged")
    result = call(LIBC.renameat2, -100, exchange[0], -100, os.fsencode(at("z")), 1)
    expect_equal(result, 0, "to a free name with no-replace")
    result = call(LIBC.renameat2, -100, os.fsencode(at("z")), -100, os.fsencode(at("y")), 4)
    expect_equal(result, errno.EINVAL, "whiteout")
    expect_host(
        box,
        {
            "a": None,
            "a/b": b"b",
            "a/inside": b"full/inside",
            "empty": None,
            "other": None,
            "z": b"new",
        },
    )
    settled(box)


@case
def a_name_can_change_while_the_file_is_written(box):
    box.write("known", b"known")
    box.start_host()
    writable(box)
    with open(box.path("new"), "wb", buffering=0) as file:
        file.write(b"one ")
        os.rename(box.path("new"), box.path("renamed"))
        os.mkdir(box.path("folder"))
        file.write(b"two ")
        os.rename(box.path("renamed"), box.path("folder/moved"))
        file.write(b"three")
    with open(box.path("known"), "r+b", buffering=0) as file:
        file.write(b"K")
        os.rename(box.path("known"), box.path("folder/known"))
        file.write(b"N")
    expect_equal(read(box.path("folder/moved")), b"one two three", "shown")
    expect_host(box, {"folder": None, "folder/moved": b"one two three", "folder/known": b"KNown"})
    settled(box)
    expect_equal(box.host.requests("create"), 2, "creates")


@case
def mapped_memory(box):
    box.write("known", bytes(10000))
    box.start_host()
    writable(box)
    for name in ("known", "new"):
        with open(box.path(name), "r+b" if name == "known" else "w+b") as file:
            file.truncate(10000)
            memory = mmap.mmap(file.fileno(), 10000)
        # The descriptor is closed, the mapping is not.
        memory[5000:5004] = b"abcd"
        memory.flush()
        expect_equal(read(box.path(name))[5000:5004], b"abcd", "flushed")
        memory[9996:10000] = b"last"
        memory.close()
        wanted = bytes(5000) + b"abcd" + bytes(4992) + b"last"
        expect_equal(read(box.path(name)), wanted, "unmapped")
    expect_host(box, {"known": wanted, "new": wanted})
    settled(box)


@case
def every_reader_sees_what_is_written(box):
    box.write("f", b"a" * 9000)
    box.start_host()
    writable(box)
    before = open(box.path("f"), "rb", buffering=0)
    expect_equal(os.pread(before.fileno(), 4, 0), b"aaaa", "before")
    with open(box.path("f"), "r+b", buffering=0) as file:
        file.write(b"bbbb")
        expect_equal(os.pread(before.fileno(), 5, 0), b"bbbba", "by a descriptor from before")
        expect_equal(read(box.path("f"))[:5], b"bbbba", "by a new one")
    settled(box)
    with open(box.path("f"), "r+b", buffering=0) as file:
        file.write(b"cc")
        expect_equal(os.pread(before.fileno(), 5, 0), b"ccbba", "after an upload")
    expect_host(box, {"f": b"ccbb" + b"a" * 8996})
    settled(box)
    expect_equal(os.pread(before.fileno(), 5, 0), b"ccbba", "at last")
    before.close()


@case
def space_inside_files(box):
    box.start_host()
    writable(box)
    with open(box.path("f"), "w+b", buffering=0) as file:
        number = file.fileno()
        file.write(b"x" * 65536)
        expect_equal(fallocate(number, KEEP_SIZE, 65536, 65536), 0, "fallocate, keeping the size")
        expect_equal(os.fstat(number).st_size, 65536, "size kept")
        expect_equal(fallocate(number, PUNCH_HOLE | KEEP_SIZE, 8192, 8192), 0, "punching a hole")
        expect_equal(os.pread(number, 8192, 8192), bytes(8192), "the hole")
        expect_equal(fallocate(number, 0, 65536, 4096), 0, "fallocate")
        expect_equal(os.fstat(number).st_size, 69632, "size extended")
        expect_equal(fallocate(number, COLLAPSE, 0, 4096), errno.EOPNOTSUPP, "collapsing")
        expect_equal(os.lseek(number, 0, os.SEEK_HOLE), 8192, "the first hole")
        expect_equal(os.lseek(number, 8192, os.SEEK_DATA), 16384, "data after it")
        expect_equal(
            error_of(lambda: os.lseek(number, 100000, os.SEEK_DATA)), errno.ENXIO, "beyond the end"
        )
        with open(box.path("copy"), "w+b", buffering=0) as copy:
            count = os.copy_file_range(number, copy.fileno(), 20000, 4096, 0)
            expect_equal(count, 20000, "copied")
            expect_equal(os.pread(copy.fileno(), 30000, 0), os.pread(number, 20000, 4096), "copy")
        os.pwrite(number, b"end", 1 << 33)
        expect_equal(os.lseek(number, 1 << 20, os.SEEK_DATA) >= (1 << 33) - 4096, True, "sparse")
        os.ftruncate(number, 69632)
    expect_equal(box.path("f") and os.stat(box.path("f")).st_size, 69632, "size")
    contents = b"x" * 8192 + bytes(8192) + b"x" * 49152 + bytes(4096)
    expect_equal(read(box.path("f")), contents, "contents")
    expect_host(box, {"f": contents, "copy": contents[4096:24096]})
    settled(box)


@case
def copying_ranges_between_files_from_the_host(box):
    box.write("from", bytes(range(256)) * 1000)
    box.write("to", b"t" * 1000)
    box.start_host()
    writable(box)
    with open(box.path("from"), "rb") as source, open(box.path("to"), "r+b") as target:
        expect_equal(
            os.copy_file_range(source.fileno(), target.fileno(), 256, 256, 500), 256, "count"
        )
    expect_equal(read(box.path("to")), b"t" * 500 + bytes(range(256)) + b"t" * 244, "copied")
    expect_equal(box.state_of("from"), "downloaded", "the source is not changed")
    settled(box)
    expect_equal(box.host.requests("modify"), 1, "uploads")


@case
def locks_hold_between_programs(box):
    box.start_host()
    writable(box)
    put(box.path("f"), b"data")
    held = open(box.path("f"), "r+b")
    program = (
        "import fcntl,sys\n"
        "f=open(sys.argv[1],'r+b')\n"
        "try: getattr(fcntl,sys.argv[2])(f,fcntl.LOCK_EX|fcntl.LOCK_NB)\n"
        "except BlockingIOError: sys.exit(7)\n"
    )

    def other(kind):
        return subprocess.run([sys.executable, "-c", program, box.path("f"), kind]).returncode

    for kind in ("flock", "lockf"):
        getattr(fcntl, kind)(held, fcntl.LOCK_EX)
        expect_equal(other(kind), 7, f"{kind} while held")
        getattr(fcntl, kind)(held, fcntl.LOCK_UN)
        expect_equal(other(kind), 0, f"{kind} afterwards")
    held.close()


@case
def what_a_folder_cannot_hold(box):
    box.start_host()
    writable(box)
    put(box.path("f"), b"data")
    expect_equal(error_of(lambda: os.link(box.path("f"), box.path("l"))), errno.EPERM, "link")
    expect_equal(error_of(lambda: os.mkfifo(box.path("p"))), errno.EPERM, "mkfifo")
    for kind in (0o020000, 0o060000, 0o140000):
        found = error_of(lambda: os.mknod(box.path("d"), kind | 0o600, 0x103))  # noqa: B023
        expect_equal(found, errno.EPERM, f"mknod {kind:o}")
    os.chdir(box.path())
    with socket.socket(socket.AF_UNIX) as bound:
        expect_equal(error_of(lambda: bound.bind("s")), errno.EPERM, "a socket")
    os.chdir("/")
    os.mknod(box.path("plain"), 0o100600)
    found = error_of(lambda: os.open(box.path(), os.O_TMPFILE | os.O_RDWR, 0o600))
    expect_equal(found, errno.EOPNOTSUPP, "O_TMPFILE")
    found = error_of(lambda: os.setxattr(box.path("f"), "user.x", b"y"))
    expect_equal(found, errno.EOPNOTSUPP, "setxattr")
    found = error_of(lambda: os.removexattr(box.path("f"), "user.x"))
    expect_equal(found, errno.EOPNOTSUPP, "removexattr")
    expect_equal(error_of(lambda: os.rmdir(box.path("f"))), errno.ENOTDIR, "rmdir of a file")
    os.mkdir(box.path("d"))
    expect_equal(error_of(lambda: os.unlink(box.path("d"))), errno.EISDIR, "unlink of a folder")
    expect_equal(error_of(lambda: put(box.path("d"), b"")), errno.EISDIR, "writing to a folder")
    expect_equal(error_of(lambda: os.truncate(box.path("d"), 0)), errno.EISDIR, "truncating it")
    expect_equal(error_of(lambda: os.truncate(box.path("f"), -1)), errno.EINVAL, "to less")
    if os.getuid() == 0:
        found = error_of(lambda: os.chown(box.path("f"), 12345, -1))
        expect_equal(found, errno.EPERM, "giving it away")
    os.chown(box.path("f"), os.getuid(), os.getgid())


@case
def long_and_odd_names(box):
    box.start_host()
    writable(box)
    longest = "n" * 255
    put(box.path(longest), b"long")
    too_long = box.path("n" * 256)
    wrong = {
        "create": lambda: put(too_long, b""),
        "mkdir": lambda: os.mkdir(too_long),
        "symlink": lambda: os.symlink("x", too_long),
        "rename": lambda: os.rename(box.path(longest), too_long),
        "stat": lambda: os.stat(too_long),
        "unlink": lambda: os.unlink(too_long),
        "rmdir": lambda: os.rmdir(too_long),
    }
    for what, action in wrong.items():
        expect_equal(errno.errorcode.get(error_of(action)), "ENAMETOOLONG", what)
    names = ["with space", "quote'\"", "back\\slash", "new\nline", "%41", "100%", "ä€😀", "-rf", "*"]
    for name in names:
        put(box.path(name), name.encode())
    wanted = {name: name.encode() for name in names}
    wanted[longest] = b"long"
    expect_host(box, wanted)
    settled(box)
    expect_equal(sorted(os.listdir(box.path())), sorted(wanted), "shown")


@case
def modes_and_times_outlive_a_restart(box):
    box.write("known", b"known")
    box.write("folder/x", b"")
    box.start_host()
    writable(box)
    put(box.path("new"), b"new")
    os.mkdir(box.path("made"), 0o750)
    os.mkdir(box.path("closed"), 0o700)
    os.chmod(box.path("known"), 0o755)
    os.chmod(box.path("new"), 0o400)
    os.chmod(box.path("folder"), 0o711)
    os.chmod(box.path("closed"), 0)
    moment = 1234567890123456789
    for name in ("known", "new", "folder"):
        os.utime(box.path(name), ns=(moment, moment))

    def check(when):
        for name, mode in (
            ("known", 0o755),
            ("new", 0o400),
            ("folder", 0o711),
            ("made", 0o750),
            ("closed", 0),
        ):
            found = os.stat(box.path(name)).st_mode & 0o777
            expect_equal(oct(found), oct(mode), f"mode of {name} {when}")
        for name in ("known", "new", "folder"):
            expect_equal(os.stat(box.path(name)).st_mtime_ns, moment, f"time of {name} {when}")

    check("at once")
    settled(box)
    check("after the upload")
    box.remount()
    check("after a restart")
    os.listdir(box.path())
    check("after a listing")
    box.write("known", b"other contents")
    eventually(lambda: read(box.path("known")) == b"other contents", "the host's other contents")
    found = os.stat(box.path("known")).st_mtime_ns
    expect(found > moment, f"the host's other contents bring their time: {found}")
    expect_equal(os.stat(box.path("known")).st_mode & 0o777, 0o755, "the mode stays")


@case
def access_times_are_those_of_the_last_change(box):
    """Nobody is told when something was read, so setting that changes nothing and sends nothing."""
    box.write("doc.txt", b"text")
    box.start_host()
    writable(box)
    path = box.path("doc.txt")

    def times():
        status = os.stat(path)
        return status.st_atime, status.st_mtime

    os.utime(path, (1_200_000_000, 1_100_000_000))
    expect_equal(times(), (1_100_000_000, 1_100_000_000), "after setting both")
    expect_equal(read(path), b"text", "contents")
    expect_equal(times(), (1_100_000_000, 1_100_000_000), "after reading")
    subprocess.run(["touch", "-a", path], check=True)
    expect_equal(times(), (1_100_000_000, 1_100_000_000), "after touch -a")
    subprocess.run(["touch", "-a", "-d", "2001-02-03", path], check=True)
    expect_equal(times(), (1_100_000_000, 1_100_000_000), "after touch -a -d")
    subprocess.run(["touch", "-m", "-d", "2001-02-03 UTC", path], check=True)
    expect_equal(times(), (981_158_400, 981_158_400), "after touch -m")
    os.mkdir(box.path("folder"))
    folder = os.stat(box.path("folder"))
    expect_equal(folder.st_atime, folder.st_mtime, "a folder's")
    settled(box)
    expect_equal(box.host.requests("modify"), 0, "uploads")


@case
def links_and_temporary_files_are_local(box):
    box.start_host()
    writable(box)
    os.mkdir(box.path("folder"))
    os.symlink("../target", box.path("folder/link"))
    put(box.path("folder/draft~"), b"draft")
    put(box.path("target"), b"target")
    os.mkdir(box.path("cache.part"))
    put(box.path("cache.part/inside"), b"in a local folder")
    settled(box)
    expect_host(box, {"folder": None, "target": b"target"})

    def check():
        expect_equal(read(box.path("folder/link")), b"target", "through the link")
        expect_equal(os.readlink(box.path("folder/link")), "../target", "the link")
        expect_equal(os.lstat(box.path("folder/link")).st_size, 9, "its size")
        expect_equal(box.state_of("folder/draft~"), "local", "state of a temporary file")
        expect_equal(box.state_of("cache.part"), "local", "state of a local folder")
        expect_equal(box.state_of("cache.part/inside"), "local", "state of what is in it")
        expect_equal(read(box.path("cache.part/inside")), b"in a local folder", "contents")
        local = sorted(box.status()["local"])
        wanted = ["cache.part", "cache.part/inside", "folder/draft~", "folder/link"]
        expect_equal(local, wanted, "status")

    check()
    box.remount()
    check()
    os.rename(box.path("folder/link"), box.path("other"))
    expect_equal(os.readlink(box.path("other")), "../target", "renamed")
    os.unlink(box.path("other"))
    os.rename(box.path("cache.part"), box.path("cache"))
    expect_host(
        box,
        {"folder": None, "target": b"target", "cache": None, "cache/inside": b"in a local folder"},
    )
    settled(box)
    expect_equal(box.state_of("cache/inside"), "downloaded", "no longer local")


@case
def a_file_whose_name_becomes_temporary(box):
    """The host keeps what it has; here it goes on under its name."""
    box.write("doc", b"doc")
    box.start_host()
    writable(box)
    os.rename(box.path("doc"), box.path("doc~"))
    put(box.path("doc~"), b"changed here")
    settled(box)
    expect_host(box, {"doc": b"doc"})
    expect_equal(os.listdir(box.path()), ["doc~"], "shown")
    expect_equal(box.state_of("doc~"), "local", "state")
    os.rename(box.path("doc~"), box.path("doc"))
    expect_host(box, {"doc": b"changed here"})
    settled(box)


@case
def locked_files_are_left_alone(box):
    for name in ("locked", "other"):
        box.write(name, name.encode())
    os.mkdir(os.path.join(box.root, "sub"))
    box.start_host()
    writable(box)
    command = ["--container", box.container]
    os.listdir(box.path())
    box.tulo("host", "lock", *command, "locked", "--user", "7")
    at = box.path
    eventually(lambda: not os.stat(at("locked")).st_mode & 0o200, "the lock is shown")
    refused = {
        "open": lambda: os.open(at("locked"), os.O_WRONLY),
        "open to read and write": lambda: os.open(at("locked"), os.O_RDWR),
        "emptying": lambda: os.open(at("locked"), os.O_WRONLY | os.O_TRUNC),
        "truncating": lambda: os.truncate(at("locked"), 0),
        "renaming": lambda: os.rename(at("locked"), at("x")),
        "moving": lambda: os.rename(at("locked"), at("sub/locked")),
        "renaming over": lambda: os.rename(at("other"), at("locked")),
        "deleting": lambda: os.unlink(at("locked")),
        "exchanging": lambda: check_call(
            LIBC.renameat2, -100, os.fsencode(at("other")), -100, os.fsencode(at("locked")), 2
        ),
    }

    def check_call(*arguments):
        number = call(*arguments)
        if number:
            raise OSError(number, "call")

    for what, action in refused.items():
        expect_equal(errno.errorcode.get(error_of(action)), "EACCES", what)
    expect_equal(read(at("locked")), b"locked", "it can be read")
    box.tulo("host", "unlock", *command, "locked")
    eventually(lambda: os.stat(at("locked")).st_mode & 0o200, "the lock is gone")
    put(at("locked"), b"written")
    os.rename(at("locked"), at("sub/locked"))
    expect_host(box, {"sub": None, "sub/locked": b"written", "other": b"other"})
    settled(box)


@case
def deleted_files_live_while_open(box):
    box.write("known", b"known contents")
    box.start_host()
    writable(box)
    with open(box.path("known"), "r+b", buffering=0) as file:
        os.unlink(box.path("known"))
        settled(box)
        expect_equal(os.pread(file.fileno(), 20, 0), b"known contents", "read")
        os.pwrite(file.fileno(), b"KNOWN", 0)
        expect_equal(os.pread(file.fileno(), 20, 0), b"KNOWN contents", "written")
        os.ftruncate(file.fileno(), 5)
        expect_equal(os.fstat(file.fileno()).st_size, 5, "size")
        expect_equal(os.fstat(file.fileno()).st_nlink, 0, "names")
        put(box.path("known"), b"another file")
        expect_equal(os.pread(file.fileno(), 20, 0), b"KNOWN", "not the new one's")
    with open(box.path("over"), "w+b", buffering=0) as file:
        file.write(b"replaced")
        put(box.path("source"), b"source")
        os.rename(box.path("source"), box.path("over"))
        file.write(b" and written")
        expect_equal(os.pread(file.fileno(), 50, 0), b"replaced and written", "replaced")
    expect_host(box, {"known": b"another file", "over": b"source"})
    settled(box)


@case
def truncating_asks_for_no_more_than_it_keeps(box):
    for name in ("a", "b", "c"):
        box.write(name, b"0123456789" * 100)
    box.start_host()
    writable(box)
    os.truncate(box.path("a"), 0)
    put(box.path("b"), b"new")
    expect_equal(box.fetches(), 0, "downloads to empty a file")
    os.truncate(box.path("c"), 5)
    expect_equal(box.fetches(), 1, "downloads to shorten one")
    expect_host(box, {"a": b"", "b": b"new", "c": b"01234"})
    settled(box)


@case
def folders_full_of_changes(box):
    box.start_host()
    writable(box)
    os.mkdir(box.path("d"))
    for i in range(600):
        put(box.path(f"d/{i}"), b"x")
    expect_equal(len(os.listdir(box.path("d"))), 600, "names")
    for i in range(0, 600, 2):
        os.rename(box.path(f"d/{i}"), box.path(f"d/r{i}"))
    names = os.listdir(box.path("d"))
    expect_equal((len(names), len(set(names))), (600, 600), "names after renaming")
    # While it is read, everything in it goes.
    with os.scandir(box.path("d")) as entries:
        for entry in entries:
            os.unlink(entry.path)
    os.rmdir(box.path("d"))
    expect_equal(os.listdir(box.path()), [], "afterwards")
    settled(box)
    expect_equal(host_tree(box), {}, "the host")


@case
def many_programs_at_once(box):
    box.start_host()
    writable(box)
    failures = []

    def work(number):
        try:
            os.mkdir(box.path(f"{number}"))
            for i in range(40):
                put(box.path(f"{number}/{i}.new"), f"{number} {i}".encode() * 50)
                os.rename(box.path(f"{number}/{i}.new"), box.path(f"{number}/{i}"))
                if i % 3 == 0:
                    os.unlink(box.path(f"{number}/{i}"))
                if i % 4 == 0:
                    put(box.path("shared"), f"{number}".encode())
        except OSError as error:
            failures.append(error)

    threads = [threading.Thread(target=work, args=(number,)) for number in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    expect_equal(failures, [], "failures")
    wanted = {"shared": read(box.path("shared"))}
    for number in range(6):
        wanted[f"{number}"] = None
        for i in range(40):
            if i % 3:
                wanted[f"{number}/{i}"] = f"{number} {i}".encode() * 50
    expect_host(box, wanted)
    settled(box)


@case
def the_size_of_the_disk(box):
    box.start_host()
    writable(box)
    found = os.statvfs(box.path())
    here = os.statvfs(box.state)
    expect_equal(found.f_namemax, 255, "longest name")
    expect_equal(found.f_blocks * found.f_frsize, here.f_blocks * here.f_frsize, "the cache's disk")

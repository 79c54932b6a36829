"""Tables of answers: each row is asked of the mount and of an ordinary folder, which proves the row."""

import errno
import os
import socket
import stat
import tempfile

from harness import case, error_of, expect
from load import RENAME_EXCHANGE, RENAME_NOREPLACE, rename2
from writing import settled, writable

LONG = "n" * 256
LONGEST = "n" * 255


def build(root):
    os.mkdir(f"{root}/empty")
    os.makedirs(f"{root}/full/inner")
    for name in ("file", "other", "full/file"):
        with open(f"{root}/{name}", "wb") as file:
            file.write(b"contents")
    os.symlink("file", f"{root}/link")
    os.symlink("nowhere", f"{root}/dangling")
    os.symlink("loop2", f"{root}/loop1")
    os.symlink("loop1", f"{root}/loop2")


def opened(path, flags, mode=0o644):
    os.close(os.open(path, flags, mode))


def bind(path):
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(path)


# What is done (with paths below the root), and the errno it fails with, by name.
TABLE = [
    # open
    (lambda r: opened(f"{r}/none", os.O_RDONLY), "ENOENT"),
    (lambda r: opened(f"{r}/none/below", os.O_RDONLY), "ENOENT"),
    (lambda r: opened(f"{r}/none/below", os.O_WRONLY | os.O_CREAT), "ENOENT"),
    (lambda r: opened(f"{r}/file/below", os.O_RDONLY), "ENOTDIR"),
    (lambda r: opened(f"{r}/file/below", os.O_WRONLY | os.O_CREAT), "ENOTDIR"),
    (lambda r: opened(f"{r}/file/", os.O_RDONLY), "ENOTDIR"),
    (lambda r: opened(f"{r}/empty", os.O_WRONLY), "EISDIR"),
    (lambda r: opened(f"{r}/empty", os.O_RDWR), "EISDIR"),
    (lambda r: opened(f"{r}/empty", os.O_WRONLY | os.O_CREAT), "EISDIR"),
    (lambda r: opened(f"{r}/empty", os.O_RDONLY | os.O_TRUNC), "EISDIR"),
    (lambda r: opened(f"{r}/file", os.O_WRONLY | os.O_CREAT | os.O_EXCL), "EEXIST"),
    (lambda r: opened(f"{r}/empty", os.O_WRONLY | os.O_CREAT | os.O_EXCL), "EEXIST"),
    (lambda r: opened(f"{r}/dangling", os.O_WRONLY | os.O_CREAT | os.O_EXCL), "EEXIST"),
    (lambda r: opened(f"{r}/file", os.O_RDONLY | os.O_DIRECTORY), "ENOTDIR"),
    (lambda r: opened(f"{r}/link", os.O_RDONLY | os.O_NOFOLLOW), "ELOOP"),
    (lambda r: opened(f"{r}/loop1", os.O_RDONLY), "ELOOP"),
    (lambda r: opened(f"{r}/loop1/below", os.O_RDONLY), "ELOOP"),
    (lambda r: opened(f"{r}/dangling", os.O_RDONLY), "ENOENT"),
    (lambda r: opened(f"{r}/{LONG}", os.O_RDONLY), "ENAMETOOLONG"),
    (lambda r: opened(f"{r}/{LONG}", os.O_WRONLY | os.O_CREAT), "ENAMETOOLONG"),
    # mkdir, rmdir
    (lambda r: os.mkdir(f"{r}/file"), "EEXIST"),
    (lambda r: os.mkdir(f"{r}/empty"), "EEXIST"),
    (lambda r: os.mkdir(f"{r}/dangling"), "EEXIST"),
    (lambda r: os.mkdir(f"{r}/none/below"), "ENOENT"),
    (lambda r: os.mkdir(f"{r}/file/below"), "ENOTDIR"),
    (lambda r: os.mkdir(f"{r}/{LONG}"), "ENAMETOOLONG"),
    (lambda r: os.mkdir(f"{r}/loop1/below"), "ELOOP"),
    (lambda r: os.rmdir(f"{r}/none"), "ENOENT"),
    (lambda r: os.rmdir(f"{r}/file"), "ENOTDIR"),
    (lambda r: os.rmdir(f"{r}/link"), "ENOTDIR"),
    (lambda r: os.rmdir(f"{r}/full"), "ENOTEMPTY"),
    (lambda r: os.rmdir(f"{r}/empty/."), "EINVAL"),
    (lambda r: os.rmdir(f"{r}/{LONG}"), "ENAMETOOLONG"),
    # unlink
    (lambda r: os.unlink(f"{r}/none"), "ENOENT"),
    (lambda r: os.unlink(f"{r}/empty"), "EISDIR"),
    (lambda r: os.unlink(f"{r}/file/below"), "ENOTDIR"),
    (lambda r: os.unlink(f"{r}/file/"), "ENOTDIR"),
    (lambda r: os.unlink(f"{r}/{LONG}"), "ENAMETOOLONG"),
    # rename
    (lambda r: os.rename(f"{r}/none", f"{r}/new"), "ENOENT"),
    (lambda r: os.rename(f"{r}/file", f"{r}/none/new"), "ENOENT"),
    (lambda r: os.rename(f"{r}/file", f"{r}/other/new"), "ENOTDIR"),
    (lambda r: os.rename(f"{r}/file", f"{r}/empty"), "EISDIR"),
    (lambda r: os.rename(f"{r}/empty", f"{r}/file"), "ENOTDIR"),
    (lambda r: os.rename(f"{r}/empty", f"{r}/full"), "ENOTEMPTY"),
    (lambda r: os.rename(f"{r}/full", f"{r}/full/inner/new"), "EINVAL"),
    (lambda r: os.rename(f"{r}/full", f"{r}/full/inner"), "EINVAL"),
    (lambda r: os.rename(f"{r}/full/inner", f"{r}/full"), "ENOTEMPTY"),
    (lambda r: os.rename(f"{r}/file", f"{r}/new/"), "ENOTDIR"),
    (lambda r: os.rename(f"{r}/file", f"{r}/{LONG}"), "ENAMETOOLONG"),
    (lambda r: rename2(f"{r}/file", f"{r}/other", RENAME_NOREPLACE), "EEXIST"),
    (lambda r: rename2(f"{r}/file", f"{r}/none", RENAME_EXCHANGE), "ENOENT"),
    (lambda r: rename2(f"{r}/full", f"{r}/full/inner", RENAME_EXCHANGE), "EINVAL"),
    (lambda r: rename2(f"{r}/file", f"{r}/other", RENAME_EXCHANGE | RENAME_NOREPLACE), "EINVAL"),
    # truncate, chmod, utimes, readlink, symlink
    (lambda r: os.truncate(f"{r}/none", 0), "ENOENT"),
    (lambda r: os.truncate(f"{r}/empty", 0), "EISDIR"),
    (lambda r: os.truncate(f"{r}/file/below", 0), "ENOTDIR"),
    (lambda r: os.truncate(f"{r}/file", -1), "EINVAL"),
    (lambda r: os.chmod(f"{r}/none", 0o600), "ENOENT"),
    (lambda r: os.chmod(f"{r}/file/below", 0o600), "ENOTDIR"),
    (lambda r: os.chmod(f"{r}/loop1", 0o600), "ELOOP"),
    (lambda r: os.utime(f"{r}/none"), "ENOENT"),
    (lambda r: os.utime(f"{r}/loop1"), "ELOOP"),
    (lambda r: os.readlink(f"{r}/file"), "EINVAL"),
    (lambda r: os.readlink(f"{r}/none"), "ENOENT"),
    (lambda r: os.symlink("file", f"{r}/other"), "EEXIST"),
    (lambda r: os.symlink("file", f"{r}/link"), "EEXIST"),
    (lambda r: os.symlink("file", f"{r}/none/below"), "ENOENT"),
    (lambda r: os.symlink("file", f"{r}/{LONG}"), "ENAMETOOLONG"),
    (lambda r: os.listdir(f"{r}/file"), "ENOTDIR"),
    (lambda r: os.listdir(f"{r}/none"), "ENOENT"),
    (lambda r: os.mkfifo(f"{r}/file"), "EEXIST"),
    (lambda r: os.mkfifo(f"{r}/none/below"), "ENOENT"),
    (lambda r: os.link(f"{r}/none", f"{r}/new"), "ENOENT"),
    (lambda r: os.link(f"{r}/file", f"{r}/other"), "EEXIST"),
    # What works
    (lambda r: opened(f"{r}/{LONGEST}", os.O_WRONLY | os.O_CREAT), None),
    (lambda r: opened(f"{r}/link", os.O_WRONLY), None),
    (lambda r: os.rename(f"{r}/file", f"{r}/file"), None),
    (lambda r: os.rename(f"{r}/link", f"{r}/link2"), None),
    (lambda r: os.rename(f"{r}/empty", f"{r}/full/inner"), None),
    (lambda r: os.truncate(f"{r}/file", 100_000), None),
    (lambda r: os.chmod(f"{r}/file", 0o640), None),
    (lambda r: os.utime(f"{r}/file", (1, 2)), None),
    (lambda r: os.unlink(f"{r}/dangling"), None),
    (lambda r: rename2(f"{r}/file", f"{r}/other", RENAME_EXCHANGE), None),
    (lambda r: rename2(f"{r}/other", f"{r}/fresh", RENAME_NOREPLACE), None),
]

# What an ordinary folder has and this one has not: docs/replica.md says why.
MISSING = [
    (lambda r: os.link(f"{r}/fresh", f"{r}/hard"), {"EPERM", "ENOSYS", "EOPNOTSUPP"}),
    (lambda r: os.mkfifo(f"{r}/pipe"), {"EPERM"}),
    (lambda r: os.mknod(f"{r}/device", 0o600 | stat.S_IFCHR, os.makedev(1, 3)), {"EPERM"}),
    (lambda r: bind(f"{r}/socket"), {"EPERM"}),
    (lambda r: os.chown(f"{r}/fresh", 12345, -1), {"EPERM"}),
]


def name_of(number):
    return errno.errorcode[number] if number else None


@case
def tables_of_answers(box):
    box.start_host()
    writable(box, "--no-thumbnails")
    mounted = box.path("table")
    os.mkdir(mounted)
    ordinary = tempfile.mkdtemp(dir=box.directory)
    build(mounted)
    build(ordinary)
    wrong = []
    for row, (action, wanted) in enumerate(TABLE):
        for root in (ordinary, mounted):
            found = name_of(error_of(lambda action=action, root=root: action(root)))
            if found != wanted:
                wrong.append(f"row {row} in {root}: {found}, expected {wanted}")
    for row, (action, allowed) in enumerate(MISSING):
        found = name_of(error_of(lambda action=action: action(mounted)))
        if found not in allowed:
            wrong.append(f"missing row {row}: {found}, expected {allowed}")
    expect(not wrong, "\n".join(wrong))
    settled(box)

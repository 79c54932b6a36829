"""Documents are saved the way programs do it: the host sees new contents of the same item."""

import os

from harness import case, eventually, expect, expect_equal, read
from writing import expect_host, settled, writable


def put(path, data):
    with open(path, "wb") as file:
        file.write(data)
        file.flush()
        os.fsync(file.fileno())


def opened(box):
    box.write("doc.txt", b"old contents")
    box.start_host()
    writable(box)
    expect_equal(read(box.path("doc.txt")), b"old contents", "before")
    return box.state_of("doc.txt", "identifier")


def expect_saved(box, identifier, extra=()):
    expect_host(box, {"doc.txt": b"new contents"})
    settled(box)
    expect_equal(read(box.path("doc.txt")), b"new contents", "what is shown")
    expect_equal(box.state_of("doc.txt", "identifier"), identifier, "identifier")
    expect_equal(box.host.requests("modify"), 1, "uploads")
    expect_equal(box.host.requests("create"), 0, "creates")
    expect_equal(box.host.requests("delete"), 0, "deletes")
    expect_equal(sorted(os.listdir(box.path())), sorted(["doc.txt", *extra]), "names")


@case
def in_place(box):
    identifier = opened(box)
    put(box.path("doc.txt"), b"new contents")
    expect_saved(box, identifier)


@case
def temporary_file_renamed_over(box):
    """As GLib programs (gedit) do it."""
    identifier = opened(box)
    put(box.path(".goutputstream-X1Y2Z3"), b"new contents")
    os.rename(box.path(".goutputstream-X1Y2Z3"), box.path("doc.txt"))
    expect_saved(box, identifier)


@case
def unknown_temporary_name_renamed_over(box):
    """As Qt programs (KeePassXC) do it."""
    identifier = opened(box)
    put(box.path("doc.txt.aBcDeF"), b"new contents")
    os.rename(box.path("doc.txt.aBcDeF"), box.path("doc.txt"))
    expect_saved(box, identifier)


@case
def backup_rename(box):
    """As vim does it."""
    identifier = opened(box)
    os.close(os.open(box.path("4913"), os.O_CREAT | os.O_EXCL | os.O_WRONLY))
    os.unlink(box.path("4913"))
    put(box.path(".doc.txt.swp"), b"swap")
    os.rename(box.path("doc.txt"), box.path("doc.txt~"))
    put(box.path("doc.txt"), b"new contents")
    os.unlink(box.path("doc.txt~"))
    os.unlink(box.path(".doc.txt.swp"))
    expect_saved(box, identifier)


@case
def copied_backup(box):
    """As vim does it with backupcopy=yes."""
    identifier = opened(box)
    put(box.path(".doc.txt.swp"), b"swap")
    put(box.path("doc.txt~"), read(box.path("doc.txt")))
    with open(os.open(box.path("doc.txt"), os.O_WRONLY | os.O_CREAT), "wb") as file:
        file.truncate(0)
        file.write(b"new contents")
        file.flush()
        os.fsync(file.fileno())
    os.chmod(box.path("doc.txt"), 0o644)
    os.unlink(box.path("doc.txt~"))
    os.unlink(box.path(".doc.txt.swp"))
    expect_saved(box, identifier)


@case
def backup_kept(box):
    """The same with a backup that stays."""
    identifier = opened(box)
    os.rename(box.path("doc.txt"), box.path("doc.txt~"))
    put(box.path("doc.txt"), b"new contents")
    expect_saved(box, identifier, ["doc.txt~"])
    expect_equal(read(box.path("doc.txt~")), b"old contents", "the backup")


@case
def backup_of_a_file_that_was_never_read(box):
    box.write("doc.txt", b"old contents")
    box.start_host()
    writable(box)
    identifier = box.state_of("doc.txt", "identifier")
    os.rename(box.path("doc.txt"), box.path("doc.txt~"))
    put(box.path("doc.txt"), b"new contents")
    expect_saved(box, identifier, ["doc.txt~"])
    expect_equal(read(box.path("doc.txt~")), b"old contents", "the backup")


@case
def lock_file_and_office_temporary(box):
    """As LibreOffice does it."""
    identifier = opened(box)
    put(box.path(".~lock.doc.txt#"), b"user")
    put(box.path("lu1234abcd.tmp"), b"new contents")
    os.rename(box.path("lu1234abcd.tmp"), box.path("doc.txt"))
    os.unlink(box.path(".~lock.doc.txt#"))
    expect_saved(box, identifier)


@case
def deleted_and_written_again(box):
    """As version control does it."""
    identifier = opened(box)
    os.unlink(box.path("doc.txt"))
    put(box.path("doc.txt"), b"new contents")
    expect_saved(box, identifier)

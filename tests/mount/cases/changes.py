"""What happens at the host is seen in the mount."""

import ctypes
import os
import select
import struct
import subprocess

from harness import LIBC, case, eventually, expect, expect_equal, read


@case
def created(box):
    box.write("folder/first", b"1")
    box.start_host()
    box.mount()
    expect_equal(os.listdir(box.path("folder")), ["first"], "before")
    box.write("folder/second", b"2")
    eventually(lambda: sorted(os.listdir(box.path("folder"))) == ["first", "second"], "the listing")
    expect_equal(read(box.path("folder/second")), b"2", "contents")
    box.write("deep/er/still/file", b"3")
    eventually(lambda: os.path.exists(box.path("deep/er/still/file")), "a whole new branch")


@case
def renamed(box):
    box.write("old.txt", b"same")
    box.start_host()
    box.mount()
    number = os.stat(box.path("old.txt")).st_ino
    expect_equal(read(box.path("old.txt")), b"same", "contents")
    os.rename(os.path.join(box.root, "old.txt"), os.path.join(box.root, "new.txt"))
    eventually(lambda: os.listdir(box.path()) == ["new.txt"], "the listing")
    expect(not os.path.exists(box.path("old.txt")), "the old name is gone")
    expect_equal(os.stat(box.path("new.txt")).st_ino, number, "inode number")
    box.host.kill()
    expect_equal(read(box.path("new.txt")), b"same", "what was downloaded is kept")


@case
def moved_to_another_folder(box):
    box.write("from/file.txt", b"same")
    os.makedirs(os.path.join(box.root, "to"))
    box.start_host()
    box.mount()
    number = os.stat(box.path("from/file.txt")).st_ino
    expect_equal(os.listdir(box.path("to")), [], "the folder to move to")
    os.rename(os.path.join(box.root, "from/file.txt"), os.path.join(box.root, "to/file.txt"))
    eventually(lambda: os.listdir(box.path("to")) == ["file.txt"], "in its new folder")
    eventually(lambda: os.listdir(box.path("from")) == [], "out of its old one")
    expect_equal(os.stat(box.path("to/file.txt")).st_ino, number, "inode number")


@case
def a_folder_renamed_with_all_in_it(box):
    for i in range(20):
        box.write(f"before/sub/f{i}", str(i).encode())
    box.start_host()
    box.mount()
    expect_equal(len(os.listdir(box.path("before/sub"))), 20, "before")
    os.rename(os.path.join(box.root, "before"), os.path.join(box.root, "after"))
    eventually(lambda: os.listdir(box.path()) == ["after"], "the new name")
    expect_equal(sorted(os.listdir(box.path("after/sub"))), sorted(f"f{i}" for i in range(20)),
                 "names in it")
    expect_equal(read(box.path("after/sub/f7")), b"7", "contents")


@case
def names_exchanged(box):
    box.write("a", b"I was a")
    box.write("b", b"I was b")
    box.start_host()
    box.mount()

    def numbers():
        """The inode number of each identifier: the host decides which file is which."""
        return {box.state_of(name, "identifier"): os.stat(box.path(name)).st_ino for name in "ab"}

    before = numbers()
    root = box.root
    os.rename(f"{root}/a", f"{root}/t")
    os.rename(f"{root}/b", f"{root}/a")
    os.rename(f"{root}/t", f"{root}/b")
    eventually(
        lambda: sorted(os.listdir(box.path())) == ["a", "b"] and read(box.path("a")) == b"I was b",
        "a has the other's contents",
    )
    eventually(lambda: read(box.path("b")) == b"I was a", "b has the other's contents")
    expect_equal(numbers(), before, "inode numbers")


@case
def deleted(box):
    box.write("folder/a", b"1")
    box.write("folder/b", b"2")
    box.start_host()
    box.mount()
    expect_equal(read(box.path("folder/a")), b"1", "before")
    os.unlink(os.path.join(box.root, "folder/a"))
    eventually(lambda: os.listdir(box.path("folder")) == ["b"], "the listing")
    eventually(lambda: not os.path.exists(box.path("folder/a")), "the name")
    os.unlink(os.path.join(box.root, "folder/b"))
    os.rmdir(os.path.join(box.root, "folder"))
    eventually(lambda: not os.path.exists(box.path("folder")), "the folder")
    expect_equal(os.listdir(box.path()), [], "nothing is left")


@case
def a_file_becomes_a_folder(box):
    box.write("thing", b"file")
    box.start_host()
    box.mount()
    expect_equal(read(box.path("thing")), b"file", "before")
    os.unlink(os.path.join(box.root, "thing"))
    box.write("thing/inside", b"folder now")
    eventually(lambda: os.path.isdir(box.path("thing")), "a folder of the same name")
    eventually(lambda: os.path.exists(box.path("thing/inside")), "what is in it")
    expect_equal(read(box.path("thing/inside")), b"folder now", "contents")


@case
def changes_while_nobody_looked(box):
    box.write("stays", b"1")
    box.write("goes", b"2")
    box.start_host()
    box.mount()
    expect_equal(len(os.listdir(box.path())), 2, "before")
    box.host.stop()
    os.unlink(os.path.join(box.root, "goes"))
    box.write("comes", b"3")
    box.write("stays", b"changed")
    box.start_host()
    eventually(lambda: sorted(os.listdir(box.path())) == ["comes", "stays"], "the listing")
    eventually(lambda: read(box.path("stays")) == b"changed", "the contents")


@case
def changes_while_nothing_was_mounted(box):
    box.write("folder/goes", b"1")
    box.write("folder/stays", b"2")
    box.start_host()
    box.mount()
    expect_equal(len(os.listdir(box.path("folder"))), 2, "before")
    read(box.path("folder/stays"))
    box.mounts[0].unmount()
    os.unlink(os.path.join(box.root, "folder/goes"))
    box.write("folder/stays", b"another")
    box.restart_host()
    box.remount()
    eventually(lambda: os.listdir(box.path("folder")) == ["stays"], "the listing")
    expect_equal(read(box.path("folder/stays")), b"another", "contents")


@case
def a_shell_in_the_folder_sees_changes(box):
    box.write("work/one", b"")
    box.start_host()
    box.mount()
    shell = subprocess.Popen(
        ["sh"], cwd=box.path("work"), stdin=subprocess.PIPE, stdout=subprocess.PIPE
    )

    def names():
        shell.stdin.write(b"ls; echo end\n")
        shell.stdin.flush()
        lines = []
        while (line := shell.stdout.readline().decode().rstrip("\n")) != "end":
            lines.append(line)
        return lines

    try:
        expect_equal(names(), ["one"], "before")
        box.write("work/two", b"")
        eventually(lambda: names() == ["one", "two"], "a new file")
        os.unlink(os.path.join(box.root, "work/one"))
        eventually(lambda: names() == ["two"], "a deleted file")
        os.rename(os.path.join(box.root, "work"), os.path.join(box.root, "play"))
        eventually(lambda: os.listdir(box.path()) == ["play"], "the folder's new name")
        expect_equal(names(), ["two"], "the shell is still in the folder")
        box.write("play/three", b"")
        eventually(lambda: names() == ["three", "two"], "a file that came after the rename")
    finally:
        shell.stdin.close()
        shell.wait()
        shell.stdout.close()


@case
def an_open_directory_sees_changes(box):
    box.write("folder/one", b"")
    box.start_host()
    box.mount()
    folder = os.open(box.path("folder"), os.O_RDONLY | os.O_DIRECTORY)
    try:
        expect_equal(os.listdir(folder), ["one"], "before")
        box.write("folder/two", b"")
        eventually(lambda: sorted(os.listdir(folder)) == ["one", "two"], "after")
    finally:
        os.close(folder)


IN_CREATE = 0x100
IN_DELETE = 0x200
IN_DELETE_SELF = 0x400


@case
def watchers_are_told_of_deletions(box):
    """Whoever watches a file or folder is told of its end: that event comes from the inode when its
    last name is gone, whoever took it. Whoever watches the folder that it was in is told by the
    system calls that delete, create and move, and what a file system reports passes none of them;
    so nothing is expected of such a watch here (the next case has it for changes in the mount)."""
    box.write("folder/goes", b"")
    box.write("folder/stays", b"")
    os.makedirs(os.path.join(box.root, "empty"))
    box.start_host()
    box.mount()
    watcher = LIBC.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
    expect(watcher >= 0, os.strerror(ctypes.get_errno()))
    try:
        watches = {
            LIBC.inotify_add_watch(watcher, os.fsencode(box.path(name)), IN_DELETE_SELF): name
            for name in ("folder/goes", "folder/stays", "empty")
        }
        os.unlink(os.path.join(box.root, "folder/goes"))
        os.rmdir(os.path.join(box.root, "empty"))
        told = set()

        def read_events():
            if select.select([watcher], [], [], 0)[0]:
                data = os.read(watcher, 4096)
                while data:
                    watch, mask, _, length = struct.unpack_from("iIII", data)
                    if mask & IN_DELETE_SELF:
                        told.add(watches[watch])
                    data = data[16 + length :]
            return told == {"folder/goes", "empty"}

        eventually(read_events, "events of both deletions")
    finally:
        os.close(watcher)


@case
def watchers_of_a_folder_are_told_of_changes_through_the_mount(box):
    box.write("folder/goes", b"")
    box.start_host()
    box.mount()
    watcher = LIBC.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
    expect(watcher >= 0, os.strerror(ctypes.get_errno()))
    try:
        LIBC.inotify_add_watch(watcher, os.fsencode(box.path("folder")), IN_CREATE | IN_DELETE)
        os.unlink(box.path("folder/goes"))
        os.mkdir(box.path("folder/comes"))
        expect(select.select([watcher], [], [], 10)[0], "there are events")
        data = os.read(watcher, 4096)
        told = []
        while data:
            _, mask, _, length = struct.unpack_from("iIII", data)
            told.append((mask & (IN_CREATE | IN_DELETE), data[16 : 16 + length].rstrip(b"\0")))
            data = data[16 + length :]
        expect_equal(told, [(IN_DELETE, b"goes"), (IN_CREATE, b"comes")], "events")
    finally:
        os.close(watcher)


@case
def a_thousand_changes_at_once(box):
    for i in range(500):
        box.write(f"folder/old{i}", b"x")
    box.start_host()
    box.mount()
    expect_equal(len(os.listdir(box.path("folder"))), 500, "before")
    for i in range(500):
        os.unlink(os.path.join(box.root, f"folder/old{i}"))
        box.write(f"folder/new{i}", b"yy")
    wanted = {f"new{i}" for i in range(500)}
    eventually(lambda: set(os.listdir(box.path("folder"))) == wanted, "the listing")
    expect(all(os.stat(box.path(f"folder/new{i}")).st_size == 2 for i in range(500)), "the sizes")

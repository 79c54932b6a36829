"""Both sides change; nothing is lost."""

import contextlib
import os
import sqlite3
import time

from harness import case, eventually, expect, expect_equal, read
from writing import expect_host, host_tree, settled, writable


def edit_while_apart(box, here, there):
    """Changes the mount without a host, the host's folder without the mount, and joins them."""
    box.host.stop()
    here()
    box.mounts[0].unmount()
    old = box.mounts.pop(0)
    there()
    box.start_host()
    mount = box.mount(point=old.point, name="joined")
    box.mounts.remove(mount)
    box.mounts.insert(0, mount)


def put(path, data):
    with open(path, "wb") as file:
        file.write(data)


def start(box):
    box.write("doc.txt", b"base")
    box.write("folder/inside.txt", b"inside")
    box.start_host()
    writable(box)
    read(box.path("doc.txt"))
    read(box.path("folder/inside.txt"))


@case
def both_edited(box):
    start(box)
    edit_while_apart(
        box,
        lambda: put(box.path("doc.txt"), b"from here"),
        lambda: box.write("doc.txt", b"from there!"),
    )
    eventually(lambda: len(host_tree(box)) == 4, "the copy")
    settled(box)
    contents = sorted(data for data in host_tree(box).values() if data is not None)
    expect_equal(contents, [b"from here", b"from there!", b"inside"], "all versions")
    copies = [name for name in os.listdir(box.root) if "conflicted copy of" in name]
    expect_equal(len(copies), 1, "copies")
    expect(copies[0].startswith("doc (") and copies[0].endswith(").txt"), copies[0])
    expect_equal(read(box.path("doc.txt")), b"from there!", "under the name")
    expect_equal(read(box.path(copies[0])), b"from here", "the copy")


@case
def edited_here_deleted_there(box):
    start(box)
    edit_while_apart(
        box,
        lambda: put(box.path("doc.txt"), b"from here"),
        lambda: os.unlink(os.path.join(box.root, "doc.txt")),
    )
    expect_host(box, {"doc.txt": b"from here", "folder": None, "folder/inside.txt": b"inside"})
    settled(box)
    expect_equal(read(box.path("doc.txt")), b"from here", "shown")


@case
def deleted_here_edited_there(box):
    start(box)
    edit_while_apart(
        box,
        lambda: os.unlink(box.path("doc.txt")),
        lambda: box.write("doc.txt", b"from there!"),
    )
    settled(box)
    eventually(lambda: "doc.txt" in os.listdir(box.path()), "it is shown again")
    expect_equal(read(box.path("doc.txt")), b"from there!", "shown")
    expect_host(box, {"doc.txt": b"from there!", "folder": None, "folder/inside.txt": b"inside"})


@case
def new_file_in_a_folder_deleted_there(box):
    import shutil

    start(box)
    edit_while_apart(
        box,
        lambda: put(box.path("folder/new.txt"), b"new"),
        lambda: shutil.rmtree(os.path.join(box.root, "folder")),
    )
    box.allow_errors("not_found")
    expect_host(box, {"doc.txt": b"base", "folder": None, "folder/new.txt": b"new"})
    settled(box)
    expect_equal(read(box.path("folder/new.txt")), b"new", "shown")


@case
def renamed_on_both_sides(box):
    """The name that was given here is the later one and stays."""
    start(box)
    edit_while_apart(
        box,
        lambda: os.rename(box.path("doc.txt"), box.path("here.txt")),
        lambda: os.rename(
            os.path.join(box.root, "doc.txt"), os.path.join(box.root, "there.txt")
        ),
    )
    settled(box)
    expect_host(box, {"here.txt": b"base", "folder": None, "folder/inside.txt": b"inside"})
    expect_equal(sorted(os.listdir(box.path())), ["folder", "here.txt"], "shown")


@case
def moved_into_a_folder_that_moved(box):
    start(box)
    edit_while_apart(
        box,
        lambda: os.rename(box.path("doc.txt"), box.path("folder/doc.txt")),
        lambda: os.rename(os.path.join(box.root, "folder"), os.path.join(box.root, "moved")),
    )
    settled(box)
    expect_host(box, {"moved": None, "moved/inside.txt": b"inside", "moved/doc.txt": b"base"})


@case
def lost_answers_make_no_duplicates(box):
    box.start_host("--fault", "create=drop-reply:2", "--fault", "modify=drop-reply:2")
    writable(box)
    box.allow_errors("no reply from host app")
    put(box.path("a"), b"one")
    os.mkdir(box.path("folder"))
    put(box.path("folder/b"), b"two")
    expect_host(box, {"a": b"one", "folder": None, "folder/b": b"two"})
    settled(box)
    put(box.path("a"), b"changed")
    expect_host(box, {"a": b"changed", "folder": None, "folder/b": b"two"})
    settled(box)
    expect_equal(sorted(os.listdir(box.path())), ["a", "folder"], "shown")


@case
def every_failure_passes(box):
    kinds = ["network", "rate_limited", "locked", "garbage", "hangup", "no-kind", "io"]
    faults = []
    for kind in kinds:
        faults += ["--fault", f"any={kind}:1"]
    box.start_host(*faults)
    writable(box)
    box.allow_errors("failed for")
    for i in range(4):
        put(box.path(f"f{i}"), b"x" * i)
    settled(box, 90)
    expect_host(box, {f"f{i}": b"x" * i for i in range(4)})


def there(box, name=""):
    return os.path.join(box.root, name)


def versions(box):
    """The contents of every file at the host."""
    return sorted(data for data in host_tree(box).values() if data is not None)


@case
def moved_on_both_sides(box):
    """The place that was given here stays."""
    box.write("a/x", b"")
    box.write("b/x", b"")
    start(box)
    os.listdir(box.path("a"))
    os.listdir(box.path("b"))
    edit_while_apart(
        box,
        lambda: os.rename(box.path("doc.txt"), box.path("a/doc.txt")),
        lambda: os.rename(there(box, "doc.txt"), there(box, "b/doc.txt")),
    )
    settled(box)
    wanted = {"a": None, "a/x": b"", "b": None, "b/x": b"", "folder": None}
    wanted |= {"folder/inside.txt": b"inside", "a/doc.txt": b"base"}
    expect_host(box, wanted)
    eventually(lambda: os.listdir(box.path("b")) == ["x"], "the other place is empty")
    expect_equal(read(box.path("a/doc.txt")), b"base", "shown")


@case
def renamed_here_edited_there(box):
    start(box)
    edit_while_apart(
        box,
        lambda: os.rename(box.path("doc.txt"), box.path("here.txt")),
        lambda: box.write("doc.txt", b"from there!"),
    )
    settled(box)
    expect_host(box, {"here.txt": b"from there!", "folder": None, "folder/inside.txt": b"inside"})
    eventually(lambda: read(box.path("here.txt")) == b"from there!", "the host's contents")


@case
def edited_here_moved_there(box):
    start(box)
    edit_while_apart(
        box,
        lambda: put(box.path("doc.txt"), b"from here"),
        lambda: os.rename(there(box, "doc.txt"), there(box, "folder/moved.txt")),
    )
    settled(box)
    wanted = {"folder": None, "folder/inside.txt": b"inside", "folder/moved.txt": b"from here"}
    expect_host(box, wanted)
    eventually(lambda: os.listdir(box.path()) == ["folder"], "it left its place")
    expect_equal(read(box.path("folder/moved.txt")), b"from here", "shown")


@case
def renamed_here_deleted_there(box):
    """Nothing of it was changed here, so it goes."""
    start(box)
    edit_while_apart(
        box,
        lambda: os.rename(box.path("doc.txt"), box.path("here.txt")),
        lambda: os.unlink(there(box, "doc.txt")),
    )
    settled(box)
    eventually(lambda: os.listdir(box.path()) == ["folder"], "it is gone")
    expect_host(box, {"folder": None, "folder/inside.txt": b"inside"})


@case
def deleted_on_both_sides(box):
    start(box)
    edit_while_apart(
        box,
        lambda: os.unlink(box.path("doc.txt")),
        lambda: os.unlink(there(box, "doc.txt")),
    )
    settled(box)
    expect_equal(os.listdir(box.path()), ["folder"], "shown")


@case
def folder_deleted_here_file_added_there(box):
    """Only what was seen here is deleted there."""
    start(box)

    def remove():
        os.unlink(box.path("folder/inside.txt"))
        os.rmdir(box.path("folder"))

    edit_while_apart(box, remove, lambda: box.write("folder/added.txt", b"added"))
    settled(box)
    expect_host(box, {"doc.txt": b"base", "folder": None, "folder/added.txt": b"added"})
    eventually(lambda: "folder" in os.listdir(box.path()), "it is shown again")
    expect_equal(read(box.path("folder/added.txt")), b"added", "shown")


@case
def moved_here_into_a_folder_deleted_there(box):
    import shutil

    start(box)
    edit_while_apart(
        box,
        lambda: os.rename(box.path("doc.txt"), box.path("folder/doc.txt")),
        lambda: shutil.rmtree(there(box, "folder")),
    )
    box.allow_errors("not_found")
    expect_host(box, {"folder": None, "folder/doc.txt": b"base"})
    settled(box)
    eventually(lambda: os.listdir(box.path("folder")) == ["doc.txt"], "shown")
    expect_equal(read(box.path("folder/doc.txt")), b"base", "shown")


@case
def folder_renamed_here_deleted_there_with_something_new_in_it(box):
    import shutil

    start(box)

    def here():
        os.rename(box.path("folder"), box.path("renamed"))
        put(box.path("renamed/new.txt"), b"new")

    edit_while_apart(box, here, lambda: shutil.rmtree(there(box, "folder")))
    box.allow_errors("not_found")
    expect_host(box, {"doc.txt": b"base", "renamed": None, "renamed/new.txt": b"new"})
    settled(box)
    eventually(lambda: os.listdir(box.path("renamed")) == ["new.txt"], "shown")


@case
def made_on_both_sides(box):
    """Two files of one name both stay; two folders of one name become one."""
    start(box)

    def here():
        put(box.path("same.txt"), b"from here")
        os.mkdir(box.path("both"))
        put(box.path("both/here"), b"h")

    def at_the_host():
        box.write("same.txt", b"from there")
        box.write("both/there", b"t")

    edit_while_apart(box, here, at_the_host)
    settled(box)
    wanted = sorted([b"base", b"inside", b"from here", b"from there", b"h", b"t"])
    eventually(lambda: versions(box) == wanted, "all at the host")
    eventually(lambda: sorted(os.listdir(box.path("both"))) == ["here", "there"], "one folder")

    def both():
        names = [name for name in os.listdir(box.path()) if name.startswith("same")]
        return sorted(read(box.path(name)) for name in names) == [b"from here", b"from there"]

    eventually(both, "both files are shown")
    expect("same.txt" in os.listdir(box.path()), "one keeps the name")


@case
def the_host_changes_a_file_that_is_being_written(box):
    start(box)
    with open(box.path("doc.txt"), "r+b", buffering=0) as file:
        file.write(b"HERE")
        box.write("doc.txt", b"from there!")
        eventually(lambda: "doc.txt" in os.listdir(box.path()), "a listing")
        file.write(b" and on")
        expect_equal(os.pread(file.fileno(), 50, 0), b"HERE and on", "while it is open")
    settled(box)
    eventually(
        lambda: versions(box) == sorted([b"from there!", b"HERE and on", b"inside"]),
        "both versions",
    )
    expect_equal(read(box.path("doc.txt")), b"from there!", "under the name")


@case
def replaced_here_edited_there(box):
    """An editor's save is a change of contents, also when it meets another one."""
    start(box)

    def here():
        put(box.path("doc.txt.tmpname"), b"from here")
        os.rename(box.path("doc.txt.tmpname"), box.path("doc.txt"))

    edit_while_apart(box, here, lambda: box.write("doc.txt", b"from there!"))
    settled(box)
    eventually(
        lambda: versions(box) == sorted([b"from there!", b"from here", b"inside"]), "both versions"
    )


def is_indexed(box, name):
    """Whether the host has seen the file by now."""
    database = os.path.join(box.container, "state.db")
    with contextlib.closing(sqlite3.connect(database, timeout=10)) as connection:
        query = "SELECT count(*) FROM items WHERE name = ?"
        return connection.execute(query, (name,)).fetchone()[0] > 0


@case
def made_again_on_both_sides(box):
    """Deleted and made again on both sides, there within the second in which it had been written."""
    start(box)
    doc = os.path.join(box.root, "doc.txt")
    written = os.stat(doc).st_mtime_ns
    os.unlink(box.path("doc.txt"))
    # Not sent as long as it is open.
    with open(box.path("doc.txt"), "wb", buffering=0) as file:
        file.write(b"from here")
        os.unlink(doc)
        eventually(lambda: not is_indexed(box, "doc.txt"), "it is gone there")
        put(box.file("again"), b"BASE")
        os.utime(box.file("again"), ns=(written, written))
        os.rename(box.file("again"), doc)
        eventually(lambda: is_indexed(box, "doc.txt"), "it is there again")
        time.sleep(1)
        os.listdir(box.path())
    settled(box)
    wanted = sorted([b"BASE", b"from here", b"inside"])
    eventually(lambda: versions(box) == wanted, "both versions")
    eventually(lambda: len(os.listdir(box.path())) == 3, "both are shown")

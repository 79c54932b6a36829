"""What cannot be read is not gone: an index that comes and goes, and one that is another's."""

import os
import random
import resource
import shutil
import sqlite3
import subprocess
import threading
import time

from harness import case, error_of, eventually, expect, expect_equal, read
from writing import difference, host_tree, remove_index, status, tree, writable


def index(box):
    return os.path.join(box.container, "state.db")


def put(path, data):
    with open(path, "wb") as file:
        file.write(data)


def mounted(box):
    """A mount of an index that gives trouble, of which its log tells."""
    mount = box.mount("--no-thumbnails")
    mount.allowed_errors.append(".*")
    return mount


def throughout(duration, pause=0.1):
    """Comes round again and again, for so many seconds."""
    end = time.monotonic() + duration
    while time.monotonic() < end:
        yield
        time.sleep(pause)


def names(box, folder=""):
    return sorted(os.listdir(box.path(folder)))


def flush(box, patience=60):
    def flushed():
        box.tulo("flush", "--wait", "--timeout", "5", check=False)
        now = status(box)
        return now["pending"] == 0 and now["uploading"] == 0

    eventually(flushed, "everything is at the host", patience)
    expect_equal(status(box)["needsAttention"], 0, "changes that wait for the user")


def changed_while_the_index_is_away(box, away, back):
    for name in ("edited.txt", "renamed.txt", "deleted.txt", "folder/inside.txt"):
        box.write(name, name.encode())
    box.start_host()
    mounted(box)
    for name in ("edited.txt", "renamed.txt", "deleted.txt"):
        read(box.path(name))
    expect_equal(names(box, "folder"), ["inside.txt"], "names in the folder")
    away()
    put(box.path("edited.txt"), b"edited here")
    os.rename(box.path("renamed.txt"), box.path("renamed here.txt"))
    os.unlink(box.path("deleted.txt"))
    for _ in throughout(3):
        expect_equal(names(box), ["edited.txt", "folder", "renamed here.txt"], "names meanwhile")
        expect_equal(names(box, "folder"), ["inside.txt"], "names in the folder meanwhile")
    told = box.tulo("flush", "--wait", "--timeout", "1", check=False)
    expect(told.returncode != 0, f"flush does not say that all is well: {told.stdout!r}")
    back()
    flush(box)
    wanted = {"edited.txt": b"edited here", "renamed here.txt": b"renamed.txt", "folder": None,
              "folder/inside.txt": b"folder/inside.txt"}
    expect_equal(host_tree(box), wanted, "what the host has")
    eventually(lambda: names(box) == ["edited.txt", "folder", "renamed here.txt"], "names at last")


@case
def an_index_that_is_moved_away_for_a_while(box):
    changed_while_the_index_is_away(box, lambda: os.rename(index(box), index(box) + ".away"),
                                    lambda: os.rename(index(box) + ".away", index(box)))


@case
def an_index_that_lacks_a_table_for_a_while(box):
    box.write("folder/inside.txt", b"x")
    for number in range(50):
        box.write(f"{number}.txt", b"x")
    box.start_host()
    mounted(box)
    wanted = names(box)
    expect_equal(len(wanted), 51, "names")
    names(box, "folder")
    box.host.stop()
    with sqlite3.connect(index(box)) as database:
        database.execute("ALTER TABLE items RENAME TO items_elsewhere")
    database.close()
    for _ in throughout(2):
        expect_equal(names(box), wanted, "names without the table")
        expect_equal(names(box, "folder"), ["inside.txt"], "names in the folder")
    with sqlite3.connect(index(box)) as database:
        database.execute("ALTER TABLE items_elsewhere RENAME TO items")
        database.execute("DELETE FROM items WHERE name='7.txt'")
    database.close()
    eventually(lambda: len(names(box)) == 50, "what is really gone goes")


@case
def a_folder_that_was_never_listed_is_not_shown_short_without_descriptors(box):
    for number in range(200):
        box.write(f"folder/{number}.txt", b"x")
        box.write(f"{number}.txt", b"x")
    box.start_host()
    mount = mounted(box)
    expect_equal(len(names(box)), 201, "names")
    limits = resource.prlimit(mount.pid, resource.RLIMIT_NOFILE)
    for spare in (0, 1, 2):
        resource.prlimit(mount.pid, resource.RLIMIT_NOFILE, (mount.descriptors() + spare, limits[1]))
        box.write(f"more {spare}.txt", b"x")
        for _ in throughout(1):
            expect(len(names(box)) >= 201, "names of the folder that is known")
            found = []
            number = error_of(lambda found=found: found.extend(names(box, "folder")))
            expect(number != 0 or len(found) == 200, f"{len(found)} names without an error")
        resource.prlimit(mount.pid, resource.RLIMIT_NOFILE, limits)
    eventually(lambda: error_of(lambda: names(box, "folder")) == 0, "it can be listed again")
    expect_equal(len(names(box, "folder")), 200, "all of it")
    eventually(lambda: len(names(box)) == 204, "what came meanwhile")


@case
def an_index_that_is_locked_for_longer_than_readers_wait(box):
    for number in range(50):
        box.write(f"{number}.txt", b"x")
        box.write(f"folder/{number}.txt", b"x")
    box.start_host()
    box.host.stop()
    # Without a write-ahead log a writer keeps readers out.
    database = sqlite3.connect(index(box), isolation_level=None)
    database.execute("PRAGMA journal_mode=DELETE")
    mounted(box)
    expect_equal(len(names(box)), 51, "names")
    database.execute("BEGIN EXCLUSIVE")
    os.utime(index(box))
    for _ in throughout(12, 0.2):
        found = []
        number = error_of(lambda found=found: found.extend(names(box, "folder")))
        expect(number != 0 or len(found) == 50, f"{len(found)} names without an error")
        expect_equal(len(names(box)), 51, "names while it is locked")
    database.execute("DELETE FROM items WHERE name='7.txt'")
    database.execute("COMMIT")
    database.close()
    eventually(lambda: len(names(box)) == 50, "what is really gone goes")


def rows(box, *statements):
    database = sqlite3.connect(index(box))
    with database:
        result = [database.execute(sql, values).fetchall() for sql, values in statements]
    database.close()
    return result


@case
def a_folder_that_leaves_and_comes_back_is_full_again(box):
    box.write("folder/a.txt", b"a")
    box.write("folder/deep/b.txt", b"b")
    box.start_host()
    mounted(box)
    expect_equal(names(box, "folder"), ["a.txt", "deep"], "names")
    expect_equal(read(box.path("folder/deep/b.txt")), b"b", "contents")
    held = os.open(box.path("folder"), os.O_RDONLY | os.O_DIRECTORY)
    deep = os.open(box.path("folder/deep"), os.O_RDONLY | os.O_DIRECTORY)
    file = os.open(box.path("folder/a.txt"), os.O_RDONLY)
    shell = subprocess.Popen(["sleep", "300"], cwd=box.path("folder"))
    try:
        box.host.stop()
        for _ in range(2):
            folders, files = rows(box, ("SELECT * FROM folders", ()), ("SELECT * FROM items", ()))
            rows(box, ("DELETE FROM folders", ()), ("DELETE FROM items", ()))
            eventually(lambda: names(box) == [], "it is gone")
            time.sleep(0.5)
            rows(box, *[("INSERT INTO folders VALUES(?,?,?)", row) for row in folders],
                 *[("INSERT INTO items VALUES(?,?,?,?,?,?,?)", row) for row in files])
            eventually(lambda: names(box) == ["folder"], "it is back")
            eventually(lambda: error_of(lambda: names(box, "folder")) == 0
                       and names(box, "folder") == ["a.txt", "deep"], "all is in it", 10)
            eventually(lambda: names(box, "folder/deep") == ["b.txt"], "in what is in it, too", 10)
        top = rows(box, ("SELECT ulid FROM folders WHERE parent_ulid IS NULL", ()))[0][0][0]
        rows(box, ("INSERT INTO items VALUES('NEW','new.txt',?,3,1700000000,1,NULL)", (top,)))
        eventually(lambda: names(box, "folder") == ["a.txt", "deep", "new.txt"], "what is new in it")
        expect_equal(box.state_of("folder/deep/b.txt"), "downloaded", "what was here")
    finally:
        shell.kill()
        shell.wait()
        for descriptor in (held, deep, file):
            os.close(descriptor)


@case
def names_with_percent_signs_stay_what_they_are(box):
    box.write("100%.txt", b"one")
    box.write("100%25.txt", b"two")
    box.start_host()
    writable(box, "--no-thumbnails")
    expect_equal(names(box), ["100%.txt", "100%25.txt"], "names")
    made = {"report%2F2024.pdf": b"three", "a%2Eb": b"four", "%2E%2E": b"five", "%~six": b"six"}
    for name, data in made.items():
        put(box.path(name), data)
    os.mkdir(box.path("folder%2Fin"))
    os.rename(box.path("100%.txt"), box.path("100%00.txt"))
    flush(box)
    wanted = dict(made, **{"100%00.txt": b"one", "100%25.txt": b"two", "folder%2Fin": None})
    expect_equal(host_tree(box), wanted, "what the host has")
    box.write("later.txt", b"")
    eventually(lambda: "later.txt" in names(box), "a later listing")
    for name, data in wanted.items():
        if data is not None:
            expect_equal(read(box.path(name)), data, f"contents of {name}")
    expect_equal(names(box), sorted([*wanted, "later.txt"]), "names at last")


@case
def changes_survive_an_account_that_is_set_up_again(box):
    """The same files under other identifiers, as after the host's database was deleted."""
    for name in ("edited.txt", "renamed.txt", "deleted.txt", "same.txt", "folder/edited.txt",
                 "folder/renamed.txt", "folder/deleted.txt", "going/a.txt", "going/b.txt"):
        box.write(name, f"{name} of the host".encode())
    box.start_host()
    mounted(box)
    # What was changed has a later version, and the first one again when the account is set up.
    for name in ("folder/renamed.txt", "folder/deleted.txt"):
        box.write(name, f"{name} of the host".encode())
        eventually(lambda name=name: box.state_of(name, "content-version") == "2", "a later version")
    for folder, _, files in os.walk(box.path()):
        for name in files:
            read(os.path.join(folder, name))
    box.tulo("pin", box.path("same.txt"))
    box.host.stop()
    number = os.stat(box.path("same.txt")).st_ino
    for folder in ("", "folder/"):
        put(box.path(folder + "edited.txt"), b"edited here")
        os.rename(box.path(folder + "renamed.txt"), box.path(folder + "renamed here.txt"))
        os.unlink(box.path(folder + "deleted.txt"))
        put(box.path(folder + "new.txt"), b"new")
    for name in ("a.txt", "b.txt"):
        os.unlink(box.path("going/" + name))
    os.rmdir(box.path("going"))
    remove_index(box)
    box.start_host()
    flush(box, 90)
    host = host_tree(box)
    for folder in ("", "folder/"):
        edited = [data for name, data in host.items()
                  if name.startswith(folder + "edited") and data == b"edited here"]
        expect_equal(len(edited), 1, f"the edit of {folder}edited.txt, in {sorted(host)}")
        expect(folder + "edited.txt" in host, "a file of that name")
        expect_equal(host.get(folder + "renamed here.txt"),
                     f"{folder}renamed.txt of the host".encode(), "what was renamed")
        expect_equal(host.get(folder + "new.txt"), b"new", "what is new")
        for name in ("renamed.txt", "deleted.txt"):
            expect(folder + name not in host, f"{folder}{name} is not there any more")
    expect("going" not in host, f"the folder is deleted: {sorted(host)}")
    eventually(lambda: {name for name in host if "/" not in name} == set(names(box)),
               "the same names on both sides")
    expect_equal(os.stat(box.path("same.txt")).st_ino, number, "number of what was not changed")
    expect_equal(box.state_of("same.txt", "pinned"), "1", "pinned still")


class ComingAndGoing:
    """Takes the index away again and again, each time for a moment."""

    def __init__(self, box, seed):
        self.path = index(box)
        self.chance = random.Random(seed)
        self.stopping = threading.Event()
        self.thread = threading.Thread(target=self.run)

    def run(self):
        while not self.stopping.is_set():
            time.sleep(self.chance.uniform(0.01, 0.15))
            os.rename(self.path, self.path + ".away")
            time.sleep(self.chance.uniform(0.005, 0.3))
            os.rename(self.path + ".away", self.path)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.stopping.set()
        self.thread.join()


def change_something(box, wanted, chance, number):
    """One change of a program, in the mount and in what is wanted of it."""
    kind = chance.choice(("make", "make", "edit", "rename", "move", "delete"))
    folder = chance.choice(("", "folder/", "folder/deep/"))
    name = chance.choice([name for name, data in wanted.items() if data is not None])
    fresh = f"{folder}{kind} {number}.txt"
    if kind == "make":
        wanted[fresh] = f"made {number}".encode()
        put(box.path(fresh), wanted[fresh])
    elif kind == "edit":
        wanted[name] = f"edited {number} ".encode() * chance.randint(1, 20)
        put(box.path(name), wanted[name])
    elif kind == "delete":
        os.unlink(box.path(name))
        del wanted[name]
    else:
        os.rename(box.path(name), box.path(fresh))
        wanted[fresh] = wanted.pop(name)


@case
def changes_while_the_index_comes_and_goes(box):
    wanted = {f"{folder}{number}.txt": f"{folder}{number}".encode()
              for folder in ("", "folder/", "folder/deep/") for number in range(10)}
    for name, data in wanted.items():
        box.write(name, data)
    wanted.update({"folder": None, "folder/deep": None})
    box.start_host()
    mounted(box)
    eventually(lambda: tree(box.path()) == wanted, "all is here")
    chance = random.Random(11)
    with ComingAndGoing(box, 12):
        for number in range(150):
            change_something(box, wanted, chance, number)
            if number % 5 == 0:
                known = sorted(name for name in wanted if "/" not in name)
                expect_equal(names(box), known, "names meanwhile")
            time.sleep(chance.uniform(0, 0.1))
    flush(box, 90)
    expect(not difference(host_tree(box), wanted),
           f"the host has {difference(host_tree(box), wanted)}")
    eventually(lambda: not difference(tree(box.path()), wanted), "the mount shows the same")


@case
def a_changed_tree_survives_an_account_that_is_set_up_again(box):
    for name in ("renamed/edited.txt", "renamed/same.txt", "from/moved.txt", "from/deep/same.txt",
                 "going/deep/a.txt", "going/b.txt", "saved.txt"):
        box.write(name, f"{name} of the host".encode())
    box.start_host()
    mounted(box)
    wanted = tree(box.path())
    box.host.kill()
    os.rename(box.path("renamed"), box.path("other name"))
    put(box.path("other name/edited.txt"), b"edited here")
    os.mkdir(box.path("to"))
    put(box.path("to/new.txt"), b"new")
    os.rename(box.path("from/moved.txt"), box.path("to/moved.txt"))
    shutil.rmtree(box.path("going"))
    put(box.path("saved.txt.part"), b"saved here")
    os.rename(box.path("saved.txt.part"), box.path("saved.txt"))
    box.remount("--no-thumbnails").allowed_errors.append(".*")
    remove_index(box)
    box.start_host()
    flush(box, 90)
    host = host_tree(box)
    expect("renamed" not in host and "going" not in host, f"renamed and deleted: {sorted(host)}")
    expect_equal(host.get("other name/same.txt"), wanted["renamed/same.txt"], "in what was renamed")
    expect_equal(host.get("to/moved.txt"), wanted["from/moved.txt"], "what was moved")
    expect("from/moved.txt" not in host, "it is not there any more")
    expect_equal(host.get("to/new.txt"), b"new", "what is new")
    expect_equal(host.get("from/deep/same.txt"), wanted["from/deep/same.txt"], "what nobody changed")
    for data in (b"edited here", b"saved here"):
        expect_equal(list(host.values()).count(data), 1, f"files with {data!r} in {sorted(host)}")
    eventually(lambda: not difference(tree(box.path()), host), "both sides show the same")

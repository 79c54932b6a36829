"""Programs of every day at work in the mount: afterwards the host has what they made, and once."""

import contextlib
import os
import shutil
import sqlite3
import subprocess

from harness import case, expect, expect_equal, need_program, read
from writing import difference, host_tree, settled, tree, writable


def put(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data)


def started(box):
    box.start_host()
    return writable(box, "--no-thumbnails")


def run(box, *command, folder=None, **more):
    need_program(command[0])
    done = subprocess.run(command, cwd=folder or box.path(), capture_output=True, check=False,
                          env=dict(box.environment, **more), timeout=100)
    expect_equal(done.returncode, 0,
                 f"{' '.join(command)}: {done.stdout.decode()}{done.stderr.decode()}")
    return done.stdout.decode()


def expect_same(box, what="the host"):
    """What a program made is at the host, under the same names, and nothing else is."""
    settled(box)
    wrong = difference(host_tree(box), tree(box.path()))
    expect(not wrong, f"{what} differs from the mount: {wrong[:10]}")


def expect_as_on_a_disk(box, folder, wanted):
    wrong = difference(tree(box.path(folder)), wanted)
    expect(not wrong, f"{folder} is not what an ordinary folder has: {wrong[:10]}")


def sample(root):
    """A small project with what archive and copy programs have to see to."""
    for i in range(40):
        put(os.path.join(root, f"src/part{i % 4}/file{i}.c"), b"int f%d(void);\n" % i * (i * 9))
    put(os.path.join(root, "empty"), b"")
    put(os.path.join(root, "run.sh"), b"#!/bin/sh\nexit 0\n")
    os.chmod(os.path.join(root, "run.sh"), 0o755)
    os.mkdir(os.path.join(root, "nothing in it"))
    for folder, folders, names in os.walk(root, topdown=False):
        for name in names + folders:
            os.utime(os.path.join(folder, name), (1_500_000_000, 1_500_000_000.25))
    return tree(root)


def facts(root):
    """Mode and time of each file and folder."""
    result = {}
    for folder, folders, names in os.walk(root):
        for name in names + folders:
            path = os.path.join(folder, name)
            status = os.stat(path)
            result[os.path.relpath(path, root)] = (status.st_mode, int(status.st_mtime))
    return result


@case
def git_from_clone_to_garbage_collection(box):
    started(box)
    origin = box.file("origin")
    os.mkdir(origin)
    wanted = sample(origin)
    settings = {"GIT_CONFIG_NOSYSTEM": "1", "GIT_AUTHOR_NAME": "A", "GIT_COMMITTER_NAME": "A",
                "GIT_AUTHOR_EMAIL": "a@example.org", "GIT_COMMITTER_EMAIL": "a@example.org"}

    def git(*arguments, folder=None):
        return run(box, "git", *arguments, folder=folder or box.path("copy"), **settings)

    git("init", "-q", "-b", "main", folder=origin)
    git("add", "-A", folder=origin)
    git("commit", "-q", "-m", "first", folder=origin)
    git("clone", "-q", origin, box.path("copy"), folder=box.path())
    wanted.pop("nothing in it")
    expect_as_on_a_disk(box, "copy/src", {name[4:]: data for name, data in wanted.items()
                                          if name.startswith("src/")})
    expect_equal(git("status", "--porcelain"), "", "status of the clone")
    git("checkout", "-q", "-b", "other")
    put(box.path("copy/src/part1/file1.c"), b"int changed(void);\n")
    os.unlink(box.path("copy/src/part2/file2.c"))
    put(box.path("copy/new/deep/file.c"), b"int added(void);\n")
    expect_equal(sorted(git("status", "--porcelain").splitlines()),
                 sorted([" M src/part1/file1.c", " D src/part2/file2.c", "?? new/"]), "status")
    git("add", "-A")
    git("commit", "-q", "-m", "second")
    expect_same(box)
    git("checkout", "-q", "main")
    expect(not os.path.exists(box.path("copy/new")), "the other branch's folder is gone")
    expect_equal(read(box.path("copy/src/part2/file2.c")), wanted["src/part2/file2.c"], "main")
    git("checkout", "-q", "other")
    git("rebase", "-q", "main")
    git("gc", "-q", "--prune=now")
    git("fsck", "--strict")
    expect_equal(git("status", "--porcelain"), "", "status in the end")
    expect_same(box)
    git("fsck", "--strict", folder=os.path.join(box.root, "copy"))


@case
def tar_keeps_contents_modes_and_times(box):
    started(box)
    ordinary = box.file("ordinary")
    os.mkdir(ordinary)
    wanted = sample(ordinary)
    archive = box.file("archive.tar.gz")
    run(box, "tar", "czf", archive, "-C", ordinary, ".")
    os.mkdir(box.path("out"))
    run(box, "tar", "xpzf", archive, "-C", box.path("out"))
    expect_as_on_a_disk(box, "out", wanted)
    expect_equal(facts(box.path("out")), facts(ordinary), "modes and times")
    run(box, "tar", "cf", box.path("again.tar"), "-C", box.path("out"), ".")
    run(box, "tar", "df", box.path("again.tar"), "-C", ordinary)
    expect_same(box)
    expect_equal(facts(box.path("out")), facts(ordinary), "modes and times after the upload")
    box.remount("--no-thumbnails")
    expect_equal(facts(box.path("out")), facts(ordinary), "modes and times after a restart")


@case
def copies_and_moves_of_whole_folders(box):
    started(box)
    ordinary = box.file("ordinary")
    os.mkdir(ordinary)
    wanted = sample(ordinary)
    run(box, "cp", "-a", ordinary, box.path("in"))
    expect_as_on_a_disk(box, "in", wanted)
    expect_equal(facts(box.path("in")), facts(ordinary), "modes and times of the copy")
    run(box, "cp", "-a", "in", "twice")
    expect_as_on_a_disk(box, "twice", wanted)
    expect_equal(facts(box.path("twice")), facts(ordinary), "of the copy within the mount")
    expect_same(box)
    identifier = box.state_of("in/src/part1/file1.c", "identifier")
    os.mkdir(box.path("deep"))
    run(box, "mv", "in", "deep/moved")
    run(box, "mv", "twice/src", "twice/empty", "deep")
    run(box, "mv", "-T", "deep/moved", "again")
    expect_as_on_a_disk(box, "again", wanted)
    expect_same(box)
    expect_equal(box.state_of("again/src/part1/file1.c", "identifier"), identifier, "identifier")
    creates = box.host.requests("create")
    run(box, "mv", "again", "in")
    expect_same(box)
    expect_equal(box.host.requests("create"), creates, "a move makes nothing anew")
    # Out of the mount, where it is a copy and a removal.
    shutil.rmtree(ordinary)
    run(box, "mv", "in", ordinary)
    wrong = difference(tree(ordinary), wanted)
    expect(not wrong, f"moved out: {wrong[:10]}")
    expect_same(box)


@case
def rsync_finds_nothing_to_do_the_second_time(box):
    need_program("rsync")
    started(box)
    ordinary = box.file("ordinary")
    os.mkdir(ordinary)
    wanted = sample(ordinary)
    copy = ("rsync", "-a", "--no-owner", "--no-group", "--itemize-changes", "--delete")
    run(box, *copy, f"{ordinary}/", box.path("out"))
    expect_as_on_a_disk(box, "out", wanted)
    expect_same(box)
    expect_equal(run(box, *copy, f"{ordinary}/", box.path("out")), "", "the second run")
    os.unlink(os.path.join(ordinary, "empty"))
    put(os.path.join(ordinary, "run.sh"), b"#!/bin/sh\nexit 1\n")
    identifier = box.state_of("out/run.sh", "identifier")
    run(box, *copy, f"{ordinary}/", box.path("out"))
    expect_as_on_a_disk(box, "out", tree(ordinary))
    expect_same(box)
    expect_equal(box.state_of("out/run.sh", "identifier"), identifier, "identifier")


@case
def sed_edits_files_in_place(box):
    for i in range(5):
        box.write(f"doc{i}.txt", b"an old word\n" * 500)
    started(box)
    names = [f"doc{i}.txt" for i in range(5)]
    identifiers = [box.state_of(name, "identifier") for name in names]
    for word in ("new", "newer"):
        before = "old" if word == "new" else "new"
        run(box, "sed", "-i", f"s/{before} /{word} /", *names)
        expect_same(box)
        for name, identifier in zip(names, identifiers):
            expect_equal(read(box.path(name)), f"an {word} word\n".encode() * 500, name)
            expect_equal(box.state_of(name, "identifier"), identifier, f"identifier of {name}")
    expect_equal((box.host.requests("create"), box.host.requests("delete")), (0, 0),
                 "creates and deletes")


def rows(path):
    with contextlib.closing(sqlite3.connect(path)) as database:
        return database.execute("SELECT count(*),sum(n) FROM t").fetchone()


@contextlib.contextmanager
def opened(path, mode):
    with contextlib.closing(sqlite3.connect(path)) as database:
        found = database.execute(f"PRAGMA journal_mode={mode}").fetchone()[0]
        expect_equal(found, mode, "the journal's mode")
        yield database


def a_database(box, mode):
    """Written by transactions, with its journal beside it, while another program reads it."""
    started(box)
    path = box.path("data.db")
    with opened(path, mode) as database:
        database.execute("CREATE TABLE t (n INTEGER PRIMARY KEY, filling BLOB)")
        for n in range(30):
            with database:
                database.execute("INSERT INTO t VALUES (?,?)", (n, bytes(3000)))
            if n % 10 == 5:
                expect_equal(rows(path)[0], n + 1, "rows that another program sees")
    expect_same(box)
    identifier = box.state_of("data.db", "identifier")
    with opened(path, mode) as database:
        with contextlib.suppress(InterruptedError), database:
            database.execute("DELETE FROM t WHERE n<20")
            raise InterruptedError
        expect_equal(rows(path), (30, sum(range(30))), "rows after a change taken back")
        with database:
            database.execute("DELETE FROM t WHERE n>=10")
        database.execute("VACUUM")
        expect_equal(database.execute("PRAGMA integrity_check").fetchone()[0], "ok", "integrity")
    expect_same(box)
    expect_equal(rows(os.path.join(box.root, "data.db")), (10, 45), "rows at the host")
    expect_equal(box.state_of("data.db", "identifier"), identifier, "identifier")
    journal = ["data.db-journal"] if mode == "truncate" else []
    expect_equal(sorted(os.listdir(box.path())), ["data.db", *journal], "names")


@case
def a_database_with_a_journal_that_is_deleted(box):
    a_database(box, "delete")


@case
def a_database_with_a_journal_that_is_truncated(box):
    a_database(box, "truncate")


@case
def a_database_with_a_write_ahead_log(box):
    a_database(box, "wal")


def edited_with_vim(box, *settings):
    need_program("vim")
    box.write("doc.txt", b"old contents\n")
    started(box)
    identifier = box.state_of("doc.txt", "identifier")
    for before, after in (("old", "new"), ("new", "newest")):
        run(box, "vim", "-u", "NONE", "-N", "-es", "-c", " ".join(["set", "backupskip=", *settings]),
            "-c", f"%s/{before}/{after}/", "-c", "wq", "doc.txt")
        expect_same(box)
        expect_equal(read(os.path.join(box.root, "doc.txt")), f"{after} contents\n".encode(), "file")
        expect_equal(box.state_of("doc.txt", "identifier"), identifier, "identifier")
    expect_equal(box.host.requests("create"), 0, "creates")
    expect_equal(os.listdir(box.path()), ["doc.txt"], "names")


@case
def vim_with_a_renamed_backup(box):
    edited_with_vim(box, "backupcopy=no")


@case
def vim_with_a_copied_backup(box):
    edited_with_vim(box, "backupcopy=yes")


@case
def vim_with_its_own_settings(box):
    edited_with_vim(box)

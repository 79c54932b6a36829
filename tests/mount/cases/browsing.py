"""Looking around: listings, metadata, many files, extended attributes."""

import errno
import os
import stat
import subprocess

from harness import case, error_of, eventually, expect, expect_equal, read


def tree(root):
    """Relative path and size of all files, and all folders with None."""
    result = {}
    for folder, folders, files in os.walk(root):
        for name in folders:
            result[os.path.relpath(os.path.join(folder, name), root)] = None
        for name in files:
            path = os.path.join(folder, name)
            result[os.path.relpath(path, root)] = os.stat(path).st_size
    return result


@case
def listing(box):
    box.write("letter.txt", b"dear all")
    box.write("photos/sea.jpg", b"x" * 5000)
    box.write("photos/2024/hill.jpg", b"y" * 70000)
    os.makedirs(os.path.join(box.root, "empty"))
    box.start_host()
    box.mount()
    expect_equal(tree(box.path()), tree(box.root), "the tree")
    names = os.listdir(box.path("photos"))
    expect_equal(sorted(names), ["2024", "sea.jpg"], "the names, without repetition")


@case
def find_agrees_with_stat(box):
    for i in range(200):
        box.write(f"f{i % 20}/n{i}.bin", b"z" * i)
    box.start_host()
    box.mount()
    output = subprocess.run(
        ["find", box.path(), "-type", "f", "-printf", "%P %s %i\n"],
        capture_output=True,
        check=True,
    ).stdout.decode()
    found = {}
    for line in output.splitlines():
        name, size, inode = line.split()
        found[name] = int(size)
        expect_equal(int(inode), os.stat(box.path(name)).st_ino, f"the inode number of {name}")
    expect_equal(found, {f"f{i % 20}/n{i}.bin": i for i in range(200)}, "names and sizes")


@case
def metadata(box):
    path = box.write("report.pdf", b"p" * 12345)
    os.utime(path, (1_600_000_000, 1_600_000_000))
    os.makedirs(os.path.join(box.root, "folder"))
    box.start_host()
    box.mount()
    file = os.stat(box.path("report.pdf"))
    expect(stat.S_ISREG(file.st_mode), "a file is a regular file")
    expect_equal(file.st_size, 12345, "size")
    expect_equal(int(file.st_mtime), 1_600_000_000, "time of modification")
    expect_equal(file.st_uid, os.getuid(), "owner")
    expect(stat.S_ISDIR(os.stat(box.path("folder")).st_mode), "a folder is a directory")
    expect_equal(os.listdir(box.path("folder")), [], "names in the empty folder")
    numbers = {os.stat(box.path(name)).st_ino for name in ("", "report.pdf", "folder")}
    expect_equal(len(numbers), 3, "different inode numbers")
    room = os.statvfs(box.path())
    expect(room.f_blocks > 0 and room.f_namemax == 255, "the file system tells its size")


@case
def a_file_that_is_not_here_takes_no_room(box):
    box.write("film.mp4", b"m" * 1_000_000)
    box.start_host()
    box.mount()
    before = os.stat(box.path("film.mp4"))
    expect_equal(before.st_size, 1_000_000, "size before the download")
    expect_equal(before.st_blocks, 0, "blocks before the download")
    expect_equal(box.fetches(), 0, "fetches by looking")
    read(box.path("film.mp4"))
    after = eventually(
        lambda: (s := os.stat(box.path("film.mp4"))).st_blocks and s, "blocks after the download"
    )
    expect_equal(after.st_size, 1_000_000, "size after the download")
    expect(after.st_blocks * 512 >= 1_000_000, "blocks for all bytes")
    expect_equal(after.st_ino, before.st_ino, "inode number")


@case
def missing_names(box):
    box.write("here.txt", b"1")
    box.start_host()
    box.mount()
    expect(not os.path.exists(box.path("gone.txt")), "a missing name is missing")
    expect(not os.path.exists(box.path("here.txt/below")), "nothing is below a file")
    box.write("gone.txt", b"now here")
    eventually(lambda: os.path.exists(box.path("gone.txt")), "a name once missing appears")
    expect_equal(read(box.path("gone.txt")), b"now here", "its contents")


@case
def nothing_changes_in_a_read_only_mount(box):
    box.write("a.txt", b"a")
    box.start_host()
    box.mount("--read-only")
    for action in (
        lambda: open(box.path("new.txt"), "wb"),
        lambda: open(box.path("a.txt"), "r+b"),
        lambda: os.mkdir(box.path("new")),
        lambda: os.unlink(box.path("a.txt")),
        lambda: os.rename(box.path("a.txt"), box.path("b.txt")),
    ):
        expect_equal(error_of(action), errno.EROFS, "what a change is answered with")
    expect_equal(read(box.path("a.txt")), b"a", "contents")
    expect_equal(os.listdir(box.root), ["a.txt"], "the host's folder")


@case
def twenty_thousand_files_in_a_folder(box):
    os.makedirs(os.path.join(box.root, "many"))
    wanted = {f"file-{i:05}.txt" for i in range(20_000)}
    for name in wanted:
        with open(os.path.join(box.root, "many", name), "wb"):
            pass
    box.start_host()
    box.mount()
    first = os.listdir(box.path("many"))
    expect_equal(len(first), len(wanted), "number of names")
    expect_equal(set(first), wanted, "the names")
    expect_equal(sorted(os.listdir(box.path("many"))), sorted(wanted), "the names again")
    with os.scandir(box.path("many")) as entries:
        expect(all(entry.is_file() for entry in entries), "all are files")
    expect_equal(box.fetches(), 0, "fetches")


@case
def a_listing_goes_on_where_it_was(box):
    """A directory that is read in pieces shows each name once, whatever comes and goes meanwhile."""
    kept = {f"kept-{i:04}" for i in range(3000)}
    for name in sorted(kept):
        box.write(f"many/{name}", b"")
    box.write("many/leaves", b"")
    box.start_host()
    box.mount()
    seen = []
    with os.scandir(box.path("many")) as entries:
        for entry in entries:
            seen.append(entry.name)
            if len(seen) == 100:
                box.write("many/comes", b"")
                os.unlink(os.path.join(box.root, "many", "leaves"))
                eventually(lambda: os.path.exists(box.path("many/comes")), "the new file")
    expect_equal(len(seen), len(set(seen)), "names seen once")
    expect_equal(set(seen) - {"comes", "leaves"}, kept, "the names that stayed")


@case
def attributes_tell_the_state(box):
    box.write("a.txt", b"text")
    box.start_host()
    box.mount()
    expect_equal(box.state_of("a.txt"), "dataless", "state before")
    expect(box.state_of("a.txt", "identifier").startswith("i:"), "identifier")
    expect_equal(box.state_of("a.txt", "filename"), "a.txt", "the provider's name")
    expect_equal(box.state_of("a.txt", "pinned"), "0", "not pinned")
    names = set(os.listxattr(box.path("a.txt")))
    expect("user.tulo.state" in names and "user.tulo.identifier" in names, f"listed: {names}")
    for name in names:
        os.getxattr(box.path("a.txt"), name)
    read(box.path("a.txt"))
    eventually(lambda: box.state_of("a.txt") == "downloaded", "state after")
    try:
        os.getxattr(box.path("a.txt"), "user.other")
    except OSError:
        return
    raise AssertionError("an attribute that is not there was given")


@case
def no_one_is_asked_for_attributes_of_security(box):
    """`ls -l` asks for access-control lists of each file; they must not be errors."""
    box.write("a.txt", b"text")
    box.start_host()
    box.mount()
    result = subprocess.run(["ls", "-l", box.path()], capture_output=True, check=False)
    expect_equal((result.returncode, result.stderr), (0, b""), "ls -l")
    expect(b"a.txt" in result.stdout, "the file is listed")

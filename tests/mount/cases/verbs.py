"""What the user says about changes, and what is said to the user."""

import errno
import os
import signal
import subprocess
import sys

from harness import case, error_of, eventually, expect, expect_equal, read
from writing import expect_host, settled, status, writable


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)


# A program of its own, so that it can be interrupted while it waits.
WAITER = """
import os, sys
f = os.open(sys.argv[1], os.O_WRONLY | os.O_CREAT)
os.write(f, b"held up")
print("closing", flush=True)
try:
    os.close(f)
except KeyboardInterrupt:
    print("interrupted", flush=True)
except OSError as error:
    print(error.errno, flush=True)
"""


@case
def sync_waits_for_the_host(box):
    box.write("old.txt", b"old")
    box.write("gone.txt", b"gone")
    box.start_host()
    writable(box, "--sync")
    os.listdir(box.path())
    # No waiting between a call and the look at the host: that is what is tested.
    write(box.path("new.txt"), b"new contents")
    expect_equal(read(os.path.join(box.root, "new.txt")), b"new contents", "after closing")
    write(box.path("new.txt"), b"second version")
    expect_equal(read(os.path.join(box.root, "new.txt")), b"second version", "after closing again")
    os.mkdir(box.path("folder"))
    expect(os.path.isdir(os.path.join(box.root, "folder")), "the folder is not at the host")
    os.rename(box.path("old.txt"), box.path("folder/moved.txt"))
    expect_equal(read(os.path.join(box.root, "folder/moved.txt")), b"old", "after renaming")
    os.unlink(box.path("gone.txt"))
    expect(not os.path.exists(os.path.join(box.root, "gone.txt")), "still at the host")
    os.mkdir(box.path("short"))
    os.rmdir(box.path("short"))
    expect(not os.path.exists(os.path.join(box.root, "short")), "the folder is still at the host")
    os.rename(box.path("folder"), box.path("renamed"))
    expect_host(box, {"new.txt": b"second version", "renamed": None, "renamed/moved.txt": b"old"})


@case
def sync_keeps_what_needs_no_host_at_once(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box, "--sync")
    os.listdir(box.path())
    box.host.stop()
    write(box.path(".note.txt.swp"), b"swap")
    os.rename(box.path(".note.txt.swp"), box.path(".note.txt.swo"))
    os.unlink(box.path(".note.txt.swo"))
    os.symlink("note.txt", box.path("link"))
    os.unlink(box.path("link"))
    with open(box.path("empty.txt"), "wb"):
        pass


@case
def sync_says_that_the_host_is_away(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box, "--sync")
    expect_equal(read(box.path("note.txt")), b"note", "before")
    box.host.stop()
    expect_equal(error_of(lambda: write(box.path("note.txt"), b"changed")), errno.EHOSTDOWN,
                 "closing without a host")
    expect_equal(error_of(lambda: os.mkdir(box.path("folder"))), errno.EHOSTDOWN, "making a folder")
    # The verdict is the host's; here, it is done, and shown.
    expect_equal(read(box.path("note.txt")), b"changed", "the change is here")
    eventually(lambda: "folder" in os.listdir(box.path()), "the folder is shown")
    expect(os.path.isdir(box.path("folder")), "the folder is not found by its name")
    expect_equal(error_of(lambda: os.rename(box.path("note.txt"), box.path("other.txt"))),
                 errno.EHOSTDOWN, "renaming")
    eventually(lambda: os.path.exists(box.path("other.txt")), "the new name is shown")
    eventually(lambda: not os.path.exists(box.path("note.txt")), "the old name is gone")
    # Nobody needs to hear of it, unless an attempt was made whose end is not known.
    found = error_of(lambda: os.rmdir(box.path("folder")))
    expect(found in (0, errno.EHOSTDOWN), f"removing the folder again: {found}")
    box.start_host()
    settled(box)
    expect_host(box, {"other.txt": b"changed"})


@case
def sync_returns_the_hosts_verdict(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box, "--sync")
    expect_equal(read(box.path("note.txt")), b"note", "before")
    box.allow_errors("Extension: write failed")
    verdicts = {"quota": errno.EDQUOT, "unauthorized": errno.EKEYREJECTED, "other": errno.EIO}
    for reply, number in verdicts.items():
        box.restart_host("--fault", f"modify={reply}")
        found = error_of(lambda: write(box.path("note.txt"), reply.encode()))
        expect_equal(found, number, f"closing when the host says {reply}")
    expect_equal(read(box.path("note.txt")), b"other", "the change stays here")
    box.restart_host()
    settled(box)
    expect_host(box, {"note.txt": b"other"})


@case
def sync_gives_up_after_its_time(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box, "--sync", "--sync-timeout", "0.5")
    expect_equal(read(box.path("note.txt")), b"note", "before")
    box.restart_host("--fault", "any=silent")
    found = error_of(lambda: write(box.path("note.txt"), b"changed"))
    expect_equal(found, errno.ETIMEDOUT, "closing when the host never answers")
    expect_equal(read(box.path("note.txt")), b"changed", "the change stays here")


@case
def sync_lets_a_waiting_program_be_interrupted(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box, "--sync")
    os.listdir(box.path())
    box.restart_host("--fault", "any=silent")
    program = subprocess.Popen(
        [sys.executable, "-c", WAITER, box.path("new.txt")], stdout=subprocess.PIPE
    )
    expect_equal(program.stdout.readline(), b"closing\n", "the program")
    eventually(lambda: box.host.requests("create") > 0, "the host is asked")
    # Everything else goes on meanwhile.
    expect("note.txt" in os.listdir(box.path()), "the folder is listed meanwhile")
    program.send_signal(signal.SIGINT)
    expect_equal(program.wait(10), 0, "exit status of the interrupted program")
    told = program.stdout.read()
    program.stdout.close()
    expect(told in (b"interrupted\n", b"4\n"), f"the program says {told!r}")

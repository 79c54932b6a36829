"""What the user says about changes, and what is said to the user."""

import errno
import json
import os
import signal
import subprocess
import sys

from harness import case, error_of, eventually, expect, expect_equal, read
from writing import difference, expect_host, settled, status, tree, writable


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


def text(result):
    return (result.stdout + result.stderr).decode()


def flush(box, *arguments, path=None, status_wanted=0):
    result = box.tulo("flush", *arguments, path or box.path(), check=False)
    expect_equal(result.returncode, status_wanted, f"tulo flush: {text(result)}")
    return text(result)


def waiting(box, count):
    eventually(lambda: status(box)["pending"] == count, f"{count} changes wait")


@case
def flush_waits_for_everything(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box)
    expect("everything is at the host" in flush(box, "--wait"), "nothing to do")
    write(box.path("note.txt"), b"changed")
    os.mkdir(box.path("folder"))
    for number in range(20):
        write(box.path(f"folder/{number}"), b"%d" % number)
    expect("everything is at the host" in flush(box, "--wait"), "all sent")
    wanted = {f"folder/{number}": b"%d" % number for number in range(20)}
    found = tree(box.root)
    expect(not difference(found, {"note.txt": b"changed", "folder": None, **wanted}), f"{found}")


@case
def flush_says_what_is_left(box):
    box.write("note.txt", b"note")
    box.write("folder/inside.txt", b"inside")
    box.start_host()
    writable(box)
    expect_equal(read(box.path("note.txt")), b"note", "before")
    expect_equal(read(box.path("folder/inside.txt")), b"inside", "before")
    box.host.stop()
    write(box.path("note.txt"), b"changed")
    waiting(box, 1)
    told = flush(box)
    expect("1 change on the way" in told, told)
    told = flush(box, "--wait", "--timeout", "0.3", status_wanted=1)
    expect("1 change left" in told and "note.txt: " in told, told)
    # Only what is under the path counts.
    told = flush(box, "--wait", path=box.path("folder"))
    expect("everything" in told, told)
    os.unlink(box.path("folder/inside.txt"))
    told = flush(box, "--wait", "--timeout", "0.3", path=box.path("folder"), status_wanted=1)
    expect("folder/inside.txt: " in told and "note.txt" not in told, told)
    box.start_host()
    flush(box, "--wait")
    expect_host(box, {"note.txt": b"changed", "folder": None})


def refuse(box, operation, change, times=1):
    """Has the host refuse what `change` does, for good."""
    box.restart_host("--fault", f"{operation}=invalid_name:{times}")
    box.allow_errors("Extension: .* failed", "is refused by the host")
    change()
    told = flush(box, "--wait", status_wanted=3)
    expect("needs attention" in told, told)
    return told


@case
def refused_changes_are_told_and_tried_again(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box)
    os.listdir(box.path())
    refuse(box, "create", lambda: write(box.path("it's new.txt"), b"new"))
    told = text(box.tulo("status", box.path()))
    expect("1 change needs you" in told, told)
    expect("refused   it's new.txt" in told and "does not allow this name" in told, told)
    # As a shell takes it.
    word = box.path("it'\\''s new.txt")
    expect(f"tulo retry '{word}'" in told and f"tulo discard '{word}'" in told, told)
    now = box.status()
    expect_equal((now["pending"], now["needsAttention"]), (0, 1), "the counts")
    (change,) = now["changes"]
    expect_equal((change["path"], change["state"], change["kind"], change["size"]),
                 ("it's new.txt", "needs attention", "new", 3), "the change")
    expect("does not allow" in box.state_of("it's new.txt", "error"), "user.tulo.error")
    expect_equal(box.state_of("it's new.txt", "pending"), "new", "user.tulo.pending")
    expect_equal(read(box.path("it's new.txt")), b"new", "the contents stay")
    expect("trying 1 change again" in text(box.tulo("retry", box.path("it's new.txt"))), "retry")
    flush(box, "--wait")
    expect_host(box, {"note.txt": b"note", "it's new.txt": b"new"})
    expect("user.tulo.error" not in os.listxattr(box.path("it's new.txt")), "the error is gone")
    expect("user.tulo.pending" not in os.listxattr(box.path("it's new.txt")), "nothing is pending")
    expect("nothing to try" in text(box.tulo("retry")), "retry of nothing")


@case
def retry_without_a_path_is_about_everything(box):
    box.write("gone.txt", b"gone")
    box.start_host()
    writable(box)
    os.listdir(box.path())
    refuse(box, "any", lambda: os.unlink(box.path("gone.txt")), times=2)
    write(box.path("new.txt"), b"new")
    flush(box, "--wait", status_wanted=3)
    expect("trying 2 changes again" in text(box.tulo("retry")), "retry")
    flush(box, "--wait")
    expect_host(box, {"new.txt": b"new"})


@case
def discard_asks_and_shows_the_hosts_state(box):
    box.write("note.txt", b"note")
    box.write("gone.txt", b"gone")
    box.write("folder/deep/inside.txt", b"inside")
    box.start_host()
    writable(box)
    expect_equal(read(box.path("note.txt")), b"note", "before")
    os.listdir(box.path("folder/deep"))
    box.host.stop()
    write(box.path("note.txt"), b"changed here")
    write(box.path("folder/new.txt"), b"only here")
    os.unlink(box.path("gone.txt"))
    os.rename(box.path("folder"), box.path("moved"))
    told = box.tulo("discard", box.path("note.txt"), check=False)
    expect_equal(told.returncode, 1, "discard without a terminal")
    expect("note.txt: changed here (12 B); these contents will be LOST" in text(told), text(told))
    expect("--yes" in text(told), text(told))
    expect_equal(read(box.path("note.txt")), b"changed here", "after the refusal")
    paths = [box.path(name) for name in ("note.txt", "gone.txt", "moved")]
    told = text(box.tulo("discard", "--yes", *paths))
    expect("gone.txt: deleted here; comes back" in told, told)
    expect("moved/new.txt: a new file that is only here" in told, told)
    expect("moved: renamed or moved here; goes back to folder" in told, told)
    expect_equal(status(box)["pending"], 0, "changes that wait")
    box.start_host()
    wanted = {"note.txt": b"note", "gone.txt": b"gone", "folder": None, "folder/deep": None,
              "folder/deep/inside.txt": b"inside"}
    eventually(lambda: not difference(tree(box.path()), wanted), "the mount shows the host's state")
    expect_host(box, wanted)
    expect("nothing to discard" in text(box.tulo("discard", box.path("note.txt"))), "discard twice")


@case
def discard_of_a_folder_says_what_it_holds(box):
    box.start_host()
    writable(box)
    box.host.stop()
    os.makedirs(box.path("new/below"))
    write(box.path("new/a.txt"), b"only here")
    write(box.path("new/below/b.txt~"), b"a backup")
    os.symlink("a.txt", box.path("new/link"))
    told = text(box.tulo("discard", box.path("new"), check=False))
    expect("new: a new folder; cannot go: it holds link, below/b.txt~, which only this machine has"
           in told, told)
    told = box.tulo("discard", "--yes", box.path("new"), check=False)
    expect_equal(told.returncode, 1, "discard of a folder that holds something")
    expect("new: something is in it that the host does not have" in text(told), text(told))
    expect_equal(sorted(os.listdir(box.path("new"))), ["below", "link"], "what is left")
    expect_equal(read(box.path("new/below/b.txt~")), b"a backup", "what only this machine has")
    os.unlink(box.path("new/below/b.txt~"))
    os.unlink(box.path("new/link"))
    expect("new: a new folder; will be gone"
           in text(box.tulo("discard", "--yes", box.path("new"))), "discard of the empty folder")
    expect_equal(os.listdir(box.path()), [], "names")


@case
def discard_leaves_alone_what_a_program_writes(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box)
    with open(box.path("note.txt"), "r+b") as file:
        file.write(b"more")
        file.flush()
        told = box.tulo("discard", "--yes", box.path("note.txt"), check=False)
        expect_equal(told.returncode, 1, text(told))
        expect("in use" in text(told), text(told))
        told = flush(box, "--wait", "--timeout", "0.3", status_wanted=1)
        expect("note.txt: being written" in told, told)
    flush(box, "--wait")
    expect_host(box, {"note.txt": b"more"})


@case
def discard_takes_a_yes_on_a_terminal(box):
    box.start_host()
    writable(box)
    box.host.stop()
    write(box.path("new.txt"), b"new")
    for answer, stays in ((b"n\n", True), (b"y\n", False)):
        ours, its = os.openpty()
        with subprocess.Popen([box.program, "discard", box.path("new.txt")], stdin=its,
                              stdout=subprocess.PIPE, env=box.environment) as program:
            os.close(its)
            os.write(ours, answer)
            told = program.stdout.read().decode()
        os.close(ours)
        expect("Discard 1 change? [y/N]" in told, told)
        expect_equal(os.path.exists(box.path("new.txt")), stays, f"after {answer!r}")


@case
def unmounting_tells_what_was_not_sent(box):
    box.write("note.txt", b"note")
    box.start_host()
    mount = writable(box)
    expect_equal(read(box.path("note.txt")), b"note", "before")
    box.host.stop()
    write(box.path("note.txt"), b"changed")
    write(box.path("new.txt"), b"new")
    waiting(box, 2)
    told = text(box.tulo("unmount", box.path()))
    expect("2 changes not sent yet" in told and "after the next mount" in told, told)
    expect_equal(mount.wait(), 0, "exit status of the service")
    expect("2 changes that were not sent" in mount.log(), "the service's log")
    box.mounts.clear()
    again = writable(box)
    expect_equal(read(box.path("new.txt")), b"new", "after the next mount")
    box.start_host()
    flush(box, "--wait")
    expect_host(box, {"note.txt": b"changed", "new.txt": b"new"})
    told = text(box.tulo("unmount", box.path()))
    expect_equal(told, "", "what unmounting says when all is sent")
    again.wait()


@case
def attributes_tell_the_state_of_a_change(box):
    box.write("note.txt", b"note")
    box.write("gone/inside.txt", b"inside")
    box.start_host()
    writable(box)
    expect_equal(read(box.path("note.txt")), b"note", "before")
    expect_equal(box.state_of("note.txt"), "downloaded", "before")
    box.host.stop()
    write(box.path("note.txt"), b"changed")
    os.mkdir(box.path("folder"))
    os.rename(box.path("gone"), box.path("moved"))
    write(box.path("note.txt~"), b"backup")
    os.symlink("note.txt", box.path("link"))
    found = {name: box.state_of(name, "pending") for name in ("note.txt", "folder", "moved")}
    expect_equal(found, {"note.txt": "contents", "folder": "new", "moved": "name"}, "pending")
    expect_equal(box.state_of("note.txt"), "modified", "user.tulo.state")
    expect_equal(box.state_of("note.txt~"), "local", "user.tulo.state of a temporary file")
    expect_equal(box.state_of("note.txt~", "local"), "1", "user.tulo.local of a temporary file")
    expect("user.tulo.pending" not in os.listxattr(box.path("note.txt~")), "nothing is pending")
    expect("user.tulo.local" not in os.listxattr(box.path("note.txt")), "the note is not local")
    now = box.status()
    expect_equal((now["localItems"], sorted(now["local"])), (2, ["link", "note.txt~"]), "local")
    told = text(box.tulo("status", box.path()))
    expect("3 changes to be sent; 2 items stay here" in told, told)
    expect("host      not running" in told, told)


@case
def sync_in_a_folder_that_waits_itself(box):
    box.start_host()
    writable(box, "--sync")
    os.listdir(box.path())
    # Its socket stays, as nobody's.
    box.host.kill()
    expect_equal(error_of(lambda: os.mkdir(box.path("folder"))), errno.EHOSTDOWN, "the folder")
    eventually(lambda: os.path.isdir(box.path("folder")), "the folder is shown")
    found = error_of(lambda: write(box.path("folder/file.txt"), b"in it"))
    expect_equal(found, errno.EHOSTDOWN, "a file in it")
    box.start_host()
    settled(box)
    expect_host(box, {"folder": None, "folder/file.txt": b"in it"})


@case
def sync_ends_with_the_service(box):
    box.write("note.txt", b"note")
    box.start_host()
    mount = writable(box, "--sync")
    os.listdir(box.path())
    box.restart_host("--fault", "any=silent")
    with subprocess.Popen(
        [sys.executable, "-c", WAITER, box.path("new.txt")], stdout=subprocess.PIPE
    ) as program:
        expect_equal(program.stdout.readline(), b"closing\n", "the program")
        eventually(lambda: box.host.requests("create") > 0, "the host is asked")
        mount.unmount()
        told = int(program.stdout.read())
    expect(told != 0, "closing fails when the service ends")
    box.mounts.clear()
    box.restart_host()
    writable(box)
    expect_equal(read(box.path("new.txt")), b"held up", "the contents stay")
    settled(box)
    expect_host(box, {"note.txt": b"note", "new.txt": b"held up"})


@case
def status_says_that_nobody_is_signed_in(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box)
    expect_equal(read(box.path("note.txt")), b"note", "before")
    box.allow_errors("Extension: write failed")
    box.tulo("host", "logout", "--container", box.container)
    write(box.path("note.txt"), b"changed")
    told = flush(box, "--wait", "--timeout", "1", status_wanted=1)
    expect("1 change left; the host says that nobody is signed in" in told, told)
    told = text(box.tulo("status", box.path()))
    expect("running, but nobody is signed in there" in told, told)
    expect("note.txt (7 B): not signed in" in told, told)
    expect(box.status()["paused"], "paused")
    box.tulo("host", "login", "--container", box.container)
    flush(box, "--wait")
    expect_host(box, {"note.txt": b"changed"})
    expect(not box.status()["paused"], "no longer paused")


@case
def status_watches_until_nobody_reads(box):
    box.start_host()
    writable(box)
    box.host.stop()
    with subprocess.Popen([box.program, "status", "--watch", "--json", box.path()],
                          stdout=subprocess.PIPE, env=box.environment) as program:
        expect_equal(json.loads(program.stdout.readline())["pending"], 0, "before")
        write(box.path("new.txt"), b"new")
        eventually(lambda: json.loads(program.stdout.readline())["pending"] == 1, "it is told")
        program.stdout.close()
        expect_equal(program.wait(10), 0, "exit status when nobody reads")


@case
def evicting_leaves_what_was_not_sent(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box)
    expect_equal(read(box.path("note.txt")), b"note", "before")
    box.host.stop()
    write(box.path("note.txt"), b"changed")
    told = box.tulo("evict", box.path("note.txt"), check=False)
    expect_equal(told.returncode, 1, text(told))
    expect("note.txt: open, pinned, or not sent yet" in text(told), text(told))
    expect_equal(read(box.path("note.txt")), b"changed", "after")


# Says so when it was interrupted while it made a folder.
FOLDER_MAKER = """
import os, sys
print("making", flush=True)
try:
    os.mkdir(sys.argv[1])
except (KeyboardInterrupt, InterruptedError):
    print("interrupted", flush=True)
"""


@case
def sync_shows_what_an_interrupted_program_made(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box, "--sync")
    # The kernel remembers that there is no such name.
    expect(not os.path.exists(box.path("folder")), "there is a folder before")
    box.allow_errors("Extension: write failed for : .*no reply")
    box.restart_host("--fault", "create=silent:1")
    with subprocess.Popen(
        [sys.executable, "-c", FOLDER_MAKER, box.path("folder")], stdout=subprocess.PIPE
    ) as program:
        expect_equal(program.stdout.readline(), b"making\n", "the program")
        eventually(lambda: box.host.requests("create") > 0, "the host is asked")
        program.send_signal(signal.SIGINT)
        expect_equal(program.stdout.read(), b"interrupted\n", "the program")
    eventually(lambda: os.path.isdir(box.path("folder")), "the folder is found by its name")
    write(box.path(".folder.swp"), b"local: waits for nobody")
    box.restart_host()
    settled(box)
    expect_host(box, {"note.txt": b"note", "folder": None})


@case
def sync_keeps_the_identity_of_a_saved_file(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box, "--sync")
    expect_equal(read(box.path("note.txt")), b"note", "before")
    identifier = box.state_of("note.txt", "identifier")
    for temporary in (".goutputstream-ABC", "note.txt.new"):
        write(box.path(temporary), temporary.encode())
        os.rename(box.path(temporary), box.path("note.txt"))
        expect_equal(read(os.path.join(box.root, "note.txt")), temporary.encode(), temporary)
        expect_equal(box.state_of("note.txt", "identifier"), identifier, temporary)
    # A backup first, then a new file under the old name.
    os.rename(box.path("note.txt"), box.path("note.txt~"))
    write(box.path("note.txt"), b"third")
    expect_equal(read(os.path.join(box.root, "note.txt")), b"third", "after a backup")
    expect_equal(box.state_of("note.txt", "identifier"), identifier, "after a backup")
    settled(box)
    expect_host(box, {"note.txt": b"third"})


@case
def a_read_only_mount_says_what_it_does_not_send(box):
    box.write("note.txt", b"note")
    box.start_host()
    writable(box)
    expect_equal(read(box.path("note.txt")), b"note", "before")
    box.host.stop()
    write(box.path("note.txt"), b"changed")
    waiting(box, 1)
    box.remount("--read-only")
    expect_equal(read(box.path("note.txt")), b"changed", "what was changed is shown")
    told = flush(box, "--wait", status_wanted=1)
    expect("mounted read-only, so nothing goes up" in told, told)
    told = text(box.tulo("status", box.path()))
    expect("changes   none can be made: mounted read-only; 1 change kept" in told, told)
    box.remount()
    box.start_host()
    flush(box, "--wait")
    expect_host(box, {"note.txt": b"changed"})

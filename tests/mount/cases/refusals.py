"""What the host does not take is shown, kept, and sent when it can be."""

import os
import time

from harness import case, eventually, expect, expect_equal, read
from writing import expect_host, host_tree, settled, status, writable


def put(path, data):
    with open(path, "wb") as file:
        file.write(data)


def error_of(box, name):
    try:
        return box.state_of(name, "error")
    except OSError:
        return ""


def expect_attention(box, name, data, words):
    """The file needs the user's attention, and nothing of it is lost."""
    eventually(lambda: status(box)["needsAttention"] == 1, "it needs attention", 90)
    error = error_of(box, name)
    expect(words in error and "tulo retry" in error, f"user.tulo.error: {error!r}")
    (change,) = status(box)["changes"]
    expect_equal(
        (change["path"], change["state"]), (name, "needs attention"), "the change in the status"
    )
    expect(words in change["error"], f"the status: {change}")
    logged = [line for line in box.mounts[0].log().splitlines() if "refused by the host" in line]
    expect(any(words in line and name in line for line in logged), f"the log: {logged}")
    expect_equal(read(box.path(name)), data, "the bytes")


@case
def a_name_that_the_host_refuses(box):
    box.start_host("--fault", "create=invalid_name")
    writable(box)
    box.allow_errors("refused by the host", "invalid_name")
    put(box.path("bad"), b"bytes")
    expect_attention(box, "bad", b"bytes", "does not allow this name")
    box.remount()
    box.allow_errors("refused by the host", "invalid_name")
    expect_equal(read(box.path("bad")), b"bytes", "after a restart")
    expect_equal(status(box)["needsAttention"], 1, "after a restart")
    before = box.host.requests("create")
    put(box.path("bad"), b"other bytes")
    eventually(lambda: box.host.requests("create") > before, "a change is tried again")
    expect_attention(box, "bad", b"other bytes", "does not allow this name")
    box.restart_host()
    expect_host(box, {"bad": b"other bytes"})
    settled(box)
    expect_equal(error_of(box, "bad"), "", "the error afterwards")
    expect_equal(status(box)["needsAttention"], 0, "afterwards")


@case
def what_cannot_be_synchronised(box):
    box.write("doc", b"old")
    box.start_host("--fault", "modify=io")
    writable(box)
    box.allow_errors("refused by the host", "failed for")
    put(box.path("doc"), b"new")
    expect_attention(box, "doc", b"new", "cannot synchronise")
    put(box.path("other"), b"other")
    expect_host(box, {"doc": b"old", "other": b"other"}, "others are not held up")
    box.restart_host()
    expect_host(box, {"doc": b"new", "other": b"other"})
    settled(box)


@case
def no_room_at_the_host(box):
    box.write("old", b"x" * 600)
    box.start_host("--quota", "1000")
    writable(box)
    box.allow_errors("failed for")
    put(box.path("big"), b"y" * 800)
    eventually(lambda: "no room" in error_of(box, "big"), "the error is shown")
    expect("when there is room" in error_of(box, "big"), error_of(box, "big"))
    expect_equal(status(box)["needsAttention"], 0, "nothing to be done here")
    put(box.path("small"), b"z" * 10)
    eventually(lambda: "small" in host_tree(box), "what fits goes up")
    os.unlink(box.path("old"))
    expect_host(box, {"big": b"y" * 800, "small": b"z" * 10})
    settled(box)
    expect_equal(error_of(box, "big"), "", "the error afterwards")


@case
def signed_out(box):
    box.start_host()
    writable(box)
    box.allow_errors("failed for")
    command = ["--container", box.container]
    box.tulo("host", "logout", *command)
    for i in range(20):
        put(box.path(f"f{i}"), b"data")
    eventually(lambda: status(box)["paused"], "the queue pauses")
    expect_equal(read(box.path("f0")), b"data", "here")
    asked = box.host.requests("create")
    expect(asked <= 10, f"a pause, and not {asked} requests for 20 files")
    box.tulo("host", "login", *command)
    expect_host(box, {f"f{i}": b"data" for i in range(20)})
    settled(box)
    expect(not status(box)["paused"], "still paused")


@case
def a_host_that_is_away(box):
    box.start_host()
    writable(box)
    os.listdir(box.path())
    box.host.kill()
    for i in range(20):
        put(box.path(f"f{i}"), b"data")
    # The dead host's socket is still there: it is tried, but not for every file.
    eventually(lambda: not status(box)["hostReachable"], "it is noticed")
    begin = time.monotonic()
    before = status(box)["failedUploads"]
    eventually(lambda: time.monotonic() - begin > 1.5, "a moment")
    failures = status(box)["failedUploads"] - before
    expect(failures < 20, f"{failures} attempts")
    box.start_host()
    expect_host(box, {f"f{i}": b"data" for i in range(20)})
    settled(box)
    expect(status(box)["hostReachable"], "reachable again")


@case
def locked_at_the_host_while_edited_here(box):
    box.write("doc", b"old")
    box.start_host()
    writable(box)
    read(box.path("doc"))
    command = ["--container", box.container]
    with open(box.path("doc"), "r+b", buffering=0) as file:
        box.tulo("host", "lock", *command, "doc", "--user", "7")
        file.write(b"new")
    box.allow_errors("failed for")
    eventually(lambda: status(box)["failedUploads"] > 0, "it cannot be sent")
    put(box.path("other"), b"other")
    expect_host(box, {"doc": b"old", "other": b"other"}, "others are not held up")
    box.tulo("host", "unlock", *command, "doc")
    expect_host(box, {"doc": b"new", "other": b"other"})
    settled(box)

"""The service as a process: its life, its commands."""

import json
import os
import signal
import subprocess

from harness import (case, error_of, eventually, expect, expect_equal, is_mounted, read)


@case
def sigterm_unmounts(box):
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    os.listdir(box.path())
    mount.unmount()
    expect_equal(os.listdir(mount.point), [], "the empty mount point")


@case
def unmount_command(box):
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    box.tulo("unmount", mount.point)
    expect_equal(mount.wait(), 0, "exit status of the service")
    expect(not is_mounted(mount.point), "not mounted any more")


@case
def in_the_background(box):
    box.write("a", b"text")
    box.start_host()
    point = box.file("m")
    os.mkdir(point)
    try:
        box.tulo("mount", point, "--container", box.container)
        expect(is_mounted(point), "mounted when the command returns")
        expect_equal(read(os.path.join(point, "a")), b"text", "contents")
    finally:
        box.tulo("unmount", point, check=False)
    eventually(lambda: not is_mounted(point), "unmounted")


@case
def a_second_service_of_the_account_refuses(box):
    box.write("a", b"a")
    box.start_host()
    box.mount()
    other = box.file("other")
    os.mkdir(other)
    result = box.tulo("mount", other, "--foreground", "--container", box.container, check=False)
    expect(result.returncode not in (0, None), "the second service fails")
    expect(result.stderr.strip(), "and says why")
    expect(not is_mounted(other), "nothing is mounted by it")
    expect_equal(read(box.path("a")), b"a", "the first one goes on")


@case
def two_accounts_side_by_side(box):
    box.add_account("work")
    box.write("private.txt", b"private")
    box.write("business.txt", b"business", account="work")
    box.start_host()
    first = box.mount()
    second = box.mount("--account", "work")
    expect_equal(os.listdir(first.point), ["private.txt"], "the primary account")
    expect_equal(os.listdir(second.point), ["business.txt"], "the other account")
    expect_equal(read(second.path("business.txt")), b"business", "contents")
    box.write("more.txt", b"more", account="work")
    eventually(lambda: os.path.exists(second.path("more.txt")), "a change in the other account")
    expect(not os.path.exists(first.path("more.txt")), "not in the first one")
    first.unmount()
    expect_equal(read(second.path("more.txt")), b"more", "the other one goes on alone")


@case
def killed_and_mounted_again(box):
    box.write("here", b"here")
    box.write("away", b"away")
    box.start_host()
    mount = box.mount()
    read(box.path("here"))
    number = os.stat(box.path("away")).st_ino
    mount.kill()
    expect(is_mounted(mount.point), "a stale mount is left")
    box.mounts.clear()
    box.mount(point=mount.point, name="again")
    expect_equal(sorted(os.listdir(box.path())), ["away", "here"], "names")
    expect_equal(os.stat(box.path("away")).st_ino, number, "inode number")
    expect_equal(read(box.path("away")), b"away", "contents")
    before = box.fetches()
    expect_equal(read(box.path("here")), b"here", "what was here before")
    expect_equal(box.fetches(), before, "fetches of it")


@case
def killed_in_mid_download(box):
    data = b"k" * 500_000
    box.write("doc", data)
    box.start_host("--delay", "fetch=500")
    mount = box.mount()
    reader = subprocess.Popen(["cat", box.path("doc")], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
    mount.kill()
    reader.communicate()
    expect(reader.returncode != 0, "the reader is told")
    box.mounts.clear()
    box.mount(point=mount.point, name="again")
    expect(read(box.path("doc")) == data, "the whole file")


@case
def a_stale_mount_is_cleared_by_unmount(box):
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    mount.kill()
    box.mounts.clear()
    expect(error_of(lambda: os.listdir(mount.point)) != 0, "a stale mount answers nothing")
    box.tulo("unmount", mount.point)
    expect(not is_mounted(mount.point), "cleared")


@case
def a_mount_in_use_ends_all_the_same(box):
    """A program with an open file keeps no service alive, and gets an error, not old data."""
    box.write("a", b"a" * 100_000)
    box.start_host()
    mount = box.mount()
    with open(box.path("a"), "rb", buffering=0) as file:
        file.read(10)
        mount.signal(signal.SIGTERM)
        expect_equal(mount.wait(), 0, "exit status of the service")
    eventually(lambda: not is_mounted(mount.point), "unmounted")


@case
def a_waiting_reader_does_not_keep_the_service(box):
    box.write("slow", b"s" * 1000)
    box.start_host("--fault", "fetch=silent")
    mount = box.mount()
    box.allow_errors("fetch|download|contents")
    reader = subprocess.Popen(["cat", box.path("slow")], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
    eventually(lambda: box.fetches() >= 1, "the fetch is under way")
    mount.signal(signal.SIGTERM)
    expect_equal(mount.wait(), 0, "exit status of the service")
    output, _ = reader.communicate(timeout=30)
    expect(reader.returncode != 0 and output == b"", "the reader is told")


@case
def wrong_mount_points(box):
    box.write("a", b"a")
    box.start_host()
    with open(box.file("file"), "wb"):
        pass
    for point in (box.file("nowhere"), box.file("file")):
        result = box.tulo("mount", point, "--foreground", "--container", box.container, check=False)
        expect(result.returncode not in (0, None), f"{point} is refused")
        expect(point.encode() in result.stderr, f"{result.stderr} names {point}")
    for option, value in (("--cache-size", "many"), ("--keep-free", "120%"), ("--cache-size", "-1")):
        result = box.tulo("mount", box.file("home"), "--foreground", option, value, check=False)
        expect(result.returncode not in (0, None), f"{option} {value} is refused")
        expect(option.encode() in result.stderr, f"{result.stderr} names {option}")


@case
def status(box):
    box.write("a", b"a" * 10_000)
    box.start_host()
    box.mount()
    read(box.path("a"))
    output = box.tulo("status", "--json").stdout.decode()
    for line in output.splitlines():
        json.loads(line)
    expect(box.path() in output, "the mount point is told")
    text = box.tulo("status").stdout.decode()
    expect(box.path() in text, f"also in {text!r}")


@case
def status_tells_what_is_fetched(box):
    box.write("slow.bin", b"s" * 1000)
    box.start_host("--fault", "fetch=silent")
    box.mount()
    box.allow_errors("fetch|download|contents")
    reader = subprocess.Popen(["cat", box.path("slow.bin")], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL)
    try:
        eventually(lambda: "slow.bin" in box.tulo("status", "--json").stdout.decode(),
                   "the file that is being fetched")
    finally:
        reader.kill()
        reader.wait()


@case
def commands_without_a_service(box):
    result = box.tulo("status", "--json", check=False)
    expect(result.returncode in (0, 1), "status ends with 0 or 1")
    for command in ("pin", "unpin", "download", "evict"):
        result = box.tulo(command, box.file("home"), check=False)
        expect(result.returncode not in (0, None) and result.stderr.strip(),
               f"{command} of a path that is in no account fails and says why")


@case
def the_control_socket_is_the_users_own(box):
    box.write("a", b"a")
    box.start_host()
    box.mount()
    sockets = []
    for folder, _, names in os.walk(box.file("run")):
        sockets += [os.path.join(folder, name) for name in names]
        expect_equal(os.stat(folder).st_mode & 0o077, 0, f"rights of others on {folder}")
    expect(sockets, "there is a socket")
    for path in sockets:
        expect_equal(os.stat(path).st_mode & 0o077, 0, f"rights of others on {path}")
    for folder, _, names in os.walk(os.path.join(box.state, "tulo")):
        expect_equal(os.stat(folder).st_mode & 0o077, 0, f"rights of others on {folder}")


@case
def nothing_is_leaked_by_use(box):
    for i in range(300):
        box.write(f"f{i}", str(i).encode() * 100)
    box.start_host()
    mount = box.mount()
    for i in range(20):
        read(box.path(f"f{i}"))
    os.listdir(box.path())
    box.tulo("status", "--json")
    before = mount.descriptors()
    for i in range(300):
        read(box.path(f"f{i}"))
    for _ in range(20):
        os.listdir(box.path())
        box.tulo("status", "--json")
    # Readers and idle connections are kept for reuse, but not one for each file.
    eventually(lambda: mount.descriptors() <= before + 20,
               f"descriptors near the {before} of before ({mount.descriptors()})")

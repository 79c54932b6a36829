"""Whose changes they are: what one account has not sent yet never goes to another."""

import json
import os
import shutil
import time

from harness import case, eventually, expect, expect_equal, read


def serve(box, name):
    """Has the box be about the account of that name: a container and a root of its own."""
    for folder in (f"container-{name}", f"root-{name}"):
        os.makedirs(box.file(folder), mode=0o700, exist_ok=True)
    box.container = box.file(f"container-{name}")
    box.root = box.file(f"root-{name}")
    box.roots = {"primary": box.root}


def work_offline(box, name, data):
    """Something that the host does not hear of."""
    box.start_host()
    mount = box.mount(point=box.file("m"), name=f"work{len(box.processes)}")
    os.listdir(mount.point)
    box.host.stop()
    with open(mount.path(name), "wb") as file:
        file.write(data)
    box.tulo("unmount", mount.point)
    expect_equal(mount.wait(), 0, "exit status of the service")
    box.mounts.clear()


def background(box):
    """Mounts as a user does; returns what that said."""
    result = box.tulo("mount", box.file("m"), "--container", box.container)
    return result.stderr.decode()


def at_the_root(box, name):
    return os.path.exists(os.path.join(box.root, name))


def settled(box):
    box.tulo("flush", "--wait", box.file("m"))
    time.sleep(1.5)


@case
def an_accounts_changes_wait_for_it(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    ann = box.container
    serve(box, "bob")
    box.write("bob.txt", b"bob's")
    box.start_host()
    try:
        words = background(box)
        expect(ann in words and "1 change" in words, f"{words!r} says whose changes wait")
        expect_equal(os.listdir(box.file("m")), ["bob.txt"], "what the second account has")
        settled(box)
        expect(not at_the_root(box, "ann.txt"), "nothing of the first account at the second")
        status = json.loads(box.tulo("status", "--json").stdout)
        expect_equal(status["kept"][0]["container"], ann, "the container in the status")
        expect_equal(status["kept"][0]["changes"], 1, "the changes in the status")
        files = status["kept"][0]["files"]
        expect(files in words, f"{words!r} says where the files are")
        expect_equal(read(os.path.join(files, "ann.txt")), b"ann's own", "the file itself")
        expect(ann in box.tulo("status").stdout.decode(), "also for people")
    finally:
        box.tulo("unmount", box.file("m"), check=False)
    box.host.stop()
    serve(box, "ann")
    box.start_host()
    try:
        expect_equal(background(box), "", "nothing to say about the first account")
        eventually(lambda: at_the_root(box, "ann.txt"), "the change at its own host")
        expect_equal(read(os.path.join(box.root, "ann.txt")), b"ann's own", "contents")
    finally:
        box.tulo("unmount", box.file("m"), check=False)


@case
def containers_that_change_places_are_told_apart(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    ann = box.container
    serve(box, "bob")
    box.start_host()
    box.host.stop()
    os.rename(ann, box.file("elsewhere"))
    os.rename(box.container, ann)
    box.container = ann
    box.start_host()
    try:
        expect("1 change" in background(box), "it says what waits")
        settled(box)
        expect(not at_the_root(box, "ann.txt"), "nothing of the first account at the second")
    finally:
        box.tulo("unmount", box.file("m"), check=False)


@case
def another_account_in_the_same_container_gets_nothing(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    container = box.container
    for name in os.listdir(container):
        if name.startswith("state.db"):
            os.unlink(os.path.join(container, name))
    serve(box, "bob")
    box.container = container
    box.start_host()
    try:
        words = background(box)
        expect("1 change" in words, f"{words!r} says what waits")
        settled(box)
        expect(not at_the_root(box, "ann.txt"), "nothing of the first account at the second")
    finally:
        box.tulo("unmount", box.file("m"), check=False)


@case
def a_container_that_moved_is_still_the_accounts(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    shutil.copytree(box.container, box.file("copied"),
                    ignore=lambda folder, names: [n for n in names if n == "fp.sock"])
    shutil.rmtree(box.container)
    box.container = box.file("copied")
    box.start_host()
    try:
        expect_equal(background(box), "", "nothing to say")
        eventually(lambda: at_the_root(box, "ann.txt"), "the change at the host")
    finally:
        box.tulo("unmount", box.file("m"), check=False)


@case
def a_host_that_is_set_up_again_has_the_same_account(box):
    serve(box, "ann")
    box.write("there.txt", b"there")
    work_offline(box, "ann.txt", b"ann's own")
    shutil.rmtree(box.container)
    serve(box, "ann")
    box.start_host()
    try:
        expect_equal(background(box), "", "nothing to say")
        eventually(lambda: at_the_root(box, "ann.txt"), "the change at the host")
        expect_equal(read(os.path.join(box.root, "there.txt")), b"there", "what the host had")
    finally:
        box.tulo("unmount", box.file("m"), check=False)


@case
def an_account_that_changes_under_a_running_service_gets_nothing(box):
    serve(box, "ann")
    box.start_host()
    mount = box.mount()
    os.listdir(mount.point)
    box.host.stop()
    with open(mount.path("ann.txt"), "wb") as file:
        file.write(b"ann's own")
    ann = box.container
    serve(box, "bob")
    box.start_host()
    box.host.stop()
    os.rename(ann, box.file("elsewhere"))
    os.rename(box.container, ann)
    box.container = ann
    box.allow_errors("has another account")
    box.start_host()
    eventually(lambda: "has another account" in mount.log(), "the service says so")
    box.tulo("flush", mount.point, check=False)
    time.sleep(3)
    expect(not at_the_root(box, "ann.txt"), "nothing of the first account at the second")
    mount.unmount()
    box.mounts.clear()
    try:
        expect("1 change" in background(box), "the next mount keeps it for its own account")
        settled(box)
        expect(not at_the_root(box, "ann.txt"), "still nothing at the second")
    finally:
        box.tulo("unmount", box.file("m"), check=False)


@case
def pins_and_downloads_of_another_account_just_go(box):
    serve(box, "ann")
    box.write("a.txt", b"ann's own")
    box.start_host()
    mount = box.mount()
    read(mount.path("a.txt"))
    mount.unmount()
    box.mounts.clear()
    box.host.stop()
    serve(box, "bob")
    box.write("a.txt", b"bob's")
    box.start_host()
    try:
        expect_equal(background(box), "", "there is nothing that waits")
        expect_equal(read(os.path.join(box.file("m"), "a.txt")), b"bob's", "contents")
    finally:
        box.tulo("unmount", box.file("m"), check=False)

"""Whose changes they are: what one account has not sent yet never goes to another."""

import contextlib
import json
import os
import shutil
import time

from harness import case, eventually, expect, expect_equal, read
from writing import comes_to_the_host, remove_index


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


@contextlib.contextmanager
def background(box):
    """Mounted as a user does it, until the end of the block, which is given what that said."""
    try:
        result = box.tulo("mount", box.file("m"), "--container", box.container)
        yield result.stderr.decode()
    finally:
        box.tulo("unmount", box.file("m"), check=False)


def expect_nothing_of_ann(box):
    expect(not os.path.exists(os.path.join(box.root, "ann.txt")), "nothing of the first account")


def expect_nothing_of_ann_later(box):
    box.tulo("flush", "--wait", box.file("m"))
    time.sleep(1.5)
    expect_nothing_of_ann(box)


def take_the_place_of(box, container):
    """Has the box's container lie where the other one was."""
    os.rename(container, box.file("elsewhere"))
    os.rename(box.container, container)
    box.container = container


@case
def an_accounts_changes_wait_for_it(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    ann = box.container
    serve(box, "bob")
    box.write("bob.txt", b"bob's")
    box.start_host()
    with background(box) as words:
        expect(ann in words and "1 change" in words, f"{words!r} says whose changes wait")
        expect_equal(os.listdir(box.file("m")), ["bob.txt"], "what the second account has")
        expect_nothing_of_ann_later(box)
        status = json.loads(box.tulo("status", "--json").stdout)
        expect_equal(status["kept"][0]["container"], ann, "the container in the status")
        expect_equal(status["kept"][0]["changes"], 1, "the changes in the status")
        files = status["kept"][0]["files"]
        expect(files in words, f"{words!r} says where the files are")
        expect_equal(read(os.path.join(files, "ann.txt")), b"ann's own", "the file itself")
        expect(ann in box.tulo("status").stdout.decode(), "also for people")
    box.host.stop()
    serve(box, "ann")
    box.start_host()
    with background(box) as words:
        expect_equal(words, "", "nothing to say about the first account")
        comes_to_the_host(box, "ann.txt", b"ann's own")


@case
def containers_that_change_places_are_told_apart(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    ann = box.container
    serve(box, "bob")
    box.start_host()
    box.host.stop()
    take_the_place_of(box, ann)
    box.start_host()
    with background(box) as words:
        expect("1 change" in words, "it says what waits")
        expect_nothing_of_ann_later(box)


@case
def another_account_in_the_same_container_gets_nothing(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    container = box.container
    remove_index(box)
    serve(box, "bob")
    box.container = container
    box.start_host()
    with background(box) as words:
        expect("1 change" in words, f"{words!r} says what waits")
        expect_nothing_of_ann_later(box)


@case
def a_container_that_moved_is_still_the_accounts(box):
    serve(box, "ann")
    work_offline(box, "ann.txt", b"ann's own")
    shutil.copytree(box.container, box.file("copied"),
                    ignore=lambda folder, names: [n for n in names if n == "fp.sock"])
    shutil.rmtree(box.container)
    box.container = box.file("copied")
    box.start_host()
    with background(box) as words:
        expect_equal(words, "", "nothing to say")
        comes_to_the_host(box, "ann.txt", b"ann's own")


@case
def a_host_that_is_set_up_again_has_the_same_account(box):
    serve(box, "ann")
    box.write("there.txt", b"there")
    work_offline(box, "ann.txt", b"ann's own")
    shutil.rmtree(box.container)
    serve(box, "ann")
    box.start_host()
    with background(box) as words:
        expect_equal(words, "", "nothing to say")
        comes_to_the_host(box, "ann.txt", b"ann's own")
        expect_equal(read(os.path.join(box.root, "there.txt")), b"there", "what the host had")


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
    take_the_place_of(box, ann)
    box.allow_errors("has another account")
    box.start_host()
    eventually(lambda: "has another account" in mount.log(), "the service says so")
    box.tulo("flush", mount.point, check=False)
    time.sleep(3)
    expect_nothing_of_ann(box)
    mount.unmount()
    box.mounts.clear()
    with background(box) as words:
        expect("1 change" in words, "the next mount keeps it for its own account")
        expect_nothing_of_ann_later(box)


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
    with background(box) as words:
        expect_equal(words, "", "there is nothing that waits")
        expect_equal(read(os.path.join(box.file("m"), "a.txt")), b"bob's", "contents")

"""How a mount is left: what programs use is not cut off unseen, what they wrote is not lost."""

import mmap
import os
import signal
import subprocess
import time

from harness import PATIENCE, case, error_of, eventually, expect, expect_equal, is_mounted, read
from writing import comes_to_the_host

SOON = 2.0


def expect_ended(mount, patience=PATIENCE):
    expect_equal(mount.wait(patience), 0, "exit status of the service")


def mount_again(box, mount, name="again"):
    """The same account at the same place, once the first service has ended."""
    expect_ended(mount)
    box.mounts.clear()
    return box.mount(point=mount.point, name=name)


def expect_in_use(box, mount):
    """Unmounting is refused; returns what that said."""
    result = box.tulo("unmount", mount.point, check=False)
    expect_equal(result.returncode, 1, "exit status")
    return result.stderr.decode()


def standing_in(folder):
    """A program whose working directory is the folder."""
    return subprocess.Popen(["sleep", "1000"], cwd=folder)


def end(process):
    process.kill()
    process.wait()


@case
def an_open_file_keeps_the_mount(box):
    box.start_host()
    mount = box.mount()
    with open(box.path("report.txt"), "wb", buffering=0) as file:
        file.write(b"first, ")
        words = expect_in_use(box, mount)
        expect("in use" in words, f"{words!r} says why")
        expect(str(os.getpid()) in words and "report.txt" in words, f"{words!r} names the program")
        expect(is_mounted(mount.point) and mount.is_running(), "the mount goes on")
        file.write(b"second")
    box.tulo("unmount", mount.point)
    expect_ended(mount)
    expect(not is_mounted(mount.point), "not mounted any more")
    box.mounts.clear()
    box.mount(point=mount.point, name="again")
    comes_to_the_host(box, "report.txt", b"first, second")


@case
def who_stands_in_a_folder_keeps_the_mount(box):
    box.write("docs/a", b"a")
    box.start_host()
    mount = box.mount()
    program = standing_in(box.path("docs"))
    try:
        words = expect_in_use(box, mount)
        expect(f"sleep (process {program.pid})" in words, f"{words!r} names the program")
        expect_equal(read(box.path("docs/a")), b"a", "contents")
    finally:
        end(program)
    box.tulo("unmount", mount.point)
    expect_ended(mount)


@case
def a_program_that_runs_from_the_mount_keeps_it(box):
    with open("/bin/sleep", "rb") as file:
        box.write("program", file.read())
    box.start_host()
    mount = box.mount()
    os.chmod(box.path("program"), 0o755)
    program = subprocess.Popen([box.path("program"), "1000"])
    try:
        words = expect_in_use(box, mount)
        expect(str(program.pid) in words, "the program is named")
    finally:
        end(program)
    box.tulo("unmount", mount.point)


@case
def the_command_itself_is_not_in_its_way(box):
    """Only whoever called it from there is."""
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    result = subprocess.run([box.program, "unmount", "."], cwd=mount.point, env=box.environment,
                            check=False, capture_output=True)
    expect_equal(result.returncode, 0, f"exit status, {result.stderr!r}")
    expect_ended(mount)


@case
def lazily_programs_go_on(box):
    box.start_host()
    mount = box.mount()
    with open(box.path("report.txt"), "wb", buffering=0) as file:
        file.write(b"first, ")
        result = box.tulo("unmount", "--lazy", mount.point)
        expect(str(os.getpid()) in result.stdout.decode(), f"{result.stdout!r} names the program")
        expect(not is_mounted(mount.point), "away from its place")
        time.sleep(1)
        expect(mount.is_running(), "the service goes on")
        file.write(b"second")
    mount_again(box, mount)
    comes_to_the_host(box, "report.txt", b"first, second")


@case
def lazily_an_unused_mount_just_ends(box):
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    read(box.path("a"))
    box.tulo("unmount", "--lazy", mount.point)
    expect_ended(mount, SOON)


@case
def by_force_programs_are_cut_off(box):
    box.start_host()
    mount = box.mount()
    descriptor = os.open(box.path("report.txt"), os.O_CREAT | os.O_RDWR)
    try:
        os.write(descriptor, b"written before")
        result = box.tulo("unmount", "--force", mount.point)
        expect(str(os.getpid()) in result.stdout.decode(), f"{result.stdout!r} names the program")
        expect_ended(mount)
        expect(error_of(lambda: os.write(descriptor, b"too late")) != 0, "the program is told")
    finally:
        error_of(lambda: os.close(descriptor))
    box.mounts.clear()
    box.mount(point=mount.point, name="again")
    comes_to_the_host(box, "report.txt", b"written before")


@case
def force_and_lazy_exclude_each_other(box):
    result = box.tulo("unmount", "--force", "--lazy", box.file("home"), check=False)
    expect_equal(result.returncode, 2, "exit status")


def mapped(box, name, size=1 << 20):
    with open(box.path(name), "w+b") as file:
        file.truncate(size)
        return mmap.mmap(file.fileno(), size)


@case
def what_is_written_through_a_mapping_survives_every_way_out(box):
    box.start_host()
    for number, leave in enumerate((
            lambda mount: box.tulo("unmount", "--force", mount.point),
            lambda mount: mount.signal(signal.SIGTERM),
            lambda mount: mount.signal(signal.SIGINT))):
        mount = box.mount(point=box.file("m"), name=f"mapped{number}")
        name = f"mapped{number}"
        # More than the kernel hands over at a time.
        memory = mapped(box, name, 64 << 20)
        data = (b"%d" % number) * len(memory)
        memory[:] = data
        leave(mount)
        expect_ended(mount)
        memory.close()
        box.mounts.clear()
        again = box.mount(point=box.file("m"), name=f"again{number}")
        expect(read(box.path(name)) == data, f"{name} is whole here")
        comes_to_the_host(box, name, data)
        again.unmount()
        box.mounts.clear()


@case
def a_mapping_keeps_the_mount_and_goes_on_lazily(box):
    box.start_host()
    mount = box.mount()
    memory = mapped(box, "mapped")
    memory[:] = b"a" * len(memory)
    expect_in_use(box, mount)
    box.tulo("unmount", "--lazy", mount.point)
    memory[:] = b"b" * len(memory)
    length = len(memory)
    memory.close()
    mount_again(box, mount)
    comes_to_the_host(box, "mapped", b"b" * length)


@case
def a_mapping_is_whole_when_the_system_ends_a_service_that_goes_on(box):
    """The mount has left its place, so that no path leads to what is still mapped."""
    box.start_host()
    mount = box.mount()
    memory = mapped(box, "mapped", 64 << 10)
    memory[:] = b"a" * len(memory)
    box.tulo("unmount", "--lazy", mount.point)
    data = b"b" * len(memory)
    memory[:] = data
    mount.signal(signal.SIGTERM)
    expect_equal(mount.wait(), 0, "exit status of the service")
    box.mounts.clear()
    memory.close()
    box.mount(point=mount.point, name="again")
    expect(read(box.path("mapped")) == data, "it is whole here")
    comes_to_the_host(box, "mapped", data)


@case
def a_mapping_given_up_just_before_is_whole(box):
    box.start_host()
    mount = box.mount()
    for leave in (["umount", mount.point], [box.program, "unmount", mount.point]):
        name = os.path.basename(leave[0])
        memory = mapped(box, name)
        memory[:] = b"x" * len(memory)
        length = len(memory)
        memory.close()
        subprocess.run(leave, check=True, env=box.environment)
        mount = mount_again(box, mount, f"after-{name}")
        comes_to_the_host(box, name, b"x" * length)


@case
def a_writer_gets_a_moment_when_the_system_ends_the_service(box):
    box.start_host()
    mount = box.mount()
    with open(box.path("report.txt"), "wb", buffering=0) as file:
        file.write(b"first, ")
        mount.signal(signal.SIGTERM)
        time.sleep(1)
        file.write(b"second")
    expect_ended(mount, SOON)
    expect(str(os.getpid()) in mount.log(), "the log names the program")
    box.mounts.clear()
    box.mount(point=mount.point, name="again")
    comes_to_the_host(box, "report.txt", b"first, second")


@case
def a_second_signal_waits_for_nobody(box):
    box.start_host()
    mount = box.mount()
    with open(box.path("report.txt"), "wb", buffering=0) as file:
        file.write(b"text")
        mount.signal(signal.SIGTERM)
        eventually(lambda: str(os.getpid()) in mount.log(), "it waits for the program")
        mount.signal(signal.SIGTERM)
        expect_ended(mount, SOON)
        error_of(lambda: os.fsync(file.fileno()))


@case
def a_mount_point_with_blanks_behind_a_link(box):
    box.write("a", b"a")
    box.start_host()
    os.mkdir(box.file("a folder"))
    os.symlink(box.file("a folder"), box.file("link"))
    mount = box.mount(point=box.file("link"))
    program = standing_in(mount.point)
    try:
        words = expect_in_use(box, mount)
        expect(str(program.pid) in words, "the program is named")
        box.tulo("unmount", "--force", mount.point)
        expect_ended(mount)
        expect(not is_mounted(box.file("a\\040folder")), "not mounted any more")
    finally:
        end(program)


@case
def umount_ends_the_service_and_a_new_one_can_start_at_once(box):
    box.write("a", b"a")
    box.start_host()
    point = box.file("m")
    os.mkdir(point)
    try:
        for _ in range(5):
            box.tulo("mount", point, "--container", box.container)
            expect_equal(read(os.path.join(point, "a")), b"a", "contents")
            subprocess.run(["umount", point], check=True)
    finally:
        box.tulo("unmount", point, check=False)


@case
def a_second_mount_names_the_place_of_the_first(box):
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    other = box.file("other")
    os.mkdir(other)
    begin = time.monotonic()
    result = box.tulo("mount", other, "--container", box.container, check=False)
    expect_equal(result.returncode, 1, "exit status")
    words = result.stderr.decode()
    expect(mount.point in words and str(mount.pid) in words, f"{words!r} names place and process")
    expect(time.monotonic() - begin < SOON, "without waiting")


@case
def a_mount_waits_for_one_that_programs_keep(box):
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    program = standing_in(mount.point)
    try:
        box.tulo("unmount", "--lazy", mount.point)
        waiting = subprocess.Popen([box.program, "mount", mount.point, "--container",
                                    box.container], env=box.environment, stderr=subprocess.PIPE)
        time.sleep(1)
        expect(waiting.poll() is None, "it waits")
    finally:
        end(program)
    expect_equal(waiting.wait(10), 0, f"exit status, {waiting.stderr.read()!r}")
    waiting.stderr.close()
    box.mounts.clear()
    expect_equal(read(os.path.join(mount.point, "a")), b"a", "contents")
    box.tulo("unmount", mount.point)


@case
def a_service_with_its_state_elsewhere_takes_nothing_over(box):
    box.write("a", b"a")
    box.start_host()
    mount = box.mount()
    os.mkdir(box.file("other"))
    os.mkdir(box.file("other state"))
    environment = dict(box.environment, XDG_STATE_HOME=box.file("other state"))
    result = subprocess.run([box.program, "mount", box.file("other"), "--container",
                             box.container], env=environment, check=False, capture_output=True)
    expect_equal(result.returncode, 1, "exit status")
    expect(b"another service" in result.stderr, f"{result.stderr!r} says why")
    expect(not is_mounted(box.file("other")), "nothing is mounted by it")
    expect(box.path() in box.tulo("status").stdout.decode(), "the first one still answers")
    box.tulo("unmount", mount.point)
    expect_equal(mount.wait(), 0, "exit status of the first service")

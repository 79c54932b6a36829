"""No host, a dying host, a host that talks nonsense."""

import errno
import json
import os
import signal
import socket
import subprocess
import threading

from harness import case, error_of, eventually, expect, expect_equal, read

# What the log says of a fetch that failed is wanted here, and belongs to every case below.
FETCH_FAILURES = ("fetch|download|contents|host|thumbnail|socket|connect|unreachable|reply",)


@case
def browsing_goes_on(box):
    box.write("here.txt", b"downloaded")
    box.write("away.txt", b"not downloaded")
    box.write("folder/inside.txt", b"x")
    box.start_host()
    box.mount()
    read(box.path("here.txt"))
    os.listdir(box.path("folder"))
    box.host.kill()
    expect_equal(sorted(os.listdir(box.path())), ["away.txt", "folder", "here.txt"], "names")
    expect_equal(os.listdir(box.path("folder")), ["inside.txt"], "names in the folder")
    expect_equal(read(box.path("here.txt")), b"downloaded", "what is here")
    expect_equal(os.stat(box.path("away.txt")).st_size, 14, "size of what is not here")
    box.allow_errors(*FETCH_FAILURES)


@case
def what_is_not_here_fails_clearly(box):
    box.write("away.txt", b"not downloaded")
    box.start_host()
    box.mount()
    expect_equal(os.listdir(box.path()), ["away.txt"], "names")
    box.host.kill()
    number = error_of(lambda: read(box.path("away.txt")))
    expect(number in (errno.EHOSTDOWN, errno.EHOSTUNREACH, errno.ENETUNREACH),
           f"the error says that the host is away, not {errno.errorcode.get(number)}")
    expect_equal(os.stat(box.path("away.txt")).st_blocks, 0, "blocks after the failure")
    box.allow_errors(*FETCH_FAILURES)


@case
def it_recovers_by_itself(box):
    box.write("away.txt", b"not downloaded")
    box.start_host()
    box.mount()
    os.listdir(box.path())
    box.host.kill()
    expect(error_of(lambda: read(box.path("away.txt"))) != 0, "no host, no contents")
    box.start_host()
    expect_equal(read(box.path("away.txt")), b"not downloaded", "contents once the host is back")
    box.write("new.txt", b"new")
    eventually(lambda: os.path.exists(box.path("new.txt")), "a change after the host came back")
    box.allow_errors(*FETCH_FAILURES)


@case
def mounting_without_a_host(box):
    box.write("here.txt", b"downloaded")
    box.start_host()
    box.mount()
    read(box.path("here.txt"))
    box.host.kill()
    box.remount()
    expect_equal(os.listdir(box.path()), ["here.txt"], "names")
    expect_equal(read(box.path("here.txt")), b"downloaded", "contents")
    box.allow_errors(*FETCH_FAILURES)


@case
def mounting_before_the_first_host(box):
    """Nothing is known yet; the account appears when its host does."""
    box.mount()
    box.allow_errors(".*")
    box.write("first.txt", b"hello")
    box.start_host()
    eventually(lambda: error_of(lambda: read(box.path("first.txt"))) == 0, "the account appears")
    expect_equal(read(box.path("first.txt")), b"hello", "contents")


@case
def a_container_that_disappears_deletes_nothing(box):
    box.write("a/here.txt", b"downloaded")
    box.write("b.txt", b"not downloaded")
    box.start_host()
    box.mount()
    expect_equal(sorted(os.listdir(box.path())), ["a", "b.txt"], "before")
    read(box.path("a/here.txt"))
    box.host.stop()
    os.rename(box.container, box.container + ".away")
    box.allow_errors(".*")
    expect_equal(sorted(os.listdir(box.path())), ["a", "b.txt"], "names while it is away")
    expect_equal(read(box.path("a/here.txt")), b"downloaded", "contents while it is away")
    os.rename(box.container + ".away", box.container)
    box.start_host()
    box.write("c.txt", b"new")
    eventually(lambda: sorted(os.listdir(box.path())) == ["a", "b.txt", "c.txt"], "after")


@case
def a_host_killed_in_mid_download(box):
    data = b"d" * 300_000
    box.write("doc.bin", data)
    box.start_host("--fault", "fetch=silent")
    box.mount()
    box.allow_errors(*FETCH_FAILURES)
    reader = subprocess.Popen(["cat", box.path("doc.bin")], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
    eventually(lambda: box.fetches() >= 1, "the download is under way")
    box.host.kill()
    output, _ = reader.communicate(timeout=30)
    expect(reader.returncode != 0, "the reader is told of the failure")
    expect_equal(output, b"", "bytes that it got")
    box.start_host()
    expect(read(box.path("doc.bin")) == data, "the whole file, later")


def fails_then_works(box, fault):
    data = b"d" * 300_000
    box.write("doc.bin", data)
    box.start_host("--fault", f"fetch={fault}")
    box.mount()
    box.allow_errors(*FETCH_FAILURES)
    for _ in range(3):
        number = error_of(lambda: read(box.path("doc.bin")))
        expect(number != 0, f"a reader is told of {fault}")
        expect_equal(os.stat(box.path("doc.bin")).st_size, len(data), "the size that is shown")
        expect_equal(box.state_of("doc.bin"), "dataless", "the state")
    box.restart_host()
    expect(read(box.path("doc.bin")) == data, "the whole file, from a sane host")


@case
def garbage(box):
    fails_then_works(box, "garbage")


@case
def hang_up(box):
    fails_then_works(box, "hangup")


@case
def an_answer_that_is_lost(box):
    fails_then_works(box, "drop-reply")


@case
def an_answer_without_a_path(box):
    fails_then_works(box, "no-result")


@case
def an_unknown_kind_of_failure(box):
    fails_then_works(box, "whatever")


class ImpostorHost:
    """Answers each fetch with what the case wants; the index stays that of the real host."""

    def __init__(self, container, answer):
        self.answer = answer
        self.path = os.path.join(container, "fp.sock")
        if os.path.lexists(self.path):
            os.unlink(self.path)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.path)
        self.listener.listen(16)
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def _serve(self):
        while True:
            try:
                peer, _ = self.listener.accept()
            except OSError:
                return
            with peer:
                line = peer.makefile("rb").readline()
                if line:
                    peer.sendall(json.dumps(self.answer(json.loads(line))).encode() + b"\n")

    def close(self):
        # Closing alone does not wake the accepting thread.
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join()
        os.unlink(self.path)


def with_impostor(box, path_of_contents, name, size):
    box.start_host()
    box.mount()
    box.allow_errors(*FETCH_FAILURES)
    expect_equal(os.stat(box.path(name)).st_size, size, "the size that is shown")
    box.host.stop()
    impostor = ImpostorHost(box.container, lambda _: {"ok": True, "path": path_of_contents})
    try:
        number = error_of(lambda: read(box.path(name)))
    finally:
        impostor.close()
    expect_equal(os.stat(box.path(name)).st_size, size, "the size that is shown afterwards")
    box.start_host()
    expect_equal(len(read(box.path(name))), size, "the file, from the real host")
    return number


@case
def a_path_that_is_not_there(box):
    box.write("doc.bin", b"d" * 1000)
    number = with_impostor(box, box.file("nowhere"), "doc.bin", 1000)
    expect(number != 0, "a reader is told")


@case
def a_path_that_is_a_folder(box):
    box.write("doc.bin", b"d" * 1000)
    number = with_impostor(box, box.file("home"), "doc.bin", 1000)
    expect(number != 0, "a reader is told")


@case
def contents_that_are_too_short(box):
    """The host's index says 1000 bytes: fewer must not pass for the file."""
    box.write("doc.bin", b"d" * 1000)
    short = box.file("short")
    with open(short, "wb") as file:
        file.write(b"d" * 400)
    number = with_impostor(box, short, "doc.bin", 1000)
    expect(number != 0, "a reader is told")


@case
def a_stopped_host_does_not_freeze_the_mount(box):
    """A process that is stopped accepts connections and never answers."""
    box.write("here.txt", b"here")
    box.write("away.txt", b"away")
    box.start_host()
    box.mount()
    box.allow_errors(*FETCH_FAILURES)
    read(box.path("here.txt"))
    box.host.signal(signal.SIGSTOP)
    reader = subprocess.Popen(["cat", box.path("away.txt")], stdout=subprocess.PIPE)
    try:
        expect_equal(sorted(os.listdir(box.path())), ["away.txt", "here.txt"], "names")
        expect_equal(read(box.path("here.txt")), b"here", "what is here")
        expect(reader.poll() is None, "the reader waits")
        box.host.signal(signal.SIGCONT)
        output, _ = reader.communicate(timeout=30)
        expect_equal((reader.returncode, output), (0, b"away"), "the reader, once the host goes on")
    finally:
        box.host.signal(signal.SIGCONT)
        reader.kill()
        reader.wait()


@case
def signed_out(box):
    box.write("away.txt", b"away")
    box.start_host()
    box.mount()
    box.allow_errors(*FETCH_FAILURES)
    os.listdir(box.path())
    box.tulo("host", "logout", "--container", box.container)
    number = error_of(lambda: read(box.path("away.txt")))
    expect(number != 0, "a reader is told")
    expect(number not in (errno.EIO, errno.ENOENT), "the error is not that of a broken file")
    box.tulo("host", "login", "--container", box.container)
    expect_equal(read(box.path("away.txt")), b"away", "contents after signing in again")

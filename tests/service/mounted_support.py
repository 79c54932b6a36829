"""What the tests of the mount share: a real host, a real mount, and the service behind it.

Every case has directories, a host and a service of its own. After each, the service's log is read:
a line at error level fails the case unless the case expects it.
"""

import ctypes
import errno
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

EXECUTABLE = os.path.abspath(os.environ.get("TULO_EXECUTABLE", "build/test/bin/tulo"))

# Far longer than anything takes, also under a sanitizer on a loaded machine.
PATIENCE = 60

SKIPPED = 77


def eventually(condition, what):
    """Waits until the condition is true, within a bound; returns its value."""
    end = time.monotonic() + PATIENCE
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError("never happened: " + what)
        time.sleep(0.002)


def write(path, contents):
    """As a program at the host saves: under another name first, so that nobody sees half a file."""
    mode = "wb" if isinstance(contents, bytes) else "w"
    temporary = os.path.join(os.path.dirname(path), ".saving-" + os.path.basename(path))
    with open(temporary, mode) as file:
        file.write(contents)
    os.rename(temporary, path)


def read(path):
    with open(path, "rb") as file:
        return file.read()


def tree(top):
    """Every path below the folder with its contents; None for a folder."""
    found = {}
    for folder, folders, files in os.walk(top):
        for name in folders:
            found[os.path.relpath(os.path.join(folder, name), top)] = None
        for name in files:
            path = os.path.join(folder, name)
            found[os.path.relpath(path, top)] = read(path)
    return found


class Watch:
    """Whether inotify reported the end of a file or folder that is watched itself."""

    IN_DELETE_SELF = 0x400

    def __init__(self, path):
        libc = ctypes.CDLL(None, use_errno=True)
        self.descriptor = libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        if libc.inotify_add_watch(self.descriptor, path.encode(), self.IN_DELETE_SELF) < 0:
            raise OSError(ctypes.get_errno(), path)

    def deleted(self):
        try:
            data = os.read(self.descriptor, 65536)
        except BlockingIOError:
            return False
        return bool(int.from_bytes(data[4:8], sys.byteorder) & self.IN_DELETE_SELF)

    def close(self):
        os.close(self.descriptor)


class MountedCase(unittest.TestCase):
    """One host, one account, one mount."""

    mount_options = ()
    expected_errors = ()

    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="tulo-mounted-")
        self.environment = dict(os.environ, TULO_CONTAINER=self.path("container"))
        for name in ("state", "run", "cache", "config"):
            os.mkdir(self.path(name))
        for variable, name in (("XDG_STATE_HOME", "state"), ("XDG_RUNTIME_DIR", "run"),
                               ("XDG_CACHE_HOME", "cache"), ("XDG_CONFIG_HOME", "config")):
            self.environment[variable] = self.path(name)
        self.root = self.path("root")
        self.mount_point = self.path("mnt")
        os.mkdir(self.root)
        os.mkdir(self.mount_point)
        self.host = None
        self.populate()
        self.start_host()
        self.mount()

    def tearDown(self):
        self.unmount()
        self.stop_host()
        errors = self.log_errors()
        subprocess.run(["umount", "-l", self.mount_point], stderr=subprocess.DEVNULL)
        failed = self._outcome.result is not None and any(
            test is self for test, _ in
            self._outcome.result.failures + self._outcome.result.errors)
        if failed or errors:
            print(f"\nreplay: TULO_EXECUTABLE={EXECUTABLE} python3 -B {sys.argv[0]} {self.id()[9:]}"
                  f"\nthe service's log:\n{self.log()}", file=sys.stderr)
        shutil.rmtree(self.directory, ignore_errors=True)
        self.assertEqual(errors, [])

    def populate(self):
        """What the account holds when the host starts."""

    def path(self, *parts):
        return os.path.join(self.directory, *parts)

    def here(self, *parts):
        return os.path.join(self.mount_point, *parts)

    def there(self, *parts):
        return os.path.join(self.root, *parts)

    def tulo(self, *arguments):
        return subprocess.run([EXECUTABLE, *arguments], env=self.environment, text=True,
                              capture_output=True, timeout=PATIENCE)

    def start_host(self, *options):
        self.host = subprocess.Popen([EXECUTABLE, "host", "serve", "--root", self.root, *options],
                                     env=self.environment, stdout=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL, text=True)
        line = self.host.stdout.readline()
        self.assertTrue(line.startswith("serving"), line)

    def stop_host(self, how=signal.SIGTERM):
        if self.host is None:
            return
        self.host.send_signal(how)
        self.host.wait(PATIENCE)
        self.host.stdout.close()
        self.host = None

    def mount(self, *options):
        result = self.tulo("mount", self.mount_point, *self.mount_options, *options)
        self.assertEqual(result.returncode, 0, result.stderr + self.log())

    def unmount(self):
        return self.tulo("unmount", self.mount_point)

    def state_directory(self):
        return self.path("state", "tulo", "app.tulo.hub.acct.primary")

    def service_process(self):
        return int(read(os.path.join(self.state_directory(), "lock")))

    def log(self):
        try:
            return read(os.path.join(self.state_directory(), "service.log")).decode()
        except FileNotFoundError:
            return ""

    def log_errors(self):
        return [line for line in self.log().splitlines()
                if line.startswith("error") and
                not any(expected in line for expected in self.expected_errors)]

    def ask(self, operation, *paths):
        """Asks the running service and returns the last line of its answer."""
        request = {"op": operation, "nodes": [os.stat(path).st_ino for path in paths]}
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(PATIENCE)
            connection.connect(self.path("run", "tulo", "app.tulo.hub.acct.primary.sock"))
            connection.sendall(json.dumps(request).encode() + b"\n")
            with connection.makefile() as lines:
                for line in lines:
                    answer = json.loads(line)
                    if "progress" not in answer:
                        return answer
        raise AssertionError("no answer")

    def status(self):
        return self.ask("status")

    def state(self, path):
        return os.getxattr(path, "user.tulo.state").decode()

    def assert_errno(self, number, function, *arguments):
        with self.assertRaises(OSError) as raised:
            function(*arguments)
        self.assertEqual(errno.errorcode[raised.exception.errno], errno.errorcode[number])


def main():
    if not os.path.exists("/dev/fuse"):
        print("no /dev/fuse here: the mounted tests are skipped")
        sys.exit(SKIPPED)
    unittest.main()

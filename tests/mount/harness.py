"""What a case of the mounted tests works with: a folder that a real host serves, and a real mount.

Everything of a case lies in one fresh directory with a short path (socket paths are short), and so
do the environment's directories: nothing of the user's own state is read or written.
"""

import ctypes
import json
import os
import re
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time

# Far longer than anything takes on a loaded machine: only a failing case waits so long.
PATIENCE = 30.0
POLL = 0.01

MNT_DETACH = 2
LIBC = ctypes.CDLL(None, use_errno=True)


class Failure(AssertionError):
    """A case's expectation did not hold."""


class Skip(Exception):
    """The case needs something that this machine does not have."""


def case(function):
    """Marks a function as a case of its own."""
    function.is_case = True
    return function


def expect(condition, message):
    if not condition:
        raise Failure(message)


def expect_equal(found, wanted, what):
    if found != wanted:
        raise Failure(f"{what}: found {found!r}, expected {wanted!r}")


def eventually(condition, what, patience=PATIENCE):
    """Polls until the condition gives something true, which is returned."""
    end = time.monotonic() + patience
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise Failure(f"not within {patience:.0f} s: {what}")
        time.sleep(POLL)


def error_of(action):
    """The errno with which the action fails, or 0."""
    try:
        action()
    except OSError as error:
        return error.errno
    return 0


def read(path):
    with open(path, "rb") as file:
        return file.read()


def need_program(name):
    found = shutil.which(name)
    if not found:
        raise Skip(f"{name} is not installed")
    return found


def clean_output(text):
    return text if isinstance(text, str) else text.decode(errors="replace")


class Process:
    """A running `tulo` whose output goes to files in the case's directory."""

    def __init__(self, arguments, environment, log, output=subprocess.DEVNULL):
        self.log_path = log
        self.arguments = arguments
        with open(log, "ab") as errors:
            self.process = subprocess.Popen(
                arguments,
                env=environment,
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=errors,
                start_new_session=True,
            )

    @property
    def pid(self):
        return self.process.pid

    def is_running(self):
        return self.process.poll() is None

    def log(self):
        with open(self.log_path, "rb") as file:
            return file.read().decode(errors="replace")

    def signal(self, number):
        if self.is_running():
            self.process.send_signal(number)

    def wait(self, patience=PATIENCE):
        try:
            return self.process.wait(patience)
        except subprocess.TimeoutExpired:
            raise Failure(f"{self.arguments[1:3]} did not end within {patience:.0f} s") from None

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def open_files(self):
        """What the descriptors stand for."""
        folder = f"/proc/{self.pid}/fd"
        return sorted(os.readlink(os.path.join(folder, name)) for name in os.listdir(folder))

    def resident_bytes(self):
        with open(f"/proc/{self.pid}/status", encoding="ascii", errors="replace") as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1]) * 1024
        return 0


class Host(Process):
    """`tulo host serve`; started when the indexes are complete."""

    def __init__(self, box, roots, arguments, name="host"):
        command = [box.program, "host", "serve", "--container", box.container, "--log"]
        command += ["--root", roots["primary"]]
        for account, root in roots.items():
            if account != "primary":
                command += ["--account", f"{account}={root}"]
        command += list(arguments)
        super().__init__(command, box.environment, box.file(f"{name}.log"), subprocess.PIPE)
        self._wait_until_serving()

    def _wait_until_serving(self):
        ready, _, _ = select.select([self.process.stdout], [], [], 4 * PATIENCE)
        line = self.process.stdout.readline() if ready else b""
        if not line.startswith(b"serving"):
            raise Failure(f"the host does not serve: {line!r}\n{self.log()}")

    def requests(self, operation):
        """How many requests of the operation the host has answered (or left unanswered)."""
        return len(re.findall(rf"^info\s+\S+ \S+: {operation} ", self.log(), re.MULTILINE))

    def stop(self):
        self.signal(signal.SIGTERM)
        self.wait()
        self.process.stdout.close()

    def kill(self):
        self.signal(signal.SIGKILL)
        self.wait()
        self.process.stdout.close()


class Mount(Process):
    """`tulo mount --foreground`; started when the service says that it is ready.

    `doomed`: it was told to kill itself somewhere, which may be before it is ready.
    """

    def __init__(self, box, point, arguments, name="mount", doomed=False):
        self.point = point
        self.allowed_errors = []
        os.makedirs(point, exist_ok=True)
        notify = box.file(f"{name}.notify")
        if os.path.exists(notify):
            os.unlink(notify)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as ready:
            ready.bind(notify)
            environment = dict(box.environment, NOTIFY_SOCKET=notify)
            command = [box.program, "mount", point, "--foreground", "--container", box.container]
            super().__init__(command + list(arguments), environment, box.file(f"{name}.log"))
            self._wait_until_ready(ready, doomed)

    def _wait_until_ready(self, ready, doomed):
        ready.settimeout(0.05)
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            try:
                if b"READY=1" in ready.recv(4096):
                    return
            except socket.timeout:
                if not self.is_running():
                    if doomed:
                        return
                    raise Failure(f"the service ended before it was ready\n{self.log()}") from None
        raise Failure(f"the mount does not get ready within {PATIENCE:.0f} s\n{self.log()}")

    def path(self, name=""):
        return os.path.join(self.point, name) if name else self.point

    def unmount(self):
        """Ends the service as systemd does; it must leave nothing mounted."""
        self.signal(signal.SIGTERM)
        status = self.wait()
        expect_equal(status, 0, "exit status of the service after SIGTERM")
        expect(not is_mounted(self.point), "still mounted after the service's end")

    def kill(self):
        self.signal(signal.SIGKILL)
        self.wait()

    def unexpected_errors(self):
        """Lines of the log that tell of a failure which no case asked for."""
        lines = [
            line
            for line in self.log().splitlines()
            if line.startswith("error ") or re.search(r"terminate called|Sanitizer|Assertion", line)
        ]
        return [
            line for line in lines if not any(re.search(each, line) for each in self.allowed_errors)
        ]


def mount_table():
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as table:
        return [line.split() for line in table]


def is_mounted(point):
    return any(fields[4] == point for fields in mount_table())


def abort_connection(point):
    """Ends all waiting on a mount whose service does not answer."""
    for fields in mount_table():
        if fields[4] == point:
            minor = fields[2].split(":")[1]
            try:
                with open(f"/sys/fs/fuse/connections/{minor}/abort", "w", encoding="ascii") as file:
                    file.write("1")
            except OSError:
                pass


def detach(point):
    while is_mounted(point):
        if LIBC.umount2(os.fsencode(point), MNT_DETACH) != 0:
            subprocess.run(["fusermount3", "-uz", point], check=False, stderr=subprocess.DEVNULL)
            break


class Box:
    """One case's world."""

    def __init__(self, program):
        self.program = program
        self.directory = tempfile.mkdtemp(prefix="tm")
        for name in ("host", "container", "state", "run", "cache", "config", "home"):
            os.mkdir(self.file(name), 0o700)
        self.root = self.file("host")
        self.roots = {"primary": self.root}
        self.container = self.file("container")
        self.cache = self.file("cache")
        self.state = self.file("state")
        self.environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "LANG": "C.UTF-8",
            "HOME": self.file("home"),
            "XDG_STATE_HOME": self.state,
            "XDG_RUNTIME_DIR": self.file("run"),
            "XDG_CACHE_HOME": self.cache,
            "XDG_CONFIG_HOME": self.file("config"),
            "XDG_DATA_HOME": self.file("home"),
            "TULO_CONTAINER": self.container,
        }
        # What a sanitized build needs to know, and where temporary files go.
        for name in ("TMPDIR", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
            if name in os.environ:
                self.environment[name] = os.environ[name]
        self.processes = []
        self.mounts = []
        self.host = None

    def file(self, name):
        return os.path.join(self.directory, name)

    # The host's side.

    def add_account(self, name):
        self.roots[name] = self.file(f"host-{name}")
        os.mkdir(self.roots[name])
        return self.roots[name]

    def write(self, name, data=b"", account="primary"):
        """Puts a file into the host's folder under its final name in one go."""
        path = os.path.join(self.roots[account], name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        # Beside the root: the host must not see the file before it is whole.
        staged = self.file("staged")
        with open(staged, "wb") as file:
            file.write(data)
        os.rename(staged, path)
        return path

    def start_host(self, *arguments):
        self.host = Host(self, self.roots, arguments)
        self.processes.append(self.host)
        return self.host

    def restart_host(self, *arguments):
        self.host.stop()
        return self.start_host(*arguments)

    def fetches(self):
        return self.host.requests("fetch")

    # The mount's side.

    def mount(self, *arguments, point=None, name=None):
        """Mounts the account; the first mount is the one that path() means."""
        number = len(self.mounts)
        mount = Mount(
            self,
            point or self.file("m" if number == 0 else f"m{number}"),
            arguments,
            name or f"mount{number}",
        )
        self.mounts.append(mount)
        self.processes.append(mount)
        return mount

    def path(self, name=""):
        return self.mounts[0].path(name)

    def remount(self, *arguments):
        """Ends the first mount and starts another one in its place."""
        old = self.mounts.pop(0)
        old.unmount()
        self._check_log(old)
        mount = self.mount(*arguments, point=old.point, name=f"again{len(self.processes)}")
        self.mounts.remove(mount)
        self.mounts.insert(0, mount)
        return mount

    def allow_errors(self, *patterns):
        """Log lines of the first mount that belong to what the case does."""
        self.mounts[0].allowed_errors.extend(patterns)

    def tulo(self, *arguments, check=True):
        result = subprocess.run(
            [self.program, *arguments],
            env=self.environment,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=2 * PATIENCE,
            check=False,
        )
        if check and result.returncode != 0:
            raise Failure(
                f"tulo {' '.join(arguments)} ended with {result.returncode}: "
                f"{clean_output(result.stdout)}{clean_output(result.stderr)}"
            )
        return result

    def status(self):
        """What the first service says of itself."""
        return json.loads(self.tulo("status", "--json").stdout.splitlines()[0])

    def state_of(self, name, attribute="state"):
        return os.getxattr(self.path(name), f"user.tulo.{attribute}").decode()

    def download(self, name):
        return read(self.path(name))

    # The end.

    def _check_log(self, mount):
        errors = mount.unexpected_errors()
        expect(not errors, "the service's log tells of failures:\n" + "\n".join(errors))

    def finish(self):
        """The checks that every case ends with."""
        for mount in self.mounts:
            if mount.is_running():
                mount.unmount()
            self._check_log(mount)

    def logs(self):
        parts = []
        for name in sorted(os.listdir(self.directory)):
            if name.endswith(".log"):
                with open(self.file(name), "rb") as file:
                    text = file.read().decode(errors="replace")
                lines = text.splitlines()
                told = [line for line in lines[:-30] if not line.startswith("info")][-30:]
                parts.append("\n".join([f"--- {name}", *told, "...", *lines[-30:]]))
        return "\n".join(parts)

    def tear_down(self):
        """Leaves nothing running, mounted or on disk, whatever happened."""
        points = {f[4] for f in mount_table() if f[4].startswith(self.directory + "/")}
        for point in points:
            abort_connection(point)
        for process in self.processes:
            process.signal(signal.SIGKILL)
            process.process.wait()
            if process.process.stdout:
                process.process.stdout.close()
        for point in points:
            detach(point)
        shutil.rmtree(self.directory, ignore_errors=True)

"""What the tests of the command share: a container, an index, a host, and running the command.

They know the command's contract, the index's schema and the socket's wire format, and nothing of
the code behind them.
"""

import base64
import json
import os
import shutil
import socket
import sqlite3
import subprocess
import tempfile
import threading
import unittest
import urllib.parse

EXECUTABLE = os.path.abspath(os.environ.get("TULO_EXECUTABLE", "build/test/bin/tulo"))
ROOT = "NSFileProviderRootContainerItemIdentifier"

# Far longer than anything takes, also under a sanitizer on a loaded machine.
PATIENCE = 60

SCHEMA = """
CREATE TABLE folders (ulid TEXT, name TEXT, parent_ulid TEXT);
CREATE TABLE items (ulid TEXT, name TEXT, folder_ulid TEXT, size INTEGER, mtime_unix INTEGER,
                    version_number INTEGER, locked_by_user_id INTEGER);
"""


def provider_error(code):
    return {"domain": "NSFileProviderErrorDomain", "code": code, "userInfo": {}}


def cocoa_error(code):
    return {"domain": "NSCocoaErrorDomain", "code": code, "userInfo": None}


NO_SUCH_ITEM = provider_error(-1005)
SERVER_UNREACHABLE = provider_error(-1004)
CANNOT_SYNCHRONIZE = provider_error(-2005)


def like_the_root(identifier):
    """The root itself, or a placeholder for an item without a row."""
    return {
        "itemIdentifier": identifier,
        "parentItemIdentifier": ROOT,
        "filename": "Tulo Hub",
        "contentType": "public.folder",
        "capabilities": 3,
        "documentSize": None,
        "contentModificationDate": None,
        "isUploaded": True,
        "isDownloaded": False,
        "itemVersion": {"contentVersion": "0", "metadataVersion": "0-"},
    }


def folder_item(ulid, name, parent=ROOT):
    return {
        "itemIdentifier": "f:" + ulid,
        "parentItemIdentifier": parent,
        "filename": name,
        "contentType": "public.folder",
        "capabilities": 47,
        "documentSize": None,
        "contentModificationDate": None,
        "isUploaded": True,
        "isDownloaded": False,
        "itemVersion": {"contentVersion": "0", "metadataVersion": "0-" + name},
    }


def file_item(ulid, name, content_type, size=0, modified=0, version=0, parent=ROOT, locked=False):
    return {
        "itemIdentifier": "i:" + ulid,
        "parentItemIdentifier": parent,
        "filename": name,
        "contentType": content_type,
        "capabilities": 1 if locked else 47,
        "documentSize": size,
        "contentModificationDate": modified,
        "isUploaded": True,
        "isDownloaded": False,
        "itemVersion": {
            "contentVersion": str(version),
            "metadataVersion": f"{version}-{name}",
        },
    }


class Result:
    """What one run of the command gave."""

    def __init__(self, status, output, log):
        self.status = status
        self.output = output
        self.log = log

    @property
    def lines(self):
        """Standard output, each line decoded."""
        assert not self.output or self.output.endswith("\n"), self.output
        return [json.loads(line) for line in self.output.splitlines()]

    @property
    def records(self):
        """Standard error, each line of the JSON log decoded."""
        return [json.loads(line) for line in self.log.splitlines()]


class Host:
    """A host application that answers each connection with what a function makes of its request.

    The function is given the decoded request and returns an object, the bytes of a reply, or None
    to hang up.
    """

    def __init__(self, path, answer):
        self.requests = []
        self._answer = answer
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        self._listener.listen(16)
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def close(self):
        # Shutting a listener down wakes the thread that accepts on it.
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._listener.close()

    def _serve(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with connection:
                self._exchange(connection)

    def _exchange(self, connection):
        received = b""
        while not received.endswith(b"\n"):
            some = connection.recv(65536)
            if not some:
                return
            received += some
        request = json.loads(received)
        self.requests.append(request)
        reply = self._answer(request) if callable(self._answer) else self._answer
        if reply is None:
            return
        if isinstance(reply, dict):
            reply = json.dumps(reply).encode() + b"\n"
        try:
            connection.sendall(reply)
            connection.settimeout(PATIENCE)
            connection.recv(1)
        except OSError:
            pass


class ProviderTest(unittest.TestCase):
    """A container of its own for each test, and running `tulo provider` on it."""

    def setUp(self):
        base = tempfile.gettempdir()
        self.directory = tempfile.mkdtemp(prefix="tulo-", dir=base if len(base) < 48 else "/tmp")
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.container = os.path.join(self.directory, "container")
        os.mkdir(self.container)

    def path(self, name):
        return os.path.join(self.container, name)

    def index(self, folders=(), files=(), name="state.db"):
        """Adds rows: (ulid, name, parent) and (ulid, name, folder, size, modified, version,
        locked by)."""
        fresh = not os.path.exists(self.path(name))
        with sqlite3.connect(self.path(name)) as database:
            if fresh:
                database.executescript(SCHEMA)
            database.executemany("INSERT INTO folders VALUES (?, ?, ?)", folders)
            database.executemany("INSERT INTO items VALUES (?, ?, ?, ?, ?, ?, ?)", files)
        database.close()

    def host(self, answer):
        host = Host(self.path("fp.sock"), answer)
        self.addCleanup(host.close)
        return host

    def command(self, arguments, group=("--log-format", "json"), container=True):
        where = ["--container", self.container] if container else []
        return [EXECUTABLE, "provider", *where, *group, *arguments]

    def run_command(self, command, **options):
        done = subprocess.run(command, capture_output=True, timeout=PATIENCE, **options)
        return Result(done.returncode, done.stdout.decode(), done.stderr.decode())

    def tulo(self, *arguments, group=("--log-format", "json")):
        return self.run_command(self.command(arguments, group))

    def check(self, result, status, lines):
        self.assertEqual(result.lines, lines, result.log)
        self.assertEqual(result.status, status, result.log)

    def check_wrong_usage(self, *arguments):
        result = self.run_command([EXECUTABLE, *arguments])
        self.assertEqual(result.status, 2, arguments)
        self.assertEqual(result.output, "", arguments)
        self.assertNotEqual(result.log.strip(), "", arguments)


def progress(completed, total):
    return {"progress": {"completed": completed, "total": total}}


def thumbnail(identifier, data):
    encoded = None if data is None else base64.b64encode(data).decode()
    return {"thumbnail": {"itemIdentifier": identifier, "data": encoded, "error": None}}


def path_of(url):
    """The path of a file URL, which must be ASCII."""
    assert url.isascii() and url.startswith("file:///"), url
    return urllib.parse.unquote(url[len("file://") :])


# For the modules' own main.
main = unittest.main

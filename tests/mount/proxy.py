"""A socket between the service and the host that fails in every way that a host can."""

import json
import os
import socket
import threading

FAILURES = ["unauthorized", "quota", "network", "rate_limited", "locked", "disk_full", "io"]


class Proxy:
    """Listens where the service looks for the host; the host listens elsewhere.

    `rule(request)` says what becomes of a request: None passes it on; a kind of failure refuses it;
    "lost" has the work done and loses the answer; "hang up" loses the request; "silent" never
    answers; "garbage" answers with no answer at all.
    """

    def __init__(self, container, rule):
        self.path = os.path.join(container, "fp.sock")
        self.behind = os.path.join(container, "behind.sock")
        os.rename(self.path, self.behind)
        self.rule = rule
        self.counts = {}
        self.ended = threading.Event()
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(self.path)
        self.listener.listen(64)
        self.thread = threading.Thread(target=self._accept, daemon=True)
        self.thread.start()

    def _accept(self):
        while not self.ended.is_set():
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(client,), daemon=True).start()

    def _serve(self, client):
        with client:
            try:
                with client.makefile("rb") as lines:
                    line = lines.readline()
                if line:
                    self._answer(client, line)
            except OSError:
                pass

    def _answer(self, client, line):
        request = json.loads(line)
        what = self.rule(request)
        self.counts[what] = self.counts.get(what, 0) + 1
        if what is None:
            client.sendall(self._ask(line))
        elif what == "lost":
            self._ask(line)
        elif what == "silent":
            self.ended.wait()
        elif what == "garbage":
            client.sendall(b"no answer at all\n")
        elif what != "hang up":
            answer = {"ok": False, "error": f"the host says {what}", "kind": what}
            client.sendall(json.dumps(answer).encode() + b"\n")

    def _ask(self, line):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as host:
            host.connect(self.behind)
            host.sendall(line)
            with host.makefile("rb") as answer:
                return answer.read()

    def end(self):
        """The host is reached directly again."""
        self.ended.set()
        self.listener.close()
        os.rename(self.behind, self.path)

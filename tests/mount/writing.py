"""What the cases about changes share: a mount that can be changed, and waiting for the host."""

import errno
import glob
import json
import os
import socket

from harness import Failure, eventually, read

# The reference host's own folder in the account's.
HOSTS_OWN = ".tulo-host"


def writable(box, *arguments):
    mount = box.mount(*arguments)
    return mount


def remove_index(box):
    """As when a host is set up again."""
    for name in os.listdir(box.container):
        if name.startswith("state.db"):
            os.unlink(os.path.join(box.container, name))


def _refuse_shortage(error):
    """A folder that cannot be listed for want of descriptors is not an empty one."""
    if error.errno in (errno.EMFILE, errno.ENFILE):
        raise error


def tree(root, elsewhere=None):
    """Every folder (None) and file (its bytes) below root.

    `elsewhere`: a list for the names of files whose bytes only the host has, which is not there.
    """
    result = {}
    for folder, folders, files in os.walk(root, onerror=_refuse_shortage):
        if HOSTS_OWN in folders:
            folders.remove(HOSTS_OWN)
        for name in folders:
            if os.path.islink(os.path.join(folder, name)):
                continue
            result[os.path.relpath(os.path.join(folder, name), root)] = None
        for name in files:
            path = os.path.join(folder, name)
            if os.path.islink(path):
                continue
            try:
                with open(path, "rb") as file:
                    result[os.path.relpath(path, root)] = file.read()
            except FileNotFoundError:
                # Renamed at this moment: whoever waits for the tree looks again.
                continue
            except OSError as error:
                if elsewhere is None or error.errno != errno.EHOSTDOWN:
                    raise
                elsewhere.append(os.path.relpath(path, root))
    return result


def difference(found, wanted):
    parts = []
    for name in sorted(set(found) | set(wanted)):
        if name not in found:
            parts.append(f"missing {name}")
        elif name not in wanted:
            parts.append(f"unexpected {name}")
        elif found[name] != wanted[name]:
            parts.append(f"different {name}")
    return parts


def status(box):
    """What the service says of itself, over its socket."""
    (path,) = glob.glob(os.path.join(box.file("run"), "tulo", "*.sock"))
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        client.connect(path)
        client.sendall(b'{"op":"status"}\n')
        with client.makefile("rb") as answer:
            return json.loads(answer.readline())


def settled(box, patience=60.0):
    """Waits until the host has everything."""

    def drained():
        now = status(box)
        return now["pending"] == 0 and now["uploading"] == 0

    try:
        eventually(drained, "the queue is empty", patience)
    except Failure as failure:
        raise Failure(f"{failure}: {status(box)}") from None


def host_tree(box):
    return tree(box.root)


def comes_to_the_host(box, name, data):
    path = os.path.join(box.root, name)
    eventually(lambda: os.path.exists(path) and read(path) == data, f"{name} at the host")


def expect_host(box, wanted, what="the host's folder"):
    def same():
        return not difference(host_tree(box), wanted)

    try:
        eventually(same, what)
    except Failure:
        raise Failure(f"{what}: {difference(host_tree(box), wanted)}") from None

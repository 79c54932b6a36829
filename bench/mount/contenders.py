"""What is compared: the bare folder, bindfs, `rclone mount` with its cache, and this system."""

import os
import shutil
import statistics
import subprocess

from harness import detach, eventually, is_mounted


class Bare:
    name = "bare"

    def __init__(self, box, source=None):
        self.box = box
        self.source = source or box.root
        self.root = self.source

    def start(self):
        pass

    def stop(self):
        pass

    def forget_contents(self):
        pass

    def restart(self):
        self.stop()
        self.start()


class Peer(Bare):
    """A program that shows a folder elsewhere, in the foreground."""

    def __init__(self, box, source=None):
        super().__init__(box, source)
        self.root = box.file(self.name)
        self.cache = box.file(f"{self.name}-cache")
        self.process = None

    def command(self):
        raise NotImplementedError

    def start(self):
        os.makedirs(self.root, exist_ok=True)
        with open(self.box.file(f"{self.name}.log"), "ab") as log:
            self.process = subprocess.Popen(self.command(), stdout=log, stderr=log)
        eventually(lambda: is_mounted(self.root), f"{self.name} mounts")
        eventually(lambda: set(os.listdir(self.root)) == set(os.listdir(self.source)),
                   f"{self.name} shows the folder")

    def stop(self):
        if not self.process:
            return
        subprocess.run(["fusermount3", "-u", self.root], check=False)
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process = None
        if is_mounted(self.root):
            detach(self.root)


class Bindfs(Peer):
    name = "bindfs"

    def command(self):
        return ["bindfs", "-f", "--no-allow-other", self.source, self.root]


class Rclone(Peer):
    name = "rclone"

    def __init__(self, box, source=None, options=("--read-only",)):
        super().__init__(box, source)
        self.options = options

    def command(self):
        return ["rclone", "mount", self.source, self.root, "--vfs-cache-mode", "full",
                "--cache-dir", self.cache, "--config", os.devnull, "--dir-cache-time", "1000h",
                "--vfs-cache-max-age", "1000h", *self.options]

    def forget_contents(self):
        self.stop()
        shutil.rmtree(self.cache, ignore_errors=True)
        self.start()


class Tulo(Bare):
    name = "tulo"

    def __init__(self, box, options=()):
        super().__init__(box)
        self.root = box.file("m")
        self.options = options
        self.service = None

    def start(self):
        number = len(self.box.processes)
        self.service = self.box.mount("--cache-size", "50G", "--keep-free", "0%",
                                      "--no-thumbnails", *self.options, point=self.root, name=f"mount{number}")

    def stop(self):
        if self.service:
            self.service.unmount()
            self.service = None

    def forget_contents(self):
        """As after the first installation."""
        self.stop()
        shutil.rmtree(os.path.join(self.box.state, "tulo"), ignore_errors=True)
        self.start()


def ratio(times, name):
    """The median of the rounds' ratios to the bare folder."""
    return statistics.median(a / b for a, b in zip(times[name], times["bare"]))

#!/usr/bin/env python3
"""Holds the systemd unit against systemd's own check and against the executable's options."""

import os
import re
import shutil
import subprocess
import sys
import tempfile

from executable import REPOSITORY, SKIPPED, finish, options

UNIT = REPOSITORY / "packaging" / "systemd" / "tulo-mount@.service"


def verify(program, text):
    """systemd's complaints about an instance of the unit, with the executable under test in it."""
    with tempfile.TemporaryDirectory() as folder:
        path = f"{folder}/tulo-mount@test.service"
        with open(path, "w", encoding="utf-8") as file:
            file.write(text.replace("/usr/bin/tulo ", f"{program} "))
        result = subprocess.run(["systemd-analyze", "--user", "--man=no", "--recursive-errors=no",
                                 "verify", path], capture_output=True, text=True, check=False,
                                env=dict(os.environ, XDG_RUNTIME_DIR=folder, HOME=folder))
        return result.returncode, result.stderr


def main():
    program = sys.argv[1]
    text = UNIT.read_text(encoding="utf-8")
    failures = []
    command = re.search(r"^ExecStart=/usr/bin/tulo mount (.*)$", text, re.MULTILINE)
    if not command:
        finish(["the unit does not start 'tulo mount'"])
    for name in re.findall(r"--[a-z-]+", command.group(1)):
        if name not in options(program, "mount"):
            failures.append(f"'tulo mount' has no option {name}")
    if "--foreground" not in command.group(1):
        failures.append("the service does not stay in the foreground")
    if not re.search(r"^Type=notify$", text, re.MULTILINE):
        failures.append("the unit does not wait until the folder answers")
    if not re.search(r"^TimeoutStopSec=\d+$", text, re.MULTILINE):
        failures.append("nothing bounds how long the service may take to end")
    if not shutil.which("systemd-analyze"):
        if failures:
            finish(failures)
        print("skipped: systemd-analyze is not installed")
        sys.exit(SKIPPED)
    status, complaints = verify(program, text)
    if status != 0 or complaints:
        failures.append(f"systemd-analyze verify ended with {status}: {complaints}")
    finish(failures)


if __name__ == "__main__":
    main()

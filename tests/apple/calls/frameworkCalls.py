#!/usr/bin/env python3
"""Holds what the macOS side uses of Apple's frameworks against a checked list.

usage: frameworkCalls.py LIST SOURCE-FOLDER OBJECT...

The list has a line for each thing that is used: `selector NAME OWNER SINCE` for a message that is
sent, `name NAME OWNER SINCE` for a class, a function, a constant, a type or a macro. OWNER is the
class or the framework that declares it, SINCE the version of macOS that has it first.

Fails when the sources use what the list does not have, when the list has what nothing uses, and when
something is newer than the oldest macOS that the extension runs on. Messages and linked names are
read from the compiled objects, so that none is overlooked; types and macros from the sources.
"""

import pathlib
import re
import subprocess
import sys

OLDEST_SYSTEM = (11, 0)
SELECTOR = re.compile(r"objc_sel_name(\S+)")
FRAMEWORK_NAME = (r"(?:NS[A-Z]\w+|UT[A-Z]\w+|CG[A-Z]\w+|QOS_CLASS_\w+|OS_LOG_\w+|os_log\w*"
                  r"|dispatch_\w+|qos_class_\w+|Block_\w+|YES|NO|nil|SEL|BOOL|unichar)")
LINKED = re.compile(rf"\bU (?:__objc_class_(?:ref|name)_|_)?({FRAMEWORK_NAME})$", re.MULTILINE)
NOT_CODE = re.compile(r"//[^\n]*|@?\"(?:\\.|[^\"\\\n])*\"|#(?:include|import)[^\n]*")
# What the compiler or GNUstep's own headers put into the objects, and no source asks for.
OF_THE_COMPILER = {"countByEnumeratingWithState:objects:count:", "NSConcreteStackBlock",
                   "NSRangeExceptionRaise"}


class ListError(Exception):
    """A line of the list that says too little."""


def listed(path):
    """Of each kind and name: the version that has it first."""
    entries = {}
    for number, line in enumerate(path.read_text().splitlines(), 1):
        words = line.partition("#")[0].split()
        if not words:
            continue
        if len(words) != 4 or words[0] not in ("selector", "name"):
            raise ListError(f"{path}:{number}: expected 'selector|name NAME OWNER SINCE'")
        kind, name, _, since = words
        entries[kind, name] = tuple(int(part) for part in since.split("."))
    return entries


def outputOf(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def usedByObjects(objects):
    used = set()
    for item in objects:
        sections = outputOf("readelf", "--section-headers", "--wide", item)
        used |= {("selector", name) for name in SELECTOR.findall(sections)}
        used |= {("name", name) for name in LINKED.findall(outputOf("nm", "--undefined-only", item))}
    return used


def usedBySources(folder):
    # A name behind "platform::" is this project's own.
    pattern = re.compile(rf"(?<!platform::)(?<!\w){FRAMEWORK_NAME}\b")
    used = set()
    for path in sorted(folder.iterdir()):
        if path.suffix in (".h", ".mm"):
            code = NOT_CODE.sub(" ", path.read_text())
            used |= {("name", name) for name in pattern.findall(code)}
    return used


def main(arguments):
    if len(arguments) < 3:
        sys.exit(__doc__)
    entries = listed(pathlib.Path(arguments[0]))
    used = usedByObjects(arguments[2:]) | usedBySources(pathlib.Path(arguments[1]))
    used = {(kind, name) for kind, name in used if name not in OF_THE_COMPILER}
    faults = [f"{kind} {name} is used, and not on the list" for kind, name in used - entries.keys()]
    faults += [f"{kind} {name} is on the list, and not used" for kind, name in entries.keys() - used]
    faults += [f"{kind} {name} came with macOS {'.'.join(map(str, since))}"
               for (kind, name), since in entries.items() if since > OLDEST_SYSTEM]
    for fault in sorted(faults):
        print(fault)
    print(f"{len(entries)} things of Apple's frameworks, {len(faults)} faults")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main(sys.argv[1:])

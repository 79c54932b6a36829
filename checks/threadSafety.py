#!/usr/bin/env python3
"""Shows that the clang builds refuse a guarded member without its lock.

usage: threadSafety.py BUILD-DIRECTORY

Compiles a few lines with the very flags that the build directory's compile_commands.json has for the
service: once with the lock, which must pass, and in three ways without, each of which must fail.
"""

import json
import pathlib
import shlex
import subprocess
import sys
import tempfile

MODEL = "service/Engine.cpp"

LINES = """
#include "platform/linux/Mutex.h"

namespace tulo {{

class Counter {{
 public:
  void add() {{
    {add}
  }}
  int wait() {{
    MutexLock lock(mutex_);
    while (count_ == 0)
      changed_.wait(lock);
    return count_;
  }}

 private:
  void addLocked() TULO_REQUIRES(mutex_) {{ ++count_; }}

  Mutex mutex_;
  Condition changed_;
  int count_ TULO_GUARDED_BY(mutex_) = 0;
}};

int useCounter() {{
  Counter counter;
  counter.add();
  return counter.wait();
}}

}}  // namespace tulo
"""

RIGHT = "const MutexLock lock(mutex_); ++count_;"
WRONG = {
    "a guarded member without its lock": "++count_;",
    "a function that needs the lock, without it": "addLocked();",
    "a lock that was given back": "MutexLock lock(mutex_); lock.unlock(); ++count_;",
}


class CheckError(Exception):
    """The build directory does not have what this check needs."""


def commandFor(build):
    """The compiler and its flags for the model file, without what is read and written."""
    commands = pathlib.Path(build) / "compile_commands.json"
    for entry in json.loads(commands.read_text(encoding="utf-8")):
        if entry["file"].endswith("/" + MODEL):
            words = shlex.split(entry["command"])
            break
    else:
        raise CheckError(f"{commands} has no {MODEL}")
    if pathlib.Path(words[0]).name == "ccache":
        words = words[1:]
    result, skip = [], False
    for word in words:
        if skip:
            skip = False
        elif word in {"-o", "-c", "-MT", "-MF"}:
            skip = True
        elif word != "-MD":
            result.append(word)
    return result


def compiled(command, add):
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / "Counter.cpp"
        source.write_text(LINES.format(add=add), encoding="utf-8")
        return subprocess.run([*command, "-fsyntax-only", str(source)], capture_output=True,
                              text=True, check=False)


def faults(command):
    right = compiled(command, RIGHT)
    if right.returncode != 0:
        yield f"with the lock it does not compile:\n{right.stderr}"
    for what, add in WRONG.items():
        result = compiled(command, add)
        if result.returncode == 0:
            yield f"this compiles: {what}"
        elif "-Wthread-safety" not in result.stderr:
            yield f"{what}: refused, but for another reason:\n{result.stderr}"


def main():
    if len(sys.argv) != 2:
        print("usage: threadSafety.py BUILD-DIRECTORY", file=sys.stderr)
        return 2
    try:
        found = list(faults(commandFor(sys.argv[1])))
    except (CheckError, OSError, ValueError) as error:
        print(f"threadSafety.py: {error}", file=sys.stderr)
        return 2
    for fault in found:
        print(fault)
    print(f"{len(WRONG) + 1} pieces compiled, {len(found)} not as they should be")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())

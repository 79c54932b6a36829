#!/usr/bin/env python3
"""Runs cases of the mounted tests: `run.py --tulo PATH CASE...`, or all of them without a name.

A case is a function marked with @case in a file of cases/; its name is FILE.FUNCTION. Exit status: 0 passed, 1 failed, 77 skipped.
"""

import argparse
import faulthandler
import importlib
import os
import pathlib
import signal
import sys
import threading
import time
import traceback

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

from harness import Box, Skip, abort_connection, mount_table  # noqa: E402

SKIPPED = 77
# A case that waits longer than this hangs; its mounts are cut off so that it can end.
LIMIT = float(os.environ.get("TULO_CASE_LIMIT", "150"))


def all_cases():
    cases = {}
    for file in sorted((HERE / "cases").glob("*.py")):
        module = importlib.import_module(f"cases.{file.stem}")
        for name, value in vars(module).items():
            if getattr(value, "is_case", False):
                cases[f"{file.stem}.{name}"] = value
    return cases


class Watchdog:
    """Cuts a hanging case off: says where it hangs and ends what it waits for."""

    def __init__(self, box):
        self.box = box
        self.barked = False
        self.timer = threading.Timer(LIMIT, self._bark)
        self.timer.daemon = True

    def __enter__(self):
        self.timer.start()
        return self

    def __exit__(self, *_):
        self.timer.cancel()

    def _bark(self):
        self.barked = True
        print(f"the case hangs since {LIMIT:.0f} s:", file=sys.stderr, flush=True)
        faulthandler.dump_traceback(file=sys.stderr, all_threads=True)
        for fields in mount_table():
            if fields[4].startswith(self.box.directory + "/"):
                abort_connection(fields[4])


def run(name, function, program):
    if not os.path.exists("/dev/fuse"):
        print(f"skipped {name}: there is no /dev/fuse")
        return SKIPPED
    begin = time.monotonic()
    box = Box(program)
    with Watchdog(box) as watchdog:
        try:
            function(box)
            box.finish()
            if watchdog.barked:
                raise TimeoutError("cut off by the watchdog")
            print(f"passed {name} in {time.monotonic() - begin:.1f} s")
            return 0
        except Skip as reason:
            print(f"skipped {name}: {reason}")
            return SKIPPED
        except BaseException as error:  # pylint: disable=broad-except
            traceback.print_exc()
            print(box.logs(), file=sys.stderr)
            print(f"FAILED {name}: {error}", file=sys.stderr)
            print(f"replay: {sys.executable} {__file__} --tulo {program} {name}", file=sys.stderr)
            if isinstance(error, KeyboardInterrupt):
                raise
            return 1
        finally:
            box.tear_down()


def main():
    parser = argparse.ArgumentParser(description="Runs cases of the mounted tests.")
    parser.add_argument("--tulo", help="the executable to test")
    parser.add_argument("--list", action="store_true", help="print the names of the cases")
    parser.add_argument("cases", nargs="*", help="default: all")
    arguments = parser.parse_args()
    cases = all_cases()
    if arguments.list:
        print("\n".join(cases))
        return 0
    if not arguments.tulo:
        parser.error("--tulo PATH is needed to run cases")
    unknown = [name for name in arguments.cases if name not in cases]
    if unknown:
        parser.error(f"no such case: {', '.join(unknown)} (--list prints them)")
    program = os.path.abspath(arguments.tulo)
    if not os.access(program, os.X_OK):
        parser.error(f"--tulo {arguments.tulo}: not an executable")
    # Whoever runs this in the background of a shell has it ignore interrupts, and so would the
    # programs that a case interrupts.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    results = [run(name, cases[name], program) for name in arguments.cases or cases]
    failed = sum(result == 1 for result in results)
    skipped = sum(result == SKIPPED for result in results)
    if len(results) > 1:
        print(f"{len(results)} cases, {failed} failed, {skipped} skipped")
    return 1 if failed else SKIPPED if results and skipped == len(results) else 0


if __name__ == "__main__":
    sys.exit(main())

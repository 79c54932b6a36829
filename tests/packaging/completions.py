#!/usr/bin/env python3
"""Drives the completions of both shells as a user's tabulator key does."""

import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile

from executable import REPOSITORY, SKIPPED, finish, options, subcommands

FOLDER = REPOSITORY / "packaging" / "completions"


def complete_in_bash(environment, words):
    """What bash offers for the last of the words."""
    script = (f"source {shlex.quote(str(FOLDER / 'tulo.bash'))}\n"
              f"COMP_WORDS=({' '.join(shlex.quote(word) for word in words)})\n"
              f"COMP_CWORD={len(words) - 1}\n"
              "_tulo\n"
              'printf "%s\\n" "${COMPREPLY[@]}"\n')
    result = subprocess.run(["bash", "--norc", "-c", script], env=environment, capture_output=True,
                            text=True, check=False)
    if result.stderr:
        raise AssertionError(result.stderr)
    return {line for line in result.stdout.splitlines() if line}


def complete_in_zsh(environment, words):
    """What the function offers for the last of the words, with zsh's own two helpers recorded."""
    script = ("compadd() { shift; print -l -- \"$@\" }\n"
              "_files() { print -l -- FILES }\n"
              f"words=({' '.join(shlex.quote(word) for word in words)})\n"
              f"CURRENT={len(words)}\n"
              f"source {shlex.quote(str(FOLDER / '_tulo'))}\n")
    result = subprocess.run(["zsh", "-f", "-c", script], env=environment, capture_output=True,
                            text=True, check=False)
    if result.stderr:
        raise AssertionError(result.stderr)
    offered = {line for line in result.stdout.splitlines() if line}
    return {line for line in offered if line.startswith(words[-1]) or line == "FILES"}


def expectations(program):
    """Words, and what must be offered for the last of them."""
    commands = set(subcommands(program))
    yield ["tulo", ""], commands
    yield ["tulo", "mo"], {"mount"}
    yield ["tulo", "host", ""], set(subcommands(program, "host"))
    yield ["tulo", "provider", "enu"], {"enumerate"}
    yield ["tulo", "mount", "--cache"], {"--cache-size"}
    yield ["tulo", "mount", "--log-format", ""], {"text", "json"}
    yield ["tulo", "mount", "--log-format", "j"], {"json"}
    yield ["tulo", "nonsense", "mo"], {"mount"}
    for command in sorted(commands):
        yield ["tulo", command, "--"], options(program, command)


def check(shell, complete, program, environment):
    failures = []
    for words, wanted in expectations(program):
        offered = complete(environment, words)
        if offered != wanted:
            failures.append(f"{shell}, {words}: offered {sorted(offered)}, wanted {sorted(wanted)}")
    return failures


def check_paths(environment, folder):
    (pathlib.Path(folder) / "my folder").mkdir()
    offered = complete_in_bash(environment, ["tulo", "mount", f"{folder}/my"])
    if offered != {f"{folder}/my folder"}:
        return [f"bash offers {offered} for a path"]
    return []


def main():
    program = sys.argv[1]
    failures = []
    for file, shell in (("tulo.bash", "bash"), ("_tulo", "zsh")):
        if shutil.which(shell):
            result = subprocess.run([shell, "-n", str(FOLDER / file)], capture_output=True,
                                    text=True, check=False)
            if result.returncode != 0:
                failures.append(f"{file}: {result.stderr}")
    with tempfile.TemporaryDirectory() as folder:
        binaries = os.path.join(folder, "bin")
        os.mkdir(binaries)
        os.symlink(program, os.path.join(binaries, "tulo"))
        environment = dict(os.environ, PATH=f"{binaries}:{os.environ['PATH']}", LC_ALL="C.UTF-8")
        failures += check("bash", complete_in_bash, program, environment)
        failures += check_paths(environment, folder)
        if shutil.which("zsh"):
            failures += check("zsh", complete_in_zsh, program, environment)
    if failures or shutil.which("zsh"):
        finish(failures)
    print("skipped for zsh, which is not installed; bash's completion passed")
    sys.exit(SKIPPED)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Holds packaging/packages.txt against what builds on this machine really opened.

usage: packageList.py SECTION,SECTION... BUILD-DIRECTORY...

The sections are those that ./dev installs before it makes these builds: what other commands need
may be missing here, and must not be what covers a header.

Every header that the compiler read, every library that the linker was given and every program that
the builds and ./dev call must belong to a package that these sections name, to one that such a package
depends on, or to one that every Debian system (and git) has. So a header that happens to be on a
developer's machine cannot become a requirement that nobody wrote down.

What is only opened at run time (loaders, data) cannot be seen here.
"""

import functools
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "packaging/packages.txt"
ASSUMED = ["git"]
PROGRAMS_OF_DEV = ["git", "cmake", "ctest", "ninja", "ccache", "python3", "clang-tidy",
                   "clang-format", "shellcheck", "setarch", "nproc", "xargs", "awk", "sed", "grep"]
PROGRAMS_OF_CACHE = re.compile(r"^(CMAKE_C(?:XX)?_COMPILER|CMAKE_MAKE_PROGRAM|CMAKE_AR|CMAKE_RANLIB"
                               r"|TULO_CCACHE|PKG_CONFIG_EXECUTABLE)(?::\w+)?=(/.*)$", re.MULTILINE)


def outputOf(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def listedPackages():
    """The packages of each section."""
    sections = {}
    for line in LIST.read_text().splitlines():
        words = line.partition("#")[0].split()
        if words and words[0].startswith("["):
            section = sections.setdefault(words[0].strip("[]"), [])
        elif words:
            section.append(words[0])
    return sections


def installedPackages():
    """Of each installed package: the names it depends on, and whether every system has it."""
    fields = ("${db:Status-Status}", "${Package}", "${Pre-Depends}, ${Depends}", "${Provides}",
              "${Essential}", "${Priority}")
    packages, providers = {}, {}
    for record in outputOf("dpkg-query", "-W", "-f=" + "\\t".join(fields) + "\\n").splitlines():
        status, name, depends, provides, essential, priority = record.split("\t")
        if status != "installed":
            continue
        packages[name] = (namesIn(depends), essential == "yes" or priority == "required")
        for provided in namesIn(provides):
            providers.setdefault(provided, []).append(name)
    return packages, providers


def namesIn(relation):
    """The package names of a relation field, alternatives included."""
    words = re.split(r"[,|]", re.sub(r"\([^)]*\)|\[[^]]*\]", "", relation))
    return [word.strip().partition(":")[0] for word in words if word.strip()]


def closureOf(names, packages, providers):
    found, waiting = set(), list(names)
    while waiting:
        name = waiting.pop()
        waiting.extend(p for p in providers.get(name, []) if p not in found)
        if name in packages and name not in found:
            found.add(name)
            waiting.extend(packages[name][0])
    return found


def headersOf(build):
    """Files outside the tree that the compiler read."""
    for line in outputOf("ninja", "-C", str(build), "-t", "deps").splitlines():
        path = line.strip()
        if line.startswith("    ") and path.startswith("/") and not path.startswith(f"{ROOT}/"):
            yield path


@functools.lru_cache(maxsize=None)
def libraryPath(name):
    """Where the compiler's linker finds -lNAME."""
    for suffix in (".so", ".a"):
        path = outputOf("g++", f"-print-file-name=lib{name}{suffix}").strip()
        if path.startswith("/"):
            return path
    return f"-l{name}"


def librariesOf(build):
    for command in outputOf("ninja", "-C", str(build), "-t", "commands").splitlines():
        if " -o bin/" not in command:
            continue
        for word in shlex.split(command):
            if word.startswith("-l"):
                yield libraryPath(word[2:])
            elif re.match(r"/usr/.*\.(so|a)$", word):
                yield word


def programsOf(build):
    cache = (build / "CMakeCache.txt").read_text()
    return [match.group(2) for match in PROGRAMS_OF_CACHE.finditer(cache)]


def ownersOf(paths):
    """The package of each path; a file that no package owns is left out."""
    names = {}
    for path in paths:
        real = str(pathlib.Path(path).resolve())
        # Packages may still list a file under /lib that lives in /usr/lib.
        for spelling in {path, real, real.removeprefix("/usr")}:
            names.setdefault(spelling, path)
    answer = subprocess.run(["dpkg", "-S", *names], capture_output=True, text=True).stdout
    owners = {}
    for line in answer.splitlines():
        package, _, path = line.partition(": ")
        if path in names and not line.startswith("diversion "):
            owners[names[path]] = package.partition(",")[0].partition(":")[0]
    return owners


def openedBy(builds):
    """Every file from outside the tree, and what it was opened as."""
    opened = {f"/usr/bin/{name}": "program" for name in PROGRAMS_OF_DEV}
    for build in builds:
        opened.update((path, "program") for path in programsOf(build))
        opened.update((path, "library") for path in librariesOf(build))
        opened.update((path, "header") for path in headersOf(build))
    return opened


def faultsOf(opened, allowed):
    owners = ownersOf(opened)
    for path, kind in sorted(opened.items()):
        owner = owners.get(path)
        if owner is None:
            yield f"{kind} {path} belongs to no package"
        elif owner not in allowed:
            yield f"{kind} {path} is of package {owner}, which packaging/packages.txt does not bring"


def main():
    sections = listedPackages()
    wanted = sys.argv[1].split(",") if len(sys.argv) > 1 else []
    builds = [pathlib.Path(word).resolve() for word in sys.argv[2:]]
    if not builds or not all((build / "CMakeCache.txt").exists() for build in builds):
        print("usage: packageList.py SECTION,SECTION... BUILD-DIRECTORY... (each of them configured)",
              file=sys.stderr)
        return 2
    for name in wanted:
        if name not in sections:
            print(f"{LIST.name} has no section '{name}', only {', '.join(sections)}",
                  file=sys.stderr)
            return 2
    listed = [name for section in wanted for name in sections[section]]
    packages, providers = installedPackages()
    absent = [name for name in listed if name not in packages and name not in providers]
    base = [name for name, (_, everywhere) in packages.items() if everywhere]
    allowed = closureOf(listed + base + ASSUMED, packages, providers)
    opened = openedBy(builds)
    faults = list(faultsOf(opened, allowed))
    for name in absent:
        print(f"{name} is on the list and not installed")
    for fault in faults:
        print(fault)
    print(f"{len(opened)} files held against {len(listed)} packages: {len(faults)} not covered")
    return 1 if faults or absent else 0


if __name__ == "__main__":
    sys.exit(main())

"""A clock of the day that a test sets: for programs that are started with it, and for them alone."""

import mmap
import os
import shutil
import struct
import subprocess
import time

from harness import Skip, expect

# What the clock is ahead of the machine's, in seconds, lies in a file that every program maps.
SOURCE = r"""
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static volatile long long *ahead;

__attribute__((constructor)) static void map_clock(void) {
  const char *path = getenv("TULO_TEST_CLOCK");
  int fd = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (fd < 0) return;
  void *mapped = mmap(0, 8, PROT_READ, MAP_SHARED, fd, 0);
  close(fd);
  if (mapped != MAP_FAILED) ahead = mapped;
}

int clock_gettime(clockid_t clock, struct timespec *now) {
  int result = syscall(SYS_clock_gettime, clock, now);
  int shows_day = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
  if (result == 0 && ahead && shows_day) now->tv_sec += *ahead;
  return result;
}

int gettimeofday(struct timeval *now, void *zone) {
  struct timespec exact;
  (void)zone;
  clock_gettime(CLOCK_REALTIME, &exact);
  now->tv_sec = exact.tv_sec;
  now->tv_usec = exact.tv_nsec / 1000;
  return 0;
}

time_t time(time_t *where) {
  struct timespec exact;
  clock_gettime(CLOCK_REALTIME, &exact);
  if (where) *where = exact.tv_sec;
  return exact.tv_sec;
}
"""


class DayClock:
    """Made before the programs are started: it is their environment that brings it to them."""

    def __init__(self, box):
        compiler = shutil.which("cc")
        if not compiler:
            raise Skip("cc is not installed")
        source, library, self.path = box.file("clock.c"), box.file("clock.so"), box.file("clock")
        with open(source, "w", encoding="ascii") as file:
            file.write(SOURCE)
        subprocess.run([compiler, "-shared", "-fPIC", "-O1", "-o", library, source], check=True)
        with open(self.path, "wb") as file:
            file.write(bytes(8))
        box.environment["LD_PRELOAD"] = library
        box.environment["TULO_TEST_CLOCK"] = self.path
        self.set_ahead(86400)
        date = subprocess.run(["date", "+%s"], env=box.environment, capture_output=True, check=True)
        expect(int(date.stdout) - time.time() > 80000, "a program sees the clock of the test")
        self.set_ahead(0)

    def set_ahead(self, seconds):
        with open(self.path, "r+b") as file, mmap.mmap(file.fileno(), 8) as mapped:
            mapped[:] = struct.pack("q", seconds)


def has_clock(box, pid):
    """Whether the program has the library: what it does would prove nothing otherwise."""
    with open(f"/proc/{pid}/maps", encoding="utf-8", errors="surrogateescape") as maps:
        return box.file("clock.so") in maps.read()

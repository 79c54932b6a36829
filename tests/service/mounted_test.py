"""The mount as programs see it, each case with a real host and a real mount of its own."""

import errno
import mmap
import os
import shutil
import signal
import subprocess
import threading

from mounted_support import (PATIENCE, MountedCase, Watch, eventually, main, read,
                             tree, write)


class Browsing(MountedCase):
    def populate(self):
        write(self.there("a.txt"), "hello")
        write(self.there("empty"), "")
        os.makedirs(self.there("sub", "deep"))
        write(self.there("sub", "b.bin"), bytes(range(256)) * 1000)
        write(self.there("sub", "deep", "ä ö.txt"), "umlauts")
        os.mkdir(self.there("large"))
        for number in range(3000):
            write(self.there("large", f"file {number:05}"), "")

    def test_shows_the_whole_tree_with_its_contents(self):
        self.assertEqual(tree(self.mount_point), tree(self.root))

    def test_a_file_that_is_not_here_has_its_size_and_no_blocks(self):
        before = os.stat(self.here("sub", "b.bin"))
        self.assertEqual((before.st_size, before.st_blocks), (256000, 0))
        read(self.here("sub", "b.bin"))
        eventually(lambda: os.stat(self.here("sub", "b.bin")).st_blocks >= 500, "blocks are shown")
        self.assertEqual(os.stat(self.here("sub", "b.bin")).st_ino, before.st_ino)

    def test_walking_downloads_nothing(self):
        subprocess.run(["find", self.mount_point, "-ls"], check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["ls", "-lR", self.mount_point], check=True, stdout=subprocess.DEVNULL)
        self.assertEqual(self.status()["fetched"], 0)

    def test_times_are_those_of_the_host(self):
        os.utime(self.there("a.txt"), (1_600_000_000, 1_600_000_000))
        eventually(lambda: os.stat(self.here("a.txt")).st_mtime == 1_600_000_000, "the new time")

    def test_a_large_folder_is_listed_completely_each_time(self):
        expected = set(os.listdir(self.there("large")))
        for _ in range(3):
            listed = os.listdir(self.here("large"))
            self.assertEqual(len(listed), len(expected))
            self.assertEqual(set(listed), expected)

    def test_a_listing_can_be_rewound_and_continued(self):
        # The standard library reads a folder from its beginning only; a shell's tools do not.
        descriptor = os.open(self.here("large"), os.O_RDONLY)
        try:
            first = os.listdir(descriptor)
            os.lseek(descriptor, 0, os.SEEK_SET)
            self.assertEqual(os.listdir(descriptor), first)
        finally:
            os.close(descriptor)

    def test_what_does_not_exist_does_not_exist(self):
        for _ in range(2):
            self.assert_errno(errno.ENOENT, os.stat, self.here("nothing"))
            self.assert_errno(errno.ENOENT, os.stat, self.here("sub", "nothing"))
        self.assert_errno(errno.ENOTDIR, os.stat, self.here("a.txt", "below"))

    def test_the_mount_is_read_only(self):
        self.assert_errno(errno.EROFS, open, self.here("new"), "w")
        self.assert_errno(errno.EROFS, os.mkdir, self.here("new"))
        self.assert_errno(errno.EROFS, os.unlink, self.here("a.txt"))

    def test_attributes_tell_the_state(self):
        path = self.here("a.txt")
        self.assertEqual(self.state(path), "dataless")
        self.assertIn("user.tulo.identifier", os.listxattr(path))
        read(path)
        self.assertEqual(self.state(path), "downloaded")
        self.assert_errno(errno.ENODATA, os.getxattr, path, "user.tulo.nothing")
        self.assert_errno(errno.ENODATA, os.getxattr, path, "security.capability")


class Reading(MountedCase):
    # A host that is killed while it delays its answers leaves the extension without them.
    expected_errors = ("no reply from host app", )

    def populate(self):
        self.bytes = os.urandom(5_000_000)
        write(self.there("big"), self.bytes)
        for number in range(40):
            write(self.there(f"file{number}"), f"contents {number}")

    def test_reads_at_any_offset_and_by_mapping(self):
        with open(self.here("big"), "rb") as file:
            for offset in (0, 1, 4095, 1_000_001, 4_999_990):
                file.seek(offset)
                self.assertEqual(file.read(100), self.bytes[offset:offset + 100])
            file.seek(0, os.SEEK_END)
            self.assertEqual(file.read(1), b"")
            with mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as mapped:
                self.assertEqual(mapped[2_000_000:2_000_100], self.bytes[2_000_000:2_000_100])

    def test_many_readers_cause_one_download(self):
        results = []
        threads = [threading.Thread(target=lambda: results.append(read(self.here("big"))))
                   for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertTrue(all(result == self.bytes for result in results))
        self.assertEqual(len(results), 8)
        self.assertEqual(self.status()["fetched"], 1)

    def test_slow_downloads_hold_up_nothing_else(self):
        read(self.here("file0"))
        self.stop_host()
        self.start_host("--delay", "fetch=100000")
        readers = [subprocess.Popen(["cat", self.here(f"file{number}")],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                   for number in range(1, 33)]
        try:
            eventually(lambda: len(self.status()["transfers"]) == 32, "all readers wait")
            self.assertEqual(len(os.listdir(self.mount_point)), 41)
            self.assert_errno(errno.ENOENT, os.stat, self.here("never asked before"))
            self.assertEqual(read(self.here("file0")), b"contents 0")
        finally:
            for reader in readers:
                reader.send_signal(signal.SIGINT)
            for reader in readers:
                reader.wait(PATIENCE)
        self.stop_host(signal.SIGKILL)

    def test_an_interrupted_reader_returns_and_the_file_comes_all_the_same(self):
        self.stop_host()
        self.start_host("--delay", "fetch=3000")
        reader = subprocess.Popen(["cat", self.here("file1")], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        eventually(lambda: self.status()["transfers"], "the reader waits")
        reader.send_signal(signal.SIGINT)
        reader.wait(PATIENCE)
        self.assertTrue(self.status()["transfers"], "the download runs on")
        eventually(lambda: self.state(self.here("file1")) == "downloaded", "the file is here")


class Changes(MountedCase):
    def populate(self):
        write(self.there("a.txt"), "old contents")
        os.mkdir(self.there("docs"))
        os.mkdir(self.there("other"))
        write(self.there("docs", "b.txt"), "b")

    def setUp(self):
        super().setUp()
        tree(self.mount_point)

    def test_an_edit_is_read_in_its_new_version(self):
        write(self.there("a.txt"), "a longer version of the contents")
        eventually(lambda: read(self.here("a.txt")) == b"a longer version of the contents",
                   "the new version")
        write(self.there("a.txt"), "short")
        eventually(lambda: read(self.here("a.txt")) == b"short", "the short version")

    def test_no_reader_ever_sees_a_mixture(self):
        stop = threading.Event()
        wrong = []

        def look():
            while not stop.is_set():
                contents = read(self.here("a.txt"))
                if contents != b"old contents" and len(set(contents)) != 1:
                    wrong.append(contents[:100])

        readers = [threading.Thread(target=look) for _ in range(3)]
        for reader in readers:
            reader.start()
        for number in range(30):
            character = "abcdefghij"[number % 10]
            write(self.there("a.txt"), character * (100_000 + 7000 * number))
            if number % 3 == 0:
                eventually(lambda c=character, n=number:
                           read(self.here("a.txt")) == c.encode() * (100_000 + 7000 * n),
                           "the next version")
        stop.set()
        for reader in readers:
            reader.join()
        self.assertEqual(wrong, [])

    def test_a_file_that_is_open_stays_whole(self):
        with open(self.here("a.txt"), "rb") as file:
            write(self.there("a.txt"), "new")
            eventually(lambda: read(self.here("a.txt")) == b"new", "the new version")
            self.assertEqual(file.read(), b"old contents")
            self.assertEqual(os.fstat(file.fileno()).st_size, 12)

    def test_new_names_appear_also_where_they_were_missed_before(self):
        self.assert_errno(errno.ENOENT, os.stat, self.here("docs", "new.txt"))
        descriptor = os.open(self.here("docs"), os.O_RDONLY)
        write(self.there("docs", "new.txt"), "new")
        eventually(lambda: "new.txt" in os.listdir(descriptor), "it is listed")
        os.close(descriptor)
        eventually(lambda: os.path.exists(self.here("docs", "new.txt")), "it is there")
        self.assertEqual(read(self.here("docs", "new.txt")), b"new")

    def test_renames_and_moves_keep_the_inode_number(self):
        before = os.stat(self.here("docs", "b.txt")).st_ino
        os.rename(self.there("docs", "b.txt"), self.there("docs", "c.txt"))
        eventually(lambda: os.path.exists(self.here("docs", "c.txt")), "the new name")
        eventually(lambda: not os.path.exists(self.here("docs", "b.txt")), "the old name goes")
        os.rename(self.there("docs", "c.txt"), self.there("other", "c.txt"))
        eventually(lambda: os.path.exists(self.here("other", "c.txt")), "the new place")
        eventually(lambda: not os.path.exists(self.here("docs", "c.txt")), "the old place")
        self.assertEqual(os.stat(self.here("other", "c.txt")).st_ino, before)

    def test_a_deletion_is_seen_and_reported_by_inotify(self):
        watch = Watch(self.here("docs", "b.txt"))
        os.unlink(self.there("docs", "b.txt"))
        eventually(lambda: not os.path.exists(self.here("docs", "b.txt")), "it is gone")
        eventually(watch.deleted, "inotify reports it")
        watch.close()

    def test_a_folder_tree_that_is_deleted_is_gone(self):
        os.makedirs(self.there("docs", "x", "y"))
        write(self.there("docs", "x", "y", "z"), "z")
        eventually(lambda: os.path.exists(self.here("docs", "x", "y", "z")), "the tree is there")
        shutil.rmtree(self.there("docs"))
        eventually(lambda: not os.path.exists(self.here("docs")), "the tree is gone")
        self.assert_errno(errno.ENOENT, os.stat, self.here("docs", "x"))


class HostGone(MountedCase):
    expected_errors = ("no reply from host app", )

    def populate(self):
        write(self.there("here.txt"), "downloaded")
        write(self.there("not here.txt"), "still at the host")
        os.mkdir(self.there("docs"))
        write(self.there("docs", "b.txt"), "b")

    def test_what_is_known_stays_and_what_is_not_here_fails_at_once(self):
        read(self.here("here.txt"))
        os.listdir(self.here("docs"))
        self.stop_host(signal.SIGKILL)
        self.assertEqual(sorted(os.listdir(self.mount_point)), ["docs", "here.txt", "not here.txt"])
        self.assertEqual(os.listdir(self.here("docs")), ["b.txt"])
        self.assertEqual(read(self.here("here.txt")), b"downloaded")
        self.assert_errno(errno.EHOSTDOWN, read, self.here("not here.txt"))
        self.start_host()
        self.assertEqual(read(self.here("not here.txt")), b"still at the host")

    def test_the_same_after_a_restart_of_the_service(self):
        read(self.here("here.txt"))
        os.listdir(self.here("docs"))
        self.unmount()
        self.stop_host(signal.SIGKILL)
        self.mount()
        self.assertEqual(read(self.here("here.txt")), b"downloaded")
        self.assertEqual(os.listdir(self.here("docs")), ["b.txt"])
        self.assert_errno(errno.EHOSTDOWN, read, self.here("not here.txt"))

    def test_an_index_that_is_gone_takes_nothing_away(self):
        read(self.here("here.txt"))
        os.listdir(self.here("docs"))
        self.stop_host(signal.SIGKILL)
        container = self.path("container")
        for name in os.listdir(container):
            if name.startswith("state"):
                os.unlink(os.path.join(container, name))
        eventually(lambda: not self.status()["indexPresent"], "the service noticed")
        eventually(lambda: self.status()["staleFolders"] == 0, "the sweep is through")
        self.assertEqual(sorted(os.listdir(self.mount_point)), ["docs", "here.txt", "not here.txt"])
        self.assertEqual(read(self.here("here.txt")), b"downloaded")

    def test_a_host_that_dies_during_a_download_shows_no_part_of_the_file(self):
        self.stop_host()
        self.start_host("--delay", "fetch=100000")
        reader = subprocess.Popen(["cat", self.here("not here.txt")], stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL)
        eventually(lambda: self.status()["transfers"], "the reader waits")
        self.stop_host(signal.SIGKILL)
        output, _ = reader.communicate(timeout=PATIENCE)
        self.assertEqual(output, b"")
        self.assertNotEqual(reader.returncode, 0)
        self.start_host()
        self.assertEqual(read(self.here("not here.txt")), b"still at the host")


class HostFaults(MountedCase):
    # The extension says what the host answered.
    expected_errors = ("fetch failed for", )

    def populate(self):
        write(self.there("a.txt"), "the contents")

    def test_each_kind_of_failure_has_its_errno_and_none_shows_contents(self):
        rows = {"unauthorized": errno.EKEYREJECTED, "not_found": errno.ENOENT,
                "quota": errno.EDQUOT, "disk_full": errno.ENOSPC, "network": errno.EHOSTDOWN,
                "locked": errno.EHOSTDOWN, "whatever": errno.EIO, "garbage": errno.EIO,
                "hangup": errno.EIO}
        os.listdir(self.mount_point)
        for kind, number in rows.items():
            with self.subTest(kind):
                self.stop_host()
                self.start_host("--fault", f"fetch={kind}")
                self.assert_errno(number, read, self.here("a.txt"))
                self.assertEqual(os.stat(self.here("a.txt")).st_size, 12)
        self.stop_host()
        self.start_host()
        self.assertEqual(read(self.here("a.txt")), b"the contents")


class Cache(MountedCase):
    mount_options = ("--cache-size", "1M", "--keep-free", "0%")

    def populate(self):
        os.mkdir(self.there("docs"))
        for number in range(20):
            write(self.there("docs", f"{number:02}"), os.urandom(200_000))

    def test_the_cache_keeps_its_size_and_every_file_is_whole(self):
        for number in range(20):
            name = f"{number:02}"
            self.assertEqual(read(self.here("docs", name)), read(self.there("docs", name)))
            self.assertLessEqual(self.status()["cache"]["used"], 1 << 20)
        self.assertGreater(self.status()["evicted"], 0)

    def test_what_is_open_is_not_evicted(self):
        with open(self.here("docs", "00"), "rb") as file:
            for number in range(1, 20):
                read(self.here("docs", f"{number:02}"))
            self.assertEqual(self.ask("evict", self.here("docs", "00"))["ok"], False)
            self.assertEqual(file.read(), read(self.there("docs", "00")))
            self.assertEqual(self.state(self.here("docs", "00")), "downloaded")

    def test_download_evict_and_pin_work_on_folders(self):
        os.mkdir(self.there("few"))
        for name in ("a", "b"):
            write(self.there("few", name), name * 1000)
        eventually(lambda: os.path.exists(self.here("few", "b")), "the folder is there")
        answer = self.ask("download", self.here("few"))
        self.assertEqual((answer["ok"], answer["files"]), (True, 2))
        self.assertEqual(self.state(self.here("few", "a")), "downloaded")
        self.assertEqual(self.ask("evict", self.here("few"))["ok"], True)
        self.assertEqual(self.state(self.here("few", "a")), "dataless")
        self.assertEqual(self.ask("pin", self.here("few"))["ok"], True)
        eventually(lambda: self.state(self.here("few", "a")) == "downloaded", "fetched ahead")
        write(self.there("few", "c"), "later")
        eventually(lambda: os.path.exists(self.here("few", "c")) and
                   self.state(self.here("few", "c")) == "downloaded", "what comes later, too")
        eventually(lambda: self.state(self.here("few", "b")) == "downloaded", "all of it")
        self.assertEqual(self.ask("evict", self.here("few"))["ok"], False)
        self.assertEqual(self.ask("unpin", self.here("few"))["ok"], True)
        self.assertEqual(self.ask("evict", self.here("few"))["ok"], True)


class Indexers(MountedCase):
    def populate(self):
        os.mkdir(self.there("pictures"))
        for number in range(1000):
            write(self.there("pictures", f"{number}.txt"), f"picture {number}")

    def test_a_program_on_the_list_downloads_nothing_and_others_do(self):
        read(self.here("pictures", "7.txt"))
        indexer = self.path("tracker-miner-fs-3")
        shutil.copy2(shutil.which("cat"), indexer)
        files = [self.here("pictures", f"{number}.txt") for number in range(1000)]
        result = subprocess.run([indexer, *files], capture_output=True, text=True)
        self.assertEqual(result.stdout, "picture 7")
        self.assertEqual(result.stderr.count("Permission denied"), 999)
        status = self.status()
        self.assertEqual((status["fetched"], status["deniedDownloads"]), (1, 999))
        self.assertEqual(read(files[0]), b"picture 0")


class Lifecycle(MountedCase):
    expected_errors = ("no reply from host app", )

    def populate(self):
        write(self.there("a.txt"), "hello")

    def test_a_second_service_of_the_account_refuses(self):
        os.mkdir(self.path("second"))
        result = self.tulo("mount", self.path("second"))
        self.assertEqual(result.returncode, 1)
        self.assertIn(f"by process {self.service_process()}", result.stderr)

    def test_termination_unmounts(self):
        process = self.service_process()
        os.kill(process, signal.SIGTERM)
        eventually(lambda: not os.path.ismount(self.mount_point), "the mount is gone")
        eventually(lambda: not os.path.exists(f"/proc/{process}"), "the process is gone")
        self.assertEqual(os.listdir(self.mount_point), [])

    def test_a_stale_mount_is_cleared_and_downloads_survive_a_crash(self):
        read(self.here("a.txt"))
        process = self.service_process()
        os.kill(process, signal.SIGKILL)
        eventually(lambda: not os.path.exists(f"/proc/{process}"), "the process is gone")
        self.assert_errno(errno.ENOTCONN, os.listdir, self.mount_point)
        self.mount()
        self.assertEqual(self.state(self.here("a.txt")), "downloaded")
        self.stop_host()
        self.assertEqual(read(self.here("a.txt")), b"hello")

    def test_unmounting_with_a_file_open_and_a_reader_waiting_ends(self):
        self.stop_host()
        self.start_host("--delay", "fetch=100000")
        reader = subprocess.Popen(["cat", self.here("a.txt")], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        eventually(lambda: self.status()["transfers"], "the reader waits")
        result = self.unmount()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertNotEqual(reader.wait(PATIENCE), 0)
        self.assertFalse(os.path.ismount(self.mount_point))
        self.stop_host(signal.SIGKILL)

    def test_wrong_use_is_explained(self):
        for arguments, words in (
                (("mount", self.path("nowhere"), "--account", "x"), "No such file"),
                (("mount", self.there("a.txt"), "--account", "x"), "not a directory"),
                (("mount", self.mount_point, "--cache-size", "much"), "is not a size"),
                (("unmount", self.root), "not in a mounted account")):
            result = self.tulo(*arguments)
            self.assertNotEqual(result.returncode, 0, arguments)
            self.assertIn(words, result.stderr)

    def test_the_service_leaks_no_descriptors(self):
        tree(self.mount_point)
        folder = f"/proc/{self.service_process()}/fd"
        before = len(os.listdir(folder))
        for _ in range(200):
            read(self.here("a.txt"))
        eventually(lambda: len(os.listdir(folder)) <= before, "descriptors are given back")
        eventually(lambda: self.status()["openFiles"] == 0, "every open file is closed")


class Accounts(MountedCase):
    def populate(self):
        write(self.there("mine.txt"), "primary")
        os.mkdir(self.path("other"))
        write(self.path("other", "theirs.txt"), "other")
        os.mkdir(self.path("mnt2"))

    def start_host(self, *options):
        super().start_host("--account", "other=" + self.path("other"), *options)

    def test_two_accounts_side_by_side(self):
        result = self.tulo("mount", self.path("mnt2"), "--account", "other")
        self.assertEqual(result.returncode, 0, result.stderr)
        try:
            self.assertEqual(tree(self.path("mnt2")), {"theirs.txt": b"other"})
            self.assertEqual(tree(self.mount_point), {"mine.txt": b"primary"})
        finally:
            self.assertEqual(self.tulo("unmount", self.path("mnt2")).returncode, 0)


if __name__ == "__main__":
    main()

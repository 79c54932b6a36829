"""The commands that ask the host application: fetch, create, modify, delete, thumbnails."""

import os

from support import (
    CANNOT_SYNCHRONIZE,
    NO_SUCH_ITEM,
    ROOT,
    SERVER_UNREACHABLE,
    ProviderTest,
    cocoa_error,
    file_item,
    folder_item,
    like_the_root,
    main,
    path_of,
    progress,
    provider_error,
    thumbnail,
)

KINDS = {
    "unauthorized": provider_error(-1000),
    "not_found": NO_SUCH_ITEM,
    "quota": provider_error(-1003),
    "disk_full": cocoa_error(640),
    "invalid_name": cocoa_error(514),
    "network": SERVER_UNREACHABLE,
    "rate_limited": SERVER_UNREACHABLE,
    "locked": SERVER_UNREACHABLE,
    "Locked": CANNOT_SYNCHRONIZE,
    "conflict": CANNOT_SYNCHRONIZE,
    "bearbeitet": CANNOT_SYNCHRONIZE,
    "": CANNOT_SYNCHRONIZE,
}
TEXTS = {
    "wird bearbeitet": SERVER_UNREACHABLE,
    "it is locked": SERVER_UNREACHABLE,
    "a conflict": SERVER_UNREACHABLE,
    "Locked": CANNOT_SYNCHRONIZE,
    "quota": CANNOT_SYNCHRONIZE,
    "": CANNOT_SYNCHRONIZE,
}


def written(item):
    line = {"item": item, "stillPendingFields": 0, "shouldFetchContent": False, "error": None}
    return [line, progress(1, 1)]


def not_written(error):
    line = {"item": None, "stillPendingFields": 0, "shouldFetchContent": False, "error": error}
    return [line, progress(1, 1)]


def not_fetched(error):
    return [{"url": None, "item": None, "error": error}, progress(1, 1)]


class HostCallTest(ProviderTest):
    def last_record(self, result):
        record = result.records[-1]
        return record["category"], record["level"], record["message"]

    def source(self, contents=b"the contents"):
        path = os.path.join(self.directory, "source file")
        with open(path, "wb") as file:
            file.write(contents)
        return path

    def staged(self):
        directory = self.path("fp-upload")
        return sorted(os.listdir(directory)) if os.path.isdir(directory) else []

    def check_staged(self, path, contents=b"the contents"):
        directory, name = os.path.split(path)
        self.assertEqual(directory, self.path("fp-upload"))
        self.assertRegex(name, "^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")
        with open(path, "rb") as file:
            self.assertEqual(file.read(), contents)


class Fetch(HostCallTest):
    def test_a_file(self):
        self.index(files=[("U", "a.pdf", "F", 5, 6, 7, None)])
        host = self.host({"ok": True, "path": "/downloads/file"})
        item = file_item("U", "a.pdf", "com.adobe.pdf", 5, 6, 7, "f:F")
        self.check(
            self.tulo("fetch", "i:U"),
            0,
            [{"url": "file:///downloads/file", "item": item, "error": None}, progress(1, 1)],
        )
        self.assertEqual(host.requests, [{"op": "fetch", "account": "primary", "ulid": "U"}])

    def test_the_url_of_an_odd_path(self):
        path = "/a b/ü%41?#[]/\U0001f600 .txt"
        self.host({"ok": True, "path": path})
        self.assertEqual(path_of(self.tulo("fetch", "i:U").lines[0]["url"]), path)

    def test_a_file_without_a_row(self):
        self.host({"ok": True, "path": "/p"})
        for _ in range(2):
            self.check(
                self.tulo("fetch", "i:U"),
                0,
                [{"url": "file:///p", "item": None, "error": None}, progress(1, 1)],
            )
            if not os.path.exists(self.path("state.db")):
                self.index()

    def test_what_names_no_file(self):
        host = self.host({"ok": True, "path": "/p"})
        for identifier in ("f:F", ROOT, "", "U", "[i:U]"):
            self.check(self.tulo("fetch", identifier), 1, not_fetched(NO_SUCH_ITEM))
        self.assertEqual(host.requests, [])

    def test_no_host(self):
        result = self.tulo("fetch", "i:U")
        self.check(result, 1, not_fetched(SERVER_UNREACHABLE))
        self.assertEqual(
            self.last_record(result), ("Extension", "info", "host app unreachable for U")
        )

    def test_kinds(self):
        answer = {}
        self.host(lambda _request: answer)
        for kind, error in KINDS.items():
            answer = {"ok": False, "error": "it is locked", "kind": kind}
            result = self.tulo("fetch", "i:U")
            self.check(result, 1, not_fetched(error))
            self.assertEqual(
                self.last_record(result),
                (
                    "Extension",
                    "error",
                    f'fetch failed for U: remote(kind: "{kind}", message: "it is locked")',
                ),
            )

    def test_texts(self):
        answer = {}
        self.host(lambda _request: answer)
        for text, error in TEXTS.items():
            answer = {"ok": False, "error": text}
            result = self.tulo("fetch", "i:U")
            self.check(result, 1, not_fetched(error))
            self.assertEqual(
                self.last_record(result),
                ("Extension", "error", f'fetch failed for U: failed("{text}")'),
            )

    def test_replies_that_are_none(self):
        answer = b""
        self.host(lambda _request: answer)
        for answer in (None, b"garbage\n", b"[]\n", b'{"ok":true\n'):
            result = self.tulo("fetch", "i:U")
            self.check(result, 1, not_fetched(CANNOT_SYNCHRONIZE))
            self.assertEqual(
                self.last_record(result),
                ("Extension", "error", 'fetch failed for U: failed("no reply from host app")'),
            )

    def test_a_reply_without_a_path(self):
        self.host({"ok": True, "path": None})
        result = self.tulo("fetch", "i:U")
        self.check(result, 1, not_fetched(CANNOT_SYNCHRONIZE))
        self.assertEqual(
            self.last_record(result),
            ("Extension", "error", 'fetch failed for U: failed("host app returned no path")'),
        )

    def test_a_socket_path_that_is_too_long(self):
        longer = os.path.join(self.container, "x" * 100)
        os.mkdir(longer)
        with open(os.path.join(longer, "fp.sock"), "w"):
            pass
        group = ("--container", longer, "--log-format", "json")
        result = self.run_command(self.command(["fetch", "i:U"], group, container=False))
        self.check(result, 1, not_fetched(CANNOT_SYNCHRONIZE))
        size = len(os.path.join(longer, "fp.sock"))
        self.assertEqual(
            self.last_record(result)[2],
            f'fetch failed for U: failed("socket path too long: {size} bytes")',
        )


class Create(HostCallTest):
    def test_a_file_at_the_root(self):
        self.index(files=[("NEW", "a.pdf", None, 5, 6, 7, None)])
        host = self.host({"ok": True, "ulid": "NEW"})
        item = file_item("NEW", "a.pdf", "com.adobe.pdf", 5, 6, 7)
        self.check(self.tulo("create", "--name", "a.pdf"), 0, written(item))
        self.assertEqual(host.requests, [{"op": "create", "account": "primary", "name": "a.pdf"}])

    def test_contents(self):
        host = self.host({"ok": True, "ulid": "NEW"})
        self.tulo("create", "--name", "a", "--contents", self.source())
        path = host.requests[0].pop("path")
        self.check_staged(path)
        self.assertEqual(host.requests, [{"op": "create", "account": "primary", "name": "a"}])

    def test_contents_by_a_relative_path(self):
        host = self.host({"ok": True, "ulid": "NEW"})
        name = os.path.basename(self.source())
        self.run_command(
            self.command(["create", "--name", "a", "--contents", name]), cwd=self.directory
        )
        self.check_staged(host.requests[0]["path"])

    def test_a_folder(self):
        self.index(folders=[("NEW", "Docs", "P")])
        host = self.host({"ok": True, "ulid": "NEW"})
        result = self.tulo("create", "--name", "Docs", "--folder", "--parent", "f:P")
        self.check(result, 0, written(folder_item("NEW", "Docs", "f:P")))
        self.assertEqual(
            host.requests,
            [{"op": "create", "account": "primary", "name": "Docs", "parent": "P"}],
        )

    def test_a_folder_is_sent_without_contents(self):
        host = self.host({"ok": True, "ulid": "NEW"})
        for kind in (["--folder"], ["--type", "public.folder"]):
            self.tulo("create", "--name", "Docs", *kind, "--contents", self.source())
        self.assertEqual(
            host.requests, [{"op": "create", "account": "primary", "name": "Docs"}] * 2
        )
        self.assertEqual(self.staged(), [])

    def test_any_other_type_is_a_file(self):
        self.host({"ok": True, "ulid": "NEW"})
        for kind in (["--type", "public.data"], ["--type", "com.apple.package"], []):
            result = self.tulo("create", "--name", "a", *kind)
            self.check(result, 0, written(like_the_root("i:NEW")))
        for kind in (["--folder"], ["--type", "public.folder"]):
            result = self.tulo("create", "--name", "a", *kind)
            self.check(result, 0, written(like_the_root("f:NEW")))

    def test_parents(self):
        host = self.host({"ok": True, "ulid": "NEW"})
        for parent, ulid in ((ROOT, None), ("f:P", "P"), ("f:", ""), ("i:P", None), ("P", None)):
            self.tulo("create", "--name", "a", "--parent", parent)
            self.assertEqual(host.requests.pop().get("parent"), ulid)

    def test_odd_names(self):
        host = self.host({"ok": True, "ulid": "NEW"})
        for name in ("", " ", "[a,b]", "[a]", "-a", "--name", "a\nb", "ü/\\", '"', "a=b", "%s"):
            self.tulo("create", "--name", name)
            self.assertEqual(host.requests.pop()["name"], name)

    def test_a_name_that_is_no_text(self):
        host = self.host({"ok": True, "ulid": "NEW"})
        result = self.tulo("create", "--name", b"a\xff")
        self.check(result, 1, not_written(CANNOT_SYNCHRONIZE))
        self.assertEqual(len(result.records), 2)
        self.assertEqual(host.requests, [])

    def test_both_tables_and_neither(self):
        self.host({"ok": True, "ulid": "NEW"})
        result = self.tulo("create", "--name", "a")
        self.check(result, 0, written(like_the_root("i:NEW")))
        path = self.path("state.db")
        self.assertEqual(
            [r["message"] for r in result.records[1:]], [f"no index at {path} yet"] * 2
        )
        self.index(
            folders=[("NEW", "folder", None)], files=[("NEW", "file", None, 0, 0, 0, None)]
        )
        result = self.tulo("create", "--name", "a", "--folder")
        self.check(result, 0, written(file_item("NEW", "file", "public.data")))

    def test_failures(self):
        answer = {}
        self.host(lambda _request: answer)
        for kind, error in KINDS.items():
            answer = {"ok": False, "kind": kind}
            result = self.tulo("create", "--name", "a")
            self.check(result, 1, not_written(error))
            self.assertEqual(
                self.last_record(result),
                (
                    "Extension",
                    "error",
                    f'write failed for : remote(kind: "{kind}", message: "unknown error")',
                ),
            )

    def test_a_reply_without_the_new_item(self):
        self.host({"ok": True, "ulid": 7})
        result = self.tulo("create", "--name", "a")
        self.check(result, 1, not_written(CANNOT_SYNCHRONIZE))
        self.assertIn('failed("host app returned no item id")', self.last_record(result)[2])

    def test_contents_that_are_missing(self):
        host = self.host({"ok": True, "ulid": "NEW"})
        missing = os.path.join(self.directory, "missing")
        result = self.tulo("create", "--name", "a", "--contents", missing)
        self.check(result, 1, not_written(CANNOT_SYNCHRONIZE))
        self.assertRegex(self.last_record(result)[2], "^write failed for : .*missing")
        self.assertEqual(host.requests, [])
        locked = os.path.join(self.directory, "locked")
        result = self.tulo("create", "--name", "a", "--contents", locked)
        self.check(result, 1, not_written(SERVER_UNREACHABLE))

    def test_no_host_leaves_the_staged_copy(self):
        result = self.tulo("create", "--name", "a", "--contents", self.source())
        self.check(result, 1, not_written(SERVER_UNREACHABLE))
        self.assertEqual(len(result.records), 1)
        (name,) = self.staged()
        self.check_staged(os.path.join(self.path("fp-upload"), name))

    def test_a_tree_is_staged_whole(self):
        tree = os.path.join(self.directory, "tree")
        os.makedirs(os.path.join(tree, "inner"))
        with open(os.path.join(tree, "inner", "file"), "w") as file:
            file.write("deep")
        os.symlink("inner/file", os.path.join(tree, "link"))
        host = self.host({"ok": True, "ulid": "NEW"})
        self.tulo("create", "--name", "a", "--contents", tree)
        copy = host.requests[0]["path"]
        with open(os.path.join(copy, "inner", "file")) as file:
            self.assertEqual(file.read(), "deep")
        self.assertEqual(os.readlink(os.path.join(copy, "link")), "inner/file")


class Modify(HostCallTest):
    FIXED = {"op": "modify", "account": "primary", "ulid": "U", "is_folder": False}

    def setUp(self):
        super().setUp()
        self.answers = self.host({"ok": True})

    def request_of(self, *arguments):
        result = self.tulo("modify", *arguments)
        self.check(result, 0, written(like_the_root(arguments[0])))
        request = self.answers.requests.pop()
        if "path" in request:
            self.check_staged(request["path"])
            request["path"] = "staged"
        return request

    def test_nothing(self):
        self.assertEqual(self.request_of("i:U"), self.FIXED)

    def test_what_is_given_makes_the_mask(self):
        source = self.source()
        name, parent, contents = ["--name", "n"], ["--parent", "f:P"], ["--contents", source]
        for arguments, changes in (
            (name, {"name": "n"}),
            (parent, {"parent": "P"}),
            (contents, {"path": "staged"}),
            (name + parent, {"name": "n", "parent": "P"}),
            (name + parent + contents, {"name": "n", "parent": "P", "path": "staged"}),
        ):
            self.assertEqual(self.request_of("i:U", *arguments), {**self.FIXED, **changes})

    def test_a_folder(self):
        self.assertEqual(
            self.request_of("f:U", "--name", "n"), {**self.FIXED, "is_folder": True, "name": "n"}
        )

    def test_a_move_to_the_root(self):
        for parent in (ROOT, "i:P", "P", ""):
            request = self.request_of("i:U", "--parent", parent)
            self.assertEqual(request, {**self.FIXED, "parent": None})

    def test_fields_replace_the_mask(self):
        source = self.source()
        for fields, arguments, changes in (
            (0, ["--name", "n", "--parent", "f:P", "--contents", source], {}),
            (1, ["--name", "n", "--contents", source], {"path": "staged"}),
            (1, [], {}),
            (2, [], {"name": ""}),
            (2, ["--contents", source], {"name": ""}),
            (4, [], {"parent": None}),
            (4, ["--name", "n", "--parent", "f:P"], {"parent": "P"}),
            (6, [], {"name": "", "parent": None}),
            (16, ["--name", "n"], {}),
            (2**64 - 1, ["--name", "n"], {"name": "n", "parent": None}),
        ):
            request = self.request_of("i:U", "--fields", str(fields), *arguments)
            self.assertEqual(request, {**self.FIXED, **changes}, fields)

    def test_contents_without_their_bit_are_not_staged(self):
        self.request_of("i:U", "--contents", self.source(), "--fields", "2")
        self.assertEqual(self.staged(), [])

    def test_an_empty_name_is_a_name(self):
        self.assertEqual(self.request_of("i:U", "--name", ""), {**self.FIXED, "name": ""})

    def test_gives_the_row(self):
        self.index(folders=[("U", "folder", None)], files=[("U", "file", None, 1, 2, 3, None)])
        self.check(
            self.tulo("modify", "i:U"), 0, written(file_item("U", "file", "public.data", 1, 2, 3))
        )
        self.check(self.tulo("modify", "f:U"), 0, written(folder_item("U", "folder")))

    def test_what_does_not_parse(self):
        for identifier in (ROOT, "", "U", "[i:U]"):
            result = self.tulo("modify", identifier, "--name", "n")
            self.check(result, 1, not_written(NO_SUCH_ITEM))
        self.assertEqual(self.answers.requests, [])


class ModifyFailures(HostCallTest):
    def test_are_reported_without_a_ulid(self):
        self.host({"ok": False, "error": "no", "kind": "quota"})
        result = self.tulo("modify", "i:U", "--name", "n")
        self.check(result, 1, not_written(provider_error(-1003)))
        self.assertEqual(
            self.last_record(result),
            ("Extension", "error", 'write failed for : remote(kind: "quota", message: "no")'),
        )

    def test_no_host(self):
        result = self.tulo("modify", "i:U", "--name", "n")
        self.check(result, 1, not_written(SERVER_UNREACHABLE))
        self.assertEqual(len(result.records), 1)


class Delete(HostCallTest):
    def test_files_and_folders(self):
        host = self.host({"ok": True})
        for identifier, is_folder in (("i:U", False), ("f:U", True)):
            self.check(self.tulo("delete", identifier), 0, [{"error": None}, progress(1, 1)])
            self.assertEqual(
                host.requests.pop(),
                {"op": "delete", "account": "primary", "ulid": "U", "is_folder": is_folder},
            )

    def test_another_account(self):
        host = self.host({"ok": True})
        domain = self.tulo("info").lines[0]["domainPrefix"] + "42"
        self.tulo("delete", "i:U", group=("--domain", domain))
        self.assertEqual(host.requests[0]["account"], "42")

    def test_what_does_not_parse(self):
        host = self.host({"ok": True})
        for identifier in (ROOT, "", "U"):
            self.check(
                self.tulo("delete", identifier), 1, [{"error": NO_SUCH_ITEM}, progress(1, 1)]
            )
        self.assertEqual(host.requests, [])

    def test_failures_name_the_item(self):
        self.host({"ok": False, "error": "no"})
        result = self.tulo("delete", "i:U")
        self.check(result, 1, [{"error": CANNOT_SYNCHRONIZE}, progress(1, 1)])
        self.assertEqual(
            self.last_record(result), ("Extension", "error", 'delete failed for U: failed("no")')
        )

    def test_no_host(self):
        result = self.tulo("delete", "i:U")
        self.check(result, 1, [{"error": SERVER_UNREACHABLE}, progress(1, 1)])
        self.assertEqual(len(result.records), 1)


class Thumbnails(HostCallTest):
    COMPLETION = {"completion": {"error": None}}

    def images(self, contents=b"\x89PNG\x00\xff"):
        path = os.path.join(self.directory, "image")
        with open(path, "wb") as file:
            file.write(contents)
        return self.host({"ok": True, "path": path})

    def test_none(self):
        self.check(self.tulo("thumbnails"), 0, [self.COMPLETION, progress(0, 0)])

    def test_a_batch(self):
        host = self.images()
        self.check(
            self.tulo("thumbnails", "f:F", "i:U", "odd [a,b]"),
            0,
            [
                thumbnail("f:F", None),
                thumbnail("i:U", b"\x89PNG\x00\xff"),
                thumbnail("odd [a,b]", None),
                self.COMPLETION,
                progress(3, 3),
            ],
        )
        self.assertEqual(host.requests, [{"op": "thumbnail", "account": "primary", "ulid": "U"}])

    def test_an_image_of_any_bytes(self):
        image = bytes(range(256)) * 100 + b"!"
        self.images(image)
        self.assertEqual(self.tulo("thumbnails", "i:U").lines[0], thumbnail("i:U", image))

    def test_an_empty_image(self):
        self.images(b"")
        self.assertEqual(self.tulo("thumbnails", "i:U").lines[0], thumbnail("i:U", b""))

    def test_odd_identifiers(self):
        identifiers = ["", "[a]", "[i:U,i:V]", ROOT, "ü"]
        self.check(
            self.tulo("thumbnails", *identifiers),
            0,
            [*(thumbnail(i, None) for i in identifiers), self.COMPLETION, progress(5, 5)],
        )

    def test_the_size_changes_nothing(self):
        host = self.images()
        for size in ("64x64", "1x1", "1024x768", "0x0", "0.5x2e3"):
            result = self.tulo("thumbnails", "--size", size, "i:U")
            self.assertEqual(result.status, 0)
            self.assertEqual(
                host.requests.pop(), {"op": "thumbnail", "account": "primary", "ulid": "U"}
            )

    def test_cancelling(self):
        host = self.images()
        image = b"\x89PNG\x00\xff"
        for after, requests in ((1, 1), (2, 2)):
            host.requests.clear()
            self.check(
                self.tulo("thumbnails", "--cancel-after", str(after), "i:1", "i:2", "i:3"),
                0,
                [
                    *(thumbnail(f"i:{n}", image) for n in range(1, after + 1)),
                    self.COMPLETION,
                    progress(after, 3),
                ],
            )
            self.assertEqual(len(host.requests), requests)

    def test_cancelling_too_late(self):
        self.images()
        for after in ("2", "3"):
            result = self.tulo("thumbnails", "--cancel-after", after, "f:1", "f:2")
            self.assertEqual(result.lines[-1], progress(2, 2))

    def test_failures_are_absent_data_and_no_failure(self):
        answers = {"1": {"ok": False, "kind": "quota"}, "2": {"ok": True, "path": "/missing"}}
        self.host(lambda request: answers.get(request["ulid"]))
        result = self.tulo("thumbnails", "i:1", "i:2", "i:3")
        self.check(
            result,
            0,
            [*(thumbnail(f"i:{n}", None) for n in (1, 2, 3)), self.COMPLETION, progress(3, 3)],
        )
        self.assertEqual(len(result.records), 1)

    def test_no_host(self):
        result = self.tulo("thumbnails", "i:U")
        self.check(result, 0, [thumbnail("i:U", None), self.COMPLETION, progress(1, 1)])
        self.assertEqual(len(result.records), 1)


if __name__ == "__main__":
    main()

"""The commands that the index alone answers: item, enumerate, anchor, changes."""

import os

from support import (
    NO_SUCH_ITEM,
    ROOT,
    ProviderTest,
    file_item,
    folder_item,
    like_the_root,
    main,
    progress,
    provider_error,
)

WORKING_SET = "NSFileProviderWorkingSetContainerItemIdentifier"
TRASH = "NSFileProviderTrashContainerItemIdentifier"
ODD_IDENTIFIERS = (
    *("", " ", "[]", "[i:U]", "[a,b]", "{}", "ü", "f", ":", "F:F", "a=b", "/x", "@f", "#"),
    *("info", "provider", "host", "-1", WORKING_SET, TRASH),
)


def found(item):
    return [{"item": item, "error": None}, progress(1, 1)]


NOT_FOUND = [{"item": None, "error": NO_SUCH_ITEM}, progress(1, 1)]


class Item(ProviderTest):
    def test_the_root_needs_no_index(self):
        self.check(self.tulo("item", ROOT), 0, found(like_the_root(ROOT)))

    def test_a_folder(self):
        self.index(folders=[("F", "Docs", None), ("G", "inner", "F")])
        self.check(self.tulo("item", "f:F"), 0, found(folder_item("F", "Docs")))
        self.check(self.tulo("item", "f:G"), 0, found(folder_item("G", "inner", "f:F")))

    def test_a_file(self):
        self.index(files=[("U", "a.pdf", "F", 1234, 1_700_000_000, 17, None)])
        expected = file_item("U", "a.pdf", "com.adobe.pdf", 1234, 1_700_000_000, 17, "f:F")
        self.check(self.tulo("item", "i:U"), 0, found(expected))

    def test_a_locked_file(self):
        self.index(files=[("U", "a.pdf", None, 0, 0, -1, 0)])
        expected = file_item("U", "a.pdf", "com.adobe.pdf", 0, 0, -1, locked=True)
        self.check(self.tulo("item", "i:U"), 0, found(expected))

    def test_a_file_of_no_known_type_is_data(self):
        self.index(files=[("U", "Makefile", None, 5, 0, 0, None)])
        self.check(self.tulo("item", "i:U"), 0, found(file_item("U", "Makefile", "public.data", 5)))

    def test_a_file_has_the_name_of_the_listing(self):
        self.index(folders=[("F", "Docs", None)], files=[("01ABCDEF", "docs", None, 0, 0, 0, None)])
        expected = file_item("01ABCDEF", "docs (ABCDEF)", "public.data")
        self.check(self.tulo("item", "i:01ABCDEF"), 0, found(expected))

    def test_large_numbers_stay_exact(self):
        most = 2**63 - 1
        self.index(files=[("U", "a", None, most, 2**40, -(2**63), None)])
        item = self.tulo("item", "i:U").lines[0]["item"]
        self.assertEqual(item["documentSize"], most)
        self.assertEqual(item["contentModificationDate"], 2**40)
        self.assertEqual(item["itemVersion"]["contentVersion"], str(-(2**63)))

    def test_odd_names_stay_whole(self):
        name = 'a "b" \\ \n\t\u00e4\U0001f600 [c]'
        self.index(files=[("U", name, None, 0, 0, 0, None)])
        self.assertEqual(self.tulo("item", "i:U").lines[0]["item"]["filename"], name)

    def test_bytes_that_are_no_text_are_no_crash(self):
        self.index()
        self.index(files=[("U", b"a\xff", None, 0, 0, 0, None)])
        self.assertEqual(self.tulo("item", "i:U").lines[0]["item"]["filename"], "a\ufffd")

    def test_the_prefix_decides_about_the_table(self):
        self.index(folders=[("F", "Docs", None)], files=[("U", "a", None, 0, 0, 0, None)])
        self.check(self.tulo("item", "i:F"), 1, NOT_FOUND)
        self.check(self.tulo("item", "f:U"), 1, NOT_FOUND)

    def test_unknown_and_odd_identifiers(self):
        self.index(folders=[("F", "Docs", None)], files=[("U", "a", None, 0, 0, 0, None)])
        for identifier in ("f:", "i:", "i:nobody", *ODD_IDENTIFIERS):
            self.check(self.tulo("item", identifier), 1, NOT_FOUND)

    def test_an_identifier_that_is_no_text(self):
        for identifier in (b"\xff", b"i:\xff", b"f:\xc3"):
            self.check(self.tulo("item", identifier), 1, NOT_FOUND)

    def test_an_identifier_that_looks_like_an_option(self):
        self.check(self.tulo("item", "--", "--nonsense"), 1, NOT_FOUND)

    def test_no_index(self):
        self.check(self.tulo("item", "i:U"), 1, NOT_FOUND)

    def test_an_index_that_is_none(self):
        with open(self.path("state.db"), "w") as index:
            index.write("x" * 4096)
        result = self.tulo("item", "i:U")
        self.check(result, 1, NOT_FOUND)
        self.assertEqual(result.records[-1]["message"], "prepare failed: file is not a database")
        self.assertEqual(result.records[-1]["level"], "error")

    def test_another_domain_has_another_index(self):
        self.index(folders=[("F", "primary", None)])
        self.index(folders=[("F", "of account 42", None)], name="state-42.db")
        domain = self.tulo("info").lines[0]["domainPrefix"] + "42"
        result = self.tulo("item", "f:F", group=("--domain", domain))
        self.assertEqual(result.lines[0]["item"]["filename"], "of account 42")


def listing(*items):
    return [{"didEnumerateItems": list(items)}, {"finishEnumerating": {"nextPage": None}}]


class Enumerate(ProviderTest):
    def messages(self, result):
        return [(r["category"], r["level"], r["message"]) for r in result.records[1:]]

    def test_the_root(self):
        self.index(
            folders=[("F", "Docs", None), ("G", "inner", "F")],
            files=[("01ABCDEF", "docs", None, 0, 0, 0, None), ("V", "a.pdf", None, 1, 2, 3, None)],
        )
        result = self.tulo("enumerate", ROOT)
        self.check(
            result,
            0,
            listing(
                folder_item("F", "Docs"),
                file_item("V", "a.pdf", "com.adobe.pdf", 1, 2, 3),
                file_item("01ABCDEF", "docs (ABCDEF)", "public.data"),
            ),
        )
        self.assertEqual(
            self.messages(result), [("Enumerator", "info", "enumerated 3 children of <root>")]
        )

    def test_a_folder(self):
        self.index(folders=[("G", "inner", "F")])
        result = self.tulo("enumerate", "f:F")
        self.check(result, 0, listing(folder_item("G", "inner", "f:F")))
        self.assertEqual(
            self.messages(result), [("Enumerator", "info", "enumerated 1 children of F")]
        )

    def test_a_folder_without_children(self):
        self.index()
        result = self.tulo("enumerate", "f:F")
        self.check(result, 0, listing())
        self.assertEqual(
            self.messages(result), [("Enumerator", "info", "enumerated 0 children of F")]
        )

    def test_what_is_no_folder(self):
        self.index(files=[("U", "a", None, 0, 0, 0, None)])
        for identifier in ("i:U", *ODD_IDENTIFIERS):
            result = self.tulo("enumerate", identifier)
            self.check(result, 0, listing())
            self.assertEqual(self.messages(result), [])

    def test_no_index_looks_like_an_empty_folder(self):
        result = self.tulo("enumerate", ROOT)
        self.check(result, 0, listing())
        path = self.path("state.db")
        self.assertEqual(self.messages(result), [("Index", "info", f"no index at {path} yet")])

    def test_a_large_folder_comes_at_once(self):
        self.index(files=[(f"{i:026}", f"{i:08}", None, i, 0, 0, None) for i in range(20_000)])
        result = self.tulo("enumerate", ROOT)
        self.assertEqual(result.status, 0)
        items, end = result.lines
        self.assertEqual([i["documentSize"] for i in items["didEnumerateItems"]], [*range(20_000)])
        self.assertEqual(end, {"finishEnumerating": {"nextPage": None}})


class Changes(ProviderTest):
    EXPIRED = {"finishEnumeratingWithError": provider_error(-1002)}

    def anchor(self, *identifier):
        result = self.tulo("anchor", *identifier)
        self.assertEqual(result.status, 0)
        (line,) = result.lines
        self.assertEqual(list(line), ["syncAnchor"])
        return line["syncAnchor"]

    def test_an_anchor_is_version_and_data_version(self):
        self.index()
        version = self.tulo("info").lines[0]["extensionVersion"]
        self.assertRegex(self.anchor(), "^" + version.replace(".", r"\.") + r"\|[1-9][0-9]*$")

    def test_an_anchor_without_an_index(self):
        version = self.tulo("info").lines[0]["extensionVersion"]
        self.assertEqual(self.anchor(), version + "|0")

    def test_the_anchor_is_the_same_for_every_container(self):
        self.index()
        for identifier in (ROOT, "f:F", "i:U", "", TRASH):
            self.assertEqual(self.anchor(identifier), self.anchor())

    def test_nothing_has_changed(self):
        self.index()
        anchor = self.anchor()
        for identifier in (ROOT, "i:U", ""):
            self.check(
                self.tulo("changes", identifier, "--anchor", anchor),
                0,
                [{"finishEnumeratingChanges": {"anchor": anchor, "moreComing": False}}],
            )

    def test_another_anchor_has_expired(self):
        self.index()
        for anchor in ("", "0|0", self.anchor() + " ", "[a,b]", "ü"):
            result = self.tulo("changes", ROOT, "--anchor", anchor)
            self.check(result, 1, [self.EXPIRED])
            last = result.records[-1]
            self.assertEqual(
                (last["category"], last["level"], last["message"]),
                ("Enumerator", "info", "index changed, forcing re-enumeration"),
            )

    def test_an_index_that_disappeared(self):
        self.index()
        anchor = self.anchor()
        os.remove(self.path("state.db"))
        self.check(self.tulo("changes", ROOT, "--anchor", anchor), 1, [self.EXPIRED])
        now = self.anchor()
        self.check(
            self.tulo("changes", ROOT, "--anchor", now),
            0,
            [{"finishEnumeratingChanges": {"anchor": now, "moreComing": False}}],
        )


if __name__ == "__main__":
    main()

"""Names: odd ones, long ones, clashing ones."""

import os

from harness import case, eventually, expect, expect_equal, read

ODD = [
    "with space", " leading", "trailing ", "-dash", "--help", "new\nline", "tab\tulator", "quote\"s",
    "it's", "back\\slash", "col:on", "ques?tion", "st*r", "per%cent", "a%2Fb", "%2E", "%", "%%",
    "hash#mark", "semi;colon", "pipe|", "<angle>", "$HOME", "`tick`", "gr\u00fcn", "\u65e5\u672c\u8a9e",
    "emoji\U0001f600", "combining e\u0301", ".hidden", "..two", "...", "~tilde", "a\u200bb", "\u202eabc",
]


@case
def odd_names(box):
    for name in ODD:
        box.write(f"odd/{name}", name.encode())
    box.start_host()
    box.mount()
    on_disk = set(os.listdir(os.path.join(box.root, "odd")))
    expect_equal(on_disk, set(ODD), "what the host's folder holds")
    shown = os.listdir(box.path("odd"))
    spelled = {}
    for name in shown:
        spelled[box.state_of(f"odd/{name}", "filename")] = name
    # Only the host decides what it leaves out; what it has must be shown once and be told apart.
    expect_equal(len(spelled), len(shown), "different names of the provider")
    expect(len(shown) >= len(ODD) - 4, f"nearly all are shown; missing: {set(ODD) - set(spelled)}")
    for original, name in spelled.items():
        expect_equal(read(box.path(f"odd/{name}")), original.encode(), f"contents of {name!r}")
        if "%" not in original:
            expect_equal(name, original, "a name that a folder can hold is shown as it is")


@case
def escapes_are_reversible(box):
    """Two names, of which one looks like the other's spelling, stay two."""
    for name in ("a%2Fb", "a%252Fb", "%2E", "%252E"):
        box.write(name, name.encode())
    box.start_host()
    box.mount()
    shown = os.listdir(box.path())
    expect_equal(len(set(shown)), 4, f"different spellings in {shown}")
    found = {read(box.path(name)) for name in shown}
    expect_equal(found, {b"a%2Fb", b"a%252Fb", b"%2E", b"%252E"}, "contents of all")


@case
def longest_names(box):
    names = ["x" * 255, "\u00fc" * 127 + "x", "y" * 251 + ".txt"]
    for name in names:
        box.write(name, name.encode())
    box.start_host()
    box.mount()
    expect_equal(sorted(os.listdir(box.path())), sorted(names), "names")
    for name in names:
        expect_equal(read(box.path(name)), name.encode(), "contents")


@case
def names_that_clash(box):
    """What differs in case only, or in the spelling of a letter, is told apart and all shown."""
    names = ["Readme.txt", "README.txt", "readme.txt", "caf\u00e9", "cafe\u0301"]
    for name in names:
        box.write(f"clash/{name}", name.encode())
    box.start_host()
    box.mount()
    shown = os.listdir(box.path("clash"))
    expect_equal(len(set(shown)), len(names), f"names in {shown}")
    expect_equal({read(box.path(f"clash/{name}")) for name in shown},
                 {name.encode() for name in names}, "contents of all")


@case
def a_clash_ends(box):
    box.write("a.txt", b"lower")
    box.write("A.txt", b"upper")
    box.start_host()
    box.mount()
    expect_equal(len(os.listdir(box.path())), 2, "names")
    os.unlink(os.path.join(box.root, "a.txt"))
    eventually(lambda: os.listdir(box.path()) == ["A.txt"], "the other one has its own name again")
    expect_equal(read(box.path("A.txt")), b"upper", "contents")


@case
def a_long_marked_name(box):
    """A clash of names that are as long as names can be leaves no room for a mark."""
    names = ["N" + "x" * 254, "n" + "x" * 254]
    for name in names:
        box.write(name, name.encode())
    box.start_host()
    box.mount()
    shown = os.listdir(box.path())
    expect_equal(len(set(shown)), 2, "names")
    expect(all(len(os.fsencode(name)) <= 255 for name in shown), "names that a folder can hold")
    expect_equal({read(box.path(name)) for name in shown}, {name.encode() for name in names},
                 "contents of both")

"""Names that are hard to spell, store, compare or print: the one list that the proofs take theirs from."""

import os
import unicodedata

NASTY = [
    "100%.txt", "100%25.txt", "a%2Eb", "report%2F2024.pdf", "line\nbreak", "x" * 251 + ".txt",
    "caf\u00e9.txt", "cafe\u0301.txt", "Case.txt", "case.txt", " before", "after ", "tab\there",
    "quo'te\".txt", "back\\slash", ".hidden", "(ABCDEF).txt", "\U0001f600.txt",
]
# Cannot go up, which the user is told; but it can come down.
NOT_UTF8 = os.fsdecode(b"caf\xe9.txt")
LONGEST = 255


def folded(name):
    """What is equal for two names that an account tells apart by a mark."""
    return unicodedata.normalize("NFC", name).casefold()


def apart(rng, count):
    """Some of them, none of which an account takes for another: each is shown as it was given."""
    chosen = {}
    for name in rng.sample(NASTY, len(NASTY)):
        chosen.setdefault(folded(name), name)
    return list(chosen.values())[:count]


def numbered(rng, number, longest=LONGEST):
    """One of them with a number, or a word, woven into it, so that nothing else is taken for it."""
    head, dot, tail = rng.choice(NASTY).rpartition(".")
    if not head:
        head, dot, tail = dot + tail, "", ""
    end = f"-{number}{dot}{tail}".encode()
    return head.encode()[:longest - len(end)].decode(errors="ignore") + end.decode()

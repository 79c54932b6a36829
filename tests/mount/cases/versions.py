"""Versions of one file that follow one another quickly."""

import threading

from harness import case, eventually, expect_equal, read


@case
def no_reader_ever_sees_a_mixture(box):
    box.write("file", b"start")
    box.start_host()
    box.mount()
    stop = threading.Event()
    wrong = []

    def look():
        while not stop.is_set():
            contents = read(box.path("file"))
            if contents != b"start" and len(set(contents)) != 1:
                wrong.append(contents[:100])

    readers = [threading.Thread(target=look) for _ in range(3)]
    for reader in readers:
        reader.start()
    try:
        for number in range(30):
            contents = b"abcdefghij"[number % 10:number % 10 + 1] * (100_000 + 7000 * number)
            box.write("file", contents)
            # Most versions are replaced before anybody has to have read them.
            if number % 3 == 0:
                eventually(lambda c=contents: read(box.path("file")) == c, "the next version")
    finally:
        stop.set()
        for reader in readers:
            reader.join()
    expect_equal(wrong, [], "mixtures")

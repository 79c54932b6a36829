"""Programs that look into every file, and the desktop's thumbnails."""

import hashlib
import os
import shutil
import struct
import subprocess
import urllib.parse
import zlib

from harness import case, eventually, expect, expect_equal, read


def program_named(box, name, original="cat"):
    """A copy of a program under another name."""
    folder = box.file("bin")
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, name)
    shutil.copy(shutil.which(original), path)
    return path


def walk_with(program, root):
    """Has the program read every file; how many it could read."""
    paths = [os.path.join(folder, name) for folder, _, names in os.walk(root) for name in names]
    result = subprocess.run([program, *paths], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            check=False)
    refused = result.stderr.count(b"\n")
    return len(paths), len(paths) - refused, result.returncode


@case
def a_thousand_files_walked_by_a_thumbnailer(box):
    for i in range(1000):
        box.write(f"pictures/{i % 10}/p{i}.jpg", b"picture")
    box.start_host()
    box.mount("--no-thumbnails")
    seen, readable, status = walk_with(program_named(box, "image-thumbnailer"), box.path())
    expect_equal(seen, 1000, "files that it tried")
    expect_equal(readable, 0, "files that it could read")
    expect(status != 0, "the program is told")
    expect_equal(box.fetches(), 0, "fetches of the host")
    # The same walk by another program shows that the walk would have fetched.
    seen, readable, status = walk_with(program_named(box, "reader"), box.path("pictures/0"))
    expect_equal((seen, readable, status), (100, 100, 0), "files that an ordinary program read")
    expect_equal(box.fetches(), 100, "fetches of the host")


@case
def what_is_here_may_be_read_by_all(box):
    box.write("here.txt", b"here")
    box.start_host()
    box.mount()
    read(box.path("here.txt"))
    result = subprocess.run([program_named(box, "tumblerd"), box.path("here.txt")],
                            capture_output=True, check=False)
    expect_equal((result.returncode, result.stdout), (0, b"here"), "the indexer's read")


@case
def the_users_own_list(box):
    box.write("a.txt", b"a")
    box.write("b.txt", b"b")
    os.makedirs(box.file("config/tulo"))
    with open(box.file("config/tulo/no-download"), "w", encoding="utf-8") as file:
        file.write("# programs of mine\nmy-indexer\n!tumblerd\n")
    box.start_host()
    box.mount()
    for name, wanted in (("my-indexer", False), ("tumblerd", True)):
        result = subprocess.run([program_named(box, name), box.path("a.txt")],
                                capture_output=True, check=False)
        expect_equal(result.returncode == 0, wanted, f"whether {name} may read")


@case
def what_a_thumbnailer_starts_counts_as_one(box):
    box.write("a.txt", b"a")
    box.start_host()
    box.mount()
    shell = program_named(box, "raw-thumbnailer", "bash")
    # The second command keeps the shell from becoming the first.
    result = subprocess.run([shell, "-c", f"cat '{box.path('a.txt')}'; exit $?"],
                            capture_output=True, check=False)
    expect(result.returncode != 0, "the child of a thumbnailer is refused")
    expect_equal(box.fetches(), 0, "fetches")


def png(width, height):
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data)))

    rows = (b"\0" + b"\x40\x80\xc0" * width) * height
    return (b"\x89PNG\r\n\x1a\n"
            + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def png_facts(path):
    """Size and texts of a PNG file."""
    data = read(path)
    width, height = struct.unpack_from(">II", data, 16)
    texts = {}
    place = 8
    while place < len(data):
        length, kind = struct.unpack_from(">I4s", data, place)
        if kind == b"tEXt":
            key, text = data[place + 8 : place + 8 + length].split(b"\0", 1)
            texts[key.decode()] = text.decode()
        place += 12 + length
    return width, height, texts


def thumbnail_paths(box, path):
    uri = "file://" + urllib.parse.quote(path, safe="/!$&'()*+,:=@~")
    name = hashlib.md5(uri.encode()).hexdigest() + ".png"
    return uri, [os.path.join(box.cache, "thumbnails", size, name) for size in ("normal", "large")]


@case
def thumbnails_come_without_a_download(box):
    for i in range(5):
        box.write(f"pictures/p {i}.png", png(600, 300))
    box.write("pictures/notes.txt", b"no picture")
    box.start_host()
    box.mount()
    os.listdir(box.path("pictures"))
    for i in range(5):
        path = box.path(f"pictures/p {i}.png")
        uri, (normal, large) = thumbnail_paths(box, path)
        eventually(lambda: os.path.exists(large), f"a thumbnail of {path}")
        width, height, texts = png_facts(normal)
        expect_equal((width, height), (128, 64), "size of the normal one")
        expect_equal(texts.get("Thumb::URI"), uri, "its file")
        expect_equal(texts.get("Thumb::MTime"), str(int(os.stat(path).st_mtime)), "its time")
        expect(png_facts(large)[0] <= 256, "size of the large one")
        expect_equal(os.stat(normal).st_mode & 0o777, 0o600, "its mode")
        expect_equal(box.state_of(f"pictures/p {i}.png"), "dataless", "the file's state")
    expect_equal(box.fetches(), 0, "fetches")


@case
def a_changed_picture_gets_a_new_thumbnail(box):
    path = box.write("p.png", png(600, 300))
    os.utime(path, (1_600_000_000, 1_600_000_000))
    box.start_host()
    box.mount()
    os.listdir(box.path())
    _, (normal, _) = thumbnail_paths(box, box.path("p.png"))
    eventually(lambda: os.path.exists(normal), "the first thumbnail")
    path = box.write("p.png", png(300, 600))
    os.utime(path, (1_700_000_000, 1_700_000_000))

    def renewed():
        os.listdir(box.path())
        return png_facts(normal)[1] == 128 and png_facts(normal)[2]["Thumb::MTime"] == "1700000000"

    eventually(renewed, "the second thumbnail")
    expect_equal(box.fetches(), 0, "fetches")


@case
def thumbnails_can_be_left_out(box):
    box.write("p.png", png(600, 300))
    box.start_host()
    box.mount("--no-thumbnails")
    os.listdir(box.path())
    read(box.path("p.png"))
    expect_equal(box.host.requests("thumbnail"), 0, "requests for thumbnails")
    expect(not os.path.exists(os.path.join(box.cache, "thumbnails")), "the cache is left alone")

"""Zip archives for the tests of uploads: those that tools make, and those that nobody should."""

import io
import pathlib
import stat
import struct
import subprocess
import warnings
import zipfile

DEFLATED = zipfile.ZIP_DEFLATED


def archive(*entries, compression=zipfile.ZIP_STORED, mode=0o644):
    """An archive of (name, content) pairs; a name may come more than once."""
    out = io.BytesIO()
    with warnings.catch_warnings(), zipfile.ZipFile(out, "w", compression) as written:
        warnings.simplefilter("ignore")
        for name, content in entries:
            info = zipfile.ZipInfo(name, (2026, 1, 2, 3, 4, 6))
            info.external_attr = (stat.S_IFMT(mode) or stat.S_IFREG | mode) << 16
            info.compress_type = compression
            written.writestr(info, content)
    return out.getvalue()


def info_zip(folder, *options, pipe=False):
    """An archive of everything in a folder, made by the program zip."""
    target = pathlib.Path(f"{folder}.zip")
    made = subprocess.run(["zip", "-q", "-r", *options, "-" if pipe else target, "."], cwd=folder,
                          check=True, stdout=subprocess.PIPE).stdout
    return made if pipe else target.read_bytes()


def patched(data, offset_local, offset_central, value):
    """With a value written into every header, where it stands in those before the files and in
    those of the list behind them."""
    data = bytearray(data)
    for mark, offset in ((b"PK\3\4", offset_local), (b"PK\1\2", offset_central)):
        at = data.find(mark)
        while at >= 0:
            data[at + offset:at + offset + len(value)] = value
            at = data.find(mark, at + 4)
    return bytes(data)


def hostile(outside):
    """Triples: what an archive does, its bytes, and the reason that must be told. `outside` is a
    folder that none may reach."""
    one = ("plain.txt", b"first")
    zeros = archive(("zeros", bytes(1 << 20)), compression=DEFLATED)
    names = {
        "a/../../leaked": "leads out", f"{outside}/leaked": "absolute", "C:/leaked": "drive",
        "..\\leaked": "backslash", "del\x7f": "control", "a//b": "empty part", "./a": "empty part",
        "n" * 256: "too long", ("d" * 200 + "/") * 4 + "f": "too long", "d/" * 32 + "f": "too deep",
        "PLAIN.TXT": "is there twice", "plain.txt/below": "folder and a file",
    }
    for name, reason in names.items():
        yield f"the name {name[:20]!r}", archive(one, (name, b"")), reason
    yield "NUL in a name", archive(one, ("nul?name", b"x")).replace(b"nul?", b"nul\0"), "control"
    yield "folders that differ in case", archive(("Sub/a", b""), ("sub/b", b"")), "is there twice"
    yield "a folder twice", archive(("sub/", b""), ("sub/", b"")), "is there twice"
    yield "a folder's name again", archive(("sub/a", b""), ("sub", b"")), "folder and a file"
    yield "a folder with content", archive(one, ("sub/", b"x")), "folder and a file"
    yield "a file of a folder's kind", archive(("sub", b""), mode=stat.S_IFDIR), "folder and a file"
    yield "a link", archive(one, ("to", b"/etc/passwd"), mode=stat.S_IFLNK), "is a link"
    yield "encryption", patched(archive(one), 6, 8, b"\1\0"), "is encrypted"
    yield "an unknown compression", patched(archive(one), 8, 10, b"\x5f\0"), "unknown way"
    halves = archive(("first half", b""), ("second half", b""))
    yield "3 GiB told", patched(halves, 22, 24, struct.pack("<I", 3 << 29)), "more than 2147483648"
    yield "too little told", patched(zeros, 22, 24, struct.pack("<I", 9)), "wrong checksum"
    yield "too much told", patched(zeros, 22, 24, struct.pack("<I", 9 << 20)), "damaged"
    yield "damaged bytes", zeros.replace(zeros[60:80], b"\xff" * 20), "damaged"
    yield "20,001 entries", archive(*((str(i), b"") for i in range(20_001))), "more than 20000"
    yield "41,600 folders and files", archive(
        *((f"{i}/{'d/' * 30}f", b"") for i in range(1300))), "one folder too many"
    short = archive(one, ("second", b"x"))
    at = short.rfind(b"PK\1\2")
    yield "a broken list", short[:at] + b"XX" + short[at + 2:], "list of the archive's entries"
    yield "no entries", b"prefix" + archive(), "holds no files"
    yield "nothing", b"", "is no zip archive"

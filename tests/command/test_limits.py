"""Pictures that promise more than is allowed, or what can't be, are refused before anything is taken for it."""

import os
import struct
import subprocess
import threading
import zlib

import numpy as np
import pytest
from pictures import COMMAND, stereo_pair, viewtint, write_exr

MIB = 1 << 20


def attribute(name: str, kind: str, value: bytes, length: int | None = None) -> bytes:
    size = len(value) if length is None else length
    return name.encode() + b"\0" + kind.encode() + b"\0" + struct.pack("<i", size) + value


def box(x0, y0, x1, y1) -> bytes:
    return struct.pack("<4i", x0, y0, x1, y1)


def channels(names, sampling=1) -> bytes:
    return b"".join(name.encode() + b"\0" + struct.pack("<iIii", 1, 0, sampling, sampling) for name in names) + b"\0"


def texts(*names) -> bytes:
    return b"".join(struct.pack("<i", len(name)) + name.encode() for name in names)


SMALL = box(0, 0, 3, 3)


def exr(data=SMALL, display=SMALL, names=("B", "G", "R"), sampling=1, extra=b"", compression=0, version=2,
        tail=bytes(64)) -> bytes:
    """A file of one part: its header, then `tail` in place of pixels."""
    attributes = [("channels", "chlist", channels(names, sampling)), ("dataWindow", "box2i", data),
                  ("displayWindow", "box2i", display), ("lineOrder", "lineOrder", b"\0"),
                  ("compression", "compression", bytes([compression])),
                  ("pixelAspectRatio", "float", struct.pack("<f", 1)), ("screenWindowCenter", "v2f", bytes(8)),
                  ("screenWindowWidth", "float", bytes(4))]
    header = b"".join(attribute(*one) for one in attributes) + extra
    return struct.pack("<II", 20000630, version) + header + b"\0" + tail


def tiles(width, height, mode=0) -> bytes:
    return attribute("tiles", "tiledesc", struct.pack("<IIB", width, height, mode))


def png(width, height) -> bytes:
    chunk = lambda kind, body: struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 16, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(bytes(1000))) + chunk(b"IEND", b""))


def measured(*words, folder):
    """What the program says on the error stream, its exit code, and its most memory in bytes."""
    with subprocess.Popen([COMMAND, *words], cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                          text=True) as program:
        watch = threading.Timer(20, program.kill)
        watch.start()
        errors = program.stderr.read()
        _, status, usage = os.wait4(program.pid, 0)
        watch.cancel()
        program.returncode = os.waitstatus_to_exitcode(status)
    return errors, program.returncode, usage.ru_maxrss << 10


WIDE = 1 << 20
HOSTILE = {
    "display": (exr(display=box(0, 0, 1200306405, 1280696882)), "display window is 1200306406 pixels wide", "side"),
    "data": (exr(data=box(0, 0, WIDE - 1, 3)), "data window is 1048576 pixels wide", "side"),
    "height": (exr(data=box(0, 0, 3, (1 << 30) - 1), compression=9), "data window is 1073741824 pixels high", "side"),
    "area": (exr(data=box(0, 0, 65535, 65535)), "data window is 65536 x 65536 pixels", "pixels"),
    "tile": (exr(extra=tiles(1 << 31, 1 << 31), version=0x202), "tile is 2147483648 pixels wide", "side"),
    "channels": (exr(names=[f"{i:06}" for i in range(100_000)]), "100000 channels a view", "channels"),
    "views": (exr(extra=attribute("multiView", "stringvector", texts(*map(str, range(65))))), "65 views", "views"),
    "attributes": (exr(extra=b"".join(attribute(f"a{i}", "int", bytes(4)) for i in range(70_000))),
                   "its attributes take", "attributes"),
    "long attribute": (exr(extra=attribute("a", "string", bytes(65 * MIB))), "its attributes take", "attributes"),
    "attribute beyond the end": (exr(extra=attribute("a", "string", b"", 2 * 10**9)), "leads out of the file", None),
    "negative length": (exr(extra=attribute("a", "string", b"", -5)), "leads out of the file", None),
    "false length": (exr(extra=attribute("a", "m44f", bytes(8))), "length that its type can't have", None),
    "list too long": (exr(extra=attribute("multiView", "stringvector", texts("left"), 5)), "out of its list", None),
    "no tiles": (exr(extra=tiles(0, 0), version=0x202), "tiles without pixels", None),
    "tiles beyond the end": (exr(data=box(0, 0, 30000, 30000), extra=tiles(1, 1), version=0x202),
                             "truncated or damaged", None),
    "levels": (exr(extra=tiles(2, 2, 1), version=0x202), "several resolution levels", None),
    "no window": (exr(data=box(5, 5, 4, 4)), "no data window", None),
    "far away": (exr(data=box((1 << 30), 0, (1 << 30) + 3, 3)), "its data window lies at", None),
    "size without pixels": (exr(data=box(0, 0, 16383, 65535), compression=9, tail=bytes(2048)), "impossible", None),
    "chunk beyond the end": (exr(tail=struct.pack("<4Q", *[1 << 40] * 4) + bytes(64)), "leads out of the file", None),
    "deep": (exr(extra=attribute("type", "string", b"deepscanline"), version=0x802), "deep pixels", None),
    "subsampled": (exr(sampling=2), "subsampled channel 'B'", None),
}


@pytest.mark.parametrize("content, words, limit", HOSTILE.values(), ids=HOSTILE)
def test_an_openexr_file_that_promises_too_much_is_refused(tmp_path, content, words, limit):
    (tmp_path / "bad.exr").write_bytes(content)
    # As a picture of several views, and as one of a pair, which another library reads.
    for input in [["bad.exr"], ["bad.exr", "bad.exr"]] if limit else [["bad.exr"]]:
        errors, code, memory = measured("render", *input, "-o", "out.exr", folder=tmp_path)
        assert code == 1 and words in errors and "'bad.exr'" in errors, errors
        assert limit is None or f"--limits {limit}=" in errors, errors
        assert memory < 500 * MIB
    assert not (tmp_path / "out.exr").exists()


@pytest.mark.parametrize("width, height, words", [
    (70_000, 4, "--limits side=70000"), (40_000, 40_000, "--limits pixels="), (16_000, 16_000, "impossible size")])
def test_so_is_another_picture(tmp_path, width, height, words):
    (tmp_path / "bad.png").write_bytes(png(width, height))
    errors, code, memory = measured("render", "bad.png", "bad.png", "-o", "out.exr", folder=tmp_path)
    assert code == 1 and words in errors and "'bad.png'" in errors, errors
    assert memory < 500 * MIB


def test_disparity_of_longer_sides_than_the_estimator_counts_is_refused(tmp_path):
    colours = {name: plane for name, plane in stereo_pair(4, 32767).items() if name[-1] in "RGB"}
    write_exr(tmp_path / "high.exr", colours)
    done = viewtint("parallax", "high.exr", "-o", "out.exr", folder=tmp_path)
    assert done.returncode == 1 and "4 x 32767 pixels" in done.stderr and "--disparity FILE" in done.stderr
    write_exr(tmp_path / "wide.exr", {name: plane.T.copy() for name, plane in stereo_pair(8, 4000).items()
                                      if name[-1] in "RGB"})
    assert viewtint("parallax", "wide.exr", "-o", "out.exr", folder=tmp_path).returncode == 0, "a strip"


def test_a_limit_can_be_raised_and_lowered(pair):
    done = viewtint("info", "pair.exr", "--limits", "side=63,channels=2000", folder=pair)
    assert done.returncode == 1 and "--limits side=64" in done.stderr
    write_exr(pair / "many.exr", {f"layer.{i}": np.zeros((2, 2), np.float32) for i in range(5000)}, multiView=["left"])
    assert "--limits channels=5000" in viewtint("info", "many.exr", folder=pair).stderr
    done = viewtint("info", "many.exr", "--limits", "channels=5000", folder=pair, timeout=10)
    assert done.returncode == 0 and "layer" in done.stdout


@pytest.mark.parametrize("limits", ["side", "side=", "side=x", "width=5", "side=0", "side=5,", ""])
def test_limits_that_set_nothing_are_a_wrong_call(pair, limits):
    done = viewtint("info", "pair.exr", f"--limits={limits}", folder=pair)
    assert done.returncode == 2 and "--limits" in done.stderr


def test_views_that_are_an_empty_list_are_none(tmp_path):
    header = exr(extra=attribute("multiView", "stringvector", b""), tail=b"")
    lines = [struct.pack("<ii", y, 24) + bytes(24) for y in range(4)]
    table = struct.pack("<4Q", *(len(header) + 32 + 32 * y for y in range(4)))
    (tmp_path / "none.exr").write_bytes(header + table + b"".join(lines))
    done = viewtint("info", "none.exr", folder=tmp_path)
    assert done.returncode == 0 and "1 view" in done.stdout, done.stderr

"""Shots to render, and calls of the command."""

import os
import pathlib
import shutil
import struct
import subprocess
import zlib

import numpy as np

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMMAND = os.environ.get("VIEWTINT_COMMAND", str(ROOT / "build/release/cli/viewtint"))
FIRST = 1001


def viewtint(*words, folder: pathlib.Path, environment=None, exit_code: int = 0) -> subprocess.CompletedProcess:
    done = subprocess.run([COMMAND, *map(str, words)], cwd=folder, env=environment, capture_output=True, text=True,
                          timeout=300)
    assert done.returncode == exit_code, f"{words}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done


def write_png(path: pathlib.Path, pixels: np.ndarray):
    """8-bit grey or RGB, the top row first."""
    height, width = pixels.shape[:2]
    rows = b"".join(b"\0" + row.tobytes() for row in pixels)

    def chunk(kind: bytes, data: bytes) -> bytes:
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2 if pixels.ndim == 3 else 0, 0, 0, 0)
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 1)) +
                     chunk(b"IEND", b""))


def write_shot(folder: pathlib.Path, frames: int, width: int = 96, height: int = 64):
    """shot.1001.exr and so on: a square before a background that moves and changes, so that each frame hides other
    pixels than its neighbours, under a cast on the left view."""
    folder.mkdir(parents=True, exist_ok=True)
    random = np.random.default_rng(7)
    coarse = random.integers(40, 200, (height // 8 + 1, width // 8 + 8, 3))
    background = coarse.repeat(8, 0).repeat(8, 1)[:height]
    kinds = min(frames, 5)
    for kind in range(kinds):
        near, far = 12, 2
        left = background[:, far:far + width].copy()
        right = background[:, 2 * far:2 * far + width].copy()
        disparity = np.full((height, width), far, np.uint8)
        x, y, side = width // 3 + kind * width // 20, height // 4, height // 3
        square = random.integers(60, 220, (side, side, 3))
        left[y:y + side, x:x + side] = square
        right[y:y + side, x - near:x - near + side] = square
        disparity[y:y + side, x:x + side] = near
        for name, picture in (("left", left), ("right", right)):
            grain = random.integers(-4, 5, picture.shape)  # which keeps files from getting smaller than real ones
            write_png(folder / f"{name}.png", (picture + grain).astype(np.uint8))
        write_png(folder / "map.png", disparity)
        viewtint("pack", "--left", "left.png", "--right", "right.png", "--disparity-left", "map.png", "--half",
                 "--cast-view", "left", "--cast-gain", f"1.2,{0.8 + kind / 50},0.9", "-o", f"kind{kind}.exr",
                 folder=folder)
    for i in range(frames):
        shutil.copy(folder / f"kind{i % kinds}.exr", folder / f"shot.{FIRST + i}.exr")
    for path in (*folder.glob("kind*.exr"), *folder.glob("*.png")):
        path.unlink()


def frames_in(folder: pathlib.Path, name: str = "out") -> dict[int, bytes]:
    return {int(path.name.split(".")[1]): path.read_bytes() for path in folder.glob(f"{name}.*.exr")}

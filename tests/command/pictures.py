"""Calls of the command as people make them, and the files that they are made with."""

import json
import os
import pathlib
import subprocess

import numpy as np
import OpenEXR

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMMAND = os.environ.get("VIEWTINT_COMMAND", str(ROOT / "build/release/cli/viewtint"))
VECTORS = ("disparityL.x", "disparityL.y", "disparityR.x", "disparityR.y")


def viewtint(*words, folder: pathlib.Path, timeout: float = 60, **options) -> subprocess.CompletedProcess:
    """The command with these words in this folder; `options` are those of subprocess.run. Any exit code is fine."""
    options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True} | options
    return subprocess.run([COMMAND, *map(str, words)], cwd=folder, timeout=timeout, **options)


def events(done: subprocess.CompletedProcess) -> list[dict]:
    """Standard output under --json: each line has to be a JSON object."""
    return [json.loads(line) for line in done.stdout.splitlines()]


def in_file(view: str, channel: str) -> str:
    """The name of a view's channel in a file whose first view is the left one."""
    if view == "left":
        return channel
    layer, dot, component = channel.rpartition(".")
    return f"{layer}{dot}{view}.{component}"


def stereo_pair(width: int = 64, height: int = 48, seed: int = 1) -> dict[str, np.ndarray]:
    """Channels by their names in the file, the top row first: one texture in both views, no disparity, nothing hidden,
    and a cast on the left view."""
    random = np.random.default_rng(seed)
    channels = {}
    for component in "RGB":
        coarse = random.random((height // 4 + 1, width // 4 + 1)).astype(np.float32)
        texture = 0.2 + 0.5 * coarse.repeat(4, 0).repeat(4, 1)[:height, :width]
        channels[component] = 0.7 * texture + 0.05
        channels[in_file("right", component)] = texture
    for view in ("left", "right"):
        channels[in_file(view, "A")] = np.ones((height, width))
        for channel in (*VECTORS, "mask_occlusion.alpha"):
            channels[in_file(view, channel)] = np.zeros((height, width))
    return {name: np.ascontiguousarray(plane, np.float32) for name, plane in channels.items()}


def write_exr(path: pathlib.Path, channels: dict[str, np.ndarray], **header):
    """One part with the views left and right; `header` adds attributes or replaces them. A window is given as
    dataWindow=(x0, y0, x1, y1), ends included, y downward."""
    height, width = next(iter(channels.values())).shape
    attributes = {"compression": OpenEXR.ZIPS_COMPRESSION, "type": OpenEXR.scanlineimage,
                  "multiView": ["left", "right"], "dataWindow": (0, 0, width - 1, height - 1)}
    attributes["displayWindow"] = attributes["dataWindow"]
    attributes |= header
    for window in ("dataWindow", "displayWindow"):
        x0, y0, x1, y1 = attributes[window]
        attributes[window] = (np.array([x0, y0], np.int32), np.array([x1, y1], np.int32))
    with OpenEXR.File(attributes, channels) as file:
        file.write(str(path))


def read_exr(path: pathlib.Path) -> dict[str, np.ndarray]:
    """Channels by name, the top row first."""
    with OpenEXR.File(str(path), separate_channels=True) as file:
        return {name: channel.pixels for name, channel in file.channels().items()}

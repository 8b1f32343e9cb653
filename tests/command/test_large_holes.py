"""Pictures of which much is hidden from the other view."""

import signal
import subprocess
import time

import numpy as np
from pictures import COMMAND, in_file, stereo_pair, viewtint, write_exr


def write_hidden(path, width, height, hidden):
    """`hidden` by row and column, in both views."""
    channels = stereo_pair(width, height)
    rows, columns = np.mgrid[:height, :width]
    for view in ("left", "right"):
        channels[in_file(view, "mask_occlusion.alpha")] = np.float32(hidden(rows, columns))
    write_exr(path, channels)


def test_a_fill_that_takes_long_can_be_interrupted(tmp_path):
    # No diagonal step leads to a hidden pixel, so that each looks at the whole picture.
    write_hidden(tmp_path / "a.exr", 900, 500, lambda y, x: (x + y) % 2)
    render = subprocess.Popen([COMMAND, "--threads", "1", "render", "a.exr", "-o", "b.exr", "--featherSize", "0"],
                              cwd=tmp_path, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(2)
    assert render.poll() is None, "the picture is too small for this test"
    render.send_signal(signal.SIGINT)
    assert render.wait(timeout=8) == 130
    assert [file.name for file in tmp_path.iterdir()] == ["a.exr"]


def test_much_that_is_hidden_does_not_take_minutes(tmp_path):
    write_hidden(tmp_path / "a.exr", 800, 600, lambda y, x: x % 199 + y % 197 > 0)
    assert viewtint("render", "a.exr", "-o", "b.exr", folder=tmp_path, timeout=20).returncode == 0

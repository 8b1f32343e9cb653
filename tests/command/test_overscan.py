"""Pictures whose data window isn't what is shown."""

import numpy as np
import pytest
from pictures import in_file, read_exr, stereo_pair, viewtint, write_exr

WIDTH, HEIGHT, END = 160, 60, 20


@pytest.mark.parametrize("x0, y0, shown", [
    pytest.param(0, 0, (0, 0, 139, 59), id="overscan at the right"),
    pytest.param(-20, 0, (0, 0, 139, 59), id="overscan at the left"),
    pytest.param(-20, -8, (0, 0, 119, 43), id="overscan all round"),
    pytest.param(20, 8, (0, 0, 199, 79), id="smaller than what is shown"),
    pytest.param(-20, 0, (0, 0, 159, 59), id="beside what is shown"),
])
def test_both_ends_are_corrected_as_well_as_the_middle(tmp_path, x0, y0, shown):
    channels = stereo_pair(WIDTH, HEIGHT)
    for component, slope in zip("RGB", (1.3, 0.9, 0.6)):
        channels[component] = np.float32(channels[in_file("right", component)] * np.linspace(0.5, 0.5 + slope, WIDTH))
    window = (x0, y0, x0 + WIDTH - 1, y0 + HEIGHT - 1)
    write_exr(tmp_path / "a.exr", dict(channels), dataWindow=window, displayWindow=shown)
    assert viewtint("render", "a.exr", "-o", "b.exr", "--quiet", folder=tmp_path).returncode == 0
    corrected = read_exr(tmp_path / "b.exr")

    def error(of, columns):
        return np.mean([np.abs(of[c] - channels[in_file("right", c)])[:, columns].mean() for c in "RGB"])

    for columns in (slice(0, END), slice(-END, None)):
        assert error(corrected, columns) < 0.15 * error(channels, columns)

"""Greys of the view to correct are no part of a cast: R = G = B stays so, whatever code it is."""

import numpy as np
import pytest
from pictures import read_exr, stereo_pair, viewtint, write_exr

CODES = np.arange(256) / 255
LIGHT = np.where(CODES > 0.04045, ((CODES + 0.055) / 1.055) ** 2.4, CODES / 12.92)


@pytest.mark.parametrize("greys", [LIGHT, LIGHT.astype(np.float16), -LIGHT, 100 * LIGHT],
                         ids=["sRGB", "half", "negative", "bright"])
def test_a_grey_chart_stays_grey_beside_colours_that_take_the_cast(tmp_path, greys):
    channels = stereo_pair(256, 64)
    for component in "RGB":
        channels[component][:32] = greys.astype(np.float32)
        channels[f"right.{component}"][:32] = channels[component][:32]
    for component, gain in zip("RGB", (1.1, 0.9, 1.2)):
        channels[f"right.{component}"] *= gain
    write_exr(tmp_path / "in.exr", dict(channels))
    done = viewtint("render", "in.exr", "-o", "out.exr", "--matchingMode", "Basic", folder=tmp_path)
    assert done.returncode == 0, done.stderr
    after = read_exr(tmp_path / "out.exr")
    red, green, blue = (after[component][:20].astype(np.float64) for component in "RGB")
    # What the matrices, whose rows add up to 1 within 5e-7, leave of it.
    allowed = 1e-6 * (abs(green) + 0.2)
    assert (abs(red - green) <= allowed).all() and (abs(blue - green) <= allowed).all()
    assert abs(after["R"] - channels["R"])[32:].mean() > 0.01

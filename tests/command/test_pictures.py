import numpy as np
import pytest
from pictures import read_exr, viewtint


@pytest.mark.parametrize("mode", ["Basic", "Local Matching"])
def test_the_left_view_takes_the_colours_of_the_right(pair, mode):
    done = viewtint("render", "pair.exr", "-o", "out.exr", "--matchingMode", mode, folder=pair)
    assert done.returncode == 0, done.stderr
    before, after = read_exr(pair / "pair.exr"), read_exr(pair / "out.exr")
    for channel in before:
        if channel in "RGB":
            assert np.abs(after[channel] - before[f"right.{channel}"]).mean() < 0.01
        else:
            np.testing.assert_array_equal(after[channel], before[channel])

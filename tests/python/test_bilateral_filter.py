"""The bilateral fill against a plain loop, its distances against SciPy's labelled dilation."""

import numpy as np
import pytest

import viewtint
from reference import distances, filled


def scene(seed, soft):
    random = np.random.default_rng(seed)
    values, guide = random.random((2, 41, 57, 3), np.float32)
    y, x = np.mgrid[0:41, 0:57]
    mask = np.clip(8 - np.hypot(x - 30, y - 22), 0, 1)
    mask = np.maximum(mask, (x < 4) & (y > 10)).astype(np.float32)
    return values, guide, mask if soft else (mask > 0).astype(np.float32)


@pytest.mark.parametrize("soft", [False, True])
@pytest.mark.parametrize("sigmas, boost", [((0.1, 0.0667, 0.0667), 20), ((0, 0.5, 0), 2), ((4, 4, 4), 0)])
def test_fill(soft, sigmas, boost):
    values, guide, mask = scene(1, soft)
    actual = viewtint.BilateralFilter(sigmas, boost).apply(*map(viewtint.Image, (values, guide, mask))).array
    np.testing.assert_allclose(actual, filled(values, guide, mask, sigmas, boost), atol=5e-5)


def test_masks_of_one_value_leave_the_picture():
    values, guide, _ = scene(2, False)
    for mask in (0, 1):
        masks = viewtint.Image(np.full((41, 57), mask, np.float32))
        actual = viewtint.BilateralFilter((1, 1, 1), 2).apply(viewtint.Image(values), viewtint.Image(guide), masks)
        np.testing.assert_array_equal(actual.array, values)


@pytest.mark.parametrize("share", [0.6, 0.02])
def test_distances(share):
    seeds = (np.random.default_rng(3).random((33, 47)) < share).astype(np.float32)
    image = viewtint.Image(seeds)
    grown = viewtint.BilateralFilter((1, 1, 1), 0).growDistance(image)
    np.testing.assert_array_equal(grown.array[..., 0], distances(seeds))
    np.testing.assert_array_equal(image.array[..., 0], seeds)


def test_a_lone_seed_grows_on_its_own_diagonals():
    seeds = np.zeros((9, 9), np.float32)
    seeds[4, 4] = 1
    distance = viewtint.BilateralFilter((1, 1, 1), 0).growDistance(viewtint.Image(seeds)).array[..., 0]
    assert distance[4, 4] == 0 and distance[5, 5] == 1 and distance[4, 6] == 2
    assert set(np.unique(distance[::2, 1::2])) <= {0, 10000}


def test_calls_that_cannot_be_right():
    values, guide, mask = map(viewtint.Image, scene(4, False))
    with pytest.raises(ValueError, match="sigmas"):
        viewtint.BilateralFilter((1, -1, 1), 2)
    with pytest.raises(ValueError, match="radiusBoost must lie in 0"):
        viewtint.BilateralFilter((1, 1, 1), -1)
    with pytest.raises(ValueError, match="mask must have 1 component, not 3"):
        viewtint.BilateralFilter((1, 1, 1), 2).apply(values, guide, guide)
    with pytest.raises(ValueError, match="guide and values must have the same box"):
        viewtint.BilateralFilter((1, 1, 1), 2).apply(values, viewtint.Image(np.zeros((3, 3, 3), np.float32)), mask)

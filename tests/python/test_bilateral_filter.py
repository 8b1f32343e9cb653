"""The bilateral fill against a plain loop, its distances against SciPy's labelled dilation."""

import numpy as np
import pytest
from scipy.ndimage import binary_dilation

import viewtint

DIAGONAL = np.array([[1, 0, 1], [0, 1, 0], [1, 0, 1]], bool)


def distances(seeds):
    """One dilation by the diagonals for each step."""
    reached = seeds > 0
    result = np.where(seeds != 0, 0.0, 10000.0)
    for step in range(1, sum(seeds.shape)):
        grown = binary_dilation(reached, DIAGONAL)
        result[grown & ~reached & (seeds == 0)] = step
        reached = grown
    return result


def filled(values, guide, mask, sigmas, boost):
    height, width = mask.shape
    distance = distances((mask <= np.float32(1e-4)).astype(np.float32))
    result = values.astype(np.float64)
    with np.errstate(divide="ignore"):
        k = np.where(np.array(sigmas) > 0, 1 / np.square(np.float64(sigmas)), 100000)
    for y, x in np.argwhere(mask != 0):
        r = max(3, int(np.ceil(distance[y, x] + boost)))
        rows, columns = slice(max(y - r, 0), y + r + 1), slice(max(x - r, 0), x + r + 1)
        gives = distance[rows, columns] == 0
        if not gives.any():
            continue
        gy, gx = np.mgrid[rows.start : min(rows.stop, height), columns.start : min(columns.stop, width)]
        e = -((gx - x) ** 2 + (gy - y) ** 2) * 0.7 / r**2
        e = e - (np.square(guide[rows, columns].astype(np.float64) - guide[y, x]) * k).sum(-1)
        w = np.maximum(np.exp(e), 1e-5) * gives
        mean = (values[rows, columns] * w[..., None]).sum((0, 1)) / w.sum()
        result[y, x] = values[y, x] * (1 - mask[y, x]) + mean * mask[y, x]
    return result


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
    np.testing.assert_array_equal(viewtint.BilateralFilter((1, 1, 1), 0).growDistance(image).array[..., 0], distances(seeds))
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

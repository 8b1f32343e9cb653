"""The guided filter against SciPy's box means in double precision and NumPy's linear solver."""

import numpy as np
import pytest

import viewtint
from reference import guided_by_one, mean


def by_colour(p, g, radius, epsilon):
    p, g = p.astype(np.float64), g.astype(np.float64)
    mean_p, mean_g = mean(p, radius), mean(g, radius)
    covariances = mean(g[..., :, None] * g[..., None, :], radius) - mean_g[..., :, None] * mean_g[..., None, :]
    result = np.empty_like(p)
    for c in range(p.shape[-1]):
        right = mean(g * p[..., c : c + 1], radius) - mean_g * mean_p[..., c : c + 1]
        a = np.linalg.solve(covariances + epsilon * np.eye(3), right[..., None])[..., 0]
        b = mean_p[..., c] - (a * mean_g).sum(-1)
        result[..., c] = (mean(a, radius) * g).sum(-1) + mean(b, radius)
    return result


def picture(height, width, channels, seed):
    random = np.random.default_rng(seed)
    y, x = np.mgrid[0:height, 0:width]
    shape = 0.3 + 0.4 * (x + 0.5 * y > width / 2) + 0.1 * np.sin(x / 9)
    colours = shape[..., None] * random.uniform(0.5, 1, channels)
    return (colours + 0.03 * random.random((height, width, channels))).astype(np.float32)


@pytest.mark.parametrize("radius", [1, 3, 11, 16, 40])
def test_channel_by_channel(radius):
    p, g = picture(97, 131, 3, 1), picture(97, 131, 3, 2)
    filtered = viewtint.GuidedFilter(radius, 1e-3).apply(viewtint.Image(p), viewtint.Image(g)).array
    np.testing.assert_allclose(filtered, guided_by_one(p, g, radius, 1e-3), atol=2e-5)


def test_several_tiles_and_in_place():
    p = picture(800, 1100, 3, 3)
    image = viewtint.Image(p)
    smooth = viewtint.GuidedFilter(20, 1e-4)
    apart = smooth.apply(image, image).array
    np.testing.assert_allclose(apart, guided_by_one(p, p, 20, 1e-4), atol=1e-4)
    assert smooth.apply(image, image, image) is not None
    np.testing.assert_array_equal(image.array, apart)


def test_three_channels_guide_together():
    p, g = picture(61, 83, 2, 4), picture(61, 83, 3, 5)
    filtered = viewtint.GuidedFilter(4, 1e-3, guidanceMode=2).apply(viewtint.Image(p), viewtint.Image(g)).array
    np.testing.assert_allclose(filtered, by_colour(p, g, 4, 1e-3), atol=5e-5)


def test_the_mean_of_the_guidance():
    p, g = picture(61, 83, 3, 6), picture(61, 83, 2, 7)
    filtered = viewtint.GuidedFilter(4, 1e-3, guidanceMode=0).apply(viewtint.Image(p), viewtint.Image(g)).array
    np.testing.assert_allclose(filtered, guided_by_one(p, g.mean(-1, keepdims=True), 4, 1e-3), atol=2e-5)


def test_what_is_not_filtered_passes_through():
    p, g = picture(40, 50, 4, 8), picture(40, 50, 1, 9)
    np.testing.assert_array_equal(viewtint.GuidedFilter(3, 1e-3).apply(viewtint.Image(p), viewtint.Image(g)).array, p)
    by_self = viewtint.GuidedFilter(3, 1e-3).apply(viewtint.Image(p), viewtint.Image(p)).array
    np.testing.assert_array_equal(by_self[..., 3], p[..., 3])


def test_calls_that_cannot_be_right():
    image = viewtint.Image(picture(10, 10, 3, 1))
    with pytest.raises(ValueError, match="radius must lie in 0"):
        viewtint.GuidedFilter(-1, 1e-3)
    with pytest.raises(ValueError, match="epsilon"):
        viewtint.GuidedFilter(1, float("nan"))
    with pytest.raises(ValueError, match="guidance must cover the box of input"):
        viewtint.GuidedFilter(1, 1e-3).apply(image, viewtint.Image(picture(9, 10, 3, 1)))
    with pytest.raises(ValueError, match="output must cover"):
        viewtint.GuidedFilter(1, 1e-3).apply(image, image, viewtint.Image(picture(9, 10, 3, 1)))

"""Fourier transforms against SciPy's in double precision."""

import numpy as np
import pytest
import scipy.fft

import viewtint


def picture(height, width, seed=1):
    return np.random.default_rng(seed).random((height, width), np.float32)


@pytest.mark.parametrize("height, width", [
    (1, 1), (1, 2), (9, 1), (17, 24), (31, 37), (64, 45), (2, 19846), (120, 128)])
def test_forward_and_back(height, width):
    values = picture(height, width)
    transform = viewtint.FourierTransform()
    spectrum = transform.forward(viewtint.Image(values))
    assert spectrum.box == (0, 0, width // 2 + 1, height)
    expected = scipy.fft.rfft2(values.astype(np.float64))
    actual = spectrum.array[..., 0] + 1j * spectrum.array[..., 1]
    np.testing.assert_allclose(actual, expected, atol=2e-7 * height * width + 1e-5)
    before = spectrum.array
    back = transform.reverse(spectrum).array[..., 0] / (height * width)
    np.testing.assert_allclose(back, values, atol=3e-6)
    np.testing.assert_array_equal(spectrum.array, before)


def test_a_spectrum_of_our_own():
    transform = viewtint.FourierTransform()
    transform.forward(viewtint.Image(picture(30, 42)))
    mine = scipy.fft.rfft2(picture(30, 42, seed=2).astype(np.float64))
    spectrum = viewtint.Image(np.stack([mine.real, mine.imag], -1).astype(np.float32))
    back = transform.reverse(spectrum).array[..., 0] / (30 * 42)
    np.testing.assert_allclose(back, picture(30, 42, seed=2), atol=1e-5)


def test_parseval():
    values = picture(48, 50)
    spectrum = viewtint.FourierTransform().forward(viewtint.Image(values)).array.astype(np.float64)
    weights = np.full(26, 2.0)
    weights[[0, 25]] = 1  # columns without a mirrored one
    total = (np.square(spectrum).sum(-1) * weights).sum() / (48 * 50)
    np.testing.assert_allclose(total, np.square(values.astype(np.float64)).sum(), rtol=1e-6)


def test_images_keep_their_place():
    image = viewtint.Image(picture(12, 14), x0=-5, y0=7)
    transform = viewtint.FourierTransform()
    assert transform.reverse(transform.forward(image)).box == image.box


def test_padded_sizes():
    smooth = sorted(
        n for a in range(15) for b in range(10) for c in range(8) for d in range(7)
        if 2 <= (n := 2**a * 3**b * 5**c * 7**d) <= 19845
    )
    assert len(smooth) == 425
    for size in [1, 2, 11, 99, 1080, 1921, 2161, 19844, *range(4090, 4120)]:
        expected = next(n for n in smooth if n >= size)
        assert viewtint.paddedSize(size, 1) == (expected, 2)
    assert viewtint.paddedSize(19846, 20000) == (19846, 20000)
    assert viewtint.paddedSize(1500, 1000, device="cuda") == (1536, 1024)
    assert viewtint.paddedSize(1, 33, device="cuda") == (16, 64)


def test_calls_that_cannot_be_right():
    transform = viewtint.FourierTransform()
    with pytest.raises(viewtint.Error, match="needs a forward one"):
        transform.reverse(viewtint.Image(np.zeros((4, 3, 2), np.float32)))
    with pytest.raises(ValueError, match="image must have 1 component, not 2"):
        transform.forward(viewtint.Image(np.zeros((4, 3, 2), np.float32)))
    transform.forward(viewtint.Image(picture(8, 8)))
    with pytest.raises(viewtint.Error, match="5 x 8"):
        transform.reverse(viewtint.Image(np.zeros((4, 3, 2), np.float32)))
    with pytest.raises(ValueError, match="width and height"):
        viewtint.paddedSize(0, 5)
    with pytest.raises(ValueError, match="device must be"):
        viewtint.paddedSize(5, 5, device="metal")

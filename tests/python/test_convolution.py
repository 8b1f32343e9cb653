import numpy as np
import pytest
from scipy import ndimage

import viewtint

TO_XYZ = np.array(
    [[0.4339115, 0.37622687, 0.1898616], [0.21264936, 0.7151691, 0.07218152], [0.01775321, 0.10946182, 0.8727849]]
)
TO_RGB = np.array(
    [[3.0802281, -1.5373085, -0.5429192], [-0.9212165, 1.8759666, 0.04525001], [0.05288144, -0.20400739, 1.1511259]]
)


def smooth(n):
    """The smallest size from n on without prime factors above 7."""
    while True:
        rest = n
        for prime in 2, 3, 5, 7:
            while rest % prime == 0:
                rest //= prime
        if rest == 1 and n >= 2:
            return n
        n += 1


def wrapped(kernel, shape):
    """The kernel's centre at (0, 0), what is left of it and below at the far ends; later cells overwrite earlier ones."""
    padded = np.zeros(shape)
    for v, row in enumerate(kernel):
        for u, cell in enumerate(row):
            padded[(v - kernel.shape[0] // 2) % shape[0], (u - kernel.shape[1] // 2) % shape[1]] = cell
    return padded


def circular(plane, kernel):
    """Circular convolution over the padded box, zeros outside the picture."""
    height, width = plane.shape
    shape = smooth(height), smooth(width)
    padded = np.zeros(shape)
    padded[:height, :width] = plane
    product = np.fft.rfft2(padded) * np.fft.rfft2(wrapped(kernel, shape))
    return np.fft.irfft2(product, shape)[:height, :width]


@pytest.mark.parametrize("height, width", [(1, 1), (5, 5), (4, 4), (3, 2), (2, 5)])
def test_small_kernels(image, height, width):
    picture = image(20, 31, 3, x0=-4, y0=9)
    for kernel in image(height, width, 1), image(height, width, 3, planar=False):
        result = viewtint.ConvolutionHelper(kernel).convolve(picture)
        assert result.box == picture.box
        for c in range(3):
            cells = kernel.array[..., min(c, kernel.components - 1)].astype(float)
            expected = ndimage.convolve(picture.array[..., c].astype(float), cells, mode="nearest")
            np.testing.assert_allclose(result.array[..., c], expected, atol=1e-5)


@pytest.mark.parametrize("size", [(24, 35), (23, 37), (60, 15)])
@pytest.mark.parametrize("kernel_size, components", [((6, 1), 1), ((7, 8), 1), ((9, 6), 2), ((21, 30), 4)])
def test_large_kernels(image, size, kernel_size, components):
    kernel = image(*kernel_size, components, x0=100, y0=-3)
    helper = viewtint.ConvolutionHelper(kernel)
    for picture in image(*size, 3, x0=-4, y0=9), image(*size, 1):
        array = helper.convolve(picture).array
        for c in range(picture.components):
            cells = kernel.array[..., min(c, components - 1)].astype(float)
            expected = circular(picture.array[..., c].astype(float), cells)
            np.testing.assert_allclose(array[..., c], expected, atol=3e-7 * np.abs(cells).sum() * 10)


def test_the_limit_chooses_the_way_and_the_caller_keeps_the_kernel(image):
    kernel, picture = image(7, 7, 1), image(40, 42, 1)
    before = kernel.array
    helper = viewtint.ConvolutionHelper(kernel, directLimit=4)
    viewtint.clear(kernel)
    direct = helper.convolve(picture).array
    expected = ndimage.convolve(picture.array[..., 0].astype(float), before[..., 0].astype(float), mode="nearest")
    np.testing.assert_allclose(direct[..., 0], expected, atol=2e-5)
    through = viewtint.ConvolutionHelper(viewtint.Image(before)).convolve(picture).array
    np.testing.assert_allclose(through[3:-3, 3:-3], direct[3:-3, 3:-3], atol=2e-5)
    assert np.abs(through - direct).max() > 1


def curve(v):
    return np.where(v > (6 / 29) ** 3, np.cbrt(v), v * (29 / 6) ** 2 / 3 + 4 / 29)


def to_lab(rgb):
    x, y, z = (curve(plane) for plane in np.moveaxis(rgb @ TO_XYZ.T, -1, 0))
    return np.stack([1.16 * y - 0.16, 5 * (x - y), 2 * (y - z)], axis=-1)


def from_lab(lab):
    y = (lab[..., 0] + 0.16) / 1.16
    f = np.stack([y + lab[..., 1] / 5, y, y - lab[..., 2] / 2], axis=-1)
    return np.where(f > 6 / 29, f**3, (f - 4 / 29) * 3 * (6 / 29) ** 2) @ TO_RGB.T


def soft_limit(v, limit):
    knee = 0.15 * limit
    if limit == 0:
        return np.zeros_like(v)
    bend = np.sign(v) * (limit - (limit + knee - np.abs(v)) ** 2 / (4 * knee))
    return np.where(np.abs(v) <= limit - knee, v, np.where(np.abs(v) < limit + knee, bend, limit))


def limited(source, corrected, limit):
    offsets = np.arange(300) - 149.5
    window = np.exp(-(offsets[:, None] ** 2 + offsets**2) / (2 * 100**2))
    window /= window.sum()
    a, b = to_lab(source.astype(float)), to_lab(corrected.astype(float))
    height, width = source.shape[:2]
    grown = (0, max(0, 151 - height)), (0, max(0, 151 - width))
    difference = b[..., 0] - a[..., 0]
    mean = circular(np.pad(difference, grown, "edge"), window)[:height, :width]
    b[..., 0] = soft_limit(difference - mean, limit) + mean + a[..., 0]
    return from_lab(b)


@pytest.mark.parametrize("size", [(100, 100), (160, 180), (151, 331), (40, 320), (330, 310)])
@pytest.mark.parametrize("limit", [0, 0.1, 0.5, 1])
def test_limited_corrections(random, size, limit):
    """Blotches, so that the local mean has a shape."""
    def picture(components, blur):
        array = ndimage.gaussian_filter(random((*size, components)), (blur, blur, 0))
        array = (array - array.min()) / np.ptp(array)
        return (0.02 + 0.9 * array).astype(np.float32)

    source, corrected = picture(4, 9), picture(4, 25)
    corrected[..., :3] *= 0.02 + 0.98 * random((*size, 1)).astype(np.float32)
    images = viewtint.Image(source, x0=-7, y0=11), viewtint.Image(corrected, x0=-7, y0=11, planar=False)
    result = viewtint.limitCorrection(*images, limit)
    assert result.box == images[1].box
    np.testing.assert_array_equal(images[0].array, source)
    np.testing.assert_array_equal(images[1].array, corrected)
    np.testing.assert_array_equal(result.array[..., 3], corrected[..., 3])
    expected = limited(source[..., :3], corrected[..., :3], limit)
    off = np.abs(result.array[..., :3] - expected).max(-1) > 2e-5
    # Where a change lies within rounding of -1.15 limit it may come out on the other side.
    assert off.sum() <= 1
    if limit < 1:
        assert np.abs(result.array - corrected).max() > 0.01


def test_limits_of_what_fits_together(image):
    with pytest.raises(viewtint.Error, match="3 or 4 components"):
        viewtint.limitCorrection(image(8, 9, 2), image(8, 9, 2), 1)
    with pytest.raises(viewtint.Error, match="over one box"):
        viewtint.limitCorrection(image(8, 9, 3), image(8, 8, 3), 1)

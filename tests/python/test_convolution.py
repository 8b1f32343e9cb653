import numpy as np
import pytest
from scipy import ndimage

import viewtint
from reference import circular, limited


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

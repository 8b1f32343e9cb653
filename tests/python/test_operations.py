import numpy as np
import pytest
from scipy import ndimage

import viewtint


def double(image):
    return image.array.astype(np.float64)


def near(image, expected, tolerance=1e-6):
    assert image.array.dtype == np.float32
    np.testing.assert_allclose(image.array, expected, rtol=tolerance, atol=tolerance)


def moved(array, dx, dy):
    """The neighbour at (dx, dy) of each pixel, the nearest pixel outside."""
    height, width = array.shape[:2]
    rows = np.clip(np.arange(height) + dy, 0, height - 1)
    columns = np.clip(np.arange(width) + dx, 0, width - 1)
    return array[rows][:, columns]


def gaussian(array, sigma):
    i = np.arange(-min(int(3 * abs(sigma) + 0.5), 63), min(int(3 * abs(sigma) + 0.5), 63) + 1)
    taps = np.exp(-(i**2) / sigma**2)
    taps /= taps.sum()
    along_x = ndimage.convolve1d(array, taps, axis=1, mode="nearest")
    return ndimage.convolve1d(along_x, taps, axis=0, mode="nearest")


def reached(radius, right=True, left=True, up=True, down=True):
    return [(x, y) for y in range(-radius * down, radius * up + 1) for x in range(-radius * left, radius * right + 1)]


def test_results_lie_where_their_images_lie(image):
    a = image(5, 6, 3, x0=-4, y0=9, planar=False)
    before = a.array
    for result in [viewtint.copy(a), viewtint.invert(a), viewtint.boxFilter(a, 2), viewtint.rgbToLab(a)]:
        assert result.box == a.box
        assert result.components == 3
    viewtint.clear(viewtint.copy(a))
    np.testing.assert_array_equal(a.array, before)


def test_arithmetic(image):
    a, b, mask = image(30, 41, 3), image(30, 41, 3, mask=0.7), image(30, 41, 1)
    x, y, m = double(a), double(b), double(mask)
    near(viewtint.add(a, b), x + y)
    near(viewtint.subtract(a, b), x - y)
    near(viewtint.multiply(a, b), x * y)
    near(viewtint.divide(a, b), np.where(y == 0, 0, x / np.where(y == 0, 1, y)))
    near(viewtint.max(a, b), np.maximum(x, y))
    near(viewtint.clamp(a, 0.25, 0.5), np.clip(x, 0.25, 0.5))
    near(viewtint.clamp(a, 0.5, 0.25), np.full_like(x, 0.25))
    near(viewtint.threshold(a, 0.5, False), np.where(x > 0.5, x, 0))
    near(viewtint.threshold(a, 0.5, True), x > 0.5)
    near(viewtint.multiplyConstant(a, 2), x * 2)
    near(viewtint.multiplyConstant(a, [1, 2, 3, 4]), x * [1, 2, 3])
    near(viewtint.addConstant(a, np.float32([1, 2, 3, 4])), x + [1, 2, 3])
    near(viewtint.maskMix(a, b, mask), m * x + (1 - m) * y)
    near(viewtint.multiplyByMask(a, mask), m * x)
    near(viewtint.multiplyByMask(a, mask, invert=True), (1 - m) * x)
    near(viewtint.weightedComponentSum(a, [1, 2, 1, 0], True), (x @ [1, 2, 1])[..., None] / 4)
    near(viewtint.weightedComponentSum(a, [1, 2, 1, 0], False), (x @ [1, 2, 1])[..., None])
    with pytest.raises(viewtint.Error, match="3f_1f"):
        viewtint.add(a, mask)
    with pytest.raises(viewtint.Error, match="doesn't have"):
        viewtint.add(a, image(30, 40, 3))
    with pytest.raises(TypeError):
        viewtint.addConstant(a, [1, 2, 3])


def test_complex_products(image):
    a, b = image(7, 9, 2), image(7, 9, 2)
    product = (double(a) @ [1, 1j]) * (double(b) @ [1, 1j])
    near(viewtint.complexMultiply(a, b), np.stack([product.real, product.imag], axis=-1))


def test_soft_limit():
    values = np.float32([[-2, -1.1, -0.95, -0.5, 0, 0.5, 0.9, 1, 1.1, 7, np.nan]])
    limited = viewtint.softLimit(viewtint.Image(values), 1, 0.1).array[0, :, 0]
    # The parabola through (0.9, 0.9), with the slopes 1 there and 0 at 1.1, its height 1.
    bend = 1 - (1.1 - np.array([0.95, 1])) ** 2 / 0.4
    expected = [1, 1, -bend[0], -0.5, 0, 0.5, 0.9, bend[1], 1, 1, 1]
    np.testing.assert_allclose(limited, expected, atol=1e-6)


def test_copies(image):
    source, output = image(4, 6, 3, x0=10, y0=20), image(8, 9, 3)
    before = output.array
    assert viewtint.copy(source, (11, 21, 99, 99), output, 2, 3) is None
    before[3:6, 2:7] = source.array[1:, 1:]
    np.testing.assert_array_equal(output.array, before)
    near(viewtint.copyClamped(source, (8, 19, 18, 25)), np.pad(source.array, ((1, 1), (2, 2), (0, 0)), "edge"))
    a, b = image(4, 6, 3), image(4, 6, 4)
    before = b.array
    viewtint.copyChannel(a, b, 2, 3)
    np.testing.assert_array_equal(b.array, np.concatenate([before[..., :3], a.array[..., 2:]], axis=-1))
    viewtint.copyChannelRange(a, b, 1, 2)
    np.testing.assert_array_equal(b.array[..., :3], np.concatenate([before[..., :1], a.array[..., 1:]], axis=-1))


def test_filling(image):
    a, mask = image(6, 7, 2), viewtint.Image(np.float32([[-1, 0, 1, 2, 0, 0, 3]] * 6))
    x, m = a.array, mask.array
    viewtint.fillWhereMask(a, mask, [5, 6, 7, 8])
    np.testing.assert_array_equal(a.array, np.where(m > 0, [5, 6], x))
    viewtint.fillWhereMask(a, mask, 9, invert=True)
    np.testing.assert_array_equal(a.array, np.where(m == 0, 9, np.where(m > 0, [5, 6], x)))
    viewtint.fillConstant(a, [1, 2, 3, 4])
    np.testing.assert_array_equal(a.array, np.broadcast_to([1, 2], x.shape))
    viewtint.fillConstant(a, 0.5)
    np.testing.assert_array_equal(a.array, np.full_like(x, 0.5))
    viewtint.clear(a)
    assert not a.array.any()


def test_cross_fade(image):
    a, b = image(4, 5, 2), image(4, 5, 2, x0=2, y0=1)
    fade = viewtint.crossFade(a, b, 0.25, outsideA=[1, 2, 0, 0], outsideB=[3, 4, 0, 0])
    assert fade.box == (0, 0, 7, 5)
    x = np.broadcast_to([1.0, 2.0], (5, 7, 2)).copy()
    y = np.broadcast_to([3.0, 4.0], (5, 7, 2)).copy()
    x[:4, :5], y[1:, 2:] = a.array, b.array
    near(fade, 0.25 * x + 0.75 * y)
    near(viewtint.crossFade(a, b, 2, box=(0, 0, 5, 4)), a.array)
    near(viewtint.crossFade(a, a, 3, clampMix=False), a.array)


def test_transfer_curves(image):
    a = image(20, 30, 4)
    x = double(a)
    x[..., :3] = np.where(x > 0.04045, ((x + 0.055) / 1.055) ** 2.4, x / 12.92)[..., :3]
    linear = viewtint.srgbToLinear(a)
    near(linear, x)
    near(viewtint.linearToSrgb(linear), a.array)


@pytest.mark.parametrize("components", [3, 4])
def test_colour_spaces(image, components):
    a = image(20, 30, components)
    x = double(a)
    to_xyz = np.array([[0.4124, 0.3576, 0.1805], [0.2126, 0.7152, 0.0722], [0.0193, 0.1192, 0.9505]])
    to_xyz /= to_xyz.sum(axis=1, keepdims=True)  # white becomes (1, 1, 1)
    xyz = x[..., :3] @ to_xyz.T
    f = np.where(xyz > (6 / 29) ** 3, np.cbrt(xyz), xyz * 841 / 108 + 4 / 29)
    lab = np.stack([1.16 * f[..., 1] - 0.16, 5 * (f[..., 0] - f[..., 1]), 2 * (f[..., 1] - f[..., 2])], axis=-1)
    alpha = x[..., 3:]
    near(viewtint.rgbToXyz(a), np.concatenate([xyz, alpha], axis=-1), 1e-3)
    near(viewtint.rgbToLab(a), np.concatenate([lab, alpha], axis=-1), 1e-3)
    near(viewtint.xyzToRgb(viewtint.rgbToXyz(a)), x, 1e-4)
    near(viewtint.labToRgb(viewtint.rgbToLab(a)), x, 1e-4)
    near(viewtint.labToXyz(viewtint.xyzToLab(a)), x, 1e-5)
    matrix = np.arange(9).reshape(3, 3)
    mapped = np.concatenate([x[..., :3] @ matrix.T, alpha], axis=-1)
    near(viewtint.colourMatrix(a, matrix), mapped, 1e-5)
    near(viewtint.colourMatrix(a, matrix.ravel().tolist()), mapped, 1e-5)
    with pytest.raises(viewtint.Error, match="1f_1f"):
        viewtint.rgbToLab(image(3, 3, 1))


@pytest.mark.parametrize("radius", [0, 1, 5, 15, 16, 40])
def test_box_filter(image, radius):
    a = image(90, 100, 3)
    size = 2 * radius + 1
    near(viewtint.boxFilter(a, radius), ndimage.uniform_filter(double(a), (size, size, 1), mode="nearest"), 2e-6)


@pytest.mark.parametrize("sigma", [0.1, 0.5, 1, 2.75, -3, 10, 30])
def test_gaussian_blur(image, sigma):
    a = image(50, 60, 3)
    near(viewtint.gaussianBlur(a, sigma), gaussian(double(a), sigma), 2e-6)


def test_a_blur_of_nothing_is_a_copy(image):
    a = image(5, 6, 2)
    copy = viewtint.gaussianBlur(a, 0)
    viewtint.clear(a)
    assert copy.array.all()


@pytest.mark.parametrize("radius", [0, 1, 3])
@pytest.mark.parametrize("sides", [{}, {"left": False}, {"right": False, "up": False}, {"down": False},
                                   {"right": False, "left": False, "up": False, "down": False}])
def test_dilate_and_erode(image, radius, sides):
    a = image(25, 30, 2, mask=0.1)
    near(viewtint.dilate(a, radius, **sides), np.max([moved(a.array, *d) for d in reached(radius, **sides)], axis=0))
    b = image(25, 30, 2, mask=0.9)
    near(viewtint.erode(b, radius, **sides), np.min([moved(b.array, *d) for d in reached(radius, **sides)], axis=0))


def test_dilate_and_erode_as_scipy_does(image):
    a = image(25, 30, 1, mask=0.05)
    square = np.ones((7, 7), bool)
    near(viewtint.dilate(a, 3), ndimage.binary_dilation(a.array[..., 0] > 0, square)[..., None])
    b = image(25, 30, 1, mask=0.95)
    near(viewtint.erode(b, 3), ndimage.binary_erosion(b.array[..., 0] > 0, square, border_value=1)[..., None])


def test_mask_edges(image):
    a = image(25, 30, 1, mask=0.6)
    left, right, down, up = [moved(a.array, *d) == 0 for d in [(-1, 0), (1, 0), (0, -1), (0, 1)]]
    for sides, neighbour in enumerate([left, right, left | right, down, up, up | down]):
        near(viewtint.maskEdges(a, sides), (a.array != 0) & neighbour)
    for sides in [-1, 6]:
        with pytest.raises(ValueError, match="0 .. 5"):
            viewtint.maskEdges(a, sides)


@pytest.mark.parametrize("blur", [0, 1.5])
@pytest.mark.parametrize("amount", [0, 0.25, 2, 2.75, -1, -1.5])
def test_grow_mask(image, amount, blur):
    a = image(40, 50, 1, mask=0.03 if amount >= 0 else 0.97)
    extreme = np.max if amount >= 0 else np.min
    whole = int(abs(amount))

    def grown(radius):
        mask = extreme([moved(double(a), *d) for d in reached(radius)], axis=0)
        return gaussian(mask, blur) if blur else mask

    fraction = abs(amount) - whole
    near(viewtint.growMask(a, amount, blur), fraction * grown(whole + 1) + (1 - fraction) * grown(whole), 2e-6)


def test_sizes_out_of_range(image):
    a = image(5, 6, 1)
    for call in [
        lambda: viewtint.boxFilter(a, -1),
        lambda: viewtint.boxFilter(a, 2**31 - 1),
        lambda: viewtint.dilate(a, -1),
        lambda: viewtint.erode(a, 70000),
        lambda: viewtint.gaussianBlur(a, float("nan")),
        lambda: viewtint.gaussianBlur(a, float("inf")),
        lambda: viewtint.growMask(a, float("inf"), 1),
    ]:
        with pytest.raises(ValueError, match="(radius|sigma|blur|amount) must"):
            call()
    with pytest.raises(TypeError):
        viewtint.boxFilter(a, 1.5)


def test_gaussian_image():
    image = viewtint.Image(np.zeros((9, 12), np.float32), -4, 7)
    total = viewtint.makeGaussian(image, 2)
    y, x = np.mgrid[0:9, 0:12]
    e = -((x - 5.5) ** 2 + (y - 4) ** 2) / 8
    expected = np.where(e > -20, np.exp(e), 0)
    near(image, expected[..., None])
    assert total == pytest.approx(expected.sum(), rel=1e-6)


def test_sums(image):
    a, mask = image(80, 70, 4), image(80, 70, 4, mask=0.4)
    x, m = double(a), double(mask)
    np.testing.assert_allclose(viewtint.sum(a), x.sum((0, 1)), rtol=1e-6)
    assert viewtint.sum(image(3, 3, 1))[1:] == [0, 0, 0]
    counts = m.sum((0, 1))
    np.testing.assert_allclose(viewtint.maskedSum(mask, a), [*(x * m).sum((0, 1)), *counts], rtol=1e-6)
    squares = ((x - [0.1, 0.2, 0.3, 0.4]) ** 2 * m).sum((0, 1))
    deviation = viewtint.maskedSquaredDeviation(mask, a, [0.1, 0.2, 0.3, 0.4])
    assert all(type(number) is float for number in deviation)
    np.testing.assert_allclose(deviation, [*squares, *counts], rtol=1e-6)


def test_pull_push(image, random):
    colour = np.float32([0.2, 0.4, 0.6, 0.8])
    holes = (random((60, 75, 1)) < 0.02).astype(np.float32)
    sparse = viewtint.Image(np.where(holes > 0, colour, 7).astype(np.float32), 5, -5)
    weights = viewtint.Image(holes, 5, -5)
    fill = viewtint.PullPush()
    assert fill.apply(sparse, weights).box == sparse.box
    near(fill.apply(sparse, weights), np.broadcast_to(colour, (60, 75, 4)), 1e-4)
    a = image(60, 75, 3)
    near(fill.apply(a, viewtint.Image(np.ones((60, 75), np.float32))), a.array, 1e-5)
    assert not fill.apply(a, viewtint.Image(np.zeros((60, 75), np.float32))).array.any()
    with pytest.raises(ValueError):
        fill.apply(a, viewtint.Image(np.ones((60, 74), np.float32)))

import numpy as np
import pytest

import viewtint


def test_pixels_come_back_from_any_strides(random):
    a = random((6, 8, 4)).astype(np.float32)
    readonly = np.broadcast_to(a[:1, :1], (5, 7, 4))
    for array in [a, a[::-1], a[::2, ::-3, 1:3], a.transpose(1, 0, 2), np.asfortranarray(a), readonly]:
        for planar in [True, False]:
            image = viewtint.Image(array, planar=planar)
            assert image.array.dtype == np.float32
            assert image.array.shape == array.shape
            np.testing.assert_array_equal(image.array, array)


def test_unaligned_pixels():
    raw = np.zeros(4 * 6 * 4 + 1, np.uint8)
    unaligned = raw[1:].view(np.float32).reshape(4, 6)
    unaligned[:] = np.arange(24).reshape(4, 6)
    np.testing.assert_array_equal(viewtint.Image(unaligned).array[..., 0], unaligned)


def test_box_and_components(random):
    a = random((4, 6, 3)).astype(np.float32)
    image = viewtint.Image(a, -3, 10)
    assert image.box == (-3, 10, 3, 14)
    assert image.components == 3
    assert repr(image) == "viewtint.Image(box=(-3, 10, 3, 14), components=3)"
    flat = viewtint.Image(a[..., 0], y0=2)
    assert flat.components == 1
    assert flat.box == (0, 2, 6, 6)
    assert flat.array.shape == (4, 6, 1)


def test_row_zero_is_the_lowest():
    rows = np.repeat(np.arange(5, dtype=np.float32)[:, None], 3, axis=1)
    image = viewtint.Image(rows, y0=7)
    zeros = viewtint.Image(np.zeros((5, 3), np.float32), y0=7)
    viewtint.run("copyKernel", [image, zeros], iteration=(0, 7, 3, 8, 0, 0))
    viewtint.run("copyKernel", [image, zeros], iteration=(0, 11, 3, 12, 0, 0))
    assert zeros.array[:, 0, 0].tolist() == [0, 0, 0, 0, 4]
    assert viewtint.copyClamped(image, (0, 11, 3, 14)).array[:, 0, 0].tolist() == [4, 4, 4]


def test_images_own_their_pixels(random):
    a = random((3, 3)).astype(np.float32)
    kept = a.copy()
    image = viewtint.Image(a)
    a[:] = 7
    image.array[:] = 8
    np.testing.assert_array_equal(image.array[..., 0], kept)


@pytest.mark.parametrize("array", [
    np.zeros((2, 2)),
    np.zeros((2, 2), np.float16),
    np.zeros((2, 2), np.uint8),
    np.zeros((2, 2), ">f4"),
    np.zeros((2, 2), object),
    [[0.0]],
    None,
    "pixels",
])
def test_other_types_are_refused(array):
    with pytest.raises(TypeError, match="float32"):
        viewtint.Image(array)


@pytest.mark.parametrize("shape", [(), (4,), (0, 3), (3, 0), (2, 3, 0), (2, 3, 5), (1, 2, 3, 1)])
def test_other_shapes_are_refused(shape):
    with pytest.raises(ValueError) as raised:
        viewtint.Image(np.zeros(shape, np.float32))
    assert str(shape) in str(raised.value)


def test_positions_stay_in_range():
    pixel = np.zeros((1, 2), np.float32)
    for x0 in [2**31 - 1, 2**28 - 1, -(2**28) - 1, -(2**31)]:
        with pytest.raises(ValueError, match="coordinates"):
            viewtint.Image(pixel, x0)
    with pytest.raises(ValueError, match="coordinates"):
        viewtint.copyClamped(viewtint.Image(pixel), (0, 0, 1, 2**29))
    with pytest.raises(ValueError, match="no pixels"):
        viewtint.copyClamped(viewtint.Image(pixel), (0, 0, 0, 5))
    with pytest.raises(TypeError):
        viewtint.Image(pixel, 2**31)
    with pytest.raises(TypeError):
        viewtint.Image(pixel, 1.5)
    assert viewtint.Image(pixel, 2**28 - 2).box == (2**28 - 2, 0, 2**28, 1)

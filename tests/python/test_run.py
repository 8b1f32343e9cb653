import re

import numpy as np
import pytest

import viewtint
from viewtint import run


@pytest.mark.parametrize("planar", [True, False])
@pytest.mark.parametrize("flags", [1, 19])
def test_kernels_against_their_formulas(image, planar, flags):
    a, b = image(33, 47, 3, planar=planar), image(33, 47, 3, planar=planar)
    o = image(33, 47, 3, planar=not planar)
    x, y = a.array, b.array
    for name, images, scalars, expected in [
        ("maxKernel", [a, b, o], {}, np.maximum(x, y)),
        ("invertKernel", [a, o], {}, 1 - x),
        ("thresholdKernel", [a, o], {"threshold": 0.25}, np.where(x > 0.25, x, 0)),
        ("thresholdKernel", [a, o], {"threshold": 0, "binarise": True}, x > 0),
        ("fillConstantKernel", [o], {"value": (1, 2, 3, 4)}, np.broadcast_to([1, 2, 3], x.shape)),
        ("multiplyConstantKernel", [a, o], {"value": np.arange(4)}, x * np.arange(3, dtype=np.float32)),
        ("copyChannelKernel", [a, o], {"sourceChannel": 2, "destChannel": 0}, None),
    ]:
        before = o.array
        assert run(name, images, flags=flags, **scalars) == {}
        if expected is None:
            expected = np.stack([x[..., 2], before[..., 1], before[..., 2]], axis=-1)
        np.testing.assert_array_equal(o.array, expected.astype(np.float32))
    np.testing.assert_array_equal(a.array, x)


def test_in_place(image):
    a = image(9, 20, 4)
    before = a.array
    run("invertKernel", [a, a])
    np.testing.assert_array_equal(a.array, 1 - before)


def test_iteration(image):
    a, o = image(20, 30, 4, x0=-5, y0=3), image(20, 30, 4, x0=-5, y0=3)
    source, before = a.array, o.array

    def changed(*iteration):
        o = viewtint.Image(before, -5, 3)
        run("copyKernel", [a, o], iteration=iteration)
        return o.array

    def expected(rows, columns, components):
        array = before.copy()
        array[rows, columns, components] = source[rows, columns, components]
        return array

    everything = slice(None)
    for iteration, part in [
        ((-2, 5, 4, 6, 1, 3), (slice(2, 3), slice(3, 9), slice(1, 3))),
        ((-2, 5, 4, 6, 0, 0), (slice(2, 3), slice(3, 9), everything)),
        ((-5, 3, 25, 23, 3, 4), (everything, everything, slice(3, 4))),
        ((0, 0, 0, 0, 0, 0), (everything, everything, everything)),
        ((4, 4, 4, 9, 0, 0), (slice(0), everything, everything)),
    ]:
        np.testing.assert_array_equal(changed(*iteration), expected(*part))
    run("copyKernel", [a, o], iteration=np.array([-5, 3, 25, 23, 0, 0]))
    np.testing.assert_array_equal(o.array, source)
    for iteration in [(-6, 3, 25, 23, 0, 0), (-5, 3, 25, 24, 0, 0), (-5, 3, 25, 23, 0, 5)]:
        with pytest.raises(viewtint.Error, match="copyKernel"):
            changed(*iteration)
    for iteration in [(0, 0, 1, 1), (0, 0, 1.5, 1, 0, 0), "012345", (0, 0, 2**31, 1, 0, 0)]:
        with pytest.raises(TypeError):
            run("copyKernel", [a, o], iteration=iteration)


def test_edges_with_a_colour(image):
    a = image(4, 5, 2)
    o = image(8, 9, 2, x0=-2, y0=-2)
    colour = [0.25, 0.5, 9, 9]
    run("crossFadeKernel", [a, o, o], mix=1, constEdgeColorA=colour)
    expected = np.broadcast_to(np.float32(colour[:2]), (8, 9, 2)).copy()
    expected[2:6, 2:7] = a.array
    np.testing.assert_array_equal(o.array, expected)


@pytest.mark.parametrize("size", [(1, 1), (3, 5), (2, 60), (50, 3), (70, 90)])
@pytest.mark.parametrize("kernel", ["boxSumKernel", "symmetricConvolutionKernel", "dilateKernel", "erodeKernel"])
def test_an_image_with_edges_may_be_smaller_or_larger_than_the_range(image, kernel, size):
    a, o = image(*size, 1, mask=0.5, x0=-7, y0=20), image(40, 55, 1)
    run(kernel, [a, o])
    around = viewtint.copyClamped(a, (-10, -10, 65, 50))
    expected = viewtint.Image(np.zeros((60, 75), np.float32), -10, -10)
    run(kernel, [around, expected])
    np.testing.assert_array_equal(o.array, expected.array[10:50, 10:65])


def test_accumulators(image):
    a, mask = image(70, 50, 3), image(70, 50, 3, mask=0.3)
    x, m = a.array.astype(np.float64), mask.array > 0
    results = run("maskedSumKernel", [mask, a])
    np.testing.assert_allclose(results["sum"], [*(x * m).sum((0, 1)), 0], rtol=1e-6)
    assert results["count"] == [*m.sum((0, 1)), 0]
    results = run("maskedSquaredDeviationKernel", [mask, a], mean=[0.25, 0.5, 0.75, 1])
    np.testing.assert_allclose(results["sum"][:3], ((x - [0.25, 0.5, 0.75]) ** 2 * m).sum((0, 1)), rtol=1e-6)
    part = run("sumKernel", [a], iteration=(10, 20, 30, 60, 1, 2))
    np.testing.assert_allclose(part["sum"], [0, x[20:60, 10:30, 1].sum(), 0, 0], rtol=1e-6)
    white = [viewtint.Image(np.ones((7, 9, components), np.float32)) for components in [3, 1, 3]]
    single = run("labSumKernel", white)
    assert single["count"] == 63
    assert type(single["count"]) is float
    np.testing.assert_allclose(single["sum"], [63, 0, 0], atol=1e-5)


def test_numbers_of_any_kind_that_lose_nothing(image):
    a, o = image(5, 5, 1), image(5, 5, 1)
    for threshold in [0, 0.5, np.float32(0.5), np.float64(0.5), np.int64(0), float("inf")]:
        for binarise in [True, np.True_]:
            run("thresholdKernel", [a, o], threshold=threshold, binarise=binarise)
            np.testing.assert_array_equal(o.array, a.array > threshold)
    run("copyChannelKernel", [a, o], sourceChannel=np.uint8(0), destChannel=np.int64(0))
    for value in [[1, 2.0, 3, 4], (1, 2, 3, 4), np.arange(1, 5), np.float32([1, 2, 3, 4])]:
        run("fillConstantKernel", [o], value=value)
        assert o.array[0, 0] == 1


@pytest.mark.parametrize("kernel, scalar, value, declared", [
    ("thresholdKernel", "threshold", True, "float"),
    ("thresholdKernel", "threshold", np.True_, "float"),
    ("thresholdKernel", "threshold", "0.5", "float"),
    ("thresholdKernel", "threshold", None, "float"),
    ("thresholdKernel", "threshold", [0.5], "float"),
    ("thresholdKernel", "threshold", 1j, "float"),
    ("thresholdKernel", "binarise", 1, "bool"),
    ("thresholdKernel", "binarise", 1.0, "bool"),
    ("copyChannelKernel", "sourceChannel", 1.0, "int"),
    ("copyChannelKernel", "sourceChannel", np.float32(1), "int"),
    ("copyChannelKernel", "sourceChannel", True, "int"),
    ("multiplyConstantKernel", "value", 1.0, "float[4]"),
    ("multiplyConstantKernel", "value", [1, 2, 3], "float[4]"),
    ("multiplyConstantKernel", "value", [1, 2, 3, True], "float[4]"),
    ("multiplyConstantKernel", "value", np.ones((4, 1)), "float[4]"),
    ("multiplyConstantKernel", "value", {1, 2, 3, 4}, "float[4]"),
])
def test_other_types_are_refused(image, kernel, scalar, value, declared):
    images = [image(4, 4, 3), image(4, 4, 3)]
    before = images[1].array
    with pytest.raises(viewtint.WrongTypeError) as raised:
        run(kernel, images, **{scalar: value})
    assert isinstance(raised.value, TypeError)
    assert str(raised.value) == (f'Kernel "{kernel}": parameter "{scalar}" is {declared} and was used as another type.')
    np.testing.assert_array_equal(images[1].array, before)


@pytest.mark.parametrize("kernel, scalar, value", [
    ("thresholdKernel", "threshold", 1e39),
    ("thresholdKernel", "threshold", 10**400),
    ("copyChannelKernel", "sourceChannel", 2**31),
])
def test_numbers_out_of_range_are_refused(image, kernel, scalar, value):
    with pytest.raises(viewtint.Error, match=f'"{scalar}"'):
        run(kernel, [image(4, 4, 3), image(4, 4, 3)], **{scalar: value})


def test_unknown_names_are_answered_with_the_known_ones(image):
    a, o = image(4, 4, 3), image(4, 4, 3)
    with pytest.raises(KeyError, match='There is no kernel "boxFilter"; the nearest are .*boxSumKernel') as raised:
        run("boxFilter", [a, o])
    assert isinstance(raised.value, viewtint.Error)
    with pytest.raises(viewtint.UnknownNameError) as raised:
        run("thresholdKernel", [a, o], treshold=1)
    assert str(raised.value) == (
        'Kernel "thresholdKernel" has no parameter "treshold"; there are threshold, binarise.')
    with pytest.raises(viewtint.UnknownNameError, match=re.escape('has no parameter "%%(ThrowFile)%%"; there are')):
        run("thresholdKernel", [a, o], **{"%%(ThrowFile)%%": 1})
    with pytest.raises(viewtint.UnknownNameError, match="constEdgeColorA, constEdgeColorB"):
        run("crossFadeKernel", [a, a, o], constEdgeColorO=[0] * 4)
    with pytest.raises(viewtint.UnknownNameError, match="result"):
        run("maskedSumKernel", [a, o], sum=[0] * 4)


def test_images_that_do_not_fit_are_refused(image):
    a, o = image(4, 4, 3), image(4, 4, 3)
    with pytest.raises(viewtint.Error) as raised:
        run("copyKernel", [a, image(4, 4, 1)])
    assert str(raised.value) == (
        'Kernel "copyKernel" has no variant for pixel types 3f_1f; there are 1f_1f, 2f_2f, 3f_3f, 4f_4f.')
    for images in [[], [a], [a, o, o]]:
        with pytest.raises(ValueError, match="takes 2 images"):
            run("copyKernel", images)
    with pytest.raises(ValueError, match="flags 2"):
        run("copyKernel", [a, o], flags=2)
    with pytest.raises(ValueError, match=r'"A" of \(1, 0\)-\(5, 4\) doesn\'t have'):
        run("copyKernel", [image(4, 4, 3, x0=1), o])
    with pytest.raises(ValueError, match="can't write"):
        run("dilateKernel", [a, a])
    for images in [a, None, [a, None], [a, o.array]]:
        with pytest.raises(TypeError):
            run("copyKernel", images)


def test_a_reach_beyond_all_images_is_refused_or_clamped(image):
    a, o = image(4, 4, 1), image(4, 4, 1)
    for radius in [2**31 - 1, -(2**31), 2**30]:
        with pytest.raises(viewtint.Error, match="dilateKernel"):
            run("dilateKernel", [a, o], radius=radius)

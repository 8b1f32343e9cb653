import re

import numpy as np
import pytest

import viewtint

KERNELS = viewtint.kernels()
TYPES = {"float": float, "int": int, "bool": bool}


def images_for(record, tuple_text, size=(40, 50)):
    pixels = [np.ones((*size, int(token[0])), np.float32) for token in tuple_text.split("_")]
    return [viewtint.Image(array) for array in pixels]


def is_of_type(value, type_text):
    element, _, count = type_text.partition("[")
    if not count:
        return type(value) is TYPES[element]
    return len(value) == int(count.rstrip("]")) and all(type(v) is TYPES[element] for v in value)


@pytest.mark.parametrize("name", KERNELS)
def test_record(name):
    record = KERNELS[name]
    assert record.images and record.tuples
    assert len({image.name for image in record.images}) == len(record.images)
    for image in record.images:
        assert type(image.written) is bool
        assert image.pattern in ["point", "axis", "rectangle", "random"]
        assert image.edge in ["none", "clamped", "constant"]
    for text in record.tuples:
        assert re.fullmatch(r"[1-4](f|ui)(_[1-4](f|ui))*", text)
        assert len(text.split("_")) == len(record.images)
    assert type(record.per_component) is bool
    assert record.passes == (2 if record.accumulators else 1)
    assert record.accumulators or any(image.written for image in record.images)
    for scalar in record.scalars:
        assert is_of_type(scalar.default, scalar.type)
    for image in record.images:
        colours = [s for s in record.scalars if s.name == "constEdgeColor" + image.name]
        assert len(colours) == (image.edge == "constant")
    names = [scalar.name for scalar in record.scalars]
    assert len(set(names)) == len(names)
    assert not set(names) & {"name", "images", "flags", "iteration"}  # the arguments of run()


@pytest.mark.parametrize("name", KERNELS)
def test_every_kernel_takes_its_defaults(name):
    """They are accepted as they are listed, and change nothing."""
    record = KERNELS[name]
    for text in record.tuples:
        if "ui" in text:
            continue
        left_out, given = images_for(record, text), images_for(record, text)
        try:
            results = viewtint.run(name, left_out)
        except viewtint.Error as refused:
            assert "doesn't have" in str(refused)  # its defaults need larger images
            continue
        assert results == viewtint.run(name, given, **{s.name: s.default for s in record.scalars})
        for a, b in zip(left_out, given):
            np.testing.assert_array_equal(a.array, b.array)
        assert {n: is_of_type(results[n], t) for n, t in record.accumulators} == {n: True for n in results}


def test_known_records():
    threshold = KERNELS["thresholdKernel"]
    assert threshold.images == [("A", False, "point", "none"), ("O", True, "point", "none")]
    assert threshold.per_component
    assert threshold.passes == 1
    assert threshold.scalars == [("threshold", "float", 0.0), ("binarise", "bool", False)]
    assert threshold.tuples == ["1f_1f", "2f_2f", "3f_3f", "4f_4f"]
    assert KERNELS["maskedSumKernel"].accumulators == [("sum", "float[4]"), ("count", "float[4]")]
    fade = {scalar.name: scalar for scalar in KERNELS["crossFadeKernel"].scalars}
    assert fade["constEdgeColorA"] == ("constEdgeColorA", "float[4]", [0.0] * 4)
    assert KERNELS["boxSumKernel"].images[0] == ("A", False, "axis", "clamped")
    assert KERNELS["dilateKernel"].images[0] == ("A", False, "rectangle", "clamped")

import numpy as np
import pytest

import viewtint


@pytest.fixture
def random():
    return np.random.default_rng(1).random


@pytest.fixture
def settings():
    """Threads and instruction set are those of the whole process: puts them back."""
    widest, threads = viewtint.instruction_set(), viewtint.threads()
    yield
    viewtint.limit_instruction_set(widest)
    viewtint.threads(threads)


@pytest.fixture
def image(random):
    """image(height, width, components, ...): random pixels of 0 .. 1, or with `mask` of 0 and 1."""

    def make(*shape, mask=None, **position):
        values = random(shape)
        if mask is not None:
            values = values < mask
        return viewtint.Image(values.astype(np.float32), **position)

    return make

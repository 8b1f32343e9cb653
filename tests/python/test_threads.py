import itertools
import os
import signal
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import viewtint

SETS = ["SSE2", "AVX2", "AVX-512"]


def results(a, mask):
    lab = viewtint.rgbToLab(a)
    pictures = [
        lab,
        viewtint.labToRgb(lab),
        viewtint.linearToSrgb(a),
        viewtint.boxFilter(a, 3),
        viewtint.boxFilter(a, 20),
        viewtint.gaussianBlur(a, 2.5),
        viewtint.growMask(mask, 1.5, 2),
        viewtint.maskMix(a, lab, mask),
        viewtint.PullPush().apply(a, mask),
    ]
    bits = [picture.array.tobytes() for picture in pictures]
    return bits + [viewtint.sum(a), viewtint.maskedSum(lab, a)]


def test_threads_and_instruction_sets_give_the_same_bits(image, settings):
    a, mask = image(203, 317, 3), image(203, 317, 1, mask=0.5)
    packed = viewtint.Image(a.array, planar=False)
    expected = results(a, mask)
    for name in SETS:
        viewtint.limit_instruction_set(name)
        for threads in [1, 2, 5]:
            assert viewtint.threads(threads) == threads
            assert results(a, mask) == expected
            assert results(packed, mask) == expected


def test_settings(settings):
    assert viewtint.threads(0) == os.cpu_count()
    assert viewtint.threads(3) == 3
    assert viewtint.threads() == 3
    with pytest.raises(ValueError):
        viewtint.threads(-1)
    widest = viewtint.instruction_set()
    assert widest in SETS
    viewtint.limit_instruction_set("sse2")
    assert viewtint.instruction_set() == "SSE2"
    viewtint.limit_instruction_set("avx-512")
    assert viewtint.instruction_set() == widest
    with pytest.raises(ValueError, match="MMX.*SSE2, AVX2, AVX-512"):
        viewtint.limit_instruction_set("MMX")


def test_calls_from_several_threads(image, settings):
    inputs = [(image(120, 130, 3), image(120, 130, 1, mask=0.5)) for _ in range(4)]
    expected = [results(*pair) for pair in inputs]
    with ThreadPoolExecutor(5) as pool:
        done = [pool.submit(lambda pair: [results(*pair) for _ in range(5)], pair) for pair in inputs]
        changes = pool.submit(lambda: [viewtint.threads(1 + i % 4) for i in range(200)])
        for future, result in zip(done, expected):
            assert future.result() == [result] * 5
        changes.result()


def long_call(image, seconds):
    """A kernel call that takes at least so long, as a function."""
    a, o = image(600, 600, 4), image(600, 600, 4)
    radius = 50
    while True:
        begin = time.perf_counter()
        viewtint.run("boxSumKernel", [a, o], radius=radius)
        if time.perf_counter() - begin > seconds:
            return lambda: viewtint.run("boxSumKernel", [a, o], radius=radius)
        radius *= 2


def test_other_threads_go_on_while_a_kernel_runs(image):
    call = long_call(image, 0.3)
    stamps, stop = [], threading.Event()

    def tick():
        while not stop.wait(0.005):
            stamps.append(time.perf_counter())

    ticker = threading.Thread(target=tick)
    ticker.start()
    begin = time.perf_counter()
    call()
    end = time.perf_counter()
    stop.set()
    ticker.join()
    margin = (end - begin) / 10
    assert sum(begin + margin < stamp < end - margin for stamp in stamps) >= 5


def test_an_interruption_is_raised_when_the_kernel_has_finished(image):
    a, o = image(400, 400, 3), image(400, 400, 3)
    # No Python code of this thread runs between the calls of `map`, which therefore must notice by themselves.
    many = map(viewtint.run, itertools.repeat("invertKernel", 100000), itertools.repeat([a, o]))
    finished = []
    # A shell that starts the tests in the background leaves the signal ignored.
    before = signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT)).start()
        with pytest.raises(KeyboardInterrupt):
            finished.extend(many)
    finally:
        signal.signal(signal.SIGINT, before)
    assert len(finished) < 100000
    np.testing.assert_array_equal(o.array, 1 - a.array)

"""The local modes against their definition, written in NumPy and SciPy, in double precision."""

import numpy as np
import pytest
from scipy.ndimage import convolve, correlate1d, maximum_filter, minimum_filter

import viewtint
from reference import filled, from_lab, guided_by_one, limited, to_lab

SIZE = HEIGHT, WIDTH = 62, 90


def corners(count, size):
    cells = np.arange(count)
    return cells * (size // 2) + cells // 2 * (size % 2)


def match_blocks(source, target, valid, size, wrap=None, fill=True):
    """Statistics of half-overlapping blocks; `wrap` is (width, height) of the format or None."""
    height, width = valid.shape
    shape = int(np.ceil(height / (size / 2))), int(np.ceil(width / (size / 2)))
    count, gain, offset = np.zeros(shape), np.ones(shape + (3,)), np.zeros(shape + (3,))
    for row, y in enumerate(corners(shape[0], size)):
        for column, x in enumerate(corners(shape[1], size)):
            if wrap is None:
                x, y0 = min(width, x + size) - size, min(height, y + size) - size
                columns = np.clip(np.arange(x, x + size), 0, width - 1)
            else:
                y0 = y
                columns = np.clip(np.arange(x, x + size) % wrap[0], 0, width - 1)
            block = np.ix_(np.clip(np.arange(y0, y0 + size), 0, height - 1), columns)
            counts = valid[block] > 0
            if counts.sum() <= size * size // 4 - 1:
                continue
            count[row, column] = 1
            a, b = source[block][counts].astype(float), target[block][counts].astype(float)
            deviation = a.std(0)
            with np.errstate(divide="ignore", invalid="ignore"):
                ratio = np.clip(b.std(0) / deviation, 0, 2)
            gain[row, column] = np.where(deviation > 1e-8, ratio, 1)
            offset[row, column] = b.mean(0) - gain[row, column] * a.mean(0)
    if fill:
        weights = viewtint.Image(count.astype(np.float32))
        for grid in gain, offset:
            pulled = viewtint.PullPush().apply(viewtint.Image(grid.astype(np.float32)), weights).array
            grid[count == 0] = pulled[count == 0]

    def axis(length, cells, closes):
        g = np.arange(length) * (cells / length) + cells / length / 2 - 0.5
        if wrap is not None:
            g = (g + wrap[0]) % wrap[0] if closes else np.clip(g, 0, wrap[1])
        first = np.floor(g).astype(int)
        second = first + 1
        if wrap is not None:
            second = second % wrap[0] if closes else np.minimum(second, wrap[1] - 1)
        return np.clip(first, 0, cells - 1), np.clip(second, 0, cells - 1), g - first

    def scaled(grid):
        x0, x1, u = axis(width, shape[1], True)
        y0, y1, v = axis(height, shape[0], False)
        rows = grid[:, x0] * (1 - u)[:, None] + grid[:, x1] * u[:, None]
        return rows[y0] * (1 - v)[:, None, None] + rows[y1] * v[:, None, None]

    changed = scaled(gain) * source + scaled(offset)
    return np.where(np.abs(source) > 1e-8, changed, source)


def blur(plane, sigma):
    if sigma == 0:
        return plane
    radius = int(3 * abs(sigma) + 0.5)
    taps = np.exp(-np.square(np.arange(-radius, radius + 1)) / sigma**2)
    taps /= taps.sum()
    return correlate1d(correlate1d(plane, taps, axis=1, mode="nearest"), taps, axis=0, mode="nearest")


def fill_mask(source, rebuilt, occlusion, edges, adjust, detect, feather):
    whole = int(abs(adjust))
    change = maximum_filter if adjust >= 0 else minimum_filter
    first, second = (blur(change(edges, 2 * r + 1, mode="nearest"), feather) for r in (whole, whole + 1))
    share = abs(adjust) - whole
    mask = np.maximum(share * second + (1 - share) * first, blur(occlusion, feather))
    if detect > 0:
        across = np.array([[-1, 0, 1], [-2, 0, 2], [-1, 0, 1]])
        for view in source, rebuilt:
            grey = np.clip(view[..., :3].sum(-1) / 3, 0, 1)
            gradient = sum(np.abs(convolve(grey, kernel, mode="nearest")) for kernel in (across, across.T))
            mask = np.maximum(mask, blur((gradient > max(0.01, 1 - detect)).astype(float), 1))
            mask = np.where(mask < 0.001, 0, np.where(mask > 0.999, 1, mask))
    return mask


def refill(corrected, source, mask, tolerance, support):
    sigmas = tolerance, 0.667 * tolerance, 0.667 * tolerance
    mask = mask.astype(np.float32)
    return source + filled(corrected - source, source.astype(np.float32), mask, sigmas, support)


def block_sizes(a):
    top = a.maxBlockSize + (a.blockSize / 4 if min(a.wrapSize) >= 1 else 0)
    steps = a.samples - 1
    growing = a.samples >= 3 and a.intervalType != 0
    step = (top - a.blockSize) / (steps * (steps + 1) / 2 if growing else steps)
    sizes = [a.blockSize]
    for i in range(1, a.samples):
        sizes.append(int(top) if i == steps else int(sizes[-1] + (i if a.intervalType else 1) * step + 0.5))
    return sizes


def process(a, source, rebuilt, mask, occlusion, edges):
    """The local mode of the aligner `a`, and its stages."""
    rgb, stages = source[..., :3].astype(float), {}
    wrap = tuple(a.wrapSize) if min(a.wrapSize) >= 1 else None
    valid = 1.0 * ~(np.maximum(np.maximum(1 - mask, occlusion), edges) > 1e-4)
    epsilon = 10 ** (a.noiseLevel * 5 - 8)
    clean, target = (guided_by_one(v[..., :3], v[..., :3], 3, epsilon) for v in (source, rebuilt))
    noise = rgb - clean
    lab, target_lab = to_lab(clean), to_lab(target)
    stages.update(V=valid, N=clean, T=target, noise=noise)

    def match(size):
        return match_blocks(lab, target_lab, valid, size, wrap, a.fillEmptyBlocks)

    if a.mode == 2:
        result = stages["C"] = match(a.blockSize)
        if not a.fillOcclusions:
            result = from_lab(result)
    else:
        result = np.zeros_like(clean)
        for i, size in enumerate(block_sizes(a)):
            sample = stages[f"E{i}"] = from_lab(match(size))
            if a.correctionType == 2:
                result = result + (sample - clean)
            elif i == 0:
                result = sample
            else:
                reference = clean if a.correctionType == 0 else rebuilt[..., :3]
                closer = np.abs(reference - sample) < np.abs(reference - result)
                result = np.where(closer, sample, result)
        if a.correctionType == 2:
            result = clean + result / a.samples
        stages["merged"] = result
    fills = np.zeros(SIZE)
    if a.fillOcclusions:
        fills = fill_mask(source, rebuilt, occlusion, edges, a.adjustEdges, a.edgeDetect, a.featherSize)
        corrected = to_lab(result)  # with one block size it was Lab already
        stages.update(O=fills, delta=corrected - lab)
        stages["refilled"] = refill(corrected, lab, fills, a.colourTolerance, a.supportSize)
        result = from_lab(stages["refilled"])
    result = limited(rgb, result, a.correctionLimit)
    result = guided_by_one(to_lab(result), to_lab(rgb), a.smoothingRadius, 1e-7)
    stages["smoothed"] = result
    output = np.concatenate([from_lab(result) + noise, source[..., 3:]], -1)
    if a.previewCorrection:
        output -= source
    elif a.outputOcclusionsToAlpha:
        output[..., 3] = fills
    m = mask[..., None].astype(float)
    return m * output + (1 - m) * source, stages


@pytest.fixture
def scene():
    """Two views of one scene under unlike light, a strip that one of them doesn't show, edges and a soft selection."""
    random = np.random.default_rng(5)
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH]
    shape = 0.35 + 0.15 * np.sin(x / 5) * np.cos(y / 7) + 0.1 * (x + y > 80) + 0.02 * random.random(SIZE)
    rebuilt = np.stack([shape, 0.9 * shape, 0.7 * shape + 0.05, np.ones(SIZE)], -1)
    light = 1 + 0.3 * np.stack([x / WIDTH - 0.5, 0 * x, 0.5 - y / HEIGHT, 0 * x], -1)
    source = rebuilt * light
    source[..., 3] = 0.5 + 0.5 * (x > 20)
    occlusion = 1.0 * ((x > 40) & (x < 47) & (y > 12))
    edges = 1.0 * ((x == 70) & (y < 40))
    mask = np.clip((WIDTH - x) / 10 - 0.5, 0, 1)
    return [values.astype(np.float32) for values in (source, rebuilt, mask, occlusion, edges)]


def aligner(**settings):
    a = viewtint.ToneAligner()
    a.keepStages = True
    a.wrapSize = WIDTH, HEIGHT
    a.noiseLevel, a.maxBlockSize, a.supportSize, a.smoothingRadius = 0.25, 30, 6, 5
    for name, value in settings.items():
        setattr(a, name, value)
    return a


def assert_alike(actual, expected, few=0.002):
    """To rounding; where two samples are about as near, it decides between them, in a few pixels."""
    off = np.abs(actual - expected).reshape(actual.shape[0], actual.shape[1], -1).max(-1)
    assert np.isfinite(actual).all()
    assert (off > 3e-4).mean() <= few, off.max()


@pytest.mark.parametrize(
    "settings",
    [
        {"mode": 2},
        {"mode": 2, "fillOcclusions": False, "blockSize": 12},
        {"mode": 3, "samples": 3},
        {"mode": 3, "samples": 2, "fillOcclusions": False, "previewCorrection": True},
        {"mode": 3, "samples": 4, "correctionType": 0, "intervalType": 1, "edgeDetect": 0.6, "adjustEdges": 1.5},
        {"mode": 3, "samples": 3, "correctionType": 2, "outputOcclusionsToAlpha": True, "adjustEdges": -0.5},
        {"mode": 3, "samples": 2, "wrapSize": (-1, -1), "correctionLimit": 0.1, "noiseLevel": 0.8, "featherSize": 0},
    ],
    ids=lambda settings: " ".join(f"{name}={value}" for name, value in settings.items()),
)
def test_process(scene, settings):
    a = aligner(**settings)
    images = [viewtint.Image(values) for values in scene]
    actual = a.process(*images)
    expected, stages = process(a, *scene)
    assert set(stages) == set(a.stages) - {"average", "limited"}
    for name in stages:
        picture = a.stages[name].array
        assert_alike(picture if stages[name].ndim == 3 else picture[..., 0], stages[name])
    assert_alike(actual.array, expected)
    for image, values in zip(images, scene):
        np.testing.assert_array_equal(image.array, values.reshape(image.array.shape))
    a.keepStages = False
    np.testing.assert_allclose(a.process(*images).array, actual.array, atol=2e-3)
    assert a.stages == {}


@pytest.mark.parametrize("size", [2, 5, 24, 101])
@pytest.mark.parametrize("wrap", [None, (WIDTH, HEIGHT), (WIDTH // 2 + 5, HEIGHT)])
def test_match_blocks(scene, size, wrap):
    source, target = (to_lab(view[..., :3].astype(float)).astype(np.float32) for view in scene[:2])
    valid = 1 - scene[3]
    for fill in True, False:
        a = aligner(wrapSize=wrap or (-1, -1), fillEmptyBlocks=fill)
        images = viewtint.Image(source), viewtint.Image(target), viewtint.Image(valid)
        expected = match_blocks(source, target, valid, size, wrap, fill)
        np.testing.assert_allclose(a.matchBlocks(*images, size).array, expected, atol=2e-4 if size == 2 else 1e-5)


def test_steps(scene):
    source, rebuilt, _, occlusion, edges = scene
    images = [viewtint.Image(values) for values in scene]
    for adjust, detect, feather in (0, 0, 1.5), (2.25, 0, 3), (-1, 0.9, 0), (0, 1, 1):
        a = aligner(adjustEdges=adjust, edgeDetect=detect, featherSize=feather)
        actual = a.buildFillMask(images[0], images[1], images[3], images[4]).array[..., 0]
        expected = fill_mask(source, rebuilt, occlusion, edges, adjust, detect, feather)
        # A gradient within rounding of its threshold may fall on either side.
        assert (np.abs(actual - expected) > 2e-5).mean() < 0.02
    a = aligner(colourTolerance=0.05)
    labs = [to_lab(view[..., :3].astype(float)).astype(np.float32) for view in (rebuilt, source)]
    actual = a.refill(viewtint.Image(labs[0]), viewtint.Image(labs[1]), images[3]).array
    np.testing.assert_allclose(actual, refill(*labs, occlusion, 0.05, 6), atol=5e-5)
    a.correctionLimit = 0.05
    actual = a.limitCorrection(images[0], images[1]).array[..., :3]
    np.testing.assert_allclose(actual, limited(source[..., :3], rebuilt[..., :3], 0.05), atol=2e-5)


def test_block_sizes():
    assert viewtint.ToneAligner().sampleBlockSizes() == [5, 100]
    for samples, interval, wrap in (4, 0, None), (4, 1, None), (5, 0, (8, 8)), (20, 1, (8, 8)):
        a = aligner(samples=samples, intervalType=interval, maxBlockSize=100, wrapSize=wrap or (-1, -1))
        assert a.sampleBlockSizes() == block_sizes(a)


def test_disparity_edges():
    vectors = np.zeros((20, 30, 2), np.float32)
    vectors[:, 12:, 0] = 3
    marks = viewtint.detectDisparityEdges(viewtint.Image(vectors)).array[..., 0]
    np.testing.assert_array_equal(np.flatnonzero(marks[7]), [11, 12])
    assert not viewtint.detectDisparityEdges(viewtint.Image(vectors), scale=0.3).array.any()
    wide = viewtint.detectDisparityEdges(viewtint.Image(vectors), thin=False).array[..., 0]
    np.testing.assert_array_equal(np.flatnonzero(wide[7]), np.arange(8, 16))


def test_calls_that_cannot_be_right(scene):
    images = [viewtint.Image(values) for values in scene]
    a = viewtint.ToneAligner()
    with pytest.raises(ValueError, match="blockSize must lie in 2"):
        a.blockSize = 1
    with pytest.raises(ValueError, match="noiseLevel must lie in 0"):
        a.noiseLevel = float("nan")
    with pytest.raises(ValueError, match="source must have 4 components, not 1"):
        a.process(images[2], *images[1:])
    with pytest.raises(ValueError, match="occlusion and source must have the same box"):
        a.process(*images[:3], viewtint.Image(np.zeros((5, 5), np.float32)), images[4])
    with pytest.raises(ValueError, match="blockSize must lie in 2"):
        lab = viewtint.Image(scene[0][..., :3])
        a.matchBlocks(lab, lab, images[2], 1)


def test_what_nothing_writes_is_zero():
    """Memory of images that are gone serves again."""
    picture, plane = np.full((48, 64, 4), 7, np.float32), np.full((48, 64), 7, np.float32)
    for _ in range(3):
        viewtint.copy(viewtint.Image(picture))
    a = viewtint.ToneAligner()
    a.mode = 1
    view, mask = viewtint.Image(picture), viewtint.Image(plane)
    assert not a.process(view, view, mask, mask, mask).array.any()

"""What the operations compute, from their definitions in double precision, for tests to compare with."""

import numpy as np
from scipy.ndimage import binary_dilation, uniform_filter

TO_XYZ = np.array(
    [[0.4339115, 0.37622687, 0.1898616], [0.21264936, 0.7151691, 0.07218152], [0.01775321, 0.10946182, 0.8727849]]
)
TO_RGB = np.array(
    [[3.0802281, -1.5373085, -0.5429192], [-0.9212165, 1.8759666, 0.04525001], [0.05288144, -0.20400739, 1.1511259]]
)

DIAGONAL = np.array([[1, 0, 1], [0, 1, 0], [1, 0, 1]], bool)


def mean(values, radius):
    size = 2 * radius + 1
    return uniform_filter(values.astype(np.float64), (size, size) + (0,) * (values.ndim - 2), mode="nearest")


def guided_by_one(p, g, radius, epsilon):
    """The guided filter of p, each channel by that of g or by its only one."""
    p, g = p.astype(np.float64), g.astype(np.float64)
    mean_p, mean_g = mean(p, radius), mean(g, radius)
    a = (mean(p * g, radius) - mean_p * mean_g) / (mean(g * g, radius) - mean_g**2 + epsilon)
    b = mean_p - a * mean_g
    return mean(a, radius) * g + mean(b, radius)


def distances(seeds):
    """One dilation by the diagonals for each step."""
    reached = seeds > 0
    result = np.where(seeds != 0, 0.0, 10000.0)
    for step in range(1, sum(seeds.shape)):
        grown = binary_dilation(reached, DIAGONAL)
        result[grown & ~reached & (seeds == 0)] = step
        reached = grown
    return result


def filled(values, guide, mask, sigmas, boost):
    """The bilateral fill."""
    height, width = mask.shape
    distance = distances((mask <= np.float32(1e-4)).astype(np.float32))
    result = values.astype(np.float64)
    with np.errstate(divide="ignore"):
        k = np.where(np.array(sigmas) > 0, 1 / np.square(np.float64(sigmas)), 100000)
    for y, x in np.argwhere(mask != 0):
        r = max(3, int(np.ceil(distance[y, x] + boost)))
        rows, columns = slice(max(y - r, 0), y + r + 1), slice(max(x - r, 0), x + r + 1)
        gives = distance[rows, columns] == 0
        if not gives.any():
            continue
        gy, gx = np.mgrid[rows.start : min(rows.stop, height), columns.start : min(columns.stop, width)]
        e = -((gx - x) ** 2 + (gy - y) ** 2) * 0.7 / r**2
        e = e - (np.square(guide[rows, columns].astype(np.float64) - guide[y, x]) * k).sum(-1)
        w = np.maximum(np.exp(e), 1e-5) * gives
        mean = (values[rows, columns] * w[..., None]).sum((0, 1)) / w.sum()
        result[y, x] = values[y, x] * (1 - mask[y, x]) + mean * mask[y, x]
    return result


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
    """The kernel's centre at (0, 0), what is left of it and below at the far ends; later cells overwrite others."""
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

"""The rebuilt view: sampling, marks and holes, on made pictures and on a photographed pair."""

import pathlib

import numpy as np
import pytest
from PIL import Image as Photograph

import viewtint

SHARED = pathlib.Path(__file__).parents[3] / "shared" / "data" / "cones"


def coded(v):
    v = np.asarray(v, np.float64)
    return np.where(v > 0.0031308, 1.055 * np.maximum(v, 0) ** (1 / 2.4) - 0.055, v * 12.92)


def linear(v):
    v = np.asarray(v, np.float64)
    return np.where(v > 0.04045, ((v + 0.055) / 1.055) ** 2.4, v / 12.92)


def picture(height, width, seed=1):
    values = np.random.default_rng(seed).random((height, width, 4), np.float32)
    values[..., 3] = 1
    return values


def lanczos(t, a=3):
    return np.where(np.abs(t) > a, 0, np.sinc(t) * np.sinc(t / a))


def sampled(values, px, py, wrap=None):
    """The direct double sum over 7 by 7 taps of the codes, decoded again."""
    height, width, _ = values.shape
    codes = np.concatenate([coded(values[..., :3]), values[..., 3:]], -1)
    result = np.zeros(px.shape + (4,))
    for index in np.ndindex(px.shape):
        x, y = np.float32(px[index]), np.float32(py[index])
        columns = np.arange(-3, 4) + int(np.trunc(x + np.float32(0.5)))
        rows = np.arange(-3, 4) + int(np.trunc(y + np.float32(0.5)))
        wx, wy = lanczos(x - columns.astype(np.float64)), lanczos(y - rows.astype(np.float64))
        if wrap:
            columns = np.array([c % wrap if c < 0 else (c - 1) % wrap + 1 if c > wrap else c for c in columns])
        taps = codes[np.clip(rows, 0, height - 1)][:, np.clip(columns, 0, width - 1)]
        total = wx.sum() * wy.sum()
        if total > 0:
            result[index] = np.einsum("j,i,jic->c", wy, wx, taps) / total
    return np.concatenate([linear(result[..., :3]), result[..., 3:]], -1)


@pytest.mark.parametrize("wrap", [None, 33])
def test_warp_is_the_direct_double_sum(wrap):
    values = picture(21, 33)
    rng = np.random.default_rng(2)
    displacement = rng.uniform(-40, 40, (21, 33, 2)).astype(np.float32)
    builder = viewtint.PictureBuilder(1, (wrap, 21)) if wrap else viewtint.PictureBuilder(1)
    actual = builder.warp(viewtint.Image(values), viewtint.Image(displacement)).array
    y, x = np.mgrid[0:21, 0:33]
    expected = sampled(values, x + displacement[..., 0], y + displacement[..., 1], wrap)
    np.testing.assert_allclose(actual, expected, atol=1e-5)


def test_a_panorama_has_no_seam_at_its_ends():
    values = np.zeros((9, 40, 4), np.float32)
    x = np.arange(40)
    values[..., :3] = (0.5 + 0.4 * np.sin(2 * np.pi * x / 40))[None, :, None]
    values[..., 3] = 1
    displacement = np.zeros((9, 40, 2), np.float32)
    displacement[..., 0] = 7.5
    actual = viewtint.PictureBuilder(1, (40, 9)).warp(viewtint.Image(values), viewtint.Image(displacement)).array
    expected = 0.5 + 0.4 * np.sin(2 * np.pi * (x + 7.5) / 40)
    clear_of_the_last_column = np.abs(x + 7.5 - 40) > 4  # the column equal to the width repeats the last
    np.testing.assert_allclose(actual[4, clear_of_the_last_column, 0], expected[clear_of_the_last_column], atol=2e-3)


@pytest.mark.parametrize("width", [1, 3, 7, 41, 49, 107, 1920])
def test_whole_turns_of_a_panorama_end_where_they_should(width):
    """From the left in column 0 .. width - 1, from the right in 1 .. width, the last of which reads width - 1."""
    values = np.arange(width, dtype=np.float32)[None, :, None] * np.ones((1, 1, 4), np.float32)
    columns = np.concatenate([-np.arange(1, 60) * width, np.arange(1, 60) * width, np.arange(-300, 300)])
    displacement = np.zeros((1, len(columns), 2), np.float32)
    displacement[0, :, 0] = columns - np.arange(len(columns))
    ends = [c % width if c < 0 else (c - 1) % width + 1 if c > width else c for c in columns]
    o = viewtint.Image(np.zeros((1, len(columns), 4), np.float32))
    viewtint.run(
        "warpWrapKernel",
        [viewtint.Image(values, planar=False), viewtint.Image(displacement), o],
        wrapSize=(width, 1),
        lanczos=False,
    )
    np.testing.assert_allclose(o.array[0, :, 0], np.minimum(ends, width - 1), atol=1e-3)


def test_no_disparity_gives_back_the_view():
    views = picture(30, 45, 3), picture(30, 45, 4)
    disparity = viewtint.Image(np.zeros((30, 45, 4), np.float32))
    occlusion = np.zeros((30, 45), np.float32)
    occlusion[3, 5] = 1
    for direction in 0, 1:
        result = viewtint.PictureBuilder(direction, (45, 30)).build(
            viewtint.Image(views[0]), viewtint.Image(views[1]), disparity, viewtint.Image(occlusion)
        )
        np.testing.assert_allclose(result.array[..., :3], views[direction][..., :3], atol=1e-5)
        np.testing.assert_array_equal(result.array[..., 3] < 0.5, occlusion > 0)


def test_a_step_is_marked_and_filled_from_the_background():
    """A near square (disparity -10) before a far wall (-2), seen from the left: what the right view doesn't show lies
    left of the square, and takes the wall's disparity."""
    displacement = np.zeros((40, 80, 2), np.float32)
    displacement[..., 0] = -2
    displacement[10:30, 40:60, 0] = -10
    builder = viewtint.PictureBuilder(1, (80, 40))
    marks = builder.markOcclusion(viewtint.Image(displacement)).array[..., 0]
    assert marks[20, 39] == 1 and marks[20, 40] == 1 and marks[20, 59] == 1 and marks[20, 60] == 1
    assert marks[20, 30] == 0 and marks[20, 50] == 0
    assert marks[10, 50] == 0, "a horizontal edge of horizontal disparity isn't marked"
    assert (marks[:, :2] == 1).all() and (marks[5, 2:30] == 0).all(), "columns that point out of the picture"
    values = picture(40, 80, 5)
    values[..., :3] = np.linspace(0.1, 0.9, 80)[None, :, None]
    warped = builder.warp(viewtint.Image(values), viewtint.Image(displacement))
    filled = builder.fillHoles(
        viewtint.Image(values), warped, viewtint.Image(displacement), viewtint.Image(marks)
    ).array
    assert np.isfinite(filled).all()
    far = np.full((40, 80, 2), (0, 0), np.float32)
    far[..., 0] = -10  # the smaller one: with direction 1 the background has the smaller vector
    chosen = builder.warp(viewtint.Image(values), viewtint.Image(far)).array
    near_the_edge = filled[20, 40, 0]
    assert abs(near_the_edge - chosen[20, 40, 0]) < 0.03


def test_wild_disparities_give_black_marks_and_no_harm():
    values = viewtint.Image(picture(16, 24, 6))
    wild = np.zeros((16, 24, 2), np.float32)
    specials = [np.nan, np.inf, -np.inf, 3e38, -3e38, 1e-42, -1e-42, 1e9, -1e9, 2.0**31, -(2.0**31), 70000.5]
    for i, special in enumerate(specials):
        for y, x in (i % 16, i * 2 % 24), (0, i), (15, 23 - i):
            wild[y, x, i % 2] = special
    for size in (-1, -1), (24, 16), (1, 1):
        builder = viewtint.PictureBuilder(0, size)
        displacement = viewtint.Image(wild)
        warped = builder.warp(values, displacement).array
        marks = builder.markOcclusion(displacement).array[..., 0]
        bad = ~np.isfinite(wild).all(-1)
        assert (warped[bad] == 0).all() and (marks[bad] == 1).all()
        filled = builder.fillHoles(values, viewtint.Image(warped), displacement, viewtint.Image(marks)).array
        assert np.isfinite(filled).all()


@pytest.mark.parametrize("x, outside", [(-0.49999997, 0), (-0.5, 1), (-0.50000006, 1), (-0.25, 0), (np.nan, 1), (8, 1)])
def test_halves_round_away_from_zero_at_the_frame(x, outside):
    displacement = np.zeros((8, 8, 2), np.float32)
    displacement[:, 0, 0] = x
    displacement[0, :, 1] = x
    marks = viewtint.PictureBuilder(1).markOcclusion(viewtint.Image(displacement)).array[..., 0]
    assert (marks[4:6, 0] == outside).all() and (marks[0, 4:6] == outside).all()


def test_errors_name_what_is_wrong():
    view, wrong = viewtint.Image(picture(8, 8)), viewtint.Image(np.zeros((8, 8, 3), np.float32))
    two = viewtint.Image(np.zeros((8, 8, 2), np.float32))
    with pytest.raises(ValueError, match="direction must be 0"):
        viewtint.PictureBuilder(2)
    builder = viewtint.PictureBuilder(1)
    with pytest.raises(ValueError, match="disparity must have 4 components, not 2"):
        builder.build(view, view, two, viewtint.Image(np.zeros((8, 8), np.float32)))
    with pytest.raises(ValueError, match="displacement must have 2 components, not 3"):
        builder.markOcclusion(wrong)
    with pytest.raises(ValueError, match="same box"):
        builder.build(view, view, view, viewtint.Image(np.zeros((4, 8), np.float32)))


@pytest.mark.skipif(not SHARED.is_dir(), reason="the photographed pair is not here")
@pytest.mark.parametrize("direction", [0, 1])
def test_a_photographed_pair_lines_up(direction):
    """PSNR against the view to correct where both views see the same; the wrong sign of the disparity loses it."""
    def view(name):
        codes = np.asarray(Photograph.open(SHARED / name).convert("RGB"))[::-1] / 255.0
        values = np.ones(codes.shape[:2] + (4,), np.float32)
        values[..., :3] = linear(codes)
        return values

    left, right = view("im2.png"), view("im6.png")
    codes = np.asarray(Photograph.open(SHARED / ("disp6.png" if direction == 0 else "disp2.png")))[::-1] / 4.0
    known = codes > 0
    height, width = codes.shape
    vectors = np.zeros((height, width, 4), np.float32)
    vectors[..., 2 * direction] = codes if direction == 0 else -codes
    target = right if direction == 0 else left
    occlusion = viewtint.Image((~known).astype(np.float32))
    builder = viewtint.PictureBuilder(direction, (width, height))

    def psnr(sign):
        built = builder.build(
            viewtint.Image(left), viewtint.Image(right), viewtint.Image(sign * vectors), occlusion
        ).array
        columns = np.arange(width) + vectors[..., 2 * direction]
        other = np.asarray(
            Photograph.open(SHARED / ("disp2.png" if direction == 0 else "disp6.png"))
        )[::-1] / 4.0
        there = np.take_along_axis(other, np.clip(np.rint(columns).astype(int), 0, width - 1), 1)
        seen = known & (columns >= 0) & (columns <= width - 1) & (np.abs(there - codes) <= 1)
        error = (coded(built[..., :3]) - coded(target[..., :3]))[seen]
        return -10 * np.log10((error**2).mean())

    assert psnr(1) > 27.5
    assert psnr(1) - psnr(-1) > 10

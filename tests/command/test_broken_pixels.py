"""NaN, infinities and what is beyond 1e12: such pixels keep their values, and no other one hears of them."""

import numpy as np
import pytest
from pictures import in_file, read_exr, stereo_pair, viewtint, write_exr

MODES = pytest.mark.parametrize("mode", ["Basic", "Local Matching"])
Y, X = 20, 30
PAYLOAD = np.array([0x7FC12345], np.uint32).view(np.float32)[0]
SIGNALLING = np.array([0x7F812345], np.uint32).view(np.float32)[0]
VALUES = [PAYLOAD, SIGNALLING, -np.inf, 1e13]
RGBA = "RGBA"


def bits(plane):
    return np.ascontiguousarray(plane).view(f"u{plane.itemsize}")


def colours(channels, view="left"):
    return np.stack([channels[in_file(view, c)] for c in RGBA], -1)


def render(folder, channels, mode, *words, name="pair.exr"):
    """The corrected view and what was said of it."""
    write_exr(folder / name, dict(channels))
    done = viewtint("render", name, "-o", "out.exr", "--matchingMode", mode, *words, folder=folder)
    assert done.returncode == 0, done.stderr
    return colours(read_exr(folder / "out.exr")), done.stderr


def differences(a, b, reach):
    """Beyond that distance from the broken pixel."""
    y, x = np.mgrid[:48, :64]
    far = np.maximum(abs(y - Y), abs(x - X)) > reach
    return np.abs(a[far] - b[far])


@MODES
@pytest.mark.parametrize("value", VALUES, ids=str)
@pytest.mark.parametrize("extra", [(), ("--previewCorrection", "on"), ("--samples", "1"),
                                   ("--occlusionCorrection", "None")], ids=str)
def test_a_broken_pixel_of_the_corrected_view_comes_back_as_it_was(tmp_path, mode, value, extra):
    channels = stereo_pair()
    clean, _ = render(tmp_path, channels, mode, *extra)
    channels["R"][Y, X] = value
    channels["A"][Y, X] = value
    picture, said = render(tmp_path, channels, mode, *extra)
    np.testing.assert_array_equal(bits(picture[Y, X]), bits(colours(channels)[Y, X]))
    assert "1 pixel of the view 'left' is not a number or beyond 1e12; it takes no part in the match and keeps " in said
    assert differences(picture, clean, 0).max() < 0.04
    assert differences(picture, clean, 0).mean() < 1e-3


@pytest.mark.parametrize("storage, odd", [
    (np.float16, [0x7E01, 0x7C01, 0xFFFF, 0x7C00, 0xFC00, 0x8000]),  # NaN with payloads, infinities, -0
    (np.uint32, [2**24 + 1, 2**32 - 1, 0, 7]),  # no floats
])
def test_other_types_keep_what_no_float_holds(tmp_path, storage, odd):
    channels = {name: plane.astype(storage) if name[-1] in RGBA else plane for name, plane in stereo_pair().items()}
    channels["A"][...] = 0
    channels["G"].view(f"u{channels['G'].itemsize}")[3, :len(odd)] = odd
    picture, _ = render(tmp_path, channels, "Basic", "--maskWith", "Source Alpha")
    np.testing.assert_array_equal(bits(picture[3]), bits(colours(channels)[3]))


@MODES
@pytest.mark.parametrize("value", VALUES, ids=str)
def test_a_broken_pixel_of_the_other_view_does_not_spread(tmp_path, mode, value):
    channels = stereo_pair()
    clean, _ = render(tmp_path, channels, mode)
    channels["right.G"][Y, X] = value
    picture, said = render(tmp_path, channels, mode)
    assert "'pair.exr': 1 pixel of the view 'right' is not a number or beyond 1e12; it takes no part" in said
    assert differences(picture, clean, -1).max() < 0.04
    assert differences(picture, clean, 12).max() < 0.02


SOURCE_ALPHA, INVERTED = ("--maskWith", "Source Alpha"), ("--maskWith", "Source Inverted Alpha")


@MODES
@pytest.mark.parametrize("value", VALUES, ids=str)
@pytest.mark.parametrize("channel, stands_for, words", [
    ("mask_occlusion.alpha", 1, ()),
    ("mask_occlusion.alpha", 1, ("--occlusionCorrection", "Occlusions and Edges")),
    ("A", 0, SOURCE_ALPHA),
    ("A", 1, INVERTED),
], ids=str)
def test_a_broken_mask_selects_nothing_and_broken_occlusion_hides(tmp_path, mode, value, channel, stands_for, words):
    channels = stereo_pair()
    channels["A"][:, :40] = 0 if words == INVERTED else 1
    channels[channel][Y, X] = stands_for
    expected, _ = render(tmp_path, channels, mode, *words)
    channels[channel][Y, X] = value
    picture, said = render(tmp_path, channels, mode, *words)
    np.testing.assert_array_equal(bits(picture[..., :3]), bits(expected[..., :3]))
    assert f"1 pixel of {'the mask' if channel == 'A' else channel} is not a number" in said


@MODES
@pytest.mark.parametrize("inverted", [False, True])
@pytest.mark.parametrize("value", [np.nan, 2e12], ids=str)
def test_a_broken_colour_of_a_mask_selects_nothing(pair, mode, inverted, value):
    """2e12 times the weight of red would be a value again."""
    plane = np.full((48, 64), 0 if inverted else 1, np.float32)
    mask = {component: plane.copy() for component in "RGB"}
    mask["R"][Y, X] = value
    write_exr(pair / "mask.exr", mask, multiView=["main"])
    where = ("--mask", "mask.exr", "--maskWith", "Mask Inverted Luminance" if inverted else "Mask Luminance")
    channels = stereo_pair()
    picture, _ = render(pair, channels, mode, *where)
    same = (bits(picture) == bits(colours(channels)))[..., :3].all(-1)
    assert same[Y, X] and not same[Y, X + 1]
    assert np.isfinite(picture).all()


@MODES
@pytest.mark.parametrize("value", VALUES, ids=str)
def test_a_vector_that_leads_nowhere_hides_its_pixel(tmp_path, mode, value):
    channels = stereo_pair()
    channels["right.G"][Y, X] = 30  # would be seen if the pixel counted
    channels["mask_occlusion.alpha"][Y, X] = 1
    hidden, _ = render(tmp_path, channels, mode)
    channels["mask_occlusion.alpha"][Y, X] = 0
    channels["disparityR.x"][Y, X] = value
    channels["disparityL.x"][Y, X + 1] = value  # not looked at
    picture, said = render(tmp_path, channels, mode)
    assert "1 pixel of the disparity is not a number" in said
    assert np.isfinite(picture).all()
    assert differences(picture, hidden, 12).max() < 0.02


@MODES
@pytest.mark.parametrize("extra", [(), ("--previewCorrection", "on"), ("--outputOcclusionsToAlpha", "on")], ids=str)
def test_outside_the_mask_every_bit_stays(tmp_path, mode, extra):
    channels = stereo_pair()
    channels["A"][:, :32] = 0
    channels["A"][5, :32] = -0.0
    for column, value in enumerate([*VALUES, -0.0, 1e-45, 3e4]):
        channels["R"][Y, column] = value
    picture, _ = render(tmp_path, channels, mode, *SOURCE_ALPHA, *extra)
    np.testing.assert_array_equal(bits(picture[:, :32]), bits(colours(channels)[:, :32]))
    assert (bits(picture[:, 32:, 0]) != bits(channels["R"][:, 32:])).all()


@MODES
def test_neighbouring_frames_hide_with_what_is_broken(tmp_path, mode):
    for value in 1, np.nan, -np.inf:
        for frame in range(1, 4):
            channels = stereo_pair()
            channels["mask_occlusion.alpha"][Y, X] = value if frame == 1 else 0
            write_exr(tmp_path / f"in.{frame}.exr", channels)
        done = viewtint("render", "in.@.exr", "-o", "out.@.exr", "--matchingMode", mode, "--frames", 2, folder=tmp_path)
        assert done.returncode == 0, done.stderr
        picture = colours(read_exr(tmp_path / "out.2.exr"))
        expected = picture if value == 1 else expected
        np.testing.assert_array_equal(bits(picture), bits(expected))
        assert ("1 pixel of the neighbouring frames' mask_occlusion.alpha" in done.stderr) == (value != 1)


def test_one_sentence_counts_the_pixels_of_each_picture(tmp_path):
    channels = stereo_pair()
    channels["R"][Y, 1:4] = np.nan
    channels["G"][Y, 3] = np.inf  # the same pixel
    channels["right.B"][Y, X] = 2e12
    channels["mask_occlusion.alpha"][Y, 7:9] = np.nan
    for mode in "Basic", "Local Matching":
        _, said = render(tmp_path, channels, mode)
        assert said.endswith(
            "'pair.exr': 3 pixels of the view 'left', 1 of the view 'right' and 2 of mask_occlusion.alpha are not "
            "numbers or beyond 1e12; they take no part in the match, and those of the view 'left' keep their own "
            "values.\n")
    _, said = render(tmp_path, stereo_pair(), "Basic")
    assert "1e12" not in said


@MODES
def test_disparity_is_estimated_from_what_is_left(tmp_path, mode):
    channels = {name: plane for name, plane in stereo_pair().items() if name.split(".")[-1][0] in "RGBA"}
    clean, _ = render(tmp_path, channels, mode)
    channels["R"][10:14, 10:14] = 1e30
    channels["right.G"][30:33, 40:43] = np.nan
    picture, said = render(tmp_path, channels, mode)
    assert "16 pixels of the view 'left' and 9 of the view 'right'" in said
    broken = np.zeros((48, 64), bool)
    broken[10:14, 10:14] = True
    assert (picture[broken][:, 0] == np.float32(1e30)).all()
    assert np.abs(picture - clean)[~broken].mean() < 0.01

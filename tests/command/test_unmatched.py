"""Frames of which too little is visible in both views keep their own colours."""

import numpy as np
import pytest
from pictures import events, in_file, read_exr, stereo_pair, viewtint, write_exr

OCCLUSION = in_file("left", "mask_occlusion.alpha")
SIZE = 64 * 48


def hide(channels, all_but=0, value=1.0):
    channels[OCCLUSION].flat[all_but:] = value


def shift(channels, pixels):
    channels["disparityR.x"][:] = pixels


def noise(channels):
    random = np.random.default_rng(2)
    for name in list(channels):
        if "disparity" in name or "occlusion" in name:
            del channels[name]
    for component in "RGB":
        channels[f"right.{component}"] = random.random((48, 64), np.float32)


def mask(channels, value):
    """Selects the left half, of which nothing is visible."""
    channels[OCCLUSION][:, :32] = 1
    channels["A"][:, :32], channels["A"][:, 32:] = value, 0


CASES = {
    "all hidden": (lambda c: hide(c), (), True),
    "almost all": (lambda c: hide(c, SIZE // 100), (), True),
    "one per cent is enough": (lambda c: hide(c, SIZE // 100 + 1), (), False),
    "occlusions that are no numbers": (lambda c: hide(c, 0, np.nan), (), True),
    "infinite ones": (lambda c: hide(c, 0, -np.inf), (), True),
    "a little hidden everywhere": (lambda c: hide(c, 0, 0.001), (), True),
    "next to nothing": (lambda c: hide(c, 0, 0.0001), (), False),
    "the other channel": (lambda c: None, ("--channel", "mask_occlusion.alpha=A"), True),
    "vectors out of the picture": (lambda c: shift(c, 64), (), True),
    "vectors to its edge": (lambda c: shift(c, 62), (), False),
    "vectors that are no numbers": (lambda c: shift(c, np.nan), (), True),
    "noise as the other view": (noise, (), True),
    "nothing of what the mask selects": (lambda c: mask(c, 1), ("--maskWith", "Source Alpha"), True),
    "nor softly": (lambda c: mask(c, 0.5), ("--maskWith", "Source Alpha"), True),
    "an inverted mask": (lambda c: mask(c, 1), ("--maskWith", "Source Inverted Alpha"), False),
    "a mask that selects nothing": (lambda c: mask(c, 0), ("--maskWith", "Source Alpha"), False),
}


@pytest.mark.parametrize("controls", [
    ("--matchingMode", "Basic"), ("--matchingMode", "Local Matching"), ("--outputOcclusionsToAlpha", "on"),
    ("--previewCorrection", "on")], ids=lambda words: words[0][2:] + " " + words[1])
@pytest.mark.parametrize("change, words, unmatched", CASES.values(), ids=CASES)
def test_a_frame_without_matches_keeps_its_bits(tmp_path, change, words, unmatched, controls):
    channels = stereo_pair()
    change(channels)
    write_exr(tmp_path / "in.exr", channels)
    done = viewtint("render", "in.exr", "-o", "out.exr", "--json", *words, *controls, folder=tmp_path)
    assert done.returncode == 0, done.stderr
    *_, frame, summary = events(done)
    assert (frame["status"] == "unmatched") == unmatched
    assert (summary["unmatched"], summary["written"]) == (int(unmatched), int(not unmatched))
    if unmatched:
        before, after = read_exr(tmp_path / "in.exr"), read_exr(tmp_path / "out.exr")
        for name in before:
            np.testing.assert_array_equal(before[name].view(np.uint32), after[name].view(np.uint32), name)


@pytest.mark.parametrize("output", ["out.exr", "out.%d.exr"])
def test_it_is_told_counts_as_written_and_fails_a_strict_render(tmp_path, output):
    channels = stereo_pair()
    hide(channels)
    source = output.replace("out", "in")
    write_exr(tmp_path / source.replace("%d", "1"), channels)
    plain = viewtint("render", source, "-o", output, folder=tmp_path)
    assert plain.returncode == 0
    for word in ("warning: ", "'in.", "0.00%", "'left'", "'mask_occlusion.alpha' hides 100.0%"):
        assert word in plain.stderr
    assert viewtint("render", source, "-o", output, "--strict", folder=tmp_path).returncode == 1
    assert viewtint("info", output.replace("%d", "1"), folder=tmp_path).stdout.count("left as it was") == 1
    if "%d" in output:
        again = viewtint("render", source, "-o", output, "--skip-verified", "--strict", "--json", folder=tmp_path)
        assert again.returncode == 0 and events(again)[0]["status"] == "skipped"


def test_neighbours_that_hide_a_pixel_count(tmp_path):
    for frame in range(1, 6):
        channels = stereo_pair()
        channels[OCCLUSION][(frame - 1) * 10:frame * 10] = 1  # all rows, over five frames
        write_exr(tmp_path / f"in.{frame}.exr", channels)
    for words, status in ((), "unmatched"), (("--stabiliseOcclusions", "off"), "written"):
        done = viewtint("render", "in.%d.exr", "-o", "out.%d.exr", "--frames", "3", "--json", *words, folder=tmp_path)
        assert events(done)[-2]["status"] == status
        assert ("hides 20.8%, its neighbours in time hide 79.2% more" in done.stdout) == (status == "unmatched")

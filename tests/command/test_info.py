"""What info says of files that render takes, and of those that it makes."""

import json

import pytest
from pictures import VECTORS, in_file, stereo_pair, viewtint, write_exr

OCCLUSION = "mask_occlusion.alpha"


def disparity(*names):
    return f"disparity (channels {', '.join(names)})"


DISPARITY = disparity(*VECTORS)
OCCLUDED = f"occlusion (channel {OCCLUSION})"
KEYS = ("missing_for_render", "estimated_for_render", "absent_read_as_zero")


def without(*channels):
    left_out = {in_file(view, channel) for view, channel in channels}
    return {name: plane for name, plane in stereo_pair(96, 64).items() if name not in left_out}


BOTH = ("left", "right")


@pytest.mark.parametrize("absent, left", [
    ([], ([], [], [])),
    ([(view, OCCLUSION) for view in BOTH], ([], [], [OCCLUDED])),
    ([(view, name) for view in BOTH for name in VECTORS], ([], [DISPARITY], [])),
    ([(view, name) for view in BOTH for name in (*VECTORS, OCCLUSION)], ([], [DISPARITY, OCCLUDED], [])),
    ([("left", name) for name in VECTORS], ([DISPARITY], [], [])),
    ([(view, name) for view in BOTH for name in VECTORS[:3]], ([disparity(*VECTORS[:3])], [], [])),
    ([("right", "G")], (["red, green and blue of view 'right' (channel G)"], [], [])),
    ([("left", "G")], (["red, green and blue (channel G)"], [], [])),
    ([("right", name) for name in VECTORS], ([], [], [])),
])
def test_info_says_what_a_render_then_does(tmp_path, absent, left):
    write_exr(tmp_path / "some.exr", without(*absent))
    document = json.loads(viewtint("info", "some.exr", "--json", folder=tmp_path).stdout)
    missing, estimated, zero = (document["views"][0][key] for key in KEYS)
    assert (missing, estimated, zero) == left
    text = viewtint("info", "some.exr", folder=tmp_path).stdout.split("view right")[0]
    told = {"missing to correct this view": missing, "absent, will be estimated": estimated,
            "absent, read as 0": zero}
    for words, things in told.items():
        assert [line.partition(": ")[2] for line in text.splitlines() if line.startswith(f"  {words}: ")] == things
    done = viewtint("render", "some.exr", "-o", "out.exr", "--matchingMode", "Basic", folder=tmp_path)
    assert done.returncode == (1 if missing else 0), done.stderr
    assert ("disparity estimated" in done.stderr) == bool(estimated)


@pytest.mark.parametrize("name, views", [("pair.exr", ["left", "right"]), ("pair.%V.exr", ["left"])])
def test_a_result_lacks_nothing(tmp_path, name, views):
    for view in BOTH:
        planes = stereo_pair(96, 64)
        if "%V" in name:
            write_exr(tmp_path / f"pair.{view}.exr", {c: planes[in_file(view, c)] for c in "RGB"}, multiView=["main"])
        else:
            write_exr(tmp_path / "pair.exr", {in_file(v, c): planes[in_file(v, c)] for v in BOTH for c in "RGB"})
    done = viewtint("render", name, "-o", "out.exr", "--matchingMode", "Basic", folder=tmp_path)
    assert done.returncode == 0, done.stderr
    text = viewtint("info", "out.exr", folder=tmp_path).stdout
    assert "corrected by viewtint" in text and "missing" not in text and "absent" not in text

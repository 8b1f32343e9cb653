"""Values of controls: what is taken, what is recorded, and what is told to have no effect."""

import json

import numpy as np
import pytest
from pictures import read_exr, viewtint


@pytest.mark.parametrize("control, value, recorded", [
    ("featherSize", "51", "51"), ("featherSize", "-0", "0"), ("correctionLimit", "4", "4"),
    ("featherSize", "-0.5", None), ("correctionLimit", "-1e-9", None), ("featherSize", "nan", None),
    ("correctionLimit", "inf", None), ("featherSize", "1e39", None), ("blockSize", "101", None),
    ("adjustEdges", "-20", "-20"), ("adjustEdges", "-21", None), ("blockSize", "1", None),
    ("noiseLevel", "1x", None), ("noiseLevel", " 1", None), ("matchingMode", "-1", None), ("leftView", "3", None),
])
def test_a_value_is_refused_by_name_or_recorded(pair, control, value, recorded):
    done = viewtint("render", "pair.exr", "-o", "out.exr", f"--{control}={value}", folder=pair)
    if recorded is None:
        assert done.returncode == 2 and control in done.stderr and value in done.stderr
        assert not (pair / "out.exr").exists()
    else:
        assert f"--{control} {recorded} " in viewtint("info", "out.exr", folder=pair).stdout.replace("\n", " ")


def test_printed_ranges_tell_what_acts_beyond_them(pair):
    controls = json.loads(viewtint("controls", "--json", folder=pair).stdout)
    beyond = {control["name"] for control in controls if control.get("acts_above_maximum")}
    assert beyond == {"featherSize", "correctionLimit"}
    for command in ("controls",), ("render", "--help"):
        text = viewtint(*command, folder=pair).stdout
        assert text.count("0..50 and above") == text.count("0..1 and above") == 1


@pytest.mark.parametrize("value", ["1e-45", "1e-23", "1e-20"])
def test_the_smallest_feathers_are_none(pair, value):
    pictures = []
    for feather in ("0", value):
        done = viewtint("render", "pair.exr", "-o", "out.exr", "--featherSize", feather, folder=pair)
        assert done.returncode == 0, done.stderr
        pictures.append(read_exr(pair / "out.exr"))
    for channel in "RGB":
        np.testing.assert_array_equal(pictures[0][channel], pictures[1][channel])


BASIC = ("--matchingMode", "Basic")


@pytest.mark.parametrize("words, in_vain", [
    ((*BASIC, "--stabiliseOcclusions", "off"), []),
    ((*BASIC, "--stabiliseOcclusionsNumberOfFrames", "3"), []),
    ((*BASIC, "--occlusionCorrection", "None"), []),
    ((*BASIC, "--stabiliseOcclusions", "off", "--stabiliseOcclusionsNumberOfFrames", "3"),
     ["stabiliseOcclusionsNumberOfFrames"]),
    ((*BASIC, "--featherSize", "2", "--samples", "3"), ["featherSize", "samples"]),
    (("--occlusionCorrection", "None", "--stabiliseOcclusions", "off"), ["stabiliseOcclusions"]),
    (("--samples", "2", "--intervalType", "1"), ["intervalType"]),
])
def test_controls_without_effect_are_named(pair, words, in_vain):
    done = viewtint("render", "pair.exr", "-o", "out.exr", *words, folder=pair)
    assert sorted(line.split()[1] for line in done.stderr.splitlines() if "has no effect" in line) == in_vain

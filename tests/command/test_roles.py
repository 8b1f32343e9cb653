"""Channels that are chosen for roles."""

import re

import numpy as np
import pytest
from pictures import VECTORS, read_exr, stereo_pair, viewtint, write_exr


def render(folder, *words, file="pair.exr"):
    return viewtint("render", file, "-o", "out.exr", "--matchingMode", "Basic", "--quiet", *words, folder=folder)


def chosen(*assignments):
    return [word for assignment in assignments for word in ("--channel", assignment)]


@pytest.mark.parametrize("choices, told", [
    (["red=G", "red=B"], "red can't be read from two channels, 'G' and 'B'; choose one"),
    (["red=G", "R=R"], "red can't be read from two channels, 'G' and 'R'"),
    (["red=G"], "--channel: the results of red, green can't all be written to 'G'; choose a channel for each"),
    (["alpha=R"], "the results of red, alpha can't all be written to 'R'"),
    (["mask_occlusion.alpha=A"], "alpha, mask_occlusion.alpha share the channel 'A', which --write-disparity would"),
])
def test_choices_that_would_overwrite_each_other_are_refused(pair, choices, told):
    done = render(pair, *chosen(*choices), *(["--write-disparity"] if "occlusion" in choices[0] else []))
    assert done.returncode == 2 and told in done.stderr, done.stderr
    assert not (pair / "out.exr").exists()


@pytest.mark.parametrize("choices, told", [
    (["red=R", "R=R"], ""),
    (["red=G", "green=R"], ""),
    (["mask_occlusion.alpha=A"], "warning: --channel: alpha, mask_occlusion.alpha are read from one channel, 'A'."),
    (["red=G", "blue=G"], "warning: --channel: red, green, blue are read from one channel, 'G'."),
    (["disparityL.x=disparityR.x"], "warning: --channel: disparityL.x, disparityR.x are read from one channel"),
])
def test_roles_that_share_a_channel_are_told(pair, choices, told):
    pixels = stereo_pair()
    if "A" in choices[0]:
        pixels |= {"A": 0 * pixels["A"], "right.A": 0 * pixels["A"]}  # all hidden is no picture to correct
        write_exr(pair / "pair.exr", pixels)
    done = render(pair, *chosen(*choices))
    assert done.returncode == 0 and (told in done.stderr if told else not done.stderr), done.stderr


@pytest.mark.parametrize("layers, selects, told", [
    ({"A": 1}, "A", ""),
    ({"beauty.A": 1}, "beauty.A", ""),
    ({"A": 0, "beauty.A": 1}, "beauty.A", "the mask's alpha is read from 'beauty.A', which was chosen for the picture, "
                                          "and not from its 'A': 'mask.exr' has both"),
])
def test_a_mask_has_the_usual_channels_where_it_lacks_the_chosen_ones(pair, layers, selects, told):
    pixels = stereo_pair()
    renamed = {re.sub(r"^(right\.)?([RGBA])$", r"beauty.\1\2", name): plane for name, plane in pixels.items()}
    write_exr(pair / "beauty.exr", renamed)
    left_half = np.where(np.arange(64) < 32, 1, 0) * np.ones((48, 1))
    planes = {name: (left_half if name == selects else np.zeros((48, 64))).astype(np.float32) for name in layers}
    write_exr(pair / "mask.exr", planes, multiView=["left"])
    done = render(pair, *chosen(*(f"{role}=beauty.{role}" for role in "RGBA")), "--mask", "mask.exr", "--maskWith",
                  "Mask Alpha", file="beauty.exr")
    assert done.returncode == 0 and (told in done.stderr if told else not done.stderr), done.stderr
    changed = read_exr(pair / "out.exr")["beauty.R"] != pixels["R"]
    assert changed[:, :32].mean() > 0.9 and changed[:, 32:].sum() == 0


def test_a_mask_without_its_channel_is_named(pair):
    pixels = stereo_pair()
    write_exr(pair / "mask.exr", {"Y": pixels["R"]}, multiView=["left"])
    write_exr(pair / "layers.exr", pixels | {"beauty.A": pixels["A"], "beauty.right.A": pixels["A"]})
    done = render(pair, *chosen("alpha=beauty.A"), "--mask", "mask.exr", "--maskWith", "Mask Alpha", file="layers.exr")
    assert done.returncode == 1
    assert "'mask.exr' has the channels Y. Its alpha is 'beauty.A' or 'A'." in done.stderr


def test_a_choice_that_the_picture_lacks_is_named(pair):
    done = render(pair, *chosen(*(f"{name}=stereo.{name[-1]}" for name in VECTORS[:2])))
    assert done.returncode == 1 and "'stereo.x', which was chosen for disparityL.x" in done.stderr, done.stderr

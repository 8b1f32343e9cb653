"""Calls that nobody means: each names what is wrong with it and leaves nothing."""

import os

import pytest
from pictures import viewtint

LONG = "a" * 300 + ".exr"


@pytest.mark.parametrize("words, exit_code, told", [
    *((["render", "pair.exr", "-o", "out.exr", option, ""], 2, f"{option}: the value is empty")
      for option in ("--cache", "--disparity", "--write-stages", "--views")),
    *((["farm", "submit", "pair.####.exr", "-o", "out.####.exr", option, ""], 2, f"{option}: the value is empty")
      for option in ("--partition", "--time", "--sbatch")),
    *((["render", "pair.exr", "-o", "out.exr", "--cache", "kept", option, size], 2, f"{option}: '{size}' is no size")
      for option in ("--memory", "--cache-size") for size in ("-1", "99999999999999999999", "9e", "much", "1-2")),
    *((["pack", "--left", "l", "--right", "r", "--disparity-left", "d", "-o", "out.exr", *words, value], 2,
       f"'{value.split(',')[0]}' is no number")
      for words in (["--disparity-scale"], ["--cast-view", "left", "--cast-gain"]) for value in
      (["nan", "inf", "1e999"] if len(words) == 1 else ["nan,1,1", "inf,1,1"])),
    (["render", "pair.exr", "-o", "out.exr", "--cache-size", "5GB"], 2, "--cache-size requires --cache"),
    (["render", "pair.exr", LONG, "-o", "out.exr"], 2, f"RIGHT: there is no file '{LONG}'"),
    (["parallax", "pair.exr", "loop.exr", "-o", "out.exr"], 2, "RIGHT: there is no file 'loop.exr'"),
    (["render", "pair.exr", "-o", "out.exr", "--disparity", LONG], 2, f"--disparity: there is no file '{LONG}'"),
    (["render", "pair.exr", "-o", "out.exr", "--disparity", "loop.exr"], 2, "--disparity: there is no file 'loop.exr'"),
])
def test_an_odd_call_is_refused_by_name(pair, words, exit_code, told):
    os.symlink("loop.exr", pair / "loop.exr")
    for name in "lrd":
        (pair / name).touch()
    before = sorted(pair.iterdir())
    done = viewtint(*words, folder=pair)
    assert done.returncode == exit_code and told in done.stderr, done.stderr
    assert sorted(pair.iterdir()) == before

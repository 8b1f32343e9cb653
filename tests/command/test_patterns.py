"""Names of sequences, and frames as they are typed."""

import shutil

import pytest
from pictures import in_file, stereo_pair, viewtint, write_exr


def render(folder, *words, name="shot.####.exr", output="out.####.exr"):
    return viewtint("render", name, "-o", output, "--matchingMode", "Basic", "--quiet", *words, folder=folder,
                    timeout=20)


@pytest.mark.parametrize("name, files", [
    ("shot.#.exr", ["shot.0007.exr", "shot.12345.exr"]),
    ("shot.##.exr", ["shot.07.exr"]),
    ("shot.@.exr", ["shot.7.exr"]),
    ("shot.%03d.exr", ["shot.007.exr"]),
    ("shot.%000000004d.exr", ["shot.0007.exr"]),
    ("shot.%012d.exr", ["shot.000000000007.exr"]),
    ("100%.%d.exr", ["100%.7.exr"]),
    ("dailies@12/shot.####.exr", ["dailies@12/shot.0007.exr"]),
    ("%V.%04d#/shot.%V.@@@.exr", ["left.%04d#/shot.left.007.exr", "right.%04d#/shot.right.007.exr"]),
])
def test_files_of_a_name_are_found(pair, name, files):
    views = {view: {channel: stereo_pair()[in_file(view, channel)] for channel in "RGB"} for view in ("left", "right")}
    for file in files:
        (pair / file).parent.mkdir(exist_ok=True)
        if "%V" in name:
            write_exr(pair / file, views["left" if "left" in file else "right"], multiView=["main"])
        else:
            shutil.copy(pair / "pair.exr", pair / file)
    shutil.copy(pair / "pair.exr", pair / "shot.70.exr.bak")
    (pair / "results#1").mkdir()
    done = render(pair, "--missing", "hold", name=name, output="results#1/out.####.exr")
    assert done.returncode == 0, done.stderr
    assert sorted(path.name for path in (pair / "results#1").iterdir()) == [
        "out.0007.exr", "out.12345.exr"][:2 if "shot.12345.exr" in files else 1]


def test_a_still_may_lie_in_a_folder_with_any_name(pair):
    folder = pair / "take #2 @%04d"
    folder.mkdir()
    shutil.move(pair / "pair.exr", folder)
    done = viewtint("render", folder / "pair.exr", "-o", folder / "out.exr", "--mask", folder / "pair.exr",
                    "--maskWith", "Mask Alpha", "--disparity", folder / "pair.exr", folder=pair)
    assert done.returncode == 0 and (folder / "out.exr").exists(), done.stderr


@pytest.mark.parametrize("name, told", [
    ("shot.%99999999999d.exr", "'%99999999999d', has more than 12 digits; write for example shot.####.exr"),
    ("shot.%999999999d.exr", "'%999999999d', has more than 12 digits"),
    ("shot.%13d.exr", "'%13d', has more than 12 digits"),
    ("shot." + "#" * 60_000 + ".exr", "60009 characters; at most 4095 are possible"),
    ("shot.%" + "1" * 60_000 + "d.exr", "60011 characters; at most 4095 are possible"),
    ("shot." + "#" * 3000 + ".exr", "has more than 12 digits"),
    ("a@2.####.exr", "'a@2.####.exr' has several places for the frame number, '@' and '####'; it needs one"),
    ("shot.####/a.exr", "The frame number belongs in the file's name; write for example folder/shot.####.exr"),
])
@pytest.mark.parametrize("place", ["FILE", "--output", "--mask", "--disparity"])
def test_names_that_can_not_be_are_refused(pair, name, told, place):
    shutil.copy(pair / "pair.exr", pair / "shot.0001.exr")
    words = [place, name, "--maskWith", "Mask Alpha"] if place in ("--mask", "--disparity") else []
    files = {"FILE": {"name": name}, "--output": {"output": name}}.get(place, {})
    before = sorted(pair.iterdir())
    done = render(pair, *words, **files)
    assert done.returncode == 2 and told in done.stderr, done.stderr[:500]
    assert len(done.stderr) < 600 and sorted(pair.iterdir()) == before


@pytest.mark.parametrize("frames, told", [
    ("", "'' is no range of frames; write for example 1001-1240"),
    (" ", "' ' is no range"),
    ("1-", "'1-' is no range"),
    ("1-2x0", "'1-2x0' is no range"),
    ("1-2x-1", "'1-2x-1' is no range"),
    ("1,,2", "'' is no range"),
    ("1" * 60_000, "frame numbers go from -999999999 to 999999999"),
    ("-2147483648", "frame numbers go from"),
    ("0-999999999", "more than 1000000 frames"),
    ("1-999999," * 10_000 + "1", "more than 1000000 frames"),
])
def test_frames_that_can_not_be_are_refused(pair, frames, told):
    shutil.copy(pair / "pair.exr", pair / "shot.0001.exr")
    done = render(pair, *([f"--frames={frames}"] if frames.startswith("-") else ["--frames", frames]))
    assert done.returncode == 2 and told in done.stderr and len(done.stderr) < 400, done.stderr[:500]
    assert not (pair / "out.0001.exr").exists()


def test_frames_are_rendered_as_they_are_typed(pair):
    for frame in ("-0002", "0001", "0003"):
        shutil.copy(pair / "pair.exr", pair / f"shot.{frame}.exr")
    done = render(pair, "--frames", "3--2x2,3,-2", "--missing", "hold")
    assert done.returncode == 0, done.stderr
    assert sorted(path.name for path in pair.glob("out.*")) == [
        "out.-0001.exr", "out.-0002.exr", "out.0001.exr", "out.0003.exr"]


def test_a_file_whose_very_name_is_a_pattern_is_explained(pair):
    shutil.copy(pair / "pair.exr", pair / "plate@2k.exr")
    done = render(pair, name="plate@2k.exr")
    assert done.returncode == 1
    assert "There are no files 'plate@2k.exr', such as 'plate12k.exr'." in done.stderr and "rename" in done.stderr

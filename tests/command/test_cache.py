"""What --cache keeps: a result that isn't the one that was kept is computed anew, and the picture is right."""

import os
import pathlib
import shutil
import stat
import subprocess
import zlib

import numpy as np
import OpenEXR
import PIL.Image
import pytest
from pictures import COMMAND, in_file, read_exr, stereo_pair, viewtint, write_exr

SEAL = 24  # bytes behind a result


def render(folder, *words, picture="pair.exr", output="out.exr", cache="cache", **options):
    return viewtint("render", picture, "-o", output, *([f"--cache={cache}"] if cache else []), *words, folder=folder,
                    **options)


def pixels(path):
    return {name: plane.tobytes() for name, plane in read_exr(path).items()}


def results(folder) -> list[pathlib.Path]:
    return sorted((folder / "cache").glob("*.vlm"))


@pytest.fixture
def kept(pair):
    """The pair, the results of its render in a cache, and the picture of that render."""
    done = render(pair, output="right.exr")
    assert done.returncode == 0, done.stderr
    return pair


def flipped(at):
    def flip(path, _):
        content = bytearray(path.read_bytes())
        content[at] ^= 0x10
        path.write_bytes(content)
    return flip


def linked(path, other):
    path.unlink()
    path.symlink_to(other)


DAMAGE = {
    "empty": lambda path, _: path.write_bytes(b""),
    "short": lambda path, _: path.write_bytes(path.read_bytes()[:-1]),
    "without its seal": lambda path, _: path.write_bytes(path.read_bytes()[:-SEAL]),
    "long": lambda path, _: path.write_bytes(path.read_bytes() + b"\0"),
    "of another key": lambda path, other: path.write_bytes(other.read_bytes()),
    "link": linked,
    **{f"byte {at}": flipped(at) for at in (0, 4, 8, 5000, -25, *range(-SEAL, 0))},
}


@pytest.mark.parametrize("damage", DAMAGE.values(), ids=DAMAGE)
def test_a_damaged_result_is_computed_anew(kept, damage):
    files = results(kept)
    whole = [file.read_bytes() for file in files]
    damage(files[0], files[1])
    assert render(kept).returncode == 0
    assert pixels(kept / "out.exr") == pixels(kept / "right.exr")
    assert [file.read_bytes() for file in files] == whole and not files[0].is_symlink(), "mended"


def test_a_whole_result_is_read_back(kept):
    """Else the other tests would tell nothing."""
    for file in results(kept):  # one block of pixels becomes 9.0, sealed as the program seals it
        content = bytearray(file.read_bytes()[:-SEAL])
        content[8:12] = np.float32(9).tobytes()
        seal = bytearray(file.read_bytes()[-SEAL:])
        seal[4:8] = zlib.crc32(seal[8:], zlib.crc32(content)).to_bytes(4, "little")
        file.write_bytes(content + seal)
    assert render(kept).returncode == 0
    assert read_exr(kept / "out.exr")["R"][-1, 0] == 9


def test_links_are_never_written_through(kept):
    foreign = kept / "foreign.txt"
    foreign.write_text("mine")
    names = [file.name for file in results(kept)]
    shutil.rmtree(kept / "cache")
    (kept / "cache").mkdir(0o700)

    def plant():  # in the process that becomes the program, whose number is in its temporary files' names
        for name in names:
            os.symlink(foreign, kept / "cache" / name)
            for number in range(9):
                os.symlink(foreign, kept / "cache" / f"{name}.{os.getpid()}-{number}.part")

    assert render(kept, preexec_fn=plant).returncode == 0
    assert foreign.read_text() == "mine"
    assert pixels(kept / "out.exr") == pixels(kept / "right.exr")


def test_nobody_else_can_read_or_write_what_is_kept(kept):
    assert stat.S_IMODE((kept / "cache").stat().st_mode) == 0o700
    assert {stat.S_IMODE(file.stat().st_mode) for file in results(kept)} == {0o600}
    (kept / "cache").chmod(0o777)
    refused = render(kept)
    assert refused.returncode == 1
    assert "'cache'" in refused.stderr and "chmod go-w cache" in refused.stderr
    assert not (kept / "out.exr").exists()


def test_a_folder_that_vanishes_is_told_once_and_the_render_goes_on(tmp_path):
    frames = 30
    for frame in range(frames):
        write_exr(tmp_path / f"shot.{frame:04d}.exr", stereo_pair(seed=frame))
    words = [COMMAND, "render", "shot.####.exr", "-o", "out.####.exr", "--cache", "kept", "--json"]
    with subprocess.Popen(words, cwd=tmp_path, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as program:
        program.stdout.readline()
        (tmp_path / "kept").rename(tmp_path / "gone")
        output, errors = program.communicate(timeout=60)
    assert program.returncode == 0 and errors == "", errors
    warnings = [line for line in output.splitlines() if '"warning"' in line]
    assert len(warnings) == 1 and "'kept'" in warnings[0], warnings
    assert len(list(tmp_path.glob("out.*.exr"))) == frames


# ---- what a key is made of


def texture(seed, **changes):
    """A stereo pair's channels; each seed has other colours and other occlusions."""
    channels = stereo_pair(seed=seed) | changes
    for view in ("left", "right"):
        hidden = np.random.default_rng(seed + 50).random(channels["R"].shape) < 0.2
        channels[in_file(view, "mask_occlusion.alpha")] = hidden.astype(np.float32)
    return channels


def masked(seed):
    return {"A": np.random.default_rng(seed).integers(0, 2, (48, 64)).astype(np.float32)}


def of_view(view, channels):
    return {name: channels[in_file(view, name)] for name in "RGBA"}


def write_all(folder, seed):
    """Every file that a case reads, its content by the seed; all seeds give files of one size, without compression."""
    folder.mkdir(exist_ok=True)
    plain = {"compression": OpenEXR.NO_COMPRESSION}
    for frame in (1, 2, 3):
        write_exr(folder / f"shot.{frame}.exr", texture(seed + frame), **plain)
        for view in ("left", "right"):
            write_exr(folder / f"{view}.{frame}.exr", of_view(view, texture(seed + frame)), multiView=[view], **plain)
    write_exr(folder / "mask.exr", masked(seed), multiView=["left"], **plain)
    vectors = {name: plane + seed % 7 for name, plane in texture(seed).items() if "disparity" in name}
    write_exr(folder / "vectors.exr", vectors, **plain)
    for view in ("left", "right"):
        codes = np.random.default_rng([seed, view == "left"]).integers(0, 256, (48, 64, 3), np.uint8)
        PIL.Image.fromarray(codes).save(folder / f"{view}.tif")


def replace(path, other):
    """Another file of the same size and the same time under the name."""
    before = path.stat()
    assert other.stat().st_size == before.st_size and other.read_bytes() != path.read_bytes()
    os.utime(other, ns=(before.st_atime_ns, before.st_mtime_ns))
    os.replace(other, path)


LOCAL = ["--matchingMode", "Local Matching", "--blockSize", "8"]
STABLE = [*LOCAL, "--stabiliseOcclusionsNumberOfFrames", "3"]
NEIGHBOURS = ["shot.%d.exr", "--frames", "2", *STABLE]
PER_VIEW = ["%V.%d.exr", "--frames", "2", *STABLE]
PAIR = ["left.tif", "right.tif"]
KEYS = {  # the words, and then the file that becomes another, or further words
    "picture": (["shot.2.exr"], "shot.2.exr"),
    "other view's file": (PER_VIEW, "right.2.exr"),
    "neighbour": (NEIGHBOURS, "shot.1.exr"),
    "neighbour's other view": (PER_VIEW, "right.1.exr"),
    "mask": (["shot.2.exr", "--mask", "mask.exr", "--maskWith", "Mask Alpha"], "mask.exr"),
    "disparity file": (["shot.2.exr", "--disparity", "vectors.exr"], "vectors.exr"),
    "left of a pair": (PAIR, "left.tif"),
    "right of a pair": (PAIR, "right.tif"),
    "decoding": (PAIR, ["--input-colourspace", "linear"]),
    "where disparity comes from": (["shot.2.exr"], ["--disparity", "estimate"]),
    "roles": (["shot.2.exr"], ["--channel", "red=G", "--channel", "green=R"]),
    "views": (["shot.2.exr"], ["--leftView", "right", "--rightView", "left"]),
    "a control": (["shot.2.exr"], ["--colourTolerance", "0.9", *LOCAL]),
}


@pytest.mark.parametrize("words, change", KEYS.values(), ids=KEYS)
def test_another_picture_never_gets_a_kept_result(tmp_path, words, change):
    write_all(tmp_path, seed=1)
    write_all(tmp_path / "other", seed=101)
    output = "out.%d.exr" if "%d" in words[0] else "out.exr"

    def rendered(*more, **options):
        done = viewtint("render", *words, *more, "-o", output, folder=tmp_path, **options)
        assert done.returncode == 0, done.stderr
        return pixels(next(tmp_path.glob("out.*")))

    first = rendered("--cache", "kept")
    if isinstance(change, list):
        more = change
    else:
        replace(tmp_path / change, tmp_path / "other" / change)
        more = []
    wanted = rendered(*more)
    assert wanted != first, "else the case tells nothing"
    assert rendered(*more, "--cache", "kept") == wanted


def test_two_folders_have_files_of_one_name(tmp_path):
    for folder, seed in (("a", 1), ("b", 101)):
        write_all(tmp_path / folder, seed)
        os.utime(tmp_path / folder / "shot.1.exr", ns=(10**18, 10**18))
    a, b = (render(tmp_path / folder, picture="shot.1.exr", cache="../kept") for folder in "ab")
    assert a.returncode == b.returncode == 0
    assert render(tmp_path / "b", picture="shot.1.exr", output="right.exr", cache=None).returncode == 0
    assert pixels(tmp_path / "b/out.exr") == pixels(tmp_path / "b/right.exr")

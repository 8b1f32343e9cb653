"""What --cache keeps: a result that isn't the one that was kept is computed anew, and the picture is right."""

import os
import pathlib
import shutil
import signal
import stat
import subprocess

import numpy as np
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
        import zlib
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
        _, errors = program.communicate(timeout=60)
    assert program.returncode == 0, errors
    assert errors.count("'kept'") == 1 and len(errors.splitlines()) == 1, errors
    assert len(list(tmp_path.glob("out.*.exr"))) == frames

"""What a farm is told, and that it changes no bit; without a cluster."""

import concurrent.futures
import os
import re
import shutil
import subprocess

import pytest
from shots import FIRST, frames_in, viewtint


def chunk_lines(shot, out, chunk, *more):
    return viewtint("farm", "chunks", "shot.####.exr", "-o", f"{out}/out.####.exr", "--chunk", chunk, *more,
                    folder=shot).stdout.splitlines()


@pytest.mark.parametrize("chunk, lines", [(1, 22), (7, 4), (20, 2)])
def test_chunks_give_the_files_that_one_render_gives(shot, tmp_path, chunk, lines):
    commands = chunk_lines(shot, tmp_path, chunk)
    assert len(commands) == lines
    # Last chunk first, from another folder, as other engines may.
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        done = list(pool.map(lambda line: subprocess.run(line, shell=True, cwd="/", capture_output=True, text=True),
                             reversed(commands)))
    assert all(one.returncode == 0 for one in done), [one.stderr for one in done]
    assert frames_in(tmp_path) == frames_in(shot, "whole")


def test_neighbours_beyond_a_chunk_matter(shot, tmp_path):
    shutil.copy(shot / f"shot.{FIRST + 7}.exr", tmp_path)
    viewtint("render", "shot.####.exr", "-o", "out.####.exr", "--quiet", folder=tmp_path)
    assert frames_in(tmp_path)[FIRST + 7] != frames_in(shot, "whole")[FIRST + 7]


def test_chunks_take_the_frames_and_options_that_were_told(shot, tmp_path):
    lines = chunk_lines(shot, tmp_path, 3, "--frames", "1010-1002x2,1003", "--matchingMode", "Local Matching",
                        "--channel", "mask_occlusion.alpha=mask_occlusion.alpha", "--outside", "hold", "--threads", 1)
    assert [re.search(r"--frames (\S+)", line)[1] for line in lines] == ["1002-1004", "1006-1010x2"]
    for line in lines:
        assert "--matchingMode 'Local Matching'" in line
        assert "--channel mask_occlusion.alpha=mask_occlusion.alpha --outside hold" in line
        assert "--threads 1" in line and str(shot / "shot.####.exr") in line


def test_a_dry_run_prints_scripts_and_leaves_nothing(shot, tmp_path):
    # As where no cluster can be asked for its largest array: Slurm's own default is taken.
    environment = os.environ | {"PATH": "/nowhere"}
    done = viewtint("farm", "submit", "shot.####.exr", "-o", tmp_path / "out.####.exr", "--chunk", 5, "--partition",
                    "film", "--cpus-per-task", 2, "--mem", "4GB", "--time", "2:00:00", "--sbatch=--account=a b",
                    "--matchingMode", "Basic", "--dry-run", folder=shot, environment=environment)
    render, verify = re.split(r"^# ---.*\n", done.stdout, flags=re.MULTILINE)[1:]
    for script in (render, verify):
        assert script.startswith("#!/bin/bash\n#SBATCH ")
        assert subprocess.run(["bash", "-n"], input=script, text=True).returncode == 0
        for option in ("--partition=film", "--cpus-per-task=2", "--mem=4G", "--time=2:00:00", "'--account=a b'"):
            assert f"#SBATCH {option}\n" in script
    assert "#SBATCH --array=0-4\n" in render and "#SBATCH --dependency=afterany:JOB1\n" in verify
    assert re.search(r"frames=\(\s+1001-1005\s+1006-1010\s+1011-1015\s+1016-1020\s+1021-1022\s+\)", render)
    assert not list(tmp_path.iterdir())


def test_wrong_calls_say_what_would_do(shot, tmp_path):
    (tmp_path / "gap").mkdir()
    for frame in (1001, 1003):
        shutil.copy(shot / f"shot.{frame}.exr", tmp_path / "gap")
    cases = [
        (("farm",), 2, "the commands are submit, status, verify, retry, chunks"),
        (("farm", "sumbit"), 2, "unknown command 'sumbit'"),
        (("farm", "submit", "shot.1001.exr", "-o", "out.####.exr"), 2, "A farm renders sequences"),
        (("farm", "submit", "shot.####.exr", "-o", "out.exr"), 2, "no place for the frame number"),
        (("farm", "submit", "shot.####.exr", "-o", "shot.####.exr"), 1, "it is the picture that is read"),
        (("farm", "submit", "shot.####.exr", "-o", "nowhere/out.####.exr"), 1, "there is no folder"),
        (("farm", "submit", "shot.####.exr", "-o", "out.####.exr", "--frames", "1001-1030"), 1,
         "the sequence goes from 1001 to 1022"),
        (("farm", "submit", tmp_path / "gap/shot.####.exr", "-o", "out.####.exr", "--frames", "1001-1003"), 1,
         "shot.1002.exr' is missing"),
        (("farm", "submit", "shot.####.exr", "-o", "out.####.exr", "--mem", "much"), 2, "'much' is no size"),
        (("farm", "submit", "shot.####.exr", "-o", "out.####.exr", "--blokSize", "3"), 2, "blockSize"),
        (("farm", "status", "out.####.exr"), 1, "'out.####.exr' was not submitted"),
        (("farm", "retry", "out.####.exr"), 1, "'out.####.exr' was not submitted"),
        (("farm", "verify", "out.exr"), 2, "there is no file 'out.exr'"),
    ]
    before = sorted(path.name for path in shot.iterdir())
    for words, exit_code, told in cases:
        done = viewtint(*words, folder=shot, exit_code=exit_code)
        assert told in done.stderr, (words, done.stderr)
    no_slurm = os.environ | {"PATH": "/nowhere"}
    done = viewtint("farm", "submit", "shot.####.exr", "-o", tmp_path / "out.####.exr", folder=shot, exit_code=1,
                    environment=no_slurm)
    assert "There is no command 'sbatch' here" in done.stderr and "farm chunks" in done.stderr
    assert sorted(path.name for path in shot.iterdir()) == before


def test_verify_tells_what_is_not_as_it_should_be(shot, tmp_path):
    shot_and_frames = ("shot.####.exr", "-o", tmp_path / "out.####.exr")

    def verify(exit_code, *words):
        return viewtint("farm", "verify", *shot_and_frames, *words, folder=shot, exit_code=exit_code)

    for frame, data in frames_in(shot, "whole").items():
        (tmp_path / f"out.{frame}.exr").write_bytes(data)
    assert "22 frames: 22 fine" in verify(0).stdout
    told = viewtint("info", tmp_path / "out.1001.exr", folder=tmp_path).stdout
    assert "corrected by viewtint 0" in told and '--matchingMode "Local Matching"' in told
    (tmp_path / "out.1004.exr").unlink()
    whole = (tmp_path / "out.1006.exr").read_bytes()
    (tmp_path / "out.1006.exr").write_bytes(whole[:-40])
    flipped = bytearray(whole)
    flipped[-len(whole) // 3] ^= 0xFF  # in the pixels, where checksums alone can tell
    (tmp_path / "out.1007.exr").write_bytes(flipped)
    shutil.copy(shot / "shot.1009.exr", tmp_path / "out.1009.exr")
    viewtint("render", *shot_and_frames, "--frames", "1011-1012", "--blockSize", 7, "--quiet", folder=shot)
    done = verify(1)
    assert ("22 frames: 16 fine, 1 missing (1004), 2 damaged (1006-1007), 1 made by another version (1009), "
            "2 made with other controls (1011-1012)") in done.stdout
    assert "frames 1011-1012: it was made with --blockSize 7 instead of --blockSize 5" in done.stderr
    # What was made as it should be is all that --skip-verified skips.
    rendered = viewtint("render", *shot_and_frames, "--skip-verified", folder=shot).stdout
    assert "22 frames: 6 written, 16 skipped" in rendered
    assert frames_in(tmp_path) == frames_in(shot, "whole")

"""What the farm's commands believe of a record beside the frames, and what they let into jobs' scripts. Stand-ins take
the place of Slurm's commands: no cluster is needed."""

import json
import os
import shutil

import pytest
from pictures import viewtint

RECORD = "out.####.exr.farm/submission.json"


@pytest.fixture
def shot(pair):
    """Three frames, and commands that note the scripts which they are given."""
    for frame in (1, 2, 3):
        shutil.copy(pair / "pair.exr", pair / f"shot.000{frame}.exr")
    (pair / "bin").mkdir()
    for name, lines in {"sbatch": 'cat >>"$SCRIPTS"; echo 4711', "squeue": ":", "scontrol": ":"}.items():
        (pair / "bin" / name).write_text(f"#!/bin/sh\n{lines}\n")
        (pair / "bin" / name).chmod(0o755)
    return pair


def farm(folder, *words, umask=0o022):
    environment = os.environ | {"PATH": f"{folder}/bin:{os.environ['PATH']}", "SCRIPTS": f"{folder}/scripts"}
    return viewtint("farm", *words, folder=folder, timeout=30, env=environment, umask=umask)


@pytest.fixture
def submitted(shot):
    done = farm(shot, "submit", "shot.####.exr", "-o", "out.####.exr", umask=0)
    assert done.returncode == 0, done.stderr
    (shot / "scripts").unlink()
    return shot


def test_a_record_is_its_owners_whatever_his_mask(submitted):
    for path in (submitted / RECORD, (submitted / RECORD).parent):
        assert path.stat().st_mode & 0o022 == 0
    assert "0 of 3 frames" in farm(submitted, "status", "out.####.exr").stdout
    done = farm(submitted, "retry", "out.####.exr", umask=0)
    assert done.returncode == 0 and "3 frames in 1 task" in done.stdout, done.stderr
    assert (submitted / RECORD).stat().st_mode & 0o022 == 0
    assert farm(submitted, "submit", "shot.####.exr", "-o", "out.####.exr").returncode == 0


def changed(**members):
    return lambda text: json.dumps(json.loads(text) | members)


def lacking(name):
    return lambda text: json.dumps({key: value for key, value in json.loads(text).items() if key != name})


@pytest.mark.parametrize("change, told", [
    (changed(output="/somewhere/out.exr"), "its 'output' has no place for the frame number"),
    (changed(output="out.####.exr"), "its 'output' is no absolute path"),
    (changed(output="/somewhere/out.####.exr"), "tells of '/somewhere/out.####.exr', not of these frames"),
    (changed(output="/a\nid/out.####.exr"), r"'/a\x0aid/out.####.exr' has a control character"),
    (changed(folder="/tmp\rid"), r"'/tmp\x0did' has a control character"),
    (changed(program="viewtint"), "its 'program' is no absolute path"),
    (changed(program="/bin/\x1b[2J"), r"'/bin/\x1b[2J' has a control character"),
    (changed(program=["/bin/sh"]), "its 'program' is no text"),
    (changed(chunk=0), "its 'chunk' is no number from 1 to 1000000"),
    (changed(chunk=-20), "its 'chunk' is no number"),
    (changed(chunk=1e30), "its 'chunk' is no number"),
    (changed(chunk="many"), "its 'chunk' is no number"),
    (changed(render=[]), "its 'render' names no pictures"),
    (changed(render="shot"), "its 'render' is no list"),
    (changed(render=["shot", ["--frames"]]), "its 'render' is no list of texts"),
    (changed(render=["shot", "--outside\thold"]), "has a control character"),
    (changed(slurm=["--account=a\nb"]), "has a control character"),
    (changed(frames=""), "'' is no range of frames"),
    (changed(frames="1-999999999"), "more than 1000000 frames"),
    (changed(jobs=[{"id": 1}]), "it has no 'chunks'"),
    (changed(jobs=[{"id": 0, "chunks": []}]), "its 'id' is no number from 1"),
    (changed(jobs=[{"id": 1, "chunks": ["$(id)"]}]), "'$(id)' is no range of frames"),
    (changed(jobs=[{"id": 1, "chunks": ["1-999999"] * 100}]), "its 'jobs' have too many frames"),
    (changed(format=2), "it is of another version of this program"),
    *((lacking(name), f"it has no '{name}'") for name in ("format", "version", "program", "folder", "output", "render",
                                                          "frames", "chunk", "slurm", "jobs")),
    (lambda text: "", "in line"),
    (lambda text: "[]", "it has no 'format'"),
    (lambda text: text[:-100], "in line"),
    (lambda text: "[" * 500_000, "its lists are nested too deeply"),
    (lambda text: '{"a":' * 500_000, "its lists are nested too deeply"),
    (lambda text: '"\\"' + "[" * 500_000 + '"', "it has no 'format'"),
    (lambda text: text + " " * (16 << 20), "it is larger than 16 MB"),
    (lambda text: text.replace("out.", "\x80ut."), "in line"),
])
def test_a_record_that_is_not_whole_is_refused(submitted, change, told):
    record = submitted / RECORD
    record.write_bytes(change(record.read_text()).encode("latin-1"))
    for command in ("retry", "status", "verify")[:3 if "chunk" in told else 1]:
        done = farm(submitted, command, "out.####.exr")
        assert done.returncode == 1 and told in done.stderr and str(record) in done.stderr, done.stderr[:800]
    assert not (submitted / "scripts").exists()


def replace_by_link(folder):
    (folder / RECORD).rename(folder / "elsewhere.json")
    (folder / RECORD).symlink_to(folder / "elsewhere.json")


def replace_by_pipe(folder):
    (folder / RECORD).unlink()
    os.mkfifo(folder / RECORD)


@pytest.mark.parametrize("change, told, refusing", [
    (lambda folder: (folder / RECORD).chmod(0o666), "chmod go-w ", "status verify retry submit"),
    (lambda folder: (folder / RECORD).chmod(0o664), "chmod go-w ", "status verify retry submit"),
    (lambda folder: (folder / RECORD).parent.chmod(0o777), "chmod go-w ", "status verify retry submit"),
    (lambda folder: (folder / RECORD).parent.chmod(0o1777), "chmod go-w ", "status verify retry submit"),
    (lambda folder: os.chown(folder / RECORD, 4711, -1), "belongs to another user (4711)", "retry submit"),
    (lambda folder: os.chown((folder / RECORD).parent, 4711, -1), "belongs to another user (4711)", "retry submit"),
    (replace_by_link, "Cannot read", "status verify retry submit"),
    (replace_by_pipe, "is no file", "status verify retry submit"),
])
def test_a_record_that_others_could_have_written_makes_no_jobs(submitted, change, told, refusing):
    try:
        change(submitted)
    except PermissionError:
        pytest.skip("only root can give files away")
    for command in ("status", "verify", "retry", "submit"):
        shot_and_frames = ["shot.####.exr", "-o", "out.####.exr"] if command == "submit" else ["out.####.exr"]
        done = farm(submitted, command, *shot_and_frames)
        assert (told in done.stderr) == (command in refusing.split()), (command, done.stderr)
        assert done.returncode == (0 if command == "status" and "status" not in refusing else 1)
    assert not (submitted / "scripts").exists()


def test_a_dry_retry_of_frames_that_nobody_submitted_needs_no_cluster_and_leaves_nothing(shot):
    shutil.rmtree(shot / "bin")
    done = farm(shot, "retry", "shot.####.exr", "-o", "out.####.exr", "--dry-run")
    assert done.returncode == 0 and "#SBATCH" in done.stdout, done.stderr
    assert not list(shot.glob("out.*"))


def test_a_copied_record_does_not_render_into_the_original(submitted):
    shutil.copytree(submitted, submitted / "copy", ignore=shutil.ignore_patterns("copy"))
    done = farm(submitted, "retry", "copy/out.####.exr")
    assert done.returncode == 1 and "was moved or copied" in done.stderr


@pytest.mark.parametrize("command, place, name", [
    *((command, place, "a\nid") for command in ("submit", "chunks")
      for place in ("folder", "shot", "output", "option", "here")),
    *(("submit", "folder", name) for name in ("a\tb", "a\rb", "a\x1b[2Jb", "a\x7fb")),
])
def test_no_control_character_comes_into_a_script(shot, command, name, place):
    folder = shot / name
    folder.mkdir()
    words = ["shot.####.exr", "-o", "out.####.exr"]
    here = shot
    if place in ("folder", "here"):
        for path in shot.glob("shot.*"):
            shutil.copy(path, folder)
        words[0] = f"{name}/shot.####.exr"
    if place == "shot":
        shutil.copy(shot / "shot.0001.exr", shot / f"{name}.0001.exr")
        words[0] = f"{name}.####.exr"
    if place == "output":
        words[2] = f"{name}/out.####.exr"
    if place == "option":
        if command == "chunks":
            words += ["--mask", shutil.copy(shot / "pair.exr", folder), "--maskWith", "Mask Alpha"]
        else:
            words += [f"--sbatch=--comment={name}"]
    if place == "here":
        here, words[0] = folder, "shot.####.exr"
        shutil.copytree(shot / "bin", folder / "bin")
    before = sorted(shot.rglob("*"))
    done = farm(here, command, *words)
    assert done.returncode == 2 and "has a control character" in done.stderr and not done.stdout, done.stderr
    assert name not in done.stderr and sorted(shot.rglob("*")) == before


def test_other_odd_names_reach_the_shell_as_they_are(shot):
    folder = shot / "$(touch x) `id` 'a' \"b\" \\ é #1"
    folder.mkdir()
    for path in shot.glob("shot.*"):
        shutil.move(path, folder)
    done = farm(shot, "chunks", folder / "shot.####.exr", "-o", folder / "out.####.exr", "--matchingMode", "Basic")
    assert done.returncode == 0, done.stderr
    assert os.system(f"cd '{shot}' && {done.stdout.strip()} >log 2>&1") == 0
    assert len(list(folder.glob("out.*"))) == 3 and not (shot / "x").exists()

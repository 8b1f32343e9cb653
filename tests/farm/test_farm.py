"""The farm's commands on a real scheduler, and what may befall tasks there."""

import json
import os
import pathlib
import re
import signal
import subprocess

import pytest
from cluster import wait_until
from shots import COMMAND, FIRST, frames_in, viewtint


class Farm:
    """A shot's frames in a folder of their own, rendered by a cluster."""

    def __init__(self, cluster, shot: pathlib.Path, folder: pathlib.Path):
        self.cluster, self.shot, self.folder = cluster, shot, folder
        self.out = str(folder / "out.####.exr")

    def words(self, *more):
        return ["farm", "submit", "shot.####.exr", "-o", self.out, "--mem", "700M", *map(str, more)]

    def run(self, *words, exit_code: int = 0):
        return viewtint(*words, folder=self.shot, environment=self.cluster.environment, exit_code=exit_code)

    def submit(self, *more) -> dict:
        return json.loads(self.run(*self.words(*more), "--json").stdout)

    def verify(self, exit_code: int) -> dict:
        return json.loads(self.run("farm", "verify", self.out, "--json", exit_code=exit_code).stdout)

    def retry(self):
        self.run("farm", "retry", self.out)
        self.cluster.wait()

    def there(self) -> set[int]:
        return set(frames_in(self.folder))

    def logs(self) -> dict[str, str]:
        return {path.name: path.read_text() for path in (self.folder / "out.####.exr.farm/logs").iterdir()}

    def wait_for_a_frame(self, more_than: int = 0):
        wait_until(lambda: len(list(self.folder.glob("out.*.exr"))) > more_than, "a frame")

    def signal_renders(self, what, of_frame: int | str = ""):
        for process, command in self.cluster.processes().items():
            if " render " in command and f"--frames={of_frame}" in command:
                os.kill(process, what)

    def expect_exactly_missing(self) -> dict:
        """What is there is whole, and verify names what isn't."""
        everything = frames_in(self.shot, "whole")
        for frame, data in frames_in(self.folder).items():
            assert data == everything[frame], frame
        result = self.verify(1)
        assert result["missing"] == sorted(set(everything) - self.there())
        assert result["damaged"] == result["other_version"] == result["other_controls"] == []
        return result

    def expect_complete(self):
        assert self.verify(0)["fine"] == len(frames_in(self.shot, "whole"))
        assert frames_in(self.folder) == frames_in(self.shot, "whole")


@pytest.fixture
def farm(empty_cluster, shot, tmp_path):
    # A name that shells and the scheduler would read otherwise.
    folder = tmp_path / "it's 50% $done"
    folder.mkdir()
    return Farm(empty_cluster, shot, folder)


@pytest.fixture
def slow_farm(empty_cluster, slow_shot, tmp_path):
    return Farm(empty_cluster, slow_shot, tmp_path)


def test_arrays_render_what_one_render_gives(farm):
    # Six chunks, and the cluster takes four tasks at most in an array.
    answer = farm.submit("--chunk", 4, "--cpus-per-task", 2, "--time", 10, "--partition", "all")
    assert len(answer["jobs"]) == 2 and answer["chunks"] == 6 and answer["frames"] == 22
    script = farm.cluster.run("scontrol", "write", "batch_script", str(answer["jobs"][1]), "-")
    assert "#SBATCH --array=0-1\n" in script and "offset=4\n" in script
    job = farm.cluster.run("scontrol", "show", "job", str(answer["verify_job"]))
    assert all(f"afterany:{one}_*" in job for one in answer["jobs"])
    standing = json.loads(farm.run("farm", "status", farm.out, "--json").stdout)
    assert sum(standing["tasks"][key] for key in ("waiting", "running", "ended")) == 6
    farm.cluster.wait()
    farm.expect_complete()
    logs = farm.logs()
    first, last = logs[f"{answer['jobs'][0]}_0.log"], logs[f"{answer['jobs'][1]}_1.log"]
    assert "chunk 1 of 6: frames 1001-1004, threads: 2, memory: 700 MB" in first
    assert "chunk 6 of 6: frames 1021-1022" in last and "2 frames: 2 written" in last
    assert "22 frames: 22 fine" in logs[f"{answer['verify_job']}_verify.log"]
    assert "22 of 22 frames there\ntasks: 0 waiting, 0 running, 6 ended, 0 of them failed" in \
        farm.run("farm", "status", farm.out).stdout
    assert "nothing to retry" in farm.run("farm", "retry", farm.out).stdout


def test_a_killed_task_is_completed_by_retry(slow_farm):
    answer = slow_farm.submit("--chunk", 6)
    slow_farm.wait_for_a_frame()
    first = min(slow_farm.there())  # of one of the two tasks
    slow_farm.signal_renders(signal.SIGKILL, of_frame=first)
    slow_farm.cluster.wait()
    missing = slow_farm.expect_exactly_missing()["missing"]
    assert 0 < len(missing) < 6 and first not in missing
    assert f"{len(missing)} missing" in slow_farm.logs()[f"{answer['verify_job']}_verify.log"]
    assert "1 of them failed" in slow_farm.run("farm", "status", slow_farm.out).stdout
    again = slow_farm.run("farm", "retry", slow_farm.out, "--chunk", 1).stdout
    assert f"{len(missing)} frame" in again
    slow_farm.cluster.wait()
    slow_farm.expect_complete()


@pytest.mark.parametrize("with_jobs", [True, False], ids=["with its tasks", "its daemon alone"])
def test_a_node_that_dies_and_returns_costs_no_frame(slow_farm, with_jobs):
    """Its tasks are requeued and go on where they were, beside the old ones where these live on."""
    slow_farm.submit("--chunk", 6)
    slow_farm.wait_for_a_frame(1)
    slow_farm.signal_renders(signal.SIGSTOP)  # so that they don't end before the node is missed
    slow_farm.cluster.node_dies(with_jobs)
    wait_until(lambda: "RUNNING" not in dict(slow_farm.cluster.queue()).values(), "the node is missed")
    slow_farm.expect_exactly_missing()
    assert "nothing to retry" in slow_farm.run("farm", "retry", slow_farm.out).stdout, "they are in the queue"
    slow_farm.cluster.node_returns()
    slow_farm.signal_renders(signal.SIGCONT)
    slow_farm.cluster.wait()
    slow_farm.expect_complete()
    assert any("restarts: 1" in log for log in slow_farm.logs().values())


def test_a_requeued_task_keeps_what_it_had(slow_farm):
    job = slow_farm.submit("--chunk", 12)["jobs"][0]
    slow_farm.wait_for_a_frame(2)
    slow_farm.cluster.run("scontrol", "requeue", f"{job}_0")
    slow_farm.cluster.wait()
    slow_farm.expect_complete()
    log = slow_farm.logs()[f"{job}_0.log"]
    skipped = re.findall(r"12 frames: \d+ written, (\d+) skipped", log)
    assert "restarts: 1" in log and int(skipped[-1]) >= 3


def test_a_full_disk_leaves_whole_frames_only(empty_cluster, shot, tmp_path):
    disk = tmp_path / "disk"
    disk.mkdir()
    size = max(len(data) for data in frames_in(shot, "whole").values())
    mount = ["mount", "-t", "tmpfs", "-o", f"size={9 * size}", "tmpfs", str(disk)]
    if subprocess.run(mount, capture_output=True).returncode != 0:
        pytest.skip("no file system may be mounted here")
    try:
        farm = Farm(empty_cluster, shot, disk)
        answer = farm.submit("--chunk", 8)
        farm.cluster.wait()
        assert farm.expect_exactly_missing()["missing"]
        assert any("Cannot write" in log and "No space left" in log for log in farm.logs().values())
        assert "3 ended" in farm.run("farm", "status", farm.out).stdout
        assert not list(disk.glob(".viewtint-*")), "nor anything else"
        subprocess.run(["mount", "-o", f"remount,size={60 * size}", str(disk)], check=True)
        farm.retry()
        farm.expect_complete()
        assert answer["frames"] == 22
    finally:
        subprocess.run(["umount", "-l", str(disk)], check=True)


def test_two_submissions_at_once_do_no_harm(slow_farm):
    both = [subprocess.Popen([COMMAND, *slow_farm.words("--chunk", 3)], cwd=slow_farm.shot,
                             env=slow_farm.cluster.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             text=True) for _ in range(2)]
    told = [one.communicate(timeout=60) for one in both]
    assert [one.returncode for one in both] == [0, 0], told
    assert sum("what it has finished isn't rendered again" in errors for _, errors in told) == 1
    slow_farm.cluster.wait()
    slow_farm.expect_complete()
    assert any("skipped" in log and " 0 skipped" not in log for log in slow_farm.logs().values())


def test_other_controls_are_told_and_made_anew(farm):
    farm.submit("--chunk", 11)
    farm.cluster.wait()
    (farm.folder / f"out.{FIRST + 3}.exr").unlink()
    done = farm.run(*farm.words("--chunk", 11, "--frames", "1001-1006", "--matchingMode", "Basic", "--sbatch=--hold"))
    assert "viewtint farm status" in done.stdout
    result = farm.verify(1)
    assert result["other_controls"] == [1001, 1002, 1003, 1005, 1006] and result["missing"] == [1004]
    assert "6 frames are in the queue still" in farm.run("farm", "retry", farm.out).stderr
    told = farm.run(*farm.words("--chunk", 11, "--frames", "1001-1006", "--blockSize", "6", "--sbatch=--hold")).stderr
    assert "its controls or its version differ" in told


def test_a_submission_that_fails_takes_back_what_it_handed_in(farm, tmp_path):
    refused = farm.run(*farm.words("--partition", "nowhere"), exit_code=1)
    assert "sbatch: " in refused.stderr and "partition" in refused.stderr
    assert not list(farm.folder.iterdir()), "nothing to ask about"
    # The second of three scripts is refused.
    real = subprocess.run(["which", "sbatch"], capture_output=True, text=True).stdout.strip()
    fake = tmp_path / "bin" / "sbatch"
    fake.parent.mkdir()
    fake.write_text(f"#!/bin/sh\n[ -e {tmp_path}/called ] && echo 'enough' >&2 && exit 1\n"
                    f"touch {tmp_path}/called\nexec {real} --hold \"$@\"\n")
    fake.chmod(0o755)
    path = farm.cluster.environment | {"PATH": f"{fake.parent}:{os.environ['PATH']}"}
    done = viewtint(*farm.words("--chunk", 4), folder=farm.shot, environment=path, exit_code=1)
    assert "sbatch: enough" in done.stderr
    assert (tmp_path / "called").exists() and not farm.cluster.queue()
    assert not list(farm.folder.iterdir())
    # One that went well before is still what verify asks for.
    farm.submit("--frames", "1001-1002")
    farm.cluster.wait()
    farm.run(*farm.words("--partition", "nowhere", "--blockSize", 9), exit_code=1)
    assert farm.verify(0)["frames"] == 2

#!/usr/bin/env python3
"""How long a farm takes for a shot beside one render of it, on the same two processors.

24 frames of 1920 x 1080 pixels; chunks of four, one processor for each task. Prints the medians of some turns and their
ratio. Wants root, slurm-wlm and munge, and 5 GB of disk.

    bench_farm.py [TURNS]
"""

import pathlib
import shutil
import statistics
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests/farm"))
from cluster import Cluster, wait_until, why_not  # noqa: E402
from shots import viewtint, write_shot  # noqa: E402

FRAMES = 24


def clear(folder: pathlib.Path):
    for path in folder.glob("out.*"):
        shutil.rmtree(path) if path.is_dir() else path.unlink()


def one_render(folder: pathlib.Path, *controls: str) -> float:
    clear(folder)
    start = time.monotonic()
    viewtint("render", "shot.####.exr", "-o", "out.####.exr", "--quiet", "--threads", 2, *controls, folder=folder)
    return time.monotonic() - start


def farm(cluster: Cluster, folder: pathlib.Path, *controls: str) -> tuple[float, float]:
    """Until the last task has ended, and until all is verified. Asking the scheduler costs time of the same two
    processors, so that files are counted first."""
    clear(folder)
    start = time.monotonic()
    viewtint("farm", "submit", "shot.####.exr", "-o", "out.####.exr", "--chunk", 4, "--cpus-per-task", 1, "--mem", "6G",
             *controls, folder=folder, environment=cluster.environment)
    wait_until(lambda: len(list(folder.glob("out.*.exr"))) == FRAMES, "the frames", 600, pause=0.1)
    wait_until(lambda: not any("_" in job for job, _ in cluster.queue()), "the tasks", pause=0.1)
    rendered = time.monotonic() - start
    cluster.wait(600)
    verified = time.monotonic() - start
    viewtint("farm", "verify", "out.####.exr", folder=folder)
    return rendered, verified


def main():
    if reason := why_not():
        sys.exit(f"bench_farm: {reason}")
    turns = int(sys.argv[1]) if len(sys.argv) > 1 else 3
    folder = pathlib.Path(tempfile.mkdtemp(prefix="viewtint-bench-"))
    folder.chmod(0o755)
    try:
        write_shot(folder / "shot", FRAMES, 1920, 1080)
        with Cluster(folder / "slurm") as cluster:
            for controls in (("--matchingMode", "Local Matching"), ("--matchingMode", "Basic")):
                seconds = [(one_render(folder / "shot", *controls), *farm(cluster, folder / "shot", *controls))
                           for _ in range(turns)]
                render, farmed, verified = (statistics.median(column) for column in zip(*seconds))
                print(f"{controls[1]}: render --threads 2 {render:.1f} s, farm {farmed:.1f} s ({farmed / render:.2f} "
                      f"times), verified {verified:.1f} s ({verified / render:.2f} times); medians of {turns}",
                      flush=True)
    finally:
        shutil.rmtree(folder)


if __name__ == "__main__":
    main()

import pathlib
import shutil
import tempfile

import pytest
from cluster import Cluster, why_not
from shots import viewtint, write_shot

LARGEST_ARRAY = 4


@pytest.fixture(scope="session")
def cluster():
    if reason := why_not():
        pytest.skip(reason)
    # The daemons want folders that others may enter.
    folder = pathlib.Path(tempfile.mkdtemp(prefix="viewtint-cluster-"))
    folder.chmod(0o755)
    try:
        with Cluster(folder / "slurm", LARGEST_ARRAY) as running:
            yield running
    finally:
        shutil.rmtree(folder)


@pytest.fixture(scope="session")
def shot(tmp_path_factory):
    """22 small frames, and whole.1001.exr and so on as one render gives them."""
    folder = tmp_path_factory.mktemp("shot")
    write_shot(folder, 22)
    viewtint("render", "shot.####.exr", "-o", "whole.####.exr", "--quiet", folder=folder)
    return folder


@pytest.fixture(scope="session")
def slow_shot(tmp_path_factory):
    """12 frames that take some tenths of a second each, and how one render corrects them."""
    folder = tmp_path_factory.mktemp("slow")
    write_shot(folder, 12, 640, 360)
    viewtint("render", "shot.####.exr", "-o", "whole.####.exr", "--quiet", folder=folder)
    return folder


@pytest.fixture
def empty_cluster(cluster):
    """The cluster with nothing in its queue, before and after."""
    yield cluster
    for job in {job.split("_")[0] for job, _ in cluster.queue()}:
        cluster.run("scancel", job, check=False)
    cluster.wait()

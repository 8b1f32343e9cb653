import pytest
from pictures import stereo_pair, write_exr


@pytest.fixture
def pair(tmp_path):
    """The folder of the test, with pair.exr in it."""
    write_exr(tmp_path / "pair.exr", stereo_pair())
    return tmp_path

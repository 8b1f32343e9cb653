"""The node with its controls against the steps that a render takes, and renders of files."""

import pathlib
import sys
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import viewtint

pytestmark = pytest.mark.skipif(not hasattr(viewtint, "Node"), reason="this module was built without the host")

CONES = pathlib.Path(__file__).parents[3] / "shared" / "data" / "cones" / "cones.exr"
SIZE = HEIGHT, WIDTH = 48, 70


@pytest.fixture
def scene(random):
    """left, right, disparity, occlusion: the right view is the left one, 3 pixels further left and lit otherwise."""
    left = np.ones((*SIZE, 4), np.float32)
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH]
    left[..., :3] = (0.4 + 0.2 * np.sin(x / 4) * np.cos(y / 6))[..., None] + 0.05 * random((*SIZE, 3))
    right = np.roll(left, -3, 1) * np.array([1.2, 1, 0.8, 1], np.float32)
    disparity = np.zeros((*SIZE, 4), np.float32)
    disparity[..., 2] = -3
    occlusion = ((x > 30) & (x < 34)).astype(np.float32)
    return left, right, disparity, occlusion


def steps(scene, **settings):
    left, right, disparity, occlusion = (viewtint.Image(values) for values in scene)
    rebuilt = viewtint.PictureBuilder(1, (WIDTH, HEIGHT)).build(left, right, disparity, occlusion)
    aligner = viewtint.ToneAligner()
    ones, zeros = (viewtint.Image(np.full(SIZE, value, np.float32)) for value in (1, 0))
    preset = {"noiseLevel": 0.25, "samples": 5, "wrapSize": (WIDTH, HEIGHT), "smoothingRadius": 2}
    for name, value in {**preset, **settings}.items():
        setattr(aligner, name, value)
    return aligner.process(left, rebuilt, ones, occlusion, zeros).array


def test_renders_as_its_steps_do(scene):
    images = [viewtint.Image(values) for values in scene]
    node = viewtint.Node(matchingMode="Basic")
    np.testing.assert_array_equal(node.render(*images).array, steps(scene, mode=0))
    node.matchingMode, node.maxBlockSize, node.correctionScale = 1, 20, 0
    np.testing.assert_array_equal(node.render(*images).array, steps(scene, mode=3, maxBlockSize=20))
    node.samples, node.occlusionCorrection = 1, "None"
    expected = steps(scene, mode=2, fillOcclusions=False)
    np.testing.assert_array_equal(node.render(*images).array, expected)
    assert node.messages == ()


def test_occlusions_of_neighbours_are_joined(scene):
    left, right, disparity, occlusion = (viewtint.Image(values) for values in scene)
    node = viewtint.Node(matchingMode="Basic")
    wide = np.maximum(scene[3], np.roll(scene[3], 20, 1))
    joined = node.render(left, right, disparity, [occlusion, viewtint.Image(np.roll(scene[3], 20, 1))]).array
    np.testing.assert_array_equal(joined, node.render(left, right, disparity, viewtint.Image(wide)).array)
    node.stabiliseOcclusions = False
    alone = node.render(left, right, disparity, [occlusion, viewtint.Image(np.ones(SIZE, np.float32))]).array
    np.testing.assert_array_equal(alone, node.render(left, right, disparity, occlusion).array)


def test_masks_select(scene):
    images = [viewtint.Image(values) for values in scene]
    half = np.zeros(SIZE, np.float32)
    half[:, : WIDTH // 2] = 1
    node = viewtint.Node(matchingMode=0, maskWith="Mask Alpha")
    with pytest.raises(viewtint.Error, match="Channel selected as Mask is missing"):
        node.render(*images)
    assert node.messages[0].startswith("Channel selected as Mask")
    result = node.render(*images, viewtint.Image(half)).array
    np.testing.assert_array_equal(result[:, WIDTH // 2 :], scene[0][:, WIDTH // 2 :])
    assert np.abs(result - scene[0])[:, : WIDTH // 2].mean() > 0.01
    node.maskWith = "Mask Inverted Luminance"
    inverted = node.render(*images, viewtint.Image(1 - half)).array
    np.testing.assert_allclose(inverted, result, atol=1e-6)


def test_broken_pixels_are_warned_of(scene):
    left, right, disparity, occlusion = (values.copy() for values in scene)
    clean = viewtint.Node().render(*map(viewtint.Image, scene)).array
    left[20, 40, 0] = np.nan
    occlusion[3, 3:5] = -np.inf
    with pytest.warns(UserWarning, match="1 pixel of the view 'left' and 2 of mask_occlusion.alpha") as told:
        picture = viewtint.Node().render(*map(viewtint.Image, (left, right, disparity, occlusion))).array
    assert told[0].filename == __file__ and len(told) == 1
    np.testing.assert_array_equal(picture[20, 40], left[20, 40])
    picture[20, 40] = clean[20, 40]
    assert np.abs(picture - clean).max() < 0.05


@pytest.mark.parametrize("matchWhat, view", [(0, "left"), (1, "right")])
def test_views_without_matches_come_back_as_they_are(scene, matchWhat, view):
    *images, occlusion = [viewtint.Image(values) for values in scene]
    node = viewtint.Node(matchWhat=matchWhat, outputOcclusionsToAlpha=True)
    with pytest.warns(viewtint.PictureWarning, match=f"the view '{view}'"):
        same = node.render(*images, viewtint.Image(np.ones(SIZE, np.float32))).array
    np.testing.assert_array_equal(same, scene[matchWhat])
    assert not node.matched
    assert np.abs(node.render(*images, occlusion).array - same).max() > 0.01 and node.matched


def test_files_without_matches_are_warned_of(tmp_path):
    pytest.importorskip("OpenEXR")
    sys.path.append(str(pathlib.Path(__file__).parents[1] / "command"))
    from pictures import stereo_pair, write_exr

    channels = stereo_pair()
    channels["mask_occlusion.alpha"][:] = 1
    write_exr(tmp_path / "in.1.exr", channels)
    for name, results in ("%d", ["unmatched"]), ("1", []):
        with pytest.warns(viewtint.PictureWarning, match="in.1.exr") as told:
            done = viewtint.render_file(tmp_path / f"in.{name}.exr", tmp_path / f"out.{name}.exr")
        assert [frame["status"] for frame in done] == results and told[0].filename == __file__


def test_threads_may_render_and_look_at_controls(scene):
    images = [viewtint.Image(values) for values in scene]
    nodes = [viewtint.Node(matchingMode="Basic", matchWhat=i % 2) for i in range(4)]
    expected = [node.render(*images).array for node in nodes]
    assert np.abs(expected[0] - expected[1]).max() > 0.1

    def work(i):
        same = [np.array_equal(nodes[i].render(*images).array, expected[i]) for _ in range(20)]
        return all(same) and all(viewtint.Node().enabled("blockSize") for _ in range(20))

    with ThreadPoolExecutor(4) as pool:
        assert all(pool.map(work, range(4)))


def test_controls():
    node = viewtint.Node()
    names = [control.name for control in node.controls]
    assert len(names) == 24 and names.index("matchWhat") < names.index("blockSize") < names.index("featherSize")
    assert (node.blockSize, node.noiseLevel, node.stabiliseOcclusions, node.correctionType) == (5, 0.25, True, 1)
    size = next(control for control in node.controls if control.name == "blockSize")
    assert (size.label, size.minimum, size.maximum, size.default, size.enabled) == ("Block Size", 2, 100, 5, True)
    assert node.enabled("intervalType") and not node.enabled("adjustEdges")
    node.samples, node.occlusionCorrection = 2, "Occlusions and Edges"
    assert not node.enabled("intervalType") and node.enabled("adjustEdges")
    assert (node.samples, node.occlusionCorrection) == (2, 1)
    assert "blockSize" in dir(node)
    assert "Q_ViewTint corrects colour differences between stereo views." in node.help
    with pytest.raises(AttributeError, match="no control 'blokSize'; the nearest are blockSize"):
        node.blokSize = 3
    with pytest.raises(AttributeError, match="no control 'foo'"):
        node.foo
    for name, value in ("blockSize", 1), ("featherSize", -1), ("correctionLimit", -0.5):
        with pytest.raises(ValueError, match=f"{value} is out of range for the control {name}"):
            setattr(node, name, value)
    node.featherSize = 51
    assert node.featherSize == 51


def test_files_that_cannot_be(tmp_path):
    with pytest.raises(viewtint.Error, match="none.exr"):
        viewtint.render_file(tmp_path / "none.exr", tmp_path / "out.exr")
    with pytest.raises(viewtint.Error, match="There are no files"):
        viewtint.render_file(tmp_path / "a.#.exr", tmp_path / "b.#.exr")
    with pytest.raises(ValueError, match="There is no control 'foo'"):
        viewtint.render_file(tmp_path / "none.exr", tmp_path / "out.exr", foo=1)
    assert not list(tmp_path.iterdir())


@pytest.mark.skipif(not CONES.exists(), reason="the photographed pair is not here")
def test_files(tmp_path):
    for frame in 1, 2, 3:
        (tmp_path / f"shot.{frame:04}.exr").write_bytes(CONES.read_bytes())
    assert viewtint.render_file(CONES, tmp_path / "one.exr", matchingMode="Basic") == []
    assert viewtint.render_file(CONES, tmp_path / "estimated.exr", matchingMode="Basic", disparity="estimate") == []
    assert (tmp_path / "estimated.exr").read_bytes() != (tmp_path / "one.exr").read_bytes()
    with pytest.raises(ValueError, match="no file 'none.exr' with disparity"):
        viewtint.render_file(CONES, tmp_path / "two.exr", disparity="none.exr")
    results = viewtint.render_file(tmp_path / "shot.####.exr", tmp_path / "out.####.exr", matchingMode="Basic")
    assert [(result["frame"], result["status"]) for result in results] == [(frame, "written") for frame in (1, 2, 3)]
    assert (tmp_path / "one.exr").stat().st_size > 100000
    again = viewtint.render_file(
        tmp_path / "shot.####.exr", tmp_path / "out.####.exr", frames="2-4", skip_existing=True, matchingMode="Basic"
    )
    assert [(result["frame"], result["status"]) for result in again] == [(2, "skipped"), (3, "skipped"), (4, "failed")]
    assert "shot.0004.exr" in again[-1]["message"]

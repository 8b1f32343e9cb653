"""What the command prints: JSON and nothing else where it is asked for, and failures where it can't be printed."""

import os

import pytest
from pictures import events, in_file, json, stereo_pair, viewtint, write_exr

FRAMES = (1, 2, 4)


@pytest.fixture
def shot(pair):
    """pair.exr; frames 1, 2 and 4 of a shot; dark.exr, whose left view is hidden in the right one."""
    for frame in FRAMES:
        write_exr(pair / f"shot.{frame}.exr", stereo_pair())
    hidden = stereo_pair()
    hidden[in_file("left", "mask_occlusion.alpha")][:] = 1
    write_exr(pair / "dark.exr", hidden)
    return pair


@pytest.mark.parametrize("words, code, told", [
    (("pair.exr", "-o", "out.exr"), 0, ["frame written", "summary"]),
    (("pair.exr", "-o", "out.exr", "--stats"), 0, ["frame written", "summary", "stats"]),
    (("dark.exr", "-o", "out.exr"), 0, ["warning", "frame unmatched", "summary"]),
    (("pair.exr", "-o", "out.exr", "--disparity", "estimate", "--samples", "3", "--matchingMode", "Basic"), 0,
     ["frame written", "summary"]),
    (("pair.exr", "-o", "none/out.exr"), 1, ["frame failed", "summary"]),
    (("shot.%d.exr", "-o", "out.%d.exr", "--missing", "hold", "--stats"), 0,
     ["frame written"] * 3 + ["summary", "stats"]),
    (("shot.%d.exr", "-o", "out.%d.exr"), 1, ["frame failed"] * 3 + ["summary"]),
])
def test_under_json_a_render_prints_events_only(shot, words, code, told):
    done = viewtint("render", *words, "--json", folder=shot)
    assert done.returncode == code, done.stderr
    found = events(done)
    assert [f"{event['event']} {event.get('status', '')}".strip() for event in found] == told
    sequence = "%d" in words[0]
    assert [event["frame"] for event in found if event["event"] == "frame"] == list(FRAMES if sequence else [None])
    for event in found:
        assert ("message" in event) == (event["event"] == "warning" or event.get("status") == "failed")
        if event["event"] == "stats":
            assert sum(stage["milliseconds"] for stage in event["stages"]) > 0
        if event["event"] == "summary":
            ends = sum(event[status] for status in ("written", "unmatched", "skipped", "failed", "left"))
            assert ends == event["frames"] == (len(FRAMES) if sequence else 1)


@pytest.mark.parametrize("words", [
    ("info", "pair.exr"), ("info", "--devices"), ("controls",), ("controls", "--samples", "1"), ("kernels",),
    ("kernels", "maxKernel"), ("compare", "pair.exr", "dark.exr", "--sheet", "sheet.png"),
])
def test_other_commands_print_one_document(shot, words):
    done = viewtint(*words, "--json", folder=shot)
    assert done.returncode == 0, done.stderr
    json.loads(done.stdout)


def test_names_that_are_no_text_stay_json(shot):
    name = b"caf\xe9.exr"
    os.rename(shot / "pair.exr", os.fsencode(shot) + b"/" + name)
    done = viewtint("render", os.fsdecode(name), "-o", "out\udcff.exr", "--json", folder=shot, errors="strict")
    assert [event.get("file") for event in events(done)] == ["out\ufffd.exr", None]


@pytest.mark.parametrize("words", [
    ("--help",), ("--version",), ("render", "--help"), ("info", "pair.exr"), ("info", "--devices", "--json"),
    ("controls",), ("kernels",), ("compare", "pair.exr", "dark.exr"), ("render", "pair.exr", "-o", "out.exr"),
    ("render", "pair.exr", "-o", "out.exr", "--quiet", "--stats"),
    ("render", "shot.%d.exr", "-o", "out.%d.exr", "--missing", "hold", "--json"),
    ("farm", "submit", "shot.%d.exr", "-o", "out.%d.exr", "--frames", "1,2", "--dry-run"),
], ids=" ".join)
def test_output_that_cannot_be_written_is_a_failure(shot, words):
    with open("/dev/full", "w") as full:
        done = viewtint(*words, folder=shot, stdout=full)
    assert done.returncode == 1
    assert done.stderr.count("the standard output can't be written to: No space left on device;") == 1, done.stderr
    for frame in FRAMES if "shot.%d.exr" in words and words[0] == "render" else ():
        assert (shot / f"out.{frame}.exr").exists()


@pytest.mark.parametrize("words", [
    ("render", "dark.exr", "-o", "none/out.exr"),
    ("render", "dark.exr", "-o", "out.exr", "--write-stages", "pair.exr"),
    ("render", "dark.exr", "-o", "out.exr", "--cache", "pair.exr/cache"),
    ("render", "dark.exr", "dark.exr", "-o", "none/out.exr"),
    ("render", "bad.%d.exr", "-o", "none/out.%d.exr", "--disparity", "estimate"),
    ("farm", "submit", "bad.%d.exr", "-o", "none/out.%d.exr", "--dry-run"),
    ("pack", "--left", "dark.exr", "--right", "dark.exr", "--disparity-left", "dark.exr", "-o", "none/out.exr"),
    ("parallax", "dark.exr", "-o", "none/out.exr"),
    ("compare", "dark.exr", "dark.exr", "--sheet", "none/sheet.png"),
], ids=" ".join)
def test_where_the_output_goes_is_checked_before_any_work(shot, words):
    damaged = (shot / "dark.exr").read_bytes()[:-500]  # reading it to its end would fail in other words
    for name in ("dark.exr", "bad.1.exr"):
        (shot / name).write_bytes(damaged)
    before = sorted(os.listdir(shot))
    done = viewtint(*words, folder=shot)
    assert done.returncode == 1 and done.stdout == ""
    assert "none" in done.stderr or "pair.exr" in done.stderr, done.stderr
    assert done.stderr.count("\n") == 1 and sorted(os.listdir(shot)) == before


def test_an_absent_frame_is_named_with_the_ways_out(shot):
    done = viewtint("render", "shot.%d.exr", "-o", "out.%d.exr", "--frames", "2", folder=shot)
    for word in ("frame 2: frame 3 is needed", "stabilised", "shot.3.exr", "--missing hold",
                 "--stabiliseOcclusions off"):
        assert word in done.stderr
    for way in (("--missing", "hold"), ("--stabiliseOcclusions", "off")):
        assert viewtint("render", "shot.%d.exr", "-o", "out.%d.exr", "--frames", "2", *way, folder=shot).returncode == 0

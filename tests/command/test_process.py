"""The command as a process: its descriptors, limits, signals, and the files it leaves."""

import os
import pathlib
import resource
import signal
import subprocess
import tempfile
import time

import pytest
from pictures import COMMAND, stereo_pair, viewtint, write_exr

FRAMES = (1, 2, 3)
STILL = ("render", "pair.exr", "-o", "out.exr")
SEQUENCE = ("render", "in.####.exr", "-o", "out.####.exr")
PACK = ("pack", "-o", "out.exr", "--left", "pair.exr", "--right")
OTHER_USER = 100_000 + os.getpid()  # one without any other processes, those of another run of these tests included


def limited(kind, value, user=None):
    def apply():
        resource.setrlimit(kind, (value, value))
        if user:
            os.setgid(user)
            os.setuid(user)
    return apply


def hidden(folder):
    return [name for name in os.listdir(folder) if name.startswith(".")]


def results(folder):
    return {path.name: path.read_bytes() for path in folder.glob("out*.exr")}


@pytest.fixture(scope="module")
def shot():
    """A folder for all users with a still and a sequence, and what they become: (folder, expected by command)."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o777)
        write_exr(folder / "pair.exr", stereo_pair(320, 240))
        for frame in FRAMES:
            write_exr(folder / f"in.{frame:04}.exr", stereo_pair(64, 48, frame))
        expected = {}
        for words in (STILL, SEQUENCE):
            done = viewtint(*words, folder=folder)
            assert done.returncode == 0, done.stderr
            expected[words] = results(folder)
            remove_results(folder)
        yield folder, expected


def remove_results(folder):
    for path in folder.glob("out*.exr"):
        path.unlink()


@pytest.fixture
def expected(shot):
    yield shot[1]
    remove_results(shot[0])
    assert hidden(shot[0]) == []


@pytest.mark.parametrize("closed", [(0,), (1,), (2,), (1, 2), (0, 1, 2)], ids=str)
@pytest.mark.parametrize("words", [STILL, SEQUENCE, (*SEQUENCE, "--json")], ids=["still", "sequence", "json"])
def test_nothing_is_printed_into_a_picture(shot, expected, words, closed):
    done = viewtint(*words, folder=shot[0], preexec_fn=lambda: [os.close(number) for number in closed])
    assert results(shot[0]) == expected[words[:4]]
    assert done.returncode == 0 or (1 in closed and done.returncode == 1)


@pytest.mark.parametrize("words", [STILL, SEQUENCE], ids=["still", "sequence"])
@pytest.mark.parametrize("kind, value", [
    *((resource.RLIMIT_AS, mebibytes << 20) for mebibytes in (190, 244, 300, 390, 600)),
    *((resource.RLIMIT_NPROC, threads) for threads in (1, 2, 3, 5, 8, 12)),
])
def test_what_cant_be_had_is_done_without_or_told(shot, expected, words, kind, value):
    by_processes = kind == resource.RLIMIT_NPROC
    if by_processes and os.geteuid() != 0:
        pytest.skip("the limit of processes needs a user without any others")
    done = viewtint(*words, "--threads", 16, folder=shot[0],
                    preexec_fn=limited(kind, value, OTHER_USER if by_processes else None))
    assert done.returncode in (0, 1), done.stderr
    if by_processes or value >= 390 << 20:
        assert done.returncode == 0, done.stderr
    if done.returncode == 0:
        assert results(shot[0]) == expected[words]
    else:
        assert "memory" in done.stderr


@pytest.mark.skipif(os.geteuid() != 0, reason="the limit of processes needs a user without any others")
@pytest.mark.parametrize("processes", [1, 2, 5, 8])
@pytest.mark.parametrize("words", [("compare", "pair.exr", "pair.exr"), ("parallax", "pair.exr", "-o", "out.exr"),
                                   ("compare", "pair.exr", "pair.exr", "--sheet", "out.png")], ids=" ".join)
def test_libraries_that_need_threads_are_kept_from_them(shot, expected, words, processes):
    done = viewtint(*words, "--threads", 16, folder=shot[0],
                    preexec_fn=limited(resource.RLIMIT_NPROC, processes, OTHER_USER))
    assert done.returncode == 0 or ("--sheet" in words and done.returncode == 1 and "ulimit -u" in done.stderr)
    for path in shot[0].glob("out.png"):
        path.unlink()


@pytest.mark.parametrize("share", [0, 0.01, 0.5, 1])
@pytest.mark.parametrize("words", [STILL, SEQUENCE, ("parallax", "pair.exr", "-o", "out.exr"),
                                   ("compare", "pair.exr", "pair.exr", "--sheet", "out.png")], ids=" ".join)
def test_a_file_beyond_the_limit_is_an_error_of_writing(shot, expected, words, share):
    assert viewtint(*words, folder=shot[0]).returncode == 0
    made = sorted(shot[0].glob("out*"))
    limit = int(share * (made[0].stat().st_size - 1))
    for path in made:
        path.write_bytes(b"old")
    done = viewtint(*words, folder=shot[0], preexec_fn=limited(resource.RLIMIT_FSIZE, limit))
    assert done.returncode == 1
    assert "ulimit -f" in done.stderr or "make room" in done.stderr
    assert made[0].read_bytes() == b"old" and sorted(shot[0].glob("out*")) == made
    (shot[0] / "out.png").unlink(missing_ok=True)


def test_too_many_open_files_are_told(pair):
    done = viewtint(*STILL, folder=pair, preexec_fn=limited(resource.RLIMIT_NOFILE, 4))
    assert done.returncode == 1
    assert "ulimit -n" in done.stderr
    assert os.listdir(pair) == ["pair.exr"]


@pytest.mark.parametrize("words", [
    ("render", "pipe.exr", "-o", "out.exr"), ("info", "pipe.exr"), ("parallax", "pipe.exr", "-o", "out.exr"),
    ("compare", "pair.exr", "pipe.exr"), ("compare", "pipe.png", "pair.exr"), (*PACK, "pipe.exr"),
    ("render", "pair.exr", "-o", "out.exr", "--mask", "pipe.exr"), ("render", "pair.####.exr", "-o", "out.####.exr"),
], ids=" ".join)
def test_a_pipe_is_refused_and_not_waited_for(pair, words):
    for name in ("pipe.exr", "pipe.png", "pair.0001.exr"):
        os.mkfifo(pair / name)
    done = viewtint(*words, folder=pair, timeout=20)
    assert done.returncode in (1, 2)
    assert "a pipe" in done.stderr
    assert not (pair / "out.exr").exists()


# ---- ended from outside ---------------------------------------------------------------------------------------------

@pytest.fixture(scope="module")
def long_shot(tmp_path_factory):
    """A folder with a picture that takes its time, also as the only frame of a sequence."""
    folder = tmp_path_factory.mktemp("long")
    write_exr(folder / "in.0001.exr", stereo_pair(1280, 960))
    return folder


LONG = {"still": ("render", "in.0001.exr", "-o", "out.0001.exr"), "sequence": SEQUENCE}


def started(words, folder):
    return subprocess.Popen([COMMAND, *words], cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def while_writing(kind, folder):
    """A process that was stopped while its picture is written, and its unfinished file."""
    for _ in range(20):
        process = started((*LONG[kind], "--quiet"), folder)
        while process.poll() is None:
            for name in hidden(folder):
                try:
                    writing = (folder / name).stat().st_size > 0
                except FileNotFoundError:
                    continue
                if writing:
                    process.send_signal(signal.SIGSTOP)
                    time.sleep(0.05)
                    if (folder / name).exists():
                        return process, folder / name
                    process.send_signal(signal.SIGCONT)
        process.communicate()
    raise AssertionError("no picture was seen while it was written")


@pytest.mark.parametrize("second", LONG)
@pytest.mark.parametrize("first", LONG)
def test_what_a_killed_process_left_is_swept_by_the_next_of_that_name_and_what_a_live_one_writes_isnt(
        long_shot, first, second):
    process, unfinished = while_writing(first, long_shot)
    try:
        two_hours_ago = time.time() - 7200
        os.utime(unfinished, (two_hours_ago, two_hours_ago))
        done = viewtint(*LONG[second], folder=long_shot)
        assert done.returncode == 0, done.stderr
        assert [long_shot / name for name in hidden(long_shot)] == [unfinished]
    finally:
        process.kill()
        process.communicate()
    done = viewtint(*LONG[second], folder=long_shot)
    assert done.returncode == 0, done.stderr
    assert hidden(long_shot) == []


@pytest.mark.parametrize("signals, words", [((signal.SIGHUP,), "viewtint: interrupted"),
                                            ((signal.SIGINT, signal.SIGTERM), "viewtint: ended at once"),
                                            ((signal.SIGTERM, signal.SIGINT), "viewtint: ended at once")],
                         ids=str)
def test_the_first_signal_asks_and_the_second_ends_at_once(long_shot, signals, words):
    before = sorted(os.listdir(long_shot))
    process = started((*LONG["still"], "--matchingMode", "Local Matching"), long_shot)
    assert "Fetching" in process.stderr.readline() or process.stderr.readline()
    for number in signals:
        process.send_signal(number)
    _, errors = process.communicate(timeout=30)
    assert process.returncode == 130
    assert words in errors
    assert sorted(os.listdir(long_shot)) == before


# ---- what is replaced, and names ------------------------------------------------------------------------------------

@pytest.mark.parametrize("old, umask, new", [(None, 0o027, 0o640), (None, 0o002, 0o664), (0o600, 0o022, 0o600),
                                             (0o664, 0o077, 0o664), (0o666, 0o022, 0o666), (0o2640, 0o022, 0o2640)])
def test_a_replaced_file_keeps_its_mode(pair, old, umask, new):
    out = pair / "out.exr"
    if old is not None:
        out.write_bytes(b"old")
        out.chmod(old)
        if os.geteuid() == 0:
            os.chown(out, OTHER_USER, OTHER_USER)
            out.chmod(old)
    done = viewtint(*STILL, folder=pair, preexec_fn=lambda: os.umask(umask))
    assert done.returncode == 0, done.stderr
    assert out.stat().st_mode & 0o7777 == new
    if old is not None and os.geteuid() == 0:
        assert (out.stat().st_uid, out.stat().st_gid) == (OTHER_USER, OTHER_USER)


@pytest.mark.parametrize("target", ["nowhere.exr", "out.exr"])
def test_a_link_to_nothing_is_refused_as_output(pair, target):
    (pair / "out.exr").symlink_to(target)
    done = viewtint(*STILL, folder=pair)
    assert done.returncode == 1
    assert f"a link to '{target}'" in done.stderr
    assert sorted(os.listdir(pair)) == ["out.exr", "pair.exr"] and (pair / "out.exr").is_symlink()


@pytest.mark.parametrize("length", [199, 200, 201, 254, 255])
def test_names_may_be_as_long_as_the_disk_takes(pair, length):
    name = ("ö" * 130).encode()[: length - 4].decode(errors="ignore").ljust(20, "x")
    name += "x" * (length - 4 - len(name.encode())) + ".exr"
    done = viewtint("render", "pair.exr", "-o", name, folder=pair)
    assert done.returncode == 0, done.stderr
    assert sorted(os.listdir(pair)) == sorted([name, "pair.exr"])


@pytest.mark.parametrize("name, shown", [
    (b"a\x1b[31m.exr", r"a\x1b[31m.exr"), (b"a\nviewtint: b.exr", r"a\x0aviewtint: b.exr"),
    (b"a\rb\x07\x7f.exr", r"a\x0db\x07\x7f.exr"), (b"\xff\x9b.exr", r"\xff\x9b.exr"),
    ("\x9b2J.exr".encode(), r"\xc2\x9b2J.exr"), ("größe 大.exr".encode(), "größe 大.exr")],
    ids=["escape", "newline", "others", "not UTF-8", "C1", "plain"])
def test_names_cant_steer_a_terminal(pair, name, shown):
    os.rename(pair / "pair.exr", os.fsencode(pair) + b"/" + name)
    path = os.fsdecode(name)
    for words in (("render", path, "-o", "out." + path), ("info", path), ("info", "absent" + path),
                  ("compare", path, path), ("render", path, "-o", "nowhere/" + path),
                  ("render", path, "-o", "out.exr", "--" + path)):
        done = viewtint(*words, folder=pair, text=False)
        said = (done.stdout + done.stderr).decode()
        assert shown in said
        assert all(letter == "\n" or letter.isprintable() for letter in said)

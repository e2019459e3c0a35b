"""The standard input as an input."""

import os
import subprocess

import pytest
from conftest import DATA, k7m, without_name

CLIP = DATA / "h264-bframes-aac.mp4"


def piped(*arguments, path=CLIP, **variables):
    with subprocess.Popen(["cat", path], stdout=subprocess.PIPE) as cat:
        return k7m(*arguments, stdin=cat.stdout, **variables)


@pytest.mark.parametrize(
    "command",
    [
        ["samples", "FILE", "--csv"],
        ["extract", "FILE", "--track", "1", "-o", "-"],
        ["tree", "FILE"],
        ["verify", "FILE"],
    ],
)
@pytest.mark.parametrize("name", ["h264-bframes-aac.mp4", "fragmented-base-is-moof.mp4"])
def test_results_are_those_of_the_file(command, name):
    expected = k7m(*(DATA / name if word == "FILE" else word for word in command))
    run = piped(*("-" if word == "FILE" else word for word in command), path=DATA / name)
    assert (run.returncode, run.stdout) == (expected.returncode, expected.stdout)
    assert expected.stdout != b""


@pytest.mark.parametrize("name", ["h264-bframes-aac.mp4", "fragmented-base-is-moof.mp4"])
def test_info_reads_it_more_than_once(name):
    run = piped("info", "-", "--json", path=DATA / name)
    assert run.returncode == 0, run.stderr
    assert without_name(run.stdout) == without_name(k7m("info", DATA / name, "--json").stdout)


def test_copies_are_those_of_the_file(files, tmp_path):
    for command, name in ("remux", "copy.mp4"), ("fragment", "copy.k7r"):
        local, remote = tmp_path / f"local-{name}", tmp_path / f"piped-{name}"
        assert k7m(command, CLIP, local).returncode == 0
        assert piped(command, "-", remote).returncode == 0
        assert remote.read_bytes() == local.read_bytes()


def test_fragments_and_their_index(files):
    live, index = files / "live.k7r", files / "live.idx"
    expected = k7m("query", live, "--fragment", "1").stdout
    assert expected[4:8] == b"afra"
    assert piped("query", "-", "--fragment", "1", path=live).stdout == expected
    assert piped("query", live, "--index", "-", "--fragment", "1", path=index).stdout == expected
    assert piped("index", "-", "-o", "-", path=live).stdout == index.read_bytes()
    run = piped("query", "-", "--index", "-", "--fragment", "1", path=live)
    assert run.returncode == 2 and b"cannot both be the standard input" in run.stderr


def test_the_spool_is_bounded_to_the_byte():
    size = CLIP.stat().st_size
    assert piped("info", "-", "--spool-limit", size).returncode == 0
    run = piped("info", "-", "--spool-limit", size - 1)
    assert run.returncode == 1 and run.stdout == b""
    assert run.stderr.decode() == (
        f"k7m: standard input: longer than the {size - 1} bytes that may be spooled "
        "(see --spool-limit)\n"
    )
    assert piped("info", "-", "--spool-limit", "1MB").returncode == 0
    assert piped("info", "-", "--spool-limit", "lots").returncode == 2


def test_nothing_is_left_in_the_folder_of_the_spool(tmp_path):
    assert piped("info", "-", TMPDIR=str(tmp_path)).returncode == 0
    assert os.listdir(tmp_path) == []
    run = piped("info", "-", TMPDIR=str(tmp_path / "none"))
    assert run.returncode == 1
    assert f"{tmp_path}/none: No such file or directory" in run.stderr.decode()


def test_an_empty_standard_input_is_no_document():
    run = k7m("info", "-")
    assert run.returncode == 1
    assert b"k7m: standard input: kQiroK7MErrorNoMovieBox (6)" in run.stderr


def test_a_file_that_is_changed_is_never_the_standard_input(files):
    before = (files / "live.k7r").read_bytes()
    run = piped("append", "-", CLIP, path=files / "live.k7r")
    assert run.returncode == 1 and b"k7m: -: No such file or directory" in run.stderr
    assert (files / "live.k7r").read_bytes() == before

"""Where things are, and what several tests do."""

import gc
import pathlib
import subprocess

import pytest
from k7m import _loans

ROOT = pathlib.Path(__file__).parents[2]


@pytest.fixture
def root() -> pathlib.Path:
    return ROOT


@pytest.fixture
def clips() -> pathlib.Path:
    return ROOT / "tests" / "data"


@pytest.fixture(autouse=True)
def all_loans_come_back():
    """No test leaves bytes with the library."""
    yield
    gc.collect()
    assert _loans.lent_count() == 0


def frame_hashes(path, stream: str = "v") -> list[str]:
    """What ffmpeg decodes of all samples, frame by frame."""
    command = [
        "ffmpeg", "-v", "error", "-ignore_editlist", "1", "-i", path, "-map", f"0:{stream}",
        "-fps_mode", "passthrough", "-f", "framemd5", "-",
    ]  # fmt: skip
    text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return [line.split(",")[-1].strip() for line in text.splitlines() if line[:1] != "#"]

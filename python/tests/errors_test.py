"""The package's codes, records and version are those of the headers."""

import ctypes
import pickle
import re

import k7m
import pytest
from k7m import _library, _records

RECORDS = {
    "QiroK7MDateTime": _records.DateTime,
    "QiroK7MDataBuffer": _records.DataBuffer,
    "QiroK7MAllocatorCallBacks": _records.Allocator,
    "QiroK7MWarningHandlerCallBacks": _records.WarningHandler,
    "QiroK7MIStreamCallBacks": _records.IStream,
    "QiroK7MIOStreamCallBacks": _records.IOStream,
    "QiroK7MDocInfo": _records.DocInfo,
    "QiroK7MTrackInfo": _records.TrackInfo,
    "QiroK7MTrackEntriesInfo": _records.TrackEntriesInfo,
    "QiroK7MSampleDescInfo": _records.SampleDescInfo,
    "QiroK7MVideoSampleDescInfo": _records.VideoSampleDescInfo,
    "QiroK7MAudioSampleDescInfo": _records.AudioSampleDescInfo,
    "QiroK7MVorpSampleDescInfo": _records.VorpSampleDescInfo,
    "QiroK7MSampleInfo": _records.SampleInfo,
    "QiroK7MEdit": _records.Edit,
    "QiroK7MReadOptions": _records.ReadOptions,
    "QiroK7RHintTrackInfo": _records.HintTrackInfo,
}


def headers(root) -> str:
    return "".join(path.read_text() for path in sorted((root / "include/k7m").glob("*.h")))


def test_codes_are_those_of_the_header(root):
    text = (root / "include/k7m/errors.h").read_text()
    declared = dict(re.findall(r"^ *(kQiroK7M\w+) = (\d+)", text, re.MULTILINE))
    assert len(declared) > 50
    ours = {c.name: str(c.value) for codes in (k7m.ErrorCode, k7m.WarningCode) for c in codes}
    assert ours == declared


@pytest.mark.parametrize("name", RECORDS)
def test_records_are_those_of_the_headers(root, name):
    before, _, after = headers(root).partition(f"typedef struct {name} {{\n")
    size = re.findall(r"(\d+)(?:\n///)? bytes\.", before[before.rindex("\n\n") :])[0]
    assert ctypes.sizeof(RECORDS[name]) == int(size)
    body = re.sub(r"//.*|#ifdef[^#]*#endif", "", after[: after.index(f"}} {name};")])
    fields = re.findall(r"\(\*(\w+)\)\(|(\w+)(?:\[\d+\])?;", body)
    assert [a or b for a, b in fields] == [name for name, _ in RECORDS[name]._fields_]


def test_an_error_has_name_code_and_text():
    error = k7m.K7MError(6)
    assert error.code is k7m.ErrorCode.kQiroK7MErrorNoMovieBox
    assert error.name == "kQiroK7MErrorNoMovieBox"
    assert str(error).startswith("kQiroK7MErrorNoMovieBox (6): ")
    assert pickle.loads(pickle.dumps(error)).code == 6


def test_an_unknown_code_is_a_number():
    error = k7m.K7MError(77777)
    assert error.code == 77777
    assert not isinstance(error.code, k7m.ErrorCode)


def test_versions_are_those_of_the_build(root):
    cmake = (root / "CMakeLists.txt").read_text()
    version = re.search(r"^  VERSION (\S+)", cmake, re.MULTILINE)[1]
    binary = re.search(r"^set\(K7M_SOVERSION (\d+)\)", cmake, re.MULTILINE)[1]
    assert f'version = "{version}"' in (root / "python/pyproject.toml").read_text()
    assert _library.SONAME == f"libK7M.so.{binary}"
    assert k7m.library_version()

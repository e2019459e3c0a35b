"""K7R files: what is in them in the end, and that they can be continued."""

import io
import os
import subprocess

import k7m
import pytest

TOOL = os.environ.get("K7M_TOOL")


def add_track(writer: k7m.Writer) -> k7m.NewTrack:
    return writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])


def test_a_block_that_raises_keeps_what_was_recorded():
    file = io.BytesIO()
    with pytest.raises(LookupError):
        with k7m.RecordingWriter(file) as writer:
            track = add_track(writer)
            for time, data in enumerate((b"one", b"two")):
                writer.start_fragment()
                writer.write_access_point(track, k7m.NewSample(data, time, is_key=True))
            raise LookupError
    with k7m.open(file) as document:
        assert [s.read() for s in document.media_samples()] == [b"one", b"two"]


@pytest.mark.parametrize("options, fits", [({}, 100), ({"max_gaps": 3}, 3)])
def test_a_track_has_room_for_gaps(options, fits):
    description = k7m.VideoDescription("raw ", b"", 4, 4)
    writer = k7m.RecordingWriter(io.BytesIO())
    track = writer.add_track("vide", 25, [description], **options)
    writer.start_fragment()

    def write_gap(i: int) -> None:
        writer.write_access_point(track, k7m.NewSample(b"pixels", 4 * i, is_key=True))
        writer.write_sample(track, k7m.NewSample(b"", 4 * i + 1, is_gap=True))

    for i in range(fits):
        write_gap(i)
    with pytest.raises(k7m.K7MError) as caught:
        for i in range(fits, fits + 3):
            write_gap(i)
    assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorEditListFull


@pytest.mark.skipif(not TOOL, reason="the tool was not built")
def test_a_recording_can_be_continued_again_and_again(tmp_path):
    # One track is shorter than the other, so that each continuation leaves a gap in it and in the
    # hint track.
    for name in "recording", "more":
        with k7m.RecordingWriter(tmp_path / name) as writer:
            short, long = add_track(writer), add_track(writer)
            samples = [(short, 0), (long, 0), (long, 1)]
            writer.write_fragments([[(t, k7m.NewSample(b"pixels", at)) for t, at in samples]])
    for _ in range(5):
        command = [TOOL, "append", tmp_path / "recording", tmp_path / "more"]
        subprocess.run(command, check=True, capture_output=True)
    with k7m.open(tmp_path / "recording") as document:
        assert document.tracks[0].gap_count == 5
        assert [document.sample_count(number) for number in (1, 2)] == [6, 12]

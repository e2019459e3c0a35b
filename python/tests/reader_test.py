"""Reading, against what ffprobe says about the same files."""

import io
import json
import subprocess
from fractions import Fraction

import k7m
import pytest

BOTH = ["h264-bframes-aac.mp4", "co64-moov-last.mp4", "fragmented-base-is-moof.mp4"]


def packets(path, stream: str) -> list[dict]:
    command = [
        "ffprobe", "-v", "error", "-ignore_editlist", "1", "-of", "json",
        "-show_entries", "packet=dts,pts,size,pos", "-select_streams", stream, path,
    ]  # fmt: skip
    return json.loads(subprocess.run(command, check=True, capture_output=True).stdout)["packets"]


@pytest.mark.parametrize("name", BOTH)
@pytest.mark.parametrize("number, stream", [(1, "v"), (2, "a")])
def test_samples_are_the_packets_of_ffprobe(clips, name, number, stream):
    content = (clips / name).read_bytes()
    expected = packets(clips / name, stream)
    with k7m.open(clips / name) as document:
        samples = list(document.media_samples([number]))
        assert document.sample_count(number) == len(expected) == len(samples) > 0
        for sample, packet in zip(samples, expected):
            assert sample.track_number == number
            assert sample.description_number == 1
            assert (sample.decode_time, sample.composition_time) == (packet["dts"], packet["pts"])
            position = int(packet["pos"])
            assert sample.read() == content[position : position + int(packet["size"])]


def test_a_file_object_gives_what_its_file_gives(clips):
    path = clips / "h264-bframes-aac.mp4"
    with k7m.open(path) as first, k7m.open(io.BytesIO(path.read_bytes())) as second:
        assert first.info == second.info
        assert first.tracks == second.tracks
        assert list(first.media_samples()) == list(second.media_samples())


def test_the_position_of_a_file_object_is_of_no_account(clips):
    file = io.BytesIO((clips / "video-only.mp4").read_bytes())
    file.seek(1000)
    with k7m.open(file) as document:
        for sample in document.media_samples():
            file.seek(0, io.SEEK_END)
            assert len(sample.read()) == sample.size
    assert not file.closed


def test_tracks_and_descriptions(clips):
    with k7m.open(clips / "two-descriptions-two-audio.mp4") as document:
        video, sound, _ = document.tracks
        assert [(d.coding, d.width, d.height) for d in video.descriptions] == [
            ("avc1", 320, 180),
            ("avc1", 160, 120),
        ]
        assert video.descriptions[0].codec_header[4:8] == b"avcC"
        assert (sound.descriptions[0].coding, sound.descriptions[0].sample_rate) == ("mp4a", 44100)
        assert [t.media_type for t in document.tracks] == ["vide", "soun", "soun"]
        assert sound.edits[0].media_time == 1024
        numbers = [s.description_number for s in document.media_samples([video])]
        assert numbers == [1] * 25 + [2] * 25


def test_a_range_of_the_presentation(clips):
    with k7m.open(clips / "video-only.mp4") as document:
        scale = document.tracks[0].time_scale
        times = [Fraction(s.decode_time, scale) for s in document.samples(0.5, 1)]
        assert times[0] == Fraction(13, 25) and times[-1] == 1
        assert len(list(document.samples())) == 50
        assert len(list(document.samples(tracks=[]))) == 0


def test_a_track_that_is_not_there(clips):
    with k7m.open(clips / "video-only.mp4") as document:
        for number in 0, 2, -1:
            with pytest.raises(IndexError):
                document.media_samples([number])
        with pytest.raises(ValueError):
            document.samples(-1)


def test_samples_outlive_the_walk_and_the_walk_its_variable(clips):
    samples = list(k7m.open(clips / "pcm.mov").media_samples())[:100]
    assert samples[99].read() != b""


def test_metadata_and_document_information(clips, tmp_path):
    with k7m.open(clips / "video-only.mp4") as document:
        assert document.metadata() == b""
        assert document.info.time_scale == 1000 and not document.info.is_fragmented
    with k7m.open(clips / "fragmented-empty-moov.mp4") as document:
        assert document.info.is_fragmented


def test_what_is_no_document_is_refused(clips, tmp_path):
    with pytest.raises(k7m.K7MError) as caught:
        k7m.open(io.BytesIO(b"\0\0\0\x08free"))
    assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorNoMovieBox
    with pytest.raises(FileNotFoundError):
        k7m.open(tmp_path / "none.mp4")
    assert k7m.is_k7m(clips / "pcm.mov")
    assert not k7m.is_k7m(io.BytesIO(b"\0\0\0\x08free"))


@pytest.fixture
def cut_file() -> bytes:
    """A document of two samples whose movie box stands in front and whose end is missing."""
    file = io.BytesIO()
    with k7m.Writer(file) as writer:
        description = k7m.VideoDescription("raw ", b"", 4, 4)
        track = writer.add_track("vide", 25, [description], max_samples=2)
        track.write([k7m.NewSample(b"first", 0), k7m.NewSample(b"second", 1)])
    return file.getvalue()[:-3]


def test_a_sample_that_is_cut_off_is_refused(cut_file):
    with k7m.open(io.BytesIO(cut_file)) as document:
        first, second = document.media_samples()
        assert first.read() == b"first"
        with pytest.raises(k7m.K7MError) as caught:
            second.read()
        assert caught.value.name == "kQiroK7MErrorSampleDataShort"


def test_a_size_that_is_a_lie_takes_no_memory(cut_file):
    size = (6).to_bytes(4, "big")
    assert cut_file.count(size) == 1
    with k7m.open(io.BytesIO(cut_file.replace(size, b"\xff" * 4))) as document:
        _, second = document.media_samples()
        assert second.size == 0xFFFFFFFF
        with pytest.raises(k7m.K7MError) as caught:
            second.read()
        assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorSampleDataShort


def test_warnings_are_told_and_may_end_it(cut_file):
    told = []
    with k7m.open(io.BytesIO(cut_file), on_warning=told.append) as document:
        assert len(document.tracks) == 1
    assert told == [k7m.WarningCode.kQiroK7MWarningBoxPastEndOfStream]
    with pytest.raises(k7m.K7MError) as caught:
        k7m.open(io.BytesIO(cut_file), on_warning=lambda code: False)
    assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorAbortedByWarningHandler

    def refuse(code):
        raise LookupError(code)

    with pytest.raises(LookupError):
        k7m.open(io.BytesIO(cut_file), on_warning=refuse)

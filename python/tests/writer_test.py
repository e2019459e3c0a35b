"""Writing: what comes back when it is read, and what ffmpeg decodes of it."""

import datetime
import io

import k7m
import pytest
from conftest import frame_hashes


def copy(document: k7m.Reader, writer: k7m.Writer) -> None:
    tracks = {
        t.number: writer.add_track_like(t, max_samples=document.sample_count(t))
        for t in document.tracks
    }
    writer.write(
        (tracks[s.track_number], k7m.NewSample.copy_of(s)) for s in document.media_samples()
    )


def facts(document: k7m.Reader) -> list:
    return [
        [
            (s.decode_time, s.composition_offset, s.is_key, s.description_number, s.read())
            for s in document.media_samples([track])
        ]
        for track in document.tracks
    ]


@pytest.mark.parametrize("is_fragmented", [False, True])
@pytest.mark.parametrize("name", ["h264-bframes-aac.mp4", "two-descriptions-two-audio.mp4"])
def test_a_copy_decodes_to_the_same_frames(clips, tmp_path, name, is_fragmented):
    target = tmp_path / "copy.mp4"
    with k7m.open(clips / name) as document:
        with k7m.Writer(target, is_fragmented=is_fragmented) as writer:
            copy(document, writer)
        with k7m.open(target) as second:
            assert second.info.is_fragmented == is_fragmented
            assert facts(second) == facts(document)
            assert [t.descriptions for t in second.tracks] == [
                t.descriptions for t in document.tracks
            ]
    hashes = frame_hashes(target)
    assert len(hashes) == 50
    assert hashes == frame_hashes(clips / name)


def test_pictures_of_an_iterator(tmp_path):
    target = tmp_path / "pictures.mov"
    pictures = [bytes([i]) * 8 * 8 * 3 for i in range(10)]
    with k7m.Writer(target) as writer:
        track = writer.add_track(
            "vide", 25, [k7m.VideoDescription("raw ", b"", 8, 8)], max_samples=10, width=8, height=8
        )
        track.write(k7m.NewSample(p, i, is_key=True) for i, p in enumerate(pictures))
    with k7m.open(target) as document:
        assert [s.read() for s in document.media_samples()] == pictures
        assert (document.tracks[0].width, document.tracks[0].language) == (8, "und")
    assert len(frame_hashes(target)) == 10


def test_the_document_and_its_tracks_say_what_they_were_told():
    file = io.BytesIO()
    when = datetime.datetime(2024, 2, 29, 12, 30, 15, tzinfo=datetime.timezone.utc)
    with k7m.Writer(file, time_scale=600, creation_time=when, play_rate=2.0) as writer:
        sound = k7m.AudioDescription("sowt", b"", 48000.0, 1, 8)
        track = writer.add_track(
            "soun", 48000, [sound], max_samples=2, max_gaps=2, language="deu",
            handler_name="Ton", has_dependencies=True,
        )  # fmt: skip
        text = writer.add_track("text", 10, [k7m.OtherDescription("tx3g", b"12345678")], max_samples=1)
        writer.set_metadata(memoryview(b"packet"))
        track.write(
            [
                k7m.NewSample(b"ab", 0, -3, dependency=0x18),
                k7m.NewSample(b"", 100, is_gap=True),
                k7m.NewSample(bytearray(b"cd"), 48000, is_key=True),
            ]
        )
        text.write([k7m.NewSample(b"words", 5)])
    with k7m.open(file) as document:
        assert document.metadata() == b"packet"
        assert document.info.creation_time == when
        assert (document.info.time_scale, document.info.play_rate) == (600, 2.0)
        sound_track, text_track = document.tracks
        assert (sound_track.language, sound_track.handler_name) == ("deu", "Ton")
        assert sound_track.descriptions == (sound,)
        assert text_track.descriptions[0] == k7m.OtherDescription("tx3g", b"12345678")
        samples = list(document.samples(tracks=[sound_track]))
        assert [s.is_gap for s in samples] == [False, True, False]
        assert (samples[0].composition_offset, samples[0].dependency) == (-3, 0x18)
        assert samples[1].read() == b"" and samples[1].description_number is None
        assert samples[2].read() == b"cd" and samples[2].is_key


def test_a_refused_sample_leaves_the_writer_good():
    file = io.BytesIO()
    with k7m.Writer(file, is_fragmented=True) as writer:
        track = writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
        track.write([k7m.NewSample(b"one", 5)])
        with pytest.raises(k7m.K7MError) as caught:
            track.write([k7m.NewSample(b"two", 4)])
        assert caught.value.name == "kQiroK7MErrorDecodeTimeBackwards"
        with pytest.raises(OverflowError):
            track.write([k7m.NewSample(b"two", -1)])
        with pytest.raises(IndexError):
            track.write([k7m.NewSample(b"two", 6, description_number=2)])
        track.write([k7m.NewSample(b"two", 6)])
    with k7m.open(file) as document:
        assert [s.read() for s in document.media_samples()] == [b"one", b"two"]


def test_a_block_that_raises_does_not_complete_the_document(tmp_path):
    target = tmp_path / "broken.mp4"
    with pytest.raises(LookupError):
        with k7m.Writer(target, is_fragmented=True) as writer:
            track = writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
            track.write([k7m.NewSample(b"one", 5)])
            raise LookupError
    assert writer.is_closed
    assert b"moof" not in target.read_bytes()


def test_a_plain_document_takes_no_more_samples_than_were_told():
    with k7m.Writer(io.BytesIO()) as writer:
        track = writer.add_track(
            "vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)], max_samples=1
        )
        track.write([k7m.NewSample(b"one", 0)])
        with pytest.raises(k7m.K7MError) as caught:
            track.write([k7m.NewSample(b"two", 1)])
        assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorSampleTableFull
        writer.discard()


def test_a_plain_document_is_told_at_once_that_it_needs_a_number_of_samples(clips):
    description = k7m.VideoDescription("raw ", b"", 4, 4)
    with k7m.open(clips / "video-only.mp4") as document:
        with k7m.Writer(io.BytesIO()) as writer:
            with pytest.raises(ValueError, match="max_samples"):
                writer.add_track("vide", 25, [description])
            with pytest.raises(ValueError, match="max_samples"):
                writer.add_track_like(document.tracks[0])
            # A track may be without samples.
            writer.add_track("vide", 25, [description], max_samples=0)


@pytest.mark.parametrize("is_fragmented", [False, True])
def test_what_was_flushed_is_a_document(is_fragmented):
    file = io.BytesIO()
    with pytest.raises(LookupError):
        with k7m.Writer(file, is_fragmented=is_fragmented) as writer:
            description = k7m.VideoDescription("raw ", b"", 4, 4)
            track = writer.add_track("vide", 25, [description], max_samples=2)
            track.write([k7m.NewSample(b"one", 5)])
            writer.flush()
            track.write([k7m.NewSample(b"two", 6)])
            raise LookupError
    with k7m.open(file) as document:
        assert [s.read() for s in document.media_samples()] == [b"one"]

"""K7R files: written in fragments, and served by the fragment."""

import io

import k7m
import pytest

SIZES = [3, 1, 2]  # Samples of each fragment.


def write_recording(file, bootstrap: bytes = b"") -> list[int]:
    with k7m.RecordingWriter(file) as writer:
        track = writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
        if not bootstrap:
            time = iter(range(100))
            return writer.write_fragments(
                [(track, k7m.NewSample(b"picture%d" % i, next(time), is_key=i == 0)) for i in range(n)]
                for n in SIZES
            )
        offsets = [writer.start_fragment(bootstrap)]
        writer.write_access_point(track, k7m.NewSample(b"picture", 0, is_key=True))
        return offsets


def index_of(offsets: list[int]) -> bytes:
    """An 'afra' box with a local entry for each fragment."""
    entries = b"".join(bytes(8) + offset.to_bytes(8, "big") for offset in offsets)
    head = b"afra\0\0\0\0\xc0" + (1000).to_bytes(4, "big") + len(offsets).to_bytes(4, "big")
    return (len(head) + len(entries) + 4).to_bytes(4, "big") + head + entries


def test_fragments_are_the_bytes_between_their_offsets():
    file = io.BytesIO()
    offsets = write_recording(file)
    content = file.getvalue()
    ends = [*offsets[1:], len(content)]
    expected = [content[begin:end] for begin, end in zip(offsets, ends)]
    assert [f[4:8] for f in expected] == [b"afra"] * 3
    with k7m.FragmentQuery(file) as query, k7m.FragmentQuery(
        file, io.BytesIO(index_of(offsets))
    ) as indexed:
        assert [query.fragment(n) for n in (1, 2, 3)] == expected
        assert [indexed.fragment(n) for n in (3, 1, 2)] == [expected[n] for n in (2, 0, 1)]


def test_a_recording_is_a_document():
    file = io.BytesIO()
    write_recording(file)
    with k7m.open(file) as document:
        video, hint = document.tracks
        assert (video.media_type, hint.media_type) == ("vide", "hint")
        samples = list(document.media_samples([video]))
        assert [s.read() for s in samples] == [b"picture%d" % i for n in SIZES for i in range(n)]
        assert [s.decode_time for s in samples] == list(range(6))


def test_a_bootstrap_box_stands_in_its_fragment():
    file = io.BytesIO()
    write_recording(file, b"boot")
    with k7m.FragmentQuery(file) as query:
        assert b"abst\0\0\0\0boot" in query.fragment(1)


def test_fragments_that_are_not_there(tmp_path):
    path = tmp_path / "live.k7r"
    write_recording(path)
    with k7m.FragmentQuery(path) as query:
        for number in 0, 4:
            with pytest.raises(k7m.K7MError) as caught:
                query.fragment(number)
            assert caught.value.name == "kQiroK7MErrorFragmentNotFound"
        with pytest.raises(OverflowError):
            query.fragment(1 << 32)
        assert query.fragment(1)
    with pytest.raises(ValueError, match="closed"):
        query.fragment(1)


def test_an_index_that_is_none():
    file = io.BytesIO()
    write_recording(file)
    with pytest.raises(k7m.K7MError) as caught:
        k7m.FragmentQuery(file, io.BytesIO(b"short"))
    assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorBadFragmentIndex
    with pytest.raises(FileNotFoundError):
        k7m.FragmentQuery(file, "/no/such/index")


def test_a_sample_outside_fragments_is_refused():
    with k7m.RecordingWriter(io.BytesIO()) as writer:
        track = writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
        with pytest.raises(k7m.K7MError) as caught:
            track.write([k7m.NewSample(b"one", 0)])
        assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorNoTimeOrigin

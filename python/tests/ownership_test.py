"""Handles are released once and in order, whatever is done with the objects."""

import gc
import io
import threading

import k7m
import pytest
from k7m import _handles


@pytest.fixture
def content(clips) -> bytes:
    return (clips / "h264-bframes-aac.mp4").read_bytes()


def test_nothing_can_be_done_with_what_is_left_of_a_closed_reader(content):
    document = k7m.open(io.BytesIO(content))
    walk = document.media_samples()
    sample = next(walk)
    document.close()
    document.close()
    for use in (
        lambda: next(walk),
        sample.read,
        document.metadata,
        document.media_samples,
        lambda: document.info,
        lambda: document.sample_count(1),
    ):
        with pytest.raises(ValueError, match="closed"):
            use()
    walk.close()
    assert document.tracks[0].number == 1 and sample.size > 0  # Values stay.


def test_a_walk_keeps_its_reader_alive(content):
    walk = k7m.open(io.BytesIO(content)).media_samples()
    gc.collect()
    assert sum(len(s.read()) for s in walk) > 0
    sample = next(k7m.open(io.BytesIO(content)).media_samples())
    gc.collect()
    assert len(sample.read()) == sample.size


def test_a_walk_that_was_closed_gives_nothing(content):
    with k7m.open(io.BytesIO(content)) as document:
        with document.media_samples() as walk:
            sample = next(walk)
        with pytest.raises(ValueError, match="closed"):
            next(walk)
        assert len(sample.read()) == sample.size


@pytest.fixture
def released(monkeypatch) -> list[str]:
    """The names of the release functions in the order of their calls."""
    names: list[str] = []
    adopt = _handles.Owner.adopt

    def spy(self, pointer, release):
        def run(pointer):
            names.append(release.__name__)
            return release(pointer)

        return adopt(self, pointer, run)

    monkeypatch.setattr(_handles.Owner, "adopt", spy)
    init = _handles.Owner.__init__

    def spy_init(self, pointer, close, *more):
        def run(pointer):
            names.append(close.__name__)
            return close(pointer)

        init(self, pointer, run, *more)

    monkeypatch.setattr(_handles.Owner, "__init__", spy_init)
    return names


def test_the_reader_is_released_last_also_in_a_cycle(content, released):
    cycle = {}
    document = k7m.open(io.BytesIO(content))
    walk = document.media_samples()
    cycle["all"] = [document, walk, next(walk), next(walk), cycle]
    del document, walk, cycle
    gc.collect()
    assert released[-1] == "QiroK7MCloseReader"
    assert released.count("QiroK7MCloseReader") == 1
    assert released.count("QiroK7MReleaseSample") == 2
    assert released.count("QiroK7MReleaseSampleIterator") == 1


def test_samples_are_released_as_the_walk_goes_on(content, released):
    with k7m.open(io.BytesIO(content)) as document:
        count = sum(1 for _ in document.media_samples())
        assert released.count("QiroK7MReleaseSample") >= count - 2
    assert released.count("QiroK7MReleaseSample") == count == 138


def test_a_reader_that_fails_to_open_leaves_the_file_object_open(content):
    file = io.BytesIO(content[:100])
    with pytest.raises(k7m.K7MError):
        k7m.open(file)
    assert not file.closed


def test_the_file_of_a_path_is_closed(clips):
    document = k7m.open(clips / "video-only.mp4")
    file = document._stream._file
    walk = document.media_samples()
    del document
    assert not file.closed
    del walk
    gc.collect()
    assert file.closed


def test_a_file_object_cannot_use_its_own_reader(content):
    class Meddling(io.BytesIO):
        action = None

        def read(self, *arguments):
            if self.action:
                self.action()
            return super().read(*arguments)

    for name in "close", "metadata":
        file = Meddling(content)
        document = k7m.open(file)
        sample = next(document.media_samples())
        file.action = getattr(document, name)
        with pytest.raises(RuntimeError):
            sample.read()
        file.action = None
        assert len(sample.read()) == sample.size
        document.close()


def test_a_file_object_may_drop_what_it_reads(content):
    held = []

    class Dropping(io.BytesIO):
        def read(self, *arguments):
            held.clear()
            gc.collect()
            return super().read(*arguments)

    with k7m.open(Dropping(content)) as document:
        walk = document.media_samples()
        for sample in walk:
            held.append(next(walk, None))
            assert len(sample.read()) == sample.size


def test_threads_take_turns(content):
    document = k7m.open(io.BytesIO(content))
    expected = [s.read() for s in document.media_samples()]
    results = []

    def read():
        results.append([s.read() for s in document.media_samples()])

    threads = [threading.Thread(target=read) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == [expected] * 4


def test_closing_while_another_thread_reads(content):
    for _ in range(20):
        document = k7m.open(io.BytesIO(content))
        ends = []

        def read():
            try:
                while True:
                    for sample in document.media_samples():
                        sample.read()
            except ValueError:
                ends.append("closed")

        thread = threading.Thread(target=read)
        thread.start()
        document.close()
        thread.join()
        assert ends == ["closed"]


def test_nobody_closes_between_a_call_and_the_note_of_what_it_gave(content, released, monkeypatch):
    document = k7m.open(io.BytesIO(content))
    walk = document.media_samples()
    thread = threading.Thread(target=document.close)
    adopt = _handles.Owner.adopt

    def spy(*arguments):
        thread.start()
        thread.join(0.2)
        return adopt(*arguments)

    monkeypatch.setattr(_handles.Owner, "adopt", spy)
    try:
        next(walk)
    except ValueError:
        pass  # It was closed right after.
    thread.join()
    assert released.count("QiroK7MReleaseSample") == 1
    assert released[-1] == "QiroK7MCloseReader"


def test_a_long_sample_waits_for_its_turn_to_seek_the_file():
    class Slow(io.BytesIO):
        is_reading = False
        is_disturbed = False

        def seek(self, *arguments):
            self.is_disturbed |= self.is_reading
            return super().seek(*arguments)

        def read(self, *arguments):
            if thread.ident is None:  # Not started.
                self.is_reading = True
                thread.start()
                thread.join(0.2)
                self.is_reading = False
            return super().read(*arguments)

    content = io.BytesIO()
    with k7m.Writer(content) as writer:
        track = writer.add_track(
            "vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)], max_samples=1
        )
        track.write([k7m.NewSample(bytes(2 << 20), 0)])
    thread = threading.Thread(target=lambda: None)
    thread.start()
    file = Slow(content.getvalue())
    with k7m.open(file) as document:
        (sample,) = document.media_samples()
        results = []
        thread = threading.Thread(target=lambda: results.append(sample.read()))
        results.append(sample.read())
        thread.join()
    assert results == [bytes(2 << 20)] * 2
    assert not file.is_disturbed


def test_a_writer_that_was_closed_refuses(clips):
    writer = k7m.Writer(io.BytesIO(), is_fragmented=True)
    track = writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
    writer.write_sample(track, k7m.NewSample(b"abc", 0))
    writer.close()
    writer.close()
    for use in (
        lambda: writer.write_sample(track, k7m.NewSample(b"abc", 1)),
        lambda: writer.set_metadata(b"abc"),
        writer.flush,
    ):
        with pytest.raises(ValueError, match="closed"):
            use()


@pytest.mark.filterwarnings("error::pytest.PytestUnraisableExceptionWarning")
def test_a_writer_that_is_dropped_with_its_file_object_makes_no_noise():
    file = io.BytesIO()
    writer = k7m.Writer(file, is_fragmented=True)
    file.close()
    del writer
    gc.collect()


def test_a_track_of_another_writer_is_refused():
    first = k7m.Writer(io.BytesIO(), is_fragmented=True)
    second = k7m.Writer(io.BytesIO(), is_fragmented=True)
    track = first.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
    with pytest.raises(ValueError, match="another writer"):
        second.write_sample(track, k7m.NewSample(b"abc", 0))

"""Whatever a file object does comes back to the caller; nothing of it harms the library."""

import io

import k7m
import pytest
from k7m.reader import _warning_handler
from k7m.stream import Stream


class Trouble(Exception):
    pass


class Failing(io.BytesIO):
    """Raises at the n-th call of one of its functions."""

    def __init__(self, content: bytes, name: str, calls: int, problem: BaseException):
        super().__init__(content)
        self.left = calls
        self.name = name
        self.problem = problem

    def _count(self, name: str):
        if name == self.name:
            self.left -= 1
            if self.left == 0:
                raise self.problem

    def read(self, *arguments):
        self._count("read")
        return super().read(*arguments)

    def seek(self, *arguments):
        self._count("seek")
        return super().seek(*arguments)

    def write(self, *arguments):
        self._count("write")
        return super().write(*arguments)

    def truncate(self, *arguments):
        self._count("truncate")
        return super().truncate(*arguments)

    def flush(self):
        self._count("flush")


def read_all(file) -> int:
    with k7m.open(file) as document:
        return sum(len(s.read()) for s in document.media_samples())


def write_some(file) -> None:
    with k7m.Writer(file, is_fragmented=True) as writer:
        track = writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
        for i in range(30):
            track.write([k7m.NewSample(b"pixels", i, is_key=True)])
            if i % 10 == 9:
                writer.flush()


@pytest.mark.parametrize("name", ["read", "seek"])
@pytest.mark.parametrize("problem", [Trouble(), KeyboardInterrupt()])
def test_every_failure_while_reading_is_raised(clips, name, problem):
    content = (clips / "fragmented-base-is-moof.mp4").read_bytes()
    for calls in range(1, 100_000):
        file = Failing(content, name, calls, problem)
        try:
            read_all(file)
        except type(problem) as caught:
            assert caught is problem
        else:
            break
    assert file.left > 0 and calls > 20


@pytest.mark.parametrize("name", ["read", "seek", "write", "truncate", "flush"])
def test_every_failure_while_writing_is_raised(name):
    for calls in range(1, 10_000):
        file = Failing(b"", name, calls, Trouble())
        try:
            write_some(file)
        except Trouble:
            continue
        break
    assert file.left > 0
    assert calls > 1 or name in ("read", "truncate")


def test_a_problem_that_the_library_gives_another_code_is_the_cause(clips):
    # Behind an index with global entries nearly every failure is that there is no such fragment.
    index = (
        b"afra\0\0\0\0" + b"\xe0" + (1000).to_bytes(4, "big") + bytes(4) + (1).to_bytes(4, "big")
        + (0).to_bytes(8, "big") + (1).to_bytes(4, "big") * 2 + bytes(16)
    )  # fmt: skip
    index = (len(index) + 4).to_bytes(4, "big") + index
    file = Failing((clips / "video-only.mp4").read_bytes(), "seek", 2, Trouble())
    with k7m.FragmentQuery(file, io.BytesIO(index)) as query:
        with pytest.raises(k7m.K7MError) as caught:
            query.fragment(1)
    assert caught.value.code == k7m.ErrorCode.kQiroK7MErrorFragmentNotFound
    assert isinstance(caught.value.__cause__, Trouble)


class Dying(io.BytesIO):
    """Raises from some time on, at every read something else."""

    problems = None

    def read(self, *arguments):
        if self.problems is None:
            return super().read(*arguments)
        self.problems.append(OSError(len(self.problems)))
        raise self.problems[-1]


def test_a_failure_that_is_reported_later_is_not_lost(clips):
    # The walk reads the next fragment with the last sample of the one before, and tells of the
    # failure when it is asked for more.
    file = Dying((clips / "fragmented-base-is-moof.mp4").read_bytes())
    with k7m.open(file) as document:
        walk = document.media_samples([1])
        file.problems = []
        while not file.problems:
            sample = next(walk)
        with pytest.raises(OSError) as caught:
            sample.read()
        assert caught.value is file.problems[-1] is not file.problems[0]
        with pytest.raises(OSError) as caught:
            next(walk)
        assert caught.value is file.problems[0]


def test_an_interrupt_that_no_call_reported_is_raised_by_closing(clips):
    class Interrupted(Dying):
        def read(self, *arguments):
            try:
                return super().read(*arguments)
            except OSError:
                raise KeyboardInterrupt from None

    def walk_until(file) -> None:
        with k7m.open(file) as document:
            walk = document.media_samples([1])
            file.problems = []
            while not file.problems:
                next(walk)

    content = (clips / "fragmented-base-is-moof.mp4").read_bytes()
    with pytest.raises(KeyboardInterrupt):
        walk_until(Interrupted(content))
    walk_until(Dying(content))  # The sample that could not be read was not asked for.


def recording(file) -> k7m.RecordingWriter:
    """A writer with a fragment to write, which is not in the file."""
    writer = k7m.RecordingWriter(file)
    track = writer.add_track("vide", 25, [k7m.VideoDescription("raw ", b"", 4, 4)])
    writer.start_fragment()
    writer.write_access_point(track, k7m.NewSample(b"pixels", 0, is_key=True))
    return writer


@pytest.mark.parametrize("name", ["seek", "write", "flush"])
@pytest.mark.parametrize("problem", [Trouble(), KeyboardInterrupt()])
def test_a_failure_while_a_writer_ends_is_raised(name, problem):
    file = Failing(b"", name, 0, problem)
    writer = recording(file)
    file.left = 1
    with pytest.raises(type(problem)) as caught:
        writer.discard()
    assert caught.value is problem
    assert writer.is_closed
    writer.discard()


@pytest.mark.parametrize(
    "problem, raised", [(Trouble(), LookupError), (KeyboardInterrupt(), KeyboardInterrupt)]
)
def test_only_an_interrupt_takes_the_place_of_what_ended_the_block(problem, raised):
    file = Failing(b"", "write", 0, problem)
    with pytest.raises(raised):
        with recording(file):
            file.left = 1
            raise LookupError
    assert file.left == 0


def test_closing_a_file_that_was_opened_here_may_fail(tmp_path):
    writer = k7m.Writer(tmp_path / "clip.mp4", is_fragmented=True)
    file = writer._owner._streams[0]._file

    class Full:
        def close(self):
            file.close()
            raise OSError("full")

    writer._owner._streams[0]._file = Full()
    with pytest.raises(OSError, match="full"):
        writer.discard()
    assert writer.is_closed


@pytest.fixture
def stream() -> Stream:
    return Stream(io.BytesIO())


def fail(stream: Stream) -> int:
    """Seeks to before the file. The code that comes of it."""
    code = stream.record.seek(None, -1, 0)
    assert code not in set(k7m.ErrorCode)
    return code


def test_an_old_failure_is_not_taken_for_the_cause_of_another_one(stream):
    old = fail(stream)
    Stream.check(0, [stream])
    for code in (
        k7m.ErrorCode.kQiroK7MErrorAbortedByWarningHandler,
        k7m.ErrorCode.kQiroK7MErrorReadFailed,
    ):
        with pytest.raises(k7m.K7MError) as caught:
            Stream.check(code, [stream])
        assert caught.value.code == code and caught.value.__cause__ is None
    with pytest.raises(ValueError, match="a seek to -1"):
        Stream.check(old, [Stream(io.BytesIO()), stream])


def test_what_a_warning_handler_raised_is_not_raised_when_it_only_refuses_later(stream):
    def handle(code):
        return False if code == 2 else {}[code]

    handler = _warning_handler(handle, stream)
    for code, kind in (1, KeyError), (1, KeyError), (2, k7m.K7MError):
        assert handler.warningCallback(None, 1) == 0
        assert handler.warningCallback(None, code) == 0
        with pytest.raises(kind):
            Stream.check(k7m.ErrorCode.kQiroK7MErrorAbortedByWarningHandler, [stream])


def test_failures_that_nobody_hears_of_do_not_pile_up(stream):
    codes = [fail(stream) for _ in range(1000)]
    assert len(set(codes)) == 1000
    assert len(stream._problems) < 100
    with pytest.raises(ValueError):
        Stream.check(codes[-1], [stream])


class Answering(io.BytesIO):
    answer = None

    def read(self, *arguments):
        return self.answer


@pytest.mark.parametrize(
    "answer, kind",
    [(None, BlockingIOError), ("text", TypeError), (b"x" * 9_000_000, ValueError), (7.5, TypeError)],
)
def test_a_strange_answer_is_an_exception(answer, kind):
    file = Answering(b"0123456789")
    file.answer = answer
    with pytest.raises(kind):
        k7m.open(file)


def test_a_file_object_that_is_none():
    with pytest.raises(AttributeError):
        k7m.open(object())
    with pytest.raises(io.UnsupportedOperation):
        k7m.open(Unseekable())


class Unseekable(io.RawIOBase):
    def readable(self):
        return True


def test_short_reads_are_read_on(clips):
    class Short(io.BytesIO):
        def read(self, size=-1):
            return super().read(min(size, 7))

    content = (clips / "video-only.mp4").read_bytes()
    assert read_all(Short(content)) == read_all(io.BytesIO(content))


def test_short_writes_are_written_on(tmp_path):
    class Short(io.BytesIO):
        def write(self, data):
            return super().write(data[:5])

    short, whole = Short(), io.BytesIO()
    write_some(short)
    write_some(whole)
    assert short.getvalue() == whole.getvalue() != b""

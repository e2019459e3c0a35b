"""Python file objects as the streams that the library reads and writes.

Whatever a file object raises, an interrupt from the keyboard included, is kept while the library
returns, and then raised to the caller: by the call that it ended, or the later one that reports it.
Where the library makes another failure of it, it is the cause of that. What was not raised so far
is raised by closing, when it came up there or is no Exception; an Exception does not take the place
of one that is being handled, and finalizers raise nothing.
"""

import ctypes
import itertools
import os
import sys
from collections.abc import Callable, Iterable
from typing import BinaryIO, Optional, Union

from . import _records as r
from .errors import ErrorCode, K7MError

#: A path, or an object open in binary mode that can be sought. Its own position is of no account:
#: the library's begins at the file's first byte.
File = Union[str, bytes, "os.PathLike[str]", BinaryIO]

# What a callback answers when Python code has raised: this and a number, so that the code tells
# which problem it was when the library reports it in a later call only. No codes of the library's.
_RAISED = 0x5000_0000
_NUMBERS = 1 << 24
# So many are kept, the newest; the library may never report some of them.
_MOST_PROBLEMS = 64
# More is not asked for at once, for a size may be a lie.
_LARGEST_READ = 4 << 20
_LARGEST_OFFSET = (1 << 63) - 1

_numbers = itertools.count()  # Of the problems of all streams.


class Stream:
    """A file object, or the file of a path, with a position of its own.

    A file that was opened here is closed with the stream; a file object stays open.
    """

    def __init__(self, file: File, mode: str = "rb"):
        self._is_ours = isinstance(file, (str, bytes, os.PathLike))
        self._file: BinaryIO = open(file, mode) if self._is_ours else file  # type: ignore
        self._position = 0
        self._problems: dict[int, BaseException] = {}  # By the code that stands for them.
        self._latest: Optional[BaseException] = None  # Of these, since the last check().
        self._warning_problem: Optional[BaseException] = None
        is_writing = mode != "rb"
        record = r.IOStream if is_writing else r.IStream
        self.record = r.make(
            record,
            open=r.PLAIN(self._guard(self._open)),
            close=r.PLAIN(self._guard(self._flush if is_writing else self._nothing)),
            readSome=r.READ_SOME(self._guard(self._read)),
            seek=r.SEEK(self._guard(self._seek)),
            tell=r.TELL(self._guard(self._tell)),
        )
        if is_writing:
            self.record.write = r.WRITE(self._guard(self._write))
            self.record.truncate = r.TRUNCATE(self._guard(self._truncate))

    def length(self) -> int:
        """Bytes in the file now."""
        return self._file.seek(0, os.SEEK_END)

    def close(self) -> None:
        """Closes the file when the stream has opened it. No callback may follow."""
        if self._is_ours:
            self._file.close()

    def note(self, problem: Optional[BaseException]) -> None:
        """Keeps what a warning handler raised while the library was at work; None when it ends
        the work without raising."""
        self._warning_problem = problem

    @staticmethod
    def check(code: int, streams: Iterable["Stream"]) -> None:
        """Raises for every code but 0: what Python code raised, where that is what ended the call,
        or else a K7MError, caused by what a file object raised in this call."""
        latest = None
        for stream in streams:
            latest, stream._latest = latest or stream._latest, None
        if code == ErrorCode.kQiroK7MErrorNone:
            return
        for stream in streams:
            problem = stream._take(code)
            if problem:
                raise problem
        raise K7MError(code) from latest

    @staticmethod
    def close_all(streams: Iterable["Stream"]) -> None:
        """Closes the streams, and raises what was not raised so far."""
        problems: list[BaseException] = []
        for stream in streams:
            problems += stream._end()
        interrupts = [p for p in problems if not isinstance(p, Exception)]
        if interrupts:
            raise interrupts[0]
        if problems and sys.exc_info()[1] is None:
            raise problems[0]

    def _end(self) -> list[BaseException]:
        """Closes the stream. What was not raised: all since the last check(), and what is no
        Exception of earlier times."""
        earlier = *self._problems.values(), self._warning_problem
        problems = [p for p in earlier if p and not isinstance(p, Exception)]
        if self._latest:
            problems.append(self._latest)
        self._problems.clear()
        self._latest = self._warning_problem = None
        try:
            self.close()
        except BaseException as problem:
            problems.append(problem)
        return problems

    def _take(self, code: int) -> Optional[BaseException]:
        if code == ErrorCode.kQiroK7MErrorAbortedByWarningHandler:
            problem, self._warning_problem = self._warning_problem, None
            return problem
        return self._problems.pop(code, None)

    def _guard(self, step: Callable) -> Callable:
        def run(_client_data, *arguments) -> int:
            try:
                step(*arguments)
            except BaseException as problem:  # Nothing may go through the library.
                return self._keep(problem)
            return 0

        return run

    def _keep(self, problem: BaseException) -> int:
        code = _RAISED + next(_numbers) % _NUMBERS
        if len(self._problems) == _MOST_PROBLEMS:
            del self._problems[next(iter(self._problems))]
        self._problems[code] = self._latest = problem
        return code

    def _open(self) -> None:
        self._position = 0

    def _nothing(self) -> None:
        pass

    def _flush(self) -> None:
        if hasattr(self._file, "flush"):
            self._file.flush()

    def _read(self, target: int, size: int, done) -> None:
        done[0] = 0
        self._file.seek(self._position)
        while done[0] < size:
            wanted = min(size - done[0], _LARGEST_READ)
            data = self._file.read(wanted)
            if data is None:
                raise BlockingIOError("the file object has no bytes at the moment")
            data = bytes(data)
            if len(data) > wanted:
                raise ValueError(f"the file object's read({wanted}) gave {len(data)} bytes")
            if not data:
                return
            ctypes.memmove(target + done[0], data, len(data))
            done[0] += len(data)
            self._position += len(data)

    def _seek(self, offset: int, origin: int) -> None:
        base = (0, self._position, None)[origin]
        if base is None:
            base = self.length()
        if not 0 <= base + offset <= _LARGEST_OFFSET:
            raise ValueError(f"a seek to {base + offset}")
        self._position = base + offset

    def _tell(self, position) -> None:
        position[0] = self._position

    def _write(self, source: int, size: int, done) -> None:
        done[0] = 0
        self._file.seek(self._position)
        while done[0] < size:
            count = min(size - done[0], _LARGEST_READ)
            written = self._file.write(ctypes.string_at(source + done[0], count))
            if not written or not 0 < written <= count:
                raise OSError(f"the file object wrote {written} of {count} bytes")
            done[0] += written
            self._position += written

    def _truncate(self, length: int) -> None:
        self._file.truncate(length)

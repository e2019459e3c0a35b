"""Reading documents."""

import ctypes
from collections.abc import Callable, Iterable
from ctypes import byref, c_uint32, c_void_p
from typing import Optional, Union

from . import _records as r
from ._handles import Child, Owner
from ._library import MEMORY, lib
from .errors import ErrorCode, K7MError, warning_code
from .samples import Samples, copy_sample
from .stream import File, Stream
from .tracks import DocumentInfo, Track, list_descriptors, list_tracks, read_document_info, read_track
from .values import Seconds, scaled

#: Data offsets and start times of fragments as ISO/IEC 14496-12 has them; most files need it.
_STANDARD_RULES = 0x3
# The last second that is looked for when a range has no end.
_TEN_YEARS = 315_360_000
_USUAL_SAMPLE = 1 << 20

#: A track, or its number, counted from 1.
TrackChoice = Union[Track, int]


class Reader:
    """A document that is open for reading; a context manager.

    :param file: a path, or an object open in binary mode with `read`, `seek` and `tell`
    :param has_standard_rules: whether data offsets and start times of fragments follow the
        standard. Without it, offsets that a fragment does not give count from the begin of the
        file, and times run on from fragment to fragment
    :param on_warning: is told about irregularities; when it returns False, what was going on fails
        with kQiroK7MErrorAbortedByWarningHandler
    :raises K7MError: when the library refuses the document
    """

    def __init__(
        self,
        file: File,
        *,
        has_standard_rules: bool = True,
        on_warning: Optional[Callable[[int], Optional[bool]]] = None,
    ):
        self._stream = Stream(file)
        try:
            self._warnings = _warning_handler(on_warning, self._stream)
            self._owner = self._open(_STANDARD_RULES if has_standard_rules else 0)
        except BaseException:
            self._stream.close()
            raise
        try:
            self._list_tracks()
        except BaseException:
            self._owner.close()
            raise

    @property
    def info(self) -> DocumentInfo:
        """What the movie header says."""
        return read_document_info(self._owner)

    @property
    def tracks(self) -> tuple[Track, ...]:
        """The tracks in file order."""
        return self._tracks

    def sample_count(self, track: TrackChoice) -> int:
        """How many samples a track has; reads the headers of all fragments."""
        count = c_uint32()
        pointer = self._pointers([track])[0]
        self._owner.call(lib.QiroK7MTrackGetSampleCount, pointer, byref(count))
        return count.value

    def metadata(self) -> bytes:
        """The document's metadata packet; empty when there is none."""
        length = c_uint32()
        self._owner.call(lib.QiroK7MReaderGetUlbDataLength, self._owner, byref(length))
        if length.value == 0:
            return b""
        buffer = (ctypes.c_char * length.value)()
        self._owner.call(
            lib.QiroK7MReaderCopyUlbData, self._owner, ctypes.cast(buffer, c_void_p)
        )
        return buffer.raw

    def media_samples(self, tracks: Optional[Iterable[TrackChoice]] = None) -> Samples:
        """The samples of some tracks, or of all, as they lie in the file: merged by time, without
        edit lists."""
        return self._walk(lib.QiroK7MReaderGetMediaSamples, *self._array(tracks))

    def samples(
        self,
        start: Seconds = 0,
        end: Optional[Seconds] = None,
        tracks: Optional[Iterable[TrackChoice]] = None,
    ) -> Samples:
        """The samples of a range of the presentation, by decode time, with edit lists applied.

        In the first edit that the range touches, the end of the range is deliberately taken as a
        place in the media. Where that edit starts elsewhere in the media than on the presentation
        timeline, the walk ends that much earlier or later: ask for more and look at the sample's
        time.

        :param start: begin of the range in seconds
        :param end: its end; in a plain document a sample at this very time belongs to the range.
            None: ten years
        """
        return self._walk(
            lib.QiroK7MReaderGetSamplesByTracks,
            *scaled(start),
            *scaled(_TEN_YEARS if end is None else end),
            *self._array(tracks),
        )

    @property
    def is_closed(self) -> bool:
        return self._owner.is_closed

    def close(self) -> None:
        """Closes the document; a file object stays open. Samples that were not read cannot be read
        any more."""
        self._owner.close()

    def __enter__(self) -> "Reader":
        return self

    def __exit__(self, *_problem: object) -> None:
        self.close()

    def _open(self, flags: int) -> Owner:
        reader = c_void_p()
        options = r.make(r.ReadOptions, flags=flags)
        code = lib.QiroK7MDocOpenForReadWithOptions(
            byref(self._stream.record),
            byref(self._warnings),
            byref(MEMORY),
            byref(options),
            byref(reader),
        )
        Stream.check(code, (self._stream,))
        return Owner(reader.value, lib.QiroK7MCloseReader, (self._stream,), self._warnings)

    def _list_tracks(self) -> None:
        pointers = list_tracks(self._owner)
        self._track_numbers = {pointer: i + 1 for i, pointer in enumerate(pointers)}
        self._track_pointers = pointers
        self._description_numbers: dict[Optional[int], int] = {}
        tracks = []
        for number, pointer in enumerate(pointers, start=1):
            descriptors = list_descriptors(self._owner, pointer)
            for i, descriptor in enumerate(descriptors):
                self._description_numbers[descriptor] = i + 1
            tracks.append(read_track(self._owner, pointer, number, descriptors))
        self._tracks = tuple(tracks)

    def _pointers(self, tracks: Optional[Iterable[TrackChoice]]) -> list[int]:
        if tracks is None:
            return self._track_pointers
        numbers = [t.number if isinstance(t, Track) else t for t in tracks]
        for number in numbers:
            if not 1 <= number <= len(self._track_pointers):
                raise IndexError(f"no track {number} of {len(self._track_pointers)}")
        return [self._track_pointers[number - 1] for number in numbers]

    def _array(self, tracks: Optional[Iterable[TrackChoice]]) -> tuple[ctypes.Array, int]:
        pointers = self._pointers(tracks)
        # Never an array of no length: a null one could mean all tracks.
        return (c_void_p * (len(pointers) + 1))(*pointers), len(pointers)

    def _walk(self, function: Callable, *arguments: object) -> Samples:
        child = self._owner.obtain(
            lib.QiroK7MReleaseSampleIterator, function, self._owner, *arguments
        )
        return Samples(self, child)

    def _read_sample(self, child: Child, size: int) -> bytes:
        child.pointer  # Raises when the reader is closed, and with it the file.
        # A size in a file is not believed before it could be true: memory is only taken for that.
        if size > _USUAL_SAMPLE and size > self._owner.alone(self._stream.length):
            raise K7MError(ErrorCode.kQiroK7MErrorSampleDataShort)
        return copy_sample(child, size)


def _warning_handler(
    on_warning: Optional[Callable[[int], Optional[bool]]], stream: Stream
) -> r.WarningHandler:
    def tell(_client_data: object, code: int) -> int:
        try:
            if on_warning(warning_code(code)) is not False:
                return 1
            stream.note(None)
        except BaseException as problem:  # Nothing may go through the library.
            stream.note(problem)
        return 0

    return r.make(r.WarningHandler, warningCallback=r.WARNING(tell) if on_warning else r.WARNING())


def is_k7m(file: File) -> bool:
    """Whether a file looks like a document: whether it begins with 'ftyp', 'moov' or 'mdat'."""
    stream = Stream(file)
    try:
        answer = c_uint32()
        code = lib.QiroK7MDocIsK7M(byref(stream.record), byref(MEMORY), byref(answer))
        Stream.check(code, (stream,))
        return answer.value != 0
    finally:
        stream.close()

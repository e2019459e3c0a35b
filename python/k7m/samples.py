"""Samples, and walks over them."""

from collections.abc import Iterator
from ctypes import byref, c_char, c_void_p, cast
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Optional

from . import _records as r
from ._handles import Child
from ._library import lib

if TYPE_CHECKING:
    from .reader import Reader

KEY_FLAG = 0x1
GAP_FLAG = 0x2
KIND_MASK = 0xFF
DEPENDENCY_SHIFT = 8
DEPENDENCY_MASK = 0xFF


@dataclass(frozen=True)
class Sample:
    """A frame of video, a packet of sound, or a gap."""

    track_number: int  #: From 1, in file order.
    description_number: Optional[int]  #: From 1; None for a gap.
    decode_time: int  #: In `time_scale` units.
    composition_offset: int  #: Composition time minus decode time.
    time_scale: int  #: Units per second.
    size: int  #: Bytes.
    is_key: bool
    is_gap: bool
    dependency: int  #: The sample's byte of the dependency table.
    _reader: "Reader" = field(repr=False, compare=False)
    _child: Child = field(repr=False, compare=False)

    @property
    def composition_time(self) -> int:
        """When it is shown, in `time_scale` units."""
        return self.decode_time + self.composition_offset

    def read(self) -> bytes:
        """Its bytes. The reader must be open."""
        return self._reader._read_sample(self._child, self.size)


class Samples(Iterator[Sample]):
    """A walk over samples, forwards and once. Keeps its reader alive; when that is closed, going on
    raises ValueError. After a K7MError the walk may go on: the track that failed has ended."""

    def __init__(self, reader: "Reader", child: Child):
        self._reader = reader
        self._child = child

    def __iter__(self) -> "Samples":
        return self

    def __next__(self) -> Sample:
        found = self._child.owner.obtain(
            lib.QiroK7MReleaseSample, lib.QiroK7MSampleIteratorGetNextEntry, self._child
        )
        if found is None:
            raise StopIteration
        return self._sample(found)

    def close(self) -> None:
        """Ends the walk; what it gave stays."""
        self._child.release()

    def __enter__(self) -> "Samples":
        return self

    def __exit__(self, *_problem: object) -> None:
        self.close()

    def _sample(self, child: Child) -> Sample:
        call = child.owner.call
        info = r.SampleInfo()
        track = c_void_p()
        descriptor = c_void_p()
        call(lib.QiroK7MSampleGetInfo, child, byref(info))
        call(lib.QiroK7MSampleGetTrack, child, byref(track))
        call(lib.QiroK7MSampleGetSampleDescriptor, child, byref(descriptor))
        kind = info.flags & KIND_MASK
        return Sample(
            track_number=self._reader._track_numbers[track.value],
            description_number=self._reader._description_numbers.get(descriptor.value),
            decode_time=info.timeStamp,
            composition_offset=info.compositionOffset,
            time_scale=info.timeScale,
            size=info.sampleSize,
            is_key=kind == KEY_FLAG,
            is_gap=kind == GAP_FLAG,
            dependency=info.flags >> DEPENDENCY_SHIFT & DEPENDENCY_MASK,
            _reader=self._reader,
            _child=child,
        )


def copy_sample(child: Child, size: int) -> bytes:
    if size == 0:
        return b""
    buffer = (c_char * size)()
    child.owner.call(lib.QiroK7MSampleCopyData, child, cast(buffer, c_void_p))
    return buffer.raw

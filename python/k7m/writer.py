"""Writing documents: plain and fragmented ones."""

import datetime
from collections.abc import Callable, Iterable
from ctypes import byref, c_void_p
from dataclasses import dataclass
from typing import Any, Optional

from . import _records as r
from ._loans import Loan
from ._handles import Owner
from ._library import MEMORY, lib
from .samples import DEPENDENCY_SHIFT, GAP_FLAG, KEY_FLAG, Sample
from .stream import File, Stream
from .tracks import AudioDescription, Description, Track, VideoDescription
from .values import code_of, in_range, make_date

_ENABLED_IN_MOVIE_AND_PREVIEW = 7
_HAS_DEPENDENCIES = 1


@dataclass(frozen=True)
class NewSample:
    """A sample to write. Times are in the units of its track's time scale."""

    data: bytes  #: Empty for a gap only.
    decode_time: int
    composition_offset: int = 0  #: Composition time minus decode time.
    is_key: bool = False
    is_gap: bool = False  #: Time passes without media until the next sample.
    dependency: int = 0  #: The sample's byte of the dependency table.
    description_number: int = 1  #: Which of its track's descriptions it needs, from 1.

    @classmethod
    def copy_of(cls, sample: Sample) -> "NewSample":
        """One like a sample that was read, with its bytes."""
        return cls(
            data=sample.read(),
            decode_time=sample.decode_time,
            composition_offset=sample.composition_offset,
            is_key=sample.is_key,
            is_gap=sample.is_gap,
            dependency=sample.dependency,
            description_number=sample.description_number or 1,
        )


class NewTrack:
    """A track that is being written; made by `Writer.add_track()`."""

    def __init__(self, writer: "Writer", pointer: int, media_type: str, time_scale: int):
        self.media_type = media_type
        self.time_scale = time_scale
        self._writer = writer
        self._pointer = pointer
        self._descriptors: list[int] = []
        self._current = 0  # Number of the description in use.

    def write(self, samples: Iterable[NewSample]) -> None:
        """Writes samples in the order of their decode times."""
        for sample in samples:
            self._writer.write_sample(self, sample)


class Writer:
    """A document that is being written; a context manager, which completes it unless the block
    raises.

    Tracks are added before the first sample. The file is written where it lies. One that was not
    completed is a document with what the last `flush()` found, and in a fragmented one with every
    fragment that has ended since; the other samples are lost.

    :param file: a path, whose file is made or overwritten, or an object open in binary mode for
        reading and writing, with `read`, `write`, `seek` and `truncate`; it should be empty
    :param is_fragmented: whether samples go to fragments. A plain document needs to know how many
        samples each track gets
    :param time_scale: units per second of the document's own durations. Edit lists are written
        with 32 bits: what lasts longer than 2^32-1 of these units is cut there for presentation
        queries (119 h at 10,000 a second, 7 minutes at 10,000,000)
    """

    # How many gaps a track has room for.
    _USUAL_GAPS = 1

    def __init__(
        self,
        file: File,
        *,
        is_fragmented: bool = False,
        time_scale: int = 1000,
        creation_time: Optional[datetime.datetime] = None,
        modification_time: Optional[datetime.datetime] = None,
        play_rate: float = 1.0,
        volume: float = 1.0,
    ):
        info = r.make(
            r.DocInfo,
            isFragmented=int(is_fragmented),
            creationTime=make_date(creation_time),
            modificationTime=make_date(modification_time),
            playRate=play_rate,
            volume=volume,
            timeScale=in_range(time_scale, 32, "a time scale"),
        )
        stream = Stream(file, "w+b")
        try:
            self._owner = Owner(self._create(stream, info), lib.QiroK7MDestroyWriter, (stream,))
        except BaseException:
            stream.close()
            raise
        self._is_fragmented = is_fragmented
        self._tracks: list[NewTrack] = []

    def add_track(
        self,
        media_type: str,
        time_scale: int,
        descriptions: Iterable[Description],
        *,
        max_samples: Optional[int] = None,
        width: float = 0,
        height: float = 0,
        volume: float = 1.0,
        language: str = "und",
        handler_name: str = "",
        flags: int = _ENABLED_IN_MOVIE_AND_PREVIEW,
        has_dependencies: bool = False,
        max_gaps: Optional[int] = None,
    ) -> NewTrack:
        """Adds a track.

        :param media_type: four-character code: 'vide', 'soun', ...
        :param time_scale: units per second of the times of its samples
        :param descriptions: how they are coded; those of the media type's kind
        :param max_samples: how many samples there will be at most; needed in a plain document
        :param max_gaps: how many gaps there will be at most; a first sample later than 0 makes one.
            None: 1, and in a `RecordingWriter` 100
        :raises ValueError: for a plain document without `max_samples`
        """
        if max_samples is None and not self._is_fragmented:
            raise ValueError("a plain document needs max_samples (or is_fragmented=True)")
        gaps = self._USUAL_GAPS if max_gaps is None else max_gaps
        descriptions = tuple(descriptions)
        name = handler_name.encode()
        info = r.make(
            r.TrackInfo,
            mediaType=code_of(media_type),
            flags=in_range(flags, 24, "flags"),
            timeScale=in_range(time_scale, 32, "a time scale"),
            creationTime=make_date(None),
            modificationTime=make_date(None),
            width=width,
            height=height,
            volume=volume,
            language=language.encode("ascii")[:3],
            handlerNameLength=len(name),
            trackFlags=_HAS_DEPENDENCIES if has_dependencies and not self._is_fragmented else 0,
        )
        entries = r.make(
            r.TrackEntriesInfo,
            sampleDescriptorCount=len(descriptions),
            gapCount=in_range(gaps, 32, "a number of gaps"),
            maxCodecHeaderDataLength=max((len(d.codec_header) for d in descriptions), default=0),
        )
        track = c_void_p()
        count = in_range(max_samples or 0, 32, "a number of samples")
        self._owner.call(
            lib.QiroK7MWriterAddTrack,
            self._owner, byref(info), byref(entries), count, name, byref(track),
        )  # fmt: skip
        new = NewTrack(self, track.value, media_type, time_scale)
        for description in descriptions:
            self._describe(new, description)
        self._tracks.append(new)
        return new

    def add_track_like(
        self, track: Track, *, max_samples: Optional[int] = None, max_gaps: Optional[int] = None
    ) -> NewTrack:
        """Adds a track with the properties and descriptions of one that was read."""
        return self.add_track(
            track.media_type,
            track.time_scale,
            track.descriptions,
            max_samples=max_samples,
            width=track.width,
            height=track.height,
            volume=track.volume,
            language=track.language,
            handler_name=track.handler_name,
            flags=track.flags,
            has_dependencies=track.has_dependencies,
            max_gaps=max_gaps,
        )

    def set_metadata(self, packet: bytes) -> None:
        """Writes the metadata packet, once, before the first sample."""
        loan = Loan(packet)
        self._owner.call(lib.QiroK7MWriterSetUlb, self._owner, loan, len(loan))

    def write(self, samples: Iterable[tuple[NewTrack, NewSample]]) -> None:
        """Writes the samples of several tracks; those of a track in the order of their decode
        times."""
        for track, sample in samples:
            self.write_sample(track, sample)

    def write_sample(self, track: NewTrack, sample: NewSample) -> None:
        """Writes one sample."""
        self._add(track, sample, lib.QiroK7MWriterAddSample, self._owner)

    def flush(self) -> None:
        """Makes what is in the file a document with everything written so far. In a fragmented
        document this ends the fragment."""
        self._owner.call(lib.QiroK7MWriterFlush, self._owner)

    @property
    def is_closed(self) -> bool:
        return self._owner.is_closed

    def close(self) -> None:
        """Completes the document. Closing again does nothing."""
        if self._owner.is_closed:
            return
        try:
            self._owner.call(lib.QiroK7MCloseWriter, self._owner)
        finally:
            self._owner.close()

    def discard(self) -> None:
        """Ends writing without completing the document. What is in the file stays: see the class. A
        `RecordingWriter` writes its last fragment all the same."""
        self._owner.close()

    def __enter__(self) -> "Writer":
        return self

    def __exit__(self, kind: Optional[type], *_problem: object) -> None:
        if kind is None:
            self.close()
        else:
            self.discard()

    def _create(self, stream: Stream, info: r.DocInfo) -> int:
        writer = c_void_p()
        code = lib.QiroK7MDocCreateNew(
            byref(stream.record), byref(info), byref(MEMORY), byref(writer)
        )
        Stream.check(code, (stream,))
        return writer.value

    def _describe(self, track: NewTrack, description: Description) -> None:
        descriptor = c_void_p()
        function, *record = _description_call(description, track.media_type)
        self._owner.call(
            function,
            self._owner,
            self._pointer_of(track),
            *record,
            Loan(description.codec_header),
            byref(descriptor),
        )
        track._descriptors.append(descriptor.value)
        track._current = len(track._descriptors)

    def _add(
        self, track: NewTrack, sample: NewSample, function: Callable, handle: Any, *more: int
    ) -> None:
        pointer = self._pointer_of(track)
        loan = Loan(sample.data)
        info = _sample_record(track, sample, len(loan))
        self._choose_description(track, sample)
        self._owner.call(function, handle, pointer, byref(info), loan, *more)

    def _choose_description(self, track: NewTrack, sample: NewSample) -> None:
        number = sample.description_number
        if number == track._current or sample.is_gap:
            return
        if not 1 <= number <= len(track._descriptors):
            raise IndexError(f"no description {number} of {len(track._descriptors)}")
        self._owner.call(
            lib.QiroK7MWriterSetSampleDescriptor,
            self._owner, track._pointer, track._descriptors[number - 1],
        )  # fmt: skip
        track._current = number

    def _pointer_of(self, track: NewTrack) -> int:
        # A track of another writer may be gone.
        if track._writer is not self:
            raise ValueError("the track belongs to another writer")
        self._owner.pointer
        return track._pointer


def _sample_record(track: NewTrack, sample: NewSample, size: int) -> r.SampleInfo:
    kind = GAP_FLAG if sample.is_gap else KEY_FLAG if sample.is_key else 0
    dependency = in_range(sample.dependency, 8, "a dependency")
    return r.make(
        r.SampleInfo,
        sampleSize=in_range(size, 32, "the size of a sample"),
        timeStamp=in_range(sample.decode_time, 64, "a decode time"),
        timeScale=track.time_scale,
        compositionOffset=in_range(
            sample.composition_offset, 32, "a composition offset", is_signed=True
        ),
        mediaType=code_of(track.media_type),
        flags=kind | dependency << DEPENDENCY_SHIFT,
    )


def _description_call(description: Description, media_type: str) -> tuple[Any, ...]:
    """The function that adds a description, and those of its arguments that tell it."""
    coding = code_of(description.coding)
    if isinstance(description, VideoDescription):
        video = r.make(
            r.VideoSampleDescInfo,
            width=description.width,
            height=description.height,
            horizontalResolution=description.horizontal_resolution,
            verticalResolution=description.vertical_resolution,
            frameCount=description.frame_count,
            depth=description.depth,
        )
        return lib.QiroK7MWriterAddVideoSampleDescriptorWithType, coding, byref(video)
    if isinstance(description, AudioDescription):
        audio = r.make(
            r.AudioSampleDescInfo,
            sampleRate=description.sample_rate,
            channelCount=description.channel_count,
            sampleSize=description.sample_size,
        )
        return lib.QiroK7MWriterAddAudioSampleDescriptorWithType, coding, byref(audio)
    info = r.make(r.SampleDescInfo, type=coding, mediaType=code_of(media_type))
    return lib.QiroK7MWriterAddSampleDescriptor, byref(info)

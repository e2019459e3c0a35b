"""What is known about documents and tracks, as values of their own: they stay when the reader is
closed."""

import ctypes
import datetime
from collections.abc import Callable, Iterator
from ctypes import byref, c_uint32, c_void_p
from dataclasses import dataclass
from typing import Optional, Union

from . import _records as r
from ._handles import Child, Owner
from ._library import lib
from .errors import ErrorCode, K7MError
from .values import read_date, text_of


@dataclass(frozen=True)
class DocumentInfo:
    """What the movie header says."""

    is_fragmented: bool
    creation_time: Optional[datetime.datetime]
    modification_time: Optional[datetime.datetime]
    play_rate: float
    volume: float
    time_scale: int  #: Units per second of `duration`.
    duration: int


@dataclass(frozen=True)
class VideoDescription:
    """How pictures are coded."""

    coding: str  #: Four-character code, as 'avc1'.
    codec_header: bytes  #: Usually the decoder configuration box.
    width: int
    height: int
    horizontal_resolution: float = 72.0  #: Pixels per inch.
    vertical_resolution: float = 72.0
    frame_count: int = 1  #: Frames per sample.
    depth: int = 24  #: Bits per pixel.


@dataclass(frozen=True)
class AudioDescription:
    """How sound is coded."""

    coding: str  #: Four-character code, as 'mp4a'.
    codec_header: bytes  #: Usually the decoder configuration box.
    sample_rate: float  #: Hertz.
    channel_count: int = 2
    sample_size: int = 16  #: Bits.


@dataclass(frozen=True)
class OtherDescription:
    """How something else is coded."""

    coding: str
    codec_header: bytes


Description = Union[VideoDescription, AudioDescription, OtherDescription]


@dataclass(frozen=True)
class Edit:
    """An entry of an edit list."""

    segment_duration: int  #: In units of the document's time scale.
    media_time: int  #: In units of the track's time scale; -1 for an empty edit.
    rate: int  #: 0 for a media rate of exactly zero, otherwise 1.


@dataclass(frozen=True)
class Track:
    """What a document says about one of its tracks."""

    number: int  #: From 1, in file order.
    media_type: str  #: 'vide', 'soun', ...
    flags: int
    time_scale: int  #: Units per second of the track's times.
    creation_time: Optional[datetime.datetime]
    modification_time: Optional[datetime.datetime]
    duration: int  #: With edits, in `time_scale` units.
    width: float
    height: float
    volume: float
    language: str  #: Three letters.
    handler_name: str
    has_dependencies: bool  #: Whether samples have a dependency byte.
    gap_count: int
    descriptions: tuple[Description, ...]
    edits: tuple[Edit, ...]


def read_document_info(owner: Owner) -> DocumentInfo:
    info = r.DocInfo()
    owner.call(lib.QiroK7MReaderGetDocInfo, owner, byref(info))
    return DocumentInfo(
        is_fragmented=info.isFragmented != 0,
        creation_time=read_date(info.creationTime),
        modification_time=read_date(info.modificationTime),
        play_rate=info.playRate,
        volume=info.volume,
        time_scale=info.timeScale,
        duration=info.duration,
    )


def list_tracks(owner: Owner) -> list[int]:
    """The pointers of all tracks in file order. They belong to the owner."""
    found = owner.obtain(lib.QiroK7MReleaseTrackIterator, lib.QiroK7MReaderGetTracks, owner)
    return list(_entries(found, lib.QiroK7MTrackIteratorGetNextEntry))


def list_descriptors(owner: Owner, track: int) -> list[int]:
    """The pointers of a track's sample descriptors. They belong to the owner."""
    try:
        found = owner.obtain(
            lib.QiroK7MReleaseSampleDescriptorIterator,
            lib.QiroK7MTrackGetSampleDescriptors,
            track,
        )
    except K7MError as error:
        if error.code == ErrorCode.kQiroK7MErrorNoSampleDescriptionBox:
            return []
        raise
    return list(_entries(found, lib.QiroK7MSampleDescriptorIteratorGetNextEntry))


def read_track(owner: Owner, track: int, number: int, descriptors: list[int]) -> Track:
    info = r.TrackInfo()
    entries = r.TrackEntriesInfo()
    owner.call(lib.QiroK7MTrackGetInfo, track, byref(info))
    owner.call(lib.QiroK7MTrackGetEntriesInfo, track, byref(entries))
    media_type = text_of(info.mediaType)
    return Track(
        number=number,
        media_type=media_type,
        flags=info.flags,
        time_scale=info.timeScale,
        creation_time=read_date(info.creationTime),
        modification_time=read_date(info.modificationTime),
        duration=info.duration,
        width=info.width,
        height=info.height,
        volume=info.volume,
        language=info.language.decode("latin-1"),
        handler_name=_read_handler_name(owner, track, info.handlerNameLength),
        has_dependencies=info.trackFlags & 1 != 0,
        gap_count=entries.gapCount,
        descriptions=tuple(_read_description(owner, d, media_type) for d in descriptors),
        edits=tuple(_read_edits(owner, track)),
    )


def _entries(iterator: Child, get_next: Callable) -> Iterator[int]:
    try:
        entry = c_void_p()
        while True:
            iterator.owner.call(get_next, iterator, byref(entry))
            if entry.value is None:
                return
            yield entry.value
    finally:
        iterator.release()


def _read_handler_name(owner: Owner, track: int, length: int) -> str:
    buffer = bytearray(length)
    if length:
        owner.call(lib.QiroK7MReaderCopyHandlerName, track, _address(buffer))
    return bytes(buffer).rstrip(b"\0").decode("utf-8", "replace")


def _read_edits(owner: Owner, track: int) -> Iterator[Edit]:
    count = c_uint32()
    owner.call(lib.QiroK7MTrackGetEditCount, track, byref(count))
    edit = r.Edit()
    for index in range(count.value):
        owner.call(lib.QiroK7MTrackGetEdit, track, index, byref(edit))
        yield Edit(edit.segmentDuration, edit.mediaTime, edit.rate)


def _read_description(owner: Owner, descriptor: int, media_type: str) -> Description:
    info = r.SampleDescInfo()
    owner.call(lib.QiroK7MSampleDescriptorGetInfo, descriptor, byref(info))
    header = bytearray(info.codecHeaderDataLength)
    if header:
        owner.call(
            lib.QiroK7MSampleDescriptorCopyCodecHeaderData, descriptor, _address(header)
        )
    common = text_of(info.type), bytes(header)
    if media_type == "vide":
        video = r.VideoSampleDescInfo()
        owner.call(lib.QiroK7MSampleDescriptorGetVideoInfo, descriptor, byref(video))
        return VideoDescription(
            *common,
            width=video.width,
            height=video.height,
            horizontal_resolution=video.horizontalResolution,
            vertical_resolution=video.verticalResolution,
            frame_count=video.frameCount,
            depth=video.depth,
        )
    if media_type == "soun":
        audio = r.AudioSampleDescInfo()
        owner.call(lib.QiroK7MSampleDescriptorGetAudioInfo, descriptor, byref(audio))
        return AudioDescription(*common, audio.sampleRate, audio.channelCount, audio.sampleSize)
    return OtherDescription(*common)


def _address(buffer: bytearray):
    return ctypes.byref((ctypes.c_char * len(buffer)).from_buffer(buffer))

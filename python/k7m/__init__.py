"""Reads and writes media files in the K7M container, through the shared library libK7M.

    with k7m.open("clip.mp4") as document:
        for sample in document.media_samples():
            print(sample.decode_time, len(sample.read()))

The library is found as the module `_library` tells. Objects may be used on several threads; each
does one thing at a time.
"""

from ._library import library_version
from .errors import ErrorCode, K7MError, WarningCode
from .query import FragmentQuery
from .reader import Reader, is_k7m
from .reader import Reader as open
from .recording import RecordingWriter
from .samples import Sample, Samples
from .stream import File
from .tracks import (
    AudioDescription,
    Description,
    DocumentInfo,
    Edit,
    OtherDescription,
    Track,
    VideoDescription,
)
from .writer import NewSample, NewTrack, Writer

__all__ = [
    "AudioDescription",
    "Description",
    "DocumentInfo",
    "Edit",
    "ErrorCode",
    "File",
    "FragmentQuery",
    "K7MError",
    "NewSample",
    "NewTrack",
    "OtherDescription",
    "Reader",
    "RecordingWriter",
    "Sample",
    "Samples",
    "Track",
    "VideoDescription",
    "WarningCode",
    "Writer",
    "is_k7m",
    "library_version",
    "open",
]

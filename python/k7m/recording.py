"""Writing K7R files: fragmented documents whose fragments start where the caller says."""

from collections.abc import Iterable
from ctypes import byref, c_uint64, c_void_p
from typing import Any

from . import _records as r
from ._loans import Loan
from ._library import MEMORY, lib
from .stream import File, Stream
from .values import make_date
from .writer import NewSample, NewTrack, Writer

_HINT_PROTOCOL = 2
_HANDLER_NAME = b"k7m"
# An 'amto' box that puts the time origin of the file at 0.
_ORIGIN = b"\0\0\0\x0camto\0\0\0\0"


class RecordingWriter(Writer):
    """A K7R file that is being written, as `Writer`. The samples of each fragment stay in memory
    until it is written: by the next `start_fragment()`, by `flush()`, or by closing. Discarding, as
    when a block raises, writes the last fragment too: what was recorded is kept.

    Tracks have room for 100 gaps unless they are told otherwise: each time that the file is
    continued (`k7m append`) may need one.

    :param hint_time_scale: units per second of the times of random access entries
    """

    _USUAL_GAPS = 100

    def __init__(self, file: File, *, hint_time_scale: int = 1000, **options: Any):
        super().__init__(file, **options, is_fragmented=True)
        self._hint_time_scale = hint_time_scale
        self._has_hint_track = False

    def start_fragment(self, bootstrap: bytes = b"") -> int:
        """Starts a fragment and tells where in the file it begins. Needed before the first sample;
        tracks and metadata come before.

        :param bootstrap: the payload of the fragment's 'abst' box; no such box without it. A
            fragment with one needs a sample
        """
        if not self._has_hint_track:
            self._add_hint_track()
        offset = c_uint64()
        self._owner.call(lib.QiroK7RWriterStartFragment, self._recording, byref(offset))
        if bootstrap:
            loan = Loan(bootstrap)
            self._owner.call(lib.QiroK7RWriterAddABST, self._recording, loan, len(loan))
        return offset.value

    def write_access_point(self, track: NewTrack, sample: NewSample) -> None:
        """Writes a sample that gets a random access entry."""
        self._add(track, sample, lib.QiroK7RWriterAddSampleWithAfra, self._recording, 1)

    def write_fragments(
        self, fragments: Iterable[Iterable[tuple[NewTrack, NewSample]]]
    ) -> list[int]:
        """Writes one fragment after the other; the first sample of each gets a random access entry.
        Tells where they begin."""
        offsets = []
        for fragment in fragments:
            offsets.append(self.start_fragment())
            write = self.write_access_point
            for track, sample in fragment:
                write(track, sample)
                write = self.write_sample
        return offsets

    def _create(self, stream: Stream, info: r.DocInfo) -> int:
        recording = c_void_p()
        writer = c_void_p()
        code = lib.QiroK7RDocCreateNew(
            byref(stream.record), byref(info), byref(MEMORY), byref(recording)
        )
        Stream.check(code, (stream,))
        lib.QiroK7RWriterGetK7MWriterRef(recording, byref(writer))
        self._recording = recording.value  # No second writer, but another handle of the same.
        return writer.value

    def _add_hint_track(self) -> None:
        protocol = r.make(r.HintTrackInfo, hintProtocol=_HINT_PROTOCOL)
        info = r.make(
            r.TrackInfo,
            mediaType=0,
            timeScale=self._hint_time_scale,
            creationTime=make_date(None),
            modificationTime=make_date(None),
            language=b"und",
            handlerNameLength=len(_HANDLER_NAME),
        )
        entries = r.make(
            r.TrackEntriesInfo,
            sampleDescriptorCount=1,
            gapCount=self._USUAL_GAPS,
            maxCodecHeaderDataLength=len(_ORIGIN),
        )
        served = (c_void_p * len(self._tracks))(*(t._pointer for t in self._tracks))
        track = c_void_p()
        self._owner.call(
            lib.QiroK7RWriterAddHintTrack,
            self._recording, byref(protocol), byref(info), byref(entries), 0, _HANDLER_NAME,
            served, len(self._tracks), byref(track),
        )  # fmt: skip
        messages = r.make(
            r.VorpSampleDescInfo, hintTrackVersion=1, highestCompatibleVersion=1, maxPacketSize=1400
        )
        descriptor = c_void_p()
        self._owner.call(
            lib.QiroK7MWriterAddVorpSampleDescriptor,
            self._owner, track.value, byref(messages), Loan(_ORIGIN), byref(descriptor),
        )  # fmt: skip
        self._has_hint_track = True

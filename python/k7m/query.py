"""Serving a K7R file fragment by fragment."""

from ctypes import byref, c_uint32, c_void_p, string_at
from typing import Optional

from ._handles import Owner
from ._library import MEMORY, lib, operator_delete
from .stream import File, Stream
from .values import in_range


class FragmentQuery:
    """Answers requests for the fragments of a K7R file; a context manager.

    :param file: the fragments, a path or a file object
    :param index: their index, as `k7m index` makes it. With it a request takes a fixed number of
        reads, and the file may grow; without it the file is parsed now
    """

    def __init__(self, file: File, index: Optional[File] = None):
        streams: tuple[Stream, ...] = ()
        servicer = c_void_p()
        try:
            streams = (Stream(file),)
            if index is not None:
                streams += (Stream(index),)
            code = lib.QiroK7RQueryServicerCreate(
                byref(streams[0].record),
                byref(streams[1].record) if index is not None else None,
                byref(MEMORY),
                byref(servicer),
            )
            Stream.check(code, streams)
        except BaseException:
            for stream in streams:
                stream.close()
            raise
        self._owner = Owner(servicer.value, lib.QiroK7RCloseQueryServicer, streams)

    def fragment(self, number: int, segment: int = 1) -> Optional[bytes]:
        """The bytes of a fragment, counted from 1. None when the index has another segment's in its
        place. After a failure other requests may go on.

        :param segment: its segment, for an index with global entries
        """
        size = c_uint32()
        data = c_void_p()
        self._owner.call(
            lib.QiroK7RQueryServicerGetFragment,
            self._owner,
            in_range(number, 32, "the number of a fragment"),
            in_range(segment, 32, "the number of a segment"),
            byref(size),
            byref(data),
        )
        if data.value is None:
            return None
        try:
            return string_at(data.value, size.value)
        finally:
            operator_delete(data)

    @property
    def is_closed(self) -> bool:
        return self._owner.is_closed

    def close(self) -> None:
        """Ends the use of the files; file objects stay open."""
        self._owner.close()

    def __enter__(self) -> "FragmentQuery":
        return self

    def __exit__(self, *_problem: object) -> None:
        self.close()

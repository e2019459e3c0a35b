"""Finds and loads the shared library and declares its functions.

The library is the one that the environment variable K7M_LIBRARY names, a path; without that the
one that the dynamic linker finds under its SONAME.
"""

import ctypes
import os
from ctypes import POINTER, c_char_p, c_uint32, c_uint64, c_void_p

from . import _records as r

LIBRARY_VARIABLE = "K7M_LIBRARY"
SONAME = "libK7M.so.0"

_HANDLE = c_void_p
_OUT_HANDLE = POINTER(c_void_p)
_OUT_U32 = POINTER(c_uint32)
_OUT_U64 = POINTER(c_uint64)
_BUFFER = POINTER(r.DataBuffer)
_IN = POINTER(r.IStream)
_INOUT = POINTER(r.IOStream)
_MEMORY = POINTER(r.Allocator)
_ENTRIES = POINTER(r.TrackEntriesInfo)

# Functions that answer with a code.
_FUNCTIONS: dict[str, list] = {
    "QiroK7MDocIsK7M": [_IN, _MEMORY, _OUT_U32],
    "QiroK7MDocOpenForReadWithOptions": [
        _IN, POINTER(r.WarningHandler), _MEMORY, POINTER(r.ReadOptions), _OUT_HANDLE,
    ],
    "QiroK7MReaderGetDocInfo": [_HANDLE, POINTER(r.DocInfo)],
    "QiroK7MReaderGetUlbDataLength": [_HANDLE, _OUT_U32],
    "QiroK7MReaderCopyUlbData": [_HANDLE, c_void_p],
    "QiroK7MReaderCopyHandlerName": [_HANDLE, c_void_p],
    "QiroK7MReaderGetTracks": [_HANDLE, _OUT_HANDLE],
    "QiroK7MTrackIteratorGetNextEntry": [_HANDLE, _OUT_HANDLE],
    "QiroK7MTrackGetInfo": [_HANDLE, POINTER(r.TrackInfo)],
    "QiroK7MTrackGetEntriesInfo": [_HANDLE, _ENTRIES],
    "QiroK7MTrackGetSampleCount": [_HANDLE, _OUT_U32],
    "QiroK7MTrackGetEditCount": [_HANDLE, _OUT_U32],
    "QiroK7MTrackGetEdit": [_HANDLE, c_uint32, POINTER(r.Edit)],
    "QiroK7MTrackGetSampleDescriptors": [_HANDLE, _OUT_HANDLE],
    "QiroK7MSampleDescriptorIteratorGetNextEntry": [_HANDLE, _OUT_HANDLE],
    "QiroK7MReleaseSampleDescriptorIterator": [_HANDLE],
    "QiroK7MSampleDescriptorGetInfo": [_HANDLE, POINTER(r.SampleDescInfo)],
    "QiroK7MSampleDescriptorGetVideoInfo": [_HANDLE, POINTER(r.VideoSampleDescInfo)],
    "QiroK7MSampleDescriptorGetAudioInfo": [_HANDLE, POINTER(r.AudioSampleDescInfo)],
    "QiroK7MSampleDescriptorCopyCodecHeaderData": [_HANDLE, c_void_p],
    "QiroK7MReaderGetSamplesByTracks": [
        _HANDLE, c_uint32, c_uint64, c_uint32, c_uint64, POINTER(c_void_p), c_uint32, _OUT_HANDLE,
    ],
    "QiroK7MReaderGetMediaSamples": [_HANDLE, POINTER(c_void_p), c_uint32, _OUT_HANDLE],
    "QiroK7MSampleIteratorGetNextEntry": [_HANDLE, _OUT_HANDLE],
    "QiroK7MSampleGetInfo": [_HANDLE, POINTER(r.SampleInfo)],
    "QiroK7MSampleGetTrack": [_HANDLE, _OUT_HANDLE],
    "QiroK7MSampleGetSampleDescriptor": [_HANDLE, _OUT_HANDLE],
    "QiroK7MSampleCopyData": [_HANDLE, c_void_p],
    "QiroK7MDocCreateNew": [_INOUT, POINTER(r.DocInfo), _MEMORY, _OUT_HANDLE],
    "QiroK7MWriterAddTrack": [
        _HANDLE, POINTER(r.TrackInfo), _ENTRIES, c_uint32, c_char_p, _OUT_HANDLE,
    ],
    "QiroK7MWriterAddSampleDescriptor": [
        _HANDLE, _HANDLE, POINTER(r.SampleDescInfo), _BUFFER, _OUT_HANDLE,
    ],
    "QiroK7MWriterAddVideoSampleDescriptorWithType": [
        _HANDLE, _HANDLE, c_uint32, POINTER(r.VideoSampleDescInfo), _BUFFER, _OUT_HANDLE,
    ],
    "QiroK7MWriterAddAudioSampleDescriptorWithType": [
        _HANDLE, _HANDLE, c_uint32, POINTER(r.AudioSampleDescInfo), _BUFFER, _OUT_HANDLE,
    ],
    "QiroK7MWriterAddVorpSampleDescriptor": [
        _HANDLE, _HANDLE, POINTER(r.VorpSampleDescInfo), _BUFFER, _OUT_HANDLE,
    ],
    "QiroK7MWriterSetSampleDescriptor": [_HANDLE, _HANDLE, _HANDLE],
    "QiroK7MWriterSetUlb": [_HANDLE, _BUFFER, c_uint32],
    "QiroK7MWriterAddFullBox": [_HANDLE, c_uint32, c_uint32, c_uint32, _BUFFER, c_uint32],
    "QiroK7MWriterAddSample": [_HANDLE, _HANDLE, POINTER(r.SampleInfo), _BUFFER],
    "QiroK7MWriterFlush": [_HANDLE],
    "QiroK7MCloseWriter": [_HANDLE],
    "QiroK7RDocCreateNew": [_INOUT, POINTER(r.DocInfo), _MEMORY, _OUT_HANDLE],
    "QiroK7RWriterGetK7MWriterRef": [_HANDLE, _OUT_HANDLE],
    "QiroK7RWriterAddHintTrack": [
        _HANDLE, POINTER(r.HintTrackInfo), POINTER(r.TrackInfo), _ENTRIES, c_uint32, c_char_p,
        POINTER(c_void_p), c_uint32, _OUT_HANDLE,
    ],
    "QiroK7RWriterAddABST": [_HANDLE, _BUFFER, c_uint32],
    "QiroK7RWriterStartFragment": [_HANDLE, _OUT_U64],
    "QiroK7RWriterAddSampleWithAfra": [
        _HANDLE, _HANDLE, POINTER(r.SampleInfo), _BUFFER, c_uint32,
    ],
    "QiroK7RQueryServicerCreate": [_IN, _IN, _MEMORY, _OUT_HANDLE],
    "QiroK7RQueryServicerGetFragment": [_HANDLE, c_uint32, c_uint32, _OUT_U32, _OUT_HANDLE],
    "QiroK7RCloseQueryServicer": [_HANDLE],
}
# Functions without a result.
_PROCEDURES: dict[str, list] = {
    "QiroK7MCloseReader": [_HANDLE],
    "QiroK7MReleaseTrackIterator": [_HANDLE],
    "QiroK7MReleaseSampleIterator": [_HANDLE],
    "QiroK7MReleaseSample": [_HANDLE],
    "QiroK7MDestroyWriter": [_HANDLE],
}
_TEXTS: dict[str, list] = {
    "QiroK7MGetLibraryVersion": [],
    "QiroK7MErrorName": [c_uint32],
    "QiroK7MErrorText": [c_uint32],
}


def _load() -> ctypes.CDLL:
    path = os.environ.get(LIBRARY_VARIABLE) or SONAME
    try:
        library = ctypes.CDLL(path)
        for functions, result in (_FUNCTIONS, c_uint32), (_PROCEDURES, None), (_TEXTS, c_char_p):
            for name, arguments in functions.items():
                function = getattr(library, name)
                function.argtypes = arguments
                function.restype = result
    except (OSError, AttributeError) as problem:
        raise ImportError(
            f"the library libK7M cannot be used: {problem} (set {LIBRARY_VARIABLE} to its path)"
        ) from problem
    return library


lib = _load()

# Records without callbacks: the library takes its memory from the global operators of C++.
MEMORY = r.make(r.Allocator)


def _find_operator_delete():
    # What the library hands out then is freed by operator delete(void*), under the name that it
    # has in the binary interface of C++ on this platform. The library is linked against it.
    function = lib._ZdlPv
    function.argtypes = [c_void_p]
    function.restype = None
    return function


operator_delete = _find_operator_delete()


def library_version() -> str:
    """The build version of the shared library."""
    return lib.QiroK7MGetLibraryVersion().decode()

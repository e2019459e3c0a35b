"""The records of the C interface, field by field as the headers give them."""

import ctypes
from ctypes import (
    CFUNCTYPE,
    POINTER,
    Structure,
    c_char,
    c_float,
    c_int,
    c_int32,
    c_int64,
    c_uint8,
    c_uint16,
    c_uint32,
    c_uint64,
    c_void_p,
)


class DateTime(Structure):
    _fields_ = [
        ("unused", c_uint8),
        ("day", c_uint8),
        ("month", c_uint8),
        ("year", c_uint16),
        ("hour", c_uint8),
        ("minute", c_uint8),
        ("second", c_uint8),
    ]


RELEASE_BUFFER = CFUNCTYPE(None, c_void_p, c_void_p)


class DataBuffer(Structure):
    _fields_ = [
        ("length", c_uint32),
        ("data", c_void_p),
        ("clientData", c_void_p),
        ("release", RELEASE_BUFFER),
    ]


class Allocator(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("clientData", c_void_p),
        ("allocate", c_void_p),
        ("release", c_void_p),
    ]


WARNING = CFUNCTYPE(c_int32, c_void_p, c_uint32)


class WarningHandler(Structure):
    _fields_ = [("size", c_uint32), ("clientData", c_void_p), ("warningCallback", WARNING)]


PLAIN = CFUNCTYPE(c_uint32, c_void_p)
READ_SOME = CFUNCTYPE(c_uint32, c_void_p, c_void_p, c_uint64, POINTER(c_uint64))
SEEK = CFUNCTYPE(c_uint32, c_void_p, c_int64, c_int)
TELL = CFUNCTYPE(c_uint32, c_void_p, POINTER(c_uint64))
WRITE = CFUNCTYPE(c_uint32, c_void_p, c_void_p, c_uint64, POINTER(c_uint64))
TRUNCATE = CFUNCTYPE(c_uint32, c_void_p, c_uint64)


class IStream(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("clientData", c_void_p),
        ("acquire", PLAIN),
        ("release", PLAIN),
        ("open", PLAIN),
        ("close", PLAIN),
        ("readSome", READ_SOME),
        ("seek", SEEK),
        ("tell", TELL),
    ]


class IOStream(Structure):
    _fields_ = [*IStream._fields_, ("write", WRITE), ("truncate", TRUNCATE)]


class DocInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("isFragmented", c_uint32),
        ("creationTime", DateTime),
        ("modificationTime", DateTime),
        ("playRate", c_float),
        ("volume", c_float),
        ("timeScale", c_uint32),
        ("duration", c_uint64),
    ]


class TrackInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("mediaType", c_uint32),
        ("flags", c_uint32),
        ("timeScale", c_uint32),
        ("creationTime", DateTime),
        ("modificationTime", DateTime),
        ("duration", c_uint64),
        ("width", c_float),
        ("height", c_float),
        ("volume", c_float),
        ("language", c_char * 4),
        ("handlerNameLength", c_uint32),
        ("trackFlags", c_uint32),
    ]


class TrackEntriesInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("sampleDescriptorCount", c_uint32),
        ("gapCount", c_uint32),
        ("maxCodecHeaderDataLength", c_uint32),
    ]


class SampleDescInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("codecHeaderDataLength", c_uint32),
        ("type", c_uint32),
        ("mediaType", c_uint32),
    ]


class VideoSampleDescInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("width", c_uint32),
        ("height", c_uint32),
        ("horizontalResolution", c_float),
        ("verticalResolution", c_float),
        ("frameCount", c_uint32),
        ("depth", c_uint32),
    ]


class AudioSampleDescInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("sampleRate", c_float),
        ("channelCount", c_uint16),
        ("sampleSize", c_uint16),
    ]


class VorpSampleDescInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("hintTrackVersion", c_uint16),
        ("highestCompatibleVersion", c_uint16),
        ("maxPacketSize", c_uint16),
        ("unused", c_uint16),
    ]


class SampleInfo(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("sampleSize", c_uint32),
        ("timeStamp", c_uint64),
        ("timeScale", c_uint32),
        ("compositionOffset", c_int32),
        ("mediaType", c_uint32),
        ("flags", c_uint32),
    ]


class Edit(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("rate", c_uint32),
        ("segmentDuration", c_uint64),
        ("mediaTime", c_int64),
    ]


class ReadOptions(Structure):
    _fields_ = [("size", c_uint32), ("flags", c_uint32)]


class HintTrackInfo(Structure):
    _fields_ = [("size", c_uint32), ("hintProtocol", c_uint32)]


def make(record: type, **fields: object):
    """A record with its size filled in and the given fields."""
    return record(size=ctypes.sizeof(record), **fields)

"""Codes of the library, and the exception that carries one."""

import enum

from ._library import lib


class ErrorCode(enum.IntEnum):
    """Result codes, under the names that they have in C."""

    kQiroK7MErrorNone = 0
    kQiroK7MErrorUnknown = 1
    kQiroK7MErrorReadFailed = 5
    kQiroK7MErrorNoMovieBox = 6
    kQiroK7MErrorNoSampleDescriptionBox = 7
    kQiroK7MErrorMediaTypeMismatch = 8
    kQiroK7MErrorTooManyEntries = 9
    kQiroK7MErrorZeroTimeScale = 10
    kQiroK7MErrorEmptySample = 11
    kQiroK7MErrorIncompleteSampleTable = 12
    kQiroK7MErrorInvalidHierarchy = 14
    kQiroK7MErrorSampleDescriptorLimit = 15
    kQiroK7MErrorEditListFull = 16
    kQiroK7MErrorSampleTableFull = 17
    kQiroK7MErrorOutOfMemory = 18
    kQiroK7MErrorStdException = 19
    kQiroK7MErrorInvalidArgument = 20
    kQiroK7MErrorNoMovieHeader = 22
    kQiroK7MErrorBadChunkMap = 23
    kQiroK7MErrorNoTrackFragmentHeader = 24
    kQiroK7MErrorNoTrackExtends = 25
    kQiroK7MErrorFragmentNotAvailable = 26
    kQiroK7MErrorBoxTruncated = 27
    kQiroK7MErrorBadFullBoxHeader = 28
    kQiroK7MErrorTrunSampleCount = 29
    kQiroK7MErrorCttsCount = 30
    kQiroK7MErrorEntryCountTooLarge = 31
    kQiroK7MErrorTrackTypeMismatch = 32
    kQiroK7MErrorTrackTypeUnsupported = 33
    kQiroK7MErrorMoovOffsetMismatch = 36
    kQiroK7MErrorWriteFailed = 47
    kQiroK7MErrorWriterStateBad = 48
    kQiroK7MErrorFragmentNotFound = 1024
    kQiroK7MErrorBadFragmentFile = 1025
    kQiroK7MErrorBadFragmentIndex = 1026
    kQiroK7MErrorInvalidSegmentNumber = 1027
    kQiroK7MErrorAbortedByWarningHandler = 1028
    kQiroK7MErrorUnsupportedVersion = 1029
    kQiroK7MErrorSampleDataShort = 1030
    kQiroK7MErrorFragmentWriterFlush = 1033
    kQiroK7MErrorDecodeTimeBackwards = 1280
    kQiroK7MErrorMovieBoxClosed = 1281
    kQiroK7MErrorMetadataAfterMedia = 1282
    kQiroK7MErrorInvalidTrackId = 1283
    kQiroK7MErrorUnsupportedHintProtocol = 1284
    kQiroK7MErrorExtraBoxAfterMedia = 1285
    kQiroK7MErrorMetadataTooLarge = 1286
    kQiroK7MErrorMetadataAlreadyWritten = 1287
    kQiroK7MErrorDecodeTimeStepTooLarge = 1288
    kQiroK7MErrorNoSampleDescriptionChosen = 1289
    kQiroK7MErrorNoTimeOrigin = 1290
    kQiroK7MErrorSampleOutsideFragment = 1536
    kQiroK7MErrorTrackNotReferenced = 1537
    kQiroK7MErrorHintTrackFlags = 1538
    kQiroK7MErrorSecondHintTrack = 1539
    kQiroK7MErrorNoHintTrack = 1540
    kQiroK7MErrorBootstrapPending = 1541
    kQiroK7MErrorVorpDescriptorNotAlone = 1542
    kQiroK7MErrorAppendNotFragmented = 2048
    kQiroK7MErrorNotOpenedForAppend = 2049
    kQiroK7MErrorAppendNoEditBox = 2050
    kQiroK7MErrorAppendNoEditList = 2051
    kQiroK7MErrorAppendAddTrack = 2052
    kQiroK7MErrorAppendMetadata = 2053


class WarningCode(enum.IntEnum):
    """What reading can survive; see `Reader`'s `on_warning`."""

    kQiroK7MWarningPayloadLength = 3073
    kQiroK7MWarningBoxPastEndOfStream = 3074
    kQiroK7MWarningBoxPastParent = 3075
    kQiroK7MWarningSampleEntryCount = 3076
    kQiroK7MWarningUnknownSampleDescription = 3077


class K7MError(Exception):
    """The library refused. An exception of one's own file object comes as it is instead."""

    #: The number; one of ErrorCode, unless the library is newer than this package.
    code: int
    #: The name in C, as kQiroK7MErrorNoMovieBox.
    name: str

    def __init__(self, code: int):
        self.code = _known(ErrorCode, code)
        self.name = lib.QiroK7MErrorName(code).decode()
        super().__init__(f"{self.name} ({code}): {lib.QiroK7MErrorText(code).decode()}")

    def __reduce__(self):
        return K7MError, (int(self.code),)


def _known(codes: type[enum.IntEnum], code: int) -> int:
    try:
        return codes(code)
    except ValueError:
        return code


def warning_code(code: int) -> int:
    """The warning with this number; the number itself when it is not known."""
    return _known(WarningCode, code)

/// @file errors.h
/// Result and warning codes.
#ifndef K7M_ERRORS_H
#define K7M_ERRORS_H

#include <stdint.h>

/// Result of an exported function; 0 is success. A code returned by one of the caller's own stream
/// callbacks is passed through unchanged, so values outside #QiroK7MErrorCode can occur.
typedef uint32_t QiroK7MError;

/// The library's own result codes, and the codes that go to the warning callback.
enum QiroK7MErrorCode {
  /// Success.
  kQiroK7MErrorNone = 0,
  /// An exception of an unknown kind reached an exported function.
  kQiroK7MErrorUnknown = 1,
  /// A stream read delivered fewer bytes than requested.
  kQiroK7MErrorReadFailed = 5,
  /// No 'moov' box where one is required.
  kQiroK7MErrorNoMovieBox = 6,
  /// A track has no 'stsd' box when its sample descriptors are asked for.
  kQiroK7MErrorNoSampleDescriptionBox = 7,
  /// A sample or sample description is of another media type than its track.
  kQiroK7MErrorMediaTypeMismatch = 8,
  /// An entry count above 100000000 in an 'stts', 'ctts', 'sdtp', 'hdlr' or 'elst' box.
  kQiroK7MErrorTooManyEntries = 9,
  /// A time scale given by the caller is 0.
  kQiroK7MErrorZeroTimeScale = 10,
  /// A sample of size 0 that is not a gap sample.
  kQiroK7MErrorEmptySample = 11,
  /// A track lacks one of 'stts', 'stsz', 'stsc' or the chunk offset box when it is iterated.
  kQiroK7MErrorIncompleteSampleTable = 12,
  /// A box read from a file breaks the rules about its mandatory children, or nests too deeply.
  kQiroK7MErrorInvalidHierarchy = 14,
  /// A sample descriptor does not fit into the space reserved for it in the 'stsd'.
  kQiroK7MErrorSampleDescriptorLimit = 15,
  /// An edit is added to an 'elst' whose reserved entry count is used up.
  kQiroK7MErrorEditListFull = 16,
  /// A sample is added to a track beyond its reserved sample count.
  kQiroK7MErrorSampleTableFull = 17,
  /// Memory allocation failed.
  kQiroK7MErrorOutOfMemory = 18,
  /// Any other standard exception.
  kQiroK7MErrorStdException = 19,
  /// A required pointer argument is null, or an argument is not usable.
  kQiroK7MErrorInvalidArgument = 20,
  /// Document information is asked for but the 'moov' has no 'mvhd'.
  kQiroK7MErrorNoMovieHeader = 22,
  /// An 'stsc' table does not start at chunk 1, or its first-chunk numbers decrease.
  kQiroK7MErrorBadChunkMap = 23,
  /// A 'traf' has no 'tfhd'.
  kQiroK7MErrorNoTrackFragmentHeader = 24,
  /// The 'mvex' holds no 'trex' for the track of a fragment.
  kQiroK7MErrorNoTrackExtends = 25,
  /// The fragment index gives no offset for the requested fragment.
  kQiroK7MErrorFragmentNotAvailable = 26,
  /// A box is shorter than its fields or its header, or runs past the end of the stream.
  kQiroK7MErrorBoxTruncated = 27,
  /// The version and flags word of a full box cannot be read.
  kQiroK7MErrorBadFullBoxHeader = 28,
  /// In a 'trun', the number of per-sample fields times the sample count overflows 32 bits.
  kQiroK7MErrorTrunSampleCount = 29,
  /// A 'ctts' table is set up with more entries than reserved, or its sample counts overflow.
  kQiroK7MErrorCttsCount = 30,
  /// An entry count above 100000000 in an 'stco', 'co64', 'stss', 'stsz' or 'stsd' box.
  kQiroK7MErrorEntryCountTooLarge = 31,
  /// Track creation: the track kind conflicts with the document.
  kQiroK7MErrorTrackTypeMismatch = 32,
  /// Track creation: the track kind is not supported.
  kQiroK7MErrorTrackTypeUnsupported = 33,
  /// A second 'moov' stands at another position than the one already held.
  kQiroK7MErrorMoovOffsetMismatch = 36,
  /// A stream write stored fewer bytes than requested.
  kQiroK7MErrorWriteFailed = 47,
  /// A writer function is called after the writer has failed or was closed.
  kQiroK7MErrorWriterStateBad = 48,
  /// The requested fragment number is 0 or outside the index or fragment table.
  kQiroK7MErrorFragmentNotFound = 1024,
  /// A fragment file's box sequence is not the expected one.
  kQiroK7MErrorBadFragmentFile = 1025,
  /// The fragment index file is inconsistent.
  kQiroK7MErrorBadFragmentIndex = 1026,
  /// A fragment is asked for with segment number 0.
  kQiroK7MErrorInvalidSegmentNumber = 1027,
  /// The caller's warning callback returned 0.
  kQiroK7MErrorAbortedByWarningHandler = 1028,
  /// An 'mdhd' or 'dref' box has a version other than 0 or 1.
  kQiroK7MErrorUnsupportedVersion = 1029,
  /// Fewer bytes could be had for a sample than its size.
  kQiroK7MErrorSampleDataShort = 1030,
  /// A bootstrap box is pending when a flush finds no open fragment with media.
  kQiroK7MErrorFragmentWriterFlush = 1033,
  /// A sample's decode time is earlier than its track's previous one or than the time origin.
  kQiroK7MErrorDecodeTimeBackwards = 1280,
  /// A track is added after the movie box was closed for new tracks.
  kQiroK7MErrorMovieBoxClosed = 1281,
  /// The metadata box is set after media has been written.
  kQiroK7MErrorMetadataAfterMedia = 1282,
  /// A sample description is set for a track id beyond the number of tracks.
  kQiroK7MErrorInvalidTrackId = 1283,
  /// A hint track is added for a hint protocol other than 2.
  kQiroK7MErrorUnsupportedHintProtocol = 1284,
  /// An extra box is added after the first sample of an unfragmented file.
  kQiroK7MErrorExtraBoxAfterMedia = 1285,
  /// The metadata packet is 0x4000001 bytes or longer.
  kQiroK7MErrorMetadataTooLarge = 1286,
  /// The metadata box was written before.
  kQiroK7MErrorMetadataAlreadyWritten = 1287,
  /// The step from a track's previous decode time is larger than 0xFFFFFFFF.
  kQiroK7MErrorDecodeTimeStepTooLarge = 1288,
  /// A sample is added to a track for which no sample description was chosen.
  kQiroK7MErrorNoSampleDescriptionChosen = 1289,
  /// A sample is added before the hint track's 'vorp' description set the time origin.
  kQiroK7MErrorNoTimeOrigin = 1290,
  /// A sample is added outside a fragment.
  kQiroK7MErrorSampleOutsideFragment = 1536,
  /// A hint sample's media track is not referenced by the hint track.
  kQiroK7MErrorTrackNotReferenced = 1537,
  /// A hint track is described with flags other than 0.
  kQiroK7MErrorHintTrackFlags = 1538,
  /// A second hint track is added.
  kQiroK7MErrorSecondHintTrack = 1539,
  /// A fragment is started before the hint track exists.
  kQiroK7MErrorNoHintTrack = 1540,
  /// A bootstrap box is queued while another one is pending.
  kQiroK7MErrorBootstrapPending = 1541,
  /// A 'vorp' sample description is added to an 'stsd' that already holds an entry.
  kQiroK7MErrorVorpDescriptorNotAlone = 1542,
  /// Append: the movie box has no 'mvex'.
  kQiroK7MErrorAppendNotFragmented = 2048,
  /// The operation needs a writer that was opened for append.
  kQiroK7MErrorNotOpenedForAppend = 2049,
  /// Append: a track has no 'edts'.
  kQiroK7MErrorAppendNoEditBox = 2050,
  /// Append: a track's 'edts' has no 'elst'.
  kQiroK7MErrorAppendNoEditList = 2051,
  /// A track is added to a writer opened for append.
  kQiroK7MErrorAppendAddTrack = 2052,
  /// The metadata box is set on a writer opened for append.
  kQiroK7MErrorAppendMetadata = 2053,

  /// Warning: a list whose length is not a multiple of 4, or 1 to 7 stray bytes where a box header
  /// is looked for. The list is skipped (that of an 'elst' is read), the bytes are ignored.
  kQiroK7MWarningPayloadLength = 3073,
  /// Warning: an 'mdat' ends beyond the end of the stream. The box is kept.
  kQiroK7MWarningBoxPastEndOfStream = 3074,
  /// Warning: a box ends beyond the end of its parent. Its end is clipped to the parent's.
  kQiroK7MWarningBoxPastParent = 3075,
  /// Warning: the number of entries in an 'stsd' differs from its entry count. Those read are kept.
  kQiroK7MWarningSampleEntryCount = 3076,
  /// Warning: a fragment's sample description index names no 'stsd' entry. The track ends there.
  kQiroK7MWarningUnknownSampleDescription = 3077
};

#endif

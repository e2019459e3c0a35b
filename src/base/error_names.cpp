#include "base/error_names.h"

#include <algorithm>
#include <iterator>

namespace qiro::k7m::impl {
namespace {

struct NamedCode {
  QiroK7MError code;
  const char* name;
  const char* text;
};

constexpr NamedCode kNamedCodes[] = {
    {kQiroK7MErrorNone, "kQiroK7MErrorNone", "success"},
    {kQiroK7MErrorUnknown, "kQiroK7MErrorUnknown",
     "an exception of an unknown kind reached an exported function"},
    {kQiroK7MErrorReadFailed, "kQiroK7MErrorReadFailed",
     "a stream read delivered fewer bytes than requested"},
    {kQiroK7MErrorNoMovieBox, "kQiroK7MErrorNoMovieBox", "no 'moov' box where one is required"},
    {kQiroK7MErrorNoSampleDescriptionBox, "kQiroK7MErrorNoSampleDescriptionBox",
     "a track has no 'stsd' box when its sample descriptors are asked for"},
    {kQiroK7MErrorMediaTypeMismatch, "kQiroK7MErrorMediaTypeMismatch",
     "a sample or sample description is of another media type than its track"},
    {kQiroK7MErrorTooManyEntries, "kQiroK7MErrorTooManyEntries",
     "an entry count above 100000000 in an 'stts', 'ctts', 'sdtp', 'hdlr' or 'elst' box"},
    {kQiroK7MErrorZeroTimeScale, "kQiroK7MErrorZeroTimeScale",
     "a time scale given by the caller is 0"},
    {kQiroK7MErrorEmptySample, "kQiroK7MErrorEmptySample",
     "a sample of size 0 that is not a gap sample"},
    {kQiroK7MErrorIncompleteSampleTable, "kQiroK7MErrorIncompleteSampleTable",
     "a track lacks one of 'stts', 'stsz', 'stsc' or the chunk offset box when it is iterated"},
    {kQiroK7MErrorInvalidHierarchy, "kQiroK7MErrorInvalidHierarchy",
     "a box read from a file breaks the rules about its mandatory children, or nests too deeply"},
    {kQiroK7MErrorSampleDescriptorLimit, "kQiroK7MErrorSampleDescriptorLimit",
     "a sample descriptor does not fit into the space reserved for it in the 'stsd'"},
    {kQiroK7MErrorEditListFull, "kQiroK7MErrorEditListFull",
     "an edit is added to an 'elst' whose reserved entry count is used up"},
    {kQiroK7MErrorSampleTableFull, "kQiroK7MErrorSampleTableFull",
     "a sample is added to a track beyond its reserved sample count"},
    {kQiroK7MErrorOutOfMemory, "kQiroK7MErrorOutOfMemory", "memory allocation failed"},
    {kQiroK7MErrorStdException, "kQiroK7MErrorStdException", "any other standard exception"},
    {kQiroK7MErrorInvalidArgument, "kQiroK7MErrorInvalidArgument",
     "a required pointer argument is null, or an argument is not usable"},
    {kQiroK7MErrorNoMovieHeader, "kQiroK7MErrorNoMovieHeader",
     "document information is asked for but the 'moov' has no 'mvhd'"},
    {kQiroK7MErrorBadChunkMap, "kQiroK7MErrorBadChunkMap",
     "an 'stsc' table does not start at chunk 1, or its first-chunk numbers decrease"},
    {kQiroK7MErrorNoTrackFragmentHeader, "kQiroK7MErrorNoTrackFragmentHeader",
     "a 'traf' has no 'tfhd'"},
    {kQiroK7MErrorNoTrackExtends, "kQiroK7MErrorNoTrackExtends",
     "the 'mvex' holds no 'trex' for the track of a fragment"},
    {kQiroK7MErrorFragmentNotAvailable, "kQiroK7MErrorFragmentNotAvailable",
     "the fragment index gives no offset for the requested fragment"},
    {kQiroK7MErrorBoxTruncated, "kQiroK7MErrorBoxTruncated",
     "a box is shorter than its fields or its header, or runs past the end of the stream"},
    {kQiroK7MErrorBadFullBoxHeader, "kQiroK7MErrorBadFullBoxHeader",
     "the version and flags word of a full box cannot be read"},
    {kQiroK7MErrorTrunSampleCount, "kQiroK7MErrorTrunSampleCount",
     "in a 'trun', the number of per-sample fields times the sample count overflows 32 bits"},
    {kQiroK7MErrorCttsCount, "kQiroK7MErrorCttsCount",
     "a 'ctts' table is set up with more entries than reserved, or its sample counts overflow"},
    {kQiroK7MErrorEntryCountTooLarge, "kQiroK7MErrorEntryCountTooLarge",
     "an entry count above 100000000 in an 'stco', 'co64', 'stss', 'stsz' or 'stsd' box"},
    {kQiroK7MErrorTrackTypeMismatch, "kQiroK7MErrorTrackTypeMismatch",
     "track creation: the track kind conflicts with the document"},
    {kQiroK7MErrorTrackTypeUnsupported, "kQiroK7MErrorTrackTypeUnsupported",
     "track creation: the track kind is not supported"},
    {kQiroK7MErrorMoovOffsetMismatch, "kQiroK7MErrorMoovOffsetMismatch",
     "a second 'moov' stands at another position than the one already held"},
    {kQiroK7MErrorWriteFailed, "kQiroK7MErrorWriteFailed",
     "a stream write stored fewer bytes than requested"},
    {kQiroK7MErrorWriterStateBad, "kQiroK7MErrorWriterStateBad",
     "a writer function is called after the writer has failed or was closed"},
    {kQiroK7MErrorFragmentNotFound, "kQiroK7MErrorFragmentNotFound",
     "the requested fragment number is 0 or outside the index or fragment table"},
    {kQiroK7MErrorBadFragmentFile, "kQiroK7MErrorBadFragmentFile",
     "a fragment file's box sequence is not the expected one"},
    {kQiroK7MErrorBadFragmentIndex, "kQiroK7MErrorBadFragmentIndex",
     "the fragment index file is inconsistent"},
    {kQiroK7MErrorInvalidSegmentNumber, "kQiroK7MErrorInvalidSegmentNumber",
     "a fragment is asked for with segment number 0"},
    {kQiroK7MErrorAbortedByWarningHandler, "kQiroK7MErrorAbortedByWarningHandler",
     "the caller's warning callback returned 0"},
    {kQiroK7MErrorUnsupportedVersion, "kQiroK7MErrorUnsupportedVersion",
     "an 'mdhd' or 'dref' box has a version other than 0 or 1"},
    {kQiroK7MErrorSampleDataShort, "kQiroK7MErrorSampleDataShort",
     "fewer bytes could be had for a sample than its size"},
    {kQiroK7MErrorFragmentWriterFlush, "kQiroK7MErrorFragmentWriterFlush",
     "a bootstrap box is pending when a flush finds no open fragment with media"},
    {kQiroK7MErrorDecodeTimeBackwards, "kQiroK7MErrorDecodeTimeBackwards",
     "a sample's decode time is earlier than its track's previous one or than the time origin"},
    {kQiroK7MErrorMovieBoxClosed, "kQiroK7MErrorMovieBoxClosed",
     "a track is added after the movie box was closed for new tracks"},
    {kQiroK7MErrorMetadataAfterMedia, "kQiroK7MErrorMetadataAfterMedia",
     "the metadata box is set after media has been written"},
    {kQiroK7MErrorInvalidTrackId, "kQiroK7MErrorInvalidTrackId",
     "a sample description is set for a track id beyond the number of tracks"},
    {kQiroK7MErrorUnsupportedHintProtocol, "kQiroK7MErrorUnsupportedHintProtocol",
     "a hint track is added for a hint protocol other than 2"},
    {kQiroK7MErrorExtraBoxAfterMedia, "kQiroK7MErrorExtraBoxAfterMedia",
     "an extra box is added after the first sample of an unfragmented file"},
    {kQiroK7MErrorMetadataTooLarge, "kQiroK7MErrorMetadataTooLarge",
     "the metadata packet is 0x4000001 bytes or longer"},
    {kQiroK7MErrorMetadataAlreadyWritten, "kQiroK7MErrorMetadataAlreadyWritten",
     "the metadata box was written before"},
    {kQiroK7MErrorDecodeTimeStepTooLarge, "kQiroK7MErrorDecodeTimeStepTooLarge",
     "the step from a track's previous decode time is larger than 0xFFFFFFFF"},
    {kQiroK7MErrorNoSampleDescriptionChosen, "kQiroK7MErrorNoSampleDescriptionChosen",
     "a sample is added to a track for which no sample description was chosen"},
    {kQiroK7MErrorNoTimeOrigin, "kQiroK7MErrorNoTimeOrigin",
     "a sample is added before the hint track's 'vorp' description set the time origin"},
    {kQiroK7MErrorSampleOutsideFragment, "kQiroK7MErrorSampleOutsideFragment",
     "a sample is added outside a fragment"},
    {kQiroK7MErrorTrackNotReferenced, "kQiroK7MErrorTrackNotReferenced",
     "a hint sample's media track is not referenced by the hint track"},
    {kQiroK7MErrorHintTrackFlags, "kQiroK7MErrorHintTrackFlags",
     "a hint track is described with flags other than 0"},
    {kQiroK7MErrorSecondHintTrack, "kQiroK7MErrorSecondHintTrack", "a second hint track is added"},
    {kQiroK7MErrorNoHintTrack, "kQiroK7MErrorNoHintTrack",
     "a fragment is started before the hint track exists"},
    {kQiroK7MErrorBootstrapPending, "kQiroK7MErrorBootstrapPending",
     "a bootstrap box is queued while another one is pending"},
    {kQiroK7MErrorVorpDescriptorNotAlone, "kQiroK7MErrorVorpDescriptorNotAlone",
     "a 'vorp' sample description is added to an 'stsd' that already holds an entry"},
    {kQiroK7MErrorAppendNotFragmented, "kQiroK7MErrorAppendNotFragmented",
     "Append: the movie box has no 'mvex'"},
    {kQiroK7MErrorNotOpenedForAppend, "kQiroK7MErrorNotOpenedForAppend",
     "the operation needs a writer that was opened for append"},
    {kQiroK7MErrorAppendNoEditBox, "kQiroK7MErrorAppendNoEditBox", "Append: a track has no 'edts'"},
    {kQiroK7MErrorAppendNoEditList, "kQiroK7MErrorAppendNoEditList",
     "Append: a track's 'edts' has no 'elst'"},
    {kQiroK7MErrorAppendAddTrack, "kQiroK7MErrorAppendAddTrack",
     "a track is added to a writer opened for append"},
    {kQiroK7MErrorAppendMetadata, "kQiroK7MErrorAppendMetadata",
     "the metadata box is set on a writer opened for append"},
    {kQiroK7MWarningPayloadLength, "kQiroK7MWarningPayloadLength",
     "a list whose length is not a multiple of 4, or 1 to 7 stray bytes where a box header is "
     "looked for. The list is skipped, the bytes are ignored"},
    {kQiroK7MWarningBoxPastEndOfStream, "kQiroK7MWarningBoxPastEndOfStream",
     "an 'mdat' ends beyond the end of the stream. The box is kept"},
    {kQiroK7MWarningBoxPastParent, "kQiroK7MWarningBoxPastParent",
     "a box ends beyond the end of its parent. Its end is clipped to the parent's"},
    {kQiroK7MWarningSampleEntryCount, "kQiroK7MWarningSampleEntryCount",
     "the number of entries in an 'stsd' differs from its entry count. Those read are kept"},
    {kQiroK7MWarningUnknownSampleDescription, "kQiroK7MWarningUnknownSampleDescription",
     "a fragment's sample description index names no 'stsd' entry. The track ends there"},
};

const NamedCode* Find(QiroK7MError code) {
  const auto* found = std::find_if(std::begin(kNamedCodes), std::end(kNamedCodes),
                                   [code](const NamedCode& entry) { return entry.code == code; });
  return found == std::end(kNamedCodes) ? nullptr : found;
}

}  // namespace

const char* ErrorName(QiroK7MError code) {
  const NamedCode* entry = Find(code);
  return entry == nullptr ? "unknown code" : entry->name;
}

const char* ErrorText(QiroK7MError code) {
  const NamedCode* entry = Find(code);
  return entry == nullptr ? "a code that the library does not define" : entry->text;
}

}  // namespace qiro::k7m::impl

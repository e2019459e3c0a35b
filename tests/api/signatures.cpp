// The exact type of every function of the reading side: a change here breaks programs that are
// already compiled.
#include <type_traits>

#include "k7m/k7m.h"

namespace {

template <auto kFunction, class Signature>
constexpr bool kIs = std::is_same_v<decltype(kFunction), Signature*>;

using Result = QiroK7MError;

static_assert(kIs<QiroK7MGetLibraryVersion, const char*()>);
static_assert(kIs<QiroK7MErrorName, const char*(QiroK7MError)>);
static_assert(kIs<QiroK7MErrorText, const char*(QiroK7MError)>);

// Inert functions: results all the same.
static_assert(
    kIs<QiroK7MCreateAllocator, Result(void*, const QiroK7MAllocatorCallBacks*, Allocator**)>);
static_assert(kIs<QiroK7MReleaseAllocator, Result(Allocator*)>);
static_assert(
    kIs<QiroK7MCreateIStream, Result(void*, const QiroK7MIStreamCallBacks*,
                                     const QiroK7MAllocatorCallBacks*, QiroK7MIStream**)>);
static_assert(kIs<QiroK7MReleaseIStream, Result(QiroK7MIStream*)>);
static_assert(
    kIs<QiroK7MCreateIOStream, Result(void*, const QiroK7MIOStreamCallBacks*,
                                      const QiroK7MAllocatorCallBacks*, QiroK7MIOStream**)>);
static_assert(kIs<QiroK7MReleaseIOStream, Result(QiroK7MIOStream*)>);
static_assert(kIs<QiroK7MReleaseTrack, Result(QiroK7MTrack*)>);
static_assert(kIs<QiroK7MReleaseSampleDescriptor, Result(QiroK7MSampleDescriptor*)>);

// Does something and has a result all the same, unlike the other releases of iterators.
static_assert(
    kIs<QiroK7MReleaseSampleDescriptorIterator, Result(QiroK7MSampleDescriptorIterator*)>);

// Functions without a result.
static_assert(kIs<QiroK7MCloseReader, void(QiroK7MReader*)>);
static_assert(kIs<QiroK7MReleaseTrackIterator, void(QiroK7MTrackIterator*)>);
static_assert(kIs<QiroK7MReleaseSampleIterator, void(QiroK7MSampleIterator*)>);
static_assert(kIs<QiroK7MReleaseSample, void(QiroK7MSample*)>);

// Documents.
static_assert(kIs<QiroK7MDocIsK7M, Result(const QiroK7MIStreamCallBacks*,
                                          const QiroK7MAllocatorCallBacks*, uint32_t*)>);
static_assert(kIs<QiroK7MDocOpenForRead,
                  Result(const QiroK7MIStreamCallBacks*, const QiroK7MWarningHandlerCallBacks*,
                         const QiroK7MAllocatorCallBacks*, QiroK7MReader**)>);
static_assert(
    kIs<QiroK7MDocOpenForReadWithOptions,
        Result(const QiroK7MIStreamCallBacks*, const QiroK7MWarningHandlerCallBacks*,
               const QiroK7MAllocatorCallBacks*, const QiroK7MReadOptions*, QiroK7MReader**)>);
static_assert(kIs<QiroK7MReaderGetDocInfo, Result(QiroK7MReader*, QiroK7MDocInfo*)>);
static_assert(kIs<QiroK7MReaderGetUlbDataLength, Result(QiroK7MReader*, uint32_t*)>);
static_assert(kIs<QiroK7MReaderCopyUlbData, Result(QiroK7MReader*, void*)>);
static_assert(kIs<QiroK7MReaderCopyHandlerName, Result(QiroK7MTrack*, void*)>);

// Tracks.
static_assert(kIs<QiroK7MReaderGetTracks, Result(QiroK7MReader*, QiroK7MTrackIterator**)>);
static_assert(kIs<QiroK7MReaderGetTracksByMediaTypes,
                  Result(QiroK7MReader*, const uint32_t*, uint32_t, QiroK7MTrackIterator**)>);
static_assert(kIs<QiroK7MTrackIteratorHasMoreEntries, Result(QiroK7MTrackIterator*, uint32_t*)>);
static_assert(kIs<QiroK7MTrackIteratorGetNextEntry, Result(QiroK7MTrackIterator*, QiroK7MTrack**)>);
static_assert(kIs<QiroK7MTrackGetInfo, Result(QiroK7MTrack*, QiroK7MTrackInfo*)>);
static_assert(kIs<QiroK7MTrackGetEntriesInfo, Result(QiroK7MTrack*, QiroK7MTrackEntriesInfo*)>);
static_assert(kIs<QiroK7MTrackGetSampleCount, Result(QiroK7MTrack*, uint32_t*)>);
static_assert(kIs<QiroK7MTrackGetEditCount, Result(QiroK7MTrack*, uint32_t*)>);
static_assert(kIs<QiroK7MTrackGetEdit, Result(QiroK7MTrack*, uint32_t, QiroK7MEdit*)>);

// Sample descriptors.
static_assert(kIs<QiroK7MTrackGetSampleDescriptors,
                  Result(QiroK7MTrack*, QiroK7MSampleDescriptorIterator**)>);
static_assert(kIs<QiroK7MSampleDescriptorIteratorHasMoreEntries,
                  Result(QiroK7MSampleDescriptorIterator*, uint32_t*)>);
static_assert(kIs<QiroK7MSampleDescriptorIteratorGetNextEntry,
                  Result(QiroK7MSampleDescriptorIterator*, QiroK7MSampleDescriptor**)>);
static_assert(
    kIs<QiroK7MSampleDescriptorGetInfo, Result(QiroK7MSampleDescriptor*, QiroK7MSampleDescInfo*)>);
static_assert(kIs<QiroK7MSampleDescriptorGetVideoInfo,
                  Result(QiroK7MSampleDescriptor*, QiroK7MVideoSampleDescInfo*)>);
static_assert(kIs<QiroK7MSampleDescriptorGetAudioInfo,
                  Result(QiroK7MSampleDescriptor*, QiroK7MAudioSampleDescInfo*)>);
static_assert(kIs<QiroK7MSampleDescriptorGetVorpInfo,
                  Result(QiroK7MSampleDescriptor*, QiroK7MVorpSampleDescInfo*)>);
static_assert(
    kIs<QiroK7MSampleDescriptorCopyCodecHeaderData, Result(QiroK7MSampleDescriptor*, void*)>);

// Samples.
static_assert(kIs<QiroK7MReaderGetSamples, Result(QiroK7MReader*, uint32_t, uint64_t, uint32_t,
                                                  uint64_t, QiroK7MSampleIterator**)>);
static_assert(kIs<QiroK7MReaderGetSamplesByTracks,
                  Result(QiroK7MReader*, uint32_t, uint64_t, uint32_t, uint64_t,
                         QiroK7MTrack* const*, uint32_t, QiroK7MSampleIterator**)>);
static_assert(kIs<QiroK7MReaderGetSamplesByMediaTypes,
                  Result(QiroK7MReader*, uint32_t, uint64_t, uint32_t, uint64_t, const uint32_t*,
                         uint32_t, QiroK7MSampleIterator**)>);
static_assert(kIs<QiroK7MReaderGetAllSamples, Result(QiroK7MReader*, QiroK7MSampleIterator**)>);
static_assert(kIs<QiroK7MReaderGetAllSamplesByTracks,
                  Result(QiroK7MReader*, QiroK7MTrack* const*, uint32_t, QiroK7MSampleIterator**)>);
static_assert(kIs<QiroK7MReaderGetAllSamplesByMediaTypes,
                  Result(QiroK7MReader*, const uint32_t*, uint32_t, QiroK7MSampleIterator**)>);
static_assert(kIs<QiroK7MReaderGetMediaSamples,
                  Result(QiroK7MReader*, QiroK7MTrack* const*, uint32_t, QiroK7MSampleIterator**)>);
static_assert(kIs<QiroK7MSampleIteratorHasMoreEntries, Result(QiroK7MSampleIterator*, uint32_t*)>);
static_assert(
    kIs<QiroK7MSampleIteratorGetNextEntry, Result(QiroK7MSampleIterator*, QiroK7MSample**)>);
static_assert(kIs<QiroK7MSampleGetInfo, Result(QiroK7MSample*, QiroK7MSampleInfo*)>);
static_assert(kIs<QiroK7MSampleGetTrack, Result(QiroK7MSample*, QiroK7MTrack**)>);
static_assert(
    kIs<QiroK7MSampleGetSampleDescriptor, Result(QiroK7MSample*, QiroK7MSampleDescriptor**)>);
static_assert(kIs<QiroK7MSampleCopyData, Result(QiroK7MSample*, void*)>);

// Handles are of types of their own, so that mixing them up does not compile.
template <class From, class To>
constexpr bool kAreApart = !std::is_convertible_v<From*, To*> && !std::is_convertible_v<To*, From*>;
static_assert(kAreApart<QiroK7MReader, QiroK7MTrack>);
static_assert(kAreApart<QiroK7MTrack, QiroK7MSampleDescriptor>);
static_assert(kAreApart<QiroK7MTrackIterator, QiroK7MSampleIterator>);
static_assert(kAreApart<QiroK7MTrackIterator, QiroK7MSampleDescriptorIterator>);
static_assert(kAreApart<QiroK7MSample, QiroK7MSampleDescriptor>);
static_assert(kAreApart<QiroK7MIStream, QiroK7MIOStream>);

}  // namespace

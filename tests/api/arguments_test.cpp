// Null pointers: error 20 where one is required, nothing for releases, and nothing else is touched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "reading_session.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kNull = kQiroK7MErrorInvalidArgument;

/// A value that a refused call must leave as it is.
template <class T>
T* Untouched() {
  static int place = 0;
  return reinterpret_cast<T*>(&place);
}

/// Everything that can be had from a reader.
class Arguments : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(reader_.Result(), 0u);
    track_ = reader_.TrackAt(0);
    descriptor_ = DescriptorsOf(track_).at(0);
    ASSERT_EQ(QiroK7MReaderGetAllSamples(reader_.Handle(), &samples_), 0u);
    ASSERT_EQ(QiroK7MSampleIteratorGetNextEntry(samples_, &sample_), 0u);
    ASSERT_EQ(QiroK7MReaderGetTracks(reader_.Handle(), &tracks_), 0u);
    ASSERT_EQ(QiroK7MTrackGetSampleDescriptors(track_, &descriptors_), 0u);
  }
  void TearDown() override {
    QiroK7MReleaseSample(sample_);
    QiroK7MReleaseSampleIterator(samples_);
    QiroK7MReleaseTrackIterator(tracks_);
    QiroK7MReleaseSampleDescriptorIterator(descriptors_);
  }

  /// Calls a function of a handle and an output with each of the two null; the output is not
  /// touched.
  template <class Handle, class Out>
  void RequiresBoth(QiroK7MError (*function)(Handle*, Out*), Handle* handle) {
    Out out;
    std::memset(static_cast<void*>(&out), 0xEE, sizeof(out));
    const Out before = out;
    EXPECT_EQ(function(nullptr, &out), kNull);
    EXPECT_EQ(std::memcmp(&out, &before, sizeof(out)), 0);
    EXPECT_EQ(function(handle, nullptr), kNull);
    EXPECT_EQ(function(nullptr, nullptr), kNull);
  }
  template <class Handle>
  void RequiresBothWithBuffer(QiroK7MError (*function)(Handle*, void*), Handle* handle) {
    uint8_t buffer = 0xEE;
    EXPECT_EQ(function(nullptr, &buffer), kNull);
    EXPECT_EQ(buffer, 0xEE);
    EXPECT_EQ(function(handle, nullptr), kNull);
  }

  OpenedReader reader_{SessionFile()};
  QiroK7MTrack* track_ = nullptr;
  QiroK7MSampleDescriptor* descriptor_ = nullptr;
  QiroK7MSample* sample_ = nullptr;
  QiroK7MSampleIterator* samples_ = nullptr;
  QiroK7MTrackIterator* tracks_ = nullptr;
  QiroK7MSampleDescriptorIterator* descriptors_ = nullptr;
};

TEST_F(Arguments, HandleAndOutputAreRequired) {
  RequiresBoth(QiroK7MReaderGetDocInfo, reader_.Handle());
  RequiresBoth(QiroK7MReaderGetUlbDataLength, reader_.Handle());
  RequiresBoth(QiroK7MReaderGetTracks, reader_.Handle());
  RequiresBoth(QiroK7MReaderGetAllSamples, reader_.Handle());
  RequiresBoth(QiroK7MTrackIteratorHasMoreEntries, tracks_);
  RequiresBoth(QiroK7MTrackIteratorGetNextEntry, tracks_);
  RequiresBoth(QiroK7MTrackGetInfo, track_);
  RequiresBoth(QiroK7MTrackGetEntriesInfo, track_);
  RequiresBoth(QiroK7MTrackGetSampleCount, track_);
  RequiresBoth(QiroK7MTrackGetEditCount, track_);
  RequiresBoth(QiroK7MTrackGetSampleDescriptors, track_);
  RequiresBoth(QiroK7MSampleDescriptorIteratorHasMoreEntries, descriptors_);
  RequiresBoth(QiroK7MSampleDescriptorIteratorGetNextEntry, descriptors_);
  RequiresBoth(QiroK7MSampleDescriptorGetInfo, descriptor_);
  RequiresBoth(QiroK7MSampleDescriptorGetVideoInfo, descriptor_);
  RequiresBoth(QiroK7MSampleDescriptorGetAudioInfo, descriptor_);
  RequiresBoth(QiroK7MSampleDescriptorGetVorpInfo, descriptor_);
  RequiresBoth(QiroK7MSampleIteratorHasMoreEntries, samples_);
  RequiresBoth(QiroK7MSampleIteratorGetNextEntry, samples_);
  RequiresBoth(QiroK7MSampleGetInfo, sample_);
  RequiresBoth(QiroK7MSampleGetTrack, sample_);
  RequiresBoth(QiroK7MSampleGetSampleDescriptor, sample_);
}

TEST_F(Arguments, BuffersAreRequired) {
  RequiresBothWithBuffer(QiroK7MReaderCopyUlbData, reader_.Handle());
  RequiresBothWithBuffer(QiroK7MReaderCopyHandlerName, track_);
  RequiresBothWithBuffer(QiroK7MSampleDescriptorCopyCodecHeaderData, descriptor_);
  RequiresBothWithBuffer(QiroK7MSampleCopyData, sample_);
}

TEST_F(Arguments, EditNeedsTrackAndRecord) {
  QiroK7MEdit edit{};
  EXPECT_EQ(QiroK7MTrackGetEdit(nullptr, 0, &edit), kNull);
  EXPECT_EQ(QiroK7MTrackGetEdit(track_, 0, nullptr), kNull);
  EXPECT_EQ(edit.size, 0u);
}

TEST_F(Arguments, QueriesNeedReaderAndOutput) {
  auto* out = Untouched<QiroK7MSampleIterator>();
  QiroK7MReader* reader = reader_.Handle();
  const uint32_t type = Code("vide");
  EXPECT_EQ(QiroK7MReaderGetSamples(nullptr, 1, 0, 1, 9, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetSamples(reader, 1, 0, 1, 9, nullptr), kNull);
  EXPECT_EQ(QiroK7MReaderGetSamplesByTracks(nullptr, 1, 0, 1, 9, &track_, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetSamplesByTracks(reader, 1, 0, 1, 9, &track_, 1, nullptr), kNull);
  EXPECT_EQ(QiroK7MReaderGetSamplesByMediaTypes(nullptr, 1, 0, 1, 9, &type, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetSamplesByMediaTypes(reader, 1, 0, 1, 9, &type, 1, nullptr), kNull);
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByTracks(nullptr, &track_, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader, &track_, 1, nullptr), kNull);
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByMediaTypes(nullptr, &type, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByMediaTypes(reader, &type, 1, nullptr), kNull);
  EXPECT_EQ(QiroK7MReaderGetMediaSamples(nullptr, &track_, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetMediaSamples(reader, &track_, 1, nullptr), kNull);
  auto* tracks = Untouched<QiroK7MTrackIterator>();
  EXPECT_EQ(QiroK7MReaderGetTracksByMediaTypes(nullptr, &type, 1, &tracks), kNull);
  EXPECT_EQ(QiroK7MReaderGetTracksByMediaTypes(reader, &type, 1, nullptr), kNull);
  EXPECT_EQ(out, Untouched<QiroK7MSampleIterator>());
  EXPECT_EQ(tracks, Untouched<QiroK7MTrackIterator>());
}

TEST_F(Arguments, ANullArrayWithACountIsRefusedByTheQueries) {
  auto* out = Untouched<QiroK7MSampleIterator>();
  QiroK7MReader* reader = reader_.Handle();
  EXPECT_EQ(QiroK7MReaderGetSamplesByTracks(reader, 1, 0, 1, 9, nullptr, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetSamplesByMediaTypes(reader, 1, 0, 1, 9, nullptr, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader, nullptr, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByMediaTypes(reader, nullptr, 1, &out), kNull);
  EXPECT_EQ(QiroK7MReaderGetMediaSamples(reader, nullptr, 1, &out), kNull);
  EXPECT_EQ(out, Untouched<QiroK7MSampleIterator>());
}

TEST_F(Arguments, ANullTrackInAnArrayIsRefused) {
  auto* out = Untouched<QiroK7MSampleIterator>();
  QiroK7MTrack* const tracks[] = {track_, nullptr};
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader_.Handle(), tracks, 2, &out), kNull);
  EXPECT_EQ(out, Untouched<QiroK7MSampleIterator>());
}

TEST(OpenArguments, AllAreRequiredAndNothingIsDoneWithoutOne) {
  MemoryStream stream(SessionFile());
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks memory;
  auto* reader = Untouched<QiroK7MReader>();
  EXPECT_EQ(QiroK7MDocOpenForRead(nullptr, &warning, &memory, &reader), kNull);
  EXPECT_EQ(QiroK7MDocOpenForRead(&record, nullptr, &memory, &reader), kNull);
  EXPECT_EQ(QiroK7MDocOpenForRead(&record, &warning, nullptr, &reader), kNull);
  EXPECT_EQ(QiroK7MDocOpenForRead(&record, &warning, &memory, nullptr), kNull);
  EXPECT_EQ(reader, Untouched<QiroK7MReader>());
  uint32_t isK7M = 77;
  EXPECT_EQ(QiroK7MDocIsK7M(nullptr, &memory, &isK7M), kNull);
  EXPECT_EQ(QiroK7MDocIsK7M(&record, nullptr, &isK7M), kNull);
  EXPECT_EQ(QiroK7MDocIsK7M(&record, &memory, nullptr), kNull);
  EXPECT_EQ(isK7M, 77u);
  EXPECT_EQ(stream.Count(Call::kAny), 0u);
}

TEST(OpenArguments, TheOptionsAreRequiredToo) {
  MemoryStream stream(SessionFile());
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks memory;
  const QiroK7MReadOptions options{};
  auto* reader = Untouched<QiroK7MReader>();
  const auto open = QiroK7MDocOpenForReadWithOptions;
  EXPECT_EQ(open(nullptr, &warning, &memory, &options, &reader), kNull);
  EXPECT_EQ(open(&record, nullptr, &memory, &options, &reader), kNull);
  EXPECT_EQ(open(&record, &warning, nullptr, &options, &reader), kNull);
  EXPECT_EQ(open(&record, &warning, &memory, nullptr, &reader), kNull);
  EXPECT_EQ(open(&record, &warning, &memory, &options, nullptr), kNull);
  EXPECT_EQ(reader, Untouched<QiroK7MReader>());
  EXPECT_EQ(stream.Count(Call::kAny), 0u);
  ASSERT_EQ(open(&record, &warning, &memory, &options, &reader), 0u) << "its size is not read";
  for (const Question& question : kQuestions) EXPECT_EQ(question.ask(reader), 0u);
  QiroK7MCloseReader(reader);
}

TEST(OpenArguments, EveryStreamCallbackButTwoIsRequired) {
  MemoryStream stream(SessionFile());
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks memory;
  const std::vector<std::function<void(QiroK7MIStreamCallBacks&)>> removals = {
      [](auto& record) { record.open = nullptr; }, [](auto& record) { record.close = nullptr; },
      [](auto& record) { record.readSome = nullptr; }, [](auto& record) { record.seek = nullptr; },
      [](auto& record) { record.tell = nullptr; }};
  for (const auto& remove : removals) {
    QiroK7MIStreamCallBacks record = stream.Reading();
    remove(record);
    QiroK7MReader* reader = nullptr;
    uint32_t isK7M = 77;
    EXPECT_EQ(QiroK7MDocOpenForRead(&record, &warning, &memory, &reader), kNull);
    EXPECT_EQ(QiroK7MDocIsK7M(&record, &memory, &isK7M), kNull);
    EXPECT_EQ(isK7M, 77u);
  }
  EXPECT_EQ(stream.Count(Call::kAny), 0u);
  QiroK7MIStreamCallBacks record = stream.Reading();
  record.acquire = nullptr;
  record.release = nullptr;
  record.size = 0;  // The caller need not fill it.
  QiroK7MReader* reader = nullptr;
  EXPECT_EQ(QiroK7MDocOpenForRead(&record, &warning, &memory, &reader), 0u);
  QiroK7MCloseReader(reader);
}

TEST(OpenArguments, TheRecordsAreCopied) {
  MemoryStream stream(SessionFile());
  QiroK7MIStreamCallBacks record = stream.Reading();
  QiroK7MWarningHandlerCallBacks warning;
  QiroK7MAllocatorCallBacks memory;
  QiroK7MReader* reader = nullptr;
  ASSERT_EQ(QiroK7MDocOpenForRead(&record, &warning, &memory, &reader), 0u);
  std::memset(static_cast<void*>(&record), 0, sizeof(record));
  std::memset(static_cast<void*>(&warning), 0, sizeof(warning));
  std::memset(static_cast<void*>(&memory), 0, sizeof(memory));
  for (const Question& question : kQuestions) EXPECT_EQ(question.ask(reader), 0u);
  QiroK7MCloseReader(reader);
}

TEST(Releases, TakeNull) {
  QiroK7MCloseReader(nullptr);
  QiroK7MReleaseTrackIterator(nullptr);
  EXPECT_EQ(QiroK7MReleaseSampleDescriptorIterator(nullptr), 0u);
  QiroK7MReleaseSampleIterator(nullptr);
  QiroK7MReleaseSample(nullptr);
  EXPECT_EQ(QiroK7MReleaseTrack(nullptr), 0u);
  EXPECT_EQ(QiroK7MReleaseSampleDescriptor(nullptr), 0u);
  EXPECT_EQ(QiroK7MReleaseAllocator(nullptr), 0u);
  EXPECT_EQ(QiroK7MReleaseIStream(nullptr), 0u);
  EXPECT_EQ(QiroK7MReleaseIOStream(nullptr), 0u);
}

TEST(Releases, OfTracksAndDescriptorsDoNothing) {
  OpenedReader reader(SessionFile());
  QiroK7MTrack* track = reader.TrackAt(0);
  QiroK7MSampleDescriptor* descriptor = DescriptorsOf(track).at(0);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(QiroK7MReleaseTrack(track), 0u);
    EXPECT_EQ(QiroK7MReleaseSampleDescriptor(descriptor), 0u);
  }
  EXPECT_EQ(InfoOf(track).size, 72u);
}

TEST(InertFunctions, LeaveOrClearTheirOutput) {
  auto* allocator = Untouched<Allocator>();
  EXPECT_EQ(QiroK7MCreateAllocator(nullptr, nullptr, &allocator), 0u);
  EXPECT_EQ(allocator, Untouched<Allocator>());
  EXPECT_EQ(QiroK7MCreateAllocator(nullptr, nullptr, nullptr), 0u);
  auto* input = Untouched<QiroK7MIStream>();
  EXPECT_EQ(QiroK7MCreateIStream(nullptr, nullptr, nullptr, &input), 0u);
  EXPECT_EQ(input, nullptr);
  EXPECT_EQ(QiroK7MCreateIStream(nullptr, nullptr, nullptr, nullptr), kNull);
  auto* both = Untouched<QiroK7MIOStream>();
  EXPECT_EQ(QiroK7MCreateIOStream(nullptr, nullptr, nullptr, &both), 0u);
  EXPECT_EQ(both, nullptr);
  EXPECT_EQ(QiroK7MCreateIOStream(nullptr, nullptr, nullptr, nullptr), kNull);
}

TEST(LibraryVersion, IsTheBuildsText) {
  EXPECT_STREQ(QiroK7MGetLibraryVersion(), "QIROX_INFO BUILDVERSION : 61.3261");
}

}  // namespace
}  // namespace k7mtest

#include <gtest/gtest.h>

#include "expected_track.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

TEST(Create, WritesTheFileTypeAndAMovieBoxWithItsHeaderOnly) {
  const OpenedWriter writer(600);
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.File(), kFtyp + Box("moov", ExpectedMvhd(600, 1)));
}

TEST(Create, TheHeaderTakesRateAndVolumeAsFixedPointNumbers) {
  QiroK7MDocInfo info = DocInfoOf(1000);
  info.playRate = 1.5F;
  info.volume = 0.25F;
  const OpenedWriter writer(info);
  EXPECT_EQ(NumberIn(writer.File(), "moov/mvhd", 40), 0x00018000u);
  EXPECT_EQ(NumberIn(writer.File(), "moov/mvhd", 44, 2), 0x0040u);
}

TEST(Create, TheDurationOfTheRecordIsIgnored) {
  QiroK7MDocInfo info = DocInfoOf(1000);
  info.duration = 12345;
  info.size = 1;
  const OpenedWriter writer(info);
  EXPECT_EQ(writer.File(), kFtyp + Box("moov", ExpectedMvhd(1000, 1)));
  QiroK7MDocInfo got{};
  EXPECT_EQ(QiroK7MWriterGetDocInfo(writer.Handle(), &got), 0u);
  EXPECT_EQ(got.duration, 0u);
  EXPECT_EQ(got.size, 48u);
}

TEST(Create, DocumentInformationIsWhatWasGivenAndItsDurationStaysZero) {
  OpenedWriter writer(600);
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  writer.Add(track, 1000);
  writer.Flush();
  QiroK7MDocInfo got{};
  ASSERT_EQ(QiroK7MWriterGetDocInfo(writer.Handle(), &got), 0u);
  const QiroK7MDocInfo given = DocInfoOf(600);
  EXPECT_EQ(got.size, 48u);
  EXPECT_EQ(got.isFragmented, 0u);
  EXPECT_EQ(got.timeScale, 600u);
  EXPECT_EQ(got.duration, 0u);
  EXPECT_EQ(got.playRate, 1.0F);
  EXPECT_EQ(got.volume, 1.0F);
  EXPECT_EQ(got.creationTime.day, given.creationTime.day);
  EXPECT_EQ(got.modificationTime.second, given.modificationTime.second);
}

TEST(Create, OpensTheStreamOnceAndNeverReadsIt) {
  OpenedWriter writer;
  EXPECT_EQ(writer.Stream().Count(Call::kOpen), 1u);
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 0u);
  EXPECT_EQ(writer.Stream().Count(Call::kRead), 0u);
}

QiroK7MError CreateResult(const QiroK7MIOStreamCallBacks* stream, const QiroK7MDocInfo* info,
                          const QiroK7MAllocatorCallBacks* memory) {
  QiroK7MWriter* const untouched = reinterpret_cast<QiroK7MWriter*>(&stream);
  QiroK7MWriter* out = untouched;
  const QiroK7MError result = QiroK7MDocCreateNew(stream, info, memory, &out);
  EXPECT_NE(result, 0u);
  EXPECT_EQ(out, untouched);
  return result;
}

TEST(Create, NeedsAllFourPointers) {
  MemoryStream memory;
  const QiroK7MIOStreamCallBacks stream = memory.ReadingAndWriting();
  const QiroK7MDocInfo info = DocInfoOf(600);
  const QiroK7MAllocatorCallBacks allocator;
  EXPECT_EQ(CreateResult(nullptr, &info, &allocator), 20u);
  EXPECT_EQ(CreateResult(&stream, nullptr, &allocator), 20u);
  EXPECT_EQ(CreateResult(&stream, &info, nullptr), 20u);
  EXPECT_EQ(QiroK7MDocCreateNew(&stream, &info, &allocator, nullptr), 20u);
  EXPECT_EQ(memory.Count(Call::kAny), 0u);
}

TEST(Create, TimeScaleZeroIsRefusedBeforeTheStreamIsOpened) {
  MemoryStream memory;
  const QiroK7MIOStreamCallBacks stream = memory.ReadingAndWriting();
  const QiroK7MDocInfo info = DocInfoOf(0);
  const QiroK7MAllocatorCallBacks allocator;
  EXPECT_EQ(CreateResult(&stream, &info, &allocator), 10u);
  EXPECT_EQ(memory.Count(Call::kAny), 0u);
}

TEST(Create, EveryCallbackButAcquireAndReleaseIsNeeded) {
  MemoryStream memory;
  const QiroK7MDocInfo info = DocInfoOf(600);
  const QiroK7MAllocatorCallBacks allocator;
  const auto without = [&](auto member) {
    QiroK7MIOStreamCallBacks stream = memory.ReadingAndWriting();
    stream.*member = nullptr;
    return CreateResult(&stream, &info, &allocator);
  };
  EXPECT_EQ(without(&QiroK7MIOStreamCallBacks::open), 20u);
  EXPECT_EQ(without(&QiroK7MIOStreamCallBacks::close), 20u);
  EXPECT_EQ(without(&QiroK7MIOStreamCallBacks::readSome), 20u);
  EXPECT_EQ(without(&QiroK7MIOStreamCallBacks::seek), 20u);
  EXPECT_EQ(without(&QiroK7MIOStreamCallBacks::tell), 20u);
  EXPECT_EQ(without(&QiroK7MIOStreamCallBacks::write), 20u);
  EXPECT_EQ(without(&QiroK7MIOStreamCallBacks::truncate), 20u);
  EXPECT_EQ(memory.Count(Call::kAny), 0u);
  QiroK7MIOStreamCallBacks stream = memory.ReadingAndWriting();
  stream.acquire = nullptr;
  stream.release = nullptr;
  QiroK7MWriter* out = nullptr;
  EXPECT_EQ(QiroK7MDocCreateNew(&stream, &info, &allocator, &out), 0u);
  QiroK7MDestroyWriter(out);
  EXPECT_FALSE(memory.IsOpen());
}

TEST(Create, AFailedOpenClosesWithoutThrowing) {
  bool closed = false;
  QiroK7MIOStreamCallBacks stream = MemoryStream().ReadingAndWriting();
  stream.clientData = &closed;
  stream.open = [](void*) -> QiroK7MError { return 4711; };
  stream.close = [](void* flag) -> QiroK7MError {
    *static_cast<bool*>(flag) = true;
    return 815;
  };
  const QiroK7MDocInfo info = DocInfoOf(600);
  const QiroK7MAllocatorCallBacks allocator;
  EXPECT_EQ(CreateResult(&stream, &info, &allocator), 4711u);
  EXPECT_TRUE(closed);
}

TEST(Create, AStreamThatWasNeverOpenedIsNotClosed) {
  const QiroK7MDocInfo info = DocInfoOf(600);
  uint64_t failuresBeforeOpening = 0;
  for (uint64_t n = 1; n <= 4; ++n) {
    MemoryStream memory;
    CountingAllocator allocator;
    allocator.FailNth(n);
    const QiroK7MIOStreamCallBacks stream = memory.ReadingAndWriting();
    const QiroK7MAllocatorCallBacks record = allocator.Record();
    EXPECT_EQ(CreateResult(&stream, &info, &record), 18u);
    EXPECT_EQ(memory.Count(Call::kClose), memory.Count(Call::kOpen));
    if (memory.Count(Call::kOpen) == 0) ++failuresBeforeOpening;
  }
  EXPECT_GE(failuresBeforeOpening, 1u);
  EXPECT_LT(failuresBeforeOpening, 4u);
}

TEST(Create, AFailedWriteClosesWithoutThrowing) {
  MemoryStream memory;
  QiroK7MIOStreamCallBacks stream = memory.ReadingAndWriting();
  static MemoryStream* current = nullptr;
  current = &memory;
  stream.close = [](void*) -> QiroK7MError {
    const QiroK7MIOStreamCallBacks inner = current->ReadingAndWriting();
    inner.close(inner.clientData);
    return 815;
  };
  memory.FailNth(Call::kWrite, 1, 4711);
  const QiroK7MDocInfo info = DocInfoOf(600);
  const QiroK7MAllocatorCallBacks allocator;
  EXPECT_EQ(CreateResult(&stream, &info, &allocator), 4711u);
  EXPECT_FALSE(memory.IsOpen());
  EXPECT_EQ(memory.Count(Call::kClose), 1u);
}

TEST(Create, TheRecordOfCallbacksIsCopied) {
  MemoryStream memory;
  QiroK7MWriter* writer = nullptr;
  {
    QiroK7MIOStreamCallBacks stream = memory.ReadingAndWriting();
    QiroK7MDocInfo info = DocInfoOf(600);
    QiroK7MAllocatorCallBacks allocator;
    ASSERT_EQ(QiroK7MDocCreateNew(&stream, &info, &allocator, &writer), 0u);
    stream = QiroK7MIOStreamCallBacks();
    info = QiroK7MDocInfo();
  }
  EXPECT_EQ(QiroK7MCloseWriter(writer), 0u);
  QiroK7MDestroyWriter(writer);
  EXPECT_FALSE(memory.IsOpen());
}

TEST(Create, AClosedDocumentWithoutTracksIsStillJustThoseTwoBoxes) {
  OpenedWriter writer(600);
  EXPECT_EQ(writer.Finish(), kFtyp + Box("moov", ExpectedMvhd(600, 1)));
}

TEST(Create, ListingTracksNeedsAWriterOpenedForAppendAndLeavesItGood) {
  OpenedWriter writer;
  QiroK7MTrackIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MWriterGetTracks(writer.Handle(), &iterator), 2049u);
  EXPECT_EQ(iterator, nullptr);
  EXPECT_TRUE(writer.IsGood());
}

}  // namespace
}  // namespace k7mtest

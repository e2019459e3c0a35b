#include <gtest/gtest.h>

#include "expected_track.h"
#include "support/counted_buffer.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

using Codes = std::vector<std::string>;
constexpr uint32_t kTooLong = 0x4000001;

TEST(Metadata, StandsDirectlyBehindTheMovieBox) {
  OpenedWriter writer;
  writer.AddTrack();
  const Bytes before = writer.File();
  const Bytes packet = Pattern(100);
  EXPECT_EQ(writer.TrySetUlb(packet), 0u);
  EXPECT_EQ(writer.File(), before + UuidBox(kMetadataUuid, packet));
}

TEST(Metadata, StandsBehindExtraBoxesWrittenEarlier) {
  OpenedWriter writer;
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Bytes{1}), 0u);
  EXPECT_EQ(writer.TrySetUlb(Bytes{2}), 0u);
  EXPECT_EQ(writer.TryAddFullBox("efgh", 0, 0, Bytes{3}), 0u);
  EXPECT_EQ(writer.File(), before + FullBox("abcd", 0, 0, Bytes{1}) +
                               UuidBox(kMetadataUuid, Bytes{2}) + FullBox("efgh", 0, 0, Bytes{3}));
}

TEST(Metadata, IsReadBackAndTheMediaFollows) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  const Bytes packet = Pattern(1000);
  EXPECT_EQ(writer.TrySetUlb(packet), 0u);
  writer.Add(track, 0);
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesIn(file), (Codes{"ftyp", "moov", "uuid", "mdat"}));
  OpenedReader reader(file);
  uint32_t length = 0;
  ASSERT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length), 0u);
  Bytes copy;
  copy.Fill(length);
  ASSERT_EQ(QiroK7MReaderCopyUlbData(reader.Handle(), copy.Data()), 0u);
  EXPECT_EQ(copy, packet);
  EXPECT_EQ(AllSamples(reader).size(), 1u);
}

TEST(Metadata, MayBeEmptyWithOrWithoutABuffer) {
  {
    OpenedWriter writer;
    const Bytes before = writer.File();
    EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), nullptr, 0), 0u);
    EXPECT_EQ(writer.File(), before + UuidBox(kMetadataUuid));
  }
  OpenedWriter writer;
  CountedBuffer buffer(Pattern(7));
  const Bytes before = writer.File();
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), buffer.Record(), 0), 0u);
  EXPECT_EQ(buffer.Releases(), 1);
  EXPECT_EQ(writer.File(), before + UuidBox(kMetadataUuid));
}

TEST(Metadata, OnlyTheGivenLengthIsWritten) {
  OpenedWriter writer;
  const Bytes before = writer.File();
  CountedBuffer buffer(Pattern(7));
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), buffer.Record(), 6), 0u);
  EXPECT_EQ(buffer.Releases(), 1);
  EXPECT_EQ(writer.File(), before + UuidBox(kMetadataUuid, Cut(Pattern(7), 6)));
}

TEST(Metadata, CanBeWrittenOnce) {
  OpenedWriter writer;
  EXPECT_EQ(writer.TrySetUlb(Bytes{1}), 0u);
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TrySetUlb(Bytes{1}), 1287u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.File(), before);
}

TEST(Metadata, CannotFollowMedia) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0, kGap);  // No media yet.
  EXPECT_EQ(writer.TrySetUlb(Bytes{1}), 0u);
  writer.Add(track, 10);
  EXPECT_EQ(writer.TrySetUlb(Bytes{1}), 1282u);  // Before 1287.
  EXPECT_TRUE(writer.IsGood());
}

TEST(Metadata, MustBeShorterThan0x4000001Bytes) {
  const Bytes longest = Bytes().Fill(kTooLong, 0);
  CountedBuffer refused(longest);
  CountedBuffer accepted(longest);
  OpenedWriter writer;
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), refused.Record(), kTooLong), 1286u);
  EXPECT_EQ(refused.Releases(), 1);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), accepted.Record(), kTooLong - 1), 0u);
  EXPECT_EQ(accepted.Releases(), 1);
  EXPECT_EQ(NumberIn(writer.File(), "uuid", 0), kTooLong - 1 + 24);
}

TEST(Metadata, ChecksComeInOrderAndTheBufferIsAlwaysGivenBack) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  const auto set = [&](QiroK7MWriter* handle, uint32_t length) {
    CountedBuffer buffer(Bytes{1, 2, 3});
    const QiroK7MError result = QiroK7MWriterSetUlb(handle, buffer.Record(), length);
    EXPECT_EQ(buffer.Releases(), 1);
    return result;
  };
  EXPECT_EQ(set(nullptr, 3), 20u);
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), nullptr, 1), 20u);
  QiroK7MDataBuffer noData{5, nullptr, nullptr, nullptr};
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), &noData, 1), 20u);
  EXPECT_EQ(set(writer.Handle(), 4), 1030u);
  EXPECT_EQ(set(writer.Handle(), kTooLong), 1286u);  // Before 1030.
  EXPECT_TRUE(writer.IsGood());
  writer.Add(track, 0);
  EXPECT_EQ(set(writer.Handle(), 4), 1030u);  // Before 1282.
  EXPECT_EQ(set(writer.Handle(), 3), 1282u);
  writer.Finish();
  EXPECT_EQ(set(writer.Handle(), kTooLong), 48u);  // Before 1286.
  EXPECT_EQ(set(nullptr, kTooLong), 20u);
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), nullptr, kTooLong), 20u);  // Before 48.
  EXPECT_EQ(QiroK7MWriterSetUlb(writer.Handle(), &noData, 1), 20u);
}

TEST(ExtraBoxes, AreWrittenAtTheEndWithVersionAndFlags) {
  OpenedWriter writer;
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0x123456, Pattern(10)), 0u);
  EXPECT_EQ(writer.TryAddFullBox("efgh", 1, 0, {}), 0u);
  EXPECT_EQ(writer.File(),
            before + FullBox("abcd", 0, 0x123456, Pattern(10)) + FullBox("efgh", 1, 0));
}

TEST(ExtraBoxes, AnyVersionButZeroMeansOneAndFlagsAreCut) {
  OpenedWriter writer;
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TryAddFullBox("abcd", 256, 0xFF000001, {}), 0u);
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0xFFFFFFFF, 0xFFFFFFFF, {}), 0u);
  EXPECT_EQ(writer.File(), before + FullBox("abcd", 1, 1) + FullBox("abcd", 1, 0xFFFFFF));
}

TEST(ExtraBoxes, MayHaveNoBufferWhenTheyHaveNoPayload) {
  OpenedWriter writer;
  const Bytes before = writer.File();
  EXPECT_EQ(QiroK7MWriterAddFullBox(writer.Handle(), Code("abcd"), 0, 0, nullptr, 0), 0u);
  EXPECT_EQ(writer.File(), before + FullBox("abcd", 0, 0));
}

TEST(ExtraBoxes, CannotFollowTheFirstMediaSample) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0, kGap);
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Bytes{1}), 0u);
  writer.Add(track, 10);
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Bytes{1}), 1285u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.File(), before);
  EXPECT_EQ(CodesIn(writer.Finish()), (Codes{"ftyp", "moov", "abcd", "mdat"}));
}

TEST(ExtraBoxes, ChecksComeInOrderAndTheBufferIsAlwaysGivenBack) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  const auto add = [&](QiroK7MWriter* handle, uint32_t length) {
    CountedBuffer buffer(Bytes{1, 2, 3});
    const QiroK7MError result =
        QiroK7MWriterAddFullBox(handle, Code("abcd"), 0, 0, buffer.Record(), length);
    EXPECT_EQ(buffer.Releases(), 1);
    return result;
  };
  EXPECT_EQ(add(nullptr, 3), 20u);
  EXPECT_EQ(QiroK7MWriterAddFullBox(writer.Handle(), Code("abcd"), 0, 0, nullptr, 1), 20u);
  QiroK7MDataBuffer noData{5, nullptr, nullptr, nullptr};
  EXPECT_EQ(QiroK7MWriterAddFullBox(writer.Handle(), Code("abcd"), 0, 0, &noData, 1), 20u);
  EXPECT_EQ(add(writer.Handle(), 4), 1030u);
  EXPECT_TRUE(writer.IsGood());
  writer.Add(track, 0);
  EXPECT_EQ(add(writer.Handle(), 4), 1030u);  // Before 1285.
  EXPECT_EQ(add(writer.Handle(), 3), 1285u);
  writer.Finish();
  EXPECT_EQ(add(writer.Handle(), 3), 48u);
  EXPECT_EQ(QiroK7MWriterAddFullBox(writer.Handle(), Code("abcd"), 0, 0, nullptr, 1), 20u);
  EXPECT_EQ(QiroK7MWriterAddFullBox(writer.Handle(), Code("abcd"), 0, 0, &noData, 1), 20u);
}

TEST(ExtraBoxes, TheFileWithThemIsReadBack) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Pattern(99)), 0u);
  writer.Add(track, 0);
  const Bytes file = writer.Finish();
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  EXPECT_EQ(Data(AllSamples(reader)), (std::vector<Bytes>{Bytes{1, 2, 3}}));
}

}  // namespace
}  // namespace k7mtest

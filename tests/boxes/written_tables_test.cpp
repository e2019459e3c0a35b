#include <gtest/gtest.h>

#include "boxes/chunk_offset_boxes.h"
#include "boxes/ctts_box.h"
#include "boxes/sdtp_box.h"
#include "boxes/stsc_box.h"
#include "boxes/stss_box.h"
#include "boxes/stsz_box.h"
#include "boxes/stts_box.h"
#include "internals/error_of.h"
#include "internals/writing_stream.h"
#include "support/box_finder.h"
#include "support/box_records.h"

namespace k7mtest {
namespace {

namespace impl = qiro::k7m::impl;
constexpr uint32_t kMost = 100000000;

/// A table with room for `maxCount` on a stream of its own; the further arguments go between the
/// two.
template <class Table, class... More>
struct OnStream {
  explicit OnStream(uint32_t maxCount, More... more)
      : table(stream.Get(), maxCount, more..., nullptr) {
    table.WriteBox();
  }
  Bytes Updated() {
    table.UpdateBox();
    return stream.Content();
  }
  WritingStream stream;
  Table table;
};

template <class Table, class... More>
QiroK7MError CreationError(uint32_t maxCount, More... more) {
  WritingStream stream;
  return ErrorOf([&] { Table(stream.Get(), maxCount, more..., nullptr); });
}

TEST(WrittenTables, TheirSizesAreThoseOfTheReservedEntries) {
  WritingStream stream;
  const auto size = [](const auto& box) { return box.GetTotalSize(); };
  EXPECT_EQ(size(impl::SttsBox(stream.Get(), 1000, 1, nullptr)), 16u + 8000);
  EXPECT_EQ(size(impl::CttsBox(stream.Get(), 1000, nullptr)), 16u + 8000);
  EXPECT_EQ(size(impl::StssBox(stream.Get(), 1000, nullptr)), 16u + 4000);
  EXPECT_EQ(size(impl::StszBox(stream.Get(), 1000, nullptr)), 20u + 4000);
  EXPECT_EQ(size(impl::StscBox(stream.Get(), 1000, nullptr)), 16u + 12000);
  EXPECT_EQ(size(impl::Co64Box(stream.Get(), 1000, nullptr)), 16u + 8000);
  EXPECT_EQ(size(impl::SdtpBox(stream.Get(), 1000, nullptr)), 12u + 1000);
}

TEST(WrittenTables, MoreThanAHundredMillionEntriesAreRefused) {
  for (const uint32_t count : {kMost + 1, 0xFFFFFFFFu}) {
    EXPECT_EQ(CreationError<impl::SttsBox>(count, 1U), 9u);
    EXPECT_EQ(CreationError<impl::CttsBox>(count), 9u);
    EXPECT_EQ(CreationError<impl::SdtpBox>(count), 9u);
    EXPECT_EQ(CreationError<impl::StssBox>(count), 31u);
    EXPECT_EQ(CreationError<impl::StszBox>(count), 31u);
    EXPECT_EQ(CreationError<impl::Co64Box>(count), 31u);
    EXPECT_EQ(CreationError<impl::StcoBox>(count), 31u);
  }
  EXPECT_EQ(CreationError<impl::SttsBox>(kMost, 1U), 0u);
  EXPECT_EQ(CreationError<impl::CttsBox>(kMost), 0u);
  EXPECT_EQ(CreationError<impl::SdtpBox>(kMost), 0u);
  EXPECT_EQ(CreationError<impl::StssBox>(kMost), 0u);
  EXPECT_EQ(CreationError<impl::StszBox>(kMost), 0u);
  EXPECT_EQ(CreationError<impl::Co64Box>(kMost), 0u);
}

TEST(WrittenTables, ReservedSpaceIsNotWritten) {
  OnStream<impl::Co64Box> co64(kMost / 2);
  EXPECT_EQ(co64.stream.Memory().Length(), 16u);
  EXPECT_EQ(co64.Updated(), FullBox("co64", 0, 0, Bytes().Fill(4)).Patch(0, 16 + kMost / 2 * 8));
}

Bytes SttsOf(const std::vector<uint64_t>& times, uint32_t lastDuration) {
  OnStream<impl::SttsBox, uint32_t> stts(10, lastDuration);
  for (const uint64_t time : times) stts.table.AddSample(time);
  return stts.Updated();
}

Bytes ExpectedStts(const std::vector<Stts::Run>& runs) {
  return FullBox("stts", 0, 0, Stts{.runs = runs}).Patch(0, 96);
}

TEST(WrittenStts, KnownExamples) {
  EXPECT_EQ(SttsOf({0, 10, 20, 30}, 10), ExpectedStts({{3, 10}, {1, 10}}));
  EXPECT_EQ(SttsOf({0, 10, 25}, 77), ExpectedStts({{1, 10}, {1, 15}, {1, 77}}));
  EXPECT_EQ(SttsOf({5}, 77), ExpectedStts({{1, 1}}));
  EXPECT_EQ(SttsOf({}, 77), ExpectedStts({}));
  EXPECT_EQ(SttsOf({7, 7, 7}, 0), ExpectedStts({{2, 0}, {1, 0}}));
}

TEST(WrittenStts, TheLargestDeltaIsADeltaLikeOthers) {
  const uint64_t step = 0xFFFFFFFF;
  EXPECT_EQ(SttsOf({0, step, 2 * step, 2 * step + 1}, 3),
            ExpectedStts({{2, 0xFFFFFFFF}, {1, 1}, {1, 3}}));
}

TEST(WrittenStts, ALaterSampleOverwritesTheFinishingEntries) {
  OnStream<impl::SttsBox, uint32_t> stts(10, 4);
  stts.table.AddSample(0);
  EXPECT_EQ(Cut(stts.Updated(), 24), ExpectedStts({{1, 1}}));
  stts.table.AddSample(10);
  EXPECT_EQ(Cut(stts.Updated(), 32), ExpectedStts({{1, 10}, {1, 4}}));
  EXPECT_EQ(Cut(stts.Updated(), 32), ExpectedStts({{1, 10}, {1, 4}}));
  stts.table.AddSample(15);
  EXPECT_EQ(Cut(stts.Updated(), 40), ExpectedStts({{1, 10}, {1, 5}, {1, 4}}));
  stts.table.AddSample(20);
  EXPECT_EQ(Cut(stts.Updated(), 40), ExpectedStts({{1, 10}, {2, 5}, {1, 4}}));
}

TEST(WrittenCtts, RunsEndWhereTheOffsetChanges) {
  OnStream<impl::CttsBox> ctts(5);
  const auto expected = [](const std::vector<Ctts::Run>& runs) {
    return FullBox("ctts", 0, 0, Ctts{.runs = runs}).Patch(0, 56);
  };
  EXPECT_EQ(ctts.Updated(), expected({}));
  for (const uint32_t offset : {3u, 3u, 0xFFFFFFFFu}) ctts.table.AddCompositionOffset(offset);
  EXPECT_EQ(ctts.Updated(), expected({{2, 3}, {1, 0xFFFFFFFF}}));
  ctts.table.AddCompositionOffset(0xFFFFFFFF);
  ctts.table.AddCompositionOffset(3);
  EXPECT_EQ(ctts.Updated(), expected({{2, 3}, {2, 0xFFFFFFFF}, {1, 3}}));
}

TEST(WrittenStsz, HasNoConstantSize) {
  OnStream<impl::StszBox> stsz(3);
  for (const uint32_t size : {7u, 7u, 7u}) stsz.table.AddSampleSize(size);
  EXPECT_EQ(stsz.table.GetSampleCount(), 3u);
  EXPECT_EQ(stsz.Updated(), FullBox("stsz", 0, 0, Stsz{.sizes = {7, 7, 7}}));
}

TEST(WrittenStss, ListsNumbers) {
  OnStream<impl::StssBox> stss(2);
  stss.table.AddSyncSample(1);
  stss.table.AddSyncSample(0xFFFFFFFF);
  EXPECT_EQ(stss.Updated(), FullBox("stss", 0, 0, Stss{.numbers = {1, 0xFFFFFFFF}}));
}

TEST(WrittenStsc, DoesNotMergeEqualRuns) {
  OnStream<impl::StscBox> stsc(2);
  stsc.table.AddChunks(1, 4, 1);
  stsc.table.AddChunks(2, 4, 1);
  EXPECT_EQ(stsc.Updated(), FullBox("stsc", 0, 0, Stsc{.runs = {{1, 4, 1}, {2, 4, 1}}}));
}

TEST(WrittenCo64, ListsOffsetsAbove32Bits) {
  OnStream<impl::Co64Box> co64(2);
  co64.table.AddChunkOffset(0x123456789);
  co64.table.AddChunkOffset(UINT64_MAX);
  EXPECT_EQ(co64.Updated(), FullBox("co64", 0, 0, Co64{.offsets = {0x123456789, UINT64_MAX}}));
}

TEST(WrittenTables, AnEntryBeyondTheReservedSpaceIs17AndOverwritesNothing) {
  const auto expectFull = [](auto& on, auto add) {
    add();
    const Bytes full = on.Updated();
    EXPECT_EQ(ErrorOf(add), 17u);
    EXPECT_EQ(on.Updated(), full);
  };
  OnStream<impl::StszBox> stsz(1);
  expectFull(stsz, [&] { stsz.table.AddSampleSize(1); });
  OnStream<impl::StssBox> stss(1);
  expectFull(stss, [&] { stss.table.AddSyncSample(1); });
  OnStream<impl::StscBox> stsc(1);
  expectFull(stsc, [&] { stsc.table.AddChunks(1, 1, 1); });
  OnStream<impl::Co64Box> co64(1);
  expectFull(co64, [&] { co64.table.AddChunkOffset(1); });
}

TEST(WrittenTables, AFailedWriteCountsNothing) {
  OnStream<impl::StszBox> stsz(3);
  stsz.table.AddSampleSize(5);
  stsz.stream.Memory().ShortenNthWrite(1);
  EXPECT_EQ(ErrorOf([&] { stsz.table.AddSampleSize(6); }), 47u);
  EXPECT_EQ(stsz.table.GetSampleCount(), 1u);
}

TEST(WrittenSdtp, GrowsUpToTheEntryThatIsSet) {
  OnStream<impl::SdtpBox> sdtp(6);
  sdtp.table.SetEntry(3, 0xAB);
  EXPECT_EQ(sdtp.table.GetEntry(3), 0xABu);
  EXPECT_EQ(sdtp.table.GetEntry(0), 0u);
  EXPECT_EQ(sdtp.table.GetEntry(4), 0u);
  sdtp.table.SetEntry(0, 1);
  EXPECT_EQ(sdtp.Updated(), FullBox("sdtp", 0, 0, Bytes{1, 0, 0, 0xAB}).Patch(0, 18));
  sdtp.table.SetEntry(1, 2);
  EXPECT_EQ(sdtp.Updated(), FullBox("sdtp", 0, 0, Bytes{1, 2, 0, 0xAB}).Patch(0, 18));
  EXPECT_EQ(ErrorOf([&] { sdtp.table.SetEntry(kMost, 1); }), 31u);
}

}  // namespace
}  // namespace k7mtest

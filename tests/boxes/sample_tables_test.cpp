// 'stsz', 'stss', 'stsc', 'stco', 'co64' and 'sdtp': reading and look-ups.
#include <gtest/gtest.h>

#include "boxes/stbl_box.h"
#include "internals/document.h"
#include "internals/dump.h"
#include "support/heap_watch.h"

namespace k7mtest {
namespace {

using Numbers = std::vector<uint64_t>;

/// What an iterator gives, at most 20 values.
template <class Iterator, class Value>
Numbers Walk(Iterator it, Value value) {
  Numbers values;
  for (; it.HasMoreEntries() && values.size() < 20; ++it) {
    values.push_back(value(*it));
  }
  return values;
}

// 'stsz'
// -------------------------------------------------------------------------------------------

Numbers SizesFrom(const Stsz& stsz, uint32_t number) {
  Document document(FullBox("stsz", 0, 0, stsz));
  return Walk(document.Next<impl::StszBox>().FindBySampleNumber(number),
              [](const impl::SampleSizeEntry& entry) { return entry.size; });
}

TEST(Stsz, StartsAtTheSamplesOwnEntry) {
  const Stsz stsz{.sizes = {7, 0, 9}};
  EXPECT_EQ(SizesFrom(stsz, 1), (Numbers{7, 0, 9}));
  EXPECT_EQ(SizesFrom(stsz, 3), Numbers{9});
}

TEST(Stsz, HasNothingOutsideItsTable) {
  EXPECT_EQ(SizesFrom({.sizes = {7, 8}}, 0), Numbers{});
  EXPECT_EQ(SizesFrom({.sizes = {7, 8}}, 3), Numbers{});
  EXPECT_EQ(SizesFrom({.sizes = {7, 8}}, 0xFFFFFFFF), Numbers{});
  EXPECT_EQ(SizesFrom({}, 1), Numbers{});
}

TEST(Stsz, ConstantSizeNeedsNoTable) {
  Document document(FullBox("stsz", 0, 0, Stsz{.constantSize = 512, .count = 1000}));
  auto& stsz = document.Next<impl::StszBox>();
  EXPECT_EQ(stsz.GetSampleCount(), 1000U);
  uint32_t count = 0;
  for (auto it = stsz.FindBySampleNumber(1); it.HasMoreEntries(); ++it, ++count) {
    ASSERT_EQ(it->size, 512U);
  }
  EXPECT_EQ(count, 1000U);
}

TEST(Stsz, ConstantSizeDoesNotUseTheNumber) {
  const Stsz stsz{.constantSize = 5, .count = 3};
  for (const uint32_t number : {0U, 1U, 3U, 4U, 0xFFFFFFFFU}) {
    EXPECT_EQ(SizesFrom(stsz, number), (Numbers{5, 5, 5})) << number;
  }
}

TEST(Stsz, AConstantSizeIsAlsoLimitedTo100000000Samples) {
  const auto error = [](uint32_t count) {
    return ParseError(FullBox("stsz", 0, 0, Stsz{.constantSize = 1, .count = count}));
  };
  EXPECT_EQ(error(100000000), 0U);
  EXPECT_EQ(error(100000001), 31U);
}

TEST(Stsz, SumsTheSizesOfAnyStretchOfSamples) {
  Stsz stsz;
  for (uint32_t i = 0; i < 3000; ++i) {
    stsz.sizes.push_back(i * 7919 + 1);
  }
  Document document(FullBox("stsz", 0, 0, stsz));
  auto& box = document.Next<impl::StszBox>();
  for (const uint32_t number : {1U, 2U, 1024U, 1025U, 1026U, 2048U, 2049U, 3000U}) {
    for (const uint32_t count : {0U, 1U, 2U, 1023U, 1024U, 1025U, 2047U, 3000U}) {
      if (number - 1 + count > 3000) {
        continue;
      }
      uint64_t sum = 0;
      for (uint32_t i = 0; i < count; ++i) {
        sum += stsz.sizes[number - 1 + i];
      }
      EXPECT_EQ(box.SizeOfSamples(number, count), sum) << count << " from " << number;
    }
  }
}

TEST(Stsz, SumsOfAConstantSizeAreKeptIn64Bits) {
  Document document(FullBox("stsz", 0, 0, Stsz{.constantSize = 0xFFFFFFFF, .count = 100000000}));
  EXPECT_EQ(document.Next<impl::StszBox>().SizeOfSamples(1, 100000000),
            uint64_t{0xFFFFFFFF} * 100000000);
}

TEST(Stsz, AnIteratorMovesOnAtMostToItsEnd) {
  const auto after = [](const Stsz& stsz, uint32_t count) {
    Document document(FullBox("stsz", 0, 0, stsz));
    auto it = document.Next<impl::StszBox>().FindBySampleNumber(1);
    it.Advance(count);
    return Walk(it, [](const impl::SampleSizeEntry& entry) { return entry.size; });
  };
  EXPECT_EQ(after({.sizes = {7, 8, 9}}, 2), Numbers{9});
  EXPECT_EQ(after({.sizes = {7, 8, 9}}, 3), Numbers{});
  EXPECT_EQ(after({.sizes = {7, 8, 9}}, 0xFFFFFFFF), Numbers{});
  EXPECT_EQ(after({.constantSize = 5, .count = 3}, 1), (Numbers{5, 5}));
  EXPECT_EQ(after({.constantSize = 5, .count = 3}, 0xFFFFFFFF), Numbers{});
}

// 'stss'
// -------------------------------------------------------------------------------------------

Numbers SyncFrom(const std::vector<uint32_t>& numbers, uint32_t number) {
  Document document(FullBox("stss", 0, 0, Stss{.numbers = numbers}));
  return Walk(document.Next<impl::StssBox>().FindBySampleNumber(number),
              [](const impl::SyncSampleEntry& entry) { return entry.sampleNumber; });
}

TEST(Stss, StartsAtTheFirstNumberAtOrAfterTheSample) {
  EXPECT_EQ(SyncFrom({1, 5, 9}, 0), (Numbers{1, 5, 9}));
  EXPECT_EQ(SyncFrom({1, 5, 9}, 1), (Numbers{1, 5, 9}));
  EXPECT_EQ(SyncFrom({1, 5, 9}, 2), (Numbers{5, 9}));
  EXPECT_EQ(SyncFrom({1, 5, 9}, 9), Numbers{9});
  EXPECT_EQ(SyncFrom({1, 5, 9}, 10), Numbers{});
  EXPECT_EQ(SyncFrom({}, 1), Numbers{});
}

TEST(Stss, AnUnorderedTableIsScannedFromItsStart) {
  EXPECT_EQ(SyncFrom({4, 9, 2, 7}, 5), (Numbers{9, 2, 7}));
  EXPECT_EQ(SyncFrom({9, 8, 7}, 8), (Numbers{9, 8, 7}));
  EXPECT_EQ(SyncFrom({3, 3, 1}, 4), Numbers{});
}

// 'stco', 'co64'
// -----------------------------------------------------------------------------------

template <class T>
Numbers ChunksFrom(const Bytes& bytes, uint32_t chunk) {
  Document document(bytes);
  return Walk(document.Next<T>().FindByChunkNumber(chunk),
              [](const impl::ChunkOffsetEntry& entry) { return entry.offset; });
}

TEST(ChunkOffsets, StartAtTheChunksOwnEntry) {
  const Bytes stco = FullBox("stco", 0, 0, Stco{.offsets = {10, 0xFFFFFFFF, 5}});
  EXPECT_EQ(ChunksFrom<impl::StcoBox>(stco, 1), (Numbers{10, 0xFFFFFFFF, 5}));
  EXPECT_EQ(ChunksFrom<impl::StcoBox>(stco, 3), Numbers{5});
  const Bytes co64 = FullBox("co64", 0, 0, Co64{.offsets = {10, UINT64_MAX, 5}});
  EXPECT_EQ(ChunksFrom<impl::Co64Box>(co64, 2), (Numbers{UINT64_MAX, 5}));
}

TEST(ChunkOffsets, HaveNothingOutsideTheTable) {
  const Bytes stco = FullBox("stco", 0, 0, Stco{.offsets = {10, 20}});
  const Bytes co64 = FullBox("co64", 0, 0, Co64{.offsets = {10, 20}});
  for (const uint32_t chunk : {0U, 3U, 0xFFFFFFFFU}) {
    EXPECT_EQ(ChunksFrom<impl::StcoBox>(stco, chunk), Numbers{}) << chunk;
    EXPECT_EQ(ChunksFrom<impl::Co64Box>(co64, chunk), Numbers{}) << chunk;
  }
}

// 'sdtp'
// -------------------------------------------------------------------------------------------

Bytes TablesWith(const Bytes& sdtp, const Stsz& stsz) {
  return Box("stbl", sdtp, FullBox("stsd", 0, 0, Stsd{}), FullBox("stts", 0, 0, Stts{}),
             FullBox("stsc", 0, 0, Stsc{}), FullBox("stsz", 0, 0, stsz),
             FullBox("stco", 0, 0, Stco{}));
}

TEST(Sdtp, HasAsManyEntriesAsTheStszHasSamples) {
  // It stands in front of the 'stsz' and is completed behind it.
  const Bytes sdtp = FullBox("sdtp", 0, 0, Sdtp{.values = {1, 2, 3, 4, 5}});
  Document document(TablesWith(sdtp, {.sizes = {9, 9, 9}}));
  const auto* box = document.Next<impl::StblBox>().GetSdtpBox();
  const auto from = [box](uint32_t number) {
    return Walk(box->FindBySampleNumber(number), [](uint8_t value) { return value; });
  };
  EXPECT_EQ(from(1), (Numbers{1, 2, 3}));
  EXPECT_EQ(from(3), Numbers{3});
  EXPECT_EQ(from(4), Numbers{});
  EXPECT_EQ(from(0), Numbers{});
}

TEST(Sdtp, ShorterThanTheStszSaysIsError27) {
  const Bytes sdtp = FullBox("sdtp", 0, 0, Sdtp{.values = {1, 2}});
  EXPECT_EQ(ParseError(TablesWith(sdtp, {.sizes = {9, 9, 9}})), 27U);
  EXPECT_EQ(ParseError(TablesWith(sdtp, {.constantSize = 5, .count = 100000000})), 27U);
  EXPECT_EQ(ParseError(TablesWith(sdtp, {.sizes = {9, 9}})), 0U);
}

TEST(Sdtp, ACountAbove100000000IsError31) {
  Document document(FullBox("sdtp", 0, 0, Sdtp{.values = {1, 2}}));
  auto& box = document.Next<impl::SdtpBox>();
  const auto read = [&box](uint32_t count) {
    box.SetCount(count);
    box.SeekTo(12);
    return ErrorOf([&box] { box.ReadExtensionPayloadData(); });
  };
  EXPECT_EQ(read(100000001), 31U);
  EXPECT_EQ(read(0xFFFFFFFF), 31U);
  EXPECT_EQ(read(100000000), 27U);
  EXPECT_EQ(read(2), 0U);
}

// 'stsc'
// -------------------------------------------------------------------------------------------

using Runs = std::vector<Stsc::Run>;
struct Place {
  uint32_t sample;
  uint32_t chunk;
  uint32_t description;
  friend bool operator==(const Place&, const Place&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Place& place) {
    return out << place.sample << '@' << place.chunk << '/' << place.description;
  }
};
using Places = std::vector<Place>;

Places PlacesFrom(const Runs& runs, uint32_t number, size_t limit = 8) {
  Document document(FullBox("stsc", 0, 0, Stsc{.runs = runs}));
  Places places;
  auto it = document.Next<impl::StscBox>().FindBySampleNumber(number);
  for (; it.HasMoreEntries() && places.size() < limit; ++it) {
    places.push_back({it->sampleNumber, it->chunkNumber, it->descriptionIndex});
  }
  return places;
}

const Runs kChunks = {{1, 2, 1}, {3, 1, 2}, {4, 3, 1}};  // 1 2 | 3 4 || 5 || 6 7 8 | 9 10 11 | ...

TEST(Stsc, WalksSamplesChunksAndDescriptions) {
  EXPECT_EQ(PlacesFrom(kChunks, 1, 10), (Places{{1, 1, 1},
                                                {2, 1, 1},
                                                {3, 2, 1},
                                                {4, 2, 1},
                                                {5, 3, 2},
                                                {6, 4, 1},
                                                {7, 4, 1},
                                                {8, 4, 1},
                                                {9, 5, 1},
                                                {10, 5, 1}}));
}

TEST(Stsc, StartsAtTheFirstSampleOfTheChunk) {
  EXPECT_EQ(PlacesFrom(kChunks, 2, 1), (Places{{1, 1, 1}}));
  EXPECT_EQ(PlacesFrom(kChunks, 3, 1), (Places{{3, 2, 1}}));
  EXPECT_EQ(PlacesFrom(kChunks, 4, 1), (Places{{3, 2, 1}}));
  EXPECT_EQ(PlacesFrom(kChunks, 5, 1), (Places{{5, 3, 2}}));
  EXPECT_EQ(PlacesFrom(kChunks, 8, 1), (Places{{6, 4, 1}}));
  EXPECT_EQ(PlacesFrom(kChunks, 3000002, 1), (Places{{3000000, 1000002, 1}}));
}

TEST(Stsc, TheLastRunIsOpenEnded) {
  EXPECT_EQ(PlacesFrom({{1, 1, 1}}, 0xFFFFFFF0, 1), (Places{{0xFFFFFFF0, 0xFFFFFFF0, 1}}));
}

TEST(Stsc, SampleZeroIsInNoChunk) { EXPECT_EQ(PlacesFrom(kChunks, 0), Places{}); }

TEST(Stsc, AFirstChunkOtherThanOneIsError23) {
  for (const uint32_t first : {0U, 2U, 0xFFFFFFFFU}) {
    EXPECT_EQ(ParseError(FullBox("stsc", 0, 0, Stsc{.runs = {{first, 1, 1}}})), 23U) << first;
  }
}

TEST(Stsc, FirstChunksThatDecreaseAreError23) {
  EXPECT_EQ(ParseError(FullBox("stsc", 0, 0, Stsc{.runs = {{1, 1, 1}, {3, 1, 1}, {2, 1, 1}}})),
            23U);
  EXPECT_EQ(ParseError(FullBox("stsc", 0, 0, Stsc{.runs = {{1, 1, 1}, {0, 1, 1}}})), 23U);
}

TEST(Stsc, EqualFirstChunksAreARunOfZeroChunks) {
  EXPECT_EQ(PlacesFrom({{1, 5, 7}, {1, 2, 8}, {3, 1, 9}}, 1, 6),
            (Places{{1, 1, 8}, {2, 1, 8}, {3, 2, 8}, {4, 2, 8}, {5, 3, 9}, {6, 4, 9}}));
}

TEST(Stsc, RunsOfZeroSamplesPerChunkAreSteppedOverWithTheirChunks) {
  EXPECT_EQ(PlacesFrom({{1, 1, 1}, {2, 0, 2}, {5, 1, 3}}, 1, 3),
            (Places{{1, 1, 1}, {2, 5, 3}, {3, 6, 3}}));
  EXPECT_EQ(PlacesFrom({{1, 0, 1}, {4, 2, 2}}, 1, 3), (Places{{1, 4, 2}, {2, 4, 2}, {3, 5, 2}}));
  EXPECT_EQ(PlacesFrom({{1, 1, 1}, {2, 0, 2}, {5, 1, 3}}, 2, 1), (Places{{2, 5, 3}}));
}

TEST(Stsc, ALastRunOfZeroSamplesPerChunkEndsTheTrack) {
  EXPECT_EQ(PlacesFrom({{1, 1, 1}, {3, 0, 1}}, 1), (Places{{1, 1, 1}, {2, 2, 1}}));
  EXPECT_EQ(PlacesFrom({{1, 1, 1}, {3, 0, 1}}, 3), Places{});
  EXPECT_EQ(PlacesFrom({{1, 0, 1}}, 1), Places{});
}

TEST(Stsc, WithoutEntriesItHasOneOpenRunWithoutSamples) {
  Document document(FullBox("stsc", 0, 0, Stsc{}));
  auto& stsc = document.Next<impl::StscBox>();
  EXPECT_EQ(Dump(stsc),
            "entries=[1] { first_chunk=1 samples_per_chunk=0 sample_description_index=1 } ;");
  EXPECT_FALSE(stsc.FindBySampleNumber(1).HasMoreEntries());
  const impl::ChunkEntry run;
  EXPECT_EQ(run.chunkCount, 0xFFFFFFFFU);
  EXPECT_EQ(run.firstSample, 1U);
}

std::string StscDump(const Bytes& bytes) {
  Document document(bytes + Box("free", Bytes().Fill(100)));
  const std::string dump = Dump(document.Next<impl::StscBox>());
  EXPECT_TRUE(document.Warnings().empty());
  return dump;
}

TEST(Stsc, ACountThatPromisesTooMuchKeepsTheWholeEntriesThatAreThere) {
  const char* two =
      "entries=[2] { first_chunk=1 samples_per_chunk=2 sample_description_index=1 } "
      "{ first_chunk=3 samples_per_chunk=1 sample_description_index=2 } ;";
  const Runs runs = {{1, 2, 1}, {3, 1, 2}};
  EXPECT_EQ(StscDump(FullBox("stsc", 0, 0, Stsc{.runs = runs, .count = 3})), two);
  EXPECT_EQ(StscDump(FullBox("stsc", 0, 0, Stsc{.runs = runs, .count = 100001})), two);
  EXPECT_EQ(StscDump(FullBox("stsc", 0, 0, Stsc{.runs = runs, .count = 3}, Pattern(11))), two);
}

TEST(Stsc, ACountThatPromisesLessLeavesTheRest) {
  EXPECT_EQ(StscDump(FullBox("stsc", 0, 0, Stsc{.runs = kChunks, .count = 1})),
            "entries=[1] { first_chunk=1 samples_per_chunk=2 sample_description_index=1 } ;");
}

TEST(Stsc, TheSizeOfItsBufferWrapsIn32Bits) {
  // 12 * 0x15555556 is 8 and 12 * 0x15555557 is 20 in 32 bits: room for no and for one entry.
  EXPECT_EQ(StscDump(FullBox("stsc", 0, 0, Stsc{.runs = kChunks, .count = 0x15555556})),
            "entries=[1] { first_chunk=1 samples_per_chunk=0 sample_description_index=1 } ;");
  EXPECT_EQ(StscDump(FullBox("stsc", 0, 0, Stsc{.runs = kChunks, .count = 0x15555557})),
            "entries=[1] { first_chunk=1 samples_per_chunk=2 sample_description_index=1 } ;");
}

TEST(Stsc, ItsCountIsReadWithoutALookAtItsEnd) {
  EXPECT_EQ(ParseError(FullBox("stsc", 0, 0)), 5U);
  EXPECT_EQ(ParseError(FullBox("stsc", 0, 0) + Box("free")), 0U);
}

TEST(Stsc, AShortReadIsNoError) {
  Document document(FullBox("stsc", 0, 0, Stsc{.runs = kChunks}));
  document.Opened().Memory().LimitReads(30);
  EXPECT_EQ(Dump(document.Next<impl::StscBox>()),
            "entries=[2] { first_chunk=1 samples_per_chunk=2 sample_description_index=1 } "
            "{ first_chunk=3 samples_per_chunk=1 sample_description_index=2 } ;");
}

TEST(Stsc, SampleNumbersBeyond32BitsWrapWithoutHarm) {
  const Runs runs = {{1, 0xFFFFFFFF, 1}, {0x80000000, 0x80000001, 1}, {0xFFFFFFFE, 3, 1}};
  for (const uint32_t number : {1U, 2U, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
    EXPECT_LE(PlacesFrom(runs, number).size(), 8U);
  }
}

// Memory
// -------------------------------------------------------------------------------------------

TEST(SampleTables, CountsInTheFileTakeNoMemoryThatTheFileDoesNotFill) {
  // Lies about its length too, so that the check against the stream's end does not catch the count.
  const auto peak = [](const Bytes& bytes) {
    Document document(bytes);
    document.Opened().Memory().SetLength(uint64_t{1} << 40);
    document.Opened().Memory().LimitReads(100);
    ResetHeapPeak();
    const int64_t before = CountHeap().peakBytes;
    EXPECT_EQ(ErrorOf([&] { document.Next(); }), 5U);
    return CountHeap().peakBytes - before;
  };
  ASSERT_TRUE(HeapIsWatched());
  constexpr int64_t kLimit = 64 * 1024 * 1024;
  const uint32_t size = 0xFFFFFFFF;
  EXPECT_LT(peak(LyingFullBox("stsz", size, 0, 0, Stsz{.count = 100000000})), kLimit);
  EXPECT_LT(peak(LyingFullBox("stts", size, 0, 0, Stts{.count = 100000000})), kLimit);
  EXPECT_LT(peak(LyingFullBox("ctts", size, 0, 0, Ctts{.count = 100000000})), kLimit);
  EXPECT_LT(peak(LyingFullBox("stco", size, 0, 0, Stco{.count = 100000000})), kLimit);
  EXPECT_LT(peak(LyingFullBox("co64", size, 0, 0, Co64{.count = 100000000})), kLimit);
  EXPECT_LT(peak(LyingFullBox("elst", size, 0, 0, Elst{.count = 100000000})), kLimit);
  EXPECT_LT(peak(LyingFullBox("hdlr", 100000032, 0, 0, Hdlr{.name = ""})), kLimit);
  EXPECT_LT(peak(LyingBox("ftyp", 400000016, Ftyp{.brands = {}})), kLimit);
  EXPECT_LT(peak(LyingBox("uuid", size, Pattern(16))), kLimit);
  EXPECT_LT(peak(LyingBox("hint", size - 3)), kLimit);
}

}  // namespace
}  // namespace k7mtest

#include <gtest/gtest.h>

#include "boxes/edit_boxes.h"
#include "boxes/ftyp_box.h"
#include "boxes/mdat_box.h"
#include "boxes/media_boxes.h"
#include "boxes/media_information_boxes.h"
#include "boxes/movie_boxes.h"
#include "boxes/sample.h"
#include "boxes/sample_entries.h"
#include "boxes/track_boxes.h"
#include "boxes/unknown_full_box.h"
#include "boxes/uuid_boxes.h"
#include "internals/document.h"
#include "internals/writing_stream.h"
#include "support/counted_buffer.h"
#include "support/opened_writer.h"

namespace k7mtest {
namespace {

constexpr QiroK7MAllocatorCallBacks* kNoAllocator = nullptr;

/// What the box writes, which must be as long as it says.
Bytes Written(impl::Box& box, WritingStream& stream) {
  box.WriteBox();
  EXPECT_EQ(stream.Memory().Length(), box.GetTotalSize());
  return stream.Content();
}

TEST(WrittenFtyp, ListsItsBrandsInOrderDuplicatesIncluded) {
  WritingStream stream;
  impl::FtypBox box(stream.Get(), Code("abcd"), 77, kNoAllocator);
  EXPECT_EQ(box.GetTotalSize(), 16u);
  for (const char* brand : {"isom", "zzzz", "isom"}) box.AddCompatibleBrand(Code(brand));
  EXPECT_EQ(box.GetTotalSize(), 28u);
  EXPECT_EQ(Written(box, stream), Box("ftyp", Ftyp{.majorBrand = "abcd",
                                                   .minorVersion = 77,
                                                   .brands = {"isom", "zzzz", "isom"}}));
}

TEST(WrittenMvhd, CarriesTheUnityMatrixThoughAnotherWasRead) {
  Matrix turned = kUnityMatrix;
  turned[1] = 5;
  WritingStream stream;
  stream.Memory().Put(0, FullBox("mvhd", 1, 0, Mvhd{.matrix = turned, .nextTrackId = 3}));
  const auto header = impl::BoxHeader::Parse(*stream.Get(), nullptr);
  ASSERT_TRUE(header);
  impl::MvhdBox box(stream.Get(), *header, kNoAllocator);
  box.ReadPayloadFromStream();
  EXPECT_EQ(Written(box, stream), FullBox("mvhd", 1, 0, Mvhd{.nextTrackId = 3}));
}

TEST(WrittenTkhd, CarriesTheUnityMatrixThoughAnotherWasRead) {
  Matrix turned = kUnityMatrix;
  turned[4] = 5;
  WritingStream stream;
  stream.Memory().Put(0, FullBox("tkhd", 1, 7, Tkhd{.trackId = 3, .matrix = turned}));
  const auto header = impl::BoxHeader::Parse(*stream.Get(), nullptr);
  ASSERT_TRUE(header);
  impl::TkhdBox box(stream.Get(), *header, kNoAllocator);
  box.ReadPayloadFromStream();
  EXPECT_EQ(Written(box, stream), FullBox("tkhd", 1, 7, Tkhd{.trackId = 3}));
}

TEST(WrittenMvhd, AnUpdateTouchesDurationAndNextTrackIdOnly) {
  WritingStream stream;
  impl::MvhdBox box(stream.Get(), 1, 0, DocInfoOf(600), kNoAllocator);
  const Bytes before = Written(box, stream);
  box.SetDuration(0x1122334455667788);
  box.SetNextTrackId(0x99AABBCC);
  stream.Memory().ClearLog();
  box.UpdateBox();
  EXPECT_EQ(stream.Content(),
            Bytes(before).Patch(32, 0x1122334455667788, 8).Patch(116, 0x99AABBCC));
  EXPECT_EQ(stream.Memory().Count(Call::kWrite), 2u);
}

TEST(WrittenHdlr, ANameAboveAHundredMillionBytesIs9) {
  const QiroK7MTrackInfo info{};
  const QiroK7MTrackEntriesInfo entries{};
  const uint8_t* const noBytes = nullptr;  // Nobody looks at them.
  const impl::TrackSetup setup{info, entries, {noBytes, 100000001}, 1, 1, 1, 1, {}};
  WritingStream stream;
  EXPECT_EQ(ErrorOf([&] { impl::HdlrBox(stream.Get(), 0, 0, setup, kNoAllocator); }), 9u);
}

TEST(WrittenVmhd, HoldsZerosThoughOtherNumbersWereRead) {
  WritingStream stream;
  stream.Memory().Put(0, FullBox("vmhd", 0, 1, Vmhd{.graphicsMode = 1, .opColor = {2, 3, 4}}));
  const auto header = impl::BoxHeader::Parse(*stream.Get(), nullptr);
  ASSERT_TRUE(header);
  impl::VmhdBox box(stream.Get(), *header, kNoAllocator);
  box.ReadPayloadFromStream();
  EXPECT_EQ(Written(box, stream), FullBox("vmhd", 0, 1, Vmhd{}));
}

TEST(WrittenTref, HoldsTheIdsOfTheHintedTracks) {
  for (const std::vector<uint32_t>& ids : {std::vector<uint32_t>{}, {3}, {1, 2, 0xFFFFFFFF}}) {
    WritingStream stream;
    impl::TrefBox box(stream.Get(), ids, kNoAllocator);
    Bytes list;
    for (const uint32_t id : ids) list.U32(id);
    EXPECT_EQ(Written(box, stream), Box("tref", Box("hint", list)));
    for (const uint32_t id : ids) EXPECT_TRUE(box.ValidateHintRefTrackID(id));
    EXPECT_FALSE(box.ValidateHintRefTrackID(77));
  }
}

TEST(WrittenElst, ReservesTwiceTheGapsAndOne) {
  for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
    WritingStream stream;
    impl::ElstBox box(stream.Get(), version, 3, kNoAllocator);
    const size_t entrySize = version == 1 ? 20 : 12;
    EXPECT_EQ(box.GetTotalSize(), 16 + 7 * entrySize);
    EXPECT_EQ(box.GetCapacity(), 7u);
    EXPECT_EQ(Written(box, stream), FullBox("elst", version, 0, Bytes().Fill(4 + 7 * entrySize)));
    const std::vector<Elst::Entry> entries = {{5, 0}, {6, -1}, {7, 8}};
    for (const auto& e : entries) box.AddElstEntry(e.segmentDuration, e.mediaTime, 1);
    box.UpdateBox();
    const Bytes list = FullBox("elst", version, 0, Elst{.entries = entries});
    EXPECT_EQ(stream.Content(), Bytes(list).Fill(4 * entrySize).Patch(0, 16 + 7 * entrySize));
  }
}

TEST(WrittenElst, TheEntryBeyondTheCapacityIs16) {
  WritingStream stream;
  impl::ElstBox box(stream.Get(), 0, 0, kNoAllocator);
  box.AddElstEntry(1, 0, 1);
  EXPECT_EQ(ErrorOf([&] { box.AddElstEntry(1, 0, 1); }), 16u);
  EXPECT_EQ(box.GetEntries().size(), 1u);
  box.DeleteLastElstEntry();
  box.AddElstEntry(2, 0, 1);
  EXPECT_EQ(box.GetEntries()[0].segmentDuration, 2u);
}

TEST(WrittenElst, KnowsItsGapsAndWhereItsLastEntryStarts) {
  WritingStream stream;
  impl::ElstBox box(stream.Get(), 0, 2, kNoAllocator);
  EXPECT_EQ(box.GetLastSegStartTime(), 0u);
  EXPECT_EQ(box.GetLastEntryMediaTime(), 0);
  box.AddElstEntry(10, 0, 1);
  box.AddElstEntry(20, -1, 1);
  box.UpdateLastElstEntry(25);
  box.AddElstEntry(5, 10, 1);
  EXPECT_EQ(box.GetLastSegStartTime(), 35u);
  EXPECT_EQ(box.GetLastEntryMediaTime(), 10);
  EXPECT_EQ(box.GetGapsCount(), 1u);
  EXPECT_EQ(box.GetGapsDuration(), 25u);
}

TEST(WrittenElst, TheRateIsOneUnlessItIsZero) {
  WritingStream stream;
  impl::ElstBox box(stream.Get(), 0, 1, kNoAllocator);
  box.AddElstEntry(1, 2, 0);
  box.AddElstEntry(3, 4, 0x80000000);
  EXPECT_EQ(Written(box, stream).Slice(16, 24),
            Bytes().U32(1).U32(2).U16(0).U16(0).U32(3).U32(4).U16(1).U16(0));
}

TEST(WrittenElst, NumbersThatDoNotFitAreWrittenAsTheLargestThatDo) {
  WritingStream stream;
  impl::ElstBox box(stream.Get(), 0, 1, kNoAllocator);
  box.AddElstEntry(0xFFFFFFFF, 0x7FFFFFFF, 1);
  box.AddElstEntry(0x100000000, 0x80000000, 1);
  box.AddElstEntry(UINT64_MAX, INT64_MAX, 1);
  const Bytes largest = Bytes().U32(0xFFFFFFFF).U32(0x7FFFFFFF).U16(1).U16(0);
  EXPECT_EQ(Written(box, stream).Slice(16, 36), largest + largest + largest);
}

TEST(WrittenElst, Version1KeepsThemWhole) {
  WritingStream stream;
  impl::ElstBox box(stream.Get(), 1, 0, kNoAllocator);
  box.AddElstEntry(0x123456789ABCDEF0, 0x0FEDCBA987654321, 1);
  EXPECT_EQ(Written(box, stream).Slice(16, 20),
            Bytes().U64(0x123456789ABCDEF0).U64(0x0FEDCBA987654321).U16(1).U16(0));
}

TEST(WrittenElst, ADeletedEntryLeavesZeros) {
  WritingStream stream;
  impl::ElstBox box(stream.Get(), 0, 1, kNoAllocator);
  const Bytes empty = Written(box, stream);
  box.AddElstEntry(1, 2, 1);
  box.UpdateBox();
  box.DeleteLastElstEntry();
  box.UpdateBox();
  EXPECT_EQ(stream.Content(), empty);
}

TEST(WrittenElst, ManyEntriesAreWrittenWhole) {
  WritingStream stream;
  impl::ElstBox box(stream.Get(), 0, 1000, kNoAllocator);
  std::vector<Elst::Entry> entries;
  for (uint32_t i = 0; i < 2001; ++i) {
    entries.push_back({i, i % 2 == 0 ? int64_t{i} : -1});
    box.AddElstEntry(i, entries.back().mediaTime, 1);
  }
  EXPECT_EQ(Written(box, stream), FullBox("elst", 0, 0, Elst{.entries = entries}));
}

TEST(WrittenElst, MoreThanAHundredMillionEntriesAre9) {
  WritingStream stream;
  EXPECT_EQ(ErrorOf([&] { impl::ElstBox(stream.Get(), 0, 50000000, kNoAllocator); }), 9u);
  EXPECT_EQ(ErrorOf([&] { impl::ElstBox(stream.Get(), 0, 0xFFFFFFFF, kNoAllocator); }), 9u);
  EXPECT_EQ(ErrorOf([&] { impl::ElstBox(stream.Get(), 0, 49999999, kNoAllocator); }), 0u);
}

TEST(WrittenUuid, KeepsThePayloadOfTheOneReadByteForByte) {
  const Uuid extendedType = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  const Bytes file = UuidBox(extendedType, Pattern(100));
  Document document(file);
  auto& read = document.Next<impl::UuidBox>();
  WritingStream stream;
  impl::QiroK7MUUID uuid;
  std::copy(extendedType.begin(), extendedType.end(), uuid.begin());
  impl::UuidBox box(stream.Get(), uuid, kNoAllocator);
  box.SetPayload(read.GetPayload(), read.GetPayloadSize());
  EXPECT_EQ(Written(box, stream), file);
}

TEST(WrittenUuid, SettingAPayloadAgainReplacesIt) {
  WritingStream stream;
  impl::UlbDataBox box(stream.Get(), kNoAllocator);
  EXPECT_FALSE(box.HasPayload());
  EXPECT_EQ(box.GetTotalSize(), 24u);
  box.SetPayload(Pattern(50).Data(), 50);
  const Bytes second = Pattern(7, 2);
  box.SetPayload(second.Data(), 7);
  EXPECT_EQ(box.GetUlbDataLen(), 7u);
  EXPECT_EQ(Written(box, stream), UuidBox(kMetadataUuid, second));
}

TEST(WrittenUnknownFullBox, HasThePayloadThatItWasGiven) {
  WritingStream stream;
  const Bytes payload = Pattern(9);
  impl::UnknownFullBox box(stream.Get(), Code("abcd"), 1, 0x00ABCDEF, payload.Vector(),
                           kNoAllocator);
  EXPECT_EQ(Written(box, stream), FullBox("abcd", 1, 0xABCDEF, payload));
}

impl::Sample SampleOfSize(uint32_t size) {
  QiroK7MSampleInfo info{};
  info.sampleSize = size;
  return impl::Sample(info, 0, nullptr, nullptr, nullptr);
}

TEST(WrittenMdat, UnbufferedWritesAndReleasesEachSampleAtOnce) {
  WritingStream stream;
  impl::MdatBox box(stream.Get(), false, kNoAllocator);
  box.SetBeginOffset(100);
  CountedBuffer a(Pattern(5, 1));
  CountedBuffer b(Pattern(6, 2));
  impl::Sample first = SampleOfSize(5);
  impl::Sample second = SampleOfSize(6);
  box.AddSampleData(first, a.Record());
  EXPECT_EQ(a.Releases(), 1);
  EXPECT_EQ(a.Record()->release, nullptr);
  EXPECT_EQ(stream.Memory().Content(116, 5), Pattern(5, 1));
  box.AddSampleData(second, b.Record());
  EXPECT_EQ(first.GetSampleDataOffset(), 116u);
  EXPECT_EQ(second.GetSampleDataOffset(), 121u);
  EXPECT_EQ(box.GetTotalSize(), 27u);
  box.WriteBox();
  EXPECT_EQ(stream.Memory().Content(100, 27), LargeBox("mdat", Pattern(5, 1), Pattern(6, 2)));
}

TEST(WrittenMdat, BufferedKeepsTheBuffersAndGivesThemBackLastFirst) {
  static std::vector<int> order;
  order.clear();
  int numbers[3] = {0, 1, 2};
  Bytes bytes[3] = {Pattern(3, 1), Pattern(4, 2), Pattern(5, 3)};
  WritingStream stream;
  {
    impl::MdatBox box(stream.Get(), true, kNoAllocator);
    for (int& number : numbers) {
      Bytes& data = bytes[number];
      const auto size = static_cast<uint32_t>(data.Size());
      QiroK7MDataBuffer buffer{size, data.Data(), &number, [](void* clientData, void*) {
                                 order.push_back(*static_cast<int*>(clientData));
                               }};
      impl::Sample sample = SampleOfSize(size);
      box.AddSampleData(sample, &buffer);
      EXPECT_EQ(buffer.release, nullptr);  // The box has it now.
    }
    EXPECT_EQ(stream.Memory().Count(Call::kWrite), 0u);
    for (int i = 0; i < 2; ++i) {  // The buffers live on: it may be written again.
      box.WriteBox();
      EXPECT_EQ(stream.Content(), LargeBox("mdat", bytes[0], bytes[1], bytes[2]));
    }
    EXPECT_TRUE(order.empty());
  }
  EXPECT_EQ(order, (std::vector<int>{2, 1, 0}));
}

TEST(WrittenMdat, ASampleWithoutABufferStillTakesItsPlace) {
  WritingStream stream;
  impl::MdatBox box(stream.Get(), false, kNoAllocator);
  impl::Sample sample = SampleOfSize(9);
  box.AddSampleData(sample, nullptr);
  EXPECT_EQ(sample.GetSampleDataOffset(), 16u);
  EXPECT_EQ(box.GetTotalSize(), 25u);
  EXPECT_EQ(stream.Memory().Count(Call::kWrite), 0u);
}

TEST(WrittenMdat, AFailedWriteLeavesTheBufferToTheCaller) {
  WritingStream stream;
  impl::MdatBox box(stream.Get(), false, kNoAllocator);
  CountedBuffer buffer(Pattern(5));
  impl::Sample sample = SampleOfSize(5);
  stream.Memory().ShortenNthWrite(1);
  EXPECT_EQ(ErrorOf([&] { box.AddSampleData(sample, buffer.Record()); }), 47u);
  EXPECT_EQ(buffer.Releases(), 0);
  EXPECT_EQ(box.GetTotalSize(), 16u);
}

TEST(WrittenEntry, NeedsADescriptor) {
  WritingStream stream;
  EXPECT_EQ(ErrorOf([&] {
              impl::K7MSampleEntry(stream.Get(), Code("abcd"), uint16_t{1}, nullptr, kNoAllocator);
            }),
            20u);
  EXPECT_EQ(ErrorOf([&] {
              impl::K7MVideoSampleEntry(stream.Get(), Code("abcd"), nullptr, kNoAllocator);
            }),
            20u);
}

TEST(WrittenEntry, TakesTheGivenDataReference) {
  WritingStream stream;
  const Bytes codecHeader = Pattern(4);
  impl::K7MSampleEntry box(
      stream.Get(), Code("abcd"), uint16_t{0x1234},
      std::make_unique<impl::SampleDescriptor>(Code("abcd"), codecHeader.Vector()), kNoAllocator);
  EXPECT_EQ(Written(box, stream),
            OtherEntry("abcd", {.dataReference = 0x1234, .codecHeader = codecHeader}));
}

TEST(WrittenBox, ASizeThatDoesNotFit32BitsIsAnError) {
  class BigBox : public impl::Box {
   public:
    explicit BigBox(impl::QiroK7MStream* stream) : Box(stream, Code("abcd"), nullptr) {
      Grow(uint64_t{0xFFFFFFFF} - 8);
    }
    using Box::Grow;
  };
  WritingStream stream;
  BigBox box(stream.Get());
  EXPECT_EQ(ErrorOf([&] { box.WriteBox(); }), 0u);
  const Bytes before = stream.Content();
  EXPECT_EQ(before.NumberAt(0), 0xFFFFFFFFu);
  box.Grow(1);
  EXPECT_EQ(ErrorOf([&] { box.WriteBox(); }), 19u);
  EXPECT_EQ(stream.Content(), before);
}

}  // namespace
}  // namespace k7mtest

#include <gtest/gtest.h>

#include "boxes/fragment_boxes.h"
#include "boxes/movie_extends_boxes.h"
#include "boxes/random_access_boxes.h"
#include "internals/document.h"
#include "internals/writing_stream.h"

namespace k7mtest {
namespace {

constexpr QiroK7MAllocatorCallBacks* kNoAllocator = nullptr;

/// What the box writes, which must be as long as it says.
Bytes Written(impl::Box& box, WritingStream& stream) {
  box.WriteBox();
  EXPECT_EQ(stream.Memory().Length(), box.GetTotalSize());
  return stream.Content();
}

/// The box as it was read back from `file`, written elsewhere.
template <class T>
Bytes WrittenAgain(const Bytes& file) {
  WritingStream stream;
  stream.Memory().Put(0, file);
  const auto header = impl::BoxHeader::Parse(*stream.Get(), nullptr);
  T box(stream.Get(), *header, kNoAllocator);
  box.ReadPayloadFromStream();
  stream.Memory().Put(0, Bytes().Fill(file.Size(), 0xEE));
  box.WriteBox();
  return stream.Content();
}

TEST(WrittenMehd, Has64BitsInVersion1) {
  WritingStream stream;
  impl::MehdBox box(stream.Get(), kNoAllocator);
  box.SetDuration(0x1122334455667788);
  EXPECT_EQ(Written(box, stream), FullBox("mehd", 1, 0, Mehd{.duration = 0x1122334455667788}));
  box.SetDuration(9);
  stream.Memory().ClearLog();
  box.UpdateBox();
  EXPECT_EQ(stream.Content(), FullBox("mehd", 1, 0, Mehd{.duration = 9}));
}

TEST(WrittenMehd, Has32BitsInVersion0) {
  const Bytes file = FullBox("mehd", 0, 0, Mehd{.duration = 0x11223344});
  EXPECT_EQ(WrittenAgain<impl::MehdBox>(file), file);
}

TEST(WrittenTrex, SaysOneForEveryDefault) {
  WritingStream stream;
  impl::TrexBox box(stream.Get(), 0xFFFFFFFE, kNoAllocator);
  EXPECT_EQ(Written(box, stream),
            FullBox("trex", 0, 0, Trex{.trackId = 0xFFFFFFFE, .sampleFlags = 1}));
}

TEST(WrittenMvex, PutsTheDurationFirst) {
  WritingStream stream;
  impl::MvexBox box(stream.Get(), kNoAllocator);
  box.AddChildBox(impl::MakeBox<impl::TrexBox>(kNoAllocator, stream.Get(), 1U));
  box.AddChildBox(impl::MakeBox<impl::TrexBox>(kNoAllocator, stream.Get(), 2U));
  box.SetDuration(77);
  EXPECT_EQ(Written(box, stream), Box("mvex", FullBox("mehd", 1, 0, Mehd{.duration = 77}),
                                      FullBox("trex", 0, 0, Trex{.trackId = 1, .sampleFlags = 1}),
                                      FullBox("trex", 0, 0, Trex{.trackId = 2, .sampleFlags = 1})));
}

TEST(WrittenMoof, HoldsItsSequenceNumberFirst) {
  WritingStream stream;
  impl::MoofBox box(stream.Get(), 0xFFFFFFFF, kNoAllocator);
  EXPECT_EQ(box.GetSequenceNumber(), 0xFFFFFFFFu);
  EXPECT_EQ(Written(box, stream),
            Box("moof", FullBox("mfhd", 0, 0, Mfhd{.sequenceNumber = 0xFFFFFFFF})));
}

TEST(WrittenTfhd, CarriesBaseAndDescription) {
  WritingStream stream;
  impl::TfhdBox box(stream.Get(), 3, uint64_t{0x123456789}, 4, kNoAllocator);
  box.UpdateSDId(5);
  box.IncrementBaseDataOffset(0x100000000);
  EXPECT_EQ(
      Written(box, stream),
      FullBox("tfhd", 0, 3, Tfhd{.trackId = 3, .baseDataOffset = 0x223456789, .description = 5}));
}

TEST(WrittenTfhd, PutsOneInPlaceOfEveryDefaultThatIsFlagged) {
  const Tfhd given{.trackId = 1,
                   .baseDataOffset = 2,
                   .description = 3,
                   .duration = 40,
                   .size = 50,
                   .sampleFlags = 60};
  const Tfhd expected{.trackId = 1,
                      .baseDataOffset = 2,
                      .description = 3,
                      .duration = 1,
                      .size = 1,
                      .sampleFlags = 1};
  for (const uint32_t flags : {0x00u, 0x01u, 0x02u, 0x08u, 0x10u, 0x20u, 0x38u, 0x3Bu}) {
    EXPECT_EQ(WrittenAgain<impl::TfhdBox>(FullBox("tfhd", 0, flags, given)),
              FullBox("tfhd", 0, flags, expected))
        << flags;
  }
}

TEST(WrittenTrun, CountsItsPayloadByItsFlags) {
  EXPECT_EQ(impl::TrunBox::GetTrunSize(0, 7), 4u);
  EXPECT_EQ(impl::TrunBox::GetTrunSize(0x1, 7), 8u);
  EXPECT_EQ(impl::TrunBox::GetTrunSize(0x5, 7), 12u);
  for (const uint32_t flag : {0x100u, 0x200u, 0x400u, 0x800u}) {
    EXPECT_EQ(impl::TrunBox::GetTrunSize(flag, 7), 32u) << flag;
  }
  EXPECT_EQ(impl::TrunBox::GetTrunSize(0xF05, 7), 12u + 16 * 7);
  EXPECT_EQ(impl::TrunBox::GetTrunSize(0xF01, 0xFFFFFFFF), 8 + 16 * uint64_t{0xFFFFFFFF});
  EXPECT_EQ(impl::TrunBox::GetTrunSize(0xFFF0FA, 7), 4u);
}

TEST(WrittenTrun, HoldsEveryFieldOfItsSamples) {
  WritingStream stream;
  impl::TrunBox box(stream.Get(), 1000, 1020, 5, kNoAllocator);
  box.AddSample({5, 10, 3, 0x02000000, 0xFFFFFFFF, 1020});
  box.AddSample({15, 7, 4, 0x01010000, 8, 1023});
  EXPECT_EQ(box.DataEnd(), 1027u);
  box.UpdateLastSample(99);
  EXPECT_EQ(box.EndTime(), 5u + 10 + 99);
  EXPECT_EQ(box.LastTimeStamp(), 15u);
  box.AccountForPayload();
  EXPECT_EQ(Written(box, stream),
            FullBox("trun", 0, 0xF01,
                    Trun{.dataOffset = 20,
                         .samples = {{10, 3, 0x02000000, 0xFFFFFFFF}, {99, 4, 0x01010000, 8}}}));
  EXPECT_EQ(box.LastSampleDurationOffset(), 20u + 16);
}

TEST(WrittenTraf, ARunEndsWhenBytesDoNotFollow) {
  WritingStream stream;
  impl::TrafBox box(stream.Get(), 2, 100, 1, kNoAllocator);
  EXPECT_TRUE(box.AddSample({0, 0, 3, 0, 0, 100}));
  EXPECT_FALSE(box.AddSample({4, 0, 2, 0, 0, 103}));
  EXPECT_TRUE(box.AddSample({9, 0, 2, 0, 0, 106}));   // A hole.
  EXPECT_TRUE(box.AddSample({11, 0, 2, 0, 0, 107}));  // An overlap.
  EXPECT_TRUE(box.AddSample({12, 0, 1, 0, 0, 90}));   // Backwards.
  EXPECT_FALSE(box.AddSample({13, 0, 1, 0, 0, 91}));
  box.FinishRuns(20);
  EXPECT_EQ(box.GetTruns().size(), 4u);
  EXPECT_EQ(box.GetSampleCount(), 6u);
  const auto run = [](int32_t offset, const std::vector<Trun::Sample>& samples) {
    return FullBox("trun", 0, 0xF01, Trun{.dataOffset = offset, .samples = samples});
  };
  EXPECT_EQ(Written(box, stream),
            Box("traf", FullBox("tfhd", 0, 3, Tfhd{.trackId = 2, .baseDataOffset = 100}),
                run(0, {{4, 3}, {5, 2}}), run(6, {{2, 2}}), run(7, {{1, 2}}),
                run(-10, {{1, 1}, {7, 1}})));
  EXPECT_EQ(box.GetTruns().back()->LastSampleDurationOffset(), stream.Memory().Length() - 16);
}

impl::K7MVector<impl::TfraEntry> EntriesOf(std::initializer_list<impl::TfraEntry> list) {
  impl::K7MVector<impl::TfraEntry> entries{impl::K7MAllocator<impl::TfraEntry>(kNoAllocator)};
  entries.assign(list);
  return entries;
}

TEST(WrittenTfra, HasEntriesAsWideAsItsVersion) {
  const auto entries = EntriesOf({{0x100000001, 0x200000002, 3, 4, 5}, {6, 7, 8, 9, 10}});
  for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
    WritingStream stream;
    impl::TfraBox box(stream.Get(), version, 0x1FE, entries, kNoAllocator);
    Bytes payload = Bytes().U32(0xFE).U32(63).U32(2);
    if (version == 1) {
      payload.U64(0x100000001).U64(0x200000002).U32(3).U32(4).U32(5);
      payload.U64(6).U64(7).U32(8).U32(9).U32(10);
    } else {
      payload.U32(1).U32(2).U32(3).U32(4).U32(5).U32(6).U32(7).U32(8).U32(9).U32(10);
    }
    EXPECT_EQ(Written(box, stream), FullBox("tfra", version, 0, payload));
  }
}

QiroK7MError ReadTfra(uint8_t version, const Bytes& payload,
                      std::vector<impl::TfraEntry>* entries = nullptr) {
  WritingStream stream;
  stream.Memory().Put(0, FullBox("tfra", version, 0, payload));
  const auto header = impl::BoxHeader::Parse(*stream.Get(), nullptr);
  impl::TfraBox box(stream.Get(), *header, kNoAllocator);
  const QiroK7MError error = ErrorOf([&] { box.ReadPayloadFromStream(); });
  if (entries != nullptr) entries->assign(box.GetEntries().begin(), box.GetEntries().end());
  return error;
}

TEST(ReadTfra, RejectsTheLengthsThatAreWritten) {
  EXPECT_EQ(ReadTfra(1, Bytes().U32(1).U32(63).U32(0)), 20u);
}

TEST(ReadTfra, LengthsZeroMeanNumbersOfOneByte) {
  std::vector<impl::TfraEntry> entries;
  ASSERT_EQ(ReadTfra(0, Bytes().U32(1).U32(0).U32(1).U32(6).U32(7).U8(0xF8).U8(9).U8(10), &entries),
            0u);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].time, 6u);
  EXPECT_EQ(entries[0].moofOffset, 7u);
  EXPECT_EQ(entries[0].trafNumber, 0xF8u);
  EXPECT_EQ(entries[0].trunNumber, 9u);
  EXPECT_EQ(entries[0].sampleNumber, 10u);
}

TEST(ReadTfra, LengthsOneMeanATrafNumberOfTwoBytes) {
  std::vector<impl::TfraEntry> entries;
  ASSERT_EQ(
      ReadTfra(1, Bytes().U32(1).U32(1).U32(1).U64(6).U64(7).U16(0xABCD).U8(9).U8(10), &entries),
      0u);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].trafNumber, 0xABCDu);
  EXPECT_EQ(entries[0].sampleNumber, 10u);
}

TEST(ReadTfra, OtherLengthsAreError20AndUnusedBitsDoNotMatter) {
  for (const uint32_t lengths : {0x10u, 0x11u, 0x100u, 0x1000u, 0x10000u, 0x100000u, 63u}) {
    EXPECT_EQ(ReadTfra(0, Bytes().U32(1).U32(lengths).U32(0)), 20u) << lengths;
  }
  EXPECT_EQ(ReadTfra(0, Bytes().U32(1).U32(~0x00111111u).U32(0)), 0u);
}

TEST(ReadTfra, WhatItDoesNotHoldIsError27) {
  const Bytes whole = Bytes().U32(1).U32(0).U32(2).U32(6).U32(7).U8(1).U8(2).U8(3).U32(8).U32(9);
  EXPECT_EQ(ReadTfra(0, Bytes(whole).U8(4).U8(5).U8(6)), 0u);
  EXPECT_EQ(ReadTfra(0, Bytes(whole).U8(4).U8(5)), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(ReadTfra(0, Cut(whole, 11)), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(ReadTfra(1, Bytes().U32(1).U32(0).U32(0xFFFFFFFF)), kQiroK7MErrorBoxTruncated);
}

TEST(ReadMfro, DeliberatelyReadsItsSizeFromWhateverFollows) {
  WritingStream stream;
  stream.Memory().Put(0, FullBox("mfro", 0, 0) + Bytes().U32(77));
  const auto header = impl::BoxHeader::Parse(*stream.Get(), nullptr);
  impl::MfroBox box(stream.Get(), *header, kNoAllocator);
  box.ReadPayloadFromStream();
  EXPECT_EQ(box.GetSize(), 77u);
}

TEST(WrittenMfra, EndsWithItsOwnSize) {
  const auto entries = EntriesOf({{1, 2, 3, 4, 5}});
  WritingStream stream;
  impl::MfraBox box(stream.Get(), kNoAllocator);
  box.AddChildBox(
      impl::MakeBox<impl::TfraBox>(kNoAllocator, stream.Get(), uint8_t{1}, 7U, entries));
  box.Finish();
  const Bytes expected =
      Box("mfra",
          FullBox("tfra", 1, 0, Bytes().U32(7).U32(63).U32(1).U64(1).U64(2).U32(3).U32(4).U32(5)),
          FullBox("mfro", 0, 0, Bytes().U32(8 + 24 + 28 + 16)));
  EXPECT_EQ(Written(box, stream), expected);
  EXPECT_EQ(stream.Content().NumberAt(expected.Size() - 4), expected.Size());
}

}  // namespace
}  // namespace k7mtest

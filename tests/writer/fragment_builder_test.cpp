#include <gtest/gtest.h>

#include <list>

#include "fragment_expectations.h"
#include "internals/error_of.h"
#include "internals/writing_stream.h"
#include "support/counted_buffer.h"
#include "writer/fragment_builder.h"

namespace k7mtest {
namespace {

namespace impl = qiro::k7m::impl;

/// A builder with an 'mdat' in front of which the fragment's boxes go, or behind which.
class Building {
 public:
  Building(size_t trackCount, bool isMoofFirst)
      : isMoofFirst_(isMoofFirst), builder_(stream_.Get(), trackCount, nullptr) {}

  void Add(size_t track, uint64_t time, const Bytes& data, uint32_t flags = 0) {
    if (mdat_ == nullptr) {
      mdat_ = impl::MakeBox<impl::MdatBox>(kNoAllocator, stream_.Get(), isMoofFirst_);
      mdat_->SetBeginOffset(isMoofFirst_ ? 0 : end_);
    }
    QiroK7MSampleInfo info{};
    info.sampleSize = static_cast<uint32_t>(data.Size());
    info.timeStamp = time;
    info.flags = flags;
    impl::Sample sample(info, 0, nullptr, nullptr, nullptr);
    buffers_.emplace_back(data);
    mdat_->AddSampleData(sample, buffers_.back().Record());
    if (!builder_.IsOpen()) {
      builder_.Open(sample.GetSampleDataOffset(),
                    [](size_t index) { return static_cast<uint32_t>(index + 1); });
    }
    builder_.AddSample(track, sample, &time);
  }
  /// Every track ends at `end`.
  void Write(uint64_t end) {
    end_ = builder_.Write(end_, *mdat_, isMoofFirst_, [end](size_t) { return end; });
    mdat_.reset();
  }
  impl::FragmentBuilder& Builder() { return builder_; }
  WritingStream& Stream() { return stream_; }
  uint64_t End() const { return end_; }
  int Releases() const {
    int sum = 0;
    for (const CountedBuffer& buffer : buffers_) sum += buffer.Releases();
    return sum;
  }

 private:
  static constexpr QiroK7MAllocatorCallBacks* kNoAllocator = nullptr;

  bool isMoofFirst_;
  WritingStream stream_;
  impl::FragmentBuilder builder_;
  std::list<CountedBuffer> buffers_;
  std::unique_ptr<impl::MdatBox> mdat_;
  uint64_t end_ = 0;
};

TEST(FragmentBuilder, MoofFirstCountsOffsetsFromTheMediaBehindIt) {
  Building building(3, true);
  building.Add(2, 5, {1, 2}, kKey);
  building.Add(0, 0, {3});
  building.Add(2, 9, {4, 5, 6});
  EXPECT_EQ(building.Stream().Memory().Length(), 0u);
  EXPECT_EQ(building.Releases(), 0);
  EXPECT_TRUE(building.Builder().HasTrack(0));
  EXPECT_FALSE(building.Builder().HasTrack(1));
  building.Write(12);
  EXPECT_EQ(building.Releases(), 3);
  const auto moof = [](uint64_t base) {
    return ExpectedMoof(
        1, ExpectedTraf(1, base, {{2, {{12, 1, kOtherInRun, 0}}}}, 1),
        ExpectedTraf(3, base, {{0, {{4, 2, kKeyInRun, 0}}}, {3, {{3, 3, kOtherInRun, 0}}}}, 3));
  };
  const uint64_t base = moof(0).Size() + 16;
  EXPECT_EQ(building.Stream().Content(), moof(base) + LargeBox("mdat", Bytes{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(building.End(), building.Stream().Memory().Length());
  EXPECT_FALSE(building.Builder().IsOpen());
  ASSERT_EQ(building.Builder().RandomAccessEntries(2).size(), 1u);
  EXPECT_EQ(building.Builder().RandomAccessEntries(2)[0].moofOffset, 0u);
  EXPECT_TRUE(building.Builder().RandomAccessEntries(0).empty());
}

TEST(FragmentBuilder, BothOrdersHoldTheSameAndRewriteTheSameDuration) {
  for (const bool isMoofFirst : {false, true}) {
    SCOPED_TRACE(isMoofFirst);
    Building building(1, isMoofFirst);
    building.Add(0, 0, {1, 2, 3}, kKey);
    building.Write(1);
    building.Add(0, 30, {4, 5}, kKey);
    building.Write(32);
    const Bytes file = building.Stream().Content();
    const std::vector<std::string> pair =
        isMoofFirst ? std::vector<std::string>{"moof", "mdat", "moof", "mdat"}
                    : std::vector<std::string>{"mdat", "moof", "mdat", "moof"};
    EXPECT_EQ(CodesIn(file), pair);
    const uint64_t first = PlaceOf(file, "mdat").offset + 16;
    const uint64_t second = PlaceOf(file, "mdat#2").offset + 16;
    EXPECT_EQ(FindBox(file, "moof"),
              ExpectedMoof(1, ExpectedTraf(1, first, {{0, {{30, 3, kKeyInRun, 0}}}})));
    EXPECT_EQ(FindBox(file, "moof#2"),
              ExpectedMoof(2, ExpectedTraf(1, second, {{0, {{2, 2, kKeyInRun, 0}}}})));
    EXPECT_EQ(FindBox(file, "mdat#2"), LargeBox("mdat", Bytes{4, 5}));
    const auto& entries = building.Builder().RandomAccessEntries(0);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].moofOffset, PlaceOf(file, "moof").offset);
    EXPECT_EQ(entries[1].moofOffset, PlaceOf(file, "moof#2").offset);
    EXPECT_EQ(entries[1].trunNumber, 2u);
    EXPECT_EQ(entries[1].sampleNumber, 1u);
  }
}

TEST(FragmentBuilder, AFailedWriteDropsTheFragmentWithItsIndex) {
  for (const bool isMoofFirst : {false, true}) {
    Building building(2, isMoofFirst);
    building.Add(0, 0, {1}, kKey);
    building.Stream().Memory().FailNth(Call::kWrite, 4, 4711);
    EXPECT_EQ(ErrorOf([&] { building.Write(1); }), 4711u);
    EXPECT_FALSE(building.Builder().IsOpen());
    EXPECT_FALSE(building.Builder().HasTrack(0));
    EXPECT_TRUE(building.Builder().RandomAccessEntries(0).empty());
  }
}

impl::SampleInfoTrun RecordAt(uint64_t dataOffset, uint64_t time = 0) {
  return {time, 0, 1, 0, 0, dataOffset};
}

TEST(FragmentBuilder, DataOffsetsFitASigned32BitNumberOrAreError19) {
  constexpr uint64_t kBase = 0x200000000;
  const struct {
    uint64_t place;
    QiroK7MError error;
  } cases[] = {{kBase + 0x7FFFFFFF, 0},
               {kBase + 0x80000000, 19},
               {kBase - 0x80000000, 0},
               {kBase - 0x80000001, 19},
               {kBase + 0x100000000, 19}};
  for (const auto& one : cases) {
    WritingStream stream;
    impl::TrafBox traf(stream.Get(), 1, kBase, 1, nullptr);
    traf.AddSample(RecordAt(one.place));
    traf.FinishRuns(1);
    EXPECT_EQ(ErrorOf([&] { traf.WriteBox(); }), one.error) << one.place;
    if (one.error == 0) {
      const auto offset = static_cast<int32_t>(one.place - kBase);
      EXPECT_EQ(stream.Content(), ExpectedTraf(1, kBase, {{offset, {{1, 1, 0, 0}}}}));
    }
  }
}

}  // namespace
}  // namespace k7mtest

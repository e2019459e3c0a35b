// Fragments that are taken without boxes: which ones those are, and that they say the same as the
// boxes.
#include "boxes/fragment_loader.h"

#include <gtest/gtest.h>

#include <tuple>

#include "internals/document.h"
#include "support/counting_allocator.h"
#include "support/fragment_builder.h"
#include "support/heap_watch.h"

namespace k7mtest {
namespace {

Bytes MovieBox() {
  const Trex defaults = {
      .trackId = 1, .description = 7, .duration = 10, .size = 20, .sampleFlags = 0x30};
  Trex other = defaults;
  other.trackId = 2;
  return Box("moov", FullBox("mvhd", 0, 0, Mvhd{}), MinimalTrak(), Mvex({defaults, other}));
}

/// A document with these boxes behind its movie box, everything parsed.
class Parsed : public Document {
 public:
  Parsed(const Bytes& boxes, impl::KeptBoxes kept, uint32_t readRules = 0)
      : Document(MovieBox() + boxes, nullptr, readRules, kept) {
    while (Root().ParseNext()) {
    }
  }

  using Sample = std::tuple<uint64_t, uint32_t, uint32_t, uint32_t, uint32_t, uint64_t, uint32_t>;
  std::vector<Sample> Samples(uint32_t trackId) {
    std::vector<Sample> samples;
    const impl::TrackFragments& fragments = Root().FragmentsOf(trackId);
    for (size_t i = 0; i < fragments.Size(); ++i) {
      const impl::TrackFragment& fragment = fragments.At(i);
      for (uint32_t run = 0; run < fragment.runCount; ++run) {
        for (uint32_t k = 0; k < fragment.runs[run].GetSampleCount(); ++k) {
          const impl::SampleInfoTrun it = fragment.runs[run].GetSample(k);
          samples.emplace_back(it.timeStamp, it.duration, it.size, it.flags, it.compositionOffset,
                               it.dataOffset, fragment.descriptionIndex);
        }
      }
    }
    return samples;
  }
};

/// How many boxes behind the movie box are kept of a fragment and its data, where samples are all
/// that is wanted.
size_t KeptOf(const Bytes& moof) {
  return Parsed(moof + Box("mdat") + Box("mdat"), impl::KeptBoxes::kAllButFragments)
             .Root()
             .Children()
             .size() -
         1;
}

Bytes SomeRun() {
  return FullBox("trun", 0, kTrunDuration | kTrunSize,
                 Trun{.samples = {{.duration = 3, .size = 4}, {.duration = 5, .size = 6}}});
}

TEST(FragmentLoader, TakesOrdinaryFragmentsWithoutBoxes) {
  EXPECT_EQ(KeptOf(Moof()), 1u) << "the first 'mdat'";
  EXPECT_EQ(KeptOf(Moof(Traf(0, Tfhd{}, DefaultRun(3)))), 1u);
  EXPECT_EQ(KeptOf(Moof(Traf(0, Tfhd{}, SomeRun(), FullBox("tfdt", 0, 0, Tfdt{})))), 1u);
  EXPECT_EQ(KeptOf(Moof(Box("any?"), Traf(0x3B, Tfhd{}, Box("other"), SomeRun()))), 1u);
}

TEST(FragmentLoader, LeavesTheUnusualToTheBoxes) {
  const Bytes run = DefaultRun(1);
  EXPECT_EQ(KeptOf(Moof(Box("skip"))), 2u) << "a box with a class of its own";
  EXPECT_EQ(KeptOf(Moof(Traf(0, Tfhd{}, run, Bytes().Fill(3)))), 2u) << "a rest that is no box";
  EXPECT_EQ(KeptOf(Moof(Bytes().U32(1).Code("any?").U64(16))), 2u) << "a size of 64 bits";
  EXPECT_EQ(KeptOf(Moof(Bytes().U32(0).Code("any?"))), 2u) << "a box that runs to the end";
  EXPECT_EQ(KeptOf(Moof(Bytes().U32(9).Code("any?"))), 2u) << "a box past its parent";
  const Bytes start = FullBox("tfdt", 0, 0, Tfdt{});
  EXPECT_EQ(KeptOf(Moof(Traf(0, Tfhd{}, start, start, run))), 2u) << "two start times";
  EXPECT_EQ(KeptOf(Moof(Traf(0, Tfhd{}, FullBox("trun", 0, kTrunSize, Bytes().U32(2).Fill(4))))),
            2u)
      << "records that its box does not hold";
  EXPECT_EQ(KeptOf(Moof(Traf(0, Tfhd{}, Box("free"), Box("free", Bytes().Fill(1 << 20))))), 2u)
      << "a very long one";
}

TEST(FragmentLoader, LeavesMistakesToTheBoxes) {
  const auto errorOf = [](const Bytes& moof) {
    return ErrorOf(
        [&] { Parsed(moof + Box("free", Bytes().Fill(50)), impl::KeptBoxes::kAllButFragments); });
  };
  const Bytes traf = Traf(0, Tfhd{}, DefaultRun(1));
  EXPECT_EQ(errorOf(Box("moof", traf)), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(errorOf(Moof(FullBox("mfhd", 0, 0, Mfhd{}))), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(errorOf(Box("moof", Box("mfhd", Bytes().Fill(7)))), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(errorOf(Moof(Box("traf", DefaultRun(1)))), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(errorOf(Moof(Traf(0, Tfhd{}, FullBox("tfhd", 0, 0, Tfhd{})))),
            kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(errorOf(Moof(Traf(0, Tfhd{.trackId = 3}))), kQiroK7MErrorNoTrackExtends);
  EXPECT_EQ(errorOf(Moof(Traf(0, Tfhd{}, Box("trun", Bytes().Fill(7))))),
            kQiroK7MErrorBoxTruncated);
}

TEST(FragmentLoader, SaysTheSameAsTheBoxes) {
  Trun longRun;
  for (uint32_t i = 0; i < 3000; ++i) longRun.samples.push_back({i % 7, i % 11, i % 3, i % 5});
  const auto start = [](uint64_t time) {
    return FullBox("tfdt", time > 0xFFFFFFFF ? 1 : 0, 0, Tfdt{.time = time});
  };
  const Bytes fragments =
      Moof(Traf(0x3B,
                Tfhd{.baseDataOffset = 900,
                     .description = 2,
                     .duration = 3,
                     .size = 4,
                     .sampleFlags = 5},
                SomeRun(), DefaultRun(0), DefaultRun(2)),
           Traf(0, Tfhd{.trackId = 2},
                FullBox("trun", 0, kTrunOffset, Trun{.dataOffset = -5, .count = 2})),
           Traf(0, Tfhd{}, SomeRun())) +
      Box("mdat") + Moof(Traf(0, Tfhd{.trackId = 2}, DefaultRun(0))) +
      Moof(Traf(kTfhdBaseIsMoof, Tfhd{}, start(500), FullBox("trun", 0, 0xF05, longRun)),
           Traf(0, Tfhd{.trackId = 2}, start(uint64_t{1} << 40),
                FullBox("trun", 0, 0xF00, longRun)));
  for (uint32_t rules = 0; rules < 4; ++rules) {
    Parsed withBoxes(fragments, impl::KeptBoxes::kAll, rules);
    Parsed without(fragments, impl::KeptBoxes::kAllButFragments, rules);
    ASSERT_EQ(without.Root().Children().size(), 2u);
    for (const uint32_t trackId : {1U, 2U}) {
      EXPECT_FALSE(withBoxes.Samples(trackId).empty());
      EXPECT_EQ(without.Samples(trackId), withBoxes.Samples(trackId)) << rules;
    }
  }
}

TEST(FragmentLoader, AFragmentCostsLittleMemory) {
  constexpr uint64_t kCount = 1000;
  const Bytes fragment = Moof(Traf(0, Tfhd{}, SomeRun())) + Box("mdat");
  const auto peakOf = [&](uint64_t count) {
    CountingAllocator allocator;
    const QiroK7MAllocatorCallBacks record = allocator.Record();
    Bytes file = MovieBox();
    for (uint64_t i = 0; i < count; ++i) file.Append(fragment);
    {
      Document document(file, &record, 0, impl::KeptBoxes::kAllButFragments);
      while (document.Root().ParseNext()) {
      }
    }
    return allocator.PeakBytes();
  };
  EXPECT_LT(peakOf(kCount) - peakOf(1), 400 * kCount);
}

// What a fragment's bytes decide the size of is not taken from the global operators.
TEST(FragmentLoader, TakesTheClientsMemory) {
  constexpr uint64_t kCount = 10000;
  ASSERT_TRUE(HeapIsWatched());
  Bytes runs;
  for (uint64_t i = 0; i < kCount; ++i) runs.Append(DefaultRun(1));
  CountingAllocator allocator;
  const QiroK7MAllocatorCallBacks record = allocator.Record();
  Document document(MovieBox() + Moof(Traf(0, Tfhd{}, runs)), &record, 0,
                    impl::KeptBoxes::kAllButFragments);
  ASSERT_TRUE(document.Root().ParseNext());
  ResetHeapPeak();
  const int64_t before = CountHeap().peakBytes;
  ASSERT_TRUE(document.Root().ParseNext());
  EXPECT_LT(CountHeap().peakBytes - before, 4096);
  EXPECT_GT(allocator.PeakBytes(), kCount * sizeof(impl::TrackRun));
  EXPECT_EQ(document.Root().Children().size(), 1u);
}

}  // namespace
}  // namespace k7mtest

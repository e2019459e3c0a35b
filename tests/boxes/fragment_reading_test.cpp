// How runs and track fragments are read: defaults, places, times, and what is wrong with them.
#include "boxes/fragment_boxes.h"

#include <gtest/gtest.h>

#include "internals/document.h"
#include "support/counting_allocator.h"
#include "support/fragment_builder.h"

namespace k7mtest {
namespace {

constexpr Trex kDefaults = {
    .trackId = 1, .description = 7, .duration = 10, .size = 20, .sampleFlags = 0x30};

Bytes MoovWith(const Bytes& mvex) {
  return Box("moov", FullBox("mvhd", 0, 0, Mvhd{}), MinimalTrak(), mvex);
}

/// A document with a movie box and fragments behind it, everything parsed.
class Fragments : public Document {
 public:
  explicit Fragments(const Bytes& fragments, const std::vector<Trex>& defaults = {kDefaults},
                     uint32_t readRules = 0)
      : Document(MoovWith(Mvex(defaults)) + fragments, nullptr, readRules) {
    ParseAll();
  }

  /// The n-th 'traf' of the n-th 'moof', from 0.
  const impl::TrafBox& Traf(size_t moof = 0, size_t traf = 0) {
    const auto& children = Root().GetBoxByPos(1 + moof)->Children();
    return dynamic_cast<const impl::TrafBox&>(*children.at(1 + traf));
  }
  const impl::TrunBox& Trun(size_t index = 0) { return *Traf().GetTruns()[index]; }
};

/// What reading a fragment with these boxes in its only 'traf' fails with.
template <class... Boxes>
QiroK7MError TrafError(const Boxes&... boxes) {
  return ParseError(MoovWith(Mvex({kDefaults})) + Moof(Box("traf", boxes...)) +
                    Box("free", Bytes().Fill(100)));
}

Bytes PlainTfhd() { return FullBox("tfhd", 0, 0, Tfhd{}); }

std::vector<uint32_t> FlagsOf(const impl::TrunBox& run) {
  std::vector<uint32_t> flags;
  for (uint32_t i = 0; i < run.GetSampleCount(); ++i) flags.push_back(run.GetSample(i).flags);
  return flags;
}

std::vector<uint64_t> TimesOf(const impl::TrafBox& traf) {
  std::vector<uint64_t> times;
  for (const impl::TrunBox* run : traf.GetTruns()) {
    for (uint32_t i = 0; i < run->GetSampleCount(); ++i) {
      times.push_back(run->GetSample(i).timeStamp);
    }
  }
  return times;
}

using Times = std::vector<uint64_t>;
using SampleFlags = std::vector<uint32_t>;

// Defaults
// -------------------------------------------------------------------------------------------

TEST(ReadTfhd, WithoutOptionalFieldsTakesAllFourDefaultsOfTheMovie) {
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(2))));
  EXPECT_EQ(file.Traf().GetSDId(), 7u);
  const impl::SampleInfoTrun sample = file.Trun().GetSample(1);
  EXPECT_EQ(sample.duration, 10u);
  EXPECT_EQ(sample.size, 20u);
  EXPECT_EQ(sample.flags, 0x30u);
  EXPECT_EQ(sample.compositionOffset, 0u);
}

TEST(ReadTfhd, ItsOwnFieldsComeBeforeTheDefaultsOfTheMovie) {
  const Tfhd own{.description = 2, .duration = 3, .size = 4, .sampleFlags = 5};
  Fragments file(Moof(Traf(0x3A, own, DefaultRun(1))));
  EXPECT_EQ(file.Traf().GetSDId(), 2u);
  const impl::SampleInfoTrun sample = file.Trun().GetSample(0);
  EXPECT_EQ(sample.duration, 3u);
  EXPECT_EQ(sample.size, 4u);
  EXPECT_EQ(sample.flags, 5u);
}

TEST(ReadTfhd, EachFieldIsDefaultedOnItsOwn) {
  Fragments file(Moof(Traf(kTfhdSize, Tfhd{.size = 4}, DefaultRun(1))));
  EXPECT_EQ(file.Traf().GetSDId(), 7u);
  EXPECT_EQ(file.Trun().GetSample(0).duration, 10u);
  EXPECT_EQ(file.Trun().GetSample(0).size, 4u);
  EXPECT_EQ(file.Trun().GetSample(0).flags, 0x30u);
}

TEST(ReadTfhd, AFieldWithAllBitsSetCountsAsNotGiven) {
  const Tfhd own{.description = 0xFFFFFFFF,
                 .duration = 0xFFFFFFFF,
                 .size = 0xFFFFFFFF,
                 .sampleFlags = 0xFFFFFFFF};
  Fragments file(Moof(Traf(0x3A, own, DefaultRun(1))));
  EXPECT_EQ(file.Traf().GetSDId(), 7u);
  EXPECT_EQ(file.Trun().GetSample(0).duration, 10u);
  EXPECT_EQ(file.Trun().GetSample(0).size, 20u);
  EXPECT_EQ(file.Trun().GetSample(0).flags, 0x30u);
}

TEST(ReadTfhd, ZeroIsAValueOfItsOwn) {
  Fragments file(Moof(Traf(0x3A, Tfhd{.description = 0}, DefaultRun(1))));
  EXPECT_EQ(file.Traf().GetSDId(), 0u);
  EXPECT_EQ(file.Trun().GetSample(0).duration, 0u);
  EXPECT_EQ(file.Trun().GetSample(0).size, 0u);
}

TEST(ReadTfhd, DeliberatelyReadsFieldsThatItDoesNotHoldFromWhatFollows) {
  // The box ends behind the track id; the next four bytes are the size of the 'trun' behind it.
  const Bytes cut = FullBox("tfhd", 0, kTfhdDuration, Bytes().U32(1));
  Fragments file(Moof(Box("traf", cut, DefaultRun(3))));
  EXPECT_EQ(file.Trun().GetSample(0).duration, DefaultRun(3).Size());
}

TEST(ReadTfhd, WithoutItsFirstWordIsError28) {
  EXPECT_EQ(TrafError(Box("tfhd", Bytes().Fill(3))), kQiroK7MErrorBadFullBoxHeader);
}

TEST(ReadTfhd, WhereTheStreamEndsIsError5) {
  EXPECT_EQ(ParseError(MoovWith(Mvex({kDefaults})) + Moof(Box("traf", FullBox("tfhd", 0, 0)))),
            kQiroK7MErrorReadFailed);
}

TEST(ReadTrex, TheFirstOneOfATrackIsTaken) {
  Trex second = kDefaults;
  second.duration = 99;
  Trex other = kDefaults;
  other.trackId = 0;
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(1))), {other, kDefaults, second});
  EXPECT_EQ(file.Trun().GetSample(0).duration, 10u);
}

TEST(ReadTrex, OfManyTracksIsFoundByItsId) {
  std::vector<Trex> defaults;
  for (const uint32_t id : {9u, 2u, 0xFFFFFFFFu, 5u, 1u}) {
    defaults.push_back({.trackId = id, .duration = id});
  }
  for (const Trex& trex : defaults) {
    Fragments file(Moof(Traf(0, Tfhd{.trackId = trex.trackId}, DefaultRun(1))), defaults);
    EXPECT_EQ(file.Trun().GetSample(0).duration, trex.trackId);
  }
}

// Sample flags
// ---------------------------------------------------------------------------------------

TEST(ReadTrun, WithoutFlagsOfItsOwnHasTheDefaultFlags) {
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(3))));
  EXPECT_EQ(FlagsOf(file.Trun()), (SampleFlags{0x30, 0x30, 0x30}));
}

TEST(ReadTrun, FlagsOfTheFirstSampleAreForThatOneAlone) {
  const Bytes run = FullBox("trun", 0, kTrunFirstFlags, Trun{.firstSampleFlags = 5, .count = 3});
  Fragments file(Moof(Traf(0, Tfhd{}, run)));
  EXPECT_EQ(FlagsOf(file.Trun()), (SampleFlags{5, 0x30, 0x30}));
}

TEST(ReadTrun, FlagsOfEverySampleComeBeforeThoseOfTheFirst) {
  const Trun records{.firstSampleFlags = 5, .samples = {{.flags = 1}, {.flags = 2}}};
  Fragments file(Moof(Traf(0, Tfhd{}, FullBox("trun", 0, 0x404, records))));
  EXPECT_EQ(FlagsOf(file.Trun()), (SampleFlags{1, 2}));
}

// Records
// --------------------------------------------------------------------------------------------

TEST(ReadTrun, EveryCombinationOfFieldsIsReadInItsOrder) {
  const std::vector<Trun::Sample> samples = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 0xFFFFFFFF}};
  for (uint32_t fields = 0; fields < 64; ++fields) {
    // Two bits for the fields of the run, four for those of its records.
    const uint32_t flags = (fields & 1) | (fields & 2) << 1 | (fields >> 2) << 8;
    const Bytes run = FullBox("trun", 0, flags,
                              Trun{.dataOffset = 100, .firstSampleFlags = 77, .samples = samples});
    Fragments file(Moof(Traf(0, Tfhd{}, run)));
    const impl::TrunBox& read = file.Trun();
    ASSERT_EQ(read.GetSampleCount(), 3u);
    uint64_t time = 0;
    uint64_t offset = (flags & kTrunOffset) != 0 ? 100 : 0;
    for (uint32_t i = 0; i < 3; ++i) {
      const impl::SampleInfoTrun got = read.GetSample(i);
      const uint32_t defaultFlags = i == 0 && (flags & kTrunFirstFlags) != 0 ? 77 : 0x30;
      EXPECT_EQ(got.duration, (flags & kTrunDuration) != 0 ? samples[i].duration : 10) << flags;
      EXPECT_EQ(got.size, (flags & kTrunSize) != 0 ? samples[i].size : 20) << flags;
      EXPECT_EQ(got.flags, (flags & kTrunFlags) != 0 ? samples[i].flags : defaultFlags) << flags;
      EXPECT_EQ(got.compositionOffset,
                (flags & kTrunComposition) != 0 ? samples[i].compositionOffset : 0)
          << flags;
      EXPECT_EQ(got.timeStamp, time) << flags;
      EXPECT_EQ(got.dataOffset, offset) << flags;
      time += got.duration;
      offset += got.size;
    }
    EXPECT_EQ(read.EndTime(), time);
    EXPECT_EQ(read.DataEnd(), offset);
  }
}

TEST(ReadTrun, OtherFlagBitsAddNoFields) {
  Fragments file(Moof(Traf(0, Tfhd{}, FullBox("trun", 0, 0xFFF0FA, Trun{.count = 2}))));
  EXPECT_EQ(file.Trun().GetSampleCount(), 2u);
}

TEST(ReadTrun, ALongRunGivesEverySampleItsPlace) {
  Trun records;
  Times times;
  std::vector<uint64_t> offsets;
  uint64_t time = 0;
  uint64_t offset = 0;
  for (uint32_t i = 0; i < 5000; ++i) {
    records.samples.push_back({.duration = i % 7, .size = i % 11});
    times.push_back(time);
    offsets.push_back(offset);
    time += i % 7;
    offset += i % 11;
  }
  Fragments file(Moof(Traf(0, Tfhd{}, FullBox("trun", 0, kTrunDuration | kTrunSize, records))));
  const impl::TrunBox& run = file.Trun();
  impl::SampleInfoTrun walked = run.GetSample(0);
  for (uint32_t i = 0; i < 5000; ++i) {
    ASSERT_EQ(run.GetSample(i).timeStamp, times[i]);
    ASSERT_EQ(run.GetSample(i).dataOffset, offsets[i]);
    ASSERT_EQ(walked.timeStamp, times[i]);
    ASSERT_EQ(walked.dataOffset, offsets[i]);
    if (i + 1 < 5000) walked = run.GetNext(walked, i);
  }
  for (uint64_t wanted = 0; wanted <= time; ++wanted) {
    const auto first = std::lower_bound(times.begin(), times.end(), wanted);
    const auto found = run.FindFirstAtOrAfter(wanted);
    ASSERT_EQ(found.has_value(), first != times.end()) << wanted;
    if (found) {
      ASSERT_EQ(*found, first - times.begin()) << wanted;
    }
  }
}

TEST(ReadTrun, WithoutSamplesIsValidAndAddsNothing) {
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(0), DefaultRun(2), DefaultRun(0), DefaultRun(1))));
  EXPECT_EQ(file.Traf().GetSampleCount(), 3u);
  EXPECT_EQ(TimesOf(file.Traf()), (Times{0, 10, 20}));
  Fragments empty(Moof(Traf(0, Tfhd{}, FullBox("trun", 0, 0xF00, Trun{}))));
  EXPECT_FALSE(empty.Traf().HasSamples());
}

TEST(ReadTrun, AFixedPartThatIsMissingIsError27) {
  for (const uint32_t flags : {0u, 1u, 4u, 5u}) {
    const size_t needed = 4 + ((flags & 1) != 0 ? 4 : 0) + ((flags & 4) != 0 ? 4 : 0);
    for (size_t size = 0; size < needed; ++size) {
      EXPECT_EQ(TrafError(PlainTfhd(), FullBox("trun", 0, flags, Bytes().Fill(size))),
                kQiroK7MErrorBoxTruncated);
    }
    EXPECT_EQ(TrafError(PlainTfhd(), FullBox("trun", 0, flags, Bytes().Fill(needed))), 0u);
  }
  EXPECT_EQ(TrafError(PlainTfhd(), Box("trun", Bytes().Fill(3))), kQiroK7MErrorBadFullBoxHeader);
}

TEST(ReadTrun, DeliberatelyAsksForOneByteAFieldAndNotForFour) {
  const auto withRoom = [](size_t size) {
    return FullBox("trun", 0, 0xF00, Bytes().U32(5).Fill(size, 0x11));
  };
  EXPECT_EQ(TrafError(PlainTfhd(), withRoom(19)), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(TrafError(PlainTfhd(), withRoom(20)), 0u);
}

TEST(ReadTrun, RecordsThatItDoesNotHoldAreReadFromWhatFollows) {
  const Bytes run = FullBox("trun", 0, kTrunSize, Bytes().U32(4).U32(1));
  Fragments file(Moof(Traf(0, Tfhd{}, run)) + Box("free", Bytes().U32(8)));
  EXPECT_EQ(file.Trun().GetSample(0).size, 1u);
  EXPECT_EQ(file.Trun().GetSample(1).size, 12u);  // The size of the 'free' box.
  EXPECT_EQ(file.Trun().GetSample(2).size, Code("free"));
  EXPECT_EQ(file.Trun().GetSample(3).size, 8u);
  EXPECT_EQ(TypeOf(file.Root().GetBoxByPos(2)), Code("free"));  // It is still there.
}

TEST(ReadTrun, RecordsBeyondTheEndOfTheStreamAreError5) {
  const Bytes run = FullBox("trun", 0, kTrunSize, Bytes().U32(4).U32(1));
  EXPECT_EQ(ParseError(MoovWith(Mvex({kDefaults})) + Moof(Traf(0, Tfhd{}, run))),
            kQiroK7MErrorReadFailed);
}

TEST(ReadTrun, ACountWhoseFieldsPass32BitsIsError29) {
  const auto error = [](uint32_t flags, uint32_t count) {
    return TrafError(PlainTfhd(), FullBox("trun", 0, flags, Trun{.count = count}));
  };
  EXPECT_EQ(error(0xF00, 0x40000000), kQiroK7MErrorTrunSampleCount);
  EXPECT_EQ(error(0xF00, 0xFFFFFFFF), kQiroK7MErrorTrunSampleCount);
  EXPECT_EQ(error(0x300, 0x80000000), kQiroK7MErrorTrunSampleCount);
  EXPECT_EQ(error(0xB00, 0x55555556), kQiroK7MErrorTrunSampleCount);
  // A product that wraps and is still not smaller than the count is not noticed as such.
  EXPECT_EQ(error(0xB00, 0x80000001), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(error(0xF00, 0x3FFFFFFF), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(error(0x100, 0xFFFFFFFF), kQiroK7MErrorBoxTruncated);
  // The fixed part is looked at first.
  EXPECT_EQ(TrafError(PlainTfhd(), FullBox("trun", 0, 0xF01, Bytes().U32(0x40000000))),
            kQiroK7MErrorBoxTruncated);
}

TEST(ReadTrun, IdenticalSamplesCostNoMemory) {
  const auto peakOf = [](uint32_t count) {
    CountingAllocator allocator;
    const QiroK7MAllocatorCallBacks record = allocator.Record();
    {
      Document document(MoovWith(Mvex({kDefaults})) + Moof(Traf(0, Tfhd{}, DefaultRun(count))),
                        &record);
      document.ParseAll();
      const auto* traf =
          dynamic_cast<impl::TrafBox*>(document.Root().GetBoxByPos(1)->Children().at(1).get());
      const impl::SampleInfoTrun last = traf->GetTruns()[0]->GetSample(count - 1);
      EXPECT_EQ(last.timeStamp, uint64_t{count - 1} * 10);
      EXPECT_EQ(last.dataOffset, uint64_t{count - 1} * 20);
    }
    return allocator.PeakBytes();
  };
  EXPECT_EQ(peakOf(0xFFFFFFFF), peakOf(1));
}

// Places
// ---------------------------------------------------------------------------------------------

Bytes RunAt(int32_t offset, uint32_t count = 1) {
  return FullBox("trun", 0, kTrunOffset, Trun{.dataOffset = offset, .count = count});
}

TEST(ReadTraf, ARunLiesAtItsOffsetFromTheBase) {
  const Tfhd tfhd{.baseDataOffset = 1000};
  Fragments file(Moof(Traf(kTfhdBase, tfhd, RunAt(5, 2), RunAt(-7))));
  EXPECT_EQ(file.Trun(0).GetSample(0).dataOffset, 1005u);
  EXPECT_EQ(file.Trun(0).GetSample(1).dataOffset, 1025u);
  EXPECT_EQ(file.Trun(1).GetSample(0).dataOffset, 993u);
}

TEST(ReadTraf, RunsWithoutAnOffsetAllStartAtTheBase) {
  Fragments file(Moof(Traf(kTfhdBase, Tfhd{.baseDataOffset = 1000}, DefaultRun(2), DefaultRun(2))));
  EXPECT_EQ(file.Trun(0).GetSample(0).dataOffset, 1000u);
  EXPECT_EQ(file.Trun(1).GetSample(0).dataOffset, 1000u);
}

TEST(ReadTraf, ABaseThatIsNotGivenIsTheBeginOfTheStream) {
  for (const uint32_t flags : {0u, kTfhdBaseIsMoof}) {
    Fragments file(Moof(Traf(flags, Tfhd{}, RunAt(5), DefaultRun(1))));
    EXPECT_EQ(file.Trun(0).GetSample(0).dataOffset, 5u);
    EXPECT_EQ(file.Trun(1).GetSample(0).dataOffset, 0u);
  }
}

TEST(ReadTraf, AnOffsetBeforeTheBeginOfTheStreamWraps) {
  Fragments file(Moof(Traf(0, Tfhd{}, RunAt(-1))));
  EXPECT_EQ(file.Trun().GetSample(0).dataOffset, 0xFFFFFFFFFFFFFFFF);
}

// Times
// ----------------------------------------------------------------------------------------------

TEST(ReadTraf, TimesRunOnFromRunToRun) {
  const Bytes irregular =
      FullBox("trun", 0, kTrunDuration, Trun{.samples = {{.duration = 3}, {.duration = 4}}});
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(2), irregular, DefaultRun(1))));
  EXPECT_EQ(TimesOf(file.Traf()), (Times{0, 10, 20, 23, 27}));
  EXPECT_EQ(file.Traf().GetFirstSampleTimeStamp(), 0u);
  EXPECT_EQ(file.Traf().GetLastSampleEndTime(), 37u);
}

TEST(ReadTraf, TimesRunOnFromMoofToMoofAndWithinOne) {
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(2)), Traf(0, Tfhd{}, DefaultRun(1))) +
                 Moof(Traf(0, Tfhd{}, DefaultRun(1))));
  EXPECT_EQ(TimesOf(file.Traf(0, 0)), (Times{0, 10}));
  EXPECT_EQ(TimesOf(file.Traf(0, 1)), (Times{20}));
  EXPECT_EQ(TimesOf(file.Traf(1, 0)), (Times{30}));
}

TEST(ReadTraf, TimesOfATrackDoNotDependOnOtherTracks) {
  Trex other = kDefaults;
  other.trackId = 2;
  other.duration = 7;
  const auto of = [](uint32_t id, uint32_t count) {
    return Traf(0, Tfhd{.trackId = id}, DefaultRun(count));
  };
  Fragments file(Moof(of(1, 1), of(2, 2), of(1, 1)) + Moof(of(2, 1)) + Moof(of(1, 1), of(2, 1)),
                 {kDefaults, other});
  EXPECT_EQ(TimesOf(file.Traf(0, 2)), (Times{10}));
  EXPECT_EQ(TimesOf(file.Traf(1, 0)), (Times{14}));
  EXPECT_EQ(TimesOf(file.Traf(2, 0)), (Times{20}));
  EXPECT_EQ(TimesOf(file.Traf(2, 1)), (Times{21}));
}

TEST(ReadTraf, TimesRunOnOverFragmentsWithoutSamples) {
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(2))) + Moof(Traf(0, Tfhd{})) +
                 Moof(Traf(0, Tfhd{}, DefaultRun(0)), Traf(0, Tfhd{}, DefaultRun(1))));
  EXPECT_EQ(TimesOf(file.Traf(2, 1)), (Times{20}));
}

TEST(ReadTraf, TheTimeOfATfdtIsDeliberatelyNotTaken) {
  Fragments file(Moof(Traf(0, Tfhd{}, FullBox("tfdt", 1, 0, Tfdt{.time = 500}), DefaultRun(1))));
  EXPECT_EQ(TimesOf(file.Traf()), (Times{0}));
}

TEST(ReadTraf, TimesThatPass64BitsWrap) {
  Trex longest = kDefaults;
  longest.duration = 0xFFFFFFFF;
  Fragments file(Moof(Traf(0, Tfhd{}, DefaultRun(0xFFFFFFFF), DefaultRun(3), DefaultRun(1))),
                 {longest});
  EXPECT_TRUE(file.Traf().TimesWrap());
  EXPECT_EQ(file.Traf().GetTruns()[1]->GetSample(0).timeStamp, 0xFFFFFFFE00000001);
  EXPECT_EQ(file.Traf().GetTruns()[2]->GetSample(0).timeStamp, 0xFFFFFFFEu);
}

// Structure
// ------------------------------------------------------------------------------------------

TEST(ReadTraf, HasExactlyOneTfhd) {
  EXPECT_EQ(TrafError(DefaultRun(1)), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(TrafError(PlainTfhd(), PlainTfhd()), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(TrafError(PlainTfhd()), 0u);
}

TEST(ReadTraf, WithoutTfhdIsError24WhereTheHierarchyIsNotChecked) {
  Document document(MoovWith(Mvex({kDefaults})) + Box("free"));
  document.ParseAll();
  impl::TrafBox traf(&document.Opened().Stream(), document.Root().GetBoxByPos(1)->GetBoxHeader(),
                     nullptr);
  EXPECT_EQ(ErrorOf([&] { traf.CompleteRead(&document.Root(), true); }),
            kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(ErrorOf([&] { traf.CompleteRead(&document.Root(), false); }),
            kQiroK7MErrorNoTrackFragmentHeader);
}

TEST(ReadTraf, InADocumentWithoutMvexIsError14) {
  const Bytes fragment = Moof(Traf(0, Tfhd{}, DefaultRun(1)));
  EXPECT_EQ(ParseError(MinimalMoov() + fragment), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(ParseError(fragment + MinimalMoov()), kQiroK7MErrorInvalidHierarchy);
}

TEST(ReadTraf, OfATrackWithoutTrexIsError25) {
  const Bytes fragment = Moof(Traf(0, Tfhd{.trackId = 2}, DefaultRun(1)));
  EXPECT_EQ(ParseError(MoovWith(Mvex({kDefaults})) + fragment), kQiroK7MErrorNoTrackExtends);
  EXPECT_EQ(ParseError(MoovWith(Box("mvex")) + fragment), kQiroK7MErrorNoTrackExtends);
}

TEST(ReadTraf, OutsideAFragmentBeforeTheMovieIsCompleteIsError14) {
  const Bytes stray = Traf(0, Tfhd{}, DefaultRun(1));
  EXPECT_EQ(ParseError(stray + MoovWith(Mvex({kDefaults}))), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(ParseError(MoovWith(Mvex({kDefaults}) + stray)), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(ParseError(Moof() + MoovWith(Mvex({kDefaults}) + stray)),
            kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(ParseError(stray), kQiroK7MErrorInvalidHierarchy);
}

TEST(ReadTraf, TheTfhdMayStandBehindItsRuns) {
  const Bytes traf = Box("traf", DefaultRun(2),
                         FullBox("tfhd", 0, kTfhdDuration, Tfhd{.duration = 4}), DefaultRun(1));
  Fragments file(Moof(traf));
  EXPECT_EQ(TimesOf(file.Traf()), (Times{0, 4, 8}));
}

TEST(ReadTraf, OtherChildrenAreCompleted) {
  EXPECT_EQ(TrafError(PlainTfhd(), Box("free"), Box("abcd"), DefaultRun(1)), 0u);
  EXPECT_EQ(TrafError(PlainTfhd(), FullBox("mfhd", 0, 0)), kQiroK7MErrorBoxTruncated);
}

TEST(ReadMoof, HasExactlyOneMfhd) {
  const Bytes moov = MoovWith(Mvex({kDefaults}));
  const Bytes mfhd = FullBox("mfhd", 0, 0, Mfhd{.sequenceNumber = 9});
  EXPECT_EQ(ParseError(moov + Box("moof")), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(ParseError(moov + Box("moof", mfhd, mfhd)), kQiroK7MErrorInvalidHierarchy);
  Document document(moov + Box("moof", mfhd));
  document.ParseAll();
  EXPECT_EQ(dynamic_cast<impl::MoofBox*>(document.Root().GetBoxByPos(1))->GetSequenceNumber(), 9u);
}

TEST(ReadMfra, IsAPlainBoxWhateverItHolds) {
  EXPECT_EQ(ParseError(MinimalMoov() + Box("mfra")), 0u);
  EXPECT_EQ(ParseError(MinimalMoov() + Box("mfra", FullBox("tfra", 0, 0, Bytes().Fill(3, 63)))),
            0u);
}

}  // namespace
}  // namespace k7mtest

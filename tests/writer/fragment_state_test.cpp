#include <gtest/gtest.h>

#include "fragment_expectations.h"

namespace k7mtest {
namespace {

QiroK7MError Choose(OpenedWriter& writer, QiroK7MTrack* track, QiroK7MSampleDescriptor* which) {
  return QiroK7MWriterSetSampleDescriptor(writer.Handle(), track, which);
}
uint64_t DescriptionIn(const Bytes& file, size_t moof, size_t traf) {
  return NumberIn(file, "moof#" + std::to_string(moof) + "/traf#" + std::to_string(traf) + "/tfhd",
                  24);
}

TEST(FragmentDescriptions, AChangeBehindSamplesEndsTheFragment) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddTrack();
  auto* first = writer.Describe(video);
  auto* second = writer.Describe(video, "abcd");
  writer.Add(video, 0);
  EXPECT_EQ(Choose(writer, video, second), 0u);
  writer.Add(video, 10);
  EXPECT_TRUE(CodesIn(writer.File(), "moof").empty());
  EXPECT_EQ(Choose(writer, video, first), 0u);
  EXPECT_EQ(CodesIn(writer.File(), "moof"), (std::vector<std::string>{"mfhd", "traf"}));
  writer.Add(video, 20);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DescriptionIn(file, 1, 1), 2u);
  EXPECT_EQ(DescriptionIn(file, 2, 1), 1u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 2), 10u);
}

TEST(FragmentDescriptions, AChangeWithoutSamplesOnlyUpdatesTheHeader) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddTrack({.mediaType = "soun"});
  auto* first = writer.Describe(audio, "mp4a");
  writer.Describe(audio, "abcd");
  writer.Add(video, 0);
  EXPECT_EQ(Choose(writer, audio, first), 0u);
  writer.Add(audio, 0);
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesIn(file), (std::vector<std::string>{"ftyp", "moov", "mdat", "moof", "mfra"}));
  EXPECT_EQ(DescriptionIn(file, 1, 1), 1u);
  EXPECT_EQ(DescriptionIn(file, 1, 2), 1u);
}

TEST(FragmentDescriptions, TheCurrentOneAgainChangesNothing) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddTrack();
  auto* only = writer.Describe(video);
  writer.Add(video, 0);
  const Bytes before = writer.File();
  EXPECT_EQ(Choose(writer, video, only), 0u);
  EXPECT_EQ(writer.File(), before);
}

TEST(FragmentDescriptions, ANewOneBehindSamplesEndsTheFragmentToo) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  writer.Describe(video, "abcd");
  writer.Add(video, 10);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DescriptionIn(file, 1, 1), 1u);
  EXPECT_EQ(DescriptionIn(file, 2, 1), 2u);
  EXPECT_EQ(NumberIn(file, "moov/trak/mdia/minf/stbl/stsd", 12), 2u);
}

TEST(FragmentDescriptions, ATrackOfAnotherWriterIs1283WhenThisOneHasNone) {
  OpenedWriter other(FragmentedInfo());
  other.AddTrack();
  QiroK7MTrack* second = other.AddTrack();
  auto* descriptor = other.Describe(second);
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* own = writer.AddDescribedTrack();
  EXPECT_EQ(Choose(writer, second, descriptor), 1283u);
  EXPECT_EQ(writer.TryDescribe(second, "avc1", {}), 1283u);
  EXPECT_TRUE(writer.IsGood());
  writer.Add(own, 0);
  EXPECT_EQ(Choose(writer, second, descriptor), 1283u);
  EXPECT_EQ(CodesIn(writer.File(), "moof"), std::vector<std::string>{});
  EXPECT_EQ(Choose(writer, own, descriptor), 0u);
}

TEST(FragmentState, ASampleWithoutDescriptionIs1289AndOpensNothing) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddTrack();
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TryAdd(video, {}), 1289u);
  EXPECT_EQ(writer.File(), before);
  writer.Describe(video);
  writer.Add(video, 0);
  EXPECT_EQ(CodesIn(writer.Finish()),
            (std::vector<std::string>{"ftyp", "moov", "mdat", "moof", "mfra"}));
}

TEST(FragmentState, TheMovieBoxIsClosedByTheFirstSampleMetadataOrExtraBox) {
  for (int what = 0; what < 3; ++what) {
    OpenedWriter writer(FragmentedInfo());
    QiroK7MTrack* video = writer.AddDescribedTrack();
    if (what == 0) writer.Add(video, 0);
    if (what == 1) {
      EXPECT_EQ(writer.TrySetUlb({1}), 0u);
    }
    if (what == 2) {
      EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, {}), 0u);
    }
    EXPECT_EQ(CodesIn(writer.File(), "moov"), (std::vector<std::string>{"mvhd", "trak", "mvex"}));
    EXPECT_EQ(writer.TryAddTrack({}), 1281u);
    EXPECT_TRUE(writer.IsGood());
  }
}

TEST(FragmentState, AnUnlimitedNumberOfSamplesFits) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack({.maxSampleCount = 1});
  for (uint64_t time = 0; time < 50; ++time) writer.Add(video, time);
  EXPECT_EQ(NumberIn(writer.Finish(), "moof/traf/trun", 12), 50u);
}

TEST(FragmentState, DestroyingLosesTheOpenFragmentOnly) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  writer.Flush();
  writer.Add(video, 10);
  writer.Destroy();
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 10u);
  EXPECT_TRUE(CodesIn(writer.File(), "moof#2").empty());
}

/// A stream may answer with a code that leaves the writer good: then everything goes on, and
/// nothing that was written before or comes later is lost.
constexpr QiroK7MError kHarmless = 20;

TEST(FragmentState, AHarmlessFailureAtTheFirstBytesOpensNoFragment) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  EXPECT_EQ(writer.TrySetUlb({1}), 0u);
  writer.Stream().FailNth(Call::kWrite, 1, kHarmless);
  EXPECT_EQ(writer.TryAdd(video, {.time = 0}), kHarmless);
  EXPECT_TRUE(writer.IsGood());
  writer.Flush();
  writer.Add(video, 10);
  const Bytes file = writer.Finish();
  const std::vector<std::string> expected = {"ftyp", "moov", "uuid", "mdat", "moof", "mfra"};
  EXPECT_EQ(CodesIn(file), expected);
  EXPECT_EQ(PlaceOf(file, "mdat").size, 19u);
}

TEST(FragmentState, AHarmlessFailureOfTheMovieBoxKeepsItClosed) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Stream().FailNth(Call::kWrite, 1, kHarmless);
  EXPECT_EQ(writer.TryAdd(video, {.time = 0}), kHarmless);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.TryAddTrack({}), 1281u);
  writer.Add(video, 10);
  writer.Finish();
}

TEST(FragmentState, AHarmlessFailureOfAFlushLosesThatFragmentAndNoOther) {
  const auto open = [](OpenedWriter& writer) {
    QiroK7MTrack* video = writer.AddDescribedTrack();
    writer.Add(video, 0, kKey);
    writer.Flush();
    writer.Add(video, 10, kKey);
    writer.Stream().ClearLog();
    return video;
  };
  OpenedWriter counting(FragmentedInfo());
  open(counting);
  counting.Flush();
  const uint64_t writes = counting.Stream().Count(Call::kWrite);
  ASSERT_GT(writes, 5u);
  for (uint64_t n = 1; n <= writes; ++n) {
    SCOPED_TRACE(n);
    OpenedWriter writer(FragmentedInfo());
    QiroK7MTrack* video = open(writer);
    writer.Stream().FailNth(Call::kWrite, n, kHarmless);
    EXPECT_EQ(QiroK7MWriterFlush(writer.Handle()), kHarmless);
    EXPECT_TRUE(writer.IsGood());
    writer.Add(video, 20, kKey);
    const Bytes file = writer.Finish();
    const std::vector<std::string> expected = {"ftyp", "moov", "mdat", "moof",
                                               "mdat", "moof", "mfra"};
    EXPECT_EQ(CodesIn(file), expected);
    // The failing sample is still there when the failure came before its fragment's first box.
    const uint64_t samples = NumberIn(file, "moof#2/traf/trun", 12);
    EXPECT_TRUE(samples == 1 || samples == 2) << samples;
    EXPECT_EQ(NumberIn(file, "mfra/tfra", 20), 1 + samples);
  }
}

TEST(FragmentState, AHarmlessFailureOfARewrittenDurationAddsNothing) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  writer.Flush();
  writer.Stream().FailNth(Call::kWrite, 2, kHarmless);
  EXPECT_EQ(writer.TryAdd(video, {.time = 10}), kHarmless);
  writer.Add(video, 20);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 20u);
  EXPECT_EQ(NumberIn(file, "moof#2/traf/trun", 12), 1u);
}

TEST(FragmentState, AnyOtherFailureOfAFlushSpoilsTheWriter) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  writer.Stream().FailNth(Call::kWrite, 3, 4711);
  EXPECT_EQ(QiroK7MWriterFlush(writer.Handle()), 4711u);
  EXPECT_EQ(writer.TryAdd(video, {.time = 10}), 48u);
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
}

}  // namespace
}  // namespace k7mtest

#include <gtest/gtest.h>

#include "support/counted_buffer.h"
#include "tables.h"

namespace k7mtest {
namespace {

/// A finished file with one track of scale 1000 in a movie of scale 1000.
Bytes FileOf(const std::vector<NewSample>& samples, const NewTrack& track = {}) {
  OpenedWriter writer;
  QiroK7MTrack* added = writer.AddDescribedTrack(track);
  for (const NewSample& sample : samples) writer.Add(added, sample);
  return writer.Finish();
}

TEST(Tables, EqualStepsMakeOneRunAndTheLastSampleAnother) {
  const NewTrack track{.timeScale = 10000};  // One movie tick is 10.
  ExpectStts(FileOf({{.time = 0}, {.time = 10}, {.time = 20}, {.time = 30}}, track),
             {{3, 10}, {1, 10}});
}

TEST(Tables, OtherStepsStartOtherRuns) {
  const NewTrack track{.timeScale = 7000};
  ExpectStts(FileOf({{.time = 0}, {.time = 10}, {.time = 25}}, track), {{1, 10}, {1, 15}, {1, 7}});
  ExpectStts(FileOf({{.time = 0}, {.time = 10}, {.time = 25}, {.time = 40}, {.time = 50}}, track),
             {{1, 10}, {2, 15}, {1, 10}, {1, 7}});
}

TEST(Tables, ALoneSampleLastsOneTickNotTheDefaultDuration) {
  ExpectStts(FileOf({{.time = 0}}, {.timeScale = 10000}), {{1, 1}});
}

TEST(Tables, EqualDecodeTimesAreAccepted) {
  ExpectStts(FileOf({{.time = 0}, {.time = 0}, {.time = 0}, {.time = 5}}),
             {{2, 0}, {1, 5}, {1, 1}});
}

TEST(Tables, TheGreatestStepIsAnOrdinaryOne) {
  ExpectStts(FileOf({{.time = 0}, {.time = 0xFFFFFFFF}, {.time = 2 * uint64_t{0xFFFFFFFF}}}),
             {{2, 0xFFFFFFFF}, {1, 1}});
}

TEST(Tables, TheLastSampleLastsOneMovieTickWhenTheTrackIsFiner) {
  const auto last = [](uint32_t trackScale, uint32_t movieScale) {
    OpenedWriter writer(movieScale);
    QiroK7MTrack* track = writer.AddDescribedTrack({.timeScale = trackScale});
    writer.Add(track, 0);
    writer.Add(track, 3);
    return NumberIn(writer.Finish(), TablePath("stts"), 28);
  };
  EXPECT_EQ(last(1000, 1000), 1u);
  EXPECT_EQ(last(999, 1000), 1u);
  EXPECT_EQ(last(1, 1000), 1u);
  EXPECT_EQ(last(2000, 1000), 2u);
  EXPECT_EQ(last(1001, 1000), 1u);
  EXPECT_EQ(last(1500, 1000), 1u);  // An exact half rounds down.
  EXPECT_EQ(last(1501, 1000), 2u);
  EXPECT_EQ(last(90000, 600), 150u);
}

TEST(Tables, NoSamplesLeaveEveryTableEmpty) {
  OpenedWriter writer;
  const NewTrack track{.trackFlags = 1};
  writer.AddTrack(track);
  const Bytes file = writer.Finish();
  EXPECT_EQ(FindBox(file, "moov/trak/mdia/minf/stbl"), ExpectedStbl(track));
}

TEST(Tables, CompositionOffsetsAreWrittenAsRuns) {
  ExpectCtts(FileOf({{.time = 0, .compositionOffset = 5},
                     {.time = 1, .compositionOffset = 5},
                     {.time = 2, .compositionOffset = 0xFFFFFFFE},
                     {.time = 3},
                     {.time = 4}}),
             {{2, 5}, {1, 0xFFFFFFFE}, {2, 0}});
  ExpectCtts(FileOf({{.time = 0}}), {{1, 0}});
}

TEST(Tables, SizesAndKeySamplesAreWrittenInOrder) {
  const Bytes file = FileOf({{.time = 0, .data = Pattern(5), .flags = kKey},
                             {.time = 1, .data = Pattern(1)},
                             {.time = 2, .data = Pattern(700), .flags = kKey | 0xAB00}});
  ExpectSizes(file, {5, 1, 700});
  ExpectStss(file, {1, 3});
}

TEST(Tables, OnlyALowByteOfOneIsAKeySample) {
  ExpectStss(FileOf({{.time = 0, .flags = 3},
                     {.time = 1, .flags = 0x101},
                     {.time = 2, .flags = 0},
                     {.time = 3, .flags = 0x81},
                     {.time = 4, .flags = 0xFFFF0001}}),
             {2, 5});
}

TEST(Tables, ADependencyByteIsBits8To15OfTheFlags) {
  const NewTrack track{.trackFlags = 1};
  const Bytes file = FileOf({{.time = 0, .flags = kKey | 0x2400},
                             {.time = 1, .flags = 0xFF1800},
                             {.time = 2, .flags = 0xFFFFFF03}},
                            track);
  ExpectTable(file, "sdtp", Bytes{0x24, 0x18, 0xFF});
  EXPECT_EQ(FindBox(file, TablePath("sdtp")).Size(), 12u + 20);
}

TEST(Tables, WithoutTheTrackFlagThereIsNoDependencyTable) {
  EXPECT_EQ(FindBox(FileOf({{.time = 0, .flags = 0x2400}}), TablePath("sdtp")).Size(), 0u);
}

TEST(Chunks, AdjacentSamplesOfOneTrackShareOne) {
  const Bytes file = FileOf({{.time = 0}, {.time = 1}, {.time = 2}});
  ExpectStsc(file, {{1, 3, 1}});
  ExpectChunks(file, {0});
}

TEST(Chunks, AlternatingTracksMakeChunksOfOneThatAreNotMerged) {
  OpenedWriter writer;
  QiroK7MTrack* a = writer.AddDescribedTrack();
  QiroK7MTrack* b = writer.AddDescribedTrack();
  for (uint64_t time = 0; time < 3; ++time) {
    writer.Add(a, {.time = time, .data = Pattern(2)});
    writer.Add(b, {.time = time, .data = Pattern(3)});
  }
  const Bytes file = writer.Finish();
  ExpectStsc(file, {{1, 1, 1}, {2, 1, 1}, {3, 1, 1}}, 1);
  ExpectStsc(file, {{1, 1, 1}, {2, 1, 1}, {3, 1, 1}}, 2);
  ExpectChunks(file, {0, 5, 10}, 1);
  ExpectChunks(file, {2, 7, 12}, 2);
}

TEST(Chunks, ChangingTheDescriptionStartsOne) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack();
  QiroK7MSampleDescriptor* first = writer.Describe(track);
  QiroK7MSampleDescriptor* second = writer.Describe(track, "avc1", Pattern(3));
  writer.Add(track, 0);
  QiroK7MWriterSetSampleDescriptor(writer.Handle(), track, first);
  writer.Add(track, 1);
  QiroK7MWriterSetSampleDescriptor(writer.Handle(), track, second);
  QiroK7MWriterSetSampleDescriptor(writer.Handle(), track, first);  // No sample in between.
  writer.Add(track, 2);
  const Bytes file = writer.Finish();
  ExpectStsc(file, {{1, 1, 2}, {2, 2, 1}});
  ExpectChunks(file, {0, 3});
}

TEST(Chunks, AFlushStartsOneThoughTheBytesAreAdjacent) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  writer.Add(track, 1);
  writer.Flush();
  writer.Add(track, 2);
  const Bytes file = writer.Finish();
  ExpectStsc(file, {{1, 2, 1}, {2, 1, 1}});
  ExpectChunks(file, {0, 6});
}

TEST(Chunks, AddingADescriptionToAnyTrackStartsOneInEveryTrack) {
  OpenedWriter writer;
  QiroK7MTrack* a = writer.AddDescribedTrack();
  QiroK7MTrack* b = writer.AddTrack();
  writer.Add(a, 0);
  writer.Describe(b);
  writer.Add(a, 1);
  const Bytes file = writer.Finish();
  ExpectStsc(file, {{1, 1, 1}, {2, 1, 1}});
  ExpectChunks(file, {0, 3});
}

TEST(Chunks, ARefusedSampleDoesNotStartOne) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 5);
  EXPECT_EQ(writer.TryAdd(track, {.time = 4}), 1280u);
  writer.Add(track, 6);
  ExpectStsc(writer.Finish(), {{1, 2, 1}});
}

TEST(MediaData, IsOneBoxInTheLargeFormBehindEverythingElse) {
  const Bytes file =
      FileOf({{.time = 0, .data = Pattern(5, 1)}, {.time = 1, .data = Pattern(9, 2)}});
  EXPECT_EQ(CodesIn(file), (std::vector<std::string>{"ftyp", "moov", "mdat"}));
  EXPECT_EQ(FindBox(file, "mdat"), LargeBox("mdat", Pattern(5, 1), Pattern(9, 2)));
}

TEST(MediaData, AGapSampleStoresNothing) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  const Bytes before = writer.File();
  writer.Add(track, {.time = 0, .data = {}, .flags = kGap});
  writer.Add(track, {.time = 0, .data = Pattern(5), .flags = kGap});
  EXPECT_EQ(writer.File(), before);
}

TEST(MediaData, OnlyTheSampleSizeIsWritten) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  QiroK7MSampleInfo info = NewSample{}.Info(track);
  info.sampleSize = 2;
  CountedBuffer buffer(Pattern(10));
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), track, &info, buffer.Record()), 0u);
  EXPECT_EQ(buffer.Releases(), 1);
  EXPECT_EQ(FindBox(writer.Finish(), "mdat"), LargeBox("mdat", Cut(Pattern(10), 2)));
}

TEST(MediaData, IsOnTheStreamAndTheBufferReleasedWhenTheCallReturns) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  const uint64_t media = writer.Stream().Length() + 16;
  writer.Add(track, {.data = Pattern(50)});
  EXPECT_EQ(writer.Stream().Content(media, 50), Pattern(50));
}

TEST(AddSample, ChecksComeInOrder) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack();
  CountedBuffer shortBuffer(Bytes{1});
  QiroK7MSampleInfo info = NewSample{}.Info(track);
  info.timeScale = 0;
  info.mediaType = Code("soun");
  info.sampleSize = 0;
  const auto add = [&](QiroK7MWriter* w, QiroK7MTrack* t, const QiroK7MSampleInfo* i,
                       const Bytes& bytes) {
    CountedBuffer buffer(bytes);
    const QiroK7MError result = QiroK7MWriterAddSample(w, t, i, buffer.Record());
    EXPECT_EQ(buffer.Releases(), 1);
    return result;
  };
  auto* const w = writer.Handle();
  EXPECT_EQ(add(nullptr, track, &info, {}), 20u);
  EXPECT_EQ(add(w, nullptr, &info, {}), 20u);
  EXPECT_EQ(add(w, track, nullptr, {}), 20u);
  EXPECT_EQ(add(w, track, &info, {}), 8u);
  info.mediaType = Code("vide");
  EXPECT_EQ(add(w, track, &info, {}), 11u);
  info.sampleSize = 3;
  EXPECT_EQ(QiroK7MWriterAddSample(w, track, &info, nullptr), 20u);
  QiroK7MDataBuffer noData{3, nullptr, nullptr, nullptr};
  EXPECT_EQ(QiroK7MWriterAddSample(w, track, &info, &noData), 20u);
  EXPECT_EQ(add(w, track, &info, Bytes{1, 2}), 1030u);
  EXPECT_EQ(add(w, track, &info, Bytes{1, 2, 3}), 10u);
  info.timeScale = 1000;
  info.timeStamp = 5;
  EXPECT_EQ(add(w, track, &info, Bytes{1, 2, 3}), 1289u);
  writer.Describe(track);
  EXPECT_EQ(add(w, track, &info, Bytes{1, 2, 3}), 0u);
  info.timeStamp = 4;
  EXPECT_EQ(add(w, track, &info, Bytes{1, 2, 3}), 1280u);
  info.timeStamp = 5 + (uint64_t{1} << 32);
  EXPECT_EQ(add(w, track, &info, Bytes{1, 2, 3}), 1288u);
  EXPECT_TRUE(writer.IsGood());
  writer.Finish();
  info.mediaType = 0;
  EXPECT_EQ(add(w, track, &info, {}), 48u);  // Before 8.
  EXPECT_EQ(add(w, track, nullptr, {}), 20u);
}

TEST(AddSample, AGapNeedsNeitherBytesNorABuffer) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  QiroK7MSampleInfo info = NewSample{.flags = kGap}.Info(track);
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), track, &info, nullptr), 0u);
  info.sampleSize = 10;  // Not looked at.
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), track, &info, nullptr), 0u);
  info.timeScale = 0;
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), track, &info, nullptr), 10u);
  info.mediaType = 0;
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), track, &info, nullptr), 8u);
}

TEST(AddSample, AGapNeedsADescriptionAndATimeInOrder) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack();
  EXPECT_EQ(writer.TryAdd(track, {.flags = kGap}), 1289u);
  writer.Describe(track);
  writer.Add(track, 10);
  EXPECT_EQ(writer.TryAdd(track, {.time = 9, .flags = kGap}), 1280u);
  EXPECT_EQ(writer.TryAdd(track, {.time = 11 + (uint64_t{1} << 32), .flags = kGap}), 1288u);
  EXPECT_TRUE(writer.IsGood());
}

TEST(AddSample, ASampleOfATrackThatTheWriterDoesNotHaveIs1283) {
  OpenedWriter small;
  OpenedWriter large;
  small.AddDescribedTrack();
  large.AddTrack();
  QiroK7MTrack* second = large.AddTrack();
  EXPECT_EQ(small.TryAdd(second, {}), 1283u);
  EXPECT_TRUE(small.IsGood());
}

TEST(AddSample, ARefusedSampleChangesNothing) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 10);
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TryAdd(track, {.time = 9}), 1280u);
  EXPECT_EQ(writer.TryAdd(track, {.time = 10 + (uint64_t{1} << 32)}), 1288u);
  EXPECT_EQ(writer.TryAdd(track, {.time = 11, .data = {}}), 11u);
  EXPECT_EQ(writer.File(), before);
  EXPECT_EQ(writer.TryAdd(track, {.time = 10 + uint64_t{0xFFFFFFFF}}), 0u);
  ExpectSizes(writer.Finish(), {3, 3});
}

TEST(AddSample, TheFirstOneHasNoPreviousTime) {
  for (const uint64_t time : {uint64_t{1} << 33, uint64_t{1} << 40}) {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddDescribedTrack();
    EXPECT_EQ(writer.TryAdd(track, {.time = time}), 0u);
    EXPECT_EQ(writer.TryAdd(track, {.time = time}), 0u);
  }
}

TEST(AddSample, TimesAreComparedAsSignedNumbers) {
  constexpr uint64_t kSign = uint64_t{1} << 63;
  {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddDescribedTrack();
    EXPECT_EQ(writer.TryAdd(track, {.time = kSign - 1}), 0u);
    EXPECT_EQ(writer.TryAdd(track, {.time = kSign}), 1280u);
    EXPECT_EQ(writer.TryAdd(track, {.time = kSign - 1}), 0u);
  }
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  EXPECT_EQ(writer.TryAdd(track, {.time = ~uint64_t{0}}), 0u);
  EXPECT_EQ(writer.TryAdd(track, {.time = ~uint64_t{0} - 1}), 1280u);
  EXPECT_EQ(writer.TryAdd(track, {.time = 4}), 0u);  // 5 behind -1.
  EXPECT_EQ(writer.TryAdd(track, {.time = kSign}), 1280u);
}

TEST(AddSample, TimesAreConvertedToTheTracksScaleRoundingToNearest) {
  const NewTrack track{.timeScale = 1000};
  // 90000 to 1000: 44/90 down, 45/90 (an exact half) down, 46/90 up.
  ExpectStts(FileOf({{.time = 0, .timeScale = 90000},
                     {.time = 90 + 44, .timeScale = 90000},
                     {.time = 180 + 45, .timeScale = 90000},
                     {.time = 270 + 46, .timeScale = 90000},
                     {.time = 9, .timeScale = 1000}},
                    track),
             {{2, 1}, {1, 2}, {1, 5}, {1, 1}});
}

TEST(AddSample, CompositionOffsetsAreConvertedByMagnitudeAndKeepTheirSign) {
  const auto minus = [](uint32_t value) { return 0u - value; };
  ExpectCtts(FileOf({{.time = 0, .compositionOffset = 46, .timeScale = 90000},
                     {.time = 90, .compositionOffset = minus(46), .timeScale = 90000},
                     {.time = 180, .compositionOffset = 45, .timeScale = 90000},
                     {.time = 270, .compositionOffset = minus(45), .timeScale = 90000},
                     {.time = 360, .compositionOffset = minus(9000), .timeScale = 90000}}),
             {{1, 1}, {1, minus(1)}, {2, 0}, {1, minus(100)}});
}

TEST(AddSample, EqualScalesLeaveEveryOffsetUntouched) {
  ExpectCtts(FileOf({{.time = 0, .compositionOffset = 0x80000000},
                     {.time = 1, .compositionOffset = 0xFFFFFFFF},
                     {.time = 2, .compositionOffset = 0x7FFFFFFF}}),
             {{1, 0x80000000}, {1, 0xFFFFFFFF}, {1, 0x7FFFFFFF}});
}

TEST(AddSample, AConvertedOffsetThatDoesNotFitIsAnErrorNotAnotherOffset) {
  const auto result = [](uint32_t offset) {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddDescribedTrack({.timeScale = 2000});
    const Bytes before = writer.File();
    const QiroK7MError error =
        writer.TryAdd(track, {.compositionOffset = offset, .timeScale = 1000});
    EXPECT_EQ(writer.IsGood(), error == 0);
    EXPECT_EQ(writer.File() == before, error != 0);
    return error;
  };
  EXPECT_EQ(result(0x3FFFFFFF), 0u);
  EXPECT_EQ(result(0x40000000), 19u);
  EXPECT_EQ(result(0x7FFFFFFF), 19u);
  EXPECT_EQ(result(0x80000000), 19u);
  EXPECT_EQ(result(0xBFFFFFFF), 19u);
  EXPECT_EQ(result(0xC0000000), 0u);
}

TEST(AddSample, TheSmallestOffsetFits) {
  ExpectCtts(FileOf({{.time = 0, .compositionOffset = 0xC0000000, .timeScale = 500}}),
             {{1, 0x80000000}});
}

TEST(AddSample, BeyondTheReservedNumberIs17AndMakesTheWriterBad) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.maxSampleCount = 3});
  for (uint64_t time = 0; time < 9; time += 3) writer.Add(track, time * time);
  writer.Flush();
  ExpectStts(writer.File(), {{1, 9}, {1, 27}, {1, 1}});
  EXPECT_EQ(writer.TryAdd(track, {.time = 100}), 17u);
  EXPECT_FALSE(writer.IsGood());
  EXPECT_EQ(writer.TryAdd(track, {.time = 101}), 48u);
}

TEST(AddSample, ATrackWithoutRoomTakesNone) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.maxSampleCount = 0});
  EXPECT_EQ(writer.TryAdd(track, {}), 17u);
}

TEST(AddSample, ThousandFitButNotOneMore) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.maxSampleCount = 1000});
  // Every run has one sample, so that all tables are filled to the last entry.
  for (uint32_t i = 0; i < 1000; ++i) {
    writer.Add(track, {.time = uint64_t{i} * i, .flags = kKey, .compositionOffset = i});
    if (i % 100 == 99) writer.Flush();
  }
  ExpectSizes(writer.File(), std::vector<uint32_t>(1000, 3));
  EXPECT_EQ(writer.TryAdd(track, {.time = 2000000}), 17u);
}

}  // namespace
}  // namespace k7mtest

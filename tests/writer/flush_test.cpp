#include <gtest/gtest.h>

#include "support/opened_reader.h"
#include "tables.h"

namespace k7mtest {
namespace {

TEST(Flush, WithoutMediaChangesNothingInTheFile) {
  OpenedWriter writer;
  writer.Flush();
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 10, kGap);
  const Bytes before = writer.File();
  writer.Stream().ClearLog();
  writer.Flush();
  EXPECT_EQ(writer.File(), before);
  EXPECT_EQ(writer.Stream().Count(Call::kWrite), 0u);
}

TEST(Flush, ASecondOneWithNothingInBetweenChangesNothing) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.trackFlags = 1});
  for (const uint64_t time : {uint64_t{0}, uint64_t{10}, uint64_t{25}}) {
    writer.Add(track, {.time = time, .flags = kKey | 0x1200, .compositionOffset = 4});
    writer.Flush();
    const Bytes once = writer.File();
    writer.Flush();
    EXPECT_EQ(writer.File(), once);
  }
  const Bytes flushed = writer.File();
  EXPECT_EQ(writer.Finish(), flushed);
}

TEST(Flush, FinishingEntriesAreProvisional) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.timeScale = 3000});
  writer.Add(track, {.time = 0, .compositionOffset = 9});
  writer.Flush();
  ExpectStts(writer.File(), {{1, 1}});
  ExpectCtts(writer.File(), {{1, 9}});
  writer.Add(track, {.time = 10, .compositionOffset = 9});
  writer.Flush();
  ExpectStts(writer.File(), {{1, 10}, {1, 3}});
  ExpectCtts(writer.File(), {{2, 9}});
  writer.Add(track, {.time = 20, .compositionOffset = 8});
  writer.Flush();
  ExpectStts(writer.File(), {{2, 10}, {1, 3}});
  ExpectCtts(writer.File(), {{2, 9}, {1, 8}});
  writer.Add(track, {.time = 25, .compositionOffset = 8});
  writer.Flush();
  ExpectStts(writer.File(), {{2, 10}, {1, 5}, {1, 3}});
  ExpectCtts(writer.File(), {{2, 9}, {2, 8}});
}

TEST(Flush, ChunkNumbersGoOnCounting) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  for (uint64_t time = 0; time < 4; ++time) {
    writer.Add(track, time);
    writer.Flush();
  }
  ExpectStsc(writer.File(), {{1, 1, 1}, {2, 1, 1}, {3, 1, 1}, {4, 1, 1}});
  ExpectChunks(writer.File(), {0, 3, 6, 9});
}

TEST(Flush, WritesTheSizeOfTheMediaData) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  writer.Flush();
  EXPECT_EQ(NumberIn(writer.File(), "mdat", 8, 8), 19u);
  writer.Add(track, 1);
  EXPECT_EQ(NumberIn(writer.File(), "mdat", 8, 8), 19u);
  writer.Flush();
  EXPECT_EQ(NumberIn(writer.File(), "mdat", 8, 8), 22u);
}

TEST(Flush, NeedsAGoodWriter) {
  EXPECT_EQ(QiroK7MWriterFlush(nullptr), 20u);
  OpenedWriter writer;
  writer.Finish();
  EXPECT_EQ(QiroK7MWriterFlush(writer.Handle()), 48u);
}

/// Adds samples number `first` to `end` - 1 of a session of two tracks.
void AddSamples(OpenedWriter& writer, size_t first, size_t end,
                const std::vector<QiroK7MTrack*>& tracks) {
  for (size_t i = first; i < end; ++i) {
    const auto number = static_cast<uint32_t>(i);
    const bool isGap = i % 7 == 5;
    writer.Add(tracks[i / 2 % 2], {.time = 10 + 20 * (i / 4) + i % 2 * 7,
                                   .data = Pattern(1 + i % 5, number),
                                   .flags = isGap             ? kGap
                                            : number % 3 == 0 ? kKey | number << 8
                                                              : 0,
                                   .compositionOffset = number % 4});
  }
}

std::vector<QiroK7MTrack*> TwoTracks(OpenedWriter& writer) {
  return {writer.AddDescribedTrack({.trackFlags = 1}),
          writer.AddDescribedTrack({.mediaType = "soun"})};
}

constexpr size_t kSampleCount = 24;

TEST(Flush, AtAnyMomentLeavesAFileWithAllSamplesSoFar) {
  for (size_t count = 1; count <= kSampleCount; ++count) {
    SCOPED_TRACE(count);
    OpenedWriter writer;
    AddSamples(writer, 0, count, TwoTracks(writer));
    writer.Flush();
    const Bytes flushed = writer.File();
    OpenedReader reader(flushed);
    ASSERT_EQ(reader.Result(), 0u);
    EXPECT_TRUE(reader.Warnings().Seen().empty());
    std::vector<Bytes> expected;
    for (const size_t track : {size_t{0}, size_t{1}}) {
      for (size_t i = 0; i < count; ++i) {
        if (i % 7 != 5 && i / 2 % 2 == track) {
          expected.push_back(Pattern(1 + i % 5, static_cast<uint32_t>(i)));
        }
      }
    }
    std::vector<Bytes> found;
    for (QiroK7MTrack* track : reader.Tracks()) {
      for (const ReadSample& sample : MediaSamples(reader, track)) found.push_back(sample.data);
    }
    EXPECT_EQ(found, expected);
  }
}

TEST(Flush, LeavesNoTraceButChunkBoundaries) {
  OpenedWriter plain;
  AddSamples(plain, 0, kSampleCount, TwoTracks(plain));
  const Bytes expected = plain.Finish();
  for (size_t place = 0; place <= kSampleCount; ++place) {
    SCOPED_TRACE(place);
    OpenedWriter writer;
    const auto tracks = TwoTracks(writer);
    AddSamples(writer, 0, place, tracks);
    writer.Flush();
    AddSamples(writer, place, kSampleCount, tracks);
    const Bytes file = writer.Finish();
    for (size_t track = 1; track <= 2; ++track) {
      for (const char* table : {"stsd", "stts", "stsz", "ctts", "stss", "sdtp"}) {
        EXPECT_EQ(FindBox(file, TablePath(table, track)),
                  FindBox(expected, TablePath(table, track)))
            << table;
      }
      const std::string trak = "moov/trak#" + std::to_string(track);
      for (const char* box : {"/tkhd", "/edts", "/mdia/mdhd", "/mdia/hdlr"}) {
        EXPECT_EQ(FindBox(file, trak + box), FindBox(expected, trak + box)) << box;
      }
    }
    EXPECT_EQ(FindBox(file, "moov/mvhd"), FindBox(expected, "moov/mvhd"));
    EXPECT_EQ(FindBox(file, "mdat"), FindBox(expected, "mdat"));
    EXPECT_EQ(file.Size(), expected.Size());
  }
}

TEST(Close, FlushesAndClosesTheStreamOnce) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
  EXPECT_FALSE(writer.Stream().IsOpen());
  EXPECT_EQ(NumberIn(writer.File(), "mdat", 8, 8), 19u);
  const uint64_t calls = writer.Stream().Count(Call::kAny);
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
  EXPECT_EQ(writer.Stream().Count(Call::kAny), calls);
  EXPECT_FALSE(writer.IsGood());
}

TEST(Close, NeedsAWriterAndDestroyDoesNot) {
  EXPECT_EQ(QiroK7MCloseWriter(nullptr), 20u);
  QiroK7MDestroyWriter(nullptr);
}

TEST(Close, AFailingFlushClosesWithoutThrowing) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  writer.Stream().FailNth(Call::kWrite, 1, 4711);
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 4711u);
  EXPECT_FALSE(writer.Stream().IsOpen());
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
  EXPECT_FALSE(writer.IsGood());
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);  // There is no stream any more.
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
}

TEST(Close, AFailingCloseOfTheStreamIsReportedOnce) {
  OpenedWriter writer;
  writer.Stream().FailNth(Call::kClose, 1, 4711);
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 4711u);
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
  EXPECT_FALSE(writer.IsGood());
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
}

TEST(Close, AFailureWithAHarmlessCodeLeavesTheWriterBadToo) {
  for (const bool inFlush : {true, false}) {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddDescribedTrack();
    writer.Add(track, 0);
    writer.Stream().FailNth(inFlush ? Call::kWrite : Call::kClose, 1, 1280);
    EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 1280u);
    EXPECT_FALSE(writer.IsGood());
    EXPECT_EQ(writer.TryAdd(track, {.time = 5}), 48u);
  }
}

TEST(Close, OfABadWriterClosesTheStreamAndWritesNothing) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  writer.Stream().FailNth(Call::kWrite, 1, 4711);
  EXPECT_EQ(writer.TryAdd(track, {.time = 1}), 4711u);
  EXPECT_FALSE(writer.IsGood());
  writer.Stream().ClearLog();
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
  EXPECT_EQ(writer.Stream().Count(Call::kAny), 1u);
  EXPECT_FALSE(writer.IsGood());
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
}

TEST(Close, OfABadWriterReportsAFailingStream) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Stream().FailNth(Call::kWrite, 1, 4711);
  EXPECT_EQ(writer.TryAdd(track, {.time = 1}), 4711u);
  writer.Stream().FailNth(Call::kClose, 1, 815);
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 815u);
}

TEST(Destroy, WithoutCloseClosesTheStreamAndWritesNothing) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  const Bytes before = writer.File();
  writer.Stream().ClearLog();
  writer.Stream().FailNth(Call::kClose, 1, 4711);
  QiroK7MDestroyWriter(writer.Release());
  EXPECT_FALSE(writer.Stream().IsOpen());
  EXPECT_EQ(writer.Stream().Count(Call::kAny), 1u);
  EXPECT_EQ(writer.File(), before);
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
}

}  // namespace
}  // namespace k7mtest

// Files that lie, nest or repeat without measure.
#include <gtest/gtest.h>

#include "support/heap_watch.h"
#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

Movie OneTrack() {
  Movie movie;
  movie.tracks.push_back({.samples = SomeSamples(3)});
  return movie;
}

// Nesting
// -------------------------------------------------------------------------------------------

/// `depth` boxes in each other, around `inner`.
Bytes Nested(size_t depth, const Bytes& inner = {}) {
  Bytes heads;
  for (size_t i = depth; i > 0; --i) heads.U32(8 * i + inner.Size()).Code("edts");
  return heads + inner;
}

Bytes MovieWith(const Bytes& moreInMoov) {
  Movie movie = OneTrack();
  movie.moreInMoov = moreInMoov;
  return BuildMovie(movie).bytes;
}

TEST(Nesting, ThirtyTwoLevelsAreRead) { EXPECT_EQ(OpenResult(MovieWith(Nested(31))), 0u); }

TEST(Nesting, ThirtyThreeLevelsAreRefused) {
  EXPECT_EQ(OpenResult(MovieWith(Nested(32))), kQiroK7MErrorInvalidHierarchy);
}

TEST(Nesting, ABoxWithoutChildrenCountsAsALevel) {
  EXPECT_EQ(OpenResult(MovieWith(Nested(30, Box("free")))), 0u);
  EXPECT_EQ(OpenResult(MovieWith(Nested(31, Box("free")))), kQiroK7MErrorInvalidHierarchy);
}

TEST(Nesting, OtherBoxesAreLeavesHoweverDeepTheirContentIs) {
  EXPECT_EQ(OpenResult(MovieWith(Box("udta", Nested(100)))), 0u);
  EXPECT_EQ(OpenResult(MovieWith(Box("meta", Nested(100)))), 0u);
}

TEST(Nesting, AHundredThousandLevelsAreRefusedWithoutHarm) {
  EXPECT_EQ(OpenResult(MovieWith(Nested(100000))), kQiroK7MErrorInvalidHierarchy);
}

// Sizes and offsets
// ---------------------------------------------------------------------------------

TEST(BoxSizes, ABoxSmallerThanItsHeaderIsRefused) {
  const Bytes movie = BuildMovie(OneTrack()).bytes;
  for (const uint32_t size : {2u, 7u}) {
    EXPECT_EQ(OpenResult(LyingBox("free", size) + movie), kQiroK7MErrorBoxTruncated) << size;
    EXPECT_EQ(OpenResult(MovieWith(LyingBox("free", size))), kQiroK7MErrorBoxTruncated) << size;
  }
  EXPECT_EQ(OpenResult(LyingLargeBox("free", 15) + movie), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(LyingLargeBox("free", 0) + movie), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(LyingBox("uuid", 23, UuidBytes(kMetadataUuid)) + movie),
            kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(LyingBox("free", 8) + movie), 0u);
  EXPECT_EQ(OpenResult(LyingLargeBox("free", 16) + movie), 0u);
}

TEST(BoxSizes, AChildWhoseEndWrapsEndsTheChildrenSilently) {
  const Bytes wrapping = LyingLargeBox("free", 0xFFFFFFFFFFFFFFF0);
  OpenedReader reader(MovieWith(wrapping + Box("trak")));  // The broken 'trak' is not looked at.
  EXPECT_EQ(reader.Result(), 0u);
  EXPECT_TRUE(reader.Warnings().Seen().empty());
  EXPECT_EQ(reader.Tracks().size(), 1u);
}

TEST(BoxSizes, ATopLevelBoxWhoseEndWrapsEndsTheParse) {
  const Bytes wrapping = LyingLargeBox("free", 0xFFFFFFFFFFFFFFF0);
  const Bytes movie = BuildMovie(OneTrack()).bytes;
  EXPECT_EQ(OpenResult(Box("free", Bytes().Fill(16)) + wrapping + movie), kQiroK7MErrorNoMovieBox);
  OpenedReader reader(movie + wrapping + Box("uuid", UuidBytes(kMetadataUuid), Bytes{1, 2}));
  ASSERT_EQ(reader.Result(), 0u);
  uint32_t length = 77;
  EXPECT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length), 0u);
  EXPECT_EQ(length, 0u);
}

TEST(Offsets, AMediaBoxBeyondTheGreatestOffsetEndsTheParseBehindIt) {
  for (const uint64_t size : {uint64_t{1} << 63, (uint64_t{1} << 63) - 1, ~uint64_t{0} - 10000}) {
    Movie movie = OneTrack();
    movie.atEnd = LyingLargeBox("mdat", size);
    OpenedReader reader(BuildMovie(movie).bytes);
    ASSERT_EQ(reader.Result(), 0u);
    uint32_t length = 77;
    EXPECT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length), 0u) << size;
    EXPECT_EQ(length, 0u);
  }  // That no callback saw such an offset is judged when the reader closes.
}

TEST(Offsets, SamplesBeyondTheGreatestOffsetAreShort) {
  for (const uint64_t offset :
       {uint64_t{1} << 63, ~uint64_t{0}, ~uint64_t{0} - 3, (uint64_t{1} << 63) - 1}) {
    Movie movie = OneTrack();
    movie.tracks[0].has64BitOffsets = true;
    movie.tracks[0].chunkOffsets = [&](const std::vector<uint64_t>& offsets) {
      return FullBox("co64", 0, 0, Co64{.offsets = std::vector(offsets.size(), offset)});
    };
    OpenedReader reader(BuildMovie(movie).bytes);
    const auto samples = MediaSamples(reader);
    ASSERT_EQ(samples.size(), 3u);
    for (const ReadSample& sample : samples) {
      EXPECT_EQ(sample.dataResult, kQiroK7MErrorSampleDataShort);
    }
  }
}

// Counts that lie
// -----------------------------------------------------------------------------------

/// A movie whose last table runs to the end of the stream, as do the boxes around it.
Bytes MovieEndingIn(const Bytes& table, const std::string& replaced) {
  Bytes others = FullBox("stsd", 0, 0, Stsd{.entries = {VideoEntry()}});
  const auto add = [&](const std::string& code, const Bytes& box) {
    if (code != replaced) others.Append(box);
  };
  add("stts", FullBox("stts", 0, 0, Stts{.runs = {{1, 1}}}));
  add("stsc", FullBox("stsc", 0, 0, Stsc{.runs = {{1, 1, 1}}}));
  if (replaced != "co64") add("stco", FullBox("stco", 0, 0, Stco{.offsets = {0}}));
  add("stsz", FullBox("stsz", 0, 0, Stsz{.sizes = {1}}));
  const Bytes minf = TillEndBox("minf", Box("dinf", FullBox("dref", 0, 0, Dref{})),
                                TillEndBox("stbl", others, table));
  const Bytes mdia =
      TillEndBox("mdia", FullBox("mdhd", 0, 0, Mdhd{}), FullBox("hdlr", 0, 0, Hdlr{}), minf);
  return Box("ftyp", Ftyp{}) + TillEndBox("moov", FullBox("mvhd", 0, 0, Mvhd{}),
                                          TillEndBox("trak", FullBox("tkhd", 0, 0, Tkhd{}), mdia));
}

/// The same with an edit list at the end, of which the payload is given.
Bytes MovieEndingInEdits(const Bytes& elst) {
  const Bytes stbl = Box("stbl", FullBox("stsd", 0, 0, Stsd{}), FullBox("stts", 0, 0, Stts{}),
                         FullBox("stsc", 0, 0, Stsc{}), FullBox("stco", 0, 0, Stco{}),
                         FullBox("stsz", 0, 0, Stsz{}));
  const Bytes mdia = Box("mdia", FullBox("mdhd", 0, 0, Mdhd{}), FullBox("hdlr", 0, 0, Hdlr{}),
                         Box("minf", Box("dinf", FullBox("dref", 0, 0, Dref{})), stbl));
  return Box("ftyp", Ftyp{}) + TillEndBox("moov", FullBox("mvhd", 0, 0, Mvhd{}),
                                          TillEndBox("trak", FullBox("tkhd", 0, 0, Tkhd{}), mdia,
                                                     TillEndBox("edts", TillEndBox("elst", elst))));
}

Bytes Liar(std::string_view code, uint32_t count) {
  Bytes fields = Bytes().U32(0).U32(count);
  if (code == "stsz") fields = Bytes().U32(0).U32(0).U32(count);
  return TillEndBox(code, fields, Bytes().Fill(5000, 1));
}

/// Opens a file on a stream that claims to be a tebibyte long; returns the code, judges the memory.
QiroK7MError OpenOnLyingStream(const Bytes& file) {
  const int64_t before = CountHeap().liveBytes;
  ResetHeapPeak();
  OpenedReader reader(
      file, [](OpenedReader& prepared) { prepared.Stream().ClaimLength(uint64_t{1} << 40); });
  const auto heap = static_cast<uint64_t>(CountHeap().peakBytes - before);
  EXPECT_LE(heap + reader.Memory().PeakBytes(),
            (64u << 20) + 48 * reader.Stream().BytesDelivered());
  return reader.Result();
}

TEST(LyingCounts, TablesTakeMemoryForWhatWasDelivered) {
  for (const char* code : {"stts", "ctts", "stss", "stsz", "stco", "co64"}) {
    EXPECT_EQ(OpenOnLyingStream(MovieEndingIn(Liar(code, 100000000), code)),
              kQiroK7MErrorReadFailed)
        << code;
  }
}

TEST(LyingCounts, MoreThanAHundredMillionEntriesAreRefusedAtOnce) {
  for (const char* code : {"stts", "ctts"}) {
    EXPECT_EQ(OpenOnLyingStream(MovieEndingIn(Liar(code, 100000001), code)),
              kQiroK7MErrorTooManyEntries);
  }
  for (const char* code : {"stss", "stsz", "stco", "co64"}) {
    EXPECT_EQ(OpenOnLyingStream(MovieEndingIn(Liar(code, 100000001), code)),
              kQiroK7MErrorEntryCountTooLarge);
  }
}

TEST(LyingCounts, OtherListsTakeMemoryForWhatWasDelivered) {
  const Bytes sizes =
      FullBox("stsz", 0, 0, Stsz{.constantSize = 1, .sizes = {}, .count = 100000000});
  EXPECT_EQ(OpenOnLyingStream(MovieEndingIn(sizes + TillEndBox("sdtp", Bytes().Fill(99)), "stsz")),
            kQiroK7MErrorReadFailed);
  EXPECT_EQ(OpenOnLyingStream(TillEndBox("uuid", Bytes().Fill(16), Bytes().Fill(99))),
            kQiroK7MErrorReadFailed);
  // A metadata packet's length is told in 32 bits.
  EXPECT_EQ(OpenOnLyingStream(TillEndBox("uuid", UuidBytes(kMetadataUuid), Bytes().Fill(99))),
            kQiroK7MErrorBoxTruncated);
  const Bytes brands = Bytes().U32(0x10000000).Code("ftyp").Fill(8 + 999);
  EXPECT_EQ(OpenOnLyingStream(brands), kQiroK7MErrorReadFailed);
  EXPECT_EQ(OpenOnLyingStream(MovieEndingInEdits(Bytes().U32(0).U32(99999999).Fill(99))),
            kQiroK7MErrorReadFailed);
  EXPECT_EQ(OpenOnLyingStream(MovieEndingInEdits(Bytes().U32(0).U32(100000001).Fill(99))),
            kQiroK7MErrorTooManyEntries);
}

TEST(LyingCounts, IdenticalSamplesStayOneRun) {
  Movie movie = OneTrack();
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{0xFFFFFFFF, 1}}});
  movie.tracks[0].replace["ctts"] = FullBox("ctts", 0, 0, Ctts{.runs = {{0xFFFFFFFE, 1}}});
  movie.tracks[0].replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, 100000000, 1}}});
  movie.tracks[0].replace["stsz"] =
      FullBox("stsz", 0, 0, Stsz{.constantSize = 1, .sizes = {}, .count = 100000000});
  const Bytes file = BuildMovie(movie).bytes;
  ResetHeapPeak();
  const int64_t before = CountHeap().liveBytes;
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  uint32_t count = 0;
  EXPECT_EQ(QiroK7MTrackGetSampleCount(reader.TrackAt(0), &count), 0u);
  EXPECT_EQ(count, 100000000u);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator), 0u);
  EXPECT_TRUE(HasMore(iterator));
  EXPECT_LT(CountHeap().peakBytes - before, 1 << 20);
  QiroK7MReleaseSampleIterator(iterator);
}

// Repetition
// ----------------------------------------------------------------------------------------

struct Effort {
  uint64_t calls = 0;
  uint64_t allocations = 0;
};

template <class Work>
Effort EffortOf(const Bytes& file, Work work) {
  const uint64_t before = CountHeap().allocations;
  OpenedReader reader(file);
  EXPECT_EQ(reader.Result(), 0u);
  work(reader);
  return {reader.Stream().Count(Call::kAny),
          CountHeap().allocations - before + reader.Memory().Allocations()};
}

void ExpectInProportion(const Effort& of, const Effort& ofTwice) {
  EXPECT_GT(of.calls, 0u);
  EXPECT_LT(ofTwice.calls, of.calls * 22 / 10);
  EXPECT_LT(ofTwice.allocations, of.allocations * 22 / 10);
}

Bytes TinyBoxes(size_t count) {
  Bytes boxes;
  for (size_t i = 0; i < count; ++i) boxes.U32(8).Code("free");
  return boxes;
}

TEST(LinearEffort, TinyTopLevelBoxes) {
  const auto effort = [](size_t count) {
    return EffortOf(BuildMovie(OneTrack()).bytes + TinyBoxes(count), [](OpenedReader& reader) {
      uint32_t length = 0;
      EXPECT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length), 0u);
    });
  };
  ExpectInProportion(effort(100000), effort(200000));
}

TEST(LinearEffort, TinyBoxesInTheMovieBox) {
  const auto effort = [](size_t count) {
    return EffortOf(MovieWith(TinyBoxes(count)), [](OpenedReader&) {});
  };
  ExpectInProportion(effort(100000), effort(200000));
}

TEST(LinearEffort, OneSampleAChunk) {
  const auto effort = [](size_t count) {
    Movie movie;
    movie.tracks.push_back({.samples = std::vector<TestSample>(count, SampleOf(1))});
    for (size_t i = 0; i < count; i += 2) movie.tracks[0].samples[i].delta = 9;
    return EffortOf(BuildMovie(movie).bytes, [count](OpenedReader& reader) {
      EXPECT_EQ(MediaSamples(reader, nullptr, false).size(), count);
    });
  };
  ExpectInProportion(effort(50000), effort(100000));
}

TEST(LinearEffort, ManyEditsOfALongTrack) {
  // Every edit shows the last sample: a walk from the start of a table would take for ever.
  constexpr size_t kCount = 100000;
  Movie movie;
  movie.tracks.push_back({.samples = std::vector<TestSample>(kCount, SampleOf(1))});
  movie.tracks[0].samplesPerChunk = kCount;
  for (size_t i = 0; i < kCount; i += 2) movie.tracks[0].samples[i].delta = 9;
  const uint64_t last = kCount / 2 * 19 - 10;
  movie.tracks[0].edits.assign(kCount, {.segmentDuration = 1, .mediaTime = int64_t{last}});
  OpenedReader reader(BuildMovie(movie).bytes);
  EXPECT_EQ(AllSamples(reader, false).size(), kCount);
}

}  // namespace
}  // namespace k7mtest

// What lies just beyond a limit: lengths of 4 GiB, the last level of nesting, the end of time.
#include <gtest/gtest.h>

#include "support/heap_watch.h"
#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr uint64_t kFourGiB = uint64_t{1} << 32;
constexpr uint64_t kTebibyte = uint64_t{1} << 40;

Movie OneTrack() {
  Movie movie;
  movie.tracks.push_back({.samples = SomeSamples(3)});
  return movie;
}

Bytes MovieWith(const Bytes& moreInMoov) {
  Movie movie = OneTrack();
  movie.moreInMoov = moreInMoov;
  return BuildMovie(movie).bytes;
}

// Lengths that are told in 32 bits
// ------------------------------------------------------------------

/// The head of a metadata box with a packet of `size` bytes.
Bytes MetadataHead(uint64_t size) {
  return LyingLargeBox("uuid", 16 + 16 + size, UuidBytes(kMetadataUuid));
}

/// A movie that ends in a video entry with a codec header of `size` bytes, of which none is there.
Bytes CodecHeaderHead(uint64_t size) {
  const Bytes fields = VideoFields{}.Payload();
  const Bytes stbl =
      TillEndBox("stbl", FullBox("stts", 0, 0, Stts{}), FullBox("stsc", 0, 0, Stsc{}),
                 FullBox("stco", 0, 0, Stco{}), FullBox("stsz", 0, 0, Stsz{}),
                 TillEndBox("stsd", Bytes().U32(0).U32(1),
                            LyingLargeBox("avc1", 16 + fields.Size() + size, fields)));
  const Bytes minf = TillEndBox("minf", Box("dinf", FullBox("dref", 0, 0, Dref{})), stbl);
  const Bytes mdia =
      TillEndBox("mdia", FullBox("mdhd", 0, 0, Mdhd{}), FullBox("hdlr", 0, 0, Hdlr{}), minf);
  return Box("ftyp", Ftyp{}) + TillEndBox("moov", FullBox("mvhd", 0, 0, Mvhd{}),
                                          TillEndBox("trak", FullBox("tkhd", 0, 0, Tkhd{}), mdia));
}

/// Opens a stream that starts with `head` and has `length` bytes in all; returns the code. Little
/// memory may be taken and little read.
QiroK7MError OpenSparse(const Bytes& head, uint64_t length) {
  const int64_t before = CountHeap().liveBytes;
  ResetHeapPeak();
  OpenedReader reader(head,
                      [length](OpenedReader& prepared) { prepared.Stream().SetLength(length); });
  EXPECT_LT(CountHeap().peakBytes - before, 1 << 20);
  EXPECT_LT(reader.Memory().PeakBytes(), 1u << 20);
  EXPECT_LT(reader.Stream().BytesDelivered(), 1u << 20);
  return reader.Result();
}

/// As OpenSparse(), but only the head can be read.
QiroK7MError OpenLying(const Bytes& head) {
  OpenedReader reader(head,
                      [](OpenedReader& prepared) { prepared.Stream().ClaimLength(kTebibyte); });
  return reader.Result();
}

TEST(FourGiB, AMetadataPacketOfThatSizeIsError27AtOpen) {
  for (const uint64_t size : {kFourGiB, kFourGiB + 5, 3 * kFourGiB}) {
    const Bytes head = MetadataHead(size);
    EXPECT_EQ(OpenSparse(head, head.Size() + size), kQiroK7MErrorBoxTruncated) << size;
  }
}

TEST(FourGiB, AMetadataPacketOfOneByteLessIsRead) {
  EXPECT_EQ(OpenLying(MetadataHead(kFourGiB - 1)), kQiroK7MErrorReadFailed);
  EXPECT_EQ(OpenLying(MetadataHead(kFourGiB)), kQiroK7MErrorBoxTruncated);
}

TEST(FourGiB, ACodecHeaderOfThatSizeIsError27AtOpen) {
  for (const uint64_t size : {kFourGiB, kFourGiB + 5, 3 * kFourGiB}) {
    const Bytes head = CodecHeaderHead(size);
    EXPECT_EQ(OpenSparse(head, head.Size() + size), kQiroK7MErrorBoxTruncated) << size;
  }
}

TEST(FourGiB, ACodecHeaderOfOneByteLessIsRead) {
  EXPECT_EQ(OpenLying(CodecHeaderHead(kFourGiB - 1)), kQiroK7MErrorReadFailed);
  EXPECT_EQ(OpenLying(CodecHeaderHead(kFourGiB)), kQiroK7MErrorBoxTruncated);
}

// The last level
// ------------------------------------------------------------------------------------

/// `depth` boxes in each other, around `inner`.
Bytes Nested(size_t depth, const Bytes& inner) {
  Bytes heads;
  for (size_t i = depth; i > 0; --i) heads.U32(8 * i + inner.Size()).Code("edts");
  return heads + inner;
}

TEST(LastLevel, SampleEntriesAreALevelOfTheirOwn) {
  const Bytes full = FullBox("stsd", 0, 0, Stsd{.entries = {OtherEntry()}});
  EXPECT_EQ(OpenResult(MovieWith(Nested(29, full))), 0u);
  EXPECT_EQ(OpenResult(MovieWith(Nested(30, full))), kQiroK7MErrorInvalidHierarchy);
}

TEST(LastLevel, AnEmptySampleDescriptionBoxMayStandThere) {
  const Bytes empty = FullBox("stsd", 0, 0, Stsd{});
  EXPECT_EQ(OpenResult(MovieWith(Nested(30, empty))), 0u);
  EXPECT_EQ(OpenResult(MovieWith(Nested(31, empty))), kQiroK7MErrorInvalidHierarchy);
}

TEST(LastLevel, AChildWhoseEndWrapsIsNoChild) {
  const Bytes wrapping = LyingLargeBox("free", 0xFFFFFFFFFFFFFFF0);
  OpenedReader reader(MovieWith(Nested(31, wrapping)));
  EXPECT_EQ(reader.Result(), 0u);
  EXPECT_TRUE(reader.Warnings().Seen().empty());
  EXPECT_EQ(reader.Tracks().size(), 1u);
}

// Memory
// --------------------------------------------------------------------------------------------

TEST(MemoryBound, HoldsForAMillionTinyBoxes) {
  Bytes boxes;
  for (size_t i = 0; i < 1000000; ++i) boxes.U32(8).Code("free");
  for (const Bytes& file : {MovieWith(boxes), BuildMovie(OneTrack()).bytes + boxes}) {
    const int64_t before = CountHeap().liveBytes;
    ResetHeapPeak();
    OpenedReader reader(file);
    ASSERT_EQ(reader.Result(), 0u);
    uint32_t length = 77;
    EXPECT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length), 0u);
    const auto heap = static_cast<uint64_t>(CountHeap().peakBytes - before);
    EXPECT_GE(reader.Stream().BytesDelivered(), 8000000u);
    EXPECT_LE(heap + reader.Memory().PeakBytes(),
              (64u << 20) + 48 * reader.Stream().BytesDelivered());
  }
}

// The end of time
// -----------------------------------------------------------------------------------

/// The times of the samples of OneTrack(), whose scales are 1000.
std::vector<uint64_t> TimesBetween(uint32_t startScale, uint64_t start, uint32_t endScale,
                                   uint64_t end) {
  OpenedReader reader(BuildMovie(OneTrack()).bytes);
  return TimeStamps(SamplesBetween(reader, startScale, start, endScale, end));
}

using Times = std::vector<uint64_t>;

TEST(EndOfTime, ARangeMayEndWithTheLastNumber) {
  EXPECT_EQ(TimesBetween(1000, 0, 1000, UINT64_MAX), (Times{0, 10, 20}));
  EXPECT_EQ(TimesBetween(1000, 10, 1000, UINT64_MAX - 1), (Times{10, 20}));
  EXPECT_EQ(TimesBetween(1000, UINT64_MAX, 1000, UINT64_MAX), Times{});
  EXPECT_EQ(TimesBetween(1000, UINT64_MAX, 1000, 0), Times{});
}

TEST(EndOfTime, ConversionsOfTheEndWrap) {
  EXPECT_EQ(TimesBetween(1, 0, 1, UINT64_MAX), (Times{0, 10, 20})) << "2^64 - 1000";
  EXPECT_EQ(TimesBetween(1, 0, 1, uint64_t{1} << 61), Times{0}) << "1000 * 2^61 is 0";
  EXPECT_EQ(TimesBetween(1, 0, 100, (uint64_t{1} << 61) + 1), (Times{0, 10})) << "1000 / 100";
}

TEST(EndOfTime, AnEditMayLastAsLongAsThereAreNumbers) {
  Movie movie = OneTrack();
  for (const uint64_t duration : {UINT64_MAX, UINT64_MAX - 1, uint64_t{1} << 63}) {
    const Elst edit{.entries = {{.segmentDuration = duration, .mediaTime = 0}}};
    movie.tracks[0].replace["edts"] = Box("edts", FullBox("elst", 1, 0, edit));
    OpenedReader reader(BuildMovie(movie).bytes);
    EXPECT_EQ(TimeStamps(AllSamples(reader, false)), (Times{0, 10, 20})) << duration;
  }
}

}  // namespace
}  // namespace k7mtest

// A tree with every class of box: each read of it short in turn.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "internals/document.h"
#include "support/fragment_builder.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr uint32_t kAllRules = 3;

/// Every box that the parser reads a payload of, where it may stand.
Bytes EveryBoxInItsPlace() {
  Track video{.samples = SomeSamples(5, 40)};
  video.samples[1].compositionOffset = 40;
  video.samples[2].isSync = false;
  video.samples[3].dependency = 1;
  video.samplesPerChunk = 2;
  video.edits = {{.segmentDuration = 50, .mediaTime = -1}, {.segmentDuration = 200}};
  video.replace["dinf"] =
      Box("dinf", FullBox("dref", 0, 0, Dref{.entries = {FullBox("url ", 0, 1)}, .count = 1}));
  const Track sound{.handler = "soun", .samples = SomeSamples(4, 30), .has64BitOffsets = true};
  const Track hints{.handler = "hint",
                    .samples = SomeSamples(2, 30),
                    .moreInTrak = Box("tref", Box("hint", Bytes().U32(1)))};
  const Track other{.handler = "text", .samples = SomeSamples(2, 30)};
  Movie movie;
  movie.tracks = {video, sound, hints, other};
  movie.moreInMoov =
      Box("mvex", FullBox("mehd", 1, 0, Mehd{.duration = 500}), FullBox("trex", 0, 0, Trex{}));
  const Trun run{.dataOffset = 7, .samples = {{30, 8, 0x01010000, 9}, {10, 5, 0, 0}}};
  movie.atEnd = Moof(Traf(kTfhdBase, Tfhd{}, FullBox("tfdt", 1, 0, Tfdt{.time = 120}),
                          FullBox("trun", 0, 0xF01, run))) +
                UuidBox(kMetadataUuid, Pattern(30)) + UuidBox(UuidOfCode("abcd"), Pattern(20)) +
                Box("free", Pattern(10)) + Box("skip", Pattern(10));
  return BuildMovie(movie).bytes;
}

bool IsContainer(const std::string& code) {
  const std::set<std::string> containers = {"moov", "trak", "tref", "edts", "mdia", "minf",
                                            "dinf", "stbl", "mvex", "moof", "traf"};
  return containers.contains(code);
}

/// The code of the innermost box between two offsets in whose payload a byte lies; empty for a
/// header.
std::string BoxAround(const Bytes& file, uint64_t begin, uint64_t end, uint64_t offset) {
  while (begin < end) {
    const uint64_t size = file.NumberAt(begin);
    if (offset >= begin + size) {
      begin += size;
      continue;
    }
    const Bytes bytes = file.Slice(begin + 4, 4);
    const std::string code(reinterpret_cast<const char*>(bytes.Data()), 4);
    const uint64_t payload = begin + (code == "uuid" ? 24 : 8);
    if (IsContainer(code)) return BoxAround(file, payload, begin + size, offset);
    // Its entries are boxes.
    if (code == "dref" && offset >= payload + 8) {
      return BoxAround(file, payload + 8, begin + size, offset);
    }
    return offset < payload ? "" : code;
  }
  return "";
}

TEST(ShortReads, OfEveryBoxAreError5ButForTheEntriesOfAChunkMap) {
  const Bytes file = EveryBoxInItsPlace();
  std::vector<uint64_t> places;  // Of the reads that were short.
  std::vector<uint64_t> accepted;
  places.reserve(10000);
  accepted.reserve(10000);
  const uint64_t hits = SweepShortReads([&](uint64_t n, Shortfall shortfall) {
    Document document(file, nullptr, kAllRules);
    MemoryStream& memory = document.Opened().Memory();
    memory.ShortenNthRead(n, shortfall);
    const QiroK7MError error = ErrorOf([&] { document.ParseAll(); });
    if (!memory.FaultHit()) {
      EXPECT_EQ(error, 0U);
      return false;
    }
    const CallRecord read = memory.ShortenedRead();
    places.push_back(read.offset);
    const bool isChunkMap = read.offset >= 12 && file.NumberAt(read.offset - 12) == Code("stsc");
    if (isChunkMap && shortfall != Shortfall::kEverythingFromThenOn) {
      accepted.push_back(read.offset);
      EXPECT_EQ(error, 0U);
    } else {
      EXPECT_EQ(error, 5U) << "read " << n << " at " << read.offset;
    }
    return true;
  });
  EXPECT_GT(hits, 500U);
  EXPECT_EQ(accepted.size(), 8U) << "of four tracks, by one byte and by all";
  std::set<std::string> codes;
  for (const uint64_t place : places) codes.insert(BoxAround(file, 0, file.Size(), place));
  codes.erase("");
  const std::set<std::string> all = {"co64", "ctts", "dref", "elst", "ftyp", "hdlr", "hint",
                                     "mdhd", "mehd", "mfhd", "mvhd", "nmhd", "sdtp", "smhd",
                                     "stco", "stsc", "stsd", "stss", "stsz", "stts", "tfdt",
                                     "tfhd", "tkhd", "trex", "trun", "url ", "uuid", "vmhd"};
  EXPECT_EQ(codes, all);
}

}  // namespace
}  // namespace k7mtest

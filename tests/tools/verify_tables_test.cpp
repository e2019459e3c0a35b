// `k7m verify`: sample tables that do not agree with each other, with the descriptions or with the
// file.
#include "small_movie.h"
#include "support/box_finder.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

// Track 1: 5 pictures of 40 ms, two in a chunk; track 2: 10 sounds of 20 ms, one in a chunk.
Bytes WithTrack(size_t index, const std::function<void(Track&)>& change) {
  Movie movie = SmallMovie();
  change(movie.tracks[index]);
  return BuildMovie(movie).bytes;
}

Bytes WithSoundBox(const std::string& code, const Bytes& box) {
  return WithTrack(1, [&](Track& track) { track.replace[code] = box; });
}

Bytes WithPictureBox(const std::string& code, const Bytes& box) {
  return WithTrack(0, [&](Track& track) { track.replace[code] = box; });
}

Bytes WithChunkMap(const std::vector<Stsc::Run>& runs) {
  return WithSoundBox("stsc", FullBox("stsc", 0, 0, Stsc{.runs = runs}));
}

Bytes WithSoundOffsets(const std::function<void(std::vector<uint32_t>&)>& change) {
  return WithTrack(1, [&](Track& track) {
    track.chunkOffsets = [change](const std::vector<uint64_t>& offsets) {
      Stco table{.offsets = {offsets.begin(), offsets.end()}};
      change(table.offsets);
      return FullBox("stco", 0, 0, table);
    };
  });
}

Bytes WithAnEmptyChunk() {
  return WithTrack(1, [&](Track& track) {
    track.replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, 0, 1}, {2, 1, 1}}});
    track.chunkOffsets = [](const std::vector<uint64_t>& offsets) {
      Stco table{.offsets = {offsets.begin(), offsets.end()}};
      table.offsets.insert(table.offsets.begin(), 0);
      return FullBox("stco", 0, 0, table);
    };
  });
}

Bytes WithOneSoundLess() {
  return WithTrack(1, [](Track& track) {
    Stsz sizes;
    for (size_t i = 0; i < 9; ++i) {
      sizes.sizes.push_back(static_cast<uint32_t>(track.samples[i].data.Size()));
    }
    track.replace["stsz"] = FullBox("stsz", 0, 0, sizes);
    track.replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{9, 20}}});
  });
}

Bytes WithReference(const Bytes& reference) {
  return WithSoundBox("dinf", Box("dinf", FullBox("dref", 0, 0, Dref{.entries = {reference}})));
}

constexpr const char* kPictureTables = "moov/trak[1]/mdia/minf/stbl/";
constexpr const char* kSoundTables = "moov/trak[2]/mdia/minf/stbl/";

class BrokenTables : public testing::TestWithParam<BrokenFile> {};

TEST_P(BrokenTables, AreFound) { ExpectFound(GetParam()); }

const BrokenFile kBrokenTables[] = {
    {"table-truncated",
     "moov/trak[2]/mdia/minf/stbl/stts",
     1,
     [] {
       return WithSoundBox("stts", FullBox("stts", 0, 0, Stts{.runs = {{10, 20}}, .count = 5}));
     },
     {"not-readable"}},
    {"stsd-count",
     "moov/trak[2]/mdia/minf/stbl/stsd",
     1,
     [] {
       return WithSoundBox("stsd",
                           FullBox("stsd", 0, 0, Stsd{.entries = {AudioEntry()}, .count = 2}));
     },
     {"not-readable"},
     // Where the second would stand.
     [](const Bytes& file) {
       const BoxPlace box = PlaceOf(file, "moov/trak#2/mdia/minf/stbl/stsd");
       return box.offset + box.size;
     }},
    {"data-reference", "moov/trak[2]/mdia/minf/stbl/stsd", 3,
     [] {
       return WithTrack(1, [](Track& track) {
         track.descriptions = {AudioEntry("mp4a", {.dataReference = 5})};
       });
     }},
    {"media-elsewhere",
     "moov/trak[2]/mdia/minf/dinf/dref/url ",
     3,
     [] { return WithReference(FullBox("url ", 0, 0, Bytes().Text("other.mp4").U8(0))); },
     {},
     [](const Bytes& file) {
       return PlaceOf(file, "moov/trak#2/mdia/minf/dinf/dref").offset + 16;
     }},
    {"stts-count", "moov/trak[2]/mdia/minf/stbl/stts", 1,
     [] {
       return WithSoundBox("stts", FullBox("stts", 0, 0, Stts{.runs = {{9, 20}}}));
     }},
    {"ctts-count", "moov/trak[1]/mdia/minf/stbl/ctts", 3,
     [] {
       return WithPictureBox("ctts", FullBox("ctts", 0, 0, Ctts{.runs = {{4, 0}}}));
     }},
    {"sdtp-count", "moov/trak[1]/mdia/minf/stbl/sdtp", 3,
     [] {
       return WithPictureBox("sdtp",
                             FullBox("sdtp", 0, 0, Sdtp{.values = std::vector<uint8_t>(9, 0x20)}));
     }},
    {"stsc-short", "moov/trak[2]/mdia/minf/stbl/stsc", 1,
     [] { return WithSoundOffsets([](std::vector<uint32_t>& offsets) { offsets.pop_back(); }); }},
    {"stsc-long", "moov/trak[2]/mdia/minf/stbl/stsc", 3, WithOneSoundLess},
    {"stsc-order",
     "moov/trak[2]/mdia/minf/stbl/stsc",
     1,
     [] {
       return WithChunkMap({{1, 1, 1}, {1, 1, 1}});
     },
     {"not-readable"}},
    {"stsc-empty-chunk", "moov/trak[2]/mdia/minf/stbl/stsc", 1, WithAnEmptyChunk},
    {"stsc-past-chunks", "moov/trak[2]/mdia/minf/stbl/stsc", 3,
     [] {
       return WithChunkMap({{1, 1, 1}, {50, 1, 1}});
     }},
    {"stsc-description", "moov/trak[2]/mdia/minf/stbl/stsc", 1,
     [] {
       return WithChunkMap({{1, 1, 7}});
     }},
    {"stsc-description", "moov/trak[2]/mdia/minf/stbl/stsc", 1,
     [] {
       return WithChunkMap({{1, 1, 0}});
     }},
    {"stss-order", "moov/trak[1]/mdia/minf/stbl/stss", 1,
     [] {
       return WithPictureBox("stss", FullBox("stss", 0, 0, Stss{.numbers = {4, 1}}));
     }},
    {"stss-range", "moov/trak[1]/mdia/minf/stbl/stss", 1,
     [] {
       return WithPictureBox("stss", FullBox("stss", 0, 0, Stss{.numbers = {1, 6}}));
     }},
    {"stss-range", "moov/trak[1]/mdia/minf/stbl/stss", 1,
     [] {
       return WithPictureBox("stss", FullBox("stss", 0, 0, Stss{.numbers = {0, 1}}));
     }},
    {"track-id", "moov/trak[2]/tkhd", 1,
     [] { return WithTrack(1, [](Track& track) { track.id = 1; }); }},
    {"sample-empty", "moov/trak[2]/mdia/minf/stbl/stsz", 3,
     [] { return WithTrack(1, [](Track& track) { track.samples[4].data = {}; }); }},
};

INSTANTIATE_TEST_SUITE_P(Verify, BrokenTables, testing::ValuesIn(kBrokenTables), NameOf);

TEST(VerifyTables, SamplesPastTheEndAreNamedByChunkAndCannotBeRead) {
  const Verdict verdict =
      Verify(WithSoundOffsets([](std::vector<uint32_t>& offsets) { offsets[3] = 0x7FFFFFFF; }));
  EXPECT_EQ(verdict.exitCode, 1);
  EXPECT_EQ(verdict.Rules(), (std::set<std::string>{"sample-past-end", "sample-unreadable"}));
  const auto chunk = verdict.Finding("sample-past-end");
  EXPECT_EQ(chunk["path"], std::string(kSoundTables) + "stco");
  const std::string message = chunk["places"][0]["message"];
  EXPECT_EQ(message.find("chunk 4 with sample 4 runs from byte 2147483647 to "), 0u) << message;
  EXPECT_EQ(verdict.Finding("sample-unreadable")["path"], "moov/trak[2]");
}

TEST(VerifyTables, TheOffsetIsThatOfTheEntry) {
  const Bytes file = WithPictureBox("stss", FullBox("stss", 0, 0, Stss{.numbers = {1, 2, 77}}));
  const auto finding = Verify(file).Finding("stss-range");
  EXPECT_EQ(finding["path"], std::string(kPictureTables) + "stss");
  const uint64_t offset = finding["places"][0]["offset"];
  EXPECT_EQ(file.NumberAt(offset), 77u);
}

}  // namespace
}  // namespace k7mtest

// `k7m verify`: samples outside the media, on top of each other, or far from each other.
#include <filesystem>

#include "small_movie.h"
#include "support/box_finder.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

using Offsets = std::vector<uint32_t>;

// The small movie with other chunk offsets for its sound.
MovieFile WithSoundOffsets(const std::function<void(Offsets&)>& change) {
  Movie movie = SmallMovie();
  movie.tracks[1].chunkOffsets = [change](const std::vector<uint64_t>& offsets) {
    Stco table{.offsets = {offsets.begin(), offsets.end()}};
    change(table.offsets);
    return FullBox("stco", 0, 0, table);
  };
  return BuildMovie(movie);
}

// All of the sound lies by so many bytes further back.
Bytes WithFarSound(uint32_t distance) {
  const MovieFile movie = WithSoundOffsets([&](Offsets& offsets) {
    for (uint32_t& offset : offsets) offset += distance;
  });
  Bytes bytes = movie.bytes + Bytes().Fill(distance);
  return bytes.Patch(movie.mdatOffset, bytes.NumberAt(movie.mdatOffset) + distance);
}

// A chunk with so many seconds of pictures, and then one with the sound.
Bytes WithLongChunks(size_t seconds, const char* handler = "soun") {
  Movie movie;
  movie.tracks.resize(2);
  movie.tracks[1].handler = handler;
  for (Track& track : movie.tracks) {
    track.samples = SomeSamples(seconds, 1000);
    track.samplesPerChunk = static_cast<uint32_t>(seconds);
  }
  return BuildMovie(movie).bytes;
}

// Where the first chunk of each track lies, by the table.
uint64_t FirstPicture(const Bytes& file) {
  return NumberIn(file, "moov/trak#1/mdia/minf/stbl/stco", 16);
}
uint64_t FirstSound(const Bytes& file) {
  return NumberIn(file, "moov/trak#2/mdia/minf/stbl/stco", 16);
}

class BrokenLayout : public testing::TestWithParam<BrokenFile> {};

TEST_P(BrokenLayout, IsFound) { ExpectFound(GetParam()); }

const BrokenFile kBrokenLayouts[] = {
    {"sample-outside-mdat",
     "moov/trak[2]",
     3,
     [] {
       return WithSoundOffsets([](Offsets& offsets) { offsets[0] = offsets.back() + 60; }).bytes +
              Box("free", Bytes().Fill(100));
     },
     {},
     FirstSound},
    {"samples-overlap",
     "moov/trak[2]",
     3,
     [] { return WithSoundOffsets([](Offsets& offsets) { --offsets[0]; }).bytes; },
     {},
     FirstSound},
    {"interleaving-time", "moov/trak[2]", 3, [] { return WithLongChunks(30); }, {}, FirstPicture},
    {"interleaving-bytes",
     "moov/trak[2]",
     3,
     [] { return WithFarSound(10'100'000); },
     {},
     FirstSound},
};

INSTANTIATE_TEST_SUITE_P(Verify, BrokenLayout, testing::ValuesIn(kBrokenLayouts), NameOf);

TEST(VerifyLayout, NearIsNotFar) {
  EXPECT_EQ(Verify(WithLongChunks(10)).exitCode, 0);
  EXPECT_EQ(Verify(WithLongChunks(30, "text")).exitCode, 0);
  EXPECT_EQ(Verify(WithFarSound(9'900'000)).exitCode, 0);
}

TEST(VerifyLayout, AMovieBoxBehindTheMediaIsOnlyNoted) {
  Movie movie = SmallMovie();
  movie.isMovieBoxLast = true;
  const Verdict verdict = Verify(BuildMovie(movie).bytes);
  EXPECT_EQ(verdict.exitCode, 0);
  const auto finding = verdict.Finding("moov-behind-media");
  EXPECT_EQ(finding["severity"], "info");
  EXPECT_EQ(finding["path"], "moov");
  EXPECT_TRUE(Verify(SmallFile()).Finding("moov-behind-media").is_null());
}

// The media samples of a hint track's samples lie inside them.
TEST(VerifyLayout, HintSamplesMayHoldOtherSamples) {
  Movie movie = SmallMovie();
  movie.tracks[1].handler = "hint";
  movie.tracks[1].chunkOffsets = [](const std::vector<uint64_t>& offsets) {
    Stco table{.offsets = {offsets.begin(), offsets.end()}};
    --table.offsets[0];
    return FullBox("stco", 0, 0, table);
  };
  const Verdict verdict = Verify(BuildMovie(movie).bytes);
  EXPECT_EQ(verdict.exitCode, 0) << verdict.json.dump(2);
}

// The samples of another file are not looked for in this one.
TEST(VerifyLayout, MediaElsewhereHaveNoPlaceHere) {
  Movie movie = SmallMovie();
  const Bytes reference = FullBox("url ", 0, 0, Bytes().Text("other.mp4").U8(0));
  movie.tracks[1].replace["dinf"] =
      Box("dinf", FullBox("dref", 0, 0, Dref{.entries = {reference}}));
  movie.tracks[1].chunkOffsets = [](const std::vector<uint64_t>& offsets) {
    return FullBox("stco", 0, 0, Stco{.offsets = Offsets(offsets.size(), 8)});
  };
  EXPECT_EQ(Verify(BuildMovie(movie).bytes).Rules(), (std::set<std::string>{"media-elsewhere"}));
}

TEST(VerifyLayout, ASampleLargerThanMemoryIsNotReadButItsPlaceIsChecked) {
  constexpr uint64_t kSize = 100u << 20;
  Movie movie;
  movie.tracks = {{.samples = {SampleOf(10)}}};
  movie.tracks[0].replace["stsz"] = FullBox("stsz", 0, 0, Stsz{.constantSize = kSize, .count = 1});
  const MovieFile file = BuildMovie(movie);
  Bytes bytes = file.bytes;
  bytes.Patch(file.mdatOffset, kSize + 8);
  const TemporaryFolder folder;
  const std::string path = folder.Write("clip.mp4", bytes);
  std::filesystem::resize_file(path, file.mdatOffset + kSize + 8);
  const RunResult whole = RunK7m({"verify", path});
  EXPECT_EQ(whole.exitCode, 0) << whole;
  EXPECT_NE(whole.out.find("info sample-too-large: moov/trak at byte "), std::string::npos)
      << whole;
  std::filesystem::resize_file(path, file.mdatOffset + kSize + 7);
  EXPECT_NE(RunK7m({"verify", path}).out.find("error sample-past-end: "), std::string::npos);
}

}  // namespace
}  // namespace k7mtest

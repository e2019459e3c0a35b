#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

using Json = nlohmann::json;

class TreeTest : public testing::Test {
 protected:
  RunResult RunOn(const Bytes& bytes, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"tree", folder_.Write("clip.mp4", bytes)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunK7m(arguments);
  }
  TemporaryFolder folder_;
};

// The first child of a type; null when there is none.
Json Child(const Json& boxes, const std::string& type) {
  for (const Json& box : boxes) {
    if (box.contains("type") && box["type"] == type) return box;
  }
  return nullptr;
}

Json Below(const Json& boxes, std::initializer_list<const char*> path) {
  Json box = {{"children", boxes}};
  for (const char* type : path) {
    box = Child(box["children"], type);
    if (box.is_null()) break;
  }
  return box;
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(TreeTest, JsonNestsTheBoxes) {
  const MovieFile movie = BuildMovie(SmallMovie());
  const RunResult result = RunOn(movie.bytes, {"--json"});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "");
  const Json json = Json::parse(result.out);
  const Json moov = Below(json, {"moov"});
  EXPECT_EQ(moov["offset"], movie.movieOffset);
  EXPECT_FALSE(moov.contains("version"));
  const Json mvhd = Below(json, {"moov", "mvhd"});
  EXPECT_EQ(mvhd["version"], 1);
  EXPECT_EQ(mvhd["flags"], 0);
  EXPECT_EQ(mvhd["fields"]["timescale"], 1000);
  EXPECT_EQ(mvhd["size"], 120);
  const Json stbl = Below(json, {"moov", "trak", "mdia", "minf", "stbl"});
  EXPECT_EQ(Below(stbl["children"], {"stsd", "hvc1"})["fields"]["width"], 32);
  EXPECT_EQ(Below(stbl["children"], {"ctts"})["fields"]["entries"]["entries"][2]["sample_offset"],
            -40);
  EXPECT_EQ(Below(json, {"mdat"})["offset"], movie.mdatOffset);
}

TEST_F(TreeTest, TextIndentsTheBoxes) {
  const RunResult result = RunOn(SmallFile());
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_TRUE(Has(result.out, "\nmoov  offset ")) << result;
  EXPECT_TRUE(Has(result.out, "\n  trak  offset ")) << result;
  EXPECT_TRUE(Has(result.out,
                  "\n        .handler_type: vide\n"
                  "        .name: \"Pictures\"\n"))
      << result;
}

TEST_F(TreeTest, LongTablesAreCutUnlessAllIsAskedFor) {
  Movie movie = SmallMovie();
  movie.tracks[1].samples = SomeSamples(40);
  const Bytes bytes = BuildMovie(movie).bytes;
  const auto sizes = [&](const std::vector<std::string>& options) {
    const Json json = Json::parse(RunOn(bytes, options).out);
    const Json tracks = Below(json, {"moov"})["children"];
    return Below(Json::array({tracks.back()}),
                 {"trak", "mdia", "minf", "stbl", "stsz"})["fields"]["entries"];
  };
  EXPECT_EQ(sizes({"--json"})["count"], 40);
  EXPECT_EQ(sizes({"--json"})["entries"].size(), 16u);
  EXPECT_EQ(sizes({"--json", "--all"})["entries"].size(), 40u);
  EXPECT_TRUE(Has(RunOn(bytes).out, " ...\n"));
}

TEST_F(TreeTest, ATruncatedMovieBoxIsShownAsFarAsItGoes) {
  const MovieFile movie = BuildMovie(SmallMovie());
  const Bytes cut = Cut(movie.bytes, movie.movieOffset + 200);
  const RunResult result = RunOn(cut);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Has(result.out, "  mvhd  offset ")) << result;
  EXPECT_TRUE(Has(result.out, "  trak  offset ")) << result;
  const std::string problem =
      "offset " + std::to_string(movie.movieOffset) + ": kQiroK7MErrorBoxTruncated (27): ";
  EXPECT_TRUE(Has(result.out, "! " + problem)) << result;
  EXPECT_TRUE(Has(result.err, "clip.mp4: " + problem)) << result;
}

TEST_F(TreeTest, EveryTruncationEndsWithValidJson) {
  const Bytes bytes = SmallFile();
  for (size_t size = 1; size < bytes.Size(); size += 37) {
    const RunResult result = RunOn(Cut(bytes, size), {"--json"});
    ASSERT_TRUE(result.exitCode == 0 || result.exitCode == 1) << size << "\n" << result;
    ASSERT_TRUE(Json::accept(result.out)) << size << "\n" << result;
    ASSERT_EQ(result.exitCode == 1 && result.err.empty(), false) << size;
  }
}

TEST_F(TreeTest, ABoxThatCannotBeReadDoesNotHideThoseBehindIt) {
  Movie movie = SmallMovie();
  movie.tracks[0].replace["mdhd"] = Box("mdhd", Bytes{0, 0, 0, 0, 1, 2});
  const RunResult result = RunOn(BuildMovie(movie).bytes, {"--json"});
  EXPECT_EQ(result.exitCode, 1);
  const Json json = Json::parse(result.out);
  const Json mdhd = Below(json, {"moov", "trak", "mdia", "mdhd"});
  EXPECT_EQ(mdhd["fields"], Json::object());
  EXPECT_TRUE(Has(mdhd["children"][0]["problem"], "kQiroK7MErrorBoxTruncated (27)"));
  EXPECT_EQ(mdhd["children"][0]["offset"], mdhd["offset"]);
  EXPECT_FALSE(Below(json, {"moov", "trak", "mdia", "hdlr"}).is_null());
  EXPECT_FALSE(Below(json, {"mdat"}).is_null());
  EXPECT_TRUE(Has(result.err, "offset " + mdhd["offset"].dump() + ": ")) << result;
}

TEST_F(TreeTest, ABoxSmallerThanItsHeaderEndsItsContainer) {
  Movie movie = SmallMovie();
  movie.tracks[0].moreInTrak = LyingBox("tiny", 4, Bytes{1, 2, 3, 4});
  const RunResult result = RunOn(BuildMovie(movie).bytes);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Has(result.out, "    ! offset ")) << result;
  EXPECT_TRUE(Has(result.out, "\n    .handler_type: soun") ||
              Has(result.out, ".handler_type: soun"))
      << result;
  EXPECT_TRUE(Has(result.out, "\nmdat  offset ")) << result;
}

TEST_F(TreeTest, AnEndBeyondAllNumbersIsAProblem) {
  const RunResult result =
      RunOn(SmallFile() + LyingLargeBox("free", 0xFFFFFFFFFFFFFFFFu, Bytes{1, 2, 3, 4}));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Has(result.out, "! offset " + std::to_string(SmallFile().Size()))) << result;
}

TEST_F(TreeTest, NestingBeyondTheLimitIsAProblem) {
  Bytes box = Box("udta");
  for (int i = 0; i < 40; ++i) box = Box("edts", box);
  const RunResult result = RunOn(box, {"--json"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Has(result.err, "kQiroK7MErrorInvalidHierarchy (14)")) << result;
  Json level = Json::parse(result.out);
  int depth = 0;
  for (; level[0].contains("children"); ++depth) level = Json(level[0]["children"]);
  EXPECT_EQ(depth, 32);
  EXPECT_TRUE(level[0].contains("problem"));
}

TEST_F(TreeTest, UnknownBoxesShowTheirPlace) {
  const RunResult result = RunOn(Box("ftyp", Ftyp{}) + Box("\xA9"
                                                           "abc",
                                                           Bytes{1, 2}));
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_TRUE(Has(result.out, "\n\\xA9abc  offset ")) << result;
  EXPECT_TRUE(Has(result.out, ", size 10\n")) << result;
}

TEST_F(TreeTest, TextInAFileCannotControlTheTerminal) {
  Movie movie = SmallMovie();
  movie.replace["ftyp"] = Box("ftyp", Ftyp{.majorBrand = "\x1b[2J"});
  const RunResult result = RunOn(BuildMovie(movie).bytes);
  EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << result;
  EXPECT_TRUE(Has(result.out, ".major_brand: \\x1B[2J\n")) << result;
}

}  // namespace
}  // namespace k7mtest

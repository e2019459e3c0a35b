#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

using Json = nlohmann::json;

class InfoTest : public testing::Test {
 protected:
  RunResult RunOn(const Bytes& bytes, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"info", folder_.Write("clip.mp4", bytes)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunK7m(arguments);
  }
  Json JsonOf(const Bytes& bytes) {
    const RunResult result = RunOn(bytes, {"--json"});
    EXPECT_EQ(result.exitCode, 0) << result;
    return Json::parse(result.out);
  }
  TemporaryFolder folder_;
};

TEST_F(InfoTest, JsonHoldsTheDocumentAndItsTracks) {
  const Json json = JsonOf(SmallFile());
  EXPECT_EQ(json["document"]["timeScale"], 1000);
  EXPECT_EQ(json["document"]["duration"], 200);
  EXPECT_EQ(json["document"]["seconds"], 0.2);
  EXPECT_EQ(json["document"]["isFragmented"], false);
  EXPECT_EQ(json["metadataLength"], 0);
  ASSERT_EQ(json["tracks"].size(), 2u);
  const Json& video = json["tracks"][0];
  EXPECT_EQ(video["number"], 1);
  EXPECT_EQ(video["mediaType"], "vide");
  EXPECT_EQ(video["handlerName"], "Pictures");
  EXPECT_EQ(video["language"], "und");
  EXPECT_EQ(video["width"], 64.0);
  EXPECT_EQ(video["height"], 48.0);
  EXPECT_EQ(video["hasDependencies"], true);
  EXPECT_EQ(video["sampleCount"], 5);
  EXPECT_EQ(json["tracks"][1]["mediaType"], "soun");
  EXPECT_EQ(json["tracks"][1]["sampleCount"], 10);
  EXPECT_EQ(json["tracks"][1]["hasDependencies"], false);
}

TEST_F(InfoTest, JsonHoldsTheDescriptionsWithTheirOwnRecords) {
  const Json json = JsonOf(SmallFile());
  const Json& video = json["tracks"][0]["descriptions"];
  ASSERT_EQ(video.size(), 2u);
  EXPECT_EQ(video[0]["type"], "avc1");
  EXPECT_EQ(video[0]["codecHeaderLength"], 0);
  EXPECT_EQ(video[0]["video"]["width"], 64);
  EXPECT_EQ(video[1]["type"], "hvc1");
  EXPECT_EQ(video[1]["codecHeaderLength"], SecondCodecHeader().Size());
  EXPECT_EQ(video[1]["video"]["width"], 32);
  EXPECT_FALSE(video[0].contains("audio"));
  const Json& sound = json["tracks"][1]["descriptions"];
  ASSERT_EQ(sound.size(), 1u);
  EXPECT_EQ(sound[0]["audio"]["sampleRate"], 48000.0);
  EXPECT_EQ(sound[0]["audio"]["channelCount"], 2);
  EXPECT_FALSE(sound[0].contains("video"));
}

TEST_F(InfoTest, BitRateIsThatOfTheMediaNotOfTheEdits) {
  Movie movie = SmallMovie();
  const uint64_t rate = JsonOf(BuildMovie(movie).bytes)["tracks"][1]["bitRate"];
  uint64_t bytes = 0;
  for (const TestSample& sample : movie.tracks[1].samples) bytes += sample.data.Size();
  EXPECT_EQ(rate, bytes * 8 * 5);  // 10 samples of 20 ms: a fifth of a second.
  movie.tracks[1].edits = {{.segmentDuration = 20, .mediaTime = 0}};
  EXPECT_EQ(JsonOf(BuildMovie(movie).bytes)["tracks"][1]["bitRate"], rate);
}

TEST_F(InfoTest, EditsAndGapsAreCounted) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 50, .mediaTime = -1},
                           {.segmentDuration = 100, .mediaTime = 0},
                           {.segmentDuration = 30, .mediaTime = -1}};
  const Bytes bytes = BuildMovie(movie).bytes;
  EXPECT_EQ(JsonOf(bytes)["tracks"][0]["edits"], Json({{"count", 3}, {"gaps", 2}}));
  EXPECT_NE(RunOn(bytes).out.find("edit list       3 entries, 2 gaps\n"), std::string::npos);
}

TEST_F(InfoTest, MetadataIsMeasured) {
  Movie movie = SmallMovie();
  movie.atEnd = MetadataBox(Bytes().Text("<xml/>"));
  EXPECT_EQ(JsonOf(BuildMovie(movie).bytes)["metadataLength"], 6);
}

TEST_F(InfoTest, AFailureBehindTheMovieBoxDoesNotHideTheTracks) {
  Movie movie = SmallMovie();
  movie.atEnd = LyingBox("uuid", 100, Bytes{1, 2, 3});  // Met when the metadata is looked for.
  const RunResult result = RunOn(BuildMovie(movie).bytes, {"--json"});
  EXPECT_EQ(result.exitCode, 1);
  const Json json = Json::parse(result.out);
  EXPECT_TRUE(json["metadataLength"].is_null());
  ASSERT_EQ(json["tracks"].size(), 2u);
  EXPECT_EQ(json["tracks"][0]["sampleCount"], 5);
  EXPECT_GT(json["tracks"][1]["bitRate"], 0);
  EXPECT_NE(result.err.find("clip.mp4: kQiroK7MError"), std::string::npos) << result;
}

TEST_F(InfoTest, ATableThatPromisesTooMuchIsNotWalked) {
  Movie movie = SmallMovie();
  movie.tracks[1].replace["stsz"] =
      FullBox("stsz", 0, 0, Stsz{.constantSize = 1, .sizes = {}, .count = 100000000u});
  movie.tracks[1].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{100000000u, 1}}});
  movie.tracks[1].replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, 100000000u, 1}}});
  const RunResult result = RunOn(BuildMovie(movie).bytes);
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_NE(result.err.find("track 2: more sample data than the file holds"), std::string::npos)
      << result;
  EXPECT_NE(result.out.find("samples         100000000\n"), std::string::npos) << result;
  EXPECT_NE(result.out.find("bit rate        unknown\n"), std::string::npos) << result;
}

TEST_F(InfoTest, TextFromTheFileCannotControlTheTerminal) {
  Movie movie = SmallMovie();
  movie.tracks[0].handlerName = "\x1b[31mred";
  const RunResult result = RunOn(BuildMovie(movie).bytes);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_NE(result.out.find("handler         \\x1B[31mred\n"), std::string::npos) << result;
}

TEST_F(InfoTest, AHandlerNameThatIsNotUtf8StaysValidJson) {
  Movie movie = SmallMovie();
  movie.tracks[0].handlerName = std::string("\xff\xfe\0", 3);
  const Json json = JsonOf(BuildMovie(movie).bytes);
  EXPECT_EQ(json["tracks"][0]["handlerName"], "\xEF\xBF\xBD\xEF\xBF\xBD");
}

}  // namespace
}  // namespace k7mtest

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

using Json = nlohmann::json;

class SamplesTest : public testing::Test {
 protected:
  RunResult RunOn(const Movie& movie, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"samples",
                                          folder_.Write("clip.mp4", BuildMovie(movie).bytes)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunK7m(arguments);
  }
  Json JsonOf(const Movie& movie, std::vector<std::string> more = {}) {
    more.push_back("--json");
    const RunResult result = RunOn(movie, more);
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.err, "");
    return Json::parse(result.out);
  }
  // "1:0 2:0 2:20": track and time stamp of each sample.
  std::string OrderOf(const Movie& movie, const std::vector<std::string>& more = {}) {
    std::string text;
    for (const Json& sample : JsonOf(movie, more)) {
      text += (text.empty() ? "" : " ") + sample["track"].dump() + ":" + sample["timeStamp"].dump();
    }
    return text;
  }
  TemporaryFolder folder_;
};

TEST_F(SamplesTest, CsvHasEveryColumn) {
  const RunResult result = RunOn(SmallMovie(), {"--csv", "--track", "1"});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "");
  const auto samples = SmallMovie().tracks[0].samples;
  const auto size = [&](size_t i) { return std::to_string(samples[i].data.Size()); };
  EXPECT_EQ(result.out,
            "track,timeStamp,timeScale,seconds,compositionOffset,size,key,gap,description,"
            "dependency\n"
            "1,0,1000,0.000000,0," +
                size(0) +
                ",1,0,1,32\n"
                "1,40,1000,0.040000,80," +
                size(1) +
                ",0,0,1,24\n"
                "1,80,1000,0.080000,-40," +
                size(2) +
                ",0,0,1,24\n"
                "1,120,1000,0.120000,0," +
                size(3) +
                ",1,0,2,32\n"
                "1,160,1000,0.160000,0," +
                size(4) + ",0,0,2,24\n");
}

TEST_F(SamplesTest, TheTableHasAHeadAndALineForEachSample) {
  const RunResult result = RunOn(SmallMovie());
  EXPECT_EQ(result.exitCode, 0) << result;
  std::istringstream lines(result.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "track      time stamp         seconds    offset        size key gap desc  dep");
  std::getline(lines, line);
  std::istringstream words(line);
  std::vector<std::string> row;
  for (std::string word; words >> word;) row.push_back(word);
  const std::string size = std::to_string(SmallMovie().tracks[0].samples[0].data.Size());
  EXPECT_EQ(row,
            (std::vector<std::string>{"1", "0", "0.000000", "0", size, "yes", "-", "1", "0x20"}));
  size_t more = 0;
  while (std::getline(lines, line)) ++more;
  EXPECT_EQ(more, 14u);
}

TEST_F(SamplesTest, JsonIsAnArrayInTheOrderOfDelivery) {
  EXPECT_EQ(OrderOf(SmallMovie()),
            "1:0 2:0 2:20 1:40 2:40 2:60 1:80 2:80 2:100 1:120 2:120 2:140 1:160 2:160 2:180");
  const Json first = JsonOf(SmallMovie())[0];
  EXPECT_EQ(first["timeScale"], 1000);
  EXPECT_EQ(first["isKey"], true);
  EXPECT_EQ(first["isGap"], false);
  EXPECT_EQ(first["description"], 1);
  EXPECT_EQ(first["dependency"], 0x20);
}

TEST_F(SamplesTest, TracksAreChosenByNumberOrType) {
  EXPECT_EQ(OrderOf(SmallMovie(), {"--track", "1"}), "1:0 1:40 1:80 1:120 1:160");
  EXPECT_EQ(OrderOf(SmallMovie(), {"--type", "vide"}), "1:0 1:40 1:80 1:120 1:160");
  EXPECT_EQ(OrderOf(SmallMovie(), {"--track", "2", "--track", "1"}), OrderOf(SmallMovie()));
  EXPECT_EQ(OrderOf(SmallMovie(), {"--type", "soun", "--type", "vide"}), OrderOf(SmallMovie()));
}

TEST_F(SamplesTest, ATypeThatNoTrackHasGivesNoSamples) {
  EXPECT_EQ(JsonOf(SmallMovie(), {"--type", "text"}), Json::array());
  EXPECT_EQ(JsonOf(SmallMovie(), {"--type", "text", "--media"}), Json::array());
}

TEST_F(SamplesTest, TheRangeIsInSecondsAndIncludesItsEnd) {
  EXPECT_EQ(OrderOf(SmallMovie(), {"--track", "1", "--from", "0.08", "--to", "0.12"}),
            "1:80 1:120");
  EXPECT_EQ(OrderOf(SmallMovie(), {"--track", "1", "--from", "0.12"}), "1:120 1:160");
  EXPECT_EQ(OrderOf(SmallMovie(), {"--track", "1", "--to", "0.04"}), "1:0 1:40");
}

TEST_F(SamplesTest, TheRangeWorksOnTheMediaTimelineToo) {
  EXPECT_EQ(OrderOf(SmallMovie(), {"--media", "--from", "0.08", "--to", "0.1"}), "1:80 2:80 2:100");
}

TEST_F(SamplesTest, EditsAreAppliedUnlessTheMediaIsAskedFor) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 500, .mediaTime = -1},
                           {.segmentDuration = 120, .mediaTime = 80}};
  EXPECT_EQ(OrderOf(movie, {"--track", "1"}), "1:0 1:500 1:540 1:580");
  EXPECT_EQ(OrderOf(movie, {"--track", "1", "--media"}), "1:0 1:40 1:80 1:120 1:160");
}

TEST_F(SamplesTest, AGapHasNoDescription) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 500, .mediaTime = -1},
                           {.segmentDuration = 120, .mediaTime = 80}};
  const Json gap = JsonOf(movie, {"--track", "1"})[0];
  EXPECT_EQ(gap["isGap"], true);
  EXPECT_EQ(gap["isKey"], false);
  EXPECT_EQ(gap["size"], 0);
  EXPECT_TRUE(gap["description"].is_null());
  EXPECT_NE(RunOn(movie, {"--track", "1", "--csv"}).out.find("\n1,0,1000,0.000000,0,0,0,1,,0\n"),
            std::string::npos);
}

TEST_F(SamplesTest, AnUnknownTrackIsRefused) {
  const RunResult result = RunOn(SmallMovie(), {"--track", "3"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "k7m: " + folder_.Path("clip.mp4") + ": no track 3 (the file has 2)\n");
}

TEST_F(SamplesTest, AMissingTableIsRefused) {
  Movie movie = SmallMovie();
  movie.tracks[0].replace["stts"] = Bytes();
  const RunResult result = RunOn(movie);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_NE(result.err.find("clip.mp4: kQiroK7MErrorInvalidHierarchy (14): "), std::string::npos)
      << result;
}

TEST_F(SamplesTest, ARangeThatEndsBeforeItBeginsIsAUsageError) {
  const RunResult result = RunOn(SmallMovie(), {"--from", "0.12", "--to", "0.1"});
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("--to lies before --from"), std::string::npos) << result;
  EXPECT_EQ(OrderOf(SmallMovie(), {"--track", "1", "--from", "0.12", "--to", "0.12"}), "1:120");
}

TEST_F(SamplesTest, ATrackNumberThatIsNoneIsToldInShort) {
  const RunResult zero = RunOn(SmallMovie(), {"--track", "0"});
  EXPECT_EQ(zero.exitCode, 2);
  EXPECT_NE(zero.err.find("--track: they are counted from 1"), std::string::npos) << zero;
  const RunResult word = RunOn(SmallMovie(), {"--track", "one"});
  EXPECT_NE(word.err.find("--track: not a number: one"), std::string::npos) << word;
  for (const char* text : {"-1", "1.5", "4294967296", ""}) {
    EXPECT_EQ(RunOn(SmallMovie(), {"--track", text}).exitCode, 2) << text;
  }
}

TEST_F(SamplesTest, ManyTracksAndDescriptionsAreToldApart) {
  Movie movie;
  for (uint32_t track = 0; track < 300; ++track) {
    movie.tracks.push_back({.samples = SomeSamples(2), .descriptions = {}});
    movie.tracks.back().descriptions.assign(3, VideoEntry());
    movie.tracks.back().samples[1].description = 1 + track % 3;
  }
  const Json samples = JsonOf(movie, {"--media"});
  ASSERT_EQ(samples.size(), 600u);
  std::vector<uint32_t> seen(300);
  for (const Json& sample : samples) {
    const uint32_t track = sample["track"].get<uint32_t>() - 1;
    const uint32_t expected = seen.at(track)++ == 0 ? 1 : 1 + track % 3;
    EXPECT_EQ(sample["description"], expected) << track;
  }
  EXPECT_EQ(seen, std::vector<uint32_t>(300, 2));
}

TEST_F(SamplesTest, OptionsThatMakeNoSenseAreUsageErrors) {
  const std::vector<std::vector<std::string>> attempts = {
      {"--track", "0"},        {"--track", "one"},  {"--track", "1", "--type", "vide"},
      {"--type", "video"},     {"--from", "early"}, {"--from", "-1"},
      {"--from", "1.2345678"}, {"--to", "1e3"},     {"--to", "."},
      {"--to", "315360001"},   {"--json", "--csv"}, {"--from"}};
  for (const auto& options : attempts) {
    const RunResult result = RunOn(SmallMovie(), options);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(options) << "\n" << result;
    EXPECT_EQ(result.out, "") << testing::PrintToString(options);
  }
}

}  // namespace
}  // namespace k7mtest

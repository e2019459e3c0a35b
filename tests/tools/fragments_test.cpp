// What the commands say about fragmented files whose movie box knows nothing of the fragments.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "run_program.h"
#include "small_fragments.h"

namespace k7mtest {
namespace {

using Json = nlohmann::json;

class FragmentsTest : public testing::Test {
 protected:
  RunResult RunOn(const Bytes& file, const std::string& command,
                  const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {command, folder_.Write("clip.mp4", file)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunK7m(arguments);
  }
  Json JsonOf(const Bytes& file, const std::string& command, std::vector<std::string> more = {}) {
    more.push_back("--json");
    const RunResult result = RunOn(file, command, more);
    EXPECT_EQ(result.exitCode, 0) << result;
    messages_ = result.err;
    return Json::parse(result.out);
  }
  // "1:0 2:0 2:20": track and time stamp of each sample; "-" before a gap.
  std::string OrderOf(const Bytes& file, const std::vector<std::string>& more = {}) {
    std::string text;
    for (const Json& sample : JsonOf(file, "samples", more)) {
      text += (text.empty() ? "" : " ") + std::string(sample["isGap"] ? "-" : "") +
              sample["track"].dump() + ":" + sample["timeStamp"].dump();
    }
    return text;
  }
  // The small fragmented movie with an edit list on its video track.
  static Bytes WithEdits(const std::vector<Elst::Entry>& edits) {
    Movie movie = SmallFragmentedMovie();
    movie.tracks[0].edits = edits;
    return BuildMovie(movie).bytes + SmallFragments();
  }
  std::string Name() const { return "k7m: " + folder_.Path("clip.mp4") + ": "; }
  std::string messages_;
  TemporaryFolder folder_;
};

constexpr const char* kAllSamples =
    "1:0 2:0 2:20 1:40 2:40 2:60 1:80 2:80 2:100 1:120 2:120 2:140 1:160 2:160 2:180";

TEST_F(FragmentsTest, SamplesAreShownThoughTheHeaderTellsNoDuration) {
  EXPECT_EQ(OrderOf(SmallFragmentedFile()), kAllSamples);
  EXPECT_EQ(messages_, "");
  EXPECT_EQ(OrderOf(SmallFragmentedFile(), {"--media"}), kAllSamples);
  EXPECT_EQ(OrderOf(SmallFragmentedFile(), {"--track", "1"}), "1:0 1:40 1:80 1:120 1:160");
}

TEST_F(FragmentsTest, KeySamplesAndSizesAreThoseOfTheRuns) {
  const Json samples = JsonOf(SmallFragmentedFile(), "samples", {"--track", "1"});
  const std::vector<bool> expected = {true, false, false, false, true};
  ASSERT_EQ(samples.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(samples[i]["isKey"], expected[i]) << i;
    EXPECT_EQ(samples[i]["size"], SomeSamples(5)[i].data.Size()) << i;
    EXPECT_EQ(samples[i]["description"], 1) << i;
  }
}

TEST_F(FragmentsTest, TheEndOfARangeDoesNotBelongToIt) {
  const std::vector<std::string> range = {"--from", "0.08", "--to", "0.12"};
  EXPECT_EQ(OrderOf(SmallFragmentedFile(), range), "1:80 2:80 2:100");
  EXPECT_EQ(OrderOf(SmallFragmentedFile(), {"--from", "0.15"}), "1:160 2:160 2:180");
  EXPECT_EQ(OrderOf(SmallFragmentedFile(), {"--from", "0.08", "--to", "0.12", "--media"}),
            "1:80 2:80 2:100 1:120 2:120");
}

TEST_F(FragmentsTest, ADurationThatCoversTheMovieBoxOnlyHidesNoFragment) {
  Movie movie = SmallFragmentedMovie();
  movie.tracks[0].duration = 80;
  movie.tracks[0].samples = SomeSamples(2, 40, 3);
  const Bytes file = BuildMovie(movie).bytes + SmallFragments(80);
  EXPECT_EQ(OrderOf(file, {"--track", "1"}), "1:0 1:40 1:80 1:120 1:160 1:200 1:240");
  EXPECT_EQ(messages_, "");
}

TEST_F(FragmentsTest, AnEditListThatShowsSomethingIsApplied) {
  const Bytes file = WithEdits(
      {{.segmentDuration = 50, .mediaTime = -1}, {.segmentDuration = 80, .mediaTime = 80}});
  EXPECT_EQ(OrderOf(file, {"--track", "1"}), "-1:0 1:50 1:90");
  EXPECT_EQ(messages_, "");
  // Both ways of listing are merged by time, the pictures first.
  EXPECT_EQ(OrderOf(file), "-1:0 2:0 2:20 2:40 1:50 2:60 2:80 1:90 2:100 2:120 2:140 2:160 2:180");
  EXPECT_EQ(OrderOf(file, {"--from", "0.04", "--to", "0.08"}), "-1:0 2:40 1:50 2:60");
}

TEST_F(FragmentsTest, ATrackWithoutATimeScaleDoesNotDisturbTheOthers) {
  Movie movie = SmallFragmentedMovie();
  movie.tracks[0].edits = {{.segmentDuration = 80, .mediaTime = 0}};
  movie.tracks[1].timeScale = 0;
  const Bytes file = BuildMovie(movie).bytes + SmallFragments();
  const RunResult result = RunOn(file, "samples", {"--csv", "--from", "0", "--to", "0.1"});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_NE(result.out.find("\n1,40,1000,"), std::string::npos) << result;
  EXPECT_NE(result.out.find("\n2,180,0,"), std::string::npos) << result;
}

TEST_F(FragmentsTest, AnEditListThatShowsNothingIsPassedOverAndNamed) {
  const Bytes file = WithEdits(
      {{.segmentDuration = 50, .mediaTime = -1}, {.segmentDuration = 0, .mediaTime = 40}});
  EXPECT_EQ(OrderOf(file), kAllSamples);
  EXPECT_EQ(messages_, Name() +
                           "track 1: the edit list leaves no sample; they are taken as they lie in "
                           "the file\n");
  EXPECT_EQ(OrderOf(file, {"--media"}), kAllSamples);
  EXPECT_EQ(messages_, "");
  EXPECT_EQ(OrderOf(file, {"--track", "2", "--from", "0.16"}), "2:160 2:180");
  EXPECT_EQ(messages_, "");
}

TEST_F(FragmentsTest, StartTimesAreThoseOfTheFragments) {
  const Bytes file = BuildMovie(SmallFragmentedMovie()).bytes + SmallFragments(100000);
  EXPECT_EQ(OrderOf(file, {"--track", "1"}), "1:100000 1:100040 1:100080 1:100120 1:100160");
  const Json info = JsonOf(file, "info");
  EXPECT_EQ(info["tracks"][0]["duration"], 200);
}

TEST_F(FragmentsTest, ExtractFindsTheBytes) {
  for (uint32_t track = 1; track <= 2; ++track) {
    const RunResult result =
        RunOn(SmallFragmentedFile(), "extract", {"--track", std::to_string(track), "-o", "-"});
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(Bytes().Text(result.out), SmallFragmentsMedia(track));
  }
}

TEST_F(FragmentsTest, InfoCountsFragmentsAndAddsUpDurations) {
  const Json info = JsonOf(SmallFragmentedFile(), "info");
  EXPECT_EQ(info["document"]["isFragmented"], true);
  EXPECT_EQ(info["document"]["fragmentCount"], 3);
  EXPECT_EQ(info["document"]["duration"], 200);
  EXPECT_EQ(info["document"]["durationFrom"], "samples");
  const size_t counts[] = {5, 10};
  for (size_t i = 0; i < 2; ++i) {
    const Json& track = info["tracks"][i];
    EXPECT_EQ(track["sampleCount"], counts[i]);
    EXPECT_EQ(track["duration"], 200);
    EXPECT_EQ(track["seconds"], 0.2);
    EXPECT_EQ(track["durationFrom"], "samples");
    EXPECT_EQ(track["mediaBytes"], SmallFragmentsMedia(static_cast<uint32_t>(i + 1)).Size());
  }
  const RunResult text = RunOn(SmallFragmentedFile(), "info");
  EXPECT_NE(text.out.find("  fragmented      yes, 3 fragments\n"), std::string::npos) << text;
  EXPECT_NE(
      text.out.find(
          "  duration        0.200000 s (200) by the samples, 0.000000 s (0) by the header\n"),
      std::string::npos)
      << text;
}

TEST_F(FragmentsTest, AHeaderThatKnowsTheDurationIsBelieved) {
  Movie movie = SmallFragmentedMovie();
  movie.duration = 210;
  movie.tracks[0].duration = movie.tracks[1].duration = 210;
  const Json info = JsonOf(BuildMovie(movie).bytes + SmallFragments(), "info");
  EXPECT_EQ(info["document"]["duration"], 210);
  EXPECT_EQ(info["document"]["durationFrom"], "header");
  EXPECT_EQ(info["tracks"][1]["duration"], 210);
  EXPECT_EQ(info["tracks"][1]["durationFrom"], "header");
}

TEST_F(FragmentsTest, AMovieBoxAloneHasNoFragmentsAndNoSamples) {
  const Bytes file = BuildMovie(SmallFragmentedMovie()).bytes;
  const Json info = JsonOf(file, "info");
  EXPECT_EQ(info["document"]["fragmentCount"], 0);
  EXPECT_EQ(info["tracks"][0]["sampleCount"], 0);
  EXPECT_EQ(info["tracks"][0]["duration"], 0);
  EXPECT_EQ(OrderOf(file), "");
}

// Wherever the file is cut, every command ends with an answer, and what was promised and cannot be
// had is an error.
TEST_F(FragmentsTest, CutFilesAreToldApartFromWholeOnes) {
  const Bytes whole = SmallFragmentedFile();
  const size_t movieEnd = BuildMovie(SmallFragmentedMovie()).bytes.Size();
  for (size_t size = movieEnd - 40; size < whole.Size(); size += 37) {
    SCOPED_TRACE(size);
    const std::string clip = folder_.Write("cut.mp4", Cut(whole, size));
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"info", clip},
             {"samples", clip},
             {"tree", clip},
             {"remux", clip, folder_.Path("copy.mp4"), "--force"}}) {
      const RunResult result = RunK7m(arguments);
      EXPECT_LE(result.exitCode, 1) << result;
      const std::string expected = "k7m: " + clip + (result.exitCode == 0 ? ": warning: " : ": ");
      if (result.exitCode == 1 || !result.err.empty()) {
        EXPECT_EQ(result.err.find(expected), 0u) << result.err;
      }
    }
  }
}

TEST_F(FragmentsTest, MediaThatAreCutOffAreAnError) {
  const Bytes whole = SmallFragmentedFile();
  const Bytes cut = Cut(whole, whole.Size() - 3);
  const RunResult result = RunOn(cut, "extract", {"--track", "2", "-o", folder_.Path("out")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err.find(Name() + "warning: kQiroK7MWarningBoxPastEndOfStream (3074)"), 0u);
  EXPECT_NE(result.err.find(Name() + "kQiroK7MErrorSampleDataShort (1030)"), std::string::npos)
      << result;
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
}

TEST_F(FragmentsTest, MalformedFragmentsAreClearErrors) {
  const Bytes movie = BuildMovie(SmallFragmentedMovie()).bytes;
  Bytes tooManySamples = SmallFragments();
  for (size_t i = 0; i + 12 < tooManySamples.Size(); ++i) {
    if (tooManySamples.NumberAt(i) == Code("trun")) tooManySamples.Patch(i + 8, 0x40000001);
  }
  const struct {
    Bytes fragments;
    const char* message;
  } attempts[] = {
      {Fragment({{.track = 3, .samples = SomeSamples(1)}}), "kQiroK7MErrorNoTrackExtends (25)"},
      {Box("moof", FullBox("mfhd", 0, 0, Mfhd{}), Box("traf")),
       "kQiroK7MErrorInvalidHierarchy (14)"},
      {Box("moof"), "kQiroK7MErrorInvalidHierarchy (14)"},
      {tooManySamples, "kQiroK7MErrorTrunSampleCount (29)"},
  };
  for (const auto& attempt : attempts) {
    SCOPED_TRACE(attempt.message);
    for (const char* command : {"info", "samples"}) {
      const RunResult result = RunOn(movie + attempt.fragments, command);
      EXPECT_EQ(result.exitCode, 1) << result;
      EXPECT_NE(result.err.find(Name() + attempt.message), std::string::npos) << result;
    }
    const RunResult copied = RunOn(movie + attempt.fragments, "remux", {folder_.Path("copy.mp4")});
    EXPECT_EQ(copied.exitCode, 1) << copied;
    EXPECT_NE(copied.err.find(Name() + attempt.message), std::string::npos) << copied;
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
  }
}

TEST_F(FragmentsTest, WhatCannotBeCountedIsUnknownAndNotNone) {
  const RunResult result = RunOn(BuildMovie(SmallFragmentedMovie()).bytes + Box("moof"), "info");
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_NE(result.out.find("  samples         unknown\n"), std::string::npos) << result;
}

TEST_F(FragmentsTest, ARunWithAnUnknownDescriptionIsAWarningThatStrictRefuses) {
  Movie movie = SmallFragmentedMovie();
  movie.moreInMoov = Box("mvex", FullBox("trex", 0, 0, Trex{.trackId = 1, .description = 7}),
                         FullBox("trex", 0, 0, Trex{.trackId = 2}));
  const Bytes file = BuildMovie(movie).bytes + SmallFragments();
  const RunResult usual = RunOn(file, "samples");
  EXPECT_EQ(usual.exitCode, 0) << usual;
  EXPECT_NE(usual.err.find("kQiroK7MWarningUnknownSampleDescription (3077)"), std::string::npos);
  const RunResult strict = RunOn(file, "samples", {"--strict"});
  EXPECT_EQ(strict.exitCode, 1) << strict;
}

}  // namespace
}  // namespace k7mtest

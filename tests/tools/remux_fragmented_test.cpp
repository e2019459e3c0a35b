// What is particular to remux when one side is fragmented: where fragments are cut, and what
// becomes of times that the movie box does not tell.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "document_content.h"
#include "run_program.h"
#include "small_fragments.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

using Json = nlohmann::json;

class RemuxFragmentedTest : public testing::Test {
 protected:
  std::string Output() const { return folder_.Path("copy.mp4"); }
  RunResult Copy(const Bytes& file, const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"remux", folder_.Write("clip.mp4", file), Output(),
                                          "--force"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return RunK7m(arguments);
  }
  DocumentContent Read(const std::string& path, Samples which = Samples::kMedia) {
    QiroK7MError error = 0;
    const std::optional<DocumentContent> content = ReadContent(path, &error, which);
    if (content) return *content;
    ADD_FAILURE() << path << ": error " << error;
    return {};
  }
  DocumentContent ReadCopy(Samples which = Samples::kMedia) { return Read(Output(), which); }
  // The samples of every fragment of the copy, in the order of its tracks: "3+7 2+3".
  std::string SamplesByFragment() {
    const RunResult result = RunK7m({"tree", Output(), "--json", "--all"});
    std::string text;
    for (const Json& box : Json::parse(result.out)) {
      if (box["type"] != "moof") continue;
      text += text.empty() ? "" : " ";
      std::string plus;
      for (const Json& traf : box["children"]) {
        if (traf["type"] != "traf") continue;
        int count = 0;
        for (const Json& trun : traf["children"]) {
          if (trun["type"] == "trun") count += trun["fields"]["sample_count"].get<int>();
        }
        text += plus + std::to_string(count);
        plus = "+";
      }
    }
    return text;
  }
  TemporaryFolder folder_;
};

// Ten seconds: a key picture every 0.4 s, sound of 20 ms.
Movie LongMovie() {
  Movie movie{.tracks = {Track{.samples = SomeSamples(250, 40)},
                         Track{.handler = "soun", .samples = SomeSamples(500, 20, 7)}}};
  for (size_t i = 0; i < 250; ++i) movie.tracks[0].samples[i].isSync = i % 10 == 0;
  return movie;
}

TEST_F(RemuxFragmentedTest, FragmentsBeginAtKeyPicturesAtLeastASecondApart) {
  const RunResult result = Copy(BuildMovie(LongMovie()).bytes, {"--fragmented"});
  ASSERT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "");
  // Every third key picture: 1.2 s, in all tracks.
  EXPECT_EQ(SamplesByFragment(), "30+60 30+60 30+60 30+60 30+60 30+60 30+60 30+60 10+20");
}

TEST_F(RemuxFragmentedTest, TheLengthIsInSecondsAndALeastOne) {
  ASSERT_EQ(Copy(BuildMovie(LongMovie()).bytes, {"--fragmented=2.4"}).exitCode, 0);
  EXPECT_EQ(SamplesByFragment(), "60+120 60+120 60+120 60+120 10+20");
  ASSERT_EQ(Copy(BuildMovie(LongMovie()).bytes, {"--fragmented=0.000001"}).exitCode, 0);
  EXPECT_EQ(SamplesByFragment().substr(0, 11), "10+20 10+20");
  ASSERT_EQ(Copy(BuildMovie(LongMovie()).bytes, {"--fragmented=3600"}).exitCode, 0);
  EXPECT_EQ(SamplesByFragment(), "250+500");
}

TEST_F(RemuxFragmentedTest, WithoutKeyPicturesTimeAloneDecides) {
  Movie movie = LongMovie();
  movie.tracks[0].replace["stss"] = Bytes();
  for (TestSample& sample : movie.tracks[0].samples) sample.isSync = true;
  ASSERT_EQ(Copy(BuildMovie(movie).bytes, {"--fragmented=4"}).exitCode, 0);
  EXPECT_EQ(SamplesByFragment(), "100+200 100+200 50+100");
  movie.tracks.erase(movie.tracks.begin());
  ASSERT_EQ(Copy(BuildMovie(movie).bytes, {"--fragmented=4"}).exitCode, 0);
  EXPECT_EQ(SamplesByFragment(), "200 200 100");
}

TEST_F(RemuxFragmentedTest, ATrackThatEndsEarlyKeepsTheDurationOfItsLastSample) {
  Movie movie = LongMovie();
  movie.tracks[1].samples.resize(100);
  ASSERT_EQ(Copy(BuildMovie(movie).bytes, {"--fragmented"}).exitCode, 0);
  const DocumentContent copy = ReadCopy();
  EXPECT_EQ(copy.tracks[0].info.duration, 10000u);
  EXPECT_EQ(copy.tracks[1].info.duration, 2000u);
  const RunResult tree = RunK7m({"tree", Output(), "--json", "--all"});
  uint64_t sum = 0;
  for (const Json& box : Json::parse(tree.out)) {
    if (box["type"] != "moof") continue;
    for (const Json& traf : box["children"]) {
      if (traf["type"] != "traf" || traf["children"][0]["fields"]["track_ID"] != 2) continue;
      for (const Json& trun : traf["children"]) {
        if (trun["type"] != "trun") continue;
        for (const Json& sample : trun["fields"]["samples"]["entries"]) {
          sum += sample["sample_duration"].get<uint64_t>();
        }
      }
    }
  }
  EXPECT_EQ(sum, 2000u);
}

TEST_F(RemuxFragmentedTest, GapsAreKept) {
  Movie movie = LongMovie();
  movie.tracks[0].edits = {{.segmentDuration = 2000, .mediaTime = 0},
                           {.segmentDuration = 700, .mediaTime = -1},
                           {.segmentDuration = 8000, .mediaTime = 2000}};
  movie.tracks[0].duration = 10700;
  const Bytes file = BuildMovie(movie).bytes;
  ASSERT_EQ(Copy(file, {"--fragmented"}).exitCode, 0);
  const DocumentContent copy = ReadCopy();
  EXPECT_EQ(CopyDifference(Read(folder_.Path("clip.mp4")), copy), "");
  const std::vector<QiroK7MEdit>& edits = copy.tracks[0].edits;
  ASSERT_EQ(edits.size(), 3u);
  const std::pair<uint64_t, int64_t> expected[] = {{2000, 0}, {700, -1}, {8000, 2000}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(std::make_pair(edits[i].segmentDuration, edits[i].mediaTime), expected[i]) << i;
  }
}

TEST_F(RemuxFragmentedTest, AMetadataPacketStandsBeforeTheFragments) {
  Movie movie = LongMovie();
  movie.atEnd = MetadataBox(Bytes().Text("<own/>"));
  ASSERT_EQ(Copy(BuildMovie(movie).bytes, {"--fragmented"}).exitCode, 0);
  EXPECT_EQ(RunK7m({"extract", Output(), "--metadata", "-o", "-"}).out, "<own/>");
}

TEST_F(RemuxFragmentedTest, ChangesOfTheDescriptionEndAFragment) {
  const Bytes file = SmallFile();
  ASSERT_EQ(Copy(file, {"--fragmented"}).exitCode, 0);
  EXPECT_EQ(CopyDifference(Read(folder_.Path("clip.mp4")), ReadCopy()), "");
  EXPECT_EQ(Json::parse(RunK7m({"info", Output(), "--json"}).out)["document"]["fragmentCount"], 2);
}

TEST_F(RemuxFragmentedTest, TheDurationIsThatOfTheSamplesWhereTheHeaderTellsNone) {
  for (const char* option : {"--edits=keep", "--edits=apply", "--fragmented"}) {
    SCOPED_TRACE(option);
    const RunResult result = Copy(SmallFragmentedFile(), {option});
    ASSERT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.err, "");
    const DocumentContent copy = ReadCopy();
    EXPECT_EQ(CopyDifference(Read(folder_.Path("clip.mp4")), copy), "");
    EXPECT_EQ(copy.info.duration, 200u);
    for (const TrackContent& track : copy.tracks) EXPECT_EQ(track.info.duration, 200u);
    // So the ordinary queries find everything.
    EXPECT_EQ(ReadCopy(Samples::kPresented).tracks[0].samples.size(), 5u);
  }
}

TEST_F(RemuxFragmentedTest, SoundInTheMovieBoxConsistsOfKeySamplesLikeThatInFragments) {
  Movie movie = SmallFragmentedMovie();
  movie.tracks[1].samples = SomeSamples(4, 20, 3);
  const Bytes file = BuildMovie(movie).bytes + SmallFragments(80);
  ASSERT_EQ(Copy(file, {"--fragmented"}).exitCode, 0);
  const DocumentContent copy = ReadCopy();
  ASSERT_EQ(copy.tracks[1].samples.size(), 14u);
  for (const SampleContent& sample : copy.tracks[1].samples) EXPECT_EQ(sample.info.flags, 1u);
  EXPECT_EQ(copy.tracks[0].samples[1].info.flags, 0u);
}

TEST_F(RemuxFragmentedTest, FragmentsThatBeginLateStartAt0) {
  const Bytes file = BuildMovie(SmallFragmentedMovie()).bytes + SmallFragments(100000);
  ASSERT_EQ(Copy(file, {}).exitCode, 0);
  const DocumentContent copy = ReadCopy();
  EXPECT_EQ(CopyDifference(Read(folder_.Path("clip.mp4")), copy), "");
  EXPECT_EQ(copy.info.duration, 200u);
  for (const TrackContent& track : copy.tracks) EXPECT_EQ(track.Start(1000), 0);
}

TEST_F(RemuxFragmentedTest, TracksThatBeginAtDifferentTimesStayInStep) {
  const Bytes movie = BuildMovie(SmallFragmentedMovie()).bytes;
  const Bytes file = movie + Fragment({{.track = 1, .time = 5070, .samples = SomeSamples(3, 40)},
                                       {.track = 2, .time = 5000, .samples = SomeSamples(3, 20)}});
  for (const char* option : {"--edits=keep", "--fragmented"}) {
    ASSERT_EQ(Copy(file, {option}).exitCode, 0);
    const DocumentContent copy = ReadCopy();
    EXPECT_EQ(copy.tracks[0].Start(1000), 0.07);
    EXPECT_EQ(copy.tracks[1].Start(1000), 0);
    EXPECT_EQ(copy.info.duration, 190u);
  }
}

TEST_F(RemuxFragmentedTest, AHoleBetweenFragmentsStaysWhereItIs) {
  const Bytes movie = BuildMovie(SmallFragmentedMovie()).bytes;
  const Bytes file = movie + Fragment({{.track = 1, .time = 0, .samples = SomeSamples(2, 40)}}) +
                     Fragment({{.track = 1, .time = 9000, .samples = SomeSamples(2, 40, 5)}});
  for (const char* option : {"--edits=keep", "--fragmented"}) {
    ASSERT_EQ(Copy(file, {option}).exitCode, 0);
    const DocumentContent copy = ReadCopy();
    EXPECT_EQ(CopyDifference(Read(folder_.Path("clip.mp4")), copy), "");
    ASSERT_EQ(copy.tracks[0].samples.size(), 4u);
    EXPECT_EQ(copy.tracks[0].samples[2].info.timeStamp, 9000u);
  }
}

TEST_F(RemuxFragmentedTest, TimesThatGoBackAreRefused) {
  const Bytes movie = BuildMovie(SmallFragmentedMovie()).bytes;
  const Bytes file = movie + Fragment({{.track = 1, .time = 500, .samples = SomeSamples(2, 40)}}) +
                     Fragment({{.track = 1, .time = 0, .samples = SomeSamples(2, 40, 5)}});
  const RunResult result = Copy(file, {});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("kQiroK7MErrorDecodeTimeBackwards (1280)"), std::string::npos);
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
}

TEST_F(RemuxFragmentedTest, AnEditListThatShowsNothingIsNamedWhenItIsApplied) {
  Movie movie = SmallFragmentedMovie();
  movie.tracks[0].edits = {{.segmentDuration = 0, .mediaTime = 40}};
  const Bytes file = BuildMovie(movie).bytes + SmallFragments();
  const RunResult applied = Copy(file, {"--edits=apply"});
  EXPECT_EQ(applied.exitCode, 0) << applied;
  EXPECT_EQ(applied.err, "k7m: " + folder_.Path("clip.mp4") +
                             ": track 1: the edit list leaves no sample; they are taken as they "
                             "lie in the file\n");
  EXPECT_EQ(ReadCopy().tracks[0].samples.size(), 5u);
  // Kept, it makes the other track wait.
  const RunResult kept = Copy(file, {});
  EXPECT_EQ(kept.err, "");
  EXPECT_EQ(ReadCopy().tracks[1].Start(1000), 0.04);
}

TEST_F(RemuxFragmentedTest, LengthsThatMakeNoSenseAreUsageErrors) {
  for (const char* option :
       {"--fragmented=0", "--fragmented=0.0", "--fragmented=-1", "--fragmented=long"}) {
    const RunResult result = Copy(SmallFile(), {option});
    EXPECT_EQ(result.exitCode, 2) << option << "\n" << result;
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
  }
  // The name of a file is not taken for a length.
  const std::string clip = folder_.Write("clip.mp4", SmallFile());
  EXPECT_EQ(RunK7m({"remux", "--fragmented", clip, Output()}).exitCode, 0);
}

TEST_F(RemuxFragmentedTest, AFragmentedCopyThatFailsLeavesNothingBehind) {
  const Bytes whole = SmallFragmentedFile();
  const RunResult result = Copy(Cut(whole, whole.Size() - 3), {"--fragmented=0.05"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("kQiroK7MErrorSampleDataShort (1030)"), std::string::npos) << result;
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
}

}  // namespace
}  // namespace k7mtest

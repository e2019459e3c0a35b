// k7m fragment: what becomes of the samples of a document in its K7R file, and where fragments
// begin.
#include <gtest/gtest.h>

#include "decoded_streams.h"
#include "document_content.h"
#include "reader/media_files.h"
#include "recording.h"
#include "run_program.h"
#include "small_fragments.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

constexpr uint32_t kHint = 0x68696E74;

// Ten seconds: a key picture every 0.4 s, sound of 20 ms.
Movie LongMovie() {
  Movie movie{.tracks = {Track{.samples = SomeSamples(250, 40)},
                         Track{.handler = "soun", .samples = SomeSamples(500, 20, 7)}}};
  for (size_t i = 0; i < 250; ++i) movie.tracks[0].samples[i].isSync = i % 10 == 0;
  return movie;
}

class FragmentTest : public testing::Test {
 protected:
  std::string Output() const { return folder_.Path("live.k7r"); }
  std::string Index() const { return folder_.Path("live.idx"); }
  RunResult RunOn(const std::string& path, const std::vector<std::string>& options = {}) const {
    std::vector<std::string> arguments = {"fragment", path, Output()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return RunK7m(arguments);
  }
  RunResult Run(const Bytes& file, const std::vector<std::string>& options = {}) const {
    return RunOn(folder_.Write("clip.mp4", file), options);
  }
  // The fragments that the program makes of a file without a word.
  std::vector<RecordedFragment> FragmentsFrom(const Bytes& file,
                                              std::vector<std::string> options = {}) const {
    options.emplace_back("--force");
    const RunResult result = Run(file, options);
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.out + result.err, "");
    return FragmentsOf(ReadBytes(Output()));
  }
  static DocumentContent Read(const std::string& path) {
    QiroK7MError error = 0;
    const std::optional<DocumentContent> content = ReadContent(path, &error);
    if (content) return *content;
    ADD_FAILURE() << path << ": error " << error;
    return {};
  }
  static std::vector<uint64_t> TimesOf(const std::vector<RecordedFragment>& fragments) {
    std::vector<uint64_t> times;
    for (const RecordedFragment& fragment : fragments) {
      for (const AccessPoint& point : fragment.points) times.push_back(point.time);
    }
    return times;
  }
  TemporaryFolder folder_;
};

// The hint track is the last one: every media sample, with its bytes, in decode order.
void ExpectHintsForAllSamples(const DocumentContent& copy) {
  const TrackContent& hint = copy.tracks.back();
  ASSERT_EQ(hint.info.mediaType, kHint);
  EXPECT_EQ(hint.info.flags, 0u);
  std::vector<size_t> next(copy.tracks.size());
  for (const SampleContent& sample : hint.samples) {
    bool isFound = false;
    for (size_t i = 0; i + 1 < copy.tracks.size() && !isFound; ++i) {
      while (next[i] < copy.tracks[i].samples.size() &&
             copy.tracks[i].samples[next[i]].info.sampleSize == 0) {
        ++next[i];
      }
      isFound = next[i] < copy.tracks[i].samples.size() &&
                copy.tracks[i].samples[next[i]].data == sample.data;
      if (isFound) ++next[i];
    }
    ASSERT_TRUE(isFound) << "no track has the bytes of the hint sample";
  }
  for (size_t i = 0; i + 1 < copy.tracks.size(); ++i) {
    EXPECT_EQ(next[i], copy.tracks[i].samples.size()) << "track " << i + 1;
  }
}

void ExpectServed(const std::string& path, const std::string& index) {
  const std::vector<RecordedFragment> fragments = FragmentsOf(ReadBytes(path));
  EXPECT_GE(fragments.size(), 1u);
  for (size_t i = 0; i < fragments.size(); ++i) {
    const std::string number = std::to_string(i + 1);
    for (const bool withIndex : {false, true}) {
      std::vector<std::string> arguments = {"query", path, "--fragment", number};
      if (withIndex) arguments.insert(arguments.end(), {"--index", index});
      const RunResult result = RunK7m(arguments);
      EXPECT_EQ(result.exitCode, 0) << result.err;
      EXPECT_TRUE(Bytes().Text(result.out) == fragments[i].bytes) << "fragment " << number;
    }
  }
  const std::string beyond = std::to_string(fragments.size() + 1);
  EXPECT_EQ(RunK7m({"query", path, "--fragment", beyond}).exitCode, 1);
}

TEST_F(FragmentTest, EveryClipIsTheSameToPlayersReadersAndServers) {
  int count = 0;
  for (const std::string& path : DataFiles()) {
    SCOPED_TRACE(path);
    const RunResult result = RunOn(path, {"--duration", "0.3", "--index", Index(), "--force"});
    ASSERT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.err, "");
    DocumentContent copy = Read(Output());
    ExpectHintsForAllSamples(copy);
    copy.tracks.pop_back();
    EXPECT_EQ(CopyDifference(Read(path), copy), "");
    const auto source = HashStreams(path, Hashing::kDecodedFrames);
    ASSERT_TRUE(source);
    EXPECT_TRUE(source == HashStreams(Output(), Hashing::kDecodedFrames));
    ExpectServed(Output(), Index());
    ++count;
  }
  EXPECT_EQ(count, 8);
}

TEST_F(FragmentTest, FragmentsBeginAtKeyPicturesAtLeastTheDurationApart) {
  const Bytes file = BuildMovie(LongMovie()).bytes;
  EXPECT_EQ(FragmentsFrom(file).size(), 9u) << "every third key picture: 1.2 s";
  EXPECT_EQ(FragmentsFrom(file, {"--duration", "2.4"}).size(), 5u);
  EXPECT_EQ(FragmentsFrom(file, {"--duration", "3600"}).size(), 1u);
  const std::vector<RecordedFragment> fragments = FragmentsFrom(file, {"--duration", "0.4"});
  ASSERT_EQ(fragments.size(), 25u);
  const DocumentContent copy = Read(Output());
  const Bytes bytes = ReadBytes(Output());
  for (size_t i = 0; i < fragments.size(); ++i) {
    ASSERT_EQ(fragments[i].points.size(), 1u);
    EXPECT_EQ(fragments[i].timeScale, 1000u);
    EXPECT_EQ(fragments[i].points[0].time, 400 * i);
    const Bytes& picture = copy.tracks[0].samples[10 * i].data;
    EXPECT_EQ(bytes.Slice(fragments[i].points[0].offset, picture.Size()), picture);
  }
}

TEST_F(FragmentTest, EveryKeyPictureIsAnAccessPoint) {
  const std::vector<RecordedFragment> fragments = FragmentsFrom(BuildMovie(LongMovie()).bytes);
  ASSERT_EQ(fragments.size(), 9u);
  EXPECT_EQ(fragments[0].points.size(), 3u);
  const std::vector<uint64_t> times = TimesOf(fragments);
  ASSERT_EQ(times.size(), 25u);
  for (size_t i = 0; i < times.size(); ++i) EXPECT_EQ(times[i], 400 * i);
}

TEST_F(FragmentTest, KeySamplesOfOtherTracksAreNoAccessPoints) {
  // Sound, where every sample is a key sample, in front; a second video track of other key pictures
  // behind.
  Movie movie = LongMovie();
  std::swap(movie.tracks[0], movie.tracks[1]);
  movie.tracks.push_back({.samples = SomeSamples(250, 40, 11)});
  for (size_t i = 0; i < 250; ++i) movie.tracks[2].samples[i].isSync = i % 7 == 3;
  const std::vector<RecordedFragment> fragments = FragmentsFrom(BuildMovie(movie).bytes);
  ASSERT_EQ(fragments.size(), 9u);
  const DocumentContent copy = Read(Output());
  const Bytes bytes = ReadBytes(Output());
  size_t picture = 0;
  for (const RecordedFragment& fragment : fragments) {
    for (const AccessPoint& point : fragment.points) {
      EXPECT_EQ(point.time, 40 * picture);
      const Bytes& data = copy.tracks[1].samples.at(picture).data;
      EXPECT_EQ(bytes.Slice(point.offset, data.Size()), data);
      picture += 10;
    }
  }
  EXPECT_EQ(picture, 250u);
}

TEST_F(FragmentTest, EveryKeyPictureOfAnAppendedDocumentIsAnAccessPointToo) {
  FragmentsFrom(BuildMovie(LongMovie()).bytes);
  ASSERT_EQ(RunK7m({"append", Output(), folder_.Path("clip.mp4")}).exitCode, 0);
  const std::vector<RecordedFragment> fragments = FragmentsOf(ReadBytes(Output()));
  ASSERT_EQ(fragments.size(), 18u);
  for (size_t i = 0; i < 9; ++i) {
    EXPECT_EQ(fragments[9 + i].points.size(), fragments[i].points.size());
  }
}

TEST_F(FragmentTest, WithoutVideoTheFirstSampleOfEveryFragmentIsOne) {
  Movie movie = LongMovie();
  movie.tracks.erase(movie.tracks.begin());
  const std::vector<RecordedFragment> fragments =
      FragmentsFrom(BuildMovie(movie).bytes, {"--duration", "4"});
  EXPECT_EQ(fragments.size(), 3u);
  EXPECT_EQ(TimesOf(fragments), (std::vector<uint64_t>{0, 4000, 8000}));
}

TEST_F(FragmentTest, MediaIsInTheFileOnceAndInDecodeOrder) {
  const Bytes source = BuildMovie(LongMovie()).bytes;
  FragmentsFrom(source);
  const DocumentContent copy = Read(Output());
  const Bytes bytes = ReadBytes(Output());
  uint64_t media = 0;
  uint64_t last = 0;
  for (const SampleContent& sample : copy.tracks.back().samples) {
    EXPECT_GE(sample.info.timeStamp, last);
    last = sample.info.timeStamp;
    media += sample.info.sampleSize;
  }
  uint64_t inFile = 0;
  for (size_t at = 0; at < bytes.Size();) {
    const uint64_t size = bytes.NumberAt(at) == 1 ? bytes.NumberAt(at + 8, 8) : bytes.NumberAt(at);
    if (Text(bytes.Slice(at + 4, 4)) == "mdat") inFile += size - 16;
    at += size;
  }
  EXPECT_EQ(inFile, media);
}

TEST_F(FragmentTest, TheHintTrackIsFineEnoughForTheOthers) {
  Movie movie = LongMovie();
  movie.tracks[0].timeScale = 25;
  for (TestSample& sample : movie.tracks[0].samples) sample.delta = 1;
  FragmentsFrom(BuildMovie(movie).bytes);
  EXPECT_EQ(Read(Output()).tracks.back().info.timeScale, 1000u);
  movie.tracks[0].timeScale = 400;
  for (TestSample& sample : movie.tracks[0].samples) sample.delta = 16;
  FragmentsFrom(BuildMovie(movie).bytes);
  EXPECT_EQ(Read(Output()).tracks.back().info.timeScale, 1200u);
}

TEST_F(FragmentTest, EveryFragmentGetsTheBootstrapBox) {
  const Bytes packet = Pattern(33);
  const std::string path = folder_.Write("packet", packet);
  const std::vector<RecordedFragment> fragments =
      FragmentsFrom(BuildMovie(LongMovie()).bytes, {"--bootstrap", path});
  ASSERT_EQ(fragments.size(), 9u);
  for (const RecordedFragment& fragment : fragments) EXPECT_EQ(fragment.bootstrap, packet);
}

TEST_F(FragmentTest, ABootstrapBoxNeedsBytes) {
  const std::string empty = folder_.Write("empty", Bytes());
  const RunResult result = Run(SmallFile(), {"--bootstrap", empty});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "k7m: " + empty + ": an empty file is no bootstrap box\n");
  const std::string none = folder_.Path("none");
  EXPECT_EQ(Run(SmallFile(), {"--bootstrap", none}).err,
            "k7m: " + none + ": No such file or directory\n");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4", "empty"}));
}

TEST_F(FragmentTest, AChangeOfTheDescriptionBeginsAFragment) {
  const std::string path = folder_.Write("packet", Pattern(5));
  const std::vector<RecordedFragment> fragments = FragmentsFrom(SmallFile(), {"--bootstrap", path});
  ASSERT_EQ(fragments.size(), 2u);
  for (const RecordedFragment& fragment : fragments) EXPECT_EQ(fragment.bootstrap, Pattern(5));
  EXPECT_EQ(TimesOf(fragments), (std::vector<uint64_t>{0, 120}));
  DocumentContent copy = Read(Output());
  copy.tracks.pop_back();
  EXPECT_EQ(CopyDifference(Read(folder_.Path("clip.mp4")), copy), "");
}

TEST_F(FragmentTest, TheIndexIsThatOfTheIndexCommand) {
  FragmentsFrom(BuildMovie(LongMovie()).bytes, {"--index", Index()});
  const std::string other = folder_.Path("other.idx");
  ASSERT_EQ(RunK7m({"index", Output(), "-o", other}).exitCode, 0);
  EXPECT_EQ(ReadBytes(Index()), ReadBytes(other));
}

TEST_F(FragmentTest, TheHintTrackOfAK7RFileIsMadeAnew) {
  FragmentsFrom(BuildMovie(LongMovie()).bytes);
  const Bytes first = ReadBytes(Output());
  const std::string again = folder_.Path("again.k7r");
  const RunResult result = RunK7m({"fragment", Output(), again});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "k7m: " + Output() + ": track 3: hint tracks are left out\n");
  EXPECT_TRUE(ReadBytes(again) == first);
}

TEST_F(FragmentTest, GapsAndTheMetadataPacketAreKept) {
  Movie movie = LongMovie();
  movie.atEnd = MetadataBox(Bytes().Text("<own/>"));
  movie.tracks[0].edits = {{.segmentDuration = 2000, .mediaTime = 0},
                           {.segmentDuration = 700, .mediaTime = -1},
                           {.segmentDuration = 8000, .mediaTime = 2000}};
  movie.tracks[0].duration = 10700;
  FragmentsFrom(BuildMovie(movie).bytes);
  DocumentContent copy = Read(Output());
  ASSERT_EQ(copy.tracks[0].edits.size(), 3u);
  EXPECT_EQ(copy.tracks[0].edits[1].segmentDuration, 700u);
  copy.tracks.pop_back();
  EXPECT_EQ(CopyDifference(Read(folder_.Path("clip.mp4")), copy), "");
  EXPECT_EQ(Text(copy.metadata), "<own/>");
}

TEST_F(FragmentTest, AFileWithoutSamplesHasNoFragments) {
  Movie movie = LongMovie();
  for (Track& track : movie.tracks) track.samples.clear();
  EXPECT_EQ(FragmentsFrom(BuildMovie(movie).bytes).size(), 0u);
  EXPECT_EQ(Read(Output()).tracks.size(), 3u);
  const RunResult result = RunOn(folder_.Path("clip.mp4"), {"--index", Index(), "--force"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "k7m: " + folder_.Path("clip.mp4") +
                            ": no samples, so that there is nothing to index\n");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4", "live.k7r"}));
}

TEST_F(FragmentTest, ExistingFilesAreReplacedOnlyWithForce) {
  folder_.Write("live.idx", Bytes().Text("old"));
  RunResult result = Run(SmallFile(), {"--index", Index()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err,
            "k7m: " + Index() + ": there is such a file already (--force replaces it)\n");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4", "live.idx"}));
  folder_.Write("live.k7r", Bytes().Text("old"));
  result = Run(SmallFile());
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(ReadText(Output()), "old");
  EXPECT_EQ(Run(SmallFile(), {"--index", Index(), "--force"}).exitCode, 0);
  EXPECT_NE(ReadText(Output()), "old");
  EXPECT_NE(ReadText(Index()), "old");
}

TEST_F(FragmentTest, TheInputIsNeverOverwritten) {
  const std::string clip = folder_.Write("clip.mp4", SmallFile());
  const std::string message = "k7m: " + clip + ": the output would overwrite the input\n";
  EXPECT_EQ(RunK7m({"fragment", clip, clip, "--force"}).err, message);
  const RunResult result = RunOn(clip, {"--index", clip, "--force"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.err, message);
  EXPECT_EQ(ReadBytes(clip), SmallFile());
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
}

TEST_F(FragmentTest, AFailureLeavesNothingBehind) {
  const Bytes whole = SmallFragmentedFile();
  const RunResult result =
      Run(Cut(whole, whole.Size() - 3), {"--duration", "0.05", "--index", Index()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("kQiroK7MErrorSampleDataShort (1030)"), std::string::npos) << result;
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
}

TEST_F(FragmentTest, UsageErrorsAndHelp) {
  const std::string clip = folder_.Write("clip.mp4", SmallFile());
  EXPECT_EQ(RunK7m({"fragment", clip}).exitCode, 2);
  EXPECT_EQ(RunK7m({"fragment", clip, "-"}).exitCode, 2);
  for (const char* length : {"0", "-1", "long"}) {
    EXPECT_EQ(RunOn(clip, {"--duration", length}).exitCode, 2) << length;
  }
  EXPECT_EQ(RunOn(clip, {"--index", Output()}).exitCode, 2);
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
  const RunResult help = RunK7m({"fragment", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Example:\n  k7m fragment clip.mp4 live.k7r"), std::string::npos);
  EXPECT_NE(help.out.find("random access entries are the key samples of the first video track"),
            std::string::npos);
}

}  // namespace
}  // namespace k7mtest

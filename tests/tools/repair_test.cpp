// k7m repair: what it cuts off, what it says, and which files it leaves alone.
#include <gtest/gtest.h>

#include "document_content.h"
#include "recording.h"
#include "run_program.h"
#include "small_fragments.h"
#include "small_movie.h"
#include "support/box_finder.h"
#include "support/fragment_file.h"

namespace k7mtest {
namespace {

class RepairTest : public testing::Test {
 protected:
  // Five fragments of two pictures and four sounds.
  RepairTest() {
    Movie movie{.tracks = {Track{.samples = SomeSamples(10, 40)},
                           Track{.handler = "soun", .samples = SomeSamples(20, 20, 7)}}};
    const std::string clip = folder_.Write("clip.mp4", BuildMovie(movie).bytes);
    EXPECT_EQ(RunK7m({"fragment", clip, path_, "--duration", "0.08"}).exitCode, 0);
    whole_ = ReadBytes(path_);
    fragments_ = FragmentsOf(whole_);
    EXPECT_EQ(fragments_.size(), 5u);
  }
  RunResult Repair(const Bytes& file) const {
    folder_.Write("live.k7r", file);
    return RunK7m({"repair", path_});
  }
  void ExpectLeftAlone(const Bytes& file, const std::string& problem) const {
    const RunResult result = Repair(file);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("k7m: " + path_ + ": "), std::string::npos) << result;
    EXPECT_NE(result.err.find(problem), std::string::npos) << result;
    EXPECT_TRUE(ReadBytes(path_) == file);
  }
  static std::vector<Bytes> BytesOf(const std::vector<RecordedFragment>& fragments) {
    std::vector<Bytes> all;
    for (const RecordedFragment& fragment : fragments) all.push_back(fragment.bytes);
    return all;
  }
  size_t EndOf(size_t index) const {
    return fragments_[index].offset + fragments_[index].bytes.Size();
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("live.k7r");
  Bytes whole_;
  std::vector<RecordedFragment> fragments_;
};

TEST_F(RepairTest, AWholeFileStaysAsItIs) {
  const RunResult result = Repair(whole_);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, path_ + ": nothing cut off; the last fragment begins at byte " +
                            std::to_string(fragments_[4].offset) + "\n");
  EXPECT_TRUE(ReadBytes(path_) == whole_);
}

TEST_F(RepairTest, WhereverTheFileEndsTheCompleteFragmentsAreKept) {
  const std::vector<Bytes> all = BytesOf(fragments_);
  for (size_t size = EndOf(2) + 1; size < EndOf(3); ++size) {
    const RunResult result = Repair(Cut(whole_, size));
    const size_t cut = size - EndOf(2);
    ASSERT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, path_ + ": " + std::to_string(cut) + (cut == 1 ? " byte" : " bytes") +
                              " cut off; the last fragment begins at byte " +
                              std::to_string(fragments_[2].offset) + "\n");
    const Bytes repaired = ReadBytes(path_);
    ASSERT_EQ(repaired.Size(), EndOf(2));
    ASSERT_EQ(BytesOf(FragmentsOf(repaired)), (std::vector<Bytes>{all[0], all[1], all[2]}));
  }
}

TEST_F(RepairTest, TheMovieLastsAsLongAsWhatIsKept) {
  EXPECT_EQ(NumberIn(whole_, "moov/mvhd", 32, 8), 400u);
  ASSERT_EQ(Repair(Cut(whole_, EndOf(3) - 1)).exitCode, 0);
  EXPECT_EQ(NumberIn(ReadBytes(path_), "moov/mvhd", 32, 8), 240u);
  QiroK7MError error = 0;
  const auto content = ReadContent(path_, &error, Samples::kPresented);
  ASSERT_TRUE(content) << error;
  EXPECT_EQ(content->tracks[0].samples.size(), 6u);
  EXPECT_EQ(content->tracks[1].samples.size(), 12u);
  EXPECT_EQ(RunK7m({"query", path_, "--fragment", "3", "-o", folder_.Path("3")}).exitCode, 0);
}

TEST_F(RepairTest, AFileWithoutACompleteFragmentKeepsItsTracks) {
  const RunResult result = Repair(Cut(whole_, EndOf(0) - 1));
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.out, path_ + ": " + std::to_string(fragments_[0].bytes.Size() - 1) +
                            " bytes cut off; there is no complete fragment\n");
  EXPECT_EQ(ReadBytes(path_).Size(), fragments_[0].offset);
  EXPECT_EQ(RunK7m({"info", path_}).exitCode, 0);
}

TEST_F(RepairTest, FilesOfOtherKindsAreLeftAlone) {
  ExpectLeftAlone(SmallFile(), "kQiroK7MErrorAppendNotFragmented (2048)");
  ExpectLeftAlone(Cut(whole_, 200), "(");
  ExpectLeftAlone(Bytes(), "kQiroK7MErrorNoMovieBox (6)");
  ExpectLeftAlone(SomeFragments(2).bytes, "kQiroK7MErrorAppendNoEditBox (2050)");
}

TEST_F(RepairTest, FragmentsOfOtherKindsAreLeftAlone) {
  ExpectLeftAlone(SmallFragmentedFile(), "stands before any 'afra' of its own");
  const std::string clip = folder_.Write("clip.mp4", SmallFile());
  const std::string remuxed = folder_.Path("remuxed.mp4");
  ASSERT_EQ(RunK7m({"remux", clip, remuxed, "--fragmented"}).exitCode, 0);
  ExpectLeftAlone(ReadBytes(remuxed), "'mdat' at byte");
  ExpectLeftAlone(BuildFragmentFile({{.isMdatFirst = true}}).bytes, "'mdat' at byte");
}

TEST_F(RepairTest, AFileThatCannotBeWrittenIsNamed) {
  const std::string none = folder_.Path("none");
  const RunResult missing = RunK7m({"repair", none});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "k7m: " + none + ": No such file or directory\n");
  EXPECT_EQ(RunK7m({"repair", folder_.Path("")}).err,
            "k7m: " + folder_.Path("") + ": Is a directory\n");
}

TEST_F(RepairTest, UsageErrorsAndHelp) {
  EXPECT_EQ(RunK7m({"repair"}).exitCode, 2);
  EXPECT_EQ(RunK7m({"repair", path_, path_}).exitCode, 2);
  const RunResult help = RunK7m({"repair", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Example:\n  k7m repair live.k7r"), std::string::npos);
}

}  // namespace
}  // namespace k7mtest

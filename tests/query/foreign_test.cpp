// Fragments that another program made: what the servicer gives out plays as the whole file does.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/box_finder.h"
#include "support/fragment_file.h"
#include "support/opened_servicer.h"
#include "tools/decoded_streams.h"

namespace k7mtest {
namespace {

namespace fs = std::filesystem;

/// Its fragments count their offsets from their own 'moof', and so can stand anywhere.
const std::string kClip = std::string(K7M_TEST_DATA) + "/fragmented-empty-moov.mp4";

Bytes ReadClip() {
  std::ifstream file(kClip, std::ios::binary);
  return Bytes(std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {}));
}

/// The clip with a random access box in front of every fragment, and a bootstrap box in some.
FragmentFile WithRandomAccessBoxes(const Bytes& clip) {
  FragmentFile file;
  file.bytes = FindBox(clip, "ftyp") + FindBox(clip, "moov");
  for (size_t number = 1;; ++number) {
    const std::string which = "#" + std::to_string(number);
    const Bytes moof = FindBox(clip, "moof" + which);
    if (moof.Empty()) return file;
    file.offsets.push_back(file.bytes.Size());
    file.fragments.push_back(AfraBox({}) + (number % 2 == 0 ? Box("abst", Pattern(9)) : Bytes()) +
                             moof + FindBox(clip, "mdat" + which));
    file.bytes.Append(file.fragments.back());
  }
}

/// What ffmpeg makes of a movie box and the fragments from `first` on, as they are served.
std::optional<HashesByStream> PlayServed(const FragmentFile& file, OpenedServicer& servicer,
                                         uint32_t first) {
  Bytes served = Cut(file.bytes, file.offsets[0]);
  for (uint32_t number = first; number <= file.fragments.size(); ++number) {
    served.Append(servicer.Get(number).data);
  }
  std::string pattern = (fs::temp_directory_path() / "k7m-test-XXXXXX").string();
  const fs::path folder = mkdtemp(pattern.data());
  const std::string path = (folder / "served.mp4").string();
  std::ofstream(path, std::ios::binary) << Text(served);
  const auto hashes = HashStreams(path, Hashing::kDecodedFrames);
  fs::remove_all(folder);
  return hashes;
}

TEST(ForeignFragments, PlayAsTheWholeFileDoes) {
  const FragmentFile file = WithRandomAccessBoxes(ReadClip());
  ASSERT_EQ(file.fragments.size(), 5u);
  const auto expected = HashStreams(kClip, Hashing::kDecodedFrames);
  ASSERT_TRUE(expected);
  ASSERT_EQ(expected->size(), 2u);
  for (const std::optional<Bytes>& index : {std::optional<Bytes>(), std::optional(LocalIndex(file)),
                                            std::optional(GlobalIndex(file))}) {
    OpenedServicer servicer(file.bytes, index);
    ASSERT_EQ(servicer.Result(), 0u);
    const auto whole = PlayServed(file, servicer, 1);
    ASSERT_TRUE(whole);
    EXPECT_TRUE(*whole == *expected);
  }
}

TEST(ForeignFragments, PlayFromTheMiddle) {
  const FragmentFile file = WithRandomAccessBoxes(ReadClip());
  OpenedServicer servicer(file.bytes, LocalIndex(file));
  const auto all = HashStreams(kClip, Hashing::kDecodedFrames);
  const auto part = PlayServed(file, servicer, 4);
  ASSERT_TRUE(all && part);
  ASSERT_FALSE(part->at(0).empty());
  ASSERT_LT(part->at(0).size(), all->at(0).size());
  const auto& frames = all->at(0);
  const std::vector<std::string> lastFrames(
      frames.end() - static_cast<std::ptrdiff_t>(part->at(0).size()), frames.end());
  EXPECT_EQ(part->at(0), lastFrames);
}

}  // namespace
}  // namespace k7mtest

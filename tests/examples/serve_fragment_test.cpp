// The example server gives out the bytes that stand in the file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/fragment_file.h"
#include "tools/decoded_streams.h"

namespace k7mtest {
namespace {

namespace fs = std::filesystem;

class ServeFragmentTest : public testing::Test {
 protected:
  ServeFragmentTest() {
    std::string pattern = (fs::temp_directory_path() / "k7m-test-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    Write("live.k7r", file_.bytes);
  }
  ~ServeFragmentTest() override { fs::remove_all(folder_); }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  void Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream(Path(name), std::ios::binary) << Text(bytes);
  }
  std::string Read(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /// Serves from the file with an index, or "-"; whether all went well.
  bool Serve(const std::string& index, const std::string& numbers) const {
    return RunCommand(Quoted(K7M_SERVE_FRAGMENT) + " " + Quoted(Path("live.k7r")) + " " +
                      Quoted(index) + " " + Quoted(folder_.string()) + " " + numbers + " 2>&1")
        .has_value();
  }

  fs::path folder_;
  const FragmentFile file_ = SomeFragments(4);
};

TEST_F(ServeFragmentTest, WithAnIndexAndWithoutOne) {
  Write("live.idx", LocalIndex(file_));
  for (const std::string& index : {std::string("-"), Path("live.idx")}) {
    EXPECT_TRUE(Serve(index, "1 2 3 4")) << index;
    for (size_t number = 1; number <= 4; ++number) {
      const std::string name = std::to_string(number) + ".bin";
      EXPECT_EQ(Read(name), Text(file_.fragments[number - 1])) << index;
      fs::remove(Path(name));
    }
  }
}

TEST_F(ServeFragmentTest, AMissingFragmentDoesNotKeepItFromServingOthers) {
  EXPECT_FALSE(Serve("-", "7 2"));
  EXPECT_FALSE(fs::exists(Path("7.bin")));
  EXPECT_EQ(Read("2.bin"), Text(file_.fragments[1]));
}

TEST_F(ServeFragmentTest, UnusableFilesAreFailures) {
  EXPECT_FALSE(Serve(Path("none.idx"), "1"));
  EXPECT_FALSE(Serve(Path("live.k7r"), "1")) << "no index";
  EXPECT_FALSE(Serve("-", "")) << "no number";
  fs::remove(Path("live.k7r"));
  EXPECT_FALSE(Serve("-", "1"));
}

}  // namespace
}  // namespace k7mtest

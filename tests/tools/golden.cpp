#include "golden.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "run_program.h"

namespace k7mtest {
namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The lines that only one text has, by the longest common sequence of lines.
std::string Difference(const std::vector<std::string>& old, const std::vector<std::string>& fresh) {
  std::vector<std::vector<size_t>> common(old.size() + 1, std::vector<size_t>(fresh.size() + 1));
  for (size_t i = old.size(); i-- > 0;) {
    for (size_t j = fresh.size(); j-- > 0;) {
      common[i][j] = old[i] == fresh[j] ? common[i + 1][j + 1] + 1
                                        : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  std::string text;
  size_t i = 0;
  size_t j = 0;
  while (i < old.size() || j < fresh.size()) {
    if (i < old.size() && j < fresh.size() && old[i] == fresh[j]) {
      ++i;
      ++j;
    } else if (j == fresh.size() || (i < old.size() && common[i + 1][j] >= common[i][j + 1])) {
      text += "- " + old[i++] + "\n";
    } else {
      text += "+ " + fresh[j++] + "\n";
    }
  }
  return text.empty() ? "(only line ends differ)\n" : text;
}

}  // namespace

testing::AssertionResult IsGolden(const std::string& name, const std::string& text) {
  const auto path = std::filesystem::path(K7M_TEST_DATA) / "golden" / name;
  const char* accept = std::getenv("K7M_ACCEPT");
  if (accept != nullptr && std::string(accept) == "1") {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text;
    return file.flush() ? testing::AssertionSuccess()
                        : testing::AssertionFailure() << "cannot write " << path;
  }
  const std::string golden = std::filesystem::exists(path) ? ReadText(path.string()) : "";
  if (golden == text) return testing::AssertionSuccess();
  const auto* info = testing::UnitTest::GetInstance()->current_test_info();
  return testing::AssertionFailure()
         << "differs from " << path << ":\n"
         << Difference(Lines(golden), Lines(text)) << "To accept the new text:\n  K7M_ACCEPT=1 "
         << K7M_TEST_PROGRAM << " --gtest_filter='" << info->test_suite_name() << "."
         << info->name() << "'";
}

}  // namespace k7mtest

#include "media_files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace k7mtest {

namespace {

namespace fs = std::filesystem;

bool IsMedia(const fs::path& path) {
  static const char* const kExtensions[] = {".mp4", ".m4s", ".m4v",  ".m4a",
                                            ".m4i", ".mov", ".cmfv", ".avif"};
  return std::any_of(std::begin(kExtensions), std::end(kExtensions),
                     [&](const char* extension) { return path.extension() == extension; });
}

std::vector<std::string> MediaBelow(const fs::path& folder) {
  std::vector<std::string> files;
  if (!fs::exists(folder)) return files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file() && IsMedia(entry.path())) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

std::vector<std::string> DataFiles() { return MediaBelow(K7M_TEST_DATA); }

std::string ForeignFolder() { return K7M_FOREIGN_MEDIA; }

bool HasForeignFolder() { return fs::exists(ForeignFolder()); }

std::vector<std::string> ForeignFiles() { return MediaBelow(ForeignFolder()); }

std::string ShortName(const std::string& path) {
  const fs::path full(path);
  return (full.parent_path().filename() / full.filename()).string();
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}));
}

}  // namespace k7mtest

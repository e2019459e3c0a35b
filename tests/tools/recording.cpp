#include "recording.h"

#include <gtest/gtest.h>

namespace k7mtest {
namespace {

uint64_t SizeAt(const Bytes& file, size_t offset) {
  const uint64_t size = file.NumberAt(offset);
  return size == 1 ? file.NumberAt(offset + 8, 8) : size;
}

std::string CodeAt(const Bytes& file, size_t offset) {
  return offset < file.Size() ? Text(file.Slice(offset + 4, 4)) : "";
}

}  // namespace

std::vector<RecordedFragment> FragmentsOf(const Bytes& file) {
  std::vector<RecordedFragment> fragments;
  size_t at = 0;
  while (at < file.Size() && CodeAt(file, at) != "afra") at += SizeAt(file, at);
  while (at < file.Size()) {
    RecordedFragment fragment;
    fragment.offset = at;
    std::string codes;
    do {
      const std::string code = CodeAt(file, at);
      const size_t size = SizeAt(file, at);
      codes += code + " ";
      if (code == "afra") {
        fragment.timeScale = static_cast<uint32_t>(file.NumberAt(at + 13));
        for (size_t i = 0; i < file.NumberAt(at + 17); ++i) {
          const size_t entry = at + 21 + 16 * i;
          fragment.points.push_back({file.NumberAt(entry, 8), at + file.NumberAt(entry + 8, 8)});
        }
      } else if (code == "abst") {
        fragment.bootstrap = file.Slice(at + 12, size - 12);
      }
      at += size;
    } while (at < file.Size() && CodeAt(file, at) != "afra");
    fragment.bytes = file.Slice(fragment.offset, at - fragment.offset);
    EXPECT_EQ(codes, fragment.bootstrap.Empty() ? "afra moof mdat " : "afra abst moof mdat ");
    fragments.push_back(fragment);
  }
  return fragments;
}

}  // namespace k7mtest

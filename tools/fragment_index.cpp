#include "fragment_index.h"

#include <cstdint>
#include <vector>

#include "failure.h"
#include "fragment_list.h"
#include "messages.h"
#include "output_file.h"

namespace qiro::k7m::tool {
namespace {

/// Big-endian numbers, one after the other.
class NumberList {
 public:
  void Add(uint64_t number, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      bytes_.push_back(static_cast<uint8_t>(number >> shift));
    }
  }
  const std::vector<uint8_t>& Bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

/// One 'afra' box with a local entry for each fragment.
std::vector<uint8_t> IndexBox(const FragmentList& list, const std::string& path) {
  constexpr uint64_t kEmptyBoxSize = 21;
  constexpr uint64_t kEntrySize = 16;
  constexpr uint64_t kLongIdsAndOffsets = 0xC0;
  const uint64_t size = kEmptyBoxSize + kEntrySize * list.fragments.size();
  if (size > 0xFFFFFFFF) throw FileFailure(path, "too many fragments for one index");
  NumberList box;
  box.Add(size, 4);
  for (const char letter : {'a', 'f', 'r', 'a'}) box.Add(static_cast<uint8_t>(letter), 1);
  box.Add(0, 4);  // Version and flags.
  box.Add(kLongIdsAndOffsets, 1);
  box.Add(list.timeScale, 4);
  box.Add(list.fragments.size(), 4);
  for (const FragmentPlace& fragment : list.fragments) {
    box.Add(fragment.time, 8);
    box.Add(fragment.offset, 8);
  }
  return box.Bytes();
}

}  // namespace

void WriteFragmentIndex(FileStream* file, const std::string& indexPath,
                        ReplacementFile::Target rule) {
  OutputFile output(indexPath, *file, rule);
  const FragmentList list = ListFragments(file);
  if (list.fragments.empty()) throw FileFailure(file->Path(), "no fragment that is complete");
  const std::vector<uint8_t> box = IndexBox(list, file->Path());
  output.Write(box.data(), box.size());
  output.Commit();
  if (list.isLastCutOff) {
    PrintMessage(file->Path() + ": the fragment behind the last one is not complete; left out");
  }
}

}  // namespace qiro::k7m::tool

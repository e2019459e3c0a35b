// A fragment file and perhaps its index: what stands behind the first top-level box 'cut ' is the
// index.
#include <gtest/gtest.h>

#include <algorithm>

#include "box_tree.h"
#include "support/opened_servicer.h"
#include "target.h"

namespace k7mfuzz {
namespace {

using k7mtest::OpenedServicer;

struct Input {
  Bytes file;
  std::optional<Bytes> index;
};

Input Split(const uint8_t* data, size_t size) {
  size_t offset = 0;
  for (const Node& node : ParseBoxes(data, size)) {
    const size_t whole = WriteBoxes({node}).size();
    if (node.isBox && node.type == k7mtest::Code("cut ") && !node.toldSize) {
      const size_t index = offset + whole;
      return {BytesOf(data, offset), BytesOf(data + index, size - index)};
    }
    offset += whole;
  }
  return {BytesOf(data, size), {}};
}

void Ask(OpenedServicer& servicer, const Bytes& file, uint32_t fragment, uint32_t segment) {
  const k7mtest::Answer answer = servicer.Get(fragment, segment);
  if (answer.data.Empty()) return;
  const auto found = std::search(file.begin(), file.end(), answer.data.begin(), answer.data.end());
  EXPECT_TRUE(found != file.end()) << "a fragment that is not in the file";
}

}  // namespace
}  // namespace k7mfuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace k7mfuzz;
  const Input input = Split(data, size);
  Choices choices(data, size);
  const MemoryBound bound(BytesOf(data, size));
  OpenedServicer servicer(input.file, input.index);
  if (servicer.Result() == 0) {
    for (uint32_t fragment = 0; fragment < 4; ++fragment) {
      Ask(servicer, input.file, fragment, choices.Byte() % 3);
    }
    const auto fragment = static_cast<uint32_t>(choices.Number(32));
    Ask(servicer, input.file, fragment, static_cast<uint32_t>(choices.Number(32)));
  }
  servicer.Close();
  bound.Check(servicer.Memory(),
              servicer.File().BytesDelivered() + servicer.Index().BytesDelivered());
  return 0;
}

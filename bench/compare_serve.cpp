// Serving fragments by number with an index, or reading the same number of bytes through the same
// callbacks.
// usage: compare_serve serve|read FILE.k7r INDEX
#include <cstdint>
#include <string>
#include <vector>

#include "flat_stream.h"
#include "measure.h"

namespace k7mbench {
namespace {

/// Returns the sizes of all fragments.
std::vector<uint32_t> ServeAll(QiroK7RQueryServicer* servicer) {
  std::vector<uint32_t> sizes;
  for (uint32_t number = 1;; ++number) {
    uint32_t size = 0;
    void* bytes = nullptr;
    const QiroK7MError code = QiroK7RQueryServicerGetFragment(servicer, number, 1, &size, &bytes);
    if (code == kQiroK7MErrorFragmentNotFound) return sizes;
    Require(code == 0, "a fragment is not served");
    sizes.push_back(size);
    ::operator delete(bytes);
  }
}

/// One read for each fragment into memory of its own.
void ReadAll(FlatStream& stream, const std::vector<uint32_t>& sizes) {
  const QiroK7MIStreamCallBacks callBacks = stream.Reading();
  int64_t offset = 0;
  for (const uint32_t size : sizes) {
    void* bytes = ::operator new(size);
    uint64_t delivered = 0;
    callBacks.seek(callBacks.clientData, offset, kQiroK7MSeekFromStart);
    callBacks.readSome(callBacks.clientData, bytes, size, &delivered);
    Require(delivered == size, "a short read");
    ::operator delete(bytes);
    offset += size;
  }
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  Require(argc == 4, "usage: compare_serve serve|read FILE.k7r INDEX");
  const std::string work = argv[1];
  const std::vector<uint8_t> file = LoadFile(argv[2]);
  const std::vector<uint8_t> index = LoadFile(argv[3]);
  FlatStream fileStream(file);
  FlatStream indexStream(index);
  const QiroK7MIStreamCallBacks fileCallBacks = fileStream.Reading();
  const QiroK7MIStreamCallBacks indexCallBacks = indexStream.Reading();
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7RQueryServicer* servicer = nullptr;
  Require(QiroK7RQueryServicerCreate(&fileCallBacks, &indexCallBacks, &allocator, &servicer) == 0,
          "cannot open");
  const std::vector<uint32_t> sizes = ServeAll(servicer);
  ReadAll(fileStream, sizes);
  const Measure measure;
  if (work == "serve") {
    ServeAll(servicer);
  } else {
    ReadAll(fileStream, sizes);
  }
  measure.Print(sizes.size());
  QiroK7RCloseQueryServicer(servicer);
  return 0;
}

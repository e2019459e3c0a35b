// The library's side of the comparison: one piece of work a run, on a file in memory.
// usage: compare_k7m open|visit|bytes|one FILE
#include <string>

#include "flat_stream.h"
#include "k7m/extensions.h"
#include "measure.h"

namespace k7mbench {
namespace {

QiroK7MReader* Open(FlatStream& stream) {
  const QiroK7MIStreamCallBacks callBacks = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7MReadOptions options = {sizeof options,
                                kQiroK7MReadBaseDataOffsets | kQiroK7MReadStartTimes};
  QiroK7MReader* reader = nullptr;
  Require(
      QiroK7MDocOpenForReadWithOptions(&callBacks, &warning, &allocator, &options, &reader) == 0,
      "cannot open");
  return reader;
}

/// What is done with a sample goes in here, so that nothing is left out as unused.
uint64_t checksum = 0;

uint64_t Visit(QiroK7MReader* reader, bool withBytes) {
  QiroK7MSampleIterator* samples = nullptr;
  Require(QiroK7MReaderGetMediaSamples(reader, nullptr, 0, &samples) == 0, "cannot iterate");
  std::vector<uint8_t> bytes(1 << 20);
  uint64_t count = 0;
  QiroK7MSample* sample = nullptr;
  while (QiroK7MSampleIteratorGetNextEntry(samples, &sample) == 0 && sample != nullptr) {
    QiroK7MSampleInfo info;
    QiroK7MSampleGetInfo(sample, &info);
    checksum += info.timeStamp + info.sampleSize + info.compositionOffset + info.flags;
    if (withBytes) {
      if (bytes.size() < info.sampleSize) bytes.resize(info.sampleSize);
      Require(QiroK7MSampleCopyData(sample, bytes.data()) == 0, "cannot copy");
      if (info.sampleSize > 0) checksum += bytes[info.sampleSize - 1];
    }
    QiroK7MReleaseSample(sample);
    ++count;
  }
  QiroK7MReleaseSampleIterator(samples);
  return count;
}

void OpenOnly(FlatStream& stream) {
  const Measure measure;
  QiroK7MReader* reader = Open(stream);
  measure.Print(1);
  QiroK7MCloseReader(reader);
}

void VisitAll(FlatStream& stream, bool withBytes) {
  const Measure measure;
  QiroK7MReader* reader = Open(stream);
  measure.Print(Visit(reader, withBytes));
  QiroK7MCloseReader(reader);
}

/// Opens, takes one sample in the middle, and closes. A range is one of the presentation: the
/// file's track headers must say how long the tracks are, also when their samples lie in fragments.
void OneSample(FlatStream& stream) {
  const Measure measure;
  QiroK7MReader* reader = Open(stream);
  QiroK7MSampleIterator* samples = nullptr;
  constexpr uint64_t kMiddle = 5000;  // Seconds.
  Require(QiroK7MReaderGetSamples(reader, 1, kMiddle, 1, kMiddle + 1, &samples) == 0,
          "cannot iterate");
  QiroK7MSample* sample = nullptr;
  Require(QiroK7MSampleIteratorGetNextEntry(samples, &sample) == 0 && sample != nullptr,
          "no sample in the middle");
  QiroK7MReleaseSample(sample);
  QiroK7MReleaseSampleIterator(samples);
  measure.Print(1);
  QiroK7MCloseReader(reader);
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  Require(argc == 3, "usage: compare_k7m open|visit|bytes|one FILE");
  const std::string work = argv[1];
  const std::vector<uint8_t> file = LoadFile(argv[2]);
  FlatStream stream(file);
  if (work == "open") OpenOnly(stream);
  if (work == "visit") VisitAll(stream, false);
  if (work == "bytes") VisitAll(stream, true);
  if (work == "one") OneSample(stream);
  return checksum == 1 ? 3 : 0;
}

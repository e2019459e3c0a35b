/// @file reading.h
/// A file in memory, opened to be read in one way or another.
#ifndef K7M_BENCH_READING_H
#define K7M_BENCH_READING_H

#include <memory>
#include <random>
#include <vector>

#include "flat_stream.h"
#include "growth.h"

namespace k7mbench {

using FileBytes = std::shared_ptr<const std::vector<uint8_t>>;

class OpenedFile {
 public:
  explicit OpenedFile(FileBytes file) : file_(std::move(file)), stream_(*file_) {
    const QiroK7MIStreamCallBacks callBacks = stream_.Reading();
    const QiroK7MWarningHandlerCallBacks warning;
    const QiroK7MAllocatorCallBacks allocator;
    Require(QiroK7MDocOpenForRead(&callBacks, &warning, &allocator, &reader_) == 0, "cannot open");
  }
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;
  ~OpenedFile() { QiroK7MCloseReader(reader_); }

  /// Returns how many samples there are.
  uint64_t TakeAll() const {
    QiroK7MSampleIterator* samples = nullptr;
    Require(QiroK7MReaderGetAllSamples(reader_, &samples) == 0, "cannot iterate");
    uint64_t count = 0;
    while (TakeOne(samples)) ++count;
    QiroK7MReleaseSampleIterator(samples);
    return count;
  }

  /// Takes the first sample of ranges that begin anywhere before `end`, in thousandths of a second,
  /// the scale of the movies here. A unit is a range.
  Effort AskAtRandomTimes(uint64_t end) const {
    constexpr uint32_t kRanges = 2000;
    constexpr uint32_t kScale = 1000;
    std::mt19937_64 random(1);
    const double begin = Seconds();
    for (uint32_t i = 0; i < kRanges; ++i) {
      const uint64_t time = random() % end;
      QiroK7MSampleIterator* samples = nullptr;
      Require(QiroK7MReaderGetSamples(reader_, kScale, time, kScale, time + kScale, &samples) == 0,
              "cannot iterate");
      Require(TakeOne(samples), "no sample");
      QiroK7MReleaseSampleIterator(samples);
    }
    return {Seconds() - begin, kRanges};
  }

 private:
  static bool TakeOne(QiroK7MSampleIterator* samples) {
    QiroK7MSample* sample = nullptr;
    if (QiroK7MSampleIteratorGetNextEntry(samples, &sample) != 0 || sample == nullptr) return false;
    QiroK7MSampleInfo info;
    QiroK7MSampleGetInfo(sample, &info);
    benchmark::DoNotOptimize(info);
    QiroK7MReleaseSample(sample);
    return true;
  }

  FileBytes file_;
  FlatStream stream_;
  QiroK7MReader* reader_ = nullptr;
};

}  // namespace k7mbench

#endif

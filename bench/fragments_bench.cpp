// Opening a fragmented file and taking every sample of it, for more and more fragments. The time
// for each fragment must not grow with their number: the program prints how it does, and fails when
// it grows beyond kAllowedGrowth.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "flat_stream.h"
#include "support/fragment_builder.h"

namespace k7mbench {
namespace {

using k7mtest::Bytes;

constexpr double kAllowedGrowth = 1.3;
constexpr double kNanosecondsPerUnit = 1e6;  // Times are told in milliseconds.
constexpr uint32_t kSamplesPerRun = 10;
constexpr uint32_t kRareEvery = 500;

/// A track fragment whose samples have sizes and composition offsets of their own.
Bytes TrafOf(uint32_t trackId) {
  k7mtest::Trun run;
  run.samples.assign(kSamplesPerRun, {.size = 100, .compositionOffset = 7});
  const uint32_t fields = k7mtest::kTrunSize | k7mtest::kTrunComposition;
  return k7mtest::Traf(0, {.trackId = trackId}, k7mtest::FullBox("trun", 0, fields, run));
}

/// Two tracks; the second one is in every fragment, or only in one of many.
std::vector<uint8_t> MakeFile(uint32_t fragmentCount, bool isSecondRare) {
  constexpr uint64_t kLongEnough = uint64_t{1} << 40;
  const k7mtest::Movie movie = k7mtest::FragmentedMovie(
      {{.duration = kLongEnough}, {.handler = "soun", .duration = kLongEnough}},
      {.duration = 10, .size = 100});
  const Bytes one = k7mtest::Moof(TrafOf(1)) + k7mtest::Box("mdat");
  const Bytes both = k7mtest::Moof(TrafOf(1), TrafOf(2)) + k7mtest::Box("mdat");
  Bytes file = k7mtest::BuildMovie(movie).bytes;
  for (uint32_t i = 0; i < fragmentCount; ++i) {
    file.Append(isSecondRare && i % kRareEvery != 0 ? one : both);
  }
  return file.Vector();
}

void Require(bool isRight, const char* what) {
  if (!isRight) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
  }
}

/// Opens and takes every sample. Returns the reader; `count` becomes the number of samples.
QiroK7MReader* ReadAll(FlatStream& stream, uint64_t& count) {
  const QiroK7MIStreamCallBacks callBacks = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7MReader* reader = nullptr;
  Require(QiroK7MDocOpenForRead(&callBacks, &warning, &allocator, &reader) == 0, "cannot open");
  QiroK7MSampleIterator* samples = nullptr;
  Require(QiroK7MReaderGetAllSamples(reader, &samples) == 0, "cannot iterate");
  count = 0;
  for (QiroK7MSample* sample = nullptr;
       QiroK7MSampleIteratorGetNextEntry(samples, &sample) == 0 && sample != nullptr; ++count) {
    QiroK7MSampleInfo info;
    QiroK7MSampleGetInfo(sample, &info);
    benchmark::DoNotOptimize(info);
    QiroK7MReleaseSample(sample);
  }
  QiroK7MReleaseSampleIterator(samples);
  return reader;
}

/// Processor time of this process.
double Seconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void OpenAndIterate(benchmark::State& state, bool isSecondRare) {
  const auto fragmentCount = static_cast<uint32_t>(state.range(0));
  const std::vector<uint8_t> file = MakeFile(fragmentCount, isSecondRare);
  const uint32_t rareCount = (fragmentCount + kRareEvery - 1) / kRareEvery;
  const uint64_t expected =
      uint64_t{kSamplesPerRun} * (fragmentCount + (isSecondRare ? rareCount : fragmentCount));
  double closing = 0;
  for (auto _ : state) {
    // Every file is read with memory that the process has yet to get, as a large one always is.
    malloc_trim(0);
    FlatStream stream(file);
    uint64_t count = 0;
    const double begin = Seconds();
    QiroK7MReader* reader = ReadAll(stream, count);
    const double end = Seconds();
    state.SetIterationTime(end - begin);
    Require(count == expected, "not all samples were delivered");
    QiroK7MCloseReader(reader);
    closing += Seconds() - end;
  }
  state.counters["close_ns"] =
      closing * 1e9 / (static_cast<double>(state.iterations()) * fragmentCount);
  state.SetItemsProcessed(state.iterations() * fragmentCount);
}

/// Prints as usual, and keeps the time for each fragment of every case.
class GrowthReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "min") continue;
      const std::string name = run.run_name.function_name;
      const double count = std::stod(run.run_name.args);
      times_[name][count] = run.GetAdjustedRealTime() * kNanosecondsPerUnit / count;
    }
  }

  /// Returns whether no case grew too much.
  bool PrintGrowth() const {
    bool isLinear = true;
    for (const auto& [name, times] : times_) {
      const double first = times.begin()->second;
      for (const auto& [count, time] : times) {
        std::printf("%-24s %7.0f fragments: %8.1f ns per fragment, ratio %.2f\n", name.c_str(),
                    count, time, time / first);
        isLinear = isLinear && time <= first * kAllowedGrowth;
      }
    }
    return isLinear;
  }

 private:
  std::map<std::string, std::map<double, double>> times_;
};

void Register(const char* name, bool isSecondRare) {
  benchmark::RegisterBenchmark(
      name, [isSecondRare](benchmark::State& state) { OpenAndIterate(state, isSecondRare); })
      ->RangeMultiplier(10)
      ->Range(1000, 100000)
      ->Repetitions(9)
      // The least time is the one that other programs disturbed least.
      ->ComputeStatistics("min",
                          [](const std::vector<double>& times) {
                            return *std::min_element(times.begin(), times.end());
                          })
      ->ReportAggregatesOnly()
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  k7mbench::Register("both_tracks_everywhere", false);
  k7mbench::Register("second_track_rare", true);
  benchmark::Initialize(&argc, argv);
  k7mbench::GrowthReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  if (!reporter.PrintGrowth()) {
    std::fprintf(stderr, "The time for a fragment grows with their number.\n");
    return 1;
  }
  return 0;
}

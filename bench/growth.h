/// @file growth.h
/// Whether the time for a unit of work stays the same when there is more of it.
#ifndef K7M_BENCH_GROWTH_H
#define K7M_BENCH_GROWTH_H

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace k7mbench {

inline void Require(bool isRight, const char* what) {
  if (!isRight) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
  }
}

/// Processor time of this process.
inline double Seconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// What one run of a piece of work took.
struct Effort {
  double seconds;
  uint64_t units;
};
/// Makes everything that a size needs, before any time is taken, and gives the work on it.
using Shape = std::function<std::function<Effort()>(uint32_t size)>;

constexpr const char* kPerUnit = "ns_per_unit";

/// Runs the shape with `largest` and with a tenth and a hundredth of it.
inline void Register(const char* name, uint32_t largest, const Shape& shape) {
  auto* const registered = benchmark::RegisterBenchmark(name, [shape](benchmark::State& state) {
    const auto work = shape(static_cast<uint32_t>(state.range(0)));
    double perUnit = 0;
    for (auto _ : state) {
      // Memory is new to the process in every run, as it is for a large file.
      malloc_trim(0);
      const Effort effort = work();
      state.SetIterationTime(effort.seconds);
      perUnit += effort.seconds * 1e9 / static_cast<double>(effort.units);
    }
    state.counters[kPerUnit] = perUnit / static_cast<double>(state.iterations());
  });
  registered->Arg(largest / 100)
      ->Arg(largest / 10)
      ->Arg(largest)
      ->Repetitions(9)
      ->MinTime(0.1)
      // The least time is the one that other programs disturbed least.
      ->ComputeStatistics("min",
                          [](const std::vector<double>& times) {
                            return *std::min_element(times.begin(), times.end());
                          })
      ->ReportAggregatesOnly()
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

/// Prints as usual, and keeps the time for a unit of every shape and size.
class GrowthReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "min") continue;
      times_[run.run_name.function_name][std::stod(run.run_name.args)] =
          run.counters.at(kPerUnit).value;
    }
  }

  /// Returns whether no shape grew too much.
  bool PrintGrowth() const {
    constexpr double kAllowedGrowth = 1.3;
    bool isLinear = true;
    for (const auto& [name, times] : times_) {
      const double first = times.begin()->second;
      for (const auto& [size, time] : times) {
        std::printf("%-24s %8.0f: %9.1f ns each, ratio %.2f\n", name.c_str(), size, time,
                    time / first);
        isLinear = isLinear && time <= first * kAllowedGrowth;
      }
    }
    return isLinear;
  }

 private:
  std::map<std::string, std::map<double, double>> times_;
};

/// Runs what was registered. Returns the program's exit status.
inline int RunShapes(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  GrowthReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  if (reporter.PrintGrowth()) return 0;
  std::fprintf(stderr, "The time for a unit grows with their number.\n");
  return 1;
}

}  // namespace k7mbench

#endif

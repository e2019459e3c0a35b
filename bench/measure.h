/// @file measure.h
/// What a driver of the comparison prints: time, units of work and peak memory of one piece of
/// work.
#ifndef K7M_BENCH_MEASURE_H
#define K7M_BENCH_MEASURE_H

#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace k7mbench {

[[noreturn]] inline void Fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(2);
}

inline void Require(bool isRight, const char* what) {
  if (!isRight) Fail(what);
}

inline std::vector<uint8_t> LoadFile(const char* name) {
  std::ifstream file(name, std::ios::binary | std::ios::ate);
  if (!file) Fail(std::string("cannot read ") + name);
  std::vector<uint8_t> bytes(static_cast<size_t>(file.tellg()));
  file.seekg(0);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

/// One line of /proc/self/status in bytes.
inline uint64_t StatusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, name.size(), name) == 0) {
      return std::strtoull(line.c_str() + name.size(), nullptr, 10) * 1024;
    }
  }
  return 0;
}

/// From its making to Print(): the processor time of this process, and how much its resident memory
/// rose above what it was at first.
class Measure {
 public:
  Measure() {
    std::ofstream("/proc/self/clear_refs") << 5;  // Sets the peak to what is resident now.
    resident_ = StatusBytes("VmRSS:");
    begin_ = Now();
  }
  /// Prints nanoseconds, units and bytes.
  void Print(uint64_t units) const {
    const uint64_t time = Now() - begin_;
    const uint64_t peak = StatusBytes("VmHWM:");
    std::printf("%llu %llu %llu\n", static_cast<unsigned long long>(time),
                static_cast<unsigned long long>(units),
                static_cast<unsigned long long>(peak > resident_ ? peak - resident_ : 0));
  }

 private:
  static uint64_t Now() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
  }
  uint64_t resident_ = 0;
  uint64_t begin_ = 0;
};

}  // namespace k7mbench

#endif

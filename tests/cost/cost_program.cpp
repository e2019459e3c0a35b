// usage: k7m_cost FAMILY SIZE...
// Uses every file of a family, in every size after the other. Prints the names of the files.
// `linear` runs it and compares the instructions: callgrind dumps its counts after every file.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "every_way.h"
#include "families.h"

namespace {

struct Load {
  k7mtest::BadFile file;
  uint32_t size;
};

std::vector<Load> MakeLoads(std::string_view name, uint32_t size) {
  std::vector<Load> loads;
  for (const k7mtest::Family& family : k7mtest::AllFamilies()) {
    if (name != family.name) continue;
    for (k7mtest::BadFile& file : family.make(size)) loads.push_back({std::move(file), size});
  }
  return loads;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Load> all;
  for (int i = 2; i < argc; ++i) {
    const auto size = static_cast<uint32_t>(std::strtoul(argv[i], nullptr, 10));
    for (Load& load : MakeLoads(argv[1], size)) all.push_back(std::move(load));
  }
  CALLGRIND_START_INSTRUMENTATION;
  for (const Load& load : all) {
    std::printf("%u %s\n", load.size, load.file.name.c_str());
    CALLGRIND_ZERO_STATS;
    k7mtest::UseInEveryWay(load.file.bytes, load.size);
    CALLGRIND_DUMP_STATS;
  }
  return all.empty() ? 2 : 0;
}

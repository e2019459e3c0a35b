/// @file every_way.h
/// Everything that can be asked of a file, whatever it holds.
#ifndef K7M_TESTS_COST_EVERY_WAY_H
#define K7M_TESTS_COST_EVERY_WAY_H

#include <functional>

#include "flat_file.h"
#include "k7m/k7m.h"

namespace k7mtest {

/// How a file is used. A small recording that is in order stands beside it: as what is served when
/// the file is taken for the index, and as what the index was made of.
enum class Way {
  kRead,
  kReadByTheStandardsRules,
  kServe,
  kServeByGoodIndex,
  kServeGoodFileByIt,
  kContinue
};
inline constexpr Way kWays[] = {Way::kRead,
                                Way::kReadByTheStandardsRules,
                                Way::kServe,
                                Way::kServeByGoodIndex,
                                Way::kServeGoodFileByIt,
                                Way::kContinue};

/// Uses a file in one way, and gives back all it took. Of every sequence of samples the first
/// `limit` are taken, because a few bytes can describe samples without number; as many fragments
/// are asked for. `onResult` gets what the library answers. Takes no memory of its own. Gives the
/// number of bytes that were read.
uint64_t Use(Way way, const Bytes& content, const QiroK7MAllocatorCallBacks& memory, uint32_t limit,
             void (*onResult)(QiroK7MError));

/// All ways after each other; what is counted begins and ends here.
void UseInEveryWay(const Bytes& content, uint32_t limit);

}  // namespace k7mtest

#endif

/// @file writer_orders.h
/// Every order of writer calls up to a length.
#ifndef K7M_TESTS_API_WRITER_ORDERS_H
#define K7M_TESTS_API_WRITER_ORDERS_H

#include <functional>
#include <vector>

#include "writer_script.h"

namespace k7mtest {

/// Calls `visit` for every order of at most `maxLength` calls of add track, add description, add
/// sample, flush and close that a good writer answers with 0, each behind its own beginnings. There
/// are at most two tracks; each gets one description. A flush that has no new sample to write comes
/// once.
void ForEachOrder(size_t maxLength,
                  const std::function<void(const std::vector<ScriptStep>&)>& visit);

}  // namespace k7mtest

#endif

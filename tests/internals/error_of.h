/// @file error_of.h
/// What the tests of the internal classes share: failures as codes.
#ifndef K7M_TESTS_INTERNALS_ERROR_OF_H
#define K7M_TESTS_INTERNALS_ERROR_OF_H

#include "base/errors.h"

namespace k7mtest {

/// The code that `work` fails with; 0 when it succeeds. Exceptions of other types pass.
template <class Work>
QiroK7MError ErrorOf(Work&& work) {
  try {
    work();
  } catch (const qiro::k7m::exception_t& exception) {
    return exception.get_error();
  }
  return kQiroK7MErrorNone;
}

}  // namespace k7mtest

#endif

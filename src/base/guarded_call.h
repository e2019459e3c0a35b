#pragma once

#include "base/errors.h"

namespace qiro::k7m::impl {

/// The code of the exception that is being handled: the library's own first, then exhausted memory
/// (18), any other standard exception (19), anything else (1). Called inside a handler only.
QiroK7MError ExceptionToError() noexcept;

/// Runs `work` and gives 0, or the code of what it threw. The library catches here and nowhere
/// else.
template <class Work>
QiroK7MError GuardedCall(Work&& work) noexcept {
  try {
    work();
    return kQiroK7MErrorNone;
  } catch (...) {
    return ExceptionToError();
  }
}

}  // namespace qiro::k7m::impl

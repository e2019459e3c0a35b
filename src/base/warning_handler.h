#pragma once

#include "base/errors.h"
#include "k7m/warning.h"

namespace qiro::k7m::impl {

/// A copy of the client's warning record. Every stream holds one, so that whatever reads from the
/// stream can raise a warning.
class WarningHandler {
 public:
  WarningHandler() = default;
  /// `callBacks` may be null: no callback then.
  explicit WarningHandler(const QiroK7MWarningHandlerCallBacks* callBacks) {
    if (callBacks != nullptr) {
      callBacks_.clientData = callBacks->clientData;
      callBacks_.warningCallback = callBacks->warningCallback;
    }
  }

  /// Without a callback the warning is ignored; error 1028 when the callback returns 0.
  void RaiseWarning(QiroK7MError code) const {
    if (callBacks_.warningCallback != nullptr) {
      const int32_t goOn = callBacks_.warningCallback(callBacks_.clientData, code);
      ThrowIf(goOn == 0, kQiroK7MErrorAbortedByWarningHandler);
    }
  }

 private:
  QiroK7MWarningHandlerCallBacks callBacks_;
};

}  // namespace qiro::k7m::impl

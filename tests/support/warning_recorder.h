/// @file warning_recorder.h
/// Remembers warnings, and can refuse one.
#ifndef K7M_TESTS_SUPPORT_WARNING_RECORDER_H
#define K7M_TESTS_SUPPORT_WARNING_RECORDER_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "k7m/warning.h"
#include "malloc_allocator.h"

namespace k7mtest {

class WarningRecorder {
 public:
  WarningRecorder() = default;
  WarningRecorder(const WarningRecorder&) = delete;
  WarningRecorder& operator=(const WarningRecorder&) = delete;

  QiroK7MWarningHandlerCallBacks Record() {
    QiroK7MWarningHandlerCallBacks record;
    record.clientData = this;
    record.warningCallback = &WarningRecorder::Note;
    return record;
  }
  /// The n-th warning (from 1) is answered with 0; later ones are accepted again.
  void RefuseNth(uint64_t n) { refused_ = seen_.size() + n; }

  std::vector<QiroK7MError> Seen() const { return {seen_.begin(), seen_.end()}; }
  size_t Count(QiroK7MError warning) const {
    return static_cast<size_t>(std::count(seen_.begin(), seen_.end(), warning));
  }
  void Clear() { seen_.clear(); }

 private:
  static int32_t Note(void* clientData, QiroK7MError warning) {
    auto& self = *static_cast<WarningRecorder*>(clientData);
    self.seen_.push_back(warning);
    return self.seen_.size() == self.refused_ ? 0 : 1;
  }

  std::vector<QiroK7MError, MallocAllocator<QiroK7MError>> seen_;
  size_t refused_ = 0;
};

}  // namespace k7mtest

#endif

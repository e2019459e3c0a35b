#include "writer_orders.h"

namespace k7mtest {
namespace {

constexpr size_t kMaxTracks = 2;

class Orders {
 public:
  Orders(size_t maxLength, const std::function<void(const std::vector<ScriptStep>&)>& visit)
      : maxLength_(maxLength), visit_(visit) {}

  void VisitAll() {
    if (steps_.size() == maxLength_) return;
    for (const ScriptStep& next : Allowed()) {
      steps_.push_back(next);
      visit_(steps_);
      VisitAll();
      steps_.pop_back();
    }
  }

 private:
  size_t Count(Do what) const {
    size_t count = 0;
    for (const ScriptStep& step : steps_) count += step.what == what ? 1 : 0;
    return count;
  }

  /// Whether a sample has come since the last flush, looking back from step `end`.
  bool IsBehindSample(size_t end) const {
    while (end > 0 && steps_[end - 1].what != Do::kFlush) {
      if (steps_[--end].what == Do::kSample) return true;
    }
    return false;
  }
  bool IsBehindSample() const { return IsBehindSample(steps_.size()); }
  size_t IdleFlushes() const {
    size_t count = 0;
    for (size_t i = 0; i < steps_.size(); ++i) {
      count += steps_[i].what == Do::kFlush && !IsBehindSample(i) ? 1 : 0;
    }
    return count;
  }

  std::vector<ScriptStep> Allowed() const {
    if (Count(Do::kClose) != 0) return {};
    const size_t tracks = Count(Do::kAddTrack);
    const size_t described = Count(Do::kDescribe);
    std::vector<ScriptStep> allowed = {{Do::kClose}};
    if (IsBehindSample() || IdleFlushes() == 0) allowed.push_back({Do::kFlush});
    if (tracks < kMaxTracks && Count(Do::kSample) == 0) allowed.push_back({Do::kAddTrack});
    if (described < tracks) allowed.push_back({Do::kDescribe, described});
    for (size_t track = 0; track < described; ++track) {
      allowed.push_back({Do::kSample, track, 10 * steps_.size()});
    }
    return allowed;
  }

  size_t maxLength_;
  const std::function<void(const std::vector<ScriptStep>&)>& visit_;
  std::vector<ScriptStep> steps_;
};

}  // namespace

void ForEachOrder(size_t maxLength,
                  const std::function<void(const std::vector<ScriptStep>&)>& visit) {
  Orders(maxLength, visit).VisitAll();
}

}  // namespace k7mtest

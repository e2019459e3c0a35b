/// @file messages.h
/// What goes to the standard error: messages and a progress bar that does not get in their way.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace qiro::k7m::tool {

/// Prints "k7m: text" and a line end. Control characters are shown as \xNN.
void PrintMessage(const std::string& text);

/// Prints "k7m: path: track N: text" and a line end.
void PrintTrackMessage(const std::string& path, uint32_t track, const std::string& text);

/// What a progress bar counts.
enum class Unit { kSteps, kBytes };

/// A bar on the standard error. It appears only on a terminal, and only once the work has taken a
/// second; it disappears when the work ends.
class ProgressBar {
 public:
  /// @param total  steps that make up the whole work; 0: not known, nothing is ever shown
  /// @param unit   of bytes it is also told how many there are in a second
  explicit ProgressBar(uint64_t total, Unit unit = Unit::kSteps);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Tells that `count` further steps are done. Cheap enough to be called for every sample.
  void Advance(uint64_t count = 1);

 private:
  void Draw();
  std::string RateText() const;

  using Clock = std::chrono::steady_clock;
  uint64_t total_;
  Unit unit_;
  Clock::time_point begin_;
  uint64_t done_ = 0;
  uint64_t nextLook_ = 0;  // Steps at which the clock is looked at again.
  Clock::time_point nextDraw_;
};

}  // namespace qiro::k7m::tool

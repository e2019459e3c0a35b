#include "messages.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kRefresh = std::chrono::milliseconds(100);
constexpr uint64_t kStepsBetweenLooks = 64;
constexpr int kBarWidth = 40;

// There is one terminal line; whoever prints a message has to clear the bar off it first.
bool barIsShown = false;

void ClearBar() {
  if (!barIsShown) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  barIsShown = false;
}

}  // namespace

void PrintMessage(const std::string& text) {
  ClearBar();
  std::fprintf(stderr, "k7m: %s\n", Printable(text).c_str());
}

void PrintTrackMessage(const std::string& path, uint32_t track, const std::string& text) {
  PrintMessage(path + ": track " + std::to_string(track) + ": " + text);
}

ProgressBar::ProgressBar(uint64_t total, Unit unit)
    : total_(isatty(STDERR_FILENO) != 0 ? total : 0),
      unit_(unit),
      begin_(Clock::now()),
      nextDraw_(begin_ + kPatience) {}

ProgressBar::~ProgressBar() { ClearBar(); }

void ProgressBar::Advance(uint64_t count) {
  done_ += count;
  if (total_ == 0 || done_ < nextLook_) return;
  nextLook_ = done_ + kStepsBetweenLooks;
  if (Clock::now() >= nextDraw_) Draw();
}

void ProgressBar::Draw() {
  const double part = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
  const int filled = static_cast<int>(part * kBarWidth);
  std::string bar(static_cast<size_t>(filled), '#');
  bar.resize(kBarWidth, '.');
  std::fprintf(stderr, "\r[%s] %3d%%%s", bar.c_str(), static_cast<int>(part * 100),
               RateText().c_str());
  std::fflush(stderr);
  barIsShown = true;
  nextDraw_ = Clock::now() + kRefresh;
}

std::string ProgressBar::RateText() const {
  const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
  if (unit_ != Unit::kBytes || seconds <= 0) return "";
  char text[40];
  std::snprintf(text, sizeof text, "  %.1f MB/s ", static_cast<double>(done_) / seconds / 1e6);
  return text;
}

}  // namespace qiro::k7m::tool

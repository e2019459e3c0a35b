#include "reader/fragment_cursor.h"

namespace qiro::k7m::impl {

bool FragmentCursor::Position(uint64_t time) {
  run_ = nullptr;
  const auto fragment = root_->FindFragment(trackId_, time);
  if (!fragment) {
    return false;
  }
  fragment_ = *fragment;
  return SeekFrom(Fragment().FindRunEndingAtOrAfter(time), time);
}

bool FragmentCursor::PositionAtFirst() {
  run_ = nullptr;
  fragment_ = 0;
  return root_->ParseFragmentsBeyond(trackId_, 0) && SeekFrom(0, 0);
}

bool FragmentCursor::SeekFrom(size_t run, uint64_t time) {
  run_ = nullptr;
  for (;;) {
    const TrackFragment& fragment = Fragment();
    for (; run < fragment.runCount; ++run) {
      if (const auto index = fragment.runs[run].FindFirstAtOrAfter(time)) {
        run_ = &fragment.runs[run];
        index_ = *index;
        sample_ = run_->GetSample(index_);
        return true;
      }
    }
    if (!root_->ParseFragmentsBeyond(trackId_, fragment_ + 1)) {
      return false;
    }
    ++fragment_;
    run = 0;
  }
}

void FragmentCursor::Next() {
  if (index_ + 1 < run_->GetSampleCount()) {
    sample_ = run_->GetNext(sample_, index_);
    ++index_;
  } else {
    SeekFrom(static_cast<size_t>(run_ - Fragment().runs) + 1, 0);
  }
}

}  // namespace qiro::k7m::impl

#include "reader/fragment_cursor.h"

namespace qiro::k7m::impl {

bool FragmentCursor::Position(uint64_t time) {
  trun_ = nullptr;
  const auto fragment = root_->FindFragment(trackId_, time);
  if (!fragment) {
    return false;
  }
  fragment_ = *fragment;
  return SeekFrom(Traf().FindRunEndingAtOrAfter(time), time);
}

bool FragmentCursor::PositionAtFirst() {
  trun_ = nullptr;
  fragment_ = 0;
  return root_->ParseFragmentsBeyond(trackId_, 0) && SeekFrom(0, 0);
}

bool FragmentCursor::SeekFrom(size_t run, uint64_t time) {
  trun_ = nullptr;
  for (;;) {
    const auto& truns = Traf().GetTruns();
    for (; run < truns.size(); ++run) {
      if (const auto index = truns[run]->FindFirstAtOrAfter(time)) {
        run_ = run;
        trun_ = truns[run];
        index_ = *index;
        sample_ = trun_->GetSample(index_);
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
  if (index_ + 1 < trun_->GetSampleCount()) {
    sample_ = trun_->GetNext(sample_, index_);
    ++index_;
  } else {
    SeekFrom(run_ + 1, 0);
  }
}

}  // namespace qiro::k7m::impl

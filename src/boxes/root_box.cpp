#include "boxes/root_box.h"

#include "boxes/fragment_boxes.h"
#include "boxes/k7m_parser.h"
#include "boxes/movie_extends_boxes.h"
#include "boxes/payload_table.h"
#include "boxes/uuid_boxes.h"

namespace qiro::k7m::impl {
namespace {

BoxHeader EmptyExtent() {
  BoxHeader header;
  header.SetBeginOffset(0);
  return header;
}

}  // namespace

RootBox::RootBox(QiroK7MStream* stream, uint32_t readRules,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, EmptyExtent(), allocator),
      readRules_(readRules),
      fragments_(K7MAllocator<TrackFragments>(allocator)),
      inFragment_(K7MAllocator<InFragment>(allocator)) {}

void RootBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  Grow(box->GetTotalSize());
  if (box->GetBoxType() == MoovBox::kType) {
    moov_ = static_cast<MoovBox*>(box);
  }
}

Box* RootBox::GetBoxByPos(size_t position) {
  while (Children().size() <= position) {
    if (ParseNextBox() == nullptr) {
      return nullptr;
    }
  }
  return Children()[position].get();
}

Box* RootBox::ParseNextBox() {
  const uint64_t begin = GetEndOffset();
  if (begin > kMaxStreamOffset || !Stream().Reaches(begin)) {
    return nullptr;
  }
  K7MParser parser(&Stream(), this);
  parser.SeekTo(begin);
  auto box = parser.ParseFile();
  if (box == nullptr) {
    return nullptr;
  }
  const bool isMoof = box->GetBoxType() == MoofBox::kType;
  if (isMoof && moov_ == nullptr) {
    LookAheadForMoov(box->GetEndOffset());
  }
  if (box->GetBoxType() == MoovBox::kType && moov_ != nullptr) {
    ThrowIf(box->GetBeginOffset() != moov_->GetBeginOffset(), kQiroK7MErrorMoovOffsetMismatch);
    // From here on adding it cannot fail: tracks point into it, so it must not be lost.
    ReserveMore(MutableChildren(), 1);
    box = std::move(movieAhead_);
  } else {
    BeginFragment(box->GetBeginOffset());
    box = Complete(std::move(box));
    ReserveMore(MutableChildren(), 1);
  }
  if (isMoof) {
    // From here on adding it cannot fail: a fragment that is there is among those of its tracks.
    ReserveFragments();
  }
  Box* added = box.get();
  AddChildBox(std::move(box));
  if (isMoof) {
    TakeFragments(static_cast<MoofBox&>(*added));
  }
  return added;
}

void RootBox::LookAheadForMoov(uint64_t begin) {
  K7MParser parser(&Stream(), this);
  parser.SeekTo(begin);
  auto movie = parser.ParseFile(MoovBox::kType);
  ThrowIf(movie == nullptr, kQiroK7MErrorNoMovieBox);
  movieAhead_ = Complete(std::move(movie));
  moov_ = static_cast<MoovBox*>(movieAhead_.get());
}

std::unique_ptr<Box> RootBox::Complete(std::unique_ptr<Box> box) {
  K7MParser(&Stream(), this).ParseBox(box.get());
  box->CompleteRead(this, true);
  return box;
}

MoovBox* RootBox::GetMoovBox() {
  while (moov_ == nullptr && ParseNextBox() != nullptr) {
  }
  return moov_;
}

MvexBox* RootBox::GetMvexBox() {
  MoovBox* moov = GetMoovBox();
  return moov == nullptr ? nullptr : moov->GetMvexBox();
}

MvhdBox* RootBox::GetMovieHeader() {
  MoovBox* moov = GetMoovBox();
  return moov == nullptr ? nullptr : moov->GetMovieHeader();
}

UlbDataBox* RootBox::GetUlbDataBox() {
  for (size_t position = 0;; ++position) {
    Box* box = GetBoxByPos(position);
    auto* metadata = dynamic_cast<UlbDataBox*>(box);
    if (box == nullptr || metadata != nullptr) {
      return metadata;
    }
  }
}

const TrackFragments& RootBox::FragmentsOf(uint32_t trackId) {
  return fragments_.try_emplace(trackId, GetAllocator()).first->second;
}

bool RootBox::ParseFragmentsBeyond(uint32_t trackId, size_t count) {
  const TrackFragments& fragments = FragmentsOf(trackId);
  while (fragments.Size() <= count) {
    if (ParseNextBox() == nullptr) {
      return false;
    }
  }
  return true;
}

std::optional<size_t> RootBox::FindFragment(uint32_t trackId, uint64_t time) {
  const TrackFragments& fragments = FragmentsOf(trackId);
  size_t examined = 0;
  for (;;) {
    // What was examined is not looked at again.
    if (examined != fragments.Size()) {
      const size_t found = Resolves(ReadRule::kStartTimes) ? fragments.FindFirstEndingAfter(time)
                                                           : fragments.FindCovering(time, examined);
      examined = fragments.Size();
      if (found != fragments.Size()) {
        return found;
      }
    }
    if (ParseNextBox() == nullptr) {
      return std::nullopt;
    }
  }
}

void RootBox::ForgetBehindMovie() {
  for (auto& [trackId, fragments] : fragments_) {
    fragments.ForgetBehind(moov_->GetBeginOffset());
  }
  std::erase_if(fragments_, [](const auto& track) { return track.second.Size() == 0; });
  auto& boxes = MutableChildren();
  while (!boxes.empty() && boxes.back().get() != moov_) {
    boxes.pop_back();
  }
  SetTotalSize(moov_->GetEndOffset());
  SetEffectiveSize(GetTotalSize());
}

void RootBox::BeginFragment(uint64_t moofOffset) {
  inFragment_.clear();
  moofOffset_ = moofOffset;
  previousDataEnd_.reset();
}

void RootBox::NoteTrackFragment(const TrafBox& traf) {
  if (traf.HasSamples()) {
    InFragment& track = inFragment_.try_emplace(traf.GetTrackId()).first->second;
    track.end = traf.GetLastSampleEndTime();
    ++track.count;
  }
}

uint64_t RootBox::NextStartTime(uint32_t trackId) const {
  if (const auto inFragment = inFragment_.find(trackId); inFragment != inFragment_.end()) {
    return inFragment->second.end;
  }
  const auto earlier = fragments_.find(trackId);
  return earlier == fragments_.end() ? 0 : earlier->second.NextStartTime();
}

void RootBox::ReserveFragments() {
  for (const auto& [trackId, track] : inFragment_) {
    fragments_.try_emplace(trackId, GetAllocator()).first->second.Reserve(track.count);
  }
}

void RootBox::TakeFragments(const MoofBox& moof) {
  for (const auto& child : moof.Children()) {
    if (child->GetBoxType() != TrafBox::kType) {
      continue;
    }
    const auto& traf = static_cast<const TrafBox&>(*child);
    if (traf.HasSamples()) {
      fragments_.find(traf.GetTrackId())->second.Add(traf, moof.GetBeginOffset());
    }
  }
}

}  // namespace qiro::k7m::impl

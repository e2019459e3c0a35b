#include "boxes/root_box.h"

#include "boxes/fragment_boxes.h"
#include "boxes/k7m_parser.h"
#include "boxes/mdat_box.h"
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

RootBox::RootBox(QiroK7MStream* stream, uint32_t readRules, KeptBoxes kept,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, EmptyExtent(), allocator),
      readRules_(readRules),
      kept_(kept),
      fragments_(K7MAllocator<TrackFragments>(allocator)),
      loader_(this, stream, GetAllocator()),
      fragmentMemory_(K7MAllocator<FragmentMemory>(allocator)) {}

void RootBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  Grow(box->GetTotalSize());
  if (box->GetBoxType() == MoovBox::kType) {
    moov_ = static_cast<MoovBox*>(box);
  }
  hasMdat_ = hasMdat_ || box->GetBoxType() == MdatBox::kType;
}

Box* RootBox::GetBoxByPos(size_t position) {
  while (Children().size() <= position) {
    if (!ParseNext()) {
      return nullptr;
    }
  }
  return Children()[position].get();
}

bool RootBox::ParseNext() {
  const uint64_t begin = GetEndOffset();
  if (begin > kMaxStreamOffset || !Stream().Reaches(begin)) {
    return false;
  }
  K7MParser parser(&Stream(), this);
  parser.SeekTo(begin);
  const auto header = parser.ParseHeader();
  if (!header) {
    return false;
  }
  if (kept_ == KeptBoxes::kAllButFragments && TakeWithoutBox(*header)) {
    Grow(header->GetTotalBoxSize());
  } else {
    AddParsedBox(*header);
  }
  return true;
}

bool RootBox::TakeWithoutBox(const BoxHeader& header) {
  if (header.GetBoxType() == MdatBox::kType) {
    return hasMdat_;
  }
  return header.GetBoxType() == MoofBox::kType && loader_.Load(header);
}

void RootBox::AddParsedBox(const BoxHeader& header) {
  auto box = K7MParser(&Stream(), this).Create(header);
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
  // A fragment that is there is among those of its tracks: there is room for both.
  const Box& added = *box;
  AddChildBox(std::move(box));
  if (isMoof) {
    TakeFragments(static_cast<const MoofBox&>(added));
  }
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
  while (moov_ == nullptr && ParseNext()) {
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
    if (!ParseNext()) {
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
    if (!ParseNext()) {
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
  ++moofNumber_;
  moofOffset_ = moofOffset;
  previousDataEnd_.reset();
}

void RootBox::AnnounceFragment(uint32_t trackId, uint64_t endTime) {
  fragments_.try_emplace(trackId, GetAllocator()).first->second.Announce(moofNumber_, endTime);
}

uint64_t RootBox::NextStartTime(uint32_t trackId) const {
  const auto track = fragments_.find(trackId);
  return track == fragments_.end() ? 0 : track->second.NextStartTime(moofNumber_);
}

uint64_t RootBox::BaseDataOffset(const TrackFragmentHeader& header) const {
  if (header.Has(TrackFragmentHeader::kBaseDataOffsetPresent) ||
      !Resolves(ReadRule::kBaseOffsets)) {
    return header.baseDataOffset;
  }
  const bool isMoofAsked = header.Has(TrackFragmentHeader::kDefaultBaseIsMoof);
  return isMoofAsked || !previousDataEnd_ ? moofOffset_ : *previousDataEnd_;
}

void RootBox::TakeFragment(uint32_t trackId, const TrackFragment& fragment) {
  fragments_.find(trackId)->second.Add(fragment, moofOffset_);
}

FragmentMemory RootBox::AllocateForFragment(uint64_t size) const {
  return {static_cast<uint8_t*>(AllocateThrough(GetAllocator(), size)), {GetAllocator()}};
}

void RootBox::TakeFragments(const MoofBox& moof) {
  for (const auto& child : moof.Children()) {
    if (child->GetBoxType() == TrafBox::kType) {
      const auto& traf = static_cast<const TrafBox&>(*child);
      if (traf.HasSamples()) {
        TakeFragment(traf.GetTrackId(), traf.GetFragment());
      }
    }
  }
}

}  // namespace qiro::k7m::impl

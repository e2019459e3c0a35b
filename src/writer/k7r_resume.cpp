#include "writer/k7r_resume.h"

#include "boxes/afra_box.h"
#include "boxes/fragment_boxes.h"
#include "boxes/mdat_box.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint32_t kAbstType = FourCc("abst");

/// Whether a box stands at `begin` with its header and all its bytes inside the stream. Of those
/// that run to the end of the stream only an 'mdat' counts. One that is shorter than its own header
/// counts as well: parsing tells what is wrong with it.
bool IsWhole(QiroK7MStream& stream, uint64_t begin) {
  if (!stream.Reaches(begin + kMinHeaderSize)) {
    return false;
  }
  stream.SeekTo(begin);
  uint64_t size = stream.ReadDWORD();
  const uint32_t type = stream.ReadDWORD();
  if (size == 0) {
    return type == MdatBox::kType;
  }
  uint64_t headerSize = kMinHeaderSize;
  if (size == 1) {
    headerSize += kLargeSizeFieldSize;
    if (!stream.Reaches(begin + headerSize)) {
      return false;
    }
    size = stream.ReadDDWORD();
  }
  headerSize += type == FourCc("uuid") ? kExtendedTypeSize : 0;
  const uint64_t end = begin + size;
  return stream.Reaches(begin + headerSize) &&
         (size < headerSize || (end > begin && stream.Reaches(end)));
}

class ResumeWalk {
 public:
  ResumeWalk(RootBox& root, QiroK7MStream& stream, size_t trackCount, uint64_t keepLimit)
      : root_(root), stream_(stream), keepLimit_(keepLimit) {
    point_.writeOffset = root.GetEndOffset();
    point_.trackEnds.resize(trackCount);
    NoteOpen(*root.Children().back());
    // Those in front of the movie box stay whatever the limit is.
    for (const auto& box : root.Children()) {
      if (box->GetBoxType() == MoofBox::kType) {
        NoteMoof(static_cast<const MoofBox&>(*box));
      }
    }
  }

  ResumePoint Run() {
    while (!IsPastLimit() && IsWhole(stream_, root_.GetEndOffset())) {
      const Box* box = root_.ParseNextBox();
      if (box == nullptr || !Accept(*box)) {
        break;
      }
    }
    return std::move(point_);
  }

 private:
  enum class State : uint8_t { kBetweenFragments, kAfterAfra, kAfterAbst, kAfterMoof };

  bool IsPastLimit() const {
    return state_ != State::kBetweenFragments && afraOffset_ > keepLimit_;
  }

  bool Accept(const Box& box) {
    const uint32_t type = box.GetBoxType();
    switch (state_) {
      case State::kBetweenFragments:
        return AcceptBetween(box);
      case State::kAfterAfra:
        return type == kAbstType ? Enter(State::kAfterAbst) : AcceptMoof(box);
      case State::kAfterAbst:
        return AcceptMoof(box);
      case State::kAfterMoof:
        return type == MdatBox::kType && CompleteFragment(box);
    }
    return false;
  }
  bool Enter(State state) {
    state_ = state;
    return true;
  }
  bool AcceptBetween(const Box& box) {
    switch (box.GetBoxType()) {
      case AfraBox::kType:
        afraOffset_ = box.GetBeginOffset();
        return Enter(State::kAfterAfra);
      case kAbstType:
      case MoofBox::kType:
      case MdatBox::kType:
        return false;
      default:
        point_.writeOffset = box.GetEndOffset();
        return true;
    }
  }
  bool AcceptMoof(const Box& box) {
    if (box.GetBoxType() != MoofBox::kType) {
      return false;
    }
    moof_ = static_cast<const MoofBox*>(&box);
    return Enter(State::kAfterMoof);
  }
  bool CompleteFragment(const Box& mdat) {
    point_.writeOffset = mdat.GetEndOffset();
    point_.lastAfraOffset = afraOffset_;
    NoteMoof(*moof_);
    NoteOpen(mdat);
    return Enter(State::kBetweenFragments);
  }
  void NoteOpen(const Box& box) {
    if (box.GetBoxHeader().IsBoxTillFileEnd()) {
      ThrowIf(box.GetTotalSize() > 0xFFFFFFFF, kQiroK7MErrorStdException);
      point_.openBox = &box;
    }
  }
  void NoteMoof(const MoofBox& moof) {
    point_.fragmentNumber = moof.GetSequenceNumber();
    for (const auto& child : moof.Children()) {
      if (child->GetBoxType() == TrafBox::kType) {
        NoteEnd(static_cast<const TrafBox&>(*child));
      }
    }
  }
  void NoteEnd(const TrafBox& traf) {
    const uint64_t index = uint64_t{traf.GetTrackId()} - 1;
    if (traf.HasSamples() && index < point_.trackEnds.size()) {
      point_.trackEnds[index] = traf.GetLastSampleEndTime();
    }
  }

  RootBox& root_;
  QiroK7MStream& stream_;
  uint64_t keepLimit_;
  ResumePoint point_;
  State state_ = State::kBetweenFragments;
  uint64_t afraOffset_ = 0;
  const MoofBox* moof_ = nullptr;
};

}  // namespace

ResumePoint FindResumePoint(RootBox& root, QiroK7MStream& stream, size_t trackCount,
                            uint64_t keepLimit) {
  return ResumeWalk(root, stream, trackCount, keepLimit).Run();
}

}  // namespace qiro::k7m::impl

#include "query/fragment_entry.h"

#include <algorithm>

#include "boxes/fragment_boxes.h"
#include "boxes/mdat_box.h"

namespace qiro::k7m::impl {

void FragmentEntry::Take(const Box* box) {
  const auto place = [box](const Box*& slot, bool mayStandHere) {
    ThrowIf(!mayStandHere, kQiroK7MErrorBadFragmentFile);
    slot = box;
  };
  switch (box->GetBoxType()) {
    case kAfraType:
      return place(afra_, IsEmpty());
    case kAbstType:
      // Without an 'afra' it is accepted as well; then nothing else of a fragment is behind it.
      return place(abst_, abst_ == nullptr && moof_ == nullptr && mdat_ == nullptr);
    case MoofBox::kType:
      return place(moof_, afra_ != nullptr && moof_ == nullptr);
    case MdatBox::kType:
      return place(mdat_, afra_ != nullptr && mdat_ == nullptr);
    default:
      ThrowIf(!IsEmpty(), kQiroK7MErrorBadFragmentFile);
  }
}

bool FragmentEntry::IsEmpty() const {
  return afra_ == nullptr && abst_ == nullptr && moof_ == nullptr && mdat_ == nullptr;
}

std::array<const Box*, 4> FragmentEntry::InFileOrder() const {
  std::array<const Box*, 4> boxes = {afra_, abst_, moof_, mdat_};
  std::sort(boxes.begin(), boxes.end(), [](const Box* left, const Box* right) {
    return left != nullptr &&
           (right == nullptr || left->GetBeginOffset() < right->GetBeginOffset());
  });
  return boxes;
}

uint64_t FragmentEntry::GetTotalSize() const {
  uint64_t size = 0;
  for (const Box* box : InFileOrder()) {
    size += box == nullptr ? 0 : box->GetTotalBoxSize();
  }
  return size;
}

uint64_t FragmentEntry::GetEndOffset() const {
  uint64_t end = 0;
  for (const Box* box : InFileOrder()) {
    end = box == nullptr ? end : box->GetEndOffset();
  }
  return end;
}

void FragmentEntry::CopyTo(QiroK7MStream& stream, uint8_t* buffer) const {
  for (const Box* box : InFileOrder()) {
    if (box != nullptr) {
      stream.SeekTo(box->GetBeginOffset());
      stream.Read(buffer, box->GetTotalBoxSize());
      buffer += box->GetTotalBoxSize();
    }
  }
}

}  // namespace qiro::k7m::impl

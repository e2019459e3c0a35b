#include "boxes/box.h"

#include <algorithm>
#include <array>

#include "base/big_endian.h"
#include "base/gathering_stream.h"

namespace qiro::k7m::impl {

Box::Box(QiroK7MStream* stream, const BoxHeader& header, const QiroK7MAllocatorCallBacks* allocator)
    : K7MBase(allocator),
      header_(header),
      children_(K7MAllocator<std::unique_ptr<Box>>(allocator)),
      stream_(stream),
      effectiveSize_(header.GetTotalBoxSize()),
      totalSize_(header.GetTotalBoxSize()),
      wasParsed_(true) {}

Box::Box(QiroK7MStream* stream, uint32_t type, const QiroK7MAllocatorCallBacks* allocator)
    : K7MBase(allocator),
      header_(type),
      children_(K7MAllocator<std::unique_ptr<Box>>(allocator)),
      stream_(stream),
      effectiveSize_(header_.GetTotalBoxSize()),
      totalSize_(header_.GetTotalBoxSize()),
      wasParsed_(false) {}

Box::~Box() = default;

void Box::WriteBoxHeader() {
  SeekTo(GetBeginOffset());
  const bool isLarge = header_.IsExtendedSize();
  ThrowIf(!isLarge && totalSize_ > 0xFFFFFFFF, kQiroK7MErrorStdException);
  std::array<uint8_t, 16> bytes;
  StoreBigEndian(bytes.data(), isLarge ? uint32_t{1} : static_cast<uint32_t>(totalSize_));
  StoreBigEndian(bytes.data() + 4, GetBoxType());
  StoreBigEndian(bytes.data() + 8, totalSize_);
  stream_->WriteBYTES(bytes.data(), isLarge ? 16 : 8);
}

void Box::AddChildBox(std::unique_ptr<Box> child) {
  const uint64_t childSize = child->GetTotalSize();
  if (!wasParsed_) {
    child->SetBeginOffset(GetEndOffset());
  }
  children_.push_back(std::move(child));
  if (!wasParsed_) {
    Grow(childSize);
  }
}

void Box::DropLastChild() {
  const uint64_t childSize = children_.back()->GetTotalSize();
  children_.pop_back();
  effectiveSize_ -= childSize;
  SetTotalSize(totalSize_ - childSize);
}

void Box::WriteBox() {
  GatheredWrites gathered(*stream_);
  WriteBoxHeader();
  WriteExtensionBox();
  for (const auto& child : children_) {
    child->WriteBox();
  }
  gathered.Finish();
}

void Box::UpdateBox() {
  UpdateExtensionBox();
  for (const auto& child : children_) {
    child->UpdateBox();
  }
}

bool Box::ValidateHierarchy() {
  const auto rules = GetMandatoryBoxes();
  return std::all_of(rules.begin(), rules.end(),
                     [this](const MandatoryBox& rule) { return IsSatisfied(rule); });
}

bool Box::IsSatisfied(const MandatoryBox& rule) const {
  switch (rule.kind) {
    case Occurrence::kExactlyOnce:
      return CountOccurances(rule.type) == 1;
    case Occurrence::kAtLeastOnce:
      return CountOccurances(rule.type) >= 1;
    case Occurrence::kExactlyOneOfList:
      return CountOccurancesInList(rule.list) == 1;
  }
  return false;
}

Box* Box::GetBoxByPos(size_t position) {
  return position < children_.size() ? children_[position].get() : nullptr;
}

void Box::CompleteReadChildBoxes(RootBox* root, bool validate) {
  for (const auto& child : children_) {
    child->CompleteRead(root, validate);
  }
}

void Box::SetBeginOffset(uint64_t begin) {
  const uint64_t shift = begin - GetBeginOffset();
  header_.SetBeginOffset(begin);
  for (const auto& child : children_) {
    child->SetBeginOffset(child->GetBeginOffset() + shift);
  }
}

uint64_t Box::BytesLeft() {
  const uint64_t position = stream_->Tell();
  return GetEndOffset() > position ? GetEndOffset() - position : 0;
}

void Box::ReadPayloadFromStream() {
  ReadCommonPayloadData();
  ReadExtensionPayloadData();
}

void Box::CompleteRead(RootBox* root, bool validate) {
  ThrowIf(validate && !ValidateHierarchy(), kQiroK7MErrorInvalidHierarchy);
  SeekTo(GetBeginOffset() + header_.GetHeaderSize());
  ReadPayloadFromStream();
  CompleteReadChildBoxes(root, validate);
}

Box* Box::GetFirstBoxByType(uint32_t type) {
  for (size_t position = 0;; ++position) {
    Box* child = GetBoxByPos(position);
    if (child == nullptr || child->GetBoxType() == type) {
      return child;
    }
  }
}

uint32_t Box::CountOccurances(uint32_t type) const {
  return CountOccurancesInList(std::span<const uint32_t>(&type, 1));
}

uint32_t Box::CountOccurancesInList(std::span<const uint32_t> types) const {
  return static_cast<uint32_t>(
      std::count_if(children_.begin(), children_.end(), [types](const auto& child) {
        return std::find(types.begin(), types.end(), child->GetBoxType()) != types.end();
      }));
}

void Box::Grow(uint64_t byteCount) {
  effectiveSize_ += byteCount;
  SetTotalSize(totalSize_ + byteCount);
}

void Box::SetTotalSize(uint64_t size) {
  totalSize_ = size;
  header_.SetTotalBoxSize(size);
}

}  // namespace qiro::k7m::impl

#include "query/fragment_extent.h"

#include <array>

#include "base/big_endian.h"
#include "boxes/box_header.h"
#include "boxes/fragment_boxes.h"
#include "boxes/mdat_box.h"
#include "query/fragment_entry.h"

namespace qiro::k7m::impl {
namespace {

/// Steps over boxes that stand side by side.
class BoxSteps {
 public:
  /// Error 5 when the stream ends before the first box.
  BoxSteps(QiroK7MStream* stream, uint64_t begin) : stream_(stream), position_(begin) {
    ThrowIf(!stream->Reaches(begin + 1), kQiroK7MErrorReadFailed);
    box_ = ReadBoxExtent(*stream_, position_);
  }

  uint32_t Type() const { return box_.type; }
  /// Where the current box ends. Error 27 when it is smaller than its header, error 5 when it runs
  /// past the end of the stream.
  uint64_t End() const {
    ThrowIf(box_.size < box_.headerSize, kQiroK7MErrorBoxTruncated);
    ThrowIf(box_.size > kMaxStreamOffset - position_ || !stream_->Reaches(position_ + box_.size),
            kQiroK7MErrorReadFailed);
    return position_ + box_.size;
  }
  /// To the box behind. Error 1025 when the stream ends exactly there.
  void StepOver() {
    position_ = End();
    ThrowIf(!stream_->Reaches(position_ + 1), kQiroK7MErrorBadFragmentFile);
    box_ = ReadBoxExtent(*stream_, position_);
  }

 private:
  QiroK7MStream* stream_;
  uint64_t position_;
  BoxExtent box_;
};

}  // namespace

BoxExtent ReadBoxExtent(QiroK7MStream& stream, uint64_t begin) {
  std::array<uint8_t, kMinHeaderSize> bytes;
  stream.SeekTo(begin);
  stream.Read(bytes.data(), bytes.size());
  BoxExtent box;
  box.size = LoadBigEndian<uint32_t>(bytes.data());
  box.type = LoadBigEndian<uint32_t>(bytes.data() + 4);
  box.headerSize = kMinHeaderSize;
  if (box.size == 1) {
    box.size = stream.ReadDDWORD();
    box.headerSize += kLargeSizeFieldSize;
  } else if (box.size == 0) {
    box.size = stream.Length() - begin;
  }
  return box;
}

uint32_t MeasureFragment(QiroK7MStream& stream, uint64_t offset) {
  BoxSteps box(&stream, offset);
  ThrowIf(box.Type() != FragmentEntry::kAfraType, kQiroK7MErrorBadFragmentFile);
  box.StepOver();
  if (box.Type() == FragmentEntry::kAbstType) {
    box.StepOver();
  }
  ThrowIf(box.Type() != MoofBox::kType, kQiroK7MErrorBadFragmentFile);
  box.StepOver();
  ThrowIf(box.Type() != MdatBox::kType, kQiroK7MErrorBadFragmentFile);
  const uint64_t size = box.End() - offset;
  ThrowIf(size > 0xFFFFFFFF, kQiroK7MErrorBadFragmentFile);
  return static_cast<uint32_t>(size);
}

}  // namespace qiro::k7m::impl

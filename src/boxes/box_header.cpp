#include "boxes/box_header.h"

#include <algorithm>
#include <array>

#include "base/big_endian.h"

namespace qiro::k7m::impl {
namespace {

/// How a box that has an ordinary type ends when it is stored as a 'uuid' box: its type stands in
/// the first 4 bytes, these follow.
constexpr std::array<uint8_t, 12> kOrdinaryTypeTail = {0x00, 0x11, 0x00, 0x10, 0x80, 0x00,
                                                       0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

/// True when a header can stand at `position`; warns about 1 to 7 stray bytes before `end`.
bool HasRoomForHeader(const QiroK7MStream& stream, uint64_t position, uint64_t end) {
  const uint64_t rest = end > position ? end - position : 0;
  stream.RaiseWarningIf(rest > 0 && rest < kMinHeaderSize ? 1 : 0, kQiroK7MWarningPayloadLength);
  return rest >= kMinHeaderSize;
}

/// The length of the stream, measured again only when `offset` is not inside what is known of it.
uint64_t LengthBeyond(QiroK7MStream& stream, uint64_t offset) {
  return offset <= stream.CachedLength() ? stream.CachedLength() : stream.Length();
}

}  // namespace

BoxHeader::BoxHeader(const BoxHeader& other)
    : type_(other.type_),
      totalSize_(other.totalSize_),
      begin_(other.begin_),
      end_(other.end_),
      isExtendedSize_(other.isExtendedSize_),
      isTillEnd_(other.isTillEnd_),
      uuid_(other.uuid_ == nullptr ? nullptr : std::make_unique<QiroK7MUUID>(*other.uuid_)) {}

uint64_t BoxHeader::GetHeaderSize() const {
  return kMinHeaderSize + (isExtendedSize_ ? kLargeSizeFieldSize : 0) +
         (uuid_ != nullptr ? kExtendedTypeSize : 0);
}

void BoxHeader::SetBeginOffset(uint64_t begin) {
  begin_ = begin;
  end_ = begin + totalSize_;
}

void BoxHeader::SetTotalBoxSize(uint64_t size) {
  totalSize_ = size;
  end_ = begin_ + size;
}

void BoxHeader::SetUuid(const QiroK7MUUID& uuid) { uuid_ = std::make_unique<QiroK7MUUID>(uuid); }

void BoxHeader::ReadSizeAndType(QiroK7MStream& stream) {
  std::array<uint8_t, kMinHeaderSize> bytes;
  stream.Read(bytes.data(), bytes.size());
  totalSize_ = LoadBigEndian<uint32_t>(bytes.data());
  type_ = LoadBigEndian<uint32_t>(bytes.data() + 4);
  if (totalSize_ == 1) {
    isExtendedSize_ = true;
    totalSize_ = stream.ReadDDWORD();
  } else if (totalSize_ == 0) {
    isTillEnd_ = true;
  }
}

void BoxHeader::ReadExtendedType(QiroK7MStream& stream) {
  QiroK7MUUID uuid;
  stream.Read(uuid.data(), uuid.size());
  SetUuid(uuid);
  if (std::equal(kOrdinaryTypeTail.begin(), kOrdinaryTypeTail.end(), uuid.begin() + 4)) {
    type_ = LoadBigEndian<uint32_t>(uuid.data());
  }
}

void BoxHeader::CheckExtent(QiroK7MStream& stream, const BoxHeader* parent) {
  if (parent != nullptr && end_ > parent->end_) {
    stream.RaiseWarning(kQiroK7MWarningBoxPastParent);
    SetTotalBoxSize(parent->end_ > begin_ ? parent->end_ - begin_ : 0);
  }
  ThrowIf(totalSize_ < GetHeaderSize(), kQiroK7MErrorBoxTruncated);
  if (!stream.Reaches(end_)) {
    ThrowIf(type_ != FourCc("mdat"), kQiroK7MErrorBoxTruncated);
    stream.RaiseWarning(kQiroK7MWarningBoxPastEndOfStream);
  }
}

std::optional<BoxHeader> BoxHeader::Parse(QiroK7MStream& stream, const BoxHeader* parent) {
  BoxHeader header;
  const uint64_t begin = stream.Tell();
  if (!HasRoomForHeader(stream, begin, LengthBeyond(stream, begin + kMinHeaderSize))) {
    return std::nullopt;
  }
  header.ReadSizeAndType(stream);
  if (header.isTillEnd_) {
    header.totalSize_ = stream.Length() - begin;
  }
  header.SetBeginOffset(begin);
  if (header.end_ < begin) {
    return std::nullopt;
  }
  if (header.type_ == FourCc("uuid")) {
    header.ReadExtendedType(stream);
  }
  header.CheckExtent(stream, parent);
  return header;
}

std::optional<BoxHeader> BoxHeader::ParseForBox(QiroK7MStream& stream, uint32_t wanted,
                                                const BoxHeader* parent) {
  uint64_t position = parent != nullptr ? parent->begin_ : stream.Tell();
  const uint64_t end = parent != nullptr ? parent->end_ : stream.Length();
  while (HasRoomForHeader(stream, position, end)) {
    BoxHeader header;
    stream.SeekTo(position);
    header.ReadSizeAndType(stream);
    if (header.isTillEnd_) {
      header.totalSize_ = end - position;
    }
    header.SetBeginOffset(position);
    if (header.type_ == wanted || wanted == kAnyBoxType) {
      if (header.end_ < position) {
        return std::nullopt;
      }
      header.CheckExtent(stream, parent);
      return header;
    }
    ThrowIf(header.totalSize_ < header.GetHeaderSize(), kQiroK7MErrorBoxTruncated);
    if (header.end_ < position) {
      break;
    }
    position = header.end_;
  }
  stream.SeekTo(std::min(end, kMaxStreamOffset));
  return std::nullopt;
}

}  // namespace qiro::k7m::impl

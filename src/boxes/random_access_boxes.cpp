#include "boxes/random_access_boxes.h"

#include <vector>

#include "base/big_endian.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {
namespace {

/// All three numbers 4 bytes wide.
constexpr uint32_t kWrittenLengths = 63;
constexpr uint64_t kFixedSize = 12;
constexpr uint32_t kTrackIdMask = 0xFF;

}  // namespace

TfraBox::TfraBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, header, allocator), readEntries_(K7MAllocator<TfraEntry>(allocator)) {}

TfraBox::TfraBox(QiroK7MStream* stream, uint8_t version, uint32_t trackId,
                 const K7MVector<TfraEntry>& entries, const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, version, 0, allocator),
      trackId_(trackId),
      readEntries_(K7MAllocator<TfraEntry>(allocator)),
      writtenEntries_(&entries) {
  AccountForPayload();
}

void TfraBox::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(kFixedSize), kQiroK7MErrorBoxTruncated);
  trackId_ = Stream().ReadDWORD();
  const uint32_t lengths = Stream().ReadDWORD();
  const uint32_t count = Stream().ReadDWORD();
  const uint32_t trafWidth = (lengths & 0x11) + 1;
  const uint32_t trunWidth = ((lengths & 0x1100) >> 2) + 1;
  const uint32_t sampleWidth = ((lengths & 0x110000) >> 4) + 1;
  const bool isWide = GetVersion() == 1;
  const auto readTime = [&] { return isWide ? Stream().ReadDDWORD() : Stream().ReadDWORD(); };
  const auto requireWidth = [](uint32_t width) {
    ThrowIf(width > 4, kQiroK7MErrorInvalidArgument);
  };
  requireWidth(trafWidth);
  requireWidth(trunWidth);
  requireWidth(sampleWidth);
  const uint64_t entrySize = (isWide ? 16 : 8) + uint64_t{trafWidth} + trunWidth + sampleWidth;
  ThrowIf(!CanRead(entrySize * count), kQiroK7MErrorBoxTruncated);
  for (uint32_t i = 0; i < count; ++i) {
    TfraEntry entry;
    entry.time = readTime();
    entry.moofOffset = readTime();
    entry.trafNumber = Stream().ReadNByteNumber(trafWidth);
    entry.trunNumber = Stream().ReadNByteNumber(trunWidth);
    entry.sampleNumber = Stream().ReadNByteNumber(sampleWidth);
    readEntries_.push_back(entry);
  }
}

uint64_t TfraBox::WrittenEntrySize() const { return GetVersion() == 1 ? 28 : 20; }

void TfraBox::AccountForPayload() {
  FullBox::AccountForPayload();
  Grow(kFixedSize + WrittenEntrySize() * writtenEntries_->size());
}

void TfraBox::WriteExtensionBox() {
  std::vector<uint8_t> bytes(kFixedSize + WrittenEntrySize() * writtenEntries_->size());
  StoreWalk walk(bytes.data(), GetVersion() == 1);
  walk.U32("track_ID", trackId_ & kTrackIdMask);
  walk.U32("lengths", kWrittenLengths);
  walk.U32("number_of_entry", writtenEntries_->size());
  for (const TfraEntry& entry : *writtenEntries_) {
    walk.Versioned("time", entry.time);
    walk.Versioned("moof_offset", entry.moofOffset);
    walk.U32("traf_number", entry.trafNumber);
    walk.U32("trun_number", entry.trunNumber);
    walk.U32("sample_number", entry.sampleNumber);
  }
  Stream().WriteBYTES(bytes.data(), bytes.size());
}

MfroBox::MfroBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, 0, 0, allocator) {
  AccountForPayload();
  Grow(sizeof(size_));
}

std::span<const MandatoryBox> MfraBox::GetMandatoryBoxes() const {
  static constexpr MandatoryBox kRules[] = {{MfroBox::kType, Occurrence::kExactlyOnce, {}}};
  return kRules;
}

void MfraBox::Finish() {
  auto mfro = MakeBox<MfroBox>(GetAllocator(), &Stream());
  const uint64_t size = GetTotalSize() + mfro->GetTotalSize();
  ThrowIf(size > 0xFFFFFFFF, kQiroK7MErrorStdException);
  mfro->SetSize(static_cast<uint32_t>(size));
  AddChildBox(std::move(mfro));
}

}  // namespace qiro::k7m::impl

#include "query/fragment_index.h"

#include <array>

#include "base/big_endian.h"
#include "query/fragment_entry.h"
#include "query/fragment_extent.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint64_t kVersionAndFlagsSize = 4;
// Behind version and flags: one byte of layout flags, the time scale, the number of local entries.
constexpr uint64_t kFieldsSize = 9;
constexpr uint64_t kLocalEntryCountPosition = 5;
constexpr uint64_t kGlobalEntryCountSize = 4;
constexpr uint64_t kTimeSize = 8;
constexpr uint64_t kMaxIdSize = 4;
constexpr uint64_t kMaxOffsetSize = 8;

constexpr uint8_t kHasLongIds = 0x80;
constexpr uint8_t kHasLongOffsets = 0x40;
constexpr uint8_t kHasGlobalEntries = 0x20;

/// A number of 2, 4 or 8 bytes.
uint64_t LoadNumber(const uint8_t* bytes, uint64_t size) {
  switch (size) {
    case 2:
      return LoadBigEndian<uint16_t>(bytes);
    case 4:
      return LoadBigEndian<uint32_t>(bytes);
    default:
      return LoadBigEndian<uint64_t>(bytes);
  }
}

/// Error 26 for an offset of all one bits.
uint64_t AvailableOffset(const IndexLayout& layout, uint64_t offset) {
  const uint64_t allOnes = layout.offsetSize == 8 ? ~uint64_t{0} : 0xFFFFFFFF;
  ThrowIf(offset == allOnes, kQiroK7MErrorFragmentNotAvailable);
  return offset;
}

}  // namespace

FragmentIndex::FragmentIndex(std::unique_ptr<QiroK7MStream> stream) : stream_(std::move(stream)) {
  const uint64_t length = stream_.Get()->Length();
  ThrowIf(length < kMinHeaderSize + kVersionAndFlagsSize + kFieldsSize,
          kQiroK7MErrorBadFragmentIndex);
  const BoxExtent box = ReadBoxExtent(*stream_.Get(), 0);
  fieldsBegin_ = box.headerSize + kVersionAndFlagsSize;
  ThrowIf(box.type != FragmentEntry::kAfraType || box.size != length ||
              length < fieldsBegin_ + kFieldsSize,
          kQiroK7MErrorBadFragmentIndex);
}

IndexLayout FragmentIndex::ReadLayout() {
  std::array<uint8_t, kFieldsSize> fields;
  ReadAt(fieldsBegin_, fields.data(), fields.size());
  IndexLayout layout;
  layout.idSize = (fields[0] & kHasLongIds) != 0 ? 4 : 2;
  layout.offsetSize = (fields[0] & kHasLongOffsets) != 0 ? 8 : 4;
  layout.hasGlobalEntries = (fields[0] & kHasGlobalEntries) != 0;
  layout.localEntryCount = LoadBigEndian<uint32_t>(fields.data() + kLocalEntryCountPosition);
  return layout;
}

uint64_t FragmentIndex::FindLocal(const IndexLayout& layout, uint32_t fragmentNumber) {
  ThrowIf(fragmentNumber > layout.localEntryCount, kQiroK7MErrorFragmentNotFound);
  const uint64_t entrySize = kTimeSize + layout.offsetSize;
  std::array<uint8_t, kMaxOffsetSize> bytes;
  ReadAt(fieldsBegin_ + kFieldsSize + (fragmentNumber - uint64_t{1}) * entrySize + kTimeSize,
         bytes.data(), layout.offsetSize);
  return AvailableOffset(layout, LoadNumber(bytes.data(), layout.offsetSize));
}

std::optional<uint64_t> FragmentIndex::FindGlobal(const IndexLayout& layout,
                                                  uint32_t fragmentNumber, uint32_t segmentNumber) {
  std::array<uint8_t, kGlobalEntryCountSize> count;
  ReadAt(fieldsBegin_ + kFieldsSize, count.data(), count.size());
  ThrowIf(LoadNumber(count.data(), count.size()) == 0, kQiroK7MErrorFragmentNotFound);
  GlobalEntry entry = ReadGlobalEntry(layout, 0);
  ThrowIf(fragmentNumber < entry.fragmentNumber, kQiroK7MErrorFragmentNotFound);
  if (fragmentNumber != entry.fragmentNumber) {
    entry = ReadGlobalEntry(layout, fragmentNumber - entry.fragmentNumber);
  }
  if (entry.fragmentNumber != fragmentNumber || entry.segmentNumber != segmentNumber) {
    return std::nullopt;
  }
  return AvailableOffset(layout, entry.afraOffset);
}

FragmentIndex::GlobalEntry FragmentIndex::ReadGlobalEntry(const IndexLayout& layout,
                                                          uint64_t index) {
  const uint64_t ids = kTimeSize;
  const uint64_t offsets = ids + 2 * layout.idSize;
  const uint64_t entrySize = offsets + 2 * layout.offsetSize;
  std::array<uint8_t, kTimeSize + 2 * kMaxIdSize + kMaxOffsetSize> bytes;
  ReadAt(fieldsBegin_ + kFieldsSize + kGlobalEntryCountSize + index * entrySize, bytes.data(),
         offsets + layout.offsetSize);
  return {LoadNumber(&bytes[ids], layout.idSize),
          LoadNumber(&bytes[ids + layout.idSize], layout.idSize),
          LoadNumber(&bytes[offsets], layout.offsetSize)};
}

void FragmentIndex::ReadAt(uint64_t position, uint8_t* bytes, uint64_t size) {
  QiroK7MStream& stream = *stream_.Get();
  ThrowIf(!stream.Reaches(position + size), kQiroK7MErrorReadFailed);
  stream.SeekTo(position);
  stream.Read(bytes, size);
}

}  // namespace qiro::k7m::impl

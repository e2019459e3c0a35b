#include "boxes/edit_boxes.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>

#include "base/big_endian.h"
#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint64_t kEntryCountSize = sizeof(uint32_t);

K7MEditListEntry DecodeEntry(const uint8_t* bytes, bool isWide, uint64_t startTime) {
  K7MEditListEntry entry;
  entry.startTime = startTime;
  if (isWide) {
    entry.segmentDuration = LoadBigEndian<uint64_t>(bytes);
    entry.mediaTime = static_cast<int64_t>(LoadBigEndian<uint64_t>(bytes + 8));
    bytes += 16;
  } else {
    entry.segmentDuration = LoadBigEndian<uint32_t>(bytes);
    entry.mediaTime = static_cast<int32_t>(LoadBigEndian<uint32_t>(bytes + 4));
    bytes += 8;
  }
  entry.mediaRateInteger = static_cast<int16_t>(LoadBigEndian<uint16_t>(bytes));
  entry.mediaRateFraction = static_cast<int16_t>(LoadBigEndian<uint16_t>(bytes + 2));
  return entry;
}

/// Numbers that do not fit version 0 are written as the largest that does.
void EncodeEntry(const K7MEditListEntry& entry, bool isWide, uint8_t* bytes) {
  if (isWide) {
    StoreBigEndian(bytes, entry.segmentDuration);
    StoreBigEndian(bytes + 8, static_cast<uint64_t>(entry.mediaTime));
    bytes += 16;
  } else {
    StoreBigEndian(bytes,
                   static_cast<uint32_t>(std::min<uint64_t>(entry.segmentDuration, 0xFFFFFFFF)));
    StoreBigEndian(bytes + 4, static_cast<uint32_t>(std::clamp<int64_t>(
                                  entry.mediaTime, std::numeric_limits<int32_t>::min(),
                                  std::numeric_limits<int32_t>::max())));
    bytes += 8;
  }
  StoreBigEndian(bytes, static_cast<uint16_t>(entry.mediaRateInteger));
  StoreBigEndian(bytes + 2, static_cast<uint16_t>(entry.mediaRateFraction));
}

}  // namespace

ElstBox::ElstBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, header, allocator), entries_(K7MAllocator<K7MEditListEntry>(allocator)) {
  ReadCommonPayloadData();
  const uint64_t left = BytesLeft();
  ThrowIf(left < kEntryCountSize, kQiroK7MErrorBoxTruncated);
  const uint64_t room = left - kEntryCountSize;
  if (room % 4 != 0) {
    stream->RaiseWarning(kQiroK7MWarningPayloadLength);
  } else {
    capacity_ = room / EntrySize();
  }
}

void ElstBox::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(kEntryCountSize), kQiroK7MErrorBoxTruncated);
  const uint32_t count = Stream().ReadDWORD();
  ThrowIf(count > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
  ThrowIf(!CanRead(count * EntrySize()), kQiroK7MErrorBoxTruncated);
  uint64_t startTime = 0;
  const bool isWide = GetVersion() == 1;
  ReadTableInto(Stream(), entries_, count, EntrySize(), [&](const uint8_t* bytes) {
    const K7MEditListEntry entry = DecodeEntry(bytes, isWide, startTime);
    startTime += entry.segmentDuration;
    return entry;
  });
}

ElstBox::ElstBox(QiroK7MStream* stream, uint8_t version, uint32_t reserveCount,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, version, 0, allocator),
      entries_(K7MAllocator<K7MEditListEntry>(allocator)),
      capacity_(uint64_t{reserveCount} * 2 + 1) {
  ThrowIf(capacity_ > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
  Grow(kVersionAndFlagsSize + kEntryCountSize + capacity_ * EntrySize());
}

void ElstBox::WriteExtensionBox() {
  constexpr size_t kEntriesPerWrite = 256;
  const bool isWide = GetVersion() == 1;
  std::array<uint8_t, kEntriesPerWrite * kPayloadSizeV1> bytes;
  SeekTo(GetBeginOffset() + GetBoxHeader().GetHeaderSize() + kVersionAndFlagsSize);
  Stream().WriteDWORD(static_cast<uint32_t>(entries_.size()));
  // Entries may have been read from a box whose room is no whole number of them.
  const uint64_t count = std::max<uint64_t>(capacity_, entries_.size());
  for (uint64_t i = 0; i < count;) {
    const uint64_t end = std::min<uint64_t>(i + kEntriesPerWrite, count);
    uint8_t* next = bytes.data();
    for (; i < end; ++i, next += EntrySize()) {
      if (i < entries_.size()) {
        EncodeEntry(entries_[i], isWide, next);
      } else {
        std::fill_n(next, EntrySize(), uint8_t{0});
      }
    }
    Stream().WriteBYTES(bytes.data(), static_cast<uint64_t>(next - bytes.data()));
  }
}

void ElstBox::AddElstEntry(uint64_t segmentDuration, int64_t mediaTime, uint32_t rate) {
  ThrowIf(entries_.size() >= capacity_, kQiroK7MErrorEditListFull);
  const uint64_t startTime =
      entries_.empty() ? 0 : entries_.back().startTime + entries_.back().segmentDuration;
  entries_.push_back(
      {segmentDuration, mediaTime, static_cast<int16_t>(rate != 0 ? 1 : 0), 0, startTime});
}

void ElstBox::UpdateLastElstEntry(uint64_t segmentDuration) {
  if (!entries_.empty()) {
    entries_.back().segmentDuration = segmentDuration;
  }
}

void ElstBox::DeleteLastElstEntry() {
  if (!entries_.empty()) {
    entries_.pop_back();
  }
}

void ElstBox::Describe(FieldSink& sink) {
  DescribeTable(sink, "entries", entries_, [&sink](const K7MEditListEntry& entry) {
    sink.Number("segment_duration", entry.segmentDuration);
    sink.SignedNumber("media_time", entry.mediaTime);
    sink.SignedNumber("media_rate_integer", entry.mediaRateInteger);
    sink.SignedNumber("media_rate_fraction", entry.mediaRateFraction);
  });
}

uint64_t ElstBox::GetGapsDuration() const {
  return std::accumulate(entries_.begin(), entries_.end(), uint64_t{0},
                         [](uint64_t sum, const K7MEditListEntry& entry) {
                           return sum + (entry.IsGap() ? entry.segmentDuration : 0);
                         });
}

uint32_t ElstBox::GetGapsCount() const {
  return static_cast<uint32_t>(
      std::count_if(entries_.begin(), entries_.end(),
                    [](const K7MEditListEntry& entry) { return entry.IsGap(); }));
}

int64_t ElstBox::GetLastEntryMediaTime() const {
  return entries_.empty() ? 0 : entries_.back().mediaTime;
}

uint64_t ElstBox::GetLastSegStartTime() const {
  return entries_.empty() ? 0 : entries_.back().startTime;
}

ElstIterator ElstBox::GetElstIterator(uint64_t begin, uint64_t end) const {
  // Start times that wrap past 64 bits are not in order; the search then still ends inside the
  // list.
  const auto firstAfter = [this](uint64_t time) {
    K7MEditListEntry wanted;
    wanted.startTime = time;
    return std::partition_point(
        entries_.begin(), entries_.end(),
        [&](const K7MEditListEntry& entry) { return CompareElstEntry(entry, wanted); });
  };
  if (entries_.empty()) {
    return {};
  }
  // The first entry starts at 0, so that an entry at or before any time exists.
  const auto first = std::prev(std::max(firstAfter(begin), entries_.begin() + 1));
  const auto last = std::max(firstAfter(end), entries_.begin() + 1);
  const auto* const entries = entries_.data();
  const auto firstIndex = first - entries_.begin();
  return {entries + firstIndex, entries + std::max(last - entries_.begin(), firstIndex)};
}

EdtsBox::EdtsBox(QiroK7MStream* stream, uint32_t reserveCount,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator) {
  EdtsBox::AddChildBox(MakeBox<ElstBox>(allocator, stream, uint8_t{0}, reserveCount));
}

void EdtsBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == ElstBox::kType) {
    elst_ = static_cast<ElstBox*>(box);
  }
}

}  // namespace qiro::k7m::impl

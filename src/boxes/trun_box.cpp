#include "boxes/trun_box.h"

#include <algorithm>
#include <vector>

#include "base/big_endian.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

TrunBox::TrunBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, header, allocator),
      records_(K7MAllocator<uint32_t>(allocator)),
      places_(K7MAllocator<Place>(allocator)) {}

TrunBox::TrunBox(QiroK7MStream* stream, uint64_t base, uint64_t dataStart, uint64_t startTime,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, 0,
              kDataOffsetPresent | kDurationPresent | kSizePresent | kFlagsPresent |
                  kCompositionOffsetPresent,
              allocator),
      base_(base),
      dataStart_(dataStart),
      startTime_(startTime),
      recordLength_(4),
      durationSlot_(0),
      sizeSlot_(1),
      flagsSlot_(2),
      compositionSlot_(3),
      records_(K7MAllocator<uint32_t>(allocator)),
      places_(K7MAllocator<Place>(allocator)) {}

void TrunBox::AddSample(const SampleInfoTrun& sample) {
  ReserveMore(records_, recordLength_);
  records_.insert(records_.end(),
                  {sample.duration, sample.size, sample.flags, sample.compositionOffset});
  totalDuration_ += sample.duration;
  totalSize_ += sample.size;
  ++sampleCount_;
}

void TrunBox::UpdateLastSample(uint32_t duration) {
  uint32_t& stored = records_[size_t{sampleCount_ - 1} * recordLength_ + durationSlot_];
  totalDuration_ += uint64_t{duration} - stored;
  stored = duration;
}

uint64_t TrunBox::GetTrunSize(uint32_t flags, uint32_t sampleCount) {
  uint64_t size = sizeof(sampleCount);
  for (const uint32_t flag : {kDataOffsetPresent, kFirstSampleFlagsPresent}) {
    size += (flags & flag) != 0 ? sizeof(uint32_t) : 0;
  }
  for (const uint32_t flag :
       {kDurationPresent, kSizePresent, kFlagsPresent, kCompositionOffsetPresent}) {
    size += (flags & flag) != 0 ? sizeof(uint32_t) * uint64_t{sampleCount} : 0;
  }
  return size;
}

void TrunBox::AccountForPayload() {
  FullBox::AccountForPayload();
  Grow(GetTrunSize(GetFlags(), sampleCount_));
}

void TrunBox::WriteExtensionBox() {
  const auto dataOffset = static_cast<int64_t>(dataStart_ - base_);
  ThrowIf(dataOffset != static_cast<int32_t>(dataOffset), kQiroK7MErrorStdException);
  std::vector<uint8_t> bytes(GetTrunSize(GetFlags(), sampleCount_));
  uint8_t* next = bytes.data();
  const auto store = [&next](uint32_t value) {
    StoreBigEndian(next, value);
    next += sizeof(value);
  };
  store(sampleCount_);
  store(static_cast<uint32_t>(dataOffset));
  for (const uint32_t field : records_) {
    store(field);
  }
  Stream().WriteBYTES(bytes.data(), bytes.size());
}

uint64_t TrunBox::LastSampleDurationOffset() const {
  const uint64_t recordsOffset = GetHeaderSize() + GetTrunSize(GetFlags(), 0);
  return GetBeginOffset() + recordsOffset +
         uint64_t{sampleCount_ - 1} * recordLength_ * sizeof(uint32_t);
}

void TrunBox::SetContext(uint64_t base, uint64_t dataStart, const SampleDefaults& defaults) {
  base_ = base;
  dataStart_ = dataStart;
  defaults_ = defaults;
}

void TrunBox::ReadExtensionPayloadData() {
  const bool hasDataOffset = (GetFlags() & kDataOffsetPresent) != 0;
  const bool hasFirstFlags = (GetFlags() & kFirstSampleFlagsPresent) != 0;
  ThrowIf(!CanRead(4 + (hasDataOffset ? 4 : 0) + (hasFirstFlags ? 4 : 0)),
          kQiroK7MErrorBoxTruncated);
  sampleCount_ = Stream().ReadDWORD();
  if (hasDataOffset) {
    dataOffset_ = static_cast<int32_t>(Stream().ReadDWORD());
    dataStart_ = base_ + static_cast<uint64_t>(int64_t{dataOffset_});
  }
  firstSampleFlags_ = hasFirstFlags ? Stream().ReadDWORD() : defaults_.flags;
  ReadRecords();
}

void TrunBox::ReadRecords() {
  const auto slotIf = [this](uint32_t flag) {
    return (GetFlags() & flag) != 0 ? recordLength_++ : kAbsent;
  };
  durationSlot_ = slotIf(kDurationPresent);
  sizeSlot_ = slotIf(kSizePresent);
  flagsSlot_ = slotIf(kFlagsPresent);
  compositionSlot_ = slotIf(kCompositionOffsetPresent);
  if (recordLength_ == 0) {
    totalDuration_ = uint64_t{defaults_.duration} * sampleCount_;
    totalSize_ = uint64_t{defaults_.size} * sampleCount_;
    return;
  }
  const uint32_t fieldCount = recordLength_ * sampleCount_;  // Wraps in 32 bits.
  ThrowIf(sampleCount_ > fieldCount, kQiroK7MErrorTrunSampleCount);
  // Deliberately asks for one byte a field, not four: records that the box does not hold are read
  // from whatever follows it.
  ThrowIf(!CanRead(fieldCount), kQiroK7MErrorBoxTruncated);
  ReadTable(
      Stream(), sampleCount_, recordLength_ * sizeof(uint32_t),
      [this](uint64_t more) { ReserveMore(records_, more * recordLength_); },
      [this](const uint8_t* bytes, uint64_t count) { TakeRecords(bytes, count); });
}

void TrunBox::TakeRecords(const uint8_t* bytes, uint64_t count) {
  auto index = static_cast<uint32_t>(records_.size() / recordLength_);
  for (uint64_t i = 0; i < count * recordLength_; ++i) {
    records_.push_back(LoadBigEndian<uint32_t>(bytes + i * sizeof(uint32_t)));
  }
  for (uint64_t i = 0; i < count; ++i, ++index) {
    if (index % kStretch == 0 && index != 0) {
      places_.push_back({totalDuration_, totalSize_});
    }
    totalDuration_ += DurationOf(index);
    totalSize_ += SizeOf(index);
  }
}

void TrunBox::Describe(FieldSink& sink) {
  sink.Number("sample_count", sampleCount_);
  if ((GetFlags() & kDataOffsetPresent) != 0) {
    sink.SignedNumber("data_offset", dataOffset_);
  }
  if ((GetFlags() & kFirstSampleFlagsPresent) != 0) {
    sink.Number("first_sample_flags", firstSampleFlags_);
  }
  const uint64_t wanted = sink.BeginTable("samples", recordLength_ == 0 ? 0 : sampleCount_);
  for (uint32_t i = 0; recordLength_ != 0 && i < sampleCount_ && i < wanted; ++i) {
    sink.BeginEntry();
    const auto describe = [&](uint32_t slot, const char* name) {
      if (slot != kAbsent) {
        sink.Number(name, FieldOf(slot, i));
      }
    };
    describe(durationSlot_, "sample_duration");
    describe(sizeSlot_, "sample_size");
    describe(flagsSlot_, "sample_flags");
    if (compositionSlot_ != kAbsent) {
      sink.SignedNumber("sample_composition_time_offset",
                        static_cast<int32_t>(FieldOf(compositionSlot_, i)));
    }
    sink.EndEntry();
  }
  sink.EndTable();
}

uint32_t TrunBox::FlagsOf(uint32_t index) const {
  if (flagsSlot_ != kAbsent) {
    return FieldOf(flagsSlot_, index);
  }
  return index == 0 ? firstSampleFlags_ : defaults_.flags;
}

SampleInfoTrun TrunBox::At(uint32_t index, const Place& place) const {
  return {startTime_ + place.time,
          DurationOf(index),
          SizeOf(index),
          FlagsOf(index),
          compositionSlot_ == kAbsent ? 0 : FieldOf(compositionSlot_, index),
          dataStart_ + place.offset};
}

TrunBox::Place TrunBox::PlaceOf(uint32_t index) const {
  if (durationSlot_ == kAbsent && sizeSlot_ == kAbsent) {
    return {uint64_t{defaults_.duration} * index, uint64_t{defaults_.size} * index};
  }
  Place place = StretchStart(index / kStretch);
  for (uint32_t i = index - index % kStretch; i < index; ++i) {
    place.time += DurationOf(i);
    place.offset += SizeOf(i);
  }
  return place;
}

SampleInfoTrun TrunBox::GetSample(uint32_t index) const { return At(index, PlaceOf(index)); }

SampleInfoTrun TrunBox::GetNext(const SampleInfoTrun& sample, uint32_t index) const {
  return At(index + 1, {sample.timeStamp - startTime_ + sample.duration,
                        sample.dataOffset - dataStart_ + sample.size});
}

std::optional<uint32_t> TrunBox::FindFirstAtOrAfter(uint64_t time) const {
  if (sampleCount_ == 0 || LastTimeStamp() < time) {
    return std::nullopt;
  }
  if (startTime_ >= time) {
    return 0;
  }
  const uint64_t wanted = time - startTime_;
  if (durationSlot_ == kAbsent) {
    // The last sample is at or after the time and the first is not: the duration is not 0.
    return static_cast<uint32_t>((wanted + defaults_.duration - 1) / defaults_.duration);
  }
  const auto after = std::partition_point(places_.begin(), places_.end(),
                                          [wanted](const Place& p) { return p.time < wanted; });
  const auto stretch = static_cast<uint32_t>(after - places_.begin());
  uint32_t index = stretch * kStretch;
  for (uint64_t at = StretchStart(stretch).time; at < wanted; ++index) {
    at += DurationOf(index);
  }
  return index;
}

}  // namespace qiro::k7m::impl

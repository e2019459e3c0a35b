#include "boxes/trun_box.h"

#include <array>
#include <vector>

#include "base/big_endian.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {
namespace {

/// Of a run that is written.
constexpr RunHeader kAllFields = {
    .flags = RunHeader::kDataOffsetPresent | RunHeader::kDurationPresent | RunHeader::kSizePresent |
             RunHeader::kFlagsPresent | RunHeader::kCompositionOffsetPresent};

}  // namespace

TrunBox::TrunBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, header, allocator), records_(GetAllocator()), places_(GetAllocator()) {}

TrunBox::TrunBox(QiroK7MStream* stream, uint64_t base, uint64_t dataStart, uint64_t startTime,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, 0, kAllFields.flags, allocator),
      TrackRun(kAllFields, dataStart, dataStart, SampleDefaults{}),
      base_(base),
      header_(kAllFields),
      records_(GetAllocator()),
      places_(GetAllocator()) {
  UpdateSampleTimeStamps(startTime);
}

void TrunBox::AddSample(const SampleInfoTrun& sample) {
  const std::array fields = {sample.duration, sample.size, sample.flags, sample.compositionOffset};
  std::copy(fields.begin(), fields.end(), records_.MakeRoom(fields.size()));
  records_.Take(fields.size());
  Count(sample, records_.data());
}

void TrunBox::UpdateLastSample(uint32_t duration) {
  uint32_t& stored = records_[records_.size() - header_.RecordLength()];
  Lengthen(uint64_t{duration} - stored);
  stored = duration;
}

uint64_t TrunBox::GetTrunSize(uint32_t flags, uint32_t sampleCount) {
  const RunHeader header = {.flags = flags};
  return header.FieldsSize() + sizeof(uint32_t) * uint64_t{header.RecordLength()} * sampleCount;
}

void TrunBox::AccountForPayload() {
  FullBox::AccountForPayload();
  Grow(GetTrunSize(GetFlags(), GetSampleCount()));
}

void TrunBox::WriteExtensionBox() {
  const auto dataOffset = static_cast<int64_t>(DataStart() - base_);
  ThrowIf(dataOffset != static_cast<int32_t>(dataOffset), kQiroK7MErrorStdException);
  std::vector<uint8_t> bytes(GetTrunSize(GetFlags(), GetSampleCount()));
  uint8_t* next = bytes.data();
  const auto store = [&next](uint32_t value) {
    StoreBigEndian(next, value);
    next += sizeof(value);
  };
  store(GetSampleCount());
  store(static_cast<uint32_t>(dataOffset));
  for (const uint32_t field : records_) {
    store(field);
  }
  Stream().WriteBYTES(bytes.data(), bytes.size());
}

uint64_t TrunBox::LastSampleDurationOffset() const {
  const uint64_t recordsOffset = GetHeaderSize() + GetTrunSize(GetFlags(), 0);
  return GetBeginOffset() + recordsOffset +
         uint64_t{GetSampleCount() - 1} * header_.RecordLength() * sizeof(uint32_t);
}

void TrunBox::SetContext(uint64_t base, uint64_t dataStart, const SampleDefaults& defaults) {
  base_ = base;
  defaultDataStart_ = dataStart;
  sampleDefaults_ = defaults;
}

void TrunBox::ReadExtensionPayloadData() {
  header_.flags = GetFlags();
  ThrowIf(!CanRead(header_.FieldsSize()), kQiroK7MErrorBoxTruncated);
  header_.ReadFields(Stream());
  TrackRun& run = *this;
  run = TrackRun(header_, base_, defaultDataStart_, sampleDefaults_);
  ReadRecords();
}

void TrunBox::ReadRecords() {
  const uint32_t recordLength = header_.RecordLength();
  if (recordLength == 0) {
    return;
  }
  const uint32_t sampleCount = header_.sampleCount;
  const uint32_t fieldCount = recordLength * sampleCount;  // Wraps in 32 bits.
  ThrowIf(sampleCount > fieldCount, kQiroK7MErrorTrunSampleCount);
  // Deliberately asks for one byte a field, not four: records that the box does not hold are read
  // from whatever follows it.
  ThrowIf(!CanRead(fieldCount), kQiroK7MErrorBoxTruncated);
  impl::ReadRecords(Stream(), records_, uint64_t{recordLength} * sampleCount, sizeof(uint32_t),
                    [](const uint8_t* bytes) { return LoadBigEndian<uint32_t>(bytes); });
  const uint64_t placeCount = PlaceCount(header_);
  SetRecords(records_.data(), places_.MakeRoom(placeCount));
  places_.Take(placeCount);
}

void TrunBox::Describe(FieldSink& sink) {
  sink.Number("sample_count", GetSampleCount());
  if (header_.Has(RunHeader::kDataOffsetPresent)) {
    sink.SignedNumber("data_offset", header_.dataOffset);
  }
  if (header_.Has(RunHeader::kFirstSampleFlagsPresent)) {
    sink.Number("first_sample_flags", header_.firstSampleFlags);
  }
  const uint32_t recordLength = header_.RecordLength();
  const uint64_t wanted = sink.BeginTable("samples", recordLength == 0 ? 0 : GetSampleCount());
  for (uint32_t i = 0; recordLength != 0 && i < GetSampleCount() && i < wanted; ++i) {
    sink.BeginEntry();
    const uint32_t* field = records_.data() + size_t{i} * recordLength;
    const auto describeIf = [&](uint32_t flag, const char* name) {
      if (header_.Has(flag)) {
        sink.Number(name, *field++);
      }
    };
    describeIf(RunHeader::kDurationPresent, "sample_duration");
    describeIf(RunHeader::kSizePresent, "sample_size");
    describeIf(RunHeader::kFlagsPresent, "sample_flags");
    if (header_.Has(RunHeader::kCompositionOffsetPresent)) {
      sink.SignedNumber("sample_composition_time_offset", static_cast<int32_t>(*field));
    }
    sink.EndEntry();
  }
  sink.EndTable();
}

}  // namespace qiro::k7m::impl

#include "boxes/tfhd_box.h"

namespace qiro::k7m::impl {

using Fields = TrackFragmentHeader;

TfhdBox::TfhdBox(QiroK7MStream* stream, uint32_t trackId, uint64_t baseDataOffset,
                 uint32_t descriptionIndex, const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, 0, Fields::kBaseDataOffsetPresent | Fields::kDescriptionIndexPresent,
              allocator),
      fields_{.flags = GetFlags(),
              .trackId = trackId,
              .baseDataOffset = baseDataOffset,
              .descriptionIndex = descriptionIndex} {
  AccountForPayload();
}

void TfhdBox::AccountForPayload() {
  FullBox::AccountForPayload();
  Grow(fields_.FieldsSize());
}

void TfhdBox::WriteExtensionBox() {
  constexpr uint32_t kPlaceholder = 1;
  Stream().WriteDWORD(fields_.trackId);
  if (fields_.Has(Fields::kBaseDataOffsetPresent)) {
    Stream().WriteDDWORD(fields_.baseDataOffset);
  }
  if (fields_.Has(Fields::kDescriptionIndexPresent)) {
    Stream().WriteDWORD(fields_.descriptionIndex);
  }
  // The defaults are deliberately placeholders: runs that are written carry their own values.
  for (const uint32_t flag :
       {Fields::kDurationPresent, Fields::kSizePresent, Fields::kFlagsPresent}) {
    if (fields_.Has(flag)) {
      Stream().WriteDWORD(kPlaceholder);
    }
  }
}

void TfhdBox::ReadExtensionPayloadData() {
  fields_.flags = GetFlags();
  fields_.ReadFields(Stream());
}

void TfhdBox::Describe(FieldSink& sink) {
  const auto describeIf = [&](uint32_t flag, const char* name, uint64_t value) {
    if (fields_.Has(flag)) {
      sink.Number(name, value);
    }
  };
  sink.Number("track_ID", fields_.trackId);
  describeIf(Fields::kBaseDataOffsetPresent, "base_data_offset", fields_.baseDataOffset);
  describeIf(Fields::kDescriptionIndexPresent, "sample_description_index",
             fields_.descriptionIndex);
  describeIf(Fields::kDurationPresent, "default_sample_duration", fields_.defaults.duration);
  describeIf(Fields::kSizePresent, "default_sample_size", fields_.defaults.size);
  describeIf(Fields::kFlagsPresent, "default_sample_flags", fields_.defaults.flags);
}

void TrackFragmentHeader::ApplyDefaults(const TrexBox& trex) {
  const auto take = [](uint32_t& field, uint32_t value) {
    if (field == kNotGiven) {
      field = value;
    }
  };
  take(descriptionIndex, trex.GetSDId());
  take(defaults.duration, trex.GetSampleDuration());
  take(defaults.size, trex.GetSampleSize());
  take(defaults.flags, trex.GetSampleFlags());
}

}  // namespace qiro::k7m::impl

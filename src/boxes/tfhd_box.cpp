#include "boxes/tfhd_box.h"

namespace qiro::k7m::impl {

TfhdBox::TfhdBox(QiroK7MStream* stream, uint32_t trackId, uint64_t baseDataOffset,
                 uint32_t descriptionIndex, const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, 0, kBaseDataOffsetPresent | kDescriptionIndexPresent, allocator),
      trackId_(trackId),
      baseDataOffset_(baseDataOffset),
      descriptionIndex_(descriptionIndex) {
  AccountForPayload();
}

void TfhdBox::AccountForPayload() {
  FullBox::AccountForPayload();
  Grow(sizeof(trackId_));
  Grow(HasMdatOffset() ? sizeof(baseDataOffset_) : 0);
  for (const uint32_t flag :
       {kDescriptionIndexPresent, kDurationPresent, kSizePresent, kFlagsPresent}) {
    Grow((GetFlags() & flag) != 0 ? sizeof(uint32_t) : 0);
  }
}

void TfhdBox::WriteExtensionBox() {
  constexpr uint32_t kPlaceholder = 1;
  Stream().WriteDWORD(trackId_);
  if (HasMdatOffset()) {
    Stream().WriteDDWORD(baseDataOffset_);
  }
  if ((GetFlags() & kDescriptionIndexPresent) != 0) {
    Stream().WriteDWORD(descriptionIndex_);
  }
  // The defaults are deliberately placeholders: runs that are written carry their own values.
  for (const uint32_t flag : {kDurationPresent, kSizePresent, kFlagsPresent}) {
    if ((GetFlags() & flag) != 0) {
      Stream().WriteDWORD(kPlaceholder);
    }
  }
}

void TfhdBox::ReadExtensionPayloadData() {
  const auto readIf = [this](uint32_t flag, uint32_t& field) {
    if ((GetFlags() & flag) != 0) {
      field = Stream().ReadDWORD();
    }
  };
  trackId_ = Stream().ReadDWORD();
  if (HasMdatOffset()) {
    baseDataOffset_ = Stream().ReadDDWORD();
  }
  readIf(kDescriptionIndexPresent, descriptionIndex_);
  readIf(kDurationPresent, defaults_.duration);
  readIf(kSizePresent, defaults_.size);
  readIf(kFlagsPresent, defaults_.flags);
}

void TfhdBox::Describe(FieldSink& sink) {
  const auto describeIf = [&](uint32_t flag, const char* name, uint64_t value) {
    if ((GetFlags() & flag) != 0) {
      sink.Number(name, value);
    }
  };
  sink.Number("track_ID", trackId_);
  describeIf(kBaseDataOffsetPresent, "base_data_offset", baseDataOffset_);
  describeIf(kDescriptionIndexPresent, "sample_description_index", descriptionIndex_);
  describeIf(kDurationPresent, "default_sample_duration", defaults_.duration);
  describeIf(kSizePresent, "default_sample_size", defaults_.size);
  describeIf(kFlagsPresent, "default_sample_flags", defaults_.flags);
}

void TfhdBox::ApplyDefaults(const TrexBox& trex) {
  const auto take = [](uint32_t& field, uint32_t value) {
    if (field == kNotGiven) {
      field = value;
    }
  };
  take(descriptionIndex_, trex.GetSDId());
  take(defaults_.duration, trex.GetSampleDuration());
  take(defaults_.size, trex.GetSampleSize());
  take(defaults_.flags, trex.GetSampleFlags());
}

}  // namespace qiro::k7m::impl

#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "k7m/track.h"

namespace qiro::k7m::impl {

/// How some of a track's samples are coded: the fields that the library interprets, and the codec
/// header, the rest of the sample entry, as opaque bytes. Lives on the ordinary heap.
class SampleDescriptor {
 public:
  SampleDescriptor(uint32_t type, std::vector<uint8_t> codecHeader)
      : codecHeader_(std::move(codecHeader)) {
    info_.type = type;
    info_.codecHeaderDataLength = static_cast<uint32_t>(codecHeader_.size());
  }
  SampleDescriptor(const SampleDescriptor&) = default;
  SampleDescriptor& operator=(const SampleDescriptor&) = default;
  virtual ~SampleDescriptor() = default;

  const QiroK7MSampleDescInfo& GetInfo() const { return info_; }
  const std::vector<uint8_t>& GetCodecHeader() const { return codecHeader_; }
  /// Copies nothing when there is none.
  void CopyCodecHeader(void* buffer) const {
    if (!codecHeader_.empty()) {
      std::memcpy(buffer, codecHeader_.data(), codecHeader_.size());
    }
  }
  void SetMediaType(uint32_t mediaType) { info_.mediaType = mediaType; }
  /// 1-based place in the 'stsd'.
  uint32_t GetSDID() const { return index_; }
  void SetSDID(uint32_t index) { index_ = index; }

  /// Copies the record of the descriptor's kind. The kind is not examined: a record of another kind
  /// gets whatever bytes stand in its place.
  template <class Record>
  void CopyRecord(Record* record) const {
    static_assert(sizeof(Record) <= kRecordSize);
    std::memcpy(record, record_.data(), sizeof(Record));
  }

 protected:
  template <class Record>
  void SetRecord(Record record) {
    static_assert(sizeof(Record) <= kRecordSize);
    record.size = sizeof(Record);
    std::memcpy(record_.data(), &record, sizeof(Record));
  }

 private:
  static constexpr size_t kRecordSize = sizeof(QiroK7MVideoSampleDescInfo);

  QiroK7MSampleDescInfo info_{sizeof(QiroK7MSampleDescInfo), 0, 0, 0};
  uint32_t index_ = 0;
  std::array<uint8_t, kRecordSize> record_{};
  std::vector<uint8_t> codecHeader_;
};

/// A descriptor with the record of one kind of media.
template <class Record>
class SampleDescriptorWith final : public SampleDescriptor {
 public:
  SampleDescriptorWith(uint32_t type, std::vector<uint8_t> codecHeader, const Record& record)
      : SampleDescriptor(type, std::move(codecHeader)) {
    SetRecord(record);
  }
};

using VideoSampleDescriptor = SampleDescriptorWith<QiroK7MVideoSampleDescInfo>;
using AudioSampleDescriptor = SampleDescriptorWith<QiroK7MAudioSampleDescInfo>;
using VorpSampleDescriptor = SampleDescriptorWith<QiroK7MVorpSampleDescInfo>;

}  // namespace qiro::k7m::impl

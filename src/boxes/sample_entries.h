#pragma once

#include <array>
#include <memory>
#include <vector>

#include "boxes/field_box.h"
#include "boxes/sample_descriptor.h"

namespace qiro::k7m::impl {

/// Sample entry (ISO/IEC 14496-12 8.5.2), in 'stsd': how some of the track's samples are coded.
/// This class is also the entry of the media types that have no kind of their own. What follows the
/// fixed fields is the codec header, kept byte for byte.
class K7MSampleEntry : public FieldBox<K7MSampleEntry, Box> {
 public:
  using FieldBox::FieldBox;
  /// Error 20 without a descriptor.
  K7MSampleEntry(QiroK7MStream* stream, uint32_t type, uint16_t dataReferenceIndex,
                 std::unique_ptr<SampleDescriptor> descriptor,
                 const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.Reserved(6);
    walk.U16("data_reference_index", dataReferenceIndex_);
  }
  void ReadExtensionPayloadData() override;
  void WriteExtensionBox() override;
  void AccountForPayload() override;
  void Describe(FieldSink& sink) override;

  SampleDescriptor* GetSampleDescriptor() const { return descriptor_.get(); }
  /// 1-based place in the 'stsd'.
  void SetSDID(uint32_t index) { descriptor_->SetSDID(index); }
  void SetMediaType(uint32_t mediaType) { descriptor_->SetMediaType(mediaType); }

 protected:
  /// The bytes from the position to the end of the entry.
  std::vector<uint8_t> ReadCodecHeader();
  void SetDescriptor(std::unique_ptr<SampleDescriptor> descriptor) {
    descriptor_ = std::move(descriptor);
  }
  void DescribeCodecHeader(FieldSink& sink) const;
  void WriteCodecHeader();
  uint64_t CodecHeaderSize() const { return descriptor_->GetCodecHeader().size(); }
  /// For the kinds, which account for their whole payload themselves.
  struct AsBase {};
  K7MSampleEntry(AsBase, QiroK7MStream* stream, uint32_t type,
                 std::unique_ptr<SampleDescriptor> descriptor,
                 const QiroK7MAllocatorCallBacks* allocator);

 private:
  uint16_t dataReferenceIndex_ = 1;
  std::unique_ptr<SampleDescriptor> descriptor_;
};

/// What the kinds of entries share: their fields, and the descriptor made from them.
template <class Derived, class Record>
class K7MSampleEntryWith : public FieldBox<Derived, K7MSampleEntry> {
 public:
  using FieldBox<Derived, K7MSampleEntry>::FieldBox;
  K7MSampleEntryWith(QiroK7MStream* stream, uint32_t type,
                     std::unique_ptr<SampleDescriptor> descriptor,
                     const QiroK7MAllocatorCallBacks* allocator)
      : FieldBox<Derived, K7MSampleEntry>(K7MSampleEntry::AsBase{}, stream, type,
                                          std::move(descriptor), allocator) {
    this->GetSampleDescriptor()->CopyRecord(&record_);
  }

  void WriteExtensionBox() override {
    FieldBox<Derived, K7MSampleEntry>::WriteExtensionBox();
    this->WriteCodecHeader();
  }
  void AccountForPayload() override {
    FieldBox<Derived, K7MSampleEntry>::AccountForPayload();
    this->Grow(this->CodecHeaderSize());
  }
  void ReadExtensionPayloadData() override {
    FieldBox<Derived, K7MSampleEntry>::ReadExtensionPayloadData();
    this->SetDescriptor(std::make_unique<SampleDescriptorWith<Record>>(
        this->GetBoxType(), this->ReadCodecHeader(), record_));
  }
  void Describe(FieldSink& sink) override {
    FieldBox<Derived, K7MSampleEntry>::Describe(sink);
    this->DescribeCodecHeader(sink);
  }

 protected:
  Record record_{};
};

/// Visual sample entry (ISO/IEC 14496-12 12.1.3).
class K7MVideoSampleEntry final
    : public K7MSampleEntryWith<K7MVideoSampleEntry, QiroK7MVideoSampleDescInfo> {
 public:
  using K7MSampleEntryWith::K7MSampleEntryWith;
  K7MVideoSampleEntry(QiroK7MStream* stream, uint32_t type,
                      std::unique_ptr<SampleDescriptor> descriptor,
                      const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    K7MSampleEntry::Fields(walk);
    walk.Reserved(16);
    walk.U16("width", record_.width);
    walk.U16("height", record_.height);
    walk.Fixed1616("horizresolution", record_.horizontalResolution);
    walk.Fixed1616("vertresolution", record_.verticalResolution);
    walk.Reserved(4);
    walk.U16("frame_count", record_.frameCount);
    walk.Bytes("compressorname", compressorName_);
    walk.U16("depth", record_.depth);
    walk.Constant16(0xFFFF);
  }

 private:
  /// A length byte, that many characters, zeros.
  std::array<uint8_t, 32> compressorName_{};
};

/// Audio sample entry (ISO/IEC 14496-12 12.2.3).
class K7MAudioSampleEntry final
    : public K7MSampleEntryWith<K7MAudioSampleEntry, QiroK7MAudioSampleDescInfo> {
 public:
  using K7MSampleEntryWith::K7MSampleEntryWith;
  K7MAudioSampleEntry(QiroK7MStream* stream, uint32_t type,
                      std::unique_ptr<SampleDescriptor> descriptor,
                      const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    K7MSampleEntry::Fields(walk);
    walk.Reserved(8);
    walk.U16("channelcount", record_.channelCount);
    walk.U16("samplesize", record_.sampleSize);
    walk.Reserved(4);
    walk.Fixed1616("samplerate", record_.sampleRate);
  }
};

/// Protocol hint sample entry ('vorp'): the entry of every 'hint' track.
class K7MVorpSampleEntry final
    : public K7MSampleEntryWith<K7MVorpSampleEntry, QiroK7MVorpSampleDescInfo> {
 public:
  using K7MSampleEntryWith::K7MSampleEntryWith;
  K7MVorpSampleEntry(QiroK7MStream* stream, uint32_t type,
                     std::unique_ptr<SampleDescriptor> descriptor,
                     const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    K7MSampleEntry::Fields(walk);
    walk.U16("hint_track_version", record_.hintTrackVersion);
    walk.U16("highest_compatible_version", record_.highestCompatibleVersion);
    walk.U16("max_packet_size", record_.maxPacketSize);
  }
};

}  // namespace qiro::k7m::impl

#pragma once

#include "base/data_buffer.h"
#include "boxes/box.h"

namespace qiro::k7m::impl {

class Sample;

/// Media data ('mdat', ISO/IEC 14496-12 8.1.1), at the top level. Its payload is never read by
/// parsing.
class MdatBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("mdat");
  /// The size field of a written one is always 64 bits wide.
  static constexpr uint64_t kWrittenHeaderSize = kMinHeaderSize + kLargeSizeFieldSize;

  MdatBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator);
  /// `isBuffered`: the samples' bytes are kept where the client has them until the box is written.
  MdatBox(QiroK7MStream* stream, bool isBuffered, const QiroK7MAllocatorCallBacks* allocator);
  /// Gives kept buffers back, the last one first.
  ~MdatBox() override;

  /// Puts the sample's bytes at the end and tells the sample where they are. `data` may be null for
  /// a sample without bytes. The buffer is given back, or kept by a buffered box.
  void AddSampleData(Sample& sample, QiroK7MDataBuffer* data);
  void WriteExtensionBox() override { WriteMdatSamples(); }
  void UpdateExtensionBox() override { WriteMdatSamples(); }

 private:
  struct MdatSampleEntry {
    DataBuffer data;
    uint32_t size;
  };

  void WriteMdatSamples();

  bool isBuffered_ = false;
  K7MVector<MdatSampleEntry> samples_;
};

}  // namespace qiro::k7m::impl

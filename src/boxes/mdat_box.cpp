#include "boxes/mdat_box.h"

#include "boxes/sample.h"

namespace qiro::k7m::impl {

MdatBox::MdatBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, header, allocator), samples_(K7MAllocator<MdatSampleEntry>(allocator)) {}

MdatBox::MdatBox(QiroK7MStream* stream, bool isBuffered, const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator),
      isBuffered_(isBuffered),
      samples_(K7MAllocator<MdatSampleEntry>(allocator)) {
  MutableHeader().SetExtendedSize(true);
  Grow(kLargeSizeFieldSize);
}

MdatBox::~MdatBox() {
  while (!samples_.empty()) {
    samples_.back().data.Release();
    samples_.pop_back();
  }
}

void MdatBox::AddSampleData(Sample& sample, QiroK7MDataBuffer* data) {
  const uint32_t size = sample.GetInfo().sampleSize;
  sample.SetSampleDataOffset(GetBeginOffset() + GetEffectiveSize());
  if (data != nullptr && isBuffered_) {
    samples_.push_back({DataBuffer(*data), size});
    data->release = nullptr;
  } else if (data != nullptr) {
    SeekTo(sample.GetSampleDataOffset());
    Stream().WriteBYTES(data->data, size);
    ReleaseDataBuffer(data);
  }
  Grow(size);
}

void MdatBox::WriteMdatSamples() {
  if (!isBuffered_) {
    return;
  }
  SeekTo(GetBeginOffset() + kWrittenHeaderSize);
  for (const MdatSampleEntry& sample : samples_) {
    Stream().WriteBYTES(sample.data.Get(), sample.size);
  }
}

}  // namespace qiro::k7m::impl

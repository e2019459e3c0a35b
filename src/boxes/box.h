#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "base/allocation.h"
#include "base/stream.h"
#include "boxes/box_header.h"
#include "boxes/field_sink.h"
#include "boxes/mandatory_boxes.h"

namespace qiro::k7m::impl {

class RootBox;

/// A box: its header, its place in the stream and its children. Also the class of every box whose
/// payload the library does not look into. A box never knows its parent.
class Box : public K7MBase {
 public:
  /// Reading form: a box whose header was parsed. `stream` is not owned and outlives the box.
  Box(QiroK7MStream* stream, const BoxHeader& header, const QiroK7MAllocatorCallBacks* allocator);
  /// Writing form: an empty box of 8 bytes at offset 0.
  Box(QiroK7MStream* stream, uint32_t type, const QiroK7MAllocatorCallBacks* allocator);
  ~Box() override;

  virtual void WriteBoxHeader();
  /// Bytes in use: for a table with reserved room less than the total size.
  virtual uint64_t GetEffectiveSize() const { return effectiveSize_; }
  virtual uint64_t GetTotalSize() const { return totalSize_; }
  /// Takes the child behind the others. In the writing form the box grows by the child's size.
  virtual void AddChildBox(std::unique_ptr<Box> child);
  /// Writing form: undoes the last AddChildBox().
  virtual void DropLastChild();
  /// Writes header, payload and children, each at its own offset.
  virtual void WriteBox();
  virtual void WriteExtensionBox() {}
  /// Writes again, in place, what changes after the first write.
  virtual void UpdateExtensionBox() {}
  /// UpdateExtensionBox() of the box and of all boxes in it.
  void UpdateBox();
  virtual void ReadCommonPayloadData() {}
  virtual void ReadExtensionPayloadData() {}
  /// True when the children keep the rules of GetMandatoryBoxes().
  virtual bool ValidateHierarchy();
  virtual std::span<const MandatoryBox> GetMandatoryBoxes() const { return {}; }
  /// The child at a 0-based position; null past the last one.
  virtual Box* GetBoxByPos(size_t position);
  /// Writing form: adds the payload to the sizes, once, at construction.
  virtual void AccountForPayload() {}
  virtual void CompleteReadChildBoxes(RootBox* root, bool validate);
  /// Reports the payload's fields.
  virtual void Describe(FieldSink&) {}

  uint32_t GetBoxType() const { return header_.GetBoxType(); }
  const BoxHeader& GetBoxHeader() const { return header_; }
  const QiroK7MUUID* GetUuid() const { return header_.GetUuid(); }
  uint64_t GetBeginOffset() const { return header_.GetBeginOffset(); }
  uint64_t GetEndOffset() const { return header_.GetEndOffset(); }
  uint64_t GetTotalBoxSize() const { return header_.GetTotalBoxSize(); }
  /// Bytes in front of the first child: the header and the box's own fixed payload.
  uint64_t GetHeaderSize() const { return header_.GetHeaderSize() + prefixSize_; }
  /// Moves the box with its children.
  void SetBeginOffset(uint64_t begin);

  void SeekTo(uint64_t offset) { stream_->SeekTo(offset); }
  /// True when `byteCount` bytes lie between the stream's position and the box's end.
  bool CanRead(uint64_t byteCount) { return byteCount <= BytesLeft(); }
  void ReadPayloadFromStream();
  /// Validates, reads the payload and completes the children. Error 14 when the children break the
  /// rules and `validate` is set.
  void CompleteRead(RootBox* root, bool validate);

  const K7MVector<std::unique_ptr<Box>>& Children() const { return children_; }
  /// The first child of a type; null when there is none. In the root it parses on until it is
  /// found.
  Box* GetFirstBoxByType(uint32_t type);
  uint32_t CountOccurances(uint32_t type) const;
  uint32_t CountOccurancesInList(std::span<const uint32_t> types) const;

 protected:
  QiroK7MStream& Stream() const { return *stream_; }
  bool WasParsed() const { return wasParsed_; }
  /// Bytes between the stream's position and the box's end.
  uint64_t BytesLeft();
  /// Adds to the bytes in front of the first child.
  void AddPrefix(uint64_t byteCount) { prefixSize_ += byteCount; }
  void GrowEffectiveSize(uint64_t byteCount) { effectiveSize_ += byteCount; }
  void SetEffectiveSize(uint64_t size) { effectiveSize_ = size; }
  /// Grows both sizes and the header's.
  void Grow(uint64_t byteCount);
  void SetTotalSize(uint64_t size);
  BoxHeader& MutableHeader() { return header_; }
  K7MVector<std::unique_ptr<Box>>& MutableChildren() { return children_; }

 private:
  bool IsSatisfied(const MandatoryBox& rule) const;

  BoxHeader header_;
  K7MVector<std::unique_ptr<Box>> children_;
  QiroK7MStream* stream_;
  uint64_t effectiveSize_;
  uint64_t totalSize_;
  uint64_t prefixSize_ = 0;
  bool wasParsed_;
};

/// Creates a box in the client's memory.
template <class T, class... Args>
std::unique_ptr<T> MakeBox(const QiroK7MAllocatorCallBacks* allocator, Args&&... args) {
  return std::unique_ptr<T>(new (allocator) T(std::forward<Args>(args)..., allocator));
}

}  // namespace qiro::k7m::impl

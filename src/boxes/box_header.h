#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/stream.h"
#include "base/uuid.h"
#include "boxes/four_cc.h"

namespace qiro::k7m::impl {

/// The smallest header: 32-bit size and type.
inline constexpr uint64_t kMinHeaderSize = 8;
inline constexpr uint64_t kLargeSizeFieldSize = 8;
inline constexpr uint64_t kExtendedTypeSize = 16;
/// ParseForBox() with this type stops at the first box.
inline constexpr uint32_t kAnyBoxType = 0xFFFFFFFF;

/// Where a box lies and what it is (ISO/IEC 14496-12 4.2). The end is always begin plus total size.
class BoxHeader {
 public:
  BoxHeader() = default;
  explicit BoxHeader(uint32_t type)
      : type_(type), totalSize_(kMinHeaderSize), end_(kMinHeaderSize) {}
  BoxHeader(const BoxHeader& other);
  BoxHeader(BoxHeader&&) noexcept = default;
  BoxHeader& operator=(const BoxHeader&) = delete;
  BoxHeader& operator=(BoxHeader&&) noexcept = default;
  ~BoxHeader() = default;

  /// Parses the header at the stream's position. None when the stream ends here (warning 3073 when
  /// 1 to 7 bytes are left) and when the box's end wraps. `parent` may be null.
  static std::optional<BoxHeader> Parse(QiroK7MStream& stream, const BoxHeader* parent);

  /// Searches forwards for a box of type `wanted`: in `parent` from its begin, or without one from
  /// the position to the end of the stream. The stream is left behind the header found.
  static std::optional<BoxHeader> ParseForBox(QiroK7MStream& stream, uint32_t wanted,
                                              const BoxHeader* parent);

  uint32_t GetBoxType() const { return type_; }
  uint64_t GetTotalBoxSize() const { return totalSize_; }
  uint64_t GetBeginOffset() const { return begin_; }
  uint64_t GetEndOffset() const { return end_; }
  bool IsExtendedSize() const { return isExtendedSize_; }
  bool IsBoxTillFileEnd() const { return isTillEnd_; }
  bool IsUuidBox() const { return uuid_ != nullptr; }
  /// Null unless the box was stored as 'uuid'.
  const QiroK7MUUID* GetUuid() const { return uuid_.get(); }
  /// 8, 16, 24 or 32 bytes.
  uint64_t GetHeaderSize() const;

  void SetBoxType(uint32_t type) { type_ = type; }
  void SetBeginOffset(uint64_t begin);
  void SetTotalBoxSize(uint64_t size);
  void SetExtendedSize(bool isExtended) { isExtendedSize_ = isExtended; }
  void SetUuid(const QiroK7MUUID& uuid);

 private:
  void ReadSizeAndType(QiroK7MStream& stream);
  void ReadExtendedType(QiroK7MStream& stream);
  /// Clips to the parent and checks against the end of the stream.
  void CheckExtent(QiroK7MStream& stream, const BoxHeader* parent);

  uint32_t type_ = 0;
  uint64_t totalSize_ = 0;
  uint64_t begin_ = 0;
  uint64_t end_ = 0;
  bool isExtendedSize_ = false;
  bool isTillEnd_ = false;
  std::unique_ptr<QiroK7MUUID> uuid_;
};

}  // namespace qiro::k7m::impl

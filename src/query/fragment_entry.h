#pragma once

#include <array>
#include <cstdint>

#include "boxes/box.h"

namespace qiro::k7m::impl {

/// The boxes of one fragment, which belong to the document; each may be null. Takes them one by one
/// in file order, and only in an order in which they may stand.
class FragmentEntry {
 public:
  static constexpr uint32_t kAfraType = FourCc("afra");
  static constexpr uint32_t kAbstType = FourCc("abst");

  /// Takes the next top-level box of the document. One that is no part of a fragment is let pass
  /// between fragments. Error 1025 when the box cannot stand here.
  void Take(const Box* box);
  /// True when both 'moof' and 'mdat' are there: nothing can follow.
  bool IsComplete() const { return moof_ != nullptr && mdat_ != nullptr; }
  void Clear() { *this = {}; }

  /// The sum of the boxes' sizes.
  uint64_t GetTotalSize() const;
  /// Where the last box ends.
  uint64_t GetEndOffset() const;
  /// Copies the boxes' bytes, one after the other in file order. Error 5 when the stream is too
  /// short.
  void CopyTo(QiroK7MStream& stream, uint8_t* buffer) const;

 private:
  bool IsEmpty() const;
  /// The boxes that are there, in file order; null behind them.
  std::array<const Box*, 4> InFileOrder() const;

  const Box* afra_ = nullptr;
  const Box* abst_ = nullptr;
  const Box* moof_ = nullptr;
  const Box* mdat_ = nullptr;
};

}  // namespace qiro::k7m::impl

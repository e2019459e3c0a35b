#pragma once

#include <memory>
#include <optional>

#include "boxes/box.h"

namespace qiro::k7m::impl {

/// How deep boxes may nest; the top level is level 1. Deeper ones are error 14.
inline constexpr uint32_t kMaxNestingLevel = 32;

/// Builds the boxes of a stream for a root box, in whose memory they live. Their payloads are read
/// later, when the top-level box is completed.
class K7MParser {
 public:
  /// Neither is owned.
  K7MParser(QiroK7MStream* stream, const RootBox* root) : stream_(stream), root_(root) {}

  uint64_t StreamPosition() { return stream_->Tell(); }
  void SeekTo(uint64_t position) { stream_->SeekTo(position); }
  /// Negative when `position` lies behind the current one.
  int64_t BytesUntil(uint64_t position) {
    return static_cast<int64_t>(position - StreamPosition());
  }

  /// The header at the position; none when there is none.
  std::optional<BoxHeader> ParseHeader() { return BoxHeader::Parse(*stream_, nullptr); }
  /// The box of a header.
  std::unique_ptr<Box> Create(const BoxHeader& header);
  /// The next box of a type from the position on; none when the stream ends first.
  std::unique_ptr<Box> ParseFile(uint32_t type);
  /// Reads all children of a container, with their children. Does nothing for other boxes.
  void ParseBox(Box* box) { ParseChildren(box, 1); }

 private:
  void ParseChildren(Box* box, uint32_t level);

  QiroK7MStream* stream_;
  const RootBox* root_;
};

}  // namespace qiro::k7m::impl

#pragma once

#include <memory>
#include <optional>

#include "query/fragment_entry.h"
#include "query/fragment_index.h"
#include "reader/document.h"

namespace qiro::k7m::impl {

/// Gives a block back to the memory that it came from.
class ReleaseToClient {
 public:
  explicit ReleaseToClient(const QiroK7MAllocatorCallBacks* allocator) : allocator_(allocator) {}
  void operator()(uint8_t* block) const { ReleaseThrough(allocator_, block); }

 private:
  const QiroK7MAllocatorCallBacks* allocator_;
};

/// Answers requests for single fragments of a file, by its index or by a table made from the file.
class K7RQueryServicer final : public K7MBase {
 public:
  /// Opens both streams. `index` may be null: then the file is parsed. Error 6 when it has no movie
  /// box; when it is not fragmented, it has no fragments.
  K7RQueryServicer(std::unique_ptr<QiroK7MStream> fragments, std::unique_ptr<QiroK7MStream> index,
                   const QiroK7MAllocatorCallBacks* allocator);

  /// Gives a copy of the fragment in the client's memory, which is the client's from then on; size
  /// 0 and null when the index has the fragment in another segment, and on every failure.
  void GetFragment(uint32_t fragmentNumber, uint32_t segmentNumber, uint32_t* size, void** data);

 private:
  using Buffer = std::unique_ptr<uint8_t, ReleaseToClient>;
  struct Fragment {
    Buffer data;
    uint32_t size;
  };

  void ListFragments();
  Fragment LookUpInTable(uint32_t fragmentNumber);
  Fragment LookUpInIndex(uint32_t fragmentNumber, uint32_t segmentNumber);
  /// Every failure is error 1024, but for errors 26 and 18.
  Fragment LookUpGlobally(const IndexLayout& layout, uint32_t fragmentNumber,
                          uint32_t segmentNumber);
  Fragment ReadFragment(uint64_t offset);

  Fragment NoFragment() const { return {Buffer(nullptr, ReleaseToClient(GetAllocator())), 0}; }
  Fragment Allocate(uint32_t size) const;

  OpenedStream fragments_;
  std::optional<FragmentIndex> index_;
  std::unique_ptr<K7MDocument> document_;  ///< Null with an index.
  K7MVector<FragmentEntry> table_;         ///< Empty with an index.
};

}  // namespace qiro::k7m::impl

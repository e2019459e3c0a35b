#pragma once

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

#include "base/allocation.h"

namespace qiro::k7m::impl {

/// A growable table of plain records in the client's memory. Unlike in a vector, room that is made
/// for records is not touched before they are there.
template <class Record>
class RecordTable {
  static_assert(std::is_trivially_copyable_v<Record> && std::is_trivially_destructible_v<Record>);

 public:
  /// The callbacks outlive the table; null for the global operators.
  explicit RecordTable(const QiroK7MAllocatorCallBacks* callBacks) : callBacks_(callBacks) {}
  RecordTable(const RecordTable&) = delete;
  RecordTable& operator=(const RecordTable&) = delete;
  ~RecordTable() { ReleaseThrough(callBacks_, records_); }

  const Record* data() const { return records_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Record& operator[](size_t index) { return records_[index]; }
  const Record& operator[](size_t index) const { return records_[index]; }
  Record* begin() { return records_; }
  Record* end() { return records_ + size_; }
  const Record* begin() const { return records_; }
  const Record* end() const { return records_ + size_; }

  /// Makes room for `count` more, exactly at first and by doubling later. Returns where they start.
  Record* MakeRoom(size_t count) {
    if (count > capacity_ - size_) {
      Grow(records_ == nullptr ? count : std::max(size_ + count, capacity_ * 2));
    }
    return end();
  }
  /// `count` records were written to the room.
  void Take(size_t count) { size_ += count; }
  void push_back(const Record& record) {
    std::construct_at(MakeRoom(1), record);
    Take(1);
  }
  void pop_back() { --size_; }

 private:
  void Grow(size_t capacity) {
    if (capacity > std::numeric_limits<size_t>::max() / sizeof(Record)) {
      throw std::bad_alloc();
    }
    auto* const grown =
        static_cast<Record*>(AllocateThrough(callBacks_, capacity * sizeof(Record)));
    std::uninitialized_copy_n(records_, size_, grown);
    ReleaseThrough(callBacks_, records_);
    records_ = grown;
    capacity_ = capacity;
  }

  const QiroK7MAllocatorCallBacks* callBacks_;
  Record* records_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace qiro::k7m::impl

/// @file opened_servicer.h
/// A query servicer over bytes through the public functions, with books on everything it uses.
#ifndef K7M_TESTS_SUPPORT_OPENED_SERVICER_H
#define K7M_TESTS_SUPPORT_OPENED_SERVICER_H

#include <optional>

#include "bytes.h"
#include "counting_allocator.h"
#include "k7m/k7m.h"
#include "memory_stream.h"

namespace k7mtest {

/// What a request was answered with.
struct Answer {
  QiroK7MError result = 0;
  uint32_t size = 0;
  bool isNull = true;
  Bytes data;
};

/// Opens at once and closes when it goes; then everything taken must have been given back, and the
/// streams closed as often as they were opened.
class OpenedServicer {
 public:
  explicit OpenedServicer(const Bytes& file, const std::optional<Bytes>& index = {})
      : OpenedServicer(file, index, [](OpenedServicer&) {}) {}
  /// Lets `prepare(*this)` order faults first.
  template <class Prepare>
  OpenedServicer(const Bytes& file, const std::optional<Bytes>& index, Prepare prepare)
      : file_(file), index_(index.value_or(Bytes())), hasIndex_(index.has_value()) {
    prepare(*this);
    Open();
  }
  OpenedServicer(const OpenedServicer&) = delete;
  OpenedServicer& operator=(const OpenedServicer&) = delete;
  ~OpenedServicer() { Close(); }

  /// What the create function returned.
  QiroK7MError Result() const { return result_; }
  QiroK7RQueryServicer* Handle() const { return servicer_; }
  MemoryStream& File() { return file_; }
  MemoryStream& Index() { return index_; }
  CountingAllocator& Memory() { return memory_; }

  /// Asks with outputs full of rubbish, and gives the buffer back. A failure must leave them 0 and
  /// null, and no memory taken.
  Answer Get(uint32_t fragmentNumber, uint32_t segmentNumber = 1);
  /// Closes early and judges; the second time it does nothing.
  void Close();

 private:
  void Open();

  MemoryStream file_;
  MemoryStream index_;
  bool hasIndex_;
  CountingAllocator memory_;
  QiroK7RQueryServicer* servicer_ = nullptr;
  QiroK7MError result_ = 0;
  bool isClosed_ = false;
};

/// The result of making a servicer; everything is closed again.
QiroK7MError ServicerResult(const Bytes& file, const std::optional<Bytes>& index = {});

}  // namespace k7mtest

#endif

#pragma once

#include <cstdint>
#include <span>

#include "k7m/types.h"

namespace qiro::k7m::impl {

/// Receives the fields of a box by name and value, in file order. What it makes of them is its own
/// business.
class FieldSink {
 public:
  virtual ~FieldSink() = default;

  virtual void Number(const char* name, uint64_t value) = 0;
  virtual void SignedNumber(const char* name, int64_t value) = 0;
  virtual void Real(const char* name, float value) = 0;
  virtual void Code(const char* name, uint32_t fourCc) = 0;
  virtual void Date(const char* name, const QiroK7MDateTime& value) = 0;
  virtual void Bytes(const char* name, std::span<const uint8_t> value) = 0;

  /// A table of `count` entries follows. Returns how many of them are wanted.
  virtual uint64_t BeginTable(const char* name, uint64_t count) = 0;
  virtual void BeginEntry() = 0;
  virtual void EndEntry() = 0;
  virtual void EndTable() = 0;
};

/// Reports a table through `describe(entry)`, which names the fields of one entry.
template <class Table, class Describe>
void DescribeTable(FieldSink& sink, const char* name, const Table& table, Describe describe) {
  const uint64_t wanted = sink.BeginTable(name, table.size());
  for (uint64_t i = 0; i < table.size() && i < wanted; ++i) {
    sink.BeginEntry();
    describe(table[i]);
    sink.EndEntry();
  }
  sink.EndTable();
}

}  // namespace qiro::k7m::impl

#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>

#include "base/record_table.h"
#include "base/stream.h"

namespace qiro::k7m::impl {

/// Tables are read in blocks of at most this size, so that a count that promises more than the
/// stream delivers costs no memory. It holds a whole number of entries of 1, 4, 8, 12 and 20 bytes.
inline constexpr uint64_t kTableBlockSize = 7864320;

/// Reads `count` entries of `entrySize` bytes and hands each block to `decode(bytes, entryCount)`,
/// and before each block the number of entries that it will bring to `reserve(entryCount)`.
/// The caller has checked that the box holds them.
template <class Reserve, class Decode>
void ReadTable(QiroK7MStream& stream, uint64_t count, uint64_t entrySize, Reserve reserve,
               Decode decode) {
  const uint64_t entriesPerBlock = kTableBlockSize / entrySize;
  const uint64_t largest = std::min(count, entriesPerBlock);
  if (largest == 0) {
    return;
  }
  const std::unique_ptr<uint8_t[]> block(new uint8_t[largest * entrySize]);
  for (uint64_t rest = count; rest > 0;) {
    const uint64_t entryCount = std::min(rest, entriesPerBlock);
    stream.Read(block.get(), entryCount * entrySize);
    reserve(entryCount);
    decode(block.get(), entryCount);
    rest -= entryCount;
  }
}

/// Makes room for `more` entries: exactly for a first block, by doubling later.
template <class Vector>
void ReserveMore(Vector& table, uint64_t more) {
  const uint64_t needed = table.size() + more;
  if (needed > table.capacity()) {
    table.reserve(table.empty() ? needed : std::max<uint64_t>(needed, table.capacity() * 2));
  }
}

/// Reads `count` entries of `entrySize` bytes into `table`, each block straight into its place;
/// `decode(bytes)` makes one record.
template <class Record, class Decode>
void ReadRecords(QiroK7MStream& stream, RecordTable<Record>& table, uint64_t count,
                 uint64_t entrySize, Decode decode) {
  const uint64_t entriesPerBlock = kTableBlockSize / entrySize;
  for (uint64_t rest = count; rest > 0;) {
    const uint64_t entryCount = std::min(rest, entriesPerBlock);
    Record* const records = table.MakeRoom(entryCount);
    // The block ends where its records will end. A record is never smaller than its entry in the
    // file, so that no entry is overwritten before it is decoded.
    auto* bytes = reinterpret_cast<uint8_t*>(records + entryCount) - entryCount * entrySize;
    stream.Read(bytes, entryCount * entrySize);
    for (uint64_t i = 0; i < entryCount; ++i, bytes += entrySize) {
      records[i] = decode(bytes);
    }
    table.Take(entryCount);
    rest -= entryCount;
  }
}

/// Reads `count` entries into `table`; `decode(bytes)` makes one entry.
template <class Vector, class Decode>
void ReadTableInto(QiroK7MStream& stream, Vector& table, uint64_t count, uint64_t entrySize,
                   Decode decode) {
  ReadTable(
      stream, count, entrySize, [&](uint64_t more) { ReserveMore(table, more); },
      [&](const uint8_t* bytes, uint64_t entryCount) {
        for (uint64_t i = 0; i < entryCount; ++i) {
          table.push_back(decode(bytes + i * entrySize));
        }
      });
}

}  // namespace qiro::k7m::impl

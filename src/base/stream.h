#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/big_endian.h"
#include "base/errors.h"
#include "base/warning_handler.h"
#include "k7m/stream.h"

namespace qiro::k7m::impl {

/// The largest offset that a callback is ever given.
inline constexpr uint64_t kMaxStreamOffset = 0x7FFFFFFFFFFFFFFF;

/// Base of all streams: positions and bytes below, big-endian numbers and warnings on top.
/// Not owned by what reads from it unless that says so.
class QiroK7MStream {
 public:
  QiroK7MStream() = default;
  explicit QiroK7MStream(const WarningHandler& warningHandler) : warningHandler_(warningHandler) {}
  QiroK7MStream(const QiroK7MStream&) = delete;
  QiroK7MStream& operator=(const QiroK7MStream&) = delete;
  virtual ~QiroK7MStream() = default;

  virtual void Acquire() = 0;
  virtual QiroK7MError Release() = 0;
  virtual void Open() = 0;
  /// Returns the number of bytes written; `flushed` (may be null) tells whether a buffer went out.
  virtual uint64_t Write(const void* buffer, uint64_t length, uint32_t* flushed) = 0;
  /// Error 5 when fewer than `length` bytes come back.
  virtual void Read(void* buffer, uint64_t length) = 0;
  /// Returns the number of bytes read, which may be smaller than `length`.
  virtual uint64_t ReadSome(void* buffer, uint64_t length) = 0;
  virtual void Seek(int64_t offset, QiroK7MSeekPos origin) = 0;
  virtual void Truncate(uint64_t length) = 0;
  virtual uint64_t Tell() = 0;
  /// Measures the stream and leaves its position unchanged.
  virtual uint64_t Length() = 0;
  /// The length as last measured; 0 before that.
  virtual uint64_t CachedLength() const = 0;
  virtual void Close() = 0;
  virtual QiroK7MError CloseNoThrow() = 0;
  /// Small writes may go out as one until as many calls of EndGathering(), which fails where they
  /// cannot be written, or of AbandonGathering(), which forgets them.
  virtual void BeginGathering() {}
  virtual void EndGathering() {}
  virtual void AbandonGathering() {}

  uint8_t ReadBYTE();
  uint16_t ReadWORD();
  uint32_t ReadDWORD();
  uint64_t ReadDDWORD();
  /// An unsigned number of `byteCount` bytes, 1 to 4; any other count is error 20.
  uint32_t ReadNByteNumber(uint32_t byteCount);
  void ReadBYTES(void* buffer, uint64_t length) { Read(buffer, length); }
  void ReadExactBYTES(void* buffer, uint64_t length) { Read(buffer, length); }

  void WriteBYTE(uint8_t value) { WriteBYTES(&value, 1); }
  void WriteWORD(uint16_t value) { WriteNumber(value); }
  void WriteDWORD(uint32_t value) { WriteNumber(value); }
  void WriteDDWORD(uint64_t value) { WriteNumber(value); }
  void WriteBYTES(const void* buffer, uint64_t length) {
    if (length != 0 && length <= static_cast<uint64_t>(roomEnd_ - nextRoom_)) {
      std::memcpy(TakeRoom(length), buffer, length);
    } else {
      Write(buffer, length, nullptr);
    }
  }

  /// True when `byteCount` bytes lie between the position and the end. A stream that seems too
  /// short is measured again, so that a growing file is noticed.
  bool CanRead(uint64_t byteCount);
  /// True when the stream reaches up to `offset`; measures again like CanRead().
  bool Reaches(uint64_t offset);
  /// Makes the next `byteCount` bytes exist by writing one zero byte at their end.
  void ReserveSpace(uint64_t byteCount);
  /// Seeks from the start. An offset that no callback may be given is error 27.
  void SeekTo(uint64_t offset);

  void RaiseWarning(QiroK7MError code) const { warningHandler_.RaiseWarning(code); }
  void RaiseWarningIf(unsigned condition, QiroK7MError code) const {
    if (condition != 0) {
      RaiseWarning(code);
    }
  }

 protected:
  /// Room in memory that the next bytes to be written go into; without it, and when it is too
  /// small, they go to Write().
  void SetRoom(uint8_t* next, uint8_t* end) {
    nextRoom_ = next;
    roomEnd_ = end;
  }
  const uint8_t* NextRoom() const { return nextRoom_; }
  /// There must be as much.
  uint8_t* TakeRoom(uint64_t length) { return std::exchange(nextRoom_, nextRoom_ + length); }

 private:
  template <class T>
  void WriteNumber(T value) {
    std::array<uint8_t, sizeof(T)> bytes;
    StoreBigEndian(bytes.data(), value);
    WriteBYTES(bytes.data(), bytes.size());
  }

  WarningHandler warningHandler_;
  uint8_t* nextRoom_ = nullptr;
  uint8_t* roomEnd_ = nullptr;
};

}  // namespace qiro::k7m::impl

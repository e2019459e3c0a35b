#pragma once

#include "base/guarded_call.h"
#include "base/stream.h"

namespace qiro::k7m::impl {

/// A stream over the client's callbacks. `CallBacks` is one of the two public stream records; the
/// reading operations are the same for both.
template <class CallBacks>
class ClientStream : public QiroK7MStream {
 public:
  /// Error 20 when a reading callback is null; `acquire` and `release` may be.
  ClientStream(const CallBacks& callBacks, const WarningHandler& warningHandler)
      : QiroK7MStream(warningHandler), callBacks_(callBacks) {
    ThrowIf(callBacks.open == nullptr || callBacks.close == nullptr ||
                callBacks.readSome == nullptr || callBacks.seek == nullptr ||
                callBacks.tell == nullptr,
            kQiroK7MErrorInvalidArgument);
  }

  void Acquire() override {
    if (callBacks_.acquire != nullptr) {
      Check(callBacks_.acquire(callBacks_.clientData));
    }
  }
  QiroK7MError Release() override {
    return GuardedCall([this] {
      if (callBacks_.release != nullptr) {
        Check(callBacks_.release(callBacks_.clientData));
      }
    });
  }
  void Open() override { Check(callBacks_.open(callBacks_.clientData)); }
  void Read(void* buffer, uint64_t length) override {
    ThrowIf(ReadSome(buffer, length) < length, kQiroK7MErrorReadFailed);
  }
  uint64_t ReadSome(void* buffer, uint64_t length) override {
    uint64_t bytesRead = 0;
    Check(callBacks_.readSome(callBacks_.clientData, buffer, length, &bytesRead));
    return bytesRead < length ? bytesRead : length;
  }
  void Seek(int64_t offset, QiroK7MSeekPos origin) override {
    Check(callBacks_.seek(callBacks_.clientData, offset, origin));
  }
  uint64_t Tell() override {
    uint64_t position = 0;
    Check(callBacks_.tell(callBacks_.clientData, &position));
    return position;
  }
  uint64_t Length() override {
    const uint64_t position = Tell();
    Seek(0, kQiroK7MSeekFromEnd);
    const uint64_t length = Tell();
    SeekTo(position);
    cachedLength_ = length;
    return length;
  }
  uint64_t CachedLength() const override { return cachedLength_; }
  void Close() override { Check(callBacks_.close(callBacks_.clientData)); }
  QiroK7MError CloseNoThrow() override {
    return GuardedCall([this] { Close(); });
  }

 protected:
  static void Check(QiroK7MError result) { ThrowIf(result != kQiroK7MErrorNone, result); }
  const CallBacks& GetCallBacks() const { return callBacks_; }
  /// The length must be measured again.
  void ForgetLength() { cachedLength_ = 0; }

 private:
  CallBacks callBacks_;
  uint64_t cachedLength_ = 0;
};

/// A stream to read from: writing and truncating do nothing.
class QiroK7MIStream final : public ClientStream<QiroK7MIStreamCallBacks> {
 public:
  using ClientStream::ClientStream;

  uint64_t Write(const void*, uint64_t, uint32_t*) override { return 0; }
  void Truncate(uint64_t) override {}
};

/// A stream to read from and write to. It has no warning callback.
class QiroK7MIOStream : public ClientStream<QiroK7MIOStreamCallBacks> {
 public:
  /// Error 20 when a callback other than `acquire` and `release` is null.
  explicit QiroK7MIOStream(const QiroK7MIOStreamCallBacks& callBacks)
      : ClientStream(callBacks, WarningHandler()) {
    ThrowIf(callBacks.write == nullptr || callBacks.truncate == nullptr,
            kQiroK7MErrorInvalidArgument);
  }

  /// Error 47 when fewer than `length` bytes were written.
  uint64_t Write(const void* buffer, uint64_t length, uint32_t*) override {
    if (length == 0) {
      return 0;  // The caller's function never sees a null buffer.
    }
    uint64_t written = 0;
    Check(GetCallBacks().write(GetCallBacks().clientData, buffer, length, &written));
    ThrowIf(written < length, kQiroK7MErrorWriteFailed);
    return written;
  }
  void Truncate(uint64_t length) override {
    ForgetLength();
    Check(GetCallBacks().truncate(GetCallBacks().clientData, length));
  }
};

}  // namespace qiro::k7m::impl

#pragma once

#include <algorithm>
#include <array>

#include "base/client_streams.h"

namespace qiro::k7m::impl {

/// A stream to write to that, between BeginGathering() and EndGathering(), makes small writes that
/// follow or overwrite each other one. Writes reach the client in the order in which they began.
class GatheringStream final : public QiroK7MIOStream {
 public:
  using QiroK7MIOStream::QiroK7MIOStream;

  uint64_t Write(const void* buffer, uint64_t length, uint32_t* flushed) override;
  uint64_t ReadSome(void* buffer, uint64_t length) override;
  void Seek(int64_t offset, QiroK7MSeekPos origin) override;
  void Truncate(uint64_t length) override;
  uint64_t Tell() override;

  void BeginGathering() override { ++depth_; }
  void EndGathering() override;
  void AbandonGathering() override;

 private:
  /// More than this goes out in several writes, so that what is gathered costs little memory.
  static constexpr uint64_t kCapacity = 4096;

  void SeekWhileGathering(int64_t offset, QiroK7MSeekPos origin);
  void Gather(const void* buffer, uint64_t length);
  /// The next operation takes place there, and nothing is gathered yet.
  void Place(uint64_t position);
  void Forget();
  uint64_t Position() const { return begin_ + Index(); }
  uint64_t Index() const { return static_cast<uint64_t>(NextRoom() - bytes_.data()); }
  /// How many bytes are gathered.
  uint64_t Count() const { return std::max(highest_, Index()); }
  /// Writes what is gathered and goes on gathering at the same position.
  void PassOn();
  /// Writes what is gathered and brings the client's position to where the next operation takes
  /// place.
  void Settle();
  void SeekClient(uint64_t offset);
  void WriteToClient(const void* buffer, uint64_t length, uint64_t offset);

  uint32_t depth_ = 0;           ///< How often gathering was begun.
  bool isPlaced_ = false;        ///< The position is known: bytes are gathered.
  bool isClientPlaced_ = false;  ///< The client's position is known.
  uint64_t clientPosition_ = 0;
  uint64_t begin_ = 0;    ///< Where the gathered bytes belong.
  uint64_t highest_ = 0;  ///< Their count when the position was set back last.
  std::array<uint8_t, kCapacity> bytes_;
};

/// Small writes to the stream go out together when this is finished; when it goes without that,
/// those that did not go out yet never do.
class GatheredWrites {
 public:
  explicit GatheredWrites(QiroK7MStream& stream) : stream_(stream) { stream_.BeginGathering(); }
  GatheredWrites(const GatheredWrites&) = delete;
  GatheredWrites& operator=(const GatheredWrites&) = delete;
  ~GatheredWrites() {
    if (!isFinished_) {
      stream_.AbandonGathering();
    }
  }

  void Finish() {
    isFinished_ = true;
    stream_.EndGathering();
  }

 private:
  QiroK7MStream& stream_;
  bool isFinished_ = false;
};

}  // namespace qiro::k7m::impl

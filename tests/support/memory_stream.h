/// @file memory_stream.h
/// A stream in memory behind the callback records, with a log and with faults to order.
#ifndef K7M_TESTS_SUPPORT_MEMORY_STREAM_H
#define K7M_TESTS_SUPPORT_MEMORY_STREAM_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "bytes.h"
#include "k7m/stream.h"
#include "malloc_allocator.h"

namespace k7mtest {

enum class Call : uint8_t {
  kAcquire,
  kRelease,
  kOpen,
  kClose,
  kRead,
  kSeek,
  kTell,
  kWrite,
  kTruncate,
  kAny  ///< Only to order a fault: calls of every kind are counted together.
};

/// One call as it came in. For kRead and kWrite `offset` is the position before the call, for kSeek
/// the resulting position; `size` is the number of bytes asked for.
struct CallRecord {
  Call call;
  uint64_t offset;
  uint64_t size;
  uint64_t delivered;
};

/// By how much a shortened read falls short of what it could deliver.
enum class Shortfall : uint8_t {
  kOneByte,
  kEverything,
  kEverythingFromThenOn  ///< Of all later reads too.
};
constexpr Shortfall kShortfalls[] = {Shortfall::kOneByte, Shortfall::kEverything,
                                     Shortfall::kEverythingFromThenOn};

/// What a call changed: bytes put at an offset, or a new length.
struct StreamChange {
  uint64_t offset;  // Of a truncation: the new length.
  Bytes bytes;
  bool isTruncation;
};

/// Content is kept in pages, so that a file of terabytes costs only what was put into it; zeros
/// that are put where nothing was cost nothing.
class MemoryStream {
 public:
  MemoryStream() = default;
  explicit MemoryStream(const Bytes& content) { Put(0, content); }
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

  /// Callback records that lead here; this object must outlive their use.
  QiroK7MIStreamCallBacks Reading();
  QiroK7MIOStreamCallBacks ReadingAndWriting();

  // Content -------------------------------------------------------------------------------------
  /// Stores bytes anywhere; the stream grows to hold them. Holes read as 0.
  void Put(uint64_t offset, const Bytes& bytes);
  /// Appends at the end: the file grows while it is in use.
  void Grow(const Bytes& bytes) { Put(length_, bytes); }
  /// Sets the true length; cut bytes read as 0 when the stream grows again.
  void SetLength(uint64_t length);
  uint64_t Length() const { return length_; }
  /// A copy of some bytes, or of all of them.
  Bytes Content(uint64_t offset, size_t size) const;
  Bytes Content() const { return Content(0, static_cast<size_t>(length_)); }

  // Faults --------------------------------------------------------------------------------------
  /// Lets the n-th call (from 1, counted from now) of a kind answer `code`, and all later ones of
  /// that kind too when `isLasting`.
  void FailNth(Call call, uint64_t n, QiroK7MError code, bool isLasting = false);
  /// Lets the n-th write (from 1, counted from now) of at least one byte store one byte fewer.
  void ShortenNthWrite(uint64_t n) {
    shortWriteCountdown_ = n;
    faultHit_ = false;
  }
  /// Lets the n-th read (from 1, counted from now) that could deliver a byte deliver less; 0: none
  /// any more.
  void ShortenNthRead(uint64_t n, Shortfall shortfall = Shortfall::kOneByte) {
    shortReadCountdown_ = n;
    shortfall_ = shortfall;
    faultHit_ = false;
  }
  /// The first read that was shortened, when one was.
  const CallRecord& ShortenedRead() const { return shortenedRead_; }
  /// Whether the ordered fault has happened.
  bool FaultHit() const { return faultHit_; }
  /// No readSome delivers more than `size` bytes; 0 lifts the limit.
  void LimitReads(uint64_t size) { readLimit_ = size; }
  /// No write stores more than `size` bytes.
  void LimitWrites(uint64_t size) { writeLimit_ = size; }
  /// What a seek from the end takes for the length; reading still ends at the true one.
  void ClaimLength(std::optional<uint64_t> length) { claimedLength_ = length; }

  // What happened -------------------------------------------------------------------------------
  uint64_t Count(Call call) const;
  const std::vector<CallRecord, MallocAllocator<CallRecord>>& Log() const { return log_; }
  void ClearLog();
  /// From now on calls are counted but not logged: millions of them cost no memory.
  void StopLogging() { isLogging_ = false; }
  /// From now on every change by a call is kept, in order.
  void StartJournal() { isKeepingJournal_ = true; }
  const std::vector<StreamChange>& Journal() const { return journal_; }
  uint64_t BytesDelivered() const { return bytesDelivered_; }
  uint64_t Position() const { return position_; }
  bool IsOpen() const { return isOpen_; }
  /// The greatest position ever sought to.
  uint64_t GreatestOffset() const { return greatestOffset_; }
  /// The first breach of the callback contract by the caller, or null: a seek before the first byte
  /// or above 2^63-1, a use while not open, a second open, a null pointer.
  const char* Violation() const { return violation_; }

 private:
  static constexpr uint64_t kPageSize = 4096;
  using Page = std::array<uint8_t, kPageSize>;

  struct CallBacks;
  /// Logs the call; answers the code of a fault when one is due.
  QiroK7MError Enter(Call call, uint64_t offset, uint64_t size, bool needsOpen = true);
  void NoteDelivered(uint64_t count) {
    if (isLogging_) log_.back().delivered = count;
  }
  void Breach(const char* what) {
    if (violation_ == nullptr) violation_ = what;
  }
  /// How much a read delivers that could deliver `count` bytes.
  uint64_t Shorten(uint64_t count, uint64_t byteCount);
  void CopyOut(uint64_t offset, uint8_t* to, uint64_t size) const;
  void CopyIn(uint64_t offset, const uint8_t* from, uint64_t size);

  std::map<uint64_t, Page, std::less<>, MallocAllocator<std::pair<const uint64_t, Page>>> pages_;
  uint64_t length_ = 0;
  uint64_t position_ = 0;
  bool isOpen_ = false;

  std::optional<uint64_t> claimedLength_;
  uint64_t readLimit_ = 0;
  uint64_t writeLimit_ = 0;
  uint64_t shortWriteCountdown_ = 0;  // 0: none is ordered.
  uint64_t shortReadCountdown_ = 0;   // 0: none is ordered.
  Shortfall shortfall_ = Shortfall::kOneByte;
  CallRecord shortenedRead_{};
  Call faultCall_ = Call::kAny;
  uint64_t faultCountdown_ = 0;  // 0: none is ordered.
  QiroK7MError faultCode_ = 0;
  bool faultIsLasting_ = false;
  bool faultHit_ = false;

  std::vector<CallRecord, MallocAllocator<CallRecord>> log_;
  bool isLogging_ = true;
  std::vector<StreamChange> journal_;
  bool isKeepingJournal_ = false;
  std::array<uint64_t, 10> counts_{};
  uint64_t bytesDelivered_ = 0;
  uint64_t greatestOffset_ = 0;
  const char* violation_ = nullptr;
};

}  // namespace k7mtest

#endif

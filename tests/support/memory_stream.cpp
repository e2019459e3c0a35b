#include "memory_stream.h"

#include <algorithm>
#include <cstring>

namespace k7mtest {
namespace {

bool IsZero(const uint8_t* bytes, uint64_t size) {
  return size == 0 || (bytes[0] == 0 && std::memcmp(bytes, bytes + 1, size - 1) == 0);
}

}  // namespace

struct MemoryStream::CallBacks {
  static MemoryStream& Self(void* clientData) { return *static_cast<MemoryStream*>(clientData); }

  static QiroK7MError Acquire(void* clientData) {
    return Self(clientData).Enter(Call::kAcquire, 0, 0, false);
  }
  static QiroK7MError Release(void* clientData) {
    return Self(clientData).Enter(Call::kRelease, 0, 0, false);
  }
  static QiroK7MError Open(void* clientData) {
    MemoryStream& self = Self(clientData);
    if (self.isOpen_) self.Breach("open while open");
    const QiroK7MError error = self.Enter(Call::kOpen, 0, 0, false);
    if (error != 0) return error;
    self.isOpen_ = true;
    self.position_ = 0;
    return 0;
  }
  static QiroK7MError Close(void* clientData) {
    MemoryStream& self = Self(clientData);
    const QiroK7MError error = self.Enter(Call::kClose, 0, 0);
    self.isOpen_ = false;  // Also when a fault makes it fail: it must not be called again.
    return error;
  }
  static QiroK7MError ReadSome(void* clientData, void* buffer, uint64_t byteCount,
                               uint64_t* bytesRead) {
    MemoryStream& self = Self(clientData);
    if (bytesRead == nullptr || (buffer == nullptr && byteCount != 0)) self.Breach("null in read");
    const QiroK7MError error = self.Enter(Call::kRead, self.position_, byteCount);
    if (error != 0) return error;
    const uint64_t left = self.position_ < self.length_ ? self.length_ - self.position_ : 0;
    uint64_t count = std::min(byteCount, left);
    if (self.readLimit_ != 0) count = std::min(count, self.readLimit_);
    count = self.Shorten(count, byteCount);
    self.CopyOut(self.position_, static_cast<uint8_t*>(buffer), count);
    self.position_ += count;
    self.bytesDelivered_ += count;
    self.NoteDelivered(count);
    *bytesRead = count;
    return 0;
  }
  static QiroK7MError Seek(void* clientData, int64_t offset, QiroK7MSeekPos origin) {
    MemoryStream& self = Self(clientData);
    uint64_t base = 0;
    if (origin == kQiroK7MSeekFromCurrent) {
      base = self.position_;
    } else if (origin == kQiroK7MSeekFromEnd) {
      base = self.claimedLength_.value_or(self.length_);
    } else if (origin != kQiroK7MSeekFromStart) {
      self.Breach("unknown seek origin");
    }
    const uint64_t target = base + static_cast<uint64_t>(offset);
    if (target > static_cast<uint64_t>(INT64_MAX)) {
      self.Breach("seek before the first byte or above 2^63-1");
    }
    const QiroK7MError error = self.Enter(Call::kSeek, target, 0);
    if (error != 0) return error;
    self.position_ = target;
    self.greatestOffset_ = std::max(self.greatestOffset_, target);
    return 0;
  }
  static QiroK7MError Tell(void* clientData, uint64_t* position) {
    MemoryStream& self = Self(clientData);
    if (position == nullptr) self.Breach("null in tell");
    const QiroK7MError error = self.Enter(Call::kTell, self.position_, 0);
    if (error != 0) return error;
    *position = self.position_;
    return 0;
  }
  static QiroK7MError Write(void* clientData, const void* buffer, uint64_t byteCount,
                            uint64_t* bytesWritten) {
    MemoryStream& self = Self(clientData);
    if (bytesWritten == nullptr || (buffer == nullptr && byteCount != 0)) {
      self.Breach("null in write");
    }
    const QiroK7MError error = self.Enter(Call::kWrite, self.position_, byteCount);
    if (error != 0) return error;
    uint64_t count = self.writeLimit_ != 0 ? std::min(byteCount, self.writeLimit_) : byteCount;
    if (byteCount != 0 && self.shortWriteCountdown_ != 0 && --self.shortWriteCountdown_ == 0) {
      self.faultHit_ = true;
      count = byteCount - 1;
    }
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    self.CopyIn(self.position_, bytes, count);
    if (self.isKeepingJournal_ && count > 0) {
      self.journal_.push_back(
          {self.position_, Bytes(std::vector<uint8_t>(bytes, bytes + count)), false});
    }
    self.position_ += count;
    self.NoteDelivered(count);
    *bytesWritten = count;
    return 0;
  }
  static QiroK7MError Truncate(void* clientData, uint64_t length) {
    MemoryStream& self = Self(clientData);
    const QiroK7MError error = self.Enter(Call::kTruncate, 0, length);
    if (error != 0) return error;
    self.SetLength(length);
    if (self.isKeepingJournal_) self.journal_.push_back({length, {}, true});
    return 0;
  }
};

QiroK7MIStreamCallBacks MemoryStream::Reading() {
  QiroK7MIStreamCallBacks record{};
  record.size = sizeof(record);
  record.clientData = this;
  record.acquire = &CallBacks::Acquire;
  record.release = &CallBacks::Release;
  record.open = &CallBacks::Open;
  record.close = &CallBacks::Close;
  record.readSome = &CallBacks::ReadSome;
  record.seek = &CallBacks::Seek;
  record.tell = &CallBacks::Tell;
  return record;
}

QiroK7MIOStreamCallBacks MemoryStream::ReadingAndWriting() {
  QiroK7MIOStreamCallBacks record;
  record.size = sizeof(record);
  record.clientData = this;
  record.acquire = &CallBacks::Acquire;
  record.release = &CallBacks::Release;
  record.open = &CallBacks::Open;
  record.close = &CallBacks::Close;
  record.readSome = &CallBacks::ReadSome;
  record.seek = &CallBacks::Seek;
  record.tell = &CallBacks::Tell;
  record.write = &CallBacks::Write;
  record.truncate = &CallBacks::Truncate;
  return record;
}

void MemoryStream::Put(uint64_t offset, const Bytes& bytes) {
  CopyIn(offset, bytes.Data(), bytes.Size());
}

void MemoryStream::SetLength(uint64_t length) {
  if (length < length_) {
    const uint64_t page = length / kPageSize;
    pages_.erase(pages_.upper_bound(page), pages_.end());
    if (const auto found = pages_.find(page); found != pages_.end()) {
      std::fill(found->second.begin() + static_cast<std::ptrdiff_t>(length % kPageSize),
                found->second.end(), uint8_t{0});
    }
  }
  length_ = length;
}

Bytes MemoryStream::Content(uint64_t offset, size_t size) const {
  Bytes bytes;
  bytes.Fill(size);
  CopyOut(offset, bytes.Data(), size);
  return bytes;
}

void MemoryStream::FailNth(Call call, uint64_t n, QiroK7MError code, bool isLasting) {
  faultCall_ = call;
  faultCountdown_ = n;
  faultCode_ = code;
  faultIsLasting_ = isLasting;
  faultHit_ = false;
}

uint64_t MemoryStream::Count(Call call) const { return counts_[static_cast<size_t>(call)]; }

void MemoryStream::ClearLog() {
  log_.clear();
  counts_ = {};
  bytesDelivered_ = 0;
  greatestOffset_ = 0;
}

QiroK7MError MemoryStream::Enter(Call call, uint64_t offset, uint64_t size, bool needsOpen) {
  if (needsOpen && !isOpen_) Breach("used while not open");
  if (isLogging_) log_.push_back({call, offset, size, 0});
  ++counts_[static_cast<size_t>(call)];
  ++counts_[static_cast<size_t>(Call::kAny)];
  if (faultCall_ != Call::kAny && faultCall_ != call) return 0;
  if (faultCountdown_ == 0 || --faultCountdown_ != 0) return 0;
  if (faultIsLasting_) faultCountdown_ = 1;
  faultHit_ = true;
  return faultCode_;
}

uint64_t MemoryStream::Shorten(uint64_t count, uint64_t byteCount) {
  if (count == 0 || shortReadCountdown_ == 0 || --shortReadCountdown_ != 0) return count;
  if (shortfall_ == Shortfall::kEverythingFromThenOn) shortReadCountdown_ = 1;
  const uint64_t delivered = shortfall_ == Shortfall::kOneByte ? count - 1 : 0;
  if (!faultHit_) shortenedRead_ = {Call::kRead, position_, byteCount, delivered};
  faultHit_ = true;
  return delivered;
}

void MemoryStream::CopyOut(uint64_t offset, uint8_t* to, uint64_t size) const {
  while (size > 0) {
    const uint64_t inPage = offset % kPageSize;
    const uint64_t count = std::min(size, kPageSize - inPage);
    const auto found = pages_.find(offset / kPageSize);
    if (found != pages_.end()) {
      std::memcpy(to, found->second.data() + inPage, count);
    } else {
      std::memset(to, 0, count);
    }
    offset += count;
    to += count;
    size -= count;
  }
}

void MemoryStream::CopyIn(uint64_t offset, const uint8_t* from, uint64_t size) {
  while (size > 0) {
    const uint64_t inPage = offset % kPageSize;
    const uint64_t count = std::min(size, kPageSize - inPage);
    const auto found = pages_.find(offset / kPageSize);
    if (found != pages_.end()) {
      std::memcpy(found->second.data() + inPage, from, count);
    } else if (!IsZero(from, count)) {
      Page& page = pages_[offset / kPageSize];  // Zeroed.
      std::memcpy(page.data() + inPage, from, count);
    }
    offset += count;
    from += count;
    size -= count;
    length_ = std::max(length_, offset);
  }
}

}  // namespace k7mtest

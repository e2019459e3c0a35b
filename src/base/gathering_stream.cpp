#include "base/gathering_stream.h"

#include <cstring>
#include <utility>

namespace qiro::k7m::impl {

uint64_t GatheringStream::Write(const void* buffer, uint64_t length, uint32_t* flushed) {
  if (!isPlaced_) [[likely]] {
    return QiroK7MIOStream::Write(buffer, length, flushed);
  }
  Gather(buffer, length);
  return length;
}

void GatheringStream::Gather(const void* buffer, uint64_t length) {
  if (length >= kCapacity || length > kCapacity - Index()) {
    PassOn();
  }
  if (length >= kCapacity) {
    const uint64_t position = begin_;
    Forget();
    WriteToClient(buffer, length, position);
    Place(position + length);
  } else if (length != 0) {
    std::memcpy(TakeRoom(length), buffer, length);
  }
}

uint64_t GatheringStream::ReadSome(void* buffer, uint64_t length) {
  Settle();
  return QiroK7MIOStream::ReadSome(buffer, length);
}

void GatheringStream::Seek(int64_t offset, QiroK7MSeekPos origin) {
  if (depth_ == 0) [[likely]] {
    QiroK7MIOStream::Seek(offset, origin);
  } else {
    SeekWhileGathering(offset, origin);
  }
}

void GatheringStream::SeekWhileGathering(int64_t offset, QiroK7MSeekPos origin) {
  const bool isFromCurrent = origin == kQiroK7MSeekFromCurrent && isPlaced_;
  if (origin != kQiroK7MSeekFromStart && !isFromCurrent) {
    Settle();
    QiroK7MIOStream::Seek(offset, origin);
    return;
  }
  const uint64_t position = static_cast<uint64_t>(offset) + (isFromCurrent ? Position() : 0);
  if (isPlaced_ && position >= begin_ && position - begin_ <= Count()) {
    highest_ = Count();
    SetRoom(bytes_.data() + (position - begin_), bytes_.data() + kCapacity);
    return;
  }
  if (isPlaced_) {
    PassOn();
  }
  Place(position);
}

void GatheringStream::Truncate(uint64_t length) {
  Settle();
  QiroK7MIOStream::Truncate(length);
}

uint64_t GatheringStream::Tell() { return isPlaced_ ? Position() : QiroK7MIOStream::Tell(); }

void GatheringStream::EndGathering() {
  --depth_;
  if (depth_ == 0) {
    Settle();
  }
}

void GatheringStream::AbandonGathering() {
  --depth_;
  Forget();
  isClientPlaced_ = false;
}

void GatheringStream::Place(uint64_t position) {
  begin_ = position;
  highest_ = 0;
  isPlaced_ = true;
  SetRoom(bytes_.data(), bytes_.data() + kCapacity);
}

void GatheringStream::Forget() {
  isPlaced_ = false;
  SetRoom(nullptr, nullptr);
}

void GatheringStream::PassOn() {
  const uint64_t position = Position();
  const uint64_t count = Count();
  Forget();
  if (count != 0) {
    WriteToClient(bytes_.data(), count, begin_);
  }
  Place(position);
}

void GatheringStream::Settle() {
  if (isPlaced_) {
    PassOn();
    Forget();
    SeekClient(begin_);
  }
  isClientPlaced_ = false;
}

void GatheringStream::SeekClient(uint64_t offset) {
  if (!std::exchange(isClientPlaced_, false) || clientPosition_ != offset) {
    ThrowIf(offset > kMaxStreamOffset, kQiroK7MErrorBoxTruncated);
    QiroK7MIOStream::Seek(static_cast<int64_t>(offset), kQiroK7MSeekFromStart);
  }
  isClientPlaced_ = true;
  clientPosition_ = offset;
}

void GatheringStream::WriteToClient(const void* buffer, uint64_t length, uint64_t offset) {
  SeekClient(offset);
  isClientPlaced_ = false;
  QiroK7MIOStream::Write(buffer, length, nullptr);
  isClientPlaced_ = true;
  clientPosition_ = offset + length;
}

}  // namespace qiro::k7m::impl

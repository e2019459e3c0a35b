#include "flat_file.h"

#include <algorithm>
#include <cstring>

namespace k7mtest {

QiroK7MError FlatFile::Open(void* clientData) {
  Self(clientData).position_ = 0;
  return 0;
}

QiroK7MError FlatFile::ReadSome(void* clientData, void* buffer, uint64_t count, uint64_t* read) {
  FlatFile& self = Self(clientData);
  *read = std::min(count, self.length_ - std::min(self.length_, self.position_));
  if (*read > 0) std::memcpy(buffer, self.content_ + self.position_, *read);
  self.position_ += *read;
  self.bytesDelivered_ += *read;
  return 0;
}

QiroK7MError FlatFile::Seek(void* clientData, int64_t offset, QiroK7MSeekPos origin) {
  FlatFile& self = Self(clientData);
  uint64_t base = 0;
  if (origin == kQiroK7MSeekFromCurrent) base = self.position_;
  if (origin == kQiroK7MSeekFromEnd) base = self.length_;
  self.position_ = base + static_cast<uint64_t>(offset);
  return 0;
}

QiroK7MError FlatFile::Tell(void* clientData, uint64_t* position) {
  *position = Self(clientData).position_;
  return 0;
}

QiroK7MError FlatFile::Write(void* clientData, const void* buffer, uint64_t count,
                             uint64_t* written) {
  FlatFile& self = Self(clientData);
  self.MakeRoomFor(self.position_ + count);
  if (count > 0) std::memcpy(self.changed_.get() + self.position_, buffer, count);
  self.position_ += count;
  self.length_ = std::max(self.length_, self.position_);
  *written = count;
  return 0;
}

void FlatFile::MakeRoomFor(uint64_t length) {
  if (changed_ != nullptr && length <= capacity_) return;
  capacity_ = 2 * std::max(length, length_) + 1;
  auto* const larger = static_cast<uint8_t*>(std::calloc(capacity_, 1));
  if (larger == nullptr) std::abort();
  if (length_ > 0) std::memcpy(larger, content_, length_);
  changed_.reset(larger);
  content_ = larger;
}

QiroK7MError FlatFile::Truncate(void* clientData, uint64_t length) {
  FlatFile& self = Self(clientData);
  self.MakeRoomFor(length);
  if (length < self.length_) std::memset(self.changed_.get() + length, 0, self.length_ - length);
  self.length_ = length;
  return 0;
}

QiroK7MIStreamCallBacks FlatFile::Reading() {
  QiroK7MIStreamCallBacks record{};
  record.size = sizeof(record);
  record.clientData = this;
  record.open = &Open;
  record.close = &Close;
  record.readSome = &ReadSome;
  record.seek = &Seek;
  record.tell = &Tell;
  return record;
}

QiroK7MIOStreamCallBacks FlatFile::ReadingAndWriting() {
  QiroK7MIOStreamCallBacks record;
  record.size = sizeof(record);
  record.clientData = this;
  record.open = &Open;
  record.close = &Close;
  record.readSome = &ReadSome;
  record.seek = &Seek;
  record.tell = &Tell;
  record.write = &Write;
  record.truncate = &Truncate;
  return record;
}

}  // namespace k7mtest

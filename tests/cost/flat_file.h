/// @file flat_file.h
/// A stream over bytes in memory that costs as good as nothing, so that what is counted is the
/// library's work. Its own memory is not counted either. Bytes are copied when one is written.
#ifndef K7M_TESTS_COST_FLAT_FILE_H
#define K7M_TESTS_COST_FLAT_FILE_H

#include <cstdlib>
#include <memory>

#include "k7m/stream.h"
#include "support/bytes.h"

namespace k7mtest {

class FlatFile {
 public:
  /// `content` must outlive this object.
  explicit FlatFile(const Bytes& content) : content_(content.Data()), length_(content.Size()) {}
  FlatFile(const FlatFile&) = delete;
  FlatFile& operator=(const FlatFile&) = delete;

  QiroK7MIStreamCallBacks Reading();
  QiroK7MIOStreamCallBacks ReadingAndWriting();
  uint64_t BytesDelivered() const { return bytesDelivered_; }
  uint64_t Length() const { return length_; }

 private:
  static FlatFile& Self(void* clientData) { return *static_cast<FlatFile*>(clientData); }
  static QiroK7MError Open(void* clientData);
  static QiroK7MError Close(void*) { return 0; }
  static QiroK7MError ReadSome(void* clientData, void* buffer, uint64_t count, uint64_t* read);
  static QiroK7MError Seek(void* clientData, int64_t offset, QiroK7MSeekPos origin);
  static QiroK7MError Tell(void* clientData, uint64_t* position);
  static QiroK7MError Write(void* clientData, const void* buffer, uint64_t count,
                            uint64_t* written);
  static QiroK7MError Truncate(void* clientData, uint64_t length);
  void MakeRoomFor(uint64_t length);

  struct Free {
    void operator()(uint8_t* block) const { std::free(block); }
  };

  const uint8_t* content_;
  uint64_t length_;
  std::unique_ptr<uint8_t, Free> changed_;  // Where content_ points once a byte was written.
  uint64_t capacity_ = 0;
  uint64_t position_ = 0;
  uint64_t bytesDelivered_ = 0;
};

}  // namespace k7mtest

#endif

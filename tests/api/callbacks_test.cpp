// Callbacks that break off: a close that throws, an allocation that returns null.
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "reading_session.h"
#include "support/memory_stream.h"

namespace k7mtest {
namespace {

// Closing
// -------------------------------------------------------------------------------------------

/// A stream whose close callback throws.
class UnclosableStream {
 public:
  explicit UnclosableStream(const Bytes& content) : stream_(content) {}

  QiroK7MIStreamCallBacks Record() {
    QiroK7MIStreamCallBacks record = stream_.Reading();
    record.close = [](void*) -> QiroK7MError {
      ++closeCount;
      throw std::runtime_error("cannot be closed");
    };
    closeCount = 0;
    return record;
  }
  MemoryStream& Memory() { return stream_; }

  static inline int closeCount = 0;

 private:
  MemoryStream stream_;
};

QiroK7MError Open(UnclosableStream& stream, QiroK7MReader** reader) {
  const QiroK7MIStreamCallBacks record = stream.Record();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks memory;
  return QiroK7MDocOpenForRead(&record, &warning, &memory, reader);
}

TEST(CloseThatThrows, LeavesClosingAReaderAlone) {
  UnclosableStream stream(SessionFile());
  QiroK7MReader* reader = nullptr;
  ASSERT_EQ(Open(stream, &reader), 0u);
  EXPECT_EQ(UnclosableStream::closeCount, 0);
  QiroK7MCloseReader(reader);
  EXPECT_EQ(UnclosableStream::closeCount, 1);
}

TEST(CloseThatThrows, LeavesTheCodeOfAFailedOpenAlone) {
  UnclosableStream stream(Box("ftyp"));
  QiroK7MReader* reader = nullptr;
  EXPECT_EQ(Open(stream, &reader), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(UnclosableStream::closeCount, 1);
  EXPECT_EQ(reader, nullptr);
}

TEST(CloseThatThrows, IsTheResultOfATypeTestThatSucceededOtherwise) {
  UnclosableStream stream(SessionFile());
  const QiroK7MIStreamCallBacks record = stream.Record();
  const QiroK7MAllocatorCallBacks memory;
  uint32_t answer = 77;
  EXPECT_EQ(QiroK7MDocIsK7M(&record, &memory, &answer), kQiroK7MErrorStdException);
  EXPECT_EQ(UnclosableStream::closeCount, 1);
  EXPECT_EQ(answer, 77u);
}

TEST(CloseThatThrows, LeavesTheCodeOfAFailedTypeTestAlone) {
  UnclosableStream stream(SessionFile());
  stream.Memory().FailNth(Call::kRead, 1, 4711);
  const QiroK7MIStreamCallBacks record = stream.Record();
  const QiroK7MAllocatorCallBacks memory;
  uint32_t answer = 77;
  EXPECT_EQ(QiroK7MDocIsK7M(&record, &memory, &answer), 4711u);
  EXPECT_EQ(UnclosableStream::closeCount, 1);
}

// Memory
// --------------------------------------------------------------------------------------------

/// Memory whose n-th allocation, from 1, returns null.
struct ScarceMemory {
  uint64_t left;
  int64_t liveBlocks = 0;

  explicit ScarceMemory(uint64_t n) : left(n) {}
  QiroK7MAllocatorCallBacks Record() {
    QiroK7MAllocatorCallBacks record;
    record.clientData = this;
    record.allocate = [](void* self, uint64_t byteCount) -> void* {
      auto& memory = *static_cast<ScarceMemory*>(self);
      if (memory.left > 0 && --memory.left == 0) return nullptr;
      ++memory.liveBlocks;
      return std::malloc(byteCount == 0 ? 1 : byteCount);
    };
    record.release = [](void* self, void* block) {
      --static_cast<ScarceMemory*>(self)->liveBlocks;
      std::free(block);
    };
    return record;
  }
};

TEST(AllocateThatReturnsNull, IsError18WhereverItHappens) {
  const Bytes file = SessionFile();
  uint64_t failures = 0;
  for (uint64_t n = 1; failures + 1 == n; ++n) {
    MemoryStream stream(file);
    ScarceMemory scarce(n);
    const QiroK7MIStreamCallBacks record = stream.Reading();
    const QiroK7MWarningHandlerCallBacks warning;
    const QiroK7MAllocatorCallBacks memory = scarce.Record();
    QiroK7MReader* reader = nullptr;
    const QiroK7MError result = QiroK7MDocOpenForRead(&record, &warning, &memory, &reader);
    if (scarce.left == 0) {
      ++failures;
      EXPECT_EQ(result, kQiroK7MErrorOutOfMemory) << n;
      EXPECT_EQ(reader, nullptr) << n;
    } else {
      EXPECT_EQ(result, 0u) << n;
      QiroK7MCloseReader(reader);
    }
    ASSERT_EQ(scarce.liveBlocks, 0) << n;
    EXPECT_FALSE(stream.IsOpen());
  }
  EXPECT_GT(failures, 50u);
}

}  // namespace
}  // namespace k7mtest

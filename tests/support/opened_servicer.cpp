#include "opened_servicer.h"

#include <gtest/gtest.h>

namespace k7mtest {

void OpenedServicer::Open() {
  const QiroK7MIStreamCallBacks file = file_.Reading();
  const QiroK7MIStreamCallBacks index = index_.Reading();
  const QiroK7MAllocatorCallBacks memory = memory_.Record();
  result_ = QiroK7RQueryServicerCreate(&file, hasIndex_ ? &index : nullptr, &memory, &servicer_);
  EXPECT_EQ(servicer_ != nullptr, result_ == 0);
}

Answer OpenedServicer::Get(uint32_t fragmentNumber, uint32_t segmentNumber) {
  const uint64_t blocks = memory_.LiveBlocks();
  int rubbish = 0;
  void* data = &rubbish;
  Answer answer;
  answer.size = 0xEEEEEEEE;
  answer.result = QiroK7RQueryServicerGetFragment(servicer_, fragmentNumber, segmentNumber,
                                                  &answer.size, &data);
  answer.isNull = data == nullptr;
  if (answer.result != 0 || answer.size == 0) {
    EXPECT_EQ(answer.size, 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(memory_.LiveBlocks(), blocks) << "memory is kept behind a failure";
    return answer;
  }
  EXPECT_NE(data, &rubbish);
  const auto* bytes = static_cast<const uint8_t*>(data);
  answer.data = Bytes(std::vector<uint8_t>(bytes, bytes + answer.size));
  EXPECT_EQ(memory_.LiveBlocks(), blocks + 1) << "the fragment, and nothing else";
  const QiroK7MAllocatorCallBacks memory = memory_.Record();
  memory.release(memory.clientData, data);
  return answer;
}

void OpenedServicer::Close() {
  if (isClosed_) return;
  isClosed_ = true;
  EXPECT_EQ(QiroK7RCloseQueryServicer(servicer_), 0u);
  servicer_ = nullptr;
  for (MemoryStream* stream : {&file_, &index_}) {
    EXPECT_FALSE(stream->IsOpen());
    EXPECT_STREQ(stream->Violation(), nullptr);
  }
  EXPECT_EQ(memory_.LiveBlocks(), 0u);
  EXPECT_EQ(memory_.BadReleases(), 0u);
}

QiroK7MError ServicerResult(const Bytes& file, const std::optional<Bytes>& index) {
  return OpenedServicer(file, index).Result();
}

}  // namespace k7mtest

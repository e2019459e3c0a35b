#include "boxes/afra_box.h"

#include <gtest/gtest.h>

#include "boxes/box_factory.h"
#include "internals/document.h"
#include "internals/writing_stream.h"
#include "support/box_builder.h"

namespace k7mtest {
namespace {

constexpr QiroK7MAllocatorCallBacks* kNoAllocator = nullptr;

TEST(WrittenAfra, WithoutEntriesIs21BytesLongAndEndsWithTheCount0) {
  WritingStream stream;
  impl::AfraBox box(stream.Get(), 0, 0x11223344, kNoAllocator);
  EXPECT_EQ(box.GetTotalSize(), 21u);
  EXPECT_EQ(box.GetTimeScale(), 0x11223344u);
  box.WriteBox();
  EXPECT_EQ(stream.Content(), FullBox("afra", 0, 0, Bytes().U8(0xC0).U32(0x11223344).U32(0)));
}

TEST(WrittenAfra, EveryEntryAdds16Bytes) {
  WritingStream stream;
  impl::AfraBox box(stream.Get(), 3, 90000, kNoAllocator);
  box.AddEntry(0x0102030405060708, 0x1112131415161718);
  EXPECT_EQ(box.GetTotalSize(), 37u);
  box.AddEntry(7, 0);
  EXPECT_EQ(box.GetTotalSize(), 53u);
  box.WriteBox();
  EXPECT_EQ(stream.Content(), FullBox("afra", 3, 0,
                                      Bytes()
                                          .U8(0xC0)
                                          .U32(90000)
                                          .U32(2)
                                          .U64(0x0102030405060708)
                                          .U64(0x1112131415161718)
                                          .U64(7)
                                          .U64(0)));
}

TEST(WrittenAfra, OffsetsGrowTogetherAndWrap) {
  WritingStream stream;
  impl::AfraBox box(stream.Get(), 0, 1, kNoAllocator);
  box.AddEntry(1, 10);
  box.AddEntry(2, 0xFFFFFFFFFFFFFFFF);
  box.IncrementSamplesOffset(5);
  EXPECT_EQ(box.GetEntries()[0].offset, 15u);
  EXPECT_EQ(box.GetEntries()[1].offset, 4u);
  EXPECT_EQ(box.GetEntries()[0].time, 1u);
}

TEST(WrittenAfra, AnUpdateTouchesCountAndEntriesOnly) {
  WritingStream stream;
  impl::AfraBox box(stream.Get(), 0, 1000, kNoAllocator);
  box.SetBeginOffset(100);
  box.AddEntry(1, 10);
  box.WriteBox();
  const Bytes before = stream.Content();
  box.IncrementSamplesOffset(1);
  stream.Memory().ClearLog();
  box.UpdateBox();
  EXPECT_EQ(stream.Content(), Bytes(before).Patch(129, 11, 8));
  for (const CallRecord& call : stream.Memory().Log()) {
    EXPECT_TRUE(call.call != Call::kWrite || call.offset == 117) << call.offset;
  }
}

TEST(WrittenAfra, IsReadAsAPlainBox) {
  WritingStream stream;
  impl::AfraBox written(stream.Get(), 0, 1, kNoAllocator);
  written.WriteBox();
  stream.Get()->SeekTo(0);
  const auto header = impl::BoxHeader::Parse(*stream.Get(), nullptr);
  ASSERT_TRUE(header);
  const auto box = impl::BoxFactory::Instance().CreateBox(stream.Get(), *header, kNoAllocator);
  EXPECT_EQ(box->GetTotalSize(), 21u);
  EXPECT_EQ(dynamic_cast<impl::FullBox*>(box.get()), nullptr);
}

}  // namespace
}  // namespace k7mtest

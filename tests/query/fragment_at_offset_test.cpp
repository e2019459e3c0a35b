// With an index: what may stand at the offset that it gives.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/fragment_file.h"
#include "support/opened_servicer.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kBadFile = kQiroK7MErrorBadFragmentFile;
constexpr QiroK7MError kPastTheEnd = kQiroK7MErrorReadFailed;
constexpr uint64_t kAllOnes = ~uint64_t{0};

/// What is answered when an index points at the begin of these bytes.
Answer AnswerAt(const Bytes& bytes, uint64_t offset = 0) {
  OpenedServicer servicer(bytes, AfraBox({.locals = {{.offset = offset}}}));
  EXPECT_EQ(servicer.Result(), 0u);
  const uint64_t allocations = servicer.Memory().Allocations();
  const Answer answer = servicer.Get(1);
  if (answer.result != 0) {
    EXPECT_EQ(servicer.Memory().Allocations(), allocations) << "something was allocated";
  }
  return answer;
}

const Bytes kAfra = AfraBox({});
const Bytes kAbst = Box("abst", Pattern(9));
const Bytes kMoof = Box("moof", Pattern(30));  // Its content is not looked at.
const Bytes kMdat = Box("mdat", Pattern(40));
const Bytes kFree = Box("free", Pattern(3));

TEST(FragmentAtOffset, NeedsNothingElseOfTheFile) {
  const Bytes fragment = kAfra + kMoof + kMdat;
  EXPECT_EQ(AnswerAt(fragment).data, fragment);
  EXPECT_EQ(AnswerAt(Pattern(11) + fragment + Pattern(13), 11).data, fragment);
}

TEST(FragmentAtOffset, MayHaveABootstrapBox) {
  const Bytes fragment = kAfra + kAbst + kMoof + kMdat;
  EXPECT_EQ(AnswerAt(fragment + kFree).data, fragment);
}

TEST(FragmentAtOffset, EverySizeFormIsCounted) {
  const Bytes large = LargeBox("afra", Pattern(13)) + LargeBox("abst") + LargeBox("moof") +
                      LargeBox("mdat", Pattern(50));
  EXPECT_EQ(AnswerAt(large + kFree).data, large);
  const Bytes tillEnd = kAfra + kMoof + TillEndBox("mdat", Pattern(50));
  EXPECT_EQ(AnswerAt(tillEnd).data, tillEnd);
  EXPECT_EQ(AnswerAt(TillEndBox("afra", Pattern(13)) + kMoof + kMdat).result, kBadFile);
}

TEST(FragmentAtOffset, AnotherSequence_Error1025) {
  const std::vector<Bytes> sequences = {
      kMoof + kMdat,
      kAbst + kAfra + kMoof + kMdat,
      kAfra + kAfra + kMoof + kMdat,
      kAfra + kAbst + kAbst + kMoof + kMdat,
      kAfra + kMoof + kAbst + kMdat,
      kAfra + kMdat + kMoof,
      kAfra + kMoof + kMoof + kMdat,
      kAfra + kMdat,
      kAfra + kAbst + kMdat,
      kFree + kAfra + kMoof + kMdat,
      kAfra + kFree + kMoof + kMdat,
      kAfra + kAbst + kFree + kMoof + kMdat,
      kAfra + kMoof + kFree + kMdat,
      kAfra + kMoof + kAfra + kMoof + kMdat,
      BoxAsUuid("afra", Pattern(13)) + kMoof + kMdat,
  };
  for (size_t i = 0; i < sequences.size(); ++i) {
    EXPECT_EQ(AnswerAt(sequences[i] + kFree).result, kBadFile) << i;
  }
}

TEST(FragmentAtOffset, CutAnywhere_Error5AndWhereABoxEnds1025) {
  const Bytes fragment = kAfra + kAbst + kMoof + kMdat;
  const size_t ends[] = {kAfra.Size(), kAfra.Size() + kAbst.Size(),
                         kAfra.Size() + kAbst.Size() + kMoof.Size()};
  for (size_t size = 0; size < fragment.Size(); ++size) {
    const bool isBoxMissing = std::find(std::begin(ends), std::end(ends), size) != std::end(ends);
    EXPECT_EQ(AnswerAt(Cut(fragment, size)).result, isBoxMissing ? kBadFile : kPastTheEnd) << size;
  }
}

TEST(FragmentAtOffset, AnOffsetPastTheEnd_Error5) {
  const Bytes fragment = kAfra + kMoof + kMdat;
  for (const uint64_t offset :
       {uint64_t{fragment.Size()}, uint64_t{fragment.Size()} + 1, uint64_t{0x7FFFFFFFFFFFFFFF},
        uint64_t{0x8000000000000000}, kAllOnes - 1}) {
    EXPECT_EQ(AnswerAt(fragment, offset).result, kPastTheEnd) << offset;
  }
}

TEST(FragmentAtOffset, SizesThatLie) {
  const auto withMdat = [](const Bytes& mdat) { return AnswerAt(kAfra + kMoof + mdat).result; };
  EXPECT_EQ(withMdat(LyingBox("mdat", 7, Pattern(20))), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(withMdat(LyingLargeBox("mdat", 15, Pattern(20))), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(withMdat(LyingLargeBox("mdat", 0, Pattern(20))), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(withMdat(LyingBox("mdat", 29, Pattern(20))), kPastTheEnd);
  EXPECT_EQ(withMdat(LyingBox("mdat", 0xFFFFFFFF, Pattern(20))), kPastTheEnd);
  for (const uint64_t size : {uint64_t{0x7FFFFFFFFFFFFFFF}, kAllOnes, kAllOnes - 100}) {
    EXPECT_EQ(withMdat(LyingLargeBox("mdat", size, Pattern(20))), kPastTheEnd) << size;
  }
  EXPECT_EQ(AnswerAt(LyingBox("afra", 5) + kMoof + kMdat).result, kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(AnswerAt(kAfra + LyingBox("moof", 2) + kMdat).result, kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(AnswerAt(LyingBox("free", 5) + kMoof + kMdat).result, kBadFile);
}

/// A fragment of `size` bytes, most of which is a hole, at a place far behind.
void PutLargeFragment(MemoryStream& file, uint64_t offset, uint64_t size) {
  file.Put(offset, kAfra + kMoof + LyingLargeBox("mdat", size - kAfra.Size() - kMoof.Size()));
  file.SetLength(offset + size);
}

TEST(FragmentAtOffset, LargerThan32Bits_Error1025) {
  constexpr uint64_t kOffset = 0x123456789ABC;
  OpenedServicer servicer({}, AfraBox({.locals = {{.offset = kOffset}}}));
  PutLargeFragment(servicer.File(), kOffset, 0x100000000);
  const uint64_t allocations = servicer.Memory().Allocations();
  EXPECT_EQ(servicer.Get(1).result, kBadFile);
  EXPECT_EQ(servicer.Memory().Allocations(), allocations);
  servicer.File().SetLength(servicer.File().Length() -
                            1);  // Not noticed: what was measured stands.
  EXPECT_EQ(servicer.Get(1).result, kBadFile);
  PutLargeFragment(servicer.File(), kOffset, 0xFFFFFFFF);
  servicer.Memory().FailNth(1);
  EXPECT_EQ(servicer.Get(1).result, kQiroK7MErrorOutOfMemory) << "all of it is asked for";
  EXPECT_TRUE(servicer.Memory().FaultHit());
}

TEST(FragmentAtOffset, FarBehindIsServed) {
  constexpr uint64_t kOffset = 0x123456789ABC;
  const Bytes fragment = kAfra + kMoof + kMdat;
  OpenedServicer servicer({}, AfraBox({.locals = {{.offset = kOffset}}}));
  servicer.File().Put(kOffset, fragment);
  EXPECT_EQ(servicer.Get(1).data, fragment);
}

TEST(FragmentAtOffset, AFileThatGrowsIsNoticed) {
  const Bytes fragment = kAfra + kMoof + kMdat;
  OpenedServicer servicer({}, AfraBox({.locals = {{.offset = 0}}}));
  for (size_t size = 0; size < fragment.Size(); ++size) {
    EXPECT_NE(servicer.Get(1).result, 0u) << size;
    servicer.File().Grow(fragment.Slice(size, 1));
  }
  EXPECT_EQ(servicer.Get(1).data, fragment);
}

}  // namespace
}  // namespace k7mtest

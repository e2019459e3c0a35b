// Continuing a K7R file: what lies behind the keep limit, and the largest numbers.
#include <gtest/gtest.h>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

TEST(K7RAppendLimits, WhatFollowsAnAfraBehindTheLimitIsCutUnread) {
  const Recording recording = Record(1);
  const Bytes afra = FindBox(recording.file, "afra");
  const struct {
    const char* name;
    Bytes bytes;
    QiroK7MError code;  // When it is read.
  } cases[] = {
      {"shorter than its header", LyingBox("free", 7) + Pattern(30), 27},
      {"a second movie box", FindBox(recording.file, "moov"), 36},
      {"a moof without mfhd", Box("moof", Pattern(0)), 14},
      {"a traf of no track", ExpectedMoof(2, ExpectedTraf(9, 0, {{0, {{1, 1, 0, 0}}}})), 25}};
  for (const auto& [name, bytes, code] : cases) {
    SCOPED_TRACE(name);
    const Bytes broken = recording.file + afra + bytes;
    EXPECT_EQ(OpenedK7RWriter(broken, recording.file.Size()).Result(), code);
    OpenedK7RWriter writer(broken, recording.file.Size() - 1);
    ASSERT_EQ(writer.Result(), 0u);
    EXPECT_EQ(writer.LastFragment(), recording.starts[0]);
    EXPECT_EQ(writer.File(), recording.file);
  }
}

TEST(K7RAppendLimits, ABoxBetweenFragmentsIsReadWhereverItIs) {
  const Recording recording = Record(1);
  const Bytes broken = recording.file + LyingBox("free", 7) + Pattern(30);
  EXPECT_EQ(OpenedK7RWriter(broken, recording.starts[0]).Result(), 27u);
  const Bytes whole = recording.file + Box("free", Pattern(3));
  EXPECT_EQ(OpenedK7RWriter(whole, recording.starts[0]).File(), whole);
}

TEST(K7RAppendLimits, BehindTheLargestFragmentNumberComesZero) {
  Recording recording = Record(1);
  recording.file.Patch(PlaceOf(recording.file, "moof/mfhd").offset + 12, 0xFFFFFFFF, 4);
  OpenedK7RWriter writer(recording.file);
  const auto tracks = writer.DescribedTracks();
  AddFragment(writer, tracks, 1);
  AddFragment(writer, tracks, 2);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "moof#2/mfhd", 12), 0u);
  EXPECT_EQ(NumberIn(file, "moof#3/mfhd", 12), 1u);
  ExpectFragmentsReadBack(file, {0, 1, 2});
}

/// A recording that ends with its only box of a type; this runs to the end of the file and is
/// `size` long, most of it a hole.
class FileWithOpenBox {
 public:
  FileWithOpenBox(const char* type, uint32_t fragments, uint64_t size) {
    Bytes file = Record(fragments).file;
    boxOffset_ = PlaceOf(file, type).offset;
    file.Patch(boxOffset_, 0);
    stream_.Put(0, file);
    stream_.SetLength(boxOffset_ + size);
  }
  static FileWithOpenBox Mdat(uint64_t size) { return {"mdat", 1, size}; }
  static FileWithOpenBox Moov(uint64_t size) { return {"moov", 0, size}; }

  /// Gives the code of opening it; the last fragment is started when that goes well.
  QiroK7MError Continue() {
    const QiroK7MIOStreamCallBacks callBacks = stream_.ReadingAndWriting();
    const QiroK7MAllocatorCallBacks memory;
    QiroK7RWriter* writer = nullptr;
    uint64_t last = 0;
    const QiroK7MError result =
        QiroK7RDocOpenForAppend(&callBacks, &memory, &memory, ~uint64_t{0}, &last, &writer);
    if (result == 0) {
      EXPECT_EQ(QiroK7RWriterStartFragment(writer, &next_), 0u);
      EXPECT_EQ(QiroK7RCloseWriter(writer), 0u);
      QiroK7RDestroyWriter(writer);
    }
    return result;
  }
  MemoryStream& Stream() { return stream_; }
  uint64_t BoxOffset() const { return boxOffset_; }
  uint64_t NextFragment() const { return next_; }

 private:
  MemoryStream stream_;
  uint64_t boxOffset_ = 0;
  uint64_t next_ = 0;
};

TEST(K7RAppendLimits, ABoxToTheEndOfTheFileGetsTheLargestSizeThatFits) {
  for (const auto open : {FileWithOpenBox::Mdat, FileWithOpenBox::Moov}) {
    FileWithOpenBox file = open(0xFFFFFFFF);
    ASSERT_EQ(file.Continue(), 0u);
    EXPECT_EQ(file.Stream().Content(file.BoxOffset(), 4).NumberAt(0), 0xFFFFFFFFu);
    EXPECT_EQ(file.NextFragment(), file.BoxOffset() + 0xFFFFFFFF);
  }
}

TEST(K7RAppendLimits, OneThatIsLongerIs19AndNothingIsChanged) {
  for (const auto open : {FileWithOpenBox::Mdat, FileWithOpenBox::Moov}) {
    for (const uint64_t size : {uint64_t{0x100000000}, uint64_t{5} << 30, uint64_t{1} << 50}) {
      FileWithOpenBox file = open(size);
      const uint64_t length = file.Stream().Length();
      EXPECT_EQ(file.Continue(), 19u);
      EXPECT_EQ(file.Stream().Length(), length);
      EXPECT_EQ(file.Stream().Count(Call::kWrite), 0u);
      EXPECT_EQ(file.Stream().Count(Call::kTruncate), 0u);
      EXPECT_FALSE(file.Stream().IsOpen());
    }
  }
}

}  // namespace
}  // namespace k7mtest

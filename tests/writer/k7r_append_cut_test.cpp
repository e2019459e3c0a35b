// A recording that was interrupted anywhere can be continued.
#include <gtest/gtest.h>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

/// How many whole fragments a file of this length holds.
uint64_t WholeFragments(const Recording& recording, size_t length) {
  uint64_t count = 0;
  while (count < recording.ends.size() && recording.ends[count] <= length) ++count;
  return count;
}

void ExpectContinued(const Recording& recording, size_t length) {
  const uint64_t kept = WholeFragments(recording, length);
  const size_t end =
      kept == 0 ? EndOfMoov(recording.file) : static_cast<size_t>(recording.ends[kept - 1]);
  OpenedK7RWriter writer(Cut(recording.file, length));
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.LastFragment(), kept == 0 ? 0 : recording.starts[kept - 1]);
  EXPECT_EQ(writer.File().Size(), end);
  const auto tracks = writer.DescribedTracks();
  AddFragment(writer, tracks, 10);
  AddFragment(writer, tracks, 11);
  const Bytes file = writer.Finish();
  const size_t moov = EndOfMoov(file);
  EXPECT_EQ(file.Slice(moov, end - moov), recording.file.Slice(moov, end - moov));
  EXPECT_EQ(NumberIn(file, "moof#" + std::to_string(kept + 2) + "/mfhd", 12), kept + 2);
  std::vector<uint64_t> numbers;
  for (uint64_t number = 0; number < kept; ++number) numbers.push_back(number);
  numbers.push_back(10);
  numbers.push_back(11);
  ExpectFragmentsReadBack(file, numbers);
}

TEST(K7RInterrupted, AtEveryByteOfTheLastTwoFragments) {
  for (const bool withAbst : {false, true}) {
    const Recording recording = Record(3, withAbst);
    for (size_t length = recording.starts[1]; length <= recording.file.Size(); ++length) {
      SCOPED_TRACE(length);
      ExpectContinued(recording, length);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

TEST(K7RInterrupted, InTheMovieBoxNothingCanBeKept) {
  const Recording recording = Record(1);
  const BoxPlace moov = PlaceOf(recording.file, "moov");
  for (size_t length = 0; length < moov.offset + moov.size; ++length) {
    const Bytes rest = Cut(recording.file, length);
    OpenedK7RWriter writer(rest);
    // Too few bytes for a header are no box; a box of which bytes are missing is a broken one.
    const bool isBetweenBoxes = length < 8 || (length >= moov.offset && length < moov.offset + 8);
    EXPECT_EQ(writer.Result(), isBetweenBoxes ? 6u : 27u) << length;
    EXPECT_EQ(writer.File(), rest);
  }
}

/// The bytes on the stream after each of its calls while a fragment is being written, as a process
/// that is killed there leaves them.
TEST(K7RInterrupted, AtEveryCallWhileTheLastFragmentIsWritten) {
  const Recording recording = Record(3, true);
  for (uint64_t n = 1;; ++n) {
    SCOPED_TRACE(n);
    OpenedK7RWriter writer(Cut(recording.file, recording.ends[1]));
    const auto tracks = writer.DescribedTracks();
    AddFragment(writer, tracks, 2);
    ASSERT_EQ(writer.TryAddAbst(Pattern(9)), 0u);
    writer.Stream().FailNth(Call::kAny, n, 4711, true);
    const QiroK7MError result = QiroK7MWriterFlush(writer.Handle());
    if (result == 0) {
      EXPECT_GT(n, 30u);
      break;
    }
    const Bytes left = writer.File();
    EXPECT_EQ(left.Slice(0, EndOfMoov(left)).Size(), EndOfMoov(recording.file));
    OpenedK7RWriter next(left);
    ASSERT_EQ(next.Result(), 0u);
    EXPECT_EQ(next.LastFragment(), recording.starts[1]);
    AddFragment(next, next.DescribedTracks(), 5);
    ExpectFragmentsReadBack(next.Finish(), {0, 1, 5});
    if (::testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace k7mtest

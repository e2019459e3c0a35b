// Recordings whose writing ends early, also when an earlier one is continued. What is promised
// stands in docs/TESTING.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "interrupted_session.h"
#include "k7r_recording.h"

namespace k7mtest {
namespace {

constexpr size_t kFlushes = 4;
constexpr size_t kContinuedFragments = 3;
constexpr size_t kRandomChoices = 40;

struct K7RSession : Session {
  size_t movieBoxClosed = 0;      // So many changes had been made by then.
  size_t opened = 0;              // The same for a file that is continued: the rest is cut off.
  std::vector<uint64_t> starts;   // Of the fragments.
  std::vector<uint64_t> numbers;  // Theirs, as AddFragment() takes them.

  std::vector<uint64_t> FirstNumbers(size_t count) const {
    return {&numbers[0], &numbers[0] + count};
  }
};

K7RSession WriteK7R() {
  K7RSession session;
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({video}, Recording::kTimeOrigin);
  session.begin = writer.File();
  writer.Stream().StartJournal();
  for (size_t number = 0; number < kFlushes; ++number) {
    session.starts.push_back(writer.StartFragment());
    if (number == 0) session.movieBoxClosed = writer.Stream().Journal().size();
    session.numbers.push_back(number * 2);  // With a gap between them.
    AddFragment(writer, {video, audio, hint}, number * 2);
    if (number % 2 != 0) {
      EXPECT_EQ(writer.TryAddAbst(Pattern(9)), 0u);
    }
    writer.Flush();
    session.marks.push_back({writer.Stream().Journal().size(), 0, number + 1});
  }
  writer.Finish();
  session.changes = writer.Stream().Journal();
  return session;
}

/// These fragments must be read first, whatever is behind them.
void ExpectRead(const Bytes& file, const std::vector<uint64_t>& numbers, bool isEndClean) {
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  QiroK7MTrack* audio = reader.TrackAt(1);
  QiroK7MSampleIterator* samples = nullptr;
  QiroK7MError end = 0;
  const QiroK7MError asked = QiroK7MReaderGetMediaSamples(reader.Handle(), &audio, 1, &samples);
  const std::vector<Bytes> media = Data(SamplesOf(asked, samples, end));
  ASSERT_GE(media.size(), numbers.size());
  for (size_t i = 0; i < numbers.size(); ++i) {
    EXPECT_EQ(media[i], MessageOf(Recording::kTimeOrigin + numbers[i] * 100 + 1));
  }
  if (isEndClean) {
    EXPECT_EQ(end, 0u);
  }
}

/// A continued file must hold the first `count` of the session's fragments, or one more, and take
/// another.
void ExpectContinued(const Bytes& file, const K7RSession& session, size_t count,
                     uint64_t keepLimit = ~uint64_t{0}) {
  OpenedK7RWriter writer(file, keepLimit);
  ASSERT_EQ(writer.Result(), 0u);
  const size_t kept = MediaOf(writer.File(), 1).size();
  ASSERT_GE(kept, count);
  ASSERT_LE(kept, std::min(count + 1, session.numbers.size()));
  std::vector<uint64_t> numbers = session.FirstNumbers(kept);
  AddFragment(writer, writer.DescribedTracks(), 50);
  numbers.push_back(50);
  ExpectFragmentsReadBack(writer.Finish(), numbers);
}

TEST(InterruptedK7RFile, LosesNoFragmentForReadersNorForContinuing) {
  const K7RSession session = WriteK7R();
  for (const Interruption& interruption : EveryInterruption(session)) {
    if (interruption.changes < session.movieBoxClosed) continue;
    SCOPED_TRACE(interruption.changes);
    const Bytes file = FileAfter(session, interruption);
    const Mark* flushed = session.LastMark(interruption.changes);
    const size_t fragments = flushed != nullptr ? flushed->fragments : 0;
    ExpectRead(file, session.FirstNumbers(fragments), true);
    ExpectContinued(file, session, fragments);
    if (HasFailure()) return;
  }
}

TEST(InterruptedK7RFile, CannotBeContinuedUntilItsMovieBoxIsComplete) {
  const K7RSession session = WriteK7R();
  for (size_t n = 0; n < session.movieBoxClosed; ++n) {
    const Bytes file = FileAfter(session, {.changes = n});
    OpenedK7RWriter writer(file);
    EXPECT_EQ(writer.Result(),
              n == 0 ? kQiroK7MErrorAppendNotFragmented : kQiroK7MErrorBoxTruncated)
        << n;
    EXPECT_EQ(writer.File(), file);
  }
}

/// A fragment of this size goes out in one write, and what stands in front of it in another.
TEST(InterruptedK7RFile, OutOfOrderLosesNoFragmentEither) {
  const K7RSession session = WriteK7R();
  for (const Interruption& interruption : OutOfOrderInterruptions(session, kRandomChoices)) {
    const Bytes file = FileAfter(session, interruption);
    const size_t fragments = session.LastMark(interruption.changes)->fragments;
    ExpectRead(file, session.FirstNumbers(fragments), false);
    OpenedK7RWriter writer(file);
    ASSERT_EQ(writer.Result(), 0u);
    ASSERT_GE(writer.LastFragment(), session.starts[fragments - 1]);
    ExpectContinued(file, session, fragments, session.starts[fragments - 1]);
    if (HasFailure()) return;
  }
}

/// What is there of a third fragment: nothing, some of its 'afra', its 'moof', its 'mdat'; and some
/// of an 'mdat' that reaches behind what the next fragment will cover.
std::vector<Bytes> Rests() {
  const Recording recording = Record(3);
  const Bytes third =
      recording.file.Slice(recording.ends[1], recording.ends[2] - recording.ends[1]);
  Bytes longer = third;
  const size_t mdat = PlaceOf(recording.file, "mdat#3").offset - recording.ends[1];
  longer.Patch(mdat, third.Size() - mdat + 3000);
  return {
      {}, Cut(third, 30), Cut(third, 100), Cut(third, third.Size() - 1), longer + Pattern(2000)};
}

/// Continues a recording of two fragments that has this behind them.
K7RSession ContinueK7R(const Bytes& rest) {
  K7RSession session;
  const Recording recording = Record(3);
  session.begin = Cut(recording.file, recording.ends[1]) + rest;
  session.starts = {recording.starts[0], recording.starts[1]};
  session.numbers = {0, 1};
  session.marks.push_back({0, 0, 2});
  OpenedK7RWriter writer(session.begin, ~uint64_t{0}, true);
  session.opened = writer.Stream().Journal().size();
  EXPECT_EQ(writer.File().Size(), recording.ends[1]);
  const auto tracks = writer.DescribedTracks();
  for (size_t number = 0; number < kContinuedFragments; ++number) {
    session.starts.push_back(writer.StartFragment());
    session.numbers.push_back(10 + 2 * number);
    AddFragment(writer, tracks, session.numbers.back());
    if (number == 1) {
      EXPECT_EQ(writer.TryAddAbst(Pattern(9)), 0u);
    }
    writer.Flush();
    session.marks.push_back({writer.Stream().Journal().size(), 0, session.numbers.size()});
  }
  writer.Finish();
  session.changes = writer.Stream().Journal();
  return session;
}

TEST(InterruptedContinuedK7RFile, LosesNoFragmentForReadersNorForContinuing) {
  for (const Bytes& rest : Rests()) {
    const K7RSession session = ContinueK7R(rest);
    for (const Interruption& interruption : EveryInterruption(session)) {
      SCOPED_TRACE(std::to_string(rest.Size()) + ": " + std::to_string(interruption.changes));
      const Bytes file = FileAfter(session, interruption);
      const size_t fragments = session.LastMark(interruption.changes)->fragments;
      ExpectRead(file, session.FirstNumbers(fragments), interruption.changes >= session.opened);
      ExpectContinued(file, session, fragments);
      if (HasFailure()) return;
    }
  }
}

TEST(InterruptedContinuedK7RFile, OutOfOrderLosesNoFragmentEither) {
  for (const Bytes& rest : Rests()) {
    const K7RSession session = ContinueK7R(rest);
    for (const Interruption& interruption : OutOfOrderInterruptions(session, 4)) {
      SCOPED_TRACE(std::to_string(rest.Size()) + ": " + std::to_string(interruption.changes));
      const Bytes file = FileAfter(session, interruption);
      const size_t fragments = session.LastMark(interruption.changes)->fragments;
      ExpectRead(file, session.FirstNumbers(fragments), false);
      ExpectContinued(file, session, fragments);
      if (HasFailure()) return;
    }
  }
}

/// A recording of two fragments, and the changes that write the second. Its movie fragment, with so
/// many samples in the first track, goes out in two of them, the media in a third.
K7RSession WriteLargeFragment(uint64_t sampleCount) {
  K7RSession session;
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({video}, Recording::kTimeOrigin);
  session.numbers = {0};
  session.starts.push_back(writer.StartFragment());
  AddFragment(writer, {video, audio, hint}, 0);
  writer.Flush();
  session.begin = writer.File();
  session.starts.push_back(writer.StartFragment());
  writer.Stream().StartJournal();
  for (uint64_t i = 0; i < sampleCount; ++i) {
    writer.Add(video, Recording::kTimeOrigin + 500 + i);
  }
  writer.Add(audio, {.time = Recording::kTimeOrigin + 500, .data = Pattern(5000)});
  writer.Flush();
  session.changes = writer.Stream().Journal();
  std::erase_if(session.changes, [&](const StreamChange& change) {
    const bool isFieldOfAfra = change.bytes.Size() <= 4;
    return change.offset < session.starts[1] || isFieldOfAfra;
  });
  return session;
}

/// Every choice of some of the changes.
std::vector<Interruption> EveryChoice(const Session& session) {
  std::vector<Interruption> all(size_t{1} << session.changes.size());
  for (size_t choice = 0; choice < all.size(); ++choice) {
    for (size_t i = 0; i < session.changes.size(); ++i) {
      if ((choice >> i & 1) != 0) all[choice].later.push_back(i);
    }
  }
  return all;
}

/// What the codes were where continuing such a file was refused.
std::set<QiroK7MError> CodesOfContinuing(const K7RSession& session) {
  std::set<QiroK7MError> codes;
  for (const Interruption& interruption : EveryChoice(session)) {
    const Bytes file = FileAfter(session, interruption);
    ExpectRead(file, {0}, false);
    ExpectContinued(file, session, 1, session.starts[0]);
    OpenedK7RWriter writer(file);
    codes.insert(writer.Result());
    if (writer.Result() != 0) {
      EXPECT_EQ(writer.File(), file);
    }
  }
  return codes;
}

// Where the first write ends within the second track's boxes, these may lack what the next one
// holds.
TEST(InterruptedK7RFile, ALargeFragmentThatArrivedInPartIsCutOffOrRefused) {
  std::set<QiroK7MError> codes;
  for (uint64_t samples = 240; samples < 256 && !HasFailure(); ++samples) {
    codes.merge(CodesOfContinuing(WriteLargeFragment(samples)));
  }
  EXPECT_EQ(codes, (std::set<QiroK7MError>{0, 14, 25}));
}

}  // namespace
}  // namespace k7mtest

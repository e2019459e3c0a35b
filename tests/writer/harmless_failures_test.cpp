// A stream may answer with a code that leaves the writer good. Then the call that failed has added
// nothing, it can be made again, and nothing else is spoilt.
#include <gtest/gtest.h>

#include <functional>

#include "fragment_expectations.h"
#include "support/opened_reader.h"
#include "tables.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kHarmless = 11;
constexpr size_t kSampleCount = 12;

/// A plain document of two tracks whose samples fill every table.
class Session {
 public:
  Session() {
    tracks_[0] = writer.AddDescribedTrack({.trackFlags = 1});
    tracks_[1] = writer.AddDescribedTrack({.mediaType = "soun"});
  }
  /// Adds sample `index`. Some follow one of their own track, some do not.
  QiroK7MError Add(size_t index) {
    const auto number = static_cast<uint32_t>(index);
    return writer.TryAdd(tracks_[index / 2 % 2],
                         {.time = 10 * index + index % 3,
                          .data = DataOf(index),
                          .flags = (number % 3 == 0 ? kKey : 0) | number << 8,
                          .compositionOffset = number % 5 / 2});
  }
  static Bytes DataOf(size_t index) { return Pattern(1 + index % 4, static_cast<uint32_t>(index)); }

  OpenedWriter writer;

 private:
  QiroK7MTrack* tracks_[2] = {};
};

void ExpectSameSamples(const Bytes& file, const Bytes& expected) {
  for (size_t track = 1; track <= 2; ++track) {
    for (const char* table : {"stsd", "stts", "stsz", "ctts", "stss", "sdtp"}) {
      EXPECT_EQ(FindBox(file, TablePath(table, track)), FindBox(expected, TablePath(table, track)))
          << table;
    }
    const std::string trak = "moov/trak#" + std::to_string(track);
    for (const char* box : {"/tkhd", "/edts", "/mdia/mdhd"}) {
      EXPECT_EQ(FindBox(file, trak + box), FindBox(expected, trak + box)) << box;
    }
    EXPECT_EQ(NumberIn(file, TablePath("stsc", track), 12),
              NumberIn(file, TablePath("co64", track), 12));
  }
  EXPECT_EQ(FindBox(file, "moov/mvhd"), FindBox(expected, "moov/mvhd"));
  const OpenedReader reader(file);
  const OpenedReader original(expected);
  EXPECT_EQ(Data(MediaSamples(reader)), Data(MediaSamples(original)));
}

/// Lets every write of `call(session)`, made behind `count` samples, fail once; then the call is
/// made again and the session finished.
void SweepWrites(size_t count, size_t rest, const std::function<QiroK7MError(Session&)>& call,
                 const Bytes& expected) {
  for (uint64_t n = 1;; ++n) {
    SCOPED_TRACE("sample " + std::to_string(count) + ", write " + std::to_string(n));
    Session session;
    for (size_t i = 0; i < count; ++i) ASSERT_EQ(session.Add(i), 0u);
    session.writer.Stream().FailNth(Call::kWrite, n, kHarmless);
    const QiroK7MError result = call(session);
    if (!session.writer.Stream().FaultHit()) {
      EXPECT_EQ(result, 0u);
      EXPECT_GT(n, 1u);
      return;
    }
    EXPECT_EQ(result, kHarmless);
    EXPECT_TRUE(session.writer.IsGood());
    EXPECT_EQ(call(session), 0u);
    for (size_t i = rest; i < kSampleCount; ++i) ASSERT_EQ(session.Add(i), 0u);
    ExpectSameSamples(session.writer.Finish(), expected);
    if (testing::Test::HasFailure()) return;
  }
}

Bytes Unharmed() {
  Session session;
  for (size_t i = 0; i < kSampleCount; ++i) EXPECT_EQ(session.Add(i), 0u);
  return session.writer.Finish();
}

TEST(HarmlessFailures, ASampleThatFailedCanBeAddedAgain) {
  const Bytes expected = Unharmed();
  for (size_t count = 0; count < kSampleCount && !HasFailure(); ++count) {
    SweepWrites(
        count, count + 1, [count](Session& session) { return session.Add(count); }, expected);
  }
}

TEST(HarmlessFailures, AFlushThatFailedCanBeMadeAgain) {
  const Bytes expected = Unharmed();
  for (const size_t count : {size_t{1}, size_t{2}, size_t{3}, size_t{7}, size_t{12}}) {
    SweepWrites(
        count, count, [](Session& session) { return QiroK7MWriterFlush(session.writer.Handle()); },
        expected);
  }
}

// The second flush writes the movie box as a whole.
TEST(HarmlessFailures, AFlushThatFailedTwiceCanBeMadeAgain) {
  constexpr size_t kCount = 7;
  const Bytes expected = Unharmed();
  uint64_t pairs = 0;
  for (uint64_t first = 1; first <= 6; ++first) {
    for (uint64_t second = 1;; ++second) {
      Session session;
      for (size_t i = 0; i < kCount; ++i) ASSERT_EQ(session.Add(i), 0u);
      session.writer.Stream().FailNth(Call::kWrite, first, kHarmless);
      ASSERT_EQ(QiroK7MWriterFlush(session.writer.Handle()), kHarmless);
      session.writer.Stream().FailNth(Call::kWrite, second, kHarmless);
      if (QiroK7MWriterFlush(session.writer.Handle()) == 0) break;
      ++pairs;
      for (size_t i = kCount; i < kSampleCount; ++i) ASSERT_EQ(session.Add(i), 0u);
      ExpectSameSamples(session.writer.Finish(), expected);
      ASSERT_FALSE(HasFailure()) << first << ", " << second;
    }
  }
  EXPECT_GT(pairs, 30u);
}

TEST(HarmlessFailures, AFailedSampleUsesUpNoRoom) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.maxSampleCount = 2});
  writer.Add(track, 0);
  writer.Stream().FailNth(Call::kWrite, 2, kHarmless);  // The first one stores the bytes.
  EXPECT_EQ(writer.TryAdd(track, {.time = 5}), kHarmless);
  writer.Add(track, 5);
  const Bytes file = writer.Finish();
  ExpectSizes(file, {3, 3});
  ExpectStts(file, {{1, 5}, {1, 1}});
}

TEST(HarmlessFailures, WhatAFailedBoxLeftBehindTheDocumentIsCutOff) {
  OpenedWriter writer;
  writer.AddTrack();
  const Bytes before = writer.File();
  writer.Stream().FailNth(Call::kWrite, 2, kHarmless);  // A long payload goes out by itself.
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Pattern(5000)), kHarmless);
  EXPECT_EQ(writer.Stream().Length(), before.Size() + 12);
  EXPECT_EQ(writer.Finish(), before);
}

TEST(HarmlessFailures, TheIndexOfAFragmentedDocumentIsNoRemains) {
  QiroK7MDocInfo info = DocInfoOf(1000);
  info.isFragmented = 1;
  OpenedWriter writer(info);
  QiroK7MTrack* track = writer.AddDescribedTrack();
  EXPECT_EQ(writer.TrySetUlb(Bytes{1}), 0u);
  const size_t size = writer.File().Size();
  writer.Stream().FailNth(Call::kWrite, 1, kHarmless);
  EXPECT_EQ(writer.TryAdd(track, {}), kHarmless);  // Its media data is open, but no fragment.
  const Bytes file = writer.Finish();
  EXPECT_EQ(PlaceOf(file, "mfra").offset, size);
  EXPECT_EQ(PlaceOf(file, "mfra").size, file.Size() - size);
  EXPECT_EQ(NumberIn(file, "mfra/mfro", 12), file.Size() - size);
}

/// A sample behind an extra box; `attempt` comes first.
Bytes BoxAndSample(const std::function<void(OpenedWriter&, QiroK7MTrack*)>& attempt) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* track = writer.AddDescribedTrack();
  attempt(writer, track);
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Pattern(5)), 0u);
  writer.Add(track, 10);
  return writer.Finish();
}

// Media begins where it is written, not where the sample that failed would have begun.
TEST(HarmlessFailures, ABoxTakesThePlaceOfTheMediaThatCouldNotBeStored) {
  const Bytes expected = BoxAndSample([](auto&, auto*) {});
  for (uint64_t n = 1;; ++n) {
    SCOPED_TRACE(n);
    bool wasHit = false;
    const Bytes file = BoxAndSample([&](OpenedWriter& writer, QiroK7MTrack* track) {
      writer.Stream().FailNth(Call::kWrite, n, kHarmless);
      wasHit = writer.TryAdd(track, {.time = 10}) == kHarmless;
      writer.Stream().FailNth(Call::kWrite, 0, 0);  // No further fault.
    });
    if (!wasHit) {
      EXPECT_EQ(n, 6u);
      break;
    }
    EXPECT_EQ(file, expected);
    if (HasFailure()) return;
  }
}

TEST(HarmlessFailures, AMovieBoxThatFailedToBeClosedIsWrittenLater) {
  QiroK7MDocInfo info = DocInfoOf(1000);
  info.isFragmented = 1;
  for (uint64_t n = 1;; ++n) {
    SCOPED_TRACE(n);
    OpenedWriter writer(info);
    writer.AddDescribedTrack();
    writer.Stream().FailNth(Call::kWrite, n, kHarmless);
    if (writer.TryAddFullBox("abcd", 0, 0, Pattern(50)) == 0) {
      EXPECT_EQ(n, 6u);
      break;
    }
    EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Pattern(50)), 0u);
    const Bytes file = writer.Finish();
    EXPECT_EQ(NumberIn(file, "moov/mvex/trex", 12), 1u);
    EXPECT_EQ(OpenResult(file), 0u);
  }
}

TEST(HarmlessFailures, NothingIsCutOffWhenNothingIsLeftBehind) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 10);
  EXPECT_EQ(writer.TryAdd(track, {.time = 5}), 1280u);
  writer.Finish();
  EXPECT_EQ(writer.Stream().Count(Call::kTruncate), 0u);
}

/// What the document is when a second track was added, or was not.
Bytes DocumentOf(OpenedWriter& writer, bool isAdded) {
  if (isAdded) {
    EXPECT_EQ(writer.TryAddTrack({.mediaType = "soun"}), 0u);
  }
  return writer.Finish();
}

TEST(HarmlessFailures, ATrackThatFailedIsNotThereAndCanBeAddedAgain) {
  for (const bool isFragmented : {false, true}) {
    for (const bool isAddedAgain : {false, true}) {
      QiroK7MDocInfo info = DocInfoOf(1000);
      info.isFragmented = isFragmented ? 1 : 0;
      OpenedWriter unharmed(info);
      unharmed.AddTrack();
      const Bytes expected = DocumentOf(unharmed, isAddedAgain);
      for (uint64_t n = 1;; ++n) {
        SCOPED_TRACE(n);
        OpenedWriter writer(info);
        writer.AddTrack();
        writer.Stream().FailNth(Call::kWrite, n, kHarmless);
        const QiroK7MError result = writer.TryAddTrack({.mediaType = "soun"});
        if (!writer.Stream().FaultHit()) {
          EXPECT_EQ(n, isFragmented ? 8u : 20u);
          break;
        }
        EXPECT_EQ(result, kHarmless);
        EXPECT_EQ(DocumentOf(writer, isAddedAgain), expected);
        if (HasFailure()) return;
      }
    }
  }
}

TEST(HarmlessFailures, WhatATrackThatFailedLeftBehindTheMovieBoxIsCutOffWithIt) {
  uint64_t leftBehind = 0;
  for (uint64_t n = 1;; ++n) {
    OpenedWriter writer(FragmentedInfo());
    QiroK7MTrack* track = writer.AddDescribedTrack();
    const uint64_t size = writer.File().Size();
    writer.Stream().FailNth(Call::kWrite, n, kHarmless);
    if (writer.TryAddTrack({}) == 0) break;
    leftBehind += writer.File().Size() > size ? 1 : 0;
    writer.Add(track, 0);  // Closes the movie box, and only that is complete until the next flush.
    EXPECT_EQ(BehindMoov(writer.File()), Bytes().Fill(16) + NewSample{}.data) << n;
  }
  EXPECT_EQ(leftBehind, 3u);
}

TEST(HarmlessFailures, ADescriptionThatCouldNotBeWrittenIsWrittenLater) {
  for (const bool isFragmented : {false, true}) {
    for (uint64_t n = 1;; ++n) {
      SCOPED_TRACE(n);
      QiroK7MDocInfo info = DocInfoOf(1000);
      info.isFragmented = isFragmented ? 1 : 0;
      OpenedWriter writer(info);
      QiroK7MTrack* track = writer.AddDescribedTrack();
      writer.Add(track, 0);
      writer.Stream().FailNth(Call::kWrite, n, kHarmless);
      const QiroK7MError result = writer.TryDescribe(track, "wxyz", Pattern(9));
      const bool wasHit = writer.Stream().FaultHit();
      EXPECT_EQ(result, wasHit ? kHarmless : 0u);
      writer.Stream().FailNth(Call::kWrite, 0, 0);  // No further fault.
      writer.Add(track, 10);
      const Bytes stsd = FindBox(writer.Finish(), TablePath("stsd"));
      EXPECT_EQ(stsd.NumberAt(12), 2u);
      EXPECT_EQ(stsd.NumberAt(16 + 86), 86u + 9);
      EXPECT_EQ(stsd.NumberAt(16 + 86 + 4), Code("wxyz"));
      if (!wasHit) break;
    }
  }
}

}  // namespace
}  // namespace k7mtest

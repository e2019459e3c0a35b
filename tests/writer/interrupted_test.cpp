// Writing that ends early, as when a process is killed or a machine loses its power: what the file
// is then still good for. What is promised for which kind of file stands in docs/TESTING.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>

#include "fragment_expectations.h"
#include "interrupted_session.h"

namespace k7mtest {
namespace {

constexpr size_t kTracks = 2;
constexpr size_t kFlushes = 4;
constexpr size_t kSamplesPerFlush = 3;
constexpr uint64_t kBeforeGap = 5;
constexpr uint32_t kMetadataLength = 700;
constexpr size_t kRandomChoices = 40;
constexpr QiroK7MError kTruncated = kQiroK7MErrorBoxTruncated;

Bytes DataOf(size_t track, size_t sample) {
  return Pattern(15 + sample, static_cast<uint32_t>(track * 100 + sample));
}
uint64_t TimeOf(size_t sample) { return sample * sample * 10; }
/// Between two samples of a flush, at the end of one, and in the other track.
bool IsBeforeGap(size_t track, size_t sample) {
  return track == 0 ? sample == 5 || sample == 7 : sample == 4;
}

/// As it lies in the file: no time passes there in a gap.
uint64_t MediaTimeOf(size_t track, size_t sample) {
  uint64_t time = TimeOf(sample);
  for (size_t i = 0; i < sample; ++i) {
    if (IsBeforeGap(track, i)) time -= TimeOf(i + 1) - TimeOf(i) - kBeforeGap;
  }
  return time;
}

/// A session, and how much had been written when each call of its set-up returned.
struct DocumentSession : Session {
  std::vector<size_t> setUpCalls;
  uint64_t mediaBox = 0;  // Where the first one begins.
};

void AddSamples(OpenedWriter& writer, const std::vector<QiroK7MTrack*>& tracks, size_t begin) {
  for (size_t i = begin; i < begin + kSamplesPerFlush; ++i) {
    for (size_t track = 0; track < tracks.size(); ++track) {
      writer.Add(tracks[track], {.time = TimeOf(i),
                                 .data = DataOf(track, i),
                                 .flags = i == begin ? kKey : 0,
                                 .compositionOffset = static_cast<uint32_t>(i % 2)});
      if (IsBeforeGap(track, i)) {
        writer.Add(tracks[track], {.time = TimeOf(i) + kBeforeGap, .data = {}, .flags = kGap});
      }
    }
  }
}

/// What the document may get behind its tracks, once.
void AddBoxes(OpenedWriter& writer, const std::function<void()>& note) {
  EXPECT_EQ(writer.TrySetUlb(Pattern(kMetadataLength)), 0u);
  note();
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, Pattern(30)), 0u);
  note();
}

/// With the boxes the movie box of a fragmented document is closed by them, otherwise by the first
/// sample.
DocumentSession WriteDocument(bool isFragmented, bool withBoxes) {
  DocumentSession session;
  OpenedWriter writer(isFragmented ? FragmentedInfo() : DocInfoOf(1000));
  session.begin = writer.File();
  writer.Stream().StartJournal();
  const auto note = [&] { session.setUpCalls.push_back(writer.Stream().Journal().size()); };
  std::vector<QiroK7MTrack*> tracks;
  for (const char* type : {"vide", "soun"}) {
    tracks.push_back(writer.AddTrack({.mediaType = type, .handlerName = std::string(600, 'n')}));
    note();
    writer.Describe(tracks.back());
    note();
  }
  if (withBoxes) AddBoxes(writer, note);
  for (size_t flush = 0; flush < kFlushes; ++flush) {
    if (flush == 1) writer.Describe(tracks[0], "wxyz", Pattern(20));
    if (flush == 2 && isFragmented && withBoxes) {
      EXPECT_EQ(writer.TryAddFullBox("efgh", 0, 0, Pattern(700)), 0u);
    }
    AddSamples(writer, tracks, flush * kSamplesPerFlush);
    if (flush + 1 < kFlushes) {
      writer.Flush();
    } else {
      writer.Finish();
    }
    session.marks.push_back(
        {writer.Stream().Journal().size(), (flush + 1) * kSamplesPerFlush, flush + 1});
  }
  session.changes = writer.Stream().Journal();
  session.mediaBox = PlaceOf(writer.File(), "mdat").offset;
  return session;
}

/// A failure ends its track; the other ones go on.
std::vector<ReadSample> SamplesPastFailures(QiroK7MError asked, QiroK7MSampleIterator* samples,
                                            QiroK7MError& failure) {
  failure = asked;
  std::vector<ReadSample> found;
  while (asked == 0 && HasMore(samples)) {
    QiroK7MSample* sample = nullptr;
    const QiroK7MError result = QiroK7MSampleIteratorGetNextEntry(samples, &sample);
    if (result != 0) {
      failure = result;
    } else {
      found.push_back(TakeSample(sample));
    }
  }
  QiroK7MReleaseSampleIterator(samples);
  return found;
}

struct Found {
  QiroK7MError open = 0;
  size_t samples = SIZE_MAX;    // Of the track that has fewer: from the first one on, all right.
  QiroK7MError end = 0;         // What came behind the last sample.
  size_t presented = SIZE_MAX;  // The same two with the edit lists.
  QiroK7MError edits = 0;
  uint32_t metadata = 0;  // Its length.
};

/// `timeOf(track, sample)` tells when they have to be.
template <class TimeOf>
size_t CountRight(const std::vector<ReadSample>& samples, size_t track, TimeOf timeOf) {
  size_t i = 0;
  while (i < samples.size() && samples[i].dataResult == 0 && samples[i].data == DataOf(track, i) &&
         samples[i].info.timeStamp == timeOf(track, i)) {
    ++i;
  }
  return i;
}

Found Look(const Bytes& file) {
  OpenedReader reader(file);
  Found found{.open = reader.Result()};
  if (found.open != 0) return found;
  const auto tracks = reader.Tracks();
  for (size_t i = 0; i < tracks.size(); ++i) {
    QiroK7MTrack* track = tracks[i];
    QiroK7MSampleIterator* samples = nullptr;
    const QiroK7MError asked = QiroK7MReaderGetMediaSamples(reader.Handle(), &track, 1, &samples);
    found.samples =
        std::min(found.samples, CountRight(SamplesOf(asked, samples, found.end), i, MediaTimeOf));
  }
  QiroK7MSampleIterator* samples = nullptr;
  const QiroK7MError asked = QiroK7MReaderGetAllSamples(reader.Handle(), &samples);
  const std::vector<ReadSample> presented = SamplesPastFailures(asked, samples, found.edits);
  for (size_t i = 0; i < tracks.size(); ++i) {
    std::vector<ReadSample> own;
    std::copy_if(presented.begin(), presented.end(), std::back_inserter(own),
                 [&](const ReadSample& sample) {
                   return sample.track == tracks[i] &&
                          (sample.info.flags & kQiroK7MSampleFlagKindMask) != kGap;
                 });
    found.presented = std::min(
        found.presented, CountRight(own, i, [](size_t, size_t sample) { return TimeOf(sample); }));
  }
  QiroK7MReaderGetUlbDataLength(reader.Handle(), &found.metadata);
  return found;
}

/// Whether the top-level boxes end in one whose header says less than its length, or one other than
/// a media box that reaches past the end.
bool EndsInABrokenBox(const Bytes& file) {
  const auto number = [&](size_t offset, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) value = value << 8 | file[offset + i];
    return value;
  };
  size_t offset = 0;
  while (offset + 8 <= file.Size()) {
    uint64_t size = number(offset, 4);
    const bool isLarge = size == 1;
    if (size == 0) return false;  // It runs to the end.
    if (isLarge && offset + 16 > file.Size()) return true;
    if (isLarge) size = number(offset + 8, 8);
    if (size < (isLarge ? 16 : 8)) return true;
    if (size > file.Size() - offset) return number(offset + 4, 4) != Code("mdat");
    offset += static_cast<size_t>(size);
  }
  return false;
}

TEST(InterruptedPlainFile, KeepsEverySampleOfTheLastFlush) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(false, withBoxes);
    size_t count = 0;
    for (const Interruption& interruption : EveryInterruption(session)) {
      const Mark* flushed = session.LastMark(interruption.changes);
      if (flushed == nullptr) continue;
      SCOPED_TRACE(interruption.changes);
      const Found found = Look(FileAfter(session, interruption));
      ASSERT_EQ(found.open, 0u);
      EXPECT_GE(found.samples, flushed->samples);
      EXPECT_GE(found.presented, flushed->samples);
      EXPECT_EQ(found.end, 0u);
      EXPECT_EQ(found.edits, 0u);
      EXPECT_EQ(found.metadata, withBoxes ? kMetadataLength : 0u);
      ++count;
    }
    EXPECT_GT(count, 200u);
  }
}

/// Of both kinds.
class InterruptedDocument : public ::testing::TestWithParam<bool> {};

TEST_P(InterruptedDocument, IsReadableBehindEveryCallOfItsSetUp) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(GetParam(), withBoxes);
    EXPECT_EQ(Look(session.begin).open, kQiroK7MErrorInvalidHierarchy) << "no track yet";
    for (const size_t changes : session.setUpCalls) {
      EXPECT_EQ(Look(FileAfter(session, {.changes = changes})).open, 0u) << changes;
    }
  }
}

TEST_P(InterruptedDocument, IsUnreadableWhileTheMovieBoxIsBeingLaidOut) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(GetParam(), withBoxes);
    for (size_t call = 0; call < 2 * kTracks; call += 2) {
      const size_t before = call == 0 ? 0 : session.setUpCalls[call - 1];
      const Found found = Look(FileAfter(session, {.changes = before + 1}));
      EXPECT_EQ(found.open, kQiroK7MErrorBoxTruncated) << "track " << call / 2 + 1;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, InterruptedDocument, ::testing::Values(false, true),
                         [](const auto& param) { return param.param ? "Fragmented" : "Plain"; });

TEST(InterruptedPlainFile, BehindItsSetUpIsReadableAlsoBeforeTheFirstFlush) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(false, withBoxes);
    ASSERT_LT(session.setUpCalls.back(), session.marks[0].changes);
    for (size_t n = session.setUpCalls.back(); n < session.marks[0].changes; ++n) {
      EXPECT_EQ(Look(FileAfter(session, {.changes = n})).open, 0u) << n;
    }
  }
}

/// A count of a table that arrived before its entries makes the movie unreadable: without the order
/// of the writes there is no promise for a plain file while it grows.
TEST(InterruptedPlainFile, OutOfOrderOnlyAChunkMapAheadOfItsEntriesIsUnreadable) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(false, withBoxes);
    size_t unreadable = 0;
    for (const Interruption& interruption : OutOfOrderInterruptions(session, kRandomChoices)) {
      const Bytes file = FileAfter(session, interruption);
      bool isAhead = false;
      for (const char* path :
           {"moov/trak#1/mdia/minf/stbl/stsc", "moov/trak#2/mdia/minf/stbl/stsc"}) {
        for (uint64_t i = 0; i < NumberIn(file, path, 12); ++i) {
          isAhead = isAhead || NumberIn(file, path, static_cast<size_t>(16 + 12 * i)) == 0;
        }
      }
      const Found found = Look(file);
      ASSERT_EQ(found.open, isAhead ? QiroK7MError{kQiroK7MErrorBadChunkMap} : 0u);
      unreadable += isAhead ? 1 : 0;
      if (!isAhead) {
        EXPECT_EQ(found.end, 0u);
      }
    }
    EXPECT_GT(unreadable, 0u);
  }
}

TEST(InterruptedFragmentedFile, KeepsEveryFragmentThatWasFlushed) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(true, withBoxes);
    size_t broken = 0;
    for (const Interruption& interruption : EveryInterruption(session)) {
      if (interruption.changes < session.setUpCalls.back()) continue;
      SCOPED_TRACE(interruption.changes);
      const Bytes file = FileAfter(session, interruption);
      const Mark* flushed = session.LastMark(interruption.changes);
      const Found found = Look(file);
      const QiroK7MError expected = EndsInABrokenBox(file) ? kTruncated : 0u;
      broken += expected != 0 ? 1 : 0;
      if (flushed == nullptr && found.open != 0) continue;  // The next test.
      ASSERT_EQ(found.open, 0u);
      EXPECT_GE(found.samples, flushed != nullptr ? flushed->samples : 0);
      EXPECT_GE(found.presented, flushed != nullptr ? flushed->samples : 0);
      EXPECT_EQ(found.metadata, withBoxes ? kMetadataLength : 0u);
      EXPECT_EQ(found.end, expected) << "behind what is complete";
      EXPECT_EQ(found.edits, expected);
    }
    EXPECT_GT(broken, 0u);
  }
}

TEST(InterruptedFragmentedFile, BeforeTheFirstFlushOnlyAnUnfinishedHeaderOrMovieBoxIsUnreadable) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(true, withBoxes);
    // The movie box is laid out once more, by the first sample.
    size_t isLaidOut = 0;
    for (size_t n = session.setUpCalls.back(); n < session.marks[0].changes; ++n) {
      if (session.changes[n].offset == session.mediaBox + 16) {
        isLaidOut = n;  // The first bytes of media.
        break;
      }
    }
    ASSERT_GT(isLaidOut, 0u);
    for (size_t n = isLaidOut; n < session.marks[0].changes; ++n) {
      const Bytes file = FileAfter(session, {.changes = n});
      const Found found = Look(file);
      if (found.open == 0) continue;
      EXPECT_EQ(found.open, kQiroK7MErrorBoxTruncated);
      EXPECT_TRUE(EndsInABrokenBox(file)) << n;
    }
  }
}

TEST(InterruptedFragmentedFile, OutOfOrderToo) {
  for (const bool withBoxes : {false, true}) {
    SCOPED_TRACE(withBoxes ? "with boxes" : "without");
    const DocumentSession session = WriteDocument(true, withBoxes);
    for (const Interruption& interruption : OutOfOrderInterruptions(session, kRandomChoices)) {
      const Found found = Look(FileAfter(session, interruption));
      ASSERT_EQ(found.open, 0u);
      EXPECT_GE(found.samples, session.LastMark(interruption.changes)->samples);
    }
  }
}

}  // namespace
}  // namespace k7mtest

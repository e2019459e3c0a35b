// Writing that ends early, as when a process is killed or a machine loses its power: what the file
// is then still good for. What is promised for which kind of file stands in docs/TESTING.md.
#include <gtest/gtest.h>

#include <set>

#include "interrupted_session.h"
#include "k7r_recording.h"

namespace k7mtest {
namespace {

constexpr size_t kFlushes = 4;
constexpr size_t kSamplesPerFlush = 3;
constexpr size_t kRandomChoices = 40;
constexpr QiroK7MError kTruncated = kQiroK7MErrorBoxTruncated;

// Plain and fragmented documents
// ------------------------------------------------------------------------

Bytes DataOf(size_t track, size_t sample) {
  return Pattern(15 + sample, static_cast<uint32_t>(track * 100 + sample));
}
uint64_t TimeOf(size_t sample) { return sample * sample * 10; }

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
    }
  }
}

DocumentSession WriteDocument(bool isFragmented) {
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
  for (size_t flush = 0; flush < kFlushes; ++flush) {
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

/// The samples of a query up to its failure, which goes to `failure`.
std::vector<ReadSample> SamplesOf(QiroK7MError asked, QiroK7MSampleIterator* samples,
                                  QiroK7MError& failure) {
  failure = asked;
  return asked == 0 ? Drain(samples, true, &failure) : std::vector<ReadSample>();
}

struct Found {
  QiroK7MError open = 0;
  size_t samples = SIZE_MAX;  // Of the track that has fewer: from the first one on, all right.
  QiroK7MError end = 0;       // What came behind the last sample.
  QiroK7MError edits = 0;     // The same with the edit lists.
};

size_t CountRight(const std::vector<ReadSample>& samples, size_t track) {
  size_t i = 0;
  while (i < samples.size() && samples[i].dataResult == 0 && samples[i].data == DataOf(track, i) &&
         samples[i].info.timeStamp == TimeOf(i)) {
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
    found.samples = std::min(found.samples, CountRight(SamplesOf(asked, samples, found.end), i));
  }
  QiroK7MSampleIterator* samples = nullptr;
  const QiroK7MError asked = QiroK7MReaderGetAllSamples(reader.Handle(), &samples);
  SamplesOf(asked, samples, found.edits);
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
  const DocumentSession session = WriteDocument(false);
  size_t count = 0;
  for (const Interruption& interruption : EveryInterruption(session)) {
    const Mark* flushed = session.LastMark(interruption.changes);
    if (flushed == nullptr) continue;
    SCOPED_TRACE(interruption.changes);
    const Found found = Look(FileAfter(session, interruption));
    ASSERT_EQ(found.open, 0u);
    EXPECT_GE(found.samples, flushed->samples);
    EXPECT_EQ(found.end, 0u);
    EXPECT_EQ(found.edits, 0u);
    ++count;
  }
  EXPECT_GT(count, 200u);
}

/// Of both kinds.
class InterruptedDocument : public ::testing::TestWithParam<bool> {};

TEST_P(InterruptedDocument, IsReadableBehindEveryCallOfItsSetUp) {
  const DocumentSession session = WriteDocument(GetParam());
  EXPECT_EQ(Look(session.begin).open, kQiroK7MErrorInvalidHierarchy) << "no track yet";
  for (const size_t changes : session.setUpCalls) {
    EXPECT_EQ(Look(FileAfter(session, {.changes = changes})).open, 0u) << changes;
  }
}

TEST_P(InterruptedDocument, IsUnreadableWhileTheMovieBoxIsBeingLaidOut) {
  const DocumentSession session = WriteDocument(GetParam());
  for (size_t call = 0; call < session.setUpCalls.size(); call += 2) {
    const size_t before = call == 0 ? 0 : session.setUpCalls[call - 1];
    const Found found = Look(FileAfter(session, {.changes = before + 1}));
    EXPECT_EQ(found.open, kQiroK7MErrorBoxTruncated) << "track " << call / 2 + 1;
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, InterruptedDocument, ::testing::Values(false, true),
                         [](const auto& param) { return param.param ? "Fragmented" : "Plain"; });

TEST(InterruptedPlainFile, BehindItsSetUpIsReadableAlsoBeforeTheFirstFlush) {
  const DocumentSession session = WriteDocument(false);
  ASSERT_LT(session.setUpCalls.back(), session.marks[0].changes);
  for (size_t n = session.setUpCalls.back(); n < session.marks[0].changes; ++n) {
    EXPECT_EQ(Look(FileAfter(session, {.changes = n})).open, 0u) << n;
  }
}

/// A count of a table that arrived before its entries makes the movie unreadable: without the order
/// of the writes there is no promise for a plain file while it grows.
TEST(InterruptedPlainFile, OutOfOrderOnlyAChunkMapAheadOfItsEntriesIsUnreadable) {
  const DocumentSession session = WriteDocument(false);
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

TEST(InterruptedFragmentedFile, KeepsEveryFragmentThatWasFlushed) {
  const DocumentSession session = WriteDocument(true);
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
    EXPECT_EQ(found.end, expected) << "behind what is complete";
    EXPECT_EQ(found.edits, expected);
  }
  EXPECT_GT(broken, 0u);
}

TEST(InterruptedFragmentedFile, BeforeTheFirstFlushOnlyAnUnfinishedHeaderOrMovieBoxIsUnreadable) {
  const DocumentSession session = WriteDocument(true);
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

TEST(InterruptedFragmentedFile, OutOfOrderToo) {
  const DocumentSession session = WriteDocument(true);
  for (const Interruption& interruption : OutOfOrderInterruptions(session, kRandomChoices)) {
    const Found found = Look(FileAfter(session, interruption));
    ASSERT_EQ(found.open, 0u);
    EXPECT_GE(found.samples, session.LastMark(interruption.changes)->samples);
  }
}

// K7R files
// -------------------------------------------------------------------------------------------

struct K7RSession : Session {
  size_t movieBoxClosed = 0;     // So many changes had been made by then.
  std::vector<uint64_t> starts;  // Of the fragments.
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
    AddFragment(writer, {video, audio, hint}, number * 2);  // With a gap between them.
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

/// So many complete fragments must be read first, whatever is behind them.
void ExpectRead(const Bytes& file, size_t fragments, bool isEndClean) {
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  QiroK7MTrack* audio = reader.TrackAt(1);
  QiroK7MSampleIterator* samples = nullptr;
  QiroK7MError end = 0;
  const QiroK7MError asked = QiroK7MReaderGetMediaSamples(reader.Handle(), &audio, 1, &samples);
  const std::vector<Bytes> media = Data(SamplesOf(asked, samples, end));
  ASSERT_GE(media.size(), fragments);
  for (size_t i = 0; i < fragments; ++i) {
    EXPECT_EQ(media[i], MessageOf(Recording::kTimeOrigin + 2 * i * 100 + 1));
  }
  if (isEndClean) {
    EXPECT_EQ(end, 0u);
  }
}

/// A continued file must hold so many fragments, or one more, and take another.
void ExpectContinued(const Bytes& file, size_t fragments, uint64_t keepLimit = ~uint64_t{0}) {
  OpenedK7RWriter writer(file, keepLimit);
  ASSERT_EQ(writer.Result(), 0u);
  std::vector<uint64_t> numbers;
  const size_t kept = MediaOf(writer.File(), 1).size();
  ASSERT_GE(kept, fragments);
  ASSERT_LE(kept, fragments + 1);
  for (size_t i = 0; i < kept; ++i) numbers.push_back(2 * i);
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
    ExpectRead(file, fragments, true);
    ExpectContinued(file, fragments);
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
    ExpectRead(file, fragments, false);
    OpenedK7RWriter writer(file);
    ASSERT_EQ(writer.Result(), 0u);
    ASSERT_GE(writer.LastFragment(), session.starts[fragments - 1]);
    ExpectContinued(file, fragments, session.starts[fragments - 1]);
    if (HasFailure()) return;
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
    ExpectRead(file, 1, false);
    ExpectContinued(file, 1, session.starts[0]);
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

// Fragmented files that lie: reading them ends in an answer, within bounds, and gives everything
// back.
#include <gtest/gtest.h>

#include "random_fragments.h"
#include "support/fragment_builder.h"
#include "support/heap_watch.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr uint64_t kFixedMemory = 64 << 20;
constexpr uint64_t kMemoryPerByteRead = 48;
constexpr uint32_t kLargestSampleCopied = 1 << 16;
constexpr int kMostSamplesTaken = 300;

/// A few bytes can describe samples without number: only the first ones are taken.
void TakeSome(QiroK7MSampleIterator* iterator) {
  for (int i = 0; i < kMostSamplesTaken && HasMore(iterator); ++i) {
    QiroK7MSample* sample = nullptr;
    if (QiroK7MSampleIteratorGetNextEntry(iterator, &sample) != 0 || sample == nullptr) continue;
    QiroK7MSampleInfo info{};
    EXPECT_EQ(QiroK7MSampleGetInfo(sample, &info), 0u);
    TakeSample(sample, info.sampleSize <= kLargestSampleCopied);
  }
  QiroK7MReleaseSampleIterator(iterator);
}

void AskForEverything(const OpenedReader& reader, Dice& dice) {
  QiroK7MSampleIterator* iterator = nullptr;
  for (int i = 0; i < 4; ++i) {
    const uint32_t scale = dice.Pick<uint32_t>({1, 25, 1000, 90000, 0xFFFFFFFF});
    const uint64_t start = dice.OneIn(5) ? ~uint64_t{0} - dice.Below(9) : dice.Below(scale);
    const uint64_t end = start + dice.Below(scale);
    if (QiroK7MReaderGetSamples(reader.Handle(), scale, start, scale, end, &iterator) == 0) {
      TakeSome(iterator);
    }
  }
  if (QiroK7MReaderGetAllSamples(reader.Handle(), &iterator) == 0) TakeSome(iterator);
  if (QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator) == 0) {
    TakeSome(iterator);
  }
  for (QiroK7MTrack* track : reader.Tracks()) {
    uint32_t count = 0;
    QiroK7MTrackGetSampleCount(track, &count);
  }
}

/// Asks a file for all there is; memory must stay within the bound. What is left over or misused
/// fails the test when the reader closes. Returns whether the file could be opened.
bool ReadWithinBounds(const Bytes& file, Dice& dice) {
  const int64_t before = CountHeap().liveBytes;
  ResetHeapPeak();
  OpenedReader reader(file, ReadFlags{dice.Below(4)});
  if (reader.Result() == 0) AskForEverything(reader, dice);
  const auto heap = static_cast<uint64_t>(CountHeap().peakBytes - before);
  EXPECT_LE(heap + reader.Memory().PeakBytes(),
            kFixedMemory + kMemoryPerByteRead * reader.Stream().BytesDelivered());
  return reader.Result() == 0;
}

/// A place in a fragment, or sometimes in the movie box.
size_t RandomPlace(const RandomFragmentedFile& file, Dice& dice) {
  const auto size = static_cast<uint32_t>(file.bytes.Size());
  if (file.fragments.moofs.empty() || dice.OneIn(6)) return dice.Below(size);
  const auto count = static_cast<uint32_t>(file.fragments.moofs.size());
  const uint64_t begin = file.fragments.moofs[dice.Below(count)].offset;
  return std::min<size_t>(begin + dice.Below(300), size - 1);
}

TEST(HostileFragments, WithBytesChanged_AreReadWithinBounds) {
  ASSERT_TRUE(HeapIsWatched());
  uint32_t opened = 0;
  for (uint32_t seed = 0; seed < 2000; ++seed) {
    Dice dice(seed);
    RandomFragmentedFile file = MakeRandomFragmentedFile(dice);
    for (uint32_t i = dice.Between(1, 5); i > 0; --i) {
      const size_t place = RandomPlace(file, dice);
      file.bytes[place] = dice.Pick<uint8_t>({0, 1, 0x7F, 0x80, 0xFF, file.bytes[place / 2]});
    }
    opened += ReadWithinBounds(file.bytes, dice) ? 1 : 0;
    if (HasFailure()) FAIL() << "seed " << seed;
  }
  EXPECT_GT(opened, 1000u);
}

TEST(HostileFragments, CutAnywhere_AreReadWithinBounds) {
  ASSERT_TRUE(HeapIsWatched());
  for (uint32_t seed = 0; seed < 40; ++seed) {
    Dice dice(seed);
    const RandomFragmentedFile file = MakeRandomFragmentedFile(dice);
    for (size_t size = 0; size < file.bytes.Size(); size += 1 + dice.Below(150)) {
      ReadWithinBounds(Cut(file.bytes, size), dice);
      if (HasFailure()) FAIL() << "seed " << seed << " cut at " << size;
    }
  }
}

// Named lies
// -------------------------------------------------------------------------------------------

constexpr Trex kDefaults = {.duration = 10, .size = 4};

Bytes FileOf(const Bytes& fragments) {
  Movie movie = FragmentedMovie({{.duration = 1000000}}, kDefaults);
  movie.atEnd = fragments;
  return BuildMovie(movie).bytes;
}

/// The answer to a question for all samples.
QiroK7MError AllSamplesError(const Bytes& file) {
  OpenedReader reader(file);
  EXPECT_EQ(reader.Result(), 0u);
  QiroK7MSampleIterator* iterator = nullptr;
  const QiroK7MError result = QiroK7MReaderGetAllSamples(reader.Handle(), &iterator);
  QiroK7MReleaseSampleIterator(iterator);
  return result;
}

TEST(HostileFragments, BoxesThatAreTooSmallAreError27) {
  const Bytes mfhd = FullBox("mfhd", 0, 0, Mfhd{});
  for (const uint32_t size : {2u, 7u}) {
    EXPECT_EQ(AllSamplesError(FileOf(LyingBox("moof", size))), kQiroK7MErrorBoxTruncated);
    EXPECT_EQ(AllSamplesError(FileOf(Moof(LyingBox("traf", size)))), kQiroK7MErrorBoxTruncated);
    EXPECT_EQ(AllSamplesError(FileOf(Moof(Traf(0, Tfhd{}, LyingBox("trun", size))))),
              kQiroK7MErrorBoxTruncated);
  }
  EXPECT_EQ(AllSamplesError(FileOf(LyingBox("moof", 8, mfhd))), kQiroK7MErrorInvalidHierarchy);
}

TEST(HostileFragments, AMoofPastTheEndOfTheFileIsError27) {
  const Bytes moof = Moof(Traf(0, Tfhd{}, DefaultRun(2)));
  Bytes longer = moof;
  longer.Patch(0, moof.Size() + 1);
  EXPECT_EQ(AllSamplesError(FileOf(longer)), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(AllSamplesError(FileOf(Cut(moof, moof.Size() - 1))), kQiroK7MErrorBoxTruncated);
}

TEST(HostileFragments, AMoofThatRunsToTheEndIsTheLast) {
  const Bytes traf = Traf(0, Tfhd{}, DefaultRun(2));
  OpenedReader reader(FileOf(TillEndBox("moof", FullBox("mfhd", 0, 0, Mfhd{}), traf)));
  EXPECT_EQ(AllSamples(reader).size(), 2u);
}

TEST(HostileFragments, AChildPastItsFragmentIsClippedWithAWarning) {
  Bytes run = DefaultRun(2);
  run.Patch(0, 5000);
  OpenedReader reader(FileOf(Moof(Traf(0, Tfhd{}, run))));
  EXPECT_EQ(AllSamples(reader).size(), 2u);
  EXPECT_EQ(reader.Warnings().Count(kQiroK7MWarningBoxPastParent), 1u);
}

TEST(HostileFragments, SamplesWithoutNumberAreHandedOutOneByOne) {
  OpenedReader reader(FileOf(Moof(Traf(0, Tfhd{}, DefaultRun(0xFFFFFFFF)))));
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator), 0u);
  TakeSome(iterator);
  // From the middle on at once.
  const auto late = SamplesBetween(reader, 1000, 999990, 1000, 2000000);
  ASSERT_EQ(late.size(), 1u);
  EXPECT_EQ(late[0].info.timeStamp, 999990u);
}

TEST(HostileFragments, SamplesOfNoSizeAndNoDurationAreDelivered) {
  const Tfhd none{.duration = 0, .size = 0};
  OpenedReader reader(FileOf(Moof(Traf(kTfhdDuration | kTfhdSize, none, DefaultRun(3)))));
  const auto samples = AllSamples(reader);
  EXPECT_EQ(TimeStamps(samples), (std::vector<uint64_t>{0, 0, 0}));
  for (const ReadSample& sample : samples) EXPECT_EQ(sample.dataResult, 0u);
}

TEST(HostileFragments, AStrayTrackFragmentBeforeTheMovieIsRefused) {
  const Bytes stray = Traf(0, Tfhd{}, DefaultRun(1));
  EXPECT_EQ(OpenResult(stray + FileOf({})), kQiroK7MErrorInvalidHierarchy);
  Movie movie = FragmentedMovie({{.duration = 100}}, kDefaults);
  movie.moreInMoov.Append(stray);
  EXPECT_EQ(OpenResult(BuildMovie(movie).bytes), kQiroK7MErrorInvalidHierarchy);
}

TEST(HostileFragments, AFragmentInAFragmentIsNotTheTracks) {
  const Bytes inner = Traf(0, Tfhd{}, DefaultRun(5));
  const Bytes outer = Traf(0, Tfhd{}, DefaultRun(1), inner);
  for (const Bytes& moof :
       {Moof(Moof(inner), outer), Moof(outer, Moof(inner)), Moof(outer, inner)}) {
    OpenedReader reader(FileOf(moof));
    EXPECT_EQ(MediaSamples(reader).size(), moof == Moof(outer, inner) ? 6u : 1u);
  }
}

}  // namespace
}  // namespace k7mtest

// Reading from a stream that delivers less than it was asked for and has: at the n-th read, for
// every n, by one byte, by all, and from then on. The reader can be asked again behind that.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "fragmented_session.h"
#include "support/box_finder.h"
#include "support/opened_reader.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kShortRead = kQiroK7MErrorReadFailed;
constexpr QiroK7MError kShortSample = kQiroK7MErrorSampleDataShort;

/// The ways to open: plainly, and with both rules.
constexpr std::optional<ReadFlags> kOpenings[] = {std::nullopt, ReadFlags{3}};

/// Whether the code of a box stands `distance` bytes before what was read.
bool IsBehindCode(const Bytes& file, const CallRecord& read, const char* code, uint64_t distance) {
  return read.offset >= distance && file.NumberAt(read.offset - distance) == Code(code);
}

/// The payload of a 'moof', as a whole.
bool IsFragment(const Bytes& file, const CallRecord& read) {
  return IsBehindCode(file, read, "moof", 4) && file.NumberAt(read.offset - 8) == read.size + 8;
}

/// The entries of an 'stsc', as a whole.
bool IsChunkMap(const Bytes& file, const CallRecord& read) {
  return IsBehindCode(file, read, "stsc", 12) && file.NumberAt(read.offset - 4) * 12 == read.size;
}

/// Only the cache of sample data asks for more than there is.
bool IsCacheBlock(const Bytes& file, const CallRecord& read) {
  return read.offset + read.size > file.Size();
}

/// What a reader delivers.
struct Content {
  std::vector<uint64_t> times;
  std::vector<uint64_t> mediaTimes;
  std::vector<Bytes> data;
  std::vector<Bytes> mediaData;
  friend bool operator==(const Content&, const Content&) = default;
};

Content ContentOf(const OpenedReader& reader) {
  const auto all = AllSamples(reader);
  const auto media = MediaSamples(reader);
  for (const ReadSample& sample : all) EXPECT_EQ(sample.dataResult, 0u);
  for (const ReadSample& sample : media) EXPECT_EQ(sample.dataResult, 0u);
  return {TimeStamps(all), TimeStamps(media), Data(all), Data(media)};
}

void ExpectAllAnswered(const OpenedReader& reader) {
  for (const Question& question : kQuestions) {
    EXPECT_EQ(question.ask(reader.Handle()), 0u) << question.name;
  }
}

// Opening
// -------------------------------------------------------------------------------------------

/// A movie whose first track has two runs of chunks, the other one.
Bytes TwoRunsFile() {
  Movie movie;
  movie.tracks = {{.samples = SomeSamples(5, 40), .samplesPerChunk = 2},
                  {.handler = "soun", .samples = SomeSamples(4, 30, 9)}};
  return BuildMovie(movie).bytes;
}

TEST(ShortReads, TypeTest_Error5) {
  const Bytes file = SessionFile();
  const uint64_t hits = SweepShortReads([&](uint64_t n, Shortfall shortfall) {
    MemoryStream stream(file);
    stream.ShortenNthRead(n, shortfall);
    const QiroK7MIStreamCallBacks record = stream.Reading();
    const QiroK7MAllocatorCallBacks memory;
    uint32_t isK7M = 77;
    const QiroK7MError result = QiroK7MDocIsK7M(&record, &memory, &isK7M);
    EXPECT_EQ(result, stream.FaultHit() ? kShortRead : 0u);
    EXPECT_EQ(isK7M, stream.FaultHit() ? 77u : 1u);
    EXPECT_EQ(stream.Count(Call::kClose), 1u);
    return stream.FaultHit();
  });
  EXPECT_GE(hits, 3u);
}

TEST(ShortReads, OpenForRead_Error5ButForAChunkMap) {
  for (const auto& opening : kOpenings) {
    for (const Bytes& file :
         {SessionFile(), TwoRunsFile(), FragmentedSessionFile(), RichFragmentedFile(true)}) {
      uint64_t chunkMaps = 0;
      const uint64_t hits = SweepShortReads([&](uint64_t n, Shortfall shortfall) {
        OpenedReader reader(file, opening, [&](OpenedReader& prepared) {
          prepared.Stream().ShortenNthRead(n, shortfall);
        });
        const bool wasHit = reader.Stream().FaultHit();
        // The entries that came are kept: a chunk map is read laxly.
        const bool isLax = wasHit && shortfall != Shortfall::kEverythingFromThenOn &&
                           IsChunkMap(file, reader.Stream().ShortenedRead());
        EXPECT_EQ(reader.Result(), wasHit && !isLax ? kShortRead : 0u) << "read " << n;
        if (isLax) ++chunkMaps;
        return wasHit;
      });
      EXPECT_GT(hits, 60u);
      EXPECT_GE(chunkMaps, 2u);
    }
  }
}

TEST(ShortReads, OfAChunkMap_LeaveTheRestOfTheDocument) {
  const Bytes file = TwoRunsFile();
  const size_t secondTrack = PlaceOf(file, "moov/trak#2").offset;
  OpenedReader untroubled(file);
  const auto samplesOf = [](const OpenedReader& reader, size_t track) {
    return Data(MediaSamples(reader, reader.TrackAt(track)));
  };
  const std::array<std::vector<Bytes>, 2> expected = {samplesOf(untroubled, 0),
                                                      samplesOf(untroubled, 1)};
  ASSERT_EQ(expected[0].size(), 5u);
  ASSERT_EQ(expected[1].size(), 4u);
  uint64_t chunkMaps = 0;
  SweepShortReads([&](uint64_t n, Shortfall shortfall) {
    OpenedReader reader(file, std::nullopt, [&](OpenedReader& prepared) {
      prepared.Stream().ShortenNthRead(n, shortfall);
    });
    const bool wasHit = reader.Stream().FaultHit();
    const CallRecord read = reader.Stream().ShortenedRead();
    reader.Stream().ShortenNthRead(0);  // No further fault.
    if (wasHit && reader.Result() == 0) {
      ++chunkMaps;
      const size_t track = read.offset < secondTrack ? 0 : 1;
      EXPECT_EQ(samplesOf(reader, 1 - track), expected[1 - track]);
      // The last entry that came holds for all chunks behind it; without one there is no sample.
      EXPECT_EQ(samplesOf(reader, track),
                read.delivered >= 12 ? expected[track] : std::vector<Bytes>());
    }
    return wasHit;
  });
  EXPECT_EQ(chunkMaps, 4u) << "of two tracks, by one byte and by all";
}

// Questions
// -----------------------------------------------------------------------------------------

/// What a question answers of which this was the first short read.
QiroK7MError AnswerBehind(const Bytes& file, const CallRecord& read, Shortfall shortfall) {
  const bool isLasting = shortfall == Shortfall::kEverythingFromThenOn;
  // What a block does not hold is asked for again, alone.
  if (IsCacheBlock(file, read)) return isLasting ? kShortSample : 0;
  // A fragment that does not come as a whole is read box by box.
  if (IsFragment(file, read)) return isLasting ? kShortRead : 0;
  return kShortRead;
}

/// Its memory is not that of the sweep.
using Codes = std::set<QiroK7MError, std::less<>, MallocAllocator<QiroK7MError>>;
using CodesOfQuestions = std::map<std::string, Codes>;

/// Asks every question with every read short. Returns what each answered then.
CodesOfQuestions AskWithShortReads(const Bytes& file, std::optional<ReadFlags> opening = {}) {
  const auto open = [&] { return std::make_unique<OpenedReader>(file, opening, [](auto&) {}); };
  const Content expected = ContentOf(*open());
  CodesOfQuestions codes;
  for (const Question& question : kQuestions) {
    Codes& answers = codes[question.name];
    SweepShortReads(
        [&](uint64_t n, Shortfall shortfall) {
          const auto reader = open();
          reader->Stream().ShortenNthRead(n, shortfall);
          const QiroK7MError result = question.ask(reader->Handle());
          const bool wasHit = reader->Stream().FaultHit();
          const CallRecord read = reader->Stream().ShortenedRead();
          reader->Stream().ShortenNthRead(0);  // No further fault.
          EXPECT_EQ(result, wasHit ? AnswerBehind(file, read, shortfall) : 0u)
              << question.name << ", read " << n << " at " << read.offset << " of " << read.size;
          EXPECT_EQ(question.ask(reader->Handle()), 0u) << question.name << ", again after " << n;
          EXPECT_EQ(ContentOf(*reader), expected) << question.name << ", read " << n;
          ExpectAllAnswered(*reader);
          if (wasHit) answers.insert(result);
          return wasHit;
        },
        Opportunities::kPerhapsNone);
    if (::testing::Test::HasFailure()) return codes;
  }
  return codes;
}

/// In a plain document all but the metadata box has been parsed by opening.
const CodesOfQuestions kOfPlainDocuments = {
    {"QiroK7MReaderGetTracks", {}},
    {"QiroK7MReaderGetTracksByMediaTypes", {}},
    {"QiroK7MTrackGetSampleDescriptors", {}},
    {"QiroK7MReaderGetSamples", {}},
    {"QiroK7MReaderGetSamplesByTracks", {}},
    {"QiroK7MReaderGetSamplesByMediaTypes", {}},
    {"QiroK7MReaderGetAllSamples", {}},
    {"QiroK7MReaderGetAllSamplesByTracks", {}},
    {"QiroK7MReaderGetAllSamplesByMediaTypes", {}},
    {"QiroK7MReaderGetMediaSamples", {}},
    {"QiroK7MTrackGetSampleCount", {}},
    {"QiroK7MSampleIteratorGetNextEntry", {}},
    {"QiroK7MSampleCopyData", {0, kShortSample}},
    {"QiroK7MReaderGetUlbDataLength", {kShortRead}},
    {"QiroK7MReaderCopyUlbData", {kShortRead}},
    {"QiroK7MReaderCopyUlbData, twice", {kShortRead}},
};

/// In a fragmented one nearly every question parses on; those for all samples of the first track do
/// not when that begins with a gap.
CodesOfQuestions OfFragmentedDocuments(bool beginsWithGap) {
  const Codes parsed = {0, kShortRead};
  CodesOfQuestions codes = kOfPlainDocuments;
  for (auto& [name, answers] : codes) answers = parsed;
  for (const char* name : {"QiroK7MReaderGetTracks", "QiroK7MReaderGetTracksByMediaTypes",
                           "QiroK7MTrackGetSampleDescriptors", "QiroK7MReaderGetMediaSamples"}) {
    codes[name] = {};
  }
  if (beginsWithGap) {
    codes["QiroK7MReaderGetAllSamplesByTracks"] = {};
    codes["QiroK7MReaderGetAllSamplesByMediaTypes"] = {};
  }
  codes["QiroK7MSampleCopyData"].insert(kShortSample);
  return codes;
}

TEST(ShortReads, OfAQuestionToAPlainDocument) {
  EXPECT_EQ(AskWithShortReads(SessionFile()), kOfPlainDocuments);
}

TEST(ShortReads, OfAQuestionToAFragmentedDocument) {
  EXPECT_EQ(AskWithShortReads(FragmentedSessionFile()), OfFragmentedDocuments(false));
  EXPECT_EQ(AskWithShortReads(UnusualSessionFile()), OfFragmentedDocuments(false));
}

TEST(ShortReads, OfAQuestionToARichFragmentedDocument) {
  for (const bool hasFragmentAhead : {false, true}) {
    for (const auto& opening : kOpenings) {
      EXPECT_EQ(AskWithShortReads(RichFragmentedFile(hasFragmentAhead), opening),
                OfFragmentedDocuments(true));
    }
  }
}

TEST(ShortReads, OfSampleData_GiveTheRightBytesOr1030) {
  for (const Bytes& file : {SessionFile(), FragmentedSessionFile(), RichFragmentedFile()}) {
    OpenedReader untroubled(file);
    const std::vector<Bytes> expected = Data(AllSamples(untroubled));
    uint64_t failures = 0;
    SweepShortReads([&](uint64_t n, Shortfall shortfall) {
      OpenedReader reader(file);
      AllSamples(reader, false);  // Everything is parsed; only the bytes are left.
      reader.Stream().ShortenNthRead(n, shortfall);
      const auto troubled = AllSamples(reader);
      const bool wasHit = reader.Stream().FaultHit();
      EXPECT_EQ(troubled.size(), expected.size());
      for (size_t i = 0; i < troubled.size(); ++i) {
        const bool isShort = troubled[i].dataResult != 0;
        if (!isShort) {
          EXPECT_EQ(troubled[i].data, expected[i]) << i;
          continue;
        }
        EXPECT_EQ(troubled[i].dataResult, kShortSample) << i;
        EXPECT_EQ(shortfall, Shortfall::kEverythingFromThenOn);
        ++failures;
      }
      reader.Stream().ShortenNthRead(0);  // No further fault.
      EXPECT_EQ(Data(AllSamples(reader)), expected);
      return wasHit;
    });
    const auto withBytes = std::count_if(expected.begin(), expected.end(),
                                         [](const Bytes& data) { return !data.Empty(); });
    EXPECT_GE(failures, static_cast<uint64_t>(withBytes)) << "of the sweep's first run alone";
  }
}

}  // namespace
}  // namespace k7mtest

// Reading a fragmented document, with every callback and every allocation failing in turn: each
// failure is its own code, everything is given back, and the same reader then gives the right
// answer.
#include <gtest/gtest.h>

#include "fragmented_session.h"
#include "support/opened_reader.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kClientCode = 0xABCD1234;
constexpr Call kCallsThatRead[] = {Call::kRead, Call::kSeek, Call::kTell};
constexpr ReadFlags kRules[] = {{0}, {3}};

/// Takes every media sample and its bytes; goes on behind a failure. Answers the first code.
QiroK7MError CopyMediaSamples(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  QiroK7MError first = QiroK7MReaderGetMediaSamples(reader, nullptr, 0, &iterator);
  uint32_t hasMore = first == 0 ? 1 : 0;
  while (hasMore == 1) {
    QiroK7MSample* sample = nullptr;
    std::array<uint8_t, 64> buffer;
    QiroK7MError result = QiroK7MSampleIteratorGetNextEntry(iterator, &sample);
    if (result == 0) result = QiroK7MSampleCopyData(sample, buffer.data());
    if (first == 0) first = result;
    QiroK7MReleaseSample(sample);
    QiroK7MSampleIteratorHasMoreEntries(iterator, &hasMore);
  }
  QiroK7MReleaseSampleIterator(iterator);
  return first;
}

std::vector<Question> Questions() {
  std::vector<Question> questions(kQuestions.begin(), kQuestions.end());
  questions.push_back({"QiroK7MReaderGetMediaSamples, all copied", CopyMediaSamples});
  return questions;
}

/// What a reader delivers; to be the same after any failure.
struct Content {
  std::vector<uint64_t> times;
  std::vector<uint32_t> flags;
  std::vector<Bytes> data;
  friend bool operator==(const Content&, const Content&) = default;
};

Content ContentOf(const std::vector<ReadSample>& samples) {
  for (const ReadSample& sample : samples) EXPECT_EQ(sample.dataResult, 0u);
  return {TimeStamps(samples), Flags(samples), Data(samples)};
}

std::pair<Content, Content> ContentOf(const OpenedReader& reader) {
  return {ContentOf(AllSamples(reader)), ContentOf(MediaSamples(reader))};
}

/// Opens, asks everything, closes. Answers the first code.
QiroK7MError WholeSession(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory,
                          ReadFlags flags, const std::vector<Question>& questions) {
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MReadOptions options = {sizeof(options), flags.value};
  QiroK7MReader* reader = nullptr;
  QiroK7MError first =
      QiroK7MDocOpenForReadWithOptions(&record, &warning, &memory, &options, &reader);
  for (const Question& question : questions) {
    if (first == 0) first = question.ask(reader);
  }
  QiroK7MCloseReader(reader);
  return first;
}

TEST(FragmentedSession, HoldsWhatTheSweepsWant) {
  for (const bool hasFragmentAhead : {false, true}) {
    OpenedReader plain(RichFragmentedFile(hasFragmentAhead));
    const auto all = AllSamples(plain);
    EXPECT_EQ(MediaSamples(plain).size(), 3u + 14 + 2 + 10);
    EXPECT_EQ(Flags(all)[0], 2u);
    for (const Question& question : Questions()) {
      EXPECT_EQ(question.ask(plain.Handle()), 0u) << question.name;
    }
    OpenedReader ruled(RichFragmentedFile(hasFragmentAhead), kRules[1]);
    EXPECT_NE(TimeStamps(MediaSamples(ruled)), TimeStamps(MediaSamples(plain)));
  }
}

TEST(FailingFragmentCallbacks, AnySession_GivesTheClientsCode) {
  const std::vector<Question> questions = Questions();
  for (const bool hasFragmentAhead : {false, true}) {
    for (const ReadFlags flags : kRules) {
      for (const Call call : {Call::kOpen, Call::kRead, Call::kSeek, Call::kTell}) {
        const Bytes file = RichFragmentedFile(hasFragmentAhead);
        const QiroK7MAllocatorCallBacks memory;
        const uint64_t failures = SweepStream(file, call, kClientCode, [&](MemoryStream& stream) {
          const QiroK7MError result = WholeSession(stream, memory, flags, questions);
          EXPECT_FALSE(stream.IsOpen());
          return result;
        });
        EXPECT_GE(failures, call == Call::kOpen ? 1u : 20u);
        if (HasFailure()) return;
      }
    }
  }
}

TEST(FailingFragmentCallbacks, EveryQuestion_CanBeAskedAgain) {
  const Bytes file = RichFragmentedFile();
  uint64_t failures = 0;
  for (const ReadFlags flags : kRules) {
    OpenedReader untroubled(file, flags);
    const auto expected = ContentOf(untroubled);
    for (const Question& question : Questions()) {
      for (const Call call : kCallsThatRead) {
        const auto ask = [&](uint64_t n) {
          OpenedReader reader(file, flags);
          reader.Stream().FailNth(call, n, kClientCode);
          const QiroK7MError result = question.ask(reader.Handle());
          const bool wasHit = reader.Stream().FaultHit();
          reader.Stream().FailNth(call, 0, 0);  // No further fault.
          EXPECT_EQ(result, wasHit ? kClientCode : 0) << question.name << ", call " << n;
          EXPECT_EQ(question.ask(reader.Handle()), 0u) << question.name << ", again after " << n;
          EXPECT_EQ(ContentOf(reader), expected) << question.name << ", call " << n;
          return wasHit;
        };
        failures += Sweep(ask, Opportunities::kPerhapsNone);
        if (HasFailure()) return;
      }
    }
  }
  EXPECT_GT(failures, 400u);
}

TEST(FailingFragmentMemory, AnySession_ThroughTheCallbacks) {
  const std::vector<Question> questions = Questions();
  for (const bool hasFragmentAhead : {false, true}) {
    for (const ReadFlags flags : kRules) {
      const Bytes file = RichFragmentedFile(hasFragmentAhead);
      EXPECT_GT(SweepAllocator([&](const QiroK7MAllocatorCallBacks& memory) {
                  MemoryStream stream(file);
                  return WholeSession(stream, memory, flags, questions);
                }),
                80u);
    }
  }
}

TEST(FailingFragmentMemory, EveryQuestion_ThroughTheCallbacksCanBeAskedAgain) {
  const Bytes file = RichFragmentedFile();
  OpenedReader untroubled(file, kRules[1]);
  const auto expected = ContentOf(untroubled);
  uint64_t failures = 0;
  for (const Question& question : Questions()) {
    const auto ask = [&](uint64_t n) {
      OpenedReader reader(file, kRules[1]);
      reader.Memory().FailNth(n);
      const QiroK7MError result = question.ask(reader.Handle());
      const bool wasHit = reader.Memory().FaultHit();
      reader.Memory().FailNth(0);  // No further fault.
      EXPECT_EQ(result, wasHit ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone) << question.name;
      EXPECT_EQ(question.ask(reader.Handle()), 0u) << question.name << ", again after " << n;
      EXPECT_EQ(ContentOf(reader), expected) << question.name << ", allocation " << n;
      return wasHit;
    };
    failures += Sweep(ask, Opportunities::kPerhapsNone);
    if (HasFailure()) return;
  }
  EXPECT_GT(failures, 100u);
}

TEST(FailingFragmentMemory, EveryQuestion_ThroughTheGlobalOperatorsCanBeAskedAgain) {
  ASSERT_TRUE(HeapIsWatched());
  const Bytes file = RichFragmentedFile();
  OpenedReader untroubled(file);
  const auto expected = ContentOf(untroubled);
  for (const Question& question : Questions()) {
    const uint64_t failures = Sweep([&](uint64_t n) {
      OpenedReader reader(file);
      QiroK7MError result = 0;
      bool wasHit = false;
      bool isFailure = false;
      {
        HeapFault fault(n);
        result = question.ask(reader.Handle());
        wasHit = fault.Hit();
        isFailure = wasHit && !fault.WasQuiet();
      }
      EXPECT_EQ(result, isFailure ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone) << question.name;
      EXPECT_EQ(ContentOf(reader), expected) << question.name << ", allocation " << n;
      return wasHit;
    });
    EXPECT_GE(failures, 1u) << question.name;
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace k7mtest

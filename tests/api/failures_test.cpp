// Every exported function of the reading side, with every callback and every allocation failing in
// turn.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "reading_session.h"
#include "support/opened_reader.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kClientCode = 0xABCD1234;
constexpr Call kCallsThatRead[] = {Call::kRead, Call::kSeek, Call::kTell};

/// Which of the two functions opens a document.
enum class Opening : uint8_t { kPlain, kWithOptions };
constexpr Opening kOpenings[] = {Opening::kPlain, Opening::kWithOptions};

QiroK7MError OpenAndClose(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory,
                          Opening opening = Opening::kPlain) {
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MReadOptions options{.size = 8,
                                   .flags = kQiroK7MReadBaseDataOffsets | kQiroK7MReadStartTimes};
  auto* const untouched = reinterpret_cast<QiroK7MReader*>(&stream);
  QiroK7MReader* reader = untouched;
  const QiroK7MError result =
      opening == Opening::kPlain
          ? QiroK7MDocOpenForRead(&record, &warning, &memory, &reader)
          : QiroK7MDocOpenForReadWithOptions(&record, &warning, &memory, &options, &reader);
  if (result != 0) {
    EXPECT_EQ(reader, untouched) << "a failed open wrote the handle";
  } else {
    QiroK7MCloseReader(reader);
  }
  return result;
}

QiroK7MError TypeTest(MemoryStream& stream) {
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MAllocatorCallBacks memory;
  uint32_t isK7M = 77;
  const QiroK7MError result = QiroK7MDocIsK7M(&record, &memory, &isK7M);
  EXPECT_EQ(isK7M, result == 0 ? 1u : 77u);
  return result;
}

/// A file that starts with a fragment, so that the movie box is looked for ahead.
Bytes LookAheadFile() {
  return Box("free") + Box("moof", FullBox("mfhd", 0, 0, Mfhd{})) + SessionFile();
}

// Callbacks
// -----------------------------------------------------------------------------------------

TEST(FailingCallbacks, OpenForRead_GivesTheClientsCode) {
  for (const Opening opening : kOpenings) {
    for (const Bytes& file : {SessionFile(), LookAheadFile()}) {
      for (const Call call : {Call::kOpen, Call::kRead, Call::kSeek, Call::kTell}) {
        const uint64_t failures = SweepStream(file, call, kClientCode, [&](MemoryStream& stream) {
          const QiroK7MAllocatorCallBacks memory;
          const QiroK7MError result = OpenAndClose(stream, memory, opening);
          // What was opened is closed, once; what could not be opened is not closed.
          const bool wasOpened = call != Call::kOpen || !stream.FaultHit();
          EXPECT_EQ(stream.Count(Call::kOpen), 1u);
          EXPECT_EQ(stream.Count(Call::kClose), wasOpened ? 1u : 0u);
          return result;
        });
        EXPECT_GE(failures, 1u);
      }
    }
  }
}

TEST(FailingCallbacks, OpenForRead_GivesEveryCodeUnchanged) {
  for (const QiroK7MError code : {1u, 5u, 18u, 27u, 3073u, 0xFFFFFFFFu}) {
    MemoryStream stream(SessionFile());
    stream.FailNth(Call::kRead, 3, code);
    const QiroK7MAllocatorCallBacks memory;
    EXPECT_EQ(OpenAndClose(stream, memory), code);
  }
}

TEST(FailingCallbacks, CloseReader_IgnoresAFailingClose) {
  OpenedReader reader(SessionFile());
  reader.Stream().FailNth(Call::kClose, 1, kClientCode);
  reader.Close();
  EXPECT_TRUE(reader.Stream().FaultHit());
  EXPECT_EQ(reader.Stream().Count(Call::kClose), 1u);
}

TEST(FailingCallbacks, TypeTest_GivesTheClientsCode) {
  for (const Call call : kCallsThatRead) {
    EXPECT_GE(SweepStream(SessionFile(), call, kClientCode,
                          [](MemoryStream& stream) {
                            const QiroK7MError result = TypeTest(stream);
                            EXPECT_EQ(stream.Count(Call::kClose), 1u);
                            return result;
                          }),
              1u);
  }
}

TEST(FailingCallbacks, TypeTest_ClosesAlsoWhatCouldNotBeOpened) {
  MemoryStream stream(SessionFile());
  stream.FailNth(Call::kOpen, 1, kClientCode);
  EXPECT_EQ(TypeTest(stream), kClientCode);
  EXPECT_EQ(stream.Count(Call::kClose), 1u);
}

TEST(FailingCallbacks, TypeTest_ReportsAFailingClose) {
  MemoryStream stream(SessionFile());
  stream.FailNth(Call::kClose, 1, kClientCode);
  EXPECT_EQ(TypeTest(stream), kClientCode);
}

/// Returns how often a question failed.
uint64_t AskWithFailingCallbacks(const Bytes& file) {
  uint64_t failures = 0;
  for (const Question& question : kQuestions) {
    for (const Call call : kCallsThatRead) {
      const auto ask = [&](uint64_t n) {
        OpenedReader reader(file);
        reader.Stream().FailNth(call, n, kClientCode);
        const QiroK7MError result = question.ask(reader.Handle());
        const bool wasHit = reader.Stream().FaultHit();
        reader.Stream().FailNth(call, 0, 0);  // No further fault.
        EXPECT_EQ(result, wasHit ? kClientCode : 0) << question.name << ", call " << n;
        EXPECT_EQ(question.ask(reader.Handle()), 0u) << question.name << ", again after " << n;
        for (const Question& other : kQuestions) EXPECT_EQ(other.ask(reader.Handle()), 0u);
        return wasHit;
      };
      failures += Sweep(ask, Opportunities::kPerhapsNone);
      if (::testing::Test::HasFailure()) return failures;
    }
  }
  return failures;
}

TEST(FailingCallbacks, EveryQuestion_GivesTheClientsCodeAndCanBeAskedAgain) {
  EXPECT_GT(AskWithFailingCallbacks(SessionFile()), 30u);
  EXPECT_GT(AskWithFailingCallbacks(FragmentedSessionFile()), 150u);
  EXPECT_GT(AskWithFailingCallbacks(UnusualSessionFile()), 500u);
}

TEST(FailingCallbacks, CopyData_DeliversTheRightBytesAfterAFailure) {
  const Bytes file = SessionFile();
  OpenedReader untroubled(file);
  const std::vector<Bytes> expected = Data(AllSamples(untroubled));
  for (uint64_t n = 1; n <= 3; ++n) {
    OpenedReader reader(file);
    reader.Stream().FailNth(Call::kRead, n, kClientCode);
    const auto troubled = AllSamples(reader);
    for (size_t i = 0; i < troubled.size(); ++i) {
      if (troubled[i].dataResult != 0) continue;
      EXPECT_EQ(troubled[i].data, expected[i]) << i;
    }
    EXPECT_EQ(Data(AllSamples(reader)), expected);
  }
}

// Memory
// --------------------------------------------------------------------------------------------

TEST(FailingMemory, OpenForRead_ThroughTheCallbacks) {
  for (const Opening opening : kOpenings) {
    for (const Bytes& file : {SessionFile(), LookAheadFile()}) {
      EXPECT_GT(SweepAllocator([&](const QiroK7MAllocatorCallBacks& memory) {
                  MemoryStream stream(file);
                  const QiroK7MError result = OpenAndClose(stream, memory, opening);
                  EXPECT_FALSE(stream.IsOpen());
                  EXPECT_EQ(stream.Count(Call::kClose), stream.Count(Call::kOpen));
                  return result;
                }),
                20u);
    }
  }
}

TEST(FailingMemory, OpenForRead_ThroughTheGlobalOperators) {
  const Bytes file = SessionFile();
  for (const Opening opening : kOpenings) {
    EXPECT_GT(SweepHeap([&] {
                MemoryStream stream(file);
                const QiroK7MAllocatorCallBacks memory;
                return OpenAndClose(stream, memory, opening);
              }),
              30u);
  }
}

TEST(FailingMemory, TypeTest_UsesNone) {
  const Bytes file = SessionFile();
  MemoryStream stream(file);
  const HeapCounts before = CountHeap();
  EXPECT_EQ(TypeTest(stream), 0u);
  EXPECT_EQ(CountHeap().allocations, before.allocations);
}

void AskWithFailingHeap(const Bytes& file) {
  for (const Question& question : kQuestions) {
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
      EXPECT_EQ(question.ask(reader.Handle()), 0u) << question.name << ", again";
      return wasHit;
    });
    EXPECT_GE(failures, 1u) << question.name;
    if (::testing::Test::HasFailure()) return;
  }
}

TEST(FailingMemory, EveryQuestion_IsAnsweredWith18AndCanBeAskedAgain) {
  AskWithFailingHeap(SessionFile());
  AskWithFailingHeap(FragmentedSessionFile());
  AskWithFailingHeap(UnusualSessionFile());
}

TEST(FailingMemory, MetadataQuestions_ThroughTheCallbacks) {
  const Bytes file = SessionFile();
  for (const Question& question : kQuestions) {
    if (std::string(question.name).find("Ulb") == std::string::npos) continue;
    EXPECT_GT(Sweep([&](uint64_t n) {
                OpenedReader reader(file);
                reader.Memory().FailNth(n);
                const QiroK7MError result = question.ask(reader.Handle());
                const bool wasHit = reader.Memory().FaultHit();
                EXPECT_EQ(result, wasHit ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone);
                EXPECT_EQ(question.ask(reader.Handle()), 0u) << "again";
                return wasHit;
              }),
              1u);
  }
}

/// Returns how often a question failed.
uint64_t AskWithFailingAllocator(const Bytes& file) {
  uint64_t failures = 0;
  for (const Question& question : kQuestions) {
    const auto ask = [&](uint64_t n) {
      OpenedReader reader(file);
      reader.Memory().FailNth(n);
      const QiroK7MError result = question.ask(reader.Handle());
      const bool wasHit = reader.Memory().FaultHit();
      EXPECT_EQ(result, wasHit ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone) << question.name;
      EXPECT_EQ(question.ask(reader.Handle()), 0u) << question.name << ", again";
      return wasHit;
    };
    failures += Sweep(ask, Opportunities::kPerhapsNone);
    if (::testing::Test::HasFailure()) return failures;
  }
  return failures;
}

TEST(FailingMemory, QuestionsThatParseFragments_ThroughTheCallbacks) {
  EXPECT_GT(AskWithFailingAllocator(FragmentedSessionFile()), 70u);
  EXPECT_GT(AskWithFailingAllocator(UnusualSessionFile()), 200u);
}

struct Thrower {
  static void* Runtime(void*, uint64_t) { throw std::runtime_error("full"); }
  static void* Bad(void*, uint64_t) { throw std::bad_alloc(); }
  static void* Number(void*, uint64_t) { throw 42; }
  static void* Null(void*, uint64_t) { return nullptr; }
};

TEST(FailingMemory, WhatACallbackThrowsHasACodeOfItsKind) {
  const auto open = [](void* (*allocate)(void*, uint64_t)) {
    MemoryStream stream(SessionFile());
    QiroK7MAllocatorCallBacks memory;
    memory.allocate = allocate;
    return OpenAndClose(stream, memory);
  };
  EXPECT_EQ(open(Thrower::Runtime), kQiroK7MErrorStdException);
  EXPECT_EQ(open(Thrower::Bad), kQiroK7MErrorOutOfMemory);
  EXPECT_EQ(open(Thrower::Number), kQiroK7MErrorUnknown);
  EXPECT_EQ(open(Thrower::Null), kQiroK7MErrorOutOfMemory);
}

// Failures that wait
// --------------------------------------------------------------------------------

TEST(FailureOfTheNextSample, IsToldByTheCallAfterItsPredecessor) {
  const Bytes file = SessionFile();
  OpenedReader reader(file);
  const std::vector<uint64_t> expected = TimeStamps(MediaSamples(reader, reader.TrackAt(0)));
  ASSERT_EQ(expected.size(), 6u);
  QiroK7MTrack* track = reader.TrackAt(0);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), &track, 1, &iterator), 0u);
  QiroK7MSample* sample = nullptr;
  {
    HeapFault fault(1);  // The sample behind the one that is handed out.
    EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), 0u);
    EXPECT_TRUE(fault.Hit());
  }
  ASSERT_NE(sample, nullptr);
  EXPECT_EQ(TakeSample(sample).info.timeStamp, expected[0]);
  EXPECT_TRUE(HasMore(iterator));
  EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), kQiroK7MErrorOutOfMemory);
  EXPECT_FALSE(HasMore(iterator)) << "the track ends there";
  EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), 0u);
  EXPECT_EQ(sample, nullptr);
  QiroK7MReleaseSampleIterator(iterator);
}

TEST(FailureOfTheNextSample, EndsItsTrackAloneAndTheOthersGoOn) {
  OpenedReader reader(SessionFile());
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator), 0u);
  QiroK7MSample* sample = nullptr;
  {
    HeapFault fault(1);
    EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), 0u);
  }
  ASSERT_NE(sample, nullptr);
  EXPECT_EQ(TakeSample(sample).info.mediaType, Code("vide"));
  EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), kQiroK7MErrorOutOfMemory);
  const auto rest = Drain(iterator);
  EXPECT_EQ(rest.size(), 5u);
  for (const ReadSample& left : rest) EXPECT_EQ(left.info.mediaType, Code("soun"));
}

TEST(FailureOfTheNextSample, LeavesTheOutputAlone) {
  OpenedReader reader(SessionFile());
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator), 0u);
  QiroK7MSample* sample = nullptr;
  {
    HeapFault fault(1);
    EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), 0u);
  }
  QiroK7MReleaseSample(sample);
  auto* const untouched = reinterpret_cast<QiroK7MSample*>(&reader);
  sample = untouched;
  EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), kQiroK7MErrorOutOfMemory);
  EXPECT_EQ(sample, untouched);
  QiroK7MReleaseSampleIterator(iterator);
}

}  // namespace
}  // namespace k7mtest

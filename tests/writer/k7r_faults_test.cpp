// Every callback and every allocation fails once: codes, states, buffers, leaks.
#include <gtest/gtest.h>

#include "k7r_fault_session.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kOwnCode = 4711;
constexpr QiroK7MError kHarmless = 1283;

const QiroK7MAllocatorCallBacks kPlainMemory{};

/// What sessions continue: what one of them wrote.
const Bytes& FileToContinue() {
  static const Bytes file = [] {
    MemoryStream stream;
    K7RFaultSession session(false);
    session.Run(stream, kPlainMemory);
    EXPECT_EQ(session.FirstFailure(), 0u);
    return stream.Content();
  }();
  return file;
}

/// A session that continues a file or not, and is closed or just destroyed.
struct Kind {
  bool isContinued;
  bool isClosed;
  Bytes content;   // What is on the stream before.
  Bytes unharmed;  // And behind a session without a failure.
};

/// Calls `body(kind)` for sessions of all kinds.
template <class Body>
void ForEachKind(Body body) {
  for (const bool isContinued : {false, true}) {
    for (const bool isClosed : {true, false}) {
      SCOPED_TRACE(std::string(isContinued ? "continued" : "created") +
                   (isClosed ? ", closed" : ", destroyed"));
      Kind kind{isContinued, isClosed, isContinued ? FileToContinue() : Bytes(), {}};
      MemoryStream stream(kind.content);
      K7RFaultSession(isContinued).Run(stream, kPlainMemory, isClosed);
      kind.unharmed = stream.Content();
      body(kind);
    }
  }
}

/// Nothing of what can be read back may be wrong.
void ExpectReadable(const Bytes& file) {
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  for (const ReadSample& sample : MediaSamples(reader)) {
    EXPECT_EQ(sample.dataResult, 0u);
    EXPECT_EQ(sample.data, Cut(Bytes{1, 2, 3, 4}, sample.info.sampleSize));
  }
}

/// The fault that was hit was told by its code, and made the writer bad. Otherwise nothing is lost:
/// the destruction of a writer that was flushed has nobody to tell, and a quiet fault took memory
/// that the library does without.
void ExpectTold(const K7RFaultSession& session, const Kind& kind, QiroK7MError code,
                const MemoryStream& stream, bool wasQuiet = false) {
  if (session.FailureOutside() != 0) {
    EXPECT_EQ(session.FailureOutside(), code);
    session.ExpectNeverBad();
  } else if (session.FirstFailure() != 0) {
    EXPECT_EQ(session.FirstFailure(), code);
    session.ExpectBadBehind();
  } else {
    EXPECT_TRUE(!kind.isClosed || wasQuiet);
    EXPECT_EQ(stream.Content(), kind.unharmed);
  }
}

TEST(K7RFaults, WithoutOneEverySampleIsThere) {
  ForEachKind([](const Kind& kind) {
    MemoryStream stream(kind.content);
    K7RFaultSession session(kind.isContinued);
    session.Run(stream, kPlainMemory, kind.isClosed);
    EXPECT_EQ(session.FirstFailure(), 0u);
    session.ExpectBuffersBackOnce();
    session.ExpectNeverBad();
    ExpectReadable(stream.Content());
  });
}

TEST(K7RFaults, EveryCallOfTheStreamMayFail) {
  ForEachKind([](const Kind& kind) {
    const uint64_t hits = Sweep([&](uint64_t n) {
      MemoryStream stream(kind.content);
      stream.FailNth(Call::kAny, n, kOwnCode);
      K7RFaultSession session(kind.isContinued);
      session.Run(stream, kPlainMemory, kind.isClosed);
      EXPECT_FALSE(stream.IsOpen());
      session.ExpectBuffersBackOnce();
      if (stream.FaultHit()) ExpectTold(session, kind, kOwnCode, stream);
      return stream.FaultHit();
    });
    EXPECT_GT(hits, 100u);
  });
}

TEST(K7RFaults, AHarmlessCodeOfTheStreamLeavesTheWriterGoodAndTheFileReadable) {
  for (const Call call : {Call::kWrite, Call::kSeek}) {
    ForEachKind([call](const Kind& kind) {
      Sweep([&](uint64_t n) {
        MemoryStream stream(kind.content);
        stream.FailNth(call, n, kHarmless);
        K7RFaultSession session(kind.isContinued);
        session.Run(stream, kPlainMemory, kind.isClosed);
        EXPECT_FALSE(stream.IsOpen());
        session.ExpectBuffersBackOnce();
        if (session.Closed() != kHarmless) session.ExpectNeverBad();
        if (session.Opened() == 0 && kind.isClosed && session.Closed() == 0) {
          ExpectReadable(stream.Content());
        }
        return stream.FaultHit();
      });
    });
  }
}

TEST(K7RFaults, EveryWriteMayBeShort) {
  ForEachKind([](const Kind& kind) {
    Sweep([&](uint64_t n) {
      MemoryStream stream(kind.content);
      stream.ShortenNthWrite(n);
      K7RFaultSession session(kind.isContinued);
      session.Run(stream, kPlainMemory, kind.isClosed);
      EXPECT_FALSE(stream.IsOpen());
      session.ExpectBuffersBackOnce();
      if (stream.FaultHit()) ExpectTold(session, kind, kQiroK7MErrorWriteFailed, stream);
      return stream.FaultHit();
    });
  });
}

TEST(K7RFaults, EveryReadMayBeShortWhileAFileIsOpened) {
  const Bytes before = FileToContinue();
  const uint64_t hits = Sweep([&](uint64_t n) {
    MemoryStream stream(before);
    stream.ShortenNthRead(n);
    K7RFaultSession session(true);
    session.Run(stream, kPlainMemory);
    EXPECT_FALSE(stream.IsOpen());
    session.ExpectBuffersBackOnce();
    if (stream.FaultHit()) {
      EXPECT_EQ(session.FirstFailure(), kQiroK7MErrorReadFailed);
      if (session.Opened() != 0) {
        EXPECT_EQ(stream.Content(), before);
      }
    }
    return stream.FaultHit();
  });
  EXPECT_GT(hits, 50u);
}

TEST(K7RFaults, FragmentsThatWereCompleteStayAsTheyWere) {
  const Bytes before = FileToContinue();
  const size_t begin = EndOfMoov(before);
  const Bytes fragments = before.Slice(begin, before.Size() - begin);
  for (const QiroK7MError code : {kOwnCode, kHarmless}) {
    for (const bool isLasting : {false, true}) {
      Sweep([&](uint64_t n) {
        MemoryStream stream(before);
        stream.FailNth(Call::kAny, n, code, isLasting);
        K7RFaultSession session(true);
        session.Run(stream, kPlainMemory);
        EXPECT_EQ(stream.Content(begin, fragments.Size()), fragments);
        return stream.FaultHit();
      });
    }
  }
}

TEST(K7RFaults, EveryRequestOfMemoryMayFail) {
  ForEachKind([](const Kind& kind) {
    const uint64_t hits = Sweep([&](uint64_t n) {
      CountingAllocator memory;
      memory.FailNth(n);
      {
        MemoryStream stream(kind.content);
        K7RFaultSession session(kind.isContinued);
        session.Run(stream, memory.Record(), kind.isClosed);
        EXPECT_FALSE(stream.IsOpen());
        session.ExpectBuffersBackOnce();
        if (memory.FaultHit()) ExpectTold(session, kind, kQiroK7MErrorOutOfMemory, stream);
      }
      EXPECT_EQ(memory.LiveBlocks(), 0u);
      EXPECT_EQ(memory.BadReleases(), 0u);
      return memory.FaultHit();
    });
    EXPECT_GT(hits, 50u);
  });
}

TEST(K7RFaults, EveryAllocationOnTheHeapMayFail) {
  ASSERT_TRUE(HeapIsWatched());
  ForEachKind([](const Kind& kind) {
    const uint64_t hits = Sweep([&](uint64_t n) {
      bool wasHit = false;
      bool wasQuiet = false;
      MemoryStream stream(kind.content);
      K7RFaultSession session(kind.isContinued);
      {
        HeapFault fault(n);
        session.Run(stream, kPlainMemory, kind.isClosed);
        wasHit = fault.Hit();
        wasQuiet = fault.WasQuiet();
      }
      EXPECT_FALSE(stream.IsOpen());
      session.ExpectBuffersBackOnce();
      if (wasHit) ExpectTold(session, kind, kQiroK7MErrorOutOfMemory, stream, wasQuiet);
      return wasHit;
    });
    EXPECT_GT(hits, 50u);
  });
}

TEST(K7RFaults, OnlyTheHarmlessCodesOfTheStreamLeaveTheWriterGood) {
  const auto isHarmless = [](QiroK7MError code) {
    for (const QiroK7MError one : {8u, 10u, 11u, 15u, 20u, 32u, 33u, 1030u, 3072u}) {
      if (code == one) return true;
    }
    return (code >= 1280 && code <= 1290) || (code >= 1536 && code <= 1542) ||
           (code >= 2048 && code <= 2053);
  };
  for (QiroK7MError code = 1; code <= 3100; ++code) {
    K7RSetup setup;
    setup.writer.Stream().FailNth(Call::kWrite, 1, code);
    EXPECT_EQ(setup.writer.TryStartFragment(), code);
    EXPECT_EQ(setup.writer.IsGood(), isHarmless(code)) << code;
  }
}

/// The fragment is written by the next attempt as long as its media is there; a fragment that is
/// lost leaves its place to the next one.
TEST(K7RFaults, AFragmentThatFailedHarmlesslyIsWrittenAgainOrReplaced) {
  uint64_t again = 0;
  uint64_t replaced = 0;
  Sweep([&](uint64_t n) {
    K7RSetup setup;
    OpenedK7RWriter& writer = setup.writer;
    const uint64_t start = writer.StartFragment();
    writer.Add(setup.video, {.time = 0, .data = {1, 2, 3}, .flags = kKey}, true);
    EXPECT_EQ(writer.TryAddAbst({4, 5}), 0u);
    writer.Stream().FailNth(Call::kWrite, n, kHarmless);
    const QiroK7MError result = writer.TryStartFragment();
    if (result == 0) return false;
    EXPECT_EQ(result, kHarmless);
    const uint64_t next = writer.StartFragment();
    writer.Add(setup.video, {.time = 40, .data = {6, 7, 8, 9}, .flags = kKey}, true);
    const Bytes file = writer.Finish();
    if (next == start) {
      ++replaced;
      EXPECT_EQ(CodesBehindMoov(file), (std::vector<std::string>{"afra", "moof", "mdat"}));
      EXPECT_EQ(MediaOf(file, 0), (std::vector<Bytes>{{6, 7, 8, 9}}));
    } else {
      ++again;
      EXPECT_EQ(CodesBehindMoov(file),
                (std::vector<std::string>{"afra", "abst", "moof", "mdat", "afra", "moof", "mdat"}));
      EXPECT_EQ(MediaOf(file, 0), (std::vector<Bytes>{{1, 2, 3}, {6, 7, 8, 9}}));
    }
    return true;
  });
  EXPECT_GT(again, 0u);
  EXPECT_GT(replaced, 0u);
}

/// The durations that wait for a successor are again those before the lost fragment.
TEST(K7RFaults, ALostFragmentLeavesNothingToBePatchedInItsPlace) {
  const Bytes longMedia(std::vector<uint8_t>(300, 0x55));
  uint64_t lost = 0;
  Sweep([&](uint64_t n) {
    OpenedK7RWriter writer;
    QiroK7MTrack* video = writer.AddDescribedTrack();
    QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
    writer.AddDescribedHintTrack({video, audio});
    writer.StartFragment();
    writer.Add(video, {.time = 0, .data = {1}, .flags = kKey});
    writer.Add(audio, {.time = 0, .data = {2}});
    const uint64_t start = writer.StartFragment();
    writer.Add(video, {.time = 40, .data = {3}});
    writer.Add(audio, {.time = 40, .data = {4}});
    writer.Stream().FailNth(Call::kWrite, n, kHarmless);
    if (writer.TryStartFragment() == 0) return false;
    if (writer.StartFragment() != start) return true;  // It was written again.
    ++lost;
    writer.Add(video, {.time = 80, .data = longMedia});
    writer.StartFragment();
    writer.Add(audio, {.time = 90, .data = {9}});
    const Bytes file = writer.Finish();
    EXPECT_EQ(MediaOf(file, 0), (std::vector<Bytes>{{1}, longMedia}));
    EXPECT_EQ(MediaOf(file, 1), (std::vector<Bytes>{{2}, {9}}));
    const OpenedReader reader(file);
    const auto timesOf = [&reader](size_t track) {
      return TimeStamps(MediaSamples(reader, reader.TrackAt(track)));
    };
    EXPECT_EQ(timesOf(0), (std::vector<uint64_t>{0, 80}));
    EXPECT_EQ(timesOf(1), (std::vector<uint64_t>{0, 90}));
    return true;
  });
  EXPECT_GT(lost, 0u);
}

TEST(K7RFaults, AHintTrackThatCouldNotBeWrittenIsNotThereAndCanBeAddedAgain) {
  const auto finish = [](OpenedK7RWriter& writer, QiroK7MTrack* video, bool isHintAdded) {
    if (isHintAdded) {
      QiroK7MTrack* hint = writer.AddDescribedHintTrack({video}, 100);
      EXPECT_EQ(writer.TryAddHintTrack({.mediaType = "hint", .flags = 0}, {}), 1539u);
      writer.StartFragment();
      writer.AddHint(hint, video, {.time = 140, .data = {1, 2}, .flags = kKey}, {0, 2}, true);
    } else {
      EXPECT_EQ(writer.TryStartFragment(), 1540u);
    }
    return Bytes(writer.Finish());
  };
  for (const bool isAddedAgain : {false, true}) {
    OpenedK7RWriter unharmed;
    const Bytes expected = finish(unharmed, unharmed.AddDescribedTrack(), isAddedAgain);
    const uint64_t failures = Sweep([&](uint64_t n) {
      OpenedK7RWriter writer;
      QiroK7MTrack* video = writer.AddDescribedTrack();
      writer.Stream().FailNth(Call::kWrite, n, kHarmless);
      if (writer.TryAddHintTrack({.mediaType = "hint", .flags = 0}, {video}) == 0) return false;
      EXPECT_EQ(finish(writer, video, isAddedAgain), expected);
      return !::testing::Test::HasFailure();
    });
    EXPECT_EQ(failures, 7u);  // Pieces of the movie box.
  }
}

TEST(K7RFaults, ADescriptionThatCouldNotBeWrittenSetsTheTimeOriginAllTheSame) {
  uint64_t failures = 0;
  Sweep([&](uint64_t n) {
    OpenedK7RWriter writer;
    QiroK7MTrack* video = writer.AddDescribedTrack();
    QiroK7MTrack* hint = writer.AddHintTrack({video});
    writer.Stream().FailNth(Call::kWrite, n, kHarmless);
    if (writer.TryAddVorp(hint, VorpExtension(100)) == 0) return false;
    ++failures;
    writer.StartFragment();
    writer.Add(video, {.time = 140, .data = {1}, .flags = kKey});
    EXPECT_EQ(writer.TryAdd(video, {.time = 139}), 1280u);
    EXPECT_EQ(MediaOf(writer.Finish(), 0), (std::vector<Bytes>{{1}}));
    return true;
  });
  EXPECT_GT(failures, 0u);
}

}  // namespace
}  // namespace k7mtest

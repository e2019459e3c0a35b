// Every callback and every allocation fails once: codes, states, buffers, leaks.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "k7r_recording.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kOwnCode = 4711;
constexpr QiroK7MError kHarmless = 1283;

/// A fixed session in some fragments that goes on after failures. Nothing but library calls happens
/// in it: buffers and results have their place.
class Session {
 public:
  /// Continues what is on the stream instead of creating.
  explicit Session(bool isContinued) : isContinued_(isContinued) {
    video_ = NewTrack{.gapCount = 9}.Info();
    hintInfo_ = NewTrack{.mediaType = "hint", .flags = 0}.Info();
    description_.type = Code("avc1");
    description_.mediaType = Code("vide");
  }

  void Run(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory, bool isClosed = true) {
    const QiroK7MIOStreamCallBacks callBacks = stream.ReadingAndWriting();
    const QiroK7MDocInfo info = DocInfoOf(1000);
    uint64_t last = 0;
    opened_ = isContinued_
                  ? QiroK7RDocOpenForAppend(&callBacks, &info, &memory, ~uint64_t{0}, &last, &k7r_)
                  : QiroK7RDocCreateNew(&callBacks, &info, &memory, &k7r_);
    if (opened_ != 0) return;
    QiroK7RWriterGetK7MWriterRef(k7r_, &writer_);
    if (isContinued_) {
      TakeTracks();
    } else {
      AddTracks();
    }
    for (uint64_t fragment = 0; fragment < 3; ++fragment) AddFragment(fragment);
    Note(QiroK7MWriterFlush(writer_));
    if (isClosed) {
      closed_ = QiroK7RCloseWriter(k7r_);
      Note(closed_);
    }
    QiroK7RDestroyWriter(k7r_);
  }

  QiroK7MError Opened() const { return opened_; }
  QiroK7MError Closed() const { return closed_; }
  const std::array<QiroK7MError, 64>& Codes() const { return codes_; }
  size_t CallCount() const { return callCount_; }
  /// The first failure, that of opening included; 0 when there was none.
  QiroK7MError FirstFailure() const {
    if (opened_ != 0) return opened_;
    for (size_t i = 0; i < callCount_; ++i) {
      if (codes_[i] != 0) return codes_[i];
    }
    return 0;
  }
  void ExpectBuffersBackOnce() const {
    for (size_t i = 0; i < bufferCount_; ++i) EXPECT_EQ(releases_[i], 1) << "buffer " << i;
  }
  /// Behind the first failure a bad writer answers 48, a null pointer comes before that, and
  /// closing is always possible.
  void ExpectBadBehind() const {
    size_t i = 0;
    while (i < callCount_ && codes_[i] == 0) ++i;
    for (++i; i + 1 < callCount_; ++i) {
      EXPECT_TRUE(codes_[i] == 48 || codes_[i] == 20) << "call " << i << ": " << codes_[i];
    }
  }
  /// But for a bootstrap box that found no media, because the samples were refused.
  void ExpectNeverBad() const {
    bool mayBeBad = false;
    for (size_t i = 0; i < callCount_; ++i) {
      mayBeBad = mayBeBad || codes_[i] == 1033;
      EXPECT_TRUE(codes_[i] != 48 || mayBeBad) << "call " << i;
    }
  }

 private:
  void Note(QiroK7MError code) { codes_[callCount_++] = code; }
  QiroK7MDataBuffer NewBuffer() {
    int* count = &releases_[bufferCount_++];
    return {sizeof(bytes_), bytes_, count,
            [](void* counter, void*) { ++*static_cast<int*>(counter); }};
  }

  void TakeTracks() {
    QiroK7MTrackIterator* iterator = nullptr;
    Note(QiroK7MWriterGetTracks(writer_, &iterator));
    if (iterator == nullptr) return;
    for (QiroK7MTrack* track = nullptr;
         QiroK7MTrackIteratorGetNextEntry(iterator, &track) == 0 && track != nullptr;) {
      QiroK7MTrackInfo info{};
      QiroK7MTrackGetInfo(track, &info);
      (info.mediaType == Code("hint") ? hint_ : track_) = track;
    }
    QiroK7MReleaseTrackIterator(iterator);
    Choose(track_);
    Choose(hint_);
  }
  void Choose(QiroK7MTrack* track) {
    QiroK7MSampleDescriptorIterator* iterator = nullptr;
    QiroK7MSampleDescriptor* descriptor = nullptr;
    // No function of the writer: its failure is none of the writer's.
    if (QiroK7MTrackGetSampleDescriptors(track, &iterator) != 0) return;
    QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor);
    QiroK7MReleaseSampleDescriptorIterator(iterator);
    Note(QiroK7MWriterSetSampleDescriptor(writer_, track, descriptor));
  }

  void AddTracks() {
    const QiroK7MTrackEntriesInfo entries{16, 1, 9, 32};
    const QiroK7RHintTrackInfo protocol{8, 2};
    const QiroK7MVorpSampleDescInfo vorp{12, 1, 1, 1500, 0};
    QiroK7MSampleDescriptor* descriptor = nullptr;
    Note(QiroK7MWriterAddTrack(writer_, &video_, &entries, 1, "12345678", &track_));
    Note(QiroK7RWriterAddHintTrack(k7r_, &protocol, &hintInfo_, &entries, 1, "12345678", &track_,
                                   track_ == nullptr ? 0 : 1, &hint_));
    QiroK7MDataBuffer first = NewBuffer();
    Note(QiroK7MWriterAddSampleDescriptor(writer_, track_, &description_, &first, &descriptor));
    QiroK7MDataBuffer second = NewBuffer();
    Note(QiroK7MWriterAddVorpSampleDescriptor(writer_, hint_, &vorp, &second, &descriptor));
  }

  void AddFragment(uint64_t number) {
    uint64_t offset = 0;
    Note(QiroK7RWriterStartFragment(k7r_, &offset));
    const uint64_t time = (isContinued_ ? 2000 : 1000) + number * 100;
    AddHint(time, kKey);
    QiroK7MSampleInfo info = InfoAt(time + 20, "vide", 0);
    QiroK7MDataBuffer plain = NewBuffer();
    Note(QiroK7RWriterAddSampleWithAfra(k7r_, track_, &info, &plain, 1));
    if (number == 1) {
      AddHint(time + 30, kGap);
      QiroK7MDataBuffer abst = NewBuffer();
      Note(QiroK7RWriterAddABST(k7r_, &abst, sizeof(bytes_)));
    }
    AddHint(time + 40, 0);
  }
  void AddHint(uint64_t time, uint32_t flags) {
    const QiroK7MSampleInfo info = InfoAt(time, "hint", flags);
    const QiroK7MHintSampleInfo where{12, 0, flags == kGap ? 0 : 2u};
    QiroK7MDataBuffer buffer = NewBuffer();
    Note(QiroK7RWriterAddHintSample(k7r_, hint_, track_, &buffer, &info, &where, 1));
  }
  static QiroK7MSampleInfo InfoAt(uint64_t time, const char* type, uint32_t flags) {
    return {32, flags == kGap ? 0 : 4u, time, 1000, 0, Code(type), flags};
  }

  bool isContinued_;
  QiroK7MTrackInfo video_{};
  QiroK7MTrackInfo hintInfo_{};
  QiroK7MSampleDescInfo description_{};
  QiroK7RWriter* k7r_ = nullptr;
  QiroK7MWriter* writer_ = nullptr;
  QiroK7MTrack* track_ = nullptr;
  QiroK7MTrack* hint_ = nullptr;
  QiroK7MError opened_ = 0;
  QiroK7MError closed_ = 0;
  uint8_t bytes_[4] = {1, 2, 3, 4};
  std::array<QiroK7MError, 64> codes_{};
  size_t callCount_ = 0;
  std::array<int, 64> releases_{};
  size_t bufferCount_ = 0;
};

const QiroK7MAllocatorCallBacks kPlainMemory{};

/// What sessions continue: what one of them wrote.
const Bytes& FileToContinue() {
  static const Bytes file = [] {
    MemoryStream stream;
    Session session(false);
    session.Run(stream, kPlainMemory);
    EXPECT_EQ(session.FirstFailure(), 0u);
    return stream.Content();
  }();
  return file;
}

/// Calls `body(isContinued, isClosed, content)` for sessions of all kinds.
template <class Body>
void ForEachKind(Body body) {
  for (const bool isContinued : {false, true}) {
    for (const bool isClosed : {true, false}) {
      SCOPED_TRACE(std::string(isContinued ? "continued" : "created") +
                   (isClosed ? ", closed" : ", destroyed"));
      body(isContinued, isClosed, isContinued ? FileToContinue() : Bytes());
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

TEST(K7RFaults, WithoutOneEverySampleIsThere) {
  ForEachKind([](bool isContinued, bool isClosed, const Bytes& content) {
    MemoryStream stream(content);
    Session session(isContinued);
    session.Run(stream, kPlainMemory, isClosed);
    EXPECT_EQ(session.FirstFailure(), 0u);
    session.ExpectBuffersBackOnce();
    session.ExpectNeverBad();
    ExpectReadable(stream.Content());
  });
}

TEST(K7RFaults, EveryCallOfTheStreamMayFail) {
  ForEachKind([](bool isContinued, bool isClosed, const Bytes& content) {
    const uint64_t hits = Sweep([&](uint64_t n) {
      MemoryStream stream(content);
      stream.FailNth(Call::kAny, n, kOwnCode);
      Session session(isContinued);
      session.Run(stream, kPlainMemory, isClosed);
      EXPECT_FALSE(stream.IsOpen());
      session.ExpectBuffersBackOnce();
      if (stream.FaultHit() && session.FirstFailure() == kOwnCode) session.ExpectBadBehind();
      if (session.Opened() == 0 && stream.FaultHit()) {
        // Only the flush and the close of a destruction have nobody to tell.
        bool wasTold = session.Closed() == kOwnCode;
        for (const QiroK7MError code : session.Codes()) wasTold = wasTold || code == kOwnCode;
        EXPECT_TRUE(wasTold || !isClosed);
      }
      return stream.FaultHit();
    });
    EXPECT_GT(hits, 100u);
  });
}

TEST(K7RFaults, AHarmlessCodeOfTheStreamLeavesTheWriterGoodAndTheFileReadable) {
  for (const Call call : {Call::kWrite, Call::kSeek}) {
    ForEachKind([call](bool isContinued, bool isClosed, const Bytes& content) {
      Sweep([&](uint64_t n) {
        MemoryStream stream(content);
        stream.FailNth(call, n, kHarmless);
        Session session(isContinued);
        session.Run(stream, kPlainMemory, isClosed);
        EXPECT_FALSE(stream.IsOpen());
        session.ExpectBuffersBackOnce();
        if (session.Closed() != kHarmless) session.ExpectNeverBad();
        if (session.Opened() == 0 && isClosed && session.Closed() == 0) {
          ExpectReadable(stream.Content());
        }
        return stream.FaultHit();
      });
    });
  }
}

TEST(K7RFaults, EveryWriteMayBeShort) {
  ForEachKind([](bool isContinued, bool isClosed, const Bytes& content) {
    Sweep([&](uint64_t n) {
      MemoryStream stream(content);
      stream.ShortenNthWrite(n);
      Session session(isContinued);
      session.Run(stream, kPlainMemory, isClosed);
      EXPECT_FALSE(stream.IsOpen());
      session.ExpectBuffersBackOnce();
      if (stream.FaultHit() && isClosed) {
        EXPECT_EQ(session.FirstFailure(), kQiroK7MErrorWriteFailed);
      }
      if (session.FirstFailure() == kQiroK7MErrorWriteFailed) session.ExpectBadBehind();
      return stream.FaultHit();
    });
  });
}

TEST(K7RFaults, EveryReadMayBeShortWhileAFileIsOpened) {
  const Bytes before = FileToContinue();
  const uint64_t hits = Sweep([&](uint64_t n) {
    MemoryStream stream(before);
    stream.ShortenNthRead(n);
    Session session(true);
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
        Session session(true);
        session.Run(stream, kPlainMemory);
        EXPECT_EQ(stream.Content(begin, fragments.Size()), fragments);
        return stream.FaultHit();
      });
    }
  }
}

TEST(K7RFaults, EveryRequestOfMemoryMayFail) {
  ForEachKind([](bool isContinued, bool isClosed, const Bytes& content) {
    const uint64_t hits = Sweep([&](uint64_t n) {
      CountingAllocator memory;
      memory.FailNth(n);
      {
        MemoryStream stream(content);
        Session session(isContinued);
        session.Run(stream, memory.Record(), isClosed);
        EXPECT_FALSE(stream.IsOpen());
        session.ExpectBuffersBackOnce();
        if (memory.FaultHit() && session.FirstFailure() == 18) session.ExpectBadBehind();
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
  ForEachKind([](bool isContinued, bool isClosed, const Bytes& content) {
    const uint64_t hits = Sweep([&](uint64_t n) {
      bool wasHit = false;
      MemoryStream stream(content);
      Session session(isContinued);
      {
        HeapFault fault(n);
        session.Run(stream, kPlainMemory, isClosed);
        wasHit = fault.Hit();
      }
      EXPECT_FALSE(stream.IsOpen());
      session.ExpectBuffersBackOnce();
      if (wasHit && session.FirstFailure() == 18) session.ExpectBadBehind();
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

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "fragment_expectations.h"
#include "support/box_builder.h"
#include "support/complete_part.h"
#include "support/counted_buffer.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

const QiroK7MAllocatorCallBacks kPlainMemory{};
constexpr QiroK7MError kHarmless = 20;

/// A small session in some fragments with everything in it; gives the first failure. Nothing but
/// library calls allocates in it.
class Session {
 public:
  /// A sample that was added, with the number of its buffer as its first byte.
  struct Added {
    size_t track;
    uint8_t number;
    uint64_t time;
  };

  /// What comes behind a call that failed. A description that failed stays and is never repeated.
  enum class Behind : uint8_t { kClose, kRepeat, kGoOn };

  explicit Session(Behind behind = Behind::kClose) : behind_(behind) {
    infos_[0] = NewTrack{}.Info();
    infos_[1] = NewTrack{.mediaType = "soun"}.Info();
    entries_ = NewTrack{}.Entries();
    description_.type = Code("abcd");
  }

  QiroK7MError Run(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory) {
    const QiroK7MIOStreamCallBacks callBacks = stream.ReadingAndWriting();
    const QiroK7MDocInfo info = FragmentedInfo();
    stream_ = &stream;
    result_ = QiroK7MDocCreateNew(&callBacks, &info, &memory, &writer_);
    if (result_ != 0) {
      EXPECT_EQ(writer_, nullptr);
      return result_;
    }
    wasCreated_ = true;
    Work();
    closed_ = QiroK7MCloseWriter(writer_);
    if (closed_ != 0) NoteLost();
    NoteFailure(closed_);
    QiroK7MDestroyWriter(writer_);
    return result_;
  }

  /// Every buffer handed over was given back.
  void ExpectBuffersBack() const { EXPECT_EQ(taken_, given_); }
  bool WasCreated() const { return wasCreated_; }
  QiroK7MError Closed() const { return closed_; }
  QiroK7MError FirstFailure() const { return result_; }
  /// Of a session that went on: the first one, or that of FailBehindFirst().
  QiroK7MError SecondFailure() const { return secondFailure_; }
  /// How many calls behind the creation got through.
  size_t CallCount() const { return callCount_; }
  /// The changes on the stream behind so many calls.
  size_t ChangesBehind(size_t calls) const { return changes_.at(calls); }
  /// The samples of a track by number and time; without those whose fragment could not be written
  /// when it ended.
  std::vector<std::pair<uint8_t, uint64_t>> SamplesOf(size_t track, bool withLost) const {
    std::vector<std::pair<uint8_t, uint64_t>> samples;
    for (size_t i = 0; i < addedCount_; ++i) {
      const bool isLost = i >= lostBegin_ && i < lostEnd_;
      if (added_[i].track == track && (withLost || !isLost)) {
        samples.emplace_back(added_[i].number, added_[i].time);
      }
    }
    return samples;
  }
  bool MayHaveLostTheFirst() const { return lostBegin_ == 0 && lostEnd_ != 0; }
  /// Lets another fault follow the first one, from now on.
  void FailBehindFirst(Call call, QiroK7MError code) {
    nextCall_ = call;
    nextCode_ = code;
  }

 private:
  enum class Then : uint8_t { kNothing, kEndsFragment };

  /// Unless something has failed. Makes a call that failed again when the session goes on.
  template <class Work>
  void Do(Work work, Then then = Then::kNothing, bool isRepeated = true) {
    if (result_ != 0 && behind_ == Behind::kClose) return;
    if (const QiroK7MError code = work(); code != 0) {
      NoteFailure(code);
      if (then == Then::kEndsFragment) NoteLost();
      if (behind_ == Behind::kClose) return;
      if (isRepeated && behind_ == Behind::kRepeat) NoteFailure(work());
    }
    if (then == Then::kEndsFragment) openBegin_ = addedCount_;
    changes_[++callCount_] = stream_->Journal().size();
  }
  void NoteFailure(QiroK7MError code) {
    if (code == 0) return;
    if (result_ == 0) {
      result_ = code;
      if (nextCode_ != 0) stream_->FailNth(nextCall_, 1, nextCode_);
    } else if (secondFailure_ == 0 || code == nextCode_) {
      secondFailure_ = code;
    }
  }
  void NoteLost() {
    lostBegin_ = openBegin_;
    lostEnd_ = addedCount_;
  }

  QiroK7MDataBuffer Buffer() {
    uint8_t* bytes = bytes_[given_++];
    bytes[0] = static_cast<uint8_t>(given_);
    return {3, bytes, this, [](void* self, void*) { ++static_cast<Session*>(self)->taken_; }};
  }
  void AddTrack(size_t track) {
    Do([&] {
      return QiroK7MWriterAddTrack(writer_, &infos_[track], &entries_, 1, "12345678",
                                   &tracks_[track]);
    });
  }
  void Add(size_t track, uint64_t time, uint32_t flags) {
    Do([&] {
      QiroK7MSampleInfo info{};
      info.sampleSize = flags == kGap ? 0 : 3;
      info.timeStamp = time;
      info.timeScale = 1000;
      info.mediaType = infos_[track].mediaType;
      info.flags = flags;
      QiroK7MDataBuffer buffer = Buffer();
      const auto number = static_cast<uint8_t>(given_);
      const QiroK7MError code = QiroK7MWriterAddSample(writer_, tracks_[track], &info, &buffer);
      if (code == 0 && flags != kGap) added_[addedCount_++] = {track, number, time};
      return code;
    });
  }
  void Describe(size_t track, Then then = Then::kNothing) {
    const auto describe = [&] {
      description_.mediaType = infos_[track].mediaType;
      QiroK7MSampleDescriptor* descriptor = nullptr;
      QiroK7MDataBuffer buffer = Buffer();
      return QiroK7MWriterAddSampleDescriptor(writer_, tracks_[track], &description_, &buffer,
                                              &descriptor);
    };
    Do(describe, then, false);
  }

  void Work() {
    AddTrack(0);
    AddTrack(1);
    Describe(0);
    Describe(1);
    Do([&] {
      QiroK7MDataBuffer buffer = Buffer();
      return QiroK7MWriterSetUlb(writer_, &buffer, 3);
    });
    Add(0, 0, kKey);
    Add(1, 10, 0);
    Add(0, 10, 0);
    Do([&] { return QiroK7MWriterFlush(writer_); }, Then::kEndsFragment);
    Add(0, 20, kGap);
    Add(0, 30, kKey);
    Describe(0, Then::kEndsFragment);
    Do(
        [&] {
          QiroK7MDataBuffer buffer = Buffer();
          return QiroK7MWriterAddFullBox(writer_, Code("free"), 0, 0, &buffer, 3);
        },
        Then::kEndsFragment);
    Add(0, 40, kKey);
  }

  Behind behind_;
  QiroK7MTrackInfo infos_[2] = {};
  QiroK7MTrackEntriesInfo entries_{};
  QiroK7MSampleDescInfo description_{};
  MemoryStream* stream_ = nullptr;
  QiroK7MWriter* writer_ = nullptr;
  QiroK7MTrack* tracks_[2] = {};
  bool wasCreated_ = false;
  QiroK7MError result_ = 0;
  QiroK7MError secondFailure_ = 0;
  QiroK7MError closed_ = 0;
  Call nextCall_ = Call::kAny;
  QiroK7MError nextCode_ = 0;
  uint8_t bytes_[32][3] = {};
  int given_ = 0;
  int taken_ = 0;
  std::array<size_t, 32> changes_{};
  size_t callCount_ = 0;
  std::array<Added, 32> added_{};
  size_t addedCount_ = 0;
  size_t openBegin_ = 0;  // The first sample of the open fragment.
  size_t lostBegin_ = 0;
  size_t lostEnd_ = 0;
};

/// What is complete behind each call of a session without a failure.
class Steps {
 public:
  Steps() {
    MemoryStream stream;
    stream.StartJournal();
    Session session;
    EXPECT_EQ(session.Run(stream, kPlainMemory), 0u);
    MemoryStream growing;
    for (size_t call = 0, change = 0; call <= session.CallCount(); ++call) {
      for (; call != 0 && change < session.ChangesBehind(call); ++change) {
        const StreamChange& made = stream.Journal()[change];
        EXPECT_FALSE(made.isTruncation);
        growing.Put(made.offset, made.bytes);
      }
      const Bytes file = growing.Content();
      complete_.push_back(Cut(file, EndOfBoxes(file)));
      parts_.emplace_back(complete_.back());
    }
  }

  /// Nothing in that of the session is lost when the call behind failed.
  void ExpectKept(const Session& session, const MemoryStream& stream) const {
    const Bytes& complete = complete_[session.CallCount()];
    if (!session.WasCreated() || complete.Empty()) return;
    const Bytes file = stream.Content();
    ASSERT_GE(file.Size(), complete.Size());
    for (size_t i = EndOfMoov(complete); i < complete.Size(); ++i) {
      // How long a track's last sample in a fragment lasts is told by the next one.
      EXPECT_TRUE(file[i] == complete[i] || file[i] == complete_.back()[i]) << "byte " << i;
    }
    parts_[session.CallCount()].ExpectReadFrom(file);
  }

 private:
  std::vector<Bytes> complete_;
  std::vector<CompletePart> parts_;
};

TEST(FragmentFaults, EveryCallOfTheStreamMayFail) {
  MemoryStream unharmed;
  Session().Run(unharmed, kPlainMemory);
  const Steps steps;
  for (const Call call : {Call::kAcquire, Call::kRelease, Call::kOpen, Call::kClose, Call::kRead,
                          Call::kSeek, Call::kTell, Call::kWrite, Call::kTruncate}) {
    if (unharmed.Count(call) == 0) continue;
    SCOPED_TRACE(static_cast<int>(call));
    const uint64_t hits = Sweep([&](uint64_t n) {
      MemoryStream stream;
      stream.FailNth(call, n, 4711);
      Session session;
      const QiroK7MError result = session.Run(stream, kPlainMemory);
      EXPECT_EQ(result, stream.FaultHit() ? 4711u : 0u);
      session.ExpectBuffersBack();
      EXPECT_FALSE(stream.IsOpen());
      if (call != Call::kOpen) {  // A stream that could not be opened is closed all the same.
        EXPECT_STREQ(stream.Violation(), nullptr);
      }
      if (stream.FaultHit()) steps.ExpectKept(session, stream);
      return stream.FaultHit();
    });
    EXPECT_EQ(hits, unharmed.Count(call));
  }
}

/// The samples of a track as they are presented, up to a failure.
std::vector<std::pair<uint8_t, uint64_t>> Presented(const OpenedReader& reader, size_t track) {
  QiroK7MSampleIterator* samples = nullptr;
  EXPECT_EQ(QiroK7MReaderGetAllSamples(reader.Handle(), &samples), 0u);
  QiroK7MError end = 0;
  std::vector<std::pair<uint8_t, uint64_t>> found;
  for (const ReadSample& sample : Drain(samples, true, &end)) {
    if (sample.track == reader.TrackAt(track) && !sample.data.Empty()) {
      found.emplace_back(sample.data[0], sample.info.timeStamp);
    }
  }
  EXPECT_EQ(end, 0u);
  return found;
}

/// A fragment that could not be written when it ended may be lost, and nothing else.
void ExpectHolds(const Session& session, const Bytes& file) {
  const OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  ASSERT_EQ(reader.Tracks().size(), 2u);
  for (size_t track = 0; track < 2; ++track) {
    auto found = Presented(reader, track);
    auto rest = session.SamplesOf(track, false);
    if (session.MayHaveLostTheFirst() && found.size() == rest.size()) {
      // Nothing tells then how long it lasted: all times are counted from its end.
      for (size_t i = 0; i < rest.size(); ++i) rest[i].second = found[i].second;
    }
    EXPECT_TRUE(found == session.SamplesOf(track, true) || found == rest)
        << "track " << track << ": " << ::testing::PrintToString(found) << " instead of "
        << ::testing::PrintToString(session.SamplesOf(track, true)) << " or "
        << ::testing::PrintToString(rest);
  }
  if (session.Closed() != 0) return;
  const std::vector<std::string> codes = CodesIn(file + Box("last"));
  EXPECT_EQ(codes.back(), "last") << "bytes that are no box";
  for (const char* code : {"uuid", "free", "mfra"}) {
    EXPECT_EQ(std::count(codes.begin(), codes.end(), code), 1) << code;
  }
}

TEST(FragmentFaults, AHarmlessCodeOfTheStreamLosesNothingButWhatFailed) {
  for (const Call call : {Call::kWrite, Call::kSeek}) {
    const uint64_t hits = Sweep([&](uint64_t n) {
      MemoryStream stream;
      stream.FailNth(call, n, kHarmless);
      Session session(Session::Behind::kRepeat);
      const QiroK7MError result = session.Run(stream, kPlainMemory);
      EXPECT_EQ(result, stream.FaultHit() ? kHarmless : 0u);
      EXPECT_EQ(session.SecondFailure(), 0u) << "of a good writer";
      session.ExpectBuffersBack();
      EXPECT_FALSE(stream.IsOpen());
      if (session.WasCreated()) ExpectHolds(session, stream.Content());
      return stream.FaultHit();
    });
    EXPECT_GT(hits, 100u);
  }
}

/// Behind a failure calls are made that are not made otherwise: the stream is asked for its length
/// and truncated.
TEST(FragmentFaults, EveryKindOfCallBehindAHarmlessFailureMayFailToo) {
  for (const Call call : {Call::kWrite, Call::kSeek, Call::kTell, Call::kTruncate}) {
    SCOPED_TRACE(static_cast<int>(call));
    uint64_t failures = 0;
    Sweep([&](uint64_t n) {
      MemoryStream stream;
      stream.FailNth(Call::kWrite, n, kHarmless);
      Session session(Session::Behind::kGoOn);
      session.FailBehindFirst(call, 4711);
      const bool wasHit = session.Run(stream, kPlainMemory) != 0;
      session.ExpectBuffersBack();
      EXPECT_FALSE(stream.IsOpen());
      if (wasHit && session.WasCreated()) {
        EXPECT_EQ(session.SecondFailure() == 4711, stream.FaultHit());
        failures += stream.FaultHit() ? 1 : 0;
      }
      return wasHit;
    });
    EXPECT_GT(failures, 0u);
  }
}

TEST(FragmentFaults, EveryWriteMayBeShort) {
  const Steps steps;
  const uint64_t hits = Sweep([&](uint64_t n) {
    MemoryStream stream;
    stream.ShortenNthWrite(n);
    Session session;
    const QiroK7MError result = session.Run(stream, kPlainMemory);
    EXPECT_EQ(result, stream.FaultHit() ? QiroK7MError{kQiroK7MErrorWriteFailed} : 0u);
    session.ExpectBuffersBack();
    EXPECT_FALSE(stream.IsOpen());
    if (stream.FaultHit()) steps.ExpectKept(session, stream);
    return stream.FaultHit();
  });
  EXPECT_GT(hits, 100u);
}

TEST(FragmentFaults, EveryRequestOfMemoryMayFail) {
  const Steps steps;
  const uint64_t hits = SweepAllocator([&](const QiroK7MAllocatorCallBacks& memory) {
    MemoryStream stream;
    Session session;
    const QiroK7MError result = session.Run(stream, memory);
    session.ExpectBuffersBack();
    EXPECT_FALSE(stream.IsOpen());
    if (result != 0) steps.ExpectKept(session, stream);
    return result;
  });
  EXPECT_GT(hits, 50u);
}

TEST(FragmentFaults, EveryAllocationOnTheHeapMayFail) {
  ASSERT_TRUE(HeapIsWatched());
  const Steps steps;
  const uint64_t hits = Sweep([&](uint64_t n) {
    MemoryStream stream;
    Session session;
    bool wasHit = false;
    {
      HeapFault fault(n);
      session.Run(stream, kPlainMemory);
      wasHit = fault.Hit();
    }
    EXPECT_EQ(session.FirstFailure(), wasHit ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone);
    session.ExpectBuffersBack();
    EXPECT_FALSE(stream.IsOpen());
    if (wasHit) steps.ExpectKept(session, stream);
    return wasHit;
  });
  EXPECT_GT(hits, 50u);
}

}  // namespace
}  // namespace k7mtest

#include <gtest/gtest.h>

#include "fragment_expectations.h"
#include "support/counted_buffer.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

/// A small session in two fragments with everything in it; gives the first failure. Nothing but
/// library calls allocates in it.
class Session {
 public:
  Session() {
    video_ = NewTrack{}.Info();
    audio_ = NewTrack{.mediaType = "soun"}.Info();
    entries_ = NewTrack{}.Entries();
    description_.type = Code("abcd");
  }

  QiroK7MError Run(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory) {
    const QiroK7MIOStreamCallBacks callBacks = stream.ReadingAndWriting();
    const QiroK7MDocInfo info = FragmentedInfo();
    QiroK7MWriter* writer = nullptr;
    QiroK7MError result = QiroK7MDocCreateNew(&callBacks, &info, &memory, &writer);
    if (result != 0) {
      EXPECT_EQ(writer, nullptr);
      return result;
    }
    result = Work(writer);
    const QiroK7MError closing = QiroK7MCloseWriter(writer);
    QiroK7MDestroyWriter(writer);
    return result != 0 ? result : closing;
  }
  /// Every buffer handed over was given back.
  void ExpectBuffersBack() const { EXPECT_EQ(taken_, given_); }

 private:
  QiroK7MError Add(QiroK7MWriter* writer, QiroK7MTrack* track, const char* type, uint64_t time,
                   uint32_t flags) {
    QiroK7MSampleInfo info{};
    info.sampleSize = flags == kGap ? 0 : 3;
    info.timeStamp = time;
    info.timeScale = 1000;
    info.mediaType = Code(type);
    info.flags = flags;
    QiroK7MDataBuffer buffer = Buffer();
    return QiroK7MWriterAddSample(writer, track, &info, &buffer);
  }
  QiroK7MDataBuffer Buffer() {
    ++given_;
    return {3, bytes_, this, [](void* self, void*) { ++static_cast<Session*>(self)->taken_; }};
  }

  QiroK7MError Describe(QiroK7MWriter* writer, QiroK7MTrack* track, const char* type) {
    description_.mediaType = Code(type);
    QiroK7MSampleDescriptor* descriptor = nullptr;
    QiroK7MDataBuffer buffer = Buffer();
    return QiroK7MWriterAddSampleDescriptor(writer, track, &description_, &buffer, &descriptor);
  }

  QiroK7MError Work(QiroK7MWriter* writer) {
    QiroK7MTrack* video = nullptr;
    QiroK7MTrack* audio = nullptr;
    QiroK7MError result = QiroK7MWriterAddTrack(writer, &video_, &entries_, 1, "12345678", &video);
    const auto then = [&result](auto&& work) {
      if (result == 0) result = work();
    };
    then([&] { return QiroK7MWriterAddTrack(writer, &audio_, &entries_, 1, "12345678", &audio); });
    then([&] { return Describe(writer, video, "vide"); });
    then([&] { return Describe(writer, audio, "soun"); });
    then([&] {
      QiroK7MDataBuffer buffer = Buffer();
      return QiroK7MWriterSetUlb(writer, &buffer, 3);
    });
    then([&] { return Add(writer, video, "vide", 0, kKey); });
    then([&] { return Add(writer, audio, "soun", 10, 0); });
    then([&] { return Add(writer, video, "vide", 10, 0); });
    then([&] { return QiroK7MWriterFlush(writer); });
    then([&] { return Add(writer, video, "vide", 20, kGap); });
    then([&] { return Add(writer, video, "vide", 30, kKey); });
    then([&] { return Describe(writer, video, "vide"); });
    then([&] {
      QiroK7MDataBuffer buffer = Buffer();
      return QiroK7MWriterAddFullBox(writer, Code("free"), 0, 0, &buffer, 3);
    });
    then([&] { return Add(writer, video, "vide", 40, kKey); });
    return result;
  }

  QiroK7MTrackInfo video_{};
  QiroK7MTrackInfo audio_{};
  QiroK7MTrackEntriesInfo entries_{};
  QiroK7MSampleDescInfo description_{};
  uint8_t bytes_[3] = {1, 2, 3};
  int given_ = 0;
  int taken_ = 0;
};

const QiroK7MAllocatorCallBacks kPlainMemory{};

TEST(FragmentFaults, EveryCallOfTheStreamMayFail) {
  for (const Call call : {Call::kWrite, Call::kSeek, Call::kClose}) {
    const uint64_t hits = SweepStream({}, call, 4711, [](MemoryStream& stream) {
      Session session;
      const QiroK7MError result = session.Run(stream, kPlainMemory);
      session.ExpectBuffersBack();
      EXPECT_FALSE(stream.IsOpen());
      return result;
    });
    EXPECT_GE(hits, call == Call::kWrite ? 100u : 1u);
  }
}

TEST(FragmentFaults, AHarmlessCodeOfTheStreamLosesNothingButWhatFailed) {
  for (const Call call : {Call::kWrite, Call::kSeek}) {
    SweepStream({}, call, 20, [](MemoryStream& stream) {
      Session session;
      const QiroK7MError result = session.Run(stream, kPlainMemory);
      session.ExpectBuffersBack();
      EXPECT_FALSE(stream.IsOpen());
      return result;
    });
  }
}

TEST(FragmentFaults, EveryWriteMayBeShort) {
  const uint64_t hits = Sweep([](uint64_t n) {
    MemoryStream stream;
    stream.ShortenNthWrite(n);
    Session session;
    const QiroK7MError result = session.Run(stream, kPlainMemory);
    EXPECT_EQ(result, stream.FaultHit() ? QiroK7MError{kQiroK7MErrorWriteFailed} : 0u);
    session.ExpectBuffersBack();
    EXPECT_FALSE(stream.IsOpen());
    return stream.FaultHit();
  });
  EXPECT_GT(hits, 100u);
}

TEST(FragmentFaults, EveryRequestOfMemoryMayFail) {
  const uint64_t hits = SweepAllocator([](const QiroK7MAllocatorCallBacks& memory) {
    MemoryStream stream;
    Session session;
    const QiroK7MError result = session.Run(stream, memory);
    session.ExpectBuffersBack();
    EXPECT_FALSE(stream.IsOpen());
    return result;
  });
  EXPECT_GT(hits, 50u);
}

TEST(FragmentFaults, EveryAllocationOnTheHeapMayFail) {
  const uint64_t hits = SweepHeap([] {
    MemoryStream stream;
    Session session;
    const QiroK7MError result = session.Run(stream, kPlainMemory);
    session.ExpectBuffersBack();
    return result;
  });
  EXPECT_GT(hits, 50u);
}

}  // namespace
}  // namespace k7mtest

#include <gtest/gtest.h>

#include <functional>

#include "api/writer_frame.h"
#include "support/counted_buffer.h"
#include "support/opened_writer.h"

namespace k7mtest {
namespace {

namespace impl = qiro::k7m::impl;

bool LeavesGood(uint32_t code) {
  return code == 0 || code == 8 || code == 10 || code == 11 || code == 15 || code == 20 ||
         code == 32 || code == 33 || code == 1030 || (code >= 1280 && code <= 1290) ||
         (code >= 1536 && code <= 1542) || (code >= 2048 && code <= 2053) || code == 3072;
}

TEST(State, ExactlyTheListedCodesLeaveAWriterGood) {
  for (uint32_t code = 0; code <= 4000; ++code) {
    OpenedWriter writer;
    impl::Impl(writer.Handle()).SetWriterStateBad(code);
    EXPECT_EQ(writer.IsGood(), LeavesGood(code)) << code;
  }
  for (const uint32_t code : {0xFFFFFFFFu, 0x80000000u, 0x10000u + 20}) {
    OpenedWriter writer;
    impl::Impl(writer.Handle()).SetWriterStateBad(code);
    EXPECT_FALSE(writer.IsGood()) << code;
  }
}

TEST(State, AHarmlessCodeDoesNotMakeABadWriterGood) {
  OpenedWriter writer;
  impl::Impl(writer.Handle()).SetWriterStateBad(18);
  for (uint32_t code = 0; code <= 4000; ++code) impl::Impl(writer.Handle()).SetWriterStateBad(code);
  EXPECT_FALSE(writer.IsGood());
}

TEST(State, NoCodeBringsAClosedWriterBackOrSpoilsIt) {
  OpenedWriter writer;
  writer.Finish();
  for (uint32_t code = 0; code <= 4000; ++code) {
    impl::Impl(writer.Handle()).SetWriterStateBad(code);
    ASSERT_FALSE(writer.IsGood());
  }
  EXPECT_EQ(QiroK7MCloseWriter(writer.Handle()), 0u);
}

TEST(State, ACodeOfTheStreamCountsLikeOneOfTheLibrary) {
  for (const uint32_t code : {4711u, 1u, 47u, 1283u, 20u}) {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddDescribedTrack();
    writer.Stream().FailNth(Call::kWrite, 1, code);
    EXPECT_EQ(writer.TryAdd(track, {}), code);
    EXPECT_EQ(writer.IsGood(), LeavesGood(code)) << code;
  }
}

TEST(State, AShortWriteIs47AndMakesTheWriterBad) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Stream().ShortenNthWrite(1);
  EXPECT_EQ(writer.TryAdd(track, {}), 47u);
  EXPECT_FALSE(writer.IsGood());
}

TEST(State, AFailedMemoryRequestIs18AndMakesTheWriterBad) {
  OpenedWriter writer;
  writer.Memory().FailNth(1);
  EXPECT_EQ(writer.TryAddTrack({}), 18u);
  EXPECT_FALSE(writer.IsGood());
}

/// Every call that needs a good writer.
struct Calls {
  QiroK7MWriter* writer;
  QiroK7MTrack* track;
  QiroK7MSampleDescriptor* descriptor;

  std::vector<std::pair<const char*, std::function<QiroK7MError(QiroK7MDataBuffer*)>>> All() {
    using Buffer = QiroK7MDataBuffer*;
    static const QiroK7MVideoSampleDescInfo video{};
    static const QiroK7MAudioSampleDescInfo audio{};
    static const QiroK7MVorpSampleDescInfo vorp{};
    static const QiroK7MSampleDescInfo generic{16, 0, Code("avc1"), Code("vide")};
    static const QiroK7MTrackInfo trackInfo = NewTrack().Info();
    static const QiroK7MTrackEntriesInfo entries = NewTrack().Entries();
    static QiroK7MSampleDescriptor* newDescriptor = nullptr;
    static QiroK7MTrack* newTrack = nullptr;
    static QiroK7MTrackIterator* iterator = nullptr;
    static QiroK7MDocInfo docInfo{};
    return {
        {"add track",
         [this](Buffer) {
           return QiroK7MWriterAddTrack(writer, &trackInfo, &entries, 1, "12345678", &newTrack);
         }},
        {"generic",
         [this](Buffer b) {
           return QiroK7MWriterAddSampleDescriptor(writer, track, &generic, b, &newDescriptor);
         }},
        {"video",
         [this](Buffer b) {
           return QiroK7MWriterAddVideoSampleDescriptor(writer, track, &video, b, &newDescriptor);
         }},
        {"audio",
         [this](Buffer b) {
           return QiroK7MWriterAddAudioSampleDescriptor(writer, track, &audio, b, &newDescriptor);
         }},
        {"vorp",
         [this](Buffer b) {
           return QiroK7MWriterAddVorpSampleDescriptor(writer, track, &vorp, b, &newDescriptor);
         }},
        {"video with type",
         [this](Buffer b) {
           return QiroK7MWriterAddVideoSampleDescriptorWithType(writer, track, 1, &video, b,
                                                                &newDescriptor);
         }},
        {"audio with type",
         [this](Buffer b) {
           return QiroK7MWriterAddAudioSampleDescriptorWithType(writer, track, 1, &audio, b,
                                                                &newDescriptor);
         }},
        {"set description",
         [this](Buffer) { return QiroK7MWriterSetSampleDescriptor(writer, track, descriptor); }},
        {"metadata", [this](Buffer b) { return QiroK7MWriterSetUlb(writer, b, 1); }},
        {"extra box", [this](Buffer b) { return QiroK7MWriterAddFullBox(writer, 1, 0, 0, b, 1); }},
        {"get info", [this](Buffer) { return QiroK7MWriterGetDocInfo(writer, &docInfo); }},
        {"get tracks", [this](Buffer) { return QiroK7MWriterGetTracks(writer, &iterator); }},
        {"add sample",
         [this](Buffer b) {
           const QiroK7MSampleInfo info = NewSample{}.Info(track);
           return QiroK7MWriterAddSample(writer, track, &info, b);
         }},
        {"flush", [this](Buffer) { return QiroK7MWriterFlush(writer); }},
    };
  }
};

/// `spoil` ends the writer's good state; then every call but close and destroy answers 48, gives
/// its buffer back and touches neither stream nor memory.
template <class Spoil>
void ExpectAllCallsRefused(Spoil spoil) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack();
  Calls calls{writer.Handle(), track, writer.Describe(track)};
  spoil(writer);
  writer.Stream().ClearLog();
  const uint64_t allocations = writer.Memory().Allocations();
  for (const auto& [name, call] : calls.All()) {
    const bool takesBuffer = std::string(name) != "add track" &&
                             std::string(name) != "set description" &&
                             std::string(name).find("get") != 0 && std::string(name) != "flush";
    CountedBuffer buffer(Bytes{1, 2, 3});
    EXPECT_EQ(call(buffer.Record()), 48u) << name;
    EXPECT_EQ(buffer.Releases(), takesBuffer ? 1 : 0) << name;
  }
  EXPECT_EQ(writer.Stream().Count(Call::kAny), 0u);
  EXPECT_EQ(writer.Memory().Allocations(), allocations);
}

TEST(State, ABadWriterCanOnlyBeClosedOrDestroyed) {
  ExpectAllCallsRefused([](OpenedWriter& writer) {
    writer.Memory().FailNth(1);
    EXPECT_EQ(writer.TryAddTrack({}), 18u);
  });
}

TEST(State, AClosedWriterCanOnlyBeDestroyed) {
  ExpectAllCallsRefused([](OpenedWriter& writer) { writer.Finish(); });
}

TEST(State, ANullWriterIs20AndTheBufferIsGivenBack) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack();
  Calls calls{nullptr, track, writer.Describe(track)};
  for (const auto& [name, call] : calls.All()) {
    CountedBuffer buffer(Bytes{1, 2, 3});
    EXPECT_EQ(call(buffer.Record()), 20u) << name;
    EXPECT_LE(buffer.Releases(), 1) << name;
  }
  EXPECT_TRUE(writer.IsGood());
}

TEST(State, ABufferWithoutReleaseFunctionIsFine) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  uint8_t bytes[3] = {1, 2, 3};
  QiroK7MDataBuffer buffer{3, bytes, nullptr, nullptr};
  const QiroK7MSampleInfo info = NewSample{}.Info(track);
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), track, &info, &buffer), 0u);
}

}  // namespace
}  // namespace k7mtest

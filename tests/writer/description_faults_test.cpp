// The functions that add a description of one kind: every callback and every allocation fails once.
#include <gtest/gtest.h>

#include <functional>

#include "description_records.h"
#include "support/opened_k7r_writer.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kOwnCode = 4711;
constexpr QiroK7MError kHarmless = 1283;

using Adder = std::function<QiroK7MError(QiroK7MWriter*, QiroK7MTrack*, QiroK7MDataBuffer*,
                                         QiroK7MSampleDescriptor**)>;

struct Kind {
  const char* name;
  const char* mediaType;
  Adder add;
};

std::vector<Kind> Kinds() {
  static const auto video = VideoRecord();
  static const auto audio = AudioRecord();
  static const auto vorp = VorpRecord();
  return {{"Video", "vide",
           [](auto* writer, auto* track, auto* header, auto** out) {
             return QiroK7MWriterAddVideoSampleDescriptor(writer, track, &video, header, out);
           }},
          {"Audio", "soun",
           [](auto* writer, auto* track, auto* header, auto** out) {
             return QiroK7MWriterAddAudioSampleDescriptor(writer, track, &audio, header, out);
           }},
          {"VideoWithType", "vide",
           [](auto* writer, auto* track, auto* header, auto** out) {
             return QiroK7MWriterAddVideoSampleDescriptorWithType(writer, track, Code("VP6F"),
                                                                  &video, header, out);
           }},
          {"AudioWithType", "soun",
           [](auto* writer, auto* track, auto* header, auto** out) {
             return QiroK7MWriterAddAudioSampleDescriptorWithType(writer, track, Code(".mp3"),
                                                                  &audio, header, out);
           }},
          {"Vorp", "hint", [](auto* writer, auto* track, auto* header, auto** out) {
             return QiroK7MWriterAddVorpSampleDescriptor(writer, track, &vorp, header, out);
           }}};
}

class DescriptionFaults : public ::testing::TestWithParam<Kind> {
 protected:
  /// Adds one description while a fault is armed by `arm(writer)`; what that gives back tells
  /// whether it was hit. The writer and all it holds are judged when they go.
  template <class Arm>
  static bool AddOne(QiroK7MError code, bool staysGood, Arm arm) {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddTrack({.mediaType = GetParam().mediaType});
    CountedBuffer header(Pattern(12));
    const Adder add = GetParam().add;
    QiroK7MSampleDescriptor* out = nullptr;
    QiroK7MError result = 0;
    const bool wasHit =
        arm(writer, [&] { result = add(writer.Handle(), track, header.Record(), &out); });
    EXPECT_EQ(result, wasHit ? code : 0u);
    EXPECT_EQ(out == nullptr, wasHit);
    EXPECT_EQ(header.Releases(), 1);
    EXPECT_EQ(writer.IsGood(), !wasHit || staysGood);
    return wasHit;
  }
};

TEST_P(DescriptionFaults, EveryCallOfTheStreamFails) {
  for (const QiroK7MError code : {kOwnCode, kHarmless}) {
    const uint64_t hits = Sweep([code](uint64_t n) {
      return AddOne(code, code == kHarmless, [&](OpenedWriter& writer, auto work) {
        writer.Stream().FailNth(Call::kAny, n, code);
        work();
        return writer.Stream().FaultHit();
      });
    });
    EXPECT_GT(hits, 5u);
  }
}

TEST_P(DescriptionFaults, EveryWriteIsShort) {
  Sweep([](uint64_t n) {
    return AddOne(kQiroK7MErrorWriteFailed, false, [&](OpenedWriter& writer, auto work) {
      writer.Stream().ShortenNthWrite(n);
      work();
      return writer.Stream().FaultHit();
    });
  });
}

TEST_P(DescriptionFaults, EveryRequestToTheClientsAllocatorFails) {
  Sweep([](uint64_t n) {
    return AddOne(kQiroK7MErrorOutOfMemory, false, [&](OpenedWriter& writer, auto work) {
      writer.Memory().FailNth(n);
      work();
      return writer.Memory().FaultHit();
    });
  });
}

TEST_P(DescriptionFaults, EveryRequestToTheGlobalOperatorsFails) {
  ASSERT_TRUE(HeapIsWatched());
  Sweep([](uint64_t n) {
    return AddOne(kQiroK7MErrorOutOfMemory, false, [&](OpenedWriter& writer, auto work) {
      writer.Stream().StopLogging();
      HeapFault fault(n);
      work();
      return fault.Hit();
    });
  });
}

INSTANTIATE_TEST_SUITE_P(Of, DescriptionFaults, ::testing::ValuesIn(Kinds()),
                         [](const auto& param) { return param.param.name; });

TEST(QuietWriterFunctions, UseNeitherMemoryNorTheStream) {
  OpenedK7RWriter writer;
  writer.Stream().ClearLog();
  writer.Memory().FailNth(1);
  QiroK7MDocInfo info{};
  QiroK7MWriter* same = nullptr;
  {
    HeapFault fault(1);
    EXPECT_EQ(QiroK7MWriterGetDocInfo(writer.Handle(), &info), 0u);
    EXPECT_EQ(QiroK7RWriterGetK7MWriterRef(writer.K7R(), &same), 0u);
    EXPECT_FALSE(fault.Hit());
  }
  EXPECT_EQ(info.timeScale, 1000u);
  EXPECT_EQ(same, writer.Handle());
  EXPECT_FALSE(writer.Memory().FaultHit());
  EXPECT_EQ(writer.Stream().Count(Call::kAny), 0u);
}

}  // namespace
}  // namespace k7mtest

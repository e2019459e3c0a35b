#include <gtest/gtest.h>

#include "expected_track.h"

namespace k7mtest {
namespace {

TEST(Tracks, AreWrittenWholeForEveryMediaType) {
  for (const char* mediaType : {"vide", "soun", "hint", "text", "meta"}) {
    SCOPED_TRACE(mediaType);
    for (const uint32_t trackFlags : {0u, 1u}) {
      OpenedWriter writer(600);
      const NewTrack track{.mediaType = mediaType, .trackFlags = trackFlags, .volume = 0.5F};
      writer.AddTrack(track);
      const Bytes trak = ExpectedTrak(track, 1, track.handlerName, kEnglish);
      EXPECT_EQ(writer.File(), kFtyp + Box("moov", ExpectedMvhd(600, 2), trak));
    }
  }
}

TEST(Tracks, AreNumberedFromOneAndTheNextIdIsOneMore) {
  OpenedWriter writer;
  for (uint32_t id = 1; id <= 5; ++id) {
    writer.AddTrack();
    const Bytes file = writer.File();
    EXPECT_EQ(NumberIn(file, "moov/trak#" + std::to_string(id) + "/tkhd", 28), id);
    EXPECT_EQ(NumberIn(file, "moov/mvhd", 116), id + 1);
  }
}

TEST(Tracks, DurationIsWrittenInMovieScaleAndInTrackScale) {
  OpenedWriter writer(600);
  writer.AddTrack({.timeScale = 1000, .duration = 2500});
  EXPECT_EQ(NumberIn(writer.File(), "moov/trak/tkhd", 36, 8), 1500u);
  EXPECT_EQ(NumberIn(writer.File(), "moov/trak/mdia/mdhd", 32, 8), 2500u);
}

TEST(Tracks, HeaderFlagsAreCutTo24Bits) {
  OpenedWriter writer;
  writer.AddTrack({.flags = 0xFFFFFFF5});
  EXPECT_EQ(NumberIn(writer.File(), "moov/trak/tkhd", 8), 0x01FFFFF5u);
}

TEST(Tracks, LanguageIsPackedFromItsThreeLetters) {
  const auto packed = [](const std::string& language) {
    OpenedWriter writer;
    writer.AddTrack({.language = language});
    return NumberIn(writer.File(), "moov/trak/mdia/mdhd", 40, 2);
  };
  EXPECT_EQ(packed("und"), 0x55C4u);
  EXPECT_EQ(packed("aaa"), 0x0421u);
  EXPECT_EQ(packed("zzz"), 26u << 10 | 26u << 5 | 26u);
  EXPECT_EQ(packed("engX"), kEnglish);
  // Other characters are not refused: ((v << 5) | (c - 0x60)) & 0xFFFF, step by step.
  uint32_t expected = 0;
  for (const uint32_t c : {uint32_t{'E'}, uint32_t{'n'}, 0u}) {
    expected = (expected << 5 | (c - 0x60)) & 0xFFFF;
  }
  EXPECT_EQ(packed("En"), expected);
}

TEST(Tracks, AHandlerNameGetsATerminatorOnlyWhenItLacksOne) {
  const auto stored = [](const std::string& name) {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddTrack({.handlerName = name});
    const Bytes hdlr = FindBox(writer.File(), "moov/trak/mdia/hdlr");
    EXPECT_EQ(hdlr, FullBox("hdlr", 0, 0, Hdlr{.name = Text(hdlr.Slice(32, hdlr.Size() - 32))}));
    QiroK7MTrackInfo info{};
    EXPECT_EQ(QiroK7MTrackGetInfo(track, &info), 0u);
    EXPECT_EQ(info.handlerNameLength, hdlr.Size() - 32);
    return Text(hdlr.Slice(32, hdlr.Size() - 32));
  };
  EXPECT_EQ(stored("abc"), std::string("abc\0", 4));
  EXPECT_EQ(stored(std::string("abc\0", 4)), std::string("abc\0", 4));
  EXPECT_EQ(stored(std::string("a\0b", 3)), std::string("a\0b\0", 4));
  EXPECT_EQ(stored(std::string("\0", 1)), std::string("\0", 1));
  EXPECT_EQ(stored(""), "");
}

TEST(Tracks, AHandlerNameMayBeNullOnlyWithoutLength) {
  OpenedWriter writer;
  QiroK7MTrackInfo info = NewTrack().Info();
  const QiroK7MTrackEntriesInfo entries = NewTrack().Entries();
  QiroK7MTrack* out = nullptr;
  EXPECT_EQ(QiroK7MWriterAddTrack(writer.Handle(), &info, &entries, 1, nullptr, &out), 20u);
  EXPECT_EQ(out, nullptr);
  EXPECT_TRUE(writer.IsGood());
  info.handlerNameLength = 0;
  EXPECT_EQ(QiroK7MWriterAddTrack(writer.Handle(), &info, &entries, 1, nullptr, &out), 0u);
}

TEST(Tracks, TheTrackTellsWhatItWasMadeFrom) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack({.mediaType = "soun",
                                         .timeScale = 44100,
                                         .flags = 3,
                                         .trackFlags = 1,
                                         .language = "ger",
                                         .duration = 4410,
                                         .width = 1.5F,
                                         .height = 2.25F,
                                         .volume = 0.75F});
  QiroK7MTrackInfo info{};
  ASSERT_EQ(QiroK7MTrackGetInfo(track, &info), 0u);
  EXPECT_EQ(info.size, 72u);
  EXPECT_EQ(info.mediaType, Code("soun"));
  EXPECT_EQ(info.flags, 3u);
  EXPECT_EQ(info.timeScale, 44100u);
  EXPECT_EQ(info.duration, 4410u);
  EXPECT_EQ(info.width, 1.5F);
  EXPECT_EQ(info.height, 2.25F);
  EXPECT_EQ(info.volume, 0.75F);
  EXPECT_STREQ(info.language, "ger");
  EXPECT_EQ(info.trackFlags, 1u);
}

TEST(Tracks, ChecksComeInOrder) {
  OpenedWriter writer;
  QiroK7MTrackInfo info = NewTrack().Info();
  info.timeScale = 0;
  const QiroK7MTrackEntriesInfo entries = NewTrack().Entries();
  QiroK7MTrack* out = nullptr;
  const auto add = [&](QiroK7MWriter* handle, const QiroK7MTrackInfo* i,
                       const QiroK7MTrackEntriesInfo* e, QiroK7MTrack** o) {
    return QiroK7MWriterAddTrack(handle, i, e, 1, "handler", o);
  };
  EXPECT_EQ(add(nullptr, &info, &entries, &out), 20u);
  EXPECT_EQ(add(writer.Handle(), nullptr, &entries, &out), 20u);
  EXPECT_EQ(add(writer.Handle(), &info, nullptr, &out), 20u);
  EXPECT_EQ(add(writer.Handle(), &info, &entries, nullptr), 20u);
  EXPECT_EQ(add(writer.Handle(), &info, &entries, &out), 10u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.TryAddFullBox("free", 0, 0, {}), 0u);
  EXPECT_EQ(add(writer.Handle(), &info, &entries, &out), 10u);  // Before 1281.
  info.timeScale = 1;
  EXPECT_EQ(add(writer.Handle(), &info, &entries, &out), 1281u);
  EXPECT_TRUE(writer.IsGood());
  writer.Finish();
  EXPECT_EQ(add(writer.Handle(), &info, &entries, &out), 48u);
  info.timeScale = 0;
  EXPECT_EQ(add(writer.Handle(), &info, &entries, &out), 48u);  // Before 10.
  EXPECT_EQ(add(writer.Handle(), &info, nullptr, &out), 20u);   // Before 48.
}

TEST(Tracks, CannotBeAddedAfterASampleMetadataOrAnExtraBox) {
  {
    OpenedWriter writer;
    writer.Add(writer.AddDescribedTrack(), 0);
    EXPECT_EQ(writer.TryAddTrack({}), 1281u);
    EXPECT_TRUE(writer.IsGood());
  }
  {
    OpenedWriter writer;
    EXPECT_EQ(writer.TrySetUlb(Bytes{1}), 0u);
    EXPECT_EQ(writer.TryAddTrack({}), 1281u);
  }
  {
    OpenedWriter writer;
    EXPECT_EQ(writer.TryAddFullBox("free", 0, 0, {}), 0u);
    EXPECT_EQ(writer.TryAddTrack({}), 1281u);
  }
}

TEST(Tracks, AGapSampleDoesNotCloseTheMovieBox) {
  OpenedWriter writer;
  writer.Add(writer.AddDescribedTrack(), 0, kGap);
  EXPECT_EQ(writer.TryAddTrack({}), 0u);
}

TEST(Tracks, CapacitiesAreLimited) {
  const auto result = [](const NewTrack& track, bool isGoodAfterwards) {
    OpenedWriter writer;
    const Bytes before = writer.File();
    const QiroK7MError error = writer.TryAddTrack(track);
    EXPECT_EQ(writer.IsGood(), isGoodAfterwards);
    if (error != 0) {
      EXPECT_EQ(writer.File(), before);
    }
    return error;
  };
  // 45 bytes a sample: the tables of 100000000 do not fit a movie box of 32 bits.
  EXPECT_EQ(result({.maxSampleCount = 100000001}, false), 9u);
  EXPECT_EQ(result({.maxSampleCount = 0xFFFFFFFF}, false), 9u);
  EXPECT_EQ(result({.maxSampleCount = 100000000}, false), 19u);
  EXPECT_EQ(result({.maxSampleCount = 0}, true), 0u);
  // 2N + 1 entries, at most 100000000.
  EXPECT_EQ(result({.gapCount = 50000000}, false), 9u);
  EXPECT_EQ(result({.gapCount = 0xFFFFFFFF}, false), 9u);
  EXPECT_EQ(result({.descriptorCount = 0xFFFFFFFF, .maxCodecHeaderLength = 0xFFFFFFFF}, false),
            19u);
  EXPECT_EQ(result({.descriptorCount = 0}, true), 0u);
}

}  // namespace
}  // namespace k7mtest

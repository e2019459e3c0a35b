// The order of calls, the codes of what is out of order, and which of them make the writer bad.
#include <gtest/gtest.h>

#include "k7r_expectations.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

using Strings = std::vector<std::string>;

TEST(K7RState, SamplesAreTakenInsideFragmentsOnly) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  EXPECT_EQ(writer.TryAdd(setup.video, {}), 1536u);
  EXPECT_EQ(writer.TryAdd(setup.video, {.flags = kGap}), 1536u);
  writer.StartFragment();
  writer.Add(setup.video, 0, kKey);
  writer.Flush();
  EXPECT_EQ(writer.TryAdd(setup.video, {.time = 10}), 1536u);
  EXPECT_EQ(writer.TryAddHint(setup.hint, setup.video, {.time = 10}, {0, 1}), 1536u);
  EXPECT_TRUE(writer.IsGood());
  writer.StartFragment();
  writer.Add(setup.video, 10);
  EXPECT_EQ(CodesBehindMoov(writer.Finish()),
            (Strings{"afra", "moof", "mdat", "afra", "moof", "mdat"}));
}

TEST(K7RState, AFragmentNeedsAHintTrack) {
  OpenedK7RWriter writer;
  writer.AddDescribedTrack();
  EXPECT_EQ(writer.TryStartFragment(), 1540u);
  EXPECT_TRUE(writer.IsGood());
  writer.AddHintTrack({});
  EXPECT_EQ(writer.TryStartFragment(), 0u);
  EXPECT_EQ(writer.TryAddTrack({}), 1281u);
}

TEST(K7RState, MissingOriginComesBeforeDescriptionAndThatBeforeTheFragment) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddTrack();
  QiroK7MTrack* hint = writer.AddHintTrack({video});
  EXPECT_EQ(writer.TryAdd(video, {}), 1290u);
  writer.SetTimeOrigin(hint, 100);
  EXPECT_EQ(writer.TryAdd(video, {}), 1289u);
  writer.Describe(video);
  EXPECT_EQ(writer.TryAdd(video, {}), 1536u);
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(video, {}), 1280u);
  EXPECT_EQ(writer.TryAdd(video, {.time = 100}), 0u);
  EXPECT_EQ(writer.TryAdd(video, {.time = 100 + 0x100000000}), 1288u);
  EXPECT_EQ(writer.TryAdd(video, {.time = 99 + 0x100000000}), 0u);
  EXPECT_TRUE(writer.IsGood());
}

TEST(K7RState, SamplesOfAnotherTypeEmptyOnesAndMissingBytesAreRefusedFirst) {
  K7RSetup setup;  // Outside a fragment: that is looked at later.
  OpenedK7RWriter& writer = setup.writer;
  const auto add = [&](QiroK7MSampleInfo info, QiroK7MDataBuffer* data) {
    return QiroK7RWriterAddSampleWithAfra(writer.K7R(), setup.video, &info, data, 1);
  };
  const QiroK7MSampleInfo info = NewSample{}.Info(setup.video);
  QiroK7MSampleInfo changed = info;
  changed.mediaType = Code("soun");
  changed.sampleSize = 0;
  CountedBuffer first({1, 2, 3});
  EXPECT_EQ(add(changed, first.Record()), 8u);
  EXPECT_EQ(first.Releases(), 1);
  changed = info;
  changed.sampleSize = 0;
  CountedBuffer second({1, 2, 3});
  EXPECT_EQ(add(changed, second.Record()), 11u);
  EXPECT_EQ(second.Releases(), 1);
  changed = info;
  changed.timeScale = 0;
  EXPECT_EQ(add(changed, nullptr), 20u);
  CountedBuffer tooShort({1, 2});
  EXPECT_EQ(add(changed, tooShort.Record()), 1030u);
  EXPECT_EQ(tooShort.Releases(), 1);
  CountedBuffer third({1, 2, 3});
  EXPECT_EQ(add(changed, third.Record()), 10u);
  EXPECT_EQ(third.Releases(), 1);
  EXPECT_TRUE(writer.IsGood());
}

TEST(K7RState, ASecondBootstrapBoxIs1541) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.Add(setup.video, 0, kKey);
  ASSERT_EQ(writer.TryAddAbst({1, 2}), 0u);
  EXPECT_EQ(writer.TryAddAbst({3, 4}), 1541u);
  EXPECT_EQ(writer.TryAddAbst({}), 1541u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(FindBox(writer.Finish(), "abst"), FullBox("abst", 0, 0, Bytes{1, 2}));
}

TEST(K7RState, ABootstrapBoxOfLengthZeroIsGivenBackAndNotQueued) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  CountedBuffer buffer({1, 2, 3});
  EXPECT_EQ(QiroK7RWriterAddABST(writer.K7R(), buffer.Record(), 0), 0u);
  EXPECT_EQ(buffer.Releases(), 1);
  EXPECT_EQ(QiroK7RWriterAddABST(writer.K7R(), nullptr, 0), 0u);
  writer.StartFragment();
  writer.Add(setup.video, 0, kKey);
  EXPECT_EQ(CodesBehindMoov(writer.Finish()), (Strings{"afra", "moof", "mdat"}));
}

TEST(K7RState, ABootstrapBoxNeedsItsBytes) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  EXPECT_EQ(QiroK7RWriterAddABST(writer.K7R(), nullptr, 1), 20u);
  QiroK7MDataBuffer empty{3, nullptr, nullptr, nullptr};
  EXPECT_EQ(QiroK7RWriterAddABST(writer.K7R(), &empty, 1), 20u);
  CountedBuffer buffer({1, 2, 3});
  EXPECT_EQ(QiroK7RWriterAddABST(writer.K7R(), buffer.Record(), 4), 1030u);
  EXPECT_EQ(buffer.Releases(), 1);
  EXPECT_TRUE(writer.IsGood());
}

/// What finds the box that was queued without media to go with it.
enum class Finder : uint8_t { kStart, kFlush, kExtraBox, kClose };

TEST(K7RState, ABootstrapBoxWithoutMediaIs1033AndMakesTheWriterBad) {
  for (const bool isStarted : {false, true}) {
    for (const Finder finder :
         {Finder::kStart, Finder::kFlush, Finder::kExtraBox, Finder::kClose}) {
      K7RSetup setup;
      OpenedK7RWriter& writer = setup.writer;
      if (isStarted) writer.StartFragment();
      ASSERT_EQ(writer.TryAddAbst({1, 2}), 0u);
      QiroK7MError result = 0;
      if (finder == Finder::kStart) result = writer.TryStartFragment();
      if (finder == Finder::kFlush) result = QiroK7MWriterFlush(writer.Handle());
      if (finder == Finder::kExtraBox) result = writer.TryAddFullBox("abcd", 0, 0, {});
      if (finder == Finder::kClose) result = QiroK7RCloseWriter(writer.K7R());
      EXPECT_EQ(result, 1033u);
      EXPECT_FALSE(writer.IsGood());
      EXPECT_EQ(writer.TryAddAbst({1, 2}), 48u);
      EXPECT_EQ(writer.Stream().IsOpen(), finder != Finder::kClose);
      EXPECT_EQ(writer.Releases(0), 0);
      writer.Destroy();
      EXPECT_EQ(writer.Releases(0), 1);
    }
  }
}

TEST(K7RState, ABootstrapBoxMayBeQueuedBeforeTheMediaOfItsFragment) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  ASSERT_EQ(writer.TryAddAbst({1, 2}), 0u);
  writer.Add(setup.video, 0, kKey);
  writer.StartFragment();
  EXPECT_EQ(CodesBehindMoov(writer.File()), (Strings{"afra", "abst", "moof", "mdat"}));
}

TEST(K7RState, ClosedAndBadWritersAnswer48) {
  for (const bool isClosed : {true, false}) {
    K7RSetup setup;
    OpenedK7RWriter& writer = setup.writer;
    if (isClosed) {
      EXPECT_EQ(QiroK7RCloseWriter(writer.K7R()), 0u);
      EXPECT_EQ(QiroK7RCloseWriter(writer.K7R()), 0u);
    } else {
      writer.Stream().FailNth(Call::kWrite, 1, 4711);
      EXPECT_EQ(writer.TryStartFragment(), 4711u);
    }
    EXPECT_EQ(writer.TryStartFragment(), 48u);
    EXPECT_EQ(writer.TryAdd(setup.video, {}), 48u);
    EXPECT_EQ(writer.TryAddHint(setup.hint, setup.video, {}, {0, 1}), 48u);
    EXPECT_EQ(writer.TryAddAbst({1}), 48u);
    EXPECT_EQ(writer.TryAddHintTrack({}, {}), 48u);
    EXPECT_EQ(QiroK7MWriterFlush(writer.Handle()), 48u);
    QiroK7MWriter* same = nullptr;
    EXPECT_EQ(QiroK7RWriterGetK7MWriterRef(writer.K7R(), &same), 0u);
    EXPECT_EQ(same, writer.Handle());
  }
}

TEST(K7RState, AClosedWriterIsNotWrittenAgainAtDestruction) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.Add(setup.video, 0, kKey);
  EXPECT_EQ(QiroK7RCloseWriter(writer.K7R()), 0u);
  const uint64_t calls = writer.Stream().Count(Call::kAny);
  writer.Destroy();
  EXPECT_EQ(writer.Stream().Count(Call::kAny), calls);
}

TEST(K7RState, NullPointersAre20AndBuffersComeBack) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  QiroK7RWriter* k7r = writer.K7R();
  uint64_t offset = 77;
  EXPECT_EQ(QiroK7RWriterStartFragment(nullptr, &offset), 20u);
  EXPECT_EQ(QiroK7RWriterStartFragment(k7r, nullptr), 20u);
  EXPECT_EQ(offset, 77u);
  EXPECT_EQ(QiroK7RWriterGetK7MWriterRef(k7r, nullptr), 20u);
  auto* reference = writer.Handle();
  EXPECT_EQ(QiroK7RWriterGetK7MWriterRef(nullptr, &reference), 0u);
  EXPECT_EQ(reference, nullptr);
  EXPECT_EQ(QiroK7RCloseWriter(nullptr), 20u);
  QiroK7RDestroyWriter(nullptr);
  const QiroK7MSampleInfo info = NewSample{}.Info(setup.hint);
  const QiroK7MHintSampleInfo where{12, 0, 1};
  const auto addHint = [&](QiroK7RWriter* to, QiroK7MTrack* hint, QiroK7MTrack* media,
                           const QiroK7MSampleInfo* record, const QiroK7MHintSampleInfo* place) {
    CountedBuffer buffer({1, 2, 3});
    const QiroK7MError result =
        QiroK7RWriterAddHintSample(to, hint, media, buffer.Record(), record, place, 0);
    EXPECT_EQ(buffer.Releases(), 1);
    return result;
  };
  EXPECT_EQ(addHint(nullptr, setup.hint, setup.video, &info, &where), 20u);
  EXPECT_EQ(addHint(k7r, nullptr, setup.video, &info, &where), 20u);
  EXPECT_EQ(addHint(k7r, setup.hint, nullptr, &info, &where), 20u);
  EXPECT_EQ(addHint(k7r, setup.hint, setup.video, nullptr, &where), 20u);
  EXPECT_EQ(addHint(k7r, setup.hint, setup.video, &info, nullptr), 20u);
  EXPECT_EQ(QiroK7RWriterAddHintSample(k7r, setup.hint, setup.video, nullptr, &info, &where, 0),
            20u);
  const auto add = [&](QiroK7RWriter* to, QiroK7MTrack* track, const QiroK7MSampleInfo* record) {
    CountedBuffer buffer({1, 2, 3});
    const QiroK7MError result =
        QiroK7RWriterAddSampleWithAfra(to, track, record, buffer.Record(), 0);
    EXPECT_EQ(buffer.Releases(), 1);
    return result;
  };
  EXPECT_EQ(add(nullptr, setup.hint, &info), 20u);
  EXPECT_EQ(add(k7r, nullptr, &info), 20u);
  EXPECT_EQ(add(k7r, setup.hint, nullptr), 20u);
  CountedBuffer abst({1});
  EXPECT_EQ(QiroK7RWriterAddABST(nullptr, abst.Record(), 1), 20u);
  EXPECT_EQ(abst.Releases(), 1);
  EXPECT_TRUE(writer.IsGood());
}

TEST(K7RState, AHintTrackNeedsItsRecords) {
  OpenedK7RWriter writer;
  const QiroK7RHintTrackInfo hint{8, 2};
  const NewTrack track{.mediaType = "hint", .flags = 0};
  const QiroK7MTrackInfo info = track.Info();
  const QiroK7MTrackEntriesInfo entries = track.Entries();
  QiroK7MTrack* const none[] = {nullptr};
  QiroK7MTrack* out = nullptr;
  const auto add = [&](QiroK7RWriter* to, const QiroK7RHintTrackInfo* protocol,
                       const QiroK7MTrackInfo* record, const QiroK7MTrackEntriesInfo* room,
                       const char* name, QiroK7MTrack* const* served, uint32_t count,
                       QiroK7MTrack** place) {
    return QiroK7RWriterAddHintTrack(to, protocol, record, room, 0, name, served, count, place);
  };
  QiroK7RWriter* k7r = writer.K7R();
  EXPECT_EQ(add(nullptr, &hint, &info, &entries, "12345678", nullptr, 0, &out), 20u);
  EXPECT_EQ(add(k7r, nullptr, &info, &entries, "12345678", nullptr, 0, &out), 20u);
  EXPECT_EQ(add(k7r, &hint, nullptr, &entries, "12345678", nullptr, 0, &out), 20u);
  EXPECT_EQ(add(k7r, &hint, &info, nullptr, "12345678", nullptr, 0, &out), 20u);
  EXPECT_EQ(add(k7r, &hint, &info, &entries, nullptr, nullptr, 0, &out), 20u);
  EXPECT_EQ(add(k7r, &hint, &info, &entries, "12345678", nullptr, 1, &out), 20u);
  EXPECT_EQ(add(k7r, &hint, &info, &entries, "12345678", none, 1, &out), 20u);
  EXPECT_EQ(add(k7r, &hint, &info, &entries, "12345678", nullptr, 0, nullptr), 20u);
  EXPECT_EQ(out, nullptr);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(add(k7r, &hint, &info, &entries, "12345678", nullptr, 0, &out), 0u);
}

TEST(K7RState, CreationChecksItsArguments) {
  MemoryStream stream;
  const QiroK7MIOStreamCallBacks record = stream.ReadingAndWriting();
  QiroK7MDocInfo info = DocInfoOf(1000);
  const QiroK7MAllocatorCallBacks memory;
  int place = 0;
  auto* const untouched = reinterpret_cast<QiroK7RWriter*>(&place);
  QiroK7RWriter* writer = untouched;
  EXPECT_EQ(QiroK7RDocCreateNew(nullptr, &info, &memory, &writer), 20u);
  EXPECT_EQ(QiroK7RDocCreateNew(&record, nullptr, &memory, &writer), 20u);
  EXPECT_EQ(QiroK7RDocCreateNew(&record, &info, nullptr, &writer), 20u);
  EXPECT_EQ(QiroK7RDocCreateNew(&record, &info, &memory, nullptr), 20u);
  info.timeScale = 0;
  EXPECT_EQ(QiroK7RDocCreateNew(&record, &info, &memory, &writer), 10u);
  info.timeScale = 1000;
  QiroK7MIOStreamCallBacks incomplete = record;
  incomplete.truncate = nullptr;
  EXPECT_EQ(QiroK7RDocCreateNew(&incomplete, &info, &memory, &writer), 20u);
  EXPECT_EQ(stream.Count(Call::kAny), 0u);
  stream.FailNth(Call::kWrite, 1, 4711);
  EXPECT_EQ(QiroK7RDocCreateNew(&record, &info, &memory, &writer), 4711u);
  EXPECT_FALSE(stream.IsOpen());
  EXPECT_EQ(writer, untouched);
}

}  // namespace
}  // namespace k7mtest

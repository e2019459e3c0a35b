// Calls with several faults at once: the answer names the one that is looked at first.
#include <gtest/gtest.h>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

/// A code of the stream that makes the writer bad.
constexpr QiroK7MError kOwnCode = 4711;

void MakeBad(OpenedK7RWriter& writer) {
  writer.Stream().FailNth(Call::kWrite, 1, kOwnCode);
  EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, {}), kOwnCode);
  EXPECT_FALSE(writer.IsGood());
}

/// Adds a hint track. The call has every fault from the given one on, in the order in which they
/// are looked at.
QiroK7MError AddHintTrackWithFaultsFrom(size_t first) {
  size_t fault = 0;
  const auto has = [&] { return fault++ >= first; };
  QiroK7RHintTrackInfo protocol{8, 2};
  QiroK7MTrackInfo info = NewTrack{.mediaType = "hint", .flags = 0}.Info();
  const QiroK7MTrackEntriesInfo entries = NewTrack{}.Entries();
  const char* name = "12345678";
  QiroK7MTrack* added = nullptr;
  QiroK7MTrack** out = &added;
  QiroK7MTrack* served[] = {nullptr};
  OpenedK7RWriter writer;
  if (has()) out = nullptr;
  if (has()) name = nullptr;
  const uint32_t servedCount = has() ? 1 : 0;
  const bool isBad = has();
  if (has()) info.timeScale = 0;
  if (has()) info.flags = 1;
  if (has()) protocol.hintProtocol = 1;
  if (has()) info.mediaType = Code("vide");
  if (has()) writer.AddHintTrack({});
  if (has()) {
    EXPECT_EQ(writer.TryAddFullBox("abcd", 0, 0, {}), 0u);
  }
  if (isBad) MakeBad(writer);
  const QiroK7MError result = QiroK7RWriterAddHintTrack(writer.K7R(), &protocol, &info, &entries, 0,
                                                        name, served, servedCount, out);
  EXPECT_EQ(added, nullptr);
  return result;
}

TEST(K7RCheckOrder, OfAHintTrack) {
  std::vector<QiroK7MError> answers;
  for (size_t first = 0; first < 10; ++first) {
    answers.push_back(AddHintTrackWithFaultsFrom(first));
  }
  EXPECT_EQ(answers, (std::vector<QiroK7MError>{20, 20, 20, 48, 10, 1538, 1284, 8, 1539, 1281}));
}

TEST(K7RCheckOrder, OfAHintTrackOfAFileThatIsContinued) {
  OpenedK7RWriter withHint(Record(1).file);
  EXPECT_EQ(withHint.TryAddHintTrack({.mediaType = "hint", .flags = 0}, {}), 1539u);
  OpenedWriter plain(FragmentedInfo());
  plain.AddTrack();
  OpenedK7RWriter withoutHint(plain.Finish());
  EXPECT_EQ(withoutHint.TryAddHintTrack({.mediaType = "hint", .flags = 0}, {}), 2052u);
}

/// Adds a hint sample in the same way.
QiroK7MError AddHintSampleWithFaultsFrom(size_t first, bool isClosed) {
  size_t fault = 0;
  const auto has = [&] { return fault++ >= first; };
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  QiroK7MTrack* hint = writer.AddHintTrack({video});
  QiroK7MSampleInfo info = NewSample{.data = Pattern(4)}.Info(hint);
  QiroK7MHintSampleInfo where{12, 0, 4};
  CountedBuffer buffer(Pattern(4));
  QiroK7MDataBuffer* record = buffer.Record();
  if (has()) record = nullptr;
  const bool isBad = has();
  if (has()) info.mediaType = Code("vide");
  if (has()) info.sampleSize = 0;
  if (has()) buffer.Record()->data = nullptr;
  if (has()) buffer.Record()->length = 3;
  if (has()) info.timeScale = 0;
  if (has()) where.mediaOffset = 1;
  QiroK7MTrack* media = has() ? audio : video;
  if (!has()) writer.SetTimeOrigin(hint, 0);
  if (!has()) writer.StartFragment();
  if (isBad && isClosed) {
    EXPECT_EQ(QiroK7RCloseWriter(writer.K7R()), 0u);
  } else if (isBad) {
    MakeBad(writer);
  }
  const QiroK7MError result =
      QiroK7RWriterAddHintSample(writer.K7R(), hint, media, record, &info, &where, 1);
  EXPECT_EQ(buffer.Releases(), record == nullptr ? 0 : 1);
  return result;
}

TEST(K7RCheckOrder, OfAHintSample) {
  for (const bool isClosed : {false, true}) {
    std::vector<QiroK7MError> answers;
    for (size_t first = 0; first < 11; ++first) {
      answers.push_back(AddHintSampleWithFaultsFrom(first, isClosed));
    }
    EXPECT_EQ(answers,
              (std::vector<QiroK7MError>{20, 48, 8, 11, 20, 1030, 10, 20, 1537, 1290, 1536}));
  }
}

TEST(K7RCheckOrder, OfAGapOfTheHintTrackWhichNeedsNoBytes) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const QiroK7MSampleInfo gap = NewSample{.flags = kGap}.Info(setup.hint);
  const auto tryAdd = [&](uint32_t mediaSize) {
    const QiroK7MHintSampleInfo where{12, 0, mediaSize};
    return QiroK7RWriterAddHintSample(writer.K7R(), setup.hint, setup.video, nullptr, &gap, &where,
                                      0);
  };
  EXPECT_EQ(tryAdd(1), 20u);  // Outside its bytes, of which there are none.
  EXPECT_EQ(tryAdd(0), 1536u);
  writer.StartFragment();
  EXPECT_EQ(tryAdd(0), 0u);
  EXPECT_EQ(QiroK7RCloseWriter(writer.K7R()), 0u);
  EXPECT_EQ(tryAdd(0), 48u);
}

TEST(K7RCheckOrder, OfAHintSampleOfAFileThatIsContinued) {
  OpenedK7RWriter writer(Record(1).file);
  QiroK7MTrackIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MWriterGetTracks(writer.Handle(), &iterator), 0u);
  QiroK7MTrack* tracks[3] = {};
  for (QiroK7MTrack*& track : tracks) QiroK7MTrackIteratorGetNextEntry(iterator, &track);
  QiroK7MReleaseTrackIterator(iterator);
  // Neither has the time origin to be told again, but a description to be chosen.
  const NewSample early{.time = 0, .data = Pattern(4)};
  EXPECT_EQ(writer.TryAddHint(tracks[2], tracks[1], early, {0, 4}), 1537u);
  EXPECT_EQ(writer.TryAddHint(tracks[2], tracks[0], early, {0, 4}), 1289u);
  writer.DescribedTracks();
  EXPECT_EQ(writer.TryAddHint(tracks[2], tracks[0], early, {0, 4}), 1536u);
  writer.StartFragment();
  EXPECT_EQ(writer.TryAddHint(tracks[2], tracks[0], early, {0, 4}), 1280u);
}

}  // namespace
}  // namespace k7mtest

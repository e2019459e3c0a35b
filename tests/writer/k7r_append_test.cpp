// Continuing a K7R file: what is kept, what is cut, and how the writer goes on.
#include <gtest/gtest.h>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

using Strings = std::vector<std::string>;
constexpr uint64_t kAll = ~uint64_t{0};

TEST(K7RAppend, GoesOnBehindTheLastFragment) {
  const Recording recording = Record(2);
  OpenedK7RWriter writer(recording.file);
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.LastFragment(), recording.starts[1]);
  EXPECT_EQ(writer.File().Size(), recording.file.Size());
  const auto tracks = writer.DescribedTracks();
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(writer.StartFragment(), recording.file.Size());
  AddFragment(writer, tracks, 2);
  const Bytes file = writer.Finish();
  const size_t moov = EndOfMoov(file);
  EXPECT_EQ(file.Slice(moov, recording.file.Size() - moov), BehindMoov(recording.file));
  EXPECT_EQ(CodesBehindMoov(file),
            (Strings{"afra", "moof", "mdat", "afra", "moof", "mdat", "afra", "moof", "mdat"}));
  EXPECT_EQ(NumberIn(file, "moof#3/mfhd", 12), 3u);
  ExpectFragmentsReadBack(file, {0, 1, 2});
}

TEST(K7RAppend, EntriesWrittenFromNowOnHaveTimeScaleAndTimesZero) {
  OpenedK7RWriter writer(Record(1).file);
  AddFragment(writer, writer.DescribedTracks(), 1);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "afra", 13), 1000u);
  EXPECT_EQ(NumberIn(file, "afra", 21, 8), 500u);
  ASSERT_EQ(NumberIn(file, "afra#2", 17), 2u);
  EXPECT_EQ(NumberIn(file, "afra#2", 13), 0u);
  for (const size_t entry : {0u, 1u}) {
    EXPECT_EQ(NumberIn(file, "afra#2", 21 + 16 * entry, 8), 0u);
    const uint64_t place =
        PlaceOf(file, "afra#2").offset + NumberIn(file, "afra#2", 29 + 16 * entry, 8);
    EXPECT_EQ(file.Slice(place, 20), MessageOf(600 + entry));
  }
}

TEST(K7RAppend, TheKeepLimitIsTheLastPlaceWhereAnAfraMayBegin) {
  const Recording recording = Record(3);
  const uint64_t moovEnd = EndOfMoov(recording.file);
  const struct {
    uint64_t limit;
    uint64_t kept;
  } cases[] = {{0, 0},
               {recording.starts[0] - 1, 0},
               {recording.starts[0], 1},
               {recording.starts[1] - 1, 1},
               {recording.starts[1], 2},
               {recording.starts[2] - 1, 2},
               {recording.starts[2], 3},
               {kAll, 3}};
  for (const auto& [limit, kept] : cases) {
    SCOPED_TRACE(limit);
    OpenedK7RWriter writer(recording.file, limit);
    ASSERT_EQ(writer.Result(), 0u);
    EXPECT_EQ(writer.LastFragment(), kept == 0 ? 0 : recording.starts[kept - 1]);
    EXPECT_EQ(writer.File().Size(), kept == 0 ? moovEnd : recording.ends[kept - 1]);
    // Where a fragment was cut off, the sample before it lasts until its first one all the same.
    EXPECT_EQ(NumberIn(writer.File(), "moov/mvhd", 32, 8), kept == 3 ? 241 : kept * 100);
    AddFragment(writer, writer.DescribedTracks(), 7);
    const Bytes file = writer.Finish();
    EXPECT_EQ(NumberIn(file, "moof#" + std::to_string(kept + 1) + "/mfhd", 12), kept + 1);
    std::vector<uint64_t> numbers;
    for (uint64_t number = 0; number < kept; ++number) numbers.push_back(number);
    numbers.push_back(7);
    ExpectFragmentsReadBack(file, numbers);
  }
}

TEST(K7RAppend, OtherBoxesBetweenFragmentsAndBehindTheMovieBoxAreKept) {
  const Recording recording = Record(2);
  const Bytes head = Cut(recording.file, EndOfMoov(recording.file));
  // Entries of an 'afra' count from its begin, so that fragments can be moved but for the offsets
  // in the 'tfhd', which nobody looks at here.
  const auto fragment = [&](size_t i) {
    return recording.file.Slice(recording.starts[i], recording.ends[i] - recording.starts[i]);
  };
  const Bytes extra = FullBox("aaaa", 0, 0, Pattern(5));
  const Bytes free = Box("free", Pattern(3));
  const Bytes file = head + extra + fragment(0) + free + fragment(1) + free + extra;
  OpenedK7RWriter whole(file);
  EXPECT_EQ(whole.File().Size(), file.Size());
  OpenedK7RWriter none(file, 0);
  EXPECT_EQ(none.File().Size(), head.Size() + extra.Size());
  EXPECT_EQ(none.LastFragment(), 0u);
  OpenedK7RWriter one(file, head.Size() + extra.Size());
  EXPECT_EQ(one.File().Size(), head.Size() + extra.Size() + fragment(0).Size() + free.Size());
}

/// What stands behind the last good fragment, and whether it stays.
struct Tail {
  const char* name;
  Bytes bytes;
  bool isKept;
};

TEST(K7RAppend, EverythingFromTheFirstBoxOutOfOrderOnIsCut) {
  const Recording recording = Record(1);
  const Recording withAbst = Record(1, true);
  const Bytes afra = FindBox(recording.file, "afra");
  const Bytes abst = FindBox(withAbst.file, "abst");
  const Bytes moof = FindBox(recording.file, "moof");
  const Bytes mdat = FindBox(recording.file, "mdat");
  const Bytes free = Box("free");
  const std::vector<Tail> tails = {
      {"nothing", {}, true},
      {"a fragment", afra + moof + mdat, true},
      {"a fragment with a bootstrap box", afra + abst + moof + mdat, true},
      {"an extra box", free, true},
      {"only an afra", afra, false},
      {"afra and moof", afra + moof, false},
      {"afra, abst and moof", afra + abst + moof, false},
      {"no afra", moof + mdat, false},
      {"an abst in front", abst + afra + moof + mdat, false},
      {"a second afra", afra + afra + moof + mdat, false},
      {"a second abst", afra + abst + abst + moof + mdat, false},
      {"an abst behind the moof", afra + moof + abst + mdat, false},
      {"a second moof", afra + moof + moof + mdat, false},
      {"mdat before moof", afra + mdat + moof, false},
      {"a box in the fragment", afra + free + moof + mdat, false},
      {"a box behind the abst", afra + abst + free + moof + mdat, false},
      {"a box before the mdat", afra + moof + free + mdat, false},
      {"an mdat alone", mdat, false},
      {"a box to the end of the file", TillEndBox("free", Pattern(5)), false},
      {"an mdat to the end of the file", TillEndBox("mdat", Pattern(5)), false},
      {"an afra to the end of the file", TillEndBox("afra", Pattern(20)), false},
      {"an mdat past the end", afra + moof + LyingBox("mdat", 100, Pattern(50)), false},
      {"a box past the end", LyingBox("free", 9), false},
      {"a large box past the end", LyingLargeBox("free", 0x7FFFFFFFFFFFFFFF), false},
      {"a large box whose end wraps", LyingLargeBox("free", 0xFFFFFFFFFFFFFFFF), false},
      {"the begin of a large header", Bytes().U32(1).Code("free").U32(0), false},
      {"the begin of an extended type", LyingBox("uuid", 24, Pattern(15)), false},
      {"stray bytes", Pattern(7), false},
      {"zeros", Bytes().Fill(100), false}};
  for (const Tail& tail : tails) {
    SCOPED_TRACE(tail.name);
    OpenedK7RWriter writer(recording.file + tail.bytes);
    ASSERT_EQ(writer.Result(), 0u);
    const size_t kept = recording.file.Size() + (tail.isKept ? tail.bytes.Size() : 0);
    EXPECT_EQ(writer.File().Size(), kept);
    EXPECT_EQ(writer.StartFragment(), kept);
  }
}

TEST(K7RAppend, AnMdatThatRunsToTheEndOfTheFileGetsItsSize) {
  const Recording recording = Record(1);
  const BoxPlace mdat = PlaceOf(recording.file, "mdat");
  // As a plain header in the place of the large one, behind free space that keeps offsets right.
  const Bytes open = Cut(recording.file, mdat.offset) + TillEndBox("mdat", Bytes().Fill(8)) +
                     recording.file.Slice(mdat.offset + 16, mdat.size - 16);
  ASSERT_EQ(open.Size(), recording.file.Size());
  OpenedK7RWriter writer(open);
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.LastFragment(), recording.starts[0]);
  AddFragment(writer, writer.DescribedTracks(), 1);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "mdat", 0), mdat.size);
  ExpectFragmentsReadBack(file, {0, 1});
}

// Such a file ends with its movie box, in which the last box may do the same.
TEST(K7RAppend, AMovieBoxThatRunsToTheEndOfTheFileGetsItsSize) {
  for (const Bytes& last : {Bytes(), TillEndBox("free", Pattern(5))}) {
    Bytes file = Record(0).file;
    const BoxPlace moov = PlaceOf(file, "moov");
    ASSERT_EQ(moov.offset + moov.size, file.Size());
    file.Append(last);
    file.Patch(moov.offset, 0);
    OpenedK7RWriter writer(file);
    ASSERT_EQ(writer.Result(), 0u);
    Bytes sized = file;
    sized.Patch(moov.offset, moov.size + last.Size());
    EXPECT_EQ(writer.File(), sized);
    AddFragment(writer, writer.DescribedTracks(), 1);
    const Bytes continued = writer.Finish();
    EXPECT_EQ(NumberIn(continued, "moov", 0), moov.size + last.Size());
    ExpectFragmentsReadBack(continued, {1});
  }
}

TEST(K7RAppend, WholeBoxesThatAreMalformedGiveTheirCodeAndNothingIsChanged) {
  const Recording recording = Record(1);
  const Bytes afra = FindBox(recording.file, "afra");
  const struct {
    const char* name;
    Bytes bytes;
    QiroK7MError code;
  } cases[] = {
      {"shorter than its header", LyingBox("free", 7) + Pattern(30), 27},
      {"a large one shorter than its header", LyingLargeBox("free", 15) + Pattern(30), 27},
      {"a second movie box", FindBox(recording.file, "moov"), 36},
      {"a second movie box in a fragment", afra + FindBox(recording.file, "moov"), 36},
      {"a moof without mfhd", afra + Box("moof", Pattern(0)), 14},
      {"a traf of no track",
       afra + ExpectedMoof(2, ExpectedTraf(9, 0, {{0, {{1, 1, 0, 0}}}})) + Box("mdat"), 25}};
  for (const auto& [name, bytes, code] : cases) {
    SCOPED_TRACE(name);
    const Bytes broken = recording.file + bytes;
    OpenedK7RWriter writer(broken);
    EXPECT_EQ(writer.Result(), code);
    EXPECT_EQ(writer.File(), broken);
    EXPECT_EQ(writer.Stream().Count(Call::kWrite), 0u);
    EXPECT_EQ(writer.Stream().Count(Call::kTruncate), 0u);
  }
}

TEST(K7RAppend, RefusesTracksAndMetadata) {
  OpenedK7RWriter writer(Record(1).file);
  EXPECT_EQ(writer.TryAddTrack({}), 2052u);
  EXPECT_EQ(writer.TrySetUlb({1}), 2053u);
  EXPECT_EQ(writer.TryAddTrack({.mediaType = "hint"}), 1539u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.TryAddFullBox("free", 0, 0, {1, 2}), 0u);
}

TEST(K7RAppend, TracksAreListedForSuchAWriterOnly) {
  OpenedK7RWriter fresh;
  QiroK7MTrackIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MWriterGetTracks(fresh.Handle(), &iterator), 2049u);
  OpenedK7RWriter writer(Record(1).file);
  const auto tracks = writer.DescribedTracks();
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(InfoOf(tracks[0]).mediaType, Code("vide"));
  EXPECT_EQ(InfoOf(tracks[1]).mediaType, Code("soun"));
  EXPECT_EQ(InfoOf(tracks[2]).mediaType, Code("hint"));
  EXPECT_EQ(InfoOf(tracks[0]).timeScale, 1000u);
}

TEST(K7RAppend, EveryTrackNeedsADescriptionAgain) {
  const Recording recording = Record(1);
  OpenedK7RWriter writer(recording.file);
  std::vector<QiroK7MTrack*> tracks;
  QiroK7MTrackIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MWriterGetTracks(writer.Handle(), &iterator), 0u);
  for (QiroK7MTrack* track = nullptr;
       QiroK7MTrackIteratorGetNextEntry(iterator, &track) == 0 && track != nullptr;) {
    tracks.push_back(track);
  }
  QiroK7MReleaseTrackIterator(iterator);
  EXPECT_EQ(writer.TryAdd(tracks.at(0), {.time = 700}), 1289u);
  writer.DescribedTracks();
  EXPECT_EQ(writer.TryAdd(tracks.at(0), {.time = 700}), 1536u);
  writer.StartFragment();
  writer.Add(tracks.at(0), 700, kKey);
  EXPECT_EQ(NumberIn(writer.Finish(), "moof#2/traf/tfhd", 24), 1u);
}

TEST(K7RAppend, ANewDescriptionTakesTheRoomThatIsLeftAndMovesNothing) {
  const Recording recording = Record(1);
  OpenedK7RWriter writer(recording.file);
  const auto tracks = writer.DescribedTracks();
  const std::string stsd = "moov/trak/mdia/minf/stbl/stsd";
  const Bytes before = FindBox(recording.file, stsd);
  writer.Describe(tracks[0], "abcd", {1, 2, 3});
  EXPECT_EQ(writer.TryDescribe(tracks[0], "efgh", Pattern(60)), 15u);
  writer.StartFragment();
  writer.Add(tracks[0], 700, kKey);
  const Bytes file = writer.Finish();
  const Bytes after = FindBox(file, stsd);
  ASSERT_EQ(after.Size(), before.Size());
  EXPECT_EQ(after.NumberAt(12), 2u);
  EXPECT_EQ(after.Slice(16, 86), before.Slice(16, 86));
  EXPECT_EQ(after.NumberAt(16 + 86), 89u);
  EXPECT_EQ(after.NumberAt(16 + 86 + 4), Code("abcd"));
  EXPECT_EQ(after.NumberAt(16 + 86 + 89), before.Size() - (16 + 86 + 89));
  EXPECT_EQ(after.NumberAt(16 + 86 + 89 + 4), Code("skip"));
  EXPECT_EQ(NumberIn(file, "moof#2/traf/tfhd", 24), 2u);
  OpenedReader reader(file);
  EXPECT_EQ(DescriptorsOf(reader.TrackAt(0)).size(), 2u);
  EXPECT_TRUE(OpenWarnings(file).empty());
}

TEST(K7RAppend, TheTimeOriginIsThatOfTheFile) {
  OpenedK7RWriter writer(Record(0).file);
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(tracks[0], {.time = 499}), 1280u);
  writer.Add(tracks[0], 500, kKey);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "moov/trak/edts/elst", 12), 1u);
  EXPECT_EQ(NumberIn(file, "moof/mfhd", 12), 1u);
}

TEST(K7RAppend, TheDocumentRecordIsThatOfTheFile) {
  QiroK7MDocInfo written = DocInfoOf(600);
  written.playRate = 2;
  written.volume = 0.5;
  OpenedK7RWriter original(written);
  QiroK7MTrack* video = original.AddDescribedTrack();
  original.AddDescribedHintTrack({video});
  original.StartFragment();
  original.Add(video, 500);
  OpenedK7RWriter writer(original.Finish());
  QiroK7MDocInfo info{};
  ASSERT_EQ(QiroK7MWriterGetDocInfo(writer.Handle(), &info), 0u);
  EXPECT_EQ(info.size, 48u);
  EXPECT_EQ(info.isFragmented, 1u);
  EXPECT_EQ(info.timeScale, 600u);
  EXPECT_EQ(info.playRate, 2);
  EXPECT_EQ(info.volume, 0.5);
  EXPECT_EQ(info.creationTime.day, 2);
  EXPECT_EQ(info.modificationTime.hour, 1);
  EXPECT_EQ(info.duration, 301u);
}

TEST(K7RAppend, WithoutAHintTrackNoFragmentStarts) {
  OpenedWriter original(FragmentedInfo());
  QiroK7MTrack* video = original.AddDescribedTrack();
  original.Add(video, 0);
  OpenedK7RWriter writer(original.Finish());
  ASSERT_EQ(writer.Result(), 0u);
  // Its fragments are no K7R fragments.
  EXPECT_EQ(writer.File().Size(), EndOfMoov(writer.File()));
  EXPECT_EQ(writer.TryStartFragment(), 1540u);
  EXPECT_EQ(writer.TryAdd(writer.DescribedTracks()[0], {}), 1290u);
}

TEST(K7RAppend, WithoutAVorpEntryNoSampleIsTaken) {
  OpenedK7RWriter original;
  QiroK7MTrack* video = original.AddDescribedTrack();
  QiroK7MTrack* hint = original.AddHintTrack({video});
  ASSERT_EQ(original.TryDescribe(hint, "amf0", Pattern(8)), 0u);
  OpenedK7RWriter writer(original.Finish());
  const auto tracks = writer.DescribedTracks();
  EXPECT_EQ(writer.TryStartFragment(), 0u);
  EXPECT_EQ(writer.TryAdd(tracks[0], {}), 1290u);
  EXPECT_TRUE(writer.IsGood());
}

TEST(K7RAppend, ATrackWithoutDefaultsForFragmentsTakesNoSample) {
  Bytes file = Record(0).file;
  const BoxPlace trex = PlaceOf(file, "moov/mvex/trex#2");
  file.Patch(trex.offset + 12, 77);  // The track's id.
  OpenedK7RWriter writer(file);
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  writer.Add(tracks[0], Recording::kTimeOrigin);
  EXPECT_EQ(writer.TryAdd(tracks[1], {.time = Recording::kTimeOrigin}),
            kQiroK7MErrorNoTrackExtends + 0u);
  EXPECT_FALSE(writer.IsGood());
}

TEST(K7RAppend, AFileMayBeContinuedAgainAndAgain) {
  Bytes file = Record(0).file;
  std::vector<uint64_t> numbers;
  for (uint64_t number = 0; number < 6; ++number) {
    OpenedK7RWriter writer(file);
    ASSERT_EQ(writer.Result(), 0u);
    AddFragment(writer, writer.DescribedTracks(), number);
    file = writer.Finish();
    numbers.push_back(number);
    EXPECT_EQ(NumberIn(file, "moof#" + std::to_string(number + 1) + "/mfhd", 12), number + 1);
    ExpectFragmentsReadBack(file, numbers);
  }
}

TEST(K7RAppend, OpeningAndClosingChangesNothing) {
  for (const uint64_t count : {0u, 1u, 3u}) {
    const Bytes file = Record(count).file;
    OpenedK7RWriter writer(file);
    ASSERT_EQ(writer.Result(), 0u);
    EXPECT_EQ(writer.File(), file);
    EXPECT_EQ(writer.Finish(), file);
  }
}

TEST(K7RAppend, NoBoxThatIsOutOfPlaceIsWritten) {
  // Tables where the defaults of fragments stand.
  for (const char* code : {"stsc", "stts", "stsz", "ctts", "stco"}) {
    SCOPED_TRACE(code);
    Bytes file = Record(0).file;
    const BoxPlace trex = PlaceOf(file, "moov/mvex/trex#2");
    file.Patch(trex.offset + 4, Code(code)).Patch(trex.offset + 8, 0, 8);
    const Bytes before = file.Slice(trex.offset, trex.size);
    OpenedK7RWriter writer(file);
    ASSERT_EQ(writer.Result(), 0u);
    EXPECT_EQ(writer.Finish().Slice(trex.offset, trex.size), before);
  }
}

TEST(K7RAppend, SamplesAreCountedFromTheFragmentsInTheFile) {
  const Recording recording = Record(2);
  OpenedK7RWriter writer(recording.file + FindBox(recording.file, "afra") +
                         FindBox(recording.file, "moof"));
  const auto tracks = writer.DescribedTracks();
  AddFragment(writer, tracks, 2);
  writer.Flush();
  uint32_t count = 0;
  EXPECT_EQ(QiroK7MTrackGetSampleCount(tracks[0], &count), 0u);
  EXPECT_EQ(count, 6u);
  AddFragment(writer, tracks, 3);
  ExpectFragmentsReadBack(writer.Finish(), {0, 1, 2, 3});
}

TEST(K7RAppendArguments, AllPointersAreRequired) {
  const Bytes file = Record(1).file;
  MemoryStream stream(file);
  const QiroK7MIOStreamCallBacks record = stream.ReadingAndWriting();
  const QiroK7MAllocatorCallBacks memory;
  const int reserved = 0;
  int place = 0;
  auto* const untouched = reinterpret_cast<QiroK7RWriter*>(&place);
  QiroK7RWriter* writer = untouched;
  uint64_t last = 77;
  EXPECT_EQ(QiroK7RDocOpenForAppend(nullptr, &reserved, &memory, 0, &last, &writer), 20u);
  EXPECT_EQ(QiroK7RDocOpenForAppend(&record, nullptr, &memory, 0, &last, &writer), 20u);
  EXPECT_EQ(QiroK7RDocOpenForAppend(&record, &reserved, nullptr, 0, &last, &writer), 20u);
  EXPECT_EQ(QiroK7RDocOpenForAppend(&record, &reserved, &memory, 0, nullptr, &writer), 20u);
  EXPECT_EQ(QiroK7RDocOpenForAppend(&record, &reserved, &memory, 0, &last, nullptr), 20u);
  QiroK7MIOStreamCallBacks incomplete = record;
  incomplete.truncate = nullptr;
  EXPECT_EQ(QiroK7RDocOpenForAppend(&incomplete, &reserved, &memory, 0, &last, &writer), 20u);
  EXPECT_EQ(writer, untouched);
  EXPECT_EQ(last, 77u);
  EXPECT_EQ(stream.Count(Call::kAny), 0u);
}

}  // namespace
}  // namespace k7mtest

// Continuing files that other writers made: what they may lack, and what of theirs stays.
#include <gtest/gtest.h>

#include "k7r_recording.h"
#include "support/movie_builder.h"

namespace k7mtest {
namespace {

/// A track without samples, with its edit list and, for the hint track, its 'vorp' entry.
Track EmptyTrack(const char* handler, uint8_t version) {
  Track track{.handler = handler, .timeScale = 1000};
  track.edits = {{0, 0}};
  track.replace["edts"] = Box("edts", FullBox("elst", version, 0, Elst{.entries = {{0, 0}}},
                                              Bytes().Fill(4 * (version == 1 ? 20 : 12))));
  track.replace["mdhd"] = FullBox("mdhd", version, 0, Mdhd{.timeScale = 1000});
  if (std::string(handler) == "hint") {
    track.descriptions = {VorpEntry("vorp", {.codecHeader = VorpExtension(500)})};
  }
  return track;
}

Movie MovieOf(uint8_t version, const std::vector<const char*>& handlers = {"vide", "hint"}) {
  Movie movie{.timeScale = 1000};
  Bytes mvex = FullBox("mehd", version, 0, Mehd{});
  for (size_t i = 0; i < handlers.size(); ++i) {
    const auto id = static_cast<uint32_t>(i + 1);
    movie.tracks.push_back(EmptyTrack(handlers[i], version));
    movie.tracks.back().replace["tkhd"] = FullBox("tkhd", version, 7, Tkhd{.trackId = id});
    mvex.Append(FullBox("trex", 0, 0, Trex{.trackId = id}));
  }
  movie.replace["mvhd"] = FullBox("mvhd", version, 0, Mvhd{.timeScale = 1000, .nextTrackId = 9});
  movie.moreInMoov = Box("mvex", mvex) + Box("udta", Box("name", Pattern(9)));
  return movie;
}

/// Without its 'mdat'.
Bytes HeadOf(const Movie& movie) {
  const Bytes file = BuildMovie(movie).bytes;
  return Cut(file, EndOfMoov(file));
}

QiroK7MError ResultOf(const Bytes& file) {
  OpenedK7RWriter writer(file);
  EXPECT_EQ(writer.Stream().Count(Call::kWrite) == 0, writer.Result() != 0);
  return writer.Result();
}

TEST(K7RAppendForeign, BoxesKeepTheirVersionPlaceAndSize) {
  for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
    SCOPED_TRACE(int{version});
    const Bytes head = HeadOf(MovieOf(version));
    OpenedK7RWriter writer(head);
    ASSERT_EQ(writer.Result(), 0u);
    EXPECT_EQ(writer.File(), head);
    const auto tracks = writer.DescribedTracks();
    writer.StartFragment();
    writer.Add(tracks[0], {.time = 500, .data = Pattern(3), .flags = kKey}, true);
    writer.Add(tracks[0], {.time = 820, .data = Pattern(4), .flags = kKey}, true);
    writer.Add(tracks[0], {.time = 0xFFFFFFFF, .flags = kGap});
    const Bytes file = writer.Finish();
    ASSERT_EQ(EndOfMoov(file), head.Size());
    Bytes expected = head;
    const auto patch = [&](const std::string& box, size_t v0, size_t v1, uint64_t value) {
      const size_t at = PlaceOf(head, box).offset + (version == 0 ? v0 : v1);
      expected.Patch(at, value, version == 0 ? 4 : 8);
    };
    const uint64_t end = 0xFFFFFFFF - 500;
    patch("moov/mvhd", 24, 32, end);
    patch("moov/mvex/mehd", 12, 12, end);
    patch("moov/trak/tkhd", 28, 36, end);
    patch("moov/trak/mdia/mdhd", 24, 32, end);
    patch("moov/trak/edts/elst", 16, 16, end);
    EXPECT_EQ(Cut(file, head.Size()), expected);
    EXPECT_EQ(MediaOf(file, 0), (std::vector<Bytes>{Pattern(3), Pattern(4)}));
  }
}

TEST(K7RAppendForeign, ADurationThatDoesNotFitIsTheLargestThatDoes) {
  const Bytes head = HeadOf(MovieOf(0));
  OpenedK7RWriter writer(head);
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  writer.Add(tracks[0], 500, kKey);
  writer.Add(tracks[0], 500 + uint64_t{0xFFFFFFFF}, kKey);
  writer.Add(tracks[0], 500 + 2 * uint64_t{0xFFFFFFFF}, kKey);
  const Bytes file = writer.Finish();
  for (const auto& [box, offset] :
       std::vector<std::pair<std::string, size_t>>{{"moov/mvhd", 24},
                                                   {"moov/mvex/mehd", 12},
                                                   {"moov/trak/tkhd", 28},
                                                   {"moov/trak/mdia/mdhd", 24},
                                                   {"moov/trak/edts/elst", 16}}) {
    EXPECT_EQ(NumberIn(file, box, offset), 0xFFFFFFFFu) << box;
  }
}

TEST(K7RAppendForeign, WhatAFileLacksHasItsCode) {
  EXPECT_EQ(ResultOf({}), 6u);
  EXPECT_EQ(ResultOf(Box("ftyp", Ftyp{})), 6u);
  EXPECT_EQ(ResultOf(Box("ftyp", Ftyp{}) + Box("free") + Pattern(3)), 6u);
  Movie movie = MovieOf(1);
  movie.moreInMoov = {};
  EXPECT_EQ(ResultOf(HeadOf(movie)), 2048u);
  for (const size_t track : {0u, 1u}) {
    movie = MovieOf(1);
    movie.tracks[track].replace["edts"] = {};
    EXPECT_EQ(ResultOf(HeadOf(movie)), 2050u);
    movie.tracks[track].replace["edts"] = Box("edts", Box("free"));
    EXPECT_EQ(ResultOf(HeadOf(movie)), 2051u);
    movie.moreInMoov = {};
    EXPECT_EQ(ResultOf(HeadOf(movie)), 2048u);  // Comes first.
  }
  movie = MovieOf(1);
  movie.tracks[0].replace["tkhd"] = {};
  EXPECT_EQ(ResultOf(HeadOf(movie)), 14u);
}

TEST(K7RAppendForeign, TracksThatAreNotNumberedInOrderAreRefused) {
  for (const uint32_t id : {0u, 2u, 7u}) {
    Movie movie = MovieOf(1);
    movie.tracks[0].replace["tkhd"] = FullBox("tkhd", 1, 7, Tkhd{.trackId = id});
    EXPECT_EQ(ResultOf(HeadOf(movie)), 1283u);
  }
}

TEST(K7RAppendForeign, AnEmptyEditListGetsItsFirstEntry) {
  Movie movie = MovieOf(0);
  movie.tracks[0].replace["edts"] = Box("edts", FullBox("elst", 0, 0, Elst{}, Bytes().Fill(36)));
  OpenedK7RWriter writer(HeadOf(movie));
  ASSERT_EQ(writer.Result(), 0u);
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  writer.Add(tracks[0], 500, kKey);
  writer.Add(tracks[0], 600, kKey);
  const Bytes file = writer.Finish();
  EXPECT_EQ(FindBox(file, "moov/trak/edts/elst"),
            FullBox("elst", 0, 0, Elst{.entries = {{101, 0}}}, Bytes().Fill(24)));
}

TEST(K7RAppendForeign, AnEditListOfOddLengthHasNoRoomButKeepsItsEntry) {
  Movie movie = MovieOf(0);
  movie.tracks[0].replace["edts"] =
      Box("edts", FullBox("elst", 0, 0, Elst{.entries = {{0, 0}}}, Bytes().Fill(18, 0xEE)));
  OpenedK7RWriter writer(HeadOf(movie));
  ASSERT_EQ(writer.Result(), 0u);
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  writer.Add(tracks[0], 500, kKey);
  writer.Add(tracks[0], 600, kKey);
  writer.Flush();
  EXPECT_EQ(FindBox(writer.File(), "moov/trak/edts/elst"),
            FullBox("elst", 0, 0, Elst{.entries = {{101, 0}}}, Bytes().Fill(18, 0xEE)));
  writer.StartFragment();
  writer.Add(tracks[0], 700, kGap);
  EXPECT_EQ(writer.TryAdd(tracks[0], {.time = 800}), 16u);
}

TEST(K7RAppendForeign, TablesOfTheMovieBoxStayAsTheyAre) {
  Movie movie = MovieOf(1);
  movie.tracks[0].samples = SomeSamples(5);
  const Bytes file = BuildMovie(movie).bytes;  // With its 'mdat', which is no fragment.
  OpenedK7RWriter writer(Cut(file, EndOfMoov(file)));
  ASSERT_EQ(writer.Result(), 0u);
  writer.StartFragment();
  writer.Add(writer.DescribedTracks()[0], 500, kKey);
  const Bytes after = writer.Finish();
  EXPECT_EQ(FindBox(after, "moov/trak/mdia/minf"), FindBox(file, "moov/trak/mdia/minf"));
}

TEST(K7RAppendForeign, FreeSpaceAmongTheDescriptionsIsNotTakenForEntries) {
  Movie movie = MovieOf(1);
  const Bytes first = VideoEntry("avc1");
  const Bytes second = VideoEntry("abcd");
  movie.tracks[0].replace["stsd"] = FullBox(
      "stsd", 0, 0, Stsd{.entries = {first, Box("free", Pattern(20)), second}}, Bytes().Fill(100));
  OpenedK7RWriter writer(HeadOf(movie));
  ASSERT_EQ(writer.Result(), 0u);
  const auto tracks = writer.DescribedTracks();
  ASSERT_EQ(DescriptorsOf(tracks[0]).size(), 2u);
  writer.Describe(tracks[0], "efgh");
  const Bytes stsd = FindBox(writer.File(), "moov/trak/mdia/minf/stbl/stsd");
  EXPECT_EQ(stsd.Slice(16, first.Size()), first);
  EXPECT_EQ(stsd.Slice(16 + first.Size() + 28, second.Size()), second);
  EXPECT_EQ(stsd.NumberAt(16 + first.Size() + 28 + second.Size() + 4), Code("efgh"));
}

TEST(K7RAppendForeign, WithoutRoomInTheDescriptionsNoneIsAdded) {
  OpenedK7RWriter writer(HeadOf(MovieOf(1)));
  EXPECT_EQ(writer.TryDescribe(writer.DescribedTracks()[0], "efgh", {}), 15u);
  EXPECT_TRUE(writer.IsGood());
}

TEST(K7RAppendForeign, TimeScalesOfZeroDoNoHarm) {
  for (const bool isMovie : {false, true}) {
    Movie movie = MovieOf(1);
    if (isMovie) {
      movie.replace["mvhd"] = FullBox("mvhd", 1, 0, Mvhd{.timeScale = 0});
    } else {
      movie.tracks[0].replace["mdhd"] = FullBox("mdhd", 1, 0, Mdhd{.timeScale = 0});
    }
    OpenedK7RWriter writer(HeadOf(movie));
    EXPECT_EQ(writer.Result(), 0u);
    const auto tracks = writer.DescribedTracks();
    writer.StartFragment();
    writer.TryAdd(tracks[0], {.time = 500, .flags = kKey, .timeScale = 1000});
    writer.Finish();
  }
}

/// The time origin that the file gives, by what is refused.
void ExpectTimeOrigin(const Movie& movie, uint64_t origin) {
  OpenedK7RWriter writer(HeadOf(movie));
  ASSERT_EQ(writer.Result(), 0u);
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(tracks[0], {.time = origin - 1}), 1280u);
  EXPECT_EQ(writer.TryAdd(tracks[0], {.time = origin}), 0u);
}

TEST(K7RAppendForeign, TheVorpEntryNeedNotBeTheFirst) {
  Movie movie = MovieOf(1);
  const Bytes other = VorpEntry("abcd", {.codecHeader = VorpExtension(7)});
  const Bytes vorp = VorpEntry("vorp", {.codecHeader = VorpExtension(300)});
  const Bytes second = VorpEntry("vorp", {.codecHeader = VorpExtension(900)});
  movie.tracks[1].descriptions = {other, vorp, second};
  ExpectTimeOrigin(movie, 300);
  movie.tracks[1].descriptions = {other};
  OpenedK7RWriter writer(HeadOf(movie));
  EXPECT_EQ(writer.TryAdd(writer.DescribedTracks()[0], {.time = 300}), 1290u);
}

TEST(K7RAppendForeign, OfTwoHintTracksTheFirstTellsTheTimeOrigin) {
  Movie movie = MovieOf(1, {"vide", "hint", "hint"});
  movie.tracks[2].descriptions = {VorpEntry("vorp", {.codecHeader = VorpExtension(900)})};
  ExpectTimeOrigin(movie, 500);
  movie.tracks[1].descriptions = {VorpEntry("abcd", {})};
  OpenedK7RWriter writer(HeadOf(movie));
  EXPECT_EQ(writer.TryAdd(writer.DescribedTracks()[0], {.time = 900}), 1290u);
  EXPECT_EQ(writer.TryAddHintTrack({.mediaType = "hint", .flags = 0}, {}), 1539u);
}

/// A recording of two fragments with the first one in front of the movie box.
Bytes WithAFragmentInFront() {
  const Recording recording = Record(2);
  const BoxPlace moov = PlaceOf(recording.file, "moov");
  const size_t size = recording.ends[0] - recording.starts[0];
  Bytes front = recording.file.Slice(recording.starts[0], size);
  for (const char* tfhd : {"moof/traf/tfhd", "moof/traf#2/tfhd", "moof/traf#3/tfhd"}) {
    front.Patch(PlaceOf(front, tfhd).offset + 16, NumberIn(front, tfhd, 16, 8) - moov.size, 8);
  }
  return Cut(recording.file, moov.offset) + front + recording.file.Slice(moov.offset, moov.size) +
         recording.file.Slice(recording.starts[1], recording.file.Size() - recording.starts[1]);
}

uint32_t SampleCountOf(QiroK7MTrack* track) {
  uint32_t count = 0;
  EXPECT_EQ(QiroK7MTrackGetSampleCount(track, &count), 0u);
  return count;
}

TEST(K7RAppendForeign, FragmentsInFrontOfTheMovieBoxAreContinued) {
  const Bytes original = WithAFragmentInFront();
  ExpectFragmentsReadBack(original, {0, 1});
  OpenedK7RWriter writer(original);
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.LastFragment(), PlaceOf(original, "afra#2").offset);
  EXPECT_EQ(writer.File(), original);
  const auto tracks = writer.DescribedTracks();
  AddFragment(writer, tracks, 2);
  writer.Flush();
  EXPECT_EQ(SampleCountOf(tracks[0]), 6u);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "moof#3/mfhd", 12), 3u);
  ExpectFragmentsReadBack(file, {0, 1, 2});
}

TEST(K7RAppendForeign, FragmentsInFrontOfTheMovieBoxAreKeptWhateverTheLimitIs) {
  const Bytes original = WithAFragmentInFront();
  OpenedK7RWriter writer(original, 0);
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.LastFragment(), 0u);
  EXPECT_EQ(writer.File().Size(), EndOfMoov(original));
  EXPECT_EQ(NumberIn(writer.File(), "moov/mvhd", 32, 8), 100u);
  const auto tracks = writer.DescribedTracks();
  EXPECT_EQ(SampleCountOf(tracks[0]), 2u);
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(tracks[0], {.time = Recording::kTimeOrigin + 99}), 1280u);
  AddFragment(writer, tracks, 7);
  writer.Flush();
  EXPECT_EQ(SampleCountOf(tracks[0]), 4u);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "moof#2/mfhd", 12), 2u);
  ExpectFragmentsReadBack(file, {0, 7});
  OpenedReader reader(file);
  QiroK7MTrack* video = reader.TrackAt(0);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader.Handle(), &video, 1, &iterator), 0u);
  EXPECT_EQ(TimeStamps(Drain(iterator, false)), (std::vector<uint64_t>{0, 40, 100, 700, 740}));
}

// So is that of a table of durations. Where the bytes behind it were 0, and the begin of a new
// fragment takes their place, the movie box cannot be read any more.
TEST(K7RAppendForeign, ACountThatReachesIntoWhatIsCutOffIsReadFromTheNewFragment) {
  Bytes file = Record(0).file;
  const size_t moov = PlaceOf(file, "moov").offset;
  const Bytes table = LyingFullBox("stts", 12, 0, 0);
  file = file.Slice(0, PlaceOf(file, "moov").offset + PlaceOf(file, "moov").size);
  file.Patch(moov, file.Size() - moov + table.Size());
  file.Append(table).Fill(8);
  EXPECT_EQ(OpenResult(file), 0u);
  OpenedK7RWriter writer(file);
  ASSERT_EQ(writer.Result(), 0u);
  AddFragment(writer, writer.DescribedTracks(), 1);
  EXPECT_EQ(OpenResult(writer.Finish()), kQiroK7MErrorBoxTruncated);
}

/// Of asking how many samples the first track has, for which all fragments are read.
QiroK7MError ResultOfCounting(const Bytes& file) {
  OpenedReader reader(file);
  uint32_t count = 0;
  return QiroK7MTrackGetSampleCount(reader.TrackAt(0), &count);
}

// The entry count of a chunk map deliberately is read without a look at the box's end, so that one
// without room for it is kept but needs a byte of what is cut off.
TEST(K7RAppendForeign, ACountThatReachesIntoWhatIsCutOffIsReadAgainBehindANewFragment) {
  const Bytes shortMap = LyingFullBox("stsc", 15, 0, 0, Bytes().Fill(3));
  const Bytes original = Record(1).file + shortMap;
  OpenedK7RWriter writer(original + Bytes{0});
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.File(), original);
  EXPECT_EQ(ResultOfCounting(original), kQiroK7MErrorReadFailed);
  AddFragment(writer, writer.DescribedTracks(), 1);
  ExpectFragmentsReadBack(writer.Finish(), {0, 1});
}

// A description may end behind its list, which then ends there, but not behind the file.
TEST(K7RAppendForeign, ADescriptionThatEndsInWhatIsCutOffIsReadAgainBehindANewFragment) {
  const Bytes file = Record(1).file;
  Bytes media = FindBox(file, "moov/trak/mdia");
  const size_t stsd = PlaceOf(media, "mdia/minf/stbl/stsd").offset;
  const size_t second = stsd + 16 + static_cast<size_t>(media.NumberAt(stsd + 16));
  media.Patch(stsd + 12, 2);
  media.Patch(second, media.Size() + 50 - second);
  const Bytes original = file + media;
  const Bytes rest = Box("mdat", Pattern(100));
  EXPECT_EQ(ResultOfCounting(original), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(ResultOfCounting(original + rest), 0u);
  OpenedK7RWriter writer(original + rest);
  ASSERT_EQ(writer.Result(), 0u);
  EXPECT_EQ(writer.File(), original);
  AddFragment(writer, writer.DescribedTracks(), 1);
  ExpectFragmentsReadBack(writer.Finish(), {0, 1});
}

}  // namespace
}  // namespace k7mtest

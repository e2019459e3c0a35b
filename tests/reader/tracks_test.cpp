// Tracks, their records and their sample descriptors.
#include <gtest/gtest.h>

#include <cstring>

#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

Movie MovieOf(const Track& track) {
  Movie movie;
  movie.tracks.push_back(track);
  return movie;
}

Movie ThreeTracks() {
  Movie movie;
  movie.tracks.push_back({.handler = "soun", .samples = SomeSamples(1)});
  movie.tracks.push_back({.handler = "text", .samples = SomeSamples(2)});
  movie.tracks.push_back({.handler = "vide", .samples = SomeSamples(3)});
  return movie;
}

std::vector<uint32_t> MediaTypesOf(const std::vector<QiroK7MTrack*>& tracks) {
  std::vector<uint32_t> types;
  for (QiroK7MTrack* track : tracks) types.push_back(InfoOf(track).mediaType);
  return types;
}

/// The tracks of the given media types.
std::vector<uint32_t> Listed(const OpenedReader& reader, const uint32_t* types, uint32_t count) {
  QiroK7MTrackIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MReaderGetTracksByMediaTypes(reader.Handle(), types, count, &iterator), 0u);
  std::vector<QiroK7MTrack*> tracks;
  for (uint32_t hasMore = 0;
       QiroK7MTrackIteratorHasMoreEntries(iterator, &hasMore) == 0 && hasMore == 1;) {
    tracks.push_back(nullptr);
    EXPECT_EQ(QiroK7MTrackIteratorGetNextEntry(iterator, &tracks.back()), 0u);
  }
  QiroK7MReleaseTrackIterator(iterator);
  return MediaTypesOf(tracks);
}

// Lists
// ---------------------------------------------------------------------------------------------

TEST(Tracks, AreListedInFileOrder) {
  OpenedReader reader(BuildMovie(ThreeTracks()).bytes);
  EXPECT_EQ(MediaTypesOf(reader.Tracks()), (std::vector{Code("soun"), Code("text"), Code("vide")}));
  EXPECT_EQ(reader.Tracks(), reader.Tracks()) << "the handles stay the same";
}

TEST(Tracks, ByMediaTypesStayInFileOrder) {
  OpenedReader reader(BuildMovie(ThreeTracks()).bytes);
  const uint32_t types[] = {Code("vide"), Code("soun"), Code("none"), Code("vide")};
  EXPECT_EQ(Listed(reader, types, 4), (std::vector{Code("soun"), Code("vide")}));
  EXPECT_EQ(Listed(reader, types, 1), std::vector{Code("vide")});
}

TEST(Tracks, ANullArraySelectsAllAndAnEmptyArrayNone) {
  OpenedReader reader(BuildMovie(ThreeTracks()).bytes);
  const uint32_t type = Code("vide");
  EXPECT_EQ(Listed(reader, nullptr, 0).size(), 3u);
  EXPECT_EQ(Listed(reader, nullptr, 7).size(), 3u);
  EXPECT_TRUE(Listed(reader, &type, 0).empty());
}

TEST(Tracks, PastTheEndIsNullAndSuccess) {
  OpenedReader reader(BuildMovie(MovieOf({.samples = SomeSamples(1)})).bytes);
  QiroK7MTrackIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetTracks(reader.Handle(), &iterator), 0u);
  QiroK7MTrack* track = nullptr;
  EXPECT_EQ(QiroK7MTrackIteratorGetNextEntry(iterator, &track), 0u);
  EXPECT_NE(track, nullptr);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(QiroK7MTrackIteratorGetNextEntry(iterator, &track), 0u);
    EXPECT_EQ(track, nullptr);
  }
  uint32_t hasMore = 77;
  EXPECT_EQ(QiroK7MTrackIteratorHasMoreEntries(iterator, &hasMore), 0u);
  EXPECT_EQ(hasMore, 0u);
  QiroK7MReleaseTrackIterator(iterator);
}

// The track record
// ----------------------------------------------------------------------------------

TEST(TrackInfo, ComesFromThreeBoxes) {
  for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
    Track track{.handler = "vide", .samples = SomeSamples(2)};
    track.replace["tkhd"] = FullBox("tkhd", version, 0xABCDEF,
                                    Tkhd{.creationTime = 61,
                                         .modificationTime = 86400,
                                         .duration = 1000,
                                         .volume = 0x0180,
                                         .width = 320u << 16 | 0x8000,
                                         .height = 240u << 16});
    // 'eng' packed in five bits each.
    track.replace["mdhd"] = FullBox("mdhd", version, 0,
                                    Mdhd{.creationTime = 9,
                                         .timeScale = 48000,
                                         .duration = 5,
                                         .language = (5 << 10) | (14 << 5) | 7});
    Movie movie = MovieOf(track);
    movie.timeScale = 600;
    const QiroK7MTrackInfo info = InfoOf(OpenedReader(BuildMovie(movie).bytes).TrackAt(0));
    EXPECT_EQ(info.size, 72u);
    EXPECT_EQ(info.mediaType, Code("vide"));
    EXPECT_EQ(info.flags, 0xABCDEFu);
    EXPECT_EQ(info.timeScale, 48000u);
    EXPECT_EQ(info.creationTime.minute, 1);
    EXPECT_EQ(info.creationTime.second, 1);
    EXPECT_EQ(info.modificationTime.day, 2);
    EXPECT_EQ(info.duration, 80000u) << "1000/600 s in the track's scale";
    EXPECT_EQ(info.width, 320.5f);
    EXPECT_EQ(info.height, 240.0f);
    EXPECT_EQ(info.volume, 1.5f);
    EXPECT_STREQ(info.language, "eng");
    EXPECT_EQ(info.trackFlags, 0u);
  }
}

TEST(TrackInfo, TrackFlagTellsOfADependencyTable) {
  Track track{.samples = SomeSamples(2)};
  track.hasSdtp = true;
  EXPECT_EQ(InfoOf(OpenedReader(BuildMovie(MovieOf(track)).bytes).TrackAt(0)).trackFlags, 1u);
}

TEST(TrackInfo, UnknownMediaTypesArePassedThrough) {
  const Movie movie = MovieOf({.handler = "xyz!", .samples = SomeSamples(1)});
  EXPECT_EQ(InfoOf(OpenedReader(BuildMovie(movie).bytes).TrackAt(0)).mediaType, Code("xyz!"));
}

TEST(TrackInfo, AScaleOf0InTheFileGivesDuration0) {
  Movie noMovieScale = MovieOf({.samples = SomeSamples(2), .duration = 100});
  noMovieScale.timeScale = 0;
  EXPECT_EQ(InfoOf(OpenedReader(BuildMovie(noMovieScale).bytes).TrackAt(0)).duration, 0u);
  const Movie noTrackScale = MovieOf({.timeScale = 0, .samples = SomeSamples(2), .duration = 100});
  EXPECT_EQ(InfoOf(OpenedReader(BuildMovie(noTrackScale).bytes).TrackAt(0)).duration, 0u);
}

TEST(HandlerName, IsCopiedWithItsStoredLength) {
  const auto nameOf = [](const std::string& name) {
    OpenedReader reader(
        BuildMovie(MovieOf({.handlerName = name, .samples = SomeSamples(1)})).bytes);
    QiroK7MTrack* track = reader.TrackAt(0);
    Bytes buffer = Bytes().Fill(16, 0xEE);
    EXPECT_EQ(QiroK7MReaderCopyHandlerName(track, buffer.Data()), 0u);
    EXPECT_EQ(buffer[InfoOf(track).handlerNameLength], 0xEE) << "nothing is written behind it";
    return Cut(buffer, InfoOf(track).handlerNameLength);
  };
  EXPECT_EQ(nameOf(std::string("video\0", 6)), Bytes().Text("video").U8(0));
  EXPECT_EQ(nameOf("video"), Bytes().Text("video").U8(0)) << "a missing terminator is added";
  EXPECT_EQ(nameOf(std::string("\0", 1)), Bytes().U8(0));
  EXPECT_EQ(nameOf(""), Bytes());
  EXPECT_EQ(nameOf(std::string("a\0b\0", 4)), Bytes().Text("a").U8(0).Text("b").U8(0));
}

TEST(TrackEntriesInfo, CountsDescriptionsAndGaps) {
  Track track{.samples = SomeSamples(2)};
  track.descriptions = {VideoEntry("avc1", {.codecHeader = Bytes().Fill(12)}),
                        VideoEntry("hvc1", {.codecHeader = Bytes().Fill(30)}), VideoEntry("mp4v")};
  track.edits = {{.segmentDuration = 1, .mediaTime = -1},
                 {.segmentDuration = 5},
                 {.segmentDuration = 2, .mediaTime = -1}};
  const QiroK7MTrackEntriesInfo info =
      EntriesOf(OpenedReader(BuildMovie(MovieOf(track)).bytes).TrackAt(0));
  EXPECT_EQ(info.size, 16u);
  EXPECT_EQ(info.sampleDescriptorCount, 3u);
  EXPECT_EQ(info.gapCount, 2u);
  EXPECT_EQ(info.maxCodecHeaderDataLength, 30u);
}

TEST(SampleCount, IsThatOfTheSizeTable) {
  Track track{.samples = SomeSamples(4)};
  track.replace["stsz"] = FullBox("stsz", 0, 0, Stsz{512, {}, 1000});
  OpenedReader reader(BuildMovie(MovieOf(track)).bytes);
  uint32_t count = 0;
  EXPECT_EQ(QiroK7MTrackGetSampleCount(reader.TrackAt(0), &count), 0u);
  const uint64_t calls = reader.Stream().Count(Call::kAny);
  EXPECT_EQ(QiroK7MTrackGetSampleCount(reader.TrackAt(0), &count), 0u);
  EXPECT_EQ(count, 1000u);
  EXPECT_EQ(reader.Stream().Count(Call::kAny), calls) << "a plain document is not parsed on";
}

TEST(SampleCount, OfAFragmentedDocumentIsThatOfTheTableAndOfAllFragments) {
  const auto run = [](size_t samples) {
    return FullBox("trun", 0, 0x100, Trun{.samples = {samples, {.duration = 10}}});
  };
  const auto traf = [](uint32_t trackId, const Bytes& runs) {
    return Box("traf", FullBox("tfhd", 0, 0, Tfhd{.trackId = trackId}) + runs);
  };
  const Bytes header = FullBox("mfhd", 0, 0, Mfhd{});
  Movie movie = MovieOf({.samples = SomeSamples(4)});
  movie.tracks.push_back({.handler = "soun", .samples = SomeSamples(1)});
  movie.moreInMoov = Box("mvex", FullBox("trex", 0, 0, Trex{.trackId = 1}) +
                                     FullBox("trex", 0, 0, Trex{.trackId = 2}));
  movie.atEnd = Box("moof", header + traf(1, run(2) + run(3)) + traf(2, run(7))) +
                Box("moof", header + traf(2, run(1))) +
                Box("moof", header + traf(1, run(5)) + traf(1, run(6)));
  OpenedReader reader(BuildMovie(movie).bytes);
  uint32_t count = 0;
  EXPECT_EQ(QiroK7MTrackGetSampleCount(reader.TrackAt(0), &count), 0u);
  EXPECT_EQ(count, 4u + 2 + 3 + 5 + 6);
  EXPECT_EQ(QiroK7MTrackGetSampleCount(reader.TrackAt(1), &count), 0u);
  EXPECT_EQ(count, 1u + 7 + 1);
}

TEST(Edits, AreShownAsTheyStandInTheFile) {
  Track track{.samples = SomeSamples(4)};
  track.edits = {{.segmentDuration = 7, .mediaTime = -1},
                 {.segmentDuration = 1ull << 40, .mediaTime = 1ll << 35},
                 {.segmentDuration = 9, .mediaTime = 3, .rateInteger = 0},
                 {.segmentDuration = 9, .mediaTime = 3, .rateInteger = 0, .rateFraction = 5}};
  OpenedReader reader(BuildMovie(MovieOf(track)).bytes);
  QiroK7MTrack* handle = reader.TrackAt(0);
  uint32_t count = 0;
  EXPECT_EQ(QiroK7MTrackGetEditCount(handle, &count), 0u);
  ASSERT_EQ(count, 4u);
  const uint32_t rates[] = {1, 1, 0, 1};
  for (uint32_t i = 0; i < count; ++i) {
    QiroK7MEdit edit{};
    ASSERT_EQ(QiroK7MTrackGetEdit(handle, i, &edit), 0u);
    EXPECT_EQ(edit.size, 24u);
    EXPECT_EQ(edit.segmentDuration, track.edits[i].segmentDuration);
    EXPECT_EQ(edit.mediaTime, track.edits[i].mediaTime);
    EXPECT_EQ(edit.rate, rates[i]) << "0 only for a rate of exactly zero";
  }
  QiroK7MEdit edit{};
  EXPECT_EQ(QiroK7MTrackGetEdit(handle, 4, &edit), kQiroK7MErrorInvalidArgument);
  EXPECT_EQ(edit.size, 0u);
}

TEST(Edits, ATrackWithoutAListHasNone) {
  OpenedReader reader(BuildMovie(MovieOf({.samples = SomeSamples(1)})).bytes);
  uint32_t count = 77;
  EXPECT_EQ(QiroK7MTrackGetEditCount(reader.TrackAt(0), &count), 0u);
  EXPECT_EQ(count, 0u);
  QiroK7MEdit edit{};
  EXPECT_EQ(QiroK7MTrackGetEdit(reader.TrackAt(0), 0, &edit), kQiroK7MErrorInvalidArgument);
}

TEST(Edits, AMediaTimeOfAllOnesIsAGapInBothVersions) {
  for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
    Track track{.samples = SomeSamples(1)};
    track.replace["edts"] =
        Box("edts", FullBox("elst", version, 0, Elst{.entries = {{.mediaTime = -1}}}));
    const Movie movie = MovieOf(track);
    EXPECT_EQ(EntriesOf(OpenedReader(BuildMovie(movie).bytes).TrackAt(0)).gapCount, 1u);
  }
}

// Sample descriptors
// --------------------------------------------------------------------------------

Bytes CodecHeaderOf(QiroK7MSampleDescriptor* descriptor) {
  QiroK7MSampleDescInfo info{};
  EXPECT_EQ(QiroK7MSampleDescriptorGetInfo(descriptor, &info), 0u);
  Bytes header = Bytes().Fill(info.codecHeaderDataLength + size_t{1}, 0xEE);
  EXPECT_EQ(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, header.Data()), 0u);
  EXPECT_EQ(header[info.codecHeaderDataLength], 0xEE);
  return Cut(header, info.codecHeaderDataLength);
}

struct OneDescriptor {
  explicit OneDescriptor(const char* handler, const Bytes& entry)
      : reader(
            BuildMovie(
                MovieOf({.handler = handler, .samples = SomeSamples(1), .descriptions = {entry}}))
                .bytes),
        handle(DescriptorsOf(reader.TrackAt(0)).at(0)) {
    EXPECT_EQ(QiroK7MSampleDescriptorGetInfo(handle, &info), 0u);
  }
  OpenedReader reader;
  QiroK7MSampleDescriptor* handle;
  QiroK7MSampleDescInfo info{};
};

TEST(Descriptors, VideoRecord) {
  const Bytes header = Box("avcC", Pattern(20));
  const OneDescriptor one("vide", VideoEntry("avc1", {.width = 640,
                                                      .height = 360,
                                                      .horizontalResolution = 72u << 16 | 0x4000,
                                                      .verticalResolution = 96u << 16,
                                                      .frameCount = 3,
                                                      .compressorName = "name",
                                                      .depth = 32,
                                                      .codecHeader = header}));
  EXPECT_EQ(one.info.size, 16u);
  EXPECT_EQ(one.info.type, Code("avc1"));
  EXPECT_EQ(one.info.codecHeaderDataLength, 28u);
  EXPECT_TRUE(one.info.mediaType == 0 || one.info.mediaType == Code("vide"));
  EXPECT_EQ(CodecHeaderOf(one.handle), header) << "child boxes are kept with their headers";
  QiroK7MVideoSampleDescInfo video{};
  EXPECT_EQ(QiroK7MSampleDescriptorGetVideoInfo(one.handle, &video), 0u);
  EXPECT_EQ(video.size, 28u);
  EXPECT_EQ(video.width, 640u);
  EXPECT_EQ(video.height, 360u);
  EXPECT_EQ(video.horizontalResolution, 72.25f);
  EXPECT_EQ(video.verticalResolution, 96.0f);
  EXPECT_EQ(video.frameCount, 3u);
  EXPECT_EQ(video.depth, 32u);
}

TEST(Descriptors, AudioRecord) {
  const OneDescriptor one("soun", AudioEntry("mp4a", {.channelCount = 6,
                                                      .sampleSize = 24,
                                                      .sampleRate = 44100u << 16 | 0x8000,
                                                      .codecHeader = Pattern(5)}));
  EXPECT_EQ(CodecHeaderOf(one.handle), Pattern(5));
  QiroK7MAudioSampleDescInfo audio{};
  EXPECT_EQ(QiroK7MSampleDescriptorGetAudioInfo(one.handle, &audio), 0u);
  EXPECT_EQ(audio.size, 12u);
  EXPECT_EQ(audio.sampleRate, 44100.5f);
  EXPECT_EQ(audio.channelCount, 6u);
  EXPECT_EQ(audio.sampleSize, 24u);
}

TEST(Descriptors, VorpRecord) {
  const OneDescriptor one("hint", VorpEntry("vorp", {.hintTrackVersion = 3,
                                                     .highestCompatibleVersion = 2,
                                                     .maxPacketSize = 1234}));
  EXPECT_EQ(one.info.type, Code("vorp"));
  EXPECT_EQ(CodecHeaderOf(one.handle), Bytes());
  QiroK7MVorpSampleDescInfo vorp{};
  EXPECT_EQ(QiroK7MSampleDescriptorGetVorpInfo(one.handle, &vorp), 0u);
  EXPECT_EQ(vorp.size, 12u);
  EXPECT_EQ(vorp.hintTrackVersion, 3u);
  EXPECT_EQ(vorp.highestCompatibleVersion, 2u);
  EXPECT_EQ(vorp.maxPacketSize, 1234u);
}

TEST(Descriptors, OfOtherMediaKeepAllBehindTheCommonFields) {
  const OneDescriptor one("text", OtherEntry("tx3g", {.codecHeader = Pattern(17)}));
  EXPECT_EQ(one.info.type, Code("tx3g"));
  EXPECT_EQ(CodecHeaderOf(one.handle), Pattern(17));
}

TEST(Descriptors, TheTracksMediaTypeDecidesNotTheirOwnCode) {
  const OneDescriptor one("soun", AudioEntry("avc1", {.channelCount = 7}));
  QiroK7MAudioSampleDescInfo audio{};
  EXPECT_EQ(QiroK7MSampleDescriptorGetAudioInfo(one.handle, &audio), 0u);
  EXPECT_EQ(audio.channelCount, 7u);
}

TEST(Descriptors, GettersOfTheWrongKindDoNoHarm) {
  for (const char* handler : {"vide", "soun", "hint", "text"}) {
    const std::string kind(handler);
    const OneDescriptor one(handler, kind == "vide"   ? VideoEntry()
                                     : kind == "soun" ? AudioEntry()
                                     : kind == "hint" ? VorpEntry()
                                                      : OtherEntry());
    QiroK7MVideoSampleDescInfo video{};
    QiroK7MAudioSampleDescInfo audio{};
    QiroK7MVorpSampleDescInfo vorp{};
    EXPECT_EQ(QiroK7MSampleDescriptorGetVideoInfo(one.handle, &video), 0u);
    EXPECT_EQ(QiroK7MSampleDescriptorGetAudioInfo(one.handle, &audio), 0u);
    EXPECT_EQ(QiroK7MSampleDescriptorGetVorpInfo(one.handle, &vorp), 0u);
  }
}

TEST(Descriptors, FreeSpaceAmongThemUsesUpACountedPlace) {
  Track track{.samples = SomeSamples(1)};
  track.replace["stsd"] =
      FullBox("stsd", 0, 0, Stsd{.entries = {VideoEntry("avc1"), Box("free"), VideoEntry("hvc1")}});
  OpenedReader reader(BuildMovie(MovieOf(track)).bytes);
  EXPECT_EQ(DescriptorsOf(reader.TrackAt(0)).size(), 2u);
  EXPECT_EQ(reader.Warnings().Seen(), std::vector<QiroK7MError>{kQiroK7MWarningSampleEntryCount});
  EXPECT_EQ(EntriesOf(reader.TrackAt(0)).sampleDescriptorCount, 2u);
}

TEST(Descriptors, PastTheEndIsNullAndSuccess) {
  const OneDescriptor one("vide", VideoEntry());
  QiroK7MSampleDescriptorIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MTrackGetSampleDescriptors(one.reader.TrackAt(0), &iterator), 0u);
  QiroK7MSampleDescriptor* descriptor = nullptr;
  uint32_t hasMore = 77;
  EXPECT_EQ(QiroK7MSampleDescriptorIteratorHasMoreEntries(iterator, &hasMore), 0u);
  EXPECT_EQ(hasMore, 1u);
  EXPECT_EQ(QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor), 0u);
  EXPECT_EQ(descriptor, one.handle);
  EXPECT_EQ(QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor), 0u);
  EXPECT_EQ(descriptor, nullptr);
  EXPECT_EQ(QiroK7MSampleDescriptorIteratorHasMoreEntries(iterator, &hasMore), 0u);
  EXPECT_EQ(hasMore, 0u);
  QiroK7MReleaseSampleDescriptorIterator(iterator);
}

}  // namespace
}  // namespace k7mtest

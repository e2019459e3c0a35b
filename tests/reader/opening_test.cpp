// Opening: what is read and when, what is refused, what a document says about itself.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

Movie OneTrack() {
  Movie movie;
  movie.tracks.push_back({.samples = SomeSamples(3)});
  return movie;
}

Bytes Moof() { return Box("moof", FullBox("mfhd", 0, 0, Mfhd{})); }
Bytes Metadata(const Bytes& packet) { return UuidBox(kMetadataUuid, packet); }

uint32_t MetadataLength(const OpenedReader& reader, QiroK7MError expected = 0) {
  uint32_t length = 77;
  EXPECT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length), expected);
  return length;
}

// The type test
// -------------------------------------------------------------------------------------

uint32_t IsK7M(const Bytes& file) {
  MemoryStream stream(file);
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MAllocatorCallBacks memory;
  uint32_t answer = 77;
  EXPECT_EQ(QiroK7MDocIsK7M(&record, &memory, &answer), 0u);
  EXPECT_EQ(stream.Count(Call::kOpen), 1u);
  EXPECT_EQ(stream.Count(Call::kClose), 1u);
  return answer;
}

TEST(TypeTest, AcceptsThreeFirstBoxesAndNoOther) {
  for (const char* code : {"ftyp", "moov", "mdat"}) EXPECT_EQ(IsK7M(Box(code)), 1u) << code;
  for (const char* code : {"free", "skip", "uuid", "moof", "styp", "sidx"}) {
    EXPECT_EQ(IsK7M(Box(code)), 0u) << code;
  }
}

TEST(TypeTest, FewerThanEightBytesAreNoDocument) {
  for (size_t size = 0; size < 8; ++size) EXPECT_EQ(IsK7M(Cut(Box("ftyp", Ftyp{}), size)), 0u);
  EXPECT_EQ(IsK7M(Cut(Box("ftyp", Ftyp{}), 8)), 1u);
}

TEST(TypeTest, DoesNotLookAtTheSize) { EXPECT_EQ(IsK7M(LyingBox("moov", 3)), 1u); }

TEST(TypeTest, AShortReadBehindTheLengthIsError5) {
  MemoryStream stream(Bytes().U32(8));
  stream.ClaimLength(8);
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MAllocatorCallBacks memory;
  uint32_t answer = 77;
  EXPECT_EQ(QiroK7MDocIsK7M(&record, &memory, &answer), kQiroK7MErrorReadFailed);
  EXPECT_EQ(answer, 77u);
  EXPECT_FALSE(stream.IsOpen());
}

TEST(TypeTest, IsNarrowerThanOpening) {
  const Bytes movie = BuildMovie(OneTrack()).bytes;
  EXPECT_EQ(IsK7M(Box("free") + movie), 0u);
  EXPECT_EQ(OpenResult(Box("free") + movie), 0u);
  EXPECT_EQ(IsK7M(Moof() + movie), 0u);
  EXPECT_EQ(OpenResult(Moof() + movie), 0u);
}

// What is read and when
// -----------------------------------------------------------------------------

/// The end of the last byte that any read delivered.
uint64_t EndOfReading(OpenedReader& reader) {
  uint64_t end = 0;
  for (const CallRecord& call : reader.Stream().Log()) {
    if (call.call == Call::kRead) end = std::max(end, call.offset + call.delivered);
  }
  return end;
}

/// The callbacks of a stream whose `open` leaves the position somewhere in the middle.
QiroK7MIStreamCallBacks OpeningInTheMiddle(MemoryStream& stream) {
  static QiroK7MIStreamCallBacks original;
  original = stream.Reading();
  QiroK7MIStreamCallBacks record = original;
  record.open = [](void* clientData) {
    const QiroK7MError error = original.open(clientData);
    return error != 0 ? error : original.seek(clientData, 12, kQiroK7MSeekFromStart);
  };
  return record;
}

TEST(FirstByte, IsWhereReadingStartsWhereverOpenLeavesThePosition) {
  MemoryStream stream(BuildMovie(OneTrack()).bytes);
  const QiroK7MIStreamCallBacks record = OpeningInTheMiddle(stream);
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks memory;
  uint32_t isK7M = 77;
  EXPECT_EQ(QiroK7MDocIsK7M(&record, &memory, &isK7M), 0u);
  EXPECT_EQ(isK7M, 1u);
  QiroK7MReader* reader = nullptr;
  EXPECT_EQ(QiroK7MDocOpenForRead(&record, &warning, &memory, &reader), 0u);
  QiroK7MCloseReader(reader);
}

TEST(LazyParsing, OpeningStopsAtTheFirstMediaBox) {
  Movie movie = OneTrack();
  movie.atEnd = LyingBox("free", 3);  // Would be refused.
  const MovieFile file = BuildMovie(movie);
  OpenedReader reader(file.bytes);
  ASSERT_EQ(reader.Result(), 0u);
  EXPECT_LE(EndOfReading(reader), file.mdatOffset + 8);
  EXPECT_EQ(MediaSamples(reader, nullptr, false).size(), 3u);
  EXPECT_EQ(AllSamples(reader, false).size(), 3u);
  EXPECT_LE(EndOfReading(reader), file.mdatOffset + 8) << "listing samples read media";
  EXPECT_EQ(MetadataLength(reader, kQiroK7MErrorBoxTruncated), 77u);
  EXPECT_EQ(Data(MediaSamples(reader)).size(), 3u) << "the reader works on";
}

TEST(LazyParsing, MediaBeforeTheMovieAreNotRead) {
  Movie movie = OneTrack();
  movie.tracks[0].samples = {SampleOf(100000)};
  movie.isMovieBoxLast = true;
  OpenedReader reader(BuildMovie(movie).bytes);
  ASSERT_EQ(reader.Result(), 0u);
  EXPECT_LT(reader.Stream().BytesDelivered(), 5000u);
}

TEST(LazyParsing, WithoutMediaTheWholeTopLevelIsParsed) {
  const MovieFile file = BuildMovie(OneTrack());
  const Bytes head = Cut(file.bytes, file.mdatOffset);
  OpenedReader reader(head + Box("free", Bytes().Fill(50)));
  EXPECT_EQ(reader.Result(), 0u);
  EXPECT_EQ(reader.Tracks().size(), 1u);
  EXPECT_EQ(OpenResult(head + LyingBox("free", 3)), kQiroK7MErrorBoxTruncated);
}

TEST(LazyParsing, MediaSamplesWithoutMediaBoxAreReadableEverywhere) {
  const MovieFile file = BuildMovie(OneTrack());
  Bytes bytes = file.bytes;
  bytes.Patch(file.mdatOffset + 4, Code("free"));
  OpenedReader reader(bytes);
  EXPECT_EQ(Data(MediaSamples(reader)), Data(MediaSamples(OpenedReader(file.bytes))));
}

TEST(LazyParsing, AGrowingFileGivesItsLaterBoxes) {
  OpenedReader reader(BuildMovie(OneTrack()).bytes);
  EXPECT_EQ(MetadataLength(reader), 0u);
  reader.Stream().Grow(Metadata(Bytes().Fill(11)));
  EXPECT_EQ(MetadataLength(reader), 11u);
}

// The movie box
// -------------------------------------------------------------------------------------

TEST(MovieBox, MissingIsError6) {
  for (const Bytes& file : {Bytes(), Box("ftyp", Ftyp{}), Box("ftyp", Ftyp{}) + Box("mdat"), Moof(),
                            Moof() + Moof() + Box("mdat"), Bytes().Fill(7)}) {
    EXPECT_EQ(OpenResult(file), kQiroK7MErrorNoMovieBox) << file;
  }
}

TEST(MovieBox, BehindAFragmentIsFoundAhead) {
  Movie movie = OneTrack();
  movie.moreInMoov = Box("mvex", FullBox("trex", 0, 0, Trex{}));
  OpenedReader reader(Moof() + Box("mdat", Bytes().Fill(100)) + BuildMovie(movie).bytes);
  ASSERT_EQ(reader.Result(), 0u);
  QiroK7MDocInfo info{};
  EXPECT_EQ(QiroK7MReaderGetDocInfo(reader.Handle(), &info), 0u);
  EXPECT_EQ(info.isFragmented, 1u);
  EXPECT_EQ(reader.Tracks().size(), 1u);
  EXPECT_EQ(MetadataLength(reader), 0u) << "the one found ahead takes its place";
  EXPECT_EQ(reader.Tracks().size(), 1u);
}

TEST(MovieBox, ASecondOneIsError36WhenItIsMet) {
  const Bytes movie = BuildMovie(OneTrack()).bytes;  // Ends with media, so opening stops there.
  OpenedReader reader(movie + movie);
  ASSERT_EQ(reader.Result(), 0u);
  MetadataLength(reader, kQiroK7MErrorMoovOffsetMismatch);
  OpenedReader ahead(Moof() + movie + movie);
  ASSERT_EQ(ahead.Result(), 0u);
  MetadataLength(ahead, kQiroK7MErrorMoovOffsetMismatch);
  EXPECT_EQ(MediaSamples(ahead).size(), 3u);
}

TEST(MovieBox, OnlyTrakBoxesAreTracks) {
  Movie movie = OneTrack();
  movie.moreInMoov = Box("udta", Bytes().Fill(20)) + Box("free") + Box("skip");
  EXPECT_EQ(OpenedReader(BuildMovie(movie).bytes).Tracks().size(), 1u);
}

TEST(MovieBox, OneToSevenBytesBehindTheChildrenAreIgnoredSilently) {
  for (size_t size = 1; size < 8; ++size) {
    Movie movie = OneTrack();
    movie.moreInMoov = Bytes().Fill(size, 0xFF);
    EXPECT_TRUE(OpenWarnings(BuildMovie(movie).bytes).empty()) << size;
  }
}

TEST(MovieBox, InUuidAndLargeFormIsAMovieBox) {
  const MovieFile file = BuildMovie(OneTrack());
  const Bytes moov = file.bytes.Slice(file.movieOffset, file.mdatOffset - file.movieOffset);
  const Bytes children = moov.Slice(8, moov.Size() - 8);
  EXPECT_EQ(OpenResult(BoxAsUuid("moov", children)), 0u);
  EXPECT_EQ(OpenResult(LargeBox("moov", children)), 0u);
  EXPECT_EQ(OpenResult(TillEndBox("moov", children)), 0u);
}

// The document record
// -------------------------------------------------------------------------------

TEST(DocInfo, ComesFromTheMovieHeader) {
  for (const uint8_t version :
       {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {  // Every version but 0 has the wide layout.
    Movie movie = OneTrack();
    movie.replace["mvhd"] = FullBox("mvhd", version, 0,
                                    Mvhd{.creationTime = 86400 + 3661,
                                         .modificationTime = 0,
                                         .timeScale = 12345,
                                         .duration = 777,
                                         .rate = 0x00018000,
                                         .volume = 0x0080});
    OpenedReader reader(BuildMovie(movie).bytes);
    QiroK7MDocInfo info{};
    ASSERT_EQ(QiroK7MReaderGetDocInfo(reader.Handle(), &info), 0u);
    EXPECT_EQ(info.size, 48u);
    EXPECT_EQ(info.isFragmented, 0u);
    EXPECT_EQ(info.creationTime.year, 1904);
    EXPECT_EQ(info.creationTime.month, 1);
    EXPECT_EQ(info.creationTime.day, 2);
    EXPECT_EQ(info.creationTime.hour, 1);
    EXPECT_EQ(info.creationTime.minute, 1);
    EXPECT_EQ(info.creationTime.second, 1);
    EXPECT_EQ(info.modificationTime.day, 1);
    EXPECT_EQ(info.playRate, 1.5f);
    EXPECT_EQ(info.volume, 0.5f);
    EXPECT_EQ(info.timeScale, 12345u);
    EXPECT_EQ(info.duration, 777u);
  }
}

TEST(DocInfo, AMovieWithoutHeaderIsRefusedBefore) {
  Movie movie = OneTrack();
  movie.replace["mvhd"] = Bytes();
  EXPECT_EQ(OpenResult(BuildMovie(movie).bytes), kQiroK7MErrorInvalidHierarchy);
}

// The metadata box
// ----------------------------------------------------------------------------------

TEST(MetadataPacket, IsTheFirstOneInFileOrder) {
  Movie movie = OneTrack();
  movie.betweenBoxes = Metadata(Bytes{1, 2, 3});
  movie.atEnd = Metadata(Bytes().Fill(9));
  const MovieFile file = BuildMovie(movie);
  OpenedReader reader(file.bytes);
  EXPECT_EQ(MetadataLength(reader), 3u);
  Bytes packet = Bytes().Fill(4, 0xEE);
  EXPECT_EQ(QiroK7MReaderCopyUlbData(reader.Handle(), packet.Data()), 0u);
  EXPECT_EQ(packet, (Bytes{1, 2, 3, 0xEE}));
  EXPECT_LE(EndOfReading(reader), file.mdatOffset + 8) << "nothing had to be parsed for it";
}

TEST(MetadataPacket, IsLookedForOnDemandAndNoFurther) {
  Movie movie = OneTrack();
  movie.atEnd = Box("free") + Metadata(Bytes{1, 2, 3, 4}) + LyingBox("free", 3);
  OpenedReader reader(BuildMovie(movie).bytes);
  Bytes packet = Bytes().Fill(4);
  EXPECT_EQ(QiroK7MReaderCopyUlbData(reader.Handle(), packet.Data()), 0u);
  EXPECT_EQ(packet, (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(MetadataLength(reader), 4u);
}

TEST(MetadataPacket, AbsentOrEmptyCopiesNothing) {
  for (const Bytes& atEnd : {Bytes(), Metadata(Bytes()), UuidBox(Uuid{1, 2, 3}, Bytes().Fill(9))}) {
    Movie movie = OneTrack();
    movie.atEnd = atEnd;
    OpenedReader reader(BuildMovie(movie).bytes);
    EXPECT_EQ(MetadataLength(reader), 0u);
    Bytes packet = Bytes().Fill(4, 0xEE);
    EXPECT_EQ(QiroK7MReaderCopyUlbData(reader.Handle(), packet.Data()), 0u);
    EXPECT_EQ(packet, Bytes().Fill(4, 0xEE));
  }
}

TEST(MetadataPacket, InsideTheMovieBoxIsNotTheDocuments) {
  Movie movie = OneTrack();
  movie.moreInMoov = Metadata(Bytes{1, 2, 3});
  EXPECT_EQ(MetadataLength(OpenedReader(BuildMovie(movie).bytes)), 0u);
}

}  // namespace
}  // namespace k7mtest

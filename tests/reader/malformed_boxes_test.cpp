// Every code and every warning that opening a plain file can give, each with a file that gives it.
#include <gtest/gtest.h>

#include <functional>

#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

using Codes = std::vector<QiroK7MError>;

Movie OneTrack() {
  Movie movie;
  movie.tracks.push_back({.samples = SomeSamples(3)});
  return movie;
}

/// A movie in which boxes of the track are replaced.
Bytes With(const Replacements& replacements) {
  Movie movie = OneTrack();
  movie.tracks[0].replace = replacements;
  return BuildMovie(movie).bytes;
}
Bytes WithInTrak(const Bytes& more) {
  Movie movie = OneTrack();
  movie.tracks[0].moreInTrak = more;
  return BuildMovie(movie).bytes;
}
Bytes WithInMoov(const Bytes& more) {
  Movie movie = OneTrack();
  movie.moreInMoov = more;
  return BuildMovie(movie).bytes;
}

// Mandatory children
// --------------------------------------------------------------------------------

TEST(Hierarchy, AMissingMandatoryChildIsError14) {
  for (const char* code : {"tkhd", "mdia", "mdhd", "hdlr", "minf", "dinf", "stbl", "stsd", "stts",
                           "stsc", "stsz", "stco"}) {
    EXPECT_EQ(OpenResult(With({{code, Bytes()}})), kQiroK7MErrorInvalidHierarchy) << code;
  }
  Movie noTrack;
  EXPECT_EQ(OpenResult(BuildMovie(noTrack).bytes), kQiroK7MErrorInvalidHierarchy);
}

TEST(Hierarchy, ASecondMandatoryChildIsError14) {
  EXPECT_EQ(OpenResult(WithInMoov(FullBox("mvhd", 0, 0, Mvhd{}))), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(OpenResult(WithInTrak(FullBox("tkhd", 0, 0, Tkhd{}))), kQiroK7MErrorInvalidHierarchy);
  Movie movie = OneTrack();
  movie.tracks[0].moreInStbl = FullBox("co64", 0, 0, Co64{});
  EXPECT_EQ(OpenResult(BuildMovie(movie).bytes), kQiroK7MErrorInvalidHierarchy)
      << "'stco' and 'co64' count together";
}

TEST(Hierarchy, IsCheckedBeforeAnyPayload) {
  Movie movie;  // Without a track, and with a header that is too short, which has another code.
  movie.replace["mvhd"] = FullBox("mvhd", 0, 0);
  EXPECT_EQ(OpenResult(BuildMovie(movie).bytes), kQiroK7MErrorInvalidHierarchy);
}

TEST(Hierarchy, ADataInformationBoxMayHoldAUrlInsteadOfAReferenceTable) {
  EXPECT_EQ(OpenResult(With({{"dinf", Box("dinf", FullBox("url ", 0, 1))}})), 0u);
  EXPECT_EQ(OpenResult(With({{"dinf", Box("dinf")}})), kQiroK7MErrorInvalidHierarchy);
}

// Codes
// ---------------------------------------------------------------------------------------------

TEST(MalformedBoxes, AFullBoxWithoutItsFirstWordIsError28) {
  for (const char* code : {"tkhd", "mdhd", "stss", "hdlr"}) {
    EXPECT_EQ(OpenResult(With({{code, Box(code, Bytes{0, 0, 0})}})), kQiroK7MErrorBadFullBoxHeader)
        << code;
  }
}

TEST(MalformedBoxes, APayloadShorterThanItsFieldsIsError27) {
  for (const char* code : {"tkhd", "mdhd", "hdlr", "ctts", "stss", "stsz", "stco", "stsd"}) {
    EXPECT_EQ(OpenResult(With({{code, FullBox(code, 0, 0, Bytes{0, 0, 0})}})),
              kQiroK7MErrorBoxTruncated)
        << code;
  }
  Movie movie = OneTrack();
  movie.replace["mvhd"] = FullBox("mvhd", 0, 0, Bytes().Fill(95));
  EXPECT_EQ(OpenResult(BuildMovie(movie).bytes), kQiroK7MErrorBoxTruncated);
  movie = OneTrack();
  movie.replace["ftyp"] = Box("ftyp", Bytes().Fill(7));
  EXPECT_EQ(OpenResult(BuildMovie(movie).bytes), kQiroK7MErrorBoxTruncated);
}

TEST(MalformedBoxes, ATableShorterThanItsCountIsError27) {
  EXPECT_EQ(OpenResult(With({{"stts", FullBox("stts", 0, 0, Stts{{{3, 10}}, 2})}})),
            kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(With({{"ctts", FullBox("ctts", 0, 0, Ctts{{{3, 10}}, 2})}})),
            kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(With({{"stss", FullBox("stss", 0, 0, Stss{{1}, 2})}})),
            kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(With({{"stsz", FullBox("stsz", 0, 0, Stsz{0, {1, 2, 3}, 4})}})),
            kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(With({{"stco", FullBox("stco", 0, 0, Stco{{1}, 2})}})),
            kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(With({{"sdtp", FullBox("sdtp", 0, 0, Sdtp{{1, 2}})}})),
            kQiroK7MErrorBoxTruncated)
      << "three samples need three bytes";
  EXPECT_EQ(OpenResult(With({{"edts", Box("edts", FullBox("elst", 0, 0, Elst{{{1, 0}}, 2}))}})),
            kQiroK7MErrorBoxTruncated);
}

TEST(MalformedBoxes, ABoxPastTheEndOfTheStreamIsError27) {
  const MovieFile file = BuildMovie(OneTrack());
  EXPECT_EQ(OpenResult(Cut(file.bytes, file.mdatOffset - 1)), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(LyingBox("free", 1000)), kQiroK7MErrorBoxTruncated);
}

TEST(MalformedBoxes, CountsAboveAHundredMillionAreError9Or31) {
  const auto counted = [](const char* code) { return FullBox(code, 0, 0, Bytes().U32(100000001)); };
  EXPECT_EQ(OpenResult(With({{"stts", counted("stts")}})), kQiroK7MErrorTooManyEntries);
  EXPECT_EQ(OpenResult(With({{"ctts", counted("ctts")}})), kQiroK7MErrorTooManyEntries);
  EXPECT_EQ(OpenResult(With({{"edts", Box("edts", counted("elst"))}})),
            kQiroK7MErrorTooManyEntries);
  EXPECT_EQ(OpenResult(With({{"stss", counted("stss")}})), kQiroK7MErrorEntryCountTooLarge);
  EXPECT_EQ(OpenResult(With({{"stco", counted("stco")}})), kQiroK7MErrorEntryCountTooLarge);
  EXPECT_EQ(OpenResult(With({{"stco", counted("co64")}})), kQiroK7MErrorEntryCountTooLarge);
  EXPECT_EQ(OpenResult(With({{"stsd", counted("stsd")}})), kQiroK7MErrorEntryCountTooLarge);
  EXPECT_EQ(OpenResult(With({{"stsz", FullBox("stsz", 0, 0, Stsz{1, {}, 100000001})}})),
            kQiroK7MErrorEntryCountTooLarge);
}

TEST(MalformedBoxes, AHundredMillionIsNotTooMany) {
  EXPECT_EQ(OpenResult(With({{"stts", FullBox("stts", 0, 0, Bytes().U32(100000000))}})),
            kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(OpenResult(With({{"stsz", FullBox("stsz", 0, 0, Stsz{1, {}, 100000000})}})), 0u);
}

TEST(MalformedBoxes, CompositionCountsThatWrapAreError30) {
  const auto open = [](uint32_t count) {
    return OpenResult(
        With({{"ctts", FullBox("ctts", 0, 0, Ctts{{{0x80000000, 1}, {count, 1}}, {}})}}));
  };
  EXPECT_EQ(open(0x7FFFFFFE), 0u);
  EXPECT_EQ(open(0x80000000), kQiroK7MErrorCttsCount);
}

TEST(MalformedBoxes, AChunkMapThatDoesNotStartAt1OrGoesBackIsError23) {
  const auto open = [](const std::vector<Stsc::Run>& runs) {
    return OpenResult(With({{"stsc", FullBox("stsc", 0, 0, Stsc{.runs = runs})}}));
  };
  EXPECT_EQ(open({{2, 1, 1}}), kQiroK7MErrorBadChunkMap);
  EXPECT_EQ(open({{0, 1, 1}}), kQiroK7MErrorBadChunkMap);
  EXPECT_EQ(open({{1, 1, 1}, {3, 1, 1}, {2, 1, 1}}), kQiroK7MErrorBadChunkMap);
  EXPECT_EQ(open({{1, 1, 1}, {1, 1, 1}, {3, 1, 1}}), 0u) << "equal numbers are allowed";
}

TEST(MalformedBoxes, AChunkMapIsReadAsFarAsItGoes) {
  const Bytes twoAndAHalf = Bytes().U32(9).U32(1).U32(2).U32(1).U32(2).U32(1).U32(1).U32(3).U32(1);
  EXPECT_EQ(OpenResult(With({{"stsc", FullBox("stsc", 0, 0, twoAndAHalf)}})), 0u);
  EXPECT_EQ(OpenResult(With({{"stsc", FullBox("stsc", 0, 0, Bytes().U32(0x10000000))}})), 0u);
}

TEST(MalformedBoxes, UnknownVersionsOfTwoBoxesAreError1029) {
  EXPECT_EQ(OpenResult(With({{"mdhd", FullBox("mdhd", 2, 0, Bytes().Fill(32))}})),
            kQiroK7MErrorUnsupportedVersion);
  EXPECT_EQ(OpenResult(With({{"dinf", Box("dinf", FullBox("dref", 2, 0, Dref{}))}})),
            kQiroK7MErrorUnsupportedVersion);
  EXPECT_EQ(OpenResult(With({{"dinf", Box("dinf", FullBox("dref", 1, 0, Dref{}))}})), 0u);
  EXPECT_EQ(OpenResult(With({{"tkhd", FullBox("tkhd", 9, 0, Bytes().Fill(92))}})), 0u);
}

// Warnings
// ------------------------------------------------------------------------------------------

struct WarningCase {
  const char* name;
  QiroK7MError warning;
  std::function<Bytes()> file;
};

const std::vector<WarningCase>& WarningCases() {
  static const std::vector<WarningCase> kCases = {
      {"brands of a length that is not a multiple of 4", kQiroK7MWarningPayloadLength,
       [] {
         Movie movie = OneTrack();
         movie.replace["ftyp"] = Box("ftyp", Bytes().Fill(10));
         return BuildMovie(movie).bytes;
       }},
      {"a list of track ids of such a length", kQiroK7MWarningPayloadLength,
       [] { return WithInTrak(Box("tref", Box("hint", Bytes().Fill(6)))); }},
      {"an edit list of such a length", kQiroK7MWarningPayloadLength,
       [] {
         return WithInTrak(Box("edts", FullBox("elst", 0, 0, Bytes().U32(1).Fill(12).Fill(1))));
       }},
      {"media past the end of the stream", kQiroK7MWarningBoxPastEndOfStream,
       [] {
         const Bytes file = BuildMovie(OneTrack()).bytes;
         return Cut(file, file.Size() - 1);
       }},
      {"a child past its parent", kQiroK7MWarningBoxPastParent,
       [] { return WithInMoov(LyingBox("free", 9)); }},
      {"fewer sample entries than counted", kQiroK7MWarningSampleEntryCount,
       [] {
         return With({{"stsd", FullBox("stsd", 0, 0, Stsd{{VideoEntry()}, 2})}});
       }},
  };
  return kCases;
}

TEST(Warnings, AreRaisedOnceAndReadingGoesOn) {
  for (const WarningCase& each : WarningCases()) {
    EXPECT_EQ(OpenWarnings(each.file()), Codes{each.warning}) << each.name;
  }
}

TEST(Warnings, RefusedOnesEndTheCallWith1028) {
  for (const WarningCase& each : WarningCases()) {
    OpenedReader reader(each.file(),
                        [](OpenedReader& prepared) { prepared.Warnings().RefuseNth(1); });
    EXPECT_EQ(reader.Result(), kQiroK7MErrorAbortedByWarningHandler) << each.name;
  }
}

TEST(Warnings, WithoutACallbackAreIgnored) {
  for (const WarningCase& each : WarningCases()) {
    MemoryStream stream(each.file());
    const QiroK7MIStreamCallBacks record = stream.Reading();
    const QiroK7MWarningHandlerCallBacks warning;
    const QiroK7MAllocatorCallBacks memory;
    QiroK7MReader* reader = nullptr;
    EXPECT_EQ(QiroK7MDocOpenForRead(&record, &warning, &memory, &reader), 0u) << each.name;
    QiroK7MCloseReader(reader);
  }
}

TEST(Warnings, StrayBytesAtTheEndOfTheFileAreToldWhenTheyAreMet) {
  for (size_t size = 1; size < 8; ++size) {
    OpenedReader reader(BuildMovie(OneTrack()).bytes + Bytes().Fill(size, 1));
    EXPECT_TRUE(reader.Warnings().Seen().empty());
    uint32_t length = 77;
    EXPECT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length), 0u);
    EXPECT_EQ(reader.Warnings().Seen(), Codes{kQiroK7MWarningPayloadLength}) << size;
    reader.Warnings().Clear();
    reader.Warnings().RefuseNth(1);
    EXPECT_EQ(QiroK7MReaderGetUlbDataLength(reader.Handle(), &length),
              kQiroK7MErrorAbortedByWarningHandler);
  }
}

TEST(Warnings, AnEditListOfAnOddLengthIsStillRead) {
  const Bytes elst = FullBox("elst", 0, 0, Bytes().U32(1).U32(30).U32(0xFFFFFFFF).U32(0).Fill(1));
  OpenedReader reader(WithInTrak(Box("edts", elst)));
  EXPECT_EQ(EntriesOf(reader.TrackAt(0)).gapCount, 1u);
}

TEST(Warnings, ALeafLongerThanItsFieldsIsAcceptedSilently) {
  const Bytes longer = FullBox("tkhd", 0, 0, Tkhd{}, Bytes().Fill(5));
  EXPECT_TRUE(OpenWarnings(With({{"tkhd", longer}})).empty());
}

}  // namespace
}  // namespace k7mtest

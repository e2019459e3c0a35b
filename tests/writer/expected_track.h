/// @file expected_track.h
/// The bytes of a track without samples as the writer must put them.
#ifndef K7M_TESTS_WRITER_EXPECTED_TRACK_H
#define K7M_TESTS_WRITER_EXPECTED_TRACK_H

#include "support/box_finder.h"
#include "support/box_records.h"
#include "support/opened_writer.h"

namespace k7mtest {

/// Bytes that are reserved for a sample entry, codec header not included.
inline size_t ReservedEntrySize(const std::string& mediaType) {
  return mediaType == "vide" ? 86 : mediaType == "soun" ? 36 : 16;
}

/// The 'stsd' with these entries in front of what is left of the reserved space.
inline Bytes ExpectedStsd(const NewTrack& track, const std::vector<Bytes>& entries = {}) {
  size_t left =
      (ReservedEntrySize(track.mediaType) + track.maxCodecHeaderLength) * track.descriptorCount;
  Bytes stsd = FullBox("stsd", 0, 0, Stsd{.entries = entries});
  const size_t size = 16 + left;
  for (const Bytes& entry : entries) left -= entry.Size();
  if (left >= 8) stsd.Append(LyingBox("skip", static_cast<uint32_t>(left)));
  return PaddedTo(size, stsd);
}

inline Bytes ExpectedMediaHeader(const std::string& mediaType) {
  if (mediaType == "soun") return FullBox("smhd", 0, 0, Smhd{});
  if (mediaType == "vide") return FullBox("vmhd", 0, 1, Vmhd{});
  if (mediaType == "hint") return FullBox("hmhd", 0, 0, Bytes().Fill(16));
  return FullBox("nmhd", 0, 0);
}

/// A table whose fixed part, counts included, is all zeros, with room for all samples.
inline Bytes EmptyTable(const char* code, size_t fixedSize, size_t entrySize, size_t maxCount) {
  return FullBox(code, 0, 0, Bytes().Fill(fixedSize + entrySize * maxCount));
}

inline Bytes ExpectedStbl(const NewTrack& track) {
  const size_t most = track.maxSampleCount;
  Bytes tables = ExpectedStsd(track) + EmptyTable("stts", 4, 8, most) +
                 EmptyTable("stsc", 4, 12, most) + EmptyTable("stsz", 8, 4, most) +
                 EmptyTable("co64", 4, 8, most) + EmptyTable("ctts", 4, 8, most) +
                 EmptyTable("stss", 4, 4, most);
  if ((track.trackFlags & 1) != 0) tables.Append(EmptyTable("sdtp", 0, 1, most));
  return Box("stbl", tables);
}

/// `handlerName` as stored; `movieDuration` is the track's given duration in movie scale.
inline Bytes ExpectedTrak(const NewTrack& track, uint32_t id, const std::string& handlerName,
                          uint16_t language, uint64_t movieDuration = 0) {
  const Bytes tkhd = FullBox("tkhd", 1, track.flags,
                             Tkhd{.creationTime = 7,
                                  .modificationTime = 60,
                                  .trackId = id,
                                  .duration = movieDuration,
                                  .volume = static_cast<uint16_t>(track.volume * 256),
                                  .width = static_cast<uint32_t>(track.width * 65536),
                                  .height = static_cast<uint32_t>(track.height * 65536)});
  const Bytes tref = track.mediaType == "hint" ? Box("tref", Box("hint")) : Bytes();
  const Bytes mdia = Box("mdia",
                         FullBox("mdhd", 1, 0,
                                 Mdhd{.creationTime = 7,
                                      .modificationTime = 60,
                                      .timeScale = track.timeScale,
                                      .duration = track.duration,
                                      .language = language}),
                         FullBox("hdlr", 0, 0, Hdlr{.type = track.mediaType, .name = handlerName}),
                         Box("minf", ExpectedMediaHeader(track.mediaType),
                             Box("dinf", FullBox("dref", 0, 0, Dref{})), ExpectedStbl(track)));
  const Bytes edts =
      Box("edts", FullBox("elst", 0, 0, Bytes().Fill(4 + 12 * (2 * size_t{track.gapCount} + 1))));
  return Box("trak", tkhd, tref, mdia, edts);
}

inline const Bytes kFtyp = Box("ftyp", Ftyp{.brands = {"isom", "mp42", "m4v "}});

inline Bytes ExpectedMvhd(uint32_t timeScale, uint32_t nextTrackId) {
  return FullBox("mvhd", 1, 0,
                 Mvhd{.creationTime = 86400,
                      .modificationTime = 3601,
                      .timeScale = timeScale,
                      .duration = 0,
                      .nextTrackId = nextTrackId});
}

inline constexpr uint16_t kEnglish = 5 << 10 | 14 << 5 | 7;

}  // namespace k7mtest

#endif

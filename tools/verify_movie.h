/// @file verify_movie.h
/// What the movie box says, for the checks to compare.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "verify_boxes.h"

namespace qiro::k7m::tool {

/// A table of entries of equal size in a box. A count is believed as far as the box goes.
struct VerifiedTable {
  const VerifiedBox* box = nullptr;  ///< Null: there is no such table.
  uint64_t begin = 0;
  uint32_t stride = 1;
  uint64_t count = 0;

  uint64_t Place(uint64_t index) const { return begin + index * stride; }
};

struct VerifiedTrack {
  const VerifiedBox* trak = nullptr;
  const VerifiedBox* tkhd = nullptr;
  const VerifiedBox* mdhd = nullptr;
  const VerifiedBox* stbl = nullptr;  ///< Null: the track has no tables.
  uint32_t id = 0;
  uint32_t handler = 0;
  uint32_t timeScale = 0;
  std::optional<uint64_t> duration;       ///< 'tkhd', movie scale; none when it is not known.
  std::optional<uint64_t> mediaDuration;  ///< 'mdhd', media scale.
  uint64_t descriptionCount = 0;
  bool hasMediaElsewhere = false;  ///< In other files.
  VerifiedTable edits;
  uint64_t sampleCount = 0;              ///< Of the tables.
  uint64_t tableDuration = 0;            ///< Of 'stts'.
  uint64_t shownFrom = 0;                ///< Composition time of the first sample to be shown.
  uint64_t shownUntil = 0;               ///< Composition time at which the last one ends.
  std::optional<uint64_t> fragmentsEnd;  ///< Decode time; none until fragments have been read.
};

/// What 'trex' sets for the fragments of a track.
struct FragmentDefaults {
  uint32_t description = 0;
  uint32_t duration = 0;
  uint32_t size = 0;
  uint32_t flags = 0;
};

struct VerifiedMovie {
  const VerifiedBox* moov = nullptr;  ///< Null: there is none.
  const VerifiedBox* mvhd = nullptr;
  bool isFragmented = false;
  uint32_t timeScale = 0;
  std::optional<uint64_t> duration;
  std::vector<VerifiedTrack> tracks;
  std::unordered_map<uint32_t, size_t> trackOfId;
  std::unordered_map<uint32_t, FragmentDefaults> defaultsOfId;
};

/// Reads the movie box, whose children are known. Says what is wrong with its fields.
VerifiedMovie ReadMovie(VerifiedFile* file, const VerifiedBox* moov, Findings* findings);

/// Whether the payload of a box has as many bytes; says so when not, and when there is no box.
bool HoldsFields(const VerifiedBox* box, uint64_t size, Findings* findings);
/// A table with the number of its entries at `countPlace` of the payload and the entries at
/// `entriesPlace`.
VerifiedTable OpenTable(VerifiedFile* file, const VerifiedBox* box, uint32_t countPlace,
                        uint32_t entriesPlace, uint32_t stride, Findings* findings);

}  // namespace qiro::k7m::tool

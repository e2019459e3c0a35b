/// @file verify_checks.h
/// The checks of `k7m verify`. Each family stands in a file of its own.
#pragma once

#include <string>
#include <vector>

#include "verify_boxes.h"
#include "verify_extents.h"
#include "verify_file.h"
#include "verify_findings.h"
#include "verify_movie.h"

namespace qiro::k7m::tool {

/// Broken by chunks and by runs.
inline constexpr Rule kSamplePastEnd = {
    Severity::kError, "sample-past-end",
    "the samples cannot be read: playing stops or shows garbage there"};
inline constexpr Rule kSampleEmpty = {Severity::kWarning, "sample-empty",
                                      "decoders get nothing for the time of the samples"};

/// What the checks share.
struct Verification {
  VerifiedFile& file;
  Findings& findings;
  VerifiedBox* top = nullptr;  ///< The first box of the top level.
  VerifiedMovie movie = {};
  Extents extents = {};  ///< Of all samples that the tables and runs name.
};

/// Which boxes there must be inside a box of the top level, the box itself included.
void CheckStructure(const VerifiedBox& top, Findings* findings);
/// Which boxes there must be at the top level.
void CheckTopLevel(const VerifiedBox* first, Findings* findings);
/// The sample tables of every track: whether they agree, and where they put the samples.
void CheckTables(Verification* all);
/// Durations and edit lists, once the tables and the fragments are known.
void CheckTimes(Verification* all);
/// What a track's edit list adds to the times of its samples, in seconds: the empty edits together,
/// and the first media that it shows, as a negative number.
struct EditShift {
  double empty = 0;
  double skipped = 0;
};
EditShift ShiftOf(const VerifiedTrack& track, const Verification& all);
/// All boxes of the top level but the movie box: fragments, and the tables that point at them.
void CheckFragments(Verification* all);
/// Where the samples of all tracks lie, once all of them are known.
void CheckLayout(Verification* all);
/// The boxes of the tracks, for findings that come once the others are forgotten.
struct TrackBoxes {
  VerifiedBox moov;
  std::vector<VerifiedBox> traks;  ///< In file order.
  std::vector<bool> isElsewhere;   ///< For each track: its samples are in another file.
};
/// Reads every sample through the library.
void CheckReading(const std::shared_ptr<InputSource>& input, const TrackBoxes& boxes,
                  Findings* findings);

}  // namespace qiro::k7m::tool

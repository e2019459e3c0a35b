#include "verify_movie.h"

#include <algorithm>

#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kFieldsTruncated = {Severity::kError, "fields-truncated",
                                   "readers refuse the box, and mostly the file"};
constexpr Rule kTableTruncated = {Severity::kError, "table-truncated",
                                  "readers refuse the file or lose the samples at its end"};
constexpr Rule kNoTimeScale = {Severity::kError, "time-scale-zero",
                               "no time can be computed: players refuse it or divide by zero"};
constexpr Rule kTrackId = {Severity::kError, "track-id",
                           "fragments and references cannot name the track"};
constexpr Rule kDescriptionCount = {Severity::kError, "stsd-count",
                                    "samples refer to descriptions that are not there"};
constexpr Rule kMediaElsewhere = {Severity::kWarning, "media-elsewhere",
                                  "the samples are in another file and have not been looked at"};
constexpr Rule kBadReference = {Severity::kWarning, "data-reference",
                                "readers do not know which file holds the samples"};

// The sizes and places depend on the version: times have 32 bits in version 0, else 64.
struct TimedHeader {
  bool isLong;
  uint64_t At(uint64_t shortPlace, uint64_t longPlace) const {
    return isLong ? longPlace : shortPlace;
  }
};

class MovieReading {
 public:
  MovieReading(VerifiedFile* file, Findings* findings) : file_(*file), findings_(*findings) {}

  VerifiedMovie Read(const VerifiedBox* moov) {
    movie_.moov = moov;
    if (moov == nullptr) return {};
    ReadMovieHeader();
    ReadDefaults(ChildOf(moov, FourCc("mvex")));
    for (const VerifiedBox* box = moov->firstChild; box != nullptr; box = box->next) {
      if (box->type == FourCc("trak")) ReadTrack(*box);
    }
    return std::move(movie_);
  }

 private:
  std::optional<TimedHeader> Open(const VerifiedBox* box, uint64_t shortSize, uint64_t longSize) {
    if (box == nullptr || !HoldsFields(box, 4, &findings_)) return std::nullopt;
    const TimedHeader header{file_.At(box->Payload(), 1) != 0};
    if (!HoldsFields(box, header.At(shortSize, longSize), &findings_)) return std::nullopt;
    return header;
  }
  // All ones: not known.
  std::optional<uint64_t> Duration(const VerifiedBox& box, const TimedHeader& header,
                                   uint64_t shortPlace, uint64_t longPlace) {
    const uint64_t value =
        file_.At(box.Payload() + header.At(shortPlace, longPlace), header.isLong ? 8 : 4);
    if (value == (header.isLong ? UINT64_MAX : UINT32_MAX)) return std::nullopt;
    return value;
  }
  uint32_t TimeScale(const VerifiedBox& box, const TimedHeader& header) {
    const uint64_t place = box.Payload() + header.At(12, 20);
    const uint32_t scale = file_.U32At(place);
    if (scale == 0) {
      findings_.Add(kNoTimeScale, &box, place, [] { return std::string("the time scale is 0"); });
    }
    return scale;
  }

  void ReadMovieHeader();
  void ReadDefaults(const VerifiedBox* mvex);
  void ReadTrack(const VerifiedBox& trak);
  void ReadTrackHeader(VerifiedTrack* track);
  void ReadDescriptions(const VerifiedBox* stsd, const VerifiedBox* dref, VerifiedTrack* track);
  // Whether the samples of the description are in this file, as far as one knows.
  bool IsMediaHere(const VerifiedBox& stsd, uint64_t entry, uint64_t number);

  VerifiedFile& file_;
  Findings& findings_;
  VerifiedMovie movie_;
  std::vector<const VerifiedBox*> references_;  // Of the track.
};

void MovieReading::ReadMovieHeader() {
  movie_.mvhd = ChildOf(movie_.moov, FourCc("mvhd"));
  const auto header = Open(movie_.mvhd, 100, 112);
  if (!header) return;
  movie_.timeScale = TimeScale(*movie_.mvhd, *header);
  movie_.duration = Duration(*movie_.mvhd, *header, 16, 24);
}

void MovieReading::ReadDefaults(const VerifiedBox* mvex) {
  movie_.isFragmented = mvex != nullptr;
  if (mvex == nullptr) return;
  for (const VerifiedBox* box = mvex->firstChild; box != nullptr; box = box->next) {
    if (box->type != FourCc("trex") || !HoldsFields(box, 24, &findings_)) continue;
    const uint64_t fields = box->Payload();
    // The first one of a track holds.
    movie_.defaultsOfId.emplace(
        file_.U32At(fields + 4),
        FragmentDefaults{file_.U32At(fields + 8), file_.U32At(fields + 12),
                         file_.U32At(fields + 16), file_.U32At(fields + 20)});
  }
}

void MovieReading::ReadTrackHeader(VerifiedTrack* track) {
  const auto header = Open(track->tkhd, 84, 96);
  if (!header) return;
  const uint64_t place = track->tkhd->Payload() + header->At(12, 20);
  track->id = file_.U32At(place);
  track->duration = Duration(*track->tkhd, *header, 20, 28);
  const bool isNew = movie_.trackOfId.emplace(track->id, movie_.tracks.size()).second;
  if (track->id == 0 || !isNew) {
    findings_.Add(kTrackId, track->tkhd, place, [&] {
      return track->id == 0 ? std::string("the track ID is 0")
                            : "another track has the ID " + std::to_string(track->id) + " as well";
    });
  }
}

void MovieReading::ReadTrack(const VerifiedBox& trak) {
  VerifiedTrack track;
  track.trak = &trak;
  track.tkhd = ChildOf(&trak, FourCc("tkhd"));
  ReadTrackHeader(&track);
  const VerifiedBox* const mdia = ChildOf(&trak, FourCc("mdia"));
  track.mdhd = ChildOf(mdia, FourCc("mdhd"));
  if (const auto header = Open(track.mdhd, 24, 36)) {
    track.timeScale = TimeScale(*track.mdhd, *header);
    track.mediaDuration = Duration(*track.mdhd, *header, 16, 24);
  }
  const VerifiedBox* const hdlr = ChildOf(mdia, FourCc("hdlr"));
  if (hdlr != nullptr && HoldsFields(hdlr, 24, &findings_)) {
    track.handler = file_.U32At(hdlr->Payload() + 8);
  }
  const VerifiedBox* const minf = ChildOf(mdia, FourCc("minf"));
  track.stbl = ChildOf(minf, FourCc("stbl"));
  ReadDescriptions(ChildOf(track.stbl, FourCc("stsd")),
                   ChildOf(ChildOf(minf, FourCc("dinf")), FourCc("dref")), &track);
  const VerifiedBox* const elst = ChildOf(ChildOf(&trak, FourCc("edts")), FourCc("elst"));
  if (elst != nullptr) {
    const bool isLong = file_.At(elst->Payload(), 1) != 0;
    track.edits = OpenTable(&file_, elst, 4, 8, isLong ? 20 : 12, &findings_);
  }
  movie_.tracks.push_back(track);
}

void MovieReading::ReadDescriptions(const VerifiedBox* stsd, const VerifiedBox* dref,
                                    VerifiedTrack* track) {
  if (stsd == nullptr || !HoldsFields(stsd, 8, &findings_)) return;
  const uint32_t promised = file_.U32At(stsd->Payload() + 4);
  uint64_t place = stsd->Payload() + 8;
  references_.clear();
  const VerifiedBox* reference = dref == nullptr ? nullptr : dref->firstChild;
  for (; reference != nullptr; reference = reference->next) references_.push_back(reference);
  bool hasMediaHere = false;
  while (track->descriptionCount < promised && place + 16 <= stsd->End()) {
    const uint64_t size = file_.U32At(place);
    if (size < 16 || size > stsd->End() - place) break;
    ++track->descriptionCount;
    hasMediaHere = IsMediaHere(*stsd, place, track->descriptionCount) || hasMediaHere;
    place += size;
  }
  track->hasMediaElsewhere = track->descriptionCount > 0 && !hasMediaHere;
  if (track->descriptionCount < promised || promised == 0) {
    findings_.Add(kDescriptionCount, stsd, place, [&] {
      return CountText(promised, "description") + " announced, " +
             std::to_string(track->descriptionCount) + " found";
    });
  }
}

bool MovieReading::IsMediaHere(const VerifiedBox& stsd, uint64_t entry, uint64_t number) {
  if (references_.empty()) return true;
  const uint64_t wanted = file_.At(entry + 14, 2);
  if (wanted == 0 || wanted > references_.size()) {
    findings_.Add(kBadReference, &stsd, entry, [&] {
      return "description " + std::to_string(number) + " refers to data reference " +
             std::to_string(wanted) + ", which is not there";
    });
    return true;
  }
  const VerifiedBox& reference = *references_[wanted - 1];
  const bool isHere = (file_.At(reference.Payload() + 3, 1) & 1) != 0;
  if (isHere || reference.type != FourCc("url ")) return true;
  findings_.Add(kMediaElsewhere, &reference, reference.offset,
                [] { return std::string("the data reference names another file"); });
  return false;
}

}  // namespace

bool HoldsFields(const VerifiedBox* box, uint64_t size, Findings* findings) {
  if (box->PayloadSize() >= size) return true;
  findings->Add(kFieldsTruncated, box, box->offset, [&] {
    return "its fields need " + std::to_string(size) + " bytes, it has " +
           std::to_string(box->PayloadSize());
  });
  return false;
}

VerifiedTable OpenTable(VerifiedFile* file, const VerifiedBox* box, uint32_t countPlace,
                        uint32_t entriesPlace, uint32_t stride, Findings* findings) {
  if (box == nullptr || !HoldsFields(box, entriesPlace, findings)) return {};
  const uint32_t promised = file->U32At(box->Payload() + countPlace);
  const uint64_t room = (box->PayloadSize() - entriesPlace) / stride;
  if (promised > room) {
    findings->Add(kTableTruncated, box, box->Payload() + countPlace, [&] {
      return std::to_string(promised) + " entries announced, room for " + std::to_string(room);
    });
  }
  return {box, box->Payload() + entriesPlace, stride, std::min<uint64_t>(promised, room)};
}

VerifiedMovie ReadMovie(VerifiedFile* file, const VerifiedBox* moov, Findings* findings) {
  return MovieReading(file, findings).Read(moov);
}

}  // namespace qiro::k7m::tool

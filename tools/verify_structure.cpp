// Which boxes there must be, how often, and where.
#include <array>

#include "text_format.h"
#include "verify_checks.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kMissing = {Severity::kError, "box-missing", "readers refuse the file"};
constexpr Rule kDoubled = {Severity::kError, "box-doubled",
                           "readers refuse the file or take either of them"};
constexpr Rule kMisplaced = {Severity::kWarning, "box-misplaced",
                             "readers do not look for it there and do without it"};
constexpr Rule kNoMovie = {Severity::kError, "moov-missing", "nothing in the file can be played"};
constexpr Rule kOrphanFragment = {
    Severity::kError, "moof-without-moov",
    "the fragment can be played only behind the movie box of its stream"};
constexpr Rule kNoFileType = {Severity::kWarning, "ftyp-missing",
                              "some readers do not recognize the file"};
constexpr Rule kFileTypeLate = {Severity::kWarning, "ftyp-not-first",
                                "readers that look at the first box do not recognize the file"};

enum class Often { kOnce, kAtLeastOnce, kAtMostOnce };

/// How often a box stands in another; one of two types where a second one is given.
struct ChildRule {
  uint32_t parent;
  Often often;
  uint32_t child;
  uint32_t otherChild = 0;
};

constexpr std::array kChildRules = {
    ChildRule{FourCc("moov"), Often::kOnce, FourCc("mvhd")},
    ChildRule{FourCc("moov"), Often::kAtLeastOnce, FourCc("trak")},
    ChildRule{FourCc("moov"), Often::kAtMostOnce, FourCc("mvex")},
    ChildRule{FourCc("trak"), Often::kOnce, FourCc("tkhd")},
    ChildRule{FourCc("trak"), Often::kOnce, FourCc("mdia")},
    ChildRule{FourCc("trak"), Often::kAtMostOnce, FourCc("edts")},
    ChildRule{FourCc("trak"), Often::kAtMostOnce, FourCc("tref")},
    ChildRule{FourCc("edts"), Often::kAtMostOnce, FourCc("elst")},
    ChildRule{FourCc("mdia"), Often::kOnce, FourCc("mdhd")},
    ChildRule{FourCc("mdia"), Often::kOnce, FourCc("hdlr")},
    ChildRule{FourCc("mdia"), Often::kOnce, FourCc("minf")},
    ChildRule{FourCc("minf"), Often::kOnce, FourCc("dinf")},
    ChildRule{FourCc("minf"), Often::kOnce, FourCc("stbl")},
    ChildRule{FourCc("dinf"), Often::kOnce, FourCc("dref"), FourCc("url ")},
    ChildRule{FourCc("stbl"), Often::kOnce, FourCc("stsd")},
    ChildRule{FourCc("stbl"), Often::kOnce, FourCc("stts")},
    ChildRule{FourCc("stbl"), Often::kOnce, FourCc("stsc")},
    ChildRule{FourCc("stbl"), Often::kOnce, FourCc("stsz")},
    ChildRule{FourCc("stbl"), Often::kOnce, FourCc("stco"), FourCc("co64")},
    ChildRule{FourCc("stbl"), Often::kAtMostOnce, FourCc("ctts")},
    ChildRule{FourCc("stbl"), Often::kAtMostOnce, FourCc("stss")},
    ChildRule{FourCc("stbl"), Often::kAtMostOnce, FourCc("sdtp")},
    ChildRule{FourCc("mvex"), Often::kAtMostOnce, FourCc("mehd")},
    ChildRule{FourCc("moof"), Often::kOnce, FourCc("mfhd")},
    ChildRule{FourCc("traf"), Often::kOnce, FourCc("tfhd")},
    ChildRule{FourCc("traf"), Often::kAtMostOnce, FourCc("tfdt")},
    ChildRule{FourCc("mfra"), Often::kAtMostOnce, FourCc("mfro")}};

constexpr uint32_t kTopLevel = 0;

struct PlaceRule {
  uint32_t type;
  uint32_t parent;
};

constexpr std::array kPlaceRules = {
    PlaceRule{FourCc("ftyp"), kTopLevel},      PlaceRule{FourCc("moov"), kTopLevel},
    PlaceRule{FourCc("mdat"), kTopLevel},      PlaceRule{FourCc("moof"), kTopLevel},
    PlaceRule{FourCc("mfra"), kTopLevel},      PlaceRule{FourCc("afra"), kTopLevel},
    PlaceRule{FourCc("abst"), kTopLevel},      PlaceRule{FourCc("mvhd"), FourCc("moov")},
    PlaceRule{FourCc("trak"), FourCc("moov")}, PlaceRule{FourCc("mvex"), FourCc("moov")},
    PlaceRule{FourCc("tkhd"), FourCc("trak")}, PlaceRule{FourCc("tref"), FourCc("trak")},
    PlaceRule{FourCc("edts"), FourCc("trak")}, PlaceRule{FourCc("mdia"), FourCc("trak")},
    PlaceRule{FourCc("elst"), FourCc("edts")}, PlaceRule{FourCc("mdhd"), FourCc("mdia")},
    PlaceRule{FourCc("minf"), FourCc("mdia")}, PlaceRule{FourCc("stbl"), FourCc("minf")},
    PlaceRule{FourCc("stsd"), FourCc("stbl")}, PlaceRule{FourCc("stts"), FourCc("stbl")},
    PlaceRule{FourCc("ctts"), FourCc("stbl")}, PlaceRule{FourCc("stsc"), FourCc("stbl")},
    PlaceRule{FourCc("stsz"), FourCc("stbl")}, PlaceRule{FourCc("stco"), FourCc("stbl")},
    PlaceRule{FourCc("co64"), FourCc("stbl")}, PlaceRule{FourCc("stss"), FourCc("stbl")},
    PlaceRule{FourCc("mehd"), FourCc("mvex")}, PlaceRule{FourCc("trex"), FourCc("mvex")},
    PlaceRule{FourCc("mfhd"), FourCc("moof")}, PlaceRule{FourCc("traf"), FourCc("moof")},
    PlaceRule{FourCc("tfhd"), FourCc("traf")}, PlaceRule{FourCc("tfdt"), FourCc("traf")},
    PlaceRule{FourCc("trun"), FourCc("traf")}, PlaceRule{FourCc("tfra"), FourCc("mfra")},
    PlaceRule{FourCc("mfro"), FourCc("mfra")}};

void CheckChildren(const VerifiedBox& box, Findings* findings) {
  for (const ChildRule& rule : kChildRules) {
    if (rule.parent != box.type) continue;
    uint64_t count = CountChildren(box, rule.child);
    std::string name = CodeText(rule.child);
    if (rule.otherChild != 0) {
      count += CountChildren(box, rule.otherChild);
      name += " or " + CodeText(rule.otherChild);
    }
    if (count == 0 && rule.often != Often::kAtMostOnce) {
      findings->Add(kMissing, &box, box.offset, [&] { return "no " + name + " box"; });
    }
    if (count > 1 && rule.often != Often::kAtLeastOnce) {
      findings->Add(kDoubled, &box, box.offset,
                    [&] { return std::to_string(count) + " boxes " + name; });
    }
  }
}

void CheckPlace(const VerifiedBox& box, Findings* findings) {
  const uint32_t parent = box.parent == nullptr ? kTopLevel : box.parent->type;
  for (const PlaceRule& rule : kPlaceRules) {
    if (rule.type != box.type || rule.parent == parent) continue;
    findings->Add(kMisplaced, &box, box.offset, [&] {
      return rule.parent == kTopLevel ? std::string("it belongs to the top level of the file")
                                      : "it belongs into " + CodeText(rule.parent);
    });
  }
}

// Boxes that may stand in front of everything without disturbing anybody.
bool IsPadding(uint32_t type) {
  return type == FourCc("free") || type == FourCc("skip") || type == FourCc("wide");
}

}  // namespace

void CheckStructure(const VerifiedBox& top, Findings* findings) {
  const VerifiedBox* box = &top;
  while (box != nullptr) {
    CheckPlace(*box, findings);
    CheckChildren(*box, findings);
    if (box->firstChild != nullptr) {
      box = box->firstChild;
      continue;
    }
    while (box != &top && box->next == nullptr) box = box->parent;
    box = box == &top ? nullptr : box->next;
  }
}

void CheckTopLevel(const VerifiedBox* first, Findings* findings) {
  const VerifiedBox* movie = nullptr;
  const VerifiedBox* fragment = nullptr;
  const VerifiedBox* fileType = nullptr;
  const VerifiedBox* content = nullptr;
  for (const VerifiedBox* box = first; box != nullptr; box = box->next) {
    if (box->type == FourCc("moov") && movie != nullptr) {
      findings->Add(kDoubled, box, box->offset, [&] {
        return "a second movie box; the first one is at " + std::to_string(movie->offset);
      });
    }
    if (box->type == FourCc("moov") && movie == nullptr) movie = box;
    if (box->type == FourCc("moof") && fragment == nullptr) fragment = box;
    if (box->type == FourCc("ftyp") && fileType == nullptr) fileType = box;
    const bool isLookedInto =
        box->type == FourCc("moov") || box->type == FourCc("moof") || box->type == FourCc("mfra");
    if (!isLookedInto) CheckPlace(*box, findings);
    if (!IsPadding(box->type) && box->type != FourCc("ftyp") && content == nullptr) content = box;
  }
  if (movie == nullptr) {
    findings->Add(fragment == nullptr ? kNoMovie : kOrphanFragment, fragment,
                  fragment == nullptr ? 0 : fragment->offset,
                  [] { return std::string("the file has no 'moov' box"); });
  } else if (fileType == nullptr) {
    findings->Add(kNoFileType, nullptr, 0, [] { return std::string("no 'ftyp' box"); });
  }
  if (fileType != nullptr && content != nullptr && content->offset < fileType->offset) {
    findings->Add(kFileTypeLate, fileType, fileType->offset,
                  [&] { return CodeText(content->type) + " stands in front of it"; });
  }
}

}  // namespace qiro::k7m::tool

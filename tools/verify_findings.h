/// @file verify_findings.h
/// What `k7m verify` finds: gathered by rule and box, so that no file makes the list long.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qiro::k7m::tool {

enum class Severity { kInfo, kWarning, kError };

/// A rule that a file can break. Rules are constants; their address tells them apart.
struct Rule {
  Severity severity;
  const char* id;
  const char* consequence;  ///< For a player or packager.
};

struct VerifiedBox;

struct Finding {
  uint64_t offset = 0;  ///< In the file: of the box or of what is wrong in it.
  std::string text;
};

/// The findings of one rule on one box.
struct FindingGroup {
  const Rule* rule = nullptr;
  std::string path;  ///< Of the box, as "moov/trak[2]/mdia"; "file" for the file as a whole.
  std::vector<Finding> shown;
  uint64_t foldedCount = 0;  ///< Further findings, which are only counted.
};

/// Keeps a few findings of each rule on each box and counts the rest.
class Findings {
 public:
  static constexpr size_t kShownOfAGroup = 10;
  /// Findings on further boxes are counted together.
  static constexpr size_t kGroupsOfARule = 100;

  /// @param box       null for the file as a whole
  /// @param makeText  returns what is wrong, with figures; called only when it is kept
  template <class MakeText>
  void Add(const Rule& rule, const VerifiedBox* box, uint64_t offset, const MakeText& makeText) {
    if (FindingGroup* group = Admit(rule, box)) group->shown.push_back({offset, makeText()});
  }

  bool Has(const Rule& rule) const { return rules_.count(&rule) != 0; }
  uint64_t Count(Severity severity) const { return counts_[static_cast<size_t>(severity)]; }
  /// The worst first, then in file order.
  std::vector<FindingGroup> Sorted() const;

 private:
  // Null when the finding is only counted.
  FindingGroup* Admit(const Rule& rule, const VerifiedBox* box);

  struct OfRule {
    std::map<uint64_t, FindingGroup> groups;  // By the offset of the box.
    FindingGroup others;                      // Of all boxes that came too late.
  };
  std::map<const Rule*, OfRule> rules_;
  uint64_t counts_[3] = {};
};

}  // namespace qiro::k7m::tool

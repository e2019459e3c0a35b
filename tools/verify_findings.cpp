#include "verify_findings.h"

#include <algorithm>
#include <limits>

#include "verify_boxes.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kWholeFile = std::numeric_limits<uint64_t>::max();

uint64_t PlaceOf(const FindingGroup& group) {
  return group.shown.empty() ? kWholeFile : group.shown.front().offset;
}

bool IsShownBefore(const FindingGroup& a, const FindingGroup& b) {
  if (a.rule->severity != b.rule->severity) return a.rule->severity > b.rule->severity;
  return PlaceOf(a) < PlaceOf(b);
}

}  // namespace

FindingGroup* Findings::Admit(const Rule& rule, const VerifiedBox* box) {
  ++counts_[static_cast<size_t>(rule.severity)];
  OfRule& own = rules_[&rule];
  const uint64_t key = box == nullptr ? kWholeFile : box->offset;
  auto found = own.groups.find(key);
  if (found == own.groups.end()) {
    if (own.groups.size() == kGroupsOfARule) {
      own.others.rule = &rule;
      own.others.path = "further boxes";
      ++own.others.foldedCount;
      return nullptr;
    }
    found = own.groups.emplace(key, FindingGroup{&rule, PathOf(box), {}, 0}).first;
  }
  FindingGroup& group = found->second;
  if (group.shown.size() < kShownOfAGroup) return &group;
  ++group.foldedCount;
  return nullptr;
}

std::vector<FindingGroup> Findings::Sorted() const {
  std::vector<FindingGroup> all;
  for (const auto& [rule, own] : rules_) {
    for (const auto& [offset, group] : own.groups) all.push_back(group);
    if (own.others.foldedCount > 0) all.push_back(own.others);
  }
  std::stable_sort(all.begin(), all.end(), IsShownBefore);
  return all;
}

}  // namespace qiro::k7m::tool

#include "verify_report.h"

#include <nlohmann/json.hpp>

#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

std::string SeverityText(Severity severity) {
  if (severity == Severity::kError) return "error";
  return severity == Severity::kWarning ? "warning" : "info";
}

}  // namespace

std::string VerifyText(const Findings& findings) {
  std::string text;
  for (const FindingGroup& group : findings.Sorted()) {
    const std::string head =
        SeverityText(group.rule->severity) + " " + group.rule->id + ": " + Printable(group.path);
    for (const Finding& finding : group.shown) {
      text += head + " at byte " + std::to_string(finding.offset) + ": " + Printable(finding.text) +
              "\n  " + group.rule->consequence + "\n";
    }
    if (group.foldedCount > 0) {
      text += head + ": " + std::to_string(group.foldedCount) + " more of these\n";
    }
  }
  return text + CountText(findings.Count(Severity::kError), "error") + ", " +
         CountText(findings.Count(Severity::kWarning), "warning") + ", " +
         CountText(findings.Count(Severity::kInfo), "note") + "\n";
}

Json VerifyJson(const std::string& path, const Findings& findings) {
  Json list = Json::array();
  for (const FindingGroup& group : findings.Sorted()) {
    Json shown = Json::array();
    for (const Finding& finding : group.shown) {
      shown.push_back({{"offset", finding.offset}, {"message", finding.text}});
    }
    list.push_back({{"severity", SeverityText(group.rule->severity)},
                    {"rule", group.rule->id},
                    {"path", group.path},
                    {"count", group.shown.size() + group.foldedCount},
                    {"places", shown},
                    {"consequence", group.rule->consequence}});
  }
  return {{"file", path},
          {"errorCount", findings.Count(Severity::kError)},
          {"warningCount", findings.Count(Severity::kWarning)},
          {"infoCount", findings.Count(Severity::kInfo)},
          {"findings", list}};
}

}  // namespace qiro::k7m::tool

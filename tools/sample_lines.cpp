#include "sample_lines.h"

#include <cstdio>
#include <string>

namespace qiro::k7m::tool {
namespace {

constexpr char kTableHead[] =
    "track      time stamp         seconds    offset        size key gap desc  dep\n";
constexpr char kCsvHead[] =
    "track,timeStamp,timeScale,seconds,compositionOffset,size,key,gap,description,dependency\n";

using Line = char[320];

std::string TableLine(const SampleFacts& facts) {
  const std::string description = facts.description == 0 ? "-" : std::to_string(facts.description);
  Line line;
  std::snprintf(line, sizeof line, "%5u %15llu %15s %9d %11u %3s %3s %4s %#4x\n", facts.track,
                static_cast<unsigned long long>(facts.time.value), SecondsText(facts.time).c_str(),
                facts.compositionOffset, facts.size, facts.isKey ? "yes" : "-",
                facts.isGap ? "yes" : "-", description.c_str(), facts.dependency);
  return line;
}

std::string CsvLine(const SampleFacts& facts) {
  const std::string description = facts.description == 0 ? "" : std::to_string(facts.description);
  const std::string seconds = facts.time.scale == 0 ? "" : SecondsText(facts.time);
  Line line;
  std::snprintf(line, sizeof line, "%u,%llu,%u,%s,%d,%u,%d,%d,%s,%u\n", facts.track,
                static_cast<unsigned long long>(facts.time.value), facts.time.scale,
                seconds.c_str(), facts.compositionOffset, facts.size, facts.isKey ? 1 : 0,
                facts.isGap ? 1 : 0, description.c_str(), facts.dependency);
  return line;
}

// Numbers and fixed names only, so that nothing needs escaping.
std::string JsonObject(const SampleFacts& facts) {
  const std::string description =
      facts.description == 0 ? "null" : std::to_string(facts.description);
  const std::string seconds = facts.time.scale == 0 ? "null" : SecondsText(facts.time);
  Line line;
  std::snprintf(line, sizeof line,
                "{\"track\":%u,\"timeStamp\":%llu,\"timeScale\":%u,\"seconds\":%s,"
                "\"compositionOffset\":%d,\"size\":%u,\"isKey\":%s,\"isGap\":%s,"
                "\"description\":%s,\"dependency\":%u}",
                facts.track, static_cast<unsigned long long>(facts.time.value), facts.time.scale,
                seconds.c_str(), facts.compositionOffset, facts.size,
                facts.isKey ? "true" : "false", facts.isGap ? "true" : "false", description.c_str(),
                facts.dependency);
  return line;
}

}  // namespace

SampleLines::SampleLines(SampleForm form, Output& out) : form_(form), out_(out) {
  if (form_ == SampleForm::kTable) out_.Write(kTableHead);
  if (form_ == SampleForm::kCsv) out_.Write(kCsvHead);
  if (form_ == SampleForm::kJson) out_.Write("[");
}

SampleLines::~SampleLines() {
  if (form_ != SampleForm::kJson) return;
  out_.WriteLater(isFirst_ ? "]\n" : "\n]\n");
}

void SampleLines::Add(const SampleFacts& facts) {
  if (form_ == SampleForm::kTable) out_.Write(TableLine(facts));
  if (form_ == SampleForm::kCsv) out_.Write(CsvLine(facts));
  if (form_ == SampleForm::kJson) {
    out_.Write(isFirst_ ? "\n" : ",\n");
    out_.Write(JsonObject(facts));
  }
  isFirst_ = false;
}

}  // namespace qiro::k7m::tool

#include "tree_fields.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <utility>

namespace qiro::k7m::tool {
namespace {

// Nothing in a box says which of its bytes are text. Printable characters with at least one letter
// and a 0 at the end are taken for one.
bool IsText(std::span<const uint8_t> bytes) {
  if (bytes.empty() || bytes.back() != 0) return false;
  const auto text = bytes.first(bytes.size() - 1);
  return std::all_of(text.begin(), text.end(),
                     [](uint8_t byte) { return std::isprint(byte) != 0; }) &&
         std::any_of(text.begin(), text.end(),
                     [](uint8_t byte) { return std::isalpha(byte) != 0; });
}

std::string Hex(std::span<const uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace

Json FieldCollector::Take() { return std::exchange(fields_, Json::object()); }

void FieldCollector::Bytes(const char* name, std::span<const uint8_t> value) {
  Json json = {{"size", value.size()}};
  if (IsText(value)) {
    json["text"] = std::string(value.begin(), value.end() - 1);
  } else {
    json["hex"] = Hex(value.first(static_cast<size_t>(std::min<uint64_t>(value.size(), limit_))));
  }
  Add(name, std::move(json));
}

uint64_t FieldCollector::BeginTable(const char* name, uint64_t count) {
  tableName_ = name;
  fields_[name] = {{"count", count}, {"entries", Json::array()}};
  return limit_;
}

void FieldCollector::BeginEntry() {
  isInEntry_ = true;
  entry_ = Json::object();
}

void FieldCollector::EndEntry() {
  isInEntry_ = false;
  fields_[tableName_]["entries"].push_back(std::move(entry_));
}

void FieldCollector::EndTable() { tableName_ = nullptr; }

}  // namespace qiro::k7m::tool

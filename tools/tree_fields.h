/// @file tree_fields.h
/// Gathers what a box says about its fields.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>

#include "boxes/field_sink.h"
#include "json_text.h"
#include "text_format.h"

namespace qiro::k7m::tool {

/// The fields as a JSON object in file order. A table becomes {"count": n, "entries": [...]} with
/// at most as many entries as the limit says; bytes become {"size": n, "text" or "hex": "..."},
/// where a hex text shows at most as many bytes.
class FieldCollector final : public impl::FieldSink {
 public:
  explicit FieldCollector(uint64_t limit) : limit_(limit) {}

  /// Gives the fields away.
  Json Take();

  void Number(const char* name, uint64_t value) override { Add(name, value); }
  void SignedNumber(const char* name, int64_t value) override { Add(name, value); }
  void Real(const char* name, float value) override { Add(name, value); }
  void Code(const char* name, uint32_t fourCc) override { Add(name, FourCharacters(fourCc)); }
  void Date(const char* name, const QiroK7MDateTime& value) override { Add(name, DateText(value)); }
  void Bytes(const char* name, std::span<const uint8_t> value) override;
  uint64_t BeginTable(const char* name, uint64_t count) override;
  void BeginEntry() override;
  void EndEntry() override;
  void EndTable() override;

 private:
  void Add(const char* name, Json value) {
    (isInEntry_ ? entry_ : fields_)[name] = std::move(value);
  }

  uint64_t limit_;
  Json fields_ = Json::object();
  const char* tableName_ = nullptr;
  bool isInEntry_ = false;
  Json entry_;
};

}  // namespace qiro::k7m::tool

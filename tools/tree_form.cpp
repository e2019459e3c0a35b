#include "tree_form.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <vector>

#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

std::string FlagsText(uint32_t flags) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%06x", flags);
  return text;
}

std::string ScalarText(const Json& value) {
  if (value.is_string()) return Printable(value.get<std::string>());
  if (value.is_number_float()) return NumberText(value.get<double>());
  return value.dump();
}

// {"size": 12, "hex": "0011..."}: the bytes as far as they are shown.
std::string BytesText(const Json& bytes) {
  if (bytes.contains("text")) return '"' + Printable(bytes["text"].get<std::string>()) + '"';
  const auto size = bytes["size"].get<uint64_t>();
  const auto hex = bytes["hex"].get<std::string>();
  std::string text = CountText(size, "byte");
  if (!hex.empty()) text += ": " + hex;
  if (hex.size() / 2 < size) text += "...";
  return text;
}

class TextForm final : public TreeForm {
 public:
  explicit TextForm(Output& out) : out_(out) {}

  void BeginBox(const BoxFacts& facts, const Json& fields) override {
    std::string text = FourCharacters(facts.type) + "  offset " + std::to_string(facts.offset) +
                       ", size " + std::to_string(facts.size);
    if (facts.version) text += ", version " + std::to_string(*facts.version);
    if (facts.flags) text += ", flags " + FlagsText(*facts.flags);
    Line(text);
    ++depth_;
    for (const auto& [name, value] : fields.items()) Field(name, value);
  }
  void EndBox() override { --depth_; }
  void Problem(const TreeProblem& problem) override {
    Line("! offset " + std::to_string(problem.offset) + ": " + problem.text);
  }
  void End() override {}

 private:
  void Line(const std::string& text) { out_.Write(std::string(2 * depth_, ' ') + text + "\n"); }

  void Field(const std::string& name, const Json& value) {
    if (!value.is_object()) {
      Line("." + name + ": " + ScalarText(value));
    } else if (value.contains("entries")) {
      Table(name, value);
    } else {
      Line("." + name + ": " + BytesText(value));
    }
  }

  // Entries of one field share a line; entries of several have one each.
  void Table(const std::string& name, const Json& table) {
    const Json& entries = table["entries"];
    const std::string head = "." + name + " (" + table["count"].dump() + ")";
    const bool isComplete = entries.size() == table["count"].get<uint64_t>();
    if (!entries.empty() && entries.front().size() == 1) {
      std::string text = head + ":";
      for (const Json& entry : entries) text += " " + ScalarText(entry.front());
      Line(text + (isComplete ? "" : " ..."));
      return;
    }
    Line(head);
    ++depth_;
    for (size_t i = 0; i < entries.size(); ++i) {
      std::string text = "[" + std::to_string(i) + "]";
      for (const auto& [field, value] : entries[i].items()) {
        text += (text.back() == ']' ? " " : ", ") + field + " " + ScalarText(value);
      }
      Line(text);
    }
    if (!isComplete) Line("...");
    --depth_;
  }

  Output& out_;
  size_t depth_ = 0;
};

class JsonForm final : public TreeForm {
 public:
  explicit JsonForm(Output& out) : out_(out) { out_.Write("["); }

  void BeginBox(const BoxFacts& facts, const Json& fields) override {
    Json json = {
        {"type", FourCharacters(facts.type)}, {"offset", facts.offset}, {"size", facts.size}};
    if (facts.version) json["version"] = *facts.version;
    if (facts.flags) json["flags"] = *facts.flags;
    json["fields"] = fields;
    std::string text = Dump(json);
    text.pop_back();  // The object stays open for the children.
    Item(text + ",\"children\":[");
    hasItem_.push_back(false);
  }
  void EndBox() override {
    hasItem_.pop_back();
    out_.Write("]}");
  }
  void Problem(const TreeProblem& problem) override {
    Item(Dump({{"problem", problem.text}, {"offset", problem.offset}}));
  }
  void End() override { out_.Write("\n]\n"); }

 private:
  static std::string Dump(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
  }
  void Item(const std::string& text) {
    out_.Write(hasItem_.back() ? ",\n" : "\n");
    out_.Write(std::string(hasItem_.size(), ' ') + text);
    hasItem_.back() = true;
  }

  Output& out_;
  std::vector<bool> hasItem_ = {false};  // For each open array: whether a comma comes first.
};

}  // namespace

std::unique_ptr<TreeForm> MakeTreeForm(bool asJson, Output& out) {
  if (asJson) return std::make_unique<JsonForm>(out);
  return std::make_unique<TextForm>(out);
}

}  // namespace qiro::k7m::tool

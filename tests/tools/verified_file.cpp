#include "verified_file.h"

#include <algorithm>

#include "support/box_finder.h"

namespace k7mtest {

using Json = nlohmann::json;

namespace {

// "moov/trak[2]" as "moov/trak#2".
std::string FinderPath(std::string path) {
  std::replace(path.begin(), path.end(), '[', '#');
  path.erase(std::remove(path.begin(), path.end(), ']'), path.end());
  return path;
}

void ExpectInPlace(const BrokenFile& file, const Bytes& bytes, const Json& places) {
  ASSERT_FALSE(places.empty());
  if (file.offset) {
    EXPECT_EQ(places[0]["offset"], file.offset(bytes));
    return;
  }
  const BoxPlace box = PlaceOf(bytes, FinderPath(file.path));
  ASSERT_NE(box.size, 0u) << "no box to compare with, and no offset";
  for (const Json& place : places) {
    EXPECT_GE(place["offset"], box.offset) << place;
    EXPECT_LT(place["offset"], box.offset + box.size) << place;
  }
}

}  // namespace

std::set<std::string> Verdict::Rules() const {
  std::set<std::string> rules;
  for (const Json& finding : json["findings"]) {
    if (finding["severity"] != "info") rules.insert(finding["rule"]);
  }
  return rules;
}

Json Verdict::Finding(const std::string& rule) const {
  for (const Json& finding : json["findings"]) {
    if (finding["rule"] == rule) return finding;
  }
  return nullptr;
}

Verdict Verify(const Bytes& bytes) {
  const TemporaryFolder folder;
  const RunResult result = RunK7m({"verify", folder.Write("clip.mp4", bytes), "--json"});
  Verdict verdict{.exitCode = result.exitCode, .json = {}, .err = result.err};
  EXPECT_TRUE(Json::accept(result.out)) << result;
  if (Json::accept(result.out)) verdict.json = Json::parse(result.out);
  return verdict;
}

std::ostream& operator<<(std::ostream& out, const BrokenFile& file) { return out << file.rule; }

std::string NameOf(const testing::TestParamInfo<BrokenFile>& info) {
  std::string name = std::string(info.param.rule) + "_" + std::to_string(info.index);
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

void ExpectFound(const BrokenFile& file) {
  const Bytes bytes = file.make();
  const Verdict verdict = Verify(bytes);
  EXPECT_EQ(verdict.exitCode, file.exitCode) << verdict.json.dump(2);
  EXPECT_EQ(verdict.err, "");
  const Json finding = verdict.Finding(file.rule);
  ASSERT_FALSE(finding.is_null()) << verdict.json.dump(2);
  EXPECT_EQ(finding["path"], file.path) << finding.dump(2);
  ExpectInPlace(file, bytes, finding["places"]);
  EXPECT_NE(finding["consequence"], "");
  for (const std::string& rule : verdict.Rules()) {
    EXPECT_TRUE(rule == file.rule || file.others.count(rule) != 0) << rule << "\n"
                                                                   << verdict.json.dump(2);
  }
}

}  // namespace k7mtest

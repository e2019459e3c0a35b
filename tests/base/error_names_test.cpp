#include "base/error_names.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>

namespace qiro::k7m::impl {
namespace {

/// Every code and name that the public header declares.
std::map<QiroK7MError, std::string> DeclaredCodes() {
  std::ifstream header(K7M_ERRORS_HEADER);
  const std::regex pattern(R"(^\s*(kQiroK7M(?:Error|Warning)\w+) = (\d+),?$)");
  std::map<QiroK7MError, std::string> codes;
  for (std::string line; std::getline(header, line);) {
    std::smatch match;
    if (std::regex_match(line, match, pattern)) {
      codes[static_cast<QiroK7MError>(std::stoul(match[2]))] = match[1];
    }
  }
  return codes;
}

TEST(ErrorNames, EveryDeclaredCodeHasItsName) {
  const auto codes = DeclaredCodes();
  ASSERT_GT(codes.size(), 60U);
  for (const auto& [code, name] : codes) {
    EXPECT_EQ(ErrorName(code), name) << code;
  }
}

TEST(ErrorNames, EveryDeclaredCodeHasATextOfItsOwn) {
  std::set<std::string> texts = {ErrorText(4000000000U)};
  for (const auto& [code, name] : DeclaredCodes()) {
    const std::string text = ErrorText(code);
    EXPECT_GT(text.size(), 5U) << name;
    EXPECT_TRUE(texts.insert(text).second) << name << ": " << text;
  }
}

TEST(ErrorNames, EveryOtherCodeIsUnknown) {
  const auto codes = DeclaredCodes();
  for (QiroK7MError code = 0; code < 5000; ++code) {
    if (codes.count(code) == 0) {
      EXPECT_STREQ(ErrorName(code), "unknown code") << code;
      EXPECT_STREQ(ErrorText(code), "a code that the library does not define") << code;
    }
  }
  EXPECT_STREQ(ErrorName(0xFFFFFFFFU), "unknown code");
}

TEST(ErrorNames, TheNumbersOfTheCodesAreFixed) {
  const auto codes = DeclaredCodes();
  const std::set<QiroK7MError> expected = {
      0,    1,    5,    6,    7,    8,    9,    10,   11,   12,   14,   15,   16,   17,
      18,   19,   20,   22,   23,   24,   25,   26,   27,   28,   29,   30,   31,   32,
      33,   36,   47,   48,   1024, 1025, 1026, 1027, 1028, 1029, 1030, 1033, 1280, 1281,
      1282, 1283, 1284, 1285, 1286, 1287, 1288, 1289, 1290, 1536, 1537, 1538, 1539, 1540,
      1541, 1542, 2048, 2049, 2050, 2051, 2052, 2053, 3073, 3074, 3075, 3076, 3077};
  std::set<QiroK7MError> declared;
  for (const auto& [code, name] : codes) {
    declared.insert(code);
  }
  EXPECT_EQ(declared, expected);
}

}  // namespace
}  // namespace qiro::k7m::impl

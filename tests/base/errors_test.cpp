#include "base/errors.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "internals/error_of.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::ErrorOf;

template <class Work>
std::string MessageOf(Work&& work) {
  try {
    work();
  } catch (const std::exception& exception) {
    return exception.what();
  }
  return "nothing was thrown";
}

TEST(Exception, MessageIsThePrefixFollowedByTheCode) {
  EXPECT_EQ(MessageOf([] { ThrowException(27); }), "k7m error:27");
  EXPECT_EQ(MessageOf([] { ThrowException(0); }), "k7m error:0");
  EXPECT_EQ(MessageOf([] { ThrowException(4294967295U); }), "k7m error:4294967295");
}

TEST(Exception, MessageNamesThePlaceOnlyWhenAFileIsGiven) {
  EXPECT_EQ(MessageOf([] { throw_exception(5, "a.cpp", 12); }),
            "k7m error:5 file:'a.cpp' line:12'");
  EXPECT_EQ(MessageOf([] { throw_exception(5, nullptr, 12); }), "k7m error:5");
}

TEST(Exception, MessageCanBeGivenAsText) {
  EXPECT_EQ(MessageOf([] { throw_exception_with_message(7, "a text that is longer than most"); }),
            "a text that is longer than most");
  EXPECT_EQ(ErrorOf([] { throw_exception_with_message(7, "text"); }), 7U);
}

TEST(Exception, CarriesAnyCodeUnchanged) {
  for (const QiroK7MError code : {0U, 1U, 5U, 1028U, 0x80000000U, 0xFFFFFFFFU}) {
    std::optional<QiroK7MError> got;
    try {
      ThrowException(code);
    } catch (const exception_t& exception) {
      got = exception.get_error();
    }
    EXPECT_EQ(got, code);
  }
}

TEST(Exception, ACopyHasItsOwnCodeAndMessage) {
  std::optional<exception_t> copy;
  {
    const exception_t original(new exception_t::implementation_t{31}, "some message");
    copy.emplace(original);
  }
  EXPECT_EQ(copy->get_error(), 31U);
  EXPECT_STREQ(copy->what(), "some message");
}

TEST(Exception, IsAStandardException) { EXPECT_THROW(ThrowException(3), std::exception); }

TEST(ThrowIf, ThrowsOnlyWhenTheConditionHolds) {
  EXPECT_EQ(ErrorOf([] { ThrowIf(true, 9); }), 9U);
  EXPECT_NO_THROW(ThrowIf(false, 9));
}

}  // namespace
}  // namespace qiro::k7m::impl

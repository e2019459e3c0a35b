#include "base/guarded_call.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <typeinfo>

#include "base/errors.h"
#include "k7m/errors.h"
#include "support/sweep.h"

namespace qiro::k7m::impl {
namespace {

/// The result of a call whose work throws `exception`.
template <class Exception>
QiroK7MError ResultOfThrowing(const Exception& exception) {
  return GuardedCall([&] { throw exception; });
}

/// Standard as well as one of memory: the first kind that fits decides.
struct MemoryKind : std::bad_array_new_length {};

TEST(GuardedCall, WithoutAnExceptionIsZero) {
  bool wasRun = false;
  EXPECT_EQ(GuardedCall([&] { wasRun = true; }), 0U);
  EXPECT_TRUE(wasRun);
}

TEST(GuardedCall, TheLibrarysOwnExceptionGivesItsCode) {
  for (const QiroK7MError code : {1U, 5U, 18U, 27U, 1028U, 0x12345678U, 0xFFFFFFFFU}) {
    EXPECT_EQ(GuardedCall([&] { ThrowException(code); }), code);
  }
}

TEST(GuardedCall, TheLibrarysOwnExceptionIsNeverTakenForAStandardOne) {
  EXPECT_EQ(ResultOfThrowing(exception_t(new exception_t::implementation_t{7}, "text")), 7U);
}

TEST(GuardedCall, ExhaustedMemoryIs18) {
  EXPECT_EQ(ResultOfThrowing(std::bad_alloc()), 18U);
  EXPECT_EQ(ResultOfThrowing(std::bad_array_new_length()), 18U);
  EXPECT_EQ(ResultOfThrowing(MemoryKind()), 18U);
}

TEST(GuardedCall, EveryOtherStandardExceptionIs19) {
  EXPECT_EQ(ResultOfThrowing(std::exception()), 19U);
  EXPECT_EQ(ResultOfThrowing(std::bad_cast()), 19U);
  EXPECT_EQ(ResultOfThrowing(std::bad_typeid()), 19U);
  EXPECT_EQ(ResultOfThrowing(std::bad_exception()), 19U);
  EXPECT_EQ(ResultOfThrowing(std::bad_function_call()), 19U);
  EXPECT_EQ(ResultOfThrowing(std::logic_error("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::invalid_argument("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::domain_error("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::length_error("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::out_of_range("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::runtime_error("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::range_error("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::overflow_error("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::underflow_error("x")), 19U);
  EXPECT_EQ(ResultOfThrowing(std::system_error(std::error_code())), 19U);
}

TEST(GuardedCall, AnythingElseIsOne) {
  EXPECT_EQ(ResultOfThrowing(42), 1U);
  EXPECT_EQ(ResultOfThrowing("text"), 1U);
  EXPECT_EQ(ResultOfThrowing(std::string("text")), 1U);
}

TEST(GuardedCall, WhatWasMadeOnTheWayIsGoneBeforeTheResult) {
  struct Guard {
    explicit Guard(bool* flag) : isGone(flag) {}
    ~Guard() { *isGone = true; }
    bool* isGone;
  };
  bool isGone = false;
  const QiroK7MError error = GuardedCall([&] {
    const Guard guard(&isGone);
    ThrowException(27);
  });
  EXPECT_EQ(error, 27U);
  EXPECT_TRUE(isGone);
}

TEST(GuardedCall, MemoryThatEndsWhileAnExceptionIsMadeIs18AndLeaksNothing) {
  const char* text = "a message that is too long to be kept inside a string object";
  k7mtest::Sweep([text](uint64_t n) {
    const k7mtest::HeapFault fault(n);
    const QiroK7MError error = GuardedCall([text] { throw_exception_with_message(7, text); });
    EXPECT_EQ(error, fault.Hit() ? 18U : 7U);
    return fault.Hit();
  });
}

}  // namespace
}  // namespace qiro::k7m::impl

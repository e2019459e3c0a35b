// What the shells would take for their own in the names of values.
#include <gtest/gtest.h>

#include <string>

#include "pages/completions.h"

namespace {

using qiro::k7m::tool::CommandText;
using qiro::k7m::tool::OptionText;
using qiro::k7m::tool::ProgramText;

TEST(Completions, WhatAZshWouldRunStaysText) {
  OptionText option;
  option.names = {"--limit"};
  option.purpose = "No more [than: this]";
  option.value = "SIZE:SIZE [b, kb]";
  CommandText command;
  command.name = "copy";
  command.options = {option};
  ProgramText program;
  program.commands = {command};
  const std::string expected = R"('--limit=[No more \[than\: this\]]:SIZE\:SIZE [b, kb]:')";
  const std::string actual = qiro::k7m::tool::ZshCompletion(program);
  EXPECT_NE(actual.find(expected), std::string::npos) << actual;
}

}  // namespace

/// @file golden.h
/// Texts that lie beside the test data and are compared as a whole.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace k7mtest {

/// Whether the text is that of tests/data/golden/`name`. A failure shows the lines that differ and
/// the command that accepts the new text. With K7M_ACCEPT=1 in the environment the file is written
/// instead.
testing::AssertionResult IsGolden(const std::string& name, const std::string& text);

}  // namespace k7mtest

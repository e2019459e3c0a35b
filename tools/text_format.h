/// @file text_format.h
/// How codes, dates and foreign text are written for people.
#pragma once

#include <k7m/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qiro::k7m::tool {

/// The text with control characters as \xNN, so that no file can write to a terminal as it likes.
std::string Printable(std::string_view text);
/// A four-character code; characters outside printable ASCII as \xNN.
std::string FourCharacters(uint32_t code);
/// The code of four characters; any other number of characters is no code and gives 0.
uint32_t FourCharacterCode(std::string_view text);
/// "2026-11-21 08:15:00"
std::string DateText(const QiroK7MDateTime& date);
/// "1 gap", "2 gaps"
std::string CountText(uint64_t count, std::string_view thing);
/// A number with at most six significant digits and no trailing zeros: "44100", "29.97".
std::string NumberText(double number);

}  // namespace qiro::k7m::tool

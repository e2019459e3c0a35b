#include "text_format.h"

#include <cstdio>

namespace qiro::k7m::tool {
namespace {

std::string Escaped(unsigned char character) {
  char text[8];
  std::snprintf(text, sizeof text, "\\x%02X", static_cast<unsigned>(character));
  return text;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string result;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) {
      result += Escaped(byte);
    } else {
      result += character;
    }
  }
  return result;
}

std::string FourCharacters(uint32_t code) {
  std::string result;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto byte = static_cast<unsigned char>(code >> shift);
    if (byte < 0x20 || byte >= 0x7F) {
      result += Escaped(byte);
    } else {
      result += static_cast<char>(byte);
    }
  }
  return result;
}

uint32_t FourCharacterCode(std::string_view text) {
  if (text.size() != 4) return 0;
  uint32_t code = 0;
  for (const char character : text) code = code << 8 | static_cast<unsigned char>(character);
  return code;
}

std::string DateText(const QiroK7MDateTime& date) {
  char text[32];
  std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", unsigned{date.year},
                unsigned{date.month}, unsigned{date.day}, unsigned{date.hour},
                unsigned{date.minute}, unsigned{date.second});
  return text;
}

std::string CountText(uint64_t count, std::string_view thing) {
  std::string text = std::to_string(count) + " " + std::string(thing);
  if (count != 1) text += 's';
  return text;
}

std::string NumberText(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", number);
  return text;
}

}  // namespace qiro::k7m::tool

#include "md5.h"

#include <array>
#include <bit>
#include <cmath>

namespace k7mtest {

namespace {

using State = std::array<uint32_t, 4>;

constexpr std::array<int, 16> kShifts = {7, 12, 17, 22, 5, 9, 14, 20, 4, 11, 16, 23, 6, 10, 15, 21};

/// Floor of 2^32 times |sin(i + 1)|, as the algorithm defines its constants.
std::array<uint32_t, 64> MakeConstants() {
  std::array<uint32_t, 64> constants{};
  for (size_t i = 0; i < constants.size(); ++i) {
    constants[i] = static_cast<uint32_t>(
        std::floor(std::ldexp(std::fabs(std::sin(static_cast<double>(i + 1))), 32)));
  }
  return constants;
}

void AddBlock(State& state, const uint8_t* block) {
  static const std::array<uint32_t, 64> kConstants = MakeConstants();
  std::array<uint32_t, 16> words{};
  for (size_t i = 0; i < 64; ++i) words[i / 4] |= uint32_t{block[i]} << (8 * (i % 4));
  auto [a, b, c, d] = state;
  for (size_t i = 0; i < 64; ++i) {
    uint32_t mix = 0;
    size_t word = 0;
    switch (i / 16) {
      case 0:
        mix = (b & c) | (~b & d);
        word = i;
        break;
      case 1:
        mix = (d & b) | (~d & c);
        word = (5 * i + 1) % 16;
        break;
      case 2:
        mix = b ^ c ^ d;
        word = (3 * i + 5) % 16;
        break;
      default:
        mix = c ^ (b | ~d);
        word = (7 * i) % 16;
        break;
    }
    mix += a + kConstants[i] + words[word];
    a = d;
    d = c;
    c = b;
    b += std::rotl(mix, kShifts[i / 16 * 4 + i % 4]);
  }
  state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
}

}  // namespace

std::string Md5(const Bytes& bytes) {
  Bytes padded = bytes;
  padded.U8(0x80);
  while (padded.Size() % 64 != 56) padded.U8(0);
  const uint64_t bits = uint64_t{bytes.Size()} * 8;
  for (int i = 0; i < 8; ++i) padded.U8(bits >> (8 * i));  // The length is little-endian.
  State state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  for (size_t offset = 0; offset < padded.Size(); offset += 64) {
    AddBlock(state, padded.Data() + offset);
  }
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint32_t word : state) {
    for (int i = 0; i < 4; ++i) {
      const uint32_t byte = word >> (8 * i) & 0xFF;
      text += kDigits[byte >> 4];
      text += kDigits[byte & 15];
    }
  }
  return text;
}

}  // namespace k7mtest

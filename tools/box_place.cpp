#include "box_place.h"

#include <array>

#include "failure.h"
#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kHeaderSize = 8;
constexpr uint64_t kLargeHeaderSize = 16;

}  // namespace

uint64_t FileNumbers::At(uint64_t offset, size_t size) {
  std::array<uint8_t, 8> bytes{};
  uint64_t count = 0;
  QiroK7MError result = callBacks_.seek(file_, static_cast<int64_t>(offset), kQiroK7MSeekFromStart);
  if (result == 0) result = callBacks_.readSome(file_, bytes.data(), size, &count);
  if (result != 0) throw file_->WhatFailed();
  if (count < size) throw LibraryFailure(Path(), kQiroK7MErrorReadFailed);
  uint64_t number = 0;
  for (size_t i = 0; i < size; ++i) number = number << 8 | bytes[i];
  return number;
}

std::optional<BoxPlace> BoxAt(FileNumbers* numbers, uint64_t offset, uint64_t end) {
  const uint64_t rest = end - offset;
  if (rest < kHeaderSize) return std::nullopt;
  BoxPlace box{FourCharacters(static_cast<uint32_t>(numbers->At(offset + 4, 4))), offset,
               kHeaderSize, numbers->At(offset, 4)};
  if (box.size == 0) box.size = rest;
  if (box.size == 1) {
    if (rest < kLargeHeaderSize) return std::nullopt;
    box.size = numbers->At(offset + kHeaderSize, 8);
    box.headerSize = kLargeHeaderSize;
  }
  if (box.size < box.headerSize) {
    throw LibraryFailure(numbers->Path(), kQiroK7MErrorBoxTruncated);
  }
  return box.size <= rest ? std::optional(box) : std::nullopt;
}

}  // namespace qiro::k7m::tool

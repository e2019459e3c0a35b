#include "box_finder.h"

#include <gtest/gtest.h>

namespace k7mtest {
namespace {

/// The box that starts at `offset`; size 0 when no whole box does.
BoxPlace PlaceAt(const Bytes& file, size_t offset, size_t end) {
  if (offset + 8 > end) return {};
  BoxPlace place{offset, static_cast<size_t>(file.NumberAt(offset)), 8};
  if (place.size == 1 && offset + 16 <= end) {
    place.size = static_cast<size_t>(file.NumberAt(offset + 8, 8));
    place.headerSize = 16;
  }
  return place.size < place.headerSize || place.size > end - offset ? BoxPlace() : place;
}

std::string CodeOf(const Bytes& file, const BoxPlace& place) {
  std::string code;
  for (size_t i = 0; i < 4; ++i) code += static_cast<char>(file[place.offset + 4 + i]);
  return code;
}

}  // namespace

BoxPlace PlaceOf(const Bytes& file, std::string_view path) {
  BoxPlace inside{0, file.Size(), 0};
  while (!path.empty()) {
    const std::string_view step = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(path.size(), step.size() + 1));
    const std::string_view code = step.substr(0, step.find('#'));
    size_t number = step.size() > code.size() ? std::stoul(std::string(step.substr(5))) : 1;
    const size_t end = inside.offset + inside.size;
    BoxPlace place = PlaceAt(file, inside.offset + inside.headerSize, end);
    while (place.size != 0 && (CodeOf(file, place) != code || --number != 0)) {
      place = PlaceAt(file, place.offset + place.size, end);
    }
    if (place.size == 0) return {};
    inside = place;
  }
  return inside;
}

Bytes FindBox(const Bytes& file, std::string_view path) {
  const BoxPlace place = PlaceOf(file, path);
  return file.Slice(place.offset, place.size);
}

std::vector<std::string> CodesIn(const Bytes& file, std::string_view path) {
  std::vector<std::string> codes;
  const BoxPlace inside = PlaceOf(file, path);
  const size_t end = inside.offset + inside.size;
  for (BoxPlace place = PlaceAt(file, inside.offset + inside.headerSize, end); place.size != 0;
       place = PlaceAt(file, place.offset + place.size, end)) {
    codes.push_back(CodeOf(file, place));
  }
  return codes;
}

uint64_t NumberIn(const Bytes& file, std::string_view path, size_t offset, size_t width) {
  const BoxPlace place = PlaceOf(file, path);
  if (place.size < offset + width) {
    ADD_FAILURE() << "no number at " << offset << " in " << path;
    return 0;
  }
  return file.NumberAt(place.offset + offset, width);
}

}  // namespace k7mtest

#include "fragment_file.h"

#include "movie_builder.h"

namespace k7mtest {
namespace {

constexpr uint32_t kTfhdFlags = 0x000003;  // Base data offset, description.
constexpr uint32_t kTrunFlags = 0x000301;  // Data offset, durations, sizes.

Bytes Join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) all.Append(part);
  return all;
}

Bytes Number(uint64_t value, bool isLong, size_t longSize) {
  Bytes bytes;
  if (longSize == 8) return isLong ? bytes.U64(value) : bytes.U32(value);
  return isLong ? bytes.U32(value) : bytes.U16(value);
}

Bytes MdatOf(const TestFragment& fragment) {
  const Bytes media = Join(fragment.samples);
  return fragment.hasLargeMdat ? LargeBox("mdat", media) : Box("mdat", media);
}

Bytes FragmentAt(uint64_t offset, uint32_t number, const TestFragment& fragment) {
  const Bytes front = AfraBox(fragment.afra) + fragment.bootstrap;
  const Bytes mdat = MdatOf(fragment);
  const uint64_t begin = offset + front.Size();
  const uint64_t headerSize = fragment.hasLargeMdat ? 16 : 8;
  if (fragment.isMdatFirst) {
    return front + mdat + Moof(number, fragment.samples, begin + headerSize);
  }
  const size_t moofSize = Moof(number, fragment.samples, 0).Size();
  return front + Moof(number, fragment.samples, begin + moofSize + headerSize) + mdat;
}

}  // namespace

Bytes Afra::Payload() const {
  const bool hasGlobals = hasGlobalPart || !globals.empty();
  Bytes bytes;
  bytes.U8((hasLongIds ? 0x80u : 0u) | (hasLongOffsets ? 0x40u : 0u) | (hasGlobals ? 0x20u : 0u) |
           reservedBits);
  bytes.U32(timeScale).U32(localCount.value_or(static_cast<uint32_t>(locals.size())));
  for (const Local& entry : locals) {
    bytes.U64(entry.time).Append(Number(entry.offset, hasLongOffsets, 8));
  }
  if (!hasGlobals) return bytes;
  bytes.U32(globalCount.value_or(static_cast<uint32_t>(globals.size())));
  for (const Global& entry : globals) {
    bytes.U64(entry.time);
    bytes.Append(Number(entry.segment, hasLongIds, 4))
        .Append(Number(entry.fragment, hasLongIds, 4));
    bytes.Append(Number(entry.afraOffset, hasLongOffsets, 8));
    bytes.Append(Number(entry.offsetFromAfra, hasLongOffsets, 8));
  }
  return bytes;
}

Bytes FragmentedMovieHead() {
  Movie movie;
  movie.tracks.push_back({.width = 64 << 16, .height = 48 << 16});
  movie.moreInMoov = Box("mvex", FullBox("trex", 0, 0, Trex{}));
  const MovieFile file = BuildMovie(movie);
  return Cut(file.bytes, file.mdatOffset);
}

Bytes Moof(uint32_t sequenceNumber, const std::vector<Bytes>& samples, uint64_t dataOffset) {
  Trun trun;
  for (const Bytes& sample : samples) {
    trun.samples.push_back({.duration = 10, .size = static_cast<uint32_t>(sample.Size())});
  }
  return Box("moof", FullBox("mfhd", 0, 0, Mfhd{sequenceNumber}),
             Box("traf", FullBox("tfhd", 0, kTfhdFlags, Tfhd{.baseDataOffset = dataOffset}),
                 FullBox("trun", 0, kTrunFlags, trun)));
}

FragmentFile BuildFragmentFile(const std::vector<TestFragment>& fragments, const Bytes& atEnd) {
  FragmentFile file;
  file.bytes = FragmentedMovieHead();
  for (const TestFragment& fragment : fragments) {
    file.bytes.Append(fragment.before);
    const uint32_t number = static_cast<uint32_t>(file.offsets.size() + 1);
    file.offsets.push_back(file.bytes.Size());
    file.fragments.push_back(FragmentAt(file.bytes.Size(), number, fragment));
    file.bytes.Append(file.fragments.back());
  }
  file.bytes.Append(atEnd);
  return file;
}

FragmentFile SomeFragments(size_t count) {
  std::vector<TestFragment> fragments(count);
  for (size_t i = 0; i < count; ++i) {
    const auto seed = static_cast<uint32_t>(i + 1);
    fragments[i].samples = {Pattern(20 + i % 7, seed), Pattern(10 + i % 3, seed + 1000)};
    fragments[i].afra.locals = {{.time = 20 * i, .offset = 150}};
    if (i % 3 == 1) fragments[i].bootstrap = Box("abst", Pattern(33, seed));
  }
  return BuildFragmentFile(fragments);
}

Bytes LocalIndex(const FragmentFile& file, Afra layout) {
  for (const uint64_t offset : file.offsets) {
    layout.locals.push_back({.time = 20 * layout.locals.size(), .offset = offset});
  }
  return AfraBox(layout);
}

Bytes GlobalIndex(const FragmentFile& file, Afra layout, uint32_t firstFragment, uint32_t segment) {
  for (const uint64_t offset : file.offsets) {
    const auto index = static_cast<uint32_t>(layout.globals.size());
    layout.globals.push_back({.time = 20 * index,
                              .segment = segment,
                              .fragment = firstFragment + index,
                              .afraOffset = offset,
                              .offsetFromAfra = 150});
  }
  layout.hasGlobalPart = true;
  return AfraBox(layout);
}

}  // namespace k7mtest

#include "families.h"
#include "family_parts.h"

namespace k7mtest {
namespace {

/// `depth` boxes in each other, around `inner`.
Bytes Nested(std::string_view code, uint32_t depth, const Bytes& inner = {}) {
  Bytes heads;
  for (size_t i = depth; i > 0; --i) heads.U32(8 * i + inner.Size()).Code(code);
  return heads + inner;
}

Bytes InMoov(const Bytes& boxes) {
  return BuildMovie({.tracks = {SteadyTrack(3)}, .moreInMoov = boxes}).bytes;
}
Bytes InTrak(const Bytes& boxes) {
  Track track = SteadyTrack(3);
  track.moreInTrak = boxes;
  return FileWith(track);
}
Bytes InStbl(const Bytes& boxes) {
  Track track = SteadyTrack(3);
  track.moreInStbl = boxes;
  return FileWith(track);
}
Bytes Behind(const Bytes& boxes) { return FileWith(SteadyTrack(3)) + boxes; }
Bytes InMoof(const Bytes& boxes) { return FragmentedFile(Moof(boxes)); }
Bytes InTraf(const Bytes& boxes) { return FragmentedFile(Moof(Traf(0, Tfhd{}, boxes))); }

/// The same boxes in every place.
void AddEverywhere(std::vector<BadFile>& files, const std::string& name, const Bytes& boxes) {
  files.push_back({name + " at the top", Behind(boxes)});
  files.push_back({name + " in moov", InMoov(boxes)});
  files.push_back({name + " in trak", InTrak(boxes)});
  files.push_back({name + " in stbl", InStbl(boxes)});
  files.push_back({name + " in moof", InMoof(boxes)});
  files.push_back({name + " in traf", InTraf(boxes)});
}

}  // namespace

std::vector<BadFile> NestedBoxes(uint32_t size) {
  std::vector<BadFile> files;
  for (const char* code : {"edts", "trak", "moof", "mdia", "tref"}) {
    files.push_back({std::string("chains of ") + code, InMoov(Times(size / 25, Nested(code, 25)))});
  }
  AddEverywhere(files, "bottomless", Nested("edts", size));
  AddEverywhere(files, "chains", Times(size / 20, Nested("tref", 20, Box("free"))));
  return files;
}

std::vector<BadFile> TinyBoxes(uint32_t size) {
  std::vector<BadFile> files;
  AddEverywhere(files, "free", Times(size, Box("free")));
  AddEverywhere(files, "no type", Times(size, LyingBox(std::string(4, '\0'), 8)));
  AddEverywhere(files, "uuid", Times(size, UuidBox(kMetadataUuid)));
  AddEverywhere(files, "large", Times(size, LargeBox("free")));
  const Stsd entries{.entries = std::vector<Bytes>(size, Box("abcd", Bytes().Fill(8)))};
  files.push_back({"descriptions", FileWithTable(size, "stsd", FullBox("stsd", 0, 0, entries))});
  return files;
}

std::vector<BadFile> WrongSizes(uint32_t size) {
  std::vector<BadFile> files;
  const Bytes good = Times(size, Box("free"));
  const Bytes uuid = UuidBytes(kMetadataUuid);
  const std::pair<const char*, Bytes> kinds[] = {
      {"7", LyingBox("free", 7)},
      {"9", LyingBox("free", 9, Bytes().Fill(1))},
      {"0", LyingBox("free", 0)},
      {"large 15", LyingLargeBox("free", 15)},
      {"large 17", LyingLargeBox("free", 17, Bytes().Fill(1))},
      {"large 0", LyingLargeBox("free", 0)},
      {"uuid 23", LyingBox("uuid", 23, uuid)},
      {"uuid 25", LyingBox("uuid", 25, uuid, Bytes().Fill(1))},
      {"past the end", LyingBox("free", 0x7FFFFFFF)},
      {"wrapping", LyingLargeBox("free", UINT64_MAX - 15)}};
  for (const auto& [name, box] : kinds) {
    AddEverywhere(files, std::string("at last ") + name, good + box);
    files.push_back({std::string("all ") + name, Behind(Times(size, box))});
    files.push_back({std::string("all in moov ") + name, InMoov(Times(size, box))});
  }
  return files;
}

std::vector<BadFile> RepeatedBoxes(uint32_t size) {
  std::vector<BadFile> files;
  const auto add = [&](const char* name, const Bytes& file) { files.push_back({name, file}); };
  const Bytes movie = FileWith(SteadyTrack(2));
  add("whole movies", Times(size / 8, movie));
  add("mdat", Behind(Times(size, Box("mdat"))));
  add("ftyp", Behind(Times(size, Box("ftyp", Ftyp{}))));
  add("mvhd", InMoov(Times(size, FullBox("mvhd", 0, 0, Mvhd{}))));
  add("tkhd", InTrak(Times(size, FullBox("tkhd", 0, 0, Tkhd{}))));
  add("edts", InTrak(Times(size, Box("edts", FullBox("elst", 0, 0, Elst{.entries = {{}}})))));
  add("tref", InTrak(Times(size, Box("tref", Box("hint", Bytes().U32(1))))));
  for (const char* code : {"stts", "ctts", "stss", "stco"}) {
    add(code, InStbl(Times(size, FullBox(code, 0, 0, Bytes().U32(0)))));
  }
  add("sdtp", InStbl(Times(size, FullBox("sdtp", 0, 0, Bytes().Fill(3)))));
  Movie tracks{.timeScale = 1000};
  for (uint32_t i = 0; i < size / 2; ++i) tracks.tracks.push_back(SteadyTrack(2));
  for (Track& track : tracks.tracks) track.id = 1;
  add("tracks of one number", BuildMovie(tracks).bytes);
  const Bytes run = DefaultRun(1);
  add("mfhd", InMoof(Times(size, FullBox("mfhd", 0, 0, Mfhd{}))));
  add("tfhd", InTraf(Times(size, FullBox("tfhd", 0, 0, Tfhd{}))));
  add("tfdt", InTraf(Times(size, FullBox("tfdt", 0, 0, Tfdt{.time = 5})) + run));
  add("trun", InTraf(Times(size, run)));
  add("empty trun", InTraf(Times(size, DefaultRun(0)) + run));
  add("traf", InMoof(Times(size, Traf(0, Tfhd{}, run))));
  add("traf without samples", InMoof(Times(size, Traf(0, Tfhd{}))));
  Movie defaults = FragmentedMovie({{.duration = 1000000}}, {.duration = 10, .size = 4});
  defaults.moreInMoov = Mvex(std::vector<Trex>(size, {.duration = 10, .size = 4}));
  add("trex", BuildMovie(defaults).bytes + Times(size, Moof(Traf(0, Tfhd{}, run))));
  add("mvex",
      BuildMovie({.tracks = {SteadyTrack(2)}, .moreInMoov = Times(size, Mvex({Trex{}}))}).bytes);
  return files;
}

std::vector<BadFile> MisplacedBoxes(uint32_t size) {
  std::vector<BadFile> files;
  const std::pair<const char*, Bytes> kinds[] = {
      {"moof", Moof(Traf(0, Tfhd{}, DefaultRun(1)))},
      {"traf", Traf(0, Tfhd{}, DefaultRun(1))},
      {"trun", DefaultRun(1)},
      {"trak", Box("trak")},
      {"stbl", Box("stbl")},
      {"stts", FullBox("stts", 0, 0, Stts{.runs = {{1, 1}}})},
      {"elst", FullBox("elst", 0, 0, Elst{.entries = {{}}})},
      {"mdat", Box("mdat", Bytes().Fill(4))},
      {"afra", FullBox("afra", 0, 0, Bytes().U8(0).U32(1).U32(0))},
      {"mfra", Box("mfra", FullBox("mfro", 0, 0, Bytes().U32(16)))}};
  for (const auto& [name, box] : kinds) AddEverywhere(files, name, Times(size, box));
  const Bytes moof = Moof(Traf(0, Tfhd{}, DefaultRun(1)));
  const Bytes movie = BuildMovie(FragmentedMovie({{.duration = 1000000}}, {.duration = 1})).bytes;
  files.push_back({"fragments before the movie", Times(size, moof) + movie});
  files.push_back({"movie never", Times(size, moof)});
  return files;
}

}  // namespace k7mtest

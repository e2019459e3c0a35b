#include "families.h"
#include "family_parts.h"

namespace k7mtest {

std::vector<BadFile> BadFragments(uint32_t size) {
  std::vector<BadFile> files;
  const auto add = [&](const char* name, const Bytes& moof, uint32_t count) {
    files.push_back({name, FragmentedFile(Times(count, moof))});
  };
  const Bytes run = DefaultRun(2);
  add("whole", Moof(Traf(0, Tfhd{}, run)), size);
  add("another track", Moof(Traf(0, Tfhd{.trackId = 7}, run)), size);
  add("track 0", Moof(Traf(0, Tfhd{.trackId = 0}, run)), size);
  add("samples without number", Moof(Traf(0, Tfhd{}, DefaultRun(UINT32_MAX))), size);
  add("samples of no duration",
      Moof(Traf(kTfhdDuration, Tfhd{.duration = 0}, DefaultRun(UINT32_MAX))), size);
  add("times that wrap",
      Moof(Traf(kTfhdDuration, Tfhd{.duration = UINT32_MAX}, DefaultRun(UINT32_MAX))), size);
  add("huge samples", Moof(Traf(kTfhdSize, Tfhd{.size = UINT32_MAX}, DefaultRun(9))), size);
  add("far offsets", Moof(Traf(kTfhdBase, Tfhd{.baseDataOffset = UINT64_MAX - 3}, run)), size);
  add("lying runs",
      Moof(Traf(0, Tfhd{}, FullBox("trun", 0, 0xF00, Trun{.samples = {{}}, .count = 1000}))), size);
  add("runs of the largest count",
      Moof(Traf(0, Tfhd{}, FullBox("trun", 0, 0xF00, Trun{.samples = {{}}, .count = UINT32_MAX}))),
      size);
  add("no track fragment", Moof(), size);
  add("no header", Box("moof"), size);
  for (const uint64_t time : {uint64_t{0}, uint64_t{1} << 63, UINT64_MAX}) {
    const std::string name = "tfdt " + std::to_string(time);
    add(name.c_str(), Moof(Traf(0, Tfhd{}, FullBox("tfdt", 1, 0, Tfdt{.time = time}), run)), size);
  }
  Movie movie = FragmentedMovie({{.duration = 1000000}}, {.duration = 10, .size = 4});
  movie.tracks[0].edits.assign(size, {.segmentDuration = 15, .mediaTime = 10});
  files.push_back(
      {"many edits", BuildMovie(movie).bytes + Times(size, Moof(Traf(0, Tfhd{}, run)))});
  Movie tracks = FragmentedMovie(std::vector<Track>(size / 4 + 1, {.duration = 1000}),
                                 {.duration = 10, .size = 4});
  const Bytes each =
      Times(size / 4, [&](uint32_t i) { return Moof(Traf(0, Tfhd{.trackId = i + 1}, run)); });
  files.push_back({"many tracks", BuildMovie(tracks).bytes + each});
  files.push_back(
      {"many tracks in one", BuildMovie(tracks).bytes + Moof(Times(size / 4, [&](uint32_t i) {
                               return Traf(0, Tfhd{.trackId = i + 1}, run);
                             }))});
  return files;
}

std::vector<BadFile> BadRecordings(uint32_t size) {
  std::vector<BadFile> files;
  const FragmentFile file = SomeFragments(size / 8);
  files.push_back({"whole", file.bytes});
  files.push_back({"cut", Cut(file.bytes, file.bytes.Size() - 3)});
  files.push_back({"behind it zeros", file.bytes + Bytes().Fill(size)});
  files.push_back({"behind it ones", file.bytes + Bytes().Fill(size, 0xFF)});
  const Bytes head = FragmentedMovieHead();
  const Bytes afra = AfraBox({});
  files.push_back({"afra alone", head + Times(size, afra)});
  files.push_back({"afra and moof", head + Times(size, afra + Moof())});
  files.push_back({"afra and mdat", head + Times(size, afra + Box("mdat"))});
  files.push_back({"afra, moof, mdat, all empty", head + Times(size, afra + Moof() + Box("mdat"))});
  files.push_back({"bootstrap boxes", head + Times(size, Box("abst", Bytes().Fill(4)))});
  files.push_back({"afra with many entries",
                   head + AfraBox({.locals = std::vector<Afra::Local>(size, {1, UINT64_MAX})}) +
                       Moof() + Box("mdat")});
  files.push_back({"afra that lies",
                   head + Times(size, AfraBox({.localCount = UINT32_MAX}) + Moof() + Box("mdat"))});
  files.push_back({"local index", LocalIndex(file)});
  files.push_back({"global index", GlobalIndex(file)});
  files.push_back({"index that lies",
                   AfraBox({.locals = std::vector<Afra::Local>(size), .localCount = UINT32_MAX})});
  files.push_back({"index of ones",
                   AfraBox({.locals = std::vector<Afra::Local>(size, {UINT64_MAX, UINT64_MAX})})});
  return files;
}

std::vector<Family> AllFamilies() {
  return {{"LyingCounts", LyingCounts},       {"AllOnes", AllOnes},
          {"NestedBoxes", NestedBoxes},       {"TinyBoxes", TinyBoxes},
          {"WrongSizes", WrongSizes},         {"RepeatedBoxes", RepeatedBoxes},
          {"MisplacedBoxes", MisplacedBoxes}, {"DescriptionsOutOfRange", DescriptionsOutOfRange},
          {"ChunkMaps", ChunkMaps},           {"ExtremeEdits", ExtremeEdits},
          {"ExtremeTimes", ExtremeTimes},     {"ExtremeScales", ExtremeScales},
          {"BadFragments", BadFragments},     {"BadRecordings", BadRecordings},
          {"BadIndexes", BadIndexes}};
}

}  // namespace k7mtest

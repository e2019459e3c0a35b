#include "families.h"
#include "family_parts.h"

namespace k7mtest {
std::vector<BadFile> LyingCounts(uint32_t size) {
  std::vector<BadFile> files;
  for (const Table& table : kTables) {
    Bytes entries;
    for (uint32_t i = 0; i < size; ++i) {
      for (uint32_t k = 0; k < table.entrySize; k += 4) entries.U32(k == 0 ? i + 1 : 1);
    }
    const bool isChunkMap = std::string_view(table.code) == "stsc";
    // The size of the chunk map's buffer wraps in 32 bits, with 0x15555556 to almost nothing.
    for (const uint32_t lie :
         {size + 1, size * 2, uint32_t{100000000}, uint32_t{0x15555556}, UINT32_MAX}) {
      const std::string name = lie == size + 1 ? "one" : std::to_string(lie);
      files.push_back({std::string(table.code) + " " + name,
                       FileWithTable(size, table.code, TableOf(table, lie, entries)),
                       isChunkMap ? lie * table.entrySize : 0});
    }
  }
  Track edits = SteadyTrack(size);
  Elst list{.entries = std::vector<Elst::Entry>(size, {.segmentDuration = 10}), .count = size * 2};
  edits.replace["edts"] = Box("edts", FullBox("elst", 0, 0, list));
  files.push_back({"elst", FileWith(edits)});
  const std::vector<Bytes> entries(size, VideoEntry());
  const std::vector<Bytes> references(size, FullBox("url ", 0, 1));
  files.push_back(
      {"stsd", FileWithTable(size, "stsd", FullBox("stsd", 0, 0, Stsd{entries, size * 2}))});
  files.push_back(
      {"dref", FileWithTable(size, "dinf",
                             Box("dinf", FullBox("dref", 0, 0, Dref{references, size * 2})))});
  return files;
}

std::vector<BadFile> DescriptionsOutOfRange(uint32_t size) {
  std::vector<BadFile> files;
  for (const uint32_t index : {uint32_t{0}, uint32_t{2}, UINT32_MAX}) {
    Stsc chunks;
    for (uint32_t i = 0; i < size; ++i) chunks.runs.push_back({i + 1, 1, i % 2 == 0 ? index : 1});
    const std::string name = std::to_string(index);
    files.push_back({"stsc " + name, FileWithTable(size, "stsc", FullBox("stsc", 0, 0, chunks))});
    const Bytes moof = Moof(Traf(kTfhdDescription, Tfhd{.description = index}, DefaultRun(2)));
    files.push_back({"tfhd " + name, FragmentedFile(Times(size, moof))});
    files.push_back(
        {"trex " + name, FragmentedFile(Times(size, Moof(Traf(0, Tfhd{}, DefaultRun(2)))),
                                        {.description = index, .duration = 10})});
  }
  return files;
}

std::vector<BadFile> ChunkMaps(uint32_t size) {
  std::vector<BadFile> files;
  const auto add = [&](const char* name, const Stsc& chunks) {
    files.push_back({name, FileWithTable(size, "stsc", FullBox("stsc", 0, 0, chunks))});
  };
  const auto make = [size](auto run) {
    Stsc chunks;
    for (uint32_t i = 0; i < size; ++i) chunks.runs.push_back(run(i));
    return chunks;
  };
  using Run = Stsc::Run;
  add("no samples at all", make([](uint32_t i) { return Run{i + 1, 0, 1}; }));
  add("samples in the last chunk alone", make([size](uint32_t i) {
        return Run{i + 1, i + 1 == size ? 5u : 0u, 1};
      }));
  add("every other chunk without", make([](uint32_t i) { return Run{i + 1, i % 2, 1}; }));
  add("chunks of 2^32-1", make([](uint32_t i) { return Run{i + 1, UINT32_MAX, 1}; }));
  add("sums that wrap", make([](uint32_t i) { return Run{i * 100 + 1, 0x80000000, 1}; }));
  add("all the first", make([](uint32_t) { return Run{1, 1, 1}; }));
  add("backwards", make([size](uint32_t i) { return Run{size - i, 1, 1}; }));
  add("far apart", make([](uint32_t i) { return Run{1 + i * 1000000, 1, 1}; }));
  add("fewer than the sizes", Stsc{.runs = {{1, 1, 1}}});
  add("more than the sizes", Stsc{.runs = {{1, 1000, 1}}});
  add("none", Stsc{});
  const auto withSizes = [&](const char* name, const Stsz& sizes) {
    files.push_back({name, FileWithTable(size, "stsz", FullBox("stsz", 0, 0, sizes))});
  };
  withSizes("one size for 2^32-1", {.constantSize = 1, .sizes = {}, .count = UINT32_MAX});
  withSizes("no sizes", {});
  withSizes("half the sizes", {.sizes = std::vector<uint32_t>(size / 2, 4)});
  withSizes("huge sizes", {.sizes = std::vector<uint32_t>(size, UINT32_MAX)});
  return files;
}

std::vector<BadFile> ExtremeEdits(uint32_t size) {
  std::vector<BadFile> files;
  using Entry = Elst::Entry;
  constexpr int64_t kLast = INT64_MAX;
  const auto add = [&](const char* name, auto entry) {
    Elst list;
    for (uint32_t i = 0; i < size; ++i) list.entries.push_back(entry(i));
    Track track = SteadyTrack(size);
    track.replace["edts"] = Box("edts", FullBox("elst", 1, 0, list));
    files.push_back({name, FileWith(track)});
  };
  add("endless", [](uint32_t) { return Entry{UINT64_MAX, 0}; });
  add("empty and endless", [](uint32_t) { return Entry{UINT64_MAX, -1}; });
  add("of no length", [](uint32_t) { return Entry{0, 0}; });
  add("gaps of no length", [](uint32_t) { return Entry{0, -1}; });
  add("huge gaps", [](uint32_t) { return Entry{uint64_t{1} << 62, -1}; });
  add("behind the media", [](uint32_t) { return Entry{10, kLast}; });
  add("before the media", [](uint32_t) { return Entry{10, INT64_MIN}; });
  add("the last sample", [size](uint32_t) { return Entry{1, int64_t{size} / 2 * 21 - 21}; });
  add("backwards", [size](uint32_t i) { return Entry{10, (int64_t{size} - i) * 10}; });
  add("still", [](uint32_t i) { return Entry{10, int64_t{i} * 10, 0, 0}; });
  add("fast", [](uint32_t i) { return Entry{10, int64_t{i} * 10, 0x7FFF, 0x7FFF}; });
  add("one in 1000 shows something", [](uint32_t i) {
    return Entry{10, i % 1000 == 0 ? 0 : kLast};
  });
  return files;
}

std::vector<BadFile> ExtremeTimes(uint32_t size) {
  std::vector<BadFile> files;
  for (const uint32_t delta : {uint32_t{0}, uint32_t{0x7FFFFFFF}, UINT32_MAX}) {
    Stts times;
    Ctts offsets;
    for (uint32_t i = 0; i < size; ++i) {
      times.runs.push_back({1, i % 3 == 0 ? 1 : delta});
      offsets.runs.push_back({1, delta - i});
    }
    const std::string name = std::to_string(delta);
    files.push_back({"stts " + name, FileWithTable(size, "stts", FullBox("stts", 0, 0, times))});
    files.push_back({"ctts " + name, FileWithTable(size, "ctts", FullBox("ctts", 0, 0, offsets))});
  }
  for (const uint32_t count : {uint32_t{0}, UINT32_MAX}) {
    Stts times;
    Ctts offsets;
    for (uint32_t i = 0; i < size; ++i) {
      times.runs.push_back({count, UINT32_MAX});
      offsets.runs.push_back({count, UINT32_MAX});
    }
    const std::string name = "runs of " + std::to_string(count) + " ";
    files.push_back({name + "stts", FileWithTable(size, "stts", FullBox("stts", 0, 0, times))});
    files.push_back({name + "ctts", FileWithTable(size, "ctts", FullBox("ctts", 0, 0, offsets))});
  }
  Stss syncs;
  for (uint32_t i = 0; i < size; ++i) syncs.numbers.push_back(UINT32_MAX - i);
  files.push_back({"stss backwards", FileWithTable(size, "stss", FullBox("stss", 0, 0, syncs))});
  return files;
}

std::vector<BadFile> ExtremeScales(uint32_t size) {
  std::vector<BadFile> files;
  for (const uint32_t movieScale : {uint32_t{0}, uint32_t{1}, UINT32_MAX}) {
    for (const uint32_t trackScale : {uint32_t{0}, uint32_t{1}, UINT32_MAX}) {
      Movie movie{.timeScale = movieScale, .tracks = {SteadyTrack(size)}};
      movie.tracks[0].timeScale = trackScale;
      movie.tracks[0].edits.assign(size, {.segmentDuration = 3, .mediaTime = 7});
      const std::string name = std::to_string(movieScale) + " " + std::to_string(trackScale);
      files.push_back({name, BuildMovie(movie).bytes});
      Movie fragmented = FragmentedMovie({{.timeScale = trackScale, .duration = 1000000}},
                                         {.duration = 10, .size = 4});
      fragmented.timeScale = movieScale;
      files.push_back(
          {name + " fragmented",
           BuildMovie(fragmented).bytes + Times(size / 4, Moof(Traf(0, Tfhd{}, DefaultRun(2))))});
    }
  }
  return files;
}

}  // namespace k7mtest

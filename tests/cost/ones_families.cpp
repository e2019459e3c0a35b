#include "families.h"
#include "family_parts.h"

namespace k7mtest {
namespace {

using Files = std::vector<BadFile>;

Bytes Ones(size_t count) { return Bytes().Fill(count, 0xFF); }

void AddTables(Files& files, uint32_t size) {
  for (const Table& table : kTables) {
    const std::string code = table.code;
    const Bytes entries = Ones(size_t{size} * table.entrySize);
    files.push_back({code, FileWithTable(size, code, TableOf(table, size, entries))});
    // The buffer of a chunk map has as many bytes as the count says, in 32 bits.
    files.push_back({code + " all", FileWithTable(size, code, Box(code, Ones(size * 8))),
                     code == "stsc" ? UINT32_MAX * table.entrySize : 0});
  }
  Track edits = SteadyTrack(size);
  edits.replace["edts"] =
      Box("edts", FullBox("elst", 1, 0, Bytes().U32(size), Ones(size_t{size} * 20)));
  files.push_back({"elst", FileWith(edits)});
  Track dependencies = SteadyTrack(size);
  dependencies.moreInStbl = Box("sdtp", Ones(size));
  files.push_back({"sdtp", FileWith(dependencies)});
}

void AddHeaders(Files& files, uint32_t size) {
  const Bytes ones = Ones(size_t{size} * 20);
  for (const char* code : {"stsd", "mdhd", "tkhd", "hdlr", "stbl", "minf"}) {
    files.push_back({code, FileWithTable(size, code, Box(code, ones))});
  }
  for (const char* code : {"dref", "url ", "urn "}) {
    const Bytes box = Box(code, ones);
    const Bytes dref = code[0] == 'd' ? box : FullBox("dref", 0, 0, Dref{.entries = {box}});
    files.push_back({code, FileWithTable(size, "dinf", Box("dinf", dref))});
  }
  files.push_back({"dinf", FileWithTable(size, "dinf", Box("dinf", ones))});
  Movie movie{.tracks = {SteadyTrack(size)}};
  for (const size_t length : {size_t{100}, ones.Size()}) {
    movie.replace["mvhd"] = Box("mvhd", Ones(length));
    files.push_back({"mvhd of " + std::string(length == 100 ? "few" : "many"),
                     BuildMovie(movie).bytes + Box("free", ones)});
  }
  files.push_back({"moov", Box("ftyp", Ftyp{}) + Box("moov", ones)});
}

/// What the movie box says about fragments; good fragments follow.
void AddDefaults(Files& files, uint32_t size) {
  const Bytes fragments = Times(size / 4, Moof(Traf(0, Tfhd{}, DefaultRun(2))));
  const Bytes good = FullBox("trex", 0, 0, Trex{.duration = 10, .size = 4});
  const auto add = [&](const char* name, const Bytes& mvex) {
    Movie movie = FragmentedMovie({{.duration = 1000000}});
    movie.moreInMoov = mvex;
    files.push_back({name, BuildMovie(movie).bytes + fragments});
  };
  add("mvex", Box("mvex", Ones(size_t{size} * 20)));
  add("trex", Box("mvex", Times(size, Box("trex", Ones(24)))));
  add("long trex", Box("mvex", Box("trex", Ones(size_t{size} * 20))));
  add("trex of track 1", Box("mvex", FullBox("trex", 0xFF, 0xFFFFFF, Bytes().U32(1), Ones(16))));
  add("mehd", Box("mvex", Times(size, Box("mehd", Ones(12))), good));
  add("long mehd", Box("mvex", Box("mehd", Ones(size_t{size} * 20)), good));
}

void AddFragments(Files& files, uint32_t size) {
  const Bytes run = DefaultRun(2);
  const auto add = [&](const char* name, const Bytes& moof) {
    files.push_back({name, FragmentedFile(Times(size / 4, moof))});
  };
  add("mfhd", Box("moof", Box("mfhd", Ones(8)), Traf(0, Tfhd{}, run)));
  add("tfhd", Moof(Box("traf", Box("tfhd", Ones(32)), run)));
  add("tfhd of track 1",
      Moof(Box("traf", FullBox("tfhd", 0xFF, 0xFFFFFF, Bytes().U32(1), Ones(24)), run)));
  add("tfdt", Moof(Traf(0, Tfhd{}, Box("tfdt", Ones(12)), run)));
  add("tfdt of version 0", Moof(Traf(0, Tfhd{}, FullBox("tfdt", 0, 0, Ones(4)), run)));
  add("traf", Moof(Box("traf", Ones(40))));
  add("moof", Box("moof", Ones(80)));
  files.push_back(
      {"trun",
       FragmentedFile(Times(
           size / 16,
           Moof(Traf(0, Tfhd{}, FullBox("trun", 0, 0xF01, Bytes().U32(20), Ones(4 + 20 * 16))))))});
}

}  // namespace

std::vector<BadFile> AllOnes(uint32_t size) {
  std::vector<BadFile> files;
  const Bytes ones = Ones(size_t{size} * 20);
  AddTables(files, size);
  AddHeaders(files, size);
  AddDefaults(files, size);
  AddFragments(files, size);
  files.push_back({"afra", FullBox("afra", 0, 0, Bytes().U8(0xFF).U32(1).U32(size), ones)});
  files.push_back({"file", ones});
  files.push_back({"zeros", Bytes().Fill(size_t{size} * 20)});
  return files;
}

}  // namespace k7mtest

// Writes first inputs for the fuzz targets: make_seeds <folder> gives <folder>/<target>/<name>.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "box_tree.h"
#include "k7r_recording.h"
#include "support/fragment_builder.h"
#include "support/fragment_file.h"
#include "support/movie_builder.h"

namespace k7mfuzz {
namespace {

using namespace k7mtest;  // NOLINT: every builder there is.

class Folder {
 public:
  Folder(const std::filesystem::path& root, const char* target) : path_(root / target) {
    std::filesystem::create_directories(path_);
  }
  void Put(const std::string& name, const Bytes& bytes) const {
    std::ofstream file(path_ / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.Data()),
               static_cast<std::streamsize>(bytes.Size()));
  }

 private:
  std::filesystem::path path_;
};

Movie EveryTable() {
  k7mtest::Track video{.samples = SomeSamples(6, 40)};
  for (size_t i = 0; i < video.samples.size(); ++i) {
    video.samples[i].compositionOffset = i % 2 == 0 ? 0 : 40;
    video.samples[i].isSync = i % 3 == 0;
    video.samples[i].dependency = static_cast<uint8_t>(i + 1);
  }
  video.samplesPerChunk = 2;
  video.edits = {{.segmentDuration = 50, .mediaTime = -1}, {.segmentDuration = 240}};
  k7mtest::Track audio{.handler = "soun", .samples = SomeSamples(5, 30, 9)};
  audio.has64BitOffsets = true;
  audio.hasConstantSize = false;
  Movie movie;
  movie.tracks = {video, audio};
  movie.atEnd = Box("free", Bytes().Fill(30)) + UuidBox(kMetadataUuid, Pattern(30, 5));
  return movie;
}

Bytes SmallFragments(uint32_t tfhdFlags, uint32_t trunFlags) {
  Movie movie = FragmentedMovie({{}, {.handler = "soun"}}, {.duration = 20, .size = 3});
  movie.duration = 1000;
  for (auto& track : movie.tracks) track.duration = 1000;
  Bytes file = BuildMovie(movie).bytes;
  const Trun run{.dataOffset = 200,
                 .samples = {{.duration = 40, .size = 5, .flags = 0x02000000},
                             {.duration = 40, .size = 6, .compositionOffset = 40}}};
  for (uint32_t i = 0; i < 3; ++i) {
    const Tfhd video{.trackId = 1, .baseDataOffset = file.Size(), .duration = 10, .size = 4};
    const Tfhd audio{.trackId = 2, .baseDataOffset = file.Size(), .duration = 10, .size = 4};
    const Bytes run1 = FullBox("trun", 0, trunFlags, run);
    const Bytes tfdt = FullBox("tfdt", 1, 0, Tfdt{.time = 200 * i});
    file = file + Moof(Traf(tfhdFlags, video, tfdt, run1), Traf(tfhdFlags, audio, run1, run1)) +
           Box("mdat", Pattern(60, i));
  }
  return file;
}

void PutReaderSeeds(const Folder& folder) {
  const Movie movie = EveryTable();
  folder.Put("every-table", BuildMovie(movie).bytes);
  Movie backwards = movie;
  backwards.isMovieBoxLast = true;
  backwards.hasLargeMdat = true;
  backwards.tracks[0].hasConstantSize = true;
  backwards.tracks[1].edits = {{.segmentDuration = 40, .mediaTime = 30},
                               {.segmentDuration = 20, .mediaTime = -1},
                               {.segmentDuration = 60, .mediaTime = 0, .rateInteger = 0},
                               {.segmentDuration = 60, .mediaTime = 60}};
  folder.Put("movie-box-last", BuildMovie(backwards).bytes);
  Movie odd;
  odd.tracks = {{.handler = "hint", .samples = SomeSamples(3)},
                {.handler = "text", .samples = SomeSamples(4, 0)}};
  odd.tracks[0].moreInTrak = Box("tref", Box("hint", Bytes().U32(2)));
  odd.tracks[1].descriptions = {OtherEntry(), OtherEntry("text", {.codecHeader = Pattern(9)})};
  odd.tracks[1].samples[2].description = 2;
  folder.Put("odd-tracks", BuildMovie(odd).bytes);
  folder.Put("fragments-all-fields", SmallFragments(kTfhdBase | kTfhdDescription, 0xF01));
  folder.Put("fragments-defaults", SmallFragments(kTfhdDuration | kTfhdSize, kTrunOffset));
  folder.Put("fragments-base-is-moof",
             SmallFragments(kTfhdBaseIsMoof, kTrunOffset | kTrunSize | kTrunFirstFlags));
  folder.Put("k7r", Record(2, true, 4).file);
}

void PutServicerSeeds(const Folder& folder) {
  const FragmentFile file = SomeFragments(3);
  const Bytes cut = Box("cut ");
  folder.Put("no-index", file.bytes);
  folder.Put("local-index", file.bytes + cut + LocalIndex(file));
  folder.Put("global-index", file.bytes + cut + GlobalIndex(file));
  folder.Put("short-local-index",
             file.bytes + cut + LocalIndex(file, {.hasLongIds = false, .hasLongOffsets = false}));
  folder.Put("short-global-index",
             file.bytes + cut + GlobalIndex(file, {.hasLongIds = false, .hasLongOffsets = false}));
  folder.Put("k7r", Record(2, true, 4).file);
  const FragmentFile other =
      BuildFragmentFile({{.bootstrap = FullBox("abst", 0, 0, Pattern(5))},
                         {.hasLargeMdat = true, .before = Box("free", Pattern(3))},
                         {.isMdatFirst = true}});
  folder.Put("orders", other.bytes);
  folder.Put("orders-local-index", other.bytes + cut + LocalIndex(other));
}

void PutAppendSeeds(const Folder& folder) {
  const Bytes choices = Pattern(40, 3);
  folder.Put("empty", Record(0).file);
  folder.Put("one", Record(1, false, 4).file + choices);
  folder.Put("two-abst", Record(2, true).file);
  folder.Put("cut", Cut(Record(3, true).file, Record(3, true).file.Size() - 30));
  folder.Put("metadata", Record(1).file + UuidBox(kMetadataUuid, Pattern(40, 5)));
}

/// Leaves little of the media bytes.
void Thin(std::vector<Node>& nodes) {
  for (Node& node : nodes) {
    if (node.type == Code("mdat") && node.fields.size() > 100) node.fields.resize(100);
    Thin(node.children);
  }
}

void PutRealFiles(const Folder& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(K7M_TEST_DATA)) {
    const auto extension = entry.path().extension();
    if (extension != ".mp4" && extension != ".mov") continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    auto nodes = ParseBoxes(reinterpret_cast<const uint8_t*>(content.data()), content.size());
    Thin(nodes);
    folder.Put(entry.path().stem(), Bytes(WriteBoxes(nodes)));
  }
}

}  // namespace
}  // namespace k7mfuzz

int main(int argc, char** argv) {
  using namespace k7mfuzz;
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_seeds <folder>\n");
    return 2;
  }
  PutReaderSeeds(Folder(argv[1], "fuzz_reader"));
  PutRealFiles(Folder(argv[1], "fuzz_reader"));
  PutServicerSeeds(Folder(argv[1], "fuzz_servicer"));
  PutAppendSeeds(Folder(argv[1], "fuzz_append"));
  return 0;
}

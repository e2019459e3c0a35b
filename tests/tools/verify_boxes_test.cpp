// `k7m verify`: boxes that do not fit, are not there, or stand where they should not.
#include "small_fragments.h"
#include "small_movie.h"
#include "support/box_finder.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

Bytes With(const std::function<void(Movie&)>& change) {
  Movie movie = SmallMovie();
  change(movie);
  return BuildMovie(movie).bytes;
}

Bytes InMoov(const Bytes& box) {
  return With([&](Movie& movie) { movie.moreInMoov = box; });
}

Bytes InTrack(const Bytes& box) {
  return With([&](Movie& movie) { movie.tracks[0].moreInTrak = box; });
}

Bytes WithBox(const std::string& code, const Bytes& box) {
  return With([&](Movie& movie) { movie.tracks[1].replace[code] = box; });
}

Bytes DeepFile() {
  Bytes box = Box("free");
  for (int i = 0; i < 40; ++i) box = Box("dref", Bytes().Fill(8), box);
  return InMoov(box);
}

Bytes LongMedia() {
  const MovieFile movie = BuildMovie(SmallMovie());
  Bytes bytes = movie.bytes;
  return bytes.Patch(movie.mdatOffset, bytes.NumberAt(movie.mdatOffset) + 10);
}

Bytes WithoutFileType() {
  return With([](Movie& movie) { movie.replace["ftyp"] = Bytes(); });
}

// Where what stands behind the small file begins.
uint64_t BehindSmallFile(const Bytes&) { return SmallFile().Size(); }
uint64_t AtBegin(const Bytes&) { return 0; }

class BrokenBoxes : public testing::TestWithParam<BrokenFile> {};

TEST_P(BrokenBoxes, AreFound) { ExpectFound(GetParam()); }

const BrokenFile kBrokenBoxes[] = {
    {"box-size-too-small",
     "moov/trak[1]",
     1,
     [] {
       return InTrack(LyingBox("tiny", 4, Bytes{1, 2, 3, 4}));
     },
     {"not-readable"}},
    {"box-past-parent", "moov", 1,
     [] {
       return InMoov(LyingBox("junk", 100, Bytes{1, 2, 3}));
     }},
    {"box-past-end",
     "file",
     1,
     [] {
       return SmallFile() + LyingBox("free", 100, Bytes{1, 2});
     },
     {"not-readable"},
     BehindSmallFile},
    {"media-past-end",
     "file",
     3,
     LongMedia,
     {},
     [](const Bytes&) { return BuildMovie(SmallMovie()).mdatOffset; }},
    {"stray-bytes",
     "file",
     3,
     [] {
       return SmallFile() + Bytes{1, 2, 3};
     },
     {},
     BehindSmallFile},
    {"stray-bytes", "moov", 3,
     [] {
       return InMoov(Bytes{1, 2, 3});
     }},
    {"trailing-bytes",
     "file",
     3,
     [] { return SmallFile() + Bytes().Fill(64); },
     {},
     BehindSmallFile},
    {"box-nesting",
     "moov/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/"
     "dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref/dref",
     1,
     DeepFile,
     {"not-readable"},
     // The 31st; each has 16 bytes in front of the next.
     [](const Bytes& file) { return PlaceOf(file, "moov/dref").offset + 30 * 16; }},
    {"box-missing",
     "moov/trak[2]/mdia/minf/stbl",
     1,
     [] { return WithBox("stts", Bytes()); },
     {"not-readable"}},
    {"box-missing", "moov/trak[2]", 1, [] { return WithBox("tkhd", Bytes()); }, {"not-readable"}},
    {"box-doubled", "moov/trak[1]/mdia/minf/stbl", 1,
     [] {
       return With([](Movie& movie) {
         movie.tracks[0].moreInStbl = FullBox("stss", 0, 0, Stss{.numbers = {1}});
       });
     }},
    {"box-doubled",
     "moov[2]",
     1,
     [] {
       const MovieFile movie = BuildMovie(SmallMovie());
       return movie.bytes +
              movie.bytes.Slice(movie.movieOffset, movie.bytes.NumberAt(movie.movieOffset));
     },
     {"not-readable"}},
    {"box-misplaced", "moov/trak[1]/stss", 3,
     [] { return InTrack(FullBox("stss", 0, 0, Stss{.numbers = {1}})); }},
    {"box-misplaced", "trak", 3, [] { return SmallFile() + Box("trak"); }, {"not-readable"}},
    {"moov-missing",
     "file",
     1,
     [] {
       return Box("ftyp", Ftyp{}) + Box("mdat", Bytes{1, 2});
     },
     {},
     AtBegin},
    {"moof-without-moov",
     "moof[1]",
     1,
     [] { return Box("ftyp", Ftyp{}) + SmallFragments(); },
     {"fragment-sequence"}},
    {"ftyp-missing", "file", 3, WithoutFileType, {}, AtBegin},
    {"ftyp-not-first", "ftyp", 3, [] { return WithoutFileType() + Box("ftyp", Ftyp{}); }},
    {"fields-truncated",
     "moov/trak[2]/mdia/mdhd",
     1,
     [] {
       return WithBox("mdhd", Box("mdhd", Bytes{0, 0, 0, 0, 1, 2}));
     },
     {"not-readable"}},
    {"not-readable", "file", 1, [] { return InMoov(Box("stsd")); }, {"box-misplaced"}, AtBegin},
};

INSTANTIATE_TEST_SUITE_P(Verify, BrokenBoxes, testing::ValuesIn(kBrokenBoxes), NameOf);

}  // namespace
}  // namespace k7mtest

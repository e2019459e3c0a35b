// `k7m verify`: times that cannot be, and durations and edit lists that do not agree.
#include "small_movie.h"
#include "support/box_finder.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

// Both tracks last 200 ms; all time scales are 1000.
Bytes With(const std::function<void(Movie&)>& change) {
  Movie movie = SmallMovie();
  change(movie);
  return BuildMovie(movie).bytes;
}

Bytes WithEdits(const std::vector<Elst::Entry>& edits, uint64_t duration) {
  return With([&](Movie& movie) {
    movie.tracks[1].edits = edits;
    movie.tracks[1].duration = movie.duration = duration;
  });
}

// Sound with one edit of 200 ms.
Bytes WithRate(int16_t whole, int16_t fraction) {
  return WithEdits({{200, 0, whole, fraction}}, 200);
}

// The rate of the second entry in the edit list of the sound; the first one is empty; each
// has 20 bytes.
uint64_t SecondRate(const Bytes& file) {
  return PlaceOf(file, "moov/trak#2/edts/elst").offset + 16 + 20 + 16;
}

class BrokenTimes : public testing::TestWithParam<BrokenFile> {};

TEST_P(BrokenTimes, AreFound) { ExpectFound(GetParam()); }

const BrokenFile kBrokenTimes[] = {
    {"time-scale-zero", "moov/trak[2]/mdia/mdhd", 1,
     [] { return With([](Movie& movie) { movie.tracks[1].timeScale = 0; }); }},
    {"time-scale-zero", "moov/mvhd", 1,
     [] { return With([](Movie& movie) { movie.timeScale = 0; }); }},
    {"decode-time-repeats", "moov/trak[2]/mdia/minf/stbl/stts", 3,
     [] { return With([](Movie& movie) { movie.tracks[1].samples[3].delta = 0; }); }},
    {"decode-order",
     "moov/trak[2]/mdia/minf/stbl/stts",
     3,
     [] { return With([](Movie& movie) { movie.tracks[1].samples[9].delta = 0xFFFFFFF0; }); },
     {"track-duration", "media-duration"}},
    {"composition-negative", "moov/trak[1]/mdia/minf/stbl/ctts", 3,
     [] {
       return With([](Movie& movie) {
         movie.tracks[0].samples[0].compositionOffset = static_cast<uint32_t>(-40);
       });
     }},
    {"media-duration", "moov/trak[2]/mdia/mdhd", 3,
     [] {
       return With([](Movie& movie) {
         movie.tracks[1].replace["mdhd"] = FullBox("mdhd", 0, 0, Mdhd{.duration = 5000});
       });
     }},
    {"track-duration", "moov/trak[2]/tkhd", 3,
     [] { return With([](Movie& movie) { movie.tracks[1].duration = movie.duration = 5000; }); }},
    {"track-duration", "moov/trak[2]/tkhd", 3,
     [] { return WithEdits({{.segmentDuration = 200, .mediaTime = 0}}, 5000); }},
    {"movie-duration", "moov/mvhd", 3,
     [] { return With([](Movie& movie) { movie.duration = 5000; }); }},
    {"edit-media-time", "moov/trak[2]/edts/elst", 1,
     [] { return WithEdits({{.segmentDuration = 200, .mediaTime = -5}}, 200); }},
    {"edit-past-media", "moov/trak[2]/edts/elst", 3,
     [] { return WithEdits({{.segmentDuration = 5000, .mediaTime = 0}}, 5000); }},
    {"edit-past-media", "moov/trak[2]/edts/elst", 3,
     [] { return WithEdits({{.segmentDuration = 200, .mediaTime = 1000}}, 200); }},
    {"edit-past-media", "moov/trak[2]/edts/elst", 3,
     [] {
       return WithEdits({{200, 1000, 0, 0}}, 200);
     }},
    {"edit-rate", "moov/trak[2]/edts/elst", 3, [] { return WithRate(2, 0); }},
    {"edit-rate", "moov/trak[2]/edts/elst", 3, [] { return WithRate(0, 1); }},
    {"edit-rate", "moov/trak[2]/edts/elst", 3, [] { return WithRate(1, 1); }},
    {"edit-rate",
     "moov/trak[2]/edts/elst",
     3,
     [] {
       return WithEdits({{100, -1}, {200, 0, -1, 0}}, 300);
     },
     {},
     SecondRate},
    {"edit-rate", "moov/trak[2]/edts/elst", 3,
     [] {
       return With([](Movie& movie) {
         movie.tracks[1].replace["edts"] =
             Box("edts", FullBox("elst", 0, 0, Elst{.entries = {{200, 0, 3, 0}}}));
       });
     }},
};

INSTANTIATE_TEST_SUITE_P(Verify, BrokenTimes, testing::ValuesIn(kBrokenTimes), NameOf);

TEST(VerifyTimes, TheRateIsToldAsANumber) {
  const auto finding = Verify(WithRate(1, 0x4000)).Finding("edit-rate");
  EXPECT_EQ(finding["places"][0]["message"], "edit 1 has the rate 1.25");
}

// The picture at the end of the media stands still; what is empty has no rate.
TEST(VerifyTimes, AnEditMayStandStill) {
  const Verdict verdict = Verify(WithEdits({{200, 0}, {5000, 190, 0, 0}, {100, -1, 7, 0}}, 5300));
  EXPECT_EQ(verdict.exitCode, 0) << verdict.json.dump(2);
}

TEST(VerifyTimes, GapsAndCompositionTimesBelongToTheDurations) {
  const Bytes file = With([](Movie& movie) {
    movie.tracks[1].edits = {{.segmentDuration = 3000, .mediaTime = -1},
                             {.segmentDuration = 200, .mediaTime = 0}};
    movie.tracks[1].duration = movie.duration = 3200;
    // Every picture is shown half a second late, and an edit makes up for it.
    for (TestSample& sample : movie.tracks[0].samples) sample.compositionOffset = 500;
    movie.tracks[0].edits = {{.segmentDuration = 200, .mediaTime = 500}};
  });
  const Verdict verdict = Verify(file);
  EXPECT_EQ(verdict.exitCode, 0) << verdict.json.dump(2);
}

}  // namespace
}  // namespace k7mtest

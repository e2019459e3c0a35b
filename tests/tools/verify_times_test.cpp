// `k7m verify`: times that cannot be, and durations and edit lists that do not agree.
#include "small_movie.h"
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
};

INSTANTIATE_TEST_SUITE_P(Verify, BrokenTimes, testing::ValuesIn(kBrokenTimes), NameOf);

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

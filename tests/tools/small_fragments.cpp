#include "small_fragments.h"

#include <algorithm>

namespace k7mtest {
namespace {

constexpr uint32_t kKey = 0x02000000;
constexpr uint32_t kOther = 0x01010000;

// `dataOffset` is counted from the begin of the 'moof'.
Bytes Traf(const TestRun& run, int32_t dataOffset) {
  Trun trun{.dataOffset = dataOffset};
  for (const TestSample& sample : run.samples) {
    trun.samples.push_back({.duration = sample.delta,
                            .size = static_cast<uint32_t>(sample.data.Size()),
                            .flags = sample.isSync ? kKey : kOther,
                            .compositionOffset = sample.compositionOffset});
  }
  return Box("traf", FullBox("tfhd", 0, 0x020000, Tfhd{.trackId = run.track}),
             FullBox("tfdt", 1, 0, Tfdt{.time = run.time}), FullBox("trun", 0, 0xF01, trun));
}

Bytes MoofOf(const std::vector<TestRun>& runs, size_t mediaOffset) {
  Bytes boxes = FullBox("mfhd", 0, 0, Mfhd{});
  for (const TestRun& run : runs) {
    boxes.Append(Traf(run, static_cast<int32_t>(mediaOffset)));
    for (const TestSample& sample : run.samples) mediaOffset += sample.data.Size();
  }
  return Box("moof", boxes);
}

std::vector<TestSample> SamplesOf(uint32_t track) {
  std::vector<TestSample> samples = track == 1 ? SomeSamples(5, 40) : SomeSamples(10, 20, 7);
  if (track == 1) samples[1].isSync = samples[2].isSync = samples[3].isSync = false;
  return samples;
}

TestRun RunBetween(uint32_t track, uint64_t begin, uint64_t end, uint64_t delay) {
  TestRun run{.track = track, .time = begin + delay};
  uint64_t time = 0;
  for (const TestSample& sample : SamplesOf(track)) {
    if (time >= begin && time < end) run.samples.push_back(sample);
    time += sample.delta;
  }
  return run;
}

}  // namespace

Bytes Fragment(const std::vector<TestRun>& runs) {
  Bytes media;
  for (const TestRun& run : runs) {
    for (const TestSample& sample : run.samples) media.Append(sample.data);
  }
  return MoofOf(runs, MoofOf(runs, 0).Size() + 8) + Box("mdat", media);
}

Movie SmallFragmentedMovie() {
  Track video{.handlerName = std::string("Pictures\0", 9), .duration = 0};
  video.width = 64 << 16;
  video.height = 48 << 16;
  Track sound{.handler = "soun", .handlerName = std::string("Sounds\0", 7), .duration = 0};
  Movie movie{.duration = 0, .tracks = {video, sound}};
  movie.moreInMoov = Box("mvex", FullBox("trex", 0, 0, Trex{.trackId = 1}),
                         FullBox("trex", 0, 0, Trex{.trackId = 2}));
  return movie;
}

Bytes SmallFragments(uint64_t delay) {
  Bytes fragments;
  for (uint64_t begin = 0; begin < 200; begin += 80) {
    fragments.Append(Fragment(
        {RunBetween(1, begin, begin + 80, delay), RunBetween(2, begin, begin + 80, delay)}));
  }
  return fragments;
}

Bytes SmallFragmentsMedia(uint32_t track) {
  Bytes media;
  for (const TestSample& sample : SamplesOf(track)) media.Append(sample.data);
  return media;
}

Bytes SmallFragmentedFile() { return BuildMovie(SmallFragmentedMovie()).bytes + SmallFragments(); }

}  // namespace k7mtest

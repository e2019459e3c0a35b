// Opening a fragmented file and taking every sample of it, and asking for samples at random times,
// for more and more fragments. The time for each fragment or question must not grow with them.
#include "growth.h"
#include "reading.h"
#include "support/fragment_builder.h"

namespace k7mbench {
namespace {

using k7mtest::Bytes;

constexpr uint32_t kSamplesPerRun = 10;
constexpr uint32_t kSampleDuration = 10;
constexpr uint32_t kRareEvery = 500;

/// A track fragment whose samples have sizes and composition offsets of their own.
Bytes TrafOf(uint32_t trackId) {
  k7mtest::Trun run;
  run.samples.assign(kSamplesPerRun, {.size = 100, .compositionOffset = 7});
  const uint32_t fields = k7mtest::kTrunSize | k7mtest::kTrunComposition;
  return k7mtest::Traf(0, {.trackId = trackId}, k7mtest::FullBox("trun", 0, fields, run));
}

/// Two tracks; the second one is in every fragment, or only in one of many.
FileBytes MakeFile(uint32_t fragmentCount, bool isSecondRare) {
  constexpr uint64_t kLongEnough = uint64_t{1} << 40;
  const k7mtest::Movie movie = k7mtest::FragmentedMovie(
      {{.duration = kLongEnough}, {.handler = "soun", .duration = kLongEnough}},
      {.duration = kSampleDuration, .size = 100});
  const Bytes one = k7mtest::Moof(TrafOf(1)) + k7mtest::Box("mdat");
  const Bytes both = k7mtest::Moof(TrafOf(1), TrafOf(2)) + k7mtest::Box("mdat");
  Bytes file = k7mtest::BuildMovie(movie).bytes;
  for (uint32_t i = 0; i < fragmentCount; ++i) {
    file.Append(isSecondRare && i % kRareEvery != 0 ? one : both);
  }
  return std::make_shared<const std::vector<uint8_t>>(file.Vector());
}

/// A unit is a fragment.
std::function<Effort()> OpenAndIterate(uint32_t fragmentCount, bool isSecondRare) {
  const FileBytes file = MakeFile(fragmentCount, isSecondRare);
  const uint32_t rareCount = (fragmentCount + kRareEvery - 1) / kRareEvery;
  const uint64_t expected =
      uint64_t{kSamplesPerRun} * (fragmentCount + (isSecondRare ? rareCount : fragmentCount));
  return [file, fragmentCount, expected] {
    const double begin = Seconds();
    const OpenedFile opened(file);
    const uint64_t count = opened.TakeAll();
    const double end = Seconds();
    Require(count == expected, "not all samples were delivered");
    return Effort{end - begin, fragmentCount};
  };
}

/// A unit is a question. All fragments have been met before.
std::function<Effort()> AskAtRandom(uint32_t fragmentCount) {
  const auto opened = std::make_shared<const OpenedFile>(MakeFile(fragmentCount, false));
  Require(opened->TakeAll() == uint64_t{2} * kSamplesPerRun * fragmentCount, "samples are missing");
  return [opened, fragmentCount] {
    return opened->AskAtRandomTimes(uint64_t{fragmentCount} * kSamplesPerRun * kSampleDuration);
  };
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  constexpr uint32_t kFragments = 100000;
  Register("both_tracks_everywhere", kFragments,
           [](uint32_t size) { return OpenAndIterate(size, false); });
  Register("second_track_rare", kFragments,
           [](uint32_t size) { return OpenAndIterate(size, true); });
  Register("random_times_fragments", kFragments, AskAtRandom);
  return RunShapes(argc, argv);
}

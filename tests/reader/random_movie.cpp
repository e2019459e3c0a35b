#include "random_movie.h"

#include <algorithm>

namespace k7mtest {

namespace {

constexpr uint32_t kMediaSize = 3000;

uint32_t TotalCount(const std::vector<Stts::Run>& runs) {
  uint32_t count = 0;
  for (const Stts::Run& run : runs) count += run.count;
  return count;
}

uint64_t TotalTime(const std::vector<Stts::Run>& runs) {
  uint64_t time = 0;
  for (const Stts::Run& run : runs) time += uint64_t{run.count} * run.delta;
  return time;
}

std::vector<Stts::Run> RandomTimes(Dice& dice) {
  std::vector<Stts::Run> runs;
  const uint32_t count = dice.Below(6);
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t delta = dice.Pick<uint32_t>({0, 1, 2, 3, 10, 33, 40, 512, 1001, 1024});
    runs.push_back({dice.OneIn(5) ? 0 : dice.Between(1, 9), delta});
  }
  return runs;
}

std::vector<Stsc::Run> RandomChunkMap(Dice& dice, uint32_t descriptionCount) {
  std::vector<Stsc::Run> runs;
  const uint32_t count = dice.OneIn(30) ? 0 : dice.Between(1, 5);
  uint32_t firstChunk = 1;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t description = dice.OneIn(40)
                                     ? dice.Pick<uint32_t>({0, descriptionCount + 1, 0xFFFFFFFF})
                                     : dice.Between(1, descriptionCount);
    runs.push_back({firstChunk, dice.OneIn(8) ? 0 : dice.Between(1, 6), description});
    firstChunk += dice.OneIn(5) ? 0 : dice.Between(1, 3);
  }
  return runs;
}

Stsz RandomSizes(Dice& dice, uint32_t sampleCount) {
  Stsz stsz;
  uint32_t count = sampleCount;
  if (dice.OneIn(8)) count = dice.Below(sampleCount + 4);
  if (dice.OneIn(4)) {
    stsz.constantSize = dice.Between(1, 50);
    stsz.count = count;
    return stsz;
  }
  for (uint32_t i = 0; i < count; ++i) stsz.sizes.push_back(dice.OneIn(9) ? 0 : dice.Below(60));
  return stsz;
}

std::vector<Ctts::Run> RandomCompositionOffsets(Dice& dice) {
  std::vector<Ctts::Run> runs;
  const uint32_t count = dice.Below(7);
  for (uint32_t i = 0; i < count; ++i) {
    runs.push_back({dice.OneIn(5) ? 0 : dice.Between(1, 8),
                    dice.Pick<uint32_t>({0, 10, 80, 0xFFFFFFF6, 0x80000000})});
  }
  return runs;
}

std::vector<uint32_t> RandomSyncSamples(Dice& dice, uint32_t sampleCount) {
  std::vector<uint32_t> numbers;
  for (uint32_t n = 1; n <= sampleCount; ++n) {
    if (dice.OneIn(3)) numbers.push_back(n);
    if (dice.OneIn(20)) numbers.push_back(n);
  }
  if (dice.OneIn(4)) numbers.push_back(dice.Below(sampleCount + 20));
  if (dice.OneIn(4) && numbers.size() > 1) {
    std::swap(numbers[dice.Below(static_cast<uint32_t>(numbers.size()))], numbers[0]);
  }
  return numbers;
}

uint64_t Scaled(uint64_t value, uint32_t from, uint32_t to) {
  return from == 0 ? 0 : value * to / from;
}

int64_t RandomRunStart(Dice& dice, const std::vector<Stts::Run>& runs) {
  int64_t time = 0;
  for (const Stts::Run& run : runs) {
    if (dice.OneIn(3)) break;
    time += int64_t{run.count} * run.delta;
  }
  return time;
}

}  // namespace

std::vector<Elst::Entry> MakeRandomEdits(Dice& dice, const ModelTrack& track, uint32_t movieScale) {
  std::vector<Elst::Entry> edits;
  const uint64_t mediaLength = TotalTime(track.times);
  const auto movieLength = static_cast<uint32_t>(
      std::min<uint64_t>(Scaled(mediaLength, track.timeScale, movieScale), 1000000));
  const uint32_t count = dice.OneIn(12) ? 0 : dice.Between(1, 5);
  for (uint32_t i = 0; i < count; ++i) {
    Elst::Entry edit;
    edit.segmentDuration = dice.OneIn(6) ? 0 : dice.Below(movieLength + 4);
    edit.mediaTime = int64_t{dice.Below(static_cast<uint32_t>(mediaLength) + 20)};
    if (dice.OneIn(4)) edit.mediaTime = 0;
    if (dice.OneIn(3)) edit.mediaTime = RandomRunStart(dice, track.times);
    if (dice.OneIn(4)) edit.mediaTime = -1;
    edits.push_back(edit);
  }
  return edits;
}

uint32_t MakeRandomScale(Dice& dice) {
  if (dice.OneIn(40)) return 0;
  return dice.Pick<uint32_t>({1, 7, 24, 25, 600, 999, 1000, 1001, 22050, 44100, 90000, 0xFFFFFFFF});
}

ModelTrack MakeRandomTrack(Dice& dice, uint32_t movieScale) {
  ModelTrack track;
  track.handler = dice.Pick<const char*>({"vide", "soun", "text", "hint", "meta"});
  track.timeScale = MakeRandomScale(dice);
  track.descriptionCount = dice.Between(1, 3);
  track.times = RandomTimes(dice);
  const uint32_t sampleCount = TotalCount(track.times);
  track.chunkMap = RandomChunkMap(dice, track.descriptionCount);
  track.sizes = RandomSizes(dice, sampleCount);
  const uint32_t chunkCount = dice.OneIn(6) ? dice.Below(12) : sampleCount + 12;
  for (uint32_t i = 0; i < chunkCount; ++i) track.chunkOffsets.push_back(dice.Below(kMediaSize));
  if (dice.OneIn(2)) track.compositionOffsets = RandomCompositionOffsets(dice);
  if (dice.OneIn(2)) track.syncSamples = RandomSyncSamples(dice, sampleCount);
  if (dice.OneIn(3)) {
    track.dependencies.emplace();
    const size_t count =
        track.sizes.count.value_or(static_cast<uint32_t>(track.sizes.sizes.size()));
    while (track.dependencies->size() < count) {
      track.dependencies->push_back(static_cast<uint8_t>(dice.Below(256)));
    }
  }
  track.headerDuration = Scaled(TotalTime(track.times), track.timeScale, movieScale);
  if (dice.OneIn(4)) track.headerDuration = dice.Below(2000);
  if (dice.OneIn(2)) track.edits = MakeRandomEdits(dice, track, movieScale);
  return track;
}

Track Described(const ModelTrack& model, uint64_t mediaStart, bool has64BitOffsets) {
  Track track{.handler = model.handler, .timeScale = model.timeScale};
  track.duration = model.headerDuration;
  track.has64BitOffsets = has64BitOffsets;
  for (uint32_t i = 0; i < model.descriptionCount; ++i) {
    track.descriptions.push_back(model.handler == "vide"   ? VideoEntry()
                                 : model.handler == "soun" ? AudioEntry()
                                 : model.handler == "hint" ? VorpEntry()
                                                           : OtherEntry());
  }
  track.replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = model.times});
  track.replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = model.chunkMap});
  track.replace["stsz"] = FullBox("stsz", 0, 0, model.sizes);
  Stco stco;
  Co64 co64;
  for (const uint64_t offset : model.chunkOffsets) {
    stco.offsets.push_back(static_cast<uint32_t>(mediaStart + offset));
    co64.offsets.push_back(mediaStart + offset);
  }
  track.replace["stco"] = FullBox("stco", 0, 0, stco);
  track.replace["co64"] = FullBox("co64", 0, 0, co64);
  if (model.compositionOffsets) {
    track.replace["ctts"] = FullBox("ctts", 0, 0, Ctts{.runs = *model.compositionOffsets});
  }
  if (model.syncSamples) {
    track.replace["stss"] = FullBox("stss", 0, 0, Stss{.numbers = *model.syncSamples});
  }
  if (model.dependencies) {
    track.replace["sdtp"] = FullBox("sdtp", 0, 0, Sdtp{.values = *model.dependencies});
  }
  if (model.edits) {
    track.replace["edts"] = Box("edts", FullBox("elst", 1, 0, Elst{.entries = *model.edits}));
  }
  return track;
}

RandomFile MakeRandomFile(Dice& dice) {
  RandomFile file;
  file.movie.timeScale = MakeRandomScale(dice);
  const uint32_t trackCount = dice.Between(1, 4);
  for (uint32_t i = 0; i < trackCount; ++i) {
    file.movie.tracks.push_back(MakeRandomTrack(dice, file.movie.timeScale));
  }
  const bool has64BitOffsets = dice.OneIn(2);
  // The media stand in a box of their own before the empty one of the builder; now and then one
  // chunk begins before them, where no sample data may be.
  const Bytes media = Box("mdat", Pattern(kMediaSize, dice.Below(1000)));
  const auto build = [&](uint64_t mediaStart) {
    Movie movie{.timeScale = file.movie.timeScale};
    for (const ModelTrack& track : file.movie.tracks) {
      movie.tracks.push_back(Described(track, mediaStart, has64BitOffsets));
    }
    movie.betweenBoxes = media;
    return BuildMovie(movie);
  };
  file.mdatOffset = build(0).mdatOffset - media.Size();
  const uint64_t mediaStart = file.mdatOffset - 20;
  const MovieFile built = build(mediaStart);
  file.bytes = built.bytes;
  for (ModelTrack& track : file.movie.tracks) {
    for (uint64_t& offset : track.chunkOffsets) offset += mediaStart;
  }
  return file;
}

ModelTime MakeRandomTime(Dice& dice, const ModelMovie& movie) {
  const ModelTrack& track = movie.tracks[dice.Below(static_cast<uint32_t>(movie.tracks.size()))];
  if (dice.OneIn(3) && track.timeScale != 0) {
    uint64_t time = 0;  // A decode time, where the presentation starts with the media.
    for (const Stts::Run& run : track.times) {
      time += uint64_t{dice.Below(run.count + 1)} * run.delta;
      if (dice.OneIn(2)) break;
    }
    return {time, track.timeScale};
  }
  if (dice.OneIn(2) && track.edits && movie.timeScale != 0) {
    uint64_t time = 0;  // The border of two edits, or next to one.
    for (const Elst::Entry& edit : *track.edits) {
      if (dice.OneIn(3)) break;
      time += edit.segmentDuration;
    }
    return {time + dice.Below(2), movie.timeScale};
  }
  const uint32_t scale = dice.Pick<uint32_t>({1, 10, 30, 1000, 90000});
  return {dice.Below(scale * dice.Between(1, 8)), scale};
}

}  // namespace k7mtest

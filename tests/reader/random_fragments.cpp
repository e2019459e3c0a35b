#include "random_fragments.h"

#include "support/fragment_builder.h"

namespace k7mtest {

namespace {

constexpr uint32_t kMediaSize = 3000;

uint32_t RandomDuration(Dice& dice) {
  return dice.Pick<uint32_t>({0, 1, 2, 3, 10, 33, 40, 512, 1001, 1024});
}

uint32_t RandomSampleFlags(Dice& dice) {
  return dice.Pick<uint32_t>({0, 0x01010000, 0x02000000, 0x01000000, 0x03000000, 0x00010000, 0xFF});
}

uint32_t RandomDescription(Dice& dice, uint32_t count) {
  return dice.OneIn(40) ? dice.Pick<uint32_t>({0, count + 1, 0xFFFFFFFE}) : dice.Between(1, count);
}

/// Now and then a value that counts as not given.
uint32_t OrNotGiven(Dice& dice, uint32_t value) { return dice.OneIn(15) ? 0xFFFFFFFF : value; }

ModelRun RandomRun(Dice& dice) {
  ModelRun run;
  for (const uint32_t flag :
       {kTrunOffset, kTrunFirstFlags, kTrunDuration, kTrunSize, kTrunFlags, kTrunComposition}) {
    if (dice.OneIn(2)) run.flags |= flag;
  }
  run.fields.dataOffset = static_cast<int32_t>(dice.Below(900)) - 60;
  run.fields.firstSampleFlags = RandomSampleFlags(dice);
  for (uint32_t i = dice.OneIn(6) ? 0 : dice.Between(1, 6); i > 0; --i) {
    run.fields.samples.push_back({RandomDuration(dice), dice.OneIn(9) ? 0 : dice.Below(60),
                                  RandomSampleFlags(dice),
                                  dice.Pick<uint32_t>({0, 10, 80, 0xFFFFFFF6, 0x80000000})});
  }
  return run;
}

/// A base data offset is counted from the media as long as the file is not laid out.
ModelTraf RandomTraf(Dice& dice, const ModelMovie& movie, std::vector<uint64_t>& clocks) {
  ModelTraf traf;
  traf.track = dice.Below(static_cast<uint32_t>(movie.tracks.size()));
  for (const uint32_t flag :
       {kTfhdBase, kTfhdDescription, kTfhdDuration, kTfhdSize, kTfhdSampleFlags, kTfhdBaseIsMoof}) {
    if (dice.OneIn(2)) traf.flags |= flag;
  }
  const uint32_t descriptionCount = movie.tracks[traf.track].descriptionCount;
  traf.fields = {.trackId = static_cast<uint32_t>(traf.track + 1),
                 .baseDataOffset = dice.Below(kMediaSize),
                 .description = OrNotGiven(dice, RandomDescription(dice, descriptionCount)),
                 .duration = OrNotGiven(dice, RandomDuration(dice)),
                 .size = OrNotGiven(dice, dice.Below(50)),
                 .sampleFlags = OrNotGiven(dice, RandomSampleFlags(dice))};
  uint64_t& clock = clocks[traf.track];
  if (dice.OneIn(2)) {
    clock += dice.OneIn(2) ? 0 : dice.Below(200);
    if (dice.OneIn(4)) clock -= std::min<uint64_t>(clock, dice.Below(200));
    traf.startTime = clock;
  }
  for (uint32_t i = dice.OneIn(8) ? 0 : dice.Between(1, 3); i > 0; --i) {
    traf.runs.push_back(RandomRun(dice));
    clock += 20 * traf.runs.back().fields.samples.size();
  }
  return traf;
}

/// One entry for each sample that the track's fragments hold.
std::vector<Stts::Run> TimesInFragments(const ModelFragments& fragments, size_t track) {
  std::vector<Stts::Run> times;
  for (const ModelMoof& moof : fragments.moofs) {
    for (const ModelTraf& traf : moof.trafs) {
      if (traf.track != track) continue;
      for (const ModelRun& run : traf.runs) {
        for (const Trun::Sample& sample : run.fields.samples) {
          const bool isOwn = (run.flags & kTrunDuration) != 0;
          times.push_back({1, isOwn ? sample.duration : fragments.defaults[track].duration});
        }
      }
    }
  }
  return times;
}

ModelTrack WithoutTables(ModelTrack track) {
  track.times.clear();
  track.chunkMap.clear();
  track.sizes = {};
  track.chunkOffsets.clear();
  track.compositionOffsets.reset();
  track.syncSamples.reset();
  track.dependencies.reset();
  return track;
}

Bytes MoofBytes(const ModelMoof& moof) {
  Bytes trafs;
  for (const ModelTraf& traf : moof.trafs) {
    Bytes runs;
    for (const ModelRun& run : traf.runs) {
      runs.Append(FullBox("trun", 0, run.flags, run.fields));
    }
    const Bytes tfdt =
        traf.startTime ? FullBox("tfdt", 1, 0, Tfdt{.time = *traf.startTime}) : Bytes();
    trafs.Append(Traf(traf.flags, traf.fields, tfdt, runs));
  }
  return Moof(trafs);
}

/// Fragments before the movie box, the movie box, media, the other fragments.
void LayOut(RandomFragmentedFile& file, bool has64BitOffsets, uint64_t mediaStart,
            const Bytes& media, const std::vector<Bytes>& between) {
  Movie movie{.timeScale = file.movie.timeScale};
  for (const ModelTrack& track : file.movie.tracks) {
    movie.tracks.push_back(Described(track, mediaStart, has64BitOffsets));
  }
  movie.moreInMoov = Mvex(file.fragments.defaults);
  movie.betweenBoxes = media;
  const MovieFile built = BuildMovie(movie);
  file.bytes = built.bytes.Slice(0, built.movieOffset);
  const auto addMoof = [&](size_t index) {
    file.fragments.moofs[index].offset = file.bytes.Size();
    file.bytes.Append(MoofBytes(file.fragments.moofs[index]));
  };
  for (size_t i = 0; i < file.fragments.parsedCount; ++i) addMoof(i);
  file.mdatOffset = file.bytes.Size() + built.mdatOffset - media.Size() - built.movieOffset;
  file.bytes.Append(built.bytes.Slice(built.movieOffset, built.bytes.Size() - built.movieOffset));
  for (size_t i = file.fragments.parsedCount; i < file.fragments.moofs.size(); ++i) {
    file.bytes.Append(between[i]);
    addMoof(i);
  }
}

void MakeTimes(Dice& dice, RandomFragmentedFile& file) {
  file.timing = file.movie;
  for (size_t i = 0; i < file.movie.tracks.size(); ++i) {
    ModelTrack& track = file.timing.tracks[i];
    track.times = TimesInFragments(file.fragments, i);
    uint64_t length = 0;
    for (const Stts::Run& run : track.times) length += run.delta;
    const uint32_t scale = track.timeScale;
    track.headerDuration = scale == 0 ? 0 : length * file.movie.timeScale / scale;
    if (dice.OneIn(4)) track.headerDuration = dice.OneIn(3) ? 0 : dice.Below(2000);
    track.edits.reset();
    if (dice.OneIn(2)) track.edits = MakeRandomEdits(dice, track, file.movie.timeScale);
    file.movie.tracks[i].headerDuration = track.headerDuration;
    file.movie.tracks[i].edits = track.edits;
  }
}

}  // namespace

RandomFragmentedFile MakeRandomFragmentedFile(Dice& dice) {
  RandomFragmentedFile file;
  file.movie.timeScale = MakeRandomScale(dice);
  const uint32_t trackCount = dice.Between(1, 4);
  for (uint32_t i = 0; i < trackCount; ++i) {
    ModelTrack track = MakeRandomTrack(dice, file.movie.timeScale);
    file.movie.tracks.push_back(dice.OneIn(2) ? WithoutTables(track) : track);
    file.fragments.defaults.push_back(
        {.trackId = i + 1,
         .description = RandomDescription(dice, track.descriptionCount),
         .duration = dice.OneIn(30) ? 0xFFFFFFFF : RandomDuration(dice),
         .size = dice.Below(50),
         .sampleFlags = RandomSampleFlags(dice)});
  }
  std::vector<uint64_t> clocks(trackCount, 0);
  for (uint32_t i = dice.Below(9); i > 0; --i) {
    ModelMoof moof;
    for (uint32_t t = dice.Below(5); t > 0; --t) {
      moof.trafs.push_back(RandomTraf(dice, file.movie, clocks));
    }
    file.fragments.moofs.push_back(moof);
  }
  const auto moofCount = static_cast<uint32_t>(file.fragments.moofs.size());
  if (dice.OneIn(3)) file.fragments.parsedCount = dice.Below(moofCount + 1);
  MakeTimes(dice, file);

  const bool has64BitOffsets = dice.OneIn(2);
  const Bytes media = Box("mdat", Pattern(kMediaSize, dice.Below(1000)));
  std::vector<Bytes> between(moofCount);
  for (Bytes& boxes : between) {
    if (dice.OneIn(4)) boxes = Box("mdat", Pattern(dice.Below(40)));
    if (dice.OneIn(4)) boxes.Append(Box(dice.Pick<const char*>({"free", "styp", "sidx"})));
  }
  LayOut(file, has64BitOffsets, 0, media, between);
  // Now and then data begin before the media, where none may be.
  const uint64_t mediaStart = file.mdatOffset - 20;
  for (ModelMoof& moof : file.fragments.moofs) {
    for (ModelTraf& traf : moof.trafs) traf.fields.baseDataOffset += mediaStart;
  }
  LayOut(file, has64BitOffsets, mediaStart, media, between);
  for (ModelTrack& track : file.movie.tracks) {
    for (uint64_t& offset : track.chunkOffsets) offset += mediaStart;
  }
  return file;
}

}  // namespace k7mtest

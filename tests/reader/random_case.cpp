#include "random_case.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace k7mtest {

namespace {

constexpr uint64_t kTenYears = 315360000;

std::string Describe(const ModelSample& sample) {
  return "track " + std::to_string(sample.track) + " time " + std::to_string(sample.timeStamp) +
         " size " + std::to_string(sample.size) + " composition " +
         std::to_string(sample.compositionOffset) + " flags " + std::to_string(sample.flags) +
         " description " + std::to_string(sample.description);
}

}  // namespace

RandomCase::RandomCase(Dice& dice, OpenedReader& reader, const ModelMovie& movie, const Bytes& file,
                       uint64_t mdatOffset, const Oracle& oracle, Seen& seen)
    : dice_(dice),
      reader_(reader),
      movie_(movie),
      file_(file),
      mdatOffset_(mdatOffset),
      oracle_(oracle),
      seen_(seen),
      tracks_(reader.Tracks()) {}

std::vector<size_t> RandomCase::EveryTrack() const {
  std::vector<size_t> tracks(tracks_.size());
  for (size_t i = 0; i < tracks.size(); ++i) tracks[i] = i;
  return tracks;
}

void RandomCase::AskForAll() {
  Compare("all", AllSamples(reader_), oracle_.samples({0, 1}, {kTenYears, 1}, EveryTrack()));
}

void RandomCase::AskForMedia() {
  Compare("media", MediaSamples(reader_), oracle_.mediaSamples(EveryTrack()));
}

void RandomCase::AskForRange() {
  const ModelTime start = dice_.OneIn(4) ? ModelTime{0, 1} : MakeRandomTime(dice_, movie_);
  const ModelTime end = dice_.OneIn(4) ? ModelTime{100000, 1} : MakeRandomTime(dice_, movie_);
  const std::string what = std::to_string(start.value) + "/" + std::to_string(start.scale) +
                           " to " + std::to_string(end.value) + "/" + std::to_string(end.scale);
  QiroK7MSampleIterator* iterator = nullptr;
  std::vector<size_t> selected;
  switch (dice_.Below(3)) {
    case 0:
      selected = EveryTrack();
      ASSERT_EQ(QiroK7MReaderGetSamples(reader_.Handle(), start.scale, start.value, end.scale,
                                        end.value, &iterator),
                0u);
      break;
    case 1:
      ASSERT_EQ(ByTracks(start, end, selected, &iterator), 0u);
      break;
    default:
      ASSERT_EQ(ByMediaTypes(start, end, selected, &iterator), 0u);
  }
  Compare(what, Drain(iterator), oracle_.samples(start, end, selected));
}

QiroK7MError RandomCase::ByTracks(ModelTime start, ModelTime end, std::vector<size_t>& selected,
                                  QiroK7MSampleIterator** out) {
  std::vector<QiroK7MTrack*> handles;
  for (uint32_t i = dice_.Below(5); i > 0; --i) {  // In any order, some perhaps twice.
    selected.push_back(dice_.Below(static_cast<uint32_t>(tracks_.size())));
    handles.push_back(tracks_[selected.back()]);
  }
  return QiroK7MReaderGetSamplesByTracks(reader_.Handle(), start.scale, start.value, end.scale,
                                         end.value, handles.data(),
                                         static_cast<uint32_t>(handles.size()), out);
}

QiroK7MError RandomCase::ByMediaTypes(ModelTime start, ModelTime end, std::vector<size_t>& selected,
                                      QiroK7MSampleIterator** out) {
  const std::vector<const char*> wanted = {dice_.Pick<const char*>({"vide", "soun", "text"}),
                                           dice_.Pick<const char*>({"soun", "hint", "none"})};
  std::vector<uint32_t> types;
  for (const char* type : wanted) types.push_back(Code(type));
  for (const size_t t : EveryTrack()) {
    if (std::find(wanted.begin(), wanted.end(), movie_.tracks[t].handler) != wanted.end()) {
      selected.push_back(t);
    }
  }
  return QiroK7MReaderGetSamplesByMediaTypes(reader_.Handle(), start.scale, start.value, end.scale,
                                             end.value, types.data(),
                                             static_cast<uint32_t>(types.size()), out);
}

void RandomCase::Compare(const std::string& what, const std::vector<ReadSample>& got,
                         const std::vector<ModelSample>& expected) {
  for (size_t i = 0; i < std::max(got.size(), expected.size()); ++i) {
    const std::string here = what + ", sample " + std::to_string(i);
    ASSERT_LT(i, expected.size()) << here << ": one too many";
    ASSERT_LT(i, got.size()) << here << ": missing " << Describe(expected[i]);
    ASSERT_EQ(Describe(AsModel(got[i])), Describe(expected[i])) << here;
    const ModelTrack& track = movie_.tracks[expected[i].track];
    ASSERT_EQ(got[i].info.timeScale, track.timeScale);
    ASSERT_EQ(got[i].info.mediaType, Code(track.handler));
    CompareData(here, got[i], expected[i]);
    Count(got[i]);
  }
  seen_.emptyAnswers += got.empty() ? 1 : 0;
}

void RandomCase::Count(const ReadSample& sample) {
  const bool isGap = sample.info.flags == kQiroK7MSampleFlagGap;
  ++seen_.samples;
  seen_.gaps += isGap ? 1 : 0;
  seen_.keys += (sample.info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey ? 1 : 0;
  seen_.withoutDescription += !isGap && sample.descriptor == nullptr ? 1 : 0;
  seen_.unreadable += sample.dataResult != 0 ? 1 : 0;
}

ModelSample RandomCase::AsModel(const ReadSample& sample) const {
  ModelSample model;
  model.track = static_cast<size_t>(std::find(tracks_.begin(), tracks_.end(), sample.track) -
                                    tracks_.begin());
  model.timeStamp = sample.info.timeStamp;
  model.size = sample.info.sampleSize;
  model.compositionOffset = sample.info.compositionOffset;
  model.flags = sample.info.flags;
  if (sample.descriptor != nullptr) {
    const auto descriptors = DescriptorsOf(sample.track);
    const auto place = std::find(descriptors.begin(), descriptors.end(), sample.descriptor);
    model.description = static_cast<uint32_t>(place - descriptors.begin()) + 1;
  }
  return model;
}

void RandomCase::CompareData(const std::string& here, const ReadSample& got,
                             const ModelSample& expected) {
  const bool isReadable =
      expected.size == 0 || (expected.offset >= mdatOffset_ && expected.offset <= file_.Size() &&
                             expected.offset + expected.size <= file_.Size());
  ASSERT_EQ(got.dataResult, isReadable ? kQiroK7MErrorNone : kQiroK7MErrorSampleDataShort) << here;
  if (isReadable && expected.size != 0) {
    ASSERT_EQ(got.data, file_.Slice(expected.offset, expected.size)) << here;
  }
}

}  // namespace k7mtest

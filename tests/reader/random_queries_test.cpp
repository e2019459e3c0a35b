// Random files, each asked random questions; what the library delivers must equal the slow model.
#include <gtest/gtest.h>

#include <algorithm>

#include "random_movie.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr uint64_t kTenYears = 315360000;

std::string Describe(const ModelSample& sample) {
  return "track " + std::to_string(sample.track) + " time " + std::to_string(sample.timeStamp) +
         " size " + std::to_string(sample.size) + " composition " +
         std::to_string(sample.compositionOffset) + " flags " + std::to_string(sample.flags) +
         " description " + std::to_string(sample.description);
}

/// What the answers held, to be sure that the random files are not all alike.
struct Seen {
  uint32_t samples = 0;
  uint32_t gaps = 0;
  uint32_t keys = 0;
  uint32_t withoutDescription = 0;
  uint32_t unreadable = 0;
  uint32_t emptyAnswers = 0;
};

/// One random file, opened, with the questions that are put to it.
class RandomCase {
 public:
  RandomCase(uint32_t seed, Seen& seen)
      : seen_(seen), dice_(seed), file_(MakeRandomFile(dice_)), reader_(file_.bytes) {}

  void Run() {
    ASSERT_EQ(reader_.Result(), 0u);
    tracks_ = reader_.Tracks();
    ASSERT_EQ(tracks_.size(), file_.movie.tracks.size());
    AskForAll();
    for (int i = 0; i < 6 && !::testing::Test::HasFailure(); ++i) AskForRange();
  }

 private:
  std::vector<size_t> EveryTrack() const {
    std::vector<size_t> tracks(tracks_.size());
    for (size_t i = 0; i < tracks.size(); ++i) tracks[i] = i;
    return tracks;
  }

  void AskForAll() {
    const std::vector<size_t> all = EveryTrack();
    Compare("all", AllSamples(reader_), ExpectSamples(file_.movie, {0, 1}, {kTenYears, 1}, all));
    Compare("media", MediaSamples(reader_), ExpectMediaSamples(file_.movie, all));
  }

  void AskForRange() {
    const ModelTime start = dice_.OneIn(4) ? ModelTime{0, 1} : MakeRandomTime(dice_, file_.movie);
    const ModelTime end =
        dice_.OneIn(4) ? ModelTime{100000, 1} : MakeRandomTime(dice_, file_.movie);
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
    Compare(what, Drain(iterator), ExpectSamples(file_.movie, start, end, selected));
  }

  QiroK7MError ByTracks(ModelTime start, ModelTime end, std::vector<size_t>& selected,
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

  QiroK7MError ByMediaTypes(ModelTime start, ModelTime end, std::vector<size_t>& selected,
                            QiroK7MSampleIterator** out) {
    const std::vector<const char*> wanted = {dice_.Pick<const char*>({"vide", "soun", "text"}),
                                             dice_.Pick<const char*>({"soun", "hint", "none"})};
    std::vector<uint32_t> types;
    for (const char* type : wanted) types.push_back(Code(type));
    for (const size_t t : EveryTrack()) {
      if (std::find(wanted.begin(), wanted.end(), file_.movie.tracks[t].handler) != wanted.end()) {
        selected.push_back(t);
      }
    }
    return QiroK7MReaderGetSamplesByMediaTypes(reader_.Handle(), start.scale, start.value,
                                               end.scale, end.value, types.data(),
                                               static_cast<uint32_t>(types.size()), out);
  }

  void Compare(const std::string& what, const std::vector<ReadSample>& got,
               const std::vector<ModelSample>& expected) {
    for (size_t i = 0; i < std::max(got.size(), expected.size()); ++i) {
      const std::string here = what + ", sample " + std::to_string(i);
      ASSERT_LT(i, expected.size()) << here << ": one too many";
      ASSERT_LT(i, got.size()) << here << ": missing " << Describe(expected[i]);
      ASSERT_EQ(Describe(AsModel(got[i])), Describe(expected[i])) << here;
      const ModelTrack& track = file_.movie.tracks[expected[i].track];
      ASSERT_EQ(got[i].info.timeScale, track.timeScale);
      ASSERT_EQ(got[i].info.mediaType, Code(track.handler));
      CompareData(here, got[i], expected[i]);
      Count(got[i]);
    }
    seen_.emptyAnswers += got.empty() ? 1 : 0;
  }

  void Count(const ReadSample& sample) {
    const bool isGap = sample.info.flags == kQiroK7MSampleFlagGap;
    ++seen_.samples;
    seen_.gaps += isGap ? 1 : 0;
    seen_.keys += (sample.info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey ? 1 : 0;
    seen_.withoutDescription += !isGap && sample.descriptor == nullptr ? 1 : 0;
    seen_.unreadable += sample.dataResult != 0 ? 1 : 0;
  }

  ModelSample AsModel(const ReadSample& sample) const {
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

  void CompareData(const std::string& here, const ReadSample& got, const ModelSample& expected) {
    const bool isReadable =
        expected.size == 0 || (expected.offset >= file_.mdatOffset &&
                               expected.offset + expected.size <= file_.bytes.Size());
    ASSERT_EQ(got.dataResult, isReadable ? kQiroK7MErrorNone : kQiroK7MErrorSampleDataShort)
        << here;
    if (isReadable && expected.size != 0) {
      ASSERT_EQ(got.data, file_.bytes.Slice(expected.offset, expected.size)) << here;
    }
  }

  Seen& seen_;
  Dice dice_;
  RandomFile file_;
  OpenedReader reader_;
  std::vector<QiroK7MTrack*> tracks_;
};

class RandomQueries : public ::testing::TestWithParam<uint32_t> {};

TEST_P(RandomQueries, DeliverWhatTheSlowModelExpects) {
  constexpr uint32_t kCasesPerTest = 500;
  Seen seen;
  for (uint32_t i = 0; i < kCasesPerTest; ++i) {
    const uint32_t seed = GetParam() * kCasesPerTest + i;
    RandomCase(seed, seen).Run();
    if (HasFailure()) FAIL() << "seed " << seed;
  }
  EXPECT_GT(seen.samples, 10000u);
  EXPECT_GT(seen.gaps, 300u);
  EXPECT_GT(seen.keys, 300u);
  EXPECT_GT(seen.withoutDescription, 30u);
  EXPECT_GT(seen.unreadable, 30u);
  EXPECT_GT(seen.emptyAnswers, 300u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomQueries, ::testing::Range(0u, 10u));

}  // namespace
}  // namespace k7mtest

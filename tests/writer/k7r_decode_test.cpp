// K7R copies of a media file: every sample has its bytes for the library's reader, and another
// program decodes the same frames.
#include <gtest/gtest.h>

#include "decoded_copies.h"
#include "k7r_expectations.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr size_t kHeaderSize = 11;
constexpr size_t kTrailerSize = 4;

struct Copying {
  size_t perFragment = 20;
  bool isHinted = true;  // Media lies inside hint samples.
  bool withAbst = false;
  size_t perWriter = 1000;  // Then the file is closed and continued.
};

const std::string kOriginal = std::string(K7M_TEST_DATA) + "/h264-bframes-aac.mp4";

class Copier {
 public:
  explicit Copier(const Copying& how) : how_(how), source_(FileBytes(kOriginal)) {
    EXPECT_EQ(source_.Result(), 0u);
    samples_ = MediaSamples(source_);
    EXPECT_EQ(samples_.size(), 138u);
  }

  const std::vector<ReadSample>& Samples() const { return samples_; }
  QiroK7MTrack* SourceTrack(size_t index) const { return source_.TrackAt(index); }

  Bytes Copy() {
    Bytes file = CopyFirst();
    while (next_ < samples_.size()) {
      OpenedK7RWriter writer(file);
      EXPECT_EQ(writer.Result(), 0u);
      AddSamples(writer, writer.DescribedTracks());
      file = writer.Finish();
    }
    return file;
  }

 private:
  Bytes CopyFirst() {
    OpenedK7RWriter writer;
    std::vector<QiroK7MTrack*> tracks;
    for (QiroK7MTrack* from : source_.Tracks()) {
      tracks.push_back(CopyTrack(writer, from, 60));
    }
    tracks.push_back(nullptr);
    const NewTrack hint{.mediaType = "hint", .gapCount = 60, .descriptorCount = 1, .flags = 0};
    EXPECT_EQ(writer.TryAddHintTrack(hint, {tracks[0], tracks[1]}, &tracks[2]), 0u);
    writer.SetTimeOrigin(tracks[2], 0);
    AddSamples(writer, tracks);
    return writer.Finish();
  }

  void AddSamples(OpenedK7RWriter& writer, const std::vector<QiroK7MTrack*>& tracks) {
    for (size_t i = 0; i < how_.perWriter && next_ < samples_.size(); ++i, ++next_) {
      if (i % how_.perFragment == 0) {
        writer.StartFragment();
        if (how_.withAbst) {
          EXPECT_EQ(writer.TryAddAbst(Pattern(30)), 0u);
        }
      }
      Add(writer, tracks, samples_[next_]);
    }
  }

  void Add(OpenedK7RWriter& writer, const std::vector<QiroK7MTrack*>& tracks,
           const ReadSample& sample) {
    QiroK7MTrack* track = tracks[sample.track == source_.TrackAt(0) ? 0 : 1];
    NewSample added{.time = sample.info.timeStamp,
                    .data = sample.data,
                    .flags = sample.info.flags,
                    .compositionOffset = sample.info.compositionOffset,
                    .timeScale = sample.info.timeScale};
    if (!how_.isHinted) {
      writer.Add(track, added, true);
      return;
    }
    added.data = Pattern(kHeaderSize) + sample.data + Pattern(kTrailerSize);
    writer.AddHint(tracks[2], track, added,
                   {kHeaderSize, static_cast<uint32_t>(sample.data.Size())}, true);
  }

  Copying how_;
  OpenedReader source_;
  std::vector<ReadSample> samples_;
  size_t next_ = 0;
};

std::vector<Bytes> DataOf(const std::vector<ReadSample>& samples, QiroK7MTrack* track) {
  std::vector<Bytes> data;
  for (const ReadSample& sample : samples) {
    if (sample.track == track) data.push_back(sample.data);
  }
  return data;
}

class K7RCopy : public ::testing::TestWithParam<Copying> {};

TEST_P(K7RCopy, HasEverySampleAndDecodesToTheSameFrames) {
  Copier copier(GetParam());
  const Bytes file = copier.Copy();
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  for (const size_t track : {0u, 1u}) {
    EXPECT_EQ(Data(MediaSamples(reader, reader.TrackAt(track))),
              DataOf(copier.Samples(), copier.SourceTrack(track)));
  }
  if (GetParam().isHinted) {
    const std::vector<Bytes> hints = Data(MediaSamples(reader, reader.TrackAt(2)));
    ASSERT_EQ(hints.size(), copier.Samples().size());
    for (size_t i = 0; i < hints.size(); ++i) {
      EXPECT_EQ(hints[i], Pattern(kHeaderSize) + copier.Samples()[i].data + Pattern(kTrailerSize));
    }
  }
  // Where a file was continued, frames that are shown later than they are decoded meet on the media
  // timeline, which has no gap there: only the packets are the same without the edit list.
  const bool isContinued = GetParam().perWriter < copier.Samples().size();
  ExpectSameFrames(file, kOriginal, isContinued ? Compared::kPackets : Compared::kDecodedFrames);
}

INSTANTIATE_TEST_SUITE_P(Ways, K7RCopy,
                         ::testing::Values(Copying{}, Copying{.isHinted = false},
                                           Copying{.perFragment = 1, .withAbst = true},
                                           Copying{.perFragment = 500, .withAbst = true},
                                           Copying{.perFragment = 7, .perWriter = 31}));

}  // namespace
}  // namespace k7mtest

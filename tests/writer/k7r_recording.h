/// @file k7r_recording.h
/// A small K7R file of some fragments, made by the library, and what it holds.
#ifndef K7M_TESTS_WRITER_K7R_RECORDING_H
#define K7M_TESTS_WRITER_K7R_RECORDING_H

#include "k7r_expectations.h"
#include "support/opened_reader.h"

namespace k7mtest {

/// Each fragment holds, at its number times 100: two hint samples with a video sample each, the
/// second one 40 later, and an audio sample with bytes of its own.
struct Recording {
  static constexpr uint32_t kTimeOrigin = 500;
  static constexpr size_t kSamplesPerFragment = 5;

  Bytes file;
  std::vector<uint64_t> starts;  // Of the fragments.
  std::vector<uint64_t> ends;
};

inline Bytes MessageOf(uint64_t time) { return Pattern(20, static_cast<uint32_t>(time)); }

/// Adds the samples of one fragment to the tracks video, audio, hint.
inline void AddFragment(OpenedK7RWriter& writer, const std::vector<QiroK7MTrack*>& tracks,
                        uint64_t number) {
  const uint64_t time = Recording::kTimeOrigin + number * 100;
  writer.StartFragment();
  writer.AddHint(tracks[2], tracks[0], {.time = time, .data = MessageOf(time), .flags = kKey},
                 {3, 10}, true);
  writer.Add(tracks[1], {.time = time, .data = MessageOf(time + 1)}, true);
  writer.AddHint(tracks[2], tracks[0], {.time = time + 40, .data = MessageOf(time + 40)}, {0, 20});
}

inline Recording Record(uint64_t fragmentCount, bool withAbst = false, uint32_t gapCount = 20) {
  Recording recording;
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack({.gapCount = gapCount});
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun", .gapCount = gapCount});
  QiroK7MTrack* hint = nullptr;
  const NewTrack track{.mediaType = "hint", .gapCount = gapCount, .descriptorCount = 1, .flags = 0};
  EXPECT_EQ(writer.TryAddHintTrack(track, {video}, &hint), 0u);
  writer.SetTimeOrigin(hint, Recording::kTimeOrigin);
  for (uint64_t number = 0; number < fragmentCount; ++number) {
    AddFragment(writer, {video, audio, hint}, number);
    if (withAbst) {
      EXPECT_EQ(writer.TryAddAbst(Pattern(9)), 0u);
    }
    writer.Flush();
    recording.ends.push_back(writer.File().Size());
  }
  recording.file = writer.Finish();
  for (uint64_t number = 1; number <= fragmentCount; ++number) {
    recording.starts.push_back(PlaceOf(recording.file, "afra#" + std::to_string(number)).offset);
  }
  return recording;
}

/// The bytes of the media samples of a track as they lie in the file, by the library's reader.
inline std::vector<Bytes> MediaOf(const Bytes& file, size_t track) {
  OpenedReader reader(file);
  EXPECT_EQ(reader.Result(), 0u);
  return reader.Result() == 0 ? Data(MediaSamples(reader, reader.TrackAt(track)))
                              : std::vector<Bytes>();
}

/// What the tracks video, audio and hint must hold when exactly these fragments are in the file.
inline void ExpectFragmentsReadBack(const Bytes& file, const std::vector<uint64_t>& numbers) {
  std::vector<Bytes> video;
  std::vector<Bytes> audio;
  std::vector<Bytes> hint;
  for (const uint64_t number : numbers) {
    const uint64_t time = Recording::kTimeOrigin + number * 100;
    video.push_back(MessageOf(time).Slice(3, 10));
    video.push_back(MessageOf(time + 40));
    audio.push_back(MessageOf(time + 1));
    hint.push_back(MessageOf(time));
    hint.push_back(MessageOf(time + 40));
  }
  EXPECT_EQ(MediaOf(file, 0), video);
  EXPECT_EQ(MediaOf(file, 1), audio);
  EXPECT_EQ(MediaOf(file, 2), hint);
}

}  // namespace k7mtest

#endif

/// @file recording_writer.h
/// A K7R file being written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "movie_writer.h"
#include "track_match.h"

namespace qiro::k7m::tool {

/// How many times a file can be continued: there is room for the waits of so many times.
inline constexpr uint32_t kContinuationCount = 100;

/// What a file is continued behind.
struct Continuation {
  uint64_t length = 0;     ///< Bytes in the file.
  uint64_t keepLimit = 0;  ///< A fragment that begins behind this byte is cut off.
};

/// Which samples get a random access entry. An entry is a time from which the whole document can be
/// played: a key sample of another track is none, as long as the leading one has none there.
struct AccessRule {
  size_t leadingTrack = 0;  ///< Its key samples, in the order of AddTrack().
  /// Without video no sample is better than another: the first one of every fragment.
  bool hasVideo = false;
};

AccessRule AccessRuleOf(const RemuxPlan& plan);

/// A K7R file: every sample of a track is also one of the hint track, and its bytes are in the file
/// once. A fragment stays in memory until it ends.
class RecordingWriter : public MovieWriter {
 public:
  /// As MovieWriter. A new file: the tracks, then AddHintTrack(), then samples.
  RecordingWriter(int descriptor, std::string name, const QiroK7MDocInfo& info);

  /// An existing file, which is cut behind its last complete fragment at once. It has its tracks.
  RecordingWriter(int descriptor, std::string name, const Continuation& continuation);
  /// Where the last fragment that was there begins; 0 when there was none.
  uint64_t LastFragment() const { return lastFragment_; }

  /// Adds the hint track, which serves all tracks so far. The file's times count from 0.
  /// @param timeScale  of its times and of the random access entries
  /// @param gapCount   waits of all tracks that there is to be room for
  void AddHintTrack(uint32_t timeScale, uint32_t gapCount);
  /// Makes the tracks of an existing file those that samples are added to, in the given order. The
  /// times of samples count from the file's time origin.
  void ContinueTracks(const std::vector<std::optional<TrackMatch>>& matches);
  /// The payload of a bootstrap box that every fragment gets from now on; none when it is empty.
  void SetBootstrap(std::vector<uint8_t> payload) { bootstrap_ = std::move(payload); }
  void SetAccessRule(const AccessRule& rule) { accessRule_ = rule; }

  /// A change of description begins a fragment when the open one has a sample of the track.
  void AddSample(size_t track, size_t description, const QiroK7MSampleInfo& info,
                 std::vector<uint8_t>* bytes) override;
  void EndFragment() override { hasFragment_ = false; }
  /// The hint track ends with the tracks that it serves, where gaps say when these do.
  void Close() override;

 private:
  void AddHintDescription();
  std::vector<QiroK7MTrack*> ListTracks() const;
  std::vector<QiroK7MSampleDescriptor*> ListDescriptors(QiroK7MTrack* track) const;
  // Gives the time origin of the file.
  MediaTime AdoptHintTrack(const std::vector<QiroK7MTrack*>& tracks);
  uint64_t OriginIn(const QiroK7MSampleInfo& info) const;
  OutputTrack ContinuedTrack(QiroK7MTrack* handle, const TrackMatch& match) const;
  void StartFragment();
  void QueueBootstrap();
  bool GetsEntry(size_t track, const QiroK7MSampleInfo& info) const;

  QiroK7RWriter* recording_ = nullptr;  // The same writer by its other name.
  uint64_t lastFragment_ = 0;
  QiroK7MTrack* hintTrack_ = nullptr;
  std::vector<uint8_t> bootstrap_;
  AccessRule accessRule_;
  MediaTime origin_;                // Of the file's times, in the scale of the hint track.
  QiroK7MSampleInfo last_{};        // The latest one; a gap may be.
  bool hasFragment_ = false;        // A fragment was started and has not ended.
  bool fragmentHasMedia_ = false;   // It holds a sample.
  std::vector<bool> isInFragment_;  // By track: it holds one of this track.
};

}  // namespace qiro::k7m::tool

/// @file writer_session.h
/// Any sequence of writer calls, and what the file must hold then.
#ifndef K7M_FUZZ_WRITER_SESSION_H
#define K7M_FUZZ_WRITER_SESSION_H

#include <memory>
#include <vector>

#include "session_model.h"
#include "support/opened_k7r_writer.h"
#include "target.h"

namespace k7mfuzz {

enum class DocumentKind : uint8_t { kPlain, kFragmented, kK7R };

/// Makes the calls that the choices tell until these or the writer are used up. Calls may fail;
/// what was taken is remembered.
class WriterSession {
 public:
  WriterSession(DocumentKind kind, Choices& choices);
  void Run();
  /// Closes; then, unless the writer was bad, reads the file back.
  void FinishAndJudge();

 private:
  struct TrackState {
    QiroK7MTrack* track;
    k7mtest::ModelTrack model;
    uint32_t current = 0;  // The description's number.
  };

  bool IsK7R() const { return kind_ == DocumentKind::kK7R; }
  size_t Pick(size_t count) { return count == 0 ? 0 : choices_.Byte() % count; }
  TrackState& AnyTrack() { return tracks_[Pick(tracks_.size())]; }
  /// The time origin in a track's scale.
  uint64_t OriginOf(const TrackState& state) const;

  void OrderFault();
  void AddTrack();
  void AddHintTrack();
  void Describe();
  void ChooseDescription();
  void AddBox();
  void AddSample();
  void AddHintSample();
  void Flush();
  void StartFragment();
  void AddBootstrap();

  k7mtest::NewTrack AnyNewTrack();
  /// A sample that the track's times allow, mostly; `taken` is what the model calls it.
  k7mtest::NewSample NextSample(const TrackState& state, k7mtest::ModelSample& taken);
  QiroK7MError TryAdd(QiroK7MTrack* track, const k7mtest::NewSample& sample);
  void ExpectHeld(const k7mtest::OpenedReader& reader, QiroK7MTrack* track,
                  const TrackState& state) const;

  DocumentKind kind_;
  Choices& choices_;
  uint32_t movieScale_;
  std::unique_ptr<k7mtest::OpenedWriter> plain_;
  std::unique_ptr<k7mtest::OpenedK7RWriter> k7r_;
  k7mtest::OpenedWriter& writer_;
  std::vector<TrackState> tracks_;
  size_t hintTrack_ = SIZE_MAX;
  std::optional<uint32_t> origin_;
  bool faultIsOrdered_ = false;
  uint32_t dataSeed_ = 0;
};

}  // namespace k7mfuzz

#endif

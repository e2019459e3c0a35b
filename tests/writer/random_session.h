/// @file random_session.h
/// Whole writing sessions made from a seed, with the model of what they add.
#ifndef K7M_TESTS_WRITER_RANDOM_SESSION_H
#define K7M_TESTS_WRITER_RANDOM_SESSION_H

#include <functional>
#include <random>
#include <vector>

#include "session_model.h"

namespace k7mtest {

struct SessionOptions {
  std::vector<const char*> mediaTypes = {"vide", "soun", "text", "hint", "meta"};
  std::vector<uint32_t> timeScales = {1, 25, 600, 1000, 1001, 12345, 48000, 90000};
  bool hasFlushes = true;
  bool hasGaps = true;
  bool hasExtraBoxes = true;
  bool hasEqualTimes = true;
  bool hasNegativeOffsets = true;
  bool startsWithKeys = false;  // The first sample of every track is a key sample.
  uint32_t maxSteps = 60;
};

class RandomSession {
 public:
  explicit RandomSession(uint32_t seed, const SessionOptions& options = {});

  /// Does everything but closing. `atFlush(*this)` is called behind every flush.
  void Run(const std::function<void(RandomSession&)>& atFlush = {});

  OpenedWriter& Writer() { return writer_; }
  const std::vector<ModelTrack>& Model() const { return models_; }

 private:
  uint32_t Pick(uint32_t count) { return static_cast<uint32_t>(random_() % count); }
  bool Chance(uint32_t percent) { return Pick(100) < percent; }
  void AddTracks();
  void AddBoxes();
  void AddDescription(size_t track);
  void Step();
  void AddToTrack(size_t track);
  void AddSampleTo(size_t track, uint64_t time);
  uint64_t NextTime(const ModelTrack& model);

  std::mt19937 random_;
  SessionOptions options_;
  uint32_t movieScale_;
  OpenedWriter writer_;
  std::vector<QiroK7MTrack*> tracks_;
  std::vector<ModelTrack> models_;
  std::vector<std::vector<QiroK7MSampleDescriptor*>> descriptors_;
  std::vector<uint32_t> current_;
  std::function<void(RandomSession&)> atFlush_;
  uint32_t dataSeed_ = 0;
};

}  // namespace k7mtest

#endif

/// @file random_case.h
/// Random questions to an opened file, the answers compared with those of a slow model.
#ifndef K7M_TESTS_READER_RANDOM_CASE_H
#define K7M_TESTS_READER_RANDOM_CASE_H

#include <functional>
#include <string>
#include <vector>

#include "random_movie.h"
#include "support/opened_reader.h"

namespace k7mtest {

/// What the answers held, to be sure that the random files are not all alike.
struct Seen {
  uint32_t samples = 0;
  uint32_t gaps = 0;
  uint32_t keys = 0;
  uint32_t withoutDescription = 0;
  uint32_t unreadable = 0;
  uint32_t emptyAnswers = 0;
};

/// What a model expects.
struct Oracle {
  std::function<std::vector<ModelSample>(ModelTime, ModelTime, const std::vector<size_t>&)> samples;
  std::function<std::vector<ModelSample>(const std::vector<size_t>&)> mediaSamples;
};

/// A file, opened, with the questions that are put to it. Failures go to the running test.
class RandomCase {
 public:
  /// `movie` is the one whose times and handlers are asked about. All of these are used until the
  /// last question.
  RandomCase(Dice& dice, OpenedReader& reader, const ModelMovie& movie, const Bytes& file,
             uint64_t mdatOffset, const Oracle& oracle, Seen& seen);

  void AskForAll();
  void AskForMedia();
  void AskForRange();

  std::vector<size_t> EveryTrack() const;
  const std::vector<QiroK7MTrack*>& Tracks() const { return tracks_; }

 private:
  QiroK7MError ByTracks(ModelTime start, ModelTime end, std::vector<size_t>& selected,
                        QiroK7MSampleIterator** out);
  QiroK7MError ByMediaTypes(ModelTime start, ModelTime end, std::vector<size_t>& selected,
                            QiroK7MSampleIterator** out);
  void Compare(const std::string& what, const std::vector<ReadSample>& got,
               const std::vector<ModelSample>& expected);
  void Count(const ReadSample& sample);
  ModelSample AsModel(const ReadSample& sample) const;
  void CompareData(const std::string& here, const ReadSample& got, const ModelSample& expected);

  Dice& dice_;
  OpenedReader& reader_;
  const ModelMovie& movie_;
  const Bytes& file_;
  uint64_t mdatOffset_;
  const Oracle& oracle_;
  Seen& seen_;
  std::vector<QiroK7MTrack*> tracks_;
};

}  // namespace k7mtest

#endif

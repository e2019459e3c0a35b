/// @file opened_reader.h
/// A document opened from bytes through the public functions, with books on everything it uses.
#ifndef K7M_TESTS_SUPPORT_OPENED_READER_H
#define K7M_TESTS_SUPPORT_OPENED_READER_H

#include <optional>
#include <vector>

#include "bytes.h"
#include "counting_allocator.h"
#include "k7m/k7m.h"
#include "memory_stream.h"
#include "warning_recorder.h"

namespace k7mtest {

/// A sum of QiroK7MReadFlags.
struct ReadFlags {
  uint32_t value;
};

/// Opens at once and closes when it goes; then everything taken must have been given back, and the
/// stream closed as often as it was opened.
class OpenedReader {
 public:
  explicit OpenedReader(const Bytes& file) : stream_(file) { Open(); }
  /// With QiroK7MDocOpenForReadWithOptions().
  OpenedReader(const Bytes& file, ReadFlags flags) : stream_(file), flags_(flags) { Open(); }
  /// Lets `prepare(*this)` order faults first.
  template <class Prepare>
  OpenedReader(const Bytes& file, Prepare prepare) : stream_(file) {
    prepare(*this);
    Open();
  }
  /// The same, opened plainly or with QiroK7MDocOpenForReadWithOptions().
  template <class Prepare>
  OpenedReader(const Bytes& file, std::optional<ReadFlags> flags, Prepare prepare)
      : stream_(file), flags_(flags) {
    prepare(*this);
    Open();
  }
  OpenedReader(const OpenedReader&) = delete;
  OpenedReader& operator=(const OpenedReader&) = delete;
  ~OpenedReader() { Close(); }

  /// What the open function returned.
  QiroK7MError Result() const { return result_; }
  QiroK7MReader* Handle() const { return reader_; }
  MemoryStream& Stream() { return stream_; }
  CountingAllocator& Memory() { return memory_; }
  WarningRecorder& Warnings() { return warnings_; }

  /// Closes early and judges; the second time it does nothing.
  void Close();

  std::vector<QiroK7MTrack*> Tracks() const;
  QiroK7MTrack* TrackAt(size_t index) const { return Tracks().at(index); }

 private:
  void Open();

  MemoryStream stream_;
  CountingAllocator memory_;
  WarningRecorder warnings_;
  std::optional<ReadFlags> flags_;  // None: the plain open.
  QiroK7MReader* reader_ = nullptr;
  QiroK7MError result_ = 0;
  bool isClosed_ = false;
};

/// The result of opening `file`; everything is closed again.
QiroK7MError OpenResult(const Bytes& file);
/// The warnings of opening `file`, which must succeed.
std::vector<QiroK7MError> OpenWarnings(const Bytes& file);

QiroK7MTrackInfo InfoOf(QiroK7MTrack* track);
QiroK7MTrackEntriesInfo EntriesOf(QiroK7MTrack* track);
std::vector<QiroK7MSampleDescriptor*> DescriptorsOf(QiroK7MTrack* track);
bool HasMore(QiroK7MSampleIterator* iterator);

/// A sample as it was handed out.
struct ReadSample {
  QiroK7MSampleInfo info{};
  QiroK7MTrack* track = nullptr;
  QiroK7MSampleDescriptor* descriptor = nullptr;
  QiroK7MError dataResult = 0;
  Bytes data;  // As many bytes as the sample has; only good when the result is 0.
};

/// Takes the record, track, descriptor and bytes of a sample and releases it.
ReadSample TakeSample(QiroK7MSample* sample, bool withData = true);
/// All that is left in the iterator, which is released. Stops at a failure, which goes to
/// `failure`; without one a failure fails the test.
std::vector<ReadSample> Drain(QiroK7MSampleIterator* iterator, bool withData = true,
                              QiroK7MError* failure = nullptr);
/// All samples of all tracks, with the edit lists applied.
std::vector<ReadSample> AllSamples(const OpenedReader& reader, bool withData = true);
/// The same between two times.
std::vector<ReadSample> SamplesBetween(const OpenedReader& reader, uint32_t startScale,
                                       uint64_t start, uint32_t endScale, uint64_t end);
/// The samples as they lie in the file; of one track when it is given.
std::vector<ReadSample> MediaSamples(const OpenedReader& reader, QiroK7MTrack* track = nullptr,
                                     bool withData = true);

std::vector<uint64_t> TimeStamps(const std::vector<ReadSample>& samples);
std::vector<uint32_t> Flags(const std::vector<ReadSample>& samples);
std::vector<Bytes> Data(const std::vector<ReadSample>& samples);

}  // namespace k7mtest

#endif

/// @file opened_k7r_writer.h
/// A K7R file being written through the public functions, with books on everything it uses. Buffers
/// that the writer keeps live as long as this object, and must have been given back once by then.
#ifndef K7M_TESTS_SUPPORT_OPENED_K7R_WRITER_H
#define K7M_TESTS_SUPPORT_OPENED_K7R_WRITER_H

#include <memory>
#include <vector>

#include "counted_buffer.h"
#include "opened_writer.h"

namespace k7mtest {

/// A media sample in the bytes of a hint sample.
struct MediaInHint {
  uint32_t offset = 0;
  uint32_t size = 0;
};

/// The extension bytes of a 'vorp' description that tell a time origin.
Bytes VorpExtension(uint32_t timeOrigin);

class OpenedK7RWriter : public OpenedWriter {
 public:
  explicit OpenedK7RWriter(uint32_t movieTimeScale = 1000)
      : OpenedK7RWriter(DocInfoOf(movieTimeScale)) {}
  explicit OpenedK7RWriter(const QiroK7MDocInfo& info);
  /// Opens a file to continue it. The journal of the stream may begin with what opening changes.
  explicit OpenedK7RWriter(const Bytes& file, uint64_t keepLimit = ~uint64_t{0},
                           bool keepsJournal = false);
  ~OpenedK7RWriter();

  QiroK7RWriter* K7R() const { return reinterpret_cast<QiroK7RWriter*>(Handle()); }
  /// What opening to continue told.
  uint64_t LastFragment() const { return lastFragment_; }
  /// The tracks of a file that is continued, each with its first description chosen.
  std::vector<QiroK7MTrack*> DescribedTracks();

  // These fail the test when the library does.
  QiroK7MTrack* AddHintTrack(const std::vector<QiroK7MTrack*>& served, uint32_t timeScale = 1000);
  /// Adds the 'vorp' description, which sets the time origin.
  void SetTimeOrigin(QiroK7MTrack* hintTrack, uint32_t timeOrigin);
  /// A hint track with its description.
  QiroK7MTrack* AddDescribedHintTrack(const std::vector<QiroK7MTrack*>& served,
                                      uint32_t timeOrigin = 0, uint32_t timeScale = 1000);
  uint64_t StartFragment();
  void Add(QiroK7MTrack* track, const NewSample& sample, bool isRandomAccess = false);
  void Add(QiroK7MTrack* track, uint64_t time, uint32_t flags = 0);
  void AddHint(QiroK7MTrack* hint, QiroK7MTrack* media, const NewSample& sample, MediaInHint where,
               bool isRandomAccess = false);

  // These give the library's answer. A buffer must have come back when that is a failure.
  QiroK7MError TryAddHintTrack(const NewTrack& track, const std::vector<QiroK7MTrack*>& served,
                               QiroK7MTrack** out = nullptr, uint32_t protocol = 2);
  QiroK7MError TryStartFragment();
  QiroK7MError TryAdd(QiroK7MTrack* track, const NewSample& sample, bool isRandomAccess = false);
  QiroK7MError TryAddHint(QiroK7MTrack* hint, QiroK7MTrack* media, const NewSample& sample,
                          MediaInHint where, bool isRandomAccess = false);
  QiroK7MError TryAddAbst(const Bytes& payload);
  /// A 'vorp' description with these extension bytes.
  QiroK7MError TryAddVorp(QiroK7MTrack* track, const Bytes& extension);

  /// How often the buffer of the n-th sample or 'abst', from 0, was given back.
  int Releases(size_t index) const { return buffers_.at(index)->Releases(); }
  size_t BufferCount() const { return buffers_.size(); }

 private:
  static constexpr uint64_t kNotTold = 0xEEEEEEEEEEEEEEEE;

  OpenedK7RWriter(const Bytes& file, uint64_t keepLimit, bool keepsJournal,
                  std::unique_ptr<uint64_t> lastFragment);
  QiroK7MDataBuffer* Keep(const Bytes& data);
  QiroK7MError Judge(QiroK7MError result);

  uint64_t lastFragment_ = kNotTold;
  std::vector<std::unique_ptr<CountedBuffer>> buffers_;
};

}  // namespace k7mtest

#endif

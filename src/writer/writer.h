#pragma once

#include <memory>
#include <span>

#include "base/client_streams.h"
#include "base/data_buffer.h"
#include "base/time.h"
#include "boxes/ftyp_box.h"
#include "boxes/mdat_box.h"
#include "boxes/movie_boxes.h"
#include "boxes/movie_extends_boxes.h"
#include "boxes/root_box.h"
#include "boxes/sample.h"
#include "boxes/track.h"
#include "writer/fragment_builder.h"
#include "writer/track_timeline.h"

namespace qiro::k7m::impl {

/// A stream that is being written. It is closed, without throwing, when it goes, also when opening
/// it failed, but not when that was never tried.
class WriterStream {
 public:
  explicit WriterStream(std::unique_ptr<QiroK7MStream> stream) : stream_(std::move(stream)) {}
  WriterStream(const WriterStream&) = delete;
  WriterStream& operator=(const WriterStream&) = delete;
  ~WriterStream() { CloseNoThrow(); }

  QiroK7MStream* Get() const { return stream_.get(); }
  bool IsOpen() const { return stream_ != nullptr; }
  void Open() {
    wasOpenTried_ = true;
    stream_->Open();
  }
  void Close() {
    const auto closing = std::move(stream_);
    closing->Close();
  }
  void CloseNoThrow() {
    const auto closing = std::move(stream_);
    if (closing != nullptr && wasOpenTried_) {
      closing->CloseNoThrow();
    }
  }

 private:
  bool wasOpenTried_ = false;
  std::unique_ptr<QiroK7MStream> stream_;
};

struct ResumePoint;

enum class WriterState : uint32_t { kBad = 0, kGood = 1, kClosed = 2 };

/// Builds a document on a stream. The movie box is written in front of the media, in a plain
/// document with room for all samples that were announced, and is never moved. A fragmented
/// document's samples go into fragments, each of which is written when the writer is flushed.
class Writer : public K7MBase {
 public:
  /// Opens the stream and writes the first boxes.
  Writer(std::unique_ptr<QiroK7MStream> stream, const QiroK7MDocInfo& info,
         const QiroK7MAllocatorCallBacks* allocator);
  /// Opens a stream that holds a K7R file and keeps its complete fragments up to the last one whose
  /// 'afra' does not begin behind `keepLimit`; that begins at `lastFragment`, 0 when there is none.
  /// The rest is cut off. Errors 6, 2048, 2050, 2051 for what the file lacks.
  Writer(std::unique_ptr<QiroK7MStream> stream, uint64_t keepLimit, uint64_t& lastFragment,
         const QiroK7MAllocatorCallBacks* allocator);
  ~Writer() override;

  /// The track belongs to the writer. When this fails there is none.
  virtual Track* CreateNewTrack(const QiroK7MTrackInfo& info,
                                const QiroK7MTrackEntriesInfo& entries, uint32_t maxSampleCount,
                                std::span<const uint8_t> handlerName,
                                std::span<const uint32_t> hintTrackIds);
  /// Makes the description current too. The descriptor belongs to the writer.
  virtual SampleDescriptor* AddSampleDescriptor(uint32_t trackId,
                                                std::unique_ptr<SampleDescriptor> descriptor);
  virtual void FlushWriter();
  /// Finishes a good writer's document and closes the stream.
  virtual void Close();

  /// `index` from 1.
  void SetSampleDescriptor(uint32_t trackId, uint32_t index);
  void SetUlbBox(std::span<const uint8_t> metadata);
  void AddFullBox(uint32_t type, uint8_t version, uint32_t flags, std::span<const uint8_t> payload);
  /// `data` is null for a gap, and for a sample whose bytes are in another one: that has its place
  /// already.
  virtual void AddSample(uint32_t trackId, Sample& sample, QiroK7MDataBuffer* data);
  QiroK7MDocInfo GetDocInfo() const;
  /// Error 2049 unless the writer was opened for append.
  std::unique_ptr<TrackCollection> GetTracks() const;

  bool IsWriterStateGood() const { return state_ == WriterState::kGood; }
  /// Takes note of the code of a failure: most make the writer bad.
  void SetWriterStateBad(QiroK7MError code);

 protected:
  QiroK7MStream* Stream() const { return stream_.Get(); }
  /// Puts the sample on the timeline that starts at `origin`. A sample before that is error 1280.
  void AddSampleFrom(const Time& origin, uint32_t trackId, Sample& sample, QiroK7MDataBuffer* data);
  /// No track can be added any more. In a fragmented document the 'mvex' becomes the last box in
  /// the movie box. Does nothing the second time.
  void CloseMovieBox();
  /// The fragment that was written from `offset` on is lost; what follows takes its place.
  void LoseFragment(uint64_t offset) {
    writeOffset_ = offset;
    fragments_->ForgetFrom(offset);
  }
  bool HasOpenMdat() const { return mdat_ != nullptr; }
  const Track& TrackOf(uint32_t trackId);
  const K7MVector<std::unique_ptr<Track>>& Tracks() const { return tracks_; }

  bool samplesAllowed_ = true;
  bool moofBeforeMdat_ = false;  ///< Media bytes are buffered until their fragment is written.
  bool writeMfra_ = true;
  bool moovPending_ = true;  ///< Tracks can still be added.
  bool noMediaYet_ = true;
  uint64_t writeOffset_ = 0;     ///< Where the next top-level box starts.
  uint64_t lastMdatOffset_ = 0;  ///< Of the fragment that was written last.
  /// Where the bytes end that were written behind `writeOffset_` without being reserved.
  uint64_t unreservedEnd_ = 0;

 private:
  static constexpr uint32_t kFragmented = 0;
  static constexpr uint32_t kUnfragmented = 1;

  void WriteFirstBoxes();
  /// What the number of tracks changes beside their boxes.
  void CountTracks();
  /// A track whose movie box could not be written was never added.
  void DropLastTrack();
  /// The movie box of an existing file becomes the writer's.
  void AdoptMovie();
  void ResumeTimelines(const ResumePoint& point);
  void CutBehind(const ResumePoint& point);
  void RewriteReadMoov();
  TrackTimeline& TimelineOf(uint32_t trackId);
  TrakBox* TrakOf(uint32_t trackId) const { return moov_->GetTracks()[trackId - 1]; }
  bool IsFragmented() const { return mode_ == kFragmented; }
  void OpenMdat();
  void AddToFragment(uint32_t trackId, const Sample& sample, uint64_t indexTime);
  void StretchHintTracks();
  void WriteFragment();
  void WriteMfra();
  void Finalise();
  /// Cuts off what failed calls have left on the stream behind the document.
  void CutRemains();
  void UpdateElstEntries();
  /// In memory.
  void SetDurations();
  void UpdateDurations();
  void RewriteMoov();

  WriterStream stream_;
  QiroK7MDocInfo docInfo_;
  uint32_t mode_;
  WriterState state_ = WriterState::kGood;
  bool hasFailed_ = false;  ///< A call has failed, the writer being good or not.
  bool ulbWritten_ = false;
  bool extraBoxesAllowed_ = true;
  bool appendMode_ = false;
  std::unique_ptr<RootBox> root_;
  MoovBox* moov_ = nullptr;
  MvhdBox* mvhd_ = nullptr;
  /// The movie box on the stream may lack some of what is in `moov_`: it has to be written whole.
  bool moovIsStale_ = true;
  /// As long as the movie box is open; then it is the last box in it.
  std::unique_ptr<MvexBox> newMvex_;
  MvexBox* mvex_ = nullptr;
  std::unique_ptr<MdatBox> mdat_;
  /// Made when the movie box of a fragmented document is closed.
  std::unique_ptr<FragmentBuilder> fragments_;
  K7MVector<std::unique_ptr<Track>> tracks_;
  K7MVector<TrackTimeline> timelines_;
};

}  // namespace qiro::k7m::impl

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "boxes/box.h"
#include "boxes/movie_boxes.h"
#include "boxes/track_fragments.h"

namespace qiro::k7m::impl {

class MoofBox;
class MvexBox;
class TrafBox;
class UlbDataBox;

/// Rules about fragments beyond what is always done, to be asked for when a document is opened.
enum class ReadRule : uint32_t {
  /// A base data offset that is not given follows the standard: the begin of the 'moof' where the
  /// track
  /// fragment says so or is the first, else the end of the data of the one before. So do runs
  /// without
  /// an offset. Otherwise it is 0, and every run starts there.
  kBaseOffsets = 1,
  /// A 'tfdt' gives its track fragment the start time, and a range begins with the first fragment
  /// that
  /// ends after its start. Otherwise times run on from fragment to fragment.
  kStartTimes = 2,
};

/// The whole document: a box without a header whose children are the top-level boxes parsed so far.
/// It grows as they are added.
class RootBox final : public Box {
 public:
  RootBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
      : RootBox(stream, 0, allocator) {}
  /// `readRules` is a sum of ReadRule values.
  RootBox(QiroK7MStream* stream, uint32_t readRules, const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  /// Parses on until the position is reached; null when the document ends before.
  Box* GetBoxByPos(size_t position) override;

  /// Parses the next top-level box with all below it; null at the end of the document.
  Box* ParseNextBox();

  /// Each parses on until it finds what it names; null when the document has none.
  MoovBox* GetMoovBox();
  MvexBox* GetMvexBox();
  MvhdBox* GetMovieHeader();
  UlbDataBox* GetUlbDataBox();
  /// Null as long as no movie box was completed. Parses nothing: for boxes that are completed.
  MvexBox* GetParsedMvexBox() const { return moov_ == nullptr ? nullptr : moov_->GetMvexBox(); }

  bool Resolves(ReadRule rule) const { return (readRules_ & static_cast<uint32_t>(rule)) != 0; }
  /// The fragments of a track parsed so far.
  const TrackFragments& FragmentsOf(uint32_t trackId);
  /// Parses on until the track has more than `count` fragments; false when the document ends
  /// before.
  bool ParseFragmentsBeyond(uint32_t trackId, size_t count);
  /// The index of the fragment with which samples from `time` on begin, parsing on to find it; none
  /// when there is none.
  std::optional<size_t> FindFragment(uint32_t trackId, uint64_t time);

  /// Drops the boxes behind the movie box and what they told: parsing goes on behind that again.
  void ForgetBehindMovie();

  /// What the boxes of a fragment tell while they are completed, and ask about the ones before.
  void BeginFragment(uint64_t moofOffset);
  void NoteTrackFragment(const TrafBox& traf);
  void NoteDataEnd(uint64_t offset) { previousDataEnd_ = offset; }
  uint64_t NextStartTime(uint32_t trackId) const;
  uint64_t DefaultBaseDataOffset(bool isMoofAsked) const {
    return isMoofAsked || !previousDataEnd_ ? moofOffset_ : *previousDataEnd_;
  }

 private:
  /// Completes the 'moov' behind a 'moof' that stands before it.
  void LookAheadForMoov(uint64_t begin);
  std::unique_ptr<Box> Complete(std::unique_ptr<Box> box);

  void TakeFragments(const MoofBox& moof);

  template <class T>
  using ByTrackId = std::map<uint32_t, T, std::less<>, K7MAllocator<std::pair<const uint32_t, T>>>;

  uint32_t readRules_;
  MoovBox* moov_ = nullptr;
  ByTrackId<TrackFragments> fragments_;
  /// Of the fragment that is being completed: ends of tracks, begin, and end of the data so far.
  ByTrackId<uint64_t> endsInFragment_;
  uint64_t moofOffset_ = 0;
  std::optional<uint64_t> previousDataEnd_;
  /// The movie box as long as the top-level parse has not reached it.
  std::unique_ptr<Box> movieAhead_;
};

}  // namespace qiro::k7m::impl

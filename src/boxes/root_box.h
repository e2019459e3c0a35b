#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "boxes/box.h"
#include "boxes/fragment_loader.h"
#include "boxes/movie_boxes.h"
#include "boxes/track_fragments.h"

namespace qiro::k7m::impl {

class MoofBox;
class MvexBox;
class UlbDataBox;

/// Rules about fragments beyond what is always done, to be asked for when a document is opened.
enum class ReadRule : uint32_t {
  /// A base data offset that is not given follows the standard: the begin of the 'moof' where the
  /// track fragment says so or is the first, else the end of the data of the one before. So do runs
  /// without an offset. Otherwise it is 0, and every run starts there.
  kBaseOffsets = 1,
  /// A 'tfdt' gives its track fragment the start time, and a range begins with the first fragment
  /// that ends after its start. Otherwise times run on from fragment to fragment.
  kStartTimes = 2,
};

/// Which boxes a document keeps.
enum class KeptBoxes : uint32_t {
  kAll,
  /// Not those of which nothing is wanted any more when samples are all that is asked for: of a
  /// fragment of the ordinary form the 'moof', and every 'mdat' but the first.
  kAllButFragments,
};

/// The whole document: a box without a header whose children are the top-level boxes parsed so far.
/// It grows as they are added.
class RootBox final : public Box {
 public:
  RootBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
      : RootBox(stream, 0, allocator) {}
  /// `readRules` is a sum of ReadRule values.
  RootBox(QiroK7MStream* stream, uint32_t readRules, const QiroK7MAllocatorCallBacks* allocator)
      : RootBox(stream, readRules, KeptBoxes::kAll, allocator) {}
  RootBox(QiroK7MStream* stream, uint32_t readRules, KeptBoxes kept,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  /// Parses on until the position is reached; null when the document ends before.
  Box* GetBoxByPos(size_t position) override;

  /// Parses the next top-level box with all below it; false at the end of the document.
  bool ParseNext();
  /// The same, and gives the box. Where not all boxes are kept it may be an earlier one.
  Box* ParseNextBox() { return ParseNext() ? Children().back().get() : nullptr; }

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

  /// What a fragment tells while it is completed, and asks about the ones before. It tells of a
  /// track fragment when that has samples.
  void BeginFragment(uint64_t moofOffset);
  void AnnounceFragment(uint32_t trackId, uint64_t endTime);
  void NoteDataEnd(uint64_t offset) { previousDataEnd_ = offset; }
  uint64_t NextStartTime(uint32_t trackId) const;
  /// Where the data offsets of a track fragment count from.
  uint64_t BaseDataOffset(const TrackFragmentHeader& header) const;
  /// Takes a track fragment of the fragment that was begun last, which was told of.
  void TakeFragment(uint32_t trackId, const TrackFragment& fragment);
  FragmentMemory AllocateForFragment(uint64_t size) const;
  /// Keeps the memory of a fragment as long as the document.
  void KeepForFragment(FragmentMemory block) { fragmentMemory_.push_back(std::move(block)); }

 private:
  /// Parses the box behind a header, with all below it.
  void AddParsedBox(const BoxHeader& header);
  /// True when the box behind a header need not be kept: what it tells was taken.
  bool TakeWithoutBox(const BoxHeader& header);
  /// Completes the 'moov' behind a 'moof' that stands before it.
  void LookAheadForMoov(uint64_t begin);
  std::unique_ptr<Box> Complete(std::unique_ptr<Box> box);

  void TakeFragments(const MoofBox& moof);

  template <class T>
  using ByTrackId = std::map<uint32_t, T, std::less<>, K7MAllocator<std::pair<const uint32_t, T>>>;

  uint32_t readRules_;
  KeptBoxes kept_;
  bool hasMdat_ = false;
  MoovBox* moov_ = nullptr;
  ByTrackId<TrackFragments> fragments_;
  FragmentLoader loader_;
  K7MVector<FragmentMemory> fragmentMemory_;
  /// Of the fragment that is being completed: its number among those that were tried, its begin,
  /// and the end of its data so far.
  uint64_t moofNumber_ = 0;
  uint64_t moofOffset_ = 0;
  std::optional<uint64_t> previousDataEnd_;
  /// The movie box as long as the top-level parse has not reached it.
  std::unique_ptr<Box> movieAhead_;
};

}  // namespace qiro::k7m::impl

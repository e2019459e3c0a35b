#include "reader/reader.h"

#include <algorithm>

#include "boxes/box_factory.h"
#include "boxes/mdat_box.h"
#include "boxes/uuid_boxes.h"
#include "reader/doc_iterator.h"
#include "reader/fragmented_track_iterator.h"
#include "reader/track_iterator.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint32_t kCacheBlockSize = 4096;
constexpr uint32_t kCacheSlots = 1;
constexpr uint64_t kTenYearsInSeconds = 315360000;

/// Video before sound before all others; otherwise the order stays.
void OrderForDelivery(std::vector<Track*>& tracks) {
  const auto afterVideo = std::stable_partition(
      tracks.begin(), tracks.end(),
      [](const Track* track) { return track->GetMediaType() == FourCc("vide"); });
  std::stable_partition(afterVideo, tracks.end(),
                        [](const Track* track) { return track->GetMediaType() == FourCc("soun"); });
}

/// One sequence of what `iterate(track)` gives for each track.
template <class Iterate>
std::unique_ptr<SampleIterator> Merge(std::vector<Track*> tracks, Iterate iterate) {
  OrderForDelivery(tracks);
  auto merged = std::make_unique<DocIterator>();
  for (Track* track : tracks) {
    merged->AddTrack(iterate(track), track->GetTimeScale());
  }
  merged->Start();
  return merged;
}

}  // namespace

Reader::Reader(std::unique_ptr<QiroK7MStream> stream, uint32_t readRules,
               const QiroK7MAllocatorCallBacks* allocator)
    : K7MBase(allocator),
      stream_(std::move(stream)),
      document_(new (allocator)
                    K7MDocument(stream_.Get(), readRules, KeptBoxes::kAllButFragments, allocator)),
      dataCache_(stream_.Get(), 0, kCacheSlots, kCacheBlockSize),
      tracks_(K7MAllocator<std::unique_ptr<Track>>(allocator)) {
  MakeTracks();
  if (const Box* mdat = document_->GetRootBox()->GetFirstBoxByType(MdatBox::kType)) {
    dataCache_.SetBaseOffset(mdat->GetBeginOffset());
  }
}

void Reader::MakeTracks() {
  RootBox* root = document_->GetRootBox();
  const MoovBox* moov = root->GetMoovBox();
  ThrowIf(moov == nullptr, kQiroK7MErrorNoMovieBox);
  tracks_.reserve(moov->GetTracks().size());
  for (TrakBox* trak : moov->GetTracks()) {
    tracks_.push_back(std::make_unique<Track>(trak, root));
  }
}

bool Reader::IsK7M(QiroK7MStream& stream) {
  const uint32_t type = BoxFactory::Instance().TypeOfFirstBox(stream);
  return type == FourCc("ftyp") || type == FourCc("moov") || type == FourCc("mdat");
}

QiroK7MDocInfo Reader::GetDocInfo() const {
  const MvhdBox* mvhd = document_->GetRootBox()->GetMovieHeader();
  ThrowIf(mvhd == nullptr, kQiroK7MErrorNoMovieHeader);
  return {sizeof(QiroK7MDocInfo),  document_->IsFragmented() ? 1U : 0U,
          mvhd->GetCreationTime(), mvhd->GetModificationTime(),
          mvhd->GetPlayRate(),     mvhd->GetVolume(),
          mvhd->GetTimeScale(),    mvhd->GetDuration()};
}

uint32_t Reader::GetUlbDataLen() const {
  const UlbDataBox* metadata = document_->GetRootBox()->GetUlbDataBox();
  return metadata == nullptr ? 0 : static_cast<uint32_t>(metadata->GetUlbDataLen());
}

void Reader::CopyUlbData(void* buffer) const {
  if (const UlbDataBox* metadata = document_->GetRootBox()->GetUlbDataBox()) {
    metadata->CopyUlbData(buffer);
  }
}

std::vector<Track*> Reader::GetTracks() const {
  std::vector<Track*> tracks;
  tracks.reserve(tracks_.size());
  std::transform(tracks_.begin(), tracks_.end(), std::back_inserter(tracks),
                 [](const auto& track) { return track.get(); });
  return tracks;
}

std::vector<Track*> Reader::FilterTracksByMediaType(std::span<const uint32_t> mediaTypes) const {
  std::vector<Track*> tracks = GetTracks();
  std::erase_if(tracks, [mediaTypes](const Track* track) {
    return std::find(mediaTypes.begin(), mediaTypes.end(), track->GetMediaType()) ==
           mediaTypes.end();
  });
  return tracks;
}

std::unique_ptr<SampleIterator> Reader::GetSamples(const Time& start, const Time& end,
                                                   std::vector<Track*> tracks) {
  const bool isFragmented = document_->IsFragmented();
  return Merge(std::move(tracks), [&](Track* track) -> std::unique_ptr<SampleIterator> {
    if (isFragmented) {
      return std::make_unique<FragmentedTrackIterator>(track, &dataCache_, stream_.Get(), start,
                                                       end);
    }
    return std::make_unique<TrackIterator>(track, &dataCache_, start, end);
  });
}

std::unique_ptr<SampleIterator> Reader::GetAllSamples(std::vector<Track*> tracks) {
  return GetSamples(Time(0, 1), Time(kTenYearsInSeconds, 1), std::move(tracks));
}

std::unique_ptr<SampleIterator> Reader::GetMediaSamples(std::vector<Track*> tracks) {
  const bool isFragmented = document_->IsFragmented();
  return Merge(std::move(tracks), [&](Track* track) -> std::unique_ptr<SampleIterator> {
    if (isFragmented) {
      return std::make_unique<FragmentedMediaTrackIterator>(track, &dataCache_, stream_.Get());
    }
    return std::make_unique<MediaTrackIterator>(track, &dataCache_);
  });
}

}  // namespace qiro::k7m::impl

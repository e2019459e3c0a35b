#include "base/time.h"
#include "boxes/random_access_boxes.h"
#include "writer/writer.h"

namespace qiro::k7m::impl {

void Writer::AddToFragment(uint32_t trackId, const Sample& sample, uint64_t indexTime) {
  if (!fragments_->IsOpen()) {
    fragments_->Open(sample.GetSampleDataOffset(),
                     [this](size_t track) { return timelines_[track].descriptionIndex; });
  }
  fragments_->AddSample(trackId - 1, sample, writeMfra_ ? &indexTime : nullptr);
}

void Writer::StretchHintTracks() {
  bool hasStretched = false;
  for (size_t hint = 0; hint < tracks_.size(); ++hint) {
    const TrefBox* references = moov_->GetTracks()[hint]->GetTrackRefBox();
    if (tracks_[hint]->GetMediaType() != FourCc("hint") || references == nullptr) {
      continue;
    }
    for (size_t served = 0; served < tracks_.size(); ++served) {
      if (references->ValidateHintRefTrackID(static_cast<uint32_t>(served + 1))) {
        const uint64_t end =
            Time::ConvertTimeScale(timelines_[served].End(), tracks_[served]->GetTimeScale(),
                                   tracks_[hint]->GetTimeScale());
        hasStretched = timelines_[hint].StretchTo(end) || hasStretched;
      }
    }
  }
  if (hasStretched) {
    UpdateElstEntries();
    UpdateDurations();
  }
}

void Writer::WriteFragment() {
  StretchHintTracks();
  // Gone when the fragment is, also when that could not be written.
  const auto mdat = std::move(mdat_);
  writeOffset_ = fragments_->Write(writeOffset_, *mdat, moofBeforeMdat_, [this](size_t track) {
    return timelines_[track].MediaDuration();
  });
  lastMdatOffset_ = mdat->GetBeginOffset();
}

void Writer::WriteMfra() {
  const auto mfra = MakeBox<MfraBox>(GetAllocator(), stream_.Get());
  for (size_t track = 0; track < tracks_.size(); ++track) {
    if (tracks_[track]->GetMediaType() == FourCc("vide")) {
      mfra->AddChildBox(MakeBox<TfraBox>(GetAllocator(), stream_.Get(), uint8_t{1},
                                         static_cast<uint32_t>(track + 1),
                                         fragments_->RandomAccessEntries(track)));
    }
  }
  mfra->Finish();
  mfra->SetBeginOffset(writeOffset_);
  mfra->WriteBox();
  writeOffset_ = mfra->GetEndOffset();
}

}  // namespace qiro::k7m::impl

#include "recording_writer.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "media_types.h"

namespace qiro::k7m::tool {
namespace {

// The library keeps the bytes until it has written them.
QiroK7MDataBuffer OwnedBuffer(std::vector<uint8_t> bytes) {
  auto kept = std::make_unique<std::vector<uint8_t>>(std::move(bytes));
  QiroK7MDataBuffer buffer = BorrowedBuffer(kept.get(), kept->size());
  buffer.clientData = kept.release();
  buffer.release = [](void* clientData, void*) {
    delete static_cast<std::vector<uint8_t>*>(clientData);
  };
  return buffer;
}

MediaTime TimeOf(const QiroK7MSampleInfo& info) { return {info.timeStamp, info.timeScale}; }

}  // namespace

AccessRule AccessRuleOf(const RemuxPlan& plan) {
  AccessRule rule;
  if (!plan.leadingTrack) return rule;
  rule.leadingTrack = *plan.leadingTrack;
  rule.hasVideo = plan.tracks[*plan.leadingTrack].track->info.mediaType == kVideo;
  return rule;
}

RecordingWriter::RecordingWriter(int descriptor, std::string name, const QiroK7MDocInfo& info)
    : MovieWriter(descriptor, std::move(name), 0, FileIoStream::Order::kAny) {
  const QiroK7MIOStreamCallBacks stream = Stream().CallBacks();
  const QiroK7MAllocatorCallBacks allocator;
  Check(QiroK7RDocCreateNew(&stream, &info, &allocator, &recording_));
  QiroK7MWriter* writer = nullptr;
  QiroK7RWriterGetK7MWriterRef(recording_, &writer);
  Adopt(writer);
}

void RecordingWriter::AddHintTrack(uint32_t timeScale, uint32_t gapCount) {
  constexpr std::string_view kName = "k7m";
  const QiroK7RHintTrackInfo protocol = {sizeof protocol, 2};
  QiroK7MTrackInfo info{};
  info.size = sizeof info;
  info.mediaType = kHint;
  info.timeScale = timeScale;
  std::copy_n("und", sizeof info.language, info.language);
  info.handlerNameLength = kName.size();
  QiroK7MTrackEntriesInfo entries{};
  entries.size = sizeof entries;
  entries.sampleDescriptorCount = 1;
  entries.gapCount = gapCount;
  entries.maxCodecHeaderDataLength = 12;
  std::vector<QiroK7MTrack*> served;
  for (const OutputTrack& track : Tracks()) served.push_back(track.handle);
  Check(QiroK7RWriterAddHintTrack(recording_, &protocol, &info, &entries, 0, kName.data(),
                                  served.data(), static_cast<uint32_t>(served.size()),
                                  &hintTrack_));
  AddHintDescription();
  isInFragment_.resize(Tracks().size());
}

void RecordingWriter::AddHintDescription() {
  // The time origin of the file, 0.
  std::vector<uint8_t> origin = {0, 0, 0, 12, 'a', 'm', 't', 'o', 0, 0, 0, 0};
  QiroK7MDataBuffer buffer = BorrowedBuffer(&origin, origin.size());
  QiroK7MVorpSampleDescInfo info{};
  info.size = sizeof info;
  info.hintTrackVersion = 1;
  info.highestCompatibleVersion = 1;
  info.maxPacketSize = 1400;
  QiroK7MSampleDescriptor* descriptor = nullptr;
  Check(QiroK7MWriterAddVorpSampleDescriptor(Handle(), hintTrack_, &info, &buffer, &descriptor));
}

// The writer takes the origin off all times. Where it rounds, a sample must not get before the
// hint track's end.
uint64_t RecordingWriter::OriginIn(const QiroK7MSampleInfo& info) const {
  if (origin_.value == 0) return 0;
  const uint64_t rounded = RescaledToNearest(origin_.value, origin_.scale, info.timeScale);
  return rounded + (info.timeScale == origin_.scale ? 0 : 1);
}

void RecordingWriter::AddSample(size_t track, size_t description,
                                const QiroK7MSampleInfo& sourceInfo, std::vector<uint8_t>* bytes) {
  QiroK7MSampleInfo info = sourceInfo;
  info.timeStamp += OriginIn(info);
  if (last_.timeScale == 0 || !IsEarlier(TimeOf(info), TimeOf(last_))) last_ = info;
  OutputTrack& target = Tracks()[track];
  const bool isGap = IsGap(info);
  const bool changes = !isGap && description != target.currentDescription;
  if (changes && isInFragment_[track]) EndFragment();
  if (!hasFragment_) StartFragment();
  if (isGap) return MovieWriter::AddSample(track, description, info, bytes);
  ChooseDescription(&target, description);
  if (!fragmentHasMedia_) QueueBootstrap();
  const bool getsEntry = GetsEntry(track, info);
  QiroK7MSampleInfo hint = info;
  hint.mediaType = kHint;
  const QiroK7MHintSampleInfo media = {sizeof media, 0, info.sampleSize};
  QiroK7MDataBuffer buffer = OwnedBuffer(std::move(*bytes));
  bytes->clear();
  Check(QiroK7RWriterAddHintSample(recording_, hintTrack_, target.handle, &buffer, &hint, &media,
                                   getsEntry ? 1 : 0));
  isInFragment_[track] = true;
  fragmentHasMedia_ = true;
}

bool RecordingWriter::GetsEntry(size_t track, const QiroK7MSampleInfo& info) const {
  if (!accessRule_.hasVideo) return !fragmentHasMedia_;
  return track == accessRule_.leadingTrack && IsKey(info);
}

void RecordingWriter::StartFragment() {
  uint64_t offset = 0;
  Check(QiroK7RWriterStartFragment(recording_, &offset));
  hasFragment_ = true;
  fragmentHasMedia_ = false;
  std::fill(isInFragment_.begin(), isInFragment_.end(), false);
}

// Not before there is a sample: a fragment without one cannot have it.
void RecordingWriter::QueueBootstrap() {
  if (bootstrap_.empty()) return;
  QiroK7MDataBuffer buffer = OwnedBuffer(bootstrap_);
  Check(QiroK7RWriterAddABST(recording_, &buffer, static_cast<uint32_t>(bootstrap_.size())));
}

void RecordingWriter::Close() {
  // Otherwise the last hint sample would last one unit of the movie's scale at least.
  if (hasFragment_ && fragmentHasMedia_ && IsGap(last_)) {
    QiroK7MSampleInfo gap = last_;
    gap.mediaType = kHint;
    QiroK7MDataBuffer nothing{};
    Check(QiroK7MWriterAddSample(Handle(), hintTrack_, &gap, &nothing));
  }
  MovieWriter::Close();
}

}  // namespace qiro::k7m::tool

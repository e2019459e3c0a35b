#include "recording_writer.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "media_types.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint32_t kVorp = 0x766F7270;        // 'vorp'
constexpr uint32_t kTimeOrigin = 0x616D746F;  // 'amto'

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

// Looks for the 'amto' box; without one the origin is 0.
uint32_t TimeOriginIn(const std::vector<uint8_t>& extension) {
  constexpr size_t kHeaderSize = 8;
  const auto number = [&extension](size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) value = value << 8 | extension[at + i];
    return value;
  };
  for (size_t at = 0; extension.size() - at >= kHeaderSize;) {
    const size_t left = extension.size() - at;
    if (number(at + 4) == kTimeOrigin) return left < kHeaderSize + 4 ? 0 : number(at + kHeaderSize);
    const uint32_t size = number(at);
    if (size < kHeaderSize || size > left) return 0;
    at += size;
  }
  return 0;
}

}  // namespace

AccessRule AccessRuleOf(const RemuxPlan& plan) {
  AccessRule rule;
  if (!plan.leadingTrack) return rule;
  rule.leadingTrack = *plan.leadingTrack;
  rule.hasVideo = plan.tracks[*plan.leadingTrack].track->info.mediaType == kVideo;
  return rule;
}

RecordingWriter::RecordingWriter(int descriptor, std::string name, const QiroK7MDocInfo& info)
    : MovieWriter(descriptor, std::move(name), 0) {
  const QiroK7MIOStreamCallBacks stream = Stream().CallBacks();
  const QiroK7MAllocatorCallBacks allocator;
  Check(QiroK7RDocCreateNew(&stream, &info, &allocator, &recording_));
  QiroK7MWriter* writer = nullptr;
  QiroK7RWriterGetK7MWriterRef(recording_, &writer);
  Adopt(writer);
}

RecordingWriter::RecordingWriter(int descriptor, std::string name, const Continuation& continuation)
    : MovieWriter(descriptor, std::move(name), continuation.length) {
  const QiroK7MIOStreamCallBacks stream = Stream().CallBacks();
  const QiroK7MAllocatorCallBacks allocator;
  Check(QiroK7RDocOpenForAppend(&stream, &allocator, &allocator, continuation.keepLimit,
                                &lastFragment_, &recording_));
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

std::vector<QiroK7MTrack*> RecordingWriter::ListTracks() const {
  QiroK7MTrackIterator* iterator = nullptr;
  Check(QiroK7MWriterGetTracks(Handle(), &iterator));
  const TrackIteratorHandle handle(iterator);
  std::vector<QiroK7MTrack*> tracks;
  QiroK7MTrack* track = nullptr;
  Check(QiroK7MTrackIteratorGetNextEntry(iterator, &track));
  while (track != nullptr) {
    tracks.push_back(track);
    Check(QiroK7MTrackIteratorGetNextEntry(iterator, &track));
  }
  return tracks;
}

std::vector<QiroK7MSampleDescriptor*> RecordingWriter::ListDescriptors(QiroK7MTrack* track) const {
  QiroK7MSampleDescriptorIterator* iterator = nullptr;
  Check(QiroK7MTrackGetSampleDescriptors(track, &iterator));
  const DescriptorIteratorHandle handle(iterator);
  std::vector<QiroK7MSampleDescriptor*> descriptors;
  QiroK7MSampleDescriptor* descriptor = nullptr;
  Check(QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor));
  while (descriptor != nullptr) {
    descriptors.push_back(descriptor);
    Check(QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor));
  }
  return descriptors;
}

MediaTime RecordingWriter::AdoptHintTrack(const std::vector<QiroK7MTrack*>& tracks) {
  for (QiroK7MTrack* track : tracks) {
    QiroK7MTrackInfo info;
    Check(QiroK7MTrackGetInfo(track, &info));
    if (info.mediaType != kHint) continue;
    hintTrack_ = track;
    for (QiroK7MSampleDescriptor* descriptor : ListDescriptors(track)) {
      QiroK7MSampleDescInfo description;
      Check(QiroK7MSampleDescriptorGetInfo(descriptor, &description));
      if (description.type != kVorp) continue;
      Check(QiroK7MWriterSetSampleDescriptor(Handle(), track, descriptor));
      std::vector<uint8_t> extension(description.codecHeaderDataLength);
      if (!extension.empty()) {
        Check(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, extension.data()));
      }
      return {TimeOriginIn(extension), info.timeScale};
    }
    break;
  }
  throw FileFailure(Name(), "no hint track that can be continued");
}

void RecordingWriter::ContinueTracks(const std::vector<std::optional<TrackMatch>>& matches) {
  const std::vector<QiroK7MTrack*> tracks = ListTracks();
  origin_ = AdoptHintTrack(tracks);
  for (const std::optional<TrackMatch>& match : matches) {
    Tracks().push_back(match ? ContinuedTrack(tracks[match->track], *match) : OutputTrack());
  }
  isInFragment_.resize(Tracks().size());
}

RecordingWriter::OutputTrack RecordingWriter::ContinuedTrack(QiroK7MTrack* handle,
                                                             const TrackMatch& match) const {
  const std::vector<QiroK7MSampleDescriptor*> all = ListDescriptors(handle);
  OutputTrack track;
  track.handle = handle;
  for (const size_t description : match.descriptions) {
    track.descriptions.push_back(all.at(description));
  }
  if (!track.descriptions.empty()) {
    Check(QiroK7MWriterSetSampleDescriptor(Handle(), handle, track.descriptions[0]));
  }
  return track;
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

/// Continuing a K7R file that exists.
#include <utility>

#include "media_types.h"
#include "recording_writer.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint32_t kVorp = 0x766F7270;        // 'vorp'
constexpr uint32_t kTimeOrigin = 0x616D746F;  // 'amto'

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

RecordingWriter::RecordingWriter(int descriptor, std::string name, const Continuation& continuation)
    : MovieWriter(descriptor, std::move(name), continuation.length, FileIoStream::Order::kKept) {
  const QiroK7MIOStreamCallBacks stream = Stream().CallBacks();
  const QiroK7MAllocatorCallBacks allocator;
  Check(QiroK7RDocOpenForAppend(&stream, &allocator, &allocator, continuation.keepLimit,
                                &lastFragment_, &recording_));
  QiroK7MWriter* writer = nullptr;
  QiroK7RWriterGetK7MWriterRef(recording_, &writer);
  Adopt(writer);
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

}  // namespace qiro::k7m::tool

#include "movie_writer.h"

#include <utility>

#include "media_types.h"

namespace qiro::k7m::tool {

QiroK7MDataBuffer BorrowedBuffer(std::vector<uint8_t>* bytes, size_t size) {
  QiroK7MDataBuffer buffer{};
  buffer.length = static_cast<uint32_t>(size);
  buffer.data = bytes->data();
  return buffer;
}

MovieWriter::MovieWriter(int descriptor, std::string name, const QiroK7MDocInfo& info)
    : name_(std::move(name)), isFragmented_(info.isFragmented != 0), stream_(descriptor) {
  const QiroK7MIOStreamCallBacks stream = stream_.CallBacks();
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7MWriter* writer = nullptr;
  Check(QiroK7MDocCreateNew(&stream, &info, &allocator, &writer));
  writer_.reset(writer);
}

void MovieWriter::AddTrack(const Document& document, const TrackPlan& plan) {
  const Track& source = *plan.track;
  QiroK7MTrackEntriesInfo entries{};
  entries.size = sizeof entries;
  entries.sampleDescriptorCount = static_cast<uint32_t>(source.descriptors.size());
  entries.gapCount = plan.gapCount;
  entries.maxCodecHeaderDataLength = plan.longestHeader;
  std::vector<char> name(source.info.handlerNameLength);
  if (!name.empty()) document.Check(QiroK7MReaderCopyHandlerName(source.handle, name.data()));
  QiroK7MTrackInfo info = source.info;
  if (isFragmented_) info.trackFlags = 0;
  OutputTrack track;
  Check(QiroK7MWriterAddTrack(writer_.get(), &info, &entries, plan.sampleCount, name.data(),
                              &track.handle));
  for (QiroK7MSampleDescriptor* descriptor : source.descriptors) {
    track.descriptions.push_back(AddDescription(document, track.handle, descriptor));
    track.currentDescription = track.descriptions.size() - 1;
  }
  tracks_.push_back(std::move(track));
}

QiroK7MSampleDescriptor* MovieWriter::AddDescription(const Document& document, QiroK7MTrack* track,
                                                     QiroK7MSampleDescriptor* source) {
  QiroK7MSampleDescInfo info;
  document.Check(QiroK7MSampleDescriptorGetInfo(source, &info));
  std::vector<uint8_t> header(info.codecHeaderDataLength);
  if (!header.empty()) {
    document.Check(QiroK7MSampleDescriptorCopyCodecHeaderData(source, header.data()));
  }
  QiroK7MDataBuffer buffer = BorrowedBuffer(&header, header.size());
  QiroK7MSampleDescriptor* result = nullptr;
  if (info.mediaType == kVideo) {
    QiroK7MVideoSampleDescInfo video;
    document.Check(QiroK7MSampleDescriptorGetVideoInfo(source, &video));
    Check(QiroK7MWriterAddVideoSampleDescriptorWithType(writer_.get(), track, info.type, &video,
                                                        &buffer, &result));
  } else if (info.mediaType == kSound) {
    QiroK7MAudioSampleDescInfo audio;
    document.Check(QiroK7MSampleDescriptorGetAudioInfo(source, &audio));
    Check(QiroK7MWriterAddAudioSampleDescriptorWithType(writer_.get(), track, info.type, &audio,
                                                        &buffer, &result));
  } else {
    Check(QiroK7MWriterAddSampleDescriptor(writer_.get(), track, &info, &buffer, &result));
  }
  return result;
}

void MovieWriter::SetMetadata(std::vector<uint8_t> packet) {
  QiroK7MDataBuffer buffer = BorrowedBuffer(&packet, packet.size());
  Check(QiroK7MWriterSetUlb(writer_.get(), &buffer, static_cast<uint32_t>(packet.size())));
}

void MovieWriter::AddSample(size_t track, size_t description, const QiroK7MSampleInfo& info,
                            std::vector<uint8_t>* bytes) {
  OutputTrack& target = tracks_[track];
  if (!IsGap(info)) ChooseDescription(&target, description);
  QiroK7MDataBuffer buffer = BorrowedBuffer(bytes, info.sampleSize);
  Check(QiroK7MWriterAddSample(writer_.get(), target.handle, &info, &buffer));
}

void MovieWriter::ChooseDescription(OutputTrack* track, size_t description) {
  if (description == track->currentDescription) return;
  Check(QiroK7MWriterSetSampleDescriptor(writer_.get(), track->handle,
                                         track->descriptions[description]));
  track->currentDescription = description;
}

void MovieWriter::EndFragment() { Check(QiroK7MWriterFlush(writer_.get())); }

void MovieWriter::Close() { Check(QiroK7MCloseWriter(writer_.get())); }

void MovieWriter::Check(QiroK7MError code) const {
  if (code == FileIoStream::kSystemFailed) throw SystemFailure(name_, stream_.ErrorNumber());
  if (code != kQiroK7MErrorNone) throw LibraryFailure(name_, code);
}

}  // namespace qiro::k7m::tool

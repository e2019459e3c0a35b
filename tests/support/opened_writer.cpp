#include "opened_writer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "counted_buffer.h"

namespace k7mtest {

QiroK7MTrackInfo NewTrack::Info() const {
  QiroK7MTrackInfo info{};
  info.mediaType = Code(mediaType);
  info.flags = flags;
  info.timeScale = timeScale;
  info.creationTime = {0, 1, 1, 1904, 0, 0, 7};
  info.modificationTime = {0, 1, 1, 1904, 0, 1, 0};
  info.duration = duration;
  info.width = width;
  info.height = height;
  info.volume = volume;
  std::copy_n(language.begin(), std::min<size_t>(language.size(), 4), info.language);
  info.handlerNameLength = static_cast<uint32_t>(handlerName.size());
  info.trackFlags = trackFlags;
  return info;
}

QiroK7MTrackEntriesInfo NewTrack::Entries() const {
  return {16, descriptorCount, gapCount, maxCodecHeaderLength};
}

QiroK7MSampleInfo NewSample::Info(QiroK7MTrack* track) const {
  QiroK7MTrackInfo trackInfo{};
  EXPECT_EQ(QiroK7MTrackGetInfo(track, &trackInfo), 0u);
  QiroK7MSampleInfo info{};
  const bool isGap = (flags & kQiroK7MSampleFlagKindMask) == kGap;
  info.sampleSize = isGap ? 0 : static_cast<uint32_t>(data.Size());
  info.timeStamp = time;
  info.timeScale = timeScale == 0 ? trackInfo.timeScale : timeScale;
  info.compositionOffset = compositionOffset;
  info.mediaType = trackInfo.mediaType;
  info.flags = flags;
  return info;
}

OpenedWriter::OpenedWriter(const QiroK7MDocInfo& info) {
  Create([&info](const QiroK7MIOStreamCallBacks& stream, const QiroK7MAllocatorCallBacks& memory,
                 QiroK7MWriter** writer) {
    return QiroK7MDocCreateNew(&stream, &info, &memory, writer);
  });
}

void OpenedWriter::Create(const Creator& create) {
  const QiroK7MIOStreamCallBacks stream = stream_.ReadingAndWriting();
  const QiroK7MAllocatorCallBacks memory = memory_.Record();
  result_ = create(stream, memory, &writer_);
  EXPECT_EQ(writer_ != nullptr, result_ == 0);
}

void OpenedWriter::Destroy() {
  if (isDestroyed_) return;
  isDestroyed_ = true;
  QiroK7MDestroyWriter(writer_);
  writer_ = nullptr;
  EXPECT_FALSE(stream_.IsOpen());
  EXPECT_STREQ(stream_.Violation(), nullptr);
  EXPECT_EQ(memory_.LiveBlocks(), 0u);
  EXPECT_EQ(memory_.BadReleases(), 0u);
}

QiroK7MError OpenedWriter::TryAddTrack(const NewTrack& track, QiroK7MTrack** out) {
  const QiroK7MTrackInfo info = track.Info();
  const QiroK7MTrackEntriesInfo entries = track.Entries();
  QiroK7MTrack* unwanted = nullptr;
  return QiroK7MWriterAddTrack(writer_, &info, &entries, track.maxSampleCount,
                               track.handlerName.data(), out == nullptr ? &unwanted : out);
}

QiroK7MTrack* OpenedWriter::AddTrack(const NewTrack& track) {
  QiroK7MTrack* added = nullptr;
  EXPECT_EQ(TryAddTrack(track, &added), 0u);
  return added;
}

namespace {

QiroK7MError AddDescription(QiroK7MWriter* writer, QiroK7MTrack* track, const char* coding,
                            const Bytes& codecHeader, QiroK7MSampleDescriptor** out) {
  QiroK7MSampleDescInfo info{};
  info.type = Code(coding);
  info.mediaType = MediaTypeOf(track);
  CountedBuffer buffer(codecHeader);
  const QiroK7MError result =
      QiroK7MWriterAddSampleDescriptor(writer, track, &info, buffer.Record(), out);
  EXPECT_EQ(buffer.Releases(), 1);
  return result;
}

}  // namespace

QiroK7MError OpenedWriter::TryDescribe(QiroK7MTrack* track, const char* coding,
                                       const Bytes& codecHeader) {
  QiroK7MSampleDescriptor* out = nullptr;
  return AddDescription(writer_, track, coding, codecHeader, &out);
}

QiroK7MSampleDescriptor* OpenedWriter::Describe(QiroK7MTrack* track, const char* coding,
                                                const Bytes& codecHeader) {
  QiroK7MSampleDescriptor* out = nullptr;
  EXPECT_EQ(AddDescription(writer_, track, coding, codecHeader, &out), 0u);
  return out;
}

QiroK7MError OpenedWriter::TryAdd(QiroK7MTrack* track, const NewSample& sample) {
  const QiroK7MSampleInfo info = sample.Info(track);
  CountedBuffer buffer(sample.data);
  const QiroK7MError result = QiroK7MWriterAddSample(writer_, track, &info, buffer.Record());
  EXPECT_EQ(buffer.Releases(), 1);
  EXPECT_TRUE(buffer.DataWasRight());
  return result;
}

void OpenedWriter::Add(QiroK7MTrack* track, const NewSample& sample) {
  EXPECT_EQ(TryAdd(track, sample), 0u);
}

void OpenedWriter::Add(QiroK7MTrack* track, uint64_t time, uint32_t flags) {
  Add(track, NewSample{.time = time, .flags = flags});
}

QiroK7MError OpenedWriter::TrySetUlb(const Bytes& metadata) {
  CountedBuffer buffer(metadata);
  const QiroK7MError result =
      QiroK7MWriterSetUlb(writer_, buffer.Record(), static_cast<uint32_t>(metadata.Size()));
  EXPECT_EQ(buffer.Releases(), 1);
  return result;
}

QiroK7MError OpenedWriter::TryAddFullBox(const char* type, uint32_t version, uint32_t flags,
                                         const Bytes& payload) {
  CountedBuffer buffer(payload);
  const QiroK7MError result = QiroK7MWriterAddFullBox(
      writer_, Code(type), version, flags, buffer.Record(), static_cast<uint32_t>(payload.Size()));
  EXPECT_EQ(buffer.Releases(), 1);
  return result;
}

bool OpenedWriter::IsGood() const {
  QiroK7MDocInfo info{};
  const QiroK7MError result = QiroK7MWriterGetDocInfo(writer_, &info);
  EXPECT_TRUE(result == 0 || result == kQiroK7MErrorWriterStateBad) << result;
  return result == 0;
}

void OpenedWriter::Flush() { EXPECT_EQ(QiroK7MWriterFlush(writer_), 0u); }

Bytes OpenedWriter::Finish() {
  EXPECT_EQ(QiroK7MCloseWriter(writer_), 0u);
  return File();
}

uint32_t MediaTypeOf(QiroK7MTrack* track) {
  QiroK7MTrackInfo info{};
  EXPECT_EQ(QiroK7MTrackGetInfo(track, &info), 0u);
  return info.mediaType;
}

}  // namespace k7mtest

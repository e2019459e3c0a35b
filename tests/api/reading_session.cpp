#include "reading_session.h"

#include <algorithm>

namespace k7mtest {

namespace {

constexpr uint32_t kVideo = 0x76696465;

/// A fragment of three samples whose bytes stand directly behind it; no base offset is given, so
/// that its data offset counts from the begin of the file.
Bytes Fragment(uint64_t position, const Bytes& moreInMoof) {
  const auto moof = [&moreInMoof](int32_t dataOffset) {
    const Trun run{
        .dataOffset = dataOffset,
        .samples = {
            {.duration = 40, .size = 5}, {.duration = 40, .size = 6}, {.duration = 40, .size = 7}}};
    return Box("moof",
               FullBox("mfhd", 0, 0, Mfhd{}) +
                   Box("traf", FullBox("tfhd", 0, 0, Tfhd{}) + FullBox("trun", 0, 0x301, run)) +
                   moreInMoof);
  };
  const uint64_t dataOffset = position + moof(0).Size() + 8;
  return moof(static_cast<int32_t>(dataOffset)) + Box("mdat", Pattern(18, 3));
}

/// The iterator is a reference because the call that sets it may be evaluated after the arguments.
QiroK7MError Released(QiroK7MError result, QiroK7MSampleIterator*& iterator) {
  QiroK7MReleaseSampleIterator(iterator);
  return result;
}

QiroK7MError ListTracks(QiroK7MReader* reader) {
  QiroK7MTrackIterator* iterator = nullptr;
  const QiroK7MError result = QiroK7MReaderGetTracks(reader, &iterator);
  QiroK7MReleaseTrackIterator(iterator);
  return result;
}

QiroK7MError ListVideoTracks(QiroK7MReader* reader) {
  QiroK7MTrackIterator* iterator = nullptr;
  const QiroK7MError result = QiroK7MReaderGetTracksByMediaTypes(reader, &kVideo, 1, &iterator);
  QiroK7MReleaseTrackIterator(iterator);
  return result;
}

QiroK7MError ListDescriptors(QiroK7MReader* reader) {
  QiroK7MTrack* track = nullptr;
  QiroK7MError result = FirstTrack(reader, &track);
  if (result != 0) return result;
  QiroK7MSampleDescriptorIterator* iterator = nullptr;
  result = QiroK7MTrackGetSampleDescriptors(track, &iterator);
  QiroK7MReleaseSampleDescriptorIterator(iterator);
  return result;
}

QiroK7MError QuerySamples(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  return Released(QiroK7MReaderGetSamples(reader, 1000, 10, 1, 7, &iterator), iterator);
}

QiroK7MError QueryByTracks(QiroK7MReader* reader) {
  QiroK7MTrack* track = nullptr;
  const QiroK7MError result = FirstTrack(reader, &track);
  if (result != 0) return result;
  QiroK7MSampleIterator* iterator = nullptr;
  return Released(QiroK7MReaderGetSamplesByTracks(reader, 1000, 60, 1000, 90, &track, 1, &iterator),
                  iterator);
}

QiroK7MError QueryByMediaTypes(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  return Released(
      QiroK7MReaderGetSamplesByMediaTypes(reader, 1000, 60, 1000, 90, &kVideo, 1, &iterator),
      iterator);
}

QiroK7MError QueryAll(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  return Released(QiroK7MReaderGetAllSamples(reader, &iterator), iterator);
}

QiroK7MError QueryAllByTracks(QiroK7MReader* reader) {
  QiroK7MTrack* track = nullptr;
  const QiroK7MError result = FirstTrack(reader, &track);
  if (result != 0) return result;
  QiroK7MSampleIterator* iterator = nullptr;
  return Released(QiroK7MReaderGetAllSamplesByTracks(reader, &track, 1, &iterator), iterator);
}

QiroK7MError QueryAllByMediaTypes(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  return Released(QiroK7MReaderGetAllSamplesByMediaTypes(reader, &kVideo, 1, &iterator), iterator);
}

QiroK7MError QueryMedia(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  return Released(QiroK7MReaderGetMediaSamples(reader, nullptr, 0, &iterator), iterator);
}

QiroK7MError CountSamples(QiroK7MReader* reader) {
  QiroK7MTrack* track = nullptr;
  const QiroK7MError result = FirstTrack(reader, &track);
  uint32_t count = 0;
  return result != 0 ? result : QiroK7MTrackGetSampleCount(track, &count);
}

/// Takes every sample; goes on behind a failure, so that everything is visited.
QiroK7MError TakeSamples(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  QiroK7MError first = QiroK7MReaderGetMediaSamples(reader, nullptr, 0, &iterator);
  if (first != 0) return first;
  uint32_t hasMore = 1;
  while (QiroK7MSampleIteratorHasMoreEntries(iterator, &hasMore) == 0 && hasMore == 1) {
    QiroK7MSample* sample = nullptr;
    const QiroK7MError result = QiroK7MSampleIteratorGetNextEntry(iterator, &sample);
    if (first == 0) first = result;
    QiroK7MReleaseSample(sample);
  }
  return Released(first, iterator);
}

/// Takes every sample and its bytes; goes on behind a failure, so that everything is visited.
QiroK7MError CopySamples(QiroK7MReader* reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  QiroK7MError first = QiroK7MReaderGetAllSamples(reader, &iterator);
  if (first != 0) return first;
  uint32_t hasMore = 1;
  while (QiroK7MSampleIteratorHasMoreEntries(iterator, &hasMore) == 0 && hasMore == 1) {
    QiroK7MSample* sample = nullptr;
    std::array<uint8_t, 64> buffer;
    QiroK7MError result = QiroK7MSampleIteratorGetNextEntry(iterator, &sample);
    if (result == 0) result = QiroK7MSampleCopyData(sample, buffer.data());
    if (first == 0) first = result;
    QiroK7MReleaseSample(sample);
  }
  return Released(first, iterator);
}

QiroK7MError MeasureMetadata(QiroK7MReader* reader) {
  uint32_t length = 0;
  const QiroK7MError result = QiroK7MReaderGetUlbDataLength(reader, &length);
  return result == 0 && length != MetadataPacket().Size() ? 99 : result;
}

QiroK7MError CopyMetadata(QiroK7MReader* reader) {
  std::array<uint8_t, 300> buffer{};
  const QiroK7MError result = QiroK7MReaderCopyUlbData(reader, buffer.data());
  const bool isRight =
      std::equal(buffer.begin(), buffer.end(), MetadataPacket().begin(), MetadataPacket().end());
  return result == 0 && !isRight ? 99 : result;
}

QiroK7MError CopyMetadataTwice(QiroK7MReader* reader) {
  const QiroK7MError result = CopyMetadata(reader);
  return result != 0 ? result : CopyMetadata(reader);
}

}  // namespace

Bytes FragmentedSessionFile(const Bytes& moreInMoof) {
  Movie movie;
  movie.tracks = {{.samples = SomeSamples(3, 40)}};
  movie.moreInMoov = Box("mvex", FullBox("trex", 0, 0, Trex{}));
  movie.duration = 360;
  movie.tracks[0].duration = 360;
  Bytes file = BuildMovie(movie).bytes;
  for (int i = 0; i < 2; ++i) file = file + Fragment(file.Size(), moreInMoof);
  return file + UuidBox(kMetadataUuid, MetadataPacket());
}

QiroK7MError FirstTrack(QiroK7MReader* reader, QiroK7MTrack** track) {
  QiroK7MTrackIterator* iterator = nullptr;
  QiroK7MError result = QiroK7MReaderGetTracks(reader, &iterator);
  if (result == 0) result = QiroK7MTrackIteratorGetNextEntry(iterator, track);
  QiroK7MReleaseTrackIterator(iterator);
  return result;
}

const std::array<Question, 16> kQuestions = {{
    {"QiroK7MReaderGetTracks", ListTracks},
    {"QiroK7MReaderGetTracksByMediaTypes", ListVideoTracks},
    {"QiroK7MTrackGetSampleDescriptors", ListDescriptors},
    {"QiroK7MReaderGetSamples", QuerySamples},
    {"QiroK7MReaderGetSamplesByTracks", QueryByTracks},
    {"QiroK7MReaderGetSamplesByMediaTypes", QueryByMediaTypes},
    {"QiroK7MReaderGetAllSamples", QueryAll},
    {"QiroK7MReaderGetAllSamplesByTracks", QueryAllByTracks},
    {"QiroK7MReaderGetAllSamplesByMediaTypes", QueryAllByMediaTypes},
    {"QiroK7MReaderGetMediaSamples", QueryMedia},
    {"QiroK7MTrackGetSampleCount", CountSamples},
    {"QiroK7MSampleIteratorGetNextEntry", TakeSamples},
    {"QiroK7MSampleCopyData", CopySamples},
    {"QiroK7MReaderGetUlbDataLength", MeasureMetadata},
    {"QiroK7MReaderCopyUlbData", CopyMetadata},
    {"QiroK7MReaderCopyUlbData, twice", CopyMetadataTwice},
}};

}  // namespace k7mtest

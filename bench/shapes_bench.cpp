// Plain files of unusual shapes, read and written at three sizes. The time for each sample, edit or
// question must not grow with their number.
#include "growing_stream.h"
#include "growth.h"
#include "reading.h"
#include "support/movie_builder.h"

namespace k7mbench {
namespace {

constexpr uint32_t kSampleDuration = 10;
constexpr uint32_t kSound = 0x736F756E;  // 'soun'

k7mtest::Track TrackOf(uint32_t sampleCount, uint32_t samplesPerChunk) {
  k7mtest::Track track;
  track.samplesPerChunk = samplesPerChunk;
  track.samples.assign(sampleCount, k7mtest::SampleOf(4, kSampleDuration));
  return track;
}

FileBytes FileOf(const k7mtest::Movie& movie) {
  return std::make_shared<const std::vector<uint8_t>>(k7mtest::BuildMovie(movie).bytes.Vector());
}

/// Opens and takes every sample.
std::function<Effort()> TakeAll(const k7mtest::Movie& movie, uint64_t sampleCount, uint64_t units) {
  return [file = FileOf(movie), sampleCount, units] {
    const double begin = Seconds();
    const OpenedFile opened(file);
    const uint64_t count = opened.TakeAll();
    const double end = Seconds();
    Require(count == sampleCount, "not all samples were delivered");
    return Effort{end - begin, units};
  };
}

std::function<Effort()> OneChunk(uint32_t sampleCount) {
  return TakeAll({.tracks = {TrackOf(sampleCount, sampleCount)}}, sampleCount, sampleCount);
}

std::function<Effort()> OneSamplePerChunk(uint32_t sampleCount) {
  return TakeAll({.tracks = {TrackOf(sampleCount, 1)}}, sampleCount, sampleCount);
}

/// Every edit shows a stretch of its own, the last ones first. A unit is an edit.
std::function<Effort()> Edits(uint32_t editCount) {
  constexpr uint32_t kSamplesPerEdit = 100;
  constexpr uint32_t kEditLength = kSamplesPerEdit * kSampleDuration;
  k7mtest::Track track = TrackOf(editCount * kSamplesPerEdit, 10);
  for (uint32_t edit = editCount; edit-- > 0;) {
    track.edits.push_back(
        {.segmentDuration = kEditLength, .mediaTime = int64_t{edit} * kEditLength});
  }
  return TakeAll({.tracks = {std::move(track)}}, uint64_t{editCount} * kSamplesPerEdit, editCount);
}

std::function<Effort()> ManyTracks(uint32_t sampleCount) {
  constexpr uint32_t kTracks = 64;
  const uint32_t each = sampleCount / kTracks;
  k7mtest::Movie movie;
  movie.tracks.assign(kTracks, TrackOf(each, 10));
  return TakeAll(movie, uint64_t{kTracks} * each, uint64_t{kTracks} * each);
}

std::function<Effort()> RandomTimes(uint32_t sampleCount) {
  const auto opened =
      std::make_shared<const OpenedFile>(FileOf({.tracks = {TrackOf(sampleCount, 10)}}));
  return [opened, sampleCount] {
    return opened->AskAtRandomTimes(uint64_t{sampleCount} * kSampleDuration);
  };
}

QiroK7MTrack* AddTrack(QiroK7MWriter* writer, uint32_t sampleCount) {
  QiroK7MTrackInfo info = {};
  info.mediaType = kSound;
  info.timeScale = 1000;
  std::copy_n("und", sizeof info.language, info.language);
  const QiroK7MTrackEntriesInfo entries = {sizeof entries, 1, 0, 0};
  QiroK7MTrack* track = nullptr;
  Require(QiroK7MWriterAddTrack(writer, &info, &entries, sampleCount, "", &track) == 0, "AddTrack");
  QiroK7MDataBuffer header = {};
  QiroK7MSampleDescriptor* descriptor = nullptr;
  const QiroK7MAudioSampleDescInfo audio = {sizeof audio, 48000, 2, 16};
  Require(QiroK7MWriterAddAudioSampleDescriptor(writer, track, &audio, &header, &descriptor) == 0,
          "AddAudioSampleDescriptor");
  return track;
}

QiroK7MWriter* Create(const QiroK7MIOStreamCallBacks& stream, bool isFragmented) {
  QiroK7MDocInfo info = {};
  info.isFragmented = isFragmented ? 1 : 0;
  info.timeScale = 1000;
  info.creationTime.year = info.modificationTime.year = 2024;
  info.creationTime.month = info.modificationTime.month = 1;
  info.creationTime.day = info.modificationTime.day = 1;
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7MWriter* writer = nullptr;
  Require(QiroK7MDocCreateNew(&stream, &info, &allocator, &writer) == 0, "cannot create");
  return writer;
}

/// Writes samples, with a flush behind each.
std::function<Effort()> FlushEach(uint32_t sampleCount, bool isFragmented) {
  constexpr uint64_t kBytesPerSample = 400;  // And more than enough.
  constexpr uint64_t kBytesBesides = 100000;
  const auto stream =
      std::make_shared<GrowingStream>(kBytesBesides + kBytesPerSample * sampleCount);
  return [stream, sampleCount, isFragmented] {
    stream->Clear();
    const double begin = Seconds();
    QiroK7MWriter* writer = Create(stream->CallBacks(), isFragmented);
    QiroK7MTrack* track = AddTrack(writer, sampleCount);
    uint8_t bytes[4] = {1, 2, 3, 4};
    QiroK7MSampleInfo info = {};
    info.sampleSize = sizeof bytes;
    info.timeScale = 1000;
    info.mediaType = kSound;
    info.flags = kQiroK7MSampleFlagKey;
    for (uint32_t i = 0; i < sampleCount; ++i, info.timeStamp += kSampleDuration) {
      QiroK7MDataBuffer data = {};
      data.length = sizeof bytes;
      data.data = bytes;
      Require(QiroK7MWriterAddSample(writer, track, &info, &data) == 0, "AddSample");
      Require(QiroK7MWriterFlush(writer) == 0, "Flush");
    }
    Require(QiroK7MCloseWriter(writer) == 0, "Close");
    QiroK7MDestroyWriter(writer);
    return Effort{Seconds() - begin, sampleCount};
  };
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  Register("one_chunk", 500000, OneChunk);
  Register("one_sample_per_chunk", 1000000, OneSamplePerChunk);
  Register("edits", 1000, Edits);
  Register("64_tracks", 640000, ManyTracks);
  Register("random_times", 1000000, RandomTimes);
  Register("flush_each", 100000, [](uint32_t size) { return FlushEach(size, false); });
  Register("flush_each_fragmented", 100000, [](uint32_t size) { return FlushEach(size, true); });
  return RunShapes(argc, argv);
}

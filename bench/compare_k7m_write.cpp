// The library's side of the comparison of writing: one piece of work a run.
// usage: compare_k7m_write plain|file|fragments FILE [OUT]
// FILE gives the samples, which are in memory before the time is taken.
#include <fcntl.h>
#include <unistd.h>

#include <map>
#include <string>

#include "file_io_stream.h"
#include "flat_stream.h"
#include "growing_stream.h"
#include "k7m/extensions.h"
#include "measure.h"

namespace k7mbench {
namespace {

constexpr uint32_t kVideo = 0x76696465;  // 'vide'

struct Entry {
  size_t track;
  QiroK7MSampleInfo info;
  uint64_t offset;  // In Material::bytes.
};

struct Material {
  std::vector<QiroK7MTrackInfo> tracks;
  std::vector<uint32_t> counts;
  std::vector<Entry> entries;
  std::vector<uint8_t> bytes;
};

void TakeTracks(QiroK7MReader* reader, Material& material,
                std::map<QiroK7MTrack*, size_t>& numbers) {
  QiroK7MTrackIterator* tracks = nullptr;
  Require(QiroK7MReaderGetTracks(reader, &tracks) == 0, "no tracks");
  QiroK7MTrack* track = nullptr;
  while (QiroK7MTrackIteratorGetNextEntry(tracks, &track) == 0 && track != nullptr) {
    numbers.emplace(track, numbers.size());
    QiroK7MTrackInfo info;
    QiroK7MTrackGetInfo(track, &info);
    info.handlerNameLength = 0;
    material.tracks.push_back(info);
  }
  QiroK7MReleaseTrackIterator(tracks);
  material.counts.resize(material.tracks.size());
}

Material Take(const char* name) {
  const std::vector<uint8_t> file = LoadFile(name);
  FlatStream stream(file);
  const QiroK7MIStreamCallBacks callBacks = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7MReader* reader = nullptr;
  Require(QiroK7MDocOpenForRead(&callBacks, &warning, &allocator, &reader) == 0, "cannot open");
  Material material;
  std::map<QiroK7MTrack*, size_t> numbers;
  TakeTracks(reader, material, numbers);
  QiroK7MSampleIterator* samples = nullptr;
  Require(QiroK7MReaderGetMediaSamples(reader, nullptr, 0, &samples) == 0, "cannot iterate");
  QiroK7MSample* sample = nullptr;
  while (QiroK7MSampleIteratorGetNextEntry(samples, &sample) == 0 && sample != nullptr) {
    Entry entry = {};
    QiroK7MTrack* track = nullptr;
    QiroK7MSampleGetInfo(sample, &entry.info);
    QiroK7MSampleGetTrack(sample, &track);
    entry.track = numbers.at(track);
    entry.offset = material.bytes.size();
    material.bytes.resize(entry.offset + entry.info.sampleSize);
    QiroK7MSampleCopyData(sample, material.bytes.data() + entry.offset);
    QiroK7MReleaseSample(sample);
    ++material.counts[entry.track];
    material.entries.push_back(entry);
  }
  QiroK7MReleaseSampleIterator(samples);
  QiroK7MCloseReader(reader);
  return material;
}

QiroK7MTrack* AddTrack(QiroK7MWriter* writer, const QiroK7MTrackInfo& info, uint32_t count) {
  const QiroK7MTrackEntriesInfo entries = {sizeof entries, 1, 0, 0};
  QiroK7MTrack* track = nullptr;
  Require(QiroK7MWriterAddTrack(writer, &info, &entries, count, "", &track) == 0, "AddTrack");
  QiroK7MDataBuffer header = {};
  QiroK7MSampleDescriptor* descriptor = nullptr;
  if (info.mediaType == kVideo) {
    const QiroK7MVideoSampleDescInfo video = {sizeof video, 32, 32, 72, 72, 1, 24};
    Require(QiroK7MWriterAddVideoSampleDescriptor(writer, track, &video, &header, &descriptor) == 0,
            "AddVideoSampleDescriptor");
  } else {
    const QiroK7MAudioSampleDescInfo audio = {sizeof audio, 48000, 2, 16};
    Require(QiroK7MWriterAddAudioSampleDescriptor(writer, track, &audio, &header, &descriptor) == 0,
            "AddAudioSampleDescriptor");
  }
  return track;
}

/// Writes everything; with `fragmentLength` above 0 fragmented, so many samples in each.
void Write(const Material& material, const QiroK7MIOStreamCallBacks& stream,
           size_t fragmentLength) {
  QiroK7MDocInfo info = {};
  info.isFragmented = fragmentLength > 0 ? 1 : 0;
  info.timeScale = 1000;
  info.creationTime.year = info.modificationTime.year = 2024;
  info.creationTime.month = info.modificationTime.month = 1;
  info.creationTime.day = info.modificationTime.day = 1;
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7MWriter* writer = nullptr;
  Require(QiroK7MDocCreateNew(&stream, &info, &allocator, &writer) == 0, "cannot create");
  std::vector<QiroK7MTrack*> tracks;
  for (size_t i = 0; i < material.tracks.size(); ++i) {
    tracks.push_back(AddTrack(writer, material.tracks[i], material.counts[i]));
  }
  size_t untilFlush = fragmentLength;
  for (const Entry& entry : material.entries) {
    QiroK7MDataBuffer data = {};
    data.length = entry.info.sampleSize;
    data.data = const_cast<uint8_t*>(material.bytes.data() + entry.offset);
    Require(QiroK7MWriterAddSample(writer, tracks[entry.track], &entry.info, &data) == 0,
            "AddSample");
    if (fragmentLength > 0 && --untilFlush == 0) {
      Require(QiroK7MWriterFlush(writer) == 0, "Flush");
      untilFlush = fragmentLength;
    }
  }
  Require(QiroK7MCloseWriter(writer) == 0, "Close");
  QiroK7MDestroyWriter(writer);
}

void WriteToMemory(const Material& material, size_t fragmentLength) {
  GrowingStream stream(4 * material.bytes.size() + 40 * material.entries.size());
  const Measure measure;
  Write(material, stream.CallBacks(), fragmentLength);
  measure.Print(fragmentLength > 0 ? material.entries.size() / fragmentLength
                                   : material.entries.size());
}

void WriteToFile(const Material& material, const char* name) {
  const int descriptor = open(name, O_RDWR | O_CREAT | O_TRUNC, 0644);
  Require(descriptor >= 0, "cannot create the file");
  const Measure measure;
  {
    qiro::k7m::tool::FileIoStream stream(descriptor);
    Write(material, stream.CallBacks(), 0);
  }
  close(descriptor);
  measure.Print(material.entries.size());
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  Require(argc >= 3, "usage: compare_k7m_write plain|file|fragments FILE [OUT]");
  const std::string work = argv[1];
  const Material material = Take(argv[2]);
  constexpr size_t kFragmentLength = 10;
  if (work == "plain") WriteToMemory(material, 0);
  if (work == "fragments") WriteToMemory(material, kFragmentLength);
  if (work == "file") WriteToFile(material, argv[3]);
  return 0;
}

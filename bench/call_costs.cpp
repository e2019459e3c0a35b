// What the exported calls cost: calls of the caller's stream, bytes moved, blocks of memory.
// usage: call_costs FILE
// FILE is read once from begin to end and written anew, plainly and in fragments.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "k7m/extensions.h"
#include "k7m/k7m.h"
#include "measure.h"

namespace {

/// Since the last line that was printed.
struct Counts {
  uint64_t reads, bytesRead, seeks, tells, writes, bytesWritten, ownBlocks, ownBytes, heapBlocks,
      heapBytes;
};
Counts counts = {};

}  // namespace

// The library's ordinary heap.
void* operator new(size_t size) {
  ++counts.heapBlocks;
  counts.heapBytes += size;
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

namespace k7mbench {
namespace {

/// A file in memory that is read and written.
struct File {
  std::vector<uint8_t> bytes;
  uint64_t position = 0;
  uint64_t length = 0;
};
File& Self(void* clientData) { return *static_cast<File*>(clientData); }

QiroK7MIOStreamCallBacks Counted(File& file) {
  QiroK7MIOStreamCallBacks record;
  record.clientData = &file;
  record.open = record.close = [](void*) -> QiroK7MError { return 0; };
  record.readSome = [](void* self, void* buffer, uint64_t length, uint64_t* read) -> QiroK7MError {
    File& from = Self(self);
    *read = std::min(length, from.length - std::min(from.position, from.length));
    std::memcpy(buffer, from.bytes.data() + from.position, *read);
    from.position += *read;
    ++counts.reads;
    counts.bytesRead += *read;
    return 0;
  };
  record.seek = [](void* self, int64_t offset, QiroK7MSeekPos origin) -> QiroK7MError {
    File& in = Self(self);
    const uint64_t base = origin == kQiroK7MSeekFromStart     ? 0
                          : origin == kQiroK7MSeekFromCurrent ? in.position
                                                              : in.length;
    in.position = base + static_cast<uint64_t>(offset);
    ++counts.seeks;
    return 0;
  };
  record.tell = [](void* self, uint64_t* position) -> QiroK7MError {
    *position = Self(self).position;
    ++counts.tells;
    return 0;
  };
  record.write = [](void* self, const void* buffer, uint64_t length,
                    uint64_t* written) -> QiroK7MError {
    File& to = Self(self);
    *written = to.position + length <= to.bytes.size() ? length : 0;
    std::memcpy(to.bytes.data() + to.position, buffer, *written);
    to.position += *written;
    to.length = std::max(to.length, to.position);
    ++counts.writes;
    counts.bytesWritten += *written;
    return 0;
  };
  record.truncate = [](void* self, uint64_t length) -> QiroK7MError {
    Self(self).length = length;
    return 0;
  };
  return record;
}

QiroK7MAllocatorCallBacks CountedMemory() {
  QiroK7MAllocatorCallBacks record;
  record.allocate = [](void*, uint64_t size) -> void* {
    ++counts.ownBlocks;
    counts.ownBytes += size;
    return std::malloc(size);
  };
  record.release = [](void*, void* block) { std::free(block); };
  return record;
}

/// Prints what each of `calls` calls cost since the last line.
void Print(const char* what, uint64_t calls = 1) {
  const auto each = [calls](uint64_t value) {
    return static_cast<double>(value) / static_cast<double>(calls);
  };
  std::printf("%-44s %9.4g %11.6g %8.4g %8.4g %8.4g %11.6g %8.4g %11.6g %8.4g %11.6g\n", what,
              each(counts.reads), each(counts.bytesRead), each(counts.seeks), each(counts.tells),
              each(counts.writes), each(counts.bytesWritten), each(counts.ownBlocks),
              each(counts.ownBytes), each(counts.heapBlocks), each(counts.heapBytes));
  counts = {};
}

struct Entry {
  QiroK7MSampleInfo info;
  uint32_t track;
};

struct Source {
  std::vector<QiroK7MTrackInfo> tracks;
  std::vector<Entry> entries;
};

void ReadTracks(QiroK7MReader* reader, Source& source, std::vector<QiroK7MTrack*>& handles) {
  QiroK7MTrackIterator* tracks = nullptr;
  Require(QiroK7MReaderGetTracks(reader, &tracks) == 0, "no tracks");
  Print("ReaderGetTracks");
  QiroK7MTrack* track = nullptr;
  while (QiroK7MTrackIteratorGetNextEntry(tracks, &track) == 0 && track != nullptr) {
    handles.push_back(track);
    source.tracks.emplace_back();
    counts = {};
    QiroK7MTrackGetInfo(track, &source.tracks.back());
    Print("TrackGetInfo");
    uint32_t count = 0;
    QiroK7MTrackGetSampleCount(track, &count);
    Print("TrackGetSampleCount");
  }
  QiroK7MReleaseTrackIterator(tracks);
}

void ReadSamples(QiroK7MReader* reader, Source& source, std::vector<QiroK7MTrack*>& handles) {
  counts = {};
  QiroK7MSampleIterator* samples = nullptr;
  Require(QiroK7MReaderGetMediaSamples(reader, nullptr, 0, &samples) == 0, "cannot iterate");
  Print("ReaderGetMediaSamples");
  std::vector<QiroK7MSample*> all;
  all.reserve(1 << 21);
  counts = {};
  QiroK7MSample* sample = nullptr;
  while (QiroK7MSampleIteratorGetNextEntry(samples, &sample) == 0 && sample != nullptr) {
    all.push_back(sample);
  }
  Print("SampleIteratorGetNextEntry", all.size());
  source.entries.resize(all.size());
  std::vector<uint8_t> bytes(1 << 24);
  counts = {};
  for (size_t i = 0; i < all.size(); ++i) {
    QiroK7MSampleGetInfo(all[i], &source.entries[i].info);
    QiroK7MTrack* track = nullptr;
    QiroK7MSampleGetTrack(all[i], &track);
    source.entries[i].track = track == handles[0] ? 0 : 1;
  }
  Print("SampleGetInfo, SampleGetTrack", all.size());
  for (QiroK7MSample* each : all) {
    Require(QiroK7MSampleCopyData(each, bytes.data()) == 0, "cannot copy");
  }
  Print("SampleCopyData, in order", all.size());
  for (QiroK7MSample* each : all) QiroK7MReleaseSample(each);
  QiroK7MReleaseSampleIterator(samples);
}

Source Read(File& file) {
  const QiroK7MIOStreamCallBacks both = Counted(file);
  QiroK7MIStreamCallBacks callBacks;
  callBacks.clientData = both.clientData;
  callBacks.open = both.open;
  callBacks.close = both.close;
  callBacks.readSome = both.readSome;
  callBacks.seek = both.seek;
  callBacks.tell = both.tell;
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks allocator = CountedMemory();
  QiroK7MReader* reader = nullptr;
  counts = {};
  Require(QiroK7MDocOpenForRead(&callBacks, &warning, &allocator, &reader) == 0, "cannot open");
  Print("DocOpenForRead");
  Source source;
  std::vector<QiroK7MTrack*> handles;
  ReadTracks(reader, source, handles);
  ReadSamples(reader, source, handles);
  QiroK7MCloseReader(reader);
  return source;
}

QiroK7MTrack* AddTrack(QiroK7MWriter* writer, QiroK7MTrackInfo info, uint32_t count) {
  info.handlerNameLength = 0;
  const QiroK7MTrackEntriesInfo entries = {sizeof entries, 1, 0, 0};
  QiroK7MTrack* track = nullptr;
  Require(QiroK7MWriterAddTrack(writer, &info, &entries, count, "", &track) == 0, "AddTrack");
  QiroK7MSampleDescInfo description = {};
  description.type = 0x78787878;
  description.mediaType = info.mediaType;
  QiroK7MDataBuffer header = {};
  QiroK7MSampleDescriptor* descriptor = nullptr;
  Require(QiroK7MWriterAddSampleDescriptor(writer, track, &description, &header, &descriptor) == 0,
          "AddSampleDescriptor");
  return track;
}

/// With `fragmentLength` above 0 fragmented, so many samples in each.
void Write(const Source& source, File& file, size_t fragmentLength) {
  const QiroK7MIOStreamCallBacks stream = Counted(file);
  const QiroK7MAllocatorCallBacks allocator = CountedMemory();
  QiroK7MDocInfo info = {};
  info.isFragmented = fragmentLength > 0 ? 1 : 0;
  info.timeScale = 1000;
  info.creationTime.year = info.modificationTime.year = 2024;
  info.creationTime.month = info.modificationTime.month = 1;
  info.creationTime.day = info.modificationTime.day = 1;
  QiroK7MWriter* writer = nullptr;
  counts = {};
  Require(QiroK7MDocCreateNew(&stream, &info, &allocator, &writer) == 0, "cannot create");
  Print(fragmentLength > 0 ? "DocCreateNew, fragmented" : "DocCreateNew");
  std::vector<QiroK7MTrack*> tracks;
  for (const QiroK7MTrackInfo& track : source.tracks) {
    tracks.push_back(AddTrack(writer, track, static_cast<uint32_t>(source.entries.size())));
  }
  Print("WriterAddTrack and its description", source.tracks.size());
  std::array<uint8_t, 1 << 16> bytes = {};
  Counts flushes = {};
  uint64_t flushCount = 0;
  for (size_t i = 0; i < source.entries.size(); ++i) {
    QiroK7MDataBuffer data = {};
    data.length = bytes.size();
    data.data = bytes.data();
    const Entry& entry = source.entries[i];
    Require(QiroK7MWriterAddSample(writer, tracks[entry.track], &entry.info, &data) == 0, "add");
    if (fragmentLength > 0 && (i + 1) % fragmentLength == 0) {
      // What the flushes cost is kept apart.
      std::swap(counts, flushes);
      Require(QiroK7MWriterFlush(writer) == 0, "flush");
      std::swap(counts, flushes);
      ++flushCount;
    }
  }
  Print("WriterAddSample", source.entries.size());
  if (flushCount > 0) {
    counts = flushes;
    Print("WriterFlush, 10 samples each", flushCount);
  }
  Require(QiroK7MCloseWriter(writer) == 0, "Close");
  Print("CloseWriter");
  QiroK7MDestroyWriter(writer);
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  Require(argc == 2, "usage: call_costs FILE");
  File file;
  file.bytes = LoadFile(argv[1]);
  file.length = file.bytes.size();
  std::printf("%-44s %9s %11s %8s %8s %8s %11s %8s %11s %8s %11s\n", "call", "reads", "bytes",
              "seeks", "tells", "writes", "bytes", "blocks", "bytes", "heap", "bytes");
  const Source source = Read(file);
  Require(source.tracks.size() == 2, "the file must have two tracks");
  for (const size_t fragmentLength : {size_t{0}, size_t{10}}) {
    File out;
    out.bytes.resize(10 * file.bytes.size());
    Write(source, out, fragmentLength);
  }
  return 0;
}

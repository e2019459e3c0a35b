/* A client in plain C: opens a clip over stdio and walks its tracks and samples. Returns 0 when all
   is as expected of the clip h264-bframes-aac.mp4, which is its only argument. */
#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "k7m/k7m.h"

enum { kStreamFailed = 900 };

static const uint32_t kVideo = 0x76696465;
static const uint32_t kSound = 0x736F756E;

static int failures = 0;

static void ExpectAt(int line, const char* what, uint64_t actual, uint64_t expected) {
  if (actual == expected) return;
  fprintf(stderr, "line %d: %s is %" PRIu64 ", not %" PRIu64 "\n", line, what, actual, expected);
  ++failures;
}
#define EXPECT(actual, expected) ExpectAt(__LINE__, #actual, (actual), (expected))

static QiroK7MError OpenFile(void* file) {
  return fseek(file, 0, SEEK_SET) == 0 ? 0 : kStreamFailed;
}
static QiroK7MError CloseFile(void* file) { return fflush(file) == 0 ? 0 : kStreamFailed; }

static QiroK7MError ReadFile(void* file, void* buffer, uint64_t byteCount, uint64_t* bytesRead) {
  *bytesRead = fread(buffer, 1, (size_t)byteCount, file);
  return ferror((FILE*)file) ? kStreamFailed : 0;
}

static QiroK7MError SeekFile(void* file, int64_t offset, QiroK7MSeekPos origin) {
  static const int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  return fseek(file, (long)offset, kOrigins[origin]) == 0 ? 0 : kStreamFailed;
}

static QiroK7MError TellFile(void* file, uint64_t* position) {
  const long at = ftell(file);
  if (at < 0) return kStreamFailed;
  *position = (uint64_t)at;
  return 0;
}

static int32_t OnWarning(void* clientData, QiroK7MError warning) {
  fprintf(stderr, "warning %" PRIu32 "\n", warning);
  ++*(uint32_t*)clientData;
  return 1;
}

static void CheckVideoDescription(QiroK7MTrack* track) {
  QiroK7MSampleDescriptorIterator* descriptors = NULL;
  QiroK7MSampleDescriptor* descriptor = NULL;
  QiroK7MSampleDescInfo common;
  QiroK7MVideoSampleDescInfo video;
  EXPECT(QiroK7MTrackGetSampleDescriptors(track, &descriptors), 0);
  EXPECT(QiroK7MSampleDescriptorIteratorGetNextEntry(descriptors, &descriptor), 0);
  EXPECT(QiroK7MSampleDescriptorGetInfo(descriptor, &common), 0);
  EXPECT(common.type, 0x61766331); /* 'avc1' */
  EXPECT(QiroK7MSampleDescriptorGetVideoInfo(descriptor, &video), 0);
  EXPECT(video.width, 320);
  EXPECT(video.height, 180);
  QiroK7MReleaseSampleDescriptorIterator(descriptors);
}

static void CheckTracks(QiroK7MReader* reader) {
  const uint32_t expectedTypes[] = {kVideo, kSound};
  const uint32_t expectedScales[] = {12800, 44100};
  const uint32_t expectedCounts[] = {50, 88};
  QiroK7MTrackIterator* tracks = NULL;
  QiroK7MTrack* track = NULL;
  size_t found = 0;
  EXPECT(QiroK7MReaderGetTracks(reader, &tracks), 0);
  while (QiroK7MTrackIteratorGetNextEntry(tracks, &track) == 0 && track != NULL && found < 2) {
    QiroK7MTrackInfo info;
    uint32_t sampleCount = 0;
    EXPECT(QiroK7MTrackGetInfo(track, &info), 0);
    EXPECT(info.size, sizeof info);
    EXPECT(info.mediaType, expectedTypes[found]);
    EXPECT(info.timeScale, expectedScales[found]);
    EXPECT(QiroK7MTrackGetSampleCount(track, &sampleCount), 0);
    EXPECT(sampleCount, expectedCounts[found]);
    if (info.mediaType == kVideo) CheckVideoDescription(track);
    ++found;
  }
  EXPECT(found, 2);
  EXPECT(track == NULL, 1);
  QiroK7MReleaseTrackIterator(tracks);
}

static void CheckSamples(QiroK7MReader* reader) {
  QiroK7MSampleIterator* samples = NULL;
  QiroK7MSample* sample = NULL;
  uint64_t bytes = 0;
  uint32_t videoCount = 0, soundCount = 0, keyCount = 0;
  EXPECT(QiroK7MReaderGetMediaSamples(reader, NULL, 0, &samples), 0);
  while (QiroK7MSampleIteratorGetNextEntry(samples, &sample) == 0 && sample != NULL) {
    QiroK7MSampleInfo info;
    EXPECT(QiroK7MSampleGetInfo(sample, &info), 0);
    uint8_t* const data = malloc(info.sampleSize);
    EXPECT(data != NULL, 1);
    EXPECT(QiroK7MSampleCopyData(sample, data), 0);
    bytes += info.sampleSize;
    if (info.mediaType == kSound) ++soundCount;
    if (info.mediaType == kVideo) {
      EXPECT(info.timeStamp, (uint64_t)512 * videoCount);
      /* A video sample starts with the big-endian length of its first unit. */
      EXPECT(data[0] == 0 && ((uint32_t)data[2] << 8 | data[3]) + 4 <= info.sampleSize, 1);
      if (info.flags & kQiroK7MSampleFlagKey) ++keyCount;
      ++videoCount;
    }
    free(data);
    QiroK7MReleaseSample(sample);
  }
  QiroK7MReleaseSampleIterator(samples);
  EXPECT(videoCount, 50);
  EXPECT(soundCount, 88);
  EXPECT(keyCount, 5);
  EXPECT(bytes, 54060); /* the whole payload of the 'mdat' */
}

int main(int argc, char** argv) {
  FILE* const file = argc == 2 ? fopen(argv[1], "rb") : NULL;
  if (file == NULL) {
    fprintf(stderr, "usage: c_client h264-bframes-aac.mp4\n");
    return 2;
  }
  uint32_t warningCount = 0;
  const QiroK7MIStreamCallBacks stream = {.size = sizeof stream,
                                          .clientData = file,
                                          .open = OpenFile,
                                          .close = CloseFile,
                                          .readSome = ReadFile,
                                          .seek = SeekFile,
                                          .tell = TellFile};
  const QiroK7MWarningHandlerCallBacks warning = {
      .size = sizeof warning, .clientData = &warningCount, .warningCallback = OnWarning};
  const QiroK7MAllocatorCallBacks allocator = {.size = sizeof allocator};

  uint32_t isK7M = 0;
  EXPECT(QiroK7MDocIsK7M(&stream, &allocator, &isK7M), 0);
  EXPECT(isK7M, 1);
  QiroK7MReader* reader = NULL;
  const QiroK7MError result = QiroK7MDocOpenForRead(&stream, &warning, &allocator, &reader);
  EXPECT(result, 0);
  if (result == 0) {
    QiroK7MDocInfo info;
    EXPECT(QiroK7MReaderGetDocInfo(reader, &info), 0);
    EXPECT(info.size, sizeof info);
    EXPECT(info.isFragmented, 0);
    EXPECT(info.timeScale, 1000);
    EXPECT(info.duration, 2000);
    CheckTracks(reader);
    CheckSamples(reader);
    QiroK7MCloseReader(reader);
  }
  EXPECT(warningCount, 0);
  EXPECT(strlen(QiroK7MGetLibraryVersion()) > 0, 1);
  fclose(file);
  return failures == 0 ? 0 : 1;
}

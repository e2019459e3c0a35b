/* Writes a fragmented document of two seconds: uncompressed pictures of a moving bar, and a tone.

   usage: write_fragmented OUT.mov

   It differs from a plain document in three places: the document is created as a fragmented one,
   tracks need not know how many samples they will get, and a flush ends a fragment. Whatever
   happens afterwards, everything up to the last flush is a document of its own: that is what
   fragments are for when the end is not known, as in a recording. */
#include <stdio.h>
#include <string.h>

#include "k7m/k7m.h"
#include "stdio_stream.h"

enum {
  kWidth = 160,
  kHeight = 120,
  kFrameRate = 25,
  kFrameCount = 2 * kFrameRate,
  kFramesPerFragment = 10,
  kFrameSize = kWidth * kHeight * 3,
  kSampleRate = 48000,
  kChannels = 2,
  kTonesPerFrame = kSampleRate / kFrameRate, /* Sound that goes with one picture. */
  kToneSize = kTonesPerFrame * kChannels * 2,
  kVideo = 0x76696465,  /* 'vide' */
  kSound = 0x736F756E,  /* 'soun' */
  kRawRgb = 0x72617720, /* 'raw ': red, green, blue, 8 bits each, row by row */
  kPcm = 0x736F7774     /* 'sowt': 16 bits, the low byte first */
};

/* A step that fails ends the program; what was flushed before stays readable. */
#define TRY(call)                                                            \
  do {                                                                       \
    const QiroK7MError code = (call);                                        \
    if (code != kQiroK7MErrorNone) {                                         \
      fprintf(stderr, "%s: %s (%u)\n", #call, QiroK7MErrorText(code), code); \
      return 1;                                                              \
    }                                                                        \
  } while (0)

static const QiroK7MDateTime kToday = {.year = 2024, .month = 1, .day = 1};

/* A white bar that crosses a blue picture. */
static void DrawFrame(unsigned char* frame, int number) {
  const int bar = number * kWidth / kFrameCount;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      unsigned char* pixel = frame + (y * kWidth + x) * 3;
      memset(pixel, x >= bar && x < bar + 8 ? 255 : 0, 3);
      pixel[2] = 255;
    }
  }
}

/* A tone like a saw, of 240 Hz, the same on both channels. */
static void MakeTone(unsigned char* bytes) {
  for (int i = 0; i < kTonesPerFrame; ++i) {
    const int value = (i % (kSampleRate / 240)) * 80 - 8000;
    for (int channel = 0; channel < kChannels; ++channel) {
      *bytes++ = (unsigned char)(value & 0xFF);
      *bytes++ = (unsigned char)((value >> 8) & 0xFF);
    }
  }
}

static QiroK7MError AddTrack(QiroK7MWriter* writer, uint32_t mediaType, uint32_t timeScale,
                             QiroK7MTrack** track) {
  static const char kName[] = "write_fragmented";
  const int isVideo = mediaType == kVideo;
  const QiroK7MTrackInfo info = {.mediaType = mediaType,
                                 .flags = 7, /* Enabled, in the movie, in the preview. */
                                 .timeScale = timeScale,
                                 .creationTime = kToday,
                                 .modificationTime = kToday,
                                 .width = isVideo ? kWidth : 0,
                                 .height = isVideo ? kHeight : 0,
                                 .volume = isVideo ? 0 : 1,
                                 .language = "eng",
                                 .handlerNameLength = sizeof kName};
  const QiroK7MTrackEntriesInfo entries = {.sampleDescriptorCount = 1};
  const uint32_t kNoLimit = 0; /* There are no tables whose space has to be reserved. */
  return QiroK7MWriterAddTrack(writer, &info, &entries, kNoLimit, kName, track);
}

/* Uncompressed media needs no codec header: an empty buffer says so. */
static QiroK7MError Describe(QiroK7MWriter* writer, QiroK7MTrack* video, QiroK7MTrack* sound) {
  const QiroK7MVideoSampleDescInfo picture = {.width = kWidth,
                                              .height = kHeight,
                                              .horizontalResolution = 72,
                                              .verticalResolution = 72,
                                              .frameCount = 1,
                                              .depth = 24};
  const QiroK7MAudioSampleDescInfo tone = {
      .sampleRate = kSampleRate, .channelCount = kChannels, .sampleSize = 16};
  QiroK7MDataBuffer noHeader = {0};
  QiroK7MSampleDescriptor* descriptor;
  const QiroK7MError code = QiroK7MWriterAddVideoSampleDescriptorWithType(
      writer, video, kRawRgb, &picture, &noHeader, &descriptor);
  if (code != kQiroK7MErrorNone) return code;
  return QiroK7MWriterAddAudioSampleDescriptorWithType(writer, sound, kPcm, &tone, &noHeader,
                                                       &descriptor);
}

/* The bytes belong to the caller all the time, so there is nothing to be released. */
static QiroK7MError AddSample(QiroK7MWriter* writer, QiroK7MTrack* track, uint32_t mediaType,
                              uint32_t timeScale, uint64_t time, unsigned char* bytes,
                              uint32_t size) {
  const QiroK7MSampleInfo info = {.sampleSize = size,
                                  .timeStamp = time,
                                  .timeScale = timeScale,
                                  .mediaType = mediaType,
                                  .flags = kQiroK7MSampleFlagKey};
  QiroK7MDataBuffer buffer = {.length = size, .data = bytes};
  return QiroK7MWriterAddSample(writer, track, &info, &buffer);
}

/* How long the last sample of a fragment lasts is written when the track's next sample comes.
   Behind the last one of all comes a gap that nothing follows. */
static QiroK7MError EndTrack(QiroK7MWriter* writer, QiroK7MTrack* track, uint32_t mediaType,
                             uint32_t timeScale, uint64_t end) {
  const QiroK7MSampleInfo gap = {.timeStamp = end,
                                 .timeScale = timeScale,
                                 .mediaType = mediaType,
                                 .flags = kQiroK7MSampleFlagGap};
  return QiroK7MWriterAddSample(writer, track, &gap, NULL);
}

static int WriteMovie(QiroK7MWriter* writer) {
  static unsigned char frame[kFrameSize];
  static unsigned char tone[kToneSize];
  QiroK7MTrack* video;
  QiroK7MTrack* sound;
  TRY(AddTrack(writer, kVideo, kFrameRate, &video));
  TRY(AddTrack(writer, kSound, kSampleRate, &sound));
  TRY(Describe(writer, video, sound));
  MakeTone(tone);
  for (int i = 0; i < kFrameCount; ++i) {
    if (i > 0 && i % kFramesPerFragment == 0) TRY(QiroK7MWriterFlush(writer));
    DrawFrame(frame, i);
    TRY(AddSample(writer, video, kVideo, kFrameRate, (uint64_t)i, frame, kFrameSize));
    TRY(AddSample(writer, sound, kSound, kSampleRate, (uint64_t)i * kTonesPerFrame, tone,
                  kToneSize));
  }
  TRY(EndTrack(writer, video, kVideo, kFrameRate, kFrameCount));
  TRY(EndTrack(writer, sound, kSound, kSampleRate, (uint64_t)kFrameCount * kTonesPerFrame));
  TRY(QiroK7MCloseWriter(writer));
  return 0;
}

int main(int argc, char** argv) {
  FILE* file = argc == 2 ? fopen(argv[1], "w+b") : NULL;
  if (file == NULL) {
    fprintf(stderr, "usage: write_fragmented OUT.mov\n");
    return 2;
  }
  const QiroK7MIOStreamCallBacks stream = StdioOutput(file);
  const QiroK7MDocInfo info = {.creationTime = kToday,
                               .modificationTime = kToday,
                               .playRate = 1,
                               .volume = 1,
                               .timeScale = 1000,
                               .isFragmented = 1};
  const QiroK7MAllocatorCallBacks memory = {.size = sizeof memory}; /* The library's own. */
  QiroK7MWriter* writer;
  TRY(QiroK7MDocCreateNew(&stream, &info, &memory, &writer));
  const int result = WriteMovie(writer);
  QiroK7MDestroyWriter(writer);
  return fclose(file) == 0 ? result : 1;
}

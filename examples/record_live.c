/* Records a live source that never ends into a K7R file, a fragment a second. The program may be
   killed at any moment: started again with the same file, it keeps every fragment that was written
   whole and goes on behind it.

   usage: record_live FILE.k7r [FRAGMENTS [MILLISECONDS]]

   FRAGMENTS: how many to record, 0 for no end. MILLISECONDS: how long the source takes for one. */
#define _POSIX_C_SOURCE 200809L /* nanosleep() */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "k7m/k7m.h"
#include "stdio_stream.h"

enum {
  kWidth = 16,
  kHeight = 16,
  kFrameRate = 25,
  kTimeScale = 1000,
  kFrameTicks = kTimeScale / kFrameRate,
  kFrameSize = kWidth * kHeight * 3,
  kMessageHeaderSize = 11,
  kMaxRestarts = 1000,
  kMaxHeadSize = 64 * 1024, /* More than the boxes in front of the first fragment take. */
  kVideo = 0x76696465,      /* 'vide' */
  kHint = 0x68696E74,       /* 'hint' */
  kRawRgb = 0x72617720      /* 'raw ': red, green, blue, 8 bits each, row by row */
};

/* A step that fails ends the recording; what was written whole is on the file all the same. */
#define TRY(call)                                                            \
  do {                                                                       \
    const QiroK7MError code = (call);                                        \
    if (code != kQiroK7MErrorNone) {                                         \
      fprintf(stderr, "%s: %s (%u)\n", #call, QiroK7MErrorText(code), code); \
      return code;                                                           \
    }                                                                        \
  } while (0)

typedef struct Recorder {
  FILE* file;
  QiroK7RWriter* k7r;
  QiroK7MWriter* writer; /* The same one, for the functions of all writers. */
  QiroK7MTrack* video;
  QiroK7MTrack* hint;
  uint64_t frameNumber; /* Of the next frame. */
} Recorder;

/* The edit list cannot grow later: every restart leaves a gap, which takes room in it. */
static QiroK7MError AddTracks(Recorder* recorder) {
  static const char kName[] = "record_live";
  const QiroK7MTrackInfo video = {.mediaType = kVideo,
                                  .flags = 7, /* Enabled, in the movie, in the preview. */
                                  .timeScale = kTimeScale,
                                  .width = kWidth,
                                  .height = kHeight,
                                  .language = "und",
                                  .handlerNameLength = sizeof kName};
  const QiroK7MTrackInfo hint = {.mediaType = kHint,
                                 .timeScale = kTimeScale,
                                 .language = "und",
                                 .handlerNameLength = sizeof kName};
  const QiroK7RHintTrackInfo protocol = {.size = sizeof protocol, .hintProtocol = 2};
  const QiroK7MTrackEntriesInfo entries = {
      .sampleDescriptorCount = 1, .gapCount = kMaxRestarts, .maxCodecHeaderDataLength = 12};
  TRY(QiroK7MWriterAddTrack(recorder->writer, &video, &entries, 0, kName, &recorder->video));
  TRY(QiroK7RWriterAddHintTrack(recorder->k7r, &protocol, &hint, &entries, 0, kName,
                                &recorder->video, 1, &recorder->hint));
  return kQiroK7MErrorNone;
}

/* The description of the hint track tells the time origin of the file: here 0. */
static QiroK7MError AddDescriptions(Recorder* recorder) {
  static unsigned char origin[12] = {0, 0, 0, 12, 'a', 'm', 't', 'o', 0, 0, 0, 0};
  const QiroK7MVideoSampleDescInfo picture = {.width = kWidth,
                                              .height = kHeight,
                                              .horizontalResolution = 72,
                                              .verticalResolution = 72,
                                              .frameCount = 1,
                                              .depth = 24};
  const QiroK7MVorpSampleDescInfo messages = {
      .hintTrackVersion = 1, .highestCompatibleVersion = 1, .maxPacketSize = 1400};
  QiroK7MDataBuffer noHeader = {0};
  QiroK7MDataBuffer extension = {.length = sizeof origin, .data = origin};
  QiroK7MSampleDescriptor* descriptor;
  TRY(QiroK7MWriterAddVideoSampleDescriptorWithType(recorder->writer, recorder->video, kRawRgb,
                                                    &picture, &noHeader, &descriptor));
  TRY(QiroK7MWriterAddVorpSampleDescriptor(recorder->writer, recorder->hint, &messages, &extension,
                                           &descriptor));
  return kQiroK7MErrorNone;
}

static QiroK7MError CreateNew(Recorder* recorder) {
  const QiroK7MIOStreamCallBacks stream = StdioOutput(recorder->file);
  const QiroK7MDocInfo info = {
      .isFragmented = 1, .playRate = 1, .volume = 1, .timeScale = kTimeScale};
  const QiroK7MAllocatorCallBacks memory = {.size = sizeof memory}; /* The library's own. */
  TRY(QiroK7RDocCreateNew(&stream, &info, &memory, &recorder->k7r));
  TRY(QiroK7RWriterGetK7MWriterRef(recorder->k7r, &recorder->writer));
  TRY(AddTracks(recorder));
  return AddDescriptions(recorder);
}

/* The tracks of the file are there; which description their next samples have must be said. */
static QiroK7MError TakeTrack(Recorder* recorder, QiroK7MTrack* track) {
  QiroK7MTrackInfo info;
  QiroK7MSampleDescriptorIterator* descriptors;
  QiroK7MSampleDescriptor* first;
  TRY(QiroK7MTrackGetInfo(track, &info));
  TRY(QiroK7MTrackGetSampleDescriptors(track, &descriptors));
  const QiroK7MError code = QiroK7MSampleDescriptorIteratorGetNextEntry(descriptors, &first);
  QiroK7MReleaseSampleDescriptorIterator(descriptors);
  if (code != kQiroK7MErrorNone) return code;
  TRY(QiroK7MWriterSetSampleDescriptor(recorder->writer, track, first));
  if (info.mediaType == kHint) {
    recorder->hint = track;
  } else {
    recorder->video = track;
  }
  return kQiroK7MErrorNone;
}

static QiroK7MError TakeTracks(Recorder* recorder) {
  QiroK7MTrackIterator* tracks;
  QiroK7MTrack* track = NULL;
  TRY(QiroK7MWriterGetTracks(recorder->writer, &tracks));
  QiroK7MError code = QiroK7MTrackIteratorGetNextEntry(tracks, &track);
  while (code == kQiroK7MErrorNone && track != NULL) {
    code = TakeTrack(recorder, track);
    if (code == kQiroK7MErrorNone) code = QiroK7MTrackIteratorGetNextEntry(tracks, &track);
  }
  QiroK7MReleaseTrackIterator(tracks);
  return code;
}

/* Whatever was cut short when the program was killed is cut off. The first new frame comes at the
   next whole frame time. */
static QiroK7MError Continue(Recorder* recorder) {
  const QiroK7MIOStreamCallBacks stream = StdioOutput(recorder->file);
  const QiroK7MAllocatorCallBacks memory = {.size = sizeof memory};
  QiroK7MDocInfo info;
  uint64_t lastFragment;
  const QiroK7MError code =
      QiroK7RDocOpenForAppend(&stream, &memory, &memory, UINT64_MAX, &lastFragment, &recorder->k7r);
  if (code != kQiroK7MErrorNone) return code;
  TRY(QiroK7RWriterGetK7MWriterRef(recorder->k7r, &recorder->writer));
  TRY(QiroK7MWriterGetDocInfo(recorder->writer, &info));
  recorder->frameNumber = (info.duration + kFrameTicks - 1) / kFrameTicks;
  printf("continuing at frame %llu\n", (unsigned long long)recorder->frameNumber);
  return TakeTracks(recorder);
}

/* A recording whose movie box is not whole holds no media yet: it is short, and may start over. Any
   other file is left alone. */
static int MayStartOver(FILE* file, QiroK7MError code) {
  const QiroK7MIStreamCallBacks stream = StdioInput(file);
  const QiroK7MAllocatorCallBacks memory = {.size = sizeof memory};
  uint32_t isK7M = 0;
  if (code != kQiroK7MErrorNoMovieBox && code != kQiroK7MErrorBoxTruncated &&
      code != kQiroK7MErrorAppendNotFragmented) {
    return 0;
  }
  if (fseek(file, 0, SEEK_END) != 0 || ftell(file) > kMaxHeadSize) return 0;
  if (ftell(file) == 0) return 1;
  return QiroK7MDocIsK7M(&stream, &memory, &isK7M) == kQiroK7MErrorNone && isK7M != 0;
}

static QiroK7MError Open(Recorder* recorder, const char* path) {
  recorder->file = fopen(path, "r+b");
  if (recorder->file != NULL) {
    const QiroK7MError code = Continue(recorder);
    if (code == kQiroK7MErrorNone || !MayStartOver(recorder->file, code)) {
      if (code != kQiroK7MErrorNone) fprintf(stderr, "%s\n", QiroK7MErrorText(code));
      return code;
    }
    fclose(recorder->file);
  }
  recorder->file = fopen(path, "w+b");
  return recorder->file == NULL ? kQiroK7MErrorUnknown : CreateNew(recorder);
}

static void FreeMessage(void* unused, void* message) {
  (void)unused;
  free(message);
}

/* A message of the protocol: its header, then the frame. The writer keeps it until the fragment is
   written and releases it whatever happens. */
static QiroK7MError AddFrame(Recorder* recorder, int isFirst) {
  const QiroK7MSampleInfo info = {.sampleSize = kMessageHeaderSize + kFrameSize,
                                  .timeStamp = recorder->frameNumber * kFrameTicks,
                                  .timeScale = kTimeScale,
                                  .mediaType = kHint,
                                  .flags = kQiroK7MSampleFlagKey};
  const QiroK7MHintSampleInfo media = {
      .size = sizeof media, .mediaOffset = kMessageHeaderSize, .mediaSize = kFrameSize};
  unsigned char* message = malloc(info.sampleSize);
  if (message == NULL) return kQiroK7MErrorOutOfMemory;
  memset(message, 9, kMessageHeaderSize);
  memset(message + kMessageHeaderSize, (int)(recorder->frameNumber % 256), kFrameSize);
  QiroK7MDataBuffer buffer = {.length = info.sampleSize, .data = message, .release = FreeMessage};
  TRY(QiroK7RWriterAddHintSample(recorder->k7r, recorder->hint, recorder->video, &buffer, &info,
                                 &media, isFirst));
  ++recorder->frameNumber;
  return kQiroK7MErrorNone;
}

/* A fragment is written by the flush, and is safe once the C library has handed it on. */
static QiroK7MError RecordFragment(Recorder* recorder, long milliseconds) {
  const struct timespec pause = {.tv_sec = milliseconds / 1000,
                                 .tv_nsec = milliseconds % 1000 * 1000000};
  uint64_t offset;
  TRY(QiroK7RWriterStartFragment(recorder->k7r, &offset));
  for (int i = 0; i < kFrameRate; ++i) {
    TRY(AddFrame(recorder, i == 0));
  }
  nanosleep(&pause, NULL); /* A real source delivers its frames in this time. */
  TRY(QiroK7MWriterFlush(recorder->writer));
  return fflush(recorder->file) == 0 ? kQiroK7MErrorNone : kQiroK7MErrorUnknown;
}

int main(int argc, char** argv) {
  if (argc < 2 || argc > 4) {
    fprintf(stderr, "usage: record_live FILE.k7r [FRAGMENTS [MILLISECONDS]]\n");
    return 2;
  }
  const long count = argc > 2 ? strtol(argv[2], NULL, 10) : 0;
  const long milliseconds = argc > 3 ? strtol(argv[3], NULL, 10) : 1000;
  Recorder recorder = {0};
  QiroK7MError code = Open(&recorder, argv[1]);
  for (long i = 0; code == kQiroK7MErrorNone && (count == 0 || i < count); ++i) {
    code = RecordFragment(&recorder, milliseconds);
  }
  if (code == kQiroK7MErrorNone) code = QiroK7RCloseWriter(recorder.k7r);
  QiroK7RDestroyWriter(recorder.k7r);
  if (recorder.file != NULL && fclose(recorder.file) != 0) return 1;
  return code == kQiroK7MErrorNone ? 0 : 1;
}

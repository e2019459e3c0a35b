/* Copies a document: its tracks, their descriptions, and all samples in the order of their times.

   usage: copy_movie IN OUT

   Times are those of the media; edit lists, which can shift them, are left to `k7m remux`. */
#include <stdio.h>
#include <stdlib.h>

#include "k7m/k7m.h"
#include "stdio_stream.h"

enum {
  kMaxTracks = 16,
  kMaxDescriptions = 16,
  kVideo = 0x76696465, /* 'vide' */
  kSound = 0x736F756E  /* 'soun' */
};

/* A track of the source and its copy, with their descriptions side by side. */
typedef struct TrackPair {
  QiroK7MTrack* source;
  QiroK7MTrack* copy;
  uint32_t descriptionCount;
  QiroK7MSampleDescriptor* sourceDescriptions[kMaxDescriptions];
  QiroK7MSampleDescriptor* copyDescriptions[kMaxDescriptions];
} TrackPair;

typedef struct Copy {
  QiroK7MReader* reader;
  QiroK7MWriter* writer;
  uint32_t trackCount;
  TrackPair tracks[kMaxTracks];
} Copy;

/* Leaves the function with the code of the step when that fails. */
#define TRY(call)                                     \
  do {                                                \
    const QiroK7MError result_ = (call);              \
    if (result_ != kQiroK7MErrorNone) return result_; \
  } while (0)

/* A buffer is given back by the library in this way, exactly once, whether its call succeeds or
 * not. */
static void Release(void* clientData, void* data) {
  (void)clientData;
  free(data);
}

static QiroK7MDataBuffer NewBuffer(uint32_t length) {
  /* At least one byte: malloc(0) may answer null. */
  QiroK7MDataBuffer buffer = {.length = length, .data = malloc(length + 1u), .release = Release};
  if (buffer.data == NULL) abort();
  return buffer;
}

static QiroK7MError CopyDescription(Copy* copy, TrackPair* track, QiroK7MSampleDescriptor* source,
                                    QiroK7MSampleDescriptor** result) {
  QiroK7MSampleDescInfo info;
  TRY(QiroK7MSampleDescriptorGetInfo(source, &info));
  QiroK7MVideoSampleDescInfo video;
  QiroK7MAudioSampleDescInfo audio;
  if (info.mediaType == kVideo) TRY(QiroK7MSampleDescriptorGetVideoInfo(source, &video));
  if (info.mediaType == kSound) TRY(QiroK7MSampleDescriptorGetAudioInfo(source, &audio));
  QiroK7MDataBuffer header = NewBuffer(info.codecHeaderDataLength);
  const QiroK7MError failure = QiroK7MSampleDescriptorCopyCodecHeaderData(source, header.data);
  if (failure != kQiroK7MErrorNone) {
    free(header.data);
    return failure;
  }
  if (info.mediaType == kVideo) {
    return QiroK7MWriterAddVideoSampleDescriptorWithType(copy->writer, track->copy, info.type,
                                                         &video, &header, result);
  }
  if (info.mediaType == kSound) {
    return QiroK7MWriterAddAudioSampleDescriptorWithType(copy->writer, track->copy, info.type,
                                                         &audio, &header, result);
  }
  return QiroK7MWriterAddSampleDescriptor(copy->writer, track->copy, &info, &header, result);
}

static QiroK7MError CopyDescriptions(Copy* copy, TrackPair* track) {
  QiroK7MSampleDescriptorIterator* iterator;
  QiroK7MSampleDescriptor* source;
  TRY(QiroK7MTrackGetSampleDescriptors(track->source, &iterator));
  QiroK7MError code = kQiroK7MErrorNone;
  while (code == kQiroK7MErrorNone) {
    code = QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &source);
    if (code != kQiroK7MErrorNone || source == NULL) break;
    if (track->descriptionCount == kMaxDescriptions) {
      code = kQiroK7MErrorSampleDescriptorLimit;
      break;
    }
    const uint32_t i = track->descriptionCount++;
    track->sourceDescriptions[i] = source;
    code = CopyDescription(copy, track, source, &track->copyDescriptions[i]);
  }
  QiroK7MReleaseSampleDescriptorIterator(iterator);
  return code;
}

/* The numbers that the reader tells are those that the writer has to know to reserve the space. */
static QiroK7MError CopyTrack(Copy* copy, QiroK7MTrack* source) {
  TrackPair* track = &copy->tracks[copy->trackCount++];
  QiroK7MTrackInfo info;
  QiroK7MTrackEntriesInfo entries;
  uint32_t sampleCount;
  track->source = source;
  TRY(QiroK7MTrackGetInfo(source, &info));
  TRY(QiroK7MTrackGetEntriesInfo(source, &entries));
  TRY(QiroK7MTrackGetSampleCount(source, &sampleCount));
  QiroK7MDataBuffer name = NewBuffer(info.handlerNameLength);
  QiroK7MError code = QiroK7MReaderCopyHandlerName(source, name.data);
  if (code == kQiroK7MErrorNone) {
    code =
        QiroK7MWriterAddTrack(copy->writer, &info, &entries, sampleCount, name.data, &track->copy);
  }
  free(name.data);
  return code != kQiroK7MErrorNone ? code : CopyDescriptions(copy, track);
}

static QiroK7MError CopyTracks(Copy* copy) {
  QiroK7MTrackIterator* iterator;
  QiroK7MTrack* source;
  TRY(QiroK7MReaderGetTracks(copy->reader, &iterator));
  QiroK7MError code = kQiroK7MErrorNone;
  while (code == kQiroK7MErrorNone) {
    code = QiroK7MTrackIteratorGetNextEntry(iterator, &source);
    if (code != kQiroK7MErrorNone || source == NULL) break;
    code = copy->trackCount < kMaxTracks ? CopyTrack(copy, source) : kQiroK7MErrorInvalidTrackId;
  }
  QiroK7MReleaseTrackIterator(iterator);
  return code;
}

/* The description of a sample has to be chosen before the sample is added. */
static QiroK7MError CopySample(Copy* copy, QiroK7MSample* sample) {
  QiroK7MSampleInfo info;
  QiroK7MTrack* source;
  QiroK7MSampleDescriptor* description;
  TRY(QiroK7MSampleGetInfo(sample, &info));
  TRY(QiroK7MSampleGetTrack(sample, &source));
  TRY(QiroK7MSampleGetSampleDescriptor(sample, &description));
  TrackPair* track = copy->tracks;
  while (track->source != source) ++track;
  for (uint32_t i = 0; i < track->descriptionCount; ++i) {
    if (track->sourceDescriptions[i] == description) {
      TRY(QiroK7MWriterSetSampleDescriptor(copy->writer, track->copy, track->copyDescriptions[i]));
    }
  }
  /* Sound usually has no table of key samples, for each of its samples is one. The copy has one. */
  if (info.mediaType == kSound) info.flags |= kQiroK7MSampleFlagKey;
  QiroK7MDataBuffer data = NewBuffer(info.sampleSize);
  const QiroK7MError code = QiroK7MSampleCopyData(sample, data.data);
  if (code != kQiroK7MErrorNone) {
    free(data.data);
    return code;
  }
  return QiroK7MWriterAddSample(copy->writer, track->copy, &info, &data);
}

static QiroK7MError CopySamples(Copy* copy) {
  QiroK7MSampleIterator* iterator;
  QiroK7MSample* sample;
  QiroK7MError code = QiroK7MReaderGetMediaSamples(copy->reader, NULL, 0, &iterator);
  if (code != kQiroK7MErrorNone) return code;
  while ((code = QiroK7MSampleIteratorGetNextEntry(iterator, &sample)) == kQiroK7MErrorNone &&
         sample != NULL) {
    code = CopySample(copy, sample);
    QiroK7MReleaseSample(sample);
    if (code != kQiroK7MErrorNone) break;
  }
  QiroK7MReleaseSampleIterator(iterator);
  return code;
}

static QiroK7MError CopyDocument(Copy* copy, const QiroK7MIStreamCallBacks* input,
                                 const QiroK7MIOStreamCallBacks* output) {
  const QiroK7MWarningHandlerCallBacks warnings = {.size = sizeof warnings}; /* All are ignored. */
  const QiroK7MAllocatorCallBacks memory = {.size = sizeof memory};
  QiroK7MDocInfo info;
  TRY(QiroK7MDocOpenForRead(input, &warnings, &memory, &copy->reader));
  TRY(QiroK7MReaderGetDocInfo(copy->reader, &info));
  TRY(QiroK7MDocCreateNew(output, &info, &memory, &copy->writer));
  TRY(CopyTracks(copy));
  TRY(CopySamples(copy));
  return QiroK7MCloseWriter(copy->writer);
}

int main(int argc, char** argv) {
  FILE* in = argc == 3 ? fopen(argv[1], "rb") : NULL;
  FILE* out = in != NULL ? fopen(argv[2], "w+b") : NULL;
  if (out == NULL) {
    fprintf(stderr, "usage: copy_movie IN OUT\n");
    return 2;
  }
  const QiroK7MIStreamCallBacks input = StdioInput(in);
  const QiroK7MIOStreamCallBacks output = StdioOutput(out);
  Copy copy = {0};
  const QiroK7MError code = CopyDocument(&copy, &input, &output);
  if (code != kQiroK7MErrorNone) fprintf(stderr, "copy_movie: %s\n", QiroK7MErrorText(code));
  QiroK7MDestroyWriter(copy.writer);
  QiroK7MCloseReader(copy.reader);
  fclose(in);
  return fclose(out) == 0 && code == kQiroK7MErrorNone ? 0 : 1;
}

/// @file reading_session.h
/// A file that uses every table, and what can be asked about it, for tests in which something
/// fails.
#ifndef K7M_TESTS_API_READING_SESSION_H
#define K7M_TESTS_API_READING_SESSION_H

#include <array>

#include "k7m/k7m.h"
#include "support/movie_builder.h"

namespace k7mtest {

inline const Bytes& MetadataPacket() {
  static const Bytes kPacket = Pattern(300, 5);
  return kPacket;
}

/// Two tracks with all tables, edits and a gap; stray boxes and the metadata box at the end.
inline Bytes SessionFile() {
  Track video{.samples = SomeSamples(6, 40)};
  for (size_t i = 0; i < video.samples.size(); ++i) {
    video.samples[i].compositionOffset = i % 2 == 0 ? 0 : 40;
    video.samples[i].isSync = i % 3 == 0;
    video.samples[i].dependency = static_cast<uint8_t>(i + 1);
  }
  video.samplesPerChunk = 2;
  video.edits = {{.segmentDuration = 50, .mediaTime = -1}, {.segmentDuration = 240}};
  Track audio{.handler = "soun", .samples = SomeSamples(5, 30, 9)};
  audio.has64BitOffsets = true;
  Movie movie;
  movie.tracks = {video, audio};
  movie.atEnd = Box("free", Bytes().Fill(30)) + UuidBox(kMetadataUuid, MetadataPacket());
  return BuildMovie(movie).bytes;
}

/// A fragmented document: a track with samples in the movie box and in two fragments behind the
/// first media box, so that nearly every question parses on; the metadata box at the end.
Bytes FragmentedSessionFile(const Bytes& moreInMoof = {});
/// The same with fragments of an unusual form, which are read box by box.
inline Bytes UnusualSessionFile() { return FragmentedSessionFile(Box("skip")); }

/// One question to a reader that can be asked again and again. Answers the first code that is not
/// 0.
struct Question {
  const char* name;
  QiroK7MError (*ask)(QiroK7MReader* reader);
};

/// Takes the first track without any allocation.
QiroK7MError FirstTrack(QiroK7MReader* reader, QiroK7MTrack** track);

/// Every function that uses memory or, in some document, the stream. A name is that of a function,
/// with a comma before anything else.
extern const std::array<Question, 16> kQuestions;

}  // namespace k7mtest

#endif

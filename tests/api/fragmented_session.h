/// @file fragmented_session.h
/// A fragmented file with everything that reading one can meet, for tests in which something fails.
#ifndef K7M_TESTS_API_FRAGMENTED_SESSION_H
#define K7M_TESTS_API_FRAGMENTED_SESSION_H

#include "reading_session.h"
#include "support/fragment_builder.h"

namespace k7mtest {

/// Two tracks with samples in the movie box and in four fragments, one of them before the movie box
/// when `hasFragmentAhead`; edits, a gap, several runs and track fragments, start times, a fragment
/// without a track, stray boxes and the metadata box at the end. All data can be read.
inline Bytes RichFragmentedFile(bool hasFragmentAhead = false) {
  Movie movie =
      FragmentedMovie({{.samples = SomeSamples(3, 40),
                        .edits = {{.segmentDuration = 50, .mediaTime = -1},
                                  {.segmentDuration = 400, .mediaTime = 20},
                                  {.segmentDuration = 100}}},
                       {.handler = "soun", .samples = SomeSamples(2, 30), .duration = 900}},
                      {.duration = 20, .size = 6});
  const Bytes ahead =
      hasFragmentAhead ? Moof(Traf(0, Tfhd{.trackId = 2}, FullBox("trun", 0, 0, Trun{}))) : Bytes();
  for (Track& track : movie.tracks) {
    track.chunkOffsets = [shift = ahead.Size()](const std::vector<uint64_t>& offsets) {
      Stco stco;
      for (const uint64_t offset : offsets) {
        stco.offsets.push_back(static_cast<uint32_t>(shift + offset));
      }
      return FullBox("stco", 0, 0, stco);
    };
  }
  const uint64_t media = ahead.Size() + BuildMovie(movie).bytes.Size() + 8;
  const Tfhd video{.baseDataOffset = media};
  const Tfhd sound{.trackId = 2, .baseDataOffset = media + 5};
  const Trun records{.dataOffset = 7, .samples = {{30, 8, 0x01010000, 9}, {10, 5, 0, 0}}};
  const Bytes fragments =
      Moof(Traf(kTfhdBase, video, FullBox("tfdt", 1, 0, Tfdt{.time = 120}),
                FullBox("trun", 0, 0xF01, records), DefaultRun(2)),
           Traf(kTfhdBase, sound, DefaultRun(4))) +
      Box("free", Bytes().Fill(9)) + Moof(Traf(kTfhdBase, sound, DefaultRun(5))) + Moof() +
      Moof(Traf(kTfhdBase, video, DefaultRun(3)), Traf(kTfhdBase, video, DefaultRun(7)),
           Traf(kTfhdBase, sound, DefaultRun(1)));
  movie.atEnd = Box("mdat", Pattern(60)) + fragments + UuidBox(kMetadataUuid, MetadataPacket());
  return ahead + BuildMovie(movie).bytes;
}

}  // namespace k7mtest

#endif

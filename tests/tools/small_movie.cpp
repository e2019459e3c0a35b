#include "small_movie.h"

namespace k7mtest {

Movie SmallMovie() {
  Track video;
  video.handlerName = std::string("Pictures\0", 9);
  video.samples = SomeSamples(5, 40);
  video.samplesPerChunk = 2;
  video.width = 64 << 16;
  video.height = 48 << 16;
  for (size_t i = 0; i < video.samples.size(); ++i) {
    video.samples[i].isSync = i % 3 == 0;
    video.samples[i].dependency = i % 3 == 0 ? 0x20 : 0x18;
    video.samples[i].description = i < 3 ? 1 : 2;
  }
  video.samples[1].compositionOffset = 80;
  video.samples[2].compositionOffset = static_cast<uint32_t>(-40);
  video.descriptions = {VideoEntry("avc1"),
                        VideoEntry("hvc1", {.width = 32, .codecHeader = SecondCodecHeader()})};
  Track sound;
  sound.handler = "soun";
  sound.handlerName = std::string("Sounds\0", 7);
  sound.samples = SomeSamples(10, 20, 7);
  sound.volume = 0x0100;
  return Movie{.tracks = {video, sound}};
}

Bytes SmallFile() { return BuildMovie(SmallMovie()).bytes; }

Bytes SecondCodecHeader() { return Box("hvcC", Bytes{1, 2, 3, 4, 5}); }

Bytes MetadataBox(const Bytes& packet) { return UuidBox(kMetadataUuid, packet); }

}  // namespace k7mtest

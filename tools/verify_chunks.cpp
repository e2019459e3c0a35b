// Where the chunks put the samples of a track.
#include <algorithm>

#include "text_format.h"
#include "verify_tables.h"

namespace qiro::k7m::tool {
namespace {

class ChunkWalk {
 public:
  ChunkWalk(const SampleTables& tables, uint32_t trackIndex, Verification* all)
      : tables_(tables),
        trackIndex_(trackIndex),
        track_(all->movie.tracks[trackIndex]),
        all_(*all),
        clock_(&all->file, tables.times) {}

  void Run() {
    const VerifiedTable& map = tables_.chunkMap;
    uint64_t run = 0;
    for (uint64_t chunk = 0; chunk < tables_.chunks.count; ++chunk) {
      while (run + 1 < map.count && all_.file.U32At(map.Place(run + 1)) <= chunk + 1) ++run;
      if (run >= map.count || index_ >= tables_.sampleCount) return;
      const uint64_t count =
          std::min<uint64_t>(all_.file.U32At(map.Place(run) + 4), tables_.sampleCount - index_);
      Take(chunk, count);
    }
  }

 private:
  double Seconds() const {
    return track_.timeScale == 0 ? 0 : static_cast<double>(clock_.Now()) / track_.timeScale;
  }

  void Take(uint64_t chunk, uint64_t count) {
    const uint64_t place = tables_.chunks.Place(chunk);
    const uint64_t begin = all_.file.At(place, tables_.chunks.stride);
    const uint64_t end = SumOf(begin, SizeOfSamples(count));
    Extent extent{.begin = begin, .end = end, .seconds = Seconds(), .track = trackIndex_};
    if (end > all_.file.Length() && count > 0 && !track_.hasMediaElsewhere) {
      all_.findings.Add(kSamplePastEnd, tables_.chunks.box, place, [&] {
        return "chunk " + std::to_string(chunk + 1) + " with " + SamplesText(index_, count) +
               " runs from byte " + std::to_string(begin) + " to " + std::to_string(end) +
               ", the file has " + std::to_string(all_.file.Length());
      });
    }
    clock_.Advance(count);
    extent.endSeconds = Seconds();
    index_ += count;
    if (!track_.hasMediaElsewhere) all_.extents.Add(extent);
  }

  uint64_t SizeOfSamples(uint64_t count) {
    if (tables_.equalSize != 0) return count * tables_.equalSize;
    uint64_t sum = 0;
    for (uint64_t i = index_; i < index_ + count; ++i) {
      const uint32_t size = all_.file.U32At(tables_.sizes.Place(i));
      sum += size;
      if (size > 0) continue;
      all_.findings.Add(kSampleEmpty, tables_.sizes.box, tables_.sizes.Place(i),
                        [&] { return SamplesText(i, 1) + " has no bytes"; });
    }
    return sum;
  }

  const SampleTables& tables_;
  uint32_t trackIndex_;
  const VerifiedTrack& track_;
  Verification& all_;
  DecodeClock clock_;
  uint64_t index_ = 0;  // Of the next sample.
};

}  // namespace

void CheckChunks(const SampleTables& tables, uint32_t trackIndex, Verification* all) {
  ChunkWalk(tables, trackIndex, all).Run();
}

}  // namespace qiro::k7m::tool

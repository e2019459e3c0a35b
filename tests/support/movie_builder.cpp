#include "movie_builder.h"

#include <algorithm>

namespace k7mtest {

namespace {

struct Chunk {
  size_t firstSample = 0;
  size_t count = 0;
  uint32_t description = 1;
  uint64_t offset = 0;
};

/// A generated box, unless the replacements hold one of its code.
Bytes OrReplacement(const Replacements& replace, const std::string& code, const Bytes& generated) {
  const auto found = replace.find(code);
  return found != replace.end() ? found->second : generated;
}

std::vector<Chunk> ChunksOf(const Track& track) {
  std::vector<Chunk> chunks;
  for (size_t i = 0; i < track.samples.size(); ++i) {
    const uint32_t description = track.samples[i].description;
    if (chunks.empty() || chunks.back().count == track.samplesPerChunk ||
        chunks.back().description != description) {
      chunks.push_back({i, 0, description, 0});
    }
    ++chunks.back().count;
  }
  return chunks;
}

Bytes TimeTable(const Track& track) {
  Stts stts;
  for (const TestSample& sample : track.samples) {
    if (stts.runs.empty() || stts.runs.back().delta != sample.delta) {
      stts.runs.push_back({0, sample.delta});
    }
    ++stts.runs.back().count;
  }
  return FullBox("stts", 0, 0, stts);
}

Bytes CompositionTable(const Track& track) {
  Ctts ctts;
  bool isNeeded = track.hasCtts;
  for (const TestSample& sample : track.samples) {
    isNeeded |= sample.compositionOffset != 0;
    if (ctts.runs.empty() || ctts.runs.back().offset != sample.compositionOffset) {
      ctts.runs.push_back({0, sample.compositionOffset});
    }
    ++ctts.runs.back().count;
  }
  return isNeeded ? FullBox("ctts", 0, 0, ctts) : Bytes();
}

Bytes SyncTable(const Track& track) {
  Stss stss;
  for (size_t i = 0; i < track.samples.size(); ++i) {
    if (track.samples[i].isSync) stss.numbers.push_back(static_cast<uint32_t>(i + 1));
  }
  const bool isNeeded = track.hasStss || stss.numbers.size() != track.samples.size();
  return isNeeded ? FullBox("stss", 0, 0, stss) : Bytes();
}

Bytes DependencyTable(const Track& track) {
  Sdtp sdtp;
  bool isNeeded = track.hasSdtp;
  for (const TestSample& sample : track.samples) {
    isNeeded |= sample.dependency != 0;
    sdtp.values.push_back(sample.dependency);
  }
  return isNeeded ? FullBox("sdtp", 0, 0, sdtp) : Bytes();
}

Bytes SizeTable(const Track& track) {
  Stsz stsz;
  if (track.hasConstantSize) {
    stsz.constantSize =
        track.samples.empty() ? 0 : static_cast<uint32_t>(track.samples[0].data.Size());
    stsz.count = static_cast<uint32_t>(track.samples.size());
  } else {
    for (const TestSample& sample : track.samples) {
      stsz.sizes.push_back(static_cast<uint32_t>(sample.data.Size()));
    }
  }
  return FullBox("stsz", 0, 0, stsz);
}

Bytes ChunkMap(const std::vector<Chunk>& chunks) {
  Stsc stsc;
  for (size_t i = 0; i < chunks.size(); ++i) {
    const auto samples = static_cast<uint32_t>(chunks[i].count);
    if (stsc.runs.empty() || stsc.runs.back().samplesPerChunk != samples ||
        stsc.runs.back().description != chunks[i].description) {
      stsc.runs.push_back({static_cast<uint32_t>(i + 1), samples, chunks[i].description});
    }
  }
  return FullBox("stsc", 0, 0, stsc);
}

Bytes ChunkOffsets(const Track& track, const std::vector<Chunk>& chunks) {
  std::vector<uint64_t> offsets;
  for (const Chunk& chunk : chunks) offsets.push_back(chunk.offset);
  if (track.chunkOffsets) return track.chunkOffsets(offsets);
  if (track.has64BitOffsets) return FullBox("co64", 0, 0, Co64{.offsets = offsets});
  Stco stco;
  for (const uint64_t offset : offsets) stco.offsets.push_back(static_cast<uint32_t>(offset));
  return FullBox("stco", 0, 0, stco);
}

Bytes DefaultDescription(const std::string& handler) {
  if (handler == "vide") return VideoEntry();
  if (handler == "soun") return AudioEntry();
  if (handler == "hint") return VorpEntry();
  return OtherEntry();
}

Bytes MediaHeader(const std::string& handler) {
  if (handler == "vide") return FullBox("vmhd", 0, 1, Vmhd{});
  if (handler == "soun") return FullBox("smhd", 0, 0, Smhd{});
  return FullBox("nmhd", 0, 0);
}

uint64_t MediaDuration(const Track& track) {
  uint64_t duration = 0;
  for (const TestSample& sample : track.samples) duration += sample.delta;
  return duration;
}

uint64_t TrackDuration(const Track& track, uint32_t movieScale) {
  if (track.duration) return *track.duration;
  return track.timeScale == 0 ? 0 : MediaDuration(track) * movieScale / track.timeScale;
}

Bytes SampleTable(const Track& track, const std::vector<Chunk>& chunks) {
  const auto box = [&](const char* code, const Bytes& generated) {
    return OrReplacement(track.replace, code, generated);
  };
  Stsd stsd{.entries = track.descriptions};
  if (stsd.entries.empty()) stsd.entries.push_back(DefaultDescription(track.handler));
  const Bytes offsets = ChunkOffsets(track, chunks);
  const char* offsetCode = track.has64BitOffsets ? "co64" : "stco";
  return box("stbl",
             Box("stbl", box("stsd", FullBox("stsd", 0, 0, stsd)), box("stts", TimeTable(track)),
                 box("ctts", CompositionTable(track)), box("stss", SyncTable(track)),
                 box("sdtp", DependencyTable(track)), box("stsc", ChunkMap(chunks)),
                 box("stsz", SizeTable(track)), box(offsetCode, offsets), track.moreInStbl));
}

Bytes TrackBox(const Track& track, uint32_t id, uint32_t movieScale,
               const std::vector<Chunk>& chunks) {
  const auto box = [&](const char* code, const Bytes& generated) {
    return OrReplacement(track.replace, code, generated);
  };
  const Bytes tkhd = FullBox("tkhd", 1, track.flags,
                             Tkhd{.trackId = id,
                                  .duration = TrackDuration(track, movieScale),
                                  .volume = track.volume,
                                  .width = track.width,
                                  .height = track.height});
  const Bytes elst = FullBox("elst", 1, 0, Elst{.entries = track.edits});
  const Bytes edts = track.edits.empty() ? Bytes() : Box("edts", box("elst", elst));
  const Bytes mdhd =
      FullBox("mdhd", 1, 0, Mdhd{.timeScale = track.timeScale, .duration = MediaDuration(track)});
  const Bytes hdlr = FullBox("hdlr", 0, 0, Hdlr{.type = track.handler, .name = track.handlerName});
  const Bytes minf =
      Box("minf", box("mediaheader", MediaHeader(track.handler)),
          box("dinf", Box("dinf", FullBox("dref", 0, 0, Dref{}))), SampleTable(track, chunks));
  const Bytes mdia = Box("mdia", box("mdhd", mdhd), box("hdlr", hdlr), box("minf", minf));
  return Box("trak", box("tkhd", tkhd), box("edts", edts), box("mdia", mdia), track.moreInTrak);
}

/// Gives every chunk its offset and returns the media bytes.
Bytes LayOut(const Movie& movie, std::vector<std::vector<Chunk>>& chunks, uint64_t start) {
  Bytes media;
  size_t longest = 0;
  for (const auto& list : chunks) longest = std::max(longest, list.size());
  for (size_t index = 0; index < longest; ++index) {
    for (size_t t = 0; t < chunks.size(); ++t) {
      if (index >= chunks[t].size()) continue;
      Chunk& chunk = chunks[t][index];
      chunk.offset = start + media.Size();
      for (size_t i = 0; i < chunk.count; ++i) {
        media.Append(movie.tracks[t].samples[chunk.firstSample + i].data);
      }
    }
  }
  return media;
}

Bytes MovieBox(const Movie& movie, const std::vector<std::vector<Chunk>>& chunks) {
  uint64_t longest = 0;
  Bytes traks;
  for (size_t t = 0; t < movie.tracks.size(); ++t) {
    const Track& track = movie.tracks[t];
    longest = std::max(longest, TrackDuration(track, movie.timeScale));
    const uint32_t id = track.id != 0 ? track.id : static_cast<uint32_t>(t + 1);
    traks.Append(TrackBox(track, id, movie.timeScale, chunks[t]));
  }
  const Bytes mvhd = FullBox("mvhd", 1, 0,
                             Mvhd{.timeScale = movie.timeScale,
                                  .duration = movie.duration.value_or(longest),
                                  .nextTrackId = static_cast<uint32_t>(movie.tracks.size() + 1)});
  return Box("moov", OrReplacement(movie.replace, "mvhd", mvhd), traks, movie.moreInMoov);
}

}  // namespace

MovieFile BuildMovie(const Movie& movie) {
  std::vector<std::vector<Chunk>> chunks;
  for (const Track& track : movie.tracks) chunks.push_back(ChunksOf(track));
  const Bytes ftyp = OrReplacement(movie.replace, "ftyp", Box("ftyp", Ftyp{}));
  const uint64_t moovSize = MovieBox(movie, chunks).Size();  // Does not depend on the offsets.

  MovieFile file;
  if (movie.isMovieBoxLast) {
    file.mdatOffset = ftyp.Size();
  } else {
    file.movieOffset = ftyp.Size();
    file.mdatOffset = ftyp.Size() + moovSize + movie.betweenBoxes.Size();
  }
  const uint64_t mediaStart = file.mdatOffset + (movie.hasLargeMdat ? 16 : 8);
  const Bytes media = LayOut(movie, chunks, mediaStart);
  const Bytes moov = MovieBox(movie, chunks);
  const Bytes mdat = movie.hasLargeMdat ? LargeBox("mdat", media) : Box("mdat", media);
  if (movie.isMovieBoxLast) {
    file.movieOffset = ftyp.Size() + mdat.Size() + movie.betweenBoxes.Size();
    file.bytes = ftyp + mdat + movie.betweenBoxes + moov + movie.atEnd;
  } else {
    file.bytes = ftyp + moov + movie.betweenBoxes + mdat + movie.atEnd;
  }
  for (size_t t = 0; t < chunks.size(); ++t) {
    file.sampleOffsets.emplace_back();
    for (const Chunk& chunk : chunks[t]) {
      uint64_t offset = chunk.offset;
      for (size_t i = 0; i < chunk.count; ++i) {
        file.sampleOffsets.back().push_back(offset);
        offset += movie.tracks[t].samples[chunk.firstSample + i].data.Size();
      }
    }
  }
  return file;
}

std::vector<TestSample> SomeSamples(size_t count, uint32_t delta, uint32_t seed) {
  std::vector<TestSample> samples;
  for (size_t i = 0; i < count; ++i) {
    samples.push_back(SampleOf(i + 5, delta, seed * 1000 + static_cast<uint32_t>(i)));
  }
  return samples;
}

}  // namespace k7mtest

/// `k7m info`: what a document and its tracks say about themselves.
#include "info_facts.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "command.h"
#include "document.h"
#include "fragment_count.h"
#include "messages.h"
#include "metadata_packet.h"

namespace qiro::k7m::tool {
namespace {

struct InfoOptions {
  InputOptions input;
  bool asJson = false;
  bool countsFragments = false;
};

std::string HandlerName(const Document& document, const Track& track) {
  std::string name(track.info.handlerNameLength, '\0');
  if (!name.empty()) document.Check(QiroK7MReaderCopyHandlerName(track.handle, name.data()));
  while (!name.empty() && name.back() == '\0') name.pop_back();
  return name;
}

DescriptionFacts DescriptionOf(const Document& document, QiroK7MSampleDescriptor* descriptor) {
  DescriptionFacts facts;
  document.Check(QiroK7MSampleDescriptorGetInfo(descriptor, &facts.info));
  if (facts.info.mediaType == kVideo) {
    document.Check(QiroK7MSampleDescriptorGetVideoInfo(descriptor, &facts.video.emplace()));
  }
  if (facts.info.mediaType == kSound) {
    document.Check(QiroK7MSampleDescriptorGetAudioInfo(descriptor, &facts.audio.emplace()));
  }
  return facts;
}

// What is learnt from walking over all samples of a track.
struct SampleSums {
  uint64_t count = 0;
  uint64_t byteCount = 0;
  MediaTime first;
  MediaTime last;
  uint64_t lastStep = 0;  // Between the last two samples.

  void Add(const QiroK7MSampleInfo& info) {
    const uint64_t time = info.timeStamp;
    lastStep = count > 0 && time > last.value ? time - last.value : 0;
    last = {time, info.timeScale};
    if (count == 0) first = last;
    ++count;
    byteCount += info.sampleSize;
  }
};

// Bits per second over the time that the samples span. The last sample's own duration is not told;
// it is taken to be the average of the others.
std::optional<double> BitRate(const Track& track, const SampleSums& sums) {
  double seconds = Seconds({track.info.duration, track.info.timeScale});
  if (sums.count > 1) {
    const auto count = static_cast<double>(sums.count);
    seconds = (Seconds(sums.last) - Seconds(sums.first)) * count / (count - 1);
  }
  if (sums.count == 0 || seconds <= 0) return std::nullopt;
  return static_cast<double>(sums.byteCount) * 8 / seconds;
}

std::optional<uint64_t> DurationOfSamples(const Document& document, const Track& track,
                                          const SampleSums& sums) {
  if (!document.IsFragmented() || sums.count == 0) return std::nullopt;
  if (sums.last.value < sums.first.value) return std::nullopt;
  const uint64_t toLast = sums.last.value - sums.first.value;
  if (toLast < track.info.duration) return std::nullopt;
  return toLast + sums.lastStep;
}

void CountSamples(const Document& document, const Track& track, TrackFacts* facts) {
  uint32_t sampleCount = 0;
  document.Check(QiroK7MTrackGetSampleCount(track.handle, &sampleCount));
  facts->sampleCount = sampleCount;
  ProgressBar progress(sampleCount);
  SampleWalk walk = WalkMediaSamples(document, track);
  SampleSums sums;
  QiroK7MSampleInfo info;
  while (walk.Next(&info)) {
    sums.Add(info);
    // Counts in a file can promise what would take hours to walk.
    if (sums.byteCount > document.File().Length() || sums.count > document.File().Length()) {
      PrintTrackMessage(document.File().Path(), track.number,
                        "more sample data than the file holds; not counted");
      return;
    }
    progress.Advance();
  }
  facts->byteCount = sums.byteCount;
  facts->bitRate = BitRate(track, sums);
  facts->durationOfSamples = DurationOfSamples(document, track, sums);
}

// The movie lasts as long as its longest track.
std::optional<uint64_t> LongestOfSamples(const QiroK7MDocInfo& movie,
                                         const std::vector<TrackFacts>& tracks) {
  std::optional<uint64_t> longest;
  for (const TrackFacts& track : tracks) {
    if (!track.durationOfSamples || track.info.timeScale == 0) continue;
    const double inMovieScale = Seconds(track.Duration()) * movie.timeScale + 0.5;
    if (inMovieScale < 0x1p63) {
      longest = std::max(longest.value_or(movie.duration), static_cast<uint64_t>(inMovieScale));
    }
  }
  return longest;
}

TrackFacts FactsOf(const Document& document, const Track& track) {
  TrackFacts facts;
  facts.number = track.number;
  facts.info = track.info;
  facts.handlerName = HandlerName(document, track);
  document.Check(QiroK7MTrackGetEntriesInfo(track.handle, &facts.entries));
  document.Check(QiroK7MTrackGetEditCount(track.handle, &facts.editCount));
  for (QiroK7MSampleDescriptor* descriptor : track.descriptors) {
    facts.descriptions.push_back(DescriptionOf(document, descriptor));
  }
  return facts;
}

// The fragments stand all over the file, so that nearly each of them would cost a request.
bool SkipsFragments(const InfoOptions& options, const Document& document) {
  return !options.countsFragments && document.File().Source()->IsRemote() &&
         document.IsFragmented();
}

void RunInfo(const InfoOptions& options, Output& out) {
  const Document document(options.input);
  DocumentFacts facts;
  facts.path = options.input.path;
  facts.areFragmentsSkipped = SkipsFragments(options, document);
  // The samples come last and their failures are put off, so that a file with a broken track still
  // shows everything else.
  std::optional<Failure> failure;
  const auto attempt = [&failure](const auto& step) {
    try {
      step();
    } catch (const Failure& thrown) {
      if (!failure) failure = thrown;
    }
  };
  attempt([&] {
    QiroK7MDocInfo info;
    document.Check(QiroK7MReaderGetDocInfo(document.Reader(), &info));
    facts.info = info;
    if (facts.areFragmentsSkipped) return;
    facts.fragmentCount = info.isFragmented != 0 ? CountFragments(document.File()) : 0;
  });
  attempt([&] {
    // The library looks for it up to the end of the file.
    if (facts.areFragmentsSkipped && !HasPacketBeforeMedia(document.File())) return;
    uint32_t length = 0;
    document.Check(QiroK7MReaderGetUlbDataLength(document.Reader(), &length));
    facts.metadataLength = length;
  });
  for (const Track& track : document.Tracks()) {
    facts.tracks.push_back(FactsOf(document, track));
    if (facts.areFragmentsSkipped) continue;
    attempt([&] { CountSamples(document, track, &facts.tracks.back()); });
  }
  if (facts.info) facts.durationOfSamples = LongestOfSamples(*facts.info, facts.tracks);
  out.Write(options.asJson ? JsonText(InfoJson(facts)) : InfoText(facts));
  if (failure) throw Failure(*failure);
}

}  // namespace

void AddInfoCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* command = AddCommand(program, "info", "Show the document and its tracks",
                                 "k7m info clip.mp4 --json", options, RunInfo, chosen);
  AddInputOptions(command, &options->input);
  command->add_flag("--json", options->asJson, "Print JSON");
  command->add_flag("--count-fragments", options->countsFragments,
                    "Count the fragments and their samples also in a file on a server, which takes "
                    "about a request for each; files of this machine are always counted");
}

}  // namespace qiro::k7m::tool

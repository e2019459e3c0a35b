/// `k7m samples`: one line for each sample, in the order in which the library delivers them.
#include <optional>

#include "command.h"
#include "document.h"
#include "media_time.h"
#include "messages.h"
#include "presentation.h"
#include "sample_lines.h"
#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

struct SamplesOptions {
  InputOptions input;
  std::vector<uint32_t> trackNumbers;
  std::vector<std::string> mediaTypes;
  std::string from;
  std::string to;
  bool asMedia = false;
  bool asJson = false;
  bool asCsv = false;
};

std::vector<const Track*> SelectTracks(const Document& document, const SamplesOptions& options) {
  std::vector<const Track*> tracks;
  for (const uint32_t number : options.trackNumbers) {
    tracks.push_back(&document.TrackByNumber(number));
  }
  if (!tracks.empty()) return tracks;
  for (const Track& track : document.Tracks()) {
    bool isWanted = options.mediaTypes.empty();
    for (const std::string& type : options.mediaTypes) {
      isWanted = isWanted || FourCharacterCode(type) == track.info.mediaType;
    }
    if (isWanted) tracks.push_back(&track);
  }
  return tracks;
}

SampleFacts FactsOf(const Document& document, QiroK7MSample* sample,
                    const QiroK7MSampleInfo& info) {
  QiroK7MTrack* handle = nullptr;
  document.Check(QiroK7MSampleGetTrack(sample, &handle));
  QiroK7MSampleDescriptor* descriptor = nullptr;
  document.Check(QiroK7MSampleGetSampleDescriptor(sample, &descriptor));
  SampleFacts facts;
  facts.track = document.TrackByHandle(handle).number;
  facts.time = {info.timeStamp, info.timeScale};
  // Stored as an unsigned number, meant as a signed one.
  facts.compositionOffset = static_cast<int32_t>(info.compositionOffset);
  facts.size = info.sampleSize;
  const uint32_t kind = info.flags & kQiroK7MSampleFlagKindMask;
  facts.isKey = kind == kQiroK7MSampleFlagKey;
  facts.isGap = kind == kQiroK7MSampleFlagGap;
  facts.description = document.DescriptionNumber(descriptor);
  facts.dependency = (info.flags & kQiroK7MSampleDependencyMask) >> kQiroK7MSampleDependencyShift;
  return facts;
}

std::optional<MediaTime> TimeOption(const std::string& text) {
  if (text.empty()) return std::nullopt;
  return ParseSeconds(text);
}

uint64_t CountSamples(const std::vector<const Track*>& tracks) {
  uint64_t sum = 0;
  for (const Track* track : tracks) {
    uint32_t count = 0;
    // Only the progress bar depends on it.
    if (QiroK7MTrackGetSampleCount(track->handle, &count) == kQiroK7MErrorNone) sum += count;
  }
  return sum;
}

SampleForm FormOf(const SamplesOptions& options) {
  if (options.asJson) return SampleForm::kJson;
  return options.asCsv ? SampleForm::kCsv : SampleForm::kTable;
}

SampleWalk WalkMedia(const Document& document, const std::vector<const Track*>& tracks) {
  std::vector<QiroK7MTrack*> handles;
  handles.reserve(tracks.size());
  for (const Track* track : tracks) handles.push_back(track->handle);
  return WalkMediaSamples(document, handles);
}

// Nothing finds the begin of a range on the media timeline; its end belongs to it.
bool IsInRange(const SampleFacts& facts, const TimeRange& range, bool* isPastEnd) {
  if (facts.time.scale == 0) return true;
  *isPastEnd = range.to && IsEarlier(*range.to, facts.time);
  return !*isPastEnd && !(range.from && IsEarlier(facts.time, *range.from));
}

template <class Walk>
void ListSamples(const Document& document, const std::vector<const Track*>& tracks, Walk walk,
                 const TimeRange& range, const SamplesOptions& options, Output& out) {
  // Where the lines run over a terminal they show the progress themselves.
  ProgressBar progress(out.IsTerminal() ? 0 : CountSamples(tracks));
  SampleLines lines(FormOf(options), out);
  QiroK7MSampleInfo info;
  bool isPastEnd = false;
  while (const SampleHandle sample = isPastEnd ? nullptr : walk.Next(&info)) {
    progress.Advance();
    const SampleFacts facts = FactsOf(document, sample.get(), info);
    if (IsInRange(facts, range, &isPastEnd)) lines.Add(facts);
  }
}

void RunSamples(const SamplesOptions& options, Output& out) {
  const TimeRange range = {TimeOption(options.from), TimeOption(options.to)};
  if (range.from && range.to && IsEarlier(*range.to, *range.from)) {
    throw UsageFailure("--to lies before --from");
  }
  const Document document(options.input);
  const std::vector<const Track*> tracks = SelectTracks(document, options);
  if (options.asMedia) {
    ListSamples(document, tracks, WalkMedia(document, tracks), range, options, out);
  } else {
    ListSamples(document, tracks, PresentationWalk(document, tracks, range), {}, options, out);
  }
}

std::string CheckSeconds(const std::string& text) {
  return ParseSeconds(text) ? "" : "not a number of seconds: " + text;
}

std::string CheckType(const std::string& text) {
  return FourCharacterCode(text) != 0 ? "" : "a media type has four characters: " + text;
}

}  // namespace

void AddSamplesCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<SamplesOptions>();
  CLI::App* command = AddCommand(
      program, "samples", "List samples, one a line, in the order of decoding",
      "k7m samples clip.mp4 --type vide --from 10 --to 12.5 --csv", options, RunSamples, chosen);
  AddInputOptions(command, &options->input);
  CLI::Option* track =
      command->add_option("--track", options->trackNumbers, "Only this track, counted from 1")
          ->type_name("N")
          ->check(CheckNumber)
          ->allow_extra_args(false);
  command->add_option("--type", options->mediaTypes, "Only tracks of this media type: vide, soun")
      ->type_name("CODE")
      ->check(CheckType)
      ->allow_extra_args(false)
      ->excludes(track);
  command->add_option("--from", options->from, "Begin of the range, in seconds")
      ->type_name("SECONDS")
      ->check(CheckSeconds);
  command->add_option("--to", options->to, "End of the range, in seconds")
      ->type_name("SECONDS")
      ->check(CheckSeconds);
  command->add_flag("--media", options->asMedia,
                    "Samples as they lie in the file, without edit lists");
  CLI::Option* json = command->add_flag("--json", options->asJson, "Print JSON");
  command->add_flag("--csv", options->asCsv, "Print comma-separated values")->excludes(json);
}

}  // namespace qiro::k7m::tool

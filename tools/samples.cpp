/// `k7m samples`: one line for each sample, in the order in which the library delivers them.
#include <limits>
#include <optional>

#include "command.h"
#include "document.h"
#include "media_time.h"
#include "messages.h"
#include "sample_lines.h"
#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

constexpr MediaTime kLibraryEnd = {315360000, 1};  // Where the library's own "all samples" ends.

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

std::vector<QiroK7MTrack*> SelectTracks(const Document& document, const SamplesOptions& options) {
  std::vector<QiroK7MTrack*> handles;
  for (const uint32_t number : options.trackNumbers) {
    handles.push_back(document.TrackByNumber(number).handle);
  }
  if (!handles.empty()) return handles;
  for (const Track& track : document.Tracks()) {
    bool isWanted = options.mediaTypes.empty();
    for (const std::string& type : options.mediaTypes) {
      isWanted = isWanted || FourCharacterCode(type) == track.info.mediaType;
    }
    if (isWanted) handles.push_back(track.handle);
  }
  return handles;
}

// On the presentation timeline the library itself finds the begin of the range. A document without
// a movie header has no scale to fit the times to; the library then says what it thinks of that.
SampleWalk WalkPresentation(const Document& document, const std::vector<QiroK7MTrack*>& tracks,
                            std::optional<MediaTime> from, std::optional<MediaTime> to) {
  QiroK7MDocInfo info{};
  const bool hasHeader = QiroK7MReaderGetDocInfo(document.Reader(), &info) == kQiroK7MErrorNone;
  const uint32_t scale = hasHeader ? info.timeScale : 1;
  const MediaTime start = ShortenedFor(from.value_or(MediaTime{}), scale);
  const MediaTime end = ShortenedFor(to.value_or(kLibraryEnd), scale);
  QiroK7MSampleIterator* iterator = nullptr;
  document.Check(QiroK7MReaderGetSamplesByTracks(document.Reader(), start.scale, start.value,
                                                 end.scale, end.value, tracks.data(),
                                                 static_cast<uint32_t>(tracks.size()), &iterator));
  return SampleWalk(document, iterator);
}

SampleWalk WalkMedia(const Document& document, const std::vector<QiroK7MTrack*>& tracks) {
  // An array that is not null selects nothing when it is empty; a null one would select everything.
  QiroK7MTrack* const none = nullptr;
  QiroK7MTrack* const* const array = tracks.empty() ? &none : tracks.data();
  QiroK7MSampleIterator* iterator = nullptr;
  document.Check(QiroK7MReaderGetMediaSamples(document.Reader(), array,
                                              static_cast<uint32_t>(tracks.size()), &iterator));
  return SampleWalk(document, iterator);
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

uint64_t CountSamples(const std::vector<QiroK7MTrack*>& tracks) {
  uint64_t sum = 0;
  for (QiroK7MTrack* track : tracks) {
    uint32_t count = 0;
    // Only the progress bar depends on it.
    if (QiroK7MTrackGetSampleCount(track, &count) == kQiroK7MErrorNone) sum += count;
  }
  return sum;
}

SampleForm FormOf(const SamplesOptions& options) {
  if (options.asJson) return SampleForm::kJson;
  return options.asCsv ? SampleForm::kCsv : SampleForm::kTable;
}

void RunSamples(const SamplesOptions& options, Output& out) {
  const std::optional<MediaTime> from = TimeOption(options.from);
  const std::optional<MediaTime> to = TimeOption(options.to);
  if (from && to && IsEarlier(*to, *from)) throw UsageFailure("--to lies before --from");
  const Document document(options.input);
  const std::vector<QiroK7MTrack*> tracks = SelectTracks(document, options);
  SampleWalk walk =
      options.asMedia ? WalkMedia(document, tracks) : WalkPresentation(document, tracks, from, to);
  // Where the lines run over a terminal they show the progress themselves.
  ProgressBar progress(out.IsTerminal() ? 0 : CountSamples(tracks));
  SampleLines lines(FormOf(options), out);
  QiroK7MSampleInfo info;
  while (const SampleHandle sample = walk.Next(&info)) {
    progress.Advance();
    const SampleFacts facts = FactsOf(document, sample.get(), info);
    if (options.asMedia && facts.time.scale != 0) {
      if (from && IsEarlier(facts.time, *from)) continue;
      if (to && IsEarlier(*to, facts.time)) break;  // Those behind it are not earlier.
    }
    lines.Add(facts);
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

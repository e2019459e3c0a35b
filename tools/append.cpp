/// `k7m append`: a K7R file continued with a document.
#include <algorithm>
#include <charconv>
#include <exception>
#include <system_error>

#include "command.h"
#include "existing_file.h"
#include "local_file.h"
#include "media_types.h"
#include "messages.h"
#include "output_file.h"
#include "recording_cut.h"
#include "recording_end.h"
#include "recording_writer.h"
#include "remux_copy.h"
#include "remux_plan.h"
#include "track_match.h"

namespace qiro::k7m::tool {
namespace {

using Matches = std::vector<std::optional<TrackMatch>>;

struct AppendOptions {
  std::string recordingPath;
  InputOptions input;
  std::string fragmentLength = "1";  // In seconds.
  std::string keepLimit;             // Empty: all fragments are kept.
};

std::optional<uint64_t> ParseOffset(const std::string& text) {
  uint64_t offset = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, problem] = std::from_chars(text.data(), end, offset);
  if (problem != std::errc() || rest != end) return std::nullopt;
  return offset;
}

// Says what is wrong with the text, or nothing.
std::string CheckOffset(const std::string& text) {
  return ParseOffset(text) ? "" : "not an offset in bytes: " + text;
}

void RequireHintTrack(const Document& recording) {
  const auto& tracks = recording.Tracks();
  const bool hasHint = std::any_of(tracks.begin(), tracks.end(), [](const Track& track) {
    return track.info.mediaType == kHint;
  });
  if (hasHint) return;
  throw FileFailure(recording.File().Path(), "no K7R file: it has no hint track");
}

// Before anything is changed.
Matches MatchWithRecording(const Document& document, const RemuxPlan& plan,
                           const std::string& path) {
  InputOptions input;
  input.path = path;
  const Document recording(input, OpenLocalFile(path));
  RequireHintTrack(recording);
  return MatchTracks(document, plan, recording);
}

void DelayToEnd(const std::string& path, const Matches& matches, RemuxPlan* plan) {
  const std::vector<uint64_t> times = TimesBehindEnd(path);
  for (size_t i = 0; i < matches.size(); ++i) {
    if (matches[i]) DelayTrack(plan, i, times[matches[i]->track]);
  }
}

void Continue(const std::string& path, const Document& document, const RemuxPlan& plan,
              const Matches& matches) {
  const ExistingFile file(path);
  RecordingWriter writer(file.Descriptor(), path, Continuation{file.Length(), kKeepAll});
  writer.ContinueTracks(matches);
  writer.SetAccessRule(AccessRuleOf(plan));
  CopySamples(document, plan, Interleaving::kSamples, &writer);
  writer.Close();
}

// What was added before a failure. If that fails as well, the recording still has all its complete
// fragments, and the first failure is the one to be told.
void TakeBack(const std::string& path, uint64_t lastFragment) {
  try {
    CutRecording(path, lastFragment);
  } catch (const std::exception&) {
  }
}

void RunAppend(const AppendOptions& options, Output& out) {
  const std::string& path = options.recordingPath;
  const Document document(options.input);
  RefuseToOverwrite(document.File(), path);
  RemuxRules rules;
  rules.fragmentLength = ParseSeconds(options.fragmentLength);
  RemuxPlan plan = PlanRemux(document, rules);
  const Matches matches = MatchWithRecording(document, plan, path);
  const RecordingCut cut = CutRecording(path, ParseOffset(options.keepLimit).value_or(kKeepAll));
  if (cut.byteCount > 0) out.Write(CutText(path, cut) + "\n");
  DelayToEnd(path, matches, &plan);
  try {
    Continue(path, document, plan, matches);
  } catch (...) {
    TakeBack(path, cut.lastFragment);
    throw;
  }
}

}  // namespace

void AddAppendCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<AppendOptions>();
  CLI::App* command = AddCommand(program, "append", "Continue a K7R file with another document",
                                 "k7m append live.k7r more.mp4", options, RunAppend, chosen);
  command
      ->add_option("RECORDING", options->recordingPath,
                   "The K7R file, which is changed where it lies; when that fails, what was added "
                   "is taken back")
      ->type_name("")
      ->required();
  AddInputOptions(command, &options->input);
  command
      ->add_option("--keep-until", options->keepLimit,
                   "Cut off the fragments that begin behind this byte first; all complete ones are "
                   "kept unless given")
      ->type_name("OFFSET")
      ->check(CheckOffset);
  command
      ->add_option("--duration", options->fragmentLength,
                   "A fragment lasts at least so long, 1 unless given; it begins, and its random "
                   "access entries are, as with k7m fragment")
      ->type_name("SECONDS")
      ->check(CheckFragmentLength);
}

}  // namespace qiro::k7m::tool

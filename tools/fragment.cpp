/// `k7m fragment`: a document as a K7R file.
#include <sys/stat.h>

#include "command.h"
#include "document.h"
#include "fragment_index.h"
#include "metadata_packet.h"
#include "output_file.h"
#include "recording_writer.h"
#include "remux_copy.h"
#include "remux_plan.h"
#include "replacement_file.h"

namespace qiro::k7m::tool {
namespace {

struct FragmentOptions {
  InputOptions input;
  std::string outputPath;
  std::string fragmentLength = "1";  // In seconds.
  std::string bootstrapPath;         // Empty: no bootstrap boxes.
  std::string indexPath;             // Empty: no index.
  bool mayReplace = false;
};

ReplacementFile::Target RuleOf(const FragmentOptions& options) {
  return options.mayReplace ? ReplacementFile::Target::kMayBeReplaced
                            : ReplacementFile::Target::kMustBeNew;
}

std::vector<uint8_t> ReadBootstrap(const std::string& path) {
  if (path.empty()) return {};
  std::vector<uint8_t> payload = ReadPacketFile(path);
  if (payload.empty()) throw FileFailure(path, "an empty file is no bootstrap box");
  return payload;
}

// The index comes last; what is wrong with its name is better told at once.
void CheckIndexPath(const FragmentOptions& options, const FileStream& input) {
  if (options.indexPath.empty() || options.indexPath == "-") return;
  if (options.indexPath == options.outputPath) {
    throw UsageFailure("OUT and its index need a file each");
  }
  RefuseToOverwrite(input, options.indexPath);
  struct stat status {};
  const bool isThere = stat(options.indexPath.c_str(), &status) == 0 && S_ISREG(status.st_mode);
  if (isThere && !options.mayReplace) FailAsTaken(options.indexPath);
}

// A multiple of the leading track's, so that the times of random access entries are exact; fine
// enough for the times of the other tracks.
uint32_t HintTimeScale(const RemuxPlan& plan) {
  constexpr uint32_t kFineEnough = 1000;
  if (!plan.leadingTrack) return kFineEnough;
  const uint32_t scale = plan.tracks[*plan.leadingTrack].track->info.timeScale;
  if (scale == 0) return kFineEnough;
  return scale * ((kFineEnough + scale - 1) / scale);
}

// Every continuation of the file may leave a wait in a track that ends before the others, and
// later there is no room to be had for it.
void MakeRoomForContinuations(RemuxPlan* plan) {
  for (TrackPlan& track : plan->tracks) track.gapCount += kContinuationCount;
}

void WriteRecording(const Document& document, const FragmentOptions& options,
                    std::vector<uint8_t> bootstrap, int descriptor) {
  RemuxRules rules;
  rules.fragmentLength = ParseSeconds(options.fragmentLength);
  RemuxPlan plan = PlanRemux(document, rules);
  if (!plan.leadingTrack && !options.indexPath.empty()) {
    throw FileFailure(document.File().Path(), "no samples, so that there is nothing to index");
  }
  MakeRoomForContinuations(&plan);
  QiroK7MDocInfo info;
  document.Check(QiroK7MReaderGetDocInfo(document.Reader(), &info));
  info.isFragmented = 1;
  RecordingWriter writer(descriptor, options.outputPath, info);
  for (const TrackPlan& track : plan.tracks) writer.AddTrack(document, track);
  writer.AddHintTrack(HintTimeScale(plan), kContinuationCount);
  const std::vector<uint8_t> packet = ReadOwnPacket(document);
  if (!packet.empty()) writer.SetMetadata(packet);
  writer.SetBootstrap(std::move(bootstrap));
  writer.SetAccessRule(AccessRuleOf(plan));
  CopySamples(document, plan, Interleaving::kSamples, &writer);
  writer.Close();
}

void RunFragment(const FragmentOptions& options, Output&) {
  if (options.outputPath == "-") {
    throw UsageFailure(
        "fragment writes in several places and needs a file, not the standard output");
  }
  const Document document(options.input);
  RefuseToOverwrite(document.File(), options.outputPath);
  CheckIndexPath(options, document.File());
  std::vector<uint8_t> bootstrap = ReadBootstrap(options.bootstrapPath);
  {
    ReplacementFile file(options.outputPath, RuleOf(options));
    WriteRecording(document, options, std::move(bootstrap), file.Descriptor());
    file.Commit();
  }
  if (!options.indexPath.empty()) {
    FileStream copy(options.outputPath);
    WriteFragmentIndex(&copy, options.indexPath, RuleOf(options));
  }
}

}  // namespace

void AddFragmentCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<FragmentOptions>();
  CLI::App* command = AddCommand(
      program, "fragment", "Copy the document into a K7R file, to be served in fragments",
      "k7m fragment clip.mp4 live.k7r --index live.idx", options, RunFragment, chosen);
  AddInputOptions(command, &options->input);
  command
      ->add_option(
          "OUT", options->outputPath,
          "The K7R file to write; it appears when complete. Its random access entries are the "
          "key samples of the first video track, without video the first sample of every "
          "fragment")
      ->type_name("")
      ->required();
  command
      ->add_option("--duration", options->fragmentLength,
                   "A fragment lasts at least so long, 1 unless given, and begins at a key sample "
                   "of the first video track")
      ->type_name("SECONDS")
      ->check(CheckFragmentLength);
  command
      ->add_option("--bootstrap", options->bootstrapPath,
                   "What stands in the bootstrap box of every fragment; no such boxes unless given")
      ->type_name("PACKET");
  command
      ->add_option("--index", options->indexPath,
                   "The index of OUT to write, as k7m index does; - for standard output")
      ->type_name("IDX");
  command->add_flag("--force", options->mayReplace,
                    "Replace OUT and IDX when there are such files already");
}

}  // namespace qiro::k7m::tool

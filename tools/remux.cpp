/// `k7m remux`: a document written anew.
#include <map>

#include "command.h"
#include "document.h"
#include "metadata_packet.h"
#include "movie_writer.h"
#include "output_file.h"
#include "remux_copy.h"
#include "remux_plan.h"
#include "replacement_file.h"

namespace qiro::k7m::tool {
namespace {

struct RemuxOptions {
  InputOptions input;
  std::string outputPath;
  EditRule editRule = EditRule::kKeep;
  std::string fragmentLength;  // In seconds; empty: the copy is a plain document.
  std::string metadataPath;    // Empty: the document's own packet.
  bool dropsMetadata = false;
  bool mayReplace = false;
};

QiroK7MDocInfo InfoForCopy(const Document& document, const RemuxRules& rules) {
  QiroK7MDocInfo info;
  document.Check(QiroK7MReaderGetDocInfo(document.Reader(), &info));
  info.isFragmented = rules.fragmentLength ? 1 : 0;
  return info;
}

// A flag without a value is told as "true".
std::string LengthText(const std::string& text) { return text == "true" ? "1" : text; }

std::string CheckLength(const std::string& text) { return CheckFragmentLength(LengthText(text)); }

RemuxRules RulesOf(const RemuxOptions& options) {
  RemuxRules rules;
  rules.edits = options.editRule;
  if (!options.fragmentLength.empty())
    rules.fragmentLength = ParseSeconds(LengthText(options.fragmentLength));
  return rules;
}

std::vector<uint8_t> ChoosePacket(const Document& document, const RemuxOptions& options) {
  if (options.dropsMetadata) return {};
  if (!options.metadataPath.empty()) return ReadPacketFile(options.metadataPath);
  return ReadOwnPacket(document);
}

void RunRemux(const RemuxOptions& options, Output&) {
  if (options.outputPath == "-") {
    throw UsageFailure("remux writes in several places and needs a file, not the standard output");
  }
  const RemuxRules rules = RulesOf(options);
  const Document document(options.input);
  RefuseToOverwrite(document.File(), options.outputPath);
  const QiroK7MDocInfo info = InfoForCopy(document, rules);
  ReplacementFile file(options.outputPath, options.mayReplace
                                               ? ReplacementFile::Target::kMayBeReplaced
                                               : ReplacementFile::Target::kMustBeNew);
  const std::vector<uint8_t> packet = ChoosePacket(document, options);
  const RemuxPlan plan = PlanRemux(document, rules);
  MovieWriter writer(file.Descriptor(), options.outputPath, info);
  for (const TrackPlan& track : plan.tracks) writer.AddTrack(document, track);
  if (!packet.empty()) writer.SetMetadata(packet);
  CopySamples(document, plan, Interleaving::kHalfSeconds, &writer);
  writer.Close();
  file.Commit();
}

}  // namespace

void AddRemuxCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<RemuxOptions>();
  CLI::App* command =
      AddCommand(program, "remux", "Copy the document: every track, interleaved anew, tables first",
                 "k7m remux clip.mp4 copy.mp4", options, RunRemux, chosen);
  AddInputOptions(command, &options->input);
  command->add_option("OUT", options->outputPath, "The file to write; it appears when complete")
      ->required();
  const std::map<std::string, EditRule> rules = {{"keep", EditRule::kKeep},
                                                 {"apply", EditRule::kApply}};
  command
      ->add_option("--edits", options->editRule,
                   "keep (the default): copy all samples, and keep the tracks in step; apply: copy "
                   "what the edit lists leave of them")
      ->type_name("RULE")
      ->transform(CLI::CheckedTransformer(rules, CLI::ignore_case).description(""));
  command
      ->add_flag("--fragmented", options->fragmentLength,
                 "Write a fragmented document; a fragment lasts at least a second, with "
                 "--fragmented=SECONDS as long as that, and begins at a key sample of the first "
                 "video track")
      ->check(CheckLength);
  CLI::Option* metadata =
      command
          ->add_option("--metadata", options->metadataPath,
                       "A metadata packet to write instead of the document's own")
          ->type_name("PACKET");
  command->add_flag("--no-metadata", options->dropsMetadata, "Write no metadata packet")
      ->excludes(metadata);
  command->add_flag("--force", options->mayReplace,
                    "Replace OUT when there is such a file already");
}

}  // namespace qiro::k7m::tool

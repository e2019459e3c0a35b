/// `k7m verify`: what is wrong with a file, and what comes of it.
#include <nlohmann/json.hpp>

#include "command.h"
#include "verify_checks.h"
#include "verify_report.h"

namespace qiro::k7m::tool {
namespace {

struct VerifyOptions {
  std::string path;
  bool asJson = false;
};

VerifiedBox* FirstMovieBox(VerifiedBox* top) {
  while (top != nullptr && top->type != FourCc("moov")) top = top->next;
  return top;
}

// Fills the boxes of the tracks; false when there is no movie box.
bool CheckBoxes(const std::string& path, Findings* findings, TrackBoxes* tracks) {
  FileStream stream(path);
  VerifiedFile file(&stream);
  BoxTree boxes(&file, findings);
  Verification all{.file = file, .findings = *findings, .top = boxes.ReadTopLevel()};
  CheckTopLevel(all.top, findings);
  if (VerifiedBox* const moov = FirstMovieBox(all.top)) {
    boxes.ReadInside(moov);
    CheckStructure(*moov, findings);
    all.movie = ReadMovie(&file, moov, findings);
  }
  CheckTables(&all);
  CheckFragments(&all);
  CheckTimes(&all);
  CheckLayout(&all);
  if (all.movie.moov == nullptr) return false;
  tracks->moov = *all.movie.moov;
  for (const VerifiedTrack& track : all.movie.tracks) {
    tracks->traks.push_back(*track.trak);
    tracks->traks.back().parent = &tracks->moov;
    tracks->isElsewhere.push_back(track.hasMediaElsewhere);
  }
  return true;
}

ExitCode RunVerify(const VerifyOptions& options, Output& out) {
  Findings findings;
  TrackBoxes tracks;
  // All memory of the one is given back before the other begins.
  const bool hasMovie = CheckBoxes(options.path, &findings, &tracks);
  if (hasMovie && !findings.Has(kTooManyBoxes)) {
    CheckReading(options.path, tracks, &findings);
  }
  out.Write(options.asJson ? JsonText(VerifyJson(options.path, findings)) : VerifyText(findings));
  if (findings.Count(Severity::kError) > 0) return ExitCode::kFailed;
  return findings.Count(Severity::kWarning) > 0 ? ExitCode::kWarnings : ExitCode::kOk;
}

}  // namespace

void AddVerifyCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<VerifyOptions>();
  CLI::App* command = AddCommand(program, "verify", "Check a file, and say what its faults lead to",
                                 "k7m verify clip.mp4 --json", options, RunVerify, chosen);
  command->add_option("FILE", options->path, "The file to read")->type_name("")->required();
  command->add_flag("--json", options->asJson, "Print JSON");
}

}  // namespace qiro::k7m::tool

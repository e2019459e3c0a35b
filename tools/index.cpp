/// `k7m index`: the index file of a K7R file.
#include "command.h"
#include "fragment_index.h"

namespace qiro::k7m::tool {
namespace {

struct IndexOptions {
  InputOptions input;
  std::string outputPath;
  bool mayReplace = false;
};

/// Opens the file as a document, for its messages about files that are none.
void RequireFragmented(const InputOptions& input, const std::shared_ptr<InputSource>& source) {
  const Document document(input, source);
  QiroK7MDocInfo info;
  document.Check(QiroK7MReaderGetDocInfo(document.Reader(), &info));
  if (info.isFragmented == 0) throw FileFailure(source->Name(), "the file is not fragmented");
}

void RunIndex(const IndexOptions& options, Output&) {
  const auto source = OpenInput(options.input.path, options.input.spoolLimit);
  RequireFragmented(options.input, source);
  FileStream file(source);
  WriteFragmentIndex(&file, options.outputPath,
                     options.mayReplace ? ReplacementFile::Target::kMayBeReplaced
                                        : ReplacementFile::Target::kMustBeNew);
}

}  // namespace

void AddIndexCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<IndexOptions>();
  CLI::App* command =
      AddCommand(program, "index", "Make the index with which single fragments are served",
                 "k7m index live.k7r -o live.idx", options, RunIndex, chosen);
  AddInputOptions(command, &options->input);
  command
      ->add_option("-o,--output", options->outputPath, "The file to write; - for standard output")
      ->type_name("IDX")
      ->required();
  command->add_flag("--force", options->mayReplace,
                    "Replace IDX when there is such a file already");
}

}  // namespace qiro::k7m::tool

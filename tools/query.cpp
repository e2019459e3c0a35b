/// `k7m query`: the bytes of one fragment of a K7R file.
#include <new>
#include <optional>

#include "command.h"
#include "output_file.h"

namespace qiro::k7m::tool {
namespace {

struct QueryOptions {
  std::string path;
  std::string indexPath;  // Empty: none.
  uint64_t spoolLimit = kUsualSpoolLimit;
  uint32_t fragmentNumber = 0;
  uint32_t segmentNumber = 1;
  std::string outputPath = "-";
  bool mayReplace = false;
};

using ServicerHandle = std::unique_ptr<QiroK7RQueryServicer, Releaser<QiroK7RCloseQueryServicer>>;

struct DeleteBlock {
  void operator()(void* block) const { ::operator delete(block); }
};

/// A K7R file, perhaps with its index, that is asked for fragments.
class FragmentSource {
 public:
  explicit FragmentSource(const QueryOptions& options)
      : file_(OpenInput(options.path, options.spoolLimit)) {
    if (!options.indexPath.empty())
      index_.emplace(OpenInput(options.indexPath, options.spoolLimit));
    const QiroK7MIStreamCallBacks file = file_.CallBacks();
    const QiroK7MIStreamCallBacks index = index_ ? index_->CallBacks() : file;
    const QiroK7MAllocatorCallBacks allocator;
    QiroK7RQueryServicer* servicer = nullptr;
    Check(QiroK7RQueryServicerCreate(&file, index_ ? &index : nullptr, &allocator, &servicer));
    servicer_.reset(servicer);
  }
  FragmentSource(const FragmentSource&) = delete;
  FragmentSource& operator=(const FragmentSource&) = delete;

  const FileStream& File() const { return file_; }
  const FileStream* Index() const { return index_ ? &*index_ : nullptr; }

  void Copy(uint32_t fragmentNumber, uint32_t segmentNumber, OutputFile* output) const {
    uint32_t size = 0;
    void* data = nullptr;
    Check(QiroK7RQueryServicerGetFragment(servicer_.get(), fragmentNumber, segmentNumber, &size,
                                          &data));
    const std::unique_ptr<void, DeleteBlock> block(data);
    if (!block) {
      throw FileFailure(index_->Path(), "fragment " + std::to_string(fragmentNumber) +
                                            " is not in segment " + std::to_string(segmentNumber));
    }
    output->Write(block.get(), size);
  }

 private:
  void Check(QiroK7MError code) const {
    if (code == kQiroK7MErrorNone) return;
    if (code == FileStream::kSystemFailed) {
      const FileStream& failed = index_ && index_->HasFailed() ? *index_ : file_;
      throw failed.WhatFailed();
    }
    throw LibraryFailure(code == kQiroK7MErrorBadFragmentIndex ? index_->Path() : file_.Path(),
                         code);
  }

  FileStream file_;
  std::optional<FileStream> index_;
  ServicerHandle servicer_;
};

void RunQuery(const QueryOptions& options, Output&) {
  if (options.path == "-" && options.indexPath == "-") {
    throw UsageFailure("FILE and its index cannot both be the standard input");
  }
  const FragmentSource source(options);
  if (source.Index() != nullptr && options.outputPath != "-") {
    RefuseToOverwrite(*source.Index(), options.outputPath);
  }
  OutputFile output(options.outputPath, source.File(),
                    options.mayReplace ? ReplacementFile::Target::kMayBeReplaced
                                       : ReplacementFile::Target::kMustBeNew);
  source.Copy(options.fragmentNumber, options.segmentNumber, &output);
  output.Commit();
}

}  // namespace

void AddQueryCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<QueryOptions>();
  CLI::App* command = AddCommand(program, "query", "Copy one fragment of a K7R file, as it is",
                                 "k7m query live.k7r --index live.idx --fragment 3 -o 3.bin",
                                 options, RunQuery, chosen);
  AddFileOptions(command, &options->path, &options->spoolLimit);
  CLI::Option* index =
      command
          ->add_option("--index", options->indexPath,
                       "The file's index, so that nothing but the fragment is read of FILE")
          ->type_name("IDX");
  command->add_option("--fragment", options->fragmentNumber, "Which fragment, counted from 1")
      ->type_name("N")
      ->check(CheckNumber)
      ->required();
  command
      ->add_option("--segment", options->segmentNumber,
                   "Its segment, for an index with global entries; 1 unless given")
      ->type_name("S")
      ->check(CheckNumber)
      ->needs(index);
  command
      ->add_option("-o,--output", options->outputPath,
                   "The file to write; the standard output unless given")
      ->type_name("OUT");
  command->add_flag("--force", options->mayReplace,
                    "Replace OUT when there is such a file already");
}

}  // namespace qiro::k7m::tool

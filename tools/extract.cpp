/// `k7m extract`: bytes from a document, as they are.
#include "command.h"
#include "document.h"
#include "messages.h"
#include "output_file.h"

namespace qiro::k7m::tool {
namespace {

struct ExtractOptions {
  InputOptions input;
  uint32_t trackNumber = 0;  // 0: none given.
  bool wantsMetadata = false;
  bool wantsCodecHeader = false;
  uint32_t descriptionNumber = 1;
  std::string outputPath;
};

void ExtractSamples(const Document& document, const Track& track, OutputFile* file) {
  uint32_t count = 0;
  document.Check(QiroK7MTrackGetSampleCount(track.handle, &count));
  ProgressBar progress(count);
  SampleWalk walk = WalkMediaSamples(document, track);
  std::vector<uint8_t> bytes;
  QiroK7MSampleInfo info;
  while (const SampleHandle sample = walk.Next(&info)) {
    CopySample(document, sample.get(), info, &bytes);
    file->Write(bytes.data(), info.sampleSize);
    progress.Advance();
  }
}

void ExtractMetadata(const Document& document, OutputFile* file) {
  uint32_t length = 0;
  document.Check(QiroK7MReaderGetUlbDataLength(document.Reader(), &length));
  if (length == 0) throw FileFailure(document.File().Path(), "no metadata packet");
  std::vector<uint8_t> bytes(length);
  document.Check(QiroK7MReaderCopyUlbData(document.Reader(), bytes.data()));
  file->Write(bytes.data(), bytes.size());
}

void ExtractCodecHeader(const Document& document, const Track& track, uint32_t number,
                        OutputFile* file) {
  const std::string name = "track " + std::to_string(track.number);
  if (number == 0 || number > track.descriptors.size()) {
    throw FileFailure(document.File().Path(), name + " has no description " +
                                                  std::to_string(number) + " (it has " +
                                                  std::to_string(track.descriptors.size()) + ")");
  }
  QiroK7MSampleDescriptor* descriptor = track.descriptors[number - 1];
  QiroK7MSampleDescInfo info;
  document.Check(QiroK7MSampleDescriptorGetInfo(descriptor, &info));
  if (info.codecHeaderDataLength == 0) {
    throw FileFailure(document.File().Path(), "description " + std::to_string(number) + " of " +
                                                  name + " has no codec header");
  }
  std::vector<uint8_t> bytes(info.codecHeaderDataLength);
  document.Check(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, bytes.data()));
  file->Write(bytes.data(), bytes.size());
}

void RunExtract(const ExtractOptions& options, Output&) {
  if (!options.wantsMetadata && options.trackNumber == 0) {
    throw UsageFailure("extract needs --track or --metadata");
  }
  const Document document(options.input);
  OutputFile file(options.outputPath, document.File());
  if (options.wantsMetadata) {
    ExtractMetadata(document, &file);
  } else {
    const Track& track = document.TrackByNumber(options.trackNumber);
    if (options.wantsCodecHeader) {
      ExtractCodecHeader(document, track, options.descriptionNumber, &file);
    } else {
      ExtractSamples(document, track, &file);
    }
  }
  file.Commit();
}

}  // namespace

void AddExtractCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<ExtractOptions>();
  CLI::App* command = AddCommand(
      program, "extract", "Copy a track's samples, its codec header or the metadata to a file",
      "k7m extract clip.mp4 --track 1 -o video.h264", options, RunExtract, chosen);
  AddInputOptions(command, &options->input);
  CLI::Option* metadata =
      command->add_flag("--metadata", options->wantsMetadata, "The document's metadata packet");
  CLI::Option* track =
      command
          ->add_option("--track", options->trackNumber,
                       "The samples of this track, counted from 1, as they lie in the file")
          ->type_name("N")
          ->check(CheckNumber)
          ->excludes(metadata);
  CLI::Option* header = command
                            ->add_flag("--codec-header", options->wantsCodecHeader,
                                       "The track's codec header instead of its samples")
                            ->needs(track);
  command
      ->add_option("--description", options->descriptionNumber,
                   "Whose codec header, counted from 1")
      ->type_name("N")
      ->check(CheckNumber)
      ->needs(header);
  command
      ->add_option("-o,--output", options->outputPath, "The file to write; - for standard output")
      ->type_name("OUT")
      ->required();
}

}  // namespace qiro::k7m::tool

#include "recording_cut.h"

#include "existing_file.h"
#include "fragment_list.h"
#include "recording_writer.h"
#include "text_format.h"

namespace qiro::k7m::tool {

RecordingCut CutRecording(const std::string& path, uint64_t keepLimit) {
  {
    FileStream file(path);
    RefuseOtherFragments(&file);
  }
  const ExistingFile file(path);
  const uint64_t length = file.Length();
  RecordingWriter writer(file.Descriptor(), path, Continuation{length, keepLimit});
  writer.Close();
  return {length - file.Length(), writer.LastFragment()};
}

std::string CutText(const std::string& path, const RecordingCut& cut) {
  const std::string bytes = cut.byteCount == 0 ? "nothing" : CountText(cut.byteCount, "byte");
  const std::string last = cut.lastFragment == 0 ? "there is no complete fragment"
                                                 : "the last fragment begins at byte " +
                                                       std::to_string(cut.lastFragment);
  return Printable(path) + ": " + bytes + " cut off; " + last;
}

}  // namespace qiro::k7m::tool

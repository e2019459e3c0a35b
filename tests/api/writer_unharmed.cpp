#include "writer_unharmed.h"

#include <gtest/gtest.h>

#include "support/box_finder.h"
#include "writer_verdict.h"

namespace k7mtest {
namespace {

constexpr size_t kMediaHeaderSize = 16;

size_t EndOfMovieBox(const Bytes& file) {
  const BoxPlace moov = PlaceOf(file, "moov");
  return moov.size == 0 ? file.Size() : moov.offset + moov.size;
}

std::vector<size_t> MediaHeaders(const Bytes& file) {
  std::vector<size_t> offsets;
  while (true) {
    const BoxPlace mdat = PlaceOf(file, "mdat#" + std::to_string(offsets.size() + 1));
    if (mdat.size == 0) return offsets;
    offsets.push_back(mdat.offset);
  }
}

void Replay(const std::vector<StreamChange>& changes, size_t begin, size_t end,
            MemoryStream& stream) {
  for (size_t i = begin; i < end; ++i) {
    if (changes[i].isTruncation) {
      stream.SetLength(changes[i].offset);
    } else {
      stream.Put(changes[i].offset, changes[i].bytes);
    }
  }
}

}  // namespace

UnharmedRun::UnharmedRun(std::vector<ScriptStep> steps, bool isFragmented)
    : isFragmented_(isFragmented) {
  const size_t stepCount = steps.size();
  steps.push_back({Do::kClose});
  WriterScript script(steps, isFragmented);
  script.Prepare();
  CountingAllocator memory;
  MemoryStream stream;
  stream.StartJournal();
  stream.StopLogging();
  script.Run(stream, memory.Record());
  const ScriptResult& result = script.Result();
  EXPECT_EQ(FirstFailure(result), steps.size());
  MemoryStream growing;
  std::shared_ptr<const CompletePart> flushed;
  for (size_t i = 0; i < stepCount; ++i) {
    Replay(stream.Journal(), i == 0 ? 0 : result.changesBehindStep[i - 1],
           result.changesBehindStep[i], growing);
    const Bytes file = growing.Content();
    if (steps[i].what == Do::kFlush) flushed = std::make_shared<CompletePart>(file);
    states_.push_back({file, flushed});
  }
  last_ = stream.Content();
  mediaHeaders_ = MediaHeaders(last_);
}

bool UnharmedRun::MayChange(size_t offset, const Bytes& before) const {
  for (const size_t header : mediaHeaders_) {
    const bool isInHeader = offset >= header && offset < header + kMediaHeaderSize;
    // In a fragmented document it is written when the fragment is, in a plain one by every flush.
    if (isInHeader && (!isFragmented_ || before.NumberAt(header + 4) == 0)) return true;
  }
  return false;
}

void UnharmedRun::ExpectKept(const ScriptResult& result, const MemoryStream& stream) const {
  const size_t failed = std::min(FirstFailure(result), states_.size());
  if (result.created != 0 || failed == 0) return;
  const State& before = states_[failed - 1];
  const Bytes file = stream.Content();
  ASSERT_GE(file.Size(), before.file.Size());
  for (size_t i = EndOfMovieBox(before.file); i < before.file.Size(); ++i) {
    if (file[i] == before.file[i] || MayChange(i, before.file)) continue;
    // How long a track's last sample in a fragment lasts is told by the next one.
    EXPECT_TRUE(isFragmented_ && file[i] == last_[i]) << "byte " << i;
  }
  if (before.flushed != nullptr) before.flushed->ExpectReadFrom(file);
}

}  // namespace k7mtest

#include "writer_verdict.h"

#include <gtest/gtest.h>

namespace k7mtest {
namespace {

bool TakesBuffer(Do what) {
  return what != Do::kAddTrack && what != Do::kSetDescription && what != Do::kFlush &&
         what != Do::kClose;
}

/// The failed step answered `code`, which makes a writer bad: the steps behind it answer 48,
/// closing and destroying give the stream back, and nothing else reaches it.
void ExpectBadFrom(size_t failed, const WriterScript& script, const ScriptResult& result,
                   QiroK7MError code) {
  EXPECT_EQ(result.codes[failed], code) << "step " << failed;
  for (size_t i = failed + 1; i < result.codes.size(); ++i) {
    const QiroK7MError refusal = result.hasHandles[i] ? 48 : 20;  // Null pointers come first.
    EXPECT_EQ(result.codes[i], script.Steps()[i].what == Do::kClose ? 0u : refusal) << "step " << i;
  }
  const bool failedInClose = script.Steps()[failed].what == Do::kClose;
  const uint64_t further = result.callsBehindDestroy - result.callsBehindStep[failed];
  EXPECT_EQ(further, failedInClose ? 0u : 1u) << "calls of the stream once the writer is bad";
}

}  // namespace

size_t FirstFailure(const ScriptResult& result) {
  size_t step = 0;
  while (step < result.codes.size() && result.codes[step] == 0) ++step;
  return step;
}

void ExpectBuffersBack(const WriterScript& script, const ScriptResult& result) {
  for (size_t i = 0; i < result.codes.size(); ++i) {
    EXPECT_EQ(result.releases[i], TakesBuffer(script.Steps()[i].what) ? 1 : 0) << "step " << i;
  }
}

void Judge(const WriterScript& script, const ScriptResult& result, bool wasHit, QiroK7MError code,
           const MemoryStream& stream, const UnharmedRun& unharmed) {
  EXPECT_FALSE(stream.IsOpen());
  // A stream that could not be opened is closed all the same.
  const bool failedToOpen = result.created != 0 && stream.Count(Call::kAny) == 2;
  EXPECT_TRUE(stream.Violation() == nullptr || failedToOpen) << stream.Violation();
  EXPECT_LE(stream.Count(Call::kClose), 1u);
  if (result.created != 0) {
    EXPECT_TRUE(wasHit);
    EXPECT_EQ(result.created, code);
    return;
  }
  ExpectBuffersBack(script, result);
  if (wasHit) unharmed.ExpectKept(result, stream);
  const size_t failed = FirstFailure(result);
  if (failed < result.codes.size()) {
    EXPECT_TRUE(wasHit);
    ExpectBadFrom(failed, script, result, code);
  } else if (wasHit) {
    // Only the close of a destruction has nobody to tell.
    EXPECT_FALSE(script.EndsClosed());
    EXPECT_EQ(stream.Log().back().call, Call::kClose);
  }
}

}  // namespace k7mtest

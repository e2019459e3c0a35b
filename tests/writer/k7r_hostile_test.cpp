// Damaged files that are opened to be continued: a code or a writer, and nothing worse.
#include <gtest/gtest.h>

#include <random>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

/// Does with the writer what can be done, whatever it answers. Everything it takes must come back
/// when it goes, and it must keep the contract of the callbacks.
void Use(OpenedK7RWriter& writer) {
  const auto tracks = writer.DescribedTracks();
  for (uint64_t number = 0; number < 2; ++number) {
    writer.TryStartFragment();
    const uint64_t time = 1000 + number * 100000;
    for (QiroK7MTrack* track : tracks) {
      if (InfoOf(track).timeScale == 0) continue;
      writer.TryAdd(track, {.time = time, .flags = kKey}, true);
      if (!tracks.empty())
        writer.TryAddHint(tracks.back(), track, {.time = time + 5}, {0, 1}, true);
    }
  }
  QiroK7MWriterFlush(writer.Handle());
  QiroK7RCloseWriter(writer.K7R());
}

TEST(K7RHostile, FilesWithChangedBytes) {
  const Recording recording = Record(2, true);
  uint64_t opened = 0;
  uint64_t refused = 0;
  for (uint32_t seed = 1; seed <= 3000 && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Bytes file = recording.file;
    for (uint32_t changes = 1 + random() % 4; changes-- > 0;) {
      static const uint8_t kValues[] = {0, 1, 2, 7, 8, 0x7F, 0x80, 0xFF};
      const size_t at = random() % file.Size();
      file[at] = random() % 2 == 0 ? kValues[random() % 8] : static_cast<uint8_t>(random());
    }
    OpenedK7RWriter writer(file);
    if (writer.Result() != 0) {
      ++refused;
      EXPECT_EQ(writer.File(), file);
      continue;
    }
    ++opened;
    Use(writer);
  }
  EXPECT_GT(opened, 100u);
  EXPECT_GT(refused, 100u);
}

TEST(K7RHostile, FilesWhoseNumbersAreExtreme) {
  const Recording recording = Record(1);
  for (size_t at = 0; at + 4 <= recording.file.Size(); at += 4) {
    for (const uint64_t value : {0x00000000u, 0x00000001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
      SCOPED_TRACE(at);
      Bytes file = recording.file;
      file.Patch(at, value);
      OpenedK7RWriter writer(file);
      if (writer.Result() == 0) Use(writer);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

}  // namespace
}  // namespace k7mtest

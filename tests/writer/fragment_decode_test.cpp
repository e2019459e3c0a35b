#include <gtest/gtest.h>

#include "decoded_copies.h"
#include "fragment_expectations.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

/// The media of a file with one video and one audio track, `perFragment` samples in a fragment.
Bytes FragmentedCopy(const std::string& path, size_t perFragment) {
  OpenedReader reader(FileBytes(path));
  EXPECT_EQ(reader.Result(), 0u);
  OpenedWriter writer(FragmentedInfo());
  const std::vector<QiroK7MTrack*> from = reader.Tracks();
  std::vector<QiroK7MTrack*> to;
  for (QiroK7MTrack* track : from) to.push_back(CopyTrack(writer, track));
  size_t count = 0;
  for (const ReadSample& sample : MediaSamples(reader)) {
    const size_t index = sample.track == from[0] ? 0 : 1;
    writer.Add(to[index], {.time = sample.info.timeStamp,
                           .data = sample.data,
                           .flags = sample.info.flags,
                           .compositionOffset = sample.info.compositionOffset});
    if (++count % perFragment == 0) writer.Flush();
  }
  EXPECT_EQ(count, 138u);
  return writer.Finish();
}

TEST(FragmentedCopy, DecodesToTheSameFrames) {
  const std::string original = std::string(K7M_TEST_DATA) + "/h264-bframes-aac.mp4";
  for (const size_t perFragment : {1000u, 30u, 1u}) {
    SCOPED_TRACE(perFragment);
    const Bytes file = FragmentedCopy(original, perFragment);
    ExpectSameFrames(file, original);
  }
}

}  // namespace
}  // namespace k7mtest

// Where the boxes of a K7R file stand and what is in them.
#include <gtest/gtest.h>

#include "k7r_expectations.h"
#include "support/opened_reader.h"
#include "writer/k7r_writer.h"

namespace k7mtest {
namespace {

using Strings = std::vector<std::string>;

const Bytes kOne{1, 2, 3};
const Bytes kTwo{4, 5};
const Bytes kThree{6, 7, 8, 9};

TEST(K7RLayout, AFragmentIsAfraMoofMdat) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t start = writer.StartFragment();
  EXPECT_EQ(start, EndOfMoov(writer.File()));
  writer.Add(setup.video, {.time = 0, .data = kOne, .flags = kKey}, true);
  writer.Add(setup.video, {.time = 40, .data = kTwo, .compositionOffset = 3});
  writer.Add(setup.video, {.time = 90, .data = kThree, .flags = kKey}, true);
  const Bytes file = writer.Finish();
  const Bytes moof = ExpectedMoof(
      1,
      ExpectedTraf(1, start + 53 + 8 + 16 + 8 + 28 + 20 + 3 * 16 + 16,
                   {{0, {{40, 3, kKeyInRun, 0}, {50, 2, kOtherInRun, 3}, {1, 4, kKeyInRun, 0}}}}));
  const Bytes mdat = LargeBox("mdat", kOne, kTwo, kThree);
  const uint64_t media = 53 + moof.Size() + 16;
  EXPECT_EQ(BehindMoov(file), ExpectedAfra(1000, {{0, media}, {90, media + 5}}) + moof + mdat);
  EXPECT_EQ(CodesIn(file, "moov"), (Strings{"mvhd", "trak", "trak", "mvex"}));
}

TEST(K7RLayout, TheNextStartWritesTheFragmentAndTellsWhereItsSuccessorBegins) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t first = writer.StartFragment();
  writer.Add(setup.video, 0, kKey);
  EXPECT_EQ(writer.File().Size(), first);  // Media stays with the caller.
  EXPECT_EQ(writer.Releases(0), 0);
  const uint64_t second = writer.StartFragment();
  EXPECT_EQ(writer.Releases(0), 1);
  EXPECT_EQ(writer.File().Size(), second);
  writer.Add(setup.video, 40, kKey);
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesBehindMoov(file), (Strings{"afra", "moof", "mdat", "afra", "moof", "mdat"}));
  EXPECT_EQ(PlaceOf(file, "afra").offset, first);
  EXPECT_EQ(PlaceOf(file, "afra#2").offset, second);
  EXPECT_EQ(NumberIn(file, "moof/mfhd", 12), 1u);
  EXPECT_EQ(NumberIn(file, "moof#2/mfhd", 12), 2u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 40u);
}

TEST(K7RLayout, ABootstrapBoxStandsBehindTheAfraAndOffsetsStillPointToTheSample) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t start = writer.StartFragment();
  ASSERT_EQ(writer.TryAddAbst(kThree), 0u);
  writer.Add(setup.video, {.time = 0, .data = kOne, .flags = kKey}, true);
  EXPECT_EQ(writer.Releases(0), 0);
  const Bytes file = writer.Finish();
  EXPECT_EQ(writer.Releases(0), 1);
  EXPECT_EQ(CodesBehindMoov(file), (Strings{"afra", "abst", "moof", "mdat"}));
  EXPECT_EQ(FindBox(file, "abst"), FullBox("abst", 0, 0, kThree));
  EXPECT_EQ(PlaceOf(file, "afra").offset, start);
  const uint64_t offset = NumberIn(file, "afra", 29, 8);
  EXPECT_EQ(file.Slice(start + offset, kOne.Size()), kOne);
  EXPECT_EQ(NumberIn(file, "moof/traf/tfhd", 16, 8), start + offset);
}

TEST(K7RLayout, EveryFragmentHasItsOwnBootstrapBox) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  for (uint64_t i = 0; i < 3; ++i) {
    writer.StartFragment();
    writer.Add(setup.video, i * 10, kKey);
    if (i != 1) {
      ASSERT_EQ(writer.TryAddAbst(Pattern(5 + i)), 0u);
    }
  }
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesBehindMoov(file), (Strings{"afra", "abst", "moof", "mdat", "afra", "moof", "mdat",
                                            "afra", "abst", "moof", "mdat"}));
  EXPECT_EQ(FindBox(file, "abst#2"), FullBox("abst", 0, 0, Pattern(7)));
}

TEST(K7RLayout, ABootstrapBoxMayStandBeforeTheAfra) {
  using Writer = qiro::k7m::impl::K7RWriter;
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t start = writer.StartFragment();
  writer.Add(setup.video, {.time = 0, .data = kOne, .flags = kKey}, true);
  CountedBuffer abst(kThree);
  reinterpret_cast<Writer*>(writer.K7R())
      ->AddAbst(abst.Record(), 4, Writer::AbstPlace::kBeforeAfra);
  writer.StartFragment();
  const Bytes file = writer.File();
  EXPECT_EQ(abst.Releases(), 1);
  EXPECT_EQ(CodesBehindMoov(file), (Strings{"abst", "afra", "moof", "mdat"}));
  EXPECT_EQ(PlaceOf(file, "abst").offset, start);
  EXPECT_EQ(FindBox(file, "abst"), FullBox("abst", 0, 0, kThree));
  const uint64_t place = PlaceOf(file, "afra").offset + NumberIn(file, "afra", 29, 8);
  EXPECT_EQ(file.Slice(place, kOne.Size()), kOne);
}

TEST(K7RLayout, EntriesAreMadeForTheSamplesThatAskForThem) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.Add(setup.video, {.time = 0, .data = kOne});
  writer.Add(setup.video, {.time = 1, .data = kTwo}, true);  // No key sample: asked for is enough.
  writer.Add(setup.video, {.time = 2, .data = kThree, .flags = kKey});
  writer.Add(setup.video, {.time = 3, .flags = kGap}, true);  // A gap never gets one.
  const Bytes file = writer.Finish();
  ASSERT_EQ(NumberIn(file, "afra", 17), 1u);
  EXPECT_EQ(NumberIn(file, "afra", 21, 8), 1u);
  EXPECT_EQ(file.Slice(PlaceOf(file, "afra").offset + NumberIn(file, "afra", 29, 8), 2), kTwo);
}

TEST(K7RLayout, ThereIsNoMfra) {
  K7RSetup setup;
  setup.writer.StartFragment();
  setup.writer.Add(setup.video, 0, kKey);
  EXPECT_EQ(CodesBehindMoov(setup.writer.Finish()), (Strings{"afra", "moof", "mdat"}));
  K7RSetup empty;
  const Bytes file = empty.writer.Finish();
  EXPECT_EQ(CodesIn(file), (Strings{"ftyp", "moov"}));
  EXPECT_EQ(CodesIn(file, "moov/mvex"), (Strings{"mehd", "trex", "trex"}));
}

TEST(K7RLayout, TheDocumentIsFragmentedWhateverTheRecordSays) {
  for (const uint32_t flag : {0u, 1u, 7u}) {
    QiroK7MDocInfo info = DocInfoOf(1000);
    info.isFragmented = flag;
    OpenedK7RWriter writer(info);
    QiroK7MDocInfo answer{};
    ASSERT_EQ(QiroK7MWriterGetDocInfo(writer.Handle(), &answer), 0u);
    EXPECT_EQ(answer.isFragmented, flag == 0 ? 1 : flag);
    EXPECT_EQ(answer.duration, 0u);
    EXPECT_EQ(CodesIn(writer.Finish(), "moov"), (Strings{"mvhd", "mvex"}));
  }
}

TEST(K7RLayout, StartingTwiceGivesTheSameOffsetAndWritesNothing) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t start = writer.StartFragment();
  const Bytes before = writer.File();
  writer.Stream().ClearLog();
  EXPECT_EQ(writer.StartFragment(), start);
  EXPECT_TRUE(writer.Stream().Log().empty());
  EXPECT_EQ(writer.File(), before);
  writer.Add(setup.video, 0, kKey);
  EXPECT_EQ(PlaceOf(writer.Finish(), "afra").offset, start);
}

TEST(K7RLayout, AFragmentWithoutMediaLeavesAnEmptyAfraThatTheNextOneReplaces) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t start = writer.StartFragment();
  writer.Flush();
  EXPECT_EQ(BehindMoov(writer.File()), ExpectedAfra(1000, {}));
  EXPECT_EQ(writer.StartFragment(), start);
  writer.Add(setup.video, 0, kKey);
  const uint64_t next = writer.StartFragment();
  EXPECT_EQ(next, PlaceOf(writer.File(), "mdat").offset + 16 + 3);
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesBehindMoov(file), (Strings{"afra", "moof", "mdat", "afra"}));
  EXPECT_EQ(FindBox(file, "afra#2").Size(), kEmptyAfraSize);
}

TEST(K7RLayout, GapsAloneMakeNoFragment) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t start = writer.StartFragment();
  writer.Add(setup.video, 0, kGap);
  EXPECT_EQ(writer.StartFragment(), start);
  writer.Add(setup.video, 50, kKey);
  EXPECT_EQ(CodesBehindMoov(writer.Finish()), (Strings{"afra", "moof", "mdat"}));
}

TEST(K7RLayout, ExtraBoxesStandBetweenFragmentsAndEndTheOpenOne) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  ASSERT_EQ(writer.TryAddFullBox("aaaa", 0, 0, kOne), 0u);
  ASSERT_EQ(writer.TrySetUlb(kTwo), 0u);
  writer.StartFragment();
  EXPECT_EQ(writer.TrySetUlb(kTwo), 1282u);
  writer.Add(setup.video, 0, kKey);
  ASSERT_EQ(writer.TryAddFullBox("bbbb", 0, 0, kOne), 0u);
  EXPECT_EQ(writer.TryAdd(setup.video, {.time = 40}), 1536u);
  writer.StartFragment();
  writer.Add(setup.video, 40, kKey);
  EXPECT_EQ(CodesBehindMoov(writer.Finish()),
            (Strings{"aaaa", "uuid", "afra", "moof", "mdat", "bbbb", "afra", "moof", "mdat"}));
}

TEST(K7RLayout, AnExtraBoxInAnEmptyFragmentLeavesNoRestOfItsAfra) {
  for (const size_t size : {0u, 1u, 8u, 9u, 20u}) {
    K7RSetup setup;
    OpenedK7RWriter& writer = setup.writer;
    const uint64_t start = writer.StartFragment();
    ASSERT_EQ(writer.TryAddFullBox("aaaa", 0, 0, Pattern(size)), 0u);
    const Bytes file = writer.Finish();
    EXPECT_EQ(file.Size(), start + 12 + size);
    EXPECT_EQ(BehindMoov(file), FullBox("aaaa", 0, 0, Pattern(size)));
  }
}

TEST(K7RLayout, AChangedDescriptionEndsTheFragmentAndSamplesWaitForTheNextStart) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddTrack();
  auto* first = writer.Describe(video);
  auto* second = writer.Describe(video, "abcd");
  writer.AddDescribedHintTrack({video});
  writer.StartFragment();
  writer.Add(video, 0, kKey);
  ASSERT_EQ(QiroK7MWriterSetSampleDescriptor(writer.Handle(), video, second), 0u);
  EXPECT_EQ(CodesBehindMoov(writer.File()), Strings{});  // It was current: nothing happens.
  ASSERT_EQ(QiroK7MWriterSetSampleDescriptor(writer.Handle(), video, first), 0u);
  EXPECT_EQ(CodesBehindMoov(writer.File()), (Strings{"afra", "moof", "mdat"}));
  EXPECT_EQ(writer.TryAdd(video, {.time = 40}), 1536u);
  writer.StartFragment();
  writer.Add(video, 40, kKey);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "moof/traf/tfhd", 24), 2u);
  EXPECT_EQ(NumberIn(file, "moof#2/traf/tfhd", 24), 1u);
}

TEST(K7RLayout, DestroyingAGoodWriterWritesTheLastFragment) {
  for (const bool throughPlainHandle : {false, true}) {
    K7RSetup setup;
    OpenedK7RWriter& writer = setup.writer;
    writer.StartFragment();
    writer.Add(setup.video, 0, kKey);
    QiroK7RWriter* k7r = writer.K7R();
    QiroK7MWriter* plain = writer.Release();
    if (throughPlainHandle) {
      QiroK7MDestroyWriter(plain);
    } else {
      QiroK7RDestroyWriter(k7r);
    }
    const Bytes file = writer.File();
    EXPECT_EQ(CodesBehindMoov(file), (Strings{"afra", "moof", "mdat"}));
    EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
    OpenedReader reader(file);
    ASSERT_EQ(reader.Result(), 0u);
    EXPECT_EQ(MediaSamples(reader, reader.TrackAt(0)).size(), 1u);
  }
}

TEST(K7RLayout, DestroyingABadWriterWritesNothing) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.Add(setup.video, 0, kKey);
  writer.Stream().FailNth(Call::kWrite, 1, 4711);
  EXPECT_EQ(QiroK7MWriterFlush(writer.Handle()), 4711u);
  const Bytes before = writer.File();
  writer.Stream().ClearLog();
  writer.Destroy();
  EXPECT_EQ(writer.File(), before);
  EXPECT_EQ(writer.Stream().Count(Call::kWrite), 0u);
}

TEST(K7RLayout, AFailureToWriteTheLastFragmentAtDestructionIsSwallowed) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.Add(setup.video, 0, kKey);
  writer.Stream().FailNth(Call::kWrite, 1, 4711, true);
  writer.Destroy();
  EXPECT_EQ(writer.Stream().Count(Call::kClose), 1u);
}

}  // namespace
}  // namespace k7mtest

// Without an index: the fragments are those that the file shows when it is parsed.
#include <gtest/gtest.h>

#include "support/fragment_file.h"
#include "support/movie_builder.h"
#include "support/opened_servicer.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kBadFile = kQiroK7MErrorBadFragmentFile;
constexpr QiroK7MError kNotFound = kQiroK7MErrorFragmentNotFound;

void ExpectAllServed(const FragmentFile& file) {
  OpenedServicer servicer(file.bytes);
  ASSERT_EQ(servicer.Result(), 0u);
  for (uint32_t number = 1; number <= file.fragments.size(); ++number) {
    const Answer answer = servicer.Get(number);
    EXPECT_EQ(answer.result, 0u) << number;
    EXPECT_EQ(answer.size, file.fragments[number - 1].Size());
    EXPECT_EQ(answer.data, file.fragments[number - 1]) << number;
  }
  EXPECT_EQ(servicer.Get(static_cast<uint32_t>(file.fragments.size() + 1)).result, kNotFound);
}

/// A movie, and boxes behind it.
Bytes FileWith(const Bytes& boxes) { return FragmentedMovieHead() + boxes; }

const Bytes& AnAfra() {
  static const Bytes box = AfraBox({});
  return box;
}
const Bytes& AnAbst() {
  static const Bytes box = Box("abst", Pattern(9));
  return box;
}
const Bytes& AMoof() {
  static const Bytes box = Moof(1, {Pattern(5)}, 0);
  return box;
}
const Bytes& AnMdat() {
  static const Bytes box = Box("mdat", Pattern(5));
  return box;
}
const Bytes& AFree() {
  static const Bytes box = Box("free", Pattern(3));
  return box;
}
Bytes AFragment() { return AnAfra() + AMoof() + AnMdat(); }

TEST(Table, EveryFragmentIsServedByteForByte) { ExpectAllServed(SomeFragments(7)); }

TEST(Table, TheBootstrapBoxIsAPartOfTheFragment) {
  ExpectAllServed(BuildFragmentFile({{.bootstrap = Box("abst", Pattern(40))}, {}}));
}

TEST(Table, MediaDataMayStandBeforeItsMovieFragment) {
  ExpectAllServed(
      BuildFragmentFile({{.isMdatFirst = true}, {.bootstrap = AnAbst(), .isMdatFirst = true}, {}}));
}

TEST(Table, TheLargeSizeFormIsAPartOfTheFragment) {
  ExpectAllServed(BuildFragmentFile({{.hasLargeMdat = true}, {.isMdatFirst = true}}));
}

TEST(Table, OtherBoxesMayStandBetweenFragments) {
  ExpectAllServed(BuildFragmentFile({{.before = AFree()}, {.before = AFree() + Box("mfra")}, {}},
                                    Box("mfra") + AFree()));
}

TEST(Table, FragmentsMayStandBeforeTheMovieBox) {
  OpenedServicer servicer(AFragment() + FragmentedMovieHead() + AFragment());
  ASSERT_EQ(servicer.Result(), 0u);
  EXPECT_EQ(servicer.Get(1).data, AFragment());
  EXPECT_EQ(servicer.Get(2).data, AFragment());
}

TEST(Table, NumbersOutsideIt_Error1024) {
  OpenedServicer servicer(SomeFragments(3).bytes);
  for (const uint32_t number : {0u, 4u, 5u, 0xFFFFFFFFu}) {
    const Answer answer = servicer.Get(number);
    EXPECT_EQ(answer.result, kNotFound) << number;
    EXPECT_TRUE(answer.isNull);
  }
  EXPECT_EQ(servicer.Get(0, 0).result, kNotFound);
}

TEST(Table, TheSegmentNumberIsIgnored) {
  const FragmentFile file = SomeFragments(2);
  OpenedServicer servicer(file.bytes);
  for (const uint32_t segment : {0u, 1u, 2u, 0xFFFFFFFFu}) {
    EXPECT_EQ(servicer.Get(2, segment).data, file.fragments[1]) << segment;
  }
}

TEST(Table, AFileThatIsNotFragmentedHasNoFragments) {
  Movie movie;
  movie.tracks.push_back({.samples = SomeSamples(3)});
  // The boxes of a fragment in it are not looked at, in whatever order.
  movie.atEnd = AFragment() + AFree() + AnMdat() + AnAfra() + AFree();
  OpenedServicer servicer(BuildMovie(movie).bytes);
  ASSERT_EQ(servicer.Result(), 0u);
  EXPECT_EQ(servicer.Get(1).result, kNotFound);
}

TEST(Table, AFragmentedFileWithoutFragmentsHasNone) {
  OpenedServicer servicer(FragmentedMovieHead());
  ASSERT_EQ(servicer.Result(), 0u);
  EXPECT_EQ(servicer.Get(1).result, kNotFound);
}

TEST(Table, AFileWithoutAMovieBox_Error6) {
  EXPECT_EQ(ServicerResult(Bytes()), kQiroK7MErrorNoMovieBox);
  EXPECT_EQ(ServicerResult(AFree()), kQiroK7MErrorNoMovieBox);
  EXPECT_EQ(ServicerResult(AFragment()), kQiroK7MErrorNoMovieBox);
}

TEST(Table, ABoxInTheWrongPlace_Error1025) {
  const struct {
    const char* what;
    Bytes boxes;
  } files[] = {
      {"a second 'afra'", AnAfra() + AnAfra()},
      {"'afra' behind 'abst'", AnAbst() + AnAfra()},
      {"'afra' behind 'afra' and 'moof'", AnAfra() + AMoof() + AnAfra()},
      {"'afra' behind 'afra' and 'mdat'", AnAfra() + AnMdat() + AnAfra()},
      {"a second 'abst'", AnAfra() + AnAbst() + AnAbst()},
      {"'abst' behind 'moof'", AnAfra() + AMoof() + AnAbst()},
      {"'abst' behind 'mdat'", AnAfra() + AnMdat() + AnAbst()},
      {"'moof' without 'afra'", AMoof()},
      {"'moof' behind 'abst' alone", AnAbst() + AMoof()},
      {"a second 'moof'", AnAfra() + AMoof() + AMoof()},
      {"'mdat' without 'afra'", AnMdat()},
      {"'mdat' behind 'abst' alone", AnAbst() + AnMdat()},
      {"a second 'mdat'", AnAfra() + AnMdat() + AnMdat()},
      {"'free' behind 'afra'", AnAfra() + AFree()},
      {"'free' behind 'abst' alone", AnAbst() + AFree()},
      {"'free' behind 'abst'", AnAfra() + AnAbst() + AFree()},
      {"'free' behind 'moof'", AnAfra() + AMoof() + AFree()},
      {"'free' behind 'mdat'", AnAfra() + AnMdat() + AFree()},
  };
  for (const auto& file : files) {
    EXPECT_EQ(ServicerResult(FileWith(file.boxes)), kBadFile) << file.what;
    EXPECT_EQ(ServicerResult(FileWith(AFragment() + file.boxes)), kBadFile) << file.what;
  }
}

TEST(Table, AnUnfinishedLastFragmentIsNotListed) {
  for (const Bytes& rest : {AnAfra(), AnAfra() + AnAbst(), AnAfra() + AMoof(), AnAfra() + AnMdat(),
                            AnAfra() + AnAbst() + AMoof(), AnAbst()}) {
    OpenedServicer servicer(FileWith(AFragment() + rest));
    ASSERT_EQ(servicer.Result(), 0u);
    EXPECT_EQ(servicer.Get(1).data, AFragment());
    EXPECT_EQ(servicer.Get(2).result, kNotFound);
  }
}

TEST(Table, FragmentsAppendedLaterAreNotSeen) {
  OpenedServicer servicer(FileWith(AFragment()));
  servicer.File().Grow(AFragment());
  EXPECT_EQ(servicer.Get(1).data, AFragment());
  EXPECT_EQ(servicer.Get(2).result, kNotFound);
}

TEST(Table, MediaDataPastTheEnd_Error5UntilTheStreamHasGrown) {
  const FragmentFile file = SomeFragments(2);
  OpenedServicer servicer(Cut(file.bytes, file.bytes.Size() - 4));
  ASSERT_EQ(servicer.Result(), 0u);
  const uint64_t allocations = servicer.Memory().Allocations();
  EXPECT_EQ(servicer.Get(2).result, kQiroK7MErrorReadFailed);
  EXPECT_EQ(servicer.Memory().Allocations(), allocations) << "before anything is allocated";
  EXPECT_EQ(servicer.Get(1).data, file.fragments[0]);
  servicer.File().Grow(file.bytes.Slice(file.bytes.Size() - 4, 4));
  EXPECT_EQ(servicer.Get(2).data, file.fragments[1]);
}

TEST(Table, AStreamThatWasCutBehindTheServicersBack_Error5) {
  const FragmentFile file = SomeFragments(2);
  OpenedServicer servicer(file.bytes);
  servicer.File().SetLength(file.bytes.Size() - 1);
  EXPECT_EQ(servicer.Get(2).result, kQiroK7MErrorReadFailed);
  EXPECT_EQ(servicer.Get(1).data, file.fragments[0]);
}

/// A fragment of the given size, nearly all of which is a hole, at the end of the file.
void PutLargeFragment(OpenedServicer& servicer, uint64_t size) {
  const Bytes front = AnAfra() + AMoof();
  servicer.File().Grow(front + LyingLargeBox("mdat", size - front.Size()));
  servicer.File().SetLength(servicer.File().Length() - front.Size() - 16 + size);
}

TEST(Table, AFragmentOf32BitsIsAskedOfTheAllocator) {
  OpenedServicer servicer(FragmentedMovieHead(), {},
                          [](OpenedServicer& prepared) { PutLargeFragment(prepared, 0xFFFFFFFF); });
  ASSERT_EQ(servicer.Result(), 0u);
  servicer.Memory().FailNth(1);
  EXPECT_EQ(servicer.Get(1).result, kQiroK7MErrorOutOfMemory);
  EXPECT_TRUE(servicer.Memory().FaultHit());
}

TEST(Table, ALargerFragment_Error1025) {
  for (const uint64_t size : {0x100000000u, 0x100000005u, 0x80000000000u}) {
    OpenedServicer servicer(FragmentedMovieHead(), {},
                            [size](OpenedServicer& prepared) { PutLargeFragment(prepared, size); });
    ASSERT_EQ(servicer.Result(), 0u);
    const uint64_t allocations = servicer.Memory().Allocations();
    EXPECT_EQ(servicer.Get(1).result, kBadFile) << size;
    EXPECT_EQ(servicer.Memory().Allocations(), allocations);
  }
}

TEST(Table, MalformedBoxesHaveTheirOwnCodes) {
  const auto fragmentWith = [](const Bytes& moof) {
    return ServicerResult(FileWith(AnAfra() + moof + AnMdat()));
  };
  EXPECT_EQ(fragmentWith(Box("moof", FullBox("mfhd", 0, 0, Mfhd{}), Box("traf"))),
            kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(fragmentWith(Box("moof", FullBox("mfhd", 0, 0, Mfhd{}),
                             Box("traf", FullBox("tfhd", 0, 0, Tfhd{.trackId = 9})))),
            kQiroK7MErrorNoTrackExtends);
  EXPECT_EQ(ServicerResult(FileWith(LyingBox("free", 4))), kQiroK7MErrorBoxTruncated);
  EXPECT_EQ(ServicerResult(FileWith(LyingBox("afra", 100))), kQiroK7MErrorBoxTruncated);
}

}  // namespace
}  // namespace k7mtest

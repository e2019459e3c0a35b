// What requests cost, and what files and indexes of any content can make them cost.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <set>

#include "support/fragment_file.h"
#include "support/heap_watch.h"
#include "support/opened_servicer.h"

namespace k7mtest {
namespace {

/// The callbacks of both streams, in order of the enumeration.
std::vector<uint64_t> CallsOfBoth(OpenedServicer& servicer) {
  std::vector<uint64_t> counts;
  for (MemoryStream* stream : {&servicer.File(), &servicer.Index()}) {
    for (const Call call : {Call::kRead, Call::kSeek, Call::kTell, Call::kAny}) {
      counts.push_back(stream->Count(call));
    }
  }
  return counts;
}

/// The callbacks of one request for the last fragment but one of files of growing size, and those
/// of a fragment in the middle.
std::set<std::vector<uint64_t>> CostsOfARequest(
    const std::function<std::optional<Bytes>(const FragmentFile&)>& indexOf) {
  std::set<std::vector<uint64_t>> costs;
  for (const uint32_t count : {10u, 100u, 1000u}) {
    const FragmentFile file = SomeFragments(count);
    OpenedServicer servicer(file.bytes, indexOf(file));
    for (const uint32_t number : {3 * (count / 6), 3 * (count / 3)}) {  // No bootstrap box.
      EXPECT_EQ(servicer.Get(number).result, 0u);  // The stream is measured once.
      servicer.File().ClearLog();
      servicer.Index().ClearLog();
      EXPECT_EQ(servicer.Get(number).data, file.fragments[number - 1]);
      costs.insert(CallsOfBoth(servicer));
    }
  }
  return costs;
}

TEST(Effort, ARequestCostsTheSameWhateverTheFilesSize_LocalEntries) {
  const auto costs = CostsOfARequest([](const FragmentFile& file) { return LocalIndex(file); });
  ASSERT_EQ(costs.size(), 1u);
  // The file: three headers and the fragment; the index: its layout and one entry.
  EXPECT_EQ(*costs.begin(), (std::vector<uint64_t>{4, 4, 0, 8, 2, 2, 0, 4}));
}

TEST(Effort, ARequestCostsTheSameWhateverTheFilesSize_GlobalEntries) {
  const auto costs = CostsOfARequest([](const FragmentFile& file) { return GlobalIndex(file); });
  ASSERT_EQ(costs.size(), 1u);
  // The index: its layout, the count, the first entry and one more.
  EXPECT_EQ(*costs.begin(), (std::vector<uint64_t>{4, 4, 0, 8, 4, 4, 0, 8}));
}

TEST(Effort, ARequestCostsTheSameWhateverTheFilesSize_Table) {
  const auto costs = CostsOfARequest([](const FragmentFile&) { return std::nullopt; });
  ASSERT_EQ(costs.size(), 1u);
  EXPECT_EQ(*costs.begin(), (std::vector<uint64_t>{3, 3, 0, 6, 0, 0, 0, 0}));
}

TEST(Effort, AServicerWithAnIndexReadsNothingOfTheFileWhenItIsMade) {
  for (const size_t count : {10u, 1000u}) {
    const FragmentFile file = SomeFragments(count);
    OpenedServicer servicer(file.bytes, LocalIndex(file));
    ASSERT_EQ(servicer.Result(), 0u);
    EXPECT_EQ(servicer.File().Count(Call::kAny), 1u) << "it is opened";
    EXPECT_LE(servicer.Index().Count(Call::kAny), 8u);
    EXPECT_EQ(servicer.Memory().Allocations(), 1u);
  }
}

TEST(Effort, MakingATableIsLinear) {
  std::vector<uint64_t> calls;
  for (const size_t count : {100u, 200u, 400u}) {
    const FragmentFile file = SomeFragments(count);
    OpenedServicer servicer(file.bytes);
    calls.push_back(servicer.File().Count(Call::kAny));
  }
  EXPECT_NEAR(static_cast<double>(calls[2] - calls[1]),
              2.0 * static_cast<double>(calls[1] - calls[0]), 0.05 * static_cast<double>(calls[2]));
}

TEST(Effort, ManyFragmentsAreListed) {
  constexpr uint32_t kCount = 50000;
  const FragmentFile file = SomeFragments(kCount);
  OpenedServicer servicer(file.bytes, {},
                          [](OpenedServicer& prepared) { prepared.File().StopLogging(); });
  ASSERT_EQ(servicer.Result(), 0u);
  EXPECT_EQ(servicer.Get(kCount).data, file.fragments[kCount - 1]);
  EXPECT_EQ(servicer.Get(1).data, file.fragments[0]);
}

TEST(Effort, ALargeIndexIsNotLoaded) {
  constexpr uint32_t kCount = 0xFFFFFFF0;
  constexpr uint64_t kSize = 21 + uint64_t{kCount} * 16;
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, Bytes{}, [&](OpenedServicer& prepared) {
    const Bytes front = FullBox("afra", 0, 0, Afra{.localCount = kCount});
    prepared.Index().Put(0, LargeBox("afra", front.Slice(8, 13)).Patch(8, kSize + 8, 8));
    prepared.Index().SetLength(kSize + 8);
    prepared.Index().Put(kSize, Bytes().U64(file.offsets[0]));
  });
  ASSERT_EQ(servicer.Result(), 0u);
  EXPECT_EQ(servicer.Get(kCount).data, file.fragments[0]);
  EXPECT_LT(servicer.Index().BytesDelivered(), 100u);
  EXPECT_LT(servicer.Memory().PeakBytes(), 10000u);
}

// Any content
// ----------------------------------------------------------------------------------------

/// A servicer and requests over bytes of any content: it ends, and its memory stays in bounds.
void Try(const Bytes& file, const std::optional<Bytes>& index, std::mt19937& random) {
  OpenedServicer servicer(file, index);
  if (servicer.Result() == 0) {
    servicer.File().ClearLog();
    servicer.Index().ClearLog();
    for (const uint32_t number : {1u, 2u, 3u, 4u, static_cast<uint32_t>(random())})
      servicer.Get(number);
    if (index) {
      EXPECT_LE(servicer.File().Count(Call::kAny) + servicer.Index().Count(Call::kAny), 5u * 60);
    }
  }
  EXPECT_LE(servicer.Memory().PeakBytes(), (64u << 20) + 48 * file.Size());
  EXPECT_LE(servicer.File().GreatestOffset(), file.Size());
  EXPECT_LE(servicer.Index().GreatestOffset(), servicer.Index().Length());
}

/// Some bytes set to values that are often wrong.
Bytes Damaged(Bytes bytes, std::mt19937& random) {
  static constexpr uint8_t kValues[] = {0x00, 0x01, 0x7F, 0x80, 0xFF};
  for (uint32_t i = 0; i <= random() % 4; ++i) {
    bytes[random() % bytes.Size()] =
        random() % 2 == 0 ? kValues[random() % 5] : static_cast<uint8_t>(random());
  }
  return bytes;
}

TEST(AnyContent, OfTheIndexDoesNoHarm) {
  std::mt19937 random(1);
  const FragmentFile file = SomeFragments(3);
  for (int i = 0; i < 4000; ++i) {
    const Bytes index = i % 2 == 0 ? LocalIndex(file) : GlobalIndex(file);
    Try(file.bytes, Damaged(index, random), random);
    if (HasFailure()) break;
  }
}

TEST(AnyContent, OfTheFileDoesNoHarm) {
  std::mt19937 random(2);
  const FragmentFile file = SomeFragments(3);
  const Bytes head = FragmentedMovieHead();
  for (int i = 0; i < 3000; ++i) {
    Bytes fragments = file.bytes.Slice(head.Size(), file.bytes.Size() - head.Size());
    const Bytes damaged = head + Damaged(fragments, random);
    Try(damaged, LocalIndex(file), random);
    Try(damaged, {}, random);
    if (HasFailure()) break;
  }
}

TEST(AnyContent, AllOnesAndAllZeros) {
  std::mt19937 random(3);
  const FragmentFile file = SomeFragments(1);
  for (const uint8_t value : {uint8_t{0x00}, uint8_t{0xFF}}) {
    for (size_t size = 0; size < 60; ++size) {
      const Bytes rest = Bytes().Fill(size, value);
      Try(file.bytes, Box("afra", rest), random);
      Try(rest, LocalIndex(file), random);
      Try(rest, AfraBox({.locals = {{.offset = 0}}}), random);
      Try(FragmentedMovieHead() + AfraBox({}) + rest, {}, random);
    }
  }
}

TEST(AnyContent, AStreamThatLiesAboutItsLengthIsAShortRead) {
  const Bytes fragment = AfraBox({}) + Box("moof") + LyingBox("mdat", 0x10000000, Pattern(10));
  OpenedServicer servicer(fragment, AfraBox({.locals = {{.offset = 0}}}));
  servicer.File().ClaimLength(uint64_t{1} << 60);
  const uint64_t allocations = servicer.Memory().Allocations();
  EXPECT_EQ(servicer.Get(1).result, kQiroK7MErrorReadFailed);
  EXPECT_EQ(servicer.Memory().Allocations(), allocations + 1);
}

}  // namespace
}  // namespace k7mtest

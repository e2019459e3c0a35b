// The bytes of samples, and how they are fetched.
#include <gtest/gtest.h>

#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr uint64_t kBlock = 4096;

Movie MovieOf(const std::vector<TestSample>& samples) {
  Movie movie;
  movie.tracks.push_back({.samples = samples});
  return movie;
}

/// The reads of taking all samples' bytes: where they began and what was asked for.
std::vector<std::pair<uint64_t, uint64_t>> ReadsOfData(OpenedReader& reader) {
  reader.Stream().ClearLog();
  for (const ReadSample& sample : MediaSamples(reader)) EXPECT_EQ(sample.dataResult, 0u);
  std::vector<std::pair<uint64_t, uint64_t>> reads;
  for (const CallRecord& call : reader.Stream().Log()) {
    if (call.call == Call::kRead) reads.emplace_back(call.offset, call.size);
  }
  return reads;
}

TEST(SampleData, AreTheBytesInTheFile) {
  for (const size_t size : {size_t{1}, size_t{4095}, size_t{4096}, size_t{4097}, size_t{100000}}) {
    const std::vector<TestSample> samples = {SampleOf(size, 1, 1), SampleOf(size, 1, 2),
                                             SampleOf(size, 1, 3)};
    OpenedReader reader(BuildMovie(MovieOf(samples)).bytes);
    EXPECT_EQ(Data(MediaSamples(reader)),
              (std::vector{samples[0].data, samples[1].data, samples[2].data}))
        << size;
  }
}

TEST(SampleData, SmallSamplesOfABlockNeedOneRead) {
  std::vector<TestSample> samples(40, SampleOf(100));
  const MovieFile file = BuildMovie(MovieOf(samples));
  OpenedReader reader(file.bytes);
  const auto reads = ReadsOfData(reader);
  ASSERT_EQ(reads.size(), 1u);
  EXPECT_EQ(reads[0], std::pair(file.mdatOffset, kBlock)) << "blocks count from the first 'mdat'";
}

TEST(SampleData, ASampleThatBeginsInALoadedBlockNeedsTheNextBlockOnly) {
  const MovieFile file = BuildMovie(MovieOf({SampleOf(4000), SampleOf(200, 1, 7)}));
  OpenedReader reader(file.bytes);
  EXPECT_EQ(ReadsOfData(reader), (std::vector{std::pair{file.mdatOffset, kBlock},
                                              std::pair{file.mdatOffset + kBlock, kBlock}}));
  EXPECT_EQ(Data(MediaSamples(reader))[1], Pattern(200, 7));
}

TEST(SampleData, ASampleAcrossTwoBlocksIsReadDirectlyBehindTheFirst) {
  Movie movie = MovieOf({SampleOf(4000), SampleOf(200, 1, 7)});
  movie.tracks[0].edits = {{.segmentDuration = 10, .mediaTime = 10}};  // The second one alone.
  const MovieFile file = BuildMovie(movie);
  OpenedReader reader(file.bytes);
  reader.Stream().ClearLog();
  EXPECT_EQ(Data(AllSamples(reader)), std::vector{Pattern(200, 7)});
  std::vector<std::pair<uint64_t, uint64_t>> reads;
  for (const CallRecord& call : reader.Stream().Log()) {
    if (call.call == Call::kRead) reads.emplace_back(call.offset, call.size);
  }
  EXPECT_EQ(reads, (std::vector{std::pair{file.mdatOffset, kBlock},
                                std::pair{file.mdatOffset + 4008, uint64_t{200}}}));
}

TEST(SampleData, LargeSamplesByPassTheCache) {
  const MovieFile file = BuildMovie(MovieOf({SampleOf(5000), SampleOf(5000, 1, 2)}));
  OpenedReader reader(file.bytes);
  EXPECT_EQ(ReadsOfData(reader), (std::vector{std::pair{file.mdatOffset + 8, uint64_t{5000}},
                                              std::pair{file.mdatOffset + 5008, uint64_t{5000}}}));
}

TEST(SampleData, ThatAreNotThereInFullAreError1030) {
  for (const size_t size : {size_t{50}, size_t{4000}, size_t{6000}}) {
    const MovieFile file = BuildMovie(MovieOf({SampleOf(size, 1, 1), SampleOf(size, 1, 2)}));
    for (const size_t missing : {size_t{1}, size - 1, size, size + 1}) {
      OpenedReader reader(Cut(file.bytes, file.bytes.Size() - missing));
      ASSERT_EQ(reader.Result(), 0u);
      const auto samples = MediaSamples(reader);
      ASSERT_EQ(samples.size(), 2u);
      EXPECT_EQ(samples[0].dataResult,
                missing > size ? kQiroK7MErrorSampleDataShort : kQiroK7MErrorNone);
      EXPECT_EQ(samples[1].dataResult, kQiroK7MErrorSampleDataShort) << size << " " << missing;
    }
  }
}

TEST(SampleData, BytesThatComeTwiceCountOnce) {
  // The block delivers the beginning of the second sample, and the direct read delivers it again.
  const MovieFile file = BuildMovie(MovieOf({SampleOf(4000), SampleOf(150)}));
  OpenedReader reader(Cut(file.bytes, file.mdatOffset + kBlock));
  const auto samples = MediaSamples(reader);
  EXPECT_EQ(samples[0].dataResult, 0u);
  EXPECT_EQ(samples[1].dataResult, kQiroK7MErrorSampleDataShort);
}

TEST(SampleData, CanBeHadWhenTheFileHasGrown) {
  const MovieFile file = BuildMovie(MovieOf({SampleOf(50, 1, 1), SampleOf(50, 1, 2)}));
  OpenedReader reader(Cut(file.bytes, file.bytes.Size() - 10));
  EXPECT_EQ(MediaSamples(reader)[1].dataResult, kQiroK7MErrorSampleDataShort);
  reader.Stream().Grow(file.bytes.Slice(file.bytes.Size() - 10, 10));
  EXPECT_EQ(MediaSamples(reader)[1].dataResult, 0u);
  EXPECT_EQ(MediaSamples(reader)[1].data, Pattern(50, 2));
}

TEST(SampleData, BeforeTheFirstMediaBoxAreNotReadable) {
  Movie movie = MovieOf({SampleOf(10)});
  movie.tracks[0].chunkOffsets = [](const std::vector<uint64_t>&) {
    return FullBox("stco", 0, 0, Stco{.offsets = {0}});
  };
  EXPECT_EQ(MediaSamples(OpenedReader(BuildMovie(movie).bytes))[0].dataResult,
            kQiroK7MErrorSampleDataShort);
  movie.isMovieBoxLast = true;  // Also in front of media that come before the movie.
  EXPECT_EQ(MediaSamples(OpenedReader(BuildMovie(movie).bytes))[0].dataResult,
            kQiroK7MErrorSampleDataShort);
}

TEST(SampleData, InAnotherBoxBehindTheMediaAreReadable) {
  Movie movie = MovieOf({SampleOf(10)});
  movie.atEnd = Box("free", Pattern(30, 4));
  const MovieFile first = BuildMovie(movie);
  const auto offset = static_cast<uint32_t>(first.bytes.Size() - 30);
  movie.tracks[0].chunkOffsets = [&](const std::vector<uint64_t>&) {
    return FullBox("stco", 0, 0, Stco{.offsets = {offset}});
  };
  EXPECT_EQ(MediaSamples(OpenedReader(BuildMovie(movie).bytes))[0].data, Cut(Pattern(30, 4), 10));
}

TEST(SampleData, OfSize0ReadNothing) {
  OpenedReader reader(BuildMovie(MovieOf({SampleOf(0), SampleOf(0)})).bytes);
  EXPECT_TRUE(ReadsOfData(reader).empty());
}

TEST(SampleData, CanBeTakenInAnyOrderAndAfterTheIterator) {
  const std::vector<TestSample> made = {SampleOf(3000, 1, 1), SampleOf(3000, 1, 2),
                                        SampleOf(3000, 1, 3)};
  OpenedReader reader(BuildMovie(MovieOf(made)).bytes);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamples(reader.Handle(), &iterator), 0u);
  std::vector<QiroK7MSample*> samples(3);
  for (QiroK7MSample*& sample : samples) {
    ASSERT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), 0u);
  }
  QiroK7MReleaseSampleIterator(iterator);
  for (const size_t i : {size_t{2}, size_t{0}, size_t{1}}) {
    EXPECT_EQ(TakeSample(samples[i]).data, made[i].data);
  }
}

}  // namespace
}  // namespace k7mtest

// Handles of their own on many threads at once. The results are compared here; that nothing is
// shared between them is judged by the thread sanitizer (scripts/checks/tsan).
#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <functional>
#include <thread>
#include <vector>

#include "k7r_recording.h"
#include "support/fragment_builder.h"
#include "support/fragment_file.h"
#include "support/opened_servicer.h"

namespace k7mtest {
namespace {

constexpr size_t kThreads = 8;
constexpr size_t kRounds = 6;

/// Files that all threads read from; nobody changes them.
struct Files {
  Bytes plain;
  Bytes fragmented;
  FragmentFile served;
  Bytes index;
  Bytes broken;
};

Files MakeFiles() {
  Files files;
  Movie movie{.tracks = {{.samples = SomeSamples(40), .samplesPerChunk = 3},
                         {.handler = "soun", .samples = SomeSamples(30, 7)}},
              .atEnd = UuidBox(kMetadataUuid, Pattern(6))};
  movie.tracks[0].edits = {{.segmentDuration = 5, .mediaTime = -1}, {.segmentDuration = 300}};
  files.plain = BuildMovie(movie).bytes;
  const Trex defaults{.duration = 10, .size = 2};
  files.fragmented = BuildMovie(FragmentedMovie({{.duration = 1000}}, defaults)).bytes;
  for (int i = 0; i < 5; ++i) {
    files.fragmented.Append(Moof(Traf(0, Tfhd{.trackId = 1}, DefaultRun(7))));
  }
  files.served = SomeFragments(6);
  files.index = LocalIndex(files.served);
  files.broken = Cut(files.plain, files.plain.Size() / 4);
  return files;
}

/// What one handle told, in a form that can be compared.
using Told = std::vector<Bytes>;

Bytes Numbers(const std::vector<ReadSample>& samples) {
  Bytes numbers;
  for (const ReadSample& sample : samples) {
    numbers.U64(sample.info.timeStamp).U32(sample.info.sampleSize).U32(sample.dataResult);
  }
  return numbers;
}

Told Read(const Bytes& file) {
  OpenedReader reader(file);
  if (reader.Result() != 0) return {Bytes().U32(reader.Result())};
  Told told = Data(AllSamples(reader));
  told.push_back(Numbers(MediaSamples(reader)));
  told.push_back(Numbers(SamplesBetween(reader, 1000, 20, 1000, 150)));
  for (QiroK7MTrack* track : reader.Tracks()) {
    uint32_t count = 0;
    QiroK7MTrackGetSampleCount(track, &count);
    told.push_back(Bytes().U32(count).U32(InfoOf(track).timeScale));
  }
  uint32_t length = 0;
  QiroK7MReaderGetUlbDataLength(reader.Handle(), &length);
  told.push_back(Bytes().U32(length));
  return told;
}

Told Serve(const FragmentFile& file, const std::optional<Bytes>& index) {
  OpenedServicer servicer(file.bytes, index);
  Told told;
  for (uint32_t number = 0; number <= file.fragments.size() + 1; ++number) {
    const Answer answer = servicer.Get(number);
    told.push_back(Bytes().U32(answer.result) + answer.data);
  }
  return told;
}

Told WritePlain() {
  OpenedWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun", .timeScale = 8000});
  for (uint64_t i = 0; i < 10; ++i) {
    writer.Add(video, {.time = i * 40, .data = Pattern(20 + i), .flags = kKey});
    writer.Add(audio, {.time = i * 320, .data = Pattern(9)});
    if (i == 5) writer.Flush();
  }
  return {writer.Finish()};
}

Told WriteAndContinue() {
  const Bytes recorded = Record(2, true).file;
  OpenedK7RWriter writer(recorded);
  AddFragment(writer, writer.DescribedTracks(), 7);
  return {recorded, writer.Finish()};
}

Told Names() {
  Told told;
  for (QiroK7MError code = 0; code < 1600; ++code) {
    told.push_back(Bytes().Text(QiroK7MErrorName(code)).Text(QiroK7MErrorText(code)));
  }
  return told;
}

constexpr size_t kJobs = 8;

Told DoJob(const Files& files, size_t job) {
  switch (job) {
    case 0:
      return Read(files.plain);
    case 1:
      return Read(files.fragmented);
    case 2:
      return Read(files.broken);
    case 3:
      return Serve(files.served, files.index);
    case 4:
      return Serve(files.served, {});
    case 5:
      return WritePlain();
    case 6:
      return WriteAndContinue();
    default:
      return Names();
  }
}

/// Runs `work(thread, round)` on all threads; they begin every round together.
void OnAllThreads(size_t rounds, const std::function<void(size_t, size_t)>& work) {
  std::barrier begin(kThreads);
  std::vector<std::jthread> threads;
  for (size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (size_t round = 0; round < rounds; ++round) {
        begin.arrive_and_wait();
        work(thread, round);
      }
    });
  }
}

// The first of all tests: what the library makes at its first use is then made under way.
TEST(Threads, HandlesOfTheirOwnOfEveryKindDoNotDisturbEachOther) {
  const Files files = MakeFiles();
  std::array<std::array<Told, kJobs>, kThreads> told;
  std::array<bool, kThreads> isSteady{};
  isSteady.fill(true);
  // First all do the same, then each something else.
  OnAllThreads(kJobs * kRounds, [&](size_t thread, size_t round) {
    const size_t job = (round < kJobs ? round : round + thread) % kJobs;
    Told now = DoJob(files, job);
    if (round >= kJobs && now != told[thread][job]) isSteady[thread] = false;
    told[thread][job] = std::move(now);
  });
  for (size_t job = 0; job < kJobs; ++job) {
    const Told alone = DoJob(files, job);
    EXPECT_FALSE(alone.empty());
    for (size_t thread = 0; thread < kThreads; ++thread) {
      EXPECT_EQ(told[thread][job], alone) << "job " << job << " on thread " << thread;
    }
  }
  for (const bool steady : isSteady) EXPECT_TRUE(steady);
}

TEST(Threads, ReadersOfOneMemoryRecordWithoutCallbacksAreIndependent) {
  const Files files = MakeFiles();
  const QiroK7MAllocatorCallBacks memory;  // The global operators.
  const QiroK7MWarningHandlerCallBacks warnings;
  std::array<uint64_t, kThreads> counts{};
  OnAllThreads(kRounds, [&](size_t thread, size_t) {
    MemoryStream stream(files.plain);
    const QiroK7MIStreamCallBacks callBacks = stream.Reading();
    QiroK7MReader* reader = nullptr;
    QiroK7MSampleIterator* samples = nullptr;
    if (QiroK7MDocOpenForRead(&callBacks, &warnings, &memory, &reader) != 0) return;
    if (QiroK7MReaderGetMediaSamples(reader, nullptr, 0, &samples) == 0) {
      counts[thread] += Drain(samples).size();
    }
    QiroK7MCloseReader(reader);
  });
  for (const uint64_t count : counts) EXPECT_EQ(count, 70u * kRounds);
}

TEST(Threads, AHandleMayGoFromThreadToThreadOneAfterTheOther) {
  const Files files = MakeFiles();
  Told told;
  std::optional<OpenedReader> reader;
  std::thread([&] { reader.emplace(files.plain); }).join();
  std::thread([&] { told = Data(AllSamples(*reader)); }).join();
  std::thread([&] { reader.reset(); }).join();
  OpenedReader again(files.plain);
  EXPECT_EQ(told, Data(AllSamples(again)));
  EXPECT_GT(told.size(), 30u);
}

}  // namespace
}  // namespace k7mtest

// The search for the fragments of a time, against a look at every one of them.
#include "boxes/track_fragments.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

#include "internals/document.h"

namespace k7mtest {
namespace {

struct Span {
  uint64_t start;
  uint64_t end;
  uint64_t moofOffset;
};
using Spans = std::vector<Span>;

/// Fragments that follow each other, with these durations.
Spans InSequence(const std::vector<uint64_t>& durations) {
  Spans spans;
  uint64_t time = 0;
  for (const uint64_t duration : durations) {
    spans.push_back({time, time + duration, 8 * spans.size()});
    time += duration;
  }
  return spans;
}

Spans EquallyLong() { return InSequence(std::vector<uint64_t>(200, 10)); }

/// The place that equal durations would give is far off.
Spans OneVeryLong() {
  std::vector<uint64_t> durations(100, 1);
  durations.push_back(1000000);
  durations.insert(durations.end(), 100, 1);
  return InSequence(durations);
}

Spans NoneLasts() { return InSequence(std::vector<uint64_t>(40, 0)); }

Spans ToTheEndOfTime() { return InSequence({5, 7, std::numeric_limits<uint64_t>::max() - 20, 3}); }

/// Each start and end is at or behind the one before; there are gaps, common starts and common
/// ends, and up to three of them in a 'moof'.
Spans AtRandom(uint32_t seed) {
  std::mt19937 random(seed);
  Spans spans;
  Span span{random() % 4, 0, 0};
  span.end = span.start + random() % 6;
  for (int i = 0; i < 150; ++i) {
    spans.push_back(span);
    span.start += random() % 5;
    span.end = std::max(span.end + random() % 5, span.start);
    span.moofOffset += random() % 3 == 0 ? 0 : 8;
  }
  return spans;
}

/// They overlap and go back in time.
Spans Disordered(uint32_t seed) {
  Spans spans = AtRandom(seed);
  for (size_t i = 0; i + 7 < spans.size(); i += 5) {
    std::swap(spans[i].start, spans[i + 7].start);
    spans[i].end = std::max(spans[i].start, spans[i].end);
    spans[i + 7].end = std::max(spans[i + 7].start, spans[i + 7].end);
  }
  return spans;
}

bool IsInOrder(const Spans& spans) {
  for (size_t i = 1; i < spans.size(); ++i) {
    if (spans[i].start < spans[i - 1].start || spans[i].end < spans[i - 1].end) {
      return false;
    }
  }
  return true;
}

size_t FirstEndingAfter(const Spans& spans, uint64_t time) {
  size_t i = 0;
  while (i < spans.size() && spans[i].end <= time) {
    ++i;
  }
  return i;
}

size_t Covering(const Spans& spans, uint64_t time, size_t begin) {
  size_t last = spans.size();
  for (size_t i = begin; i < spans.size(); ++i) {
    if (spans[i].start <= time && time <= spans[i].end) {
      last = i;
    }
  }
  if (last == spans.size()) {
    return last;
  }
  size_t first = last;
  while (first > 0 && spans[first - 1].moofOffset == spans[last].moofOffset) {
    --first;
  }
  while (IsInOrder(spans) && spans[first].end < time) {
    ++first;
  }
  return first;
}

void ExpectAllFound(const Spans& spans) {
  impl::TrackFragments fragments(nullptr);
  for (const Span& span : spans) {
    fragments.Announce(span.moofOffset, span.end);
    fragments.Add({.startTime = span.start, .endTime = span.end}, span.moofOffset);
  }
  std::vector<uint64_t> times = {0, std::numeric_limits<uint64_t>::max()};
  for (const Span& span : spans) {
    for (const uint64_t time : {span.start, span.end, span.start + (span.end - span.start) / 2}) {
      times.insert(times.end(), {time - 1, time, time + 1});
    }
  }
  for (const uint64_t time : times) {
    ASSERT_EQ(fragments.FindFirstEndingAfter(time), FirstEndingAfter(spans, time)) << time;
    for (const size_t begin : {size_t{0}, spans.size() / 2, spans.size()}) {
      ASSERT_EQ(fragments.FindCovering(time, begin), Covering(spans, time, begin))
          << time << " from " << begin;
    }
  }
}

TEST(TrackFragments, AreFoundWhereAllAreEquallyLong) { ExpectAllFound(EquallyLong()); }
TEST(TrackFragments, AreFoundBesideOneThatIsVeryLong) { ExpectAllFound(OneVeryLong()); }
TEST(TrackFragments, AreFoundWhereNoneLasts) { ExpectAllFound(NoneLasts()); }
TEST(TrackFragments, AreFoundUpToTheEndOfTime) { ExpectAllFound(ToTheEndOfTime()); }
TEST(TrackFragments, NoneIsFoundAmongNone) { ExpectAllFound({}); }

TEST(TrackFragments, AreFoundWithGapsAndOverlaps) {
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    ASSERT_TRUE(IsInOrder(AtRandom(seed)));
    ExpectAllFound(AtRandom(seed));
  }
}

TEST(TrackFragments, AreFoundWhereTimeGoesBack) {
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    ASSERT_FALSE(IsInOrder(Disordered(seed)));
    ExpectAllFound(Disordered(seed));
  }
}

TEST(TrackFragments, ThoseThatAreForgottenAreNotFound) {
  impl::TrackFragments fragments(nullptr);
  for (const Span& span : EquallyLong()) {
    fragments.Announce(span.moofOffset, span.end);
    fragments.Add({.startTime = span.start, .endTime = span.end}, span.moofOffset);
  }
  fragments.ForgetBehind(8 * 99);
  EXPECT_EQ(fragments.Size(), 100U);
  EXPECT_EQ(fragments.FindFirstEndingAfter(999), 99U);
  EXPECT_EQ(fragments.FindFirstEndingAfter(1000), 100U);
  EXPECT_EQ(fragments.FindCovering(1001, 0), 100U);
}

}  // namespace
}  // namespace k7mtest

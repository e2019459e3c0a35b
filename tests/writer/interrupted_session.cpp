#include "interrupted_session.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace k7mtest {
namespace {

constexpr uint64_t kSector = 512;

void Make(const StreamChange& change, uint64_t size, MemoryStream& stream) {
  if (change.isTruncation) {
    stream.SetLength(change.offset);
  } else {
    stream.Put(change.offset, Cut(change.bytes, size));
  }
}

}  // namespace

const Mark* Session::LastMark(size_t changeCount) const {
  const Mark* last = nullptr;
  for (const Mark& mark : marks) {
    if (mark.changes <= changeCount) last = &mark;
  }
  return last;
}

Bytes FileAfter(const Session& session, const Interruption& interruption) {
  static uint64_t count = 0;  // In this program; told to whoever reads the results as XML.
  ::testing::Test::RecordProperty("interruptedFiles", std::to_string(++count));
  MemoryStream stream(session.begin);
  for (size_t i = 0; i < interruption.changes; ++i) {
    Make(session.changes[i], session.changes[i].bytes.Size(), stream);
  }
  if (interruption.bytesOfNext != 0) {
    Make(session.changes[interruption.changes], interruption.bytesOfNext, stream);
  }
  for (const size_t i : interruption.later) {
    Make(session.changes[i], session.changes[i].bytes.Size(), stream);
  }
  return stream.Content();
}

std::vector<Interruption> EveryInterruption(const Session& session) {
  std::vector<Interruption> all;
  for (size_t i = 0; i < session.changes.size(); ++i) {
    all.push_back({.changes = i});
    const StreamChange& next = session.changes[i];
    const uint64_t end = next.offset + next.bytes.Size();
    uint64_t sector = (next.offset / kSector + 1) * kSector;
    for (; sector < end && !next.isTruncation; sector += kSector) {
      all.push_back({.changes = i, .bytesOfNext = sector - next.offset});
    }
  }
  all.push_back({.changes = session.changes.size()});
  return all;
}

std::vector<Interruption> OutOfOrderInterruptions(const Session& session, size_t count) {
  std::mt19937 random(1);
  std::vector<Interruption> all;
  for (size_t mark = 0; mark + 1 < session.marks.size(); ++mark) {
    const size_t begin = session.marks[mark].changes;
    const size_t end = session.marks[mark + 1].changes;
    for (size_t one = begin; one < end; ++one) {
      all.push_back({.changes = begin, .later = {one}});
      Interruption others{.changes = begin};
      for (size_t i = begin; i < end; ++i) {
        if (i != one) others.later.push_back(i);
      }
      all.push_back(others);
    }
    for (size_t choice = 0; choice < count; ++choice) {
      Interruption some{.changes = begin};
      for (size_t i = begin; i < end; ++i) {
        if (random() % 2 == 0) some.later.push_back(i);
      }
      all.push_back(some);
    }
  }
  return all;
}

std::vector<ReadSample> SamplesOf(QiroK7MError asked, QiroK7MSampleIterator* samples,
                                  QiroK7MError& failure) {
  failure = asked;
  return asked == 0 ? Drain(samples, true, &failure) : std::vector<ReadSample>();
}

}  // namespace k7mtest

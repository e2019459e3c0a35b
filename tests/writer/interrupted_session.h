/// @file interrupted_session.h
/// Writing sessions of which every change to the stream is known, and the files that they leave
/// when they end early.
#ifndef K7M_TESTS_WRITER_INTERRUPTED_SESSION_H
#define K7M_TESTS_WRITER_INTERRUPTED_SESSION_H

#include <vector>

#include "support/memory_stream.h"
#include "support/opened_reader.h"

namespace k7mtest {

/// A moment at which the library had answered a flush, or the close.
struct Mark {
  size_t changes;        // So many changes had been made.
  size_t samples;        // So many samples of every track were complete.
  size_t fragments = 0;  // So many fragments were complete.
};

struct Session {
  Bytes begin;  // What was on the stream before the first change.
  std::vector<StreamChange> changes;
  std::vector<Mark> marks;

  /// The last mark that is not behind so many changes; null before the first one.
  const Mark* LastMark(size_t changeCount) const;
};

/// How much of a session reached the disk.
struct Interruption {
  size_t changes;               // These came whole.
  uint64_t bytesOfNext = 0;     // And so many bytes of the next one.
  std::vector<size_t> later{};  // And these, out of order.
};

Bytes FileAfter(const Session& session, const Interruption& interruption);

/// Every change but the last, and within every change each place where a sector of 512 bytes ends.
std::vector<Interruption> EveryInterruption(const Session& session);

/// For every mark and for what was changed behind it up to the next one: each change alone, all but
/// each one, and `count` random choices.
std::vector<Interruption> OutOfOrderInterruptions(const Session& session, size_t count);

/// The samples of a query up to its failure, which goes to `failure`.
std::vector<ReadSample> SamplesOf(QiroK7MError asked, QiroK7MSampleIterator* samples,
                                  QiroK7MError& failure);

}  // namespace k7mtest

#endif

/// @file writer_verdict.h
/// What a run of writer calls with one fault in it must have done.
#ifndef K7M_TESTS_API_WRITER_VERDICT_H
#define K7M_TESTS_API_WRITER_VERDICT_H

#include "writer_script.h"
#include "writer_unharmed.h"

namespace k7mtest {

/// The first step that did not answer 0; the number of steps when all did.
size_t FirstFailure(const ScriptResult& result);

/// Every buffer that was handed over has come back once.
void ExpectBuffersBack(const WriterScript& script, const ScriptResult& result);

/// `code` is what the fault answers; it must make a writer bad. `unharmed`: the same calls without
/// a fault.
void Judge(const WriterScript& script, const ScriptResult& result, bool wasHit, QiroK7MError code,
           const MemoryStream& stream, const UnharmedRun& unharmed);

}  // namespace k7mtest

#endif

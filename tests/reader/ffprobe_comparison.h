/// @file ffprobe_comparison.h
/// The samples of an opened file against the packets that ffprobe finds in it.
#ifndef K7M_TESTS_READER_FFPROBE_COMPARISON_H
#define K7M_TESTS_READER_FFPROBE_COMPARISON_H

#include <string>

#include "ffprobe_packets.h"
#include "support/opened_reader.h"

namespace k7mtest {

enum class FragmentTimes : uint8_t {
  kOfTheFile,     ///< Decode times are those of the packets.
  kFromZeroEach,  ///< The fragments of a track count from 0, whatever is in the movie box.
};

bool IsFragmented(const OpenedReader& reader);

/// The first difference between the samples as they lie in the file and the packets: sizes, times,
/// key flags, bytes. Empty when there is none.
std::string DifferenceOf(const OpenedReader& reader, const ProbedFile& probed,
                         FragmentTimes times = FragmentTimes::kOfTheFile);

}  // namespace k7mtest

#endif

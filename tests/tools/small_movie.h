/// @file small_movie.h
/// The document that most tests of the program look at.
#pragma once

#include "support/movie_builder.h"

namespace k7mtest {

/// Track 1: 'vide', 5 samples of 40 ms with composition offsets, two of them sync samples, two
/// descriptions, dependencies. Track 2: 'soun', 10 samples of 20 ms.
Movie SmallMovie();
/// Its bytes.
Bytes SmallFile();
/// The codec header of the video track's second description.
Bytes SecondCodecHeader();
/// The 'uuid' box whose payload is the document's metadata packet.
Bytes MetadataBox(const Bytes& packet);

}  // namespace k7mtest

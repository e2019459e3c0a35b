// Files with any one byte, or any one 32-bit number, changed: every one is parsed or refused with a
// documented code, and never a callback gets an offset that it may not get.
#include <gtest/gtest.h>

#include <set>

#include "internals/document.h"
#include "support/movie_builder.h"

namespace k7mtest {
namespace {

const std::set<QiroK7MError> kDocumented = {0, 5, 6, 9, 14, 18, 23, 27, 28, 29, 30, 31, 36, 1029};

/// Every kind of box that is read, two samples each.
Bytes SmallMovie() {
  Movie movie{
      .tracks = {{.samples = SomeSamples(3), .samplesPerChunk = 2},
                 {.handler = "soun", .samples = SomeSamples(2, 7), .has64BitOffsets = true}},
      .atEnd = UuidBox(kMetadataUuid, Pattern(6))};
  movie.tracks[0].edits = {{.segmentDuration = 5, .mediaTime = -1}, {.segmentDuration = 30}};
  movie.tracks[0].samples[1].isSync = false;
  movie.tracks[0].samples[1].compositionOffset = 4;
  movie.tracks[0].samples[1].dependency = 0x18;
  movie.tracks[1].hasConstantSize = true;
  movie.tracks[1].moreInTrak = Box("tref", Box("hint", Bytes().U32(1)));
  return BuildMovie(movie).bytes;
}

/// The code that parsing ends with; memory that ends is one of them.
QiroK7MError Parse(const Bytes& bytes) {
  Document document(bytes);
  QiroK7MError error = kQiroK7MErrorOutOfMemory;
  try {
    error = ErrorOf([&] { document.ParseAll(); });
  } catch (const std::bad_alloc&) {
  }
  EXPECT_STREQ(document.Opened().Memory().Violation(), nullptr);
  EXPECT_LT(document.Opened().Memory().Count(Call::kAny), 20 * bytes.Size() + 20);
  return error;
}

TEST(HostileBytes, TheMovieItselfIsParsed) { EXPECT_EQ(Parse(SmallMovie()), 0U); }

TEST(HostileBytes, EveryTruncationEndsInADocumentedCode) {
  const Bytes movie = SmallMovie();
  for (size_t size = 0; size < movie.Size(); ++size) {
    const QiroK7MError error = Parse(Cut(movie, size));
    ASSERT_EQ(kDocumented.count(error), 1U) << error << " at " << size;
  }
}

TEST(HostileBytes, EveryChangedByteEndsInADocumentedCode) {
  const Bytes movie = SmallMovie();
  for (size_t offset = 0; offset < movie.Size(); ++offset) {
    for (const uint8_t flip : {uint8_t{0x01}, uint8_t{0x80}, uint8_t{0xFF}}) {
      Bytes changed = movie;
      changed[offset] ^= flip;
      const QiroK7MError error = Parse(changed);
      ASSERT_EQ(kDocumented.count(error), 1U) << error << " at " << offset;
    }
  }
}

TEST(HostileBytes, EveryChangedNumberEndsInADocumentedCode) {
  const Bytes movie = SmallMovie();
  for (size_t offset = 0; offset + 4 <= movie.Size(); offset += 4) {
    for (const uint32_t number : {0U, 1U, 7U, 100000000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      const QiroK7MError error = Parse(Bytes(movie).Patch(offset, number));
      ASSERT_EQ(kDocumented.count(error), 1U) << error << " at " << offset;
    }
  }
}

}  // namespace
}  // namespace k7mtest

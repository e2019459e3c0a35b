/// @file tables.h
/// The sample tables of a written file, compared with what they must hold.
#ifndef K7M_TESTS_WRITER_TABLES_H
#define K7M_TESTS_WRITER_TABLES_H

#include <gtest/gtest.h>

#include "expected_track.h"

namespace k7mtest {

inline std::string TablePath(const std::string& code, size_t track = 1) {
  return "moov/trak#" + std::to_string(track) + "/mdia/minf/stbl/" + code;
}

/// The table, version and flags 0, must hold exactly `payload` and zeros behind it.
inline void ExpectTable(const Bytes& file, const std::string& code, const Bytes& payload,
                        size_t track = 1) {
  const Bytes found = FindBox(file, TablePath(code, track));
  ASSERT_GE(found.Size(), 12 + payload.Size()) << code;
  EXPECT_EQ(found, PaddedTo(found.Size(), FullBox(code, 0, 0, payload))) << code;
}

inline void ExpectStts(const Bytes& file, const std::vector<Stts::Run>& runs, size_t track = 1) {
  ExpectTable(file, "stts", Stts{.runs = runs}.Payload(), track);
}
inline void ExpectCtts(const Bytes& file, const std::vector<Ctts::Run>& runs, size_t track = 1) {
  ExpectTable(file, "ctts", Ctts{.runs = runs}.Payload(), track);
}
inline void ExpectStsc(const Bytes& file, const std::vector<Stsc::Run>& runs, size_t track = 1) {
  ExpectTable(file, "stsc", Stsc{.runs = runs}.Payload(), track);
}
inline void ExpectStss(const Bytes& file, const std::vector<uint32_t>& numbers, size_t track = 1) {
  ExpectTable(file, "stss", Stss{.numbers = numbers}.Payload(), track);
}
inline void ExpectSizes(const Bytes& file, const std::vector<uint32_t>& sizes, size_t track = 1) {
  ExpectTable(file, "stsz", Stsz{.sizes = sizes}.Payload(), track);
}
/// Offsets from the first media byte, which lies behind the 16 bytes of the 'mdat' header.
inline void ExpectChunks(const Bytes& file, std::vector<uint64_t> offsets, size_t track = 1) {
  const uint64_t media = PlaceOf(file, "mdat").offset + 16;
  for (uint64_t& offset : offsets) offset += media;
  ExpectTable(file, "co64", Co64{.offsets = offsets}.Payload(), track);
}
/// The 'elst', version 0, with zeros in the unused places.
inline void ExpectEdits(const Bytes& file, const std::vector<Elst::Entry>& edits,
                        size_t track = 1) {
  const Bytes found = FindBox(file, "moov/trak#" + std::to_string(track) + "/edts/elst");
  const Bytes expected = FullBox("elst", 0, 0, Elst{.entries = edits});
  ASSERT_GE(found.Size(), expected.Size());
  EXPECT_EQ(found, PaddedTo(found.Size(), expected));
}

struct Durations {
  uint64_t media = 0;  // Track scale.
  uint64_t track = 0;  // Movie scale.
  friend bool operator==(const Durations&, const Durations&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Durations& d) {
    return out << "media " << d.media << ", track " << d.track;
  }
};
inline Durations DurationsOf(const Bytes& file, size_t track = 1) {
  const std::string trak = "moov/trak#" + std::to_string(track);
  return {NumberIn(file, trak + "/mdia/mdhd", 32, 8), NumberIn(file, trak + "/tkhd", 36, 8)};
}
inline uint64_t MovieDuration(const Bytes& file) { return NumberIn(file, "moov/mvhd", 32, 8); }

}  // namespace k7mtest

#endif

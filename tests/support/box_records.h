/// @file box_records.h
/// The payloads of the common boxes with usable defaults, for FullBox() and Box():
/// `FullBox("mvhd", 0, 0, Mvhd{.timeScale = 600})`. A count that is given lies; without one the
/// count is that of the entries.
#ifndef K7M_TESTS_SUPPORT_BOX_RECORDS_H
#define K7M_TESTS_SUPPORT_BOX_RECORDS_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "box_builder.h"

namespace k7mtest {

using Matrix = std::array<uint32_t, 9>;
inline constexpr Matrix kUnityMatrix = {0x00010000, 0, 0, 0, 0x00010000, 0, 0, 0, 0x40000000};
using Count = std::optional<uint32_t>;

struct Ftyp {
  std::string majorBrand = "k7m ";
  uint32_t minorVersion = 1;
  std::vector<std::string> brands = {"isom", "mp42"};
  Bytes Payload() const;
};

struct Mvhd {
  uint64_t creationTime = 0;
  uint64_t modificationTime = 0;
  uint32_t timeScale = 600;
  uint64_t duration = 0;
  uint32_t rate = 0x00010000;
  uint16_t volume = 0x0100;
  Matrix matrix = kUnityMatrix;
  uint32_t nextTrackId = 2;
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

struct Tkhd {
  uint64_t creationTime = 0;
  uint64_t modificationTime = 0;
  uint32_t trackId = 1;
  uint64_t duration = 0;
  uint16_t layer = 0;
  uint16_t alternateGroup = 0;
  uint16_t volume = 0;
  Matrix matrix = kUnityMatrix;
  uint32_t width = 0;   // 16.16
  uint32_t height = 0;  // 16.16
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

struct Mdhd {
  uint64_t creationTime = 0;
  uint64_t modificationTime = 0;
  uint32_t timeScale = 1000;
  uint64_t duration = 0;
  uint16_t language = 0x55C4;  // 'und'
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

struct Hdlr {
  std::string type = "vide";
  std::string name = std::string("handler\0", 8);  // Exactly these bytes.
  Bytes Payload() const;
};

struct Vmhd {
  uint16_t graphicsMode = 0;
  std::array<uint16_t, 3> opColor = {};
  Bytes Payload() const;
};

struct Smhd {
  uint16_t balance = 0;
  Bytes Payload() const;
};

/// 'dref' with its children; by default one 'url ' that says "same file".
struct Dref {
  std::vector<Bytes> entries = {FullBox("url ", 0, 1)};
  Count count = {};
  Bytes Payload() const;
};

struct Elst {
  struct Entry {
    uint64_t segmentDuration = 0;
    int64_t mediaTime = 0;
    int16_t rateInteger = 1;
    int16_t rateFraction = 0;
  };
  std::vector<Entry> entries = {};
  Count count = {};
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

struct Stsd {
  std::vector<Bytes> entries = {};
  Count count = {};
  Bytes Payload() const;
};

struct Stts {
  struct Run {
    uint32_t count = 0;
    uint32_t delta = 0;
  };
  std::vector<Run> runs = {};
  Count count = {};
  Bytes Payload() const;
};

struct Ctts {
  struct Run {
    uint32_t count = 0;
    uint32_t offset = 0;
  };
  std::vector<Run> runs = {};
  Count count = {};
  Bytes Payload() const;
};

struct Stsc {
  struct Run {
    uint32_t firstChunk = 1;
    uint32_t samplesPerChunk = 1;
    uint32_t description = 1;
  };
  std::vector<Run> runs = {};
  Count count = {};
  Bytes Payload() const;
};

struct Stsz {
  uint32_t constantSize = 0;
  std::vector<uint32_t> sizes = {};
  Count count = {};  // Needed with a constant size.
  Bytes Payload() const;
};

struct Stco {
  std::vector<uint32_t> offsets = {};
  Count count = {};
  Bytes Payload() const;
};

struct Co64 {
  std::vector<uint64_t> offsets = {};
  Count count = {};
  Bytes Payload() const;
};

struct Stss {
  std::vector<uint32_t> numbers = {};
  Count count = {};
  Bytes Payload() const;
};

struct Sdtp {
  std::vector<uint8_t> values = {};
  Bytes Payload() const;
};

struct Mehd {
  uint64_t duration = 0;
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

struct Trex {
  uint32_t trackId = 1;
  uint32_t description = 1;
  uint32_t duration = 1;
  uint32_t size = 1;
  uint32_t sampleFlags = 0;
  Bytes Payload() const;
};

struct Mfhd {
  uint32_t sequenceNumber = 1;
  Bytes Payload() const;
};

/// The flags of the full box decide which of the optional fields are there.
struct Tfhd {
  uint32_t trackId = 1;
  uint64_t baseDataOffset = 0;  // 0x01
  uint32_t description = 1;     // 0x02
  uint32_t duration = 0;        // 0x08
  uint32_t size = 0;            // 0x10
  uint32_t sampleFlags = 0;     // 0x20
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

/// The flags of the full box decide which fields are there.
struct Trun {
  struct Sample {
    uint32_t duration = 0;           // 0x100
    uint32_t size = 0;               // 0x200
    uint32_t flags = 0;              // 0x400
    uint32_t compositionOffset = 0;  // 0x800
  };
  int32_t dataOffset = 0;         // 0x1
  uint32_t firstSampleFlags = 0;  // 0x4
  std::vector<Sample> samples = {};
  Count count = {};
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

struct Tfdt {
  uint64_t time = 0;
  Bytes Payload(uint8_t version, uint32_t flags) const;
};

// Sample entries, whole boxes
// -----------------------------------------------------------------------

struct VideoFields {
  uint16_t dataReference = 1;
  uint16_t width = 64;
  uint16_t height = 48;
  uint32_t horizontalResolution = 0x00480000;
  uint32_t verticalResolution = 0x00480000;
  uint16_t frameCount = 1;
  std::string compressorName = {};  // At most 31 bytes.
  uint16_t depth = 24;
  Bytes codecHeader = {};
  Bytes Payload() const;
};

struct AudioFields {
  uint16_t dataReference = 1;
  uint16_t channelCount = 2;
  uint16_t sampleSize = 16;
  uint32_t sampleRate = 48000u << 16;
  Bytes codecHeader = {};
  Bytes Payload() const;
};

struct VorpFields {
  uint16_t dataReference = 1;
  uint16_t hintTrackVersion = 1;
  uint16_t highestCompatibleVersion = 1;
  uint16_t maxPacketSize = 1400;
  Bytes codecHeader = {};
  Bytes Payload() const;
};

struct OtherFields {
  uint16_t dataReference = 1;
  Bytes codecHeader = {};
  Bytes Payload() const;
};

inline Bytes VideoEntry(std::string_view code = "avc1", const VideoFields& fields = {}) {
  return Box(code, fields);
}
inline Bytes AudioEntry(std::string_view code = "mp4a", const AudioFields& fields = {}) {
  return Box(code, fields);
}
inline Bytes VorpEntry(std::string_view code = "vorp", const VorpFields& fields = {}) {
  return Box(code, fields);
}
inline Bytes OtherEntry(std::string_view code = "text", const OtherFields& fields = {}) {
  return Box(code, fields);
}

}  // namespace k7mtest

#endif

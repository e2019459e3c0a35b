/// @file box_builder.h
/// Boxes as bytes, well formed or lying about their size.
#ifndef K7M_TESTS_SUPPORT_BOX_BUILDER_H
#define K7M_TESTS_SUPPORT_BOX_BUILDER_H

#include <array>
#include <string_view>

#include "bytes.h"

namespace k7mtest {

using Uuid = std::array<uint8_t, 16>;

namespace internal {

/// A record whose layout depends on the version and the flags of its full box.
template <class T>
concept VersionedRecord = requires(const T& part) {
  part.Payload(uint8_t{}, uint32_t{});
};
/// A record with one layout.
template <class T>
concept PlainRecord = requires(const T& part) {
  part.Payload();
};

template <class Part>
Bytes PartBytes(const Part& part, uint8_t version, uint32_t flags) {
  if constexpr (VersionedRecord<Part>) {
    return part.Payload(version, flags);
  } else if constexpr (PlainRecord<Part>) {
    return part.Payload();
  } else {
    return Bytes(part);
  }
}

template <class... Parts>
Bytes Concatenate([[maybe_unused]] uint8_t version, [[maybe_unused]] uint32_t flags,
                  const Parts&... parts) {
  Bytes all;
  (all.Append(PartBytes(parts, version, flags)), ...);
  return all;
}

/// The version and flags word.
inline Bytes Word(uint8_t version, uint32_t flags) { return Bytes().U8(version).U24(flags); }

}  // namespace internal

/// A box with the given number in its size field, whatever its parts hold.
template <class... Parts>
Bytes LyingBox(std::string_view code, uint32_t size, const Parts&... parts) {
  return Bytes().U32(size).Code(code).Append(internal::Concatenate(0, 0, parts...));
}

/// A plain box around its parts: bytes, other boxes or records with one layout.
template <class... Parts>
Bytes Box(std::string_view code, const Parts&... parts) {
  const Bytes payload = internal::Concatenate(0, 0, parts...);
  return LyingBox(code, static_cast<uint32_t>(payload.Size() + 8), payload);
}

/// A full box: version and flags, then the parts, which may be records with versions.
template <class... Parts>
Bytes FullBox(std::string_view code, uint8_t version, uint32_t flags, const Parts&... parts) {
  return Box(code, internal::Word(version, flags), internal::Concatenate(version, flags, parts...));
}

/// A full box with the given number in its size field.
template <class... Parts>
Bytes LyingFullBox(std::string_view code, uint32_t size, uint8_t version, uint32_t flags,
                   const Parts&... parts) {
  return LyingBox(code, size, internal::Word(version, flags),
                  internal::Concatenate(version, flags, parts...));
}

/// A box in the large form with the given number in its 64-bit size field.
template <class... Parts>
Bytes LyingLargeBox(std::string_view code, uint64_t size, const Parts&... parts) {
  return Bytes().U32(1).Code(code).U64(size).Append(internal::Concatenate(0, 0, parts...));
}

/// A box in the large form: size field 1 and a 64-bit size behind the type.
template <class... Parts>
Bytes LargeBox(std::string_view code, const Parts&... parts) {
  const Bytes payload = internal::Concatenate(0, 0, parts...);
  return LyingLargeBox(code, payload.Size() + 16, payload);
}

/// A box with size field 0: it runs to the end of the stream.
template <class... Parts>
Bytes TillEndBox(std::string_view code, const Parts&... parts) {
  return LyingBox(code, 0, parts...);
}

inline Bytes UuidBytes(const Uuid& uuid) {
  return Bytes(std::vector<uint8_t>(uuid.begin(), uuid.end()));
}

/// A 'uuid' box.
template <class... Parts>
Bytes UuidBox(const Uuid& uuid, const Parts&... parts) {
  return Box("uuid", UuidBytes(uuid), parts...);
}

/// The extended type that stands for a four-character code.
inline Uuid UuidOfCode(std::string_view code) {
  const uint32_t number = Code(code);
  return {static_cast<uint8_t>(number >> 24),
          static_cast<uint8_t>(number >> 16),
          static_cast<uint8_t>(number >> 8),
          static_cast<uint8_t>(number),
          0x00,
          0x11,
          0x00,
          0x10,
          0x80,
          0x00,
          0x00,
          0xAA,
          0x00,
          0x38,
          0x9B,
          0x71};
}

/// An ordinary box stored in its uuid form.
template <class... Parts>
Bytes BoxAsUuid(std::string_view code, const Parts&... parts) {
  return UuidBox(UuidOfCode(code), parts...);
}

/// The extended type of the metadata box.
inline constexpr Uuid kMetadataUuid = {0xbe, 0x7a, 0xcf, 0xcb, 0x97, 0xa9, 0x42, 0xe8,
                                       0x9c, 0x71, 0x99, 0x94, 0x91, 0xe3, 0xaf, 0xac};

}  // namespace k7mtest

#endif

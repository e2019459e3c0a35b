/// @file document.h
/// The box tree of a file made of bytes.
#ifndef K7M_TESTS_INTERNALS_DOCUMENT_H
#define K7M_TESTS_INTERNALS_DOCUMENT_H

#include <gtest/gtest.h>

#include "boxes/root_box.h"
#include "internals/error_of.h"
#include "internals/opened_stream.h"
#include "support/box_records.h"

namespace k7mtest {

namespace impl = qiro::k7m::impl;
using Codes = std::vector<QiroK7MError>;

class Document {
 public:
  /// Nothing is parsed yet.
  explicit Document(const Bytes& bytes, const QiroK7MAllocatorCallBacks* allocator = nullptr,
                    uint32_t readRules = 0, impl::KeptBoxes kept = impl::KeptBoxes::kAll)
      : opened_(bytes), root_(&opened_.Stream(), readRules, kept, allocator) {}

  impl::RootBox& Root() { return root_; }
  OpenedStream& Opened() { return opened_; }
  Codes Warnings() const { return opened_.Warnings(); }
  /// Parses the next top-level box; null at the end.
  impl::Box* Next() { return root_.ParseNextBox(); }
  /// Parses everything.
  void ParseAll() {
    while (Next() != nullptr) {
    }
  }

  /// Parses the next top-level box, which must be of this class.
  template <class T>
  T& Next() {
    auto* box = dynamic_cast<T*>(Next());
    if (box == nullptr) {
      throw std::logic_error("the box is missing or of another class");
    }
    return *box;
  }

 private:
  OpenedStream opened_;
  impl::RootBox root_;
};

/// The code that parsing the whole file fails with; 0 when it succeeds.
inline QiroK7MError ParseError(const Bytes& bytes) {
  Document document(bytes);
  const QiroK7MError error = ErrorOf([&] { document.ParseAll(); });
  EXPECT_STREQ(document.Opened().Memory().Violation(), nullptr);
  return error;
}

/// The warnings that parsing the whole file raises.
inline Codes ParseWarnings(const Bytes& bytes) {
  Document document(bytes);
  EXPECT_EQ(ErrorOf([&] { document.ParseAll(); }), 0u);
  return document.Warnings();
}

/// What a walk over a box iterator gives, by type.
inline uint32_t TypeOf(const impl::Box* box) { return box == nullptr ? 0 : box->GetBoxType(); }

/// The smallest 'stbl', 'minf', 'mdia', 'trak' that keep the rules, with room for other children.
/// Children given take the place of the whole content.
inline Bytes MinimalStbl() {
  return Box("stbl", FullBox("stsd", 0, 0, Stsd{}), FullBox("stts", 0, 0, Stts{}),
             FullBox("stsc", 0, 0, Stsc{}), FullBox("stsz", 0, 0, Stsz{}),
             FullBox("stco", 0, 0, Stco{}));
}
inline Bytes MinimalDinf() { return Box("dinf", FullBox("dref", 0, 0, Dref{})); }
inline Bytes MinimalMinf() { return Box("minf", MinimalDinf(), MinimalStbl()); }
inline Bytes MinimalMdia() {
  return Box("mdia", FullBox("mdhd", 0, 0, Mdhd{}), FullBox("hdlr", 0, 0, Hdlr{}), MinimalMinf());
}
inline Bytes MinimalTrak() { return Box("trak", FullBox("tkhd", 0, 7, Tkhd{}), MinimalMdia()); }
inline Bytes MinimalMoov() { return Box("moov", FullBox("mvhd", 0, 0, Mvhd{}), MinimalTrak()); }

}  // namespace k7mtest

#endif

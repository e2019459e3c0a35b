#include "boxes/box_factory.h"

#include <algorithm>
#include <array>

#include "boxes/fragment_boxes.h"
#include "boxes/ftyp_box.h"
#include "boxes/mdat_box.h"
#include "boxes/media_boxes.h"
#include "boxes/skip_box.h"
#include "boxes/stbl_box.h"
#include "boxes/track_boxes.h"
#include "boxes/uuid_boxes.h"

namespace qiro::k7m::impl {
namespace {

using Creator = std::unique_ptr<Box> (*)(QiroK7MStream*, const BoxHeader&,
                                         const QiroK7MAllocatorCallBacks*);

struct CatalogueEntry {
  uint32_t type;
  Creator create;
};

template <class T>
std::unique_ptr<Box> Create(QiroK7MStream* stream, const BoxHeader& header,
                            const QiroK7MAllocatorCallBacks* allocator) {
  return MakeBox<T>(allocator, stream, header);
}

std::unique_ptr<Box> CreateUuid(QiroK7MStream* stream, const BoxHeader& header,
                                const QiroK7MAllocatorCallBacks* allocator) {
  const bool isMetadata =
      header.GetUuid() != nullptr && CompareUuids(*header.GetUuid(), kUlbDataUuid) != 0;
  return isMetadata ? Create<UlbDataBox>(stream, header, allocator)
                    : Create<UuidBox>(stream, header, allocator);
}

template <class... Types>
constexpr auto MakeCatalogue() {
  auto catalogue = std::to_array<CatalogueEntry>({{Types::kType, Create<Types>}...,
                                                  {FourCc("skip"), Create<SkipBox>},
                                                  {UuidBox::kType, CreateUuid}});
  std::sort(catalogue.begin(), catalogue.end(),
            [](const CatalogueEntry& a, const CatalogueEntry& b) { return a.type < b.type; });
  return catalogue;
}

/// In the order of the codes. A box class enters here and nowhere else.
constexpr auto kCatalogue =
    MakeCatalogue<Co64Box, CttsBox, DinfBox, DrefBox, EdtsBox, ElstBox, FtypBox, HdlrBox, HintBox,
                  MdatBox, MdhdBox, MdiaBox, MehdBox, MfhdBox, MinfBox, MoofBox, MoovBox, MvexBox,
                  MvhdBox, NmhdBox, SdtpBox, SmhdBox, StblBox, StcoBox, StscBox, StsdBox, StssBox,
                  StszBox, SttsBox, TfhdBox, TkhdBox, TrafBox, TrakBox, TrefBox, TrexBox, TrunBox,
                  UrlBox, VmhdBox>();

/// Null for a type without a class.
const CatalogueEntry* FindEntry(uint32_t type) {
  const auto* const entry = std::lower_bound(
      kCatalogue.begin(), kCatalogue.end(), type,
      [](const CatalogueEntry& candidate, uint32_t wanted) { return candidate.type < wanted; });
  return entry != kCatalogue.end() && entry->type == type ? entry : nullptr;
}

constexpr std::array kKnownTypes = {
    FourCc("co64"), FourCc("ctts"), FourCc("dinf"), FourCc("dref"), FourCc("edts"), FourCc("elst"),
    FourCc("ftyp"), FourCc("hdlr"), FourCc("mdat"), FourCc("mdhd"), FourCc("mdia"), FourCc("mehd"),
    FourCc("mfhd"), FourCc("minf"), FourCc("moof"), FourCc("moov"), FourCc("mvex"), FourCc("mvhd"),
    FourCc("nmhd"), FourCc("pdin"), FourCc("sdtp"), FourCc("skip"), FourCc("smhd"), FourCc("stbl"),
    FourCc("stco"), FourCc("stsc"), FourCc("stsd"), FourCc("stss"), FourCc("stsz"), FourCc("stts"),
    FourCc("tfhd"), FourCc("tkhd"), FourCc("traf"), FourCc("trak"), FourCc("trex"), FourCc("trun"),
    FourCc("url "), FourCc("vmhd")};

constexpr std::array kContainerTypes = {
    FourCc("moov"), FourCc("trak"), FourCc("tref"), FourCc("edts"), FourCc("mdia"), FourCc("minf"),
    FourCc("dinf"), FourCc("dref"), FourCc("stbl"), FourCc("mvex"), FourCc("moof"), FourCc("traf")};

/// Closes a stream at the end of a scope unless that was done.
class ClosingGuard {
 public:
  explicit ClosingGuard(QiroK7MStream& stream) : stream_(stream) {}
  ClosingGuard(const ClosingGuard&) = delete;
  ClosingGuard& operator=(const ClosingGuard&) = delete;
  ~ClosingGuard() {
    if (isOpen_) {
      stream_.CloseNoThrow();
    }
  }
  void Close() {
    isOpen_ = false;
    stream_.Close();
  }

 private:
  QiroK7MStream& stream_;
  bool isOpen_ = true;
};

}  // namespace

BoxFactory& BoxFactory::Instance() {
  static BoxFactory instance;
  return instance;
}

std::unique_ptr<Box> BoxFactory::CreateBox(QiroK7MStream* stream, const BoxHeader& header,
                                           const QiroK7MAllocatorCallBacks* allocator) const {
  const CatalogueEntry* entry = FindEntry(header.GetBoxType());
  return entry == nullptr ? Create<Box>(stream, header, allocator)
                          : entry->create(stream, header, allocator);
}

bool BoxFactory::IsKnownBox(uint32_t type) const {
  return std::find(kKnownTypes.begin(), kKnownTypes.end(), type) != kKnownTypes.end();
}

bool BoxFactory::HasClass(uint32_t type) { return FindEntry(type) != nullptr; }

bool BoxFactory::IsSkipBox(const BoxHeader& header) {
  return header.GetBoxType() == FourCc("skip") || header.GetBoxType() == FourCc("free");
}

bool BoxFactory::IsContainer(uint32_t type) {
  return std::find(kContainerTypes.begin(), kContainerTypes.end(), type) != kContainerTypes.end();
}

uint32_t BoxFactory::TypeOfFirstBox(QiroK7MStream& stream) const {
  ClosingGuard guard(stream);
  stream.Open();
  uint32_t type = 0;
  if (stream.Length() >= kMinHeaderSize) {
    stream.SeekTo(0);
    stream.ReadDWORD();
    type = stream.ReadDWORD();
  }
  guard.Close();
  return type;
}

}  // namespace qiro::k7m::impl

#include "boxes/ftyp_box.h"

#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

void FtypBox::ReadExtensionPayloadData() {
  constexpr uint64_t kMaxBrandListSize = 400000000;
  FieldBox::ReadExtensionPayloadData();
  const uint64_t listSize = BytesLeft();
  ThrowIf(listSize > kMaxBrandListSize, kQiroK7MErrorBoxTruncated);
  if (listSize % sizeof(uint32_t) != 0) {
    Stream().RaiseWarning(kQiroK7MWarningPayloadLength);
    return;
  }
  ReadTableInto(Stream(), compatibleBrands_, listSize / sizeof(uint32_t), sizeof(uint32_t),
                LoadBigEndian<uint32_t>);
}

FtypBox::FtypBox(QiroK7MStream* stream, uint32_t majorBrand, uint32_t minorVersion,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, kType, allocator),
      majorBrand_(majorBrand),
      minorVersion_(minorVersion),
      compatibleBrands_(K7MAllocator<uint32_t>(allocator)) {
  AccountForPayload();
}

void FtypBox::AddCompatibleBrand(uint32_t brand) {
  compatibleBrands_.push_back(brand);
  Grow(sizeof(brand));
}

void FtypBox::WriteExtensionBox() {
  FieldBox::WriteExtensionBox();
  for (const uint32_t brand : compatibleBrands_) {
    Stream().WriteDWORD(brand);
  }
}

void FtypBox::Describe(FieldSink& sink) {
  FieldBox::Describe(sink);
  DescribeTable(sink, "compatible_brands", compatibleBrands_,
                [&sink](uint32_t brand) { sink.Code("brand", brand); });
}

}  // namespace qiro::k7m::impl

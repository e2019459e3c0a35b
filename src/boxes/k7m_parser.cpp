#include "boxes/k7m_parser.h"

#include "boxes/box_factory.h"
#include "boxes/root_box.h"

namespace qiro::k7m::impl {

std::unique_ptr<Box> K7MParser::Create(const BoxHeader& header) {
  return BoxFactory::Instance().CreateBox(stream_, header, root_->GetAllocator());
}

std::unique_ptr<Box> K7MParser::ParseFile(uint32_t type) {
  const auto header = BoxHeader::ParseForBox(*stream_, type, nullptr);
  return header ? Create(*header) : nullptr;
}

void K7MParser::ParseChildren(Box* box, uint32_t level) {
  if (!BoxFactory::IsContainer(box->GetBoxType())) {
    // Sample entries are read later, without the parser, but they are a level of their own.
    const uint64_t sizeWithoutEntries = box->GetHeaderSize() + sizeof(uint32_t);
    ThrowIf(level == kMaxNestingLevel && box->GetBoxType() == FourCc("stsd") &&
                box->GetTotalBoxSize() >= sizeWithoutEntries + kMinHeaderSize,
            kQiroK7MErrorInvalidHierarchy);
    return;
  }
  const uint64_t end = box->GetEndOffset();
  uint64_t position = box->GetBeginOffset() + box->GetHeaderSize();
  // A rest that cannot hold a header is passed over silently, and so is one that starts with a
  // header whose end wraps.
  while (position < end && end - position >= kMinHeaderSize) {
    SeekTo(position);
    const auto header = BoxHeader::Parse(*stream_, &box->GetBoxHeader());
    if (!header) {
      break;
    }
    ThrowIf(level == kMaxNestingLevel, kQiroK7MErrorInvalidHierarchy);
    auto child = Create(*header);
    ParseChildren(child.get(), level + 1);
    box->AddChildBox(std::move(child));
    position = header->GetEndOffset();
  }
}

}  // namespace qiro::k7m::impl

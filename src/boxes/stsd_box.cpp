#include "boxes/stsd_box.h"

#include <algorithm>

#include "boxes/box_factory.h"
#include "boxes/entry_limit.h"

namespace qiro::k7m::impl {

StsdBox::StsdBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : VariableSizeBox(stream, header, allocator),
      entries_(K7MAllocator<K7MSampleEntry*>(allocator)) {}

namespace {

/// Bytes of an entry without codec header, as they are reserved.
uint64_t ReservedEntrySize(uint32_t mediaType) {
  switch (mediaType) {
    case FourCc("vide"):
      return 86;
    case FourCc("soun"):
      return 36;
    default:
      return 16;
  }
}

uint32_t EntryType(uint32_t mediaType, uint32_t coding) {
  const bool isH264 = coding == FourCc("H264") || coding == FourCc("h264");
  return mediaType == FourCc("vide") && isH264 ? FourCc("avc1") : coding;
}

}  // namespace

StsdBox::StsdBox(QiroK7MStream* stream, uint32_t mediaType, const QiroK7MTrackEntriesInfo& entries,
                 const QiroK7MAllocatorCallBacks* allocator)
    : VariableSizeBox(stream, kType, 0, 0, allocator),
      isMediaTypeSet_(true),
      mediaType_(mediaType),
      entries_(K7MAllocator<K7MSampleEntry*>(allocator)) {
  const uint64_t entrySize = entries.maxCodecHeaderDataLength + ReservedEntrySize(mediaType);
  const uint64_t reserved = entrySize * entries.sampleDescriptorCount;
  ThrowIf(reserved > 0xFFFFFFFF, kQiroK7MErrorStdException);
  reservedByteCount_ = static_cast<uint32_t>(reserved);
  Grow(kVersionAndFlagsSize + sizeof(entryCount_));
  if (reserved != 0) {
    AddPlaceholder(reserved, GetEndOffset());
    Grow(reserved);
  }
}

SampleDescriptor* StsdBox::AddSampleDescriptor(std::unique_ptr<SampleDescriptor> descriptor) {
  ThrowIf(descriptor->GetInfo().type == FourCc("vorp") && entryCount_ != 0,
          kQiroK7MErrorVorpDescriptorNotAlone);
  SampleDescriptor* added = descriptor.get();
  auto entry = MakeEntry(std::move(descriptor));
  ThrowIf(Placeholder() == nullptr || entry->GetTotalSize() > Placeholder()->GetTotalSize(),
          kQiroK7MErrorSampleDescriptorLimit);
  entries_.reserve(entries_.size() + 1);
  K7MSampleEntry* kept = entry.get();
  CreateChildBox(std::move(entry));
  entries_.push_back(kept);
  ++entryCount_;
  added->SetSDID(entryCount_);
  added->SetMediaType(mediaType_);
  return added;
}

std::unique_ptr<K7MSampleEntry> StsdBox::MakeEntry(std::unique_ptr<SampleDescriptor> descriptor) {
  constexpr uint16_t kSameFile = 1;
  const uint32_t coding = descriptor->GetInfo().type;
  const uint32_t type = EntryType(mediaType_, coding);
  const auto* allocator = GetAllocator();
  if (mediaType_ == FourCc("soun")) {
    return MakeBox<K7MAudioSampleEntry>(allocator, &Stream(), type, std::move(descriptor));
  }
  if (mediaType_ == FourCc("vide")) {
    return MakeBox<K7MVideoSampleEntry>(allocator, &Stream(), type, std::move(descriptor));
  }
  if (mediaType_ == FourCc("hint") && coding == FourCc("vorp")) {
    return MakeBox<K7MVorpSampleEntry>(allocator, &Stream(), type, std::move(descriptor));
  }
  return MakeBox<K7MSampleEntry>(allocator, &Stream(), type, kSameFile, std::move(descriptor));
}

void StsdBox::WriteLastEntry() {
  entries_.back()->WriteBox();
  if (Placeholder() != nullptr) {
    Placeholder()->WriteBox();
  }
}

void StsdBox::UpdateSTSDBoxListForAppend() {
  const uint64_t begin = entries_.empty() ? GetBeginOffset() + GetHeaderSize() + sizeof(entryCount_)
                                          : entries_.back()->GetEndOffset();
  const uint64_t rest = GetEndOffset() > begin ? GetEndOffset() - begin : 0;
  if (rest >= kMinHeaderSize) {
    AddPlaceholder(rest, begin);
  }
}

void StsdBox::WriteExtensionBox() {
  UpdateExtensionBox();
  Stream().ReserveSpace(reservedByteCount_);
}

void StsdBox::UpdateExtensionBox() {
  SeekTo(GetBeginOffset() + GetHeaderSize());
  Stream().WriteDWORD(entryCount_);
}

void StsdBox::SetMediaType(uint32_t mediaType) {
  mediaType_ = mediaType;
  isMediaTypeSet_ = true;
}

void StsdBox::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(sizeof(entryCount_)), kQiroK7MErrorBoxTruncated);
  entryCount_ = Stream().ReadDWORD();
  ThrowIf(entryCount_ > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
  if (isMediaTypeSet_) {
    ReadEntries();
  }
}

void StsdBox::ReadEntries() {
  uint64_t runningSize = GetHeaderSize() + sizeof(entryCount_);
  for (uint32_t i = 0; i < entryCount_ && CanRead(kMinHeaderSize); ++i) {
    const auto header = BoxHeader::Parse(Stream(), nullptr);
    if (!header || header->GetEndOffset() > GetEndOffset()) {
      break;
    }
    // Free space among the entries uses up one of the counted iterations.
    if (!BoxFactory::IsSkipBox(*header)) {
      auto entry = MakeEntry(*header);
      entry->ReadPayloadFromStream();
      entry->SetSDID(static_cast<uint32_t>(entries_.size() + 1));
      entry->SetMediaType(mediaType_);
      runningSize += entry->GetTotalSize();
      entries_.push_back(entry.get());
      AddChildBox(std::move(entry));
    }
    SeekTo(header->GetEndOffset());
  }
  if (entries_.size() != entryCount_) {
    Stream().RaiseWarning(kQiroK7MWarningSampleEntryCount);
    entryCount_ = static_cast<uint32_t>(entries_.size());
  }
  ThrowIf(runningSize > GetTotalBoxSize(), kQiroK7MErrorBoxTruncated);
}

std::unique_ptr<K7MSampleEntry> StsdBox::MakeEntry(const BoxHeader& header) {
  switch (mediaType_) {
    case FourCc("soun"):
      return MakeBox<K7MAudioSampleEntry>(GetAllocator(), &Stream(), header);
    case FourCc("vide"):
      return MakeBox<K7MVideoSampleEntry>(GetAllocator(), &Stream(), header);
    case FourCc("hint"):
      return MakeBox<K7MVorpSampleEntry>(GetAllocator(), &Stream(), header);
    default:
      return MakeBox<K7MSampleEntry>(GetAllocator(), &Stream(), header);
  }
}

void StsdBox::Describe(FieldSink& sink) { sink.Number("entry_count", entryCount_); }

K7MSampleEntry* StsdBox::GetSampleEntry(uint32_t index) const {
  return index == 0 || index > entries_.size() ? nullptr : entries_[index - 1];
}

uint32_t StsdBox::GetMaxCodecHeaderDataLen() const {
  uint32_t longest = 0;
  for (const K7MSampleEntry* entry : entries_) {
    longest = std::max(longest, entry->GetSampleDescriptor()->GetInfo().codecHeaderDataLength);
  }
  return longest;
}

}  // namespace qiro::k7m::impl

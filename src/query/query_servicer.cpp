#include "query/query_servicer.h"

#include "base/guarded_call.h"
#include "boxes/box_iterators.h"
#include "query/fragment_extent.h"

namespace qiro::k7m::impl {

K7RQueryServicer::K7RQueryServicer(std::unique_ptr<QiroK7MStream> fragments,
                                   std::unique_ptr<QiroK7MStream> index,
                                   const QiroK7MAllocatorCallBacks* allocator)
    : K7MBase(allocator),
      fragments_(std::move(fragments)),
      table_(K7MAllocator<FragmentEntry>(allocator)) {
  if (index != nullptr) {
    index_.emplace(std::move(index));
  } else {
    document_.reset(new (allocator) K7MDocument(fragments_.Get(), 0, KeptBoxes::kAll, allocator));
    ListFragments();
  }
}

void K7RQueryServicer::ListFragments() {
  RootBox* root = document_->GetRootBox();
  ThrowIf(root->GetMoovBox() == nullptr, kQiroK7MErrorNoMovieBox);
  if (!document_->IsFragmented()) {
    return;
  }
  FragmentEntry current;
  for (BoxIterator box(root, 0); box.HasMoreEntries(); ++box) {
    current.Take(*box);
    if (current.IsComplete()) {
      table_.push_back(current);
      current.Clear();
    }
  }
}

void K7RQueryServicer::GetFragment(uint32_t fragmentNumber, uint32_t segmentNumber, uint32_t* size,
                                   void** data) {
  *size = 0;
  *data = nullptr;
  ThrowIf(fragmentNumber == 0, kQiroK7MErrorFragmentNotFound);
  Fragment fragment =
      index_ ? LookUpInIndex(fragmentNumber, segmentNumber) : LookUpInTable(fragmentNumber);
  *size = fragment.size;
  *data = fragment.data.release();
}

K7RQueryServicer::Fragment K7RQueryServicer::LookUpInTable(uint32_t fragmentNumber) {
  ThrowIf(fragmentNumber > table_.size(), kQiroK7MErrorFragmentNotFound);
  const FragmentEntry& entry = table_[fragmentNumber - 1];
  ThrowIf(!fragments_.Get()->Reaches(entry.GetEndOffset()), kQiroK7MErrorReadFailed);
  const uint64_t size = entry.GetTotalSize();
  ThrowIf(size > 0xFFFFFFFF, kQiroK7MErrorBadFragmentFile);
  Fragment fragment = Allocate(static_cast<uint32_t>(size));
  entry.CopyTo(*fragments_.Get(), fragment.data.get());
  return fragment;
}

K7RQueryServicer::Fragment K7RQueryServicer::LookUpInIndex(uint32_t fragmentNumber,
                                                           uint32_t segmentNumber) {
  ThrowIf(segmentNumber == 0, kQiroK7MErrorInvalidSegmentNumber);
  const IndexLayout layout = index_->ReadLayout();
  if (layout.localEntryCount != 0) {
    return ReadFragment(index_->FindLocal(layout, fragmentNumber));
  }
  ThrowIf(!layout.hasGlobalEntries, kQiroK7MErrorFragmentNotFound);
  return LookUpGlobally(layout, fragmentNumber, segmentNumber);
}

K7RQueryServicer::Fragment K7RQueryServicer::LookUpGlobally(const IndexLayout& layout,
                                                            uint32_t fragmentNumber,
                                                            uint32_t segmentNumber) {
  Fragment fragment = NoFragment();
  const QiroK7MError failure = GuardedCall([&] {
    if (const auto offset = index_->FindGlobal(layout, fragmentNumber, segmentNumber)) {
      fragment = ReadFragment(*offset);
    }
  });
  const bool isToldAsItIs =
      failure == kQiroK7MErrorFragmentNotAvailable || failure == kQiroK7MErrorOutOfMemory;
  ThrowIf(failure != kQiroK7MErrorNone,
          isToldAsItIs ? failure : QiroK7MError{kQiroK7MErrorFragmentNotFound});
  return fragment;
}

K7RQueryServicer::Fragment K7RQueryServicer::ReadFragment(uint64_t offset) {
  QiroK7MStream& stream = *fragments_.Get();
  Fragment fragment = Allocate(MeasureFragment(stream, offset));
  stream.SeekTo(offset);
  stream.Read(fragment.data.get(), fragment.size);
  return fragment;
}

K7RQueryServicer::Fragment K7RQueryServicer::Allocate(uint32_t size) const {
  auto* block = static_cast<uint8_t*>(AllocateThrough(GetAllocator(), size));
  return {Buffer(block, ReleaseToClient(GetAllocator())), size};
}

}  // namespace qiro::k7m::impl

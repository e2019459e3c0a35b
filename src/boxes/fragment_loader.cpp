#include "boxes/fragment_loader.h"

#include <algorithm>

#include "base/byte_reader.h"
#include "boxes/box_factory.h"
#include "boxes/fragment_boxes.h"
#include "boxes/root_box.h"

namespace qiro::k7m::impl {
namespace {

/// Longer ones are parsed box by box, so that no more is read at once than there is.
constexpr uint64_t kLargestPayload = 1 << 20;

/// A box in memory, with an ordinary header of 8 bytes.
struct BoxBytes {
  uint32_t type;
  std::span<const uint8_t> payload;
};

/// Takes the first box off `rest`; none when there is no whole one with an ordinary header.
std::optional<BoxBytes> TakeBox(std::span<const uint8_t>& rest) {
  if (rest.size() < kMinHeaderSize) {
    return std::nullopt;
  }
  ByteReader header(rest);
  const uint32_t size = header.ReadDWORD();
  const uint32_t type = header.ReadDWORD();
  if (size < kMinHeaderSize || size > rest.size()) {
    return std::nullopt;
  }
  const BoxBytes box = {type, rest.subspan(kMinHeaderSize, size - kMinHeaderSize)};
  rest = rest.subspan(size);
  return box;
}

/// Hands each of the boxes in `bytes` to `take(box)`. False when that is, and when there is
/// anything but boxes.
template <class Take>
bool ForEachBox(std::span<const uint8_t> bytes, Take take) {
  while (!bytes.empty()) {
    const auto box = TakeBox(bytes);
    if (!box || !take(*box)) {
      return false;
    }
  }
  return true;
}

/// A box without a class of its own is passed over.
bool IsPassedOver(uint32_t type) { return !BoxFactory::HasClass(type); }

}  // namespace

FragmentLoader::FragmentLoader(RootBox* root, QiroK7MStream* stream,
                               const QiroK7MAllocatorCallBacks* allocator)
    : root_(root),
      stream_(stream),
      payload_(nullptr, {allocator}),
      trafs_(K7MAllocator<Traf>(allocator)),
      runs_(K7MAllocator<Run>(allocator)) {}

bool FragmentLoader::Load(const BoxHeader& moof) {
  if (root_->GetParsedMvexBox() == nullptr || !ReadPayload(moof) ||
      !List({payload_.get(), payloadSize_}) || !ResolveDefaults()) {
    return false;
  }
  root_->BeginFragment(moof.GetBeginOffset());
  if (!runs_.empty()) {
    ResolveAll();
  }
  // Cannot fail: every one was announced.
  for (const Traf& traf : trafs_) {
    if (traf.fragment.sampleCount != 0) {
      root_->TakeFragment(traf.header.trackId, traf.fragment);
    }
  }
  return true;
}

bool FragmentLoader::ReadPayload(const BoxHeader& moof) {
  payloadSize_ = moof.GetTotalBoxSize() - moof.GetHeaderSize();
  if (payloadSize_ > kLargestPayload) {
    return false;
  }
  if (payloadSize_ > payloadCapacity_) {
    payloadCapacity_ = 0;
    payload_.reset();
    payload_ = root_->AllocateForFragment(payloadSize_);
    payloadCapacity_ = payloadSize_;
  }
  return stream_->ReadSome(payload_.get(), payloadSize_) == payloadSize_;
}

bool FragmentLoader::List(Bytes moof) {
  trafs_.clear();
  runs_.clear();
  uint32_t headerCount = 0;
  const bool isOrdinary = ForEachBox(moof, [&](const BoxBytes& box) {
    switch (box.type) {
      case MfhdBox::kType:
        ++headerCount;
        return box.payload.size() >= FullBox::kVersionAndFlagsSize + sizeof(uint32_t);
      case TrafBox::kType:
        return ListTraf(box.payload);
      default:
        return IsPassedOver(box.type);
    }
  });
  return isOrdinary && headerCount == 1;
}

bool FragmentLoader::ListTraf(Bytes payload) {
  Traf& traf = trafs_.emplace_back();
  const size_t firstRun = runs_.size();
  uint32_t headerCount = 0;
  const bool isOrdinary = ForEachBox(payload, [&](const BoxBytes& box) {
    switch (box.type) {
      case TfhdBox::kType:
        ++headerCount;
        return TakeHeader(box.payload, traf);
      case TrunBox::kType:
        return TakeRun(box.payload);
      case TrafBox::kTfdtType:
        return TakeStartTime(box.payload, traf);
      default:
        return IsPassedOver(box.type);
    }
  });
  traf.runCount = runs_.size() - firstRun;
  return isOrdinary && headerCount == 1;
}

bool FragmentLoader::TakeHeader(Bytes payload, Traf& traf) {
  ByteReader bytes(payload);
  if (bytes.Left() < FullBox::kVersionAndFlagsSize) {
    return false;
  }
  traf.header.flags = FullBox::FlagsOf(bytes.ReadDWORD());
  if (bytes.Left() < traf.header.FieldsSize()) {
    return false;
  }
  traf.header.ReadFields(bytes);
  return true;
}

bool FragmentLoader::TakeStartTime(Bytes payload, Traf& traf) {
  ByteReader bytes(payload);
  if (traf.startTime || bytes.Left() < FullBox::kVersionAndFlagsSize + sizeof(uint32_t)) {
    return false;
  }
  const bool isWide = TrafBox::IsStartTimeWide(bytes.ReadDWORD());
  if (isWide && bytes.Left() < sizeof(uint64_t)) {
    return false;
  }
  traf.startTime = isWide ? bytes.ReadDDWORD() : bytes.ReadDWORD();
  return true;
}

bool FragmentLoader::TakeRun(Bytes payload) {
  ByteReader bytes(payload);
  if (bytes.Left() < FullBox::kVersionAndFlagsSize) {
    return false;
  }
  Run run;
  run.header.flags = FullBox::FlagsOf(bytes.ReadDWORD());
  if (bytes.Left() < run.header.FieldsSize()) {
    return false;
  }
  run.header.ReadFields(bytes);
  const uint64_t recordsSize =
      uint64_t{run.header.sampleCount} * run.header.RecordLength() * sizeof(uint32_t);
  if (bytes.Left() < recordsSize) {
    return false;
  }
  run.records = bytes.Rest().first(recordsSize);
  runs_.push_back(run);
  return true;
}

bool FragmentLoader::ResolveDefaults() {
  return std::all_of(trafs_.begin(), trafs_.end(), [this](Traf& traf) {
    const TrexBox* trex = root_->GetParsedMvexBox()->GetDefaultsForTrack(traf.header.trackId);
    if (trex != nullptr) {
      traf.header.ApplyDefaults(*trex);
    }
    return trex != nullptr;
  });
}

void FragmentLoader::ResolveAll() {
  const uint64_t runsSize = runs_.size() * sizeof(TrackRun);
  uint64_t placesSize = 0;
  uint64_t recordsSize = 0;
  for (const Run& run : runs_) {
    placesSize += TrackRun::PlaceCount(run.header) * sizeof(TrackRun::Place);
    recordsSize += run.records.size();
  }
  FragmentMemory block = root_->AllocateForFragment(runsSize + placesSize + recordsSize);
  uint8_t* const bytes = block.get();
  Memory memory = {reinterpret_cast<TrackRun*>(bytes),
                   reinterpret_cast<TrackRun::Place*>(bytes + runsSize),
                   reinterpret_cast<uint32_t*>(bytes + runsSize + placesSize)};
  const Run* runs = runs_.data();
  for (Traf& traf : trafs_) {
    Resolve(traf, runs, memory);
    runs += traf.runCount;
  }
  root_->KeepForFragment(std::move(block));
}

void FragmentLoader::Resolve(Traf& traf, const Run* runs, Memory& memory) {
  const uint64_t base = root_->BaseDataOffset(traf.header);
  const bool runsFollowEachOther = root_->Resolves(ReadRule::kBaseOffsets);
  const bool hasStartTime = traf.startTime && root_->Resolves(ReadRule::kStartTimes);
  uint64_t dataEnd = base;
  TrackFragment& fragment = traf.fragment;
  fragment.descriptionIndex = traf.header.descriptionIndex;
  fragment.Start(hasStartTime ? *traf.startTime : root_->NextStartTime(traf.header.trackId));
  fragment.runs = memory.runs;
  for (const Run* source = runs; source != runs + traf.runCount; ++source) {
    TrackRun run(source->header, base, runsFollowEachOther ? dataEnd : base, traf.header.defaults);
    if (!source->records.empty()) {
      ByteReader bytes(source->records);
      const uint32_t* const records = memory.records;
      while (bytes.Left() != 0) {
        *memory.records++ = bytes.ReadDWORD();
      }
      run.SetRecords(records, memory.places);
      memory.places += TrackRun::PlaceCount(source->header);
    }
    fragment.Lengthen(run);
    dataEnd = run.DataEnd();
    if (run.GetSampleCount() != 0) {
      *memory.runs++ = run;
      ++fragment.runCount;
    }
  }
  root_->NoteDataEnd(dataEnd);
  if (fragment.sampleCount != 0) {
    root_->AnnounceFragment(traf.header.trackId, fragment.endTime);
  }
}

}  // namespace qiro::k7m::impl

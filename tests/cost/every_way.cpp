#include "every_way.h"

#include <array>

namespace k7mtest {
namespace {

constexpr uint32_t kLargestCopy = 4096;

/// Answers of the library go through here; true for success.
class Asker {
 public:
  Asker(uint32_t limit, void (*onResult)(QiroK7MError)) : limit_(limit), onResult_(onResult) {}

  bool Ok(QiroK7MError result) const {
    if (onResult_ != nullptr) onResult_(result);
    return result == 0;
  }
  void Read(QiroK7MReader* reader);
  void List(QiroK7MWriter* writer);
  void Serve(QiroK7RQueryServicer* servicer, const QiroK7MAllocatorCallBacks& memory);

 private:
  void AskTrack(QiroK7MTrack* track);
  void AskDescriptors(QiroK7MTrack* track);
  /// `ask(out)` makes an iterator.
  template <class Ask>
  void Take(Ask ask);
  void TakeOne(QiroK7MSample* sample);
  void WalkTracks(QiroK7MTrackIterator* tracks);

  uint32_t limit_;
  void (*onResult_)(QiroK7MError);
  std::array<uint8_t, kLargestCopy> bytes_{};
};

void Asker::TakeOne(QiroK7MSample* sample) {
  QiroK7MSampleInfo info{};
  QiroK7MTrack* track = nullptr;
  QiroK7MSampleDescriptor* descriptor = nullptr;
  Ok(QiroK7MSampleGetInfo(sample, &info));
  Ok(QiroK7MSampleGetTrack(sample, &track));
  Ok(QiroK7MSampleGetSampleDescriptor(sample, &descriptor));
  if (info.sampleSize <= kLargestCopy) Ok(QiroK7MSampleCopyData(sample, bytes_.data()));
  QiroK7MReleaseSample(sample);
}

template <class Ask>
void Asker::Take(Ask ask) {
  QiroK7MSampleIterator* samples = nullptr;
  if (!Ok(ask(&samples))) return;
  for (uint32_t i = 0; i < limit_; ++i) {
    uint32_t hasMore = 0;
    QiroK7MSample* sample = nullptr;
    if (!Ok(QiroK7MSampleIteratorHasMoreEntries(samples, &hasMore)) || hasMore == 0) break;
    if (!Ok(QiroK7MSampleIteratorGetNextEntry(samples, &sample)) || sample == nullptr) continue;
    TakeOne(sample);
  }
  QiroK7MReleaseSampleIterator(samples);
}

void Asker::AskDescriptors(QiroK7MTrack* track) {
  QiroK7MSampleDescriptorIterator* descriptors = nullptr;
  if (!Ok(QiroK7MTrackGetSampleDescriptors(track, &descriptors))) return;
  for (uint32_t i = 0; i < limit_; ++i) {
    uint32_t hasMore = 0;
    QiroK7MSampleDescriptor* descriptor = nullptr;
    if (!Ok(QiroK7MSampleDescriptorIteratorHasMoreEntries(descriptors, &hasMore))) break;
    if (hasMore == 0) break;
    if (!Ok(QiroK7MSampleDescriptorIteratorGetNextEntry(descriptors, &descriptor))) break;
    QiroK7MSampleDescInfo info{};
    Ok(QiroK7MSampleDescriptorGetInfo(descriptor, &info));
    if (info.codecHeaderDataLength <= kLargestCopy) {
      Ok(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, bytes_.data()));
    }
  }
  QiroK7MReleaseSampleDescriptorIterator(descriptors);
}

void Asker::AskTrack(QiroK7MTrack* track) {
  QiroK7MTrackInfo info{};
  QiroK7MTrackEntriesInfo entries{};
  uint32_t count = 0;
  Ok(QiroK7MTrackGetInfo(track, &info));
  Ok(QiroK7MTrackGetEntriesInfo(track, &entries));
  Ok(QiroK7MTrackGetSampleCount(track, &count));
  AskDescriptors(track);
  if (!Ok(QiroK7MTrackGetEditCount(track, &count))) return;
  for (uint32_t i = 0; i < count && i < limit_; ++i) {
    QiroK7MEdit edit{};
    Ok(QiroK7MTrackGetEdit(track, i, &edit));
  }
}

void Asker::WalkTracks(QiroK7MTrackIterator* tracks) {
  for (;;) {
    uint32_t hasMore = 0;
    QiroK7MTrack* track = nullptr;
    if (!Ok(QiroK7MTrackIteratorHasMoreEntries(tracks, &hasMore)) || hasMore == 0) break;
    if (!Ok(QiroK7MTrackIteratorGetNextEntry(tracks, &track)) || track == nullptr) break;
    AskTrack(track);
  }
  QiroK7MReleaseTrackIterator(tracks);
}

void Asker::Read(QiroK7MReader* reader) {
  QiroK7MDocInfo info{};
  Ok(QiroK7MReaderGetDocInfo(reader, &info));
  QiroK7MTrackIterator* tracks = nullptr;
  if (Ok(QiroK7MReaderGetTracks(reader, &tracks))) WalkTracks(tracks);
  Take([&](auto out) { return QiroK7MReaderGetAllSamples(reader, out); });
  Take([&](auto out) { return QiroK7MReaderGetMediaSamples(reader, nullptr, 0, out); });
  struct Range {
    uint32_t startScale;
    uint64_t start;
    uint32_t endScale;
    uint64_t end;
  };
  for (const Range& range : {Range{1000, 50, 1000, 5000}, Range{1, UINT64_MAX - 1, 1, UINT64_MAX},
                             Range{UINT32_MAX, 1, 1, UINT64_MAX}}) {
    Take([&](auto out) {
      return QiroK7MReaderGetSamples(reader, range.startScale, range.start, range.endScale,
                                     range.end, out);
    });
  }
  uint32_t length = 0;
  if (Ok(QiroK7MReaderGetUlbDataLength(reader, &length)) && length <= kLargestCopy) {
    Ok(QiroK7MReaderCopyUlbData(reader, bytes_.data()));
  }
}

void Asker::List(QiroK7MWriter* writer) {
  QiroK7MTrackIterator* tracks = nullptr;
  if (!Ok(QiroK7MWriterGetTracks(writer, &tracks))) return;
  QiroK7MReleaseTrackIterator(tracks);
}

void Asker::Serve(QiroK7RQueryServicer* servicer, const QiroK7MAllocatorCallBacks& memory) {
  for (const uint32_t number : {uint32_t{0}, uint32_t{1}, uint32_t{2}, limit_ / 2, UINT32_MAX}) {
    uint32_t size = 0;
    void* data = nullptr;
    if (!Ok(QiroK7RQueryServicerGetFragment(servicer, number, 1, &size, &data))) continue;
    if (memory.release != nullptr) {
      memory.release(memory.clientData, data);
    } else {
      ::operator delete(data);
    }
  }
}

}  // namespace

uint64_t Use(Way way, const Bytes& content, const QiroK7MAllocatorCallBacks& memory, uint32_t limit,
             void (*onResult)(QiroK7MError)) {
  Asker asker(limit, onResult);
  const QiroK7MWarningHandlerCallBacks warnings;
  FlatFile file(content);
  FlatFile sameAsIndex(content);
  const QiroK7MIStreamCallBacks reading = file.Reading();
  const QiroK7MIStreamCallBacks index = sameAsIndex.Reading();
  if (way == Way::kRead || way == Way::kReadByTheStandardsRules) {
    const QiroK7MReadOptions options{sizeof(options), way == Way::kRead ? 0u : 3u};
    QiroK7MReader* reader = nullptr;
    if (asker.Ok(
            QiroK7MDocOpenForReadWithOptions(&reading, &warnings, &memory, &options, &reader))) {
      asker.Read(reader);
      QiroK7MCloseReader(reader);
    }
  } else if (way == Way::kContinue) {
    const QiroK7MIOStreamCallBacks writing = file.ReadingAndWriting();
    uint64_t lastFragment = 0;
    QiroK7RWriter* writer = nullptr;
    if (asker.Ok(QiroK7RDocOpenForAppend(&writing, nullptr, &memory, UINT64_MAX, &lastFragment,
                                         &writer))) {
      asker.List(reinterpret_cast<QiroK7MWriter*>(writer));
      QiroK7RDestroyWriter(writer);
    }
  } else {
    QiroK7RQueryServicer* servicer = nullptr;
    if (asker.Ok(QiroK7RQueryServicerCreate(&reading, way == Way::kServeByIndex ? &index : nullptr,
                                            &memory, &servicer))) {
      asker.Serve(servicer, memory);
      asker.Ok(QiroK7RCloseQueryServicer(servicer));
    }
  }
  return file.BytesDelivered() + sameAsIndex.BytesDelivered();
}

void UseInEveryWay(const Bytes& content, uint32_t limit) {
  const QiroK7MAllocatorCallBacks memory;  // The global operators.
  for (const Way way : kWays) {
    Use(way, content, memory, limit, nullptr);
  }
}

}  // namespace k7mtest

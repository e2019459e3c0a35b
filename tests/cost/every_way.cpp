#include "every_way.h"

#include <array>

#include "family_parts.h"

namespace k7mtest {
namespace {

constexpr uint32_t kLargestCopy = 4096;
constexpr uint32_t kMostTracks = 1024;
// A failure takes as long as a hundred answers.
constexpr uint32_t kMostFailures = 10;
constexpr uint32_t kMediaTypes[] = {Code("vide"), Code("soun"), Code("hint"), 0};
constexpr auto kMediaTypeCount = static_cast<uint32_t>(std::size(kMediaTypes));

/// Made before anything is counted.
struct Recording {
  Bytes file = GoodRecording().bytes;
  Bytes index = LocalIndex(GoodRecording());
};
const Recording kGood;

/// Whether the bytes of the samples are read as well. That costs most where it fails.
enum class Copying { kNo, kYes };

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
  void AskDescriptor(QiroK7MSampleDescriptor* descriptor);
  void AskRanges(QiroK7MReader* reader);
  bool AskFragment(QiroK7RQueryServicer* servicer, uint32_t number, uint32_t segment,
                   const QiroK7MAllocatorCallBacks& memory);
  /// Walks a sequence; `ask(out)` makes the iterator.
  template <class Ask>
  void Take(Ask ask, Copying copying = Copying::kNo);
  void TakeOne(QiroK7MSample* sample, Copying copying);
  void WalkTracks(QiroK7MTrackIterator* tracks);

  uint32_t limit_;
  void (*onResult_)(QiroK7MError);
  std::array<uint8_t, kLargestCopy> bytes_{};
  std::array<QiroK7MTrack*, kMostTracks> tracks_{};  // The first of the document.
  uint32_t trackCount_ = 0;
};

void Asker::TakeOne(QiroK7MSample* sample, Copying copying) {
  QiroK7MSampleInfo info{};
  QiroK7MTrack* track = nullptr;
  QiroK7MSampleDescriptor* descriptor = nullptr;
  Ok(QiroK7MSampleGetInfo(sample, &info));
  Ok(QiroK7MSampleGetTrack(sample, &track));
  Ok(QiroK7MSampleGetSampleDescriptor(sample, &descriptor));
  if (copying == Copying::kYes && info.sampleSize <= kLargestCopy) {
    Ok(QiroK7MSampleCopyData(sample, bytes_.data()));
  }
  QiroK7MReleaseSample(sample);
}

template <class Ask>
void Asker::Take(Ask ask, Copying copying) {
  QiroK7MSampleIterator* samples = nullptr;
  if (!Ok(ask(&samples))) return;
  for (uint32_t i = 0; i < limit_; ++i) {
    uint32_t hasMore = 0;
    QiroK7MSample* sample = nullptr;
    if (!Ok(QiroK7MSampleIteratorHasMoreEntries(samples, &hasMore)) || hasMore == 0) break;
    if (!Ok(QiroK7MSampleIteratorGetNextEntry(samples, &sample)) || sample == nullptr) continue;
    TakeOne(sample, copying);
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
    AskDescriptor(descriptor);
  }
  QiroK7MReleaseSampleDescriptorIterator(descriptors);
}

void Asker::AskDescriptor(QiroK7MSampleDescriptor* descriptor) {
  QiroK7MSampleDescInfo info{};
  QiroK7MVideoSampleDescInfo video{};
  QiroK7MAudioSampleDescInfo audio{};
  QiroK7MVorpSampleDescInfo vorp{};
  Ok(QiroK7MSampleDescriptorGetInfo(descriptor, &info));
  Ok(QiroK7MSampleDescriptorGetVideoInfo(descriptor, &video));
  Ok(QiroK7MSampleDescriptorGetAudioInfo(descriptor, &audio));
  Ok(QiroK7MSampleDescriptorGetVorpInfo(descriptor, &vorp));
  if (info.codecHeaderDataLength <= kLargestCopy) {
    Ok(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, bytes_.data()));
  }
  Ok(QiroK7MReleaseSampleDescriptor(descriptor));
}

void Asker::AskTrack(QiroK7MTrack* track) {
  QiroK7MTrackInfo info{};
  QiroK7MTrackEntriesInfo entries{};
  uint32_t count = 0;
  Ok(QiroK7MTrackGetInfo(track, &info));
  Ok(QiroK7MTrackGetEntriesInfo(track, &entries));
  Ok(QiroK7MTrackGetSampleCount(track, &count));
  if (info.handlerNameLength <= kLargestCopy) {
    Ok(QiroK7MReaderCopyHandlerName(track, bytes_.data()));
  }
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
    if (trackCount_ < kMostTracks) tracks_[trackCount_++] = track;
    Ok(QiroK7MReleaseTrack(track));
  }
  QiroK7MReleaseTrackIterator(tracks);
}

void Asker::Read(QiroK7MReader* reader) {
  QiroK7MDocInfo info{};
  Ok(QiroK7MReaderGetDocInfo(reader, &info));
  QiroK7MTrackIterator* tracks = nullptr;
  if (Ok(QiroK7MReaderGetTracks(reader, &tracks))) WalkTracks(tracks);
  if (Ok(QiroK7MReaderGetTracksByMediaTypes(reader, kMediaTypes, kMediaTypeCount, &tracks))) {
    QiroK7MReleaseTrackIterator(tracks);
  }
  Take([&](auto out) { return QiroK7MReaderGetAllSamples(reader, out); }, Copying::kYes);
  Take([&](auto out) {
    return QiroK7MReaderGetAllSamplesByTracks(reader, tracks_.data(), trackCount_, out);
  });
  Take([&](auto out) {
    return QiroK7MReaderGetAllSamplesByMediaTypes(reader, kMediaTypes, kMediaTypeCount, out);
  });
  Take([&](auto out) { return QiroK7MReaderGetMediaSamples(reader, nullptr, 0, out); },
       Copying::kYes);
  Take([&](auto out) {
    return QiroK7MReaderGetMediaSamples(reader, tracks_.data(), trackCount_, out);
  });
  AskRanges(reader);
  uint32_t length = 0;
  if (Ok(QiroK7MReaderGetUlbDataLength(reader, &length)) && length <= kLargestCopy) {
    Ok(QiroK7MReaderCopyUlbData(reader, bytes_.data()));
  }
}

void Asker::AskRanges(QiroK7MReader* reader) {
  Take([&](auto out) {
    return QiroK7MReaderGetSamplesByTracks(reader, 1000, 50, 1000, 5000, tracks_.data(),
                                           trackCount_, out);
  });
  Take([&](auto out) {
    return QiroK7MReaderGetSamplesByMediaTypes(reader, 1000, 50, 1000, 5000, kMediaTypes,
                                               kMediaTypeCount, out);
  });
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
}

void Asker::List(QiroK7MWriter* writer) {
  QiroK7MTrackIterator* tracks = nullptr;
  if (!Ok(QiroK7MWriterGetTracks(writer, &tracks))) return;
  QiroK7MReleaseTrackIterator(tracks);
}

void Asker::Serve(QiroK7RQueryServicer* servicer, const QiroK7MAllocatorCallBacks& memory) {
  uint32_t failures = 0;
  for (uint32_t number = 0; number < limit_ && failures < kMostFailures; ++number) {
    failures += AskFragment(servicer, number, 1, memory) ? 0 : 1;
  }
  AskFragment(servicer, limit_ / 2, 1, memory);
  AskFragment(servicer, UINT32_MAX, 1, memory);
  for (const uint32_t segment : {uint32_t{0}, uint32_t{2}, UINT32_MAX}) {
    AskFragment(servicer, 1, segment, memory);
  }
}

bool Asker::AskFragment(QiroK7RQueryServicer* servicer, uint32_t number, uint32_t segment,
                        const QiroK7MAllocatorCallBacks& memory) {
  uint32_t size = 0;
  void* data = nullptr;
  if (!Ok(QiroK7RQueryServicerGetFragment(servicer, number, segment, &size, &data))) return false;
  if (data == nullptr) return true;  // Entries of another number or segment.
  if (memory.release != nullptr) {
    memory.release(memory.clientData, data);
  } else {
    ::operator delete(data);
  }
  return true;
}

}  // namespace

uint64_t Use(Way way, const Bytes& content, const QiroK7MAllocatorCallBacks& memory, uint32_t limit,
             void (*onResult)(QiroK7MError)) {
  Asker asker(limit, onResult);
  const QiroK7MWarningHandlerCallBacks warnings;
  FlatFile file(way == Way::kServeGoodFileByIt ? kGood.file : content);
  FlatFile indexFile(way == Way::kServeGoodFileByIt ? content : kGood.index);
  const QiroK7MIStreamCallBacks reading = file.Reading();
  const QiroK7MIStreamCallBacks index = indexFile.Reading();
  if (way == Way::kRead || way == Way::kReadByTheStandardsRules) {
    uint32_t isK7M = 0;
    asker.Ok(QiroK7MDocIsK7M(&reading, &memory, &isK7M));
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
    if (asker.Ok(QiroK7RQueryServicerCreate(&reading, way == Way::kServe ? nullptr : &index,
                                            &memory, &servicer))) {
      asker.Serve(servicer, memory);
      asker.Ok(QiroK7RCloseQueryServicer(servicer));
    }
  }
  return file.BytesDelivered() + indexFile.BytesDelivered();
}

void UseInEveryWay(const Bytes& content, uint32_t limit) {
  const QiroK7MAllocatorCallBacks memory;  // The global operators.
  for (const Way way : kWays) {
    Use(way, content, memory, limit, nullptr);
  }
}

}  // namespace k7mtest

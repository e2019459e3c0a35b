#include "document_content.h"

#include <gtest/gtest.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "run_program.h"
#include "support/memory_stream.h"

namespace k7mtest {
namespace {

// Ends the reading of a document at the first error.
void Must(QiroK7MError code) {
  if (code != 0) throw code;
}

DescriptionContent ReadDescription(QiroK7MSampleDescriptor* descriptor) {
  DescriptionContent content;
  Must(QiroK7MSampleDescriptorGetInfo(descriptor, &content.info));
  if (content.info.mediaType == Code("vide")) {
    Must(QiroK7MSampleDescriptorGetVideoInfo(descriptor, &content.video));
  }
  if (content.info.mediaType == Code("soun")) {
    Must(QiroK7MSampleDescriptorGetAudioInfo(descriptor, &content.audio));
  }
  std::vector<uint8_t> header(content.info.codecHeaderDataLength + 1);
  Must(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, header.data()));
  header.pop_back();
  content.header = Bytes(header);
  return content;
}

std::vector<QiroK7MSampleDescriptor*> Descriptors(QiroK7MTrack* track) {
  std::vector<QiroK7MSampleDescriptor*> result;
  QiroK7MSampleDescriptorIterator* iterator = nullptr;
  Must(QiroK7MTrackGetSampleDescriptors(track, &iterator));
  QiroK7MSampleDescriptor* descriptor = nullptr;
  while (QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor) == 0 &&
         descriptor != nullptr) {
    result.push_back(descriptor);
  }
  QiroK7MReleaseSampleDescriptorIterator(iterator);
  return result;
}

SampleContent ReadSample(QiroK7MSample* sample,
                         const std::vector<QiroK7MSampleDescriptor*>& descriptors) {
  SampleContent content;
  Must(QiroK7MSampleGetInfo(sample, &content.info));
  QiroK7MSampleDescriptor* descriptor = nullptr;
  Must(QiroK7MSampleGetSampleDescriptor(sample, &descriptor));
  const auto found = std::find(descriptors.begin(), descriptors.end(), descriptor);
  if (found != descriptors.end()) {
    content.description = static_cast<size_t>(found - descriptors.begin()) + 1;
  }
  std::vector<uint8_t> data(content.info.sampleSize + 1);
  Must(QiroK7MSampleCopyData(sample, data.data()));
  data.pop_back();
  content.data = Bytes(data);
  return content;
}

std::vector<SampleContent> ReadSamples(QiroK7MReader* reader, QiroK7MTrack* track, Samples which) {
  const std::vector<QiroK7MSampleDescriptor*> descriptors = Descriptors(track);
  std::vector<SampleContent> result;
  QiroK7MSampleIterator* iterator = nullptr;
  Must(which == Samples::kMedia ? QiroK7MReaderGetMediaSamples(reader, &track, 1, &iterator)
                                : QiroK7MReaderGetAllSamplesByTracks(reader, &track, 1, &iterator));
  QiroK7MError code = 0;
  QiroK7MSample* sample = nullptr;
  while ((code = QiroK7MSampleIteratorGetNextEntry(iterator, &sample)) == 0 && sample != nullptr) {
    try {
      result.push_back(ReadSample(sample, descriptors));
    } catch (const QiroK7MError& failure) {
      code = failure;
    }
    QiroK7MReleaseSample(sample);
    if (code != 0) break;
  }
  QiroK7MReleaseSampleIterator(iterator);
  Must(code);
  return result;
}

TrackContent ReadTrack(QiroK7MReader* reader, QiroK7MTrack* track, Samples which) {
  TrackContent content;
  Must(QiroK7MTrackGetInfo(track, &content.info));
  Must(QiroK7MTrackGetEntriesInfo(track, &content.entries));
  content.handlerName.resize(content.info.handlerNameLength);
  Must(QiroK7MReaderCopyHandlerName(track, content.handlerName.data()));
  uint32_t editCount = 0;
  Must(QiroK7MTrackGetEditCount(track, &editCount));
  content.edits.resize(editCount);
  for (uint32_t i = 0; i < editCount; ++i) Must(QiroK7MTrackGetEdit(track, i, &content.edits[i]));
  for (QiroK7MSampleDescriptor* each : Descriptors(track)) {
    content.descriptions.push_back(ReadDescription(each));
  }
  content.samples = ReadSamples(reader, track, which);
  if (which == Samples::kMedia && !content.samples.empty()) {
    content.mediaStart = content.samples[0].info.timeStamp;
    for (SampleContent& sample : content.samples) sample.info.timeStamp -= content.mediaStart;
  }
  return content;
}

DocumentContent ReadDocument(QiroK7MReader* reader, Samples which) {
  DocumentContent content;
  Must(QiroK7MReaderGetDocInfo(reader, &content.info));
  uint32_t length = 0;
  Must(QiroK7MReaderGetUlbDataLength(reader, &length));
  std::vector<uint8_t> packet(length + 1);
  Must(QiroK7MReaderCopyUlbData(reader, packet.data()));
  packet.pop_back();
  content.metadata = Bytes(packet);
  QiroK7MTrackIterator* iterator = nullptr;
  Must(QiroK7MReaderGetTracks(reader, &iterator));
  std::vector<QiroK7MTrack*> tracks;
  QiroK7MTrack* track = nullptr;
  while (QiroK7MTrackIteratorGetNextEntry(iterator, &track) == 0 && track != nullptr) {
    tracks.push_back(track);
  }
  QiroK7MReleaseTrackIterator(iterator);
  for (QiroK7MTrack* each : tracks) content.tracks.push_back(ReadTrack(reader, each, which));
  return content;
}

// Builds a text of everything that is not equal.
class Differences {
 public:
  template <class Value>
  void Compare(const std::string& what, const Value& source, const Value& copy) {
    if (source == copy || text_.size() > 2000) return;
    text_ += what + ": " + testing::PrintToString(source) + " became " +
             testing::PrintToString(copy) + "\n";
  }
  template <class Record>
  void CompareRecords(const std::string& what, const Record& source, const Record& copy) {
    const auto bytes = [](const Record& record) {
      std::vector<uint8_t> result(sizeof record);
      std::memcpy(result.data(), &record, sizeof record);
      return result;
    };
    Compare(what, bytes(source), bytes(copy));
  }
  const std::string& Text() const { return text_; }

 private:
  std::string text_;
};

void CompareTimes(const std::string& where, const QiroK7MDateTime& a, const QiroK7MDateTime& b,
                  Differences* differences) {
  const auto fields = [](const QiroK7MDateTime& time) {
    return std::vector<int>{time.year, time.month, time.day, time.hour, time.minute, time.second};
  };
  differences->Compare(where + " date", fields(a), fields(b));
}

void CompareTrackInfo(const std::string& where, const TrackContent& a, const TrackContent& b,
                      Differences* differences) {
  differences->Compare(where + " media type", a.info.mediaType, b.info.mediaType);
  differences->Compare(where + " flags", a.info.flags, b.info.flags);
  differences->Compare(where + " time scale", a.info.timeScale, b.info.timeScale);
  differences->Compare(where + " width", a.info.width, b.info.width);
  differences->Compare(where + " height", a.info.height, b.info.height);
  differences->Compare(where + " volume", a.info.volume, b.info.volume);
  differences->Compare(where + " track flags", a.info.trackFlags, b.info.trackFlags);
  differences->Compare(where + " language", std::string(a.info.language, 3),
                       std::string(b.info.language, 3));
  differences->Compare(where + " handler name", a.handlerName, b.handlerName);
  CompareTimes(where + " creation", a.info.creationTime, b.info.creationTime, differences);
  CompareTimes(where + " modification", a.info.modificationTime, b.info.modificationTime,
               differences);
}

void DropDependencies(TrackContent* track) {
  track->info.trackFlags = 0;
  for (SampleContent& sample : track->samples) sample.info.flags &= 0xFF;
}

void CompareDescriptions(const std::string& where, const TrackContent& a, const TrackContent& b,
                         Differences* differences) {
  differences->Compare(where + " descriptions", a.descriptions.size(), b.descriptions.size());
  for (size_t i = 0; i < std::min(a.descriptions.size(), b.descriptions.size()); ++i) {
    const std::string name = where + " description " + std::to_string(i + 1);
    const DescriptionContent& source = a.descriptions[i];
    const DescriptionContent& copy = b.descriptions[i];
    differences->CompareRecords(name, source.info, copy.info);
    differences->CompareRecords(name + " video", source.video, copy.video);
    differences->CompareRecords(name + " audio", source.audio, copy.audio);
    differences->Compare(name + " header", source.header, copy.header);
  }
}

void CompareSamples(const std::string& where, const TrackContent& a, const TrackContent& b,
                    bool isAllKey, Differences* differences) {
  std::vector<const SampleContent*> expected;
  for (const SampleContent& sample : a.samples) {
    const bool isGap = (sample.info.flags & 0xFF) == 2;
    if (sample.info.sampleSize > 0 || isGap) expected.push_back(&sample);
  }
  differences->Compare(where + " samples", expected.size(), b.samples.size());
  const uint32_t added = isAllKey ? 1 : 0;
  for (size_t i = 0; i < std::min(expected.size(), b.samples.size()); ++i) {
    const std::string name = where + " sample " + std::to_string(i + 1);
    QiroK7MSampleInfo info = expected[i]->info;
    if ((info.flags & 0xFF) == 0) info.flags |= added;
    differences->CompareRecords(name, info, b.samples[i].info);
    differences->Compare(name + " description", expected[i]->description, b.samples[i].description);
    differences->Compare(name + " bytes", expected[i]->data, b.samples[i].data);
  }
}

}  // namespace

bool TrackContent::IsAllKey(bool isFragmented) const {
  const auto isKey = [](const SampleContent& sample) { return (sample.info.flags & 0xFF) == 1; };
  const auto first = std::find_if(samples.begin(), samples.end(), isKey);
  return first == samples.end() || (isFragmented && std::all_of(first, samples.end(), isKey));
}

double TrackContent::Start(uint32_t movieScale) const {
  const double first = static_cast<double>(mediaStart) / info.timeScale;
  // Edits of length 0 count only where there are no others.
  for (const uint64_t leastDuration : {uint64_t{1}, uint64_t{0}}) {
    double waited = 0;
    for (const QiroK7MEdit& edit : edits) {
      if (edit.mediaTime == -1) {
        waited += static_cast<double>(edit.segmentDuration) / movieScale;
      } else if (edit.segmentDuration >= leastDuration) {
        return first + waited - static_cast<double>(edit.mediaTime) / info.timeScale;
      }
    }
  }
  return first;
}

std::optional<DocumentContent> ReadContent(const std::string& path, QiroK7MError* error,
                                           Samples which) {
  MemoryStream stream(ReadBytes(path));
  const QiroK7MIStreamCallBacks callBacks = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warning;
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7MReader* reader = nullptr;
  const QiroK7MReadOptions rules{sizeof rules,
                                 kQiroK7MReadBaseDataOffsets | kQiroK7MReadStartTimes};
  *error = QiroK7MDocOpenForReadWithOptions(&callBacks, &warning, &allocator, &rules, &reader);
  if (*error != 0) return std::nullopt;
  std::optional<DocumentContent> content;
  try {
    content = ReadDocument(reader, which);
  } catch (const QiroK7MError& failure) {
    *error = failure;
  }
  QiroK7MCloseReader(reader);
  return content;
}

std::string CopyDifference(const DocumentContent& source, const DocumentContent& copy) {
  Differences differences;
  differences.Compare("metadata", source.metadata, copy.metadata);
  differences.Compare("time scale", source.info.timeScale, copy.info.timeScale);
  differences.Compare("play rate", source.info.playRate, copy.info.playRate);
  differences.Compare("volume", source.info.volume, copy.info.volume);
  CompareTimes("creation", source.info.creationTime, copy.info.creationTime, &differences);
  CompareTimes("modification", source.info.modificationTime, copy.info.modificationTime,
               &differences);
  differences.Compare("tracks", source.tracks.size(), copy.tracks.size());
  for (size_t i = 0; i < std::min(source.tracks.size(), copy.tracks.size()); ++i) {
    const std::string where = "track " + std::to_string(i + 1);
    TrackContent expected = source.tracks[i];
    if (copy.info.isFragmented != 0) DropDependencies(&expected);
    CompareTrackInfo(where, expected, copy.tracks[i], &differences);
    CompareDescriptions(where, expected, copy.tracks[i], &differences);
    CompareSamples(where, expected, copy.tracks[i],
                   expected.IsAllKey(source.info.isFragmented != 0), &differences);
  }
  return differences.Text();
}

}  // namespace k7mtest

#include "opened_reader.h"

#include <gtest/gtest.h>

namespace k7mtest {

void OpenedReader::Open() {
  const QiroK7MIStreamCallBacks stream = stream_.Reading();
  const QiroK7MWarningHandlerCallBacks warning = warnings_.Record();
  const QiroK7MAllocatorCallBacks memory = memory_.Record();
  if (flags_) {
    const QiroK7MReadOptions options = {sizeof(options), flags_->value};
    result_ = QiroK7MDocOpenForReadWithOptions(&stream, &warning, &memory, &options, &reader_);
  } else {
    result_ = QiroK7MDocOpenForRead(&stream, &warning, &memory, &reader_);
  }
  EXPECT_EQ(reader_ != nullptr, result_ == 0);
}

void OpenedReader::Close() {
  if (isClosed_) return;
  isClosed_ = true;
  QiroK7MCloseReader(reader_);
  reader_ = nullptr;
  EXPECT_FALSE(stream_.IsOpen());
  EXPECT_STREQ(stream_.Violation(), nullptr);
  EXPECT_EQ(memory_.LiveBlocks(), 0u);
  EXPECT_EQ(memory_.BadReleases(), 0u);
}

std::vector<QiroK7MTrack*> OpenedReader::Tracks() const {
  std::vector<QiroK7MTrack*> tracks;
  QiroK7MTrackIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MReaderGetTracks(reader_, &iterator), 0u);
  for (QiroK7MTrack* track = nullptr;
       QiroK7MTrackIteratorGetNextEntry(iterator, &track) == 0 && track != nullptr;) {
    tracks.push_back(track);
  }
  QiroK7MReleaseTrackIterator(iterator);
  return tracks;
}

QiroK7MError OpenResult(const Bytes& file) { return OpenedReader(file).Result(); }

std::vector<QiroK7MError> OpenWarnings(const Bytes& file) {
  OpenedReader reader(file);
  EXPECT_EQ(reader.Result(), 0u);
  return reader.Warnings().Seen();
}

QiroK7MTrackInfo InfoOf(QiroK7MTrack* track) {
  QiroK7MTrackInfo info{};
  EXPECT_EQ(QiroK7MTrackGetInfo(track, &info), 0u);
  return info;
}

QiroK7MTrackEntriesInfo EntriesOf(QiroK7MTrack* track) {
  QiroK7MTrackEntriesInfo info{};
  EXPECT_EQ(QiroK7MTrackGetEntriesInfo(track, &info), 0u);
  return info;
}

std::vector<QiroK7MSampleDescriptor*> DescriptorsOf(QiroK7MTrack* track) {
  std::vector<QiroK7MSampleDescriptor*> descriptors;
  QiroK7MSampleDescriptorIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MTrackGetSampleDescriptors(track, &iterator), 0u);
  for (QiroK7MSampleDescriptor* descriptor = nullptr;
       QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor) == 0 &&
       descriptor != nullptr;) {
    descriptors.push_back(descriptor);
  }
  QiroK7MReleaseSampleDescriptorIterator(iterator);
  return descriptors;
}

bool HasMore(QiroK7MSampleIterator* iterator) {
  uint32_t hasMore = 77;
  EXPECT_EQ(QiroK7MSampleIteratorHasMoreEntries(iterator, &hasMore), 0u);
  EXPECT_LE(hasMore, 1u);
  return hasMore == 1;
}

ReadSample TakeSample(QiroK7MSample* sample, bool withData) {
  ReadSample taken;
  EXPECT_EQ(QiroK7MSampleGetInfo(sample, &taken.info), 0u);
  EXPECT_EQ(QiroK7MSampleGetTrack(sample, &taken.track), 0u);
  EXPECT_EQ(QiroK7MSampleGetSampleDescriptor(sample, &taken.descriptor), 0u);
  EXPECT_EQ(taken.info.size, 32u);
  if (withData) {
    uint8_t none = 0;  // A sample without bytes needs a buffer all the same.
    taken.data.Fill(taken.info.sampleSize);
    taken.dataResult =
        QiroK7MSampleCopyData(sample, taken.data.Empty() ? &none : taken.data.Data());
  }
  QiroK7MReleaseSample(sample);
  return taken;
}

std::vector<ReadSample> Drain(QiroK7MSampleIterator* iterator, bool withData,
                              QiroK7MError* failure) {
  std::vector<ReadSample> samples;
  QiroK7MError result = 0;
  while (HasMore(iterator)) {
    QiroK7MSample* sample = nullptr;
    result = QiroK7MSampleIteratorGetNextEntry(iterator, &sample);
    if (result != 0) break;
    if (sample == nullptr) {
      ADD_FAILURE() << "an iterator with more entries gave none";
      break;
    }
    samples.push_back(TakeSample(sample, withData));
  }
  if (failure != nullptr) {
    *failure = result;
  } else {
    EXPECT_EQ(result, 0u);
  }
  QiroK7MReleaseSampleIterator(iterator);
  return samples;
}

std::vector<ReadSample> AllSamples(const OpenedReader& reader, bool withData) {
  QiroK7MSampleIterator* iterator = nullptr;
  const QiroK7MError result = QiroK7MReaderGetAllSamples(reader.Handle(), &iterator);
  EXPECT_EQ(result, 0u);
  return result == 0 ? Drain(iterator, withData) : std::vector<ReadSample>();
}

std::vector<ReadSample> SamplesBetween(const OpenedReader& reader, uint32_t startScale,
                                       uint64_t start, uint32_t endScale, uint64_t end) {
  QiroK7MSampleIterator* iterator = nullptr;
  const QiroK7MError result =
      QiroK7MReaderGetSamples(reader.Handle(), startScale, start, endScale, end, &iterator);
  EXPECT_EQ(result, 0u);
  return result == 0 ? Drain(iterator) : std::vector<ReadSample>();
}

std::vector<ReadSample> MediaSamples(const OpenedReader& reader, QiroK7MTrack* track,
                                     bool withData) {
  QiroK7MSampleIterator* iterator = nullptr;
  const QiroK7MError result = QiroK7MReaderGetMediaSamples(
      reader.Handle(), track == nullptr ? nullptr : &track, track == nullptr ? 0 : 1, &iterator);
  EXPECT_EQ(result, 0u);
  return result == 0 ? Drain(iterator, withData) : std::vector<ReadSample>();
}

std::vector<uint64_t> TimeStamps(const std::vector<ReadSample>& samples) {
  std::vector<uint64_t> times;
  for (const ReadSample& sample : samples) times.push_back(sample.info.timeStamp);
  return times;
}

std::vector<uint32_t> Flags(const std::vector<ReadSample>& samples) {
  std::vector<uint32_t> flags;
  for (const ReadSample& sample : samples) flags.push_back(sample.info.flags);
  return flags;
}

std::vector<Bytes> Data(const std::vector<ReadSample>& samples) {
  std::vector<Bytes> data;
  for (const ReadSample& sample : samples) data.push_back(sample.data);
  return data;
}

}  // namespace k7mtest

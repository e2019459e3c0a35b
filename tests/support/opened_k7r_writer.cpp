#include "opened_k7r_writer.h"

#include <gtest/gtest.h>

#include "box_builder.h"
#include "opened_reader.h"

namespace k7mtest {

Bytes VorpExtension(uint32_t timeOrigin) { return Box("amto", Bytes().U32(timeOrigin)); }

OpenedK7RWriter::OpenedK7RWriter(const QiroK7MDocInfo& info)
    : OpenedWriter({}, [&info](const QiroK7MIOStreamCallBacks& stream,
                               const QiroK7MAllocatorCallBacks& memory, QiroK7MWriter** writer) {
        QiroK7RWriter* created = nullptr;
        const QiroK7MError result = QiroK7RDocCreateNew(&stream, &info, &memory, &created);
        EXPECT_EQ(QiroK7RWriterGetK7MWriterRef(created, writer), 0u);
        return result;
      }) {}

OpenedK7RWriter::OpenedK7RWriter(const Bytes& file, uint64_t keepLimit, bool keepsJournal)
    : OpenedK7RWriter(file, keepLimit, keepsJournal, std::make_unique<uint64_t>(kNotTold)) {}

OpenedK7RWriter::OpenedK7RWriter(const Bytes& file, uint64_t keepLimit, bool keepsJournal,
                                 std::unique_ptr<uint64_t> lastFragment)
    : OpenedWriter(
          file,
          [&](const QiroK7MIOStreamCallBacks& stream, const QiroK7MAllocatorCallBacks& memory,
              QiroK7MWriter** writer) {
            const int reserved = 0;
            QiroK7RWriter* opened = nullptr;
            const QiroK7MError result = QiroK7RDocOpenForAppend(
                &stream, &reserved, &memory, keepLimit, lastFragment.get(), &opened);
            EXPECT_EQ(QiroK7RWriterGetK7MWriterRef(opened, writer), 0u);
            EXPECT_EQ(*lastFragment == kNotTold, result != 0);
            return result;
          },
          keepsJournal),
      lastFragment_(*lastFragment) {}

std::vector<QiroK7MTrack*> OpenedK7RWriter::DescribedTracks() {
  std::vector<QiroK7MTrack*> tracks;
  QiroK7MTrackIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MWriterGetTracks(Handle(), &iterator), 0u);
  for (QiroK7MTrack* track = nullptr;
       QiroK7MTrackIteratorGetNextEntry(iterator, &track) == 0 && track != nullptr;) {
    tracks.push_back(track);
    const auto descriptors = DescriptorsOf(track);
    if (!descriptors.empty()) {
      EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(Handle(), track, descriptors[0]), 0u);
    }
  }
  QiroK7MReleaseTrackIterator(iterator);
  return tracks;
}

OpenedK7RWriter::~OpenedK7RWriter() {
  Destroy();
  for (size_t i = 0; i < buffers_.size(); ++i) {
    EXPECT_EQ(buffers_[i]->Releases(), 1) << "buffer " << i;
    EXPECT_TRUE(buffers_[i]->DataWasRight()) << "buffer " << i;
  }
}

QiroK7MDataBuffer* OpenedK7RWriter::Keep(const Bytes& data) {
  buffers_.push_back(std::make_unique<CountedBuffer>(data));
  return buffers_.back()->Record();
}

QiroK7MError OpenedK7RWriter::Judge(QiroK7MError result) {
  // A fault that was ordered may come when the writer has the buffer already.
  if (result != 0 && !Stream().FaultHit() && !Memory().FaultHit()) {
    EXPECT_EQ(buffers_.back()->Releases(), 1);
  }
  return result;
}

QiroK7MError OpenedK7RWriter::TryAddHintTrack(const NewTrack& track,
                                              const std::vector<QiroK7MTrack*>& served,
                                              QiroK7MTrack** out, uint32_t protocol) {
  const QiroK7RHintTrackInfo hint{8, protocol};
  const QiroK7MTrackInfo info = track.Info();
  const QiroK7MTrackEntriesInfo entries = track.Entries();
  QiroK7MTrack* unwanted = nullptr;
  return QiroK7RWriterAddHintTrack(
      K7R(), &hint, &info, &entries, track.maxSampleCount, track.handlerName.data(), served.data(),
      static_cast<uint32_t>(served.size()), out == nullptr ? &unwanted : out);
}

QiroK7MTrack* OpenedK7RWriter::AddHintTrack(const std::vector<QiroK7MTrack*>& served,
                                            uint32_t timeScale) {
  QiroK7MTrack* added = nullptr;
  const NewTrack track{
      .mediaType = "hint", .timeScale = timeScale, .descriptorCount = 1, .flags = 0};
  EXPECT_EQ(TryAddHintTrack(track, served, &added), 0u);
  return added;
}

QiroK7MError OpenedK7RWriter::TryAddVorp(QiroK7MTrack* track, const Bytes& extension) {
  const QiroK7MVorpSampleDescInfo info{12, 1, 1, 1500, 0};
  CountedBuffer buffer(extension);
  QiroK7MSampleDescriptor* added = nullptr;
  const QiroK7MError result =
      QiroK7MWriterAddVorpSampleDescriptor(Handle(), track, &info, buffer.Record(), &added);
  EXPECT_EQ(buffer.Releases(), 1);
  return result;
}

void OpenedK7RWriter::SetTimeOrigin(QiroK7MTrack* hintTrack, uint32_t timeOrigin) {
  EXPECT_EQ(TryAddVorp(hintTrack, VorpExtension(timeOrigin)), 0u);
}

QiroK7MTrack* OpenedK7RWriter::AddDescribedHintTrack(const std::vector<QiroK7MTrack*>& served,
                                                     uint32_t timeOrigin, uint32_t timeScale) {
  QiroK7MTrack* added = AddHintTrack(served, timeScale);
  SetTimeOrigin(added, timeOrigin);
  return added;
}

QiroK7MError OpenedK7RWriter::TryStartFragment() {
  uint64_t offset = 0;
  return QiroK7RWriterStartFragment(K7R(), &offset);
}

uint64_t OpenedK7RWriter::StartFragment() {
  uint64_t offset = 0;
  EXPECT_EQ(QiroK7RWriterStartFragment(K7R(), &offset), 0u);
  return offset;
}

QiroK7MError OpenedK7RWriter::TryAdd(QiroK7MTrack* track, const NewSample& sample,
                                     bool isRandomAccess) {
  const QiroK7MSampleInfo info = sample.Info(track);
  return Judge(QiroK7RWriterAddSampleWithAfra(K7R(), track, &info, Keep(sample.data),
                                              isRandomAccess ? 1 : 0));
}

void OpenedK7RWriter::Add(QiroK7MTrack* track, const NewSample& sample, bool isRandomAccess) {
  EXPECT_EQ(TryAdd(track, sample, isRandomAccess), 0u);
}

void OpenedK7RWriter::Add(QiroK7MTrack* track, uint64_t time, uint32_t flags) {
  Add(track, NewSample{.time = time, .flags = flags});
}

QiroK7MError OpenedK7RWriter::TryAddHint(QiroK7MTrack* hint, QiroK7MTrack* media,
                                         const NewSample& sample, MediaInHint where,
                                         bool isRandomAccess) {
  const QiroK7MSampleInfo info = sample.Info(hint);
  const QiroK7MHintSampleInfo place{12, where.offset, where.size};
  return QiroK7RWriterAddHintSample(K7R(), hint, media, Keep(sample.data), &info, &place,
                                    isRandomAccess ? 1 : 0);
}

void OpenedK7RWriter::AddHint(QiroK7MTrack* hint, QiroK7MTrack* media, const NewSample& sample,
                              MediaInHint where, bool isRandomAccess) {
  EXPECT_EQ(TryAddHint(hint, media, sample, where, isRandomAccess), 0u);
}

QiroK7MError OpenedK7RWriter::TryAddAbst(const Bytes& payload) {
  return Judge(QiroK7RWriterAddABST(K7R(), Keep(payload), static_cast<uint32_t>(payload.Size())));
}

}  // namespace k7mtest

#include "document.h"

#include <algorithm>
#include <utility>

#include "box_place.h"

namespace qiro::k7m::tool {
namespace {

/// Reads the movie box in one go, a long one with what begins behind it. The library jumps about in
/// long tables, and each jump would be a request.
void FetchMovieBox(InputSource* source, const BoxPlace& moov) {
  constexpr uint64_t kMost = uint64_t{16} << 20;
  constexpr uint64_t kShort = uint64_t{128} << 10;
  const uint64_t behind = moov.size > kShort ? kShort : 0;
  std::vector<uint8_t> bytes(std::min(moov.size, kMost) + behind);
  uint64_t bytesRead = 0;
  if (!source->Read(bytes.data(), bytes.size(), moov.offset, &bytesRead)) {
    throw FileFailure(source->Name(), source->Problem());
  }
}

void FetchMovieBoxOf(const std::shared_ptr<InputSource>& source) {
  FileStream stream(source);
  FileNumbers numbers(&stream);
  try {
    uint64_t offset = 0;
    while (const auto box = BoxAt(&numbers, offset, numbers.Length())) {
      if (box->type == "moov") return FetchMovieBox(source.get(), *box);
      offset += box->size;
    }
  } catch (const Failure&) {
    if (stream.HasFailed()) throw;
    // What is wrong with a box is for the library to say.
  }
}

}  // namespace

Document::Document(const InputOptions& options)
    : Document(options, OpenInput(options.path, options.spoolLimit)) {}

Document::Document(const InputOptions& options, std::shared_ptr<InputSource> source)
    : file_(std::move(source)), warnings_(file_.Path(), options.isStrict, options.isQuiet) {
  if (file_.Source()->IsRemote()) FetchMovieBoxOf(file_.Source());
  const QiroK7MIStreamCallBacks stream = file_.CallBacks();
  const QiroK7MWarningHandlerCallBacks warning = warnings_.CallBacks();
  const QiroK7MAllocatorCallBacks allocator;
  // Most fragmented files need both rules; to other files they mean nothing.
  const QiroK7MReadOptions rules{sizeof rules,
                                 kQiroK7MReadBaseDataOffsets | kQiroK7MReadStartTimes};
  QiroK7MReader* reader = nullptr;
  Check(QiroK7MDocOpenForReadWithOptions(&stream, &warning, &allocator, &rules, &reader));
  reader_.reset(reader);
  ListTracks();
}

// A document without a movie header tells nothing; whoever needs the header says so.
bool Document::IsFragmented() const {
  QiroK7MDocInfo info{};
  return QiroK7MReaderGetDocInfo(Reader(), &info) == kQiroK7MErrorNone && info.isFragmented != 0;
}

void Document::ListTracks() {
  QiroK7MTrackIterator* list = nullptr;
  Check(QiroK7MReaderGetTracks(Reader(), &list));
  const TrackIteratorHandle iterator(list);
  for (;;) {
    Track track;
    Check(QiroK7MTrackIteratorGetNextEntry(iterator.get(), &track.handle));
    if (track.handle == nullptr) return;
    track.number = static_cast<uint32_t>(tracks_.size() + 1);
    Check(QiroK7MTrackGetInfo(track.handle, &track.info));
    track.descriptors = ListDescriptors(track.handle);
    uint32_t number = 0;
    for (const QiroK7MSampleDescriptor* descriptor : track.descriptors) {
      descriptionNumbers_.emplace(descriptor, ++number);
    }
    trackIndices_.emplace(track.handle, tracks_.size());
    tracks_.push_back(std::move(track));
  }
}

std::vector<QiroK7MSampleDescriptor*> Document::ListDescriptors(QiroK7MTrack* track) const {
  std::vector<QiroK7MSampleDescriptor*> descriptors;
  QiroK7MSampleDescriptorIterator* list = nullptr;
  const QiroK7MError code = QiroK7MTrackGetSampleDescriptors(track, &list);
  if (code == kQiroK7MErrorNoSampleDescriptionBox) return descriptors;
  Check(code);
  const DescriptorIteratorHandle iterator(list);
  for (;;) {
    QiroK7MSampleDescriptor* descriptor = nullptr;
    Check(QiroK7MSampleDescriptorIteratorGetNextEntry(iterator.get(), &descriptor));
    if (descriptor == nullptr) return descriptors;
    descriptors.push_back(descriptor);
  }
}

const Track& Document::TrackByNumber(uint32_t number) const {
  if (number == 0 || number > tracks_.size()) {
    throw FileFailure(file_.Path(), "no track " + std::to_string(number) + " (the file has " +
                                        std::to_string(tracks_.size()) + ")");
  }
  return tracks_[number - 1];
}

const Track& Document::TrackByHandle(const QiroK7MTrack* handle) const {
  const auto index = trackIndices_.find(handle);
  if (index == trackIndices_.end()) {
    throw FileFailure(file_.Path(), "a sample belongs to none of the tracks");
  }
  return tracks_[index->second];
}

uint32_t Document::DescriptionNumber(const QiroK7MSampleDescriptor* descriptor) const {
  const auto number = descriptionNumbers_.find(descriptor);
  return number == descriptionNumbers_.end() ? 0 : number->second;
}

void Document::Check(QiroK7MError code) const {
  if (code != kQiroK7MErrorNone) throw FailureFor(code);
}

Failure Document::FailureFor(QiroK7MError code) const {
  if (code == FileStream::kSystemFailed) return file_.WhatFailed();
  return LibraryFailure(file_.Path(), code);
}

SampleHandle SampleWalk::Next(QiroK7MSampleInfo* info) {
  QiroK7MSample* sample = nullptr;
  document_.Check(QiroK7MSampleIteratorGetNextEntry(iterator_.get(), &sample));
  SampleHandle handle(sample);
  if (handle) document_.Check(QiroK7MSampleGetInfo(sample, info));
  return handle;
}

SampleWalk WalkMediaSamples(const Document& document, const Track& track) {
  return WalkMediaSamples(document, std::vector<QiroK7MTrack*>{track.handle});
}

SampleWalk WalkMediaSamples(const Document& document, const std::vector<QiroK7MTrack*>& tracks) {
  // An array that is not null selects nothing when it is empty; a null one would select everything.
  QiroK7MTrack* const none = nullptr;
  QiroK7MTrack* const* const array = tracks.empty() ? &none : tracks.data();
  QiroK7MSampleIterator* iterator = nullptr;
  document.Check(QiroK7MReaderGetMediaSamples(document.Reader(), array,
                                              static_cast<uint32_t>(tracks.size()), &iterator));
  return SampleWalk(document, iterator);
}

void CopySample(const Document& document, QiroK7MSample* sample, const QiroK7MSampleInfo& info,
                std::vector<uint8_t>* buffer) {
  // A size from the file is not believed before it could be true: memory is only taken for that.
  if (info.sampleSize > document.File().Length()) document.Check(kQiroK7MErrorSampleDataShort);
  if (buffer->size() < info.sampleSize) buffer->resize(info.sampleSize);
  if (info.sampleSize > 0) document.Check(QiroK7MSampleCopyData(sample, buffer->data()));
}

}  // namespace qiro::k7m::tool

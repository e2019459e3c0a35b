/// @file document.h
/// A file open through the library, with handles that free themselves.
#pragma once

#include <k7m/k7m.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "failure.h"
#include "file_stream.h"
#include "warnings.h"

namespace qiro::k7m::tool {

/// Frees a handle with the library's function for it.
template <auto kRelease>
struct Releaser {
  template <class Handle>
  void operator()(Handle* handle) const {
    kRelease(handle);
  }
};

using ReaderHandle = std::unique_ptr<QiroK7MReader, Releaser<QiroK7MCloseReader>>;
using TrackIteratorHandle =
    std::unique_ptr<QiroK7MTrackIterator, Releaser<QiroK7MReleaseTrackIterator>>;
using DescriptorIteratorHandle = std::unique_ptr<QiroK7MSampleDescriptorIterator,
                                                 Releaser<QiroK7MReleaseSampleDescriptorIterator>>;
using SampleIteratorHandle =
    std::unique_ptr<QiroK7MSampleIterator, Releaser<QiroK7MReleaseSampleIterator>>;
using SampleHandle = std::unique_ptr<QiroK7MSample, Releaser<QiroK7MReleaseSample>>;

/// A track and what a command always wants to know about it.
struct Track {
  uint32_t number = 0;  ///< From 1, in file order.
  QiroK7MTrack* handle = nullptr;
  QiroK7MTrackInfo info{};
  std::vector<QiroK7MSampleDescriptor*> descriptors;  ///< Empty without a description table.
};

/// What every command that reads a document lets the user say about it.
struct InputOptions {
  std::string path;
  bool isStrict = false;  ///< A warning ends the command.
  bool isQuiet = false;   ///< Warnings are not shown.
  uint64_t spoolLimit = kUsualSpoolLimit;
};

/// A document that is open for reading. Every failure is thrown with the file's name. In a
/// fragmented one, data offsets and start times follow the standard, so that samples are where and
/// when other programs find them.
class Document {
 public:
  explicit Document(const InputOptions& options);
  /// The same of an input that is open already.
  Document(const InputOptions& options, std::shared_ptr<InputSource> source);
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  QiroK7MReader* Reader() const { return reader_.get(); }
  const FileStream& File() const { return file_; }
  bool IsFragmented() const;
  const std::vector<Track>& Tracks() const { return tracks_; }
  /// Throws when there is no such track.
  const Track& TrackByNumber(uint32_t number) const;
  /// Throws unless the handle came from this document.
  const Track& TrackByHandle(const QiroK7MTrack* handle) const;
  /// Counted from 1 within its track; 0 for null, which a gap has, and for one that no track lists.
  uint32_t DescriptionNumber(const QiroK7MSampleDescriptor* descriptor) const;
  /// Throws for every code but 0.
  void Check(QiroK7MError code) const;
  /// The failure that a code other than 0 stands for.
  Failure FailureFor(QiroK7MError code) const;

 private:
  void ListTracks();
  std::vector<QiroK7MSampleDescriptor*> ListDescriptors(QiroK7MTrack* track) const;

  FileStream file_;
  Warnings warnings_;
  ReaderHandle reader_;
  std::vector<Track> tracks_;
  // Looked up for every sample.
  std::unordered_map<const QiroK7MTrack*, size_t> trackIndices_;
  std::unordered_map<const QiroK7MSampleDescriptor*, uint32_t> descriptionNumbers_;
};

/// A walk over samples.
class SampleWalk {
 public:
  /// @param iterator  taken over; must not be null
  SampleWalk(const Document& document, QiroK7MSampleIterator* iterator)
      : document_(document), iterator_(iterator) {}
  /// The next sample, or null at the end. Fills `info` when there is one.
  SampleHandle Next(QiroK7MSampleInfo* info);

 private:
  const Document& document_;
  SampleIteratorHandle iterator_;
};

/// The samples of a track as they lie in the file.
SampleWalk WalkMediaSamples(const Document& document, const Track& track);
/// The same for several tracks of the document, merged by time.
SampleWalk WalkMediaSamples(const Document& document, const std::vector<QiroK7MTrack*>& tracks);
/// The bytes of a sample, in a buffer that grows as needed and is otherwise used again.
void CopySample(const Document& document, QiroK7MSample* sample, const QiroK7MSampleInfo& info,
                std::vector<uint8_t>* buffer);

}  // namespace qiro::k7m::tool

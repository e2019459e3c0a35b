/// @file movie_writer.h
/// A document being written to a file, with failures thrown.
#pragma once

#include <k7m/k7m.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "document.h"
#include "failure.h"
#include "file_io_stream.h"
#include "remux_plan.h"

namespace qiro::k7m::tool {

/// The library only reads a buffer without a release function while it is being called.
QiroK7MDataBuffer BorrowedBuffer(std::vector<uint8_t>* bytes, size_t size);

/// A document that grows on a file. Every failure is thrown with the file's name.
class MovieWriter {
 public:
  /// @param descriptor  an empty file, open for reading and writing; stays the caller's
  /// @param name        of the file, for messages
  MovieWriter(int descriptor, std::string name, const QiroK7MDocInfo& info);
  virtual ~MovieWriter() = default;
  MovieWriter(const MovieWriter&) = delete;
  MovieWriter& operator=(const MovieWriter&) = delete;

  /// Adds a track like the planned one, with its descriptions. Fragments have no place for the
  /// dependencies of samples.
  void AddTrack(const Document& document, const TrackPlan& plan);
  void SetMetadata(std::vector<uint8_t> packet);
  /// Adds a sample to a track, counted from 0 in the order of AddTrack().
  /// @param description  of the track, from 0; ignored for gaps
  /// @param bytes        of the sample, from its begin; may be taken
  virtual void AddSample(size_t track, size_t description, const QiroK7MSampleInfo& info,
                         std::vector<uint8_t>* bytes);
  /// Ends the fragment that is open. What comes next belongs to another one.
  virtual void EndFragment();
  /// Everything is in the file after this.
  virtual void Close();

 protected:
  struct OutputTrack {
    QiroK7MTrack* handle = nullptr;
    std::vector<QiroK7MSampleDescriptor*> descriptions;
    size_t currentDescription = 0;
  };

  /// For a document of another kind: Adopt() has to follow at once.
  /// @param length  of the file
  MovieWriter(int descriptor, std::string name, uint64_t length, FileIoStream::Order order)
      : name_(std::move(name)), isFragmented_(true), stream_(descriptor, length, order) {}
  void Adopt(QiroK7MWriter* writer) { writer_.reset(writer); }

  void ChooseDescription(OutputTrack* track, size_t description);
  void Check(QiroK7MError code) const;
  const std::string& Name() const { return name_; }
  FileIoStream& Stream() { return stream_; }
  QiroK7MWriter* Handle() const { return writer_.get(); }
  std::vector<OutputTrack>& Tracks() { return tracks_; }

 private:
  QiroK7MSampleDescriptor* AddDescription(const Document& document, QiroK7MTrack* track,
                                          QiroK7MSampleDescriptor* source);

  std::string name_;
  bool isFragmented_;
  FileIoStream stream_;
  std::unique_ptr<QiroK7MWriter, Releaser<QiroK7MDestroyWriter>> writer_;
  std::vector<OutputTrack> tracks_;
};

}  // namespace qiro::k7m::tool

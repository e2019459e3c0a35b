/// @file opened_writer.h
/// A document being written through the public functions, with books on everything it uses.
#ifndef K7M_TESTS_SUPPORT_OPENED_WRITER_H
#define K7M_TESTS_SUPPORT_OPENED_WRITER_H

#include <functional>
#include <string>
#include <utility>

#include "bytes.h"
#include "counting_allocator.h"
#include "k7m/k7m.h"
#include "memory_stream.h"

namespace k7mtest {

inline constexpr uint32_t kKey = kQiroK7MSampleFlagKey;
inline constexpr uint32_t kGap = kQiroK7MSampleFlagGap;

inline QiroK7MDocInfo DocInfoOf(uint32_t timeScale) {
  QiroK7MDocInfo info{};
  info.creationTime = {0, 2, 1, 1904, 0, 0, 0};      // 86400 seconds.
  info.modificationTime = {0, 1, 1, 1904, 1, 0, 1};  // 3601 seconds.
  info.playRate = 1;
  info.volume = 1;
  info.timeScale = timeScale;
  return info;
}

struct NewTrack {
  std::string mediaType = "vide";
  uint32_t timeScale = 1000;
  uint32_t maxSampleCount = 20;
  uint32_t gapCount = 4;
  uint32_t descriptorCount = 2;
  uint32_t maxCodecHeaderLength = 32;
  uint32_t flags = 7;
  uint32_t trackFlags = 0;
  std::string language = "eng";
  std::string handlerName = std::string("handler\0", 8);
  uint64_t duration = 0;
  float width = 64;
  float height = 48;
  float volume = 0;

  QiroK7MTrackInfo Info() const;
  QiroK7MTrackEntriesInfo Entries() const;
};

struct NewSample {
  uint64_t time = 0;
  Bytes data = Bytes{1, 2, 3};
  uint32_t flags = 0;
  uint32_t compositionOffset = 0;
  uint32_t timeScale = 0;  // 0: the track's.

  QiroK7MSampleInfo Info(QiroK7MTrack* track) const;
};

/// Creates at once; destroys when it goes. Then everything taken must have been given back, and the
/// stream must have been closed, once.
class OpenedWriter {
 public:
  explicit OpenedWriter(uint32_t movieTimeScale = 1000) : OpenedWriter(DocInfoOf(movieTimeScale)) {}
  explicit OpenedWriter(const QiroK7MDocInfo& info);
  OpenedWriter(const OpenedWriter&) = delete;
  OpenedWriter& operator=(const OpenedWriter&) = delete;
  ~OpenedWriter() { Destroy(); }

  QiroK7MError Result() const { return result_; }
  QiroK7MWriter* Handle() const { return writer_; }
  MemoryStream& Stream() { return stream_; }
  CountingAllocator& Memory() { return memory_; }
  /// What is on the stream now.
  Bytes File() const { return stream_.Content(); }

  // These fail the test when the library does.
  QiroK7MTrack* AddTrack(const NewTrack& track = {});
  /// By the generic function, of the track's media type.
  QiroK7MSampleDescriptor* Describe(QiroK7MTrack* track, const char* coding = "avc1",
                                    const Bytes& codecHeader = {});
  /// A track with its first description.
  QiroK7MTrack* AddDescribedTrack(const NewTrack& track = {}) {
    QiroK7MTrack* added = AddTrack(track);
    Describe(added);
    return added;
  }
  void Add(QiroK7MTrack* track, const NewSample& sample);
  void Add(QiroK7MTrack* track, uint64_t time, uint32_t flags = 0);
  void Flush();
  /// Closes, and gives the file.
  Bytes Finish();

  // These give the library's answer; the buffer must have been given back once.
  QiroK7MError TryAdd(QiroK7MTrack* track, const NewSample& sample);
  QiroK7MError TryDescribe(QiroK7MTrack* track, const char* coding, const Bytes& codecHeader);
  QiroK7MError TryAddTrack(const NewTrack& track, QiroK7MTrack** out = nullptr);
  QiroK7MError TrySetUlb(const Bytes& metadata);
  QiroK7MError TryAddFullBox(const char* type, uint32_t version, uint32_t flags,
                             const Bytes& payload);
  /// Whether the writer answers other calls than close and destroy.
  bool IsGood() const;
  /// From now on the caller has to destroy it; only the judging is left.
  QiroK7MWriter* Release() { return std::exchange(writer_, nullptr); }
  /// Destroys early and judges; the second time it does nothing.
  void Destroy();

 protected:
  /// Creates or opens a writer on the given stream and memory.
  using Creator = std::function<QiroK7MError(
      const QiroK7MIOStreamCallBacks&, const QiroK7MAllocatorCallBacks&, QiroK7MWriter** writer)>;
  /// On a stream that holds `content`.
  OpenedWriter(const Bytes& content, const Creator& create, bool keepsJournal = false)
      : stream_(content) {
    if (keepsJournal) stream_.StartJournal();
    Create(create);
  }

 private:
  void Create(const Creator& create);

  MemoryStream stream_;
  CountingAllocator memory_;
  QiroK7MWriter* writer_ = nullptr;
  QiroK7MError result_ = 0;
  bool isDestroyed_ = false;
};

uint32_t MediaTypeOf(QiroK7MTrack* track);

}  // namespace k7mtest

#endif

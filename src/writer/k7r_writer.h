#pragma once

#include <optional>

#include "boxes/afra_box.h"
#include "k7m/k7r.h"
#include "writer/writer.h"

namespace qiro::k7m::impl {

/// Builds a K7R file: a fragmented document whose fragments start where the caller says, each with
/// an 'afra' in front and the 'abst' that the caller may have queued. One hint track tells the time
/// origin of the file; every decode time counts from there.
class K7RWriter final : public Writer {
 public:
  enum class AbstPlace : uint8_t { kBehindAfra, kBeforeAfra };

  /// The document is fragmented whatever `info` says.
  K7RWriter(std::unique_ptr<QiroK7MStream> stream, const QiroK7MDocInfo& info,
            const QiroK7MAllocatorCallBacks* allocator);
  /// Opens an existing file to continue it; see Writer. Its hint track tells the time origin.
  K7RWriter(std::unique_ptr<QiroK7MStream> stream, uint64_t keepLimit, uint64_t& lastFragment,
            const QiroK7MAllocatorCallBacks* allocator);
  /// Writes what a good writer still holds; nobody is told when that fails.
  ~K7RWriter() override;

  /// Error 1539 for a second hint track.
  Track* CreateNewTrack(const QiroK7MTrackInfo& info, const QiroK7MTrackEntriesInfo& entries,
                        uint32_t maxSampleCount, std::span<const uint8_t> handlerName,
                        std::span<const uint32_t> hintTrackIds) override;
  /// The hint track's 'vorp' description sets the time origin.
  SampleDescriptor* AddSampleDescriptor(uint32_t trackId,
                                        std::unique_ptr<SampleDescriptor> descriptor) override;
  /// Ends the fragment. Error 1033 when an 'abst' is queued and the fragment holds no media.
  void FlushWriter() override;
  void AddSample(uint32_t trackId, Sample& sample, QiroK7MDataBuffer* data) override {
    AddSample(trackId, sample, data, false);
  }

  /// Error 1290 before the time origin is known. `isRandomAccess`: the fragment's 'afra' gets an
  /// entry for it, unless it is a gap.
  void AddSample(uint32_t trackId, Sample& sample, QiroK7MDataBuffer* data, bool isRandomAccess);
  /// Takes the payload of an 'abst' over: the caller's record loses its release function. Error
  /// 1541 while another one is queued. A payload of length 0 is not taken.
  void AddAbst(QiroK7MDataBuffer* payload, uint32_t length, AbstPlace place);
  /// Ends the open fragment and gives where the 'afra' of the new one will start. An open fragment
  /// that received nothing goes on. Error 1540 without a hint track.
  uint64_t StartK7RFragment();
  /// Adds a hint sample, and the media sample that lies in its bytes from `mediaOffset` on. Error
  /// 1537 when the hint track does not serve the media track. When only the media sample fails, the
  /// hint sample stays.
  void AddHintSample(uint32_t hintTrackId, uint32_t mediaTrackId, Sample& sample,
                     const QiroK7MHintSampleInfo& media, QiroK7MDataBuffer* data,
                     bool isRandomAccess);

 private:
  /// A payload that is given back when it goes.
  class PendingAbst {
   public:
    PendingAbst() = default;
    PendingAbst(const PendingAbst&) = delete;
    PendingAbst& operator=(const PendingAbst&) = delete;
    ~PendingAbst() { Release(); }

    bool IsPending() const { return length_ != 0; }
    void Take(QiroK7MDataBuffer* payload, uint32_t length, AbstPlace place);
    void Release();
    AbstPlace Place() const { return place_; }
    std::span<const uint8_t> Payload() const {
      return {static_cast<const uint8_t*>(payload_.data), length_};
    }

   private:
    QiroK7MDataBuffer payload_{};
    uint32_t length_ = 0;
    AbstPlace place_ = AbstPlace::kBehindAfra;
  };

  bool HasHintReference(uint32_t hintTrackId, uint32_t mediaTrackId);
  void SetUpFragments();
  void AdoptHintTrack();
  /// What was written of a fragment that failed must not show behind a shorter one.
  void CutLostFragment();
  void WriteAbst();
  /// What a fragment that received nothing leaves behind.
  void WriteEmptyAfra();
  void WriteWithAfra();

  std::unique_ptr<AfraBox> afra_;
  PendingAbst abst_;
  bool hintTrackAdded_ = false;
  bool hasLostFragment_ = false;
  uint32_t afraTimeScale_ = 0;
  std::optional<Time> timeOrigin_;
};

}  // namespace qiro::k7m::impl

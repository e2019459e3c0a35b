#pragma once

#include "boxes/chunk_offset_boxes.h"
#include "boxes/ctts_box.h"
#include "boxes/sdtp_box.h"
#include "boxes/stsc_box.h"
#include "boxes/stsd_box.h"
#include "boxes/stss_box.h"
#include "boxes/stsz_box.h"
#include "boxes/stts_box.h"

namespace qiro::k7m::impl {

class Sample;
struct TrackSetup;

/// Sample table ('stbl', ISO/IEC 14496-12 8.5.1), in 'minf'. Every getter gives null when the table
/// is not there.
class StblBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("stbl");

  using Box::Box;
  /// Builds every table but 'stco', and 'sdtp' only when the track asks for it.
  StblBox(QiroK7MStream* stream, const TrackSetup& setup,
          const QiroK7MAllocatorCallBacks* allocator);

  /// Enters a sample whose bytes are in the file. Error 17 past the reserved number of samples; the
  /// sample is counted all the same.
  void AddSample(const Sample& sample);
  /// For the samples that follow.
  void SetSampleDescriptor(uint32_t index) { selectedDescription_ = index; }
  /// Ends the open chunk, so that the next sample starts another.
  void UpdateExtensionBox() override { CloseChunk(); }
  void AddChildBox(std::unique_ptr<Box> child) override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;
  /// Completes the 'sdtp' last: its length stands in the 'stsz'.
  void CompleteReadChildBoxes(RootBox* root, bool validate) override;

  StsdBox* GetStsdBox() const { return stsd_; }
  SttsBox* GetSttsBox() const { return stts_; }
  CttsBox* GetCttsBox() const { return ctts_; }
  StscBox* GetStscBox() const { return stsc_; }
  StszBox* GetStszBox() const { return stsz_; }
  StssBox* GetStssBox() const { return stss_; }
  SdtpBox* GetSdtpBox() const { return sdtp_; }
  /// The 'co64' if there is one, else the 'stco'.
  IChunkOffsetBox* GetChunkOffBox() const;

 private:
  void AddToChunk(const Sample& sample);
  void CloseChunk();

  StsdBox* stsd_ = nullptr;
  SttsBox* stts_ = nullptr;
  CttsBox* ctts_ = nullptr;
  StscBox* stsc_ = nullptr;
  StszBox* stsz_ = nullptr;
  StcoBox* stco_ = nullptr;
  Co64Box* co64_ = nullptr;
  StssBox* stss_ = nullptr;
  SdtpBox* sdtp_ = nullptr;

  static constexpr uint32_t kNoChunk = 0xFFFFFFFF;

  uint64_t maxSampleCount_ = 0;
  uint64_t samplesAdded_ = 0;
  uint32_t selectedDescription_ = 0;
  uint32_t chunkDescription_ = kNoChunk;
  uint32_t samplesInChunk_ = 0;
  uint32_t chunkNumber_ = 0;
  uint64_t chunkOffset_ = 0;
  uint64_t nextContiguousOffset_ = 0;
};

}  // namespace qiro::k7m::impl

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

  /// Enters a sample whose bytes are in the file. Error 17 past the reserved number of samples.
  /// When writing fails the sample is in no table.
  void AddSample(const Sample& sample);
  /// For the samples that follow.
  void SetSampleDescriptor(uint32_t index) { selectedDescription_ = index; }
  /// Ends the open chunk, so that the next sample starts another.
  void UpdateExtensionBox() override;
  void WriteExtensionBox() override { UpdateExtensionBox(); }
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
  static constexpr uint32_t kNoChunk = 0xFFFFFFFF;

  /// The chunk that samples are put into.
  struct OpenChunk {
    uint32_t description = kNoChunk;
    uint32_t sampleCount = 0;
    uint32_t number = 0;
    uint64_t offset = 0;
    uint64_t end = 0;  ///< Of the last sample added.
  };
  struct Progress;

  /// Does the work whole or, when it fails, not at all.
  template <class Work>
  void Enter(Work work);
  Progress GetProgress() const;
  void ReturnTo(const Progress& progress);
  void AddToTables(const Sample& sample);
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

  uint32_t maxSampleCount_ = 0;
  uint32_t selectedDescription_ = 0;
  OpenChunk chunk_;
};

}  // namespace qiro::k7m::impl

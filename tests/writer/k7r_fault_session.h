/// @file k7r_fault_session.h
/// A K7R session that faults are let loose on, and what it must have done then.
#ifndef K7M_TESTS_WRITER_K7R_FAULT_SESSION_H
#define K7M_TESTS_WRITER_K7R_FAULT_SESSION_H

#include <gtest/gtest.h>

#include <array>

#include "k7r_recording.h"

namespace k7mtest {

/// A fixed session in some fragments that goes on after failures. Nothing but library calls happens
/// in it: buffers and results have their place.
class K7RFaultSession {
 public:
  /// Continues what is on the stream instead of creating.
  explicit K7RFaultSession(bool isContinued) : isContinued_(isContinued) {
    video_ = NewTrack{.gapCount = 9}.Info();
    hintInfo_ = NewTrack{.mediaType = "hint", .flags = 0}.Info();
    description_.type = Code("avc1");
    description_.mediaType = Code("vide");
  }

  void Run(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory, bool isClosed = true) {
    const QiroK7MIOStreamCallBacks callBacks = stream.ReadingAndWriting();
    const QiroK7MDocInfo info = DocInfoOf(1000);
    uint64_t last = 0;
    opened_ = isContinued_
                  ? QiroK7RDocOpenForAppend(&callBacks, &info, &memory, ~uint64_t{0}, &last, &k7r_)
                  : QiroK7RDocCreateNew(&callBacks, &info, &memory, &k7r_);
    if (opened_ != 0) return;
    QiroK7RWriterGetK7MWriterRef(k7r_, &writer_);
    if (isContinued_) {
      TakeTracks();
    } else {
      AddTracks();
    }
    for (uint64_t fragment = 0; fragment < 3; ++fragment) AddFragment(fragment);
    Note(QiroK7MWriterFlush(writer_));
    if (isClosed) {
      closed_ = QiroK7RCloseWriter(k7r_);
      Note(closed_, Needs::kNothing);
    }
    QiroK7RDestroyWriter(k7r_);
  }

  QiroK7MError Opened() const { return opened_; }
  QiroK7MError Closed() const { return closed_; }
  /// The first failure of the writer, that of opening included; 0 when there was none.
  QiroK7MError FirstFailure() const {
    if (opened_ != 0) return opened_;
    for (size_t i = 0; i < callCount_; ++i) {
      if (answers_[i].code != 0) return answers_[i].code;
    }
    return 0;
  }
  /// The first failure of a function of tracks and iterators, which is none of the writer's.
  QiroK7MError FailureOutside() const { return outside_; }
  void ExpectBuffersBackOnce() const {
    for (size_t i = 0; i < bufferCount_; ++i) EXPECT_EQ(releases_[i], 1) << "buffer " << i;
  }
  /// Behind the first failure a bad writer answers 48, a null pointer comes before that, and
  /// closing is always possible.
  void ExpectBadBehind() const {
    size_t i = 0;
    while (i < callCount_ && answers_[i].code == 0) ++i;
    for (++i; i < callCount_; ++i) {
      EXPECT_EQ(answers_[i].code, answers_[i].expectedOfBad) << "call " << i;
    }
  }
  /// But for a bootstrap box that found no media, because the samples were refused.
  void ExpectNeverBad() const {
    bool mayBeBad = false;
    for (size_t i = 0; i < callCount_; ++i) {
      mayBeBad = mayBeBad || answers_[i].code == 1033;
      EXPECT_TRUE(answers_[i].code != 48 || mayBeBad) << "call " << i;
    }
  }

 private:
  enum class Needs : uint8_t { kNothing, kWriter, kTrack, kHintTrack, kBothTracks };
  struct Answer {
    QiroK7MError code;
    QiroK7MError expectedOfBad;
  };

  /// `needs`: the handles that the call was given.
  void Note(QiroK7MError code, Needs needs = Needs::kWriter) {
    const bool hasHandles =
        (track_ != nullptr || needs < Needs::kTrack || needs == Needs::kHintTrack) &&
        (hint_ != nullptr || needs < Needs::kHintTrack);
    answers_[callCount_++] = {code, needs == Needs::kNothing ? 0u : hasHandles ? 48u : 20u};
  }
  /// Gives whether that was none.
  bool NoteOutside(QiroK7MError code) {
    if (outside_ == 0) outside_ = code;
    return code == 0;
  }
  QiroK7MDataBuffer NewBuffer() {
    int* count = &releases_[bufferCount_++];
    return {sizeof(bytes_), bytes_, count,
            [](void* counter, void*) { ++*static_cast<int*>(counter); }};
  }

  void TakeTracks() {
    QiroK7MTrackIterator* iterator = nullptr;
    Note(QiroK7MWriterGetTracks(writer_, &iterator));
    if (iterator == nullptr) return;
    for (QiroK7MTrack* track = nullptr;
         NoteOutside(QiroK7MTrackIteratorGetNextEntry(iterator, &track)) && track != nullptr;) {
      QiroK7MTrackInfo info{};
      NoteOutside(QiroK7MTrackGetInfo(track, &info));
      (info.mediaType == Code("hint") ? hint_ : track_) = track;
    }
    QiroK7MReleaseTrackIterator(iterator);
    Choose(track_, Needs::kTrack);
    Choose(hint_, Needs::kHintTrack);
  }
  void Choose(QiroK7MTrack* track, Needs needs) {
    QiroK7MSampleDescriptorIterator* iterator = nullptr;
    QiroK7MSampleDescriptor* descriptor = nullptr;
    if (!NoteOutside(QiroK7MTrackGetSampleDescriptors(track, &iterator))) return;
    NoteOutside(QiroK7MSampleDescriptorIteratorGetNextEntry(iterator, &descriptor));
    QiroK7MReleaseSampleDescriptorIterator(iterator);
    Note(QiroK7MWriterSetSampleDescriptor(writer_, track, descriptor), needs);
  }

  void AddTracks() {
    const QiroK7MTrackEntriesInfo entries{16, 1, 9, 32};
    const QiroK7RHintTrackInfo protocol{8, 2};
    const QiroK7MVorpSampleDescInfo vorp{12, 1, 1, 1500, 0};
    QiroK7MSampleDescriptor* descriptor = nullptr;
    Note(QiroK7MWriterAddTrack(writer_, &video_, &entries, 1, "12345678", &track_));
    Note(QiroK7RWriterAddHintTrack(k7r_, &protocol, &hintInfo_, &entries, 1, "12345678", &track_,
                                   track_ == nullptr ? 0 : 1, &hint_));
    QiroK7MDataBuffer first = NewBuffer();
    Note(QiroK7MWriterAddSampleDescriptor(writer_, track_, &description_, &first, &descriptor),
         Needs::kTrack);
    QiroK7MDataBuffer second = NewBuffer();
    Note(QiroK7MWriterAddVorpSampleDescriptor(writer_, hint_, &vorp, &second, &descriptor),
         Needs::kHintTrack);
  }

  void AddFragment(uint64_t number) {
    uint64_t offset = 0;
    Note(QiroK7RWriterStartFragment(k7r_, &offset));
    const uint64_t time = (isContinued_ ? 2000 : 1000) + number * 100;
    AddHint(time, kKey);
    QiroK7MSampleInfo info = InfoAt(time + 20, "vide", 0);
    QiroK7MDataBuffer plain = NewBuffer();
    Note(QiroK7RWriterAddSampleWithAfra(k7r_, track_, &info, &plain, 1), Needs::kTrack);
    if (number == 1) {
      AddHint(time + 30, kGap);
      QiroK7MDataBuffer abst = NewBuffer();
      Note(QiroK7RWriterAddABST(k7r_, &abst, sizeof(bytes_)));
    }
    AddHint(time + 40, 0);
  }
  void AddHint(uint64_t time, uint32_t flags) {
    const QiroK7MSampleInfo info = InfoAt(time, "hint", flags);
    const QiroK7MHintSampleInfo where{12, 0, flags == kGap ? 0 : 2u};
    QiroK7MDataBuffer buffer = NewBuffer();
    Note(QiroK7RWriterAddHintSample(k7r_, hint_, track_, &buffer, &info, &where, 1),
         Needs::kBothTracks);
  }
  static QiroK7MSampleInfo InfoAt(uint64_t time, const char* type, uint32_t flags) {
    return {32, flags == kGap ? 0 : 4u, time, 1000, 0, Code(type), flags};
  }

  bool isContinued_;
  QiroK7MTrackInfo video_{};
  QiroK7MTrackInfo hintInfo_{};
  QiroK7MSampleDescInfo description_{};
  QiroK7RWriter* k7r_ = nullptr;
  QiroK7MWriter* writer_ = nullptr;
  QiroK7MTrack* track_ = nullptr;
  QiroK7MTrack* hint_ = nullptr;
  QiroK7MError opened_ = 0;
  QiroK7MError closed_ = 0;
  uint8_t bytes_[4] = {1, 2, 3, 4};
  QiroK7MError outside_ = 0;
  std::array<Answer, 64> answers_{};
  size_t callCount_ = 0;
  std::array<int, 64> releases_{};
  size_t bufferCount_ = 0;
};

}  // namespace k7mtest

#endif

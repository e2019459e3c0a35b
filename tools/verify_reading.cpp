// Reads every sample through the library, as a player would.
#include <ctime>

#include "document.h"
#include "media_time.h"
#include "messages.h"
#include "verify_checks.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kRefused = {Severity::kError, "not-readable",
                           "programs built on this library refuse the file or end there"};
constexpr Rule kUnreadable = {Severity::kError, "sample-unreadable",
                              "playing stops or shows garbage there"};
constexpr Rule kNotRead = {Severity::kWarning, "samples-not-read",
                           "counts or sizes in the file are far too large, or it was not read to "
                           "its end in good time"};
constexpr Rule kTooLarge = {Severity::kInfo, "sample-too-large",
                            "its place has been checked; its bytes have not been read"};

constexpr uint32_t kLargestSample = 64u << 20;
// Samples of several tracks may share bytes; a file that asks for more than that lies.
constexpr uint64_t kReadsOfAByte = 4;
// Of the processor. A sound file needs a fraction of that; what takes longer was made to take long.
constexpr double kSecondsAtLeast = 2;
constexpr double kBytesASecond = 4e6;

double SecondsUsed() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

std::string WithoutPath(const std::string& path, const Failure& failure) {
  const std::string text = failure.what();
  return text.rfind(path + ": ", 0) == 0 ? text.substr(path.size() + 2) : text;
}

void AddRefusal(const std::string& path, const Failure& failure, Findings* findings) {
  findings->Add(kRefused, nullptr, 0, [&] { return WithoutPath(path, failure); });
}

class SampleReading {
 public:
  SampleReading(const Document& document, const TrackBoxes& boxes, Findings* findings)
      : document_(document),
        boxes_(boxes),
        findings_(*findings),
        bytesLeft_(kReadsOfAByte * document.File().Length()),
        samplesLeft_(document.File().Length()),
        failuresLeft_(document.Tracks().size() + 1),
        endSeconds_(SecondsUsed() + kSecondsAtLeast +
                    static_cast<double>(document.File().Length()) / kBytesASecond),
        progress_(document.File().Length(), Unit::kBytes) {}

  void Run() {
    std::vector<QiroK7MTrack*> handles;
    for (const Track& track : document_.Tracks()) {
      const size_t index = track.number - 1;
      const bool isHere = index >= boxes_.isElsewhere.size() || !boxes_.isElsewhere[index];
      if (isHere) handles.push_back(track.handle);
    }
    SampleWalk walk = WalkMediaSamples(document_, handles);
    // A track that fails ends there; the others go on.
    while (failuresLeft_ > 0 && Step(&walk)) {
    }
  }

 private:
  bool Step(SampleWalk* walk) {
    QiroK7MSampleInfo info;
    SampleHandle sample;
    try {
      sample = walk->Next(&info);
    } catch (const Failure& failure) {
      --failuresLeft_;
      AddRefusal(document_.File().Path(), failure, &findings_);
      return true;
    }
    return sample && HasBudgetFor(info) && Read(sample.get(), info);
  }

  bool HasBudgetFor(const QiroK7MSampleInfo& info) {
    const bool isLate = ++count_ % 64 == 0 && SecondsUsed() > endSeconds_;
    // A size beyond the file costs nothing: the sample is refused before it is read.
    const uint64_t size = info.sampleSize > document_.File().Length() ? 0 : info.sampleSize;
    if (!isLate && size <= bytesLeft_ && samplesLeft_ > 0) {
      bytesLeft_ -= size;
      --samplesLeft_;
      return true;
    }
    findings_.Add(kNotRead, nullptr, 0,
                  [&] { return "given up behind " + std::to_string(count_ - 1) + " samples"; });
    return false;
  }

  bool Read(QiroK7MSample* sample, const QiroK7MSampleInfo& info) {
    QiroK7MTrack* handle = nullptr;
    document_.Check(QiroK7MSampleGetTrack(sample, &handle));
    const uint32_t index = document_.TrackByHandle(handle).number - 1;
    const VerifiedBox* const trak = index < boxes_.traks.size() ? &boxes_.traks[index] : nullptr;
    const uint64_t offset = trak == nullptr ? 0 : trak->offset;
    if (info.sampleSize > kLargestSample) {
      findings_.Add(kTooLarge, trak, offset, [&] { return NameOf(info); });
      return true;
    }
    try {
      CopySample(document_, sample, info, &buffer_);
    } catch (const Failure& failure) {
      findings_.Add(kUnreadable, trak, offset, [&] {
        return NameOf(info) + ": " + WithoutPath(document_.File().Path(), failure);
      });
    }
    progress_.Advance(info.sampleSize);
    return true;
  }

  static std::string NameOf(const QiroK7MSampleInfo& info) {
    return "sample of " + std::to_string(info.sampleSize) + " bytes at " +
           SecondsText({info.timeStamp, info.timeScale}) + " s";
  }

  const Document& document_;
  const TrackBoxes& boxes_;
  Findings& findings_;
  uint64_t bytesLeft_;
  uint64_t samplesLeft_;
  uint64_t failuresLeft_;
  double endSeconds_;
  ProgressBar progress_;
  uint64_t count_ = 0;
  std::vector<uint8_t> buffer_;
};

}  // namespace

void CheckReading(const std::shared_ptr<InputSource>& input, const TrackBoxes& boxes,
                  Findings* findings) {
  try {
    // What the library warns of has been found already.
    const Document document({.path = input->Name(), .isQuiet = true}, input);
    SampleReading(document, boxes, findings).Run();
  } catch (const Failure& failure) {
    AddRefusal(input->Name(), failure, findings);
  }
}

}  // namespace qiro::k7m::tool

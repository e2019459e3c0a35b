#include "writer_script.h"

#include <algorithm>
#include <random>

namespace k7mtest {

WriterScript::WriterScript(std::vector<ScriptStep> steps, bool isFragmented)
    : steps_(std::move(steps)), isFragmented_(isFragmented) {}

void WriterScript::Prepare() {
  buffers_.clear();
  for (size_t i = 0; i < steps_.size(); ++i) {
    buffers_.push_back(std::make_unique<CountedBuffer>(DataOf(i)));
  }
  result_ = ScriptResult();
  result_.codes.reserve(steps_.size());
  result_.hasHandles.reserve(steps_.size());
  result_.releases.assign(steps_.size(), -1);
  result_.callsBehindStep.reserve(steps_.size());
  result_.changesBehindStep.reserve(steps_.size());
  trackCount_ = 0;
  std::fill_n(tracks_, kMaxTracks, nullptr);
  std::fill_n(descriptors_, kMaxTracks, nullptr);
}

void WriterScript::Run(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory) {
  const QiroK7MIOStreamCallBacks callBacks = stream.ReadingAndWriting();
  QiroK7MDocInfo info = DocInfoOf(600);
  info.isFragmented = isFragmented_ ? 1 : 0;
  QiroK7MWriter* writer = nullptr;
  result_.created = QiroK7MDocCreateNew(&callBacks, &info, &memory, &writer);
  if (result_.created != 0) return;
  for (size_t i = 0; i < steps_.size(); ++i) {
    result_.hasHandles.push_back(HasHandles(steps_[i]));
    result_.codes.push_back(DoStep(i, writer));
    result_.releases[i] = buffers_[i]->Releases();
    result_.callsBehindStep.push_back(stream.Count(Call::kAny));
    result_.changesBehindStep.push_back(stream.Journal().size());
  }
  QiroK7MDestroyWriter(writer);
  result_.callsBehindDestroy = stream.Count(Call::kAny);
}

const ScriptResult& WriterScript::Result() {
  for (size_t i = 0; i < result_.codes.size(); ++i) result_.releases[i] = buffers_[i]->Releases();
  return result_;
}

void WriterScript::Forget() {
  buffers_ = decltype(buffers_)();
  result_ = ScriptResult();
}

bool WriterScript::HasHandles(const ScriptStep& step) const {
  switch (step.what) {
    case Do::kDescribe:
    case Do::kSample:
    case Do::kAddGap:
      return tracks_[step.track] != nullptr;
    case Do::kSetDescription:
      return tracks_[step.track] != nullptr && descriptors_[step.track] != nullptr;
    default:
      return true;
  }
}

QiroK7MError WriterScript::DoStep(size_t index, QiroK7MWriter* writer) {
  const ScriptStep& step = steps_[index];
  QiroK7MTrack* const track = tracks_[step.track];
  QiroK7MDataBuffer* const buffer = buffers_[index]->Record();
  const QiroK7MSampleDescInfo description{16, 0, Code("abcd"), Code("text")};
  switch (step.what) {
    case Do::kAddTrack: {
      QiroK7MTrackInfo info{};
      info.mediaType = Code("text");
      info.timeScale = 1000;
      info.handlerNameLength = static_cast<uint32_t>(handlerName_.size());
      info.trackFlags = trackCount_ % 2;
      const QiroK7MTrackEntriesInfo entries{16, 3, 3, 16};
      return QiroK7MWriterAddTrack(writer, &info, &entries, 20, handlerName_.data(),
                                   &tracks_[trackCount_++]);
    }
    case Do::kDescribe: {
      QiroK7MSampleDescriptor* out = descriptors_[step.track];
      const QiroK7MError result =
          QiroK7MWriterAddSampleDescriptor(writer, track, &description, buffer, &out);
      descriptors_[step.track] = out;
      return result;
    }
    case Do::kSetDescription:
      return QiroK7MWriterSetSampleDescriptor(writer, track, descriptors_[step.track]);
    case Do::kSetUlb:
      return QiroK7MWriterSetUlb(writer, buffer, buffer->length);
    case Do::kAddFullBox:
      return QiroK7MWriterAddFullBox(writer, Code("efgh"), 0, 0, buffer, buffer->length);
    case Do::kSample:
    case Do::kAddGap: {
      const bool isGap = step.what == Do::kAddGap;
      const QiroK7MSampleInfo info{32,
                                   isGap ? 0 : buffer->length,
                                   step.time,
                                   1000,
                                   static_cast<uint32_t>(index % 3),
                                   Code("text"),
                                   isGap ? kGap : kKey | 0x1100};
      return QiroK7MWriterAddSample(writer, track, &info, buffer);
    }
    case Do::kFlush:
      return QiroK7MWriterFlush(writer);
    case Do::kClose:
      return QiroK7MCloseWriter(writer);
  }
  return 1;
}

std::vector<ScriptStep> RandomScript(uint32_t seed) {
  std::mt19937 random(seed);
  const auto pick = [&random](size_t count) { return random() % count; };
  std::vector<ScriptStep> steps;
  const size_t trackCount = 1 + pick(3);
  for (size_t track = 0; track < trackCount; ++track) {
    steps.push_back({Do::kAddTrack});
    if (pick(2) == 0) steps.push_back({Do::kFlush});
  }
  for (size_t track = 0; track < trackCount; ++track) steps.push_back({Do::kDescribe, track});
  std::vector<ScriptStep> boxes = {{Do::kSetUlb}, {Do::kAddFullBox}, {Do::kAddFullBox}};
  std::shuffle(boxes.begin(), boxes.end(), random);
  boxes.resize(pick(4));
  steps.insert(steps.end(), boxes.begin(), boxes.end());
  uint64_t time = pick(2) * 50;
  for (size_t i = 4 + pick(8); i-- > 0; time += 10) {
    const size_t track = pick(trackCount);
    switch (pick(8)) {
      case 0:
        steps.push_back({Do::kFlush});
        break;
      case 1:
        steps.push_back({Do::kSetDescription, track});
        break;
      case 2:
        steps.push_back({i % 3 == 0 ? Do::kAddGap : Do::kSample, track, time});
        break;
      default:
        steps.push_back({Do::kSample, track, time});
        break;
    }
  }
  steps.push_back({Do::kDescribe, 0});  // Also behind media.
  steps.push_back({Do::kSample, 0, time});
  if (pick(4) != 0) {
    steps.push_back({Do::kClose});
    steps.push_back({Do::kClose});
  }
  return steps;
}

}  // namespace k7mtest

// libavformat's side of the comparison of writing: one piece of work a run.
// usage: compare_lav_write plain|file|fragments FILE [OUT]
// FILE gives the samples, which are in memory before the time is taken.
#include <string>

#include "lav_memory.h"
#include "measure.h"

namespace k7mbench {
namespace {

/// Memory that is there and touched before anything is measured.
class Output {
 public:
  explicit Output(uint64_t capacity) : content_(capacity, 1) {}

  AVIOContext* MakeContext() {
    constexpr int kBuffer = 1 << 16;
    return avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBuffer)), kBuffer, 1, this,
                              nullptr, &Write, &Seek);
  }

 private:
  static int Write(void* opaque, uint8_t* source, int length) {
    auto& self = *static_cast<Output*>(opaque);
    const auto count = static_cast<size_t>(length);
    if (self.position_ + count > self.content_.size()) return AVERROR(ENOSPC);
    std::memcpy(self.content_.data() + self.position_, source, count);
    self.position_ += count;
    self.length_ = std::max(self.length_, self.position_);
    return length;
  }
  static int64_t Seek(void* opaque, int64_t offset, int origin) {
    auto& self = *static_cast<Output*>(opaque);
    if (origin == AVSEEK_SIZE) return static_cast<int64_t>(self.length_);
    if (origin == SEEK_CUR) offset += static_cast<int64_t>(self.position_);
    if (origin == SEEK_END) offset += static_cast<int64_t>(self.length_);
    self.position_ = static_cast<uint64_t>(offset);
    return offset;
  }

  std::vector<uint8_t> content_;
  uint64_t position_ = 0;
  uint64_t length_ = 0;
};

std::vector<AVPacket*> TakePackets(AVFormatContext* input) {
  std::vector<AVPacket*> packets;
  for (;;) {
    AVPacket* packet = av_packet_alloc();
    if (av_read_frame(input, packet) < 0) break;
    packets.push_back(packet);
  }
  return packets;
}

AVFormatContext* MakeOutput(const AVFormatContext* input) {
  AVFormatContext* output = nullptr;
  Require(avformat_alloc_output_context2(&output, nullptr, "mp4", nullptr) >= 0, "no output");
  for (unsigned i = 0; i < input->nb_streams; ++i) {
    AVStream* stream = avformat_new_stream(output, nullptr);
    Require(avcodec_parameters_copy(stream->codecpar, input->streams[i]->codecpar) >= 0,
            "no parameters");
    stream->time_base = input->streams[i]->time_base;
  }
  return output;
}

/// With `fragmentLength` above 0 fragmented, so many samples in each.
void Write(AVFormatContext* output, const std::vector<AVPacket*>& packets, size_t fragmentLength) {
  AVDictionary* options = nullptr;
  if (fragmentLength > 0) av_dict_set(&options, "movflags", "empty_moov+frag_custom", 0);
  Require(avformat_write_header(output, &options) >= 0, "cannot begin");
  size_t untilFlush = fragmentLength;
  for (AVPacket* packet : packets) {
    Require(av_write_frame(output, packet) >= 0, "cannot write");
    if (fragmentLength > 0 && --untilFlush == 0) {
      Require(av_write_frame(output, nullptr) >= 0, "cannot flush");
      untilFlush = fragmentLength;
    }
  }
  Require(av_write_trailer(output) >= 0, "cannot end");
  avio_flush(output->pb);
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  Require(argc >= 3, "usage: compare_lav_write plain|file|fragments FILE [OUT]");
  const std::string work = argv[1];
  const std::vector<uint8_t> file = LoadFile(argv[2]);
  LavMemory memory(file);
  AVFormatContext* input = memory.Open();
  const std::vector<AVPacket*> packets = TakePackets(input);
  AVFormatContext* outputContext = MakeOutput(input);
  Output output(file.size() * 4);
  constexpr size_t kFragmentLength = 10;
  const size_t fragmentLength = work == "fragments" ? kFragmentLength : 0;
  if (work == "file") {
    Require(avio_open(&outputContext->pb, argv[3], AVIO_FLAG_WRITE) >= 0, "cannot create the file");
  } else {
    outputContext->pb = output.MakeContext();
  }
  const Measure measure;
  Write(outputContext, packets, fragmentLength);
  measure.Print(fragmentLength > 0 ? packets.size() / fragmentLength : packets.size());
  return 0;
}

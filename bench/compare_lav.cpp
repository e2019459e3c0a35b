// libavformat's side of the comparison: one piece of work a run, on a file in memory.
// usage: compare_lav open|visit|bytes|one FILE
extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstring>
#include <string>

#include "measure.h"

namespace k7mbench {
namespace {

struct Memory {
  const std::vector<uint8_t>* bytes;
  uint64_t position;
};

int Read(void* opaque, uint8_t* target, int length) {
  auto& memory = *static_cast<Memory*>(opaque);
  const uint64_t count =
      std::min<uint64_t>(static_cast<uint64_t>(length), memory.bytes->size() - memory.position);
  if (count == 0) return AVERROR_EOF;
  std::memcpy(target, memory.bytes->data() + memory.position, count);
  memory.position += count;
  return static_cast<int>(count);
}

int64_t Seek(void* opaque, int64_t offset, int origin) {
  auto& memory = *static_cast<Memory*>(opaque);
  const auto length = static_cast<int64_t>(memory.bytes->size());
  if (origin == AVSEEK_SIZE) return length;
  if (origin == SEEK_CUR) offset += static_cast<int64_t>(memory.position);
  if (origin == SEEK_END) offset += length;
  if (offset < 0 || offset > length) return -1;
  memory.position = static_cast<uint64_t>(offset);
  return offset;
}

AVFormatContext* Open(Memory& memory) {
  constexpr int kBuffer = 1 << 16;
  AVFormatContext* context = avformat_alloc_context();
  context->pb = avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBuffer)), kBuffer, 0,
                                   &memory, &Read, nullptr, &Seek);
  Require(avformat_open_input(&context, nullptr, nullptr, nullptr) == 0, "cannot open");
  return context;
}

uint64_t checksum = 0;

/// The tables' entries of every stream: what is known of a sample without its bytes.
uint64_t VisitEntries(AVFormatContext* context) {
  uint64_t count = 0;
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    AVStream* stream = context->streams[i];
    const int entries = avformat_index_get_entries_count(stream);
    for (int k = 0; k < entries; ++k) {
      const AVIndexEntry* entry = avformat_index_get_entry(stream, k);
      checksum += static_cast<uint64_t>(entry->pos + entry->timestamp + entry->size);
    }
    count += static_cast<uint64_t>(entries);
  }
  return count;
}

uint64_t VisitPackets(AVFormatContext* context) {
  AVPacket* packet = av_packet_alloc();
  uint64_t count = 0;
  for (; av_read_frame(context, packet) >= 0; ++count) {
    checksum += static_cast<uint64_t>(packet->dts + packet->size);
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  return count;
}

uint64_t OneSample(AVFormatContext* context) {
  constexpr int64_t kMiddle = 5000;  // Seconds.
  Require(av_seek_frame(context, -1, kMiddle * AV_TIME_BASE, AVSEEK_FLAG_BACKWARD) >= 0,
          "cannot seek");
  AVPacket* packet = av_packet_alloc();
  Require(av_read_frame(context, packet) >= 0, "no sample in the middle");
  av_packet_free(&packet);
  return 1;
}

}  // namespace
}  // namespace k7mbench

int main(int argc, char** argv) {
  using namespace k7mbench;
  Require(argc == 3, "usage: compare_lav open|visit|bytes|one FILE");
  const std::string work = argv[1];
  const std::vector<uint8_t> file = LoadFile(argv[2]);
  Memory memory = {&file, 0};
  const Measure measure;
  AVFormatContext* context = Open(memory);
  uint64_t count = 1;
  if (work == "visit") count = VisitEntries(context);
  if (work == "bytes") count = VisitPackets(context);
  if (work == "one") count = OneSample(context);
  measure.Print(count);
  return checksum == 1 ? 3 : 0;
}

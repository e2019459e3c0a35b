// libavformat's side of the comparison: one piece of work a run, on a file in memory.
// usage: compare_lav open|visit|bytes|one FILE
#include <string>

#include "lav_memory.h"
#include "measure.h"

namespace k7mbench {
namespace {

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
  LavMemory memory(file);
  const Measure measure;
  AVFormatContext* context = memory.Open();
  uint64_t count = 1;
  if (work == "visit") count = VisitEntries(context);
  if (work == "bytes") count = VisitPackets(context);
  if (work == "one") count = OneSample(context);
  measure.Print(count);
  return checksum == 1 ? 3 : 0;
}

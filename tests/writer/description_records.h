/// @file description_records.h
/// Records of sample descriptions, the entries that they must become, and ways to add them.
#ifndef K7M_TESTS_WRITER_DESCRIPTION_RECORDS_H
#define K7M_TESTS_WRITER_DESCRIPTION_RECORDS_H

#include <gtest/gtest.h>

#include "expected_track.h"
#include "support/counted_buffer.h"

namespace k7mtest {

inline constexpr char kStsd[] = "moov/trak/mdia/minf/stbl/stsd";

inline Bytes Compressor(const std::string& name) {
  return name.empty() ? Bytes() : Bytes().U8(name.size()).Text(name);
}

inline QiroK7MVideoSampleDescInfo VideoRecord() {
  QiroK7MVideoSampleDescInfo info{};
  info.width = 320;
  info.height = 240;
  info.horizontalResolution = 72;
  info.verticalResolution = 36.5F;
  info.frameCount = 1;
  info.depth = 24;
  return info;
}

inline QiroK7MAudioSampleDescInfo AudioRecord() {
  QiroK7MAudioSampleDescInfo info{};
  info.sampleRate = 44100.5F;
  info.channelCount = 2;
  info.sampleSize = 16;
  return info;
}

inline QiroK7MVorpSampleDescInfo VorpRecord() {
  QiroK7MVorpSampleDescInfo info{};
  info.hintTrackVersion = 0x1234;
  info.highestCompatibleVersion = 0x0102;
  info.maxPacketSize = 1450;
  return info;
}

/// `coding` is what the record's compressor name follows.
inline Bytes ExpectedVideo(const char* entryCode, const std::string& compressor,
                           const Bytes& codecHeader) {
  Bytes fields = Bytes().Fill(6).U16(1).Fill(16).U16(320).U16(240).U32(72 << 16).U32(0x00248000);
  fields.Fill(4).U16(1);
  Bytes name = Compressor(compressor);
  name.Fill(32 - name.Size());
  return Box(entryCode, fields, name, Bytes().U16(24).U16(0xFFFF), codecHeader);
}

inline Bytes ExpectedAudio(const char* entryCode, const Bytes& codecHeader) {
  return Box(entryCode, Bytes().Fill(6).U16(1).Fill(8).U16(2).U16(16).Fill(4).U32(0xAC448000),
             codecHeader);
}

template <class Function, class... Arguments>
QiroK7MError AddWith(Function function, QiroK7MWriter* writer, QiroK7MTrack* track,
                     const Bytes& codecHeader, const Arguments&... arguments) {
  CountedBuffer buffer(codecHeader);
  QiroK7MSampleDescriptor* out = nullptr;
  const QiroK7MError result = function(writer, track, arguments..., buffer.Record(), &out);
  EXPECT_EQ(out != nullptr, result == 0);
  EXPECT_EQ(buffer.Releases(), 1);
  EXPECT_TRUE(buffer.DataWasRight());
  return result;
}

/// The 'stsd' after a call, which must succeed, on a new track.
template <class Function, class... Arguments>
inline Bytes StsdAfter(Function function, const NewTrack& track, const Bytes& codecHeader,
                       const Arguments&... arguments) {
  OpenedWriter writer;
  EXPECT_EQ(AddWith(function, writer.Handle(), writer.AddTrack(track), codecHeader, arguments...),
            0u);
  return FindBox(writer.File(), kStsd);
}

}  // namespace k7mtest

#endif

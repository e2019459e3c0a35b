#include "box_records.h"

namespace k7mtest {

namespace {

/// A number that has 64 bits in version 1 and later, 32 in version 0.
void AppendVersioned(Bytes& bytes, uint8_t version, uint64_t value) {
  if (version == 0) {
    bytes.U32(value);
  } else {
    bytes.U64(value);
  }
}

void AppendMatrix(Bytes& bytes, const Matrix& matrix) {
  for (const uint32_t value : matrix) bytes.U32(value);
}

Bytes Counted(const Count& count, size_t entries) {
  return Bytes().U32(count.value_or(static_cast<uint32_t>(entries)));
}

Bytes EntryBase(uint16_t dataReference) { return Bytes().Fill(6).U16(dataReference); }

}  // namespace

Bytes Ftyp::Payload() const {
  Bytes bytes = Bytes().Code(majorBrand).U32(minorVersion);
  for (const std::string& brand : brands) bytes.Code(brand);
  return bytes;
}

Bytes Mvhd::Payload(uint8_t version, uint32_t) const {
  Bytes bytes;
  AppendVersioned(bytes, version, creationTime);
  AppendVersioned(bytes, version, modificationTime);
  bytes.U32(timeScale);
  AppendVersioned(bytes, version, duration);
  bytes.U32(rate).U16(volume).Fill(10);
  AppendMatrix(bytes, matrix);
  return bytes.Fill(24).U32(nextTrackId);
}

Bytes Tkhd::Payload(uint8_t version, uint32_t) const {
  Bytes bytes;
  AppendVersioned(bytes, version, creationTime);
  AppendVersioned(bytes, version, modificationTime);
  bytes.U32(trackId).Fill(4);
  AppendVersioned(bytes, version, duration);
  bytes.Fill(8).U16(layer).U16(alternateGroup).U16(volume).Fill(2);
  AppendMatrix(bytes, matrix);
  return bytes.U32(width).U32(height);
}

Bytes Mdhd::Payload(uint8_t version, uint32_t) const {
  Bytes bytes;
  AppendVersioned(bytes, version, creationTime);
  AppendVersioned(bytes, version, modificationTime);
  bytes.U32(timeScale);
  AppendVersioned(bytes, version, duration);
  return bytes.U16(language).Fill(2);
}

Bytes Hdlr::Payload() const { return Bytes().Fill(4).Code(type).Fill(12).Text(name); }

Bytes Vmhd::Payload() const {
  return Bytes().U16(graphicsMode).U16(opColor[0]).U16(opColor[1]).U16(opColor[2]);
}

Bytes Smhd::Payload() const { return Bytes().U16(balance).Fill(2); }

Bytes Dref::Payload() const {
  Bytes bytes = Counted(count, entries.size());
  for (const Bytes& entry : entries) bytes.Append(entry);
  return bytes;
}

Bytes Elst::Payload(uint8_t version, uint32_t) const {
  Bytes bytes = Counted(count, entries.size());
  for (const Entry& entry : entries) {
    const size_t width = version == 1 ? 8 : 4;
    if (width == 8) {
      bytes.U64(entry.segmentDuration).U64(static_cast<uint64_t>(entry.mediaTime));
    } else {
      bytes.U32(entry.segmentDuration).U32(static_cast<uint64_t>(entry.mediaTime));
    }
    bytes.U16(static_cast<uint16_t>(entry.rateInteger));
    bytes.U16(static_cast<uint16_t>(entry.rateFraction));
  }
  return bytes;
}

Bytes Stsd::Payload() const {
  Bytes bytes = Counted(count, entries.size());
  for (const Bytes& entry : entries) bytes.Append(entry);
  return bytes;
}

Bytes Stts::Payload() const {
  Bytes bytes = Counted(count, runs.size());
  for (const Run& run : runs) bytes.U32(run.count).U32(run.delta);
  return bytes;
}

Bytes Ctts::Payload() const {
  Bytes bytes = Counted(count, runs.size());
  for (const Run& run : runs) bytes.U32(run.count).U32(run.offset);
  return bytes;
}

Bytes Stsc::Payload() const {
  Bytes bytes = Counted(count, runs.size());
  for (const Run& run : runs) {
    bytes.U32(run.firstChunk).U32(run.samplesPerChunk).U32(run.description);
  }
  return bytes;
}

Bytes Stsz::Payload() const {
  Bytes bytes = Bytes().U32(constantSize).Append(Counted(count, sizes.size()));
  for (const uint32_t size : sizes) bytes.U32(size);
  return bytes;
}

Bytes Stco::Payload() const {
  Bytes bytes = Counted(count, offsets.size());
  for (const uint32_t offset : offsets) bytes.U32(offset);
  return bytes;
}

Bytes Co64::Payload() const {
  Bytes bytes = Counted(count, offsets.size());
  for (const uint64_t offset : offsets) bytes.U64(offset);
  return bytes;
}

Bytes Stss::Payload() const {
  Bytes bytes = Counted(count, numbers.size());
  for (const uint32_t number : numbers) bytes.U32(number);
  return bytes;
}

Bytes Sdtp::Payload() const { return Bytes(values); }

Bytes Mehd::Payload(uint8_t version, uint32_t) const {
  Bytes bytes;
  AppendVersioned(bytes, version, duration);
  return bytes;
}

Bytes Trex::Payload() const {
  return Bytes().U32(trackId).U32(description).U32(duration).U32(size).U32(sampleFlags);
}

Bytes Mfhd::Payload() const { return Bytes().U32(sequenceNumber); }

Bytes Tfhd::Payload(uint8_t, uint32_t flags) const {
  Bytes bytes = Bytes().U32(trackId);
  if (flags & 0x01) bytes.U64(baseDataOffset);
  if (flags & 0x02) bytes.U32(description);
  if (flags & 0x08) bytes.U32(duration);
  if (flags & 0x10) bytes.U32(size);
  if (flags & 0x20) bytes.U32(sampleFlags);
  return bytes;
}

Bytes Trun::Payload(uint8_t, uint32_t flags) const {
  Bytes bytes = Counted(count, samples.size());
  if (flags & 0x1) bytes.U32(static_cast<uint32_t>(dataOffset));
  if (flags & 0x4) bytes.U32(firstSampleFlags);
  for (const Sample& sample : samples) {
    if (flags & 0x100) bytes.U32(sample.duration);
    if (flags & 0x200) bytes.U32(sample.size);
    if (flags & 0x400) bytes.U32(sample.flags);
    if (flags & 0x800) bytes.U32(sample.compositionOffset);
  }
  return bytes;
}

Bytes Tfdt::Payload(uint8_t version, uint32_t) const {
  Bytes bytes;
  AppendVersioned(bytes, version, time);
  return bytes;
}

Bytes VideoFields::Payload() const {
  return EntryBase(dataReference)
      .Fill(16)
      .U16(width)
      .U16(height)
      .U32(horizontalResolution)
      .U32(verticalResolution)
      .Fill(4)
      .U16(frameCount)
      .U8(compressorName.size())
      .Text(compressorName)
      .Fill(31 - compressorName.size())
      .U16(depth)
      .U16(0xFFFF)
      .Append(codecHeader);
}

Bytes AudioFields::Payload() const {
  return EntryBase(dataReference)
      .Fill(8)
      .U16(channelCount)
      .U16(sampleSize)
      .Fill(4)
      .U32(sampleRate)
      .Append(codecHeader);
}

Bytes VorpFields::Payload() const {
  return EntryBase(dataReference)
      .U16(hintTrackVersion)
      .U16(highestCompatibleVersion)
      .U16(maxPacketSize)
      .Append(codecHeader);
}

Bytes OtherFields::Payload() const { return EntryBase(dataReference).Append(codecHeader); }

}  // namespace k7mtest

#include "api/writer_frame.h"
#include "base/fixed_point.h"
#include "writer/coding_type.h"

namespace impl = qiro::k7m::impl;
using impl::AsHandle;
using impl::FourCc;
using impl::Impl;
using impl::Require;
using impl::RequireGood;
using impl::ThrowIf;
using impl::WriterCall;

namespace {

constexpr uint32_t kVideo = FourCc("vide");
constexpr uint32_t kSound = FourCc("soun");
constexpr uint32_t kHint = FourCc("hint");

/// What the add functions share: the checks, and the way into the track. `mediaTypeOf(info)` is the
/// media type that the function asks for, `codingOf(codecHeader)` the coding, and
/// `make(coding, codecHeader)` the descriptor.
template <class Info, class MediaTypeOf, class CodingOf, class Make>
QiroK7MError AddDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track, const Info* info,
                           QiroK7MDataBuffer* codecHeader, QiroK7MSampleDescriptor** out,
                           MediaTypeOf mediaTypeOf, CodingOf codingOf, Make make) {
  const impl::AutoCleanupDataBuffer cleanup(codecHeader);
  return WriterCall(writer, [&] {
    Require(writer, track, info, codecHeader, out);
    RequireGood(writer);
    ThrowIf(Impl(track).GetMediaType() != mediaTypeOf(*info), kQiroK7MErrorMediaTypeMismatch);
    const auto bytes = impl::BytesOf(codecHeader, codecHeader->length);
    auto descriptor = make(codingOf(bytes), std::vector<uint8_t>(bytes.begin(), bytes.end()));
    *out =
        AsHandle(Impl(writer).AddSampleDescriptor(Impl(track).GetTrackId(), std::move(descriptor)));
  });
}

/// AddDescriptor() for the record of one kind of media.
template <class Info, class CodingOf>
QiroK7MError AddDescriptorOf(uint32_t mediaType, QiroK7MWriter* writer, QiroK7MTrack* track,
                             const Info* info, QiroK7MDataBuffer* codecHeader,
                             QiroK7MSampleDescriptor** out, CodingOf codingOf) {
  return AddDescriptor(
      writer, track, info, codecHeader, out, [mediaType](const Info&) { return mediaType; },
      codingOf,
      [info](uint32_t coding, std::vector<uint8_t> bytes) {
        return std::make_unique<impl::SampleDescriptorWith<Info>>(coding, std::move(bytes), *info);
      });
}

auto Always(uint32_t coding) {
  return [coding](std::span<const uint8_t>) { return coding; };
}

/// A descriptor without fields of its kind, but with the size of a video track.
std::unique_ptr<impl::SampleDescriptor> MakeGeneric(const impl::Track& track, uint32_t coding,
                                                    std::vector<uint8_t> codecHeader) {
  if (track.GetMediaType() != kVideo) {
    return std::make_unique<impl::SampleDescriptor>(coding, std::move(codecHeader));
  }
  QiroK7MVideoSampleDescInfo record{};
  record.width = static_cast<uint32_t>(impl::TruncateToBits(track.GetInfo().width));
  record.height = static_cast<uint32_t>(impl::TruncateToBits(track.GetInfo().height));
  return std::make_unique<impl::VideoSampleDescriptor>(coding, std::move(codecHeader), record);
}

}  // namespace

QiroK7MError QiroK7MWriterAddSampleDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track,
                                              const QiroK7MSampleDescInfo* info,
                                              QiroK7MDataBuffer* codecHeader,
                                              QiroK7MSampleDescriptor** out) {
  return AddDescriptor(
      writer, track, info, codecHeader, out,
      [](const QiroK7MSampleDescInfo& record) { return record.mediaType; },
      [info](std::span<const uint8_t>) { return info->type; },
      [track](uint32_t coding, std::vector<uint8_t> bytes) {
        return MakeGeneric(Impl(track), coding, std::move(bytes));
      });
}

QiroK7MError QiroK7MWriterAddVideoSampleDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track,
                                                   const QiroK7MVideoSampleDescInfo* info,
                                                   QiroK7MDataBuffer* codecHeader,
                                                   QiroK7MSampleDescriptor** out) {
  return AddDescriptorOf(kVideo, writer, track, info, codecHeader, out, impl::VideoCodingOf);
}

QiroK7MError QiroK7MWriterAddAudioSampleDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track,
                                                   const QiroK7MAudioSampleDescInfo* info,
                                                   QiroK7MDataBuffer* codecHeader,
                                                   QiroK7MSampleDescriptor** out) {
  return AddDescriptorOf(kSound, writer, track, info, codecHeader, out, impl::AudioCodingOf);
}

QiroK7MError QiroK7MWriterAddVorpSampleDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track,
                                                  const QiroK7MVorpSampleDescInfo* info,
                                                  QiroK7MDataBuffer* codecHeader,
                                                  QiroK7MSampleDescriptor** out) {
  return AddDescriptorOf(kHint, writer, track, info, codecHeader, out, Always(FourCc("vorp")));
}

QiroK7MError QiroK7MWriterAddVideoSampleDescriptorWithType(QiroK7MWriter* writer,
                                                           QiroK7MTrack* track, uint32_t type,
                                                           const QiroK7MVideoSampleDescInfo* info,
                                                           QiroK7MDataBuffer* codecHeader,
                                                           QiroK7MSampleDescriptor** out) {
  return AddDescriptorOf(kVideo, writer, track, info, codecHeader, out, Always(type));
}

QiroK7MError QiroK7MWriterAddAudioSampleDescriptorWithType(QiroK7MWriter* writer,
                                                           QiroK7MTrack* track, uint32_t type,
                                                           const QiroK7MAudioSampleDescInfo* info,
                                                           QiroK7MDataBuffer* codecHeader,
                                                           QiroK7MSampleDescriptor** out) {
  return AddDescriptorOf(kSound, writer, track, info, codecHeader, out, Always(type));
}

QiroK7MError QiroK7MWriterSetSampleDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track,
                                              QiroK7MSampleDescriptor* descriptor) {
  return WriterCall(writer, [&] {
    Require(writer, track, descriptor);
    RequireGood(writer);
    Impl(writer).SetSampleDescriptor(Impl(track).GetTrackId(), Impl(descriptor).GetSDID());
  });
}

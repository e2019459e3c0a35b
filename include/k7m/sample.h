/// @file sample.h
/// Samples, and the queries that deliver them.
#ifndef K7M_SAMPLE_H
#define K7M_SAMPLE_H

#include <stddef.h>
#include <stdint.h>

#include "k7m/errors.h"
#include "k7m/export.h"
#include "k7m/reader.h"
#include "k7m/track.h"

/// One sample: a frame of video, a packet of audio, or a gap.
typedef struct QiroK7MSample QiroK7MSample;
/// A sequence of samples that is walked forwards once.
typedef struct QiroK7MSampleIterator QiroK7MSampleIterator;

/// Bits and values of QiroK7MSampleInfo::flags.
enum QiroK7MSampleFlags {
  kQiroK7MSampleFlagKey = 0x1,           ///< Low byte 1: a key (sync) sample.
  kQiroK7MSampleFlagGap = 0x2,           ///< Low byte 2: a gap; time passes, there are no bytes.
  kQiroK7MSampleFlagKindMask = 0xFF,     ///< The low byte.
  kQiroK7MSampleDependencyShift = 8,     ///< Bits 8 to 15: the sample's byte from the 'sdtp' table.
  kQiroK7MSampleDependencyMask = 0xFF00  ///< Mask of those bits.
};

/// What is known about a sample. 32 bytes.
typedef struct QiroK7MSampleInfo {
  uint32_t size;               ///< Set by the library to 32.
  uint32_t sampleSize;         ///< Bytes of data; 0 for a gap.
  uint64_t timeStamp;          ///< Decode time on the presentation timeline, in `timeScale` units.
  uint32_t timeScale;          ///< The track's time scale: units per second.
  uint32_t compositionOffset;  ///< Composition time minus decode time; read it as signed 32 bits.
  uint32_t mediaType;          ///< The track's media type.
  /// See #QiroK7MSampleFlags. A track without 'stss' deliberately reports no key samples.
  uint32_t flags;
} QiroK7MSampleInfo;

/// Delivers the samples of all tracks in a range of decode time, merged by time.
///
/// Tracks are merged in the order video, sound, others, each group in file order: the earliest time
/// stamp comes first, equal ones in that order. Edit lists are applied; each empty edit gives one
/// gap sample. In a plain document the end of the range is inclusive, in a fragmented one
/// exclusive. In the first edit that the range touches, its end is deliberately taken as a place in
/// the media: where that edit starts elsewhere in the media than on the presentation timeline, the
/// walk ends that much earlier or later.
/// @param reader      required
/// @param startScale  units per second of `start`; not 0
/// @param start       begin of the range on the presentation timeline
/// @param endScale    units per second of `end`; not 0
/// @param end         end of the range
/// @param out         receives an iterator that the caller releases with
///                    QiroK7MReleaseSampleIterator() before the reader is closed; required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorZeroTimeScale;
///         #kQiroK7MErrorIncompleteSampleTable when a track lacks a required table;
///         #kQiroK7MErrorOutOfMemory; or the codes of parsing (see QiroK7MDocOpenForRead())
K7M_API QiroK7MError QiroK7MReaderGetSamples(QiroK7MReader* reader, uint32_t startScale,
                                             uint64_t start, uint32_t endScale, uint64_t end,
                                             QiroK7MSampleIterator** out);

/// As QiroK7MReaderGetSamples(), for the given tracks.
/// @param reader      required
/// @param startScale  units per second of `start`; not 0
/// @param start       begin of the range
/// @param endScale    units per second of `end`; not 0
/// @param end         end of the range
/// @param tracks      tracks of this reader; null only when `count` is 0, which selects no track
/// @param count       number of tracks
/// @param out         as for QiroK7MReaderGetSamples(); required
/// @return as QiroK7MReaderGetSamples()
K7M_API QiroK7MError QiroK7MReaderGetSamplesByTracks(QiroK7MReader* reader, uint32_t startScale,
                                                     uint64_t start, uint32_t endScale,
                                                     uint64_t end, QiroK7MTrack* const* tracks,
                                                     uint32_t count, QiroK7MSampleIterator** out);

/// As QiroK7MReaderGetSamples(), for the tracks of the given media types.
/// @param reader      required
/// @param startScale  units per second of `start`; not 0
/// @param start       begin of the range
/// @param endScale    units per second of `end`; not 0
/// @param end         end of the range
/// @param mediaTypes  four-character codes; null only when `count` is 0, which selects all tracks;
///                    an array that is not null with a count of 0 selects none
/// @param count       number of codes
/// @param out         as for QiroK7MReaderGetSamples(); required
/// @return as QiroK7MReaderGetSamples()
K7M_API QiroK7MError QiroK7MReaderGetSamplesByMediaTypes(QiroK7MReader* reader, uint32_t startScale,
                                                         uint64_t start, uint32_t endScale,
                                                         uint64_t end, const uint32_t* mediaTypes,
                                                         uint32_t count,
                                                         QiroK7MSampleIterator** out);

/// As QiroK7MReaderGetSamples() from 0 to 315,360,000 seconds (ten years of 365 days); nothing
/// beyond that is delivered, deliberately.
/// @param reader  required
/// @param out     as for QiroK7MReaderGetSamples(); required
/// @return as QiroK7MReaderGetSamples()
K7M_API QiroK7MError QiroK7MReaderGetAllSamples(QiroK7MReader* reader, QiroK7MSampleIterator** out);

/// As QiroK7MReaderGetAllSamples(), for the given tracks.
/// @param reader  required
/// @param tracks  tracks of this reader; null only when `count` is 0, which selects no track
/// @param count   number of tracks
/// @param out     as for QiroK7MReaderGetSamples(); required
/// @return as QiroK7MReaderGetSamples()
K7M_API QiroK7MError QiroK7MReaderGetAllSamplesByTracks(QiroK7MReader* reader,
                                                        QiroK7MTrack* const* tracks, uint32_t count,
                                                        QiroK7MSampleIterator** out);

/// As QiroK7MReaderGetAllSamples(), for the tracks of the given media types.
/// @param reader      required
/// @param mediaTypes  as for QiroK7MReaderGetSamplesByMediaTypes()
/// @param count       number of codes
/// @param out         as for QiroK7MReaderGetSamples(); required
/// @return as QiroK7MReaderGetSamples()
K7M_API QiroK7MError QiroK7MReaderGetAllSamplesByMediaTypes(QiroK7MReader* reader,
                                                            const uint32_t* mediaTypes,
                                                            uint32_t count,
                                                            QiroK7MSampleIterator** out);

/// Tells whether a sample remains. It is 1 also when the next call will report why the walk cannot
/// go on.
/// @param iterator  required
/// @param hasMore   receives 1 or 0; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleIteratorHasMoreEntries(QiroK7MSampleIterator* iterator,
                                                         uint32_t* hasMore);

/// Gives the next sample. After a failure the track that failed has ended; others go on.
/// @param iterator  required
/// @param out       receives a sample that the caller releases with QiroK7MReleaseSample(), or null
///                  at the end; required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorIncompleteSampleTable;
///         #kQiroK7MErrorOutOfMemory; or the codes of parsing (see QiroK7MDocOpenForRead())
K7M_API QiroK7MError QiroK7MSampleIteratorGetNextEntry(QiroK7MSampleIterator* iterator,
                                                       QiroK7MSample** out);

/// Destroys the iterator, not the samples that it gave.
/// @param iterator  null is ignored
K7M_API void QiroK7MReleaseSampleIterator(QiroK7MSampleIterator* iterator);

/// Copies the sample record.
/// @param sample  required
/// @param info    receives the record; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleGetInfo(QiroK7MSample* sample, QiroK7MSampleInfo* info);

/// Gives the sample's track, which belongs to the reader.
/// @param sample  required
/// @param out     receives the track; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleGetTrack(QiroK7MSample* sample, QiroK7MTrack** out);

/// Gives the sample's descriptor, which belongs to the reader.
/// @param sample  required
/// @param out     receives the descriptor; null for a gap and for a description index that names no
///                entry; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleGetSampleDescriptor(QiroK7MSample* sample,
                                                      QiroK7MSampleDescriptor** out);

/// Reads the sample's bytes; reads nothing for a gap. The reader must be open.
/// @param sample  required
/// @param buffer  receives the bytes; required, at least `sampleSize` bytes long
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorSampleDataShort when
///         the stream ends before the sample does, or the sample stands before the first 'mdat';
///         #kQiroK7MErrorOutOfMemory; or what a stream callback returned
K7M_API QiroK7MError QiroK7MSampleCopyData(QiroK7MSample* sample, void* buffer);

/// Frees the sample. It must be released before the reader is closed.
/// @param sample  null is ignored
K7M_API void QiroK7MReleaseSample(QiroK7MSample* sample);

#endif

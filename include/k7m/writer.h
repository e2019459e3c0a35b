/// @file writer.h
/// Writing documents: tracks, sample descriptions, metadata, samples.
///
/// Order of use: create, add tracks, add a sample description to each, optionally set the metadata
/// and add extra boxes, add samples, close, destroy. The first sample, the metadata box and an
/// extra box close the document for new tracks.
///
/// State: a writer is good, bad or closed. A failure with one of the codes 8, 10, 11, 15, 20, 32,
/// 33, 1030, 1280 to 1290, 1536 to 1542, 2048 to 2053 or 3072 leaves it good; any other makes it
/// bad, and from then on it can only be closed or destroyed. Every function but
/// QiroK7MCloseWriter() and QiroK7MDestroyWriter() answers #kQiroK7MErrorWriterStateBad unless the
/// writer is good.
///
/// A call that failed and left the writer good can be made again, also when the code came from a
/// callback of the stream. Nothing that was added before or comes later is lost by it, but a
/// fragment that could not be written is. A sample description that could not be written stays; a
/// track that could not be is not there.
///
/// Buffers: a function that takes a #QiroK7MDataBuffer releases it exactly once before it returns,
/// on success and on every failure, unless it says that the writer keeps it.
#ifndef K7M_WRITER_H
#define K7M_WRITER_H

#include <stddef.h>
#include <stdint.h>

#include "k7m/allocator.h"
#include "k7m/errors.h"
#include "k7m/export.h"
#include "k7m/reader.h"
#include "k7m/sample.h"
#include "k7m/stream.h"
#include "k7m/track.h"
#include "k7m/types.h"

/// A document being written.
typedef struct QiroK7MWriter QiroK7MWriter;

/// Creates a document and writes its first boxes.
/// @param callBacks  the stream; required, with all its required callbacks. Copied
/// @param info       times, rate, volume and time scale of the document; required. `timeScale` must
///                   not be 0; `duration` is ignored; `isFragmented`: 0 for a plain document, any
///                   other number for a fragmented one. Edit lists are written with 32 bits: what
///                   lasts longer than 2^32 - 1 of the time scale's units is cut there for queries
///                   of the presentation
/// @param allocator  required; its callbacks may be null and must otherwise outlive the writer
/// @param out        receives the writer, to be freed with QiroK7MDestroyWriter(); required; left
///                   as it is on failure
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorZeroTimeScale;
///         #kQiroK7MErrorWriteFailed; #kQiroK7MErrorOutOfMemory; or what a stream callback returned
K7M_API QiroK7MError QiroK7MDocCreateNew(const QiroK7MIOStreamCallBacks* callBacks,
                                         const QiroK7MDocInfo* info,
                                         const QiroK7MAllocatorCallBacks* allocator,
                                         QiroK7MWriter** out);

/// Adds a track. In a plain document the space for its sample tables is reserved now: 44 bytes a
/// sample, 45 with a dependency table. When this fails, the document has no such track.
/// @param writer          required
/// @param info            required; `timeScale` must not be 0. `size`, `trackFlags` above bit 0 and
///                        unused bytes are ignored
/// @param entries         what to reserve: sample descriptions, gaps (the edit list holds twice
///                        their number plus one entry) and the longest codec header; required
/// @param maxSampleCount  how many samples the track may get, at most 100000000; ignored in a
///                        fragmented document, which has no limit
/// @param handlerName     `handlerNameLength` bytes; null only when that is 0. A terminating 0 is
///                        added when it is missing
/// @param out             receives the track, which belongs to the writer; required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorZeroTimeScale; #kQiroK7MErrorMovieBoxClosed after the first sample,
///         metadata or extra box; #kQiroK7MErrorTooManyEntries for more than 100000000 samples,
///         edits or bytes of the handler name; #kQiroK7MErrorStdException when the
///         movie box does not fit 32 bits; or what writing returned
K7M_API QiroK7MError QiroK7MWriterAddTrack(QiroK7MWriter* writer, const QiroK7MTrackInfo* info,
                                           const QiroK7MTrackEntriesInfo* entries,
                                           uint32_t maxSampleCount, const void* handlerName,
                                           QiroK7MTrack** out);

/// Adds a sample description with no fields of its own kind, and makes it current. On a video or
/// audio track the kind's fields are 0, with the size taken from the track.
/// @param writer       required
/// @param track        required
/// @param info         `type` is the coding, `mediaType` must be the track's; required.
///                     `codecHeaderDataLength` is ignored
/// @param codecHeader  the bytes behind the entry's fixed fields, usually the decoder configuration
///                     box; required, may be of length 0; released
/// @param out          receives the descriptor, which belongs to the writer; required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorMediaTypeMismatch; #kQiroK7MErrorSampleDescriptorLimit when the reserved
///         space is used up; #kQiroK7MErrorVorpDescriptorNotAlone; or what writing returned
K7M_API QiroK7MError QiroK7MWriterAddSampleDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track,
                                                      const QiroK7MSampleDescInfo* info,
                                                      QiroK7MDataBuffer* codecHeader,
                                                      QiroK7MSampleDescriptor** out);

/// As QiroK7MWriterAddSampleDescriptor(), for a 'vide' track. The coding is told by the first box
/// in the codec header ('avcC': 'avc1', 'hvcC': 'hvc1', 'vpcC': 'vp09', 'av1C': 'av01', 'esds':
/// 'mp4v'); without one that is known it is 'avc1'.
/// @param writer       required
/// @param track        required
/// @param info         required
/// @param codecHeader  required, may be of length 0; released
/// @param out          receives the descriptor; required
/// @return as QiroK7MWriterAddSampleDescriptor()
K7M_API QiroK7MError QiroK7MWriterAddVideoSampleDescriptor(QiroK7MWriter* writer,
                                                           QiroK7MTrack* track,
                                                           const QiroK7MVideoSampleDescInfo* info,
                                                           QiroK7MDataBuffer* codecHeader,
                                                           QiroK7MSampleDescriptor** out);

/// As QiroK7MWriterAddSampleDescriptor(), for a 'soun' track. The coding is told by the first box
/// in the codec header ('esds': 'mp4a', 'dOps': 'Opus', 'dfLa': 'fLaC', 'dac3': 'ac-3', 'dec3':
/// 'ec-3'); without one that is known it is 'mp4a'.
/// @param writer       required
/// @param track        required
/// @param info         required
/// @param codecHeader  required, may be of length 0; released
/// @param out          receives the descriptor; required
/// @return as QiroK7MWriterAddSampleDescriptor()
K7M_API QiroK7MError QiroK7MWriterAddAudioSampleDescriptor(QiroK7MWriter* writer,
                                                           QiroK7MTrack* track,
                                                           const QiroK7MAudioSampleDescInfo* info,
                                                           QiroK7MDataBuffer* codecHeader,
                                                           QiroK7MSampleDescriptor** out);

/// As QiroK7MWriterAddSampleDescriptor(), for a 'hint' track; the coding is 'vorp'.
/// @param writer       required
/// @param track        required
/// @param info         required
/// @param codecHeader  required, may be of length 0; released
/// @param out          receives the descriptor; required
/// @return as QiroK7MWriterAddSampleDescriptor()
K7M_API QiroK7MError QiroK7MWriterAddVorpSampleDescriptor(QiroK7MWriter* writer,
                                                          QiroK7MTrack* track,
                                                          const QiroK7MVorpSampleDescInfo* info,
                                                          QiroK7MDataBuffer* codecHeader,
                                                          QiroK7MSampleDescriptor** out);

/// As QiroK7MWriterAddVideoSampleDescriptor(), with the coding given.
/// @param writer       required
/// @param track        required
/// @param type         four-character code of the coding; 'H264' and 'h264' are written as 'avc1'
/// @param info         required
/// @param codecHeader  required, may be of length 0; released
/// @param out          receives the descriptor; required
/// @return as QiroK7MWriterAddSampleDescriptor()
K7M_API QiroK7MError QiroK7MWriterAddVideoSampleDescriptorWithType(
    QiroK7MWriter* writer, QiroK7MTrack* track, uint32_t type,
    const QiroK7MVideoSampleDescInfo* info, QiroK7MDataBuffer* codecHeader,
    QiroK7MSampleDescriptor** out);

/// As QiroK7MWriterAddAudioSampleDescriptor(), with the coding given.
/// @param writer       required
/// @param track        required
/// @param type         four-character code of the coding
/// @param info         required
/// @param codecHeader  required, may be of length 0; released
/// @param out          receives the descriptor; required
/// @return as QiroK7MWriterAddSampleDescriptor()
K7M_API QiroK7MError QiroK7MWriterAddAudioSampleDescriptorWithType(
    QiroK7MWriter* writer, QiroK7MTrack* track, uint32_t type,
    const QiroK7MAudioSampleDescInfo* info, QiroK7MDataBuffer* codecHeader,
    QiroK7MSampleDescriptor** out);

/// Makes a description current for the following samples of a track. Only the descriptor's place in
/// its track is used; whether it belongs to this track is not checked.
/// @param writer      required
/// @param track       required
/// @param descriptor  required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorInvalidTrackId for a track that this writer does not have
K7M_API QiroK7MError QiroK7MWriterSetSampleDescriptor(QiroK7MWriter* writer, QiroK7MTrack* track,
                                                      QiroK7MSampleDescriptor* descriptor);

/// Writes the metadata box, once, before the first sample.
/// @param writer    required
/// @param metadata  the packet; may be null when `length` is 0; released
/// @param length    bytes of the packet, below 0x4000001
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorMetadataTooLarge; #kQiroK7MErrorSampleDataShort when the buffer is shorter
///         than `length`; #kQiroK7MErrorAppendMetadata; #kQiroK7MErrorMetadataAfterMedia;
///         #kQiroK7MErrorMetadataAlreadyWritten; or what writing returned
K7M_API QiroK7MError QiroK7MWriterSetUlb(QiroK7MWriter* writer, QiroK7MDataBuffer* metadata,
                                         uint32_t length);

/// Writes a full box of any type at the end of what is written so far: before the first sample
/// only, in a fragmented document at any time, behind the fragment that is open.
/// @param writer   required
/// @param type     four-character code
/// @param version  any number but 0 means 1
/// @param flags    cut to 24 bits
/// @param payload  what follows version and flags; may be null when `length` is 0; released
/// @param length   bytes of the payload
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorSampleDataShort when the buffer is shorter than `length`;
///         #kQiroK7MErrorExtraBoxAfterMedia; or what writing returned
K7M_API QiroK7MError QiroK7MWriterAddFullBox(QiroK7MWriter* writer, uint32_t type, uint32_t version,
                                             uint32_t flags, QiroK7MDataBuffer* payload,
                                             uint32_t length);

/// Fills the document record with what the writer was created with; the duration of a new document
/// is 0 here, whatever was added. That of a file that is continued (k7r.h) is how long its kept
/// part lasts.
/// @param writer  required
/// @param info    receives the record; required
/// @return #kQiroK7MErrorNone, #kQiroK7MErrorInvalidArgument or #kQiroK7MErrorWriterStateBad
K7M_API QiroK7MError QiroK7MWriterGetDocInfo(QiroK7MWriter* writer, QiroK7MDocInfo* info);

/// Lists the tracks of a writer that was opened for append.
/// @param writer  required
/// @param out     receives an iterator that the caller releases with QiroK7MReleaseTrackIterator();
///                required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorNotOpenedForAppend for any other writer
K7M_API QiroK7MError QiroK7MWriterGetTracks(QiroK7MWriter* writer, QiroK7MTrackIterator** out);

/// Adds a sample behind the track's others. The low byte of `flags` says what it is: 1 a key
/// sample, 2 a gap, which carries no bytes and says that time passes without media until the next
/// sample.
/// @param writer  required
/// @param track   required
/// @param info    required; times are in `timeScale`, which must not be 0, and are converted to the
///                track's; `compositionOffset` is signed; `mediaType` must be the track's
/// @param data    `sampleSize` bytes; may be null for a gap; released
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorMediaTypeMismatch; #kQiroK7MErrorEmptySample for size 0 without a gap;
///         #kQiroK7MErrorSampleDataShort when the buffer is shorter than the sample;
///         #kQiroK7MErrorZeroTimeScale; #kQiroK7MErrorInvalidTrackId;
///         #kQiroK7MErrorNoSampleDescriptionChosen; #kQiroK7MErrorDecodeTimeBackwards;
///         #kQiroK7MErrorDecodeTimeStepTooLarge; #kQiroK7MErrorEditListFull;
///         #kQiroK7MErrorSampleTableFull; #kQiroK7MErrorStdException when the composition offset
///         does not fit 32 bits in the track's time scale; or what writing returned
K7M_API QiroK7MError QiroK7MWriterAddSample(QiroK7MWriter* writer, QiroK7MTrack* track,
                                            const QiroK7MSampleInfo* info, QiroK7MDataBuffer* data);

/// Makes what is on the stream a document that holds everything added so far. Writing goes on. In a
/// fragmented document this ends the fragment; the next sample opens another.
/// @param writer  required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorEditListFull; or what writing returned
K7M_API QiroK7MError QiroK7MWriterFlush(QiroK7MWriter* writer);

/// Finishes the document of a good writer and closes the stream. A failure leaves the writer bad
/// and the stream closed. Closing again does nothing.
/// @param writer  required
/// @return as QiroK7MWriterFlush(), or what the stream's `close` returned
K7M_API QiroK7MError QiroK7MCloseWriter(QiroK7MWriter* writer);

/// Frees the writer with its tracks and sample descriptors. The stream of one that was not closed
/// is closed; what was not flushed is lost.
/// @param writer  null is ignored
K7M_API void QiroK7MDestroyWriter(QiroK7MWriter* writer);

#endif

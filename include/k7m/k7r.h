/// @file k7r.h
/// Writing and continuing K7R files: fragmented documents whose fragments start where the caller
/// says.
///
/// A fragment is an 'afra' box with random access entries, an 'abst' box (bootstrap) if the caller
/// supplied one, and the movie fragment with its media, 'moof' and 'mdat'. Media bytes stay with
/// the caller until their fragment is written: by the start of the next one, a flush, an extra box,
/// the change of a sample description in the middle of it, or closing.
///
/// Order of use: create; add the one hint track and the other tracks; add a sample description to
/// each, to the hint track the 'vorp' description, whose 'amto' box tells the time origin of the
/// file; then, for each fragment, start it, add samples, perhaps an 'abst'; close; destroy. Tracks,
/// descriptions, metadata, extra boxes and flushes are those of writer.h, on the handle that
/// QiroK7RWriterGetK7MWriterRef() gives. QiroK7MWriterAddSample() on it is
/// QiroK7RWriterAddSampleWithAfra() without a random access entry.
///
/// Times: decode times in the file count from the time origin; a sample before it is refused with
/// #kQiroK7MErrorDecodeTimeBackwards. The times of random access entries do not: they are the
/// decode times as given, in the hint track's time scale.
///
/// State and buffers are as in writer.h. A fragment that failed to be written is lost unless its
/// media is still there; then the next flush writes it.
#ifndef K7M_K7R_H
#define K7M_K7R_H

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
#include "k7m/writer.h"

/// A K7R file being written.
typedef struct QiroK7RWriter QiroK7RWriter;

/// What a hint track is for. 8 bytes.
typedef struct QiroK7RHintTrackInfo {
  uint32_t size;          ///< Not read.
  uint32_t hintProtocol;  ///< 2, the only one that is supported.
} QiroK7RHintTrackInfo;

/// Where the media sample lies in the bytes of a hint sample. 12 bytes.
typedef struct QiroK7MHintSampleInfo {
  uint32_t size;         ///< Not read.
  uint32_t mediaOffset;  ///< From the begin of the hint sample, in bytes.
  uint32_t mediaSize;    ///< Bytes of the media sample.
} QiroK7MHintSampleInfo;

/// Creates a K7R file and writes its first boxes; as QiroK7MDocCreateNew().
/// @param callBacks  the stream; required, with all its required callbacks. Copied
/// @param info       required. `timeScale` must not be 0; the document is fragmented whatever
///                   `isFragmented` says
/// @param allocator  required; its callbacks may be null and must otherwise outlive the writer
/// @param out        receives the writer, to be freed with QiroK7RDestroyWriter(); required; left
///                   as it is on failure
/// @return as QiroK7MDocCreateNew()
K7M_API QiroK7MError QiroK7RDocCreateNew(const QiroK7MIOStreamCallBacks* callBacks,
                                         const QiroK7MDocInfo* info,
                                         const QiroK7MAllocatorCallBacks* allocator,
                                         QiroK7RWriter** out);

/// Opens an existing K7R file to continue it. Its movie box stays where it is. Kept is every
/// complete fragment ('afra', perhaps 'abst', 'moof', whole 'mdat') up to the last one whose 'afra'
/// does not begin behind `keepLimit`, and other boxes between fragments; at the first box that
/// breaks this order or is cut short, the file is cut off. Fragments in front of the movie box stay
/// as well, and are continued. Then the writer is one like that of QiroK7RDocCreateNew(), except
/// that tracks (#kQiroK7MErrorAppendAddTrack) and metadata (#kQiroK7MErrorAppendMetadata) are
/// refused. QiroK7MWriterGetTracks() gives the tracks; each needs a description chosen with
/// QiroK7MWriterSetSampleDescriptor(), or a new one, before its first sample
/// (#kQiroK7MErrorNoSampleDescriptionChosen). The first sample of a track for which the 'mvex'
/// holds no 'trex' fails with #kQiroK7MErrorNoTrackExtends. A track that ends before the others,
/// and a sample that comes later than its track's end, leave an empty edit; each takes two places
/// in the edit list, whose length was fixed when the track was created. The 'afra' boxes that are
/// written from now on deliberately carry time scale 0, and 0 for every time.
/// @param callBacks     the stream; required, with all its required callbacks. Copied
/// @param reserved      not used; required
/// @param allocator     required; its callbacks may be null and must otherwise outlive the writer
/// @param keepLimit     an offset in the stream; UINT64_MAX keeps all complete fragments
/// @param lastFragment  receives the offset of the 'afra' of the last fragment that was kept behind
///                      the movie box, 0 when there is none; required
/// @param out           receives the writer; required. Both outputs are left as they are on failure
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorNoMovieBox;
///         #kQiroK7MErrorAppendNotFragmented without an 'mvex'; #kQiroK7MErrorAppendNoEditBox and
///         #kQiroK7MErrorAppendNoEditList for a track without one; #kQiroK7MErrorInvalidTrackId
///         when the tracks are not numbered 1, 2, 3 and so on in their order;
///         #kQiroK7MErrorMoovOffsetMismatch for a second movie box; #kQiroK7MErrorStdException when
///         the last 'mdat' or the movie box has no size and is longer than 32 bits can tell; the
///         codes of parsing (see QiroK7MDocOpenForRead()); #kQiroK7MErrorOutOfMemory; or what a
///         stream callback returned
K7M_API QiroK7MError QiroK7RDocOpenForAppend(const QiroK7MIOStreamCallBacks* callBacks,
                                             const void* reserved,
                                             const QiroK7MAllocatorCallBacks* allocator,
                                             uint64_t keepLimit, uint64_t* lastFragment,
                                             QiroK7RWriter** out);

/// Gives the same writer as a handle for the functions of writer.h, those that close and destroy it
/// included. It is no second writer: one of the two handles is destroyed, once.
/// @param writer  null gives a null handle
/// @param out     receives the handle; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument; also from a writer that is not good
K7M_API QiroK7MError QiroK7RWriterGetK7MWriterRef(QiroK7RWriter* writer, QiroK7MWriter** out);

/// Adds the hint track, of which a file has exactly one. It is written with 'tkhd' flags 0.
/// @param writer            required
/// @param hint              required
/// @param info              required; `mediaType` must be 'hint' or 0, `flags` 0, `timeScale` not 0
/// @param entries           as for QiroK7MWriterAddTrack(); required. The 6 bytes of a 'vorp'
///                          description's own fields are reserved beyond the longest codec header
/// @param maxSampleCount    ignored: fragments have no limit
/// @param handlerName       `handlerNameLength` bytes; null only when that is 0
/// @param referencedTracks  the tracks that the hint track serves; null only when
///                          `referencedTrackCount` is 0
/// @param referencedTrackCount  number of them
/// @param out               receives the track, which belongs to the writer; required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorMediaTypeMismatch; #kQiroK7MErrorZeroTimeScale;
///         #kQiroK7MErrorHintTrackFlags; #kQiroK7MErrorUnsupportedHintProtocol;
///         #kQiroK7MErrorSecondHintTrack; or as QiroK7MWriterAddTrack()
K7M_API QiroK7MError QiroK7RWriterAddHintTrack(
    QiroK7RWriter* writer, const QiroK7RHintTrackInfo* hint, const QiroK7MTrackInfo* info,
    const QiroK7MTrackEntriesInfo* entries, uint32_t maxSampleCount, const void* handlerName,
    QiroK7MTrack* const* referencedTracks, uint32_t referencedTrackCount, QiroK7MTrack** out);

/// Queues the payload of an 'abst' box, which is written behind the 'afra' of the open fragment
/// when that is written. A flush that finds one queued, but no media in the fragment, fails with
/// #kQiroK7MErrorFragmentWriterFlush, which makes the writer bad; so does the start of a fragment.
/// @param writer   required
/// @param payload  what follows version and flags; may be null when `length` is 0. The writer keeps
///                 it when this succeeds with a `length` that is not 0, and releases it when the
///                 box was written or the writer is destroyed
/// @param length   bytes of the payload; with 0 nothing is queued
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorSampleDataShort when the buffer is shorter than `length`;
///         #kQiroK7MErrorBootstrapPending
K7M_API QiroK7MError QiroK7RWriterAddABST(QiroK7RWriter* writer, QiroK7MDataBuffer* payload,
                                          uint32_t length);

/// Starts a fragment, after writing the one before. The first one closes the document for new
/// tracks and for the metadata box. Starting again when nothing was added does nothing.
/// @param writer  required
/// @param offset  receives where the fragment's 'afra' starts in the stream; required
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorWriterStateBad;
///         #kQiroK7MErrorNoHintTrack; or as QiroK7MWriterFlush()
K7M_API QiroK7MError QiroK7RWriterStartFragment(QiroK7RWriter* writer, uint64_t* offset);

/// Adds a sample to the open fragment, as QiroK7MWriterAddSample().
/// @param writer          required
/// @param track           required
/// @param info            required
/// @param data            `sampleSize` bytes; may be null for a gap. The writer keeps it until the
///                        fragment is written, or releases it on failure and for a gap. Where the
///                        stream or memory fails when the sample was taken already, it is released
///                        with the fragment
/// @param isRandomAccess  any number but 0 gives the fragment's 'afra' an entry for the sample
///                        unless that is a gap
/// @return #kQiroK7MErrorNoTimeOrigin before the 'vorp' description was added;
///         #kQiroK7MErrorSampleOutsideFragment; or as QiroK7MWriterAddSample()
K7M_API QiroK7MError QiroK7RWriterAddSampleWithAfra(QiroK7RWriter* writer, QiroK7MTrack* track,
                                                    const QiroK7MSampleInfo* info,
                                                    QiroK7MDataBuffer* data,
                                                    uint32_t isRandomAccess);

/// Adds a sample of the hint track and the media sample inside it. The bytes are stored once: the
/// media sample points into those of the hint sample. It takes time, composition offset and flags
/// from the hint sample. When only the media sample is refused, the hint sample stays.
/// @param writer          required
/// @param hintTrack       required
/// @param mediaTrack      the track of the media sample; the hint track must serve it; required
/// @param data            the bytes of the hint sample; required, may be null for a gap. Kept and
///                        released as by QiroK7RWriterAddSampleWithAfra()
/// @param info            the hint sample; required. `mediaType` is that of the hint track
/// @param media           where the media sample lies in `data`; required. It must lie inside
/// @param isRandomAccess  any number but 0 gives the 'afra' an entry for the hint sample
/// @return #kQiroK7MErrorTrackNotReferenced; or as QiroK7RWriterAddSampleWithAfra()
K7M_API QiroK7MError QiroK7RWriterAddHintSample(QiroK7RWriter* writer, QiroK7MTrack* hintTrack,
                                                QiroK7MTrack* mediaTrack, QiroK7MDataBuffer* data,
                                                const QiroK7MSampleInfo* info,
                                                const QiroK7MHintSampleInfo* media,
                                                uint32_t isRandomAccess);

/// Writes the last fragment and closes the stream; as QiroK7MCloseWriter().
/// @param writer  required
/// @return as QiroK7MCloseWriter()
K7M_API QiroK7MError QiroK7RCloseWriter(QiroK7RWriter* writer);

/// Frees the writer with its tracks and sample descriptions. A good one that was not closed writes
/// its last fragment first; nobody is told when that fails.
/// @param writer  null is ignored
K7M_API void QiroK7RDestroyWriter(QiroK7RWriter* writer);

#endif

/// @file extensions.h
/// What the library offers beyond the contract of the other headers: samples as they lie in the
/// file, edit lists, and the names of codes.
#ifndef K7M_EXTENSIONS_H
#define K7M_EXTENSIONS_H

#include <stdint.h>

#include "k7m/errors.h"
#include "k7m/export.h"
#include "k7m/reader.h"
#include "k7m/sample.h"
#include "k7m/track.h"

/// One entry of a track's edit list ('elst', ISO/IEC 14496-12 8.6.6). 24 bytes.
typedef struct QiroK7MEdit {
  uint32_t size;             ///< Set by the library to 24.
  uint32_t rate;             ///< 0 for a media rate of exactly zero (a dwell), else 1.
  uint64_t segmentDuration;  ///< Length of the edit in movie time scale units.
  int64_t mediaTime;  ///< Start within the media in track time scale units; -1: an empty edit.
} QiroK7MEdit;

/// Values of QiroK7MReadOptions::flags.
enum QiroK7MReadFlags {
  /// A base data offset that a track fragment does not give follows the standard (ISO/IEC 14496-12
  /// 8.8.7): the begin of the 'moof' where 'default-base-is-moof' is set or for the first track
  /// fragment, else the end of the data of the one before; a run without a data offset follows the
  /// one before it. Without this flag such offsets are counted from the begin of the stream.
  kQiroK7MReadBaseDataOffsets = 0x1,
  /// A 'tfdt' box (8.8.12) gives its track fragment the start time, and a range begins at the first
  /// fragment of the track that ends after its start, also when that lies in a hole. Without this
  /// flag times run on from fragment to fragment, from 0.
  kQiroK7MReadStartTimes = 0x2
};

/// How a document is read beyond the contract. 8 bytes.
typedef struct QiroK7MReadOptions {
  uint32_t size;   ///< Size of this record in bytes: 8. Not read by the library.
  uint32_t flags;  ///< A sum of #QiroK7MReadFlags. 0: exactly as QiroK7MDocOpenForRead().
} QiroK7MReadOptions;

/// As QiroK7MDocOpenForRead(), with rules for fragmented documents that say less than that needs.
/// @param callBacks  the stream; required, with all its required callbacks. Copied
/// @param warning    who is told about warnings; required, its callback may be null
/// @param allocator  required; its callbacks may be null and must otherwise outlive the reader
/// @param options    required
/// @param out        receives the reader; required; left as it is on failure
/// @return as QiroK7MDocOpenForRead()
K7M_API QiroK7MError QiroK7MDocOpenForReadWithOptions(const QiroK7MIStreamCallBacks* callBacks,
                                                      const QiroK7MWarningHandlerCallBacks* warning,
                                                      const QiroK7MAllocatorCallBacks* allocator,
                                                      const QiroK7MReadOptions* options,
                                                      QiroK7MReader** out);

/// Delivers the samples of some tracks as they lie in the file: merged as by
/// QiroK7MReaderGetSamples(), but on the media timeline, without any edit list and without an end.
/// In a fragmented document those of the movie box come before those of the fragments.
/// @param reader  required
/// @param tracks  tracks of this reader; null only when `count` is 0, which selects all tracks; an
///                array that is not null with a count of 0 selects none
/// @param count   number of tracks
/// @param out     receives an iterator that the caller releases with
/// QiroK7MReleaseSampleIterator();
///                required
/// @return as QiroK7MReaderGetSamples()
K7M_API QiroK7MError QiroK7MReaderGetMediaSamples(QiroK7MReader* reader,
                                                  QiroK7MTrack* const* tracks, uint32_t count,
                                                  QiroK7MSampleIterator** out);

/// Counts the entries of the track's edit list.
/// @param track  required
/// @param count  receives the number, 0 without an edit list; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MTrackGetEditCount(QiroK7MTrack* track, uint32_t* count);

/// Copies one entry of the track's edit list.
/// @param track  required
/// @param index  from 0
/// @param edit   receives the record; required
/// @return #kQiroK7MErrorNone, or #kQiroK7MErrorInvalidArgument also for an index past the end
K7M_API QiroK7MError QiroK7MTrackGetEdit(QiroK7MTrack* track, uint32_t index, QiroK7MEdit* edit);

/// Gives the name of a result or warning code.
/// @param code  any number
/// @return the name as it stands in errors.h, or "unknown code"; zero-terminated, static storage
K7M_API const char* QiroK7MErrorName(QiroK7MError code);

/// Gives a sentence that tells what a result or warning code means.
/// @param code  any number
/// @return a sentence in English, or "a code that the library does not define"; zero-terminated,
///         static storage
K7M_API const char* QiroK7MErrorText(QiroK7MError code);

#endif

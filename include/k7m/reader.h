/// @file reader.h
/// Opening documents for reading, document information and metadata.
#ifndef K7M_READER_H
#define K7M_READER_H

#include <stddef.h>
#include <stdint.h>

#include "k7m/allocator.h"
#include "k7m/errors.h"
#include "k7m/export.h"
#include "k7m/stream.h"
#include "k7m/types.h"
#include "k7m/warning.h"

/// A document open for reading.
typedef struct QiroK7MReader QiroK7MReader;
/// A track of a document; see track.h.
typedef struct QiroK7MTrack QiroK7MTrack;

/// What the movie header ('mvhd', ISO/IEC 14496-12 8.2.2) says about a document. 48 bytes.
/// Here and in all records, a fixed-point number that is written keeps its low bits when it is out
/// of range; one that is not a number, or beyond all range, is written as 0.
typedef struct QiroK7MDocInfo {
  uint32_t size;                     ///< Set by the library to 48.
  uint32_t isFragmented;             ///< 1 when the 'moov' has an 'mvex', else 0.
  QiroK7MDateTime creationTime;      ///< When the document was made.
  QiroK7MDateTime modificationTime;  ///< When it was last changed.
  float
      playRate;  ///< Preferred rate; 1.0 is normal. Stored as 16.16 fixed point: 0 to below 65536.
  float volume;  ///< Preferred volume; 1.0 is full. Stored as 8.8 fixed point: 0 to below 256.
  uint32_t timeScale;  ///< Movie time scale: units per second.
  uint64_t duration;   ///< Length of the longest track in movie time scale units.
} QiroK7MDocInfo;

/// Returns the library's build version.
/// @return a zero-terminated text in static storage; never freed by the caller
K7M_API const char* QiroK7MGetLibraryVersion(void);

/// Tells whether a stream looks like a document: whether its first box is 'ftyp', 'moov' or 'mdat'.
/// The test is deliberately this narrow: a stream that starts with 'free' or 'moof' is answered
/// with 0, although QiroK7MDocOpenForRead() may accept it. The stream is opened and closed again.
/// @param callBacks  the stream; required, with all its required callbacks
/// @param allocator  required; its callbacks may be null. Not used: the test takes no memory
/// @param isK7M      receives 1 or 0; required. A stream of fewer than 8 bytes gives 0
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorReadFailed when the
///         stream is shorter than it said; or what a stream callback returned
K7M_API QiroK7MError QiroK7MDocIsK7M(const QiroK7MIStreamCallBacks* callBacks,
                                     const QiroK7MAllocatorCallBacks* allocator, uint32_t* isK7M);

/// Opens a document: parses the top level up to the movie box and on to the first 'mdat'.
/// @param callBacks  the stream; required, with all its required callbacks. Copied; it is closed by
///                   QiroK7MCloseReader()
/// @param warning    who is told about warnings; required, its callback may be null
/// @param allocator  required; its callbacks may be null and must otherwise outlive the reader
/// @param out        receives the reader; required; left as it is on failure
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument; #kQiroK7MErrorNoMovieBox when no
///         'moov' is found; #kQiroK7MErrorMoovOffsetMismatch;
///         #kQiroK7MErrorAbortedByWarningHandler; the codes of malformed boxes (9, 14, 23 to 25, 27
///         to 31, 1029); #kQiroK7MErrorReadFailed; #kQiroK7MErrorOutOfMemory; or what a stream
///         callback returned
K7M_API QiroK7MError QiroK7MDocOpenForRead(const QiroK7MIStreamCallBacks* callBacks,
                                           const QiroK7MWarningHandlerCallBacks* warning,
                                           const QiroK7MAllocatorCallBacks* allocator,
                                           QiroK7MReader** out);

/// Closes the stream and destroys the reader with its tracks and sample descriptors. Samples and
/// iterators obtained from it must have been released before.
/// @param reader  null is ignored
K7M_API void QiroK7MCloseReader(QiroK7MReader* reader);

/// Fills the document record.
/// @param reader  required
/// @param info    receives the record; required
/// @return #kQiroK7MErrorNone, #kQiroK7MErrorInvalidArgument, or #kQiroK7MErrorNoMovieHeader when
///         the movie box has no 'mvhd'
K7M_API QiroK7MError QiroK7MReaderGetDocInfo(QiroK7MReader* reader, QiroK7MDocInfo* info);

/// Gives the length of the document's metadata packet: the payload of the first top-level 'uuid'
/// box with the extended type be7acfcb-97a9-42e8-9c71-999491e3afac. Parses on until it is found.
/// @param reader  required
/// @param length  receives the length in bytes, 0 when there is no such box; required
/// @return #kQiroK7MErrorNone, #kQiroK7MErrorInvalidArgument, or the codes of parsing (see
///         QiroK7MDocOpenForRead())
K7M_API QiroK7MError QiroK7MReaderGetUlbDataLength(QiroK7MReader* reader, uint32_t* length);

/// Copies the document's metadata packet; copies nothing when there is none.
/// @param reader  required
/// @param buffer  receives the packet; required, at least as long as
///                QiroK7MReaderGetUlbDataLength() tells
/// @return as QiroK7MReaderGetUlbDataLength()
K7M_API QiroK7MError QiroK7MReaderCopyUlbData(QiroK7MReader* reader, void* buffer);

/// Copies a track's handler name: exactly `handlerNameLength` bytes of #QiroK7MTrackInfo, nothing
/// when that is 0. Despite its prefix it takes a track.
/// @param track   required
/// @param buffer  receives the bytes; required, at least that long
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MReaderCopyHandlerName(QiroK7MTrack* track, void* buffer);

#endif

/// @file stream.h
/// Streams supplied by the caller: all bytes that the library reads or writes pass through them.
#ifndef K7M_STREAM_H
#define K7M_STREAM_H

#include <stddef.h>
#include <stdint.h>

#include "k7m/allocator.h"
#include "k7m/errors.h"
#include "k7m/export.h"

/// Origin of a seek.
typedef enum QiroK7MSeekPos {
  kQiroK7MSeekFromStart = 0,    ///< From the first byte.
  kQiroK7MSeekFromCurrent = 1,  ///< From the current position.
  kQiroK7MSeekFromEnd = 2       ///< From behind the last byte.
} QiroK7MSeekPos;

/// A stream to read from. 72 bytes. Copied by the function that it is passed to.
///
/// Every callback gets `clientData` first and returns 0 for success; any other value becomes the
/// result of the exported call, unchanged, except where a callback below says otherwise; a walk
/// over samples fetches one ahead, so that there it is the result of the next call. `acquire` and
/// `release` may be null and are then skipped; the others are required (error 20).
///
/// What the callbacks must do:
/// - `readSome`: deliver up to `byteCount` bytes from the current position, store the number
///   delivered and advance by it. Fewer bytes than asked are a short read, not a failure; at the
///   end of the stream the number is 0. Where the library needs all bytes, a short read becomes
///   error 5.
/// - `seek`: move to `offset` from `origin`. Offset 0 from the end measures the stream.
/// - `tell`: store the current position, counted from the first byte.
/// - `open`, `close`: called once each around all other use. A stream whose `open` fails is closed
///   all the same by the type test and by document creation, but not by opening for reading. A
///   failure of `close` is ignored when a reader is closed.
/// - `acquire`, `release`: not called by this version.
typedef struct QiroK7MIStreamCallBacks {
  uint32_t size;     ///< Size of this record in bytes: 72. Not read by the library.
  void* clientData;  ///< Passed back as the first argument of every callback.
  QiroK7MError (*acquire)(void* clientData);  ///< A user of the stream is added. May be null.
  QiroK7MError (*release)(
      void* clientData);                    ///< A user is gone. May be null; its result is ignored.
  QiroK7MError (*open)(void* clientData);   ///< Makes the stream ready at its first byte.
  QiroK7MError (*close)(void* clientData);  ///< Ends the use of the stream.
  /// Reads up to `byteCount` bytes into `buffer` and stores the number read.
  QiroK7MError (*readSome)(void* clientData, void* buffer, uint64_t byteCount, uint64_t* bytesRead);
  /// Moves the position.
  QiroK7MError (*seek)(void* clientData, int64_t offset, QiroK7MSeekPos origin);
  /// Stores the position in bytes from the start.
  QiroK7MError (*tell)(void* clientData, uint64_t* position);
} QiroK7MIStreamCallBacks;

/// A stream to read from and write to. 88 bytes. The first nine fields are those of
/// #QiroK7MIStreamCallBacks, with the same rules; `write` and `truncate` are required as well.
typedef struct QiroK7MIOStreamCallBacks {
  uint32_t size;     ///< Size of this record in bytes: 88. Not read by the library.
  void* clientData;  ///< Passed back as the first argument of every callback.
  QiroK7MError (*acquire)(void* clientData);  ///< A user of the stream is added. May be null.
  QiroK7MError (*release)(
      void* clientData);                    ///< A user is gone. May be null; its result is ignored.
  QiroK7MError (*open)(void* clientData);   ///< Makes the stream ready at its first byte.
  QiroK7MError (*close)(void* clientData);  ///< Ends the use of the stream.
  /// Reads up to `byteCount` bytes into `buffer` and stores the number read.
  QiroK7MError (*readSome)(void* clientData, void* buffer, uint64_t byteCount, uint64_t* bytesRead);
  /// Moves the position; a position behind the end is allowed and extends the stream when written.
  QiroK7MError (*seek)(void* clientData, int64_t offset, QiroK7MSeekPos origin);
  /// Stores the position in bytes from the start.
  QiroK7MError (*tell)(void* clientData, uint64_t* position);
  /// Writes `byteCount` bytes, at least 1, at the position, stores the number written and advances
  /// by it. Fewer bytes than asked become error 47.
  QiroK7MError (*write)(void* clientData, const void* buffer, uint64_t byteCount,
                        uint64_t* bytesWritten);
  /// Cuts the stream to `length` bytes.
  QiroK7MError (*truncate)(void* clientData, uint64_t length);
#ifdef __cplusplus
  /// Leaves `clientData` as it is.
  QiroK7MIOStreamCallBacks()
      : size(88),
        acquire(NULL),
        release(NULL),
        open(NULL),
        close(NULL),
        readSome(NULL),
        seek(NULL),
        tell(NULL),
        write(NULL),
        truncate(NULL) {}
#endif
} QiroK7MIOStreamCallBacks;

/// Opaque; no object of this type is ever handed out.
typedef struct QiroK7MIStream QiroK7MIStream;
/// Opaque; no object of this type is ever handed out.
typedef struct QiroK7MIOStream QiroK7MIOStream;

/// Writes null into `out`, deliberately: streams are made inside the open and create functions from
/// the callback record that they are given.
/// @param clientData  ignored; may be null
/// @param callBacks   ignored; may be null
/// @param allocator   ignored; may be null
/// @param out         receives null; required
/// @return #kQiroK7MErrorNone, or #kQiroK7MErrorInvalidArgument when `out` is null
K7M_API QiroK7MError QiroK7MCreateIStream(void* clientData,
                                          const QiroK7MIStreamCallBacks* callBacks,
                                          const QiroK7MAllocatorCallBacks* allocator,
                                          QiroK7MIStream** out);

/// Does nothing.
/// @param stream  ignored; may be null
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError QiroK7MReleaseIStream(QiroK7MIStream* stream);

/// As QiroK7MCreateIStream(), for a stream to read from and write to.
/// @param clientData  ignored; may be null
/// @param callBacks   ignored; may be null
/// @param allocator   ignored; may be null
/// @param out         receives null; required
/// @return #kQiroK7MErrorNone, or #kQiroK7MErrorInvalidArgument when `out` is null
K7M_API QiroK7MError QiroK7MCreateIOStream(void* clientData,
                                           const QiroK7MIOStreamCallBacks* callBacks,
                                           const QiroK7MAllocatorCallBacks* allocator,
                                           QiroK7MIOStream** out);

/// Does nothing.
/// @param stream  ignored; may be null
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError QiroK7MReleaseIOStream(QiroK7MIOStream* stream);

#endif

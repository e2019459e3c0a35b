/// @file k7m.h
/// The whole public interface of libK7M: reading and writing K7M documents (ISO/IEC 14496-12
/// files).
///
/// Conventions:
/// 1. Results. A function returns a #QiroK7MError, 0 for success; functions without a result return
///    nothing. An output argument is written only on success, but for
///    QiroK7RQueryServicerGetFragment(), which clears them first. No exception leaves the library.
/// 2. Null pointers. Required pointers are checked before anything else; a null one gives
///    #kQiroK7MErrorInvalidArgument and nothing else happens.
/// 3. Handles are pointers to opaque types. Iterators and samples belong to the caller and are
///    freed by their release function before the reader is closed; tracks and sample descriptors
///    belong to the reader or writer and their release functions do nothing.
/// 4. Records start with their size in bytes, which the library fills in when it fills the record
///    and does not read. It never touches a byte behind the stated layout.
/// 5. Times are whole numbers of units of a time scale, which is a number of units per second.
/// 6. Numbering. An index is counted from 0; a number, and a sample description index in a file,
///    from 1.
/// 7. Four-character codes are 32-bit numbers, first character most significant: 'vide' is
///    0x76696465.
/// 8. Streams and memory come from the caller: see stream.h and allocator.h. The library opens no
///    file, prints nothing, and keeps no global state.
/// 9. Threads. The library starts none and takes no locks. A reader, writer or query servicer and
///    everything obtained from it may be used by one thread at a time, the threads one after the
///    other; whoever hands it on sees to it that the one has ended before the other begins.
///    Different readers, writers and servicers are independent, and may be opened, used and closed
///    at the same time, as far as the caller's callbacks are: callbacks are called on the thread
///    that called the library. Functions without a handle may be called on any thread at any time.
#ifndef K7M_K7M_H
#define K7M_K7M_H

#include "k7m/allocator.h"
#include "k7m/errors.h"
#include "k7m/export.h"
#include "k7m/extensions.h"
#include "k7m/k7r.h"
#include "k7m/query.h"
#include "k7m/reader.h"
#include "k7m/sample.h"
#include "k7m/stream.h"
#include "k7m/track.h"
#include "k7m/types.h"
#include "k7m/warning.h"
#include "k7m/writer.h"

#endif

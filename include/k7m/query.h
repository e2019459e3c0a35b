/// @file query.h
/// Serving a K7R file piece by piece: the bytes of one fragment, found by its number.
///
/// A fragment is a random access box ('afra'), optionally a bootstrap box ('abst'), then a movie
/// fragment ('moof') and its media data ('mdat'). Where each fragment lies comes from one of two
/// places:
/// - Without an index the fragment file is parsed once, when the servicer is made. Fragments are
///   numbered from 1 in file order; 'moof' and 'mdat' may stand in either order, other boxes only
///   between fragments. Fragments that are appended later are not seen.
/// - With an index nothing of the fragment file is parsed. The index is a stream that holds one
///   'afra' box, from its first byte to its last. Each request looks at it anew, in a fixed number
///   of callbacks whatever its size, and then at the headers of that one fragment, whose 'moof'
///   must stand before its 'mdat'.
///
/// An index box holds either local entries, where the n-th entry gives the offset of fragment n,
/// or, when it has none of those, global entries, which also name a segment and a fragment and
/// which are taken to number consecutive fragments: the entry's place follows from the first one's
/// number, without a search. An offset of all one bits says that the fragment is not available.
#ifndef K7M_QUERY_H
#define K7M_QUERY_H

#include <stdint.h>

#include "k7m/allocator.h"
#include "k7m/errors.h"
#include "k7m/export.h"
#include "k7m/stream.h"

/// Answers requests for the fragments of one file. Used by one thread at a time.
typedef struct QiroK7RQueryServicer QiroK7RQueryServicer;

/// Opens a fragment file, with its index or without one, for requests. Warnings are ignored.
/// @param fragmentFile  the stream of the fragments; required, with all its required callbacks.
///                      Copied; it is closed by QiroK7RCloseQueryServicer()
/// @param indexFile     the stream of the index; null for none. Copied and closed likewise
/// @param allocator     the memory of the servicer, of what it parses and of the fragments that it
///                      hands out; required. Its callbacks may be null and must otherwise work
///                      until the servicer is closed
/// @param out           receives the servicer; required; left as it is on failure
/// @return #kQiroK7MErrorNone; #kQiroK7MErrorInvalidArgument;
///         #kQiroK7MErrorBadFragmentIndex when the index is shorter than an empty 'afra' box (21
///         bytes) or is not exactly one 'afra' box; without an index #kQiroK7MErrorNoMovieBox,
///         #kQiroK7MErrorBadFragmentFile when boxes follow in another order than that of fragments,
///         and the codes of malformed boxes (see QiroK7MDocOpenForRead()). A file that is not
///         fragmented is accepted; it has no fragments. #kQiroK7MErrorReadFailed;
///         #kQiroK7MErrorOutOfMemory; or what a stream callback returned
K7M_API QiroK7MError QiroK7RQueryServicerCreate(const QiroK7MIStreamCallBacks* fragmentFile,
                                                const QiroK7MIStreamCallBacks* indexFile,
                                                const QiroK7MAllocatorCallBacks* allocator,
                                                QiroK7RQueryServicer** out);

/// Copies one fragment into a buffer of its own. A failed request leaves the servicer usable.
/// @param servicer        required
/// @param fragmentNumber  from 1
/// @param segmentNumber   from 1. Global entries must name it; otherwise it is not looked at, but
///                        with an index it must not be 0
/// @param size            receives the fragment's size in bytes; required
/// @param data            receives the fragment's bytes; required. The buffer was allocated with
///                        the servicer's `allocate` callback and belongs to the caller, who frees
///                        it as that callback's blocks are freed, also after the servicer was
///                        closed; where `allocate` is null, the global operator delete frees it
/// @return #kQiroK7MErrorNone, with size 0 and a null buffer when the global entry in the place of
///         the fragment names another segment or fragment;
///         #kQiroK7MErrorInvalidArgument, with both outputs as they were;
///         or, with size 0 and a null buffer:
///         - #kQiroK7MErrorFragmentNotFound: the number is 0, or not that of a fragment that the
///           file or its index has. Behind global entries every other failure is this one too, but
///           for the next one and #kQiroK7MErrorOutOfMemory
///         - #kQiroK7MErrorFragmentNotAvailable: the index gives an offset of all one bits
///         - #kQiroK7MErrorInvalidSegmentNumber: the segment number is 0, with an index
///         - #kQiroK7MErrorBadFragmentFile: no fragment stands at the offset that the index gives,
///           or it is larger than 2^32-1 bytes
///         - #kQiroK7MErrorBoxTruncated: a box there is smaller than its header
///         - #kQiroK7MErrorReadFailed: the fragment or the index entry lies past the end of its
///           stream; nothing was allocated
///         - #kQiroK7MErrorOutOfMemory; or what a stream callback returned
K7M_API QiroK7MError QiroK7RQueryServicerGetFragment(QiroK7RQueryServicer* servicer,
                                                     uint32_t fragmentNumber,
                                                     uint32_t segmentNumber, uint32_t* size,
                                                     void** data);

/// Closes the streams and destroys the servicer. A failure of `close` is ignored. Fragments that
/// were handed out stay.
/// @param servicer  null is ignored
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError QiroK7RCloseQueryServicer(QiroK7RQueryServicer* servicer);

#endif

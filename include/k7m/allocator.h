/// @file allocator.h
/// Memory supplied by the caller.
#ifndef K7M_ALLOCATOR_H
#define K7M_ALLOCATOR_H

#include <stddef.h>
#include <stdint.h>

#include "k7m/errors.h"
#include "k7m/export.h"

/// Where documents, boxes and their tables take their memory from. 32 bytes.
///
/// The record is copied by every object made with it, and every object gives its memory back
/// through its own copy: the callbacks must work until the last of those objects is gone. Stream
/// objects, tracks, samples, iterators and temporary buffers use the global operators instead.
typedef struct QiroK7MAllocatorCallBacks {
  uint32_t size;     ///< Size of this record in bytes: 32. Not read by the library.
  void* clientData;  ///< Passed back as the first argument of both callbacks.
  /// Returns a block of `byteCount` bytes, aligned as by malloc. A callback that has no memory
  /// returns null or, in C++, throws std::bad_alloc: error 18. Null: the global operator new is
  /// used.
  void* (*allocate)(void* clientData, uint64_t byteCount);
  /// Frees a block that `allocate` returned. Null: the global operator delete is used.
  void (*release)(void* clientData, void* block);
#ifdef __cplusplus
  QiroK7MAllocatorCallBacks() : size(32), clientData(NULL), allocate(NULL), release(NULL) {}
#endif
} QiroK7MAllocatorCallBacks;

/// Opaque; no object of this type exists.
typedef struct Allocator Allocator;

/// Does nothing: memory callbacks reach the library only through the open and create functions.
/// @param clientData  ignored; may be null
/// @param callBacks   ignored; may be null
/// @param out         ignored and deliberately left unwritten; may be null
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError QiroK7MCreateAllocator(void* clientData,
                                            const QiroK7MAllocatorCallBacks* callBacks,
                                            Allocator** out);

/// Does nothing.
/// @param allocator  ignored; may be null
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError QiroK7MReleaseAllocator(Allocator* allocator);

#endif

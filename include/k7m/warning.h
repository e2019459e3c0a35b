/// @file warning.h
/// Warnings about irregularities that reading can survive.
#ifndef K7M_WARNING_H
#define K7M_WARNING_H

#include <stddef.h>
#include <stdint.h>

#include "k7m/errors.h"

/// Who is told about warnings. 24 bytes. Copied when a stream is opened.
typedef struct QiroK7MWarningHandlerCallBacks {
  uint32_t size;     ///< Size of this record in bytes: 24. Not read by the library.
  void* clientData;  ///< Passed back as the first argument of the callback.
  /// Gets one of the kQiroK7MWarning codes. Non-zero: go on. 0: the call that was reading fails
  /// with #kQiroK7MErrorAbortedByWarningHandler. Null: warnings are ignored.
  int32_t (*warningCallback)(void* clientData, QiroK7MError warning);
#ifdef __cplusplus
  QiroK7MWarningHandlerCallBacks() : size(24), clientData(NULL), warningCallback(NULL) {}
#endif
} QiroK7MWarningHandlerCallBacks;

#endif

/// @file types.h
/// Records shared by several topics: dates and data buffers.
#ifndef K7M_TYPES_H
#define K7M_TYPES_H

#include <stddef.h>
#include <stdint.h>

/// A Gregorian date and time of day, UTC, without leap seconds. 10 bytes.
/// When a document is written, years before 1904 count as 1904, a month out of range as the nearest
/// one and day 0 as 1; larger numbers are added up as they are.
typedef struct QiroK7MDateTime {
  uint8_t unused;  ///< Neither read nor written by the library.
  uint8_t day;     ///< Day of month, from 1.
  uint8_t month;   ///< 1 to 12.
  uint16_t year;   ///< 1904 to 65535.
  uint8_t hour;    ///< 0 to 23.
  uint8_t minute;  ///< 0 to 59.
  uint8_t second;  ///< 0 to 59.
} QiroK7MDateTime;

/// Bytes handed to the library together with the function that gives them back. 32 bytes.
/// Whoever passes one to the library keeps the bytes alive until `release` is called, which happens
/// exactly once.
typedef struct QiroK7MDataBuffer {
  uint32_t length;   ///< Number of bytes at `data`.
  void* data;        ///< The bytes; may be null when `length` is 0.
  void* clientData;  ///< Passed back as the first argument of `release`.
  /// Gives the bytes back; may be null when there is nothing to give back.
  void (*release)(void* clientData, void* data);
} QiroK7MDataBuffer;

#endif

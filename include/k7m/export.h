/// @file export.h
/// Linkage and visibility of the exported functions.
#ifndef K7M_EXPORT_H
#define K7M_EXPORT_H

#ifdef __cplusplus
#define K7M_EXTERN_C extern "C"
#else
#define K7M_EXTERN_C
#endif

#if defined(__GNUC__)
#define K7M_VISIBLE __attribute__((visibility("default")))
#else
#define K7M_VISIBLE
#endif

/// Marks a function of the public interface: C linkage, visible outside the shared library.
#define K7M_API K7M_EXTERN_C K7M_VISIBLE

#endif

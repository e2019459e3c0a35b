/// @file track.h
/// Tracks and their sample descriptors.
#ifndef K7M_TRACK_H
#define K7M_TRACK_H

#include <stddef.h>
#include <stdint.h>

#include "k7m/errors.h"
#include "k7m/export.h"
#include "k7m/reader.h"
#include "k7m/types.h"

/// One description of how a track's samples are coded.
typedef struct QiroK7MSampleDescriptor QiroK7MSampleDescriptor;
/// A list of tracks with a position in it.
typedef struct QiroK7MTrackIterator QiroK7MTrackIterator;
/// A list of sample descriptors with a position in it.
typedef struct QiroK7MSampleDescriptorIterator QiroK7MSampleDescriptorIterator;

/// What 'tkhd', 'mdhd' and 'hdlr' (ISO/IEC 14496-12 8.3.2, 8.4.2, 8.4.3) say about a track. 72
/// bytes.
typedef struct QiroK7MTrackInfo {
  uint32_t size;                     ///< Set by the library to 72.
  uint32_t mediaType;                ///< Handler type as a four-character code: 'vide', 'soun', ...
  uint32_t flags;                    ///< 'tkhd' flags, 24 bits.
  uint32_t timeScale;                ///< Units per second of the track's times; 0 without 'mdhd'.
  QiroK7MDateTime creationTime;      ///< When the track was made.
  QiroK7MDateTime modificationTime;  ///< When it was last changed.
  /// The 'tkhd' duration (presentation timeline, edits included) in the track's time scale; 0
  /// without 'mdhd'. For a track that is written: what its headers say until samples are flushed.
  uint64_t duration;
  float width;   ///< Visual width in pixels; 16.16 fixed point: 0 to below 65536.
  float height;  ///< Visual height in pixels; likewise.
  float volume;  ///< 1.0 is full; 8.8 fixed point: 0 to below 256.
  /// ISO 639-2/T: three small letters and a zero byte; 0 without 'mdhd'. The letters that are
  /// written are not checked; others give a code that means nothing.
  char language[4];
  /// Bytes of the handler name, its terminating zero byte included, also when the file lacks one;
  /// 0 for an empty name. See QiroK7MReaderCopyHandlerName().
  uint32_t handlerNameLength;
  uint32_t trackFlags;  ///< Bit 0: the track has an 'sdtp' table.
} QiroK7MTrackInfo;

/// Numbers of things in a track. 16 bytes.
typedef struct QiroK7MTrackEntriesInfo {
  uint32_t size;                      ///< Set by the library to 16.
  uint32_t sampleDescriptorCount;     ///< Entries in the 'stsd'.
  uint32_t gapCount;                  ///< Empty edits in the edit list.
  uint32_t maxCodecHeaderDataLength;  ///< Longest codec header among the descriptors, in bytes.
} QiroK7MTrackEntriesInfo;

/// What every sample descriptor has. 16 bytes.
typedef struct QiroK7MSampleDescInfo {
  uint32_t size;                   ///< Set by the library to 16.
  uint32_t codecHeaderDataLength;  ///< Bytes of codec header data.
  uint32_t type;                   ///< Four-character code of the coding: 'avc1', 'mp4a', ...
  uint32_t mediaType;              ///< Four-character code of the media type of its track.
} QiroK7MSampleDescInfo;

/// A visual sample entry (ISO/IEC 14496-12 12.1.3). 28 bytes.
typedef struct QiroK7MVideoSampleDescInfo {
  uint32_t size;               ///< Set by the library to 28.
  uint32_t width;              ///< Pixels; 16 bits in the file.
  uint32_t height;             ///< Pixels; 16 bits in the file.
  float horizontalResolution;  ///< Pixels per inch; 16.16 fixed point.
  float verticalResolution;    ///< Pixels per inch; 16.16 fixed point.
  uint32_t frameCount;         ///< Frames per sample; 16 bits in the file.
  uint32_t depth;              ///< Bits per pixel; 16 bits in the file.
} QiroK7MVideoSampleDescInfo;

/// An audio sample entry (ISO/IEC 14496-12 12.2.3). 12 bytes.
typedef struct QiroK7MAudioSampleDescInfo {
  uint32_t size;          ///< Set by the library to 12.
  float sampleRate;       ///< Hertz; 16.16 fixed point: 0 to below 65536.
  uint16_t channelCount;  ///< Channels.
  uint16_t sampleSize;    ///< Bits per sample.
} QiroK7MAudioSampleDescInfo;

/// A 'vorp' protocol hint sample entry. 12 bytes.
typedef struct QiroK7MVorpSampleDescInfo {
  uint32_t size;                      ///< Set by the library to 12.
  uint16_t hintTrackVersion;          ///< Version of the hint track's format.
  uint16_t highestCompatibleVersion;  ///< Oldest version that it is compatible with.
  uint16_t maxPacketSize;             ///< Largest packet in bytes.
  uint16_t unused;                    ///< Fills the record.
} QiroK7MVorpSampleDescInfo;

/// Lists all tracks in file order.
/// @param reader  required
/// @param out     receives an iterator that the caller releases with QiroK7MReleaseTrackIterator();
///                required
/// @return #kQiroK7MErrorNone, #kQiroK7MErrorInvalidArgument or #kQiroK7MErrorOutOfMemory
K7M_API QiroK7MError QiroK7MReaderGetTracks(QiroK7MReader* reader, QiroK7MTrackIterator** out);

/// Lists the tracks of some media types in file order.
/// @param reader      required
/// @param mediaTypes  four-character codes; null selects every track, whatever `count` says
/// @param count       number of codes; 0 with an array that is not null deliberately selects none
/// @param out         as for QiroK7MReaderGetTracks(); required
/// @return as QiroK7MReaderGetTracks()
K7M_API QiroK7MError QiroK7MReaderGetTracksByMediaTypes(QiroK7MReader* reader,
                                                        const uint32_t* mediaTypes, uint32_t count,
                                                        QiroK7MTrackIterator** out);

/// Tells whether a track remains.
/// @param iterator  required
/// @param hasMore   receives 1 or 0; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MTrackIteratorHasMoreEntries(QiroK7MTrackIterator* iterator,
                                                        uint32_t* hasMore);

/// Gives the next track, which belongs to the reader.
/// @param iterator  required
/// @param out       receives the track, or null at the end; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MTrackIteratorGetNextEntry(QiroK7MTrackIterator* iterator,
                                                      QiroK7MTrack** out);

/// Destroys the iterator, not the tracks.
/// @param iterator  null is ignored
K7M_API void QiroK7MReleaseTrackIterator(QiroK7MTrackIterator* iterator);

/// Does nothing: a track belongs to its reader or writer and is valid until that is gone.
/// @param track  ignored; may be null
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError QiroK7MReleaseTrack(QiroK7MTrack* track);

/// Copies the track record.
/// @param track  required
/// @param info   receives the record; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MTrackGetInfo(QiroK7MTrack* track, QiroK7MTrackInfo* info);

/// Copies the record of the track's numbers.
/// @param track  required
/// @param info   receives the record; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MTrackGetEntriesInfo(QiroK7MTrack* track, QiroK7MTrackEntriesInfo* info);

/// Counts the track's samples. In a fragmented document this parses the whole top level.
/// @param track  required
/// @param count  receives the number of samples of the sample table and of all fragments; required
/// @return #kQiroK7MErrorNone, #kQiroK7MErrorInvalidArgument, or the codes of parsing (see
///         QiroK7MDocOpenForRead())
K7M_API QiroK7MError QiroK7MTrackGetSampleCount(QiroK7MTrack* track, uint32_t* count);

/// Lists the track's sample descriptors in the order of the 'stsd' entries.
/// @param track  required
/// @param out    receives an iterator that the caller releases with
///               QiroK7MReleaseSampleDescriptorIterator(); required
/// @return #kQiroK7MErrorNone, #kQiroK7MErrorInvalidArgument,
///         #kQiroK7MErrorNoSampleDescriptionBox when the track has no 'stsd', or
///         #kQiroK7MErrorOutOfMemory
K7M_API QiroK7MError QiroK7MTrackGetSampleDescriptors(QiroK7MTrack* track,
                                                      QiroK7MSampleDescriptorIterator** out);

/// Tells whether a sample descriptor remains.
/// @param iterator  required
/// @param hasMore   receives 1 or 0; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleDescriptorIteratorHasMoreEntries(
    QiroK7MSampleDescriptorIterator* iterator, uint32_t* hasMore);

/// Gives the next sample descriptor, which belongs to the reader.
/// @param iterator  required
/// @param out       receives the descriptor, or null at the end; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleDescriptorIteratorGetNextEntry(
    QiroK7MSampleDescriptorIterator* iterator, QiroK7MSampleDescriptor** out);

/// Destroys the iterator, not the descriptors.
/// @param iterator  null is ignored
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError
QiroK7MReleaseSampleDescriptorIterator(QiroK7MSampleDescriptorIterator* iterator);

/// Does nothing: a sample descriptor belongs to its reader or writer and is valid until that is
/// gone.
/// @param descriptor  ignored; may be null
/// @return always #kQiroK7MErrorNone
K7M_API QiroK7MError QiroK7MReleaseSampleDescriptor(QiroK7MSampleDescriptor* descriptor);

/// Copies the record that every descriptor has.
/// @param descriptor  required
/// @param info        receives the record; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleDescriptorGetInfo(QiroK7MSampleDescriptor* descriptor,
                                                    QiroK7MSampleDescInfo* info);

/// Copies the record of a video descriptor. The library does not examine the descriptor's kind:
/// call this only for a descriptor of a 'vide' track. For one of another kind the content of the
/// record means nothing.
/// @param descriptor  required
/// @param info        receives the record; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleDescriptorGetVideoInfo(QiroK7MSampleDescriptor* descriptor,
                                                         QiroK7MVideoSampleDescInfo* info);

/// Copies the record of an audio descriptor; as QiroK7MSampleDescriptorGetVideoInfo(), for 'soun'.
/// @param descriptor  required
/// @param info        receives the record; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleDescriptorGetAudioInfo(QiroK7MSampleDescriptor* descriptor,
                                                         QiroK7MAudioSampleDescInfo* info);

/// Copies the record of a Vorp descriptor; as QiroK7MSampleDescriptorGetVideoInfo(), for 'hint'.
/// @param descriptor  required
/// @param info        receives the record; required
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleDescriptorGetVorpInfo(QiroK7MSampleDescriptor* descriptor,
                                                        QiroK7MVorpSampleDescInfo* info);

/// Copies the codec header data: the bytes of the sample entry behind its fixed fields, usually the
/// decoder configuration box with its header. Copies nothing when there are none.
/// @param descriptor  required
/// @param buffer      receives the bytes; required, at least `codecHeaderDataLength` bytes long
/// @return #kQiroK7MErrorNone or #kQiroK7MErrorInvalidArgument
K7M_API QiroK7MError QiroK7MSampleDescriptorCopyCodecHeaderData(QiroK7MSampleDescriptor* descriptor,
                                                                void* buffer);

#endif

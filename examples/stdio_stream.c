#define _POSIX_C_SOURCE 200809L /* fileno(), ftruncate() */
#include "stdio_stream.h"

#include <unistd.h>

/* What the callbacks answer when the C library fails. The library passes it on unchanged, so any
   number that it does not use itself will do; errno tells more. */
#define STDIO_FAILED 10001u

static QiroK7MError Result(int ok) { return ok ? kQiroK7MErrorNone : STDIO_FAILED; }

static QiroK7MError Open(void* file) { return Result(fseek(file, 0, SEEK_SET) == 0); }

/* The file is the caller's to close; here everything written has to reach it. */
static QiroK7MError Close(void* file) { return Result(fflush(file) == 0); }

/* Fewer bytes than asked for are no failure: that is how the library learns of the end. */
static QiroK7MError ReadSome(void* file, void* buffer, uint64_t byteCount, uint64_t* bytesRead) {
  *bytesRead = fread(buffer, 1, (size_t)byteCount, file);
  return Result(!ferror((FILE*)file));
}

static QiroK7MError Write(void* file, const void* buffer, uint64_t byteCount,
                          uint64_t* bytesWritten) {
  *bytesWritten = fwrite(buffer, 1, (size_t)byteCount, file);
  return Result(*bytesWritten == byteCount);
}

/* `long` has 64 bits on the systems that this library is made for. */
static QiroK7MError Seek(void* file, int64_t offset, QiroK7MSeekPos origin) {
  static const int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  return Result(fseek(file, (long)offset, kOrigins[origin]) == 0);
}

static QiroK7MError Tell(void* file, uint64_t* position) {
  const long result = ftell(file);
  *position = (uint64_t)result;
  return Result(result >= 0);
}

/* The one thing that the C library cannot do to a file. */
static QiroK7MError Truncate(void* file, uint64_t length) {
  return Result(fflush(file) == 0 && ftruncate(fileno(file), (off_t)length) == 0);
}

QiroK7MIStreamCallBacks StdioInput(FILE* file) {
  return (QiroK7MIStreamCallBacks){.size = sizeof(QiroK7MIStreamCallBacks),
                                   .clientData = file,
                                   .open = Open,
                                   .close = Close,
                                   .readSome = ReadSome,
                                   .seek = Seek,
                                   .tell = Tell};
}

QiroK7MIOStreamCallBacks StdioOutput(FILE* file) {
  return (QiroK7MIOStreamCallBacks){.size = sizeof(QiroK7MIOStreamCallBacks),
                                    .clientData = file,
                                    .open = Open,
                                    .close = Close,
                                    .readSome = ReadSome,
                                    .seek = Seek,
                                    .tell = Tell,
                                    .write = Write,
                                    .truncate = Truncate};
}

/* The library's streams over C's own files. */
#ifndef K7M_EXAMPLES_STDIO_STREAM_H
#define K7M_EXAMPLES_STDIO_STREAM_H

#include <stdio.h>

#include "k7m/k7m.h"

/* A stream to read a document from. The file must be open for reading, in binary mode; it stays the
   caller's and must outlive the reader. */
QiroK7MIStreamCallBacks StdioInput(FILE* file);

/* A stream to write a document to, or to continue one. The file must be open for reading and
   writing, and empty for a new document ("w+b"); it stays the caller's and must outlive the writer.
   */
QiroK7MIOStreamCallBacks StdioOutput(FILE* file);

#endif

/* Answers requests for single fragments of a K7R file, as a server of live video does.

   usage: serve_fragment FILE INDEX OUTFOLDER NUMBER...

   INDEX is the file's index, as `k7m index` makes it, or "-" for none: then FILE is parsed once.
   Each fragment goes to OUTFOLDER/NUMBER.bin. A fragment that is not there is told, and the next
   one is served all the same. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "k7m/k7m.h"
#include "stdio_stream.h"

/* Fragments come in memory from here and are given back here. */
static void* Allocate(void* clientData, uint64_t byteCount) {
  (void)clientData;
  return byteCount <= SIZE_MAX ? malloc((size_t)byteCount) : NULL;
}

static void Release(void* clientData, void* block) {
  (void)clientData;
  free(block);
}

static int Tell(const char* what, QiroK7MError error) {
  fprintf(stderr, "%s: %s (%" PRIu32 ")\n", what, QiroK7MErrorText(error), error);
  return 0;
}

/* Here a server would answer the request that it got. */
static int Answer(const char* folder, const char* number, const void* data, uint32_t size) {
  char path[4096];
  const int length = snprintf(path, sizeof path, "%s/%s.bin", folder, number);
  FILE* file = length < (int)sizeof path ? fopen(path, "wb") : NULL;
  if (file == NULL) {
    fprintf(stderr, "%s: cannot be written\n", path);
    return 0;
  }
  const size_t written = fwrite(data, 1, size, file);
  const int isClosed = fclose(file) == 0;
  return written == size && isClosed;
}

static int ServeOne(QiroK7RQueryServicer* servicer, const char* folder, const char* number) {
  uint32_t size = 0;
  void* data = NULL;
  /* The second number is the segment: it matters only to an index over several segments. */
  const QiroK7MError error = QiroK7RQueryServicerGetFragment(
      servicer, (uint32_t)strtoul(number, NULL, 10), 1, &size, &data);
  if (error != kQiroK7MErrorNone) return Tell(number, error);
  if (data == NULL) return Tell(number, kQiroK7MErrorFragmentNotFound); /* In another segment. */
  const int ok = Answer(folder, number, data, size);
  if (ok) printf("fragment %s: %" PRIu32 " bytes\n", number, size);
  Release(NULL, data);
  return ok;
}

static int Serve(FILE* file, FILE* index, char** arguments, int count) {
  const QiroK7MIStreamCallBacks fileStream = StdioInput(file);
  QiroK7MIStreamCallBacks indexStream = fileStream;
  if (index != NULL) indexStream = StdioInput(index);
  const QiroK7MAllocatorCallBacks memory = {
      .size = sizeof memory, .allocate = Allocate, .release = Release};

  QiroK7RQueryServicer* servicer = NULL;
  const QiroK7MError error = QiroK7RQueryServicerCreate(
      &fileStream, index != NULL ? &indexStream : NULL, &memory, &servicer);
  if (error != kQiroK7MErrorNone) return Tell(arguments[1], error);
  int ok = 1;
  for (int i = 4; i < count; ++i) {
    /* A failure leaves the servicer as it was. */
    if (!ServeOne(servicer, arguments[3], arguments[i])) ok = 0;
  }
  QiroK7RCloseQueryServicer(servicer);
  return ok;
}

int main(int count, char** arguments) {
  if (count < 5) {
    fprintf(stderr, "usage: serve_fragment FILE INDEX OUTFOLDER NUMBER...\n");
    return 2;
  }
  const int hasIndex = strcmp(arguments[2], "-") != 0;
  FILE* file = fopen(arguments[1], "rb");
  FILE* index = hasIndex ? fopen(arguments[2], "rb") : NULL;
  int ok = 0;
  if (file == NULL || (hasIndex && index == NULL)) {
    fprintf(stderr, "%s: cannot be read\n", arguments[file == NULL ? 1 : 2]);
  } else {
    ok = Serve(file, index, arguments, count);
  }
  if (index != NULL) fclose(index);
  if (file != NULL) fclose(file);
  return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}

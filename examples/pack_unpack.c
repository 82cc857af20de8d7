/* Packs a folder into a format-1 archive and unpacks it again through
 * velzip's C interface, printing progress and the library's warnings.
 *   pack_unpack_c FOLDER ARCHIVE DEST */
#include <stdarg.h>
#include <stdio.h>
#include <velzip/velzip.h>

/* State 1 starts an entry, 2 reports bytes, 3 ends it. */
static ZLibCallbackAction progress(ZLibCBData* d) {
  unsigned long long* bytes = d->userData;
  if (d->state == kZLibStateEntryData) *bytes += d->bytes;
  if (d->state == kZLibStateEntryDone && d->entryName != NULL) {
    printf("%12llu  %s\n", *bytes, d->entryName);
  }
  return kZLibContinue;
}

static int32_t logLine(int32_t level, const char* module, const char* component, const char* tag1,
                       const char* tag2, const char* format, ...) {
  va_list ap;
  (void)module, (void)tag1, (void)tag2;
  if (level < kLogLevelWarning) return 0;
  fprintf(stderr, "%s: ", component);
  va_start(ap, format);
  vfprintf(stderr, format, ap);
  va_end(ap);
  fputc('\n', stderr);
  return 0;
}

int main(int argc, char** argv) {
  unsigned long long bytes = 0;
  if (argc != 4) {
    fprintf(stderr, "usage: %s FOLDER ARCHIVE DEST\n", argv[0]);
    return 2;
  }
  velzipSetLogger((void*)logLine, NULL);
  /* Packing through the C interface reports no progress. */
  if (velzipCompressFolder(argv[1], argv[2], 1, progress, &bytes) != 0) return 1;
  if (velzipDecompressFile(argv[2], argv[3], 1, progress, &bytes) != 0) return 1;
  printf("%llu bytes unpacked from %s into %s\n", bytes, argv[2], argv[3]);
  return 0;
}

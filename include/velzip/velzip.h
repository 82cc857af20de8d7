/* velzip: the C interface.
 *
 * Formats: 0 is an ordinary deflate zip; 1 is a zip of stored entries holding
 * an LZMA2 payload. Functions return 0 on success and 1 on failure. */
#ifndef VELZIP_VELZIP_H
#define VELZIP_VELZIP_H

#include <stdint.h>

#include "velzip/callbacks.h"
#include "velzip/export.h"
#include "velzip/log.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Installs the archive sink (when logFn is not null) and the utilities' sink
 * and logger object (always, null clears). Always 0. */
VELZIP_API int32_t velzipSetLogger(void* logFn, void* logger);

/* Packs the folder source. Format 1 writes archive with names relative to the
 * folder; format 0 always writes source + ".zip" (archive is only checked for
 * null). The callback is installed but never called during compression. */
VELZIP_API int32_t velzipCompressFolder(const char* source, const char* archive, int32_t format,
                                        ZLibCallback callback, void* userData);

/* Unpacks archive into destination, keeping each entry's mode. */
VELZIP_API int32_t velzipDecompressFile(const char* archive, const char* destination,
                                        int32_t format, ZLibCallback callback, void* userData);

#ifdef __cplusplus
}
#endif

#endif /* VELZIP_VELZIP_H */

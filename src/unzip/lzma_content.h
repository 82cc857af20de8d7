// Regular entries of format-1 archives: an LZMA2 payload whose restored size
// is the decimal text of the local extra field.
#ifndef VELZIP_UNZIP_LZMA_CONTENT_H
#define VELZIP_UNZIP_LZMA_CONTENT_H

#include "unzip/reader_core.h"

namespace velzip {

constexpr int kDecodeError = -103;

// Decodes the whole entry into one buffer of its size plus 64 KiB and
// writes it with a single write once the payload is consumed.
ContentOutcome writeLzmaContent(ReaderCore& core, FILE* out, const char* path);

}  // namespace velzip

#endif  // VELZIP_UNZIP_LZMA_CONTENT_H

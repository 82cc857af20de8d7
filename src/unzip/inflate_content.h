// Regular entries of format-0 archives: whatever the zip layer decodes
// (stored or deflated) is the content.
#ifndef VELZIP_UNZIP_INFLATE_CONTENT_H
#define VELZIP_UNZIP_INFLATE_CONTENT_H

#include "unzip/reader_core.h"

namespace velzip {

// Writes each 64 KiB chunk as soon as it is read, so memory stays at one
// chunk and an interrupted entry keeps the chunks written before.
ContentOutcome writeInflatedContent(ReaderCore& core, FILE* out, const char* path);

}  // namespace velzip

#endif  // VELZIP_UNZIP_INFLATE_CONTENT_H

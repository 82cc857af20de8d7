// The one place where a reader opens the current entry's data, so that the
// password handling lives in a single function.
#ifndef VELZIP_UNZIP_OPEN_ENTRY_H
#define VELZIP_UNZIP_OPEN_ENTRY_H

#include <minizip/unzip.h>

namespace velzip {

// 0 on success, else the zip layer's (negative) code.
int openCurrentEntry(unzFile zip, const char* password);

}  // namespace velzip

#endif  // VELZIP_UNZIP_OPEN_ENTRY_H

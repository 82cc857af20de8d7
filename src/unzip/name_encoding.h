// Entry names in UTF-8 whatever the writer used: the Info-ZIP Unicode Path
// field when it still matches the stored name, else the stored bytes, taken
// as code page 437 when they are not UTF-8 and come from a host whose zip
// tools wrote names that way.
#ifndef VELZIP_UNZIP_NAME_ENCODING_H
#define VELZIP_UNZIP_NAME_ENCODING_H

#include <string>

#include "unzip/zip_record.h"

namespace velzip {

// The entry's name in UTF-8, before any '\' is turned into '/'.
std::string decodedName(const ZipEntryRecord& rec);

// True when text is well-formed UTF-8 (no overlong forms, no surrogates,
// nothing past U+10FFFF).
bool isValidUtf8(const std::string& text);

// Each byte of text as the character code page 437 gives it, in UTF-8.
std::string cp437ToUtf8(const std::string& text);

}  // namespace velzip

#endif  // VELZIP_UNZIP_NAME_ENCODING_H

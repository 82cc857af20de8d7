// The extended-timestamp extra block (tag 0x5455) that zip tools read for a
// modification time in UTC to the second, where the DOS time of an entry is
// local time to two seconds.
#ifndef VELZIP_ZIP_TIMESTAMP_EXTRA_H
#define VELZIP_ZIP_TIMESTAMP_EXTRA_H

#include <ctime>
#include <string>

namespace velzip {

// The 9-byte block with the modification time only (flags 1), the same in
// local headers and central records. Empty for a time outside the signed
// 32-bit range, which tools read differently.
std::string modificationTimeExtra(time_t mtime);

}  // namespace velzip

#endif  // VELZIP_ZIP_TIMESTAMP_EXTRA_H

// velzip: the records both archive readers share.
#ifndef VELZIP_UZ_FILEINFO_H
#define VELZIP_UZ_FILEINFO_H

#include <cstdint>
#include <string>

// One archive entry as a reader describes it. Sizes are the zip layer's,
// cut to 32 bits; getUnzipSize adds the full values.
struct UZ_FileInfo {
  char fileName[1025];  // as stored (first 1024 bytes), every '\' turned into '/'
  char comment[255];    // always terminated
  uint32_t version;
  uint32_t versionNeeded;
  uint32_t flag;
  uint32_t compressionMethod;
  uint32_t dosDate;
  uint32_t crc;
  uint32_t compressedSize;
  uint32_t uncompressedSize;
  uint32_t internalAttributes;
  uint32_t mode;     // Unix st_mode from the upper half of the external attributes
  bool isDirectory;  // fileName ends in '/'
};

namespace velzip {

// A symbolic link a reader makes only after every other entry is written.
struct DeferredLink {
  std::string linkTarget;
  std::string entryName;  // what the callback is told
  uint32_t mode = 0;      // the entry's mode or the caller's override
};

}  // namespace velzip

#endif  // VELZIP_UZ_FILEINFO_H

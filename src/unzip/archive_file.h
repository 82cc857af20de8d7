// The archive file as the readers read entries from it: their records and
// their data, by position, through a descriptor of velzip's own. The system
// zip layer still walks the central directory; everything it gets wrong
// beyond that (zip64 fields, methods it cannot decode) is read here.
#ifndef VELZIP_UNZIP_ARCHIVE_FILE_H
#define VELZIP_UNZIP_ARCHIVE_FILE_H

#include <minizip/ioapi.h>

#include <cstdint>
#include <string>
#include <vector>

#include "frame/handles.h"
#include "unzip/zip_record.h"

namespace velzip {

// Where an entry's data is, from its local header.
struct LocalEntry {
  uint64_t dataOffset = 0;  // in the file
  std::string extra;        // the local extra field
  std::string data;         // the entry's data when it was read with the header, else empty
};

class ArchiveFile {
 public:
  // Opens path and finds its end of central directory record. False with
  // errno set (EINVAL for a file that is not a zip archive).
  bool open(const char* path);
  void close();
  bool isOpen() const { return fd_.ok(); }
  int fd() const { return fd_.get(); }
  uint64_t size() const { return size_; }

  // The record at centralOffset, an offset as the zip layer counts it (from
  // the start of the archive, which need not be the start of the file).
  // False with a reason when it cannot be read or is damaged.
  bool readCentral(uint64_t centralOffset, ZipEntryRecord& rec, std::string& why) const;
  // Checks rec's local header and finds its data, which must lie within the
  // file; withData also reads small data into out.data in the same call.
  bool readLocal(const ZipEntryRecord& rec, LocalEntry& out, std::string& why,
                 bool withData = false) const;

  // pread that retries on interruption and short counts; the bytes read.
  // The central directory is answered from memory.
  ssize_t readAt(uint64_t offset, void* buf, size_t size) const;

  // File functions through which the zip layer reads this same file: its
  // walks of the central directory then cost no system call. Valid while
  // this object is open; the layer may open one stream at a time.
  zlib_filefunc64_def* zipFunctions();

 private:
  // The zip layer's stream: a position in the file.
  struct Cursor {
    const ArchiveFile* file = nullptr;
    uint64_t position = 0;
    bool failed = false;
  };

  static uLong readCursor(voidpf opaque, voidpf stream, void* buf, uLong size);
  static long seekCursor(voidpf opaque, voidpf stream, ZPOS64_T offset, int origin);

  bool locateDirectory();
  void cacheDirectory(uint64_t from);

  UniqueFd fd_;
  uint64_t size_ = 0;
  uint64_t shift_ = 0;  // bytes in front of the archive (a self-extractor's stub)
  uint64_t cacheStart_ = 0;
  std::vector<uint8_t> cache_;  // the file from the central directory to its end
  Cursor cursor_;
  zlib_filefunc64_def functions_{};
};

}  // namespace velzip

#endif  // VELZIP_UNZIP_ARCHIVE_FILE_H

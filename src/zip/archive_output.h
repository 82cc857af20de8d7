// The file a writer builds an archive in. It is staged beside the archive's
// path and only put there, whole, when the archive is published: until then
// whatever stood at the path is untouched, and a failure, an abandoned
// archive or a killed process leaves it as it was.
//
// The zip layer writes through the functions below, into a buffer in front
// of the staged descriptor: entry headers are small writes that the zip layer
// goes back to patch, and they coalesce there instead of costing a system
// call each. A failed write is remembered with its errno; from then on the
// archive can no longer be published.
#ifndef VELZIP_ZIP_ARCHIVE_OUTPUT_H
#define VELZIP_ZIP_ARCHIVE_OUTPUT_H

#include <minizip/ioapi.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "frame/handles.h"
#include "frame/staged_file.h"

namespace velzip {

class ArchiveOutput {
 public:
  ArchiveOutput();
  ~ArchiveOutput() { discard(); }
  ArchiveOutput(const ArchiveOutput&) = delete;
  ArchiveOutput& operator=(const ArchiveOutput&) = delete;

  // Stages a new archive for the absolute path. With append, the new file
  // starts as a copy of the file at path, if there is one. False with the
  // reason in why ("cannot create /x/a.zip: Permission denied").
  bool create(const std::string& path, bool append, std::string& why);
  // True when create copied existing bytes: the zip layer writes after them.
  bool continuesExisting() const { return continues_; }
  // Replacing an existing file, which is synced before it is replaced.
  bool replacesExisting() const { return replaces_; }
  // Hands the zip layer this output; pass to zipOpen2_64.
  zlib_filefunc64_def* functions() { return &functions_; }
  // The archive's folder (for payloads that spill beside it); -1 when closed.
  int folder() const { return folder_.get(); }

  // errno of the first failed write or read, 0 while there was none.
  int error() const { return error_; }
  void fail(int err) {
    if (error_ == 0) error_ = err;
  }
  // Writes go nowhere from now on and succeed: lets the zip layer finish
  // an archive that is to be discarded.
  void dropWrites() { dropping_ = true; }

  // Once the zip layer has finished: adds the zip64 end records it leaves
  // out for more than 65,534 entries. False when that fails (error() says why).
  bool completeEnd(uint64_t entries);
  // Puts the archive at its path. False with errno set; discard() then
  // removes the staged file.
  bool publish();
  // Forgets the staged file; the path keeps what it had.
  void discard();

 private:
  static voidpf onOpen(voidpf opaque, const void* name, int mode);
  static uLong onRead(voidpf opaque, voidpf stream, void* buf, uLong size);
  static uLong onWrite(voidpf opaque, voidpf stream, const void* buf, uLong size);
  static ZPOS64_T onTell(voidpf opaque, voidpf stream);
  static long onSeek(voidpf opaque, voidpf stream, ZPOS64_T offset, int origin);
  static int onClose(voidpf opaque, voidpf stream);
  static int onError(voidpf opaque, voidpf stream);

  bool copyExisting(const std::string& path, std::string& why);
  size_t write(const uint8_t* data, size_t size);
  size_t read(uint8_t* data, size_t size);
  bool flush();

  UniqueFd folder_;
  std::string name_;  // within folder_
  StagedFile staged_;
  bool continues_ = false;
  bool replaces_ = false;
  bool dropping_ = false;
  int error_ = 0;
  uint64_t pos_ = 0;  // where the zip layer writes next
  uint64_t end_ = 0;  // the file's length, buffered bytes included
  std::unique_ptr<uint8_t[]> buffer_;
  uint64_t bufferStart_ = 0;  // file offset of buffer_[0]
  size_t buffered_ = 0;
  zlib_filefunc64_def functions_{};
};

}  // namespace velzip

#endif  // VELZIP_ZIP_ARCHIVE_OUTPUT_H

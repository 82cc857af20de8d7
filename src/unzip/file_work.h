// One regular file on its way out of the archive: decoded into a staged file
// in its folder, then published. Decoding touches no reader state and may
// run on a worker thread; what the callback and the log must hear is kept
// for the caller's thread to tell, in archive order.
#ifndef VELZIP_UNZIP_FILE_WORK_H
#define VELZIP_UNZIP_FILE_WORK_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "frame/staged_file.h"
#include "unzip/content.h"
#include "unzip/destination.h"
#include "unzip/zip_record.h"

namespace velzip {

class ArchiveFile;

struct FileWork {
  // Filled by the caller before decoding.
  ZipEntryRecord rec;
  FolderFd dir;  // where the file is staged: its folder, or one above it on the same file system
  uint32_t mode = 0;  // applied to the file on success
  // The entry's time as the central record gives it (a timestamp field, else
  // the DOS time, which needs the time zone and so the caller's thread); a
  // timestamp field in the local header wins over a DOS time.
  int64_t modTime = 0;
  bool modTimeFromCentral = false;
  // Results.
  bool opened = false;
  std::string openWhy;    // why the entry could not be opened
  int createError = 0;    // errno when no staged file could be made
  int createRetries = 0;  // transient failures before the staged file was made
  int retryError = 0;     // the errno of the last of them
  ContentOutcome outcome;
  std::string finishWhy;  // why mode or time could not be set
  StagedFile staged;
  std::vector<uint64_t> reports;  // data reports held back for the caller's thread

  bool succeeded() const { return opened && createError == 0 && outcome.ok() && finishWhy.empty(); }
};

// Called with each data report; false stops the entry as an abort.
using DataReporter = std::function<bool(uint64_t bytes)>;

// Opens work.rec, stages its content in work.dir and, on success, gives the
// staged file its mode and modification time. Transient creation errors
// are retried; onRetry (may be empty) hears each one.
void decodeFile(const ArchiveFile& archive, const char* password, ContentWriter writer,
                FileWork& work, const DataReporter& report,
                const std::function<void(int err)>& onRetry);

}  // namespace velzip

#endif  // VELZIP_UNZIP_FILE_WORK_H

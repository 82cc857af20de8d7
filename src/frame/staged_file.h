// A file that is written under no name and appears under its final name only
// when it is complete. Extraction and archive writing both use it, so that a
// failure, an abort or a killed process never leaves a half-written file
// where a good one stood.
//
// The file is made in the folder it will be published in (a rename never
// crosses file systems): unnamed (O_TMPFILE) where the file system allows,
// else under a unique hidden name that is removed on every way out.
#ifndef VELZIP_FRAME_STAGED_FILE_H
#define VELZIP_FRAME_STAGED_FILE_H

#include <sys/types.h>

#include <string>

#include "frame/handles.h"

namespace velzip {

class StagedFile {
 public:
  StagedFile() = default;
  ~StagedFile() { discard(); }
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;

  // Creates the file in the folder dirFd (a descriptor or AT_FDCWD), open for
  // reading and writing, with mode (less the umask). False with errno set.
  bool create(int dirFd, mode_t mode);
  int fd() const { return fd_.get(); }
  bool ok() const { return fd_.ok(); }

  // Gives the file the name `name` in dirFd, replacing a file or link that
  // stands there (never following it); a folder there is not replaced. With
  // sync, the data reaches the disk before the name does. On success the
  // object is empty again; on failure the file stays staged, errno is set.
  bool publish(int dirFd, const char* name, bool sync = false);
  // Closes and forgets the file; nothing of it remains.
  void discard();

 private:
  bool linkUnnamed(int dirFd, const char* name);

  UniqueFd fd_;
  int dirFd_ = -1;          // where a named stage lives (borrowed)
  std::string stagedName_;  // empty for an unnamed file
};

// A fresh name for something staged beside its target: ".velzip-" and a
// random suffix. Never the name of anything existing at the time it is used
// with an exclusive create.
std::string stagingName();

}  // namespace velzip

#endif  // VELZIP_FRAME_STAGED_FILE_H

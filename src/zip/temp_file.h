// Descriptors and temporary files the writers own while one entry is made.
#ifndef VELZIP_ZIP_TEMP_FILE_H
#define VELZIP_ZIP_TEMP_FILE_H

#include <unistd.h>

#include <string>

#include "frame/handles.h"

namespace velzip {

// A file made exclusively (never an existing file or link), mode 0600, open
// for reading and writing, and removed again when this object goes.
class TempFile {
 public:
  TempFile() = default;
  ~TempFile() { remove(); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  // Creates exactly path. False (nothing made) when it exists or cannot be made.
  bool create(const std::string& path);
  // Creates a fresh name from a template ending in "XXXXXX".
  bool createFromTemplate(const char* pattern);

  int fd() const { return fd_.get(); }
  const std::string& path() const { return path_; }
  bool exists() const { return !path_.empty(); }
  // Empties the file for reuse, positioned at its start.
  bool rewind();
  // Closes and deletes the file; true when nothing is left behind.
  bool remove();

 private:
  UniqueFd fd_;
  std::string path_;
};

}  // namespace velzip

#endif  // VELZIP_ZIP_TEMP_FILE_H

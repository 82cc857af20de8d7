#include "zip/temp_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <vector>

#include "velzip/FileUtils.h"

namespace velzip {

bool TempFile::create(const std::string& path) {
  remove();
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  fd_.reset(fd);
  path_ = path;
  return true;
}

bool TempFile::createFromTemplate(const char* pattern) {
  remove();
  std::vector<char> name(pattern, pattern + std::char_traits<char>::length(pattern) + 1);
  // mkostemp opens with O_EXCL and mode 0600.
  const int fd = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return false;
  fd_.reset(fd);
  path_ = name.data();
  return true;
}

bool TempFile::rewind() {
  return fd_.ok() && ::ftruncate(fd_.get(), 0) == 0 && ::lseek(fd_.get(), 0, SEEK_SET) == 0;
}

bool TempFile::remove() {
  fd_.reset();
  if (path_.empty()) return true;
  const bool gone = UlvoUtils::FileUtils::DeleteFileAtPath(path_, false, nullptr);
  path_.clear();
  return gone;
}

}  // namespace velzip

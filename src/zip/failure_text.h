// How the writers word a failure: what failed, on which path, and why.
#ifndef VELZIP_ZIP_FAILURE_TEXT_H
#define VELZIP_ZIP_FAILURE_TEXT_H

#include <sys/stat.h>

#include <cstring>
#include <string>

namespace velzip {

// "cannot read /x/f: Permission denied"
inline std::string failureText(const std::string& what, const std::string& path, int err) {
  return what + " " + path + ": " + std::strerror(err);
}

// "cannot add /x/fifo: it is a fifo, not a regular file"
inline std::string notRegular(const char* path, mode_t mode) {
  const char* kind = S_ISDIR(mode)    ? "a folder"
                     : S_ISFIFO(mode) ? "a fifo"
                     : S_ISSOCK(mode) ? "a socket"
                     : S_ISCHR(mode)  ? "a character device"
                     : S_ISBLK(mode)  ? "a block device"
                                      : "of an unknown kind";
  return std::string("cannot add ") + path + ": it is " + kind + ", not a regular file";
}

}  // namespace velzip

#endif  // VELZIP_ZIP_FAILURE_TEXT_H

// How the writers word a failure: what failed, on which path, and why.
#ifndef VELZIP_ZIP_FAILURE_TEXT_H
#define VELZIP_ZIP_FAILURE_TEXT_H

#include <cstring>
#include <string>

namespace velzip {

// "cannot read /x/f: Permission denied"
inline std::string failureText(const std::string& what, const std::string& path, int err) {
  return what + " " + path + ": " + std::strerror(err);
}

}  // namespace velzip

#endif  // VELZIP_ZIP_FAILURE_TEXT_H

#include "paths.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace velzip_tool {

std::string absolutePath(const std::string& path) {
  std::string joined = path;
  if (path.empty() || path[0] != '/') {
    char cwd[PATH_MAX];
    joined = (getcwd(cwd, sizeof cwd) != nullptr ? std::string(cwd) : std::string()) + "/" + path;
  }
  std::string out;
  size_t i = 0;
  while (i < joined.size()) {
    size_t j = joined.find('/', i);
    if (j == std::string::npos) j = joined.size();
    const std::string part = joined.substr(i, j - i);
    if (!part.empty() && part != ".") out += "/" + part;
    i = j + 1;
  }
  return out.empty() ? "/" : out;
}

std::string parentOf(const std::string& absPath) {
  const size_t slash = absPath.rfind('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return absPath.substr(0, slash);
}

std::string lastComponent(const std::string& absPath) {
  return absPath.substr(absPath.rfind('/') + 1);
}

std::string realPath(const std::string& path) {
  char buf[PATH_MAX];
  return realpath(path.c_str(), buf) != nullptr ? std::string(buf) : std::string();
}

bool isInside(const std::string& path, const std::string& folder) {
  if (folder == "/") return true;
  return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

std::string errnoText() {
  return std::strerror(errno);
}

std::string asGiven(std::string text, const std::string& absolute, const std::string& given) {
  for (size_t at = text.find(absolute); at != std::string::npos;
       at = text.find(absolute, at + given.size())) {
    text.replace(at, absolute.size(), given);
  }
  return text;
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace velzip_tool

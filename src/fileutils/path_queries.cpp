#include <dirent.h>
#include <libgen.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <vector>

#include "fileutils/internal.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

bool PathExists(const std::string& path, void* /*logger*/) {
  struct stat st;
  return !path.empty() && stat(path.c_str(), &st) == 0;
}

bool PathExists(const std::string& path, bool& isDirectory, void* /*logger*/) {
  struct stat st;
  bool exists = !path.empty() && stat(path.c_str(), &st) == 0;
  isDirectory = exists && S_ISDIR(st.st_mode);
  return exists;
}

bool isDirectoryEmpty(const std::string& path) {
  if (path.empty()) return false;
  velzip::fileutils::DirHandle dir(opendir(path.c_str()));
  if (!dir) return false;
  size_t entries = 0;
  bool onlyFinderFile = true;
  while (const dirent* entry = readdir(dir.get())) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    ++entries;
    if (strcmp(entry->d_name, ".DS_Store") != 0) onlyFinderFile = false;
  }
  return entries == 0 || (entries == 1 && onlyFinderFile);
}

std::string GetExistentParentDirectory(std::string path) {
  // The walk from "" would never reach anything that exists.
  while (!path.empty() && !PathExists(path, nullptr)) {
    std::vector<char> buf(path.c_str(), path.c_str() + path.size() + 1);
    std::string parent = dirname(buf.data());
    if (parent == path) break;  // "." or "/" gone missing: stop rather than spin
    path = parent;
  }
  return path;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "fileutils/internal.h"
#include "frame/log_emit.h"
#include "velzip/FileUtils.h"

namespace velzip {
namespace fileutils {

namespace {

// Works relative to open folders so a link swapped in mid-walk is removed, not followed.
int removeAt(int parent, const char* name) {
  struct stat st;
  if (fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (!S_ISDIR(st.st_mode)) return unlinkat(parent, name, 0) == 0 ? 0 : errno;

  int first = 0;
  int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  DirHandle dir(fd >= 0 ? fdopendir(fd) : nullptr);
  if (!dir) {
    first = errno;
    if (fd >= 0) close(fd);
  } else {
    // Names first: removing while reading may make readdir skip entries.
    std::vector<std::string> names;
    while (const dirent* entry = readdir(dir.get())) {
      if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
        names.emplace_back(entry->d_name);
    }
    for (const std::string& child : names) {
      int err = removeAt(dirfd(dir.get()), child.c_str());
      if (first == 0) first = err;
    }
  }
  if (unlinkat(parent, name, AT_REMOVEDIR) != 0 && first == 0) first = errno;
  return first;
}

}  // namespace

int removeTree(const std::string& path) {
  if (path.empty()) return ENOENT;
  return removeAt(AT_FDCWD, path.c_str());
}

}  // namespace fileutils
}  // namespace velzip

namespace UlvoUtils {
namespace FileUtils {

using velzip::logUtility;
using velzip::fileutils::kComponent;

bool DeleteDirectoryAtPath(const std::string& path, std::string&, bool recursive, bool,
                           void* logger, bool logSuccess) {
  if (path.empty()) return false;
  // An unreadable listing (a plain file, say) counts as empty and goes on to removal.
  if (!recursive) {
    velzip::fileutils::DirHandle dir(opendir(path.c_str()));
    while (dir) {
      const dirent* entry = readdir(dir.get());
      if (entry == nullptr) break;
      if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) return false;
    }
  }
  int err = velzip::fileutils::removeTree(path);
  if (err != 0) {
    std::string description = velzip::fileutils::errorText(err);
    logUtility(logger, kLogLevelWarning, kComponent, "Failed to remove file. Error: %s",
               description.c_str());
    return false;
  }
  if (logSuccess) {
    logUtility(logger, kLogLevelInfo, kComponent,
               "Successfully deleted directory from path: %s. Recursive: %d", path.c_str(),
               recursive ? 1 : 0);
  }
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "fileutils/internal.h"
#include "frame/log_emit.h"
#include "velzip/FileUtils.h"

namespace velzip {
namespace fileutils {

namespace {

// 0 if path is (or links to) a folder, ENOENT if nothing is there, else ENOTDIR.
int folderState(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return errno == ENOENT ? ENOENT : errno;
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

int makeOne(const std::string& path, mode_t mode,
            const std::function<int(const std::string&)>& onCreated) {
  int state = folderState(path);
  if (state != ENOENT) return state;
  if (mkdir(path.c_str(), mode) != 0) {
    int err = errno;
    // Someone else may have made it meanwhile.
    return err == EEXIST ? folderState(path) : err;
  }
  return onCreated ? onCreated(path) : 0;
}

}  // namespace

int makeDirectories(const std::string& path, mode_t mode,
                    const std::function<int(const std::string&)>& onCreated) {
  if (path.empty()) return ENOENT;
  // Refused up front, or the parents that do fit would be left behind.
  if (path.size() >= PATH_MAX) return ENAMETOOLONG;
  size_t pos = 0;
  while (pos < path.size()) {
    size_t slash = path.find('/', pos);
    if (slash == std::string::npos) slash = path.size();
    // Empty and "/" prefixes (leading or doubled separators) need no folder.
    if (slash > pos) {
      int err = makeOne(path.substr(0, slash), mode, onCreated);
      if (err != 0) return err;
    }
    pos = slash + 1;
  }
  return 0;
}

}  // namespace fileutils
}  // namespace velzip

namespace UlvoUtils {
namespace FileUtils {

using velzip::logUtility;
using velzip::fileutils::kComponent;

bool CreateDirectoryAtPath(const std::string& path, bool shouldSetPermission, void* logger) {
  return CreateDirectoryAtPathEx(path, logger, shouldSetPermission);
}

bool CreateDirectoryAtPathEx(const std::string& path, void* logger, bool shouldSetPermission) {
  int err;
  if (!shouldSetPermission) {
    err = velzip::fileutils::makeDirectories(path, 0777);
  } else {
    std::string ancestor = GetExistentParentDirectory(path);
    logUtility(logger, kLogLevelInfo, kComponent,
               " shouldSetPermission is true, parent folder found  =  %s ", ancestor.c_str());
    struct stat st = {};
    bool takeOwner = false;
    if (lstat(ancestor.c_str(), &st) == 0 && !S_ISLNK(st.st_mode)) {
      logUtility(logger, kLogLevelInfo, kComponent,
                 "shouldSetPermission is true,owner =%d,group =%d", static_cast<int>(st.st_uid),
                 static_cast<int>(st.st_gid));
      takeOwner = true;
    }
    const uid_t uid = st.st_uid;
    const gid_t gid = st.st_gid;
    // Only root may give a folder away; for anyone else that part is best effort.
    const bool mustOwn = geteuid() == 0;
    err = velzip::fileutils::makeDirectories(path, 0775, [&](const std::string& made) {
      if (takeOwner && chown(made.c_str(), uid, gid) != 0 && mustOwn) return errno;
      // mkdir's mode went through the umask.
      return chmod(made.c_str(), 0775) == 0 ? 0 : errno;
    });
  }
  if (err == 0) return true;
  std::string description = velzip::fileutils::errorText(err);
  logUtility(logger, kLogLevelError, kComponent, "Failed to create directory at path ex %s ",
             path.c_str(), description.c_str());
  return false;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

#include <libgen.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "fileutils/internal.h"
#include "frame/log_emit.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

using velzip::logUtility;
using velzip::fileutils::kComponent;

bool RenamePathToPath(const std::string& from, const std::string& to, bool, void* logger) {
  if (rename(from.c_str(), to.c_str()) == 0) return true;
  int err = errno;
  std::string text = velzip::fileutils::errorText(err);
  logUtility(logger, kLogLevelError, kComponent,
             "Failed to rename Error code (%d:%s) the directory from %s to %s.", err, text.c_str(),
             from.c_str(), to.c_str());
  return false;
}

bool FlushFileBuffers(const std::string& /*path*/) {
  return true;
}

bool GetFileSize(const std::string& path, unsigned long long& size) {
  size = 0;
  struct stat st;
  if (path.empty() || lstat(path.c_str(), &st) != 0) return false;
  size = static_cast<unsigned long long>(st.st_size);
  return true;
}

bool DeleteFileAtPath(const std::string& path, bool, void* /*logger*/) {
  if (!PathExists(path, nullptr)) return true;
  return remove(path.c_str()) == 0;
}

bool SetMode(const std::string& path, int mode) {
  return chmod(path.c_str(), static_cast<mode_t>(mode & 0xFFFF)) == 0;
}

bool CopyFileFromSourceToDestination(const std::string& src, const std::string& dst, bool overwrite,
                                     bool, bool, void* logger) {
  bool srcIsDirectory = false;
  // The test is on the source on purpose: a missing destination deletes trivially.
  if (overwrite && PathExists(src, srcIsDirectory, nullptr) && !srcIsDirectory &&
      !DeleteFileAtPath(dst, false, nullptr)) {
    logUtility(logger, kLogLevelError, kComponent, "Unable to delete destination file '%s'.",
               dst.c_str());
    return false;
  }
  std::vector<char> buf(dst.c_str(), dst.c_str() + dst.size() + 1);
  CreateDirectoryAtPathEx(dirname(buf.data()), nullptr, false);

  struct stat st;
  bool copied = !src.empty() && !dst.empty() && lstat(dst.c_str(), &st) != 0 && errno == ENOENT &&
                velzip::fileutils::copyTree(src, dst, false, false);
  if (copied) return true;
  logUtility(logger, kLogLevelError, kComponent,
             "Error Failed to copy src file '%s' to dst file '%s'.", src.c_str(), dst.c_str());
  return false;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

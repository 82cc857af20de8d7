#include <sys/stat.h>
#include <unistd.h>

#include "fileutils/internal.h"
#include "frame/log_emit.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

using velzip::logUtility;
using velzip::fileutils::kComponent;

constexpr const char* kOpener = "/usr/bin/xdg-open";

// The three share their line on purpose.
bool existingFolder(const std::string& path, void* logger) {
  bool isDirectory = false;
  if (PathExists(path, isDirectory, nullptr) && isDirectory) return true;
  logUtility(logger, kLogLevelWarning, kComponent, "Directory to open not present at location '%s'",
             path.c_str());
  return false;
}

// Linux keeps no hidden flag, so hiding has nothing to change.
bool setHidden(const std::string& path, void* logger) {
  if (!existingFolder(path, logger)) return false;
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

}  // namespace

bool HideDirectoryAtPath(const std::string& path, void* logger) {
  return setHidden(path, logger);
}

bool UnHideDirectoryAtPath(const std::string& path, void* logger) {
  return setHidden(path, logger);
}

bool OpenDirectoryAtPath(const std::string& path, void* logger) {
  if (!existingFolder(path, logger)) return false;
  // Whether a file browser came up is not ours to report.
  if (access(kOpener, X_OK) == 0) velzip::fileutils::spawnDetached(kOpener, {path});
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

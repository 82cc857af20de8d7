#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "fileutils/internal.h"

namespace velzip {
namespace fileutils {

namespace {

// mountinfo writes blanks, tabs, newlines and backslashes as \ooo.
std::string unescape(const std::string& field) {
  std::string out;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const std::string digits = field.substr(i + 1, 3);
      if (digits.find_first_not_of("01234567") == std::string::npos) {
        out += static_cast<char>(std::strtol(digits.c_str(), nullptr, 8));
        i += 3;
        continue;
      }
    }
    out += field[i];
  }
  return out;
}

// Is mountPoint the path itself or a folder above it?
bool covers(const std::string& mountPoint, const std::string& path) {
  if (mountPoint == "/") return true;
  return path.compare(0, mountPoint.size(), mountPoint) == 0 &&
         (path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
}

}  // namespace

bool findMountOf(const std::string& path, MountEntry& entry) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return false;
  std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
  if (!real) return false;
  const std::string target = real.get();

  std::ifstream in("/proc/self/mountinfo");
  std::string line;
  bool found = false;
  bool foundSameDevice = false;
  // The deepest mount over the path; one of the same device wins over any
  // other, since a later mount may hide part of the tree.
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string id, parent, device, root, mountPoint, field;
    if (!(fields >> id >> parent >> device >> root >> mountPoint)) continue;
    while (fields >> field && field != "-") {
    }
    MountEntry candidate;
    if (!(fields >> candidate.fsType >> candidate.source)) continue;
    candidate.mountPoint = unescape(mountPoint);
    candidate.source = unescape(candidate.source);
    if (!covers(candidate.mountPoint, target)) continue;
    unsigned major = 0, minor = 0;
    bool sameDevice = std::sscanf(device.c_str(), "%u:%u", &major, &minor) == 2 &&
                      makedev(major, minor) == st.st_dev;
    if (foundSameDevice && !sameDevice) continue;
    if (found && sameDevice == foundSameDevice &&
        candidate.mountPoint.size() < entry.mountPoint.size()) {
      continue;
    }
    entry = candidate;
    found = true;
    foundSameDevice = sameDevice;
  }
  return found;
}

}  // namespace fileutils
}  // namespace velzip

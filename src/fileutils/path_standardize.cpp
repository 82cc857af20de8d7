#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/folder_lookup.h"
#include "velzip/FileUtils.h"
#include "velzip/StringUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

bool homeOfUser(const std::string& name, std::string& home) {
  if (name.empty()) return velzip::homeFolderOf(geteuid(), home);
  long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buf(hint > 0 ? static_cast<size_t>(hint) : 16384);
  struct passwd pw;
  struct passwd* found = nullptr;
  if (getpwnam_r(name.c_str(), &pw, buf.data(), buf.size(), &found) != 0 || found == nullptr ||
      pw.pw_dir == nullptr) {
    return false;
  }
  home = pw.pw_dir;
  return true;
}

// "~" and "~user" from the password database; an unknown user stays as written.
std::string expandTilde(const std::string& path) {
  if (path.empty() || path[0] != '~') return path;
  size_t slash = path.find('/');
  std::string home;
  if (!homeOfUser(path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1), home))
    return path;
  return slash == std::string::npos ? home : home + path.substr(slash);
}

// The folder that really holds prefix/.., found through the links on the way.
std::string realParent(const std::string& prefix) {
  std::unique_ptr<char, decltype(&free)> real(realpath(prefix.c_str(), nullptr), &free);
  std::string base = real ? std::string(real.get()) : prefix;
  size_t slash = base.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return base.substr(0, slash);
}

}  // namespace

bool ConvertPathToOSPath(std::string& path) {
  StringUtils::Replace(path, "\\", "/");
  const std::string expanded = expandTilde(path);
  if (expanded.empty()) {
    path = expanded;
    return true;
  }
  const bool absolute = expanded[0] == '/';
  std::string out = absolute ? "/" : "";
  size_t pos = 0;
  while (pos <= expanded.size()) {
    size_t slash = expanded.find('/', pos);
    if (slash == std::string::npos) slash = expanded.size();
    const std::string part = expanded.substr(pos, slash - pos);
    pos = slash + 1;
    if (part.empty() || part == ".") continue;
    if (part == ".." && absolute) {
      out = out == "/" ? out : realParent(out);
      continue;
    }
    if (!out.empty() && out.back() != '/') out += '/';
    out += part;
  }
  // Only "." components: the current folder.
  path = out.empty() ? "." : out;
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

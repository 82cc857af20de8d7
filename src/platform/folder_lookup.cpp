#include "platform/folder_lookup.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "fileutils/internal.h"

namespace velzip {

namespace {

// getpwuid_r with a buffer that grows until the entry fits.
bool passwordEntry(uid_t uid, std::string* home, gid_t* gid) {
  long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buf(hint > 0 ? static_cast<size_t>(hint) : 16384);
  struct passwd pw;
  struct passwd* found = nullptr;
  for (;;) {
    int rc = getpwuid_r(uid, &pw, buf.data(), buf.size(), &found);
    if (rc == ERANGE && buf.size() < (1u << 20)) {
      buf.resize(buf.size() * 2);
      continue;
    }
    if (rc != 0 || found == nullptr) return false;
    if (home != nullptr) {
      if (pw.pw_dir == nullptr || pw.pw_dir[0] == '\0') return false;
      *home = pw.pw_dir;
    }
    if (gid != nullptr) *gid = pw.pw_gid;
    return true;
  }
}

}  // namespace

bool homeFolderOf(uid_t uid, std::string& home) {
  return passwordEntry(uid, &home, nullptr);
}

bool primaryGroupOf(uid_t uid, gid_t& gid) {
  return passwordEntry(uid, nullptr, &gid);
}

namespace {

bool userFolder(FolderType type, std::string& path) {
  std::string home;
  if (!homeFolderOf(geteuid(), home)) return false;
  switch (type) {
    case FolderType::kApplicationSupport:
      path = home + "/.local/share";
      return true;
    case FolderType::kDocuments:
      path = home + "/Documents";
      return true;
    default:
      return false;
  }
}

bool localFolder(FolderType type, std::string& path) {
  switch (type) {
    case FolderType::kApplications:
    case FolderType::kUtilities:
      path = "/opt";
      return true;
    case FolderType::kApplicationSupport:
      path = "/usr/local/share";
      return true;
    case FolderType::kSharedUserData:
      path = "/srv";
      return true;
    case FolderType::kPreferences:
      path = "/etc";
      return true;
    default:
      return false;
  }
}

}  // namespace

bool findSystemFolder(FolderDomain domain, FolderType type, std::string& out) {
  std::string path;
  bool known = domain == FolderDomain::kUser ? userFolder(type, path) : localFolder(type, path);
  if (!known) return false;
  if (fileutils::makeDirectories(path, 0777) != 0) return false;
  out = path;
  return true;
}

}  // namespace velzip

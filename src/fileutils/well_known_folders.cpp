#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "platform/console_user.h"
#include "platform/folder_lookup.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

using velzip::FolderDomain;
using velzip::FolderType;

bool lookup(FolderDomain domain, FolderType type, std::string& path) {
  return velzip::findSystemFolder(domain, type, path);
}

bool lookupConsole(FolderType type, std::string& path) {
  return velzip::findConsoleUserFolder(type, path);
}

// Strips the last component the way a path's parent is taken for display:
// "/a/b" gives "/a", "/a" gives "/".
std::string withoutLastComponent(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return std::string();
  if (slash == 0) return path.size() > 1 ? "/" : path;
  return path.substr(0, slash);
}

// The bundle a program sits in (<bundle>/Contents/MacOS/<exe>), else the
// executable itself.
bool runningProgramPath(std::string& out) {
  std::string exe(PATH_MAX, '\0');
  ssize_t n = readlink("/proc/self/exe", &exe[0], exe.size());
  if (n <= 0 || static_cast<size_t>(n) >= exe.size()) return false;
  exe.resize(static_cast<size_t>(n));
  const std::string folder = withoutLastComponent(exe);
  const std::string marker = "/Contents/MacOS";
  if (folder.size() > marker.size() &&
      folder.compare(folder.size() - marker.size(), marker.size(), marker) == 0) {
    out = folder.substr(0, folder.size() - marker.size());
  } else {
    out = exe;
  }
  return true;
}

// Both levels with 0700; an existing one (EEXIST) is fine.
bool userLogs(std::string& path) {
  std::string home;
  if (!velzip::homeFolderOf(geteuid(), home)) return false;
  const std::string library = home + "/Library";
  const std::string logs = library + "/Logs";
  for (const std::string* level : {&library, &logs}) {
    if (mkdir(level->c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  path = logs;
  return true;
}

// Values 18 to 30: a folder of the table plus a fixed suffix.
struct SuffixedFolder {
  PathType value;
  bool console;  // the console user's folder, else the local domain's
  FolderType type;
  const char* suffix;
};

constexpr SuffixedFolder kSuffixedFolders[] = {
    {kPathLocalBrenlo, false, FolderType::kApplicationSupport, "/Brenlo"},
    {kPathUserBrenlo, true, FolderType::kApplicationSupport, "/Brenlo"},
    {kPathSharedBrenlo, false, FolderType::kSharedUserData, "/Brenlo"},
    {kPathLocalUlvo, false, FolderType::kApplicationSupport, "/Brenlo/Ulvo"},
    {kPathUserUlvo, true, FolderType::kApplicationSupport, "/Brenlo/Ulvo"},
    {kPathSharedUlvo, false, FolderType::kSharedUserData, "/Brenlo/Ulvo"},
    {kPathWendarUtilities, false, FolderType::kUtilities, "/Brenlo Wendar/"},
    {kPathLocalSorvel, false, FolderType::kApplicationSupport, "/Brenlo/Ulvo/Sorvel"},
    {kPathUserSorvel, true, FolderType::kApplicationSupport, "/Brenlo/Ulvo/Sorvel"},
    {kPathWendarRefs, false, FolderType::kApplicationSupport, "/Brenlo/BrenloWendar/WendarRefs"},
    {kPathTesselRefs, false, FolderType::kApplicationSupport, "/Brenlo/TesselRefs"},
    {kPathBrenloTessel, false, FolderType::kApplicationSupport, "/Brenlo/Brenlo Tessel"},
    {kPathMarluneUtilities, false, FolderType::kUtilities, "/Brenlo Marlune/"},
};

const SuffixedFolder* suffixedFolder(PathType type) {
  for (const SuffixedFolder& folder : kSuffixedFolders)
    if (folder.value == type) return &folder;
  return nullptr;
}

}  // namespace

bool GetDirectoryPath(PathType type, std::string& path, void* /*logger*/) {
  // Failed lookups under 10 to 30 still succeed: the suffixes then go onto
  // whatever path held, as callers have come to expect.
  if (const SuffixedFolder* folder = suffixedFolder(type)) {
    if (folder->console) {
      lookupConsole(folder->type, path);
    } else {
      lookup(FolderDomain::kLocal, folder->type, path);
    }
    path += folder->suffix;
    return true;
  }
  switch (type) {
    case kPathLocalApplications:
      return lookup(FolderDomain::kLocal, FolderType::kApplications, path);
    case kPathLocalAppSupport:
    case kPathCommonAppSupport:
      return lookup(FolderDomain::kLocal, FolderType::kApplicationSupport, path);
    case kPathHome: {
      std::string home;
      if (!velzip::homeFolderOf(geteuid(), home)) return false;
      path = home;
      return true;
    }
    case kPathUserDocuments:
      lookupConsole(FolderType::kDocuments, path);
      return true;
    case kPathUserAppSupport:
      lookupConsole(FolderType::kApplicationSupport, path);
      return true;
    case kPathSharedUserData:
      lookup(FolderDomain::kLocal, FolderType::kSharedUserData, path);
      return true;
    case kPathTemp:
      path = "/tmp";
      return true;
    case kPathRunningProgram:
      runningProgramPath(path);
      return true;
    case kPathRunningProgramFolder: {
      std::string program;
      if (runningProgramPath(program)) path = withoutLastComponent(program);
      return true;
    }
    case kPathLocalPreferences:
      return lookup(FolderDomain::kLocal, FolderType::kPreferences, path);
    case kPathUserLogs:
      return userLogs(path);
    default:  // unassigned values; 18 to 30 are handled above
      break;
  }
  return false;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

// Helpers shared by the file utilities; not exported.
#ifndef VELZIP_FILEUTILS_INTERNAL_H
#define VELZIP_FILEUTILS_INTERNAL_H

#include <dirent.h>
#include <sys/types.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frame/handles.h"

namespace velzip {
namespace fileutils {

constexpr const char* kComponent = "FileUtils";

// strerror without the shared buffer of strerror().
inline std::string errorText(int err) {
  char buf[256];
  return strerror_r(err, buf, sizeof buf);
}

using DirHandle = UniqueDir;

// Creates path and every missing parent with mkdir(mode); onCreated runs for
// each folder this call made, parents first, and may veto with an errno.
// Existing folders (links to folders included) are accepted. 0 or an errno.
int makeDirectories(const std::string& path, mode_t mode,
                    const std::function<int(const std::string&)>& onCreated = nullptr);

// Removes a file, link or whole tree without following links. 0 or the first errno.
int removeTree(const std::string& path);

// Copies src (file, link or folder tree) to dst. With merge, an existing dst
// folder takes the contents (existing non-folders are replaced); without it
// dst must not exist. Keeps modes, times and user extended attributes, and
// owners when keepOwner. True when every item was copied.
bool copyTree(const std::string& src, const std::string& dst, bool merge, bool keepOwner);

// The mount that holds an existing path, from /proc/self/mountinfo.
struct MountEntry {
  std::string mountPoint;
  std::string fsType;
  std::string source;
};
bool findMountOf(const std::string& path, MountEntry& entry);

// Starts program (an absolute path) with args, not waiting for it to finish;
// it is reparented so no zombie is left. Standard streams go to /dev/null.
bool spawnDetached(const std::string& program, const std::vector<std::string>& args);

// Runs program (an absolute path) with args, standard streams on /dev/null,
// and waits for it. Its exit status, or -1 when it could not be run or did
// not exit normally.
int runAndWait(const std::string& program, const std::vector<std::string>& args);

}  // namespace fileutils
}  // namespace velzip

#endif  // VELZIP_FILEUTILS_INTERNAL_H

#include "source_tree.h"

#include <dirent.h>
#include <sys/stat.h>

#include <memory>

#include "paths.h"

namespace velzip_tool {
namespace {

void addTree(const std::string& folder, const TreeFilter& takes, TreeTotals& totals) {
  FolderReader dir(opendir(folder.c_str()));
  if (!dir) return;
  while (const dirent* item = readdir(dir.get())) {
    const std::string name = item->d_name;
    if (name == "." || name == "..") continue;
    const std::string path = (folder == "/" ? folder : folder + "/") + name;
    struct stat st;
    const bool known = lstat(path.c_str(), &st) == 0;
    const bool isFolder = known && S_ISDIR(st.st_mode);
    if (takes && !takes(path, isFolder)) continue;
    if (isFolder) {
      ++totals.folders;
      addTree(path, takes, totals);
    } else {
      ++totals.files;
      if (known && S_ISREG(st.st_mode)) totals.bytes += static_cast<uint64_t>(st.st_size);
    }
  }
}

}  // namespace

TreeTotals countTree(const std::string& folder, const TreeFilter& takes) {
  TreeTotals totals;
  addTree(folder, takes, totals);
  return totals;
}

std::string pathBelow(const std::string& folder, const std::string& path) {
  const std::string prefix = folder == "/" ? folder : folder + "/";
  if (path.compare(0, prefix.size(), prefix) == 0) return path.substr(prefix.size());
  return path;
}

}  // namespace velzip_tool

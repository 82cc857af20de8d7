#include <sys/stat.h>

#include <cstring>

#include "fileutils/internal.h"
#include "velzip/FileUtils.h"

namespace UlvoUtils {
namespace FileUtils {

namespace {

using Visit = std::function<void(const std::string& full, const std::string& relative)>;

// Pre-order walk in directory order. Without recursion folders (and links to
// them) are neither visited nor entered; with it everything is visited and
// real folders are entered, never links to them, so a link loop ends.
void walk(const std::string& root, const std::string& relative, bool recursive,
          const Visit& visit) {
  std::string folder = root;
  if (!relative.empty()) AppendPath(folder, relative, nullptr);
  std::vector<std::string> names;
  {
    velzip::fileutils::DirHandle dir(opendir(folder.c_str()));
    if (!dir) return;
    while (const dirent* entry = readdir(dir.get())) {
      if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
        names.emplace_back(entry->d_name);
    }
  }
  for (const std::string& name : names) {
    const std::string childRelative = relative.empty() ? name : relative + "/" + name;
    std::string full = root;
    AppendPath(full, childRelative, nullptr);
    if (!recursive) {
      bool isDirectory = false;
      if (!PathExists(full, isDirectory, nullptr) || !isDirectory) visit(full, childRelative);
      continue;
    }
    visit(full, childRelative);
    struct stat st;
    if (lstat(full.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      walk(root, childRelative, recursive, visit);
    }
  }
}

}  // namespace

bool GetFilePathsAtPath(const std::string& path, std::vector<std::string>& paths, bool recursive,
                        void* /*logger*/) {
  walk(path, "", recursive,
       [&](const std::string& full, const std::string&) { paths.push_back(full); });
  return true;
}

bool GetFilePathsWithExtensionAtPath(const std::string& path, const std::string& extension,
                                     std::vector<std::string>& paths, bool recursive,
                                     void* /*logger*/) {
  const std::string suffix =
      (!extension.empty() && extension[0] == '.') ? extension : "." + extension;
  // The relative name, not just the last component, is what must be longer.
  walk(path, "", recursive, [&](const std::string& full, const std::string& relative) {
    if (relative.size() > suffix.size() &&
        relative.compare(relative.size() - suffix.size(), suffix.size(), suffix) == 0) {
      paths.push_back(full);
    }
  });
  return true;
}

}  // namespace FileUtils
}  // namespace UlvoUtils

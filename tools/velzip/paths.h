// Paths as the tool handles them: made absolute by text, shown as the user
// gave them.
#ifndef VELZIP_TOOL_PATHS_H
#define VELZIP_TOOL_PATHS_H

#include <dirent.h>

#include <cstdint>
#include <memory>
#include <string>

namespace velzip_tool {

// Lexically absolute: relative paths are joined to the current folder; "."
// components, repeated and trailing slashes are dropped.
std::string absolutePath(const std::string& path);
std::string parentOf(const std::string& absPath);
std::string lastComponent(const std::string& absPath);
// With links resolved; "" when it cannot be.
std::string realPath(const std::string& path);
bool isInside(const std::string& path, const std::string& folder);
// Of the item itself, not what a link names; 0 when it cannot be read.
uint64_t fileSize(const std::string& path);
std::string errnoText();
// Each absolute in text replaced by given.
std::string asGiven(std::string text, const std::string& absolute, const std::string& given);
std::string withoutTrailingSlashes(std::string path);

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};
// A folder open for reading, closed with the object.
using FolderReader = std::unique_ptr<DIR, DirCloser>;

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_PATHS_H

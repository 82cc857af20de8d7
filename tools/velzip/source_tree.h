// The folder compress packs, as the library's walk will meet it.
#ifndef VELZIP_TOOL_SOURCE_TREE_H
#define VELZIP_TOOL_SOURCE_TREE_H

#include <cstdint>
#include <functional>
#include <string>

namespace velzip_tool {

struct TreeTotals {
  uint64_t files = 0;    // items that are not folders
  uint64_t folders = 0;  // below the top
  uint64_t bytes = 0;    // of the regular files
};

// Whether the walk takes an item (its path, whether it is a folder).
using TreeFilter = std::function<bool(const std::string& path, bool isFolder)>;

// What is below folder, leaving out what takes refuses (a folder with all
// it holds). Unreadable parts count as empty: the walk itself reports them.
TreeTotals countTree(const std::string& folder, const TreeFilter& takes);

// path below folder, without folder and the '/' after it.
std::string pathBelow(const std::string& folder, const std::string& path);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_SOURCE_TREE_H

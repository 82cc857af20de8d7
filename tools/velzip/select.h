// Choosing entries by glob: -i and -x match fnmatch(3) patterns against
// entry names as `velzip list` shows them (format 0 names start with the
// packed folder's own name). '*', '?' and '[...]' match '/' too, so '*.o'
// finds object files at any depth. A glob that matches a folder (with or
// without its trailing '/') matches everything inside it: -x build leaves
// out the folder and its contents, -x 'build/*' only the contents.
#ifndef VELZIP_TOOL_SELECT_H
#define VELZIP_TOOL_SELECT_H

#include <string>
#include <vector>

namespace velzip_tool {

class Selection {
 public:
  Selection(std::vector<std::string> includes, std::vector<std::string> excludes);

  bool hasIncludes() const { return !includes_.empty(); }
  bool empty() const { return includes_.empty() && excludes_.empty(); }
  // name, or a folder it lies in, matches an -x glob.
  bool excluded(const std::string& name) const;
  // name, or a folder it lies in, matches an -i glob; true without -i.
  bool included(const std::string& name) const;
  bool takes(const std::string& name) const { return included(name) && !excluded(name); }

 private:
  static bool matches(const std::vector<std::string>& globs, const std::string& name);

  std::vector<std::string> includes_, excludes_;
};

// The file a "__MACOSX/dir/._name" companion describes ("dir/name"); ""
// when name is no companion's.
std::string companionTarget(const std::string& name);

}  // namespace velzip_tool

#endif  // VELZIP_TOOL_SELECT_H

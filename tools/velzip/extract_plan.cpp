#include "extract_plan.h"

#include <sys/stat.h>

#include <set>

namespace velzip_tool {
namespace {

// Whether something stands at name in dest now, not following a last link.
bool standsIn(const std::string& dest, std::string name) {
  while (!name.empty() && name.back() == '/') name.pop_back();
  while (!name.empty() && name.front() == '/') name.erase(0, 1);
  if (name.empty()) return false;
  struct stat st;
  return lstat((dest + "/" + name).c_str(), &st) == 0;
}

// "a/", "a/b/" for "a/b/c".
void addFolders(const std::string& name, std::set<std::string>& folders) {
  for (size_t slash = name.find('/'); slash != std::string::npos && slash + 1 < name.size();
       slash = name.find('/', slash + 1)) {
    folders.insert(name.substr(0, slash + 1));
  }
}

// What the globs and --no-xattrs say of one entry that is not a folder, and
// the name that decides -k for it.
bool matchedItem(const ScannedEntry& e, const Selection& selection, bool noXattrs,
                 std::string& standing) {
  standing = e.name;
  if (e.kind != EntryKind::kMetadata) return selection.takes(e.name);
  const std::string target = companionTarget(e.name);
  if (target.empty()) return selection.takes(e.name);
  standing = target;
  return !noXattrs && selection.takes(target);
}

}  // namespace

bool ExtractPlan::filter(const char* name, UZ_EntryKind /*kind*/, void* plan) {
  const auto& byName = static_cast<const ExtractPlan*>(plan)->byName_;
  const auto found = byName.find(name);
  return found == byName.end() || found->second;
}

ExtractPlan planExtraction(const ArchiveScan& scan, const Selection& selection, bool noXattrs,
                           bool keepExisting, const std::string& dest) {
  ExtractPlan plan;
  plan.filters = !selection.empty() || noXattrs || keepExisting;
  const size_t n = scan.entries.size();
  std::vector<bool> matched(n, true);
  std::vector<std::string> standing(n);
  std::set<std::string> holding;  // folders of matched entries
  for (size_t i = 0; i < n; ++i) {
    const ScannedEntry& e = scan.entries[i];
    standing[i] = e.name;
    if (e.kind == EntryKind::kFolder) continue;
    matched[i] = matchedItem(e, selection, noXattrs, standing[i]);
    if (matched[i]) addFolders(e.name, holding);
  }
  for (size_t i = 0; i < n; ++i) {
    const ScannedEntry& e = scan.entries[i];
    if (e.kind != EntryKind::kFolder) continue;
    const std::string folder = !e.name.empty() && e.name.back() == '/' ? e.name : e.name + "/";
    matched[i] =
        !selection.excluded(e.name) && (selection.included(e.name) || holding.count(folder) != 0);
  }
  plan.takes.assign(n, false);
  for (size_t i = 0; i < n; ++i) {
    // Decided before anything is written: a file this extraction makes does
    // not count as one that was there.
    const bool kept = matched[i] && keepExisting && standsIn(dest, standing[i]);
    plan.takes[i] = matched[i] && !kept;
    plan.matched += matched[i] ? 1 : 0;
    plan.kept += kept ? 1 : 0;
    plan.taken += plan.takes[i] ? 1 : 0;
    plan.byName_[scan.entries[i].name] = plan.takes[i];
  }
  return plan;
}

}  // namespace velzip_tool

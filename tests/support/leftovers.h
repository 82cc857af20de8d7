// What an operation may leave behind: the names in a folder, and the files
// the writers might leave in /tmp.
#ifndef VELZIP_TESTS_SUPPORT_LEFTOVERS_H
#define VELZIP_TESTS_SUPPORT_LEFTOVERS_H

#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

namespace velzip_test {

// The names in one folder, hidden ones included.
inline std::set<std::string> folderItems(const std::string& folder) {
  std::set<std::string> out;
  for (const auto& item : std::filesystem::directory_iterator(folder))
    out.insert(item.path().filename());
  return out;
}

inline size_t entriesIn(const std::string& folder) {
  return folderItems(folder).size();
}

// What writers may leave in /tmp: GUID-named payloads, companions, staged
// files under a hidden name.
inline std::set<std::string> writerTempFiles() {
  std::set<std::string> out;
  for (const auto& item : std::filesystem::directory_iterator("/tmp")) {
    const std::string n = item.path().filename();
    if ((n.size() == 36 && n[8] == '-' && n.find_first_not_of("0123456789ABCDEF-") == n.npos) ||
        n.rfind("ulvozip.temp.", 0) == 0 || n.rfind(".velzip-", 0) == 0) {
      out.insert(n);
    }
  }
  return out;
}

// Those made since `before` that stay. Other test programs may run at once;
// their files in flight vanish within a second.
inline std::set<std::string> leftoverTempFiles(const std::set<std::string>& before) {
  std::set<std::string> extra;
  for (int attempt = 0; attempt < 20; ++attempt, usleep(50000)) {
    extra.clear();
    for (const auto& n : writerTempFiles())
      if (before.count(n) == 0) extra.insert(n);
    if (extra.empty()) break;
  }
  return extra;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_LEFTOVERS_H

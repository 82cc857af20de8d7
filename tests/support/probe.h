// Small probes of the file system and the shell that tests of several
// folders need: peer tools, modes, link targets, damaged copies.
#ifndef VELZIP_TESTS_SUPPORT_PROBE_H
#define VELZIP_TESTS_SUPPORT_PROBE_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/temp_dir.h"

namespace velzip_test {

inline int runQuietly(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str());
}
inline bool haveTool(const char* tool) {
  return runQuietly(std::string("command -v ") + tool) == 0;
}

// Permission bits of path itself (a link is not followed); 0xFFFF if missing.
inline unsigned permissions(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0xFFFFu;
}
// What a new file or folder created with mode gets under the current umask.
inline unsigned umasked(unsigned mode) {
  const mode_t mask = umask(0);
  umask(mask);
  return mode & ~mask;
}
inline std::string linkTarget(const std::string& path) {
  char buf[4096];
  const ssize_t n = readlink(path.c_str(), buf, sizeof buf);
  return n < 0 ? "<none>" : std::string(buf, static_cast<size_t>(n));
}

inline void flipByte(const std::string& path, long long offset, unsigned char mask) {
  std::string bytes = readFile(path);
  ASSERT_TRUE(offset >= 0 && offset < static_cast<long long>(bytes.size())) << offset;
  bytes[static_cast<size_t>(offset)] ^= static_cast<char>(mask);
  writeFile(path, bytes);
}

// Everything under root, one sorted line each: "path mode size:hash" for a
// file, "path mode/" for a folder, "path -> target" for a link.
inline std::string treeListing(const std::string& root) {
  namespace fs = std::filesystem;
  std::set<std::string> lines;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::end(it); ++it) {
    const std::string path = it->path().string(), rel = path.substr(root.size() + 1);
    char mode[16];
    std::snprintf(mode, sizeof mode, " %o", permissions(path));
    if (it->is_symlink()) {
      lines.insert(rel + " -> " + linkTarget(path));
    } else if (it->is_directory()) {
      lines.insert(rel + mode + "/");
    } else {
      const std::string data = readFile(path);
      lines.insert(rel + mode + " " + std::to_string(data.size()) + ":" +
                   std::to_string(std::hash<std::string>()(data)));
    }
  }
  std::string all;
  for (const auto& line : lines) all += line + "\n";
  return all;
}

// Incompressible bytes, deterministic for a seed: tools keep them stored.
inline std::string noiseBytes(size_t size, unsigned seed) {
  std::string out(size, '\0');
  unsigned long long x = seed * 0x9E3779B97F4A7C15ull + 7;
  for (auto& c : out) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    c = static_cast<char>(x >> 24);
  }
  return out;
}

// Files of every kind a method treats differently: several blocks of text,
// a few words, nothing, noise that stays stored.
inline std::vector<std::pair<std::string, std::string>> mixedFiles() {
  return {{"a_multi.txt", sampleBytes(300000, 5)},
          {"b_small.txt", "a few words of plain text\n"},
          {"c_empty.txt", ""},
          {"d_noise.bin", noiseBytes(150000, 8)}};
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_PROBE_H

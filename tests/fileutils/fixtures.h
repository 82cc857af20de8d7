// Fixtures shared by the file-utility tests.
#ifndef VELZIP_TESTS_FILEUTILS_FIXTURES_H
#define VELZIP_TESTS_FILEUTILS_FIXTURES_H

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;

namespace velzip_test {

using Lines = std::vector<std::string>;

// Builds items under root, parents included: "a/" a folder, "a/f" an empty
// file, "a/f=text" a file holding text, "a/l->target" a symbolic link.
inline void make(const std::string& root, const Lines& items) {
  for (const std::string& item : items) {
    const size_t link = item.find("->"), text = item.find('=');
    const std::string path = root + "/" + item.substr(0, link < text ? link : text);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (link != std::string::npos) {
      ASSERT_EQ(symlink(item.c_str() + link + 2, path.c_str()), 0) << item;
    } else if (item.back() != '/') {
      writeFile(path, text == std::string::npos ? "" : item.substr(text + 1));
    }
  }
}

inline struct stat lstatOf(const std::string& path) {
  struct stat st = {};
  lstat(path.c_str(), &st);
  return st;
}
inline std::string modeOf(const std::string& path) {  // as octal text
  char text[16];
  snprintf(text, sizeof text, "%o", lstatOf(path).st_mode & 07777);
  return text;
}
inline std::string realPathOf(const std::string& path) {  // of an existing path
  return std::filesystem::canonical(path).string();
}
inline std::string overlongUnder(std::string path) {
  while (path.size() < PATH_MAX + 50) path += "/abcdefghij";
  return path;
}

// Runs a shell command apart from the code under test: its exit status, or -1.
inline int shell(const std::string& command) {
  const int status = std::system((command + " >/dev/null 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs body in a forked child with its own mount namespace (root only). The
// body returns "" when all is well, else what went wrong, which goes to
// stderr: gtest cannot report from the child.
constexpr const char* kCannotIsolate = "cannot isolate";
inline std::string runIsolated(const std::function<std::string()>& body) {
  if (geteuid() != 0) return kCannotIsolate;
  const pid_t child = fork();
  if (child == 0) {
    const bool isolated = unshare(CLONE_NEWNS) == 0 &&
                          mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    const std::string result = isolated ? body() : kCannotIsolate;
    if (result != kCannotIsolate) fputs(result.c_str(), stderr);
    _exit(result.empty() ? 0 : result == kCannotIsolate ? 2 : 1);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) < 0 || !WIFEXITED(status)) return "child failed";
  return WEXITSTATUS(status) == 2 ? kCannotIsolate : WEXITSTATUS(status) == 0 ? "" : "see stderr";
}

}  // namespace velzip_test

#define VELZIP_RUN_ISOLATED(...)                                              \
  do {                                                                        \
    const std::string velzipIsolated = velzip_test::runIsolated(__VA_ARGS__); \
    if (velzipIsolated == velzip_test::kCannotIsolate)                        \
      GTEST_SKIP() << "needs root and a private mount namespace";             \
    EXPECT_EQ(velzipIsolated, "");                                            \
  } while (0)

#endif  // VELZIP_TESTS_FILEUTILS_FIXTURES_H

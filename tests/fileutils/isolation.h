// Runs a check in a forked child with its own mount namespace, so a test can
// mount scratch file systems (over the home folder, say) without touching the
// machine. Needs root; callers skip otherwise.
#ifndef VELZIP_TESTS_FILEUTILS_ISOLATION_H
#define VELZIP_TESTS_FILEUTILS_ISOLATION_H

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace velzip_test {

constexpr const char* kCannotIsolate = "cannot isolate";

// The body returns "" when all is well, else what went wrong.
inline std::string runIsolated(const std::function<std::string()>& body) {
  if (geteuid() != 0) return kCannotIsolate;
  int fds[2];
  if (pipe(fds) != 0) return "pipe failed";
  pid_t child = fork();
  if (child < 0) return "fork failed";
  if (child == 0) {
    close(fds[0]);
    std::string result = kCannotIsolate;
    if (unshare(CLONE_NEWNS) == 0 &&
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0)
      result = body();
    ssize_t ignored = write(fds[1], result.data(), result.size());
    (void)ignored;
    _exit(0);
  }
  close(fds[1]);
  std::string out;
  char buf[4096];
  ssize_t n;
  while ((n = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status)) return "isolated check crashed";
  return out;
}

// Collects mismatches inside an isolated body.
class Mismatches {
 public:
  void expect(bool ok, const std::string& what) {
    if (!ok) text_ += what + "\n";
  }
  void expectEq(const std::string& actual, const std::string& expected, const std::string& what) {
    if (actual != expected) text_ += what + ": got '" + actual + "', want '" + expected + "'\n";
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace velzip_test

#define VELZIP_RUN_ISOLATED(body)                                 \
  do {                                                            \
    std::string velzipIsolated = velzip_test::runIsolated(body);  \
    if (velzipIsolated == velzip_test::kCannotIsolate)            \
      GTEST_SKIP() << "needs root and a private mount namespace"; \
    EXPECT_EQ(velzipIsolated, "");                                \
  } while (0)

#endif  // VELZIP_TESTS_FILEUTILS_ISOLATION_H

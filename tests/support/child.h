// Work done in a forked child: as another user, or where the child may die.
#ifndef VELZIP_TESTS_SUPPORT_CHILD_H
#define VELZIP_TESTS_SUPPORT_CHILD_H

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace velzip_test {

constexpr uid_t kNobody = 65534;

struct ChildEnd {
  int status = -1;   // the exit code, 128 + the signal that ended it, or 77: could not drop
  std::string text;  // what the body returned
};

// Runs body in a forked child, as the unprivileged user 65534 when asked
// (the parent must be root). The body's text comes back through a pipe; the
// child exits 0 after it, and may be killed before.
inline ChildEnd runInChild(const std::function<std::string()>& body, bool asNobody = false) {
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    close(out[0]);
    if (asNobody && (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0))
      _exit(77);
    const std::string text = body();
    const bool sent = write(out[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(sent ? 0 : 1);
  }
  close(out[1]);
  ChildEnd end;
  char buf[4096];
  for (ssize_t n; (n = read(out[0], buf, sizeof buf)) > 0;) end.text.append(buf, n);
  close(out[0]);
  int raw = 0;
  if (pid > 0 && waitpid(pid, &raw, 0) == pid)
    end.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  return end;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_CHILD_H

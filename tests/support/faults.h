// Running part of a test under adverse conditions: as an unprivileged user,
// in a child that may be killed, on a file system that is full.
#ifndef VELZIP_TESTS_SUPPORT_FAULTS_H
#define VELZIP_TESTS_SUPPORT_FAULTS_H

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

namespace velzip_test {

constexpr uid_t kNobody = 65534;

// Runs body in a forked child; its return value is the child's exit status.
// -1 when the child died of a signal, -2 when it could not be started.
inline int inChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) return -2;
  if (pid == 0) _exit(body());
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -2;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs body in a child as the unprivileged user nobody (uid and gid 65534).
// Returns 99 when the switch failed.
inline int asNobody(const std::function<int()>& body) {
  return inChild([&] {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) return 99;
    return body();
  });
}

// Gives path (and what is below it) to nobody.
inline void giveToNobody(const std::string& path) {
  const std::string cmd = "chown -R 65534:65534 '" + path + "'";
  if (std::system(cmd.c_str()) != 0) std::perror("chown");
}

// A tmpfs of a few KiB mounted at path for the object's life. ok() is false
// where mounting is not allowed (tests then skip).
class SmallTmpfs {
 public:
  SmallTmpfs(const std::string& path, const std::string& size) : path_(path) {
    mkdir(path.c_str(), 0777);
    mounted_ = mount("tmpfs", path.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
  }
  ~SmallTmpfs() {
    if (mounted_) umount2(path_.c_str(), MNT_DETACH);
  }
  SmallTmpfs(const SmallTmpfs&) = delete;
  SmallTmpfs& operator=(const SmallTmpfs&) = delete;
  bool ok() const { return mounted_; }

 private:
  std::string path_;
  bool mounted_ = false;
};

}  // namespace velzip_test

#endif  // VELZIP_TESTS_SUPPORT_FAULTS_H

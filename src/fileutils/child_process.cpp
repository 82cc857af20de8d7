#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "fileutils/internal.h"

namespace velzip {
namespace fileutils {

namespace {

// The one fork/exec/wait of the file utilities. Detached, a middle process
// exits at once so the program is adopted by init and the host has nothing to
// reap; the result is then only whether it could be started.
int runChild(const std::string& program, const std::vector<std::string>& args, bool detach) {
  // Everything the children need is built before fork: after it, only
  // async-signal-safe calls are allowed in a threaded host.
  std::vector<std::string> storage;
  storage.reserve(args.size() + 1);
  storage.push_back(program);
  storage.insert(storage.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& arg : storage) argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  const pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) {
    if (detach) {
      const pid_t grandchild = fork();
      if (grandchild != 0) _exit(grandchild < 0 ? 1 : 0);
      setsid();
    }
    const int null = open("/dev/null", O_RDWR);
    if (null >= 0) {
      dup2(null, STDIN_FILENO);
      dup2(null, STDOUT_FILENO);
      dup2(null, STDERR_FILENO);
    }
    close_range(3, ~0U, 0);
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

bool spawnDetached(const std::string& program, const std::vector<std::string>& args) {
  return runChild(program, args, true) == 0;
}

int runAndWait(const std::string& program, const std::vector<std::string>& args) {
  return runChild(program, args, false);
}

}  // namespace fileutils
}  // namespace velzip

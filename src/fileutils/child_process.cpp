#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "fileutils/internal.h"

namespace velzip {
namespace fileutils {

bool spawnDetached(const std::string& program, const std::vector<std::string>& args) {
  // Everything the children need is built before fork: after it, only
  // async-signal-safe calls are allowed in a threaded host.
  std::vector<std::string> storage;
  storage.reserve(args.size() + 1);
  storage.push_back(program);
  storage.insert(storage.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& arg : storage) argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    // The middle process exits at once, so the program is adopted by init and
    // the host is left with nothing to reap.
    pid_t grandchild = fork();
    if (grandchild != 0) _exit(grandchild < 0 ? 1 : 0);
    setsid();
    int null = open("/dev/null", O_RDWR);
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
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace fileutils
}  // namespace velzip

// Runs the built velzip tool as a person would: its exit status and what it
// printed, through memory files, a terminal, or with a Ctrl-C mid-work.
#ifndef VELZIP_TESTS_TOOL_TOOL_RUN_H
#define VELZIP_TESTS_TOOL_TOOL_RUN_H

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

namespace velzip_test {

inline const char kTool[] = VELZIP_BINARY_DIR "/tools/velzip/velzip";

struct Result {
  int status = -1;  // exit code, or 128 + signal; -1 when a Ctrl-C came too late
  std::string out, err;
};

// kMemory: stdout and stderr in memory files, so nothing blocks the tool.
// kTerminal: a terminal as stdin, stdout and stderr; all of it lands in err.
// kInterrupt: Ctrl-C while the tool is held mid-work, see below.
enum class Via { kMemory, kTerminal, kInterrupt };

// From the start of a memory file; a pipe or terminal to its end.
inline std::string readAll(int fd) {
  std::string s;
  char buf[8192];
  ssize_t n;
  lseek(fd, 0, SEEK_SET);
  while ((n = read(fd, buf, sizeof buf)) > 0) s.append(buf, static_cast<size_t>(n));
  close(fd);
  return s;
}

inline Result run(std::vector<std::string> args, const std::string& cwd = ".",
                  Via via = Via::kMemory) {
  std::vector<char*> argv{const_cast<char*>(kTool)};
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int out[2], tty = -1;  // read end, write end
  via == Via::kInterrupt ? pipe2(out, O_CLOEXEC)
                         : (out[0] = out[1] = memfd_create("o", MFD_CLOEXEC));
  const int err = memfd_create("err", MFD_CLOEXEC);
  winsize ws{30, 120, 0, 0};
  const pid_t pid = via == Via::kTerminal ? forkpty(&tty, nullptr, nullptr, &ws) : fork();
  if (pid == 0) {
    if (chdir(cwd.c_str()) != 0) _exit(126);
    if (via != Via::kTerminal && (dup2(out[1], 1) < 0 || dup2(err, 2) < 0)) _exit(126);
    execv(kTool, argv.data());
    _exit(127);
  }
  Result r;
  int raw = 0;
  pid_t reaped = 0;
  if (via == Via::kInterrupt) {
    // With -v the tool writes a line per entry to this pipe, left unread until
    // half full (its pages are not packed to the byte): the tool can then
    // write at most the other half before it blocks, held mid-work.
    close(out[1]);
    const int capacity = fcntl(out[0], F_GETPIPE_SZ);
    int pending = 0;
    while (pending < capacity / 2 && (reaped = waitpid(pid, &raw, WNOHANG)) == 0) {
      usleep(2000);
      ioctl(out[0], FIONREAD, &pending);
    }
    if (reaped == 0) kill(pid, SIGINT);
    r.out = readAll(out[0]);
  } else if (via == Via::kTerminal) {
    r.err = readAll(tty);  // ends (EIO) once the tool has exited
    close(out[0]);
  }
  if (reaped == 0) waitpid(pid, &raw, 0);
  if (via == Via::kMemory) r.out = readAll(out[0]);
  r.status = reaped != 0 ? -1 : WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  r.err += readAll(err);
  return r;
}

inline std::vector<std::string> split(const std::string& text, bool byLine) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string s; byLine ? !!std::getline(in, s) : !!(in >> s);) out.push_back(s);
  return out;
}

inline std::string lastLine(const std::string& text) {
  const auto all = split(text, true);
  return all.empty() ? std::string() : all.back();
}

inline bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_TOOL_TOOL_RUN_H

// Running the built velzip tool as a person would, for the tool's tests.
#ifndef VELZIP_TESTS_TOOL_TOOL_RUN_H
#define VELZIP_TESTS_TOOL_TOOL_RUN_H

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/leftovers.h"
#include "support/temp_dir.h"
#include "velzip/VelUnzipHandler.h"

namespace velzip_test {

namespace fs = std::filesystem;

inline const char kTool[] = VELZIP_BINARY_DIR "/tools/velzip/velzip";

struct Result {
  int status = -1;  // exit code, or 128 + signal; -1 when a Ctrl-C came too late
  std::string out, err;
};

// kMemory: stdout and stderr in memory files, so nothing blocks the tool.
// kTerminal: a terminal as stdin, stdout and stderr; all of it lands in err.
// kInterrupt, kKill: Ctrl-C or SIGKILL while the tool is held mid-work, see
// below.
enum class Via { kMemory, kTerminal, kInterrupt, kKill };

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

// asNobody: as the unprivileged user 65534 (the tests run as root); status
// 77 when that is not possible.
inline Result run(std::vector<std::string> args, const std::string& cwd = ".",
                  Via via = Via::kMemory, bool asNobody = false) {
  const bool held = via == Via::kInterrupt || via == Via::kKill;
  std::vector<char*> argv{const_cast<char*>(kTool)};
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int out[2], tty = -1;  // read end, write end
  held ? pipe2(out, O_CLOEXEC) : (out[0] = out[1] = memfd_create("o", MFD_CLOEXEC));
  const int err = memfd_create("err", MFD_CLOEXEC);
  winsize ws{30, 120, 0, 0};
  const pid_t pid = via == Via::kTerminal ? forkpty(&tty, nullptr, nullptr, &ws) : fork();
  if (pid == 0) {
    if (asNobody && (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0 ||
                     access(kTool, X_OK) != 0)) {
      _exit(77);
    }
    if (chdir(cwd.c_str()) != 0) _exit(126);
    if (via != Via::kTerminal && (dup2(out[1], 1) < 0 || dup2(err, 2) < 0)) _exit(126);
    execv(kTool, argv.data());
    _exit(127);
  }
  Result r;
  int raw = 0;
  pid_t reaped = 0;
  if (held) {
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
    if (reaped == 0) kill(pid, via == Via::kKill ? SIGKILL : SIGINT);
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

// Text and binary (multi-chunk) files, an empty file, an executable, an empty
// folder with its own mode, nested folders, links to a file and a folder, a
// non-ASCII name.
inline void makeTree(const std::string& root) {
  fs::create_directories(root);
  const std::string script =
      "cd " + root + " && mkdir -p nested/a/b emptydir && seq 20000 >text.txt && : >empty" +
      " && head -c 300000 /dev/urandom >bin.dat && printf '#!/bin/sh\\necho hi\\n' >run.sh" +
      " && echo deep >nested/a/b/deep.txt && echo x >'\xc3\xbcn\xc3\xaf-\xe5\x90\x8d.txt'" +
      " && chmod 700 emptydir && chmod 750 nested/a && chmod 600 bin.dat && chmod 755 run.sh" +
      " && ln -s text.txt link-file && ln -s nested link-dir";
  ASSERT_EQ(system(script.c_str()), 0);
}

// One sorted line per item: permission bits, then content or link target.
// Format 0 keeps no folder entries, so its trees are compared without folders.
inline std::string describe(const std::string& root, bool withFolders = true) {
  std::set<std::string> items;
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    struct stat st;
    if (lstat(item.path().c_str(), &st) != 0 || (S_ISDIR(st.st_mode) && !withFolders)) continue;
    std::ostringstream line;
    line << item.path().string().substr(root.size()) << " " << std::oct << (st.st_mode & 07777);
    if (S_ISLNK(st.st_mode)) {
      line << " -> " << fs::read_symlink(item.path()).string();
    } else if (!S_ISDIR(st.st_mode)) {
      line << " " << std::hash<std::string>()(readFile(item.path()));
    }
    items.insert(line.str());
  }
  std::string out;
  for (const auto& i : items) out += i + "\n";
  return out;
}

// Where the stored data of the index-th entry starts, walking the local
// headers of an archive written without data descriptors.
inline size_t storedDataAt(const std::string& zip, int index) {
  const std::string bytes = readFile(zip);
  auto le = [&](size_t at, int width) {
    size_t v = 0;
    for (int i = width - 1; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
    return v;
  };
  size_t at = 0;
  for (int i = 0;; ++i) {
    const size_t data = at + 30 + le(at + 26, 2) + le(at + 28, 2);
    if (i == index) return data;
    at = data + le(at + 18, 4);
  }
}

inline unsigned long entryCount(const std::string& archive) {
  Vel::VelUnzipHandler reader(archive.c_str());
  return reader.getFileCount();
}

// The archive's entry names in order, as the library reads them.
inline std::vector<std::string> entryNames(const std::string& archive) {
  std::vector<std::string> names;
  Vel::VelUnzipHandler reader(archive.c_str());
  for (bool more = reader.gotoFirstFile(nullptr); more; more = reader.gotoNextFile(nullptr)) {
    UZ_EntryInfo info;
    if (reader.getEntryInfo(info)) names.push_back(info.name);
  }
  return names;
}

inline int entryIndex(const std::string& archive, const std::string& name) {
  const auto names = entryNames(archive);
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) return static_cast<int>(i);
  }
  return -1;
}

// Every item below root by its relative path, folders with a trailing '/'.
inline std::set<std::string> treeItems(const std::string& root) {
  std::set<std::string> out;
  if (!exists(root)) return out;
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    const bool folder = item.is_directory() && !item.is_symlink();
    out.insert(item.path().string().substr(root.size() + 1) + (folder ? "/" : ""));
  }
  return out;
}

}  // namespace velzip_test

#endif  // VELZIP_TESTS_TOOL_TOOL_RUN_H

// Runs the built velzip tool as a person would and checks what it leaves
// behind, what it prints and how it exits.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/ZipHandler.h"
#include "velzip/velzip.h"

using velzip_test::exists;
using velzip_test::readFile;
using velzip_test::sampleBytes;
using velzip_test::TempDir;
using velzip_test::writeFile;

namespace fs = std::filesystem;

namespace {

const char kTool[] = VELZIP_BINARY_DIR "/tools/velzip/velzip";

struct Result {
  int status = -1;  // exit code, or 128 + signal
  std::string out, err;
};

std::vector<char*> argvOf(std::vector<std::string>& args) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(kTool));
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  return argv;
}

int exitStatus(int raw) {
  if (WIFEXITED(raw)) return WEXITSTATUS(raw);
  if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
  return -1;
}

// Reads whatever is ready on the open descriptors; closes and forgets those
// that reached their end.
void pump(int& outFd, int& errFd, Result& r, int timeoutMs) {
  pollfd fds[2];
  int n = 0;
  if (outFd >= 0) fds[n++] = {outFd, POLLIN, 0};
  if (errFd >= 0) fds[n++] = {errFd, POLLIN, 0};
  if (n == 0 || poll(fds, n, timeoutMs) <= 0) return;
  for (int i = 0; i < n; ++i) {
    if (fds[i].revents == 0) continue;
    char buf[8192];
    const ssize_t got = read(fds[i].fd, buf, sizeof buf);
    const bool isOut = fds[i].fd == outFd;
    if (got > 0) {
      (isOut ? r.out : r.err).append(buf, static_cast<size_t>(got));
    } else {
      close(fds[i].fd);
      (isOut ? outFd : errFd) = -1;
    }
  }
}

pid_t spawn(std::vector<std::string> args, const std::string& cwd, int& outFd, int& errFd) {
  int outPipe[2], errPipe[2];
  if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) return -1;
  std::vector<char*> argv = argvOf(args);
  const pid_t pid = fork();
  if (pid == 0) {
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
    dup2(outPipe[1], STDOUT_FILENO);
    dup2(errPipe[1], STDERR_FILENO);
    execv(kTool, argv.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  outFd = outPipe[0];
  errFd = errPipe[0];
  return pid;
}

Result run(std::vector<std::string> args, const std::string& cwd = std::string()) {
  Result r;
  int outFd = -1, errFd = -1;
  const pid_t pid = spawn(std::move(args), cwd, outFd, errFd);
  if (pid < 0) return r;
  while (outFd >= 0 || errFd >= 0) pump(outFd, errFd, r, 1000);
  int raw = 0;
  waitpid(pid, &raw, 0);
  r.status = exitStatus(raw);
  return r;
}

// Lets the tool fill its stdout pipe (with -v it prints a line per entry),
// so that it is held mid-work, then presses Ctrl-C and lets it go on.
Result runAndInterrupt(std::vector<std::string> args, bool& heldMidWork) {
  Result r;
  int outFd = -1, errFd = -1;
  const pid_t pid = spawn(std::move(args), std::string(), outFd, errFd);
  heldMidWork = false;
  if (pid < 0) return r;
  const int capacity = fcntl(outFd, F_GETPIPE_SZ);
  int raw = 0;
  for (;;) {
    int pending = 0;
    ioctl(outFd, FIONREAD, &pending);
    // Pages of a pipe are not packed to the byte: half full is the safe mark.
    // From there the tool can write at most the other half before it blocks.
    if (pending >= capacity / 2) break;
    if (waitpid(pid, &raw, WNOHANG) == pid) {
      while (outFd >= 0 || errFd >= 0) pump(outFd, errFd, r, 1000);
      r.status = exitStatus(raw);
      return r;
    }
    int none = -1;
    pump(none, errFd, r, 5);  // stderr must not block it first
  }
  heldMidWork = true;
  kill(pid, SIGINT);
  while (outFd >= 0 || errFd >= 0) pump(outFd, errFd, r, 1000);
  waitpid(pid, &raw, 0);
  r.status = exitStatus(raw);
  return r;
}

// Runs the tool with a terminal as its stdin, stdout and stderr.
Result runOnTerminal(std::vector<std::string> args, const std::string& cwd) {
  Result r;
  std::vector<char*> argv = argvOf(args);
  int master = -1;
  winsize ws{};
  ws.ws_col = 120;
  ws.ws_row = 30;
  const pid_t pid = forkpty(&master, nullptr, nullptr, &ws);
  if (pid < 0) return r;
  if (pid == 0) {
    if (chdir(cwd.c_str()) != 0) _exit(126);
    execv(kTool, argv.data());
    _exit(127);
  }
  char buf[4096];
  ssize_t got;
  while ((got = read(master, buf, sizeof buf)) > 0) r.err.append(buf, static_cast<size_t>(got));
  close(master);
  int raw = 0;
  waitpid(pid, &raw, 0);
  r.status = exitStatus(raw);
  return r;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The tree a person might pack: text and binary files, an empty file, an
// executable, an empty folder with its own mode, nested folders, links to a
// file and to a folder, a non-ASCII name.
void makeTree(const std::string& root) {
  fs::create_directories(root + "/nested/a/b");
  fs::create_directories(root + "/emptydir");
  chmod((root + "/emptydir").c_str(), 0700);
  chmod((root + "/nested/a").c_str(), 0750);
  std::string text;
  for (int i = 0; i < 2000; ++i) text += "line " + std::to_string(i) + " of some text\n";
  writeFile(root + "/text.txt", text);
  writeFile(root + "/bin.dat", sampleBytes(300000, 7));
  chmod((root + "/bin.dat").c_str(), 0600);
  writeFile(root + "/empty", "");
  writeFile(root + "/run.sh", "#!/bin/sh\necho hi\n");
  chmod((root + "/run.sh").c_str(), 0755);
  writeFile(root + "/nested/a/b/deep.txt", "deep\n");
  writeFile(root + "/\xc3\xbcn\xc3\xaf-\xe5\x90\x8d.txt", "non-ascii\n");
  symlink("text.txt", (root + "/link-file").c_str());
  symlink("nested", (root + "/link-dir").c_str());
}

// One line per item, sorted: kind, permission bits, content or target.
std::string describe(const std::string& root) {
  std::vector<std::string> items;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
       ++it) {
    const std::string path = it->path().string();
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) continue;
    std::ostringstream line;
    line << path.substr(root.size()) << " " << std::oct << (st.st_mode & 07777) << std::dec;
    if (S_ISLNK(st.st_mode)) {
      line << " -> " << fs::read_symlink(it->path()).string();
    } else if (S_ISDIR(st.st_mode)) {
      line << " dir";
    } else {
      const std::string data = readFile(path);
      line << " " << data.size() << " " << std::hash<std::string>()(data);
    }
    items.push_back(line.str());
  }
  std::sort(items.begin(), items.end());
  std::string out;
  for (const auto& i : items) out += i + "\n";
  return out;
}

unsigned long entryCount(const std::string& archive) {
  Vel::VelUnzipHandler reader(archive.c_str());
  return reader.getFileCount();
}

}  // namespace

TEST(Tool, HelpVersionAndUsageErrors) {
  ASSERT_TRUE(exists(kTool)) << "build the velzip_cli target first";
  Result help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* word : {"usage: velzip", "compress", "extract", "list", "gzip", "-q", "-v"}) {
    EXPECT_TRUE(contains(help.out, word)) << word;
  }
  Result version = run({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("velzip ", 0), 0u) << version.out;

  const std::vector<std::vector<std::string>> usageErrors = {
      {},
      {"frobnicate"},
      {"compress", "only-one"},
      {"compress", "-f", "2", "a", "b"},
      {"compress", "-f", "auto", "a", "b"},
      {"extract"},
      {"extract", "-f", "9", "a.zip"},
      {"extract", "a.zip", "b", "c"},
      {"extract", "no-suffix"},
      {"list", "-f", "1", "a.zip"},
      {"gzip"},
      {"--bogus", "list", "a.zip"},
      {"compress", "-f"},
  };
  for (const auto& args : usageErrors) {
    Result r = run(args);
    std::string joined;
    for (const auto& a : args) joined += a + " ";
    EXPECT_EQ(r.status, 2) << joined;
    EXPECT_TRUE(contains(r.err, "velzip --help")) << joined << r.err;
    EXPECT_TRUE(r.out.empty()) << joined;
  }
}

TEST(Tool, CompressMakesTheSameArchiveAsTheLibraryFolderCall) {
  TempDir dir;
  makeTree(dir / "tree");
  // Relative operands, resolved against the tool's current folder.
  Result r = run({"compress", "tree", "tool.zip"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_TRUE(
      Vel::VelZipHandler::ZipFolder((dir / "tree/").c_str(), (dir / "lib.zip").c_str(), false));
  EXPECT_EQ(readFile(dir / "tool.zip"), readFile(dir / "lib.zip"));
  EXPECT_TRUE(contains(r.out, "format 1")) << r.out;
  EXPECT_TRUE(r.err.empty()) << r.err;

  // An existing archive is replaced, not appended to.
  ASSERT_EQ(run({"compress", "-q", "tree", "tool.zip"}, dir.path()).status, 0);
  EXPECT_EQ(readFile(dir / "tool.zip"), readFile(dir / "lib.zip"));
}

TEST(Tool, FormatOneRoundTripWithAutoDetection) {
  TempDir dir;
  const std::string tree = dir / "tree";
  makeTree(tree);
  ASSERT_EQ(run({"compress", "-q", tree, dir / "a.vz"}).status, 0);

  Result r = run({"extract", dir / "a.vz", dir / "out"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(contains(r.out, "format 1")) << r.out;
  EXPECT_EQ(describe(dir / "out"), describe(tree));

  // Without a destination: beside the archive, named after it.
  ASSERT_EQ(run({"extract", "-q", "-f", "1", dir / "a.vz"}).status, 0);
  EXPECT_EQ(describe(dir / "a"), describe(tree));
}

TEST(Tool, ListShowsSizesModesKindsAndLinks) {
  TempDir dir;
  const std::string tree = dir / "tree";
  makeTree(tree);
  ASSERT_EQ(run({"compress", "-q", tree, dir / "a.zip"}).status, 0);
  Result r = run({"list", "-q", dir / "a.zip"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::map<std::string, std::string> byName;
  for (const auto& line : lines(r.out)) {
    const size_t name = line.rfind("  ");
    if (name != std::string::npos) byName[line.substr(name + 2)] = line;
  }
  EXPECT_TRUE(contains(r.out, "format 1"));
  const std::string bin = byName["bin.dat"];
  EXPECT_TRUE(contains(bin, " 300000 ")) << bin;  // restored size, not the payload's
  EXPECT_TRUE(contains(bin, "-rw-------")) << bin;
  EXPECT_TRUE(contains(bin, " file ")) << bin;
  EXPECT_TRUE(contains(byName["emptydir/"], "drwx------")) << r.out;
  EXPECT_TRUE(contains(byName["emptydir/"], " dir ")) << r.out;
  EXPECT_TRUE(contains(byName["link-dir -> nested"], "lrwxrwxrwx")) << r.out;
  EXPECT_TRUE(contains(byName["link-dir -> nested"], " link ")) << r.out;
  EXPECT_TRUE(contains(byName["run.sh"], "-rwxr-xr-x")) << r.out;
  EXPECT_TRUE(contains(r.out, std::to_string(entryCount(dir / "a.zip")) + " entries")) << r.out;
}

TEST(Tool, FailuresExitOneWithAOneLineReason) {
  TempDir dir;
  makeTree(dir / "tree");
  writeFile(dir / "plain", "not a folder");
  writeFile(dir / "junk.zip", "not a zip archive either");

  const std::vector<std::vector<std::string>> failures = {
      {"compress", dir / "missing", dir / "m.zip"},
      {"compress", dir / "plain", dir / "p.zip"},
      {"compress", dir / "tree", dir / "no/such/folder/t.zip"},
      {"compress", dir / "tree", dir / "tree/nested/inside.zip"},
      {"extract", dir / "missing.zip", dir / "out1"},
      {"extract", dir / "junk.zip", dir / "out2"},
      {"extract", dir / "tree", dir / "out3"},
      {"list", dir / "junk.zip"},
      {"gzip", dir / "missing"},
      {"gzip", dir / "tree"},
  };
  for (const auto& args : failures) {
    Result r = run(args);
    EXPECT_EQ(r.status, 1) << args[0] << " " << args[1];
    const auto errLines = lines(r.err);
    ASSERT_EQ(errLines.size(), 1u) << r.err;
    EXPECT_EQ(errLines[0].rfind("velzip: ", 0), 0u) << r.err;
  }
  EXPECT_FALSE(exists(dir / "m.zip"));
  EXPECT_FALSE(exists(dir / "tree/nested/inside.zip"));
  EXPECT_FALSE(exists(dir / "missing.gz"));
  EXPECT_FALSE(exists(dir / "out1"));
  EXPECT_FALSE(exists(dir / "out2"));

  // A walk that fails midway leaves no archive behind: the writer refuses
  // to read a fifo.
  ASSERT_EQ(mkfifo((dir / "tree/pipe").c_str(), 0644), 0);
  Result walk = run({"compress", dir / "tree", dir / "w.zip"});
  EXPECT_EQ(walk.status, 1);
  EXPECT_TRUE(contains(walk.err, "could not compress")) << walk.err;
  EXPECT_FALSE(exists(dir / "w.zip"));
}

TEST(Tool, VerboseAddsEntryAndInformationLines) {
  TempDir dir;
  makeTree(dir / "tree");
  Result quiet = run({"compress", dir / "tree", dir / "a.zip"});
  ASSERT_EQ(quiet.status, 0);
  EXPECT_FALSE(contains(quiet.err, "Entering to add folder"));

  Result loud = run({"compress", "-v", "-f", "1", dir / "tree", dir / "b.zip"});
  ASSERT_EQ(loud.status, 0) << loud.err;
  EXPECT_TRUE(contains(loud.err, "info: [VelzipHandler] Entering to add folder")) << loud.err;
  EXPECT_TRUE(contains(loud.err, "detail: [VelzipHandler] Found file")) << loud.err;
  EXPECT_TRUE(contains(loud.out, "  adding: nested/a/b/deep.txt")) << loud.out;

  Result out = run({"-v", "extract", dir / "b.zip", dir / "x"});
  ASSERT_EQ(out.status, 0) << out.err;
  EXPECT_TRUE(contains(out.out, "  extracting: link-file")) << out.out;

  Result silent = run({"-q", "extract", dir / "b.zip", dir / "y"});
  ASSERT_EQ(silent.status, 0);
  EXPECT_TRUE(silent.out.empty() && silent.err.empty());
}

TEST(Tool, GzipAppendsAMemberEachTime) {
  TempDir dir;
  const std::string file = dir / "data.txt";
  const std::string content = sampleBytes(5000, 9);
  writeFile(file, content);
  ASSERT_EQ(run({"gzip", "-q", file}).status, 0);
  Result again = run({"gzip", file});
  ASSERT_EQ(again.status, 0);
  EXPECT_TRUE(contains(again.out, "appended")) << again.out;
  EXPECT_EQ(readFile(file), content) << "the source is kept";

  gzFile gz = gzopen((file + ".gz").c_str(), "rb");
  ASSERT_NE(gz, nullptr);
  std::string restored;
  char buf[4096];
  int got;
  while ((got = gzread(gz, buf, sizeof buf)) > 0) restored.append(buf, static_cast<size_t>(got));
  gzclose(gz);
  EXPECT_EQ(restored, content + content);
}

namespace {

// Enough entries with long names that the -v lines overflow a pipe.
void makeManyFiles(const std::string& root, int count) {
  fs::create_directories(root);
  for (int i = 0; i < count; ++i) {
    std::string name = "f" + std::to_string(i) + "-";
    name.resize(240, 'x');
    writeFile(root + "/" + name, std::to_string(i));
  }
}

}  // namespace

TEST(Tool, InterruptDuringCompressionClosesThePartialArchive) {
  TempDir dir;
  makeManyFiles(dir / "many", 400);
  for (int format : {1, 0}) {
    SCOPED_TRACE("format " + std::to_string(format));
    const std::string archive = dir / ("part" + std::to_string(format) + ".zip");
    bool held = false;
    Result r = runAndInterrupt(
        {"-v", "compress", "-f", std::to_string(format), dir / "many", archive}, held);
    ASSERT_TRUE(held) << "finished before its output filled the pipe";
    EXPECT_EQ(r.status, 1);
    const auto errLines = lines(r.err);
    ASSERT_FALSE(errLines.empty());
    EXPECT_EQ(errLines.back().rfind("velzip: interrupted: ", 0), 0u) << errLines.back();

    // Format 0 writes a companion after each file.
    const unsigned long written = entryCount(archive);
    EXPECT_GT(written, 0u);
    EXPECT_LT(written, format == 1 ? 400u : 800u);
    EXPECT_TRUE(contains(errLines.back(), std::to_string(written) + " entries")) << errLines.back();
    // Closed properly: it unpacks.
    const std::string out = archive + ".out";
    EXPECT_EQ(velzipDecompressFile(archive.c_str(), out.c_str(), format, nullptr, nullptr), 0);
  }
}

TEST(Tool, InterruptDuringExtractionStopsAndReports) {
  TempDir dir;
  makeManyFiles(dir / "many", 400);
  ASSERT_EQ(run({"compress", "-q", dir / "many", dir / "all.zip"}).status, 0);
  bool held = false;
  Result r = runAndInterrupt({"-v", "extract", dir / "all.zip", dir / "out"}, held);
  ASSERT_TRUE(held) << "finished before its output filled the pipe";
  EXPECT_EQ(r.status, 1);
  const auto errLines = lines(r.err);
  ASSERT_FALSE(errLines.empty());
  EXPECT_EQ(errLines.back().rfind("velzip: interrupted: ", 0), 0u) << errLines.back();
  EXPECT_TRUE(contains(errLines.back(), " of 400 entries extracted into " + dir / "out"))
      << errLines.back();
  size_t restored = 0;
  for (auto it = fs::directory_iterator(dir / "out"); it != fs::directory_iterator(); ++it) {
    ++restored;
  }
  EXPECT_GT(restored, 0u);
  EXPECT_LT(restored, 400u);
}

TEST(Tool, ProgressBarOnlyOnATerminalAndNotWhenQuiet) {
  TempDir dir;
  // Incompressible data keeps the encoder busy long enough for a bar.
  fs::create_directories(dir / "big");
  std::mt19937 gen(5);
  for (int f = 0; f < 6; ++f) {
    std::string data(1 << 20, '\0');
    for (auto& c : data) c = static_cast<char>(gen());
    writeFile(dir / ("big/part" + std::to_string(f)), data);
  }
  Result tty = runOnTerminal({"compress", "big", "big.zip"}, dir.path());
  ASSERT_EQ(tty.status, 0) << tty.err;
  EXPECT_TRUE(contains(tty.err, "\rcompress ")) << tty.err;
  EXPECT_TRUE(contains(tty.err, "entries")) << tty.err;
  EXPECT_TRUE(contains(tty.err, "\033[K")) << "the bar is wiped before the summary";

  Result quiet = runOnTerminal({"-q", "compress", "big", "big.zip"}, dir.path());
  ASSERT_EQ(quiet.status, 0);
  EXPECT_TRUE(quiet.err.empty()) << quiet.err;

  Result piped = run({"extract", "big.zip", "out"}, dir.path());
  ASSERT_EQ(piped.status, 0);
  EXPECT_FALSE(contains(piped.err, "\r"));
  EXPECT_EQ(describe(dir / "out"), describe(dir / "big"));
}

namespace {

// describe() without folders: format 0 keeps no folder entries, so empty
// folders and folder modes do not come back.
std::string describeFiles(const std::string& root) {
  std::string out;
  std::istringstream in(describe(root));
  for (std::string line; std::getline(in, line);) {
    if (line.size() < 4 || line.compare(line.size() - 4, 4, " dir") != 0) out += line + "\n";
  }
  return out;
}

std::string xattr(const std::string& path, const char* name) {
  char buf[256];
  const ssize_t n = lgetxattr(path.c_str(), name, buf, sizeof buf);
  return n >= 0 ? std::string(buf, static_cast<size_t>(n)) : std::string("<none>");
}

struct EntryRecord {
  std::string name;
  uint32_t crc, size, mode;
  bool operator==(const EntryRecord& o) const {
    return name == o.name && crc == o.crc && size == o.size && mode == o.mode;
  }
};

std::vector<EntryRecord> records(const std::string& archive) {
  std::vector<EntryRecord> out;
  Vel::VelUnzipHandler reader(archive.c_str());
  UZ_FileInfo info;
  for (bool more = reader.gotoFirstFile(nullptr); more; more = reader.gotoNextFile(nullptr)) {
    if (reader.getFileInfo(info)) {
      out.push_back({info.fileName, info.crc, info.uncompressedSize, info.mode});
    }
  }
  return out;
}

bool haveCommand(const char* name) {
  return system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace

TEST(Tool, FormatZeroMatchesTheLibraryAndCarriesExtendedAttributes) {
  TempDir dir;
  const std::string tree = dir / "tree";
  makeTree(tree);
  const bool xattrs = lsetxattr((tree + "/text.txt").c_str(), "user.velzip.tag", "blue", 4, 0) == 0;

  ASSERT_EQ(run({"compress", "-q", "-f", "0", tree, dir / "tool.zip"}).status, 0);
  // Companions carry a fresh time stamp, so the records are compared, not bytes.
  ASSERT_TRUE(ZipHandler::ZipFolder(tree.c_str(), false));
  EXPECT_EQ(records(dir / "tool.zip"), records(tree + ".zip"));

  Result list = run({"list", dir / "tool.zip"});
  ASSERT_EQ(list.status, 0);
  EXPECT_TRUE(contains(list.out, "format 0")) << list.out;
  EXPECT_TRUE(contains(list.out, "meta  __MACOSX/tree/nested/a/b/._deep.txt")) << list.out;
  EXPECT_TRUE(contains(list.out, "link  tree/link-dir -> nested")) << list.out;

  Result r = run({"extract", dir / "tool.zip", dir / "out"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(contains(r.out, "format 0")) << r.out;
  EXPECT_EQ(describeFiles(dir / "out/tree"), describeFiles(tree));
  EXPECT_FALSE(exists(dir / "out/__MACOSX"));
  if (xattrs) {
    EXPECT_EQ(xattr(dir / "out/tree/text.txt", "user.velzip.tag"), "blue");
  }

  if (haveCommand("unzip")) {
    EXPECT_EQ(system(("unzip -tq " + dir / "tool.zip" + " >/dev/null").c_str()), 0);
  }
}

TEST(Tool, ArchivesOfOtherToolsAreDetectedAsFormatZero) {
  if (!haveCommand("zip")) GTEST_SKIP() << "zip is not installed";
  TempDir dir;
  makeTree(dir / "tree");
  ASSERT_EQ(system(("cd " + dir.path() + " && zip -r -y -q other.zip tree").c_str()), 0);

  Result list = run({"list", dir / "other.zip"});
  ASSERT_EQ(list.status, 0) << list.err;
  EXPECT_TRUE(contains(list.out, "format 0")) << list.out;

  Result r = run({"extract", "-q", dir / "other.zip", dir / "out"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(describe(dir / "out/tree"), describe(dir / "tree"));

  // Forced to format 1 it cannot decode the deflated entries.
  Result forced = run({"extract", "-f", "1", dir / "other.zip", dir / "forced"});
  EXPECT_EQ(forced.status, 1);
  EXPECT_EQ(lines(forced.err).back().rfind("velzip: could not extract ", 0), 0u) << forced.err;
}

TEST(Tool, LibraryErrorsOfBothReadersReachStderr) {
  TempDir dir;
  makeTree(dir / "tree");
  writeFile(dir / "taken", "a file where the destination folder should go");
  ASSERT_EQ(run({"compress", "-q", "-f", "1", dir / "tree", dir / "one.zip"}).status, 0);
  ASSERT_EQ(run({"compress", "-q", "-f", "0", dir / "tree", dir / "zero.zip"}).status, 0);

  Result one = run({"extract", "-q", dir / "one.zip", dir / "taken"});
  EXPECT_EQ(one.status, 1);
  EXPECT_TRUE(contains(one.err,
                       "velzip: error: [VelUnzipHandler] Folder creation failed: " + dir / "taken"))
      << one.err;
  Result zero = run({"extract", "-q", dir / "zero.zip", dir / "taken"});
  EXPECT_EQ(zero.status, 1);
  EXPECT_TRUE(
      contains(zero.err, "velzip: error: [UnzipHandler] Folder creation failed: " + dir / "taken"))
      << zero.err;
  EXPECT_EQ(lines(zero.err).back().rfind("velzip: could not extract ", 0), 0u) << zero.err;
}

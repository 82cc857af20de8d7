// Runs the built velzip tool as a person would and checks what it leaves
// behind, what it prints and how it exits.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "support/child.h"
#include "support/probe.h"
#include "support/small_disk.h"
#include "support/temp_dir.h"
#include "tool/tool_run.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/velzip.h"

using namespace velzip_test;
namespace fs = std::filesystem;

TEST(Tool, HelpVersionAndUsageErrorsExitTwo) {
  ASSERT_TRUE(exists(kTool)) << "build the velzip_cli target first";
  Result help = run({"--help"}), version = run({"--version"});
  EXPECT_TRUE(help.status == 0 && contains(help.out, "-p, --password")) << help.out;
  EXPECT_TRUE(version.status == 0 && version.out.rfind("velzip ", 0) == 0) << version.out;
  for (const char* args :
       {"", "frobnicate", "compress only-one", "compress -f auto a b", "extract", "list -f 1 a.zip",
        "extract -f 9 a.zip", "extract a.zip b c", "extract no-suffix", "extract a.zip -p",
        "compress -p x a b.zip", "list --password=x a.zip", "--bogus list a.zip"}) {
    Result r = run(split(args, false));
    EXPECT_TRUE(r.status == 2 && contains(r.err, "velzip --help") && r.out.empty())
        << args << r.err;
  }
}

TEST(Tool, FailuresExitOneWithAOneLineReasonAndLeaveNothing) {
  TempDir dir;
  makeTree(dir / "tree");
  writeFile(dir / "plain", "not a folder");
  writeFile(dir / "junk.zip", "not a zip archive either");
  // Relative operands resolve against the current folder.
  for (const char* args :
       {"compress missing m.zip", "compress plain p.zip", "compress tree no/such/folder/t.zip",
        "compress tree tree/nested/inside.zip", "extract missing.zip out1", "extract junk.zip out2",
        "list junk.zip", "gzip tree"}) {
    Result r = run(split(args, false), dir.path());
    EXPECT_EQ(r.status, 1) << args;
    EXPECT_TRUE(split(r.err, true).size() == 1 && r.err.rfind("velzip: ", 0) == 0) << r.err;
  }
  for (const char* left : {"m.zip", "p.zip", "tree/nested/inside.zip", "out1", "out2"}) {
    EXPECT_FALSE(exists(dir / left)) << left;
  }
  // A walk that fails midway (the writer refuses a fifo) leaves no archive
  // and names the culprit as the user named its folder.
  ASSERT_EQ(mkfifo((dir / "tree/pipe").c_str(), 0644), 0);
  Result walk = run({"compress", "tree/", "w.zip"}, dir.path());
  EXPECT_EQ(walk.status, 1);
  EXPECT_EQ(walk.err,
            "velzip: cannot add tree/pipe: it is a fifo, not a regular file; w.zip was not "
            "written\n");
  EXPECT_FALSE(exists(dir / "w.zip"));
}

// An existing ARCHIVE is only replaced by a complete archive, and only when
// it is a zip archive itself (or with --force).
TEST(Tool, CompressReplacesOnlyZipArchives) {
  TempDir dir;
  makeTree(dir / "tree");
  const std::string emptyZip = std::string("PK\5\6", 4) + std::string(18, '\0');
  const struct {
    std::string existing;
    bool force;
    bool replaced;
  } cases[] = {{"notes, not an archive", false, false},
               {"", false, false},  // an empty file is no archive either
               {"notes, not an archive", true, true},
               {emptyZip, false, true},
               {"PK\3\4 and the rest of a zip archive", false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.existing + (c.force ? " --force" : ""));
    writeFile(dir / "out", c.existing);
    ASSERT_EQ(chmod((dir / "out").c_str(), 0640), 0);
    std::vector<std::string> args{"compress", "-q", "tree", "out"};
    if (c.force) args.insert(args.begin() + 1, "--force");
    Result r = run(args, dir.path());
    EXPECT_EQ(r.status, c.replaced ? 0 : 1) << r.err;
    EXPECT_EQ(r.err, c.replaced ? ""
                                : "velzip: out exists and is not a zip archive; use --force "
                                  "to replace it\n");
    EXPECT_EQ(readFile(dir / "out") == c.existing, !c.replaced);
    EXPECT_EQ(entryCount(dir / "out"), c.replaced ? 12u : 0u);
    EXPECT_EQ(permissions(dir / "out"), 0640u);  // a replaced file keeps its permissions
    EXPECT_EQ(folderItems(dir.path()), (std::set<std::string>{"out", "tree"}));
  }
  Result usage = run({"list", "--force", "out"}, dir.path());
  EXPECT_EQ(usage.status, 2);
}

// However compression ends short of success, an existing ARCHIVE keeps its
// bytes and nothing else is left beside it, nor in /tmp.
TEST(Tool, CompressNeverDestroysTheOldArchive) {
  TempDir dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);  // others may enter, for the unprivileged run
  const std::string tree = dir / "tree", out = dir / "out";
  fs::create_directories(tree);
  fs::create_directories(out);
  // Long names make -v print far more than a pipe holds, which holds the
  // tool mid-work for the signals.
  for (int i = 0; i < 800; ++i)
    writeFile(tree + "/f" + std::to_string(i) + std::string(200, 'x'), std::to_string(i));
  writeFile(tree + "/big", noiseBytes(3 << 20, 5));
  ASSERT_EQ(chmod(tree.c_str(), 0755), 0);
  const std::string old = "PK\5\6" + std::string(18, '\0') + "the old archive";
  const std::set<std::string> tmpBefore = writerTempFiles();

  enum class Fault { kFifo, kUnreadable, kFullDisk, kCtrlC, kKill };
  const struct {
    Fault fault;
    const char* name;
    std::string message;  // after "velzip: ", before "; ARCHIVE is left as it was"
  } cases[] = {
      {Fault::kFifo, "fifo", "cannot add tree/pipe: it is a fifo, not a regular file"},
      {Fault::kUnreadable, "unreadable", "cannot read tree/secret.key: Permission denied"},
      {Fault::kFullDisk, "full disk", "cannot write out/old.zip: No space left on device"},
      {Fault::kCtrlC, "Ctrl-C", "interrupted"},
      {Fault::kKill, "kill -9", ""},
  };
  for (const int format : {1, 0}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.name) + ", format " + std::to_string(format));
      writeFile(out + "/old.zip", old);
      ASSERT_EQ(chown(out.c_str(), kNobody, kNobody), 0);
      ASSERT_EQ(chown((out + "/old.zip").c_str(), kNobody, kNobody), 0);
      if (c.fault == Fault::kFifo) {
        ASSERT_EQ(mkfifo((tree + "/pipe").c_str(), 0644), 0);
      }
      if (c.fault == Fault::kUnreadable) {
        writeFile(tree + "/secret.key", "only root reads this");
        ASSERT_EQ(chmod((tree + "/secret.key").c_str(), 0600), 0);
      }
      std::unique_ptr<SmallDisk> disk;
      if (c.fault == Fault::kFullDisk) {
        disk = std::make_unique<SmallDisk>(out, 512);
        if (!disk->mounted()) {
          std::printf("skipped: a tmpfs cannot be mounted here\n");
          continue;
        }
        writeFile(out + "/old.zip", old);
      }
      const Via via = c.fault == Fault::kCtrlC  ? Via::kInterrupt
                      : c.fault == Fault::kKill ? Via::kKill
                                                : Via::kMemory;
      Result r = run({"-v", "compress", "-f", std::to_string(format), "tree", "out/old.zip"},
                     dir.path(), via, c.fault == Fault::kUnreadable);
      if (r.status == 77) {
        std::printf("skipped: cannot run as an unprivileged user here\n");
      } else if (c.fault == Fault::kKill) {
        EXPECT_EQ(r.status, 128 + SIGKILL);
      } else {
        ASSERT_NE(r.status, -1) << "finished before its output filled the pipe";
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(lastLine(r.err), "velzip: " + c.message + "; out/old.zip is left as it was");
      }
      EXPECT_EQ(readFile(out + "/old.zip"), old);
      EXPECT_EQ(folderItems(out), std::set<std::string>{"old.zip"});
      EXPECT_TRUE(leftoverTempFiles(tmpBefore).empty());
      disk.reset();
      unlink((tree + "/pipe").c_str());
      unlink((tree + "/secret.key").c_str());
    }
  }
}

TEST(Tool, FormatOneIsTheLibraryArchiveAndRoundTrips) {
  TempDir dir;
  const std::string tree = dir / "tree";
  makeTree(tree);
  writeFile(dir / "tool.vz", "an existing file, replaced on request");
  Result r = run({"compress", "--force", "tree", "tool.vz"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(contains(r.out, "(format 1)") && r.err.empty()) << r.out << r.err;
  ASSERT_TRUE(Vel::VelZipHandler::ZipFolder((tree + "/").c_str(), (dir / "lib.vz").c_str(), false));
  EXPECT_EQ(readFile(dir / "tool.vz"), readFile(dir / "lib.vz"));
  // Restored sizes (not the payloads'), modes, kinds, link targets.
  const std::string list = run({"list", "-q", dir / "tool.vz"}).out;
  for (const char* line :
       {": format 1\n", " 300000 ", "  -rw-------  file   bin.dat\n",
        "  drwx------  dir    emptydir/\n", "  lrwxrwxrwx  link   link-dir -> nested\n"}) {
    EXPECT_TRUE(contains(list, line)) << line << " in\n" << list;
  }
  const std::string count = std::to_string(entryCount(dir / "tool.vz")) + " entries\n";
  EXPECT_TRUE(contains(list, count) && !contains(list, "*")) << list;
  // Auto-detected; -v adds a line per entry.
  Result x = run({"-v", "extract", dir / "tool.vz", dir / "out"});
  ASSERT_EQ(x.status, 0) << x.err;
  EXPECT_TRUE(contains(x.out, "  extracting: nested/a/b/deep.txt\n") &&
              contains(x.out, "(format 1)"))
      << x.out;
  EXPECT_EQ(describe(dir / "out"), describe(tree));
  // Beside the archive, named after it; a password on a plain archive is unused.
  ASSERT_EQ(run({"extract", "-q", "-f", "1", "-p", "unused", dir / "tool.vz"}).status, 0);
  EXPECT_EQ(describe(dir / "tool"), describe(tree));
}

TEST(Tool, FormatZeroRoundTripsWithExtendedAttributes) {
  TempDir dir;
  const std::string tree = dir / "tree";
  makeTree(tree);
  const bool xattrs = lsetxattr((tree + "/text.txt").c_str(), "user.velzip.tag", "blue", 4, 0) == 0;
  ASSERT_EQ(run({"compress", "-q", "-f", "0", tree, dir / "a.zip"}).status, 0);
  EXPECT_EQ(system(("unzip -tq " + dir / "a.zip" + " >/dev/null 2>&1").c_str()), 0);
  const std::string list = run({"list", dir / "a.zip"}).out;
  for (const char* line : {": format 0\n", "link   tree/link-dir -> nested\n"}) {
    EXPECT_TRUE(contains(list, line)) << line << " in\n" << list;
  }
  // Only a file with attributes gets a companion.
  EXPECT_EQ(contains(list, "meta   __MACOSX/tree/._text.txt\n"), xattrs) << list;
  EXPECT_FALSE(contains(list, "._deep.txt")) << list;
  Result r = run({"extract", dir / "a.zip", dir / "out"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(contains(r.out, "(format 0)")) << r.out;
  EXPECT_EQ(describe(dir / "out/tree", false), describe(tree, false));
  EXPECT_FALSE(exists(dir / "out/__MACOSX"));
  char tag[8] = {};
  if (xattrs) lgetxattr((dir / "out/tree/text.txt").c_str(), "user.velzip.tag", tag, sizeof tag);
  EXPECT_STREQ(tag, xattrs ? "blue" : "");
}

// Another tool's archive, auto-detected as format 0, with encrypted entries
// and one plain entry added afterwards without a password.
TEST(Tool, PasswordProtectedArchivesOfOtherTools) {
  TempDir dir;
  makeTree(dir / "tree");
  writeFile(dir / "plain.txt", "not encrypted\n");
  const std::string zip = "zip -qry -P secret enc.zip tree && zip -q enc.zip plain.txt";
  ASSERT_EQ(system(("cd " + dir.path() + " && " + zip).c_str()), 0);
  const std::string list = run({"list", dir / "enc.zip"}).out;
  for (const char* line :
       {": format 0\n", "  file*  tree/bin.dat\n", "  file   plain.txt\n",
        "  link*  tree/link-dir -> (encrypted)\n", "encrypted (extract with -p PASSWORD)\n"}) {
    EXPECT_TRUE(contains(list, line)) << line << " in\n" << list;
  }
  Result r = run({"extract", "-p", "secret", dir / "enc.zip", dir / "out"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readFile(dir / "out/tree/bin.dat"), readFile(dir / "tree/bin.dat"));
  EXPECT_EQ(describe(dir / "out/tree"), describe(dir / "tree"));
  EXPECT_EQ(readFile(dir / "out/plain.txt"), "not encrypted\n");
  // Without a password: refused before anything is written.
  Result missing = run({"extract", dir / "enc.zip", dir / "none"});
  EXPECT_TRUE(missing.status == 1 && split(missing.err, true).size() == 1) << missing.err;
  EXPECT_TRUE(contains(missing.err, "encrypted entries; give the password with -p")) << missing.err;
  EXPECT_FALSE(exists(dir / "none"));
  // A wrong one fails at the first encrypted entry (rarely only at its CRC).
  Result wrong = run({"extract", "--password=wrong", dir / "enc.zip", dir / "bad"});
  const std::string reason = lastLine(wrong.err);
  EXPECT_TRUE(wrong.status == 1 && contains(reason, "password")) << wrong.err;
  EXPECT_EQ(reason.rfind("velzip: could not extract ", 0), 0u) << wrong.err;
  EXPECT_NE(readFile(dir / "bad/tree/bin.dat"), readFile(dir / "tree/bin.dat"));
}

TEST(Tool, GzipAppendsAMemberEachTime) {
  TempDir dir;
  const std::string file = dir / "data.txt", content = sampleBytes(5000, 9);
  writeFile(file, content);
  ASSERT_EQ(run({"gzip", "-q", file}).status, 0);
  Result again = run({"gzip", file});
  EXPECT_TRUE(again.status == 0 && contains(again.out, "appended")) << again.out;
  EXPECT_EQ(readFile(file), content) << "the source is kept";
  // gzip itself reads every member.
  ASSERT_EQ(system(("gzip -dc " + file + ".gz >" + file + ".back").c_str()), 0);
  EXPECT_EQ(readFile(file + ".back"), content + content);
}

TEST(Tool, ProgressBarOnlyOnATerminalAndNotWhenQuiet) {
  TempDir dir;
  // Incompressible data keeps the encoder busy long enough for a bar.
  ASSERT_EQ(system(("cd " + dir.path() + " && mkdir big && for i in 1 2 3 4 5 6; do" +
                    " head -c 1048576 /dev/urandom >big/part$i; done")
                       .c_str()),
            0);
  Result tty = run({"compress", "big", "big.zip"}, dir.path(), Via::kTerminal);
  ASSERT_EQ(tty.status, 0) << tty.err;
  EXPECT_TRUE(contains(tty.err, "\rcompress ") && contains(tty.err, "entries")) << tty.err;
  EXPECT_TRUE(contains(tty.err, "\033[K")) << "the bar is wiped before the summary";
  Result quiet = run({"-q", "compress", "big", "big.zip"}, dir.path(), Via::kTerminal);
  EXPECT_TRUE(quiet.status == 0 && quiet.err.empty()) << quiet.err;
  Result piped = run({"extract", "big.zip", "out"}, dir.path());
  EXPECT_TRUE(piped.status == 0 && !contains(piped.err, "\r")) << piped.err;
  EXPECT_EQ(describe(dir / "out"), describe(dir / "big"));
}

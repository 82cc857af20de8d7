// Runs the built velzip tool as a person would and checks what it leaves
// behind, what it prints and how it exits.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "support/temp_dir.h"
#include "tool/tool_run.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"
#include "velzip/velzip.h"

using namespace velzip_test;
namespace fs = std::filesystem;

namespace {

// Text and binary (multi-chunk) files, an empty file, an executable, an empty
// folder with its own mode, nested folders, links to a file and a folder, a
// non-ASCII name.
void makeTree(const std::string& root) {
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
std::string describe(const std::string& root, bool withFolders = true) {
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

unsigned long entryCount(const std::string& archive) {
  Vel::VelUnzipHandler reader(archive.c_str());
  return reader.getFileCount();
}

}  // namespace

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
  // A walk that fails midway (the writer refuses a fifo) leaves no archive.
  ASSERT_EQ(mkfifo((dir / "tree/pipe").c_str(), 0644), 0);
  Result walk = run({"compress", dir / "tree", dir / "w.zip"});
  EXPECT_TRUE(walk.status == 1 && contains(lastLine(walk.err), "could not compress")) << walk.err;
  EXPECT_FALSE(exists(dir / "w.zip"));
}

TEST(Tool, FormatOneIsTheLibraryArchiveAndRoundTrips) {
  TempDir dir;
  const std::string tree = dir / "tree";
  makeTree(tree);
  writeFile(dir / "tool.vz", "an existing archive is replaced");
  Result r = run({"compress", "tree", "tool.vz"}, dir.path());
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
  for (const char* line : {": format 0\n", "meta   __MACOSX/tree/nested/a/b/._deep.txt\n",
                           "link   tree/link-dir -> nested\n"}) {
    EXPECT_TRUE(contains(list, line)) << line << " in\n" << list;
  }
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

TEST(Tool, CtrlCDuringCompressionLeavesAClosedPartialArchive) {
  TempDir dir;
  fs::create_directories(dir / "many");
  for (int i = 0; i < 400; ++i) {  // long names: the -v lines overflow a pipe
    writeFile(dir / ("many/f" + std::to_string(i) + std::string(230, 'x')), std::to_string(i));
  }
  for (int format : {1, 0}) {
    SCOPED_TRACE("format " + std::to_string(format));
    const std::string archive = dir / ("part" + std::to_string(format) + ".zip");
    Result r = run({"-v", "compress", "-f", std::to_string(format), dir / "many", archive}, ".",
                   Via::kInterrupt);
    ASSERT_NE(r.status, -1) << "finished before its output filled the pipe";
    EXPECT_TRUE(r.status == 1 && lastLine(r.err).rfind("velzip: interrupted: ", 0) == 0) << r.err;
    // Format 0 writes a companion after each file.
    const unsigned long written = entryCount(archive);
    EXPECT_TRUE(written > 0 && written < (format == 1 ? 400u : 800u)) << written;
    EXPECT_TRUE(contains(lastLine(r.err), " " + std::to_string(written) + " entries")) << r.err;
    // Closed properly: it unpacks.
    EXPECT_EQ(
        velzipDecompressFile(archive.c_str(), (archive + ".out").c_str(), format, nullptr, nullptr),
        0);
  }
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

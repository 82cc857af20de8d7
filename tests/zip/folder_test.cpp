// Folder compression: the walk, its names and order, the one-call forms,
// folder statistics and metadata companions.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "archive_probe.h"
#include "platform/apple_double.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/VelZipHandler.h"

using namespace velzip_test;

namespace {

std::vector<std::string> listing(const std::string& folder) {
  std::vector<std::string> names;
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return names;
  while (const dirent* d = readdir(dir)) {
    const std::string n = d->d_name;
    if (n != "." && n != "..") names.push_back(n);
  }
  closedir(dir);
  return names;
}

bool isRealDir(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The names a walk of folder must produce, in listing order: files keep the
// whole remainder after the base folder, folders drop one leading "/".
void expectedWalk(const std::string& folder, size_t baseLen, std::vector<std::string>& out) {
  for (const auto& n : listing(folder)) {
    const std::string child = folder + "/" + n;
    std::string rest = child.substr(baseLen);
    if (isRealDir(child)) {
      out.push_back((rest[0] == '/' ? rest.substr(1) : rest) + "/");
      expectedWalk(child, baseLen, out);
    } else {
      out.push_back(rest);
    }
  }
}

// top/{a.txt, with space, empty, sub/{inner.bin, deeper/}, emptydir/,
//      link-file -> a.txt, link-dir -> sub}
std::string makeTree(const TempDir& tmp) {
  const std::string top = tmp / "top";
  mkdir(top.c_str(), 0755);
  mkdir((top + "/sub").c_str(), 0750);
  mkdir((top + "/sub/deeper").c_str(), 0700);
  mkdir((top + "/emptydir").c_str(), 0755);
  writeFile(top + "/a.txt", "alpha");
  writeFile(top + "/with space", sampleBytes(70000, 3));
  writeFile(top + "/empty", "");
  writeFile(top + "/sub/inner.bin", sampleBytes(1234, 4));
  symlink("a.txt", (top + "/link-file").c_str());
  symlink("sub", (top + "/link-dir").c_str());
  return top;
}

}  // namespace

TEST(VelZipFolders, WalkOrderNamesAndKinds) {
  TempDir tmp;
  const std::string top = makeTree(tmp);
  const std::string zipPath = tmp / "walk.zip";
  {
    Vel::VelZipHandler zip(zipPath.c_str(), nullptr, false);  // base: tmp, no slash
    EXPECT_TRUE(zip.addFolderToZip(top.c_str(), false, true));
  }
  std::vector<std::string> expected{"top/"};
  expectedWalk(top, tmp.path().size(), expected);
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(zipPath, entries));
  EXPECT_EQ(expected, entryNames(entries));
  // Spot checks, whatever the listing order.
  for (const char* n :
       {"/top/a.txt", "/top/with space", "/top/empty", "top/sub/", "/top/sub/inner.bin",
        "top/sub/deeper/", "top/emptydir/", "/top/link-file", "/top/link-dir"}) {
    EXPECT_NE(nullptr, findEntry(entries, n)) << n;
  }
  const ProbedEntry* sub = findEntry(entries, "top/sub/");
  ASSERT_NE(nullptr, sub);
  EXPECT_EQ(040750u, sub->mode);
  EXPECT_TRUE(sub->stored.empty());
  EXPECT_TRUE(sub->localExtra.empty());
  const ProbedEntry* linkDir = findEntry(entries, "/top/link-dir");
  ASSERT_NE(nullptr, linkDir);
  EXPECT_EQ(0xA000u, linkDir->mode & 0xF000);
  EXPECT_EQ("sub", linkDir->stored);
  std::string content;
  ASSERT_TRUE(decodeEntry(*findEntry(entries, "/top/with space"), content));
  EXPECT_EQ(sampleBytes(70000, 3), content);

  // Trailing separators are walked as the folder itself; without the root
  // entry the folder's own entry is missing.
  {
    Vel::VelZipHandler zip(zipPath.c_str(), nullptr, false);
    EXPECT_TRUE(zip.addFolderToZip((top + "///").c_str(), false, false));
  }
  ASSERT_TRUE(probeArchive(zipPath, entries));
  EXPECT_EQ(std::vector<std::string>(expected.begin() + 1, expected.end()), entryNames(entries));
}

TEST(VelZipFolders, ZipFolderForms) {
  TempDir tmp;
  const std::string top = makeTree(tmp);
  std::vector<ProbedEntry> entries;

  // Beside the folder: names relative to its parent, no entry for the folder.
  EXPECT_TRUE(Vel::VelZipHandler::ZipFolder(top.c_str(), false));
  ASSERT_TRUE(probeArchive(top + ".zip", entries));
  std::vector<std::string> expected;
  expectedWalk(top, tmp.path().size(), expected);
  EXPECT_EQ(expected, entryNames(entries));
  EXPECT_NE(nullptr, findEntry(entries, "/top/sub/inner.bin"));
  EXPECT_NE(nullptr, findEntry(entries, "top/sub/"));

  // Into a named archive, the folder given with its slash: plain names.
  const std::string named = tmp / "named.zip";
  EXPECT_TRUE(Vel::VelZipHandler::ZipFolder((top + "/").c_str(), named.c_str(), false));
  ASSERT_TRUE(probeArchive(named, entries));
  expected.clear();
  expectedWalk(top, top.size() + 1, expected);
  EXPECT_EQ(expected, entryNames(entries));
  for (const char* n : {"a.txt", "sub/", "sub/inner.bin", "sub/deeper/", "link-dir"})
    EXPECT_NE(nullptr, findEntry(entries, n)) << n;
  // Without the slash files get a leading one, folders do not.
  EXPECT_TRUE(Vel::VelZipHandler::ZipFolder(top.c_str(), named.c_str(), false));
  ASSERT_TRUE(probeArchive(named, entries));
  EXPECT_NE(nullptr, findEntry(entries, "/a.txt"));
  EXPECT_NE(nullptr, findEntry(entries, "sub/"));
  EXPECT_NE(nullptr, findEntry(entries, "/sub/inner.bin"));

  // Flattened: files under their last component, every folder entry "/".
  EXPECT_TRUE(Vel::VelZipHandler::ZipFolder((top + "/").c_str(), named.c_str(), true));
  ASSERT_TRUE(probeArchive(named, entries));
  auto names = entryNames(entries);
  EXPECT_EQ(3, std::count(names.begin(), names.end(), "/"));
  EXPECT_NE(nullptr, findEntry(entries, "inner.bin"));
  EXPECT_NE(nullptr, findEntry(entries, "a.txt"));

  // An empty folder: success and an archive without entries.
  const std::string empty = tmp / "empty-folder";
  ASSERT_EQ(0, mkdir(empty.c_str(), 0755));
  EXPECT_TRUE(Vel::VelZipHandler::ZipFolder((empty + "/").c_str(), named.c_str(), false));
  // (The zip layer's reader refuses archives without entries: check the bytes.)
  EXPECT_EQ(std::string("PK\5\6", 4) + std::string(18, '\0'), readFile(named));

  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder(nullptr, named.c_str(), false));
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder(top.c_str(), nullptr, false));
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder(nullptr, false));
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder((tmp / "missing").c_str(), false));
  // A relative folder is resolved against itself, doubled, and not found.
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder("top/", named.c_str(), false));
}

TEST(VelZipFolders, FailuresAndLogLines) {
  TempDir tmp;
  const std::string top = makeTree(tmp);
  LogCapture logs;
  Vel::VelZipHandler closed;
  EXPECT_FALSE(closed.addFolderToZip(top.c_str(), false, false));
  EXPECT_TRUE(logs.lines().empty());

  Vel::VelZipHandler zip((tmp / "f.zip").c_str(), top.c_str(), false);
  EXPECT_FALSE(zip.addFolderToZip((tmp / "elsewhere").c_str(), false, false));  // outside base
  EXPECT_FALSE(zip.addFolderToZip((top + "/missing").c_str(), false, false));
  EXPECT_TRUE(zip.addFolderToZip((top + "/sub").c_str(), false, false));

  ASSERT_FALSE(logs.lines().empty());
  const LogLine& first = logs.lines()[0];
  EXPECT_EQ(30, first.level);
  EXPECT_EQ("VELZIP", first.module);
  EXPECT_EQ("VelzipHandler", first.component);
  EXPECT_EQ("", first.tag1);
  EXPECT_EQ("", first.tag2);
  EXPECT_EQ("Entering to add folder " + tmp / "elsewhere" + " in zip (addrootfolder = 0)",
            first.text);
  bool sawDir = false, sawFile = false;
  for (const auto& l : logs.lines()) {
    if (l.text == "Found directory deeper inside directory " + top + "/sub") {
      sawDir = true;
      EXPECT_EQ(10, l.level);
    }
    if (l.text == "Found file inner.bin inside directory " + top + "/sub") {
      sawFile = true;
      EXPECT_EQ(10, l.level);
    }
  }
  EXPECT_TRUE(sawDir);
  EXPECT_TRUE(sawFile);
  EXPECT_TRUE(
      logs.contains("Entering to add folder " + top + "/sub/deeper in zip (addrootfolder = 1)"));

  // The first failing child stops the walk and fails every level above it.
  ASSERT_EQ(0, mkfifo((top + "/sub/deeper/fifo").c_str(), 0644));
  EXPECT_FALSE(zip.addFolderToZip(top.c_str(), false, false));
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder((top + "/").c_str(), (tmp / "g.zip").c_str(), false));

  capturedLines().clear();
  const std::string badZip = tmp / "no/such/dir.zip";
  EXPECT_FALSE(Vel::VelZipHandler::ZipFolder(top.c_str(), badZip.c_str(), false));
  ASSERT_EQ(1u, logs.lines().size());
  EXPECT_EQ(50, logs.lines()[0].level);
  EXPECT_EQ("opening zip " + badZip + " failed ", logs.lines()[0].text);
}

TEST(VelZipFolders, GetFolderInfo) {
  TempDir tmp;
  const std::string top = makeTree(tmp);
  Z_FileInfo info;
  EXPECT_TRUE(Vel::VelZipHandler::GetFolderInfo((top + "//").c_str(), info));
  EXPECT_EQ(6u, info.fileCount);    // four files and two links
  EXPECT_EQ(3u, info.folderCount);  // sub, sub/deeper, emptydir
  EXPECT_EQ(5u + 70000u + 1234u, info.totalSize);
  EXPECT_TRUE(Vel::VelZipHandler::GetFolderInfo(top.c_str(), info));  // adds up
  EXPECT_EQ(12u, info.fileCount);
  EXPECT_EQ(6u, info.folderCount);
  EXPECT_EQ(2u * (5u + 70000u + 1234u), info.totalSize);
  EXPECT_FALSE(Vel::VelZipHandler::GetFolderInfo((tmp / "missing").c_str(), info));
  EXPECT_FALSE(Vel::VelZipHandler::GetFolderInfo(nullptr, info));
}

TEST(VelZipFolders, ResourceForkCompanions) {
  TempDir tmp;
  const auto before = writerTempFiles();
  writeFile(tmp / "file", "data");
  const char value[] = "hello metadata";
  if (setxattr((tmp / "file").c_str(), "user.velzip.test", value, sizeof value - 1, 0) != 0)
    GTEST_SKIP() << "no user extended attributes here";
  ASSERT_EQ(0, symlink("file", (tmp / "link").c_str()));

  const std::string zipPath = tmp / "forks.zip";
  {
    Vel::VelZipHandler zip(zipPath.c_str(), nullptr, false);
    EXPECT_TRUE(zip.addResourceForkToZip("dir/file", (tmp / "file").c_str()));
    EXPECT_TRUE(zip.addResourceForkToZip("file", (tmp / "file").c_str()));
    EXPECT_TRUE(zip.addResourceForkToZip("link", (tmp / "link").c_str()));  // none for links
    EXPECT_FALSE(zip.addResourceForkToZip(nullptr, (tmp / "file").c_str()));
  }
  EXPECT_TRUE(leftoverTempFiles(before).empty());

  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(zipPath, entries));
  ASSERT_EQ((std::vector<std::string>{"__MACOSX/dir/._file", "__MACOSX/._file"}),
            entryNames(entries));
  std::string packed;
  ASSERT_TRUE(decodeEntry(entries[0], packed));
  EXPECT_EQ(0100600u, entries[0].mode);  // described like the temporary file
  velzip::AppleDoubleContents contents;
  ASSERT_TRUE(velzip::appleDoubleParse(reinterpret_cast<const uint8_t*>(packed.data()),
                                       packed.size(), contents));
  bool found = false;
  for (const auto& a : contents.attributes) {
    if (a.name == "velzip.test") {
      found = true;
      EXPECT_EQ(std::string(value), std::string(a.value.begin(), a.value.end()));
    }
  }
  EXPECT_TRUE(found);
}

namespace {

struct WalkRecorder {
  std::vector<std::string> started;
  std::string skip, abort;
};

ZLibCallbackAction onWalk(ZLibCBData* d) {
  auto* r = static_cast<WalkRecorder*>(d->userData);
  if (d->state != kZLibStateEntryStart) return kZLibContinue;
  const std::string name = d->entryName;
  EXPECT_EQ(name, d->filePath);  // children are absolute: both are the path
  r->started.push_back(name);
  if (name == r->skip) return kZLibSkip;
  if (name == r->abort) return kZLibAbort;
  return kZLibContinue;
}

}  // namespace

TEST(VelZipFolders, WalkReportsEveryFile) {
  TempDir tmp;
  const std::string top = makeTree(tmp);
  WalkRecorder rec;
  rec.skip = top + "/a.txt";
  const std::string zipPath = tmp / "cb.zip";
  {
    Vel::VelZipHandler zip(zipPath.c_str(), top.c_str(), false);
    zip.setCallback(onWalk, &rec);
    EXPECT_TRUE(zip.addFolderToZip(top.c_str(), false, false));
  }
  std::sort(rec.started.begin(), rec.started.end());
  EXPECT_EQ((std::vector<std::string>{top + "/a.txt", top + "/empty", top + "/sub/inner.bin",
                                      top + "/with space"}),
            rec.started);  // links are not reported
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(zipPath, entries));
  EXPECT_EQ(nullptr, findEntry(entries, "/a.txt"));  // skipped, and the walk went on
  EXPECT_NE(nullptr, findEntry(entries, "/sub/inner.bin"));

  // An abort stops the walk with failure.
  rec.started.clear();
  rec.skip.clear();
  rec.abort = top + "/sub/inner.bin";
  Vel::VelZipHandler zip(zipPath.c_str(), top.c_str(), false);
  zip.setCallback(onWalk, &rec);
  EXPECT_FALSE(zip.addFolderToZip(top.c_str(), false, false));
  EXPECT_EQ(rec.abort, rec.started.back());
}

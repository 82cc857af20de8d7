// Whole trees written by the format-1 writer and extracted by the format-1
// reader come back the same: content, modes, empty files and folders, links,
// awkward names, and user extended attributes through companions.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "archive_probe.h"
#include "support/temp_dir.h"
#include "velzip/VelUnzipHandler.h"
#include "velzip/VelZipHandler.h"

using namespace velzip_test;
namespace fs = std::filesystem;

namespace {

struct Item {
  mode_t mode;
  std::string data;  // content, or link target
  std::string xattr;
};

std::string getXattr(const std::string& path) {
  char buf[256];
  const ssize_t n = lgetxattr(path.c_str(), "user.velzip.color", buf, sizeof buf);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
}

// Every item under root by relative path.
std::map<std::string, Item> snapshot(const std::string& root) {
  std::map<std::string, Item> items;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
       ++it) {
    const std::string path = it->path().string();
    struct stat st;
    lstat(path.c_str(), &st);
    Item item{st.st_mode, "", ""};
    if (S_ISLNK(st.st_mode)) {
      item.data = fs::read_symlink(path).string();
    } else if (S_ISREG(st.st_mode)) {
      item.data = readFile(path);
      item.xattr = getXattr(path);
    }
    items[path.substr(root.size())] = item;
  }
  return items;
}

void expectSameTree(const std::map<std::string, Item>& want,
                    const std::map<std::string, Item>& got) {
  ASSERT_EQ(want.size(), got.size());
  for (const auto& [name, item] : want) {
    auto it = got.find(name);
    ASSERT_NE(got.end(), it) << name;
    EXPECT_EQ(item.mode & S_IFMT, it->second.mode & S_IFMT) << name;
    if (!S_ISLNK(item.mode)) {
      EXPECT_EQ(item.mode & 07777, it->second.mode & 07777) << name;
    }
    EXPECT_TRUE(item.data == it->second.data) << name;
    EXPECT_EQ(item.xattr, it->second.xattr) << name;
  }
}

// src/{a file.txt (with an attribute), exec.sh, ro.txt, empty, emptydir/,
//      naïve €/ünï.txt, sub/deep/x.bin, sub/exact, link-file, link-dir, dangling}
std::string makeTree(const TempDir& tmp, bool& haveXattrs) {
  const std::string src = tmp / "src";
  fs::create_directories(src + "/sub/deep");
  fs::create_directories(src + "/emptydir");
  fs::create_directories(src + "/na\xC3\xAFve \xE2\x82\xAC");
  writeFile(src + "/a file.txt", "hello, world\n");
  writeFile(src + "/exec.sh", "#!/bin/sh\necho hi\n");
  writeFile(src + "/ro.txt", "read only");
  writeFile(src + "/empty", "");
  writeFile(src + "/na\xC3\xAFve \xE2\x82\xAC/\xC3\xBCn\xC3\xAF.txt", "unicode");
  writeFile(src + "/sub/deep/x.bin", sampleBytes(300000, 9));
  writeFile(src + "/sub/exact", sampleBytes(65536, 2));
  chmod((src + "/exec.sh").c_str(), 0755);
  chmod((src + "/ro.txt").c_str(), 0444);
  chmod((src + "/sub").c_str(), 0750);
  symlink("a file.txt", (src + "/link-file").c_str());
  symlink("sub", (src + "/link-dir").c_str());
  symlink("missing", (src + "/dangling").c_str());
  haveXattrs = setxattr((src + "/a file.txt").c_str(), "user.velzip.color", "blue", 4, 0) == 0;
  return src;
}

}  // namespace

TEST(VelZipRoundTrip, TreeThroughZipFolder) {
  TempDir tmp;
  bool haveXattrs = false;
  const std::string src = makeTree(tmp, haveXattrs);
  removexattr((src + "/a file.txt").c_str(), "user.velzip.color");  // the walk packs none
  const std::string zipPath = tmp / "tree.zip";
  ASSERT_TRUE(Vel::VelZipHandler::ZipFolder((src + "/").c_str(), zipPath.c_str(), false));

  const std::string dest = tmp / "dest";
  Vel::VelUnzipHandler reader;
  ASSERT_TRUE(reader.unzip(zipPath.c_str(), dest.c_str(), false, 0xFFFFFFFF));
  expectSameTree(snapshot(src), snapshot(dest));
}

TEST(VelZipRoundTrip, CompanionsCarryExtendedAttributes) {
  TempDir tmp;
  bool haveXattrs = false;
  const std::string src = makeTree(tmp, haveXattrs);
  if (!haveXattrs) GTEST_SKIP() << "no user extended attributes here";
  const std::string inner = src + "/na\xC3\xAFve \xE2\x82\xAC/\xC3\xBCn\xC3\xAF.txt";
  ASSERT_EQ(0, setxattr(inner.c_str(), "user.velzip.color", "green", 5, 0));

  const std::string zipPath = tmp / "forks.zip";
  {
    Vel::VelZipHandler zip(zipPath.c_str(), (src + "/").c_str(), false);
    ASSERT_TRUE(zip.addFolderToZip((src + "/").c_str(), false, false));
    EXPECT_TRUE(zip.addResourceForkToZip("a file.txt", (src + "/a file.txt").c_str()));
    EXPECT_TRUE(
        zip.addResourceForkToZip("na\xC3\xAFve \xE2\x82\xAC/\xC3\xBCn\xC3\xAF.txt", inner.c_str()));
    ASSERT_TRUE(zip.closeZip());
  }
  std::vector<ProbedEntry> entries;
  ASSERT_TRUE(probeArchive(zipPath, entries));
  EXPECT_NE(nullptr, findEntry(entries, "__MACOSX/._a file.txt"));
  EXPECT_NE(nullptr,
            findEntry(entries, "__MACOSX/na\xC3\xAFve \xE2\x82\xAC/._\xC3\xBCn\xC3\xAF.txt"));

  const std::string dest = tmp / "dest";
  Vel::VelUnzipHandler reader;
  ASSERT_TRUE(reader.unzip(zipPath.c_str(), dest.c_str(), false, 0xFFFFFFFF));
  EXPECT_FALSE(exists(dest + "/__MACOSX"));
  expectSameTree(snapshot(src), snapshot(dest));
  EXPECT_EQ("green", getXattr(dest + "/na\xC3\xAFve \xE2\x82\xAC/\xC3\xBCn\xC3\xAF.txt"));
}

TEST(VelZipRoundTrip, ArchivesOpenInOtherTools) {
  // The container is an ordinary zip: another implementation lists every
  // entry and finds every CRC right. (The raw size text in the local extra
  // field is not a tagged block, so strict extractors may warn about it.)
  TempDir tmp;
  bool haveXattrs = false;
  const std::string src = makeTree(tmp, haveXattrs);
  const std::string zipPath = tmp / "tree.zip";
  ASSERT_TRUE(Vel::VelZipHandler::ZipFolder((src + "/").c_str(), zipPath.c_str(), false));
  if (std::system("command -v python3 >/dev/null 2>&1") != 0) GTEST_SKIP() << "no python3";
  const std::string cmd =
      "python3 -c 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
      "sys.exit(z.testzip() is not None or len(z.namelist()) != 14)' '" +
      zipPath + "'";
  EXPECT_EQ(0, std::system(cmd.c_str()));
}

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "fileutils/isolation.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;
using velzip_test::Mismatches;
using velzip_test::TempDir;
using velzip_test::writeFile;

namespace {

std::string realPathOf(const std::string& path) {
  char buf[PATH_MAX];
  return realpath(path.c_str(), buf) != nullptr ? buf : "";
}

std::string standardized(std::string path) {
  EXPECT_TRUE(FU::ConvertPathToOSPath(path));
  return path;
}

}  // namespace

TEST(PathQueries, ConvertPathToOSPathStandardizes) {
  EXPECT_EQ(standardized("a\\b\\c\\"), "a/b/c");
  EXPECT_EQ(standardized("/a//b/./c/"), "/a/b/c");
  EXPECT_EQ(standardized("./a/./b"), "a/b");
  EXPECT_EQ(standardized("../x/../y"), "../x/../y");  // relative ".." is left alone
  EXPECT_EQ(standardized("/.."), "/");
  EXPECT_EQ(standardized("/"), "/");
  EXPECT_EQ(standardized("."), ".");
  EXPECT_EQ(standardized(""), "");
  EXPECT_EQ(standardized("/no/such/thing/../other"), "/no/such/other");

  struct passwd* pw = getpwuid(geteuid());
  ASSERT_NE(pw, nullptr);
  const std::string home = pw->pw_dir;
  EXPECT_EQ(standardized("~"), home);
  EXPECT_EQ(standardized("~/x//y/"), home + "/x/y");
  EXPECT_EQ(standardized(std::string("~") + pw->pw_name + "/x"), home + "/x");
  EXPECT_EQ(standardized("~velzip-no-such-user/x"), "~velzip-no-such-user/x");
}

TEST(PathQueries, ConvertPathToOSPathResolvesParentThroughLinks) {
  TempDir dir;
  const std::string real = realPathOf(dir.path());
  ASSERT_EQ(mkdir((dir / "d").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((dir / "d/e").c_str(), 0755), 0);
  ASSERT_EQ(symlink((real + "/d/e").c_str(), (dir / "link").c_str()), 0);
  // link/.. is the real parent of what link points to, not the folder holding link.
  EXPECT_EQ(standardized(real + "/link/../x"), real + "/d/x");
  EXPECT_EQ(standardized(real + "/d/e/../../d"), real + "/d");
}

TEST(PathQueries, ExistenceAndEmptiness) {
  TempDir dir;
  writeFile(dir / "file", "x");
  ASSERT_EQ(mkdir((dir / "folder").c_str(), 0755), 0);
  ASSERT_EQ(symlink("folder", (dir / "to-folder").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);

  bool isDirectory = true;
  EXPECT_TRUE(FU::PathExists(dir / "file", isDirectory, nullptr));
  EXPECT_FALSE(isDirectory);
  EXPECT_TRUE(FU::PathExists(dir / "to-folder", isDirectory, nullptr));
  EXPECT_TRUE(isDirectory);
  EXPECT_FALSE(FU::PathExists(dir / "dangling", isDirectory, nullptr));
  EXPECT_FALSE(isDirectory);
  EXPECT_FALSE(FU::PathExists(dir / "file/under", nullptr));
  EXPECT_FALSE(FU::PathExists("", nullptr));
  EXPECT_FALSE(FU::PathExists(std::string(PATH_MAX + 10, 'a'), nullptr));

  EXPECT_TRUE(FU::isDirectoryEmpty(dir / "folder"));
  writeFile(dir / "folder/.DS_Store", "");
  EXPECT_TRUE(FU::isDirectoryEmpty(dir / "folder"));
  EXPECT_TRUE(FU::isDirectoryEmpty(dir / "to-folder"));
  writeFile(dir / "folder/.hidden", "");
  EXPECT_FALSE(FU::isDirectoryEmpty(dir / "folder"));
  unlink((dir / "folder/.DS_Store").c_str());
  EXPECT_FALSE(FU::isDirectoryEmpty(dir / "folder"));
  EXPECT_FALSE(FU::isDirectoryEmpty(dir / "file"));
  EXPECT_FALSE(FU::isDirectoryEmpty(dir / "missing"));
  EXPECT_FALSE(FU::isDirectoryEmpty(""));
}

TEST(PathQueries, ExistentParentDirectory) {
  TempDir dir;
  writeFile(dir / "file", "x");
  if (!velzip_test::exists("/no")) {
    EXPECT_EQ(FU::GetExistentParentDirectory("/no/such/deep/path"), "/");
  }
  EXPECT_EQ(FU::GetExistentParentDirectory(dir / "a/b/c"), dir.path());
  EXPECT_EQ(FU::GetExistentParentDirectory(dir / "file"), dir / "file");
  EXPECT_EQ(FU::GetExistentParentDirectory(dir / "file/under/more"), dir / "file");
  EXPECT_EQ(FU::GetExistentParentDirectory("velzip-no-such/relative/path"), ".");
  EXPECT_EQ(FU::GetExistentParentDirectory(""), "");
}

TEST(PathQueries, VolumeNameOfPath) {
  std::string name = "unset";
  EXPECT_FALSE(FU::GetVolumeNameOfPath("", name, nullptr));
  EXPECT_FALSE(FU::GetVolumeNameOfPath("relative/path", name, nullptr));
  EXPECT_EQ(name, "unset");
  TempDir dir;
  writeFile(dir / "file", "x");
  EXPECT_FALSE(FU::GetVolumeNameOfPath(dir / "file/under", name, nullptr));
  EXPECT_EQ(name, "unset");

  std::string rootName;
  ASSERT_TRUE(FU::GetVolumeNameOfPath("/", rootName, nullptr));
  EXPECT_FALSE(rootName.empty());
  // Missing parts and overlong paths walk up to what exists.
  std::string deep = "/velzip-no-such";
  while (deep.size() < PATH_MAX + 100) deep += "/component";
  std::string deepName;
  EXPECT_TRUE(FU::GetVolumeNameOfPath(deep, deepName, nullptr));
  EXPECT_EQ(deepName, rootName);
}

TEST(PathQueries, VolumeNameIsTheMountPointsLastComponent) {
  TempDir dir;
  const std::string mountPoint = realPathOf(dir.path()) + "/Scratch Volume";
  ASSERT_EQ(mkdir(mountPoint.c_str(), 0755), 0);
  VELZIP_RUN_ISOLATED([&] {
    if (mount("scratch", mountPoint.c_str(), "tmpfs", 0, nullptr) != 0)
      return std::string(velzip_test::kCannotIsolate);
    Mismatches m;
    std::string name;
    m.expect(FU::GetVolumeNameOfPath(mountPoint + "/missing/deeper", name, nullptr), "found");
    m.expectEq(name, "Scratch Volume", "name");
    return m.text();
  });
}

TEST(PathQueries, NetworkDrives) {
  EXPECT_FALSE(FU::isPathANetworkDrive(""));
  EXPECT_FALSE(FU::isPathANetworkDrive("/velzip-no-such-path"));
  EXPECT_FALSE(FU::isPathANetworkDrive("/tmp"));
  EXPECT_FALSE(FU::isPathANetworkDrive("/proc"));

  TempDir dir;
  const std::string server = realPathOf(dir.path()) + "/server";
  const std::string share = realPathOf(dir.path()) + "/share";
  ASSERT_EQ(mkdir(server.c_str(), 0755), 0);
  ASSERT_EQ(mkdir(share.c_str(), 0755), 0);
  VELZIP_RUN_ISOLATED([&] {
    // A local file system mounted under network-looking names.
    if (mount("fileserver:/export", server.c_str(), "tmpfs", 0, nullptr) != 0 ||
        mount("//fileserver/share", share.c_str(), "tmpfs", 0, nullptr) != 0) {
      return std::string(velzip_test::kCannotIsolate);
    }
    Mismatches m;
    // A server-style source counts without a type check; a path-like one needs the type.
    m.expect(FU::isPathANetworkDrive(server), "host:/export is network");
    m.expect(!FU::isPathANetworkDrive(share), "//server/share on tmpfs is not");
    return m.text();
  });
}

TEST(PathQueries, OverlongPathsFailCleanly) {
  TempDir dir;
  std::string longPath = dir.path();
  while (longPath.size() < PATH_MAX + 50) longPath += "/abcdefghij";
  std::string unused;
  velzip_test::LogCapture log;
  EXPECT_FALSE(FU::CreateDirectoryAtPath(longPath, false, nullptr));
  EXPECT_FALSE(FU::DeleteDirectoryAtPath(longPath, unused, true, false, nullptr, false));
  EXPECT_FALSE(FU::CreateFileWithContentAtPath(longPath, "x", nullptr));
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(longPath, unused, nullptr));
  EXPECT_FALSE(
      FU::CopyFileFromSourceToDestination(dir.path(), longPath, false, false, false, nullptr));
  EXPECT_FALSE(FU::utilCopySrcFolderToDstFolder(dir.path(), longPath, false));
  EXPECT_EQ(FU::GetExistentParentDirectory(longPath), dir.path());
  std::string standardizedLong = longPath + "/./x/..";
  EXPECT_TRUE(FU::ConvertPathToOSPath(standardizedLong));
  EXPECT_EQ(standardizedLong, longPath);
  // Creation, deletion, and the copy's line after its own failed parent creation.
  EXPECT_EQ(log.lines().size(), 4u);
}

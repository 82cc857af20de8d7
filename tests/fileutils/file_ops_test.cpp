#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;
using velzip_test::exists;
using velzip_test::LogCapture;
using velzip_test::TempDir;
using velzip_test::writeFile;

TEST(FileOps, GetFileSizeDoesNotFollowLinks) {
  TempDir dir;
  writeFile(dir / "ten", "0123456789");
  unsigned long long size = 99;
  EXPECT_TRUE(FU::GetFileSize(dir / "ten", size));
  EXPECT_EQ(size, 10u);
  ASSERT_EQ(symlink("ten", (dir / "link").c_str()), 0);
  EXPECT_TRUE(FU::GetFileSize(dir / "link", size));
  EXPECT_EQ(size, 3u);  // the link's own length
  size = 99;
  EXPECT_FALSE(FU::GetFileSize(dir / "missing", size));
  EXPECT_EQ(size, 0u);
  size = 99;
  EXPECT_FALSE(FU::GetFileSize("", size));
  EXPECT_EQ(size, 0u);
}

TEST(FileOps, DeleteFileAtPath) {
  TempDir dir;
  EXPECT_TRUE(FU::DeleteFileAtPath(dir / "missing", false, nullptr));
  writeFile(dir / "f", "x");
  EXPECT_TRUE(FU::DeleteFileAtPath(dir / "f", false, nullptr));
  EXPECT_FALSE(exists(dir / "f"));
  // A dangling link counts as nothing there and stays.
  ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);
  EXPECT_TRUE(FU::DeleteFileAtPath(dir / "dangling", false, nullptr));
  EXPECT_TRUE(exists(dir / "dangling"));
  // A link to a file goes, the file stays.
  writeFile(dir / "target", "x");
  ASSERT_EQ(symlink("target", (dir / "link").c_str()), 0);
  EXPECT_TRUE(FU::DeleteFileAtPath(dir / "link", false, nullptr));
  EXPECT_FALSE(exists(dir / "link"));
  EXPECT_TRUE(exists(dir / "target"));
  ASSERT_EQ(mkdir((dir / "empty").c_str(), 0755), 0);
  EXPECT_TRUE(FU::DeleteFileAtPath(dir / "empty", false, nullptr));
  ASSERT_EQ(mkdir((dir / "full").c_str(), 0755), 0);
  writeFile(dir / "full/x", "x");
  EXPECT_FALSE(FU::DeleteFileAtPath(dir / "full", false, nullptr));
  EXPECT_TRUE(exists(dir / "full/x"));
}

namespace {

struct stat lstatOf(const std::string& path) {
  struct stat st = {};
  lstat(path.c_str(), &st);
  return st;
}

std::string attribute(const std::string& path, const char* name) {
  char value[256];
  ssize_t n = getxattr(path.c_str(), name, value, sizeof value);
  return n >= 0 ? std::string(value, static_cast<size_t>(n)) : "<none>";
}

// A small tree with the metadata a copy must keep.
void makeTree(const TempDir& dir, const std::string& root) {
  ASSERT_TRUE(FU::CreateDirectoryAtPath(dir / (root + "/sub/deeper"), false, nullptr));
  writeFile(dir / (root + "/top.txt"), "top");
  writeFile(dir / (root + "/sub/script"), "#!/bin/sh\n");
  ASSERT_EQ(chmod((dir / (root + "/sub/script")).c_str(), 0751), 0);
  ASSERT_EQ(symlink("../top.txt", (dir / (root + "/sub/link")).c_str()), 0);
  const struct timespec times[2] = {{1000000000, 0}, {1234567890, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, (dir / (root + "/top.txt")).c_str(), times, 0), 0);
  ASSERT_EQ(chmod((dir / (root + "/sub/deeper")).c_str(), 0700), 0);
}

void expectTreeCopied(const TempDir& dir, const std::string& copy, bool withAttributes) {
  EXPECT_EQ(velzip_test::readFile(dir / (copy + "/top.txt")), "top");
  EXPECT_EQ(lstatOf(dir / (copy + "/top.txt")).st_mtim.tv_sec, 1234567890);
  EXPECT_EQ(lstatOf(dir / (copy + "/sub/script")).st_mode & 07777, 0751u);
  EXPECT_EQ(lstatOf(dir / (copy + "/sub/deeper")).st_mode & 07777, 0700u);
  EXPECT_TRUE(S_ISLNK(lstatOf(dir / (copy + "/sub/link")).st_mode));
  char target[64] = {};
  EXPECT_GT(readlink((dir / (copy + "/sub/link")).c_str(), target, sizeof target - 1), 0);
  EXPECT_STREQ(target, "../top.txt");
  if (withAttributes) {
    EXPECT_EQ(attribute(dir / (copy + "/top.txt"), "user.velzip"), "kept");
  }
}

}  // namespace

TEST(FileOps, CopyFileFromSourceToDestination) {
  TempDir dir;
  writeFile(dir / "src", "source");
  writeFile(dir / "dst", "old");
  LogCapture log;
  EXPECT_FALSE(
      FU::CopyFileFromSourceToDestination(dir / "src", dir / "dst", false, false, false, nullptr));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 50);
  EXPECT_EQ(log.lines()[0].text, "Error Failed to copy src file '" + (dir / "src") +
                                     "' to dst file '" + (dir / "dst") + "'.");
  EXPECT_EQ(velzip_test::readFile(dir / "dst"), "old");

  EXPECT_TRUE(
      FU::CopyFileFromSourceToDestination(dir / "src", dir / "dst", true, false, false, nullptr));
  EXPECT_EQ(velzip_test::readFile(dir / "dst"), "source");
  // Missing parents are made.
  EXPECT_TRUE(FU::CopyFileFromSourceToDestination(dir / "src", dir / "new/deep/dst", false, false,
                                                  false, nullptr));
  EXPECT_EQ(velzip_test::readFile(dir / "new/deep/dst"), "source");

  // A folder in the way of a file cannot be deleted by the overwrite.
  ASSERT_EQ(mkdir((dir / "busy").c_str(), 0755), 0);
  writeFile(dir / "busy/x", "");
  EXPECT_FALSE(
      FU::CopyFileFromSourceToDestination(dir / "src", dir / "busy", true, false, false, nullptr));
  EXPECT_EQ(log.lines().back().text, "Unable to delete destination file '" + (dir / "busy") + "'.");
  EXPECT_FALSE(FU::CopyFileFromSourceToDestination(dir / "missing", dir / "other", true, false,
                                                   false, nullptr));
  EXPECT_FALSE(exists(dir / "other"));
  EXPECT_EQ(log.lines().size(), 3u);
}

TEST(FileOps, CopyFileCopiesTreesAndLinks) {
  TempDir dir;
  makeTree(dir, "tree");
  const bool attributes =
      setxattr((dir / "tree/top.txt").c_str(), "user.velzip", "kept", 4, 0) == 0;
  EXPECT_TRUE(FU::CopyFileFromSourceToDestination(dir / "tree", dir / "copy", false, false, false,
                                                  nullptr));
  expectTreeCopied(dir, "copy", attributes);
  // A link is copied as a link.
  EXPECT_TRUE(FU::CopyFileFromSourceToDestination(dir / "tree/sub/link", dir / "link2", false,
                                                  false, false, nullptr));
  EXPECT_TRUE(S_ISLNK(lstatOf(dir / "link2").st_mode));
  // Copying a folder into itself ends.
  EXPECT_TRUE(FU::CopyFileFromSourceToDestination(dir / "tree", dir / "tree/sub/inner", false,
                                                  false, false, nullptr));
  EXPECT_TRUE(exists(dir / "tree/sub/inner/sub/script"));
  EXPECT_FALSE(exists(dir / "tree/sub/inner/sub/inner"));
}

TEST(FileOps, FolderCopyMergesIntoTheDestination) {
  TempDir dir;
  makeTree(dir, "src");
  const bool attributes = setxattr((dir / "src/top.txt").c_str(), "user.velzip", "kept", 4, 0) == 0;
  EXPECT_TRUE(FU::utilCopySrcFolderToDstFolder(dir / "src", dir / "made/with/parents", false));
  expectTreeCopied(dir, "made/with/parents", attributes);

  ASSERT_TRUE(FU::CreateDirectoryAtPath(dir / "dst/sub", false, nullptr));
  writeFile(dir / "dst/own", "mine");
  writeFile(dir / "dst/top.txt", "older");
  writeFile(dir / "dst/sub/link", "a file where the link goes");
  EXPECT_TRUE(FU::utilCopySrcFolderToDstFolder(dir / "src/", dir / "dst", false));
  expectTreeCopied(dir, "dst", attributes);
  EXPECT_EQ(velzip_test::readFile(dir / "dst/own"), "mine");

  writeFile(dir / "file", "");
  EXPECT_FALSE(FU::utilCopySrcFolderToDstFolder(dir / "file", dir / "x", false));
  EXPECT_FALSE(FU::utilCopySrcFolderToDstFolder(dir / "missing", dir / "x", false));
  EXPECT_FALSE(FU::utilCopySrcFolderToDstFolder(dir / "src", "", false));
  EXPECT_FALSE(exists(dir / "x"));
  // A destination inside the source is not copied into itself.
  EXPECT_TRUE(FU::utilCopySrcFolderToDstFolder(dir / "src", dir / "src/sub/again", false));
  EXPECT_TRUE(exists(dir / "src/sub/again/top.txt"));
  EXPECT_FALSE(exists(dir / "src/sub/again/sub/again"));
}

TEST(FileOps, FolderCopyKeepsOwnersAsRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can keep other users' owners";
  TempDir dir;
  ASSERT_TRUE(FU::CreateDirectoryAtPath(dir / "src/sub", false, nullptr));
  writeFile(dir / "src/sub/f", "x");
  ASSERT_EQ(chown((dir / "src/sub").c_str(), 501, 20), 0);
  ASSERT_EQ(chown((dir / "src/sub/f").c_str(), 502, 21), 0);
  EXPECT_TRUE(FU::utilCopySrcFolderToDstFolder(dir / "src", dir / "dst", false));
  EXPECT_EQ(lstatOf(dir / "dst/sub").st_uid, 501u);
  EXPECT_EQ(lstatOf(dir / "dst/sub/f").st_uid, 502u);
  EXPECT_EQ(lstatOf(dir / "dst/sub/f").st_gid, 21u);
}

TEST(FileOps, RenameSetModeAndFlush) {
  TempDir dir;
  writeFile(dir / "a", "x");
  LogCapture log;
  EXPECT_TRUE(FU::RenamePathToPath(dir / "a", dir / "b", false, nullptr));
  EXPECT_TRUE(exists(dir / "b"));
  EXPECT_FALSE(FU::RenamePathToPath(dir / "a", dir / "c", false, nullptr));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 50);
  EXPECT_EQ(log.lines()[0].text,
            "Failed to rename Error code (2:No such file or directory) the "
            "directory from " +
                (dir / "a") + " to " + (dir / "c") + ".");

  EXPECT_TRUE(FU::SetMode(dir / "b", 0x10000 | 0640));
  EXPECT_EQ(lstatOf(dir / "b").st_mode & 07777, 0640u);
  EXPECT_FALSE(FU::SetMode(dir / "missing", 0644));

  EXPECT_TRUE(FU::FlushFileBuffers(dir / "b"));
  EXPECT_TRUE(FU::FlushFileBuffers(dir / "missing"));
  EXPECT_TRUE(FU::FlushFileBuffers(""));
}

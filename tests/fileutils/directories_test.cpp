#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;
using velzip_test::CaptureLogger;
using velzip_test::exists;
using velzip_test::LogCapture;
using velzip_test::TempDir;
using velzip_test::writeFile;

namespace {

struct stat statOf(const std::string& path) {
  struct stat st = {};
  lstat(path.c_str(), &st);
  return st;
}

}  // namespace

TEST(Directories, CreateWithParents) {
  TempDir dir;
  LogCapture log;
  EXPECT_TRUE(FU::CreateDirectoryAtPath(dir / "a/b//c/", false, nullptr));
  EXPECT_TRUE(S_ISDIR(statOf(dir / "a/b/c").st_mode));
  EXPECT_TRUE(FU::CreateDirectoryAtPath(dir / "a/b/c", false, nullptr));
  EXPECT_TRUE(log.lines().empty());

  writeFile(dir / "file", "x");
  EXPECT_FALSE(FU::CreateDirectoryAtPathEx(dir / "file/sub", nullptr, false));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 50);
  EXPECT_EQ(log.lines()[0].module, "UlvoUtils");
  EXPECT_EQ(log.lines()[0].component, "FileUtils");
  EXPECT_EQ(log.lines()[0].text,
            "Failed to create directory at path ex " + (dir / "file/sub") + " ");
  EXPECT_FALSE(FU::CreateDirectoryAtPath(dir / "file", false, nullptr));
  EXPECT_FALSE(FU::CreateDirectoryAtPath("", false, nullptr));
}

TEST(Directories, CreateWithPermissionsLogsTheAncestor) {
  TempDir dir;
  CaptureLogger logger;
  LogCapture log;
  ASSERT_TRUE(FU::CreateDirectoryAtPathEx(dir / "x/y", &logger, true));
  // The handle takes the lines; the sink sees none.
  ASSERT_EQ(log.lines().size(), 2u);
  const struct stat parent = statOf(dir.path());
  EXPECT_EQ(log.lines()[0].module, "<object>");
  EXPECT_EQ(log.lines()[0].level, 30);
  EXPECT_EQ(log.lines()[0].tag1, "");
  EXPECT_EQ(log.lines()[0].text,
            " shouldSetPermission is true, parent folder found  =  " + dir.path() + " ");
  EXPECT_EQ(log.lines()[1].text,
            "shouldSetPermission is true,owner =" + std::to_string(parent.st_uid) +
                ",group =" + std::to_string(parent.st_gid));
  for (const char* made : {"x", "x/y"}) {
    EXPECT_EQ(statOf(dir / made).st_mode & 07777, 0775u) << made;
  }
}

TEST(Directories, CreatedFoldersInheritTheAncestorsOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give folders away";
  TempDir dir;
  ASSERT_EQ(mkdir((dir / "user").c_str(), 0755), 0);
  ASSERT_EQ(chown((dir / "user").c_str(), 501, 20), 0);
  ASSERT_EQ(symlink("user", (dir / "link").c_str()), 0);
  ASSERT_TRUE(FU::CreateDirectoryAtPathEx(dir / "user/a/b/c", nullptr, true));
  for (const char* made : {"user/a", "user/a/b", "user/a/b/c"}) {
    const struct stat st = statOf(dir / made);
    EXPECT_EQ(st.st_uid, 501u) << made;
    EXPECT_EQ(st.st_gid, 20u) << made;
    EXPECT_EQ(st.st_mode & 07777, 0775u) << made;
  }
  {
    // Through a link only the mode is given.
    LogCapture log;
    ASSERT_TRUE(FU::CreateDirectoryAtPathEx(dir / "link/m/n", nullptr, true));
    EXPECT_EQ(log.lines().size(), 1u);  // no owner line
  }
  for (const char* made : {"user/m", "user/m/n"}) {
    const struct stat st = statOf(dir / made);
    EXPECT_EQ(st.st_uid, 0u) << made;
    EXPECT_EQ(st.st_mode & 07777, 0775u) << made;
  }
  // Without permissions nothing is given away.
  ASSERT_TRUE(FU::CreateDirectoryAtPath(dir / "user/plain", false, nullptr));
  EXPECT_EQ(statOf(dir / "user/plain").st_uid, 0u);
}

TEST(Directories, Delete) {
  TempDir dir;
  std::string unused;
  LogCapture log;
  ASSERT_TRUE(FU::CreateDirectoryAtPath(dir / "full/sub", false, nullptr));
  writeFile(dir / "full/sub/f", "x");
  EXPECT_FALSE(FU::DeleteDirectoryAtPath(dir / "full", unused, false, false, nullptr, true));
  ASSERT_EQ(mkdir((dir / "finder").c_str(), 0755), 0);
  writeFile(dir / "finder/.DS_Store", "");
  EXPECT_FALSE(FU::DeleteDirectoryAtPath(dir / "finder", unused, false, false, nullptr, true));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(exists(dir / "full/sub/f"));

  ASSERT_EQ(mkdir((dir / "empty").c_str(), 0755), 0);
  EXPECT_TRUE(FU::DeleteDirectoryAtPath(dir / "empty", unused, false, false, nullptr, false));
  EXPECT_FALSE(exists(dir / "empty"));
  EXPECT_TRUE(log.lines().empty());

  // A link to a tree goes; the tree stays.
  ASSERT_EQ(symlink("full", (dir / "link").c_str()), 0);
  EXPECT_TRUE(FU::DeleteDirectoryAtPath(dir / "link", unused, true, false, nullptr, false));
  EXPECT_FALSE(exists(dir / "link"));
  EXPECT_TRUE(exists(dir / "full/sub/f"));

  EXPECT_TRUE(FU::DeleteDirectoryAtPath(dir / "full", unused, true, false, nullptr, true));
  EXPECT_FALSE(exists(dir / "full"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 30);
  EXPECT_EQ(log.lines()[0].text,
            "Successfully deleted directory from path: " + (dir / "full") + ". Recursive: 1");

  writeFile(dir / "plain", "x");
  EXPECT_TRUE(FU::DeleteDirectoryAtPath(dir / "plain", unused, false, false, nullptr, false));
  EXPECT_FALSE(exists(dir / "plain"));
  EXPECT_FALSE(FU::DeleteDirectoryAtPath("", unused, true, false, nullptr, false));
}

TEST(Directories, DeleteFailureLogsAWarning) {
  TempDir dir;
  std::string unused;
  LogCapture log;
  EXPECT_FALSE(FU::DeleteDirectoryAtPath(dir / "missing", unused, true, false, nullptr, true));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 40);
  EXPECT_EQ(log.lines()[0].text, "Failed to remove file. Error: No such file or directory");
}

TEST(Directories, DeleteStopsAtUnreadableFoldersForNonRoot) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads every folder";
  TempDir dir;
  std::string unused;
  ASSERT_TRUE(FU::CreateDirectoryAtPath(dir / "t/locked", false, nullptr));
  writeFile(dir / "t/locked/f", "x");
  ASSERT_EQ(chmod((dir / "t/locked").c_str(), 0), 0);
  LogCapture log;
  EXPECT_FALSE(FU::DeleteDirectoryAtPath(dir / "t", unused, true, false, nullptr, true));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].text, "Failed to remove file. Error: Permission denied");
}

TEST(Directories, HideUnhideAndOpenNeedAFolder) {
  TempDir dir;
  writeFile(dir / "file", "x");
  LogCapture log;
  EXPECT_FALSE(FU::HideDirectoryAtPath(dir / "file", nullptr));
  EXPECT_FALSE(FU::UnHideDirectoryAtPath(dir / "missing", nullptr));
  EXPECT_FALSE(FU::OpenDirectoryAtPath("", nullptr));
  ASSERT_EQ(log.lines().size(), 3u);
  for (const auto& line : log.lines()) EXPECT_EQ(line.level, 40);
  EXPECT_EQ(log.lines()[0].text,
            "Directory to open not present at location '" + (dir / "file") + "'");
  EXPECT_EQ(log.lines()[1].text,
            "Directory to open not present at location '" + (dir / "missing") + "'");
  EXPECT_TRUE(FU::HideDirectoryAtPath(dir.path(), nullptr));
  EXPECT_TRUE(FU::UnHideDirectoryAtPath(dir.path(), nullptr));
  // Only where no file browser would pop up during the tests.
  if (access("/usr/bin/xdg-open", X_OK) != 0) {
    EXPECT_TRUE(FU::OpenDirectoryAtPath(dir.path()));
  }
  EXPECT_EQ(log.lines().size(), 3u);
}

#include <sys/xattr.h>

#include <algorithm>

#include "fileutils/fixtures.h"

using namespace velzip_test;

namespace {

// Content, time, modes, link target and extended attribute of a tree, as one line.
std::string treeFacts(const std::string& root) {
  char target[64] = {}, value[8] = {};
  readlink((root + "/sub/link").c_str(), target, sizeof target - 1);
  getxattr((root + "/top").c_str(), "user.velzip", value, sizeof value - 1);
  return readFile(root + "/top") + " " + std::to_string(lstatOf(root + "/top").st_mtime) + " " +
         modeOf(root + "/sub/script") + " " + modeOf(root + "/sub/deeper") + " " + target + value;
}

Lines listing(const std::string& path, bool recursive, const char* extension = nullptr) {
  Lines paths;
  EXPECT_TRUE(extension == nullptr ? FU::GetFilePathsAtPath(path, paths, recursive, nullptr)
                                   : FU::GetFilePathsWithExtensionAtPath(path, extension, paths,
                                                                         recursive, nullptr));
  std::sort(paths.begin(), paths.end());  // sibling order is the file system's
  return paths;
}

}  // namespace

TEST(Directories, CreateDeleteHideAndInheritedOwners) {
  TempDir dir;
  make(dir.path(), {"file", "full/sub/f", "finder/.DS_Store", "user/", "link->user", "tree->full"});
  const std::string overlong = overlongUnder(dir.path());
  LogCapture log;
  EXPECT_TRUE(FU::CreateDirectoryAtPath(dir / "a/b//c/", false, nullptr));
  EXPECT_TRUE(FU::CreateDirectoryAtPath(dir / "a/b/c", false, nullptr) && log.lines().empty());
  for (const std::string& bad : {dir / "file/sub", dir / "file", std::string(), overlong}) {
    capturedLines().clear();
    EXPECT_FALSE(FU::CreateDirectoryAtPathEx(bad, nullptr, false));
    EXPECT_EQ(log.texts(), Lines{"50 Failed to create directory at path ex " + bad + " "});
  }
  EXPECT_EQ(log.lines()[0].module + "/" + log.lines()[0].component, "UlvoUtils/FileUtils");
  EXPECT_FALSE(exists(dir / "abcdefghij"));  // no parents left from the overlong one

  // Not recursive, any entry refuses silently; a link to a tree goes alone.
  std::string unused;
  auto remove = [&](const std::string& path, bool recursive) {
    return FU::DeleteDirectoryAtPath(path, unused, recursive, false, nullptr, true);
  };
  capturedLines().clear();
  EXPECT_FALSE(remove(dir / "full", false) || remove(dir / "finder", false));
  EXPECT_TRUE(remove(dir / "a/b/c", false) && remove(dir / "tree", true));
  EXPECT_TRUE(exists(dir / "full/sub/f") && remove(dir / "full", true) && !exists(dir / "full"));
  EXPECT_FALSE(remove("", true) || remove(dir / "missing", true) || remove(overlong, true));
  // Hiding, unhiding and showing need an existing folder, and share their line.
  EXPECT_FALSE(FU::HideDirectoryAtPath(dir / "file", nullptr) ||
               FU::OpenDirectoryAtPath("", nullptr));
  const std::string deleted = "30 Successfully deleted directory from path: " + dir.path() + "/";
  const std::string absent = "40 Directory to open not present at location '";
  EXPECT_EQ(log.texts(), (Lines{deleted + "a/b/c. Recursive: 0", deleted + "tree. Recursive: 1",
                                deleted + "full. Recursive: 1",
                                "40 Failed to remove file. Error: No such file or directory",
                                "40 Failed to remove file. Error: File name too long",
                                absent + (dir / "file") + "'", absent + "'"}));

  // With permissions the ancestor's lines go to the handle, every new level
  // gets 0775 and, as root, the owner of the nearest existing ancestor
  // unless that is a link.
  CaptureLogger handle;
  capturedLines().clear();
  const bool root = geteuid() == 0;
  ASSERT_TRUE(!root || chown((dir / "user").c_str(), 501, 20) == 0);
  ASSERT_TRUE(FU::CreateDirectoryAtPathEx(dir / "user/a/b", &handle, true));
  const struct stat up = lstatOf(dir / "user");
  EXPECT_EQ(
      log.texts(),
      (Lines{"30  shouldSetPermission is true, parent folder found  =  " + (dir / "user") + " ",
             "30 shouldSetPermission is true,owner =" + std::to_string(up.st_uid) +
                 ",group =" + std::to_string(up.st_gid)}));
  EXPECT_EQ(log.lines()[0].module, "<object>");
  ASSERT_TRUE(FU::CreateDirectoryAtPathEx(dir / "link/m/n", nullptr, true));
  ASSERT_TRUE(FU::CreateDirectoryAtPath(dir / "user/plain", false, nullptr));
  std::string owners;
  for (const char* made : {"user/a", "user/a/b", "user/m", "user/m/n", "user/plain"}) {
    const struct stat st = lstatOf(dir / made);
    owners += std::to_string(st.st_uid) + ":" + std::to_string(st.st_gid) + " " +
              modeOf(dir / made) + ", ";
  }
  if (!root) GTEST_SKIP() << "only root can give folders away; modes: " << owners;
  EXPECT_EQ(owners, "501:20 775, 501:20 775, 0:0 775, 0:0 775, 0:0 755, ");
}

TEST(FileOps, CopiesKeepMetadataMergeAndFailCleanly) {
  TempDir dir;
  make(dir.path(), {"src=source", "dst=old", "busy/x", "dangling->nowhere", "top=top",
                    "sub/deeper/", "sub/script=#!/bin/sh", "sub/link->../top"});
  auto copyFile = [](const std::string& src, const std::string& dst, bool overwrite = false) {
    return FU::CopyFileFromSourceToDestination(src, dst, overwrite, false, false, nullptr);
  };
  const std::string overlong = overlongUnder(dir.path()), copied = "50 Error Failed to copy src ";
  LogCapture log;
  EXPECT_FALSE(copyFile(dir / "src", dir / "dst"));
  EXPECT_TRUE(copyFile(dir / "src", dir / "dst", true) && copyFile(dir / "src", dir / "new/deep"));
  EXPECT_EQ(readFile(dir / "dst") + " " + readFile(dir / "new/deep"), "source source");
  EXPECT_FALSE(copyFile(dir / "src", dir / "busy", true));  // a full folder cannot be deleted
  EXPECT_FALSE(copyFile(dir / "src", overlong));            // its parent creation logs first
  EXPECT_EQ(log.texts(),
            (Lines{copied + "file '" + (dir / "src") + "' to dst file '" + (dir / "dst") + "'.",
                   "50 Unable to delete destination file '" + (dir / "busy") + "'.",
                   "50 Failed to create directory at path ex " +
                       overlong.substr(0, overlong.rfind('/')) + " ",
                   copied + "file '" + (dir / "src") + "' to dst file '" + overlong + "'."}));

  // Both copies keep the metadata (links as links, owners too for the folder
  // copy as root), make parents, and end when copying into themselves. The
  // folder copy merges: the destination's own files stay, the source's
  // replace theirs whatever their kind.
  ASSERT_EQ(shell("cd '" + dir.path() +
                  "' && chmod 751 sub/script && chmod 700 sub/deeper && "
                  "touch -m -d @1234567890 top"),
            0);
  const bool xattrs = setxattr((dir / "top").c_str(), "user.velzip", "kept", 4, 0) == 0;
  ASSERT_TRUE(geteuid() != 0 || lchown((dir / "sub/link").c_str(), 502, 21) == 0);
  make(dir.path(), {"into/own=mine", "into/top=older", "into/sub/link=a file"});
  EXPECT_TRUE(copyFile(dir.path(), dir / "copy/in"));
  EXPECT_TRUE(FU::utilCopySrcFolderToDstFolder(dir.path(), dir / "made/with/parents", false));
  EXPECT_TRUE(FU::utilCopySrcFolderToDstFolder(dir / "copy/in/", dir / "into", false));
  const std::string facts = "top 1234567890 751 700 ../top" + std::string(xattrs ? "kept" : "");
  for (const char* copy : {"copy/in", "made/with/parents", "into"})
    EXPECT_EQ(treeFacts(dir / copy), facts) << copy;
  EXPECT_FALSE(exists(dir / "copy/in/copy/in") || exists(dir / "made/with/parents/made/with/p"));
  EXPECT_EQ(readFile(dir / "into/own"), "mine");
  EXPECT_EQ(lstatOf(dir / "made/with/parents/sub/link").st_uid, geteuid() == 0 ? 502u : geteuid());
  for (const std::string& bad : {dir / "src", dir / "missing", dir / "dangling"})
    EXPECT_FALSE(FU::utilCopySrcFolderToDstFolder(bad, dir / "x", false)) << bad;
  EXPECT_FALSE(FU::utilCopySrcFolderToDstFolder(dir / "sub", "", false) || exists(dir / "x"));
}

TEST(FileOps, DeletionRenameSizeContentAndListings) {
  TempDir dir;
  make(dir.path(), {"ten=0123456789", "link->ten", "dangling->nowhere", "full/x", "empty/", "t"});
  // Nothing there (dangling included, which stays) is success; a link goes
  // without its target; a full folder stays.
  for (const char* name : {"missing", "dangling", "link", "empty"})
    EXPECT_TRUE(FU::DeleteFileAtPath(dir / name, false, nullptr)) << name;
  EXPECT_FALSE(FU::DeleteFileAtPath(dir / "full", false, nullptr));
  EXPECT_TRUE(exists(dir / "dangling") && exists(dir / "full/x") && !exists(dir / "link"));
  unsigned long long size = 0;  // a link's own: its target text's
  EXPECT_TRUE(FU::GetFileSize(dir / "dangling", size) && size == 7);
  LogCapture log;
  EXPECT_TRUE(FU::RenamePathToPath(dir / "t", dir / "b", false, nullptr));
  EXPECT_FALSE(FU::RenamePathToPath(dir / "t", dir / "c", false, nullptr));
  const std::string renamed = "50 Failed to rename Error code (2:No such file or directory) the ";
  EXPECT_EQ(log.texts(),
            Lines{renamed + "directory from " + (dir / "t") + " to " + (dir / "c") + "."});

  // Written atomically (NULs kept, no temporary left); read as UTF-8, else
  // UTF-16 (with its mark, or big-endian), else not at all; bytes up to a limit.
  const std::string content("line\0with zero\n", 15);
  EXPECT_TRUE(FU::CreateFileWithContentAtPath(dir / "b", content, nullptr));
  for (const std::string& bad : {std::string(), dir / "missing/f", dir / "full"})
    EXPECT_FALSE(FU::CreateFileWithContentAtPath(bad, "x", nullptr)) << bad;
  EXPECT_EQ(listing(dir.path(), false), (Lines{dir / "b", dir / "dangling", dir / "ten"}));
  auto load = [](const std::string& path, std::string s = "untouched") {
    return FU::LoadContentOfFileAtPath(path, s, nullptr) ? s : "<false> " + s;
  };
  // clang-format off
  const std::pair<std::string, std::string> texts[] = {
      {content, content}, {std::string("\0h\0\xFC", 4), "h\xC3\xBC"},
      {std::string("\xFF\xFEh\0\xFC\0=\xD8\0\xDE", 10), "h\xC3\xBC\xF0\x9F\x98\x80"},  // a pair
      {std::string("\xFF\xFE\0\xDC", 4), "<false> untouched"}};  // a lone low surrogate
  // clang-format on
  for (const auto& [stored, text] : texts) {
    writeFile(dir / "text", stored);
    EXPECT_EQ(load(dir / "text"), text);
  }
  EXPECT_EQ(load(dir / "missing") + ", " + load(dir.path()),
            "<false> untouched, <false> untouched");
  std::vector<char> bytes = {'x'};
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "ten", 4, bytes, nullptr));
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "0123");
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(dir / "missing", 4, bytes, nullptr) || !bytes.empty());

  // Links to folders are neither listed flat nor entered; dangling ones are
  // entries. Matching folders are listed and entered; the relative name must
  // be longer than the extension, so n.txt/.txt counts.
  const std::string p = dir / "list";
  make(p, {"a", "d/b", "d/loop->.", "dangling->nowhere", "x.txt", ".txt", "x.TXT", "n.txt/.txt"});
  EXPECT_EQ(listing(p + "/", false),
            (Lines{p + "/.txt", p + "/a", p + "/dangling", p + "/x.TXT", p + "/x.txt"}));
  EXPECT_EQ(listing(p, true).size(), 10u);
  EXPECT_EQ(listing(p, false, "txt"), listing(p, false, ".txt"));
  EXPECT_EQ(listing(p, true, "txt"), (Lines{p + "/n.txt", p + "/n.txt/.txt", p + "/x.txt"}));
}

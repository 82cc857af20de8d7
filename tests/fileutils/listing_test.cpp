#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;
using velzip_test::TempDir;
using velzip_test::writeFile;

namespace {

using Paths = std::vector<std::string>;

// Sibling order is the file system's; compare as sets.
Paths sorted(Paths paths) {
  std::sort(paths.begin(), paths.end());
  return paths;
}

Paths list(const std::string& path, bool recursive) {
  Paths paths;
  EXPECT_TRUE(FU::GetFilePathsAtPath(path, paths, recursive, nullptr));
  return sorted(paths);
}

Paths listExt(const std::string& path, const std::string& extension, bool recursive) {
  Paths paths;
  EXPECT_TRUE(FU::GetFilePathsWithExtensionAtPath(path, extension, paths, recursive, nullptr));
  return sorted(paths);
}

}  // namespace

TEST(Listing, FilesAndFolders) {
  TempDir dir;
  const std::string& p = dir.path();
  writeFile(dir / "a", "");
  ASSERT_EQ(mkdir((dir / "d").c_str(), 0755), 0);
  writeFile(dir / "d/b", "");
  EXPECT_EQ(list(p, false), (Paths{p + "/a"}));
  EXPECT_EQ(list(p, true), (Paths{p + "/a", p + "/d", p + "/d/b"}));
  // A trailing separator on the folder gives no doubled one.
  EXPECT_EQ(list(p + "/", false), (Paths{p + "/a"}));

  // Links: to a folder, not listed flat and not entered when recursing;
  // dangling ones are listed as entries.
  ASSERT_EQ(symlink(".", (dir / "d/loop").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);
  EXPECT_EQ(list(p, false), (Paths{p + "/a", p + "/dangling"}));
  EXPECT_EQ(list(p, true), (Paths{p + "/a", p + "/d", p + "/d/b", p + "/d/loop", p + "/dangling"}));
  // The folder given may itself be a link.
  EXPECT_EQ(list(p + "/d/loop", false), (Paths{p + "/d/loop/b"}));

  // Results are appended.
  Paths paths = {"kept"};
  FU::GetFilePathsAtPath(p + "/d", paths, false, nullptr);
  EXPECT_EQ(paths, (Paths{"kept", p + "/d/b"}));
  EXPECT_EQ(list(p + "/missing", true), Paths{});
  EXPECT_EQ(list("", true), Paths{});
  EXPECT_EQ(list(p + "/a", true), Paths{});
}

TEST(Listing, ByExtension) {
  TempDir dir;
  const std::string& p = dir.path();
  for (const char* name : {"x.txt", ".txt", "x.TXT", "xtxt", "y.txt.bak"})
    writeFile(dir / name, "");
  ASSERT_EQ(mkdir((dir / "notes.txt").c_str(), 0755), 0);
  writeFile(dir / "notes.txt/inner.txt", "");
  writeFile(dir / "notes.txt/.txt", "");

  const Paths flat = {p + "/x.txt"};
  EXPECT_EQ(listExt(p, "txt", false), flat);
  EXPECT_EQ(listExt(p, ".txt", false), flat);
  // Recursing lists matching folders and still enters them; the relative
  // name is what must be longer than the extension, so notes.txt/.txt counts.
  EXPECT_EQ(listExt(p, "txt", true), (Paths{p + "/notes.txt", p + "/notes.txt/.txt",
                                            p + "/notes.txt/inner.txt", p + "/x.txt"}));
  EXPECT_EQ(listExt(p, "", false), Paths{});
  writeFile(dir / "dot.", "");
  EXPECT_EQ(listExt(p, "", false), (Paths{p + "/dot."}));
}

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;
using velzip_test::TempDir;

TEST(PathStrings, AppendPathJoinsWithOneSeparator) {
  struct Case {
    const char* path;
    const char* component;
    const char* joined;
  } cases[] = {
      {"/a", "/b", "/a/b"}, {"/a/", "//b", "/a/b"}, {"/a", "///", "/a/"},    {"/a/", "///", "/a/"},
      {"a//", "b", "a//b"}, {"/", "tmp", "/tmp"},   {"a", "b/c/", "a/b/c/"},
  };
  for (const Case& c : cases) {
    std::string path = c.path;
    EXPECT_TRUE(FU::AppendPath(path, c.component, nullptr)) << c.path << " + " << c.component;
    EXPECT_EQ(path, c.joined) << c.path << " + " << c.component;
  }
  std::string path = "/a";
  EXPECT_FALSE(FU::AppendPath(path, "", nullptr));
  EXPECT_EQ(path, "/a");
  path.clear();
  EXPECT_FALSE(FU::AppendPath(path, "b", nullptr));
  EXPECT_EQ(path, "");
}

TEST(PathStrings, RemoveSeparatorAtEnd) {
  std::string path = "/a/b///";
  EXPECT_TRUE(FU::RemoveSeparatorAtEnd(path));
  EXPECT_EQ(path, "/a/b");
  path = "/";
  EXPECT_TRUE(FU::RemoveSeparatorAtEnd(path));
  EXPECT_EQ(path, "");
  path = "a//b";
  EXPECT_TRUE(FU::RemoveSeparatorAtEnd(path));
  EXPECT_EQ(path, "a//b");
  path.clear();
  EXPECT_FALSE(FU::RemoveSeparatorAtEnd(path));
}

TEST(PathStrings, ParentAndFileName) {
  struct Case {
    const char* path;
    const char* parent;
  } cases[] = {{"/a/b/", "/a"}, {"/a/b", "/a"}, {"name", "."},
               {"/", "/"},      {"/a", "/"},    {"a/b", "a"}};
  for (const Case& c : cases) {
    std::string path = c.path;
    EXPECT_TRUE(FU::GetParentDirectory(path));
    EXPECT_EQ(path, c.parent) << c.path;
  }
  std::string empty;
  EXPECT_FALSE(FU::GetParentDirectory(empty));

  std::string name = "kept";
  EXPECT_TRUE(FU::GetFileNameFromPath("no-separator", name, nullptr));
  EXPECT_EQ(name, "kept");
  EXPECT_TRUE(FU::GetFileNameFromPath("/x/", name, nullptr));
  EXPECT_EQ(name, "");
  EXPECT_TRUE(FU::GetFileNameFromPath("/x/y.txt", name, nullptr));
  EXPECT_EQ(name, "y.txt");
}

TEST(PathStrings, AbsolutePathResolvesOrCopiesInput) {
  TempDir dir;
  velzip_test::writeFile(dir / "f", "x");
  std::string resolved;
  // realpath needs every component to exist, sub included.
  EXPECT_FALSE(FU::getAbsoluteFilePath(dir.path() + "/./sub/../f", resolved));
  EXPECT_EQ(resolved, dir.path() + "/./sub/../f");
  ASSERT_EQ(symlink((dir / "f").c_str(), (dir / "link").c_str()), 0);
  EXPECT_TRUE(FU::getAbsoluteFilePath(dir.path() + "//link", resolved));
  EXPECT_EQ(resolved, dir / "f");
  EXPECT_FALSE(FU::getAbsoluteFilePath(dir / "missing", resolved));
  EXPECT_EQ(resolved, dir / "missing");
}

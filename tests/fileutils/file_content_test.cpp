#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/temp_dir.h"
#include "velzip/FileUtils.h"

namespace FU = UlvoUtils::FileUtils;
using velzip_test::readFile;
using velzip_test::TempDir;
using velzip_test::writeFile;

namespace {

size_t entriesIn(const std::string& path) {
  std::vector<std::string> paths;
  FU::GetFilePathsAtPath(path, paths, true, nullptr);
  return paths.size();
}

}  // namespace

TEST(FileContent, CreateReplacesAtomically) {
  TempDir dir;
  const std::string content("line\0with zero\n", 15);
  ASSERT_TRUE(FU::CreateFileWithContentAtPath(dir / "f", content, nullptr));
  EXPECT_EQ(readFile(dir / "f"), content);
  ASSERT_TRUE(FU::CreateFileWithContentAtPath(dir / "f", "new", nullptr));
  EXPECT_EQ(readFile(dir / "f"), "new");
  ASSERT_TRUE(FU::CreateFileWithContentAtPath(dir / "empty", "", nullptr));
  EXPECT_EQ(readFile(dir / "empty"), "");
  // The mode is an ordinary new file's.
  const mode_t mask = umask(022);
  umask(mask);
  struct stat st;
  ASSERT_EQ(stat((dir / "f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666u & ~mask);

  EXPECT_FALSE(FU::CreateFileWithContentAtPath("", "x", nullptr));
  EXPECT_FALSE(FU::CreateFileWithContentAtPath(dir / "missing/f", "x", nullptr));
  ASSERT_EQ(mkdir((dir / "folder").c_str(), 0755), 0);
  writeFile(dir / "folder/keep", "k");
  EXPECT_FALSE(FU::CreateFileWithContentAtPath(dir / "folder", "x", nullptr));
  // No temporary file is left behind by the failures.
  EXPECT_EQ(entriesIn(dir.path()), 4u);
}

TEST(FileContent, LoadText) {
  TempDir dir;
  std::string content = "untouched";
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(dir / "missing", content, nullptr));
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(dir.path(), content, nullptr));
  EXPECT_EQ(content, "untouched");

  writeFile(dir / "utf8",
            "gr\xC3\xBC\xC3\x9F"
            "e\n");
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "utf8", content, nullptr));
  EXPECT_EQ(content,
            "gr\xC3\xBC\xC3\x9F"
            "e\n");

  // UTF-16 little-endian with its mark, and big-endian without one; U+1F600 as a pair.
  writeFile(dir / "le", std::string("\xFF\xFE"
                                    "h\0\xFC\0=\xD8\0\xDE",
                                    10));
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "le", content, nullptr));
  EXPECT_EQ(content, "h\xC3\xBC\xF0\x9F\x98\x80");
  writeFile(dir / "be", std::string("\0h\0\xFC", 4));
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "be", content, nullptr));
  EXPECT_EQ(content, "h\xC3\xBC");

  writeFile(dir / "empty", "");
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "empty", content, nullptr));
  EXPECT_EQ(content, "");

  content = "untouched";
  writeFile(dir / "odd", "\xFF\xFE\x41");  // neither UTF-8 nor whole UTF-16 units
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(dir / "odd", content, nullptr));
  writeFile(dir / "lone", std::string("\xFF\xFE\x00\xDC", 4));  // a lone low surrogate
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(dir / "lone", content, nullptr));
  EXPECT_EQ(content, "untouched");
}

TEST(FileContent, LoadBytes) {
  TempDir dir;
  writeFile(dir / "ten", "0123456789");
  std::vector<char> content = {'x'};
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "ten", 4, content, nullptr));
  EXPECT_EQ(std::string(content.begin(), content.end()), "0123");
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "ten", 1000, content, nullptr));
  EXPECT_EQ(std::string(content.begin(), content.end()), "0123456789");
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "ten", 0, content, nullptr));
  EXPECT_TRUE(content.empty());

  writeFile(dir / "empty", "");
  content = {'x'};
  EXPECT_TRUE(FU::LoadContentOfFileAtPath(dir / "empty", 10, content, nullptr));
  EXPECT_TRUE(content.empty());

  content = {'x'};
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(dir / "missing", 10, content, nullptr));
  EXPECT_TRUE(content.empty());
  content = {'x'};
  EXPECT_FALSE(FU::LoadContentOfFileAtPath(dir.path(), ~0UL, content, nullptr));
  EXPECT_TRUE(content.empty());
}

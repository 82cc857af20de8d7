// Archives other tools make, read back by the format-0 reader: content,
// modes and links must come out as the tree they were made from.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/temp_dir.h"
#include "unzip/plain_zip.h"
#include "velzip/UnzipHandler.h"

using namespace velzip_test;
namespace fs = std::filesystem;

namespace {

constexpr unsigned long kKeep = 0xFFFFFFFFul;

class PeerArchives : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(t_.path().empty());
    const std::string src = tree();
    ASSERT_EQ(0, mkdir(src.c_str(), 0755));
    for (const char* dir : {"sub", "sub/deep", "emptydir"}) {
      ASSERT_EQ(0, mkdir((src + "/" + dir).c_str(), 0755));
    }
    writeFile(src + "/a.txt", "hello\n");
    writeFile(src + "/sub/big.txt", sampleBytes(300000, 11));  // deflated, several chunks
    writeFile(src + "/sub/noise.bin", noiseBytes(100000, 3));  // left stored by most tools
    writeFile(src + "/empty", "");
    writeFile(src + "/sub/deep/na\xC3\xAFve \xC3\xA9.txt", "accents");
    ASSERT_EQ(0, chmod((src + "/a.txt").c_str(), 0755));
    ASSERT_EQ(0, chmod((src + "/sub/big.txt").c_str(), 0600));
    ASSERT_EQ(0, chmod((src + "/empty").c_str(), 0640));
    ASSERT_EQ(0, chmod((src + "/emptydir").c_str(), 0750));
    ASSERT_EQ(0, chmod((src + "/sub/deep").c_str(), 0700));
    ASSERT_EQ(0, symlink("a.txt", (src + "/link").c_str()));
    ASSERT_EQ(0, symlink("sub", (src + "/linkdir").c_str()));
    ASSERT_EQ(0, symlink("../a.txt", (src + "/sub/up").c_str()));
  }

  std::string tree() const { return t_ / "tree"; }

  // Runs command inside the tree (UTF-8 names whatever the caller's locale).
  std::string make(const std::string& archive, const std::string& command) {
    const std::string path = t_ / archive;
    EXPECT_EQ(0,
              runQuietly("cd '" + tree() + "' && LC_ALL=C.UTF-8 " + command + " '" + path + "' ."))
        << command;
    return path;
  }

  // Extracts with the format-0 reader and compares with the tree.
  void expectRestored(const std::string& archive) {
    const std::string out = t_ / (fs::path(archive).stem().string() + ".out");
    UnzipHandler reader(nullptr);
    ASSERT_TRUE(reader.unzip(archive.c_str(), out.c_str(), false, kKeep)) << archive;

    std::set<std::string> expected;
    for (auto it = fs::recursive_directory_iterator(tree()); it != fs::end(it); ++it) {
      const std::string rel = it->path().lexically_relative(tree()).string();
      expected.insert(rel);
      SCOPED_TRACE(archive + ": " + rel);
      const std::string from = it->path().string();
      const std::string to = out + "/" + rel;
      struct stat a, b;
      ASSERT_EQ(0, lstat(from.c_str(), &a));
      ASSERT_EQ(0, lstat(to.c_str(), &b)) << "missing";
      ASSERT_EQ(a.st_mode & S_IFMT, b.st_mode & S_IFMT) << "kind";
      if (S_ISLNK(a.st_mode)) {
        EXPECT_EQ(fs::read_symlink(from), fs::read_symlink(to));
        continue;
      }
      EXPECT_EQ(a.st_mode & 07777, b.st_mode & 07777) << "mode";
      if (S_ISREG(a.st_mode)) {
        EXPECT_TRUE(readFile(from) == readFile(to)) << "content";
      }
    }
    for (auto it = fs::recursive_directory_iterator(out); it != fs::end(it); ++it) {
      const std::string rel = it->path().lexically_relative(out).string();
      EXPECT_EQ(1u, expected.count(rel)) << archive << ": unexpected " << rel;
    }
  }

  TempDir t_;
};

TEST_F(PeerArchives, ZipRecursiveKeepingLinks) {
  if (!haveTool("zip")) GTEST_SKIP() << "zip missing";
  expectRestored(make("by-zip.zip", "zip -q -r -y"));
}

TEST_F(PeerArchives, SevenZipZipFormat) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz missing";
  // -snl stores links as links instead of what they point to.
  expectRestored(make("by-7zz.zip", "7zz a -tzip -snl"));
  // Deflate64 and other methods the zip layer cannot decode fail cleanly.
  const std::string odd = make("by-7zz-d64.zip", "7zz a -tzip -snl -mm=Deflate64");
  UnzipHandler reader(nullptr);
  EXPECT_FALSE(reader.unzip(odd.c_str(), (t_ / "d64.out").c_str(), false, kKeep));
}

TEST_F(PeerArchives, BsdtarZipWithDataDescriptors) {
  if (!haveTool("bsdtar")) GTEST_SKIP() << "bsdtar missing";
  // bsdtar streams: sizes follow the data, and it adds a "./" entry.
  expectRestored(make("by-bsdtar.zip", "bsdtar -a -cf"));
}

}  // namespace

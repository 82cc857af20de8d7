// Archives other tools make, read back by the format-0 reader: content,
// modes and links must come out as the tree they were made from.
#include "unzip/fixtures.h"

using namespace velzip_test;

namespace {

class PeerArchives : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* dir : {"", "/sub", "/sub/deep", "/emptydir"}) {
      ASSERT_EQ(0, mkdir((tree_ + dir).c_str(), 0755));
    }
    auto file = [&](const std::string& path, const std::string& data, mode_t mode) {
      writeFile(tree_ + path, data);
      ASSERT_EQ(0, chmod((tree_ + path).c_str(), mode));
    };
    file("/a.txt", "hello\n", 0755);
    file("/sub/big.txt", sampleBytes(300000, 11), 0600);  // deflated, several chunks
    file("/sub/noise.bin", noiseBytes(100000, 3), 0644);  // left stored by most tools
    file("/empty", "", 0640);
    file("/sub/deep/na\xC3\xAFve \xC3\xA9.txt", "accents", 0644);
    ASSERT_EQ(0, chmod((tree_ + "/emptydir").c_str(), 0750));
    ASSERT_EQ(0, chmod((tree_ + "/sub/deep").c_str(), 0700));
    ASSERT_EQ(0, symlink("a.txt", (tree_ + "/link").c_str()));
    ASSERT_EQ(0, symlink("sub", (tree_ + "/linkdir").c_str()));
    ASSERT_EQ(0, symlink("../a.txt", (tree_ + "/sub/up").c_str()));
  }

  // Has tool archive the tree (UTF-8 names whatever the caller's locale),
  // then extracts the archive; false when the reader fails.
  bool roundTrip(const char* tool, const std::string& command) {
    const std::string archive = t_ / (std::string(tool) + ".zip");
    EXPECT_EQ(
        0, runQuietly("cd '" + tree_ + "' && LC_ALL=C.UTF-8 " + command + " '" + archive + "' ."));
    return UnzipHandler(nullptr).unzip(archive.c_str(), (archive + ".out").c_str(), false, kKeep);
  }

  TempDir t_;
  const std::string tree_ = t_ / "tree";
};

TEST_F(PeerArchives, ZipRecursiveKeepingLinks) {
  if (!haveTool("zip")) GTEST_SKIP() << "zip missing";
  ASSERT_TRUE(roundTrip("zip", "zip -q -r -y"));
  EXPECT_EQ(treeListing(t_ / "zip.zip.out"), treeListing(tree_));
}

TEST_F(PeerArchives, SevenZipZipFormat) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz missing";
  // -snl stores links as links instead of what they point to.
  ASSERT_TRUE(roundTrip("7zz", "7zz a -tzip -snl"));
  EXPECT_EQ(treeListing(t_ / "7zz.zip.out"), treeListing(tree_));
  // Deflate64 and other methods the zip layer cannot decode fail cleanly.
  EXPECT_FALSE(roundTrip("d64", "7zz a -tzip -mm=Deflate64"));
}

TEST_F(PeerArchives, BsdtarZipWithDataDescriptors) {
  if (!haveTool("bsdtar")) GTEST_SKIP() << "bsdtar missing";
  // bsdtar streams: sizes follow the data, and it adds a "./" entry.
  ASSERT_TRUE(roundTrip("bsdtar", "bsdtar -a -cf"));
  EXPECT_EQ(treeListing(t_ / "bsdtar.zip.out"), treeListing(tree_));
}

}  // namespace

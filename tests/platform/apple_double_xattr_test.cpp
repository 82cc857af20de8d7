// Packing extended attributes into companions and restoring them on disk.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/apple_double.h"
#include "platform/apple_double_bytes.h"
#include "support/temp_dir.h"

namespace {

using namespace velzip_test;
using Attributes = std::map<std::string, std::string>;

bool setAttr(const std::string& path, const std::string& name, const std::string& value) {
  return lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

Attributes userAttributes(const std::string& path) {
  Attributes out;
  char names[65536];
  const ssize_t n = llistxattr(path.c_str(), names, sizeof(names));
  for (ssize_t pos = 0; pos < n; pos += static_cast<ssize_t>(strlen(names + pos)) + 1) {
    const std::string name = names + pos;
    if (name.rfind("user.", 0) != 0) continue;
    std::string value(65536, '\0');
    const ssize_t len = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    value.resize(len < 0 ? 0 : static_cast<size_t>(len));
    out[name] = value;
  }
  return out;
}

std::vector<uint8_t> readBytes(const std::string& path) {
  const std::string s = readFile(path);
  return std::vector<uint8_t>(s.begin(), s.end());
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& b) {
  writeFile(path, std::string(b.begin(), b.end()));
}

class AppleDoubleXattr : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(dir_ / "probe", "");
    if (!setAttr(dir_ / "probe", "user.velzip.probe", "1") && errno == ENOTSUP) {
      GTEST_SKIP() << "no user extended attributes on " << dir_.path();
    }
  }
  TempDir dir_;
};

TEST_F(AppleDoubleXattr, PackedAttributesRestoreIdentically) {
  const std::string source = dir_ / "source", target = dir_ / "target";
  const std::string companion = dir_ / "._source";
  writeFile(source, "data");
  Attributes expected;
  // Name lengths 1 to 7 meet every entry padding. Values stay small: ext4
  // keeps all of a file's attributes in one 4 KiB block.
  for (size_t len = 1; len <= 7; ++len) {
    expected["user." + std::string(len, 'n')] = sampleBytes(len * 37, static_cast<unsigned>(len));
  }
  expected["user.com.apple.metadata:kMDItemWhereFroms"] = sampleBytes(1500, 3);
  expected["user.empty"] = "";
  expected["user.com.apple.FinderInfo"] = "TEXTttxt" + std::string(24, '\0');
  expected["user.com.apple.ResourceFork"] = sampleBytes(300, 4);
  for (const auto& [name, value] : expected) ASSERT_TRUE(setAttr(source, name, value)) << name;
  // Neither an ACL in Mac form nor other namespaces travel.
  ASSERT_TRUE(setAttr(source, "user.com.apple.acl.text", "!#acl 1"));
  const bool trusted = setAttr(source, "trusted.velzip", "root only");

  ASSERT_EQ(velzip::appleDoublePack(source.c_str(), companion.c_str()), 0);
  writeFile(target, "other");
  ASSERT_EQ(velzip::appleDoubleUnpack(companion.c_str(), target.c_str()), 0);
  EXPECT_EQ(userAttributes(target), expected);
  if (trusted) {
    EXPECT_LT(getxattr(target.c_str(), "trusted.velzip", nullptr, 0), 0);
  }
  EXPECT_EQ(readFile(target), "other");

  // The descriptor forms give and take the same bytes, whatever the position.
  char tmpl[] = "/tmp/velzip-ad-test.XXXXXX";
  const int fd = mkstemp(tmpl);
  ASSERT_GE(fd, 0);
  unlink(tmpl);
  EXPECT_EQ(velzip::appleDoublePackFd(source.c_str(), fd), 0);
  const std::string viaFd = dir_ / "viaFd";
  writeFile(viaFd, "");
  EXPECT_EQ(velzip::appleDoubleUnpackFd(fd, viaFd.c_str()), 0);
  close(fd);
  EXPECT_EQ(userAttributes(viaFd), expected);
}

TEST_F(AppleDoubleXattr, PackedBytesHaveTheMacLayout) {
  const std::string source = dir_ / "source", companion = dir_ / "._source";
  writeFile(source, "");
  ASSERT_TRUE(setAttr(source, "user.com.apple.quarantine", "0081;q"));
  ASSERT_TRUE(setAttr(source, "user.abcde", "12345678"));
  ASSERT_TRUE(setAttr(source, "user.com.apple.FinderInfo", std::string(32, 'F')));
  ASSERT_EQ(velzip::appleDoublePack(source.c_str(), companion.c_str()), 0);
  const std::vector<uint8_t> b = readBytes(companion);
  ASSERT_GE(b.size(), 120u);

  EXPECT_EQ(get32(b, 0), 0x00051607u);
  EXPECT_EQ(get32(b, 4), 0x00020000u);
  EXPECT_EQ(std::string(b.begin() + 8, b.begin() + 24), "Mac OS X        ");
  EXPECT_EQ(get16(b, 24), 2u);
  EXPECT_EQ(get32(b, 26), 9u);
  EXPECT_EQ(get32(b, 30), 50u);
  EXPECT_EQ(get32(b, 38), 2u);
  const uint32_t forkOffset = get32(b, 42);
  EXPECT_EQ(50 + get32(b, 34), forkOffset);  // the attribute block ends where the fork starts
  EXPECT_EQ(forkOffset + get32(b, 46), b.size());
  EXPECT_EQ(std::string(b.begin() + 50, b.begin() + 82), std::string(32, 'F'));
  EXPECT_EQ(get32(b, 84), 0x41545452u);
  EXPECT_EQ(get32(b, 92), forkOffset);
  ASSERT_EQ(get16(b, 118), 2u);

  Attributes found;
  size_t entry = 120, expectedData = get32(b, 96), dataTotal = 0;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(entry % 4, 0u);
    const uint32_t offset = get32(b, entry), length = get32(b, entry + 4);
    const size_t nameLength = b[entry + 10];
    ASSERT_LE(entry + 11 + nameLength, b.size());
    EXPECT_EQ(b[entry + 11 + nameLength - 1], 0);
    const std::string name(b.begin() + entry + 11, b.begin() + entry + 11 + nameLength - 1);
    EXPECT_EQ(offset, expectedData) << "values follow each other";
    ASSERT_LE(offset + length, forkOffset);
    found[name] = std::string(b.begin() + offset, b.begin() + offset + length);
    expectedData += length;
    dataTotal += length;
    entry += (11 + nameLength + 3) / 4 * 4;
  }
  EXPECT_EQ(get32(b, 96), entry) << "values start after the entries";
  EXPECT_EQ(get32(b, 100), dataTotal);
  EXPECT_EQ(found, (Attributes{{"com.apple.quarantine", "0081;q"}, {"abcde", "12345678"}}));
}

TEST_F(AppleDoubleXattr, RestoresTheMacShapedCompanion) {
  const std::string companion = dir_ / "._download", target = dir_ / "download";
  writeBytes(companion, macShapedCompanion());
  writeFile(target, "x");
  ASSERT_EQ(velzip::appleDoubleUnpack(companion.c_str(), target.c_str()), 0);
  // Zero Finder Info and the empty resource map leave nothing behind.
  EXPECT_EQ(userAttributes(target), (Attributes{{"user.com.apple.quarantine", kQuarantineValue}}));
}

TEST_F(AppleDoubleXattr, PackCoversEveryItemButLinks) {
  const std::string plain = dir_ / "plain", folder = dir_ / "folder", link = dir_ / "link";
  const std::string companion = dir_ / "._c";
  writeFile(plain, "p");
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  ASSERT_EQ(symlink("plain", link.c_str()), 0);

  ASSERT_EQ(velzip::appleDoublePack(plain.c_str(), companion.c_str()), 0);
  EXPECT_EQ(readBytes(companion).size(), 120u);  // an empty attribute block
  ASSERT_TRUE(setAttr(folder, "user.tag", "blue"));
  ASSERT_EQ(velzip::appleDoublePack(folder.c_str(), companion.c_str()), 0);
  velzip::AppleDoubleContents c;
  const std::vector<uint8_t> b = readBytes(companion);
  ASSERT_TRUE(velzip::appleDoubleParse(b.data(), b.size(), c));
  ASSERT_EQ(c.attributes.size(), 1u);
  EXPECT_EQ(c.attributes[0].name, "tag");

  ASSERT_EQ(unlink(companion.c_str()), 0);
  EXPECT_LT(velzip::appleDoublePack(link.c_str(), companion.c_str()), 0);
  EXPECT_LT(velzip::appleDoublePack((dir_ / "missing").c_str(), companion.c_str()), 0);
  EXPECT_FALSE(exists(companion));
  EXPECT_LT(velzip::appleDoublePack(plain.c_str(), (dir_ / "no/such/dir").c_str()), 0);
}

TEST_F(AppleDoubleXattr, UnpackFailuresLeaveTheTargetAlone) {
  const std::string companion = dir_ / "._t", target = dir_ / "t", link = dir_ / "link";
  writeFile(target, "t");
  ASSERT_EQ(symlink("t", link.c_str()), 0);
  writeBytes(companion, macShapedCompanion());

  // Not through a final link (Linux keeps no user attributes on links).
  EXPECT_NE(velzip::appleDoubleUnpack(companion.c_str(), link.c_str()), 0);
  EXPECT_TRUE(userAttributes(target).empty());
  EXPECT_NE(velzip::appleDoubleUnpack(companion.c_str(), (dir_ / "missing").c_str()), 0);
  EXPECT_FALSE(exists(dir_ / "missing"));
  EXPECT_NE(velzip::appleDoubleUnpack((dir_ / "none").c_str(), target.c_str()), 0);

  std::vector<uint8_t> bad = macShapedCompanion();
  bad[84] = 'X';
  writeBytes(companion, bad);
  errno = 0;
  EXPECT_NE(velzip::appleDoubleUnpack(companion.c_str(), target.c_str()), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(userAttributes(target).empty());

  // An attribute the file system refuses (Linux caps values at 64 KiB) fails
  // the unpack; the others are still set.
  velzip::AppleDoubleContents c;
  c.attributes = {{"huge", std::vector<uint8_t>(100 * 1024, 'h'), 0}, {"small", {'s'}, 0}};
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(velzip::appleDoubleBuild(c, bytes));
  writeBytes(companion, bytes);
  EXPECT_NE(velzip::appleDoubleUnpack(companion.c_str(), target.c_str()), 0);
  EXPECT_EQ(userAttributes(target), (Attributes{{"user.small", "s"}}));
}

}  // namespace

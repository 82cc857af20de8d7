// AppleDouble companions: Mac-shaped and malformed bytes parsed, contents
// built and parsed back, attributes packed from and restored onto files, and
// the packed layout checked byte by byte.
#include "platform/apple_double.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "support/apple_double_bytes.h"
#include "support/temp_dir.h"
#include "support/xattr.h"

namespace {

using namespace velzip_test;
using velzip::AppleDoubleContents;
using Change = std::function<void(std::vector<uint8_t>&)>;

std::vector<uint8_t> bytesOf(const std::string& s) {
  return {s.begin(), s.end()};
}
std::string textOf(const std::vector<uint8_t>& b) {
  return {b.begin(), b.end()};
}
bool parse(const std::vector<uint8_t>& b, AppleDoubleContents& c) {
  return velzip::appleDoubleParse(b.data(), b.size(), c);
}
bool parses(const std::vector<uint8_t>& b) {
  AppleDoubleContents c;
  return parse(b, c);
}

// Attributes "a" and "b": entries at 120 and 136, the second name at 147.
std::vector<uint8_t> two() {
  AppleDoubleContents c;
  c.attributes = {{"a", bytesOf("1234"), 0}, {"b", bytesOf("5678"), 0}};
  std::vector<uint8_t> b;
  EXPECT_TRUE(velzip::appleDoubleBuild(c, b) && parses(b));
  return b;
}

TEST(AppleDouble, ParsesMacShapedAndRefusesMalformed) {
  std::vector<uint8_t> mac = macShapedCompanion();
  AppleDoubleContents c;
  ASSERT_TRUE(parse(mac, c));
  ASSERT_EQ(1u, c.attributes.size());
  EXPECT_EQ("com.apple.quarantine", c.attributes[0].name);
  EXPECT_EQ(kQuarantineValue, textOf(c.attributes[0].value));
  EXPECT_EQ(emptyResourceMap(), c.resourceFork);
  EXPECT_EQ(std::vector<uint8_t>(32, 0), std::vector<uint8_t>(c.finderInfo, c.finderInfo + 32));
  for (size_t size = 0; size < mac.size(); ++size) {
    ASSERT_FALSE(velzip::appleDoubleParse(mac.data(), size, c)) << "cut to " << size;
  }

  const std::pair<const char*, Change> malformed[] = {
      {"magic", [](auto& b) { b[3] = 0x08; }},
      {"version", [](auto& b) { put32(b, 4, 0x00010000); }},
      {"entry count beyond the file", [](auto& b) { put16(b, 24, 0xFFFF); }},
      {"finder info past the end", [](auto& b) { put32(b, 34, 4096); }},
      {"offset wraps", [](auto& b) { put32(b, 30, 0xFFFFFFFF); }},
      {"finder info too short", [](auto& b) { put32(b, 34, 31); }},
      {"attribute block cut", [](auto& b) { put32(b, 34, 50); }},
      {"attribute magic", [](auto& b) { b[84] = 'X'; }},
      {"total size past the end", [](auto& b) { put32(b, 92, 5000); }},
      {"data start wraps", [](auto& b) { put32(b, 96, 0xFFFFFFF0); }},
      {"attribute count", [](auto& b) { put16(b, 118, 1000); }},
      {"empty name", [](auto& b) { b[130] = 1; }},
      {"name without NUL", [](auto& b) { b[130] = 20; }},
      {"NUL inside name", [](auto& b) { b[135] = 0; }},
      {"value before the entries", [](auto& b) { put32(b, 120, 124); }},
      {"value past the entry", [](auto& b) { put32(b, 124, 4000); }},
      {"value length wraps", [](auto& b) { put32(b, 124, 0xFFFFFFF0); }},
      {"fork inside the header", [](auto& b) { put32(b, 42, 30), put32(b, 46, 10); }},
      {"fork over the finder info", [](auto& b) { put32(b, 42, 3000); }},
      {"fork past the end", [](auto& b) { put32(b, 46, 287); }},
      {"second finder info", [](auto& b) { put32(b, 38, 9), put32(b, 46, 32); }},
      // Two values that overlap, and one name twice.
      {"overlap", [](auto& b) { b = two(), put32(b, 136, get32(b, 120) + 2); }},
      {"same name", [](auto& b) { b = two(), b[147] = 'a'; }},
  };
  for (const auto& [what, change] : malformed) {
    std::vector<uint8_t> bad = mac;
    change(bad);
    EXPECT_FALSE(parses(bad)) << what;
  }
  // Still well-formed: a zero-length fork entry, and the bare 32-byte Finder
  // Info older writers use (no attribute block).
  put32(mac, 46, 0);
  ASSERT_TRUE(parse(mac, c));
  EXPECT_TRUE(c.resourceFork.empty());
  put32(mac, 34, 32);
  mac[50] = 'T';
  ASSERT_TRUE(parse(mac, c));
  EXPECT_TRUE(c.attributes.empty());
  EXPECT_EQ('T', c.finderInfo[0]);
}

TEST(AppleDouble, BuildsWhatTheFormatHoldsAndKnowsTheEmptyResourceMap) {
  // The longest name there is, with flags, parses back; nothing to carry
  // is still a companion, with an empty attribute block.
  AppleDoubleContents c, back;
  c.attributes = {{std::string(254, 'n'), bytesOf("v"), 0x1234}};
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(velzip::appleDoubleBuild(c, bytes) && parse(bytes, back));
  ASSERT_EQ(1u, back.attributes.size());
  EXPECT_EQ(std::string(254, 'n') + "=v 4660", back.attributes[0].name + "=" +
                                                   textOf(back.attributes[0].value) + " " +
                                                   std::to_string(back.attributes[0].flags));
  ASSERT_TRUE(velzip::appleDoubleBuild(AppleDoubleContents(), bytes));
  EXPECT_EQ(120u, bytes.size());
  EXPECT_TRUE(parses(bytes));
  // Names the format cannot hold, and one name twice.
  for (const auto& names : std::vector<std::vector<std::string>>{
           {""}, {std::string(255, 'x')}, {std::string("a\0b", 3)}, {"same", "same"}}) {
    AppleDoubleContents bad;
    for (const auto& name : names) bad.attributes.push_back({name, {}, 0});
    EXPECT_FALSE(velzip::appleDoubleBuild(bad, bytes)) << names[0].size();
  }
  std::vector<uint8_t> map = emptyResourceMap();
  EXPECT_TRUE(velzip::appleDoubleIsEmptyResourceFork(map));
  EXPECT_TRUE(velzip::appleDoubleIsEmptyResourceFork({}));
  put16(map, 0x100 + 28, 0);  // one type: a real fork
  EXPECT_FALSE(velzip::appleDoubleIsEmptyResourceFork(map));
}

class AppleDoubleOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(dir / "probe", "");
    if (!setAttr(dir / "probe", "user.velzip.probe", "1") && errno == ENOTSUP)
      GTEST_SKIP() << "no user extended attributes on " << dir.path();
  }
  TempDir dir;
};

TEST_F(AppleDoubleOnDisk, PackedLayoutAndRestore) {
  const std::string source = dir / "source", target = dir / "target", companion = dir / "._s";
  writeFile(source, "data");
  // Name lengths 1 to 7 meet every entry padding. Values stay small: ext4
  // keeps all of a file's attributes in one 4 KiB block.
  Attributes expected;
  for (size_t len = 1; len <= 7; ++len)
    expected["user." + std::string(len, 'n')] = sampleBytes(len * 37, static_cast<unsigned>(len));
  expected["user.com.apple.metadata:kMDItemWhereFroms"] = sampleBytes(1500, 3);
  expected["user.empty"] = "";
  const std::string finderInfo = "TEXTttxt" + std::string(24, 'F'), fork = sampleBytes(300, 4);
  expected["user.com.apple.FinderInfo"] = finderInfo;
  expected["user.com.apple.ResourceFork"] = fork;
  for (const auto& [name, value] : expected) ASSERT_TRUE(setAttr(source, name, value)) << name;
  // Neither an ACL in Mac form nor other namespaces travel.
  ASSERT_TRUE(setAttr(source, "user.com.apple.acl.text", "!#acl 1"));
  const bool trusted = setAttr(source, "trusted.velzip", "root only");
  ASSERT_EQ(0, velzip::appleDoublePack(source.c_str(), companion.c_str()));
  struct stat st;
  ASSERT_EQ(0, stat(companion.c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777);

  // Header (filler, then the entry count at 24), the Finder Info entry at 50
  // holding the attribute block (flags, then the count at 116), and the
  // resource fork entry ending the file.
  const std::vector<uint8_t> b = bytesOf(readFile(companion));
  ASSERT_GE(b.size(), 120u + fork.size());
  const uint32_t forkAt = static_cast<uint32_t>(b.size() - fork.size()), count = 9;
  const std::pair<size_t, uint32_t> fields[] = {
      {0, 0x00051607}, {4, 0x00020000},   {22, 0x20200002}, {26, 9},
      {30, 50},        {34, forkAt - 50}, {38, 2},          {42, forkAt},
      {46, 300},       {84, 0x41545452},  {92, forkAt},     {116, count}};
  for (const auto& [at, value] : fields) EXPECT_EQ(value, get32(b, at)) << "at " << at;
  EXPECT_EQ("Mac OS X        " + finderInfo + fork, textOf({b.begin() + 8, b.begin() + 24}) +
                                                        textOf({b.begin() + 50, b.begin() + 82}) +
                                                        textOf({b.begin() + forkAt, b.end()}));
  // Entries on 4-byte bounds with NUL-ended names; values follow each other
  // from right after the entries.
  Attributes found;
  size_t entry = 120, data = get32(b, 96);
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t offset = get32(b, entry), length = get32(b, entry + 4);
    const size_t nameLength = b[entry + 10];
    ASSERT_LE(entry + 11 + nameLength, b.size());
    EXPECT_EQ(0, b[entry + 10 + nameLength]);
    EXPECT_EQ(data, offset);
    ASSERT_LE(offset + length, forkAt);
    found["user." + textOf({b.begin() + entry + 11, b.begin() + entry + 10 + nameLength})] =
        textOf({b.begin() + offset, b.begin() + offset + length});
    data += length;
    entry += (11 + nameLength + 3) / 4 * 4;
  }
  EXPECT_EQ(entry, get32(b, 96));
  EXPECT_EQ(data - entry, get32(b, 100));
  found["user.com.apple.FinderInfo"] = finderInfo;
  found["user.com.apple.ResourceFork"] = fork;
  EXPECT_EQ(expected, found);

  writeFile(target, "other");
  ASSERT_EQ(0, velzip::appleDoubleUnpack(companion.c_str(), target.c_str()));
  EXPECT_EQ(expected, userAttributes(target));
  EXPECT_TRUE(!trusted || getxattr(target.c_str(), "trusted.velzip", nullptr, 0) < 0);
  EXPECT_EQ("other", readFile(target));
  // The descriptor forms: packed where the descriptor stands, unpacked from
  // its start.
  char tmpl[] = "/tmp/velzip-ad-test.XXXXXX";
  const int fd = mkstemp(tmpl);
  ASSERT_GE(fd, 0);
  unlink(tmpl);
  EXPECT_EQ(0, velzip::appleDoublePackFd(source.c_str(), fd));
  writeFile(dir / "viaFd", "");
  EXPECT_EQ(0, velzip::appleDoubleUnpackFd(fd, (dir / "viaFd").c_str()));
  close(fd);
  EXPECT_EQ(expected, userAttributes(dir / "viaFd"));
}

TEST_F(AppleDoubleOnDisk, PackCoversAllButLinksAndUnpackFailsCleanly) {
  const std::string plain = dir / "plain", folder = dir / "folder", link = dir / "link";
  const std::string companion = dir / "._c", target = dir / "t";
  writeFile(plain, "p");
  writeFile(target, "t");
  ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
  ASSERT_EQ(0, symlink("plain", link.c_str()));
  // Folders are packed too; a final link or a missing item is not, and
  // leaves no companion.
  ASSERT_TRUE(setAttr(folder, "user.tag", "blue"));
  ASSERT_EQ(0, velzip::appleDoublePack(folder.c_str(), companion.c_str()));
  EXPECT_NE(std::string::npos, readFile(companion).find("tag"));
  ASSERT_EQ(0, unlink(companion.c_str()));
  EXPECT_LT(velzip::appleDoublePack(link.c_str(), companion.c_str()), 0);
  EXPECT_LT(velzip::appleDoublePack((dir / "missing").c_str(), companion.c_str()), 0);
  EXPECT_FALSE(exists(companion));

  // The Mac-shaped companion restores its one attribute: zero Finder Info
  // and the empty resource map leave nothing behind.
  writeFile(companion, textOf(macShapedCompanion()));
  ASSERT_EQ(0, velzip::appleDoubleUnpack(companion.c_str(), plain.c_str()));
  EXPECT_EQ((Attributes{{"user.com.apple.quarantine", kQuarantineValue}}), userAttributes(plain));
  // Not through a final link (Linux keeps no user attributes on links), not
  // onto or from something missing, nothing from malformed bytes (EINVAL).
  EXPECT_NE(0, velzip::appleDoubleUnpack(companion.c_str(), link.c_str()));
  EXPECT_NE(0, velzip::appleDoubleUnpack(companion.c_str(), (dir / "missing").c_str()));
  EXPECT_FALSE(exists(dir / "missing"));
  EXPECT_NE(0, velzip::appleDoubleUnpack((dir / "none").c_str(), target.c_str()));
  std::vector<uint8_t> bad = macShapedCompanion();
  bad[84] = 'X';
  writeFile(companion, textOf(bad));
  errno = 0;
  EXPECT_NE(0, velzip::appleDoubleUnpack(companion.c_str(), target.c_str()));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_TRUE(userAttributes(target).empty());
  // An attribute the file system refuses (Linux caps values at 64 KiB) fails
  // the unpack; the others are still set.
  AppleDoubleContents c;
  c.attributes = {{"huge", std::vector<uint8_t>(100 * 1024, 'h'), 0}, {"small", {'s'}, 0}};
  ASSERT_TRUE(velzip::appleDoubleBuild(c, bad));
  writeFile(companion, textOf(bad));
  EXPECT_NE(0, velzip::appleDoubleUnpack(companion.c_str(), target.c_str()));
  EXPECT_EQ((Attributes{{"user.small", "s"}}), userAttributes(target));
}

}  // namespace

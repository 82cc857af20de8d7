// Parsing and building companions in memory, including malformed input.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/apple_double.h"
#include "platform/apple_double_bytes.h"
#include "support/temp_dir.h"

namespace {

using velzip::AppleDoubleAttribute;
using velzip::appleDoubleBuild;
using velzip::AppleDoubleContents;
using velzip::appleDoubleIsEmptyResourceFork;
using velzip::appleDoubleParse;
using namespace velzip_test;

bool parses(const std::vector<uint8_t>& bytes) {
  AppleDoubleContents c;
  return appleDoubleParse(bytes.data(), bytes.size(), c);
}

std::vector<uint8_t> bytesOf(const std::string& s) {
  return std::vector<uint8_t>(s.begin(), s.end());
}

TEST(AppleDoubleFormat, ReadsTheMacShapedCompanion) {
  std::vector<uint8_t> mac = macShapedCompanion();
  AppleDoubleContents c;
  ASSERT_TRUE(appleDoubleParse(mac.data(), mac.size(), c));
  ASSERT_EQ(c.attributes.size(), 1u);
  EXPECT_EQ(c.attributes[0].name, "com.apple.quarantine");
  EXPECT_EQ(c.attributes[0].value, bytesOf(kQuarantineValue));
  EXPECT_EQ(c.resourceFork, emptyResourceMap());
  EXPECT_TRUE(appleDoubleIsEmptyResourceFork(c.resourceFork));
  EXPECT_EQ(std::vector<uint8_t>(c.finderInfo, c.finderInfo + 32), std::vector<uint8_t>(32, 0));

  // The same with a zero-length fork entry, and with the bare 32-byte Finder
  // Info older writers use.
  put32(mac, 46, 0);
  ASSERT_TRUE(appleDoubleParse(mac.data(), mac.size(), c));
  EXPECT_TRUE(c.resourceFork.empty());
  EXPECT_EQ(c.attributes.size(), 1u);
  put32(mac, 34, 32);
  mac[50] = 'T';
  ASSERT_TRUE(appleDoubleParse(mac.data(), mac.size(), c));
  EXPECT_TRUE(c.attributes.empty());
  EXPECT_EQ(c.finderInfo[0], 'T');
}

TEST(AppleDoubleFormat, RefusesMalformedCompanions) {
  const std::vector<uint8_t> mac = macShapedCompanion();
  ASSERT_TRUE(parses(mac));
  for (size_t size = 0; size < mac.size(); ++size) {
    AppleDoubleContents c;
    ASSERT_FALSE(appleDoubleParse(mac.data(), size, c)) << "truncated to " << size;
  }

  const std::vector<std::pair<const char*, std::function<void(std::vector<uint8_t>&)>>> cases = {
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
      {"fork inside the header",
       [](auto& b) {
         put32(b, 42, 30);
         put32(b, 46, 10);
       }},
      {"fork over the finder info", [](auto& b) { put32(b, 42, 3000); }},
      {"fork past the end", [](auto& b) { put32(b, 46, 287); }},
      {"second finder info",
       [](auto& b) {
         put32(b, 38, 9);
         put32(b, 46, 32);
       }},
  };
  for (const auto& [what, mutate] : cases) {
    std::vector<uint8_t> bad = mac;
    mutate(bad);
    EXPECT_FALSE(parses(bad)) << what;
  }

  // Two entries whose values overlap, and two with the same name.
  AppleDoubleContents two;
  two.attributes = {{"a", bytesOf("1234"), 0}, {"b", bytesOf("5678"), 0}};
  std::vector<uint8_t> built;
  ASSERT_TRUE(appleDoubleBuild(two, built));
  ASSERT_TRUE(parses(built));
  std::vector<uint8_t> overlap = built;
  put32(overlap, 136, get32(overlap, 120) + 2);  // second entry at 120 + 16
  EXPECT_FALSE(parses(overlap));
  std::vector<uint8_t> duplicate = built;
  duplicate[147] = 'a';
  EXPECT_FALSE(parses(duplicate));

  // Flipping any single byte may make the file valid or not, but must never
  // read outside it.
  for (size_t i = 0; i < mac.size(); ++i) {
    std::vector<uint8_t> flipped = mac;
    flipped[i] ^= 0xA5;
    parses(flipped);
  }
}

TEST(AppleDoubleFormat, BuildParseRoundTrip) {
  AppleDoubleContents c;
  for (int i = 0; i < 32; ++i) c.finderInfo[i] = static_cast<uint8_t>(i + 1);
  // Name lengths 1 to 8 meet every padding; 254 is the longest there is.
  for (size_t len : {1, 2, 3, 4, 5, 6, 7, 8, 254}) {
    AppleDoubleAttribute a;
    a.name = std::string(len, static_cast<char>('a' + len % 26));
    a.value = bytesOf(sampleBytes(len * 3, static_cast<unsigned>(len)));
    a.flags = static_cast<uint16_t>(len);
    c.attributes.push_back(a);
  }
  c.attributes.push_back({"big", bytesOf(sampleBytes(100 * 1024, 7)), 0});
  c.attributes.push_back({"empty.value", {}, 0});
  c.resourceFork = bytesOf(sampleBytes(5000, 9));

  std::vector<uint8_t> bytes;
  ASSERT_TRUE(appleDoubleBuild(c, bytes));
  AppleDoubleContents back;
  ASSERT_TRUE(appleDoubleParse(bytes.data(), bytes.size(), back));
  EXPECT_EQ(std::vector<uint8_t>(back.finderInfo, back.finderInfo + 32),
            std::vector<uint8_t>(c.finderInfo, c.finderInfo + 32));
  ASSERT_EQ(back.attributes.size(), c.attributes.size());
  for (size_t i = 0; i < c.attributes.size(); ++i) {
    EXPECT_EQ(back.attributes[i].name, c.attributes[i].name);
    EXPECT_EQ(back.attributes[i].value, c.attributes[i].value);
    EXPECT_EQ(back.attributes[i].flags, c.attributes[i].flags);
  }
  EXPECT_EQ(back.resourceFork, c.resourceFork);

  // Nothing to carry still gives a well-formed companion with an empty
  // attribute block.
  ASSERT_TRUE(appleDoubleBuild(AppleDoubleContents(), bytes));
  EXPECT_EQ(bytes.size(), 120u);
  EXPECT_TRUE(parses(bytes));

  // Names the format cannot hold.
  for (const std::string& name : {std::string(), std::string(255, 'x'), std::string("a\0b", 3)}) {
    AppleDoubleContents bad;
    bad.attributes.push_back({name, {}, 0});
    EXPECT_FALSE(appleDoubleBuild(bad, bytes)) << name.size();
  }
  AppleDoubleContents twice;
  twice.attributes = {{"same", {}, 0}, {"same", {}, 0}};
  EXPECT_FALSE(appleDoubleBuild(twice, bytes));
}

TEST(AppleDoubleFormat, RecognisesTheEmptyResourceMap) {
  std::vector<uint8_t> map = emptyResourceMap();
  EXPECT_TRUE(appleDoubleIsEmptyResourceFork(map));
  EXPECT_TRUE(appleDoubleIsEmptyResourceFork({}));
  std::vector<uint8_t> oneType = map;
  put16(oneType, 0x100 + 28, 0);
  EXPECT_FALSE(appleDoubleIsEmptyResourceFork(oneType));
  std::vector<uint8_t> withData = map;
  put32(withData, 8, 4);
  EXPECT_FALSE(appleDoubleIsEmptyResourceFork(withData));
  std::vector<uint8_t> cut(map.begin(), map.end() - 1);
  EXPECT_FALSE(appleDoubleIsEmptyResourceFork(cut));
  std::vector<uint8_t> typeListOutside = map;
  put16(typeListOutside, 0x100 + 24, 0xFFF0);
  EXPECT_FALSE(appleDoubleIsEmptyResourceFork(typeListOutside));
  EXPECT_FALSE(appleDoubleIsEmptyResourceFork(bytesOf("not a resource fork")));
}

}  // namespace

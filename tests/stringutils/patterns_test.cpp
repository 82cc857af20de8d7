#include <gtest/gtest.h>
#include <zlib.h>

#include <stdexcept>
#include <string>

#include "support/temp_dir.h"
#include "velzip/StringUtils.h"

using StringUtils::GunzipString;
using StringUtils::MatchRegularExpression;
using StringUtils::ReplaceRegularExpression;

namespace {

std::string gzipOf(const std::string& data) {
  z_stream zs{};
  EXPECT_EQ(deflateInit2(&zs, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string out(deflateBound(&zs, data.size()) + 64, '\0');
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  zs.avail_in = static_cast<uInt>(data.size());
  zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
  zs.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&zs, Z_FINISH), Z_STREAM_END);
  out.resize(zs.total_out);
  deflateEnd(&zs);
  return out;
}

bool isPrefix(const std::string& prefix, const std::string& of) {
  return prefix.size() <= of.size() && of.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

TEST(Regex, Match) {
  EXPECT_TRUE(MatchRegularExpression("b", "abc", true));
  EXPECT_FALSE(MatchRegularExpression("^b$", "abc", true));
  EXPECT_TRUE(MatchRegularExpression("B", "abc", false));
  EXPECT_FALSE(MatchRegularExpression("B", "abc", true));
  EXPECT_TRUE(MatchRegularExpression("^\\d+(\\.\\d+){3}$", "10.0.1.2", true));
  EXPECT_TRUE(MatchRegularExpression("", "", true));
  // Embedded NULs and bytes that are not UTF-8 are plain characters.
  EXPECT_TRUE(MatchRegularExpression(std::string("a\0b", 3), std::string("xa\0b", 4), true));
  EXPECT_FALSE(MatchRegularExpression(std::string("a\0c", 3), std::string("xa\0b", 4), true));
  EXPECT_TRUE(MatchRegularExpression("\xFF+", "a\xFF\xFF\xC3", true));

  // Bad patterns give false.
  for (const char* bad : {"(", "[a-", "a{2,1}", "*", "\\", "(?<", "a)"}) {
    EXPECT_FALSE(MatchRegularExpression(bad, "abc", true)) << bad;
  }
  // A search Boost gives up on is a false, not a hang or a crash.
  const std::string longText(30000, 'a');
  EXPECT_FALSE(MatchRegularExpression("(a|aa)*(a|aa)*(a|aa)*c", longText, true));
  EXPECT_TRUE(MatchRegularExpression("a$", std::string(8 << 20, 'a'), true));
}

TEST(Regex, Replace) {
  EXPECT_EQ(ReplaceRegularExpression("(a)(b)", "xaby", "$2$1", true), "xbay");
  EXPECT_EQ(ReplaceRegularExpression("A", "aAa", "-", false), "---");
  EXPECT_EQ(ReplaceRegularExpression("A", "aAa", "-", true), "a-a");
  EXPECT_EQ(ReplaceRegularExpression("o", "foo", "[$&]", true), "f[o][o]");
  EXPECT_EQ(ReplaceRegularExpression("z", "abc", "-", true), "abc");
  EXPECT_EQ(ReplaceRegularExpression(std::string("\0", 1), std::string("a\0b", 3), "/", true),
            "a/b");
  EXPECT_EQ(ReplaceRegularExpression("\\s+", std::string(1 << 20, ' ') + "x", "", true), "x");

  // A bad pattern deliberately leaves as std::logic_error.
  EXPECT_THROW(ReplaceRegularExpression("(", "abc", "x", true), std::logic_error);
  EXPECT_THROW(ReplaceRegularExpression("[", "abc", "x", false), std::logic_error);
}

TEST(Gunzip, Members) {
  std::string out = "stale";
  ASSERT_TRUE(GunzipString(gzipOf("hello"), out));
  EXPECT_EQ(out, "hello");
  ASSERT_TRUE(GunzipString("", out));
  EXPECT_EQ(out, "");
  // Only the first of several members.
  ASSERT_TRUE(GunzipString(gzipOf("one") + gzipOf("two"), out));
  EXPECT_EQ(out, "one");
  const std::string empty = gzipOf("");
  ASSERT_TRUE(GunzipString(empty, out));
  EXPECT_EQ(out, "");

  // Output much larger than the input grows in steps of half the input.
  const std::string zeros(32 << 20, '\0');
  ASSERT_TRUE(GunzipString(gzipOf(zeros), out));
  EXPECT_TRUE(out == zeros);
  const std::string mixed = velzip_test::sampleBytes(3 << 20, 7);
  ASSERT_TRUE(GunzipString(gzipOf(mixed), out));
  EXPECT_TRUE(out == mixed);
}

TEST(Gunzip, DamagedInputIsLenient) {
  const std::string hello = gzipOf("hello");
  std::string out = "stale";
  ASSERT_TRUE(GunzipString(hello.substr(0, hello.size() / 2), out));
  EXPECT_TRUE(isPrefix(out, "hello")) << out;

  // Every truncation yields a prefix of the data.
  const std::string data = velzip_test::sampleBytes(5000, 2);
  const std::string member = gzipOf(data);
  for (size_t n = 1; n < member.size(); ++n) {
    ASSERT_TRUE(GunzipString(member.substr(0, n), out)) << n;
    ASSERT_TRUE(isPrefix(out, data)) << n;
  }

  // Garbage, a bare zlib stream, a corrupted body, lone bytes, NULs.
  std::string corrupt = member;
  for (size_t i = 20; i < corrupt.size(); i += 7) corrupt[i] = static_cast<char>(~corrupt[i]);
  std::string zlibOnly(compressBound(5), '\0');
  uLongf zlen = zlibOnly.size();
  compress(reinterpret_cast<Bytef*>(&zlibOnly[0]), &zlen, reinterpret_cast<const Bytef*>("hello"),
           5);
  zlibOnly.resize(zlen);
  for (const std::string& bad :
       {std::string("not gzip at all"), zlibOnly, corrupt, std::string("\x1f"),
        std::string(4096, '\0'), velzip_test::sampleBytes(1 << 20, 5)}) {
    out = "stale";
    EXPECT_TRUE(GunzipString(bad, out));
    EXPECT_TRUE(isPrefix(out, data) || out.empty()) << out.size();
  }
}

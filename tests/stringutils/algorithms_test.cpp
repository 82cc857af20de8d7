#include <gtest/gtest.h>
#include <zlib.h>

#include <stdexcept>
#include <tuple>

#include "support/temp_dir.h"
#include "velzip/StringUtils.h"

using namespace StringUtils;
using Pieces = std::vector<std::string>;

namespace {

// Replace in place; StringFindAndReplace must do the same on a copy.
std::string replaced(std::string text, const std::string& what, const std::string& with) {
  const std::string copy = StringFindAndReplace(text, what, with);
  Replace(text, what, with);
  EXPECT_EQ(copy, text);
  return text;
}

// The pieces, then "=" and the count the call returned.
template <class Separators>
std::string split(const std::string& text, const Separators& separators, Pieces pieces = {}) {
  const int n = SplitStrings(pieces, text, separators);
  return CombineStrings(pieces, "|") + "=" + std::to_string(n);
}

std::string parsed(const std::string& text, PackageVersion v) {
  EXPECT_TRUE(GetPackageVersionFromPackageVersionString(text, v));
  return std::to_string(v.major) + "." + std::to_string(v.minor) + "." +
         std::to_string(v.revision) + "." + std::to_string(v.build);
}

std::string compared(const PackageVersion& a, const PackageVersion& b) {
  return std::to_string(ComparePackageVersion(a, b));  // numeric, not textual
}

std::string gzipOf(const std::string& data) {
  z_stream zs{};
  deflateInit2(&zs, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&zs, data.size()), '\0');
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  zs.avail_in = static_cast<uInt>(data.size());
  zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
  zs.avail_out = static_cast<uInt>(out.size());
  deflate(&zs, Z_FINISH);
  out.resize(zs.total_out);
  deflateEnd(&zs);
  return out;
}

}  // namespace

TEST(Strings, ReplaceSplitCombineTrimQuoteAndVersions) {
  const std::string nul("\0", 1);
  const PackageVersion base{1, 2, 3, 4}, nines{9, 9, 9, 9};
  // Replace: no rescan, no overlap. One separator: empty pieces kept, the rest
  // even when empty. A list: only the last piece splits further, the list's
  // order wins, an empty rest sends the search on in the same copy. Trim takes
  // a set. Versions set only the parts the text has, each read by atoi.
  // clang-format off
  const std::pair<std::string, std::string> cases[] = {
      {replaced("aaa", "a", "aa"), "aaaaaa"}, {replaced("aabb", "ab", ""), "ab"},
      {replaced("aaaa", "aa", "b"), "bb"}, {replaced("xyx", "x", "<x>"), "<x>y<x>"},
      {replaced("a" + nul + "b" + nul, nul, "-"), "a-b-"}, {replaced("abc", "", "x"), "abc"},
      {split("a,,b,", ","), "a||b|=4"}, {split(",a", ","), "|a=2"}, {split("abc", ","), "abc=1"},
      {split("a::b", "::"), "a|b=2"}, {split("", ",", {"old"}), "=0"}, {split("a,b", ""), "a,b=1"},
      {split("a" + nul + "b", nul), "a|b=2"},
      {split("a,b-c", Pieces{",", "-"}, {"0"}), "0|a|b|c=3"},
      {split("a-b,c", Pieces{",", "-"}), "a-b|c=2"}, {split("a,", Pieces{",", "-"}), "a=1"},
      {split("a-b,", Pieces{",", "-"}), "a|b=2"}, {split("a;b,c", Pieces{",", ";"}), "a;b|c=2"},
      {split("xab", Pieces{"ab", "b"}), "xa=1"}, {split("", Pieces{","}), "=1"},
      {split("a,b", Pieces{}), "a,b=1"}, {split("a,b", Pieces{"", ","}), "a|b=2"},
      {CombineStrings({}, "/"), ""}, {CombineStrings({"a"}, "/"), "a"},
      {CombineStrings({"a", "", "b"}, "/"), "a//b"}, {Trim("  x y  ", " "), "x y"},
      {Trim("   ", " "), ""}, {Trim("", " "), ""}, {Trim("\t\n x\n", " \t\n"), "x"},
      {Trim("abcxcba", "cba"), "x"}, {Trim("x", ""), "x"}, {Trim(nul + "x" + nul, nul), "x"},
      {parsed("5", base), "5.2.3.4"}, {parsed("1.2.3.4.5", {}), "1.2.3.4"},
      {parsed("1..3", nines), "1.0.3.9"}, {parsed("2a.x.-3", base), "2.0.-3.4"},
      {parsed("", base), "1.2.3.4"}, {parsed("7.", base), "7.0.3.4"}, {compared(base, base), "0"},
      {parsed(std::string(1 << 20, '.'), base), "0.0.0.0"}, {compared({1, 2, 3, 5}, base), "1"},
      {compared({1, 2, 0, 0}, {1, 10, 0, 0}), "-1"}, {compared({2, 0, 0, 0}, {1, 9, 9, 9}), "1"},
      {compared({-1, 0, 0, 0}, {}), "-1"}};
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(c.first, c.second) << "case " << &c - cases;
  std::string list;
  AppendQuotedString(list, "a");
  EXPECT_EQ(&AppendQuotedString(list, "it's"), &list);
  EXPECT_EQ(AppendQuotedString(list, "'"), "'a','it''s',''''");

  // Huge texts: many matches (would crawl if each shifted the tail), and a
  // first separator that never occurs.
  std::string big(4 << 20, ',');
  Replace(big, ",", ";;");
  EXPECT_TRUE(big.size() == 8u << 20 && big.find(',') == std::string::npos);
  Pieces pieces;
  const std::string xs = StringFindAndReplace(big.substr(0, 400000), ";;", "x;");
  EXPECT_EQ(SplitStrings(pieces, xs, Pieces{",", ";"}), 200000);
}

TEST(Regex, MatchAndReplace) {
  const std::string nul("\0", 1), as(30000, 'a');
  // A search, not a whole match; NULs and bytes that are not UTF-8 are plain
  // characters; bad patterns, and searches Boost gives up on, are false.
  // clang-format off
  const std::tuple<std::string, std::string, bool, bool> matches[] = {
      {"b", "abc", true, true}, {"^b$", "abc", true, false}, {"B", "abc", false, true},
      {"B", "abc", true, false}, {"^\\d+(\\.\\d+){3}$", "10.0.1.2", true, true},
      {"", "", true, true}, {"a" + nul + "b", "xa" + nul + "b", true, true},
      {"a" + nul + "c", "xa" + nul + "b", true, false}, {"\xFF+", "a\xFF\xFF\xC3", true, true},
      {"(", "abc", true, false}, {"[a-", "abc", true, false}, {"a{2,1}", "abc", true, false},
      {"*", "abc", true, false}, {"\\", "abc", true, false}, {"(?<", "abc", true, false},
      {"a)", "abc", true, false}, {"(a|aa)*(a|aa)*(a|aa)*c", as, true, false},
      {"a$", std::string(8 << 20, 'a'), true, true}};
  const std::tuple<std::string, std::string, std::string, bool, std::string> replacements[] = {
      {"(a)(b)", "xaby", "$2$1", true, "xbay"}, {"A", "aAa", "-", false, "---"},
      {"A", "aAa", "-", true, "a-a"}, {"o", "foo", "[$&]", true, "f[o][o]"},
      {"z", "abc", "-", true, "abc"}, {nul, "a" + nul + "b", "/", true, "a/b"},
      {"\\s+", std::string(1 << 20, ' ') + "x", "", true, "x"}};
  // clang-format on
  for (const auto& [pattern, text, caseSensitive, match] : matches)
    EXPECT_EQ(MatchRegularExpression(pattern, text, caseSensitive), match) << pattern;
  for (const auto& [pattern, text, with, caseSensitive, result] : replacements)
    EXPECT_EQ(ReplaceRegularExpression(pattern, text, with, caseSensitive), result) << pattern;
  // A bad pattern deliberately leaves as std::logic_error.
  EXPECT_THROW(ReplaceRegularExpression("(", "abc", "x", true), std::logic_error);
  EXPECT_THROW(ReplaceRegularExpression("[", "abc", "x", false), std::logic_error);
}

TEST(Gunzip, MembersAndDamagedInput) {
  std::string out = "stale";
  auto gunzip = [&out](const std::string& in) { return GunzipString(in, out) ? out : "<false>"; };
  EXPECT_EQ(gunzip(gzipOf("hello")), "hello");
  EXPECT_EQ(gunzip("") + gunzip(gzipOf("")), "");
  EXPECT_EQ(gunzip(gzipOf("one") + gzipOf("two")), "one");  // the first member only
  // Output much larger than the input grows in steps of half the input.
  for (const std::string& data : {std::string(32 << 20, '\0'), velzip_test::sampleBytes(3 << 20)})
    EXPECT_TRUE(gunzip(gzipOf(data)) == data);

  // Damage is lenient: every truncation, garbage, a bare zlib stream, a
  // corrupted body, lone bytes and NULs give true and a prefix (maybe empty).
  const std::string data = velzip_test::sampleBytes(5000, 2), member = gzipOf(data);
  std::string corrupt = member, zlibOnly(64, '\0');
  for (size_t i = 20; i < corrupt.size(); i += 7) corrupt[i] = static_cast<char>(~corrupt[i]);
  uLongf zlen = zlibOnly.size();
  compress(reinterpret_cast<Bytef*>(&zlibOnly[0]), &zlen, reinterpret_cast<const Bytef*>("hi"), 2);
  zlibOnly.resize(zlen);
  // clang-format off
  Pieces damaged = {"not gzip at all", zlibOnly, corrupt, "\x1f", std::string(4096, '\0'),
                    velzip_test::sampleBytes(1 << 20, 5)};
  // clang-format on
  for (size_t n = 1; n < member.size(); ++n) damaged.push_back(member.substr(0, n));
  for (const std::string& bad : damaged) {
    ASSERT_TRUE(GunzipString(bad, out)) << bad.size();
    ASSERT_EQ(out, data.substr(0, out.size())) << bad.size();
  }
}

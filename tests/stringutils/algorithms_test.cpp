#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "velzip/StringUtils.h"

using Pieces = std::vector<std::string>;

TEST(Replace, NoRescanNoOverlap) {
  std::string t = "aaa";
  StringUtils::Replace(t, "a", "aa");
  EXPECT_EQ(t, "aaaaaa");
  t = "aabb";
  StringUtils::Replace(t, "ab", "");
  EXPECT_EQ(t, "ab");
  t = "aaaa";
  StringUtils::Replace(t, "aa", "b");
  EXPECT_EQ(t, "bb");
  EXPECT_EQ(StringUtils::StringFindAndReplace("xyx", "x", "<x>"), "<x>y<x>");
  EXPECT_EQ(StringUtils::StringFindAndReplace(std::string("a\0b\0", 4), std::string("\0", 1), "-"),
            "a-b-");
  // Generic over the character type.
  EXPECT_EQ(StringUtils::StringFindAndReplace(std::wstring(L"a-b"), std::wstring(L"-"),
                                              std::wstring(L"+")),
            L"a+b");

  // An empty search text leaves the input as it is instead of looping.
  t = "abc";
  StringUtils::Replace(t, "", "x");
  EXPECT_EQ(t, "abc");
  EXPECT_EQ(StringUtils::StringFindAndReplace("abc", "", "x"), "abc");

  // Many matches in a large text (would crawl if each shifted the tail).
  std::string big(4 << 20, ',');
  StringUtils::Replace(big, ",", ";;");
  EXPECT_EQ(big.size(), 8u << 20);
  EXPECT_EQ(big.find(','), std::string::npos);
}

TEST(Split, OneSeparator) {
  Pieces p = {"stale"};
  EXPECT_EQ(StringUtils::SplitStrings(p, "a,b", ","), 2);
  EXPECT_EQ(p, (Pieces{"a", "b"}));
  EXPECT_EQ(StringUtils::SplitStrings(p, "a,,b,", ","), 4);
  EXPECT_EQ(p, (Pieces{"a", "", "b", ""}));
  EXPECT_EQ(StringUtils::SplitStrings(p, ",a", ","), 2);
  EXPECT_EQ(p, (Pieces{"", "a"}));
  EXPECT_EQ(StringUtils::SplitStrings(p, "abc", ","), 1);
  EXPECT_EQ(p, (Pieces{"abc"}));
  EXPECT_EQ(StringUtils::SplitStrings(p, "a::b", "::"), 2);
  EXPECT_EQ(p, (Pieces{"a", "b"}));
  EXPECT_EQ(StringUtils::SplitStrings(p, "", ","), 0);
  EXPECT_TRUE(p.empty());
  EXPECT_EQ(StringUtils::SplitStrings(p, "a,b", ""), 1);  // empty separator: no loop
  EXPECT_EQ(p, (Pieces{"a,b"}));
  EXPECT_EQ(StringUtils::SplitStrings(p, std::string("a\0b", 3), std::string("\0", 1)), 2);
}

TEST(Split, SeparatorList) {
  const Pieces seps = {",", "-"};
  Pieces p = {"kept"};
  EXPECT_EQ(StringUtils::SplitStrings(p, "a,b-c", seps), 3);
  EXPECT_EQ(p, (Pieces{"kept", "a", "b", "c"}));
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, "a-b,c", seps), 2);
  EXPECT_EQ(p, (Pieces{"a-b", "c"}));
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, "a,", seps), 1);
  EXPECT_EQ(p, (Pieces{"a"}));
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, "a-b,", seps), 2);
  EXPECT_EQ(p, (Pieces{"a", "b"}));
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, "a;b,c", Pieces{",", ";"}), 2);
  EXPECT_EQ(p, (Pieces{"a;b", "c"}));
  p.clear();
  // An empty rest leaves the piece to later separators, searched in the whole copy.
  EXPECT_EQ(StringUtils::SplitStrings(p, "xab", Pieces{"ab", "b"}), 1);
  EXPECT_EQ(p, (Pieces{"xa"}));
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, "", seps), 1);
  EXPECT_EQ(p, (Pieces{""}));
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, "a,b", Pieces{}), 1);
  EXPECT_EQ(p, (Pieces{"a,b"}));
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, "a,b", Pieces{"", ","}), 2);  // empty ones ignored
  EXPECT_EQ(p, (Pieces{"a", "b"}));

  // A long text where the first separator never occurs.
  std::string big;
  for (int i = 0; i < 200000; ++i) big += "x;";
  p.clear();
  EXPECT_EQ(StringUtils::SplitStrings(p, big, Pieces{",", ";"}), 200000);
  EXPECT_EQ(p.back(), "x");
}

TEST(Strings, CombineTrimQuote) {
  EXPECT_EQ(StringUtils::CombineStrings({}, "/"), "");
  EXPECT_EQ(StringUtils::CombineStrings({"a"}, "/"), "a");
  EXPECT_EQ(StringUtils::CombineStrings({"a", "", "b"}, "/"), "a//b");

  EXPECT_EQ(StringUtils::Trim("  x y  ", " "), "x y");
  EXPECT_EQ(StringUtils::Trim("   ", " "), "");
  EXPECT_EQ(StringUtils::Trim("", " "), "");
  EXPECT_EQ(StringUtils::Trim("\t\n x\n", " \t\n"), "x");
  EXPECT_EQ(StringUtils::Trim("abcxcba", "cba"), "x");  // a set, not a sequence
  EXPECT_EQ(StringUtils::Trim("x", ""), "x");
  EXPECT_EQ(StringUtils::Trim(std::string("\0x\0", 3), std::string("\0", 1)), "x");

  std::string list;
  StringUtils::AppendQuotedString(list, "a");
  EXPECT_EQ(&StringUtils::AppendQuotedString(list, "it's"), &list);
  EXPECT_EQ(list, "'a','it''s'");
  list.clear();
  EXPECT_EQ(StringUtils::AppendQuotedString(list, "'"), "''''");
  EXPECT_EQ(StringUtils::AppendQuotedString(list, ""), "'''',''");
}

TEST(PackageVersion, ParseAndCompare) {
  using StringUtils::PackageVersion;
  auto parse = [](const std::string& text, PackageVersion v) {
    EXPECT_TRUE(StringUtils::GetPackageVersionFromPackageVersionString(text, v));
    return std::vector<int>{v.major, v.minor, v.revision, v.build};
  };
  const PackageVersion base{1, 2, 3, 4};
  EXPECT_EQ(parse("5", base), (std::vector<int>{5, 2, 3, 4}));
  EXPECT_EQ(parse("1.2.3.4.5", {}), (std::vector<int>{1, 2, 3, 4}));
  EXPECT_EQ(parse("1..3", {9, 9, 9, 9}), (std::vector<int>{1, 0, 3, 9}));
  EXPECT_EQ(parse("2a.x.-3", base), (std::vector<int>{2, 0, -3, 4}));
  EXPECT_EQ(parse("", base), (std::vector<int>{1, 2, 3, 4}));
  EXPECT_EQ(parse("7.", base), (std::vector<int>{7, 0, 3, 4}));
  EXPECT_EQ(parse(std::string(1 << 20, '.'), base), (std::vector<int>{0, 0, 0, 0}));

  EXPECT_EQ(StringUtils::ComparePackageVersion({1, 2, 0, 0}, {1, 10, 0, 0}), -1);
  EXPECT_EQ(StringUtils::ComparePackageVersion({1, 2, 3, 4}, {1, 2, 3, 4}), 0);
  EXPECT_EQ(StringUtils::ComparePackageVersion({2, 0, 0, 0}, {1, 9, 9, 9}), 1);
  EXPECT_EQ(StringUtils::ComparePackageVersion({1, 2, 3, 5}, {1, 2, 3, 4}), 1);
  EXPECT_EQ(StringUtils::ComparePackageVersion({-1, 0, 0, 0}, {0, 0, 0, 0}), -1);
}

namespace {

// The list split done literally, on copies, as a reference for the indexed one.
int naiveSplit(Pieces& pieces, const std::string& text, const Pieces& separators) {
  const size_t before = pieces.size();
  pieces.push_back(text);
  for (bool again = true; again;) {
    again = false;
    const std::string last = pieces.back();
    for (const std::string& sep : separators) {
      const size_t p = sep.empty() ? std::string::npos : last.find(sep);
      if (p == std::string::npos) continue;
      pieces.pop_back();
      pieces.push_back(last.substr(0, p));
      if (p + sep.size() < last.size()) {
        pieces.push_back(last.substr(p + sep.size()));
        again = true;
        break;
      }
    }
  }
  return static_cast<int>(pieces.size() - before);
}

}  // namespace

TEST(Split, SeparatorListMatchesLiteralRule) {
  unsigned x = 12345;
  auto next = [&x](unsigned n) {
    x = x * 1103515245u + 12345u;
    return (x >> 16) % n;
  };
  auto word = [&](unsigned maxLen) {
    std::string w;
    for (unsigned i = next(maxLen + 1); i > 0; --i) w.push_back("ab,-"[next(4)]);
    return w;
  };
  for (int round = 0; round < 20000; ++round) {
    const std::string text = word(12);
    Pieces seps;
    for (unsigned i = next(4); i > 0; --i) seps.push_back(word(2));
    Pieces expected = {"pre"}, actual = {"pre"};
    const int n = naiveSplit(expected, text, seps);
    ASSERT_EQ(StringUtils::SplitStrings(actual, text, seps), n) << text;
    ASSERT_EQ(actual, expected) << text;
  }
}

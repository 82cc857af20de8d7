#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <string>

#include "stringutils/base64.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/StringUtils.h"

using velzip_test::CaptureLogger;
using velzip_test::LogCapture;

namespace {

const char kFail[] = "<fail>";

std::string encode(const std::string& bytes) {
  std::string out;
  velzip::Base64Encode(bytes.begin(), bytes.end(), std::back_inserter(out));
  return out;
}

std::string decode(const std::string& text) {
  std::string out;
  return StringUtils::DecodeBase64Data(text.c_str(), 1, out, nullptr) ? out : kFail;
}

std::string compactGuid(std::string guid) {
  return StringUtils::GUIDToBase64(guid, nullptr) ? guid : kFail;
}

std::string urlEncoded(std::string text) {
  const std::string before = text;
  if (StringUtils::GetURLEncodedString(text)) return text;
  return text == before ? kFail : "<fail, text changed>";
}

std::string urlDecoded(std::string text) {
  const std::string before = text;
  if (StringUtils::GetURLDecodedString(text)) return text;
  return text == before ? kFail : "<fail, text changed>";
}

}  // namespace

TEST(Guid, FreshRandomUpperCase) {
  const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    std::string g = "stale";
    ASSERT_TRUE(StringUtils::GUIDString(g));
    EXPECT_TRUE(std::regex_match(g, shape)) << g;
    seen.insert(g);
  }
  EXPECT_EQ(seen.size(), 100u);
}

TEST(Guid, ToBase64) {
  EXPECT_EQ(compactGuid("{00000000-0000-0000-0000-000000000000}"), std::string(22, 'A'));
  EXPECT_EQ(compactGuid("FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF"), std::string(21, '_') + "w");
  EXPECT_EQ(compactGuid("FBEFBEFB-EFBE-FBEF-BEFB-EFBEFBEFBEFB"), std::string(21, '-') + "w");
  EXPECT_EQ(compactGuid("zz1g"), "AA");  // pairs read as far as hex goes: 00 01 -> "AAE="

  // A fresh GUID comes back from the URL-safe form.
  std::string fresh, hex;
  StringUtils::GUIDString(fresh);
  std::string std64 = compactGuid(fresh);
  ASSERT_EQ(std64.size(), 22u);
  StringUtils::Replace(std64, "_", "/");
  StringUtils::Replace(std64, "-", "+");
  for (unsigned char c : decode(std64 + "=="))
    hex += StringUtils::StdStringFromStringWithFormat("%02X", c);
  EXPECT_EQ(hex, StringUtils::StringFindAndReplace(fresh, "-", ""));

  for (std::string bad : {std::string("{}"), std::string(), std::string("{--}")}) {
    LogCapture capture;
    CaptureLogger handle;
    std::string g = bad;
    EXPECT_FALSE(StringUtils::GUIDToBase64(g, &handle));
    EXPECT_EQ(g, bad);
    ASSERT_EQ(capture.lines().size(), 2u);
    // The encoder's line bypasses the handle; the summary uses it.
    EXPECT_EQ(capture.lines()[0].module, "UlvoUtils");
    EXPECT_EQ(capture.lines()[0].text, "Invalid arguments to utilEncodeDataInBase64.");
    EXPECT_EQ(capture.lines()[1].module, "<object>");
    EXPECT_EQ(capture.lines()[1].level, 40);
    EXPECT_EQ(capture.lines()[1].component, "StringUtils");
    EXPECT_EQ(capture.lines()[1].text, "Failed to convert GUID to Base64");
  }
}

TEST(Base64, Encode) {
  EXPECT_EQ(encode(""), "");
  EXPECT_EQ(encode("M"), "TQ==");
  EXPECT_EQ(encode("Ma"), "TWE=");
  EXPECT_EQ(encode("Man"), "TWFu");
  EXPECT_EQ(encode(std::string("\0\xff\x80", 3)), "AP+A");

  LogCapture capture;
  std::string out = "x";
  ASSERT_TRUE(StringUtils::EncodeDataInBase64("a\0b", 3, out, nullptr));
  EXPECT_EQ(out, "xYQBi");  // appended, NUL included
  EXPECT_FALSE(StringUtils::EncodeDataInBase64(nullptr, 3, out, nullptr));
  EXPECT_FALSE(StringUtils::EncodeDataInBase64("abc", 0, out, nullptr));
  EXPECT_FALSE(StringUtils::EncodeDataInBase64("abc", -1, out, nullptr));
  EXPECT_EQ(out, "xYQBi");
  ASSERT_EQ(capture.lines().size(), 3u);
  EXPECT_EQ(capture.lines()[2].text, "Invalid arguments to utilEncodeDataInBase64.");
}

TEST(Base64, LenientDecode) {
  EXPECT_EQ(decode("TWFu"), "Man");
  EXPECT_EQ(decode("TW Fu"), "Man");
  EXPECT_EQ(decode("T\r\nW-F\xC3\xA9u\x01"), "Man");  // controls, '-', non-ASCII skipped
  EXPECT_EQ(decode("TQ=="), "M");
  EXPECT_EQ(decode("TWE="), "Ma");
  EXPECT_EQ(decode("QQ==QQ=="), "AA");
  EXPECT_EQ(decode("@@@@"), std::string(3, '\0'));
  EXPECT_EQ(decode(" \n "), "");
  for (const char* bad : {"TWE", "=AAA", "A=AA", "TQ=A", "TWFuT", "TWFu=A=="})
    EXPECT_EQ(decode(bad), kFail) << bad;

  // length is only tested for non-zero; the text runs to its zero byte.
  std::string out;
  ASSERT_TRUE(StringUtils::DecodeBase64Data("TWFuTWFu\0TWFu", 2, out, nullptr));
  EXPECT_EQ(out, "ManMan");

  // Bytes before a failure stay in the generic decoder's output.
  const std::string text = "TWFu=AAA";
  bool ok = true;
  out.clear();
  velzip::Base64Decode(text.begin(), text.end(), std::back_inserter(out), ok);
  EXPECT_FALSE(ok);
  EXPECT_EQ(out, "Man");

  const std::string data = velzip_test::sampleBytes(6 << 20, 3) + std::string("\0\xff", 2);
  std::string big;
  ASSERT_TRUE(StringUtils::EncodeDataInBase64(data.data(), int(data.size()), big, nullptr));
  EXPECT_TRUE(decode(big) == data);
}

TEST(Base64, DecodeIntoBufferAndFailures) {
  unsigned char* buffer = nullptr;
  int size = 0;
  ASSERT_TRUE(StringUtils::DecodeBase64Data("AP+A", 4, &buffer, size, nullptr));
  std::unique_ptr<unsigned char[]> owned(buffer);
  ASSERT_EQ(size, 3);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 3), std::string("\0\xff\x80", 3));
  // Nothing decoded: the size is set, the pointer left alone; null only sizes.
  unsigned char sentinel = 0;
  unsigned char* untouched = &sentinel;
  ASSERT_TRUE(StringUtils::DecodeBase64Data("  ", 2, &untouched, size, nullptr));
  EXPECT_EQ(size, 0);
  EXPECT_EQ(untouched, &sentinel);
  ASSERT_TRUE(StringUtils::DecodeBase64Data("TWFu", 4, nullptr, size, nullptr));
  EXPECT_EQ(size, 3);

  LogCapture capture;
  CaptureLogger handle;
  std::string out = "keep";
  EXPECT_FALSE(StringUtils::DecodeBase64Data(nullptr, 4, out, &handle));
  EXPECT_FALSE(StringUtils::DecodeBase64Data("TWFu", 0, out, &handle));
  EXPECT_FALSE(StringUtils::DecodeBase64Data("TWE", 3, out, &handle));
  EXPECT_EQ(out, "keep");
  size = -7;
  EXPECT_FALSE(StringUtils::DecodeBase64Data("TWE", 3, &untouched, size, nullptr));
  EXPECT_EQ(size, -7);
  EXPECT_EQ(untouched, &sentinel);
  ASSERT_EQ(capture.lines().size(), 4u);
  EXPECT_EQ(capture.lines()[0].module, "<object>");
  EXPECT_EQ(capture.lines()[0].text, "Invalid arguments to utilDecodeBase64Data.");
  EXPECT_EQ(capture.lines()[2].text, "Failed to decode from base 64.");
  EXPECT_EQ(capture.lines()[3].module, "UlvoUtils");
}

TEST(Url, EncodeAndDecode) {
  EXPECT_EQ(urlEncoded("a b&c"), "a%20b%26c");
  EXPECT_EQ(urlEncoded(":/?#[]@$&+,;= "), "%3A%2F%3F%23%5B%5D%40%24%26%2B%2C%3B%3D%20");
  EXPECT_EQ(urlEncoded("AZaz09-._~!'()*"), "AZaz09-._~!'()*");
  EXPECT_EQ(urlEncoded(std::string("\"<>\\^`{|}%\x7f\t\0\xC3\xA9", 15)),
            "%22%3C%3E%5C%5E%60%7B%7C%7D%25%7F%09%00%C3%A9");
  EXPECT_EQ(urlEncoded(""), "");
  for (const char* bad : {"a\xC3", "\xFF", "\xC0\xAF"}) EXPECT_EQ(urlEncoded(bad), kFail) << bad;

  EXPECT_EQ(urlDecoded("a%20b%26c"), "a b&c");
  EXPECT_EQ(urlDecoded("%c3%a9+%2B%00x"), std::string("\xC3\xA9++\0x", 6));
  EXPECT_EQ(urlDecoded(""), "");
  // Malformed escapes, escapes that are not UTF-8, and input that is not UTF-8.
  for (const char* bad : {"%C3", "%C3%28", "%FF", "%ED%A0%80", "50%", "%4", "%zz", "\xE9%20"})
    EXPECT_EQ(urlDecoded(bad), kFail) << bad;

  std::string all;
  for (int c = 0; c < 128; ++c) all.push_back(static_cast<char>(c));
  all += "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  std::string big;
  for (int i = 0; i < 20000; ++i) big += all;
  for (const std::string& original : {all, big}) {
    const std::string encoded = urlEncoded(original);
    EXPECT_EQ(encoded.find_first_not_of(
                  "%0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-._~!'()*"),
              std::string::npos);
    EXPECT_TRUE(urlDecoded(encoded) == original);
  }
}

#include <fcntl.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <regex>
#include <set>

#include "stringutils/base64.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "velzip/StringUtils.h"

using namespace StringUtils;
using velzip_test::CaptureLogger;
using velzip_test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

// Results, or "<false>" when the call failed, followed by the text it left.
std::string decoded(const std::string& text, std::string out = "") {
  return DecodeBase64Data(text.c_str(), 1, out, nullptr) ? out : "<false>" + out;
}
std::string compactGuid(std::string guid) {
  return GUIDToBase64(guid, nullptr) ? guid : "<false>" + guid;
}
std::string url(bool (*code)(std::string&), std::string text) {
  return code(text) ? text : "<false>" + text;
}

}  // namespace

TEST(Conversions, TextNumbersPointersStringCopyErrorsAndCase) {
  std::string out;
  EXPECT_TRUE(NativeToUTF8("h\xC3\xA9", out, nullptr) && out == "h\xC3\xA9");
  EXPECT_TRUE(UTF8ToNative(static_cast<const char*>(nullptr), out, nullptr) && out.empty());
  EXPECT_EQ(UTF8ToNative(std::string("a\0b", 3), nullptr), std::string("a\0b", 3));
  // NFC composes; composed text, and bytes that are not UTF-8, stay as they are.
  for (const std::string text : {"e\xCC\x81", "\xC3\xA9t\xC3\xA9", "\xFF\xFE"})
    EXPECT_TRUE(UTF8ToNFCNative(text, out, nullptr) && out == (text[0] == 'e' ? "\xC3\xA9" : text));
  DoubleToNativeString(0.5, out);
  EXPECT_EQ(out, "0.500000");
  LongToNativeString(LLONG_MIN, out);
  EXPECT_EQ(out + " " + IntToUTF8(INT_MIN) + " " + LongToUTF8(123456789L),
            "-9223372036854775808 -2147483648 123456789");
  int x;
  PtrToNativeStr(&x, out, nullptr);
  EXPECT_TRUE(out.rfind("0x", 0) == 0 && NativeStrToPtr(out, nullptr) == &x) << out;
  // Prefixed hexadecimal, else decimal as far as it goes; a late prefix reads as 0.
  // clang-format off
  const std::pair<const char*, long long> longs[] = {{"0x1F", 31}, {"0XFFFFFFFF", 4294967295LL},
      {"12abc", 12}, {"", 0}, {"abc", 0}, {"  0x10", 0}, {"  -17", -17}};
  // clang-format on
  for (const auto& [text, value] : longs) EXPECT_EQ(NativeStringToLong(text, nullptr), value);
  EXPECT_TRUE(NativeStrToPtr("0x1000", nullptr) == NativeStrToPtr("4096", nullptr) &&
              NativeStrToPtr("4096", nullptr) == reinterpret_cast<void*>(4096));
  EXPECT_EQ(UTF8ToLong("5000000000", nullptr), 5000000000LL);
  EXPECT_EQ(UTF8ToInt("17 apples", nullptr), 17);
  EXPECT_EQ(NativeStringToInt("x", nullptr), 0);

  LogCapture log;
  char dst[5];
  EXPECT_TRUE(StringCopy(dst, 5, "abcd", 0, nullptr));  // the source size is never read
  EXPECT_FALSE(StringCopy(dst, 5, "abcde", 5, nullptr));
  EXPECT_STREQ(dst, "abcd");  // cut and terminated
  EXPECT_FALSE(StringCopy(dst, 0, "a", 1, nullptr) || StringCopy(nullptr, 5, "a", 1, nullptr));
  EXPECT_EQ(log.texts(),
            (Lines{"40 Failed to Copy SrcStr to DestStr, error: destination buffer "
                   "is small",
                   "40 destination or source length is zero", "40 srcPtr or dstPtr is NULL"}));
  EXPECT_EQ(log.lines()[0].module + "/" + log.lines()[0].component, "UlvoUtils/StringUtils");

  EXPECT_EQ(GetLastErrorString(2), "Error 2 No such file or directory");
  ASSERT_LT(open("/nonexistent/velzip", O_RDONLY), 0);
  EXPECT_EQ(GetLastErrorString(-1).rfind("Error 2 ", 0), 0u);
  EXPECT_EQ(ToLower("AbC-\xC3\x89"), "abc-\xC3\x89");  // only ASCII letters change
  EXPECT_EQ(ToUpper("abc\xC3\xA9"), "ABC\xC3\xA9");
  EXPECT_FALSE(IsMultiByte(L"") || IsMultiByte(L"\u00FF") || !IsMultiByte(L"a\u0100"));
  const std::string big(5000, 'q');
  EXPECT_EQ(StdStringFromStringWithFormat("%s", big.c_str()), big.substr(0, 4095));
}

TEST(Encodings, GuidsBase64AndUrls) {
  const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (std::string g; seen.size() < 100; seen.insert(g))
    ASSERT_TRUE(GUIDString(g) && std::regex_match(g, shape) && !seen.count(g)) << g;
  // The URL-safe form; hex is read in pairs as far as it goes.
  EXPECT_EQ(compactGuid("{00000000-0000-0000-0000-000000000000}"), std::string(22, 'A'));
  EXPECT_EQ(compactGuid("FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF"), std::string(21, '_') + "w");
  EXPECT_EQ(compactGuid("FBEFBEFB-EFBE-FBEF-BEFB-EFBEFBEFBEFB"), std::string(21, '-') + "w");
  EXPECT_EQ(compactGuid("zz1g"), "AA");
  for (const std::string bad : {"{}", "", "{--}"}) {
    LogCapture log;
    CaptureLogger handle;
    std::string g = bad;
    EXPECT_FALSE(GUIDToBase64(g, &handle) || g != bad);
    // The encoder's line bypasses the handle; the summary uses it.
    EXPECT_EQ(log.texts(), (Lines{"40 Invalid arguments to utilEncodeDataInBase64.",
                                  "40 Failed to convert GUID to Base64"}));
    EXPECT_EQ(log.lines()[0].module + " " + log.lines()[1].module, "UlvoUtils <object>");
  }

  std::string encoded;
  for (const std::string bytes : {"", "M", "Ma", "Man", "\xff\x80"}) {
    velzip::Base64Encode(bytes.begin(), bytes.end(), std::back_inserter(encoded));
    encoded += "|";
  }
  EXPECT_EQ(encoded, "|TQ==|TWE=|TWFu|/4A=|");
  // Blanks, controls, '-' and non-ASCII are skipped; "@" reads as zero bits;
  // padding ends a group; leftovers and misplaced padding fail. length is
  // only tested for non-zero: the text runs to its zero byte.
  // clang-format off
  const std::pair<std::string, std::string> texts[] = {
      {"TWFu", "Man"}, {"TW Fu", "Man"}, {"T\r\nW-F\xC3\xA9u\x01", "Man"}, {"TQ==", "M"},
      {"QQ==QQ==", "AA"}, {"@@@@", std::string(3, '\0')}, {" \n ", ""}, {"TWE", "<false>"},
      {"=AAA", "<false>"}, {"A=AA", "<false>"}, {"TQ=A", "<false>"}, {"TWFuT", "<false>"},
      {"TWFu=A==", "<false>"}, {std::string("TWFu\0TWFu", 9), "Man"}};
  // clang-format on
  for (const auto& [text, bytes] : texts) EXPECT_EQ(decoded(text), bytes) << text;
  const std::string data = velzip_test::sampleBytes(6 << 20, 3) + std::string("\0\xff", 2);
  std::string big = "x";  // appended to
  ASSERT_TRUE(EncodeDataInBase64(data.data(), int(data.size()), big, nullptr) && big[0] == 'x');
  EXPECT_TRUE(decoded(big.substr(1)) == data);

  // Into a buffer the caller releases; nothing decoded leaves the pointer,
  // a null one only sizes, a failure leaves both.
  unsigned char* buffer = nullptr;
  int size = 0;
  ASSERT_TRUE(DecodeBase64Data("AP+A", 4, &buffer, size, nullptr));
  std::unique_ptr<unsigned char[]> owned(buffer);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), size), std::string("\0\xff\x80", 3));
  unsigned char* kept = buffer;
  EXPECT_TRUE(DecodeBase64Data("  ", 2, &kept, size, nullptr) && size == 0 && kept == buffer);
  EXPECT_TRUE(DecodeBase64Data("TWFu", 4, nullptr, size, nullptr) && size == 3);
  LogCapture log;
  CaptureLogger handle;
  EXPECT_FALSE(DecodeBase64Data("TWE", 3, &kept, size, nullptr) || size != 3 || kept != buffer);
  std::string out = "kept";
  EXPECT_FALSE(EncodeDataInBase64("a", 0, out, nullptr) ||
               EncodeDataInBase64("a", -1, out, nullptr) ||
               EncodeDataInBase64(nullptr, 3, out, nullptr));
  EXPECT_FALSE(DecodeBase64Data(nullptr, 4, out, &handle) ||
               DecodeBase64Data("TWFu", 0, out, &handle) || out != "kept");
  const std::string encode = "40 Invalid arguments to utilEncodeDataInBase64.";
  EXPECT_EQ(log.texts(), (Lines{"40 Failed to decode from base 64.", encode, encode, encode,
                                "40 Invalid arguments to utilDecodeBase64Data.",
                                "40 Invalid arguments to utilDecodeBase64Data."}));
  EXPECT_EQ(log.lines()[0].module + " " + log.lines()[5].module, "UlvoUtils <object>");

  // clang-format off
  const std::pair<std::string, std::string> urls[] = {
      {"a b&c", "a%20b%26c"}, {":/?#[]@$&+,;= ", "%3A%2F%3F%23%5B%5D%40%24%26%2B%2C%3B%3D%20"},
      {"AZaz09-._~!'()*", "AZaz09-._~!'()*"}, {"", ""}, {"a\xC3", "<false>a\xC3"},
      {std::string("\"<>\\^`{|}%\x7f\t\0\xC3\xA9", 15),
       "%22%3C%3E%5C%5E%60%7B%7C%7D%25%7F%09%00%C3%A9"},
      {"\xFF", "<false>\xFF"}, {"\xC0\xAF", "<false>\xC0\xAF"}};
  // clang-format on
  for (const auto& [text, escaped] : urls) EXPECT_EQ(url(GetURLEncodedString, text), escaped);
  EXPECT_EQ(url(GetURLDecodedString, "%c3%a9+%2B%00x"), std::string("\xC3\xA9++\0x", 6));
  EXPECT_EQ(url(GetURLDecodedString, ""), "");
  // Malformed escapes, escapes that are not UTF-8, input that is not UTF-8.
  for (const std::string bad : {"%C3", "%C3%28", "%FF", "%ED%A0%80", "50%", "%4", "%zz", "\xE9%20"})
    EXPECT_EQ(url(GetURLDecodedString, bad), "<false>" + bad);
  // Every ASCII byte and some multi-byte characters, many times over.
  std::string all = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", many;
  for (int c = 0; c < 128; ++c) all.push_back(static_cast<char>(c));
  while (many.size() < (2u << 20)) many += all;
  EXPECT_TRUE(url(GetURLDecodedString, url(GetURLEncodedString, many)) == many);
}

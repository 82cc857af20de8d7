#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "velzip/StringUtils.h"

using namespace StringUtils;

TEST(Conversions, NativeAndUtf8CopyAndNfcComposes) {
  std::string out;
  EXPECT_TRUE(NativeToUTF8("h\xC3\xA9", out, nullptr));
  EXPECT_EQ(out, "h\xC3\xA9");
  EXPECT_TRUE(UTF8ToNative(static_cast<const char*>(nullptr), out, nullptr));
  EXPECT_EQ(out, "");
  EXPECT_EQ(UTF8ToNative(std::string("a\0b", 3), nullptr), std::string("a\0b", 3));

  EXPECT_TRUE(UTF8ToNFCNative("e\xCC\x81", out, nullptr));
  EXPECT_EQ(out, "\xC3\xA9");
  EXPECT_TRUE(UTF8ToNFCNative(std::string("\xC3\xA9t\xC3\xA9"), out, nullptr));
  EXPECT_EQ(out, "\xC3\xA9t\xC3\xA9");
  // Not UTF-8: returned unchanged rather than mangled.
  EXPECT_TRUE(UTF8ToNFCNative(std::string("\xFF\xFE"), out, nullptr));
  EXPECT_EQ(out, "\xFF\xFE");
}

TEST(Conversions, NumbersToText) {
  std::string out;
  DoubleToNativeString(0.5, out);
  EXPECT_EQ(out, "0.500000");
  LongToNativeString(LLONG_MIN, out);
  EXPECT_EQ(out, "-9223372036854775808");
  IntToNativeString(-42, out, nullptr);
  EXPECT_EQ(out, "-42");
  EXPECT_EQ(IntToUTF8(INT_MIN), "-2147483648");
  EXPECT_EQ(LongToUTF8(123456789L), "123456789");
  int x;
  PtrToNativeStr(&x, out, nullptr);
  EXPECT_EQ(out.compare(0, 2, "0x"), 0);
  EXPECT_EQ(NativeStrToPtr(out, nullptr), &x) << "reads back what it writes";
}

TEST(Conversions, TextToNumbers) {
  EXPECT_EQ(NativeStringToLong("0x1F", nullptr), 31);
  EXPECT_EQ(NativeStringToLong("0XFFFFFFFF", nullptr), 4294967295LL);
  EXPECT_EQ(NativeStringToLong("12abc", nullptr), 12);
  EXPECT_EQ(NativeStringToLong("", nullptr), 0);
  EXPECT_EQ(NativeStringToLong("abc", nullptr), 0);
  EXPECT_EQ(NativeStringToLong("  0x10", nullptr), 0) << "a late prefix reads as decimal 0";
  EXPECT_EQ(NativeStringToLong("  -17", nullptr), -17);
  EXPECT_EQ(NativeStrToPtr("0x1000", nullptr), reinterpret_cast<void*>(4096));
  EXPECT_EQ(NativeStrToPtr("4096", nullptr), reinterpret_cast<void*>(4096));
  EXPECT_EQ(UTF8ToLong("5000000000", nullptr), 5000000000LL);
  EXPECT_EQ(UTF8ToInt("17 apples", nullptr), 17);
  EXPECT_EQ(NativeStringToInt("x", nullptr), 0);
}

TEST(Conversions, StringCopyBoundsAndLogs) {
  velzip_test::LogCapture capture;
  char dst[5];
  EXPECT_TRUE(StringCopy(dst, 5, "abcd", 0, nullptr));
  EXPECT_STREQ(dst, "abcd");
  EXPECT_FALSE(StringCopy(dst, 5, "abcde", 5, nullptr));
  EXPECT_STREQ(dst, "abcd");
  EXPECT_TRUE(capture.contains("Failed to Copy SrcStr to DestStr, error: destination buffer is small"));
  EXPECT_FALSE(StringCopy(dst, 0, "a", 1, nullptr));
  EXPECT_TRUE(capture.contains("destination or source length is zero"));
  EXPECT_FALSE(StringCopy(nullptr, 5, "a", 1, nullptr));
  EXPECT_TRUE(capture.contains("srcPtr or dstPtr is NULL"));
  ASSERT_EQ(capture.lines().size(), 3u);
  for (const auto& line : capture.lines()) {
    EXPECT_EQ(line.level, 40);
    EXPECT_EQ(line.module, "UlvoUtils");
    EXPECT_EQ(line.component, "StringUtils");
  }
  // A handle takes precedence over the installed sink.
  velzip_test::CaptureLogger handle;
  EXPECT_FALSE(StringCopy(dst, 2, "abc", 3, &handle));
  EXPECT_EQ(capture.lines().back().module, "<object>");
}

TEST(Conversions, ErrorTextCaseAndFormat) {
  EXPECT_EQ(GetLastErrorString(2), "Error 2 No such file or directory");
  ASSERT_LT(open("/nonexistent/velzip", O_RDONLY), 0);
  EXPECT_EQ(GetLastErrorString(-1).rfind("Error 2 ", 0), 0u);

  EXPECT_EQ(ToLower("AbC-\xC3\x89"), "abc-\xC3\x89");
  EXPECT_EQ(ToUpper("abc\xC3\xA9"), "ABC\xC3\xA9");
  EXPECT_FALSE(IsMultiByte(L""));
  EXPECT_FALSE(IsMultiByte(L"\u00FF"));
  EXPECT_TRUE(IsMultiByte(L"a\u0100"));

  std::string big(5000, 'q');
  EXPECT_EQ(StdStringFromStringWithFormat("%s", big.c_str()), big.substr(0, 4095));
  EXPECT_EQ(StdStringFromStringWithFormat("%d-%s", 3, "x"), "3-x");
}

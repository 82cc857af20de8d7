#include <gtest/gtest.h>

#include <cstring>

#include "frame/bounded.h"
#include "frame/log_emit.h"
#include "frame/progress.h"
#include "support/log_capture.h"
#include "velzip/velzip.h"

using velzip_test::CaptureLogger;
using velzip_test::captureSink;
using velzip_test::LogCapture;

TEST(LogRouting, SetLoggerKeepsArchiveSinkOnNullButAlwaysSetsUtilities) {
  LogCapture guard;  // restores the globals
  CaptureLogger object;
  kLogMessageFnPtr = nullptr;
  EXPECT_EQ(velzipSetLogger(reinterpret_cast<void*>(&captureSink), &object), 0);
  EXPECT_EQ(kLogMessageFnPtr, &captureSink);
  EXPECT_EQ(ulvoUtilsLogMessageFnPtr, &captureSink);
  EXPECT_EQ(ulvoUtilsLogger, &object);

  EXPECT_EQ(velzipSetLogger(nullptr, &object), 0);
  EXPECT_EQ(kLogMessageFnPtr, &captureSink) << "a null function keeps the archive sink";
  EXPECT_EQ(ulvoUtilsLogMessageFnPtr, nullptr);
  EXPECT_EQ(ulvoUtilsLogger, &object);

  EXPECT_TRUE(UlvoUtils::SetLogger(nullptr, nullptr));
  EXPECT_EQ(ulvoUtilsLogger, nullptr);
  EXPECT_STREQ(kModuleName, "VELZIP");
}

TEST(LogRouting, ArchiveRoutingPassesModuleComponentAndTags) {
  LogCapture capture;
  velzip::logArchive(kLogLevelError, "VelUnzipHandler", "NULLARG", "Failed %s %d", "x", 7);
  ASSERT_EQ(capture.lines().size(), 1u);
  const auto& line = capture.lines()[0];
  EXPECT_EQ(line.level, 50);
  EXPECT_EQ(line.module, "VELZIP");
  EXPECT_EQ(line.component, "VelUnzipHandler");
  EXPECT_EQ(line.tag1, "");
  EXPECT_EQ(line.tag2, "NULLARG");
  EXPECT_EQ(line.text, "Failed x 7");

  kLogMessageFnPtr = nullptr;
  velzip::logArchive(kLogLevelError, "c", "", "%s", "never");
  EXPECT_EQ(capture.lines().size(), 1u);
}

TEST(LogRouting, UtilityRoutingTakesExactlyOneRouteInOrder) {
  LogCapture guard;  // restores the globals
  CaptureLogger handle, fallback;
  ulvoUtilsLogMessageFnPtr = &captureSink;
  ulvoUtilsLogger = &fallback;
  velzip_test::capturedLines().clear();

  velzip::logUtility(&handle, kLogLevelWarning, "FileUtils", "a %d", 1);
  velzip::logUtility(nullptr, kLogLevelWarning, "FileUtils", "b %d", 2);
  ulvoUtilsLogMessageFnPtr = nullptr;
  velzip::logUtility(nullptr, kLogLevelDetail, "StringUtils", "c %d", 3);
  ulvoUtilsLogger = nullptr;
  velzip::logUtility(nullptr, kLogLevelDetail, "StringUtils", "d %d", 4);

  const auto& lines = velzip_test::capturedLines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].module, "<object>");
  EXPECT_EQ(lines[0].text, "a 1");
  EXPECT_EQ(lines[0].tag1, "");
  EXPECT_EQ(lines[1].module, "UlvoUtils");
  EXPECT_EQ(lines[1].component, "FileUtils");
  EXPECT_EQ(lines[1].text, "b 2");
  EXPECT_EQ(lines[2].module, "<object>");
  EXPECT_EQ(lines[2].component, "StringUtils");
  velzip_test::capturedLines().clear();
}

TEST(LogRouting, NothingIsFormattedWithoutASink) {
  LogCapture guard;  // restores the globals
  kLogMessageFnPtr = nullptr;
  ulvoUtilsLogMessageFnPtr = nullptr;
  ulvoUtilsLogger = nullptr;
  // A format that would crash if it were ever expanded.
  velzip::logArchive(kLogLevelError, "c", "", "%s%s%s%n");
  velzip::logUtility(nullptr, kLogLevelError, "c", "%s%s%s%n");
}

namespace {
std::vector<ZLibCBData> seen;
ZLibCallbackAction recordingCallback(ZLibCBData* data) {
  seen.push_back(*data);
  return static_cast<ZLibCallbackAction>(7);
}
}  // namespace

TEST(Progress, DefaultCallbackSetterAndNameClearing) {
  velzip::Progress progress;
  int user = 0;
  // The default callback continues; a null setter keeps it but stores userData.
  progress.set(nullptr, &user);
  EXPECT_EQ(progress.report(kZLibStateEntryStart, 0, "e", "/p"), kZLibContinue);
  EXPECT_EQ(progress.data().userData, &user);

  seen.clear();
  progress.set(recordingCallback, nullptr);
  EXPECT_EQ(static_cast<int>(progress.report(kZLibStateEntryDone, 0, "dir/", "/d/dir", true)), 7);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_STREQ(seen[0].entryName, "dir/");
  EXPECT_TRUE(seen[0].isDirectory);
  EXPECT_EQ(seen[0].userData, nullptr);
  EXPECT_EQ(progress.data().entryName, nullptr);
  EXPECT_EQ(progress.data().filePath, nullptr);
}

TEST(Bounded, CopyAndAppendCutWithoutOverflow) {
  char buf[8];
  std::memset(buf, 'X', sizeof buf);
  EXPECT_EQ(velzip::boundedCopy(buf, "abc"), 3u);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(velzip::boundedAppend(buf, "defghij"), 10u);
  EXPECT_STREQ(buf, "abcdefg");
  EXPECT_EQ(velzip::boundedCopy(buf, "0123456789"), 10u);
  EXPECT_STREQ(buf, "0123456");
  EXPECT_EQ(velzip::boundedCopy(buf, ""), 0u);
  EXPECT_STREQ(buf, "");
  char tiny[1] = {'Z'};
  velzip::boundedCopy(tiny, "abc");
  EXPECT_EQ(tiny[0], '\0');
}

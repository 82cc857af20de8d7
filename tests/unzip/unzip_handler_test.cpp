// The format-0 reader: where it differs from the format-1 reader (content
// written as the zip layer decodes it, log routing) and where it must not.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/apple_double.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "unzip/archive_builder.h"
#include "unzip/plain_zip.h"
#include "unzip/recorder.h"
#include "velzip/UnzipHandler.h"
#include "velzip/VelUnzipHandler.h"

using namespace velzip_test;

namespace {

constexpr unsigned long kKeep = 0xFFFFFFFFul;

unsigned permissions(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0xFFFFu;
}

long long sizeOnDisk(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

unsigned newFileMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666u & ~mask;
}

std::string linkTarget(const std::string& path) {
  char buf[4096];
  const ssize_t n = readlink(path.c_str(), buf, sizeof buf);
  return n < 0 ? "<none>" : std::string(buf, static_cast<size_t>(n));
}

}  // namespace

TEST(UnzipHandlerExtract, WritesEachChunkAsTheZipLayerDecodesIt) {
  TempDir t;
  const std::string zip = t / "tree.zip";
  const std::string big = sampleBytes(200000, 7);
  const std::string stored = noiseBytes(70000, 2);
  PlainZip(zip)
      .dir("dir/", 040750)
      .file("dir/big.txt", big, 0100640)
      .file("stored.bin", stored, 0100755, kStored)
      .file("empty", "", 0100600, kStored)
      .link("link", "dir/big.txt");

  UnzipHandler r(zip.c_str());
  const std::string out = t / "out";
  Recorder rec;
  std::vector<long long> onDisk;  // size of big.txt at each of its data reports
  rec.answer = [&](const Report& report) {
    if (report.state == 2 && rec.reports.size() < 7)
      onDisk.push_back(sizeOnDisk(out + "/dir/big.txt"));
    return 0;
  };
  r.setCallback(Recorder::callback, &rec);
  ASSERT_TRUE(r.unzipTo(out.c_str(), false, kKeep));

  EXPECT_TRUE(readFile(out + "/dir/big.txt") == big);
  EXPECT_TRUE(readFile(out + "/stored.bin") == stored);
  EXPECT_TRUE(exists(out + "/empty"));
  EXPECT_EQ(sizeOnDisk(out + "/empty"), 0);
  EXPECT_EQ(permissions(out + "/dir"), 0750u);
  EXPECT_EQ(permissions(out + "/dir/big.txt"), 0640u);
  EXPECT_EQ(permissions(out + "/stored.bin"), 0755u);
  EXPECT_EQ(permissions(out + "/empty"), 0600u) << "an empty entry still gets its mode";
  EXPECT_EQ(linkTarget(out + "/link"), "dir/big.txt");

  // dir/ (3), big.txt 1 2 2 2 2 3, stored.bin 1 2 2 3, empty 1 3, link 3.
  EXPECT_EQ(rec.states(), "31222231223133");
  const std::vector<uint32_t> bigChunks = {65536, 65536, 65536, 200000 - 3 * 65536};
  for (size_t i = 0; i < bigChunks.size(); ++i) {
    const Report& report = rec.reports[2 + i];
    EXPECT_EQ(report.bytes, bigChunks[i]) << i;
    EXPECT_FALSE(report.hadEntry);
    EXPECT_TRUE(report.path.empty());
  }
  EXPECT_EQ(rec.reports[8].bytes, 65536u);
  EXPECT_EQ(rec.reports[9].bytes, 70000u - 65536u);
  EXPECT_EQ(rec.reports[6].entry, "dir/big.txt");
  EXPECT_EQ(rec.reports[6].path, out + "/dir/big.txt");

  // Every chunk reported is on disk already: nothing waits for the end.
  ASSERT_EQ(onDisk.size(), 4u);
  long long reported = 0;
  for (size_t i = 0; i < onDisk.size(); ++i) {
    reported += bigChunks[i];
    EXPECT_GE(onDisk[i], reported - 4096) << i;  // at most the stream's buffer is pending
  }
}

TEST(UnzipHandlerExtract, StoppingDuringDataKeepsWhatWasWritten) {
  TempDir t;
  const std::string zip = t / "stop.zip";
  const std::string big = sampleBytes(200000, 9);
  PlainZip(zip).file("big.txt", big, 0100600).file("after.txt", "later");

  for (int answer : {1, 2, 7}) {
    const std::string out = t / ("out" + std::to_string(answer));
    UnzipHandler r(zip.c_str());
    Recorder rec;
    rec.answer = [answer](const Report& report) { return report.state == 2 ? answer : 0; };
    r.setCallback(Recorder::callback, &rec);
    EXPECT_FALSE(r.unzipTo(out.c_str(), false, kKeep)) << answer;
    ASSERT_EQ(sizeOnDisk(out + "/big.txt"), 65536) << answer;
    EXPECT_TRUE(readFile(out + "/big.txt") == big.substr(0, 65536)) << answer;
    EXPECT_EQ(permissions(out + "/big.txt"), newFileMode()) << "no mode after a failure";
    EXPECT_FALSE(exists(out + "/after.txt")) << "the archive stops at the failed entry";
    EXPECT_EQ(rec.states(), "123") << "the final report is made all the same";
  }

  // The single-entry form behaves the same, and the handler stays usable.
  UnzipHandler r(zip.c_str());
  Recorder rec;
  rec.answer = [](const Report& report) { return report.state == 2 ? 1 : 0; };
  r.setCallback(Recorder::callback, &rec);
  const std::string out = t / "single";
  EXPECT_FALSE(r.unzipFile(0, out.c_str(), false, kKeep));
  EXPECT_EQ(sizeOnDisk(out + "/big.txt"), 65536);
  rec.answer = nullptr;
  EXPECT_TRUE(r.unzipFile(1, out.c_str(), false, 0100604));
  EXPECT_EQ(readFile(out + "/after.txt"), "later");
  EXPECT_EQ(permissions(out + "/after.txt"), 0604u) << "an override mode replaces the entry's";
}

TEST(UnzipHandlerExtract, CompanionsLandOnTheirFile) {
  TempDir t;
  const std::string probe = t / "probe";
  writeFile(probe, "");
  if (setxattr(probe.c_str(), "user.probe", "1", 1, 0) != 0) {
    GTEST_SKIP() << "no user extended attributes under /tmp";
  }
  velzip::AppleDoubleContents contents;
  contents.attributes.push_back({"greeting", {'h', 'e', 'l', 'l', 'o'}, 0});
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(velzip::appleDoubleBuild(contents, bytes));

  // The format-0 writer puts a deflated companion after every file.
  const std::string zip = t / "fork.zip";
  PlainZip(zip)
      .file("dir/doc.txt", "document", 0100644)
      .file("__MACOSX/dir/._doc.txt", std::string(bytes.begin(), bytes.end()));
  UnzipHandler r(zip.c_str());
  const std::string out = t / "out";
  ASSERT_TRUE(r.unzipTo(out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/dir/doc.txt"), "document");
  char value[16] = {};
  EXPECT_EQ(getxattr((out + "/dir/doc.txt").c_str(), "user.greeting", value, sizeof value), 5);
  EXPECT_STREQ(value, "hello");
  EXPECT_FALSE(exists(out + "/__MACOSX/dir/._doc.txt"));
}

TEST(UnzipHandlerNavigation, BothReadersDescribeAnArchiveAlike) {
  TempDir t;
  const std::string format1 = t / "one.zip";
  ArchiveBuilder(format1)
      .dir("Payload/")
      .file("Payload\\setup.xml", "<x/>", 0100600)
      .raw("noted", lzmaPayload("n"), sizeField(1), 0100644, "a comment")
      .link("Payload/link", "setup.xml")
      .file("top.TXT", sampleBytes(90000, 4));
  const std::string format0 = t / "zero.zip";
  PlainZip(format0)
      .dir("Payload/")
      .file("Payload\\setup.xml", "<x/>", 0100600)
      .file("noted", "n", 0100644, kStored, "a comment")
      .link("Payload/link", "setup.xml")
      .file("top.TXT", sampleBytes(90000, 4));

  for (const std::string& zip : {format1, format0}) {
    SCOPED_TRACE(zip);
    UnzipHandler legacy(zip.c_str());
    Vel::VelUnzipHandler current(zip.c_str());
    ASSERT_EQ(legacy.getFileCount(), 5u);
    EXPECT_EQ(legacy.getFileCount(), current.getFileCount());
    EXPECT_EQ(legacy.getUnzipSize(), current.getUnzipSize());
    EXPECT_EQ(UnzipHandler::GetUnzipSize(zip.c_str()),
              Vel::VelUnzipHandler::GetUnzipSize(zip.c_str()));
    for (int i = 0; i < 6; ++i) {
      UZ_FileInfo a, b;
      const bool gotA = legacy.getFileInfo(i, a);
      ASSERT_EQ(gotA, current.getFileInfo(i, b)) << i;
      if (!gotA) continue;
      EXPECT_STREQ(a.fileName, b.fileName);
      EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a)) << a.fileName;
    }
    UZ_FileInfo a, b;
    ASSERT_TRUE(legacy.getFileInfo(1, a));
    EXPECT_STREQ(a.fileName, "Payload/setup.xml");
    EXPECT_EQ(a.mode, 0100600u);
    ASSERT_TRUE(legacy.getFileInfo(2, a));
    EXPECT_STREQ(a.comment, "a comment");

    ASSERT_TRUE(legacy.gotoFile("SETUP.XML", true));
    ASSERT_TRUE(current.gotoFile("SETUP.XML", true));
    legacy.getFileInfo(a);
    current.getFileInfo(b);
    EXPECT_STREQ(a.fileName, b.fileName);
    ASSERT_TRUE(legacy.gotoFirstFile("txt"));
    ASSERT_TRUE(current.gotoFirstFile("txt"));
    legacy.getFileInfo(a);
    EXPECT_STREQ(a.fileName, "top.TXT");
    EXPECT_FALSE(legacy.gotoNextFile("txt"));
    EXPECT_FALSE(legacy.gotoFile("link", false)) << "whole names only without the fallback";
  }

  // Only content differs: the format-0 reader writes a format-1 entry's
  // stored bytes, its LZMA2 payload, as they are.
  UnzipHandler legacy(format1.c_str());
  const std::string out = t / "raw";
  ASSERT_TRUE(legacy.unzipTo(out.c_str(), false, kKeep));
  EXPECT_TRUE(readFile(out + "/top.TXT") == lzmaPayload(sampleBytes(90000, 4)));
  EXPECT_EQ(linkTarget(out + "/Payload/link"), "setup.xml");
}

TEST(UnzipHandlerLog, LinesTakeTheUtilitiesRoutingNeverTheArchiveSink) {
  TempDir t;
  const std::string zip = t / "log.zip";
  PlainZip(zip).file("a", "A");
  const std::string blocker = t / "blocker";
  writeFile(blocker, "");
  const std::string unreachable = blocker + "/out";

  // Something that fails with one line: a destination under a regular file.
  auto failOnce = [&](UnzipHandler& r) {
    EXPECT_FALSE(r.unzipTo(unreachable.c_str(), false, kKeep));
  };

  LogCapture logs;  // captureSink on kLogMessageFnPtr and ulvoUtilsLogMessageFnPtr
  CaptureLogger object;
  {
    UnzipHandler r(zip.c_str());
    r.setLogger(&object);
    failOnce(r);
    ASSERT_EQ(logs.lines().size(), 1u) << "exactly one route per line";
    const LogLine& line = logs.lines()[0];
    EXPECT_EQ(line.module, "<object>");
    EXPECT_EQ(line.level, 50);
    EXPECT_EQ(line.component, "UnzipHandler");
    EXPECT_EQ(line.tag1, "");
    EXPECT_EQ(line.text, "Folder creation failed: " + unreachable);
  }
  capturedLines().clear();
  {
    UnzipHandler r(zip.c_str());
    failOnce(r);
    UnzipHandler closed(nullptr);
    EXPECT_FALSE(closed.unzipFile(0, t.path().c_str(), false, kKeep));
    ASSERT_EQ(logs.lines().size(), 2u);
    for (const LogLine& line : logs.lines()) {
      EXPECT_EQ(line.module, "UlvoUtils");
      EXPECT_EQ(line.component, "UnzipHandler");
      EXPECT_EQ(line.tag1, "");
      EXPECT_EQ(line.tag2, "");
    }
    EXPECT_EQ(logs.lines()[1].text, "NULL unzip File. OpenZip not called successfully.");
  }
  capturedLines().clear();
  ulvoUtilsLogMessageFnPtr = nullptr;
  ulvoUtilsLogger = &object;
  {
    UnzipHandler r(zip.c_str());
    failOnce(r);
    ASSERT_EQ(logs.lines().size(), 1u);
    EXPECT_EQ(logs.lines()[0].module, "<object>");
    EXPECT_EQ(logs.lines()[0].component, "UnzipHandler");
  }
  capturedLines().clear();
  ulvoUtilsLogger = nullptr;
  {
    // Only the archive sink is left: the format-0 reader stays silent and
    // fails all the same.
    UnzipHandler r(zip.c_str());
    failOnce(r);
    EXPECT_TRUE(logs.lines().empty());
    const std::string out = t / "out";
    EXPECT_TRUE(r.unzipTo(out.c_str(), false, kKeep));
    EXPECT_EQ(readFile(out + "/a"), "A");
  }

  // The format-1 reader keeps the handle for the host and logs to the
  // archive sink.
  Vel::VelUnzipHandler current(zip.c_str());
  current.setLogger(&object);
  EXPECT_FALSE(current.unzipTo(unreachable.c_str(), false, kKeep));
  ASSERT_EQ(logs.lines().size(), 1u);
  EXPECT_EQ(logs.lines()[0].module, "VELZIP");
  EXPECT_EQ(logs.lines()[0].component, "VelUnzipHandler");
}

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/temp_dir.h"
#include "unzip/archive_builder.h"
#include "unzip/recorder.h"
#include "velzip/VelUnzipHandler.h"

using namespace velzip_test;

namespace {

constexpr unsigned long kKeep = 0xFFFFFFFFul;

std::string entryName(Vel::VelUnzipHandler& r) {
  UZ_FileInfo info;
  return r.getFileInfo(info) ? info.fileName : "<none>";
}

}  // namespace

TEST(VelUnzipNavigation, CountsFiltersAndFindsEntries) {
  TempDir t;
  const std::string zip = t / "nav.zip";
  ArchiveBuilder(zip)
      .file("readme", "r")
      .file("Payload\\setup.xml", "<x/>")
      .dir("a/")
      .file("a/B.ZIP", "z")
      .file("top.txt", "t")
      .file("c.zip", "zz");

  Vel::VelUnzipHandler r(zip.c_str());
  EXPECT_EQ(r.getFileCount(), 6u);

  ASSERT_TRUE(r.gotoFirstFile("zip"));  // case-insensitive, no dot
  EXPECT_EQ(entryName(r), "a/B.ZIP");
  ASSERT_TRUE(r.gotoNextFile("ZIP"));
  EXPECT_EQ(entryName(r), "c.zip");
  EXPECT_FALSE(r.gotoNextFile("zip"));
  EXPECT_FALSE(r.gotoFirstFile("none"));

  for (const char* any : {"", static_cast<const char*>(nullptr)}) {
    ASSERT_TRUE(r.gotoFirstFile(any));
    EXPECT_EQ(entryName(r), "readme");
    ASSERT_TRUE(r.gotoNextFile(any));
    EXPECT_EQ(entryName(r), "Payload/setup.xml") << "backslashes become slashes";
  }

  EXPECT_TRUE(r.gotoFile("TOP.TXT", false));
  EXPECT_EQ(entryName(r), "top.txt");
  EXPECT_FALSE(r.gotoFile("setup.xml", false));
  ASSERT_TRUE(r.gotoFile("SETUP.xml", true)) << "base name of a name stored with a backslash";
  EXPECT_EQ(entryName(r), "Payload/setup.xml");
  EXPECT_FALSE(r.gotoFile("missing", true));
  EXPECT_FALSE(r.gotoFile(nullptr, true));

  EXPECT_TRUE(r.gotoFile(3));
  EXPECT_EQ(entryName(r), "a/B.ZIP");
  EXPECT_FALSE(r.gotoFile(6));
  EXPECT_FALSE(r.gotoFile(-1));
  UZ_FileInfo info;
  ASSERT_TRUE(r.getFileInfo(2, info));
  EXPECT_STREQ(info.fileName, "a/");
  EXPECT_TRUE(info.isDirectory);
  EXPECT_EQ(info.mode, 040755u);
  EXPECT_FALSE(r.getFileInfo(-1, info));
  EXPECT_FALSE(r.getFileInfo(99, info));

  // Closed: every query answers false / 0 and leaves the record alone.
  EXPECT_TRUE(r.closeZip());
  EXPECT_FALSE(r.closeZip());
  std::strcpy(info.fileName, "kept");
  EXPECT_FALSE(r.getFileInfo(info));
  EXPECT_STREQ(info.fileName, "kept");
  EXPECT_EQ(r.getFileCount(), 0u);
  EXPECT_FALSE(r.gotoFirstFile(nullptr));
  EXPECT_FALSE(r.gotoNextFile("zip"));
  EXPECT_FALSE(r.gotoFile(0));
  EXPECT_FALSE(r.gotoFile("top.txt", true));
  EXPECT_FALSE(r.openZip(nullptr));
  EXPECT_FALSE(r.openZip((t / "missing.zip").c_str()));
}

TEST(VelUnzipNavigation, FillsEntryRecords) {
  TempDir t;
  const std::string zip = t / "info.zip";
  const std::string longName = std::string(1100, 'n');
  const std::string payload = lzmaPayload("hello");
  ArchiveBuilder(zip, true)  // zip64 headers read as well
      .raw("f.txt", payload, sizeField(5), 0100640, std::string(300, 'c').c_str())
      .link("ln", "f.txt")
      .raw(longName, "", "", 0100644)
      .raw("nomode", "", "", 0);

  Vel::VelUnzipHandler r(zip.c_str());
  UZ_FileInfo info;
  ASSERT_TRUE(r.getFileInfo(0, info));
  EXPECT_STREQ(info.fileName, "f.txt");
  EXPECT_EQ(info.mode, 0100640u);
  EXPECT_FALSE(info.isDirectory);
  EXPECT_EQ(info.compressionMethod, 0u);
  EXPECT_EQ(info.compressedSize, payload.size());
  EXPECT_EQ(info.uncompressedSize, payload.size()) << "zip-level size, not the restored one";
  EXPECT_NE(info.crc, 0u);
  EXPECT_NE(info.dosDate, 0u);
  EXPECT_EQ(std::strlen(info.comment), sizeof info.comment - 1) << "cut and terminated";

  ASSERT_TRUE(r.getFileInfo(1, info));
  EXPECT_EQ(info.mode & 0xF000u, 0xA000u);
  ASSERT_TRUE(r.getFileInfo(2, info));
  EXPECT_EQ(std::string(info.fileName), longName.substr(0, 1024));
  ASSERT_TRUE(r.getFileInfo(3, info));
  EXPECT_EQ(info.mode, 0u);
}

TEST(VelUnzipNavigation, UnzipSizeIsCachedForTheHandlersLife) {
  TempDir t;
  const std::string first = t / "one.zip", second = t / "two.zip";
  const std::string a = lzmaPayload(sampleBytes(70000)), b = lzmaPayload("");
  ArchiveBuilder(first)
      .raw("a", a, sizeField(70000), 0100644)
      .raw("b", b, sizeField(0), 0100644)
      .link("l", "abc");
  ArchiveBuilder(second).file("other", sampleBytes(5000, 9));

  const unsigned long long expected = a.size() + b.size() + 3;
  Vel::VelUnzipHandler r(first.c_str());
  EXPECT_EQ(r.getUnzipSize(), expected);
  EXPECT_FALSE(r.gotoNextFile(nullptr)) << "left past the last entry";
  ASSERT_TRUE(r.openZip(second.c_str()));
  EXPECT_EQ(r.getUnzipSize(), expected) << "never recomputed";
  EXPECT_EQ(Vel::VelUnzipHandler::GetUnzipSize(first.c_str()), static_cast<long long>(expected));
  EXPECT_EQ(Vel::VelUnzipHandler::GetUnzipSize((t / "none.zip").c_str()), 0);
  EXPECT_EQ(Vel::VelUnzipHandler::GetUnzipSize(nullptr), 0);
  Vel::VelUnzipHandler closed(nullptr);
  EXPECT_EQ(closed.getUnzipSize(), 0u);
}

TEST(VelUnzipNavigation, OutputFolderComesFromTheArchivePath) {
  TempDir t;
  ASSERT_EQ(mkdir((t / "d.v2").c_str(), 0755), 0);
  const std::string odd = t / "d.v2/archive";
  ArchiveBuilder(odd).file("x", "1");
  ArchiveBuilder(t / "pkg.zip").file("y", "2");

  Vel::VelUnzipHandler r(odd.c_str());
  ASSERT_TRUE(r.unzip(false)) << "the last dot wins, even inside a folder name";
  EXPECT_EQ(readFile(t / "d/x"), "1");

  ASSERT_TRUE(r.unzip((t / "pkg.zip").c_str(), nullptr, false, kKeep));
  EXPECT_EQ(readFile(t / "pkg/y"), "2");
  EXPECT_EQ(r.getFileCount(), 0u) << "left closed";
  EXPECT_FALSE(r.unzip(false));
  EXPECT_FALSE(r.unzip((t / "none.zip").c_str(), nullptr, false, kKeep));

  // setOutputFolder takes only folders that exist.
  ASSERT_TRUE(r.openZip((t / "pkg.zip").c_str()));
  EXPECT_FALSE(r.setOutputFolder((t / "nowhere").c_str()));
  EXPECT_FALSE(r.setOutputFolder((t / "pkg/y").c_str()));
  EXPECT_FALSE(r.setOutputFolder(nullptr));
  ASSERT_TRUE(r.setOutputFolder((t / "d").c_str()));
  ASSERT_TRUE(r.unzip(false));
  EXPECT_EQ(readFile(t / "d/y"), "2");
}

TEST(VelUnzipNavigation, NullCallbackKeepsTheOldOneButTakesTheUserData) {
  TempDir t;
  const std::string zip = t / "cb.zip";
  ArchiveBuilder(zip).file("f", "data");
  Recorder first, second;
  Vel::VelUnzipHandler r(zip.c_str());
  r.setCallback(Recorder::callback, &first);
  r.setCallback(nullptr, &second);
  ASSERT_TRUE(r.unzipTo((t / "out").c_str(), false, kKeep));
  EXPECT_TRUE(first.reports.empty());
  EXPECT_EQ(second.states(), "123");
}

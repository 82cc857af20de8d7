// Archives as other hosts and writers make them: attributes without Unix
// modes, times in two places, zip64 fields on small entries, long names,
// methods velzip does not decode, set-id bits and lying entry counts.
#include "support/zip_craft.h"
#include "unzip/fixtures.h"

using namespace velzip_test;

namespace {

constexpr uint16_t kMadeOnDos = 0 << 8 | 20;
constexpr uint16_t kMadeOnNtfs = 10 << 8 | 63;

time_t modTime(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_mtime : -1;
}

}  // namespace

TEST(Foreign, ModesWithoutUnixBitsGetDefaultsAndDosFoldersAreFolders) {
  TempDir t;
  auto entry = [](CraftEntry e, uint16_t madeBy, uint32_t external) {
    e.madeBy = madeBy;
    e.external = external;
    return e;
  };
  CraftEntry folder = storedEntry("Folder", "");  // no trailing '/': only the attribute says
  writeFile(t / "win.zip",
            craftZip({entry(folder, kMadeOnNtfs, 0x10),
                      entry(storedEntry("Folder/file.txt", "from windows"), kMadeOnNtfs, 0x20),
                      entry(deflatedEntry("java.txt", "from java"), kMadeOnDos, 0),
                      entry(storedEntry("unix-noperm", "x"), 3 << 8 | 20, 0100000u << 16),
                      entry(storedEntry("unix", "y"), 3 << 8 | 20, 0100751u << 16)}));
  const mode_t mask = umask(027);
  for (int format : {0, 1}) {
    SCOPED_TRACE(format);
    const std::string out = t / ("out" + std::to_string(format));
    // Format 1 reads files as payloads: only the folder and modes matter here.
    if (format == 1) {
      UZ_FileInfo info;
      Vel::VelUnzipHandler r((t / "win.zip").c_str());
      ASSERT_TRUE(r.getFileInfo(0, info));
      EXPECT_TRUE(info.isDirectory) << "the folder attribute counts";
      continue;
    }
    ASSERT_TRUE(extract(format, t / "win.zip", out));
    EXPECT_EQ(permissions(out + "/Folder"), 0750u);
    EXPECT_EQ(permissions(out + "/Folder/file.txt"), 0640u);
    EXPECT_EQ(permissions(out + "/java.txt"), 0640u);
    EXPECT_EQ(permissions(out + "/unix-noperm"), 0640u);
    EXPECT_EQ(permissions(out + "/unix"), 0751u) << "Unix modes are kept as they are";
    EXPECT_EQ(readFile(out + "/Folder/file.txt"), "from windows");
  }
  umask(mask);
}

TEST(Foreign, TimesComeFromTheTimestampFieldElseTheDosTime) {
  TempDir t;
  CraftEntry central = storedEntry("central", "c"), local = storedEntry("local", "l");
  central.centralExtra = timestampBlock(1234567891);
  local.localExtra = timestampBlock(1134567891);
  CraftEntry dos = storedEntry("dos", "d");  // 2021-04-17 11:16:00, local time
  CraftEntry folder = storedEntry("dir/", "");
  folder.external = 040755u << 16;
  folder.centralExtra = timestampBlock(1034567891);
  CraftEntry link = storedEntry("dir/link", "../central");
  link.external = 0120777u << 16;
  link.centralExtra = timestampBlock(934567891);
  CraftEntry inner = storedEntry("dir/inner", "i");  // written after its folder's entry
  writeFile(t / "times.zip", craftZip({central, local, dos, folder, link, inner}));
  struct tm tm = {};
  tm.tm_year = 121;
  tm.tm_mon = 3;
  tm.tm_mday = 17;
  tm.tm_hour = 11;
  tm.tm_min = 16;
  tm.tm_isdst = -1;
  const time_t dosTime = mktime(&tm);

  const std::string out = t / "out";
  ASSERT_TRUE(extract(0, t / "times.zip", out));
  EXPECT_EQ(modTime(out + "/central"), 1234567891);
  EXPECT_EQ(modTime(out + "/local"), 1134567891);
  EXPECT_EQ(modTime(out + "/dos"), dosTime);
  EXPECT_EQ(modTime(out + "/dir"), 1034567891) << "set after its contents";
  EXPECT_EQ(modTime(out + "/dir/link"), 934567891) << "the link itself";

  UnzipHandler r((t / "times.zip").c_str());
  UZ_FileInfo info;
  ASSERT_TRUE(r.getFileInfo(2, info));
  EXPECT_TRUE(r.setFileModTime((out + "/central").c_str(), info.dosDate));
  EXPECT_EQ(modTime(out + "/central"), dosTime);
}

TEST(Foreign, Zip64FieldsOnSmallEntriesAreRead) {
  TempDir t;
  const std::string data = sampleBytes(100000, 9);
  std::vector<CraftEntry> entries = {deflatedEntry("a.txt", data), storedEntry("b.txt", "bee")};
  for (CraftEntry& e : entries) e.zip64Central = true;
  writeFile(t / "z64.zip", craftZip(entries));
  UnzipHandler r((t / "z64.zip").c_str());
  UZ_FileInfo info;
  ASSERT_TRUE(r.getFileInfo(0, info));
  EXPECT_EQ(info.uncompressedSize, data.size()) << "not the 0xFFFFFFFF marker";
  EXPECT_EQ(info.compressedSize, entries[0].stored.size());
  EXPECT_EQ(r.getUnzipSize(), data.size() + 3);
  ASSERT_TRUE(r.unzipTo((t / "out").c_str(), false, kKeep));
  EXPECT_EQ(readFile(t / "out/a.txt"), data);
  EXPECT_EQ(readFile(t / "out/b.txt"), "bee");
}

TEST(Foreign, NamesAreUsedWholeOrFailWhole) {
  TempDir t;
  const std::string out = t / "out";
  std::string deep;  // 1,166 bytes in short components
  while (deep.size() < 1160) deep += std::string(50, 'd') + "/";
  deep += "file.x";
  const std::string wide = std::string(1100, 'w');  // one component no file system takes
  writeFile(t / "names.zip", craftZip({storedEntry(deep, "deep"), storedEntry(wide, "wide")}));
  UnzipHandler r((t / "names.zip").c_str());
  LogCapture logs;
  EXPECT_TRUE(r.unzipFile(0, out.c_str(), false, kKeep));
  EXPECT_EQ(readFile(out + "/" + deep), "deep") << "never under a shortened name";
  EXPECT_FALSE(r.unzipFile(1, out.c_str(), false, kKeep));
  EXPECT_TRUE(logs.contains("File name too long"));
  UZ_FileInfo info;
  ASSERT_TRUE(r.getFileInfo(0, info));
  EXPECT_EQ(std::string(info.fileName), deep.substr(0, 1024)) << "the host's buffer keeps 1024";
  EXPECT_EQ(treeListing(out).find('w'), std::string::npos);
}

TEST(Foreign, MethodsVelzipCannotDecodeFailBeforeAnythingIsWritten) {
  if (!haveTool("7zz")) GTEST_SKIP() << "7zz missing";
  TempDir t;
  ASSERT_EQ(mkdir((t / "src").c_str(), 0755), 0);
  writeFile(t / "src/data.txt", sampleBytes(50000, 1));
  const struct {
    const char* command;
    const char* why;
  } cases[] = {{"7zz a -tzip -mm=Deflate64", "unsupported compression method 9 (deflate64)"},
               {"7zz a -tzip -mm=PPMd", "unsupported compression method 98 (ppmd)"}};
  LogCapture logs;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    const std::string zip = t / "m.zip", out = t / "m.out";
    unlink(zip.c_str());
    ASSERT_EQ(runQuietly("cd '" + t / "src" + "' && " + c.command + " '" + zip + "' data.txt"), 0);
    capturedLines().clear();
    Recorder rec;
    EXPECT_FALSE(extract(0, zip, out, &rec));
    EXPECT_FALSE(exists(out + "/data.txt"));
    EXPECT_TRUE(logs.contains(out + "/data.txt: " + c.why));
  }
}

TEST(Foreign, SetIdBitsOnlyOnRequest) {
  TempDir t;
  CraftEntry tool = storedEntry("tool", "#!/bin/sh\n");
  tool.external = 0104755u << 16;
  CraftEntry shared = storedEntry("shared/", "");
  shared.external = 042775u << 16;
  CraftEntry sticky = storedEntry("sticky/", "");
  sticky.external = 041777u << 16;
  writeFile(t / "id.zip", craftZip({tool, shared, sticky}));
  for (bool keep : {false, true}) {
    const std::string out = t / (keep ? "kept" : "dropped");
    UnzipHandler r((t / "id.zip").c_str());
    r.setKeepSetIdBits(keep);
    ASSERT_TRUE(r.unzipTo(out.c_str(), false, kKeep));
    EXPECT_EQ(permissions(out + "/tool"), keep ? 04755u : 0755u);
    EXPECT_EQ(permissions(out + "/shared"), keep ? 02775u : 0775u);
    EXPECT_EQ(permissions(out + "/sticky"), 01777u) << "the sticky bit is no privilege";
  }
}

TEST(Foreign, NavigationStopsAtTheCountTheArchiveGives) {
  TempDir t;
  writeFile(t / "zero.zip", craftZip({storedEntry("hidden", "h")}, 0));
  for (int format : {0, 1}) {
    withReader(format, t / "zero.zip", [&](auto& r) {
      UZ_FileInfo info;
      EXPECT_EQ(r.getFileCount(), 0u);
      EXPECT_FALSE(r.gotoFirstFile(nullptr) || r.gotoFirstFile("zip") || r.gotoNextFile(nullptr));
      EXPECT_FALSE(r.gotoFile("hidden", false) || r.gotoFile("hidden", true) || r.gotoFile(0));
      EXPECT_FALSE(r.unzipFile(0, (t / "out").c_str(), false, kKeep));
      EXPECT_FALSE(r.unzipTo((t / "out").c_str(), false, kKeep));
      EXPECT_FALSE(r.getFileInfo(0, info));
      EXPECT_EQ(r.getUnzipSize(), 0u);
    });
  }
  EXPECT_FALSE(exists(t / "out/hidden"));
}
